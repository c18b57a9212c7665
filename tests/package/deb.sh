#!/bin/sh
# Packs the library into its two Debian packages, looks at what is in which, unpacks both into a folder
# and builds the smallest example from there. 77 where Debian's packing tools are missing.
# Usage: deb.sh BUILD SOURCE SCRATCH
set -eu
export LC_ALL=C
build=$1 source=$2 scratch=$3
for tool in dpkg-deb dpkg-shlibdeps file; do
  command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done
rm -rf "$scratch"
mkdir -p "$scratch"
(cd "$build" && cpack -G DEB -B "$scratch/cpack") >"$scratch/log" 2>&1 || {
  cat "$scratch/log"
  find "$scratch" -name InstallOutput.log -exec tail -n 40 {} +
  exit 1
} >&2
mv "$scratch"/cpack/*.deb "$scratch/"

multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
arch=$(dpkg --print-architecture)
version=$(sed -n 's/^project(qmibtree VERSION \([0-9.]*\) .*/\1/p' "$source/CMakeLists.txt")
soname=libqmibtree.so.${version%%.*}
status=0

# expect_same WHAT: standard input is what is expected, $scratch/found what was found.
expect_same() {
  if ! diff - "$scratch/found" >"$scratch/diff"; then
    printf '%s: expected (<) and found (>) differ:\n' "$1" >&2
    cat "$scratch/diff" >&2
    status=1
  fi
}

# fields PACKAGE, without the versions of the dependencies found by dpkg-shlibdeps.
fields() {
  dpkg-deb -f "$scratch/$1_${version}_$arch.deb" \
    Package Version Architecture Section Priority Maintainer Depends | sort |
    sed '/^Depends/s/ (>= [^)]*)//g' >"$scratch/found"
}

# files PACKAGE: mode, owner and path of all that is no folder.
files() {
  dpkg-deb -c "$scratch/$1_${version}_$arch.deb" | awk '!/^d/ { print $1, $2, $6 $7 $8 }' |
    sed 's/qmibtreeTargets-[a-z]*/qmibtreeTargets-BUILD/' | sort -k 3 >"$scratch/found"
}

(cd "$scratch" && echo ./*.deb) >"$scratch/found"
expect_same packages <<EXPECTED
./libqmibtree-dev_${version}_$arch.deb ./libqmibtree1_${version}_$arch.deb
EXPECTED
[ $status = 0 ] || exit 1

fields libqmibtree1
expect_same 'fields of libqmibtree1' <<EXPECTED
Architecture: $arch
Depends: libc6, libexpat1
Maintainer: qmibtree maintainers <maintainers@localhost>
Package: libqmibtree1
Priority: optional
Section: libs
Version: $version
EXPECTED
files libqmibtree1
expect_same 'files of libqmibtree1' <<EXPECTED
lrwxrwxrwx root/root ./usr/lib/$multiarch/$soname->libqmibtree.so.$version
-rw-r--r-- root/root ./usr/lib/$multiarch/libqmibtree.so.$version
-rw-r--r-- root/root ./usr/share/doc/libqmibtree1/copyright
EXPECTED
dpkg-deb -I "$scratch/libqmibtree1_${version}_$arch.deb" shlibs >"$scratch/found"
expect_same 'what hosts depend on' <<EXPECTED
libqmibtree ${version%%.*} libqmibtree1 (>= $version)
EXPECTED

fields libqmibtree-dev
expect_same 'fields of libqmibtree-dev' <<EXPECTED
Architecture: $arch
Depends: libqmibtree1 (= $version), libexpat1-dev, libc6, libgcc-s1, libstdc++6
Maintainer: qmibtree maintainers <maintainers@localhost>
Package: libqmibtree-dev
Priority: optional
Section: libdevel
Version: $version
EXPECTED
files libqmibtree-dev
expect_same 'files of libqmibtree-dev' <<EXPECTED
-rwxr-xr-x root/root ./usr/bin/flashsim
-rw-r--r-- root/root ./usr/include/qmibtree.h
$(cd "$source/testkit/include" && printf -- '-rw-r--r-- root/root ./usr/include/%s\n' qmibtree_testkit/*.hh)
-rw-r--r-- root/root ./usr/lib/flashsim/libflashsim.so
-rwxr-xr-x root/root ./usr/lib/flashsim/mtd
-rwxr-xr-x root/root ./usr/lib/flashsim/zorem_cfg
-rw-r--r-- root/root ./usr/lib/$multiarch/cmake/qmibtree/qmibtreeConfig.cmake
-rw-r--r-- root/root ./usr/lib/$multiarch/cmake/qmibtree/qmibtreeConfigVersion.cmake
-rw-r--r-- root/root ./usr/lib/$multiarch/cmake/qmibtree/qmibtreeSchema.cmake
-rw-r--r-- root/root ./usr/lib/$multiarch/cmake/qmibtree/qmibtreeTargets-BUILD.cmake
-rw-r--r-- root/root ./usr/lib/$multiarch/cmake/qmibtree/qmibtreeTargets.cmake
-rw-r--r-- root/root ./usr/lib/$multiarch/libqmibtree.a
lrwxrwxrwx root/root ./usr/lib/$multiarch/libqmibtree.so->$soname
-rw-r--r-- root/root ./usr/lib/$multiarch/libqmibtree_testkit.a
-rw-r--r-- root/root ./usr/lib/$multiarch/pkgconfig/qmibtree.pc
-rw-r--r-- root/root ./usr/lib/$multiarch/pkgconfig/qmibtree_testkit.pc
-rw-r--r-- root/root ./usr/share/doc/libqmibtree-dev/copyright
-rw-r--r-- root/root ./usr/share/doc/qmibtree/LICENSE
EXPECTED

for deb in "$scratch"/*.deb; do
  dpkg-deb -x "$deb" "$scratch/root"
done
for way in pkg_config static find_package; do
  sh "$source/tests/package/hello.sh" $way "$scratch/root/usr" "$source" "$scratch/hello_$way" || status=1
done
exit $status
