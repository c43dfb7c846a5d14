# A module of the library: a static library QRT::<name> with one list of sources, put together into
# the shared library by src/CMakeLists.txt and linked alone by its tests.
#
#   qrt_add_module(nodes
#     SOURCES  QRTVirtualContainer.cpp ...     # the folder's sources, listed nowhere else
#     HEADERS  QRTVirtualContainer.h ...       # what those that use the module see, from include/
#     FOLDER   HZSStreams                      # for platform/: headers are included with it in front
#     USES     core QRTCore                    # modules whose headers its own headers and sources read
#     HIDES    engine)                         # modules that its sources read and its users do not see
#
# Headers are reached through folders of links in the build tree, one for each module, and a module's
# sources see those of the modules it names. An include against the arrows finds no file.
function(qrt_add_module name)
  cmake_parse_arguments(ARG "" "FOLDER" "SOURCES;HEADERS;USES;HIDES" ${ARGN})
  set(target QRTModule_${name})
  add_library(${target} STATIC ${ARG_SOURCES})
  add_library(QRT::${name} ALIAS ${target})

  set(public "${PROJECT_BINARY_DIR}/modules/${name}/public")
  set(private "${PROJECT_BINARY_DIR}/modules/${name}/private")
  file(REMOVE_RECURSE "${public}" "${private}")
  if(ARG_FOLDER)
    set(from "${CMAKE_CURRENT_SOURCE_DIR}")
    # Its own sources and tests see the whole folder.
    file(MAKE_DIRECTORY "${private}")
    file(CREATE_LINK "${from}" "${private}/${ARG_FOLDER}" COPY_ON_ERROR SYMBOLIC)
    target_include_directories(${target} PRIVATE "${private}")
  else()
    set(from "${PROJECT_SOURCE_DIR}/include")
    target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  endif()
  file(MAKE_DIRECTORY "${public}/${ARG_FOLDER}")
  foreach(header IN LISTS ARG_HEADERS)
    if(NOT EXISTS "${from}/${header}")
      message(FATAL_ERROR "The module ${name} has no header ${from}/${header}")
    endif()
    file(CREATE_LINK "${from}/${header}" "${public}/${ARG_FOLDER}/${header}"
         COPY_ON_ERROR SYMBOLIC)
  endforeach()
  target_include_directories(${target} PUBLIC "${public}")

  list(TRANSFORM ARG_USES PREPEND QRT::)
  list(TRANSFORM ARG_HIDES PREPEND QRT::)
  target_link_libraries(${target} PUBLIC ${ARG_USES} PRIVATE ${ARG_HIDES} qrt_options)
  # Whoever links a module by itself compiles against classes that no DLL brings.
  target_compile_definitions(${target} PUBLIC QRT_BUILDING_LIBRARY)
  # Exported functions call each other, getAddress above all: let the compiler fold such calls
  # instead of leaving them open to replacement by another library.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  qrt_optimise_whole_program(${target})
  set_property(GLOBAL APPEND PROPERTY QRT_MODULES ${target})
endfunction()

# Shows a module's private headers to a program of its own: its tests and studies.
function(qrt_see_inside target module)
  target_include_directories(${target} PRIVATE
                             "$<TARGET_PROPERTY:QRTModule_${module},INCLUDE_DIRECTORIES>")
endfunction()
