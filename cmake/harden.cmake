# What compilers and linker offer against overruns, where the build is optimised: checked string and
# stream calls (C libraries that have none keep the plain ones), guards on stack frames with arrays, and
# no frame that jumps over a guard page. doc/footprint.md has the cost. Full RELRO is always on.
option(QMIBTREE_HARDEN "Harden the library in Release and MinSizeRel builds" ON)
if(NOT QMIBTREE_HARDEN OR QMIBTREE_SANITIZE)
  return()
endif()

include(CheckCXXCompilerFlag)
set(CMAKE_REQUIRED_FLAGS -Werror)
check_cxx_compiler_flag(-fstack-clash-protection QMIBTREE_STACK_CLASH_PROTECTION)
unset(CMAKE_REQUIRED_FLAGS)
set(hardening -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong
  $<$<BOOL:${QMIBTREE_STACK_CLASH_PROTECTION}>:-fstack-clash-protection>)
target_compile_options(qmibtree_objects PRIVATE "$<$<CONFIG:Release,MinSizeRel>:${hardening}>")
target_link_options(qmibtree PRIVATE $<$<CONFIG:Release,MinSizeRel>:LINKER:-z,noexecstack>)
