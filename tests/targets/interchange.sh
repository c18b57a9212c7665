#!/bin/sh
# An image saved on this machine loads on the target and back, and stays the same to the byte: a load
# from a partition rewrites both partitions. Likewise one saved on the target.
# Usage: interchange.sh SCRATCH NATIVE-COMMAND -- TARGET-COMMAND
set -eu
scratch=$1
shift
native=
while [ "$1" != -- ]; do
  native="$native $1"
  shift
done
shift
target=$*

# carry FROM TO: FROM saves, TO loads and saves, FROM loads and saves.
carry() {
  rm -rf "$scratch"
  mkdir -p "$scratch"
  $1 save >"$scratch/saved.out"
  cp "$scratch/nvram" "$scratch/nvram.saved"
  cp "$scratch/nvrambak" "$scratch/nvrambak.saved"
  for side in "$2" "$1"; do
    # Both partitions are rewritten: what the first image left behind is gone after this.
    $side load >"$scratch/loaded.out"
    grep -q 'write config and bak file' "$scratch/tobixopen"
    for partition in nvram nvrambak; do cmp "$scratch/$partition.saved" "$scratch/$partition"; done
    grep '^<' "$scratch/saved.out" >"$scratch/saved.xml"
    grep '^<' "$scratch/loaded.out" | diff "$scratch/saved.xml" -
  done
  grep -q '>-2147483648<' "$scratch/saved.xml"
  grep -q '>4294967295<' "$scratch/saved.xml"
}

carry "$native" "$target"
carry "$target" "$native"
