# What the toolchain files share. Each sets `target`, its name, before including this. What the target
# needs beside its compiler lies in build/sysroot/<target>, where tools/sysroot puts it.
set(CMAKE_SYSTEM_NAME Linux)
get_filename_component(sysroot ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${target} ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_BUILD_RPATH ${sysroot}/usr/lib)
