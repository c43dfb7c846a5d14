# Windows on x86_64, built elsewhere: Debian's g++-mingw-w64-x86-64-posix and libz-mingw-w64-dev.

set(QRT_MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
