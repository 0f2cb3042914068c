# Compiler settings shared by every target of the project.
add_library(qvdsp_options INTERFACE)
target_compile_options(qvdsp_options INTERFACE
  -Wall -Wextra -Wno-unused-parameter
  # Arithmetic must run in the order written: tests compare exact values.
  -ffp-contract=off)
# GCC 12 warns about overlapping copies inside std::string's own operator+
# (a known false positive of its inliner); the warning says nothing about us.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(qvdsp_options INTERFACE -Wno-restrict)
endif()
if(QVDSP_SANITIZE)
  target_compile_options(qvdsp_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(qvdsp_options INTERFACE -fsanitize=address,undefined)
endif()
