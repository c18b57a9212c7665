#!/bin/sh
# Builds the example of a tested host against an installed copy of the library and runs its test, found
# by CMake and by pkg-config.
# Usage: testkit.sh STAGE SOURCE SCRATCH
set -eu
stage=$1 source=$2/examples/testkit scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
cmake -G Ninja -S "$source" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$stage" \
  -DCMAKE_C_FLAGS=-Werror -DCMAKE_CXX_FLAGS=-Werror >"$scratch/log"
cmake --build "$scratch/build" >>"$scratch/log"
(cd "$scratch/build" && ctest --output-on-failure)

libdir=$(dirname "$(find "$stage" -name libqmibtree.so)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"
flags="-Wall -Wextra -Wpedantic -Werror $(pkg-config --cflags qmibtree_testkit gmock gtest_main)"
${CC:-cc} -std=c99 $flags -c "$source/host.c" -o "$scratch/host.o"
${CXX:-c++} -std=c++20 $flags "$source/host_test.cc" "$scratch/host.o" -o "$scratch/host_test" \
  $(pkg-config --libs qmibtree_testkit gmock gtest_main)
"$stage/bin/flashsim" --dir "$scratch/flash" -- "$scratch/host_test" --gtest_brief=1
