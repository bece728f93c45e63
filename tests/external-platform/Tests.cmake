# HtBase on platform libraries of others, here those of this build. Compiles the library once more, so
# not under the sanitizers as well.
if(BUILD_SHARED_LIBS AND NOT HTBASE_SANITIZE AND NOT HTBASE_COVERAGE)
  # htbase_add_kit_test(NAME IS-COMPLETE): configures, builds and runs tests/external-platform.
  function(htbase_add_kit_test aName aIsComplete)
    add_test(NAME ${aName} COMMAND "${CMAKE_CTEST_COMMAND}"
      --build-and-test "${PROJECT_SOURCE_DIR}/tests/external-platform"
        "${CMAKE_CURRENT_BINARY_DIR}/${aName}"
      --build-generator "${CMAKE_GENERATOR}"
      --build-options
        "-DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}"
        "-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}"
        "-DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}"
        "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
        "-DHTBASE_SOURCE=${PROJECT_SOURCE_DIR}"
        "-DKIT_IS_COMPLETE=${aIsComplete}"
        "-DKIT_QMUTILSLIB=$<TARGET_FILE:QmUtilsLib>"
        "-DKIT_WDUTILSLIB=$<TARGET_FILE:WdUtilsLib>"
        "-DKIT_WDTRANSPORTLAYERLIB=$<TARGET_FILE:WdTransportLayerLib>"
      --test-command ldd "${CMAKE_CURRENT_BINARY_DIR}/${aName}/ReadRegister")
    set_tests_properties(${aName} PROPERTIES LABELS integration TIMEOUT 600)
  endfunction()
  htbase_add_kit_test(ExternalPlatform.TakesThePlaceOfOurs ON)
  htbase_add_kit_test(ExternalPlatform.IsMissed OFF)
  string(REGEX REPLACE "([.+])" "\\\\\\1" lFolder "${PROJECT_BINARY_DIR}/Platform")
  set_tests_properties(ExternalPlatform.TakesThePlaceOfOurs PROPERTIES
    PASS_REGULAR_EXPRESSION "libHtBase[^\n]*TakesThePlaceOfOurs.*libQmUtilsLib[^\n]*${lFolder}")
  set_tests_properties(ExternalPlatform.IsMissed PROPERTIES
    PASS_REGULAR_EXPRESSION "HTBASE_EXTERNAL_PLATFORM needs the target +QmUtilsLib")
endif()
