# 32-bit x86: Debian's cross compiler. An x86-64 kernel runs the programs, through the target's loader:
# qemu-i386 7.2 hangs in fork() and in threads.
set(target i686)
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR
  /usr/i686-linux-gnu/lib/ld-linux.so.2 --library-path /usr/i686-linux-gnu/lib)
# What $LIB stands for in the target's loader.
set(QMIBTREE_LOADER_LIB lib/i386-linux-gnu)
