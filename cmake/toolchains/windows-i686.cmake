# Windows on i686, built elsewhere: Debian's g++-mingw-w64-i686-posix and libz-mingw-w64-dev.

set(QRT_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
