# 32-bit Arm, hard float, Thumb-2: Debian's cross compiler, programs run under qemu-user.
set(target armhf)
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
# What $LIB stands for in the target's loader.
set(QMIBTREE_LOADER_LIB lib/arm-linux-gnueabihf)
