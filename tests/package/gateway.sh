#!/bin/sh
# Builds a copy of the example gateway against an installed copy of the library, checks its factory
# settings against its model, and runs its whole life.
# Usage: gateway.sh STAGE SOURCE SCRATCH
set -eu
stage=$1 source=$2/examples/gateway scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch/flash"
cp -R "$source" "$scratch/gateway"
cmake -G Ninja -S "$scratch/gateway" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$stage" \
  -DCMAKE_C_FLAGS=-Werror >"$scratch/log"
cmake --build "$scratch/build" >>"$scratch/log"
cmp "$source/gateway.lock" "$scratch/gateway/gateway.lock" # every id is in it: the build adds none
cd "$scratch/gateway"
"$stage/bin/mibctl" check default-conf.xml --model gateway-model.xml --overlay gateway.toml
cp default-conf.xml "$scratch/flash/"
"$stage/bin/flashsim" --dir "$scratch/flash" -- "$scratch/build/gateway"
