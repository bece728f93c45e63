# For platform libraries from elsewhere, see docs/platform-libraries.md.
foreach(lTarget QmUtilsLib WdUtilsLib WdTransportLayerLib)
  if(NOT TARGET ${lTarget})
    message(FATAL_ERROR "HTBASE_EXTERNAL_PLATFORM needs the target ${lTarget}. Define QmUtilsLib, "
      "WdUtilsLib and WdTransportLayerLib before HtBase is added, or name a file that does so: "
      "-DCMAKE_PROJECT_HtBase_INCLUDE=FILE")
  endif()
endforeach()
if(HTBASE_BUILD_TOOLS OR HTBASE_BUILD_TESTS OR HTBASE_INSTALL)
  message(FATAL_ERROR
    "HTBASE_BUILD_TOOLS, HTBASE_BUILD_TESTS and HTBASE_INSTALL need our own platform libraries")
endif()
