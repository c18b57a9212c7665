# Sourced by ./check and ./demo, with `root` set to the project's folder.

# The loader splits the path of a preloaded library at blanks and colons.
case $root in
*[[:space:]:]*)
  echo "$0: the folder '$root' has a blank or a colon in its path: move the project elsewhere" >&2
  exit 1
  ;;
esac

# What mibctl is built with.
tool_packages='libcli11-dev nlohmann-json3-dev libtomlplusplus-dev libedit-dev'

# need_packages NAME...: as root, or through sudo; where neither is at hand, names them and stops.
need_packages() {
  missing=
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -q '^installed$' ||
      missing="$missing $package"
  done
  [ -n "$missing" ] || return 0
  if [ "$(id -u)" = 0 ]; then
    as_root=
  elif command -v sudo >/dev/null 2>&1; then
    as_root=sudo
  else
    echo "$0: these packages are missing:$missing" >&2
    echo "$0: neither root nor sudo is here to install them: have them installed and try again" >&2
    exit 1
  fi
  echo "installing:$missing"
  # shellcheck disable=SC2086 # a list of names
  if ! { $as_root apt-get -q update &&
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get -q install -y --no-install-recommends $missing; } \
    >"$root/build/packages.log" 2>&1; then
    tail -n 20 "$root/build/packages.log" >&2
    echo "$0: could not install:$missing (whole log: build/packages.log)" >&2
    exit 1
  fi
}
