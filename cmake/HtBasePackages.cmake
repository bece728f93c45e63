# Debian packages, made by `cpack` in the build folder: the libraries, what all their versions share,
# the program, and what one compiles with.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME htbase)
set(CPACK_PACKAGE_VENDOR "HtBase developers")
set(CPACK_PACKAGE_CONTACT "HtBase developers <htbase@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL libraries common tool development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(lLibraries "libhtbase${HTBASE_SOVERSION}")
set(lSameLibraries "${lLibraries} (= ${PROJECT_VERSION})")

# What they need of Debian is told by dpkg-shlibdeps, which has to see our own libraries too.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  "${PROJECT_BINARY_DIR}/Libraries/HtBase"
  "${PROJECT_BINARY_DIR}/Platform/QmUtilsLib"
  "${PROJECT_BINARY_DIR}/Platform/WdTransportLayerLib"
  "${PROJECT_BINARY_DIR}/Platform/WdUtilsLib")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME "${lLibraries}")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_RECOMMENDS libhtbase-common)
# dpkg-shlibdeps knows what the libraries call, not what they rely on. Debian's versions begin with 2:.
if(HTBASE_HAS_LIBUSB)
  set(CPACK_DEBIAN_LIBRARIES_PACKAGE_DEPENDS "libusb-1.0-0 (>= 2:${HTBASE_LIBUSB_MINIMUM})")
endif()
set(CPACK_COMPONENT_LIBRARIES_DESCRIPTION
  "Control links to GigE Vision and USB3 Vision devices, capability records, TFTP and firmware
payloads: the shared libraries HtBase, WdTransportLayerLib, WdUtilsLib and QmUtilsLib.")
# The loader's cache is renewed by libc-bin, on its trigger. cpack would add scripts that do it once
# more and that want a whole system around them; it leaves out those that it is told of, although
# there are none.
file(WRITE "${PROJECT_BINARY_DIR}/debian/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA
  "${PROJECT_BINARY_DIR}/debian/triggers"
  "${PROJECT_BINARY_DIR}/debian/no/postinst"
  "${PROJECT_BINARY_DIR}/debian/no/postrm")

set(CPACK_DEBIAN_COMMON_PACKAGE_NAME libhtbase-common)
set(CPACK_DEBIAN_COMMON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_COMMON_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_COMMON_DESCRIPTION
  "The udev rule that lets users who are logged in open USB3 Vision devices.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME htbase)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${lSameLibraries}")
set(CPACK_COMPONENT_TOOL_DESCRIPTION
  "The program htbase: registers, memory, files and firmware of GigE Vision and USB3 Vision devices
from the command line, and virtual devices to try programs with.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libhtbase-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${lSameLibraries}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Headers, example programs, and the files that CMake and pkg-config find the libraries by.")

include(CPack)
