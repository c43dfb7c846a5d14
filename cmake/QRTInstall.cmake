# Installation: headers, library, CMake package and pkg-config file.
#   find_package(QRTVirtualMemMgmt CONFIG)   gives QRT::VirtualMemMgmt
#   pkg-config QRTVirtualMemMgmt

include(CMakePackageConfigHelpers)

set(QRT_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/QRTVirtualMemMgmt)
set(QRT_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QRTVirtualMemMgmt)

# The exported classes, and the module folders their headers include from.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${QRT_INSTALL_INCLUDEDIR}
        COMPONENT Development FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/QRTCore ${PROJECT_SOURCE_DIR}/platform/HZSStreams
        DESTINATION ${QRT_INSTALL_INCLUDEDIR}
        COMPONENT Development FILES_MATCHING PATTERN "*.h"
        PATTERN "QRTDecimalFormat.h" EXCLUDE PATTERN "QRTFmFileSystem.h" EXCLUDE
        PATTERN "Gzip*.h" EXCLUDE)

# Programs need the component Runtime, whoever compiles them Development as well.
install(TARGETS QRTVirtualMemMgmt EXPORT QRTVirtualMemMgmtTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime
                NAMELINK_COMPONENT Development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(EXPORT QRTVirtualMemMgmtTargets NAMESPACE QRT::
        DESTINATION ${QRT_INSTALL_CMAKEDIR} COMPONENT Development)

set(QRT_CONFIG_DEPENDENCIES "")
if(NOT QRT_BUILD_SHARED)
  get_property(QRT_CONFIG_DEPENDENCIES GLOBAL PROPERTY QRT_FIND_DEPENDENCIES)
endif()
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/QRTVirtualMemMgmtConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfig.cmake
  INSTALL_DESTINATION ${QRT_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfig.cmake
              ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfigVersion.cmake
        DESTINATION ${QRT_INSTALL_CMAKEDIR} COMPONENT Development)

# The prefix is found from the file's own place, so that an installed tree may be moved. Where a folder
# is given as an absolute path, nothing can be moved and every path is written out.
set(QRT_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(QRT_PKGCONFIG_PREFIX "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
             BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${QRT_PKGCONFIG_DIR}"
             OUTPUT_VARIABLE QRT_PKGCONFIG_PREFIX)
  string(PREPEND QRT_PKGCONFIG_PREFIX "\${pcfiledir}/")
endif()
set(QRT_PKGCONFIG_INCLUDEDIR "${QRT_INSTALL_INCLUDEDIR}")
set(QRT_PKGCONFIG_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
foreach(variable QRT_PKGCONFIG_INCLUDEDIR QRT_PKGCONFIG_LIBDIR)
  if(NOT IS_ABSOLUTE "${${variable}}")
    string(PREPEND ${variable} "\${prefix}/")
  endif()
endforeach()
# pkg-config escapes the spaces of the file's own place, and of nothing else.
foreach(variable QRT_PKGCONFIG_PREFIX QRT_PKGCONFIG_INCLUDEDIR QRT_PKGCONFIG_LIBDIR)
  string(REPLACE " " "\\ " ${variable} "${${variable}}")
endforeach()
# A shared library brings what it stands on; hosts of a static one have to link it.
if(QRT_BUILD_SHARED)
  set(QRT_PKGCONFIG_REQUIREMENTS "")
  set(QRT_PKGCONFIG_DEFINITIONS "")
else()
  get_property(QRT_PKGCONFIG_REQUIREMENTS GLOBAL PROPERTY QRT_PKGCONFIG_REQUIRES)
  list(REMOVE_DUPLICATES QRT_PKGCONFIG_REQUIREMENTS)
  list(JOIN QRT_PKGCONFIG_REQUIREMENTS ", " QRT_PKGCONFIG_REQUIREMENTS)
  set(QRT_PKGCONFIG_DEFINITIONS " -DQRT_STATIC_LIBRARY")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/QRTVirtualMemMgmt.pc.in
               ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmt.pc DESTINATION ${QRT_PKGCONFIG_DIR}
        COMPONENT Development)
