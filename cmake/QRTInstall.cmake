# Installation: headers, library, CMake package and pkg-config file.
#   find_package(QRTVirtualMemMgmt CONFIG)   gives QRT::VirtualMemMgmt
#   pkg-config QRTVirtualMemMgmt

include(CMakePackageConfigHelpers)

set(QRT_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/QRTVirtualMemMgmt)
set(QRT_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QRTVirtualMemMgmt)

# The exported classes, and the module folders their headers include from.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${QRT_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/QRTCore ${PROJECT_SOURCE_DIR}/platform/HZSStreams
        DESTINATION ${QRT_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h"
        PATTERN "QRTDecimalFormat.h" EXCLUDE PATTERN "QRTFmFileSystem.h" EXCLUDE
        PATTERN "Gzip*.h" EXCLUDE)

install(TARGETS QRTVirtualMemMgmt EXPORT QRTVirtualMemMgmtTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(EXPORT QRTVirtualMemMgmtTargets NAMESPACE QRT:: DESTINATION ${QRT_INSTALL_CMAKEDIR})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/QRTVirtualMemMgmtConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfig.cmake
  INSTALL_DESTINATION ${QRT_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfig.cmake
              ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmtConfigVersion.cmake
        DESTINATION ${QRT_INSTALL_CMAKEDIR})

# What the library itself stands on, for who links everything statically.
set(QRT_PKGCONFIG_LIBS_PRIVATE -lz)
if(QRT_GZIP_USABLE MATCHES Isal AND NOT QRT_GZIP STREQUAL Zlib)
  string(PREPEND QRT_PKGCONFIG_LIBS_PRIVATE "-lisal ")
endif()
if(QRT_HAVE_ENCRYPTION)
  string(APPEND QRT_PKGCONFIG_LIBS_PRIVATE " -lcrypto")
endif()

# The prefix is found from the file's own place, so that an installed tree may be moved.
set(QRT_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
           BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${QRT_PKGCONFIG_DIR}
           OUTPUT_VARIABLE QRT_PKGCONFIG_TO_PREFIX)
configure_file(${CMAKE_CURRENT_LIST_DIR}/QRTVirtualMemMgmt.pc.in
               ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/QRTVirtualMemMgmt.pc DESTINATION ${QRT_PKGCONFIG_DIR})
