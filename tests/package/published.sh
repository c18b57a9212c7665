#!/bin/sh
# Compiles published data models with an installed mibctl, builds a host of each and runs it.
# Usage: published.sh STAGE SOURCE SCRATCH MODELS
set -eu
stage=$1 source=$2 scratch=$3 models=$4
[ -d "$models" ] || {
  echo "skipped: no published data models in $models (set QMIBTREE_MODELS to a folder that has some)"
  exit 77
}
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"

# Everything that can be kept is kept, so that the documents are as large as they get.
cat >all.toml <<'EOF'
[[rule]]
match = "**"
save = "always"
EOF

# host NAME FIGURES ARGUMENT...: compiles the model that the arguments name, builds and runs.
host() {
  name=$1 figures=$2
  shift 2
  mkdir "$name"
  "$stage/bin/mibctl" schema compile --name any --overlay all.toml -o "$name" "$@" >"$name/log"
  cc -std=c99 -Wall -Wextra -Wpedantic -Werror -Wno-overlength-strings -I"$stage/include" -I"$name" \
    "$source/tests/package/any_model.c" "$name/any_schema.c" \
    -L"$stage/lib" -L"$stage/lib/$(cc -print-multiarch 2>/dev/null)" -lqmibtree \
    -Wl,-rpath,"$stage/lib:$stage/lib/$(cc -print-multiarch 2>/dev/null)" -o "$name/host"
  "$name/host" >"$name/out"
  cat "$name/out"
  grep -q "^$figures" "$name/out" || { echo "$name: expected $figures" >&2; exit 1; }
}

host gateway "1993 records, 91 tables" "$models/tr-098-1-8-0-full.xml"
host smaller "1176 records" "$models/tr-098-1-2-0-full.xml"
host voice "394 records" "$models/tr-104-1-1-0-full.xml"
host both "1569 records" "$models/tr-098-1-2-0-full.xml" "$models/tr-104-1-1-0-full.xml"

# A model that does not fit is refused with its count, and fits once a subset is chosen.
if "$stage/bin/mibctl" schema compile --name any --overlay all.toml -o large "$models/tr-181-2-12-0-cwmp-full.xml" 2>err; then
  echo "the large model was taken" >&2
  exit 1
fi
cat err
grep -q '4,796 unique ids, at most 2,000' err
[ ! -e large ]
host subset "" "$models/tr-181-2-12-0-cwmp-full.xml" --profile Baseline:3 --keep 'Device.WiFi.**' \
  --keep 'Device.DeviceInfo.**'
