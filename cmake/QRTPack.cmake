# Debian packages by cpack: the library for programs, what their compilers need, and debug information.
#   cpack --config build/package/CPackConfig.cmake      see scripts/package.sh, which also checks them
#
# The licence is taken from packaging/licence.txt and from nowhere else.

set(QRT_PACKAGE libqrtvirtualmemmgmt${QRT_SOVERSION})
set(QRT_DEV_PACKAGE libqrtvirtualmemmgmt-dev)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qrtvirtualmemmgmt)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "QRTVirtualMemMgmt maintainers <maintainers@qrtvirtualmemmgmt.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL Runtime Development Debug)
set(CPACK_STRIP_FILES OFF)  # the library has been when it comes here, see below

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QRT_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# What dpkg tells packages of programs that use the library, and that the linker's cache is to be made anew.
file(WRITE ${PROJECT_BINARY_DIR}/packaging/shlibs
     "libQRTVirtualMemMgmt ${QRT_SOVERSION} ${QRT_PACKAGE} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_BINARY_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "pageable store of objects larger than memory
Keeps objects, trees, strings and scratch files in a store that pages to
a private file what does not fit its memory budget, and finds them again
by small handles.

This package has the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${QRT_DEV_PACKAGE})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${QRT_PACKAGE} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "pageable store of objects larger than memory, development files
Keeps objects, trees, strings and scratch files in a store that pages to
a private file what does not fit its memory budget, and finds them again
by small handles.

This package has the headers, the CMake package and the pkg-config file.")

# What a debugger reads is taken out of the library; the library names the file by its link.
set(CPACK_DEBIAN_DEBUG_PACKAGE_NAME ${QRT_PACKAGE}-dbg)
set(CPACK_DEBIAN_DEBUG_PACKAGE_SECTION debug)
set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS
    "${QRT_PACKAGE} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_DEBUG_DESCRIPTION
    "pageable store of objects larger than memory, debug information
Keeps objects, trees, strings and scratch files in a store that pages to
a private file what does not fit its memory budget, and finds them again
by small handles.

This package has what debuggers read.")
if(QRT_BUILD_SHARED AND CMAKE_OBJCOPY AND CMAKE_STRIP)
  set(debug ${PROJECT_BINARY_DIR}/packaging/libQRTVirtualMemMgmt.so.${PROJECT_VERSION}.debug)
  set(library $<TARGET_FILE:QRTVirtualMemMgmt>)
  add_custom_command(OUTPUT ${debug} DEPENDS QRTVirtualMemMgmt
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${library} ${debug}
    COMMAND ${CMAKE_STRIP} --strip-unneeded ${library}
    COMMAND ${CMAKE_OBJCOPY} --remove-section=.gnu_debuglink --add-gnu-debuglink=${debug} ${library}
    VERBATIM)
  add_custom_target(split_debug DEPENDS ${debug})
  # Debuggers look for it below this folder, at the library's own path.
  install(FILES ${debug}
          DESTINATION lib/debug${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR} COMPONENT Debug
          EXCLUDE_FROM_ALL)
endif()

# Each package has to say under which licence it may be used, and what changed.
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/licence.txt QRT_LICENCE)
list(JOIN QRT_LICENCE "\n " QRT_LICENCE)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/copyright.in
               ${PROJECT_BINARY_DIR}/packaging/copyright @ONLY)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  set(ENV{SOURCE_DATE_EPOCH} 0)  # a date that does not change from build to build; release.sh sets it
endif()
string(TIMESTAMP QRT_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/changelog.in
               ${PROJECT_BINARY_DIR}/packaging/changelog.Debian @ONLY)
find_program(QRT_GZIP_PROGRAM gzip)
mark_as_advanced(QRT_GZIP_PROGRAM)
if(QRT_GZIP_PROGRAM)
  execute_process(COMMAND ${QRT_GZIP_PROGRAM} -9nkf ${PROJECT_BINARY_DIR}/packaging/changelog.Debian)
endif()
foreach(pair "Runtime:${QRT_PACKAGE}" "Development:${QRT_DEV_PACKAGE}" "Debug:${QRT_PACKAGE}-dbg")
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/copyright
                ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
          EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
