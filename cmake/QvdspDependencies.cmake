# Every dependency is a Debian package that scripts/setup.sh installs.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
find_package(nlohmann_json 3 REQUIRED)
find_package(CLI11 REQUIRED)
pkg_check_modules(FFTW3 REQUIRED IMPORTED_TARGET fftw3 fftw3f)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr)
pkg_check_modules(SOUNDTOUCH REQUIRED IMPORTED_TARGET soundtouch)

add_library(qvdsp_deps INTERFACE)
target_link_libraries(qvdsp_deps INTERFACE
  Threads::Threads ZLIB::ZLIB nlohmann_json::nlohmann_json
  PkgConfig::FFTW3 PkgConfig::SNDFILE PkgConfig::SOXR PkgConfig::SOUNDTOUCH
  ${CMAKE_DL_LIBS})

if(QVDSP_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(QVDSP_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
