# GoogleTest as Debian packages it: libraries for the machine itself, sources for every other
# target. A toolchain file sets QRT_GOOGLETEST_FROM_SOURCE for those.

if(QRT_GOOGLETEST_FROM_SOURCE)
  set(QRT_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "Sources of GoogleTest")
  if(NOT EXISTS ${QRT_GOOGLETEST_SOURCE}/CMakeLists.txt)
    qrt_missing("${QRT_GOOGLETEST_SOURCE}" googletest)
  endif()
  set(INSTALL_GTEST OFF)
  add_subdirectory(${QRT_GOOGLETEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest
                   EXCLUDE_FROM_ALL SYSTEM)
  foreach(name gtest gmock gmock_main)
    target_compile_options(${name} PRIVATE -w)  # their warnings are not ours
  endforeach()
else()
  qrt_find_package(GTest "libgtest-dev libgmock-dev")
endif()
include(GoogleTest)
