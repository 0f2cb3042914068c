# qvdsp_add_test(NAME source...): one GoogleTest binary, registered with CTest.
function(qvdsp_add_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE qvdsp_test_support GTest::gtest_main GTest::gmock)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    # A test that forgets to name its own settings file must never reach the
    # user's real one.
    PROPERTIES ENVIRONMENT
      "QVDSP_SOURCE_DIR=${PROJECT_SOURCE_DIR};QVDSP_SETTINGS=${CMAKE_BINARY_DIR}/test-home/dsp-settings.json;XDG_CONFIG_HOME=${CMAKE_BINARY_DIR}/test-home;HOME=${CMAKE_BINARY_DIR}/test-home")
endfunction()
