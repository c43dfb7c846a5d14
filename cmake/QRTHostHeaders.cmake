# Header-only libraries, which are good for every target. A cross compiler must not see the rest of
# the machine's own /usr/include, so it gets links to these alone.
set(QRT_HEADER_LIBRARIES xxhash.h utf8.h utf8 CLI)

if(CMAKE_CROSSCOMPILING)
  set(QRT_HOST_HEADERS ${PROJECT_BINARY_DIR}/host-headers)
  file(MAKE_DIRECTORY ${QRT_HOST_HEADERS})
  foreach(name ${QRT_HEADER_LIBRARIES})
    if(NOT EXISTS /usr/include/${name})
      message(FATAL_ERROR "/usr/include/${name} is missing; see scripts/lib/packages.sh")
    endif()
    file(CREATE_LINK /usr/include/${name} ${QRT_HOST_HEADERS}/${name} SYMBOLIC)
  endforeach()
  target_include_directories(qrt_options SYSTEM INTERFACE ${QRT_HOST_HEADERS})
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
elseif(QRT_BUILD_EXAMPLES)
  qrt_find_package(CLI11 libcli11-dev CONFIG)
endif()
