# An overlay port for the sources that it stands among:
#   vcpkg install qrtvirtualmemmgmt --overlay-ports=packaging/vcpkg
cmake_path(GET CURRENT_PORT_DIR PARENT_PATH SOURCE_PATH)
cmake_path(GET SOURCE_PATH PARENT_PATH SOURCE_PATH)
string(COMPARE EQUAL "${VCPKG_LIBRARY_LINKAGE}" dynamic shared)

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    -DQRT_BUILD_SHARED=${shared}
    -DQRT_BUILD_TESTS=OFF
    -DQRT_BUILD_EXAMPLES=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME QRTVirtualMemMgmt CONFIG_PATH lib/cmake/QRTVirtualMemMgmt)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/packaging/licence.txt")
