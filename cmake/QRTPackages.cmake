# What the build stands on is looked for when it is configured, and what is missing is named as Debian's
# packages are: a compiler's complaint about a header says nothing about where to get it.

# The package of zlib for what is built: qrt_zlib_package(<variable>)
function(qrt_zlib_package variable)
  if(WIN32)
    set(${variable} libz-mingw-w64-dev PARENT_SCOPE)
  elseif(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(${variable} lib32z1-dev PARENT_SCOPE)
  else()
    set(${variable} zlib1g-dev PARENT_SCOPE)
  endif()
endfunction()

# qrt_missing(<what> <package>): ends the configuration.
function(qrt_missing what package)
  message(FATAL_ERROR "${what} was not found. Debian has it as ${package}: apt-get install ${package}")
endfunction()

# qrt_find_package(<name> <package> [arguments of find_package]): as find_package, and required.
macro(qrt_find_package name package)
  find_package(${name} QUIET ${ARGN})
  if(NOT ${name}_FOUND)
    qrt_missing(${name} ${package})
  endif()
endmacro()

# qrt_require_header(<header> <package>): for libraries that are headers only.
function(qrt_require_header header package)
  string(MAKE_C_IDENTIFIER "QRT_HEADER_${header}" variable)
  find_path(${variable} ${header} PATHS ${QRT_HOST_HEADERS} NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(${variable})
  if(NOT ${variable})
    qrt_missing("The header ${header}" ${package})
  endif()
endfunction()
