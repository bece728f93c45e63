# What makes an installed tree a package for CMake, for pkg-config and for Debian. Libraries, headers
# and program are installed where they are built.
include(CMakePackageConfigHelpers)

install(EXPORT HtBaseTargets NAMESPACE HtBase:: DESTINATION "${HTBASE_INSTALL_CMAKEDIR}"
  COMPONENT development)
configure_package_config_file(cmake/HtBaseConfig.cmake.in HtBaseConfig.cmake
  INSTALL_DESTINATION "${HTBASE_INSTALL_CMAKEDIR}"
  NO_SET_AND_CHECK_MACRO)
# As the SONAME has it.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(lCompatibility SameMinorVersion)
else()
  set(lCompatibility SameMajorVersion)
endif()
write_basic_package_version_file(HtBaseConfigVersion.cmake COMPATIBILITY ${lCompatibility})
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/HtBaseConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/HtBaseConfigVersion.cmake"
  DESTINATION "${HTBASE_INSTALL_CMAKEDIR}" COMPONENT development)

# Static libraries leave to their user what they need themselves.
set(HTBASE_PC_LIBS "")
set(HTBASE_PC_REQUIRES "")
if(NOT BUILD_SHARED_LIBS)
  set(HTBASE_PC_LIBS " -pthread")
  foreach(lLibrary ${CMAKE_DL_LIBS})
    string(APPEND HTBASE_PC_LIBS " -l${lLibrary}")
  endforeach()
  if(HTBASE_HAS_LIBUSB)
    set(HTBASE_PC_REQUIRES "Requires: libusb-1.0 >= ${HTBASE_LIBUSB_MINIMUM}")
  endif()
endif()
configure_file(cmake/htbase.pc.in htbase.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/htbase.pc"
  DESTINATION "${HTBASE_INSTALL_PKGCONFIGDIR}" COMPONENT development)

# Programs to copy.
install(DIRECTORY Examples/ DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples"
  COMPONENT development)

if(PROJECT_IS_TOP_LEVEL AND BUILD_SHARED_LIBS AND HTBASE_BUILD_TOOLS)
  include(HtBasePackages)
endif()
