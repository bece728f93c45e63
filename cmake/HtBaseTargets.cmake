# What every target of this project is compiled with, and one function per kind of target.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# A program is not linked again when a shared library that it uses has changed.
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)

find_package(Threads REQUIRED)
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(htbase_options INTERFACE)
target_compile_options(htbase_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(HTBASE_WERROR)
  target_compile_options(htbase_options INTERFACE -Werror)
endif()
# Files of 2 GiB and more, also where long has 32 bits.
target_compile_definitions(htbase_options INTERFACE _FILE_OFFSET_BITS=64)

# A library that has unique symbols can never be unloaded again.
check_cxx_compiler_flag(-fno-gnu-unique HTBASE_HAS_NO_GNU_UNIQUE)
if(HTBASE_HAS_NO_GNU_UNIQUE)
  target_compile_options(htbase_options INTERFACE -fno-gnu-unique)
endif()
# The lock annotations of QmUtilsLib are checked by clang.
check_cxx_compiler_flag(-Wthread-safety HTBASE_HAS_THREAD_SAFETY)
if(HTBASE_HAS_THREAD_SAFETY)
  target_compile_options(htbase_options INTERFACE -Wthread-safety)
endif()

set(lIsShipped $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
# What distributions compile with, in optimised builds: sanitizers have checks of their own, and debug
# builds are not shipped. docs/performance.md tells what it costs.
if(HTBASE_HARDENING AND NOT HTBASE_SANITIZE AND NOT HTBASE_COVERAGE)
  foreach(lFlag IN ITEMS stack-protector-strong stack-clash-protection cf-protection)
    string(MAKE_C_IDENTIFIER "HTBASE_HAS_${lFlag}" lHas)
    check_cxx_compiler_flag(-f${lFlag} ${lHas})
    if(${lHas})
      target_compile_options(htbase_options INTERFACE $<${lIsShipped}:-f${lFlag}>)
    endif()
  endforeach()
  target_compile_options(htbase_options INTERFACE
    $<${lIsShipped}:-U_FORTIFY_SOURCE> $<${lIsShipped}:-D_FORTIFY_SOURCE=2>)
  check_linker_flag(CXX "LINKER:-z,relro,-z,now" HTBASE_HAS_RELRO)
  if(HTBASE_HAS_RELRO)
    target_link_options(htbase_options INTERFACE $<${lIsShipped}:LINKER:-z,relro,-z,now>)
  endif()
  # Programs are position-independent too, also where that is not the compiler's default.
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
endif()

if(HTBASE_SANITIZE)
  target_compile_options(htbase_options INTERFACE
    -fsanitize=${HTBASE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(htbase_options INTERFACE -fsanitize=${HTBASE_SANITIZE})
endif()
# What is tested is optimised a little under a sanitizer, so that the tests take no longer than need
# be; tests and programs are not, since optimising instrumented code triples their compilation.
add_library(htbase_library_options INTERFACE)
target_link_libraries(htbase_library_options INTERFACE htbase_options)
# Calls within a source unit need not go by a name that a program might define too, and calls of other
# libraries need no stub: all addresses are known before the first call. docs/performance.md tells what
# that saves.
foreach(lFlag IN ITEMS no-semantic-interposition no-plt)
  string(MAKE_C_IDENTIFIER "HTBASE_HAS_${lFlag}" lHas)
  check_cxx_compiler_flag(-f${lFlag} ${lHas})
  if(${lHas})
    target_compile_options(htbase_library_options INTERFACE $<${lIsShipped}:-f${lFlag}>)
  endif()
endforeach()
if(HTBASE_SANITIZE)
  target_compile_options(htbase_library_options INTERFACE -O1)
endif()
if(HTBASE_COVERAGE)
  target_compile_options(htbase_options INTERFACE --coverage)
  target_link_options(htbase_options INTERFACE --coverage)
endif()

# While the version is 0.x, every minor version may break what is compiled against the one before.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(HTBASE_SOVERSION "0.${PROJECT_VERSION_MINOR}")
else()
  set(HTBASE_SOVERSION "${PROJECT_VERSION_MAJOR}")
endif()

check_linker_flag(CXX
  "LINKER:--version-script=${PROJECT_SOURCE_DIR}/Libraries/HtBase/HtBase.map"
  HTBASE_HAS_VERSION_SCRIPT)

# htbase_public_library(TARGET HEADERS folder): one of the project's libraries, as others get it: its
# SONAME, its headers, the symbols that TARGET.map beside the caller's CMakeLists.txt lets out, and
# its installation.
function(htbase_public_library aTarget)
  cmake_parse_arguments(lArg "" "HEADERS" "" ${ARGN})
  add_library(HtBase::${aTarget} ALIAS ${aTarget})
  # Wherever the libraries are moved to, they find one another beside themselves.
  set_target_properties(${aTarget} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${HTBASE_SOVERSION}
    INSTALL_RPATH "$ORIGIN")
  target_include_directories(${aTarget} PUBLIC
    "$<BUILD_INTERFACE:${lArg_HEADERS}>"
    "$<INSTALL_INTERFACE:${HTBASE_INSTALL_INCLUDEDIR}>")
  if(BUILD_SHARED_LIBS AND HTBASE_HAS_VERSION_SCRIPT)
    set(lMap "${CMAKE_CURRENT_SOURCE_DIR}/${aTarget}.map")
    target_link_options(${aTarget} PRIVATE "LINKER:--version-script=${lMap}")
    set_property(TARGET ${aTarget} APPEND PROPERTY LINK_DEPENDS "${lMap}")
  endif()
  if(HTBASE_INSTALL)
    install(TARGETS ${aTarget} EXPORT HtBaseTargets
      RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT libraries
      LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libraries
      NAMELINK_COMPONENT development
      ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
    install(DIRECTORY "${lArg_HEADERS}/" DESTINATION "${HTBASE_INSTALL_INCLUDEDIR}"
      COMPONENT development FILES_MATCHING PATTERN "*.h")
  endif()
endfunction()
