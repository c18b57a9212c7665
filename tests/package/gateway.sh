#!/bin/sh
# Builds the example gateway against an installed copy of the library and runs its whole life.
# Usage: gateway.sh STAGE SOURCE SCRATCH
set -eu
stage=$1 source=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch/flash"
cmake -G Ninja -S "$source/examples/gateway" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$stage" \
  -DCMAKE_C_FLAGS=-Werror >"$scratch/log"
cmake --build "$scratch/build" >>"$scratch/log"
cp "$source/examples/gateway/default-conf.xml" "$scratch/flash/"
"$stage/bin/flashsim" --dir "$scratch/flash" -- "$scratch/build/gateway"
