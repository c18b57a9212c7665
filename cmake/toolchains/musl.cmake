# x86-64 against the small C library: Debian's musl-tools, programs run as they are.
set(target musl)
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/musl-g++)
# Its loader knows no $LIB and takes the word as it is.
set(QMIBTREE_LOADER_LIB "$LIB")
