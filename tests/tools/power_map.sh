#!/bin/sh
# Prints the maps of doc/power-loss.md.
# usage: power_map.sh FLASHSIM POWER_PROBE [RULES], for a document with that many rules.
set -eu
flashsim=$1
probe=$2
rules=${3:-2}
more=$((rules + 1))
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

length() { "$probe" document "$@" | wc -c; }

# fill CONFIGURATION: makes a flash that holds it.
fill() {
  rm -rf flash
  mkdir flash
  "$probe" document 0 0 0 >flash/default-conf.xml
  # shellcheck disable=SC2086 # the words of a configuration
  "$flashsim" --dir flash -- "$probe" save $1
}

# map_flash TITLE START OPERATION...: of an operation on the flash as it is.
map_flash() {
  printf '\n### %s\n\n' "$1"
  start=$2
  shift 2
  "$flashsim" map --dir flash --reboot "$probe $start" --print steps -- "$probe" "$@" || test $? = 1
}

# map TITLE START OLD OPERATION...: the same, on a flash that holds the configuration OLD.
map() {
  fill "$3"
  title=$1 start=$2
  shift 3
  map_flash "$title" "$start" "$@"
}

printf 'Document of %d rules: %d bytes.\n' "$rules" "$(length 1 "$rules" 0)"
"$probe" wrap 2 "$more" 1 0 >upgrade
padding=$(((255 - $(length 2 "$more" 1) % 256 + 256) % 256))
"$probe" wrap 2 "$more" 1 "$padding" >padded

map "save, same length" show "1 $rules 0" save 3 "$rules" 0
map "save, other length" show "1 $rules 0" save 2 "$rules" 0
map "save with an instance more" show "1 $rules 0" save 1 "$more" 0
map "save with an instance less" show "1 $more 0" save 1 "$rules" 0
map "save with a modified value and an attribute more" show "1 $rules 0" save 1 "$rules" 1
map "save with a modified value and an attribute less" show "1 $rules 1" save 1 "$rules" 0
map "start with an unchanged firmware" show "1 $rules 0" load
map "first start of a firmware that saves one value more" new-show "1 $rules 0" new-load
fill "1 $rules 0"
"$flashsim" --dir flash -- mtd erase NVRAM
map_flash "start from the backup, main erased" show load
map "upgrade" show "1 $rules 0" upgrade "$work/upgrade"
map "upgrade, payload padded to a length of 255 modulo 256" show "1 $rules 0" upgrade "$work/padded"
map "clear" show "1 $rules 0" clear
map "guarded save" show "1 $rules 0" guarded-save 2 "$more" 1
map "save after an erase of main" show "1 $rules 0" erased-save 2 "$more" 1
map "checked start after: save, same length" checked-show "1 $rules 0" save 3 "$rules" 0
map "checked start after: save, other length" checked-show "1 $rules 0" save 2 "$rules" 0
map "checked start after: save with an instance more" checked-show "1 $rules 0" save 1 "$more" 0
map "checked start after: save with an instance less" checked-show "1 $more 0" save 1 "$rules" 0
map "checked start after: save with extras more" checked-show "1 $rules 0" save 2 "$rules" 1
map "checked start after: save with extras less" checked-show "1 $rules 1" save 2 "$rules" 0
map "checked start after: upgrade" checked-show "1 $rules 0" upgrade "$work/upgrade"
map "checked first start of a firmware that saves one value more" new-checked-show "1 $rules 0" \
  new-checked-show
map "checked start after: clear" checked-show "1 $rules 0" clear
