# 32-bit x86 Linux, built and run on a 64-bit one: Debian's g++-multilib and lib32z1-dev.
# -DQRT_I386_COMPILER=clang++ takes another compiler that knows -m32.

set(QRT_I386_COMPILER g++ CACHE STRING "Compiler for 32-bit x86 Linux")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QRT_I386_COMPILER)
set(CMAKE_CXX_COMPILER ${QRT_I386_COMPILER} -m32)
set(CMAKE_C_COMPILER gcc -m32)  # for the sources of GoogleTest

# What is installed for the 64-bit system does not link here.
set(CMAKE_SYSTEM_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu)
set(CMAKE_LIBRARY_PATH /usr/lib32)
set(QRT_GOOGLETEST_FROM_SOURCE ON)
