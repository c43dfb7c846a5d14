# What the Windows toolchains share; they name the target in QRT_MINGW_TRIPLET.

set(CMAKE_SYSTEM_NAME Windows)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${QRT_MINGW_TRIPLET})

# The compiler whose standard library has threads and mutexes.
set(CMAKE_CXX_COMPILER ${QRT_MINGW_TRIPLET}-g++-posix)
set(CMAKE_C_COMPILER ${QRT_MINGW_TRIPLET}-gcc-posix)  # for the sources of GoogleTest
set(CMAKE_RC_COMPILER ${QRT_MINGW_TRIPLET}-windres)

# The runtime goes into the DLL and the programs, so that there is nothing to ship beside them. On
# i686 errors can leave a DLL only when both sides share one libgcc: there it stays shared.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL i686)
  set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
  set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
endif()

set(CMAKE_FIND_ROOT_PATH /usr/${QRT_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(QRT_GOOGLETEST_FROM_SOURCE ON)
set(ZLIB_USE_STATIC_LIBS ON)

# Test programs run in Wine where it is installed; Debian keeps the program out of the PATH.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL i686)
  find_program(QRT_WINE_PROGRAM NAMES wine PATHS /usr/lib/wine)
else()
  find_program(QRT_WINE_PROGRAM NAMES wine64 wine PATHS /usr/lib/wine)
endif()
if(QRT_WINE_PROGRAM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine.sh ${QRT_WINE_PROGRAM})
endif()
