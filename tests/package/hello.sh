#!/bin/sh
# Builds the smallest example, plain C, against an installed copy of the library and runs it.
# Usage: hello.sh pkg_config|static|find_package STAGE SOURCE SCRATCH
set -eu
way=$1 stage=$2 source=$3 scratch=$4
rm -rf "$scratch"
mkdir -p "$scratch"
libdir=$(dirname "$(find "$stage" -name libqmibtree.so)")
export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc="${CC:-cc} -std=c99 -Wall -Wextra -Wpedantic -Werror"

case $way in
pkg_config)
  $cc "$source/examples/hello/hello.c" -o "$scratch/hello" \
    $(pkg-config --cflags --libs qmibtree)
  ;;
static)
  $cc "$source/examples/hello/hello.c" -o "$scratch/hello" -Wl,-Bstatic \
    $(pkg-config --static --cflags --libs-only-L qmibtree) \
    -lqmibtree -Wl,-Bdynamic -lexpat
  ;;
find_package)
  cmake -G Ninja -S "$source/examples/hello" -B "$scratch" -DCMAKE_PREFIX_PATH="$stage" \
    -DCMAKE_C_FLAGS="-Wall -Wextra -Wpedantic -Werror" >"$scratch/log"
  cmake --build "$scratch" >>"$scratch/log"
  ;;
*) echo "hello.sh: unknown way: $way" >&2; exit 2 ;;
esac

LD_LIBRARY_PATH="$libdir" "$scratch/hello" >"$scratch/output"
diff - "$scratch/output" <<'EXPECTED'
changed: Gateway.Name
Gateway.Level=11: write out of range
Gateway.Name=home
EXPECTED
