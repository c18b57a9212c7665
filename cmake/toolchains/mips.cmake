# 32-bit big-endian MIPS: Debian's cross compiler, programs run under qemu-user.
set(target mips)
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(CMAKE_C_COMPILER mips-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips -L /usr/mips-linux-gnu)
# What $LIB stands for in the target's loader.
set(QMIBTREE_LOADER_LIB lib/mips-linux-gnu)
