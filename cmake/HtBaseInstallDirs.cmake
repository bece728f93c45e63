# Where things are installed, relative to the prefix.

# Debian's folder for libraries, under every prefix: so an installed tree and the packages look alike,
# and Debian's compilers, pkg-config and CMake look there.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE
    AND EXISTS "/etc/debian_version")
  set(CMAKE_INSTALL_LIBDIR "lib/${CMAKE_LIBRARY_ARCHITECTURE}"
    CACHE PATH "Libraries, relative to the prefix")
endif()
include(GNUInstallDirs)

# A folder of their own, so that names such as HtString.h cannot meet others'.
set(HTBASE_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/HtBase")
set(HTBASE_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/HtBase")
set(HTBASE_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# The way from one to the other, so that the prefix can be moved.
file(RELATIVE_PATH HTBASE_LIBDIR_FROM_BINDIR
  "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH HTBASE_INCLUDEDIR_FROM_LIBDIR
  "${CMAKE_INSTALL_FULL_LIBDIR}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}/HtBase")
