#!/bin/sh
# Runs every "sh" block of the guide, in order, in one shell, with an installed copy of the library.
# Usage: guide.sh STAGE SOURCE SCRATCH
set -eu
stage=$1 source=$2 scratch=$3
rm -rf "$scratch"
mkdir -p "$scratch"
awk '/^```sh$/ { run = 1; next } /^```/ { run = 0 } run' "$source/doc/guide.md" >"$scratch/commands"
[ -s "$scratch/commands" ]
cd "$scratch"
export QMIBTREE="$source" PATH="$stage/bin:$PATH" CMAKE_PREFIX_PATH="$stage" CMAKE_GENERATOR=Ninja
# "!" exempts a command from set -e, so that its failure to fail would pass unseen.
sed -i 's/^! \(.*\)$/if \1; then echo "done, but should be refused: \1" >\&2; exit 1; fi/' commands
sh -eux commands
