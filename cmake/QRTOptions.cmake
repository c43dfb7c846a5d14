# Compiler settings shared by every target of the project.

# As part of another project the build type is that project's.
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(WIN32)
  # A DLL is found beside the program that uses it.
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endif()

include(CheckIPOSupported)
check_ipo_supported(RESULT QRT_HAVE_IPO OUTPUT QRT_IPO_OUTPUT LANGUAGES CXX)
if(MINGW AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Its linker takes type information that comes from both kinds of objects for defined twice.
  set(QRT_HAVE_IPO OFF)
elseif(NOT QRT_HAVE_IPO)
  message(WARNING "Interprocedural optimisation is not available: ${QRT_IPO_OUTPUT}")
endif()

add_library(qrt_options INTERFACE)
target_compile_options(qrt_options INTERFACE -Wall -Wextra -Wconversion -Wshadow
                                             -Wnon-virtual-dtor -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(qrt_options INTERFACE -Wno-restrict)  # g++ 12 suspects std::string there
endif()
if(QRT_WERROR)
  target_compile_options(qrt_options INTERFACE -Werror)
endif()
if(QRT_SANITIZE)
  target_compile_options(qrt_options INTERFACE -fsanitize=${QRT_SANITIZE}
                                               -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(qrt_options INTERFACE -fsanitize=${QRT_SANITIZE})
endif()

# Interprocedural optimisation in Release folds the manager and the engine into one hot path. It is
# set on the library's own targets only: tests and examples link faster without it. A static library
# goes without: its objects would be readable by one version of one compiler.
function(qrt_optimise_whole_program target)
  if(QRT_HAVE_IPO AND QRT_BUILD_SHARED)
    set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
  endif()
endfunction()

# Sources that read command lines: optimised or sanitized, CLI11 takes half of a build's time.
function(qrt_command_line)
  set(options -O0)
  if(QRT_SANITIZE)
    list(APPEND options -fno-sanitize=all)
  endif()
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()
