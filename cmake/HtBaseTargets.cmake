# What every target of this project is compiled with, and one function per kind of target.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_package(Threads REQUIRED)
include(CheckCXXCompilerFlag)

add_library(htbase_options INTERFACE)
target_compile_options(htbase_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)

# A library that has unique symbols can never be unloaded again.
check_cxx_compiler_flag(-fno-gnu-unique HTBASE_HAS_NO_GNU_UNIQUE)
if(HTBASE_HAS_NO_GNU_UNIQUE)
  target_compile_options(htbase_options INTERFACE -fno-gnu-unique)
endif()
# The lock annotations of QmUtilsLib are checked by clang.
check_cxx_compiler_flag(-Wthread-safety HTBASE_HAS_THREAD_SAFETY)
if(HTBASE_HAS_THREAD_SAFETY)
  target_compile_options(htbase_options INTERFACE -Wthread-safety -Werror=thread-safety)
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
if(HTBASE_SANITIZE)
  target_compile_options(htbase_library_options INTERFACE -O1)
endif()
if(HTBASE_COVERAGE)
  target_compile_options(htbase_options INTERFACE --coverage)
  target_link_options(htbase_options INTERFACE --coverage)
endif()

# htbase_library_version(TARGET): the SONAME of one of the project's libraries.
function(htbase_library_version aTarget)
  set_target_properties(${aTarget} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  add_library(HtBase::${aTarget} ALIAS ${aTarget})
endfunction()
