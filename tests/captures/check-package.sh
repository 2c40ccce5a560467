#!/bin/sh
# The .deb as Debian sees it: made by CPack from this build and unpacked, it must hold the libraries in
# the multiarch folder, a pkg-config file whose prefix is where the package installs, the copyright and
# changelog Debian asks for, and the dependencies the shipped PyVISA backend needs; lintian, where it is
# installed, finds no error. Exit 77 (skipped) without CPack's or Debian's tools.
set -eu
BUILD=$1
for tool in cpack dpkg-deb pkg-config; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool"; exit 77; }
done
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
(cd "$BUILD" && cpack -G DEB -B "$WORK/out" >"$WORK/cpack.log" 2>&1) || { cat "$WORK/cpack.log"; exit 1; }
DEB=$(ls "$WORK"/out/*.deb)
dpkg-deb -x "$DEB" "$WORK/root"
ARCH=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)
failed=0
check() { # what, then a command that must succeed
    what=$1
    shift
    if ! "$@" >/dev/null 2>&1; then
        echo "FAIL: $what"
        failed=1
    fi
}
check "libzeltrace in /usr/lib/$ARCH" test -e "$WORK/root/usr/lib/$ARCH/libzeltrace.so.1"
check "libzelvisa in /usr/lib/$ARCH" test -e "$WORK/root/usr/lib/$ARCH/libzelvisa.so.1"
PC="$WORK/root/usr/lib/$ARCH/pkgconfig/zeltrace.pc"
check "zeltrace.pc prefix is /usr" test "$(pkg-config --variable=prefix "$PC")" = /usr
check "zeltrace.pc libdir is the multiarch folder" test "$(pkg-config --variable=libdir "$PC")" = "/usr/lib/$ARCH"
check "copyright" test -s "$WORK/root/usr/share/doc/zelvisa-trace-tool/copyright"
check "changelog" test -s "$WORK/root/usr/share/doc/zelvisa-trace-tool/changelog.gz"
check "Depends on python3" sh -c "dpkg-deb -f '$DEB' Depends | grep -q 'python3\\b'"
check "Recommends python3-pyvisa" sh -c "dpkg-deb -f '$DEB' Recommends | grep -q python3-pyvisa"
check "the PyVISA backend" test -e "$WORK/root/usr/lib/python3/dist-packages/pyvisa_zeltrace/highlevel.py"
if command -v lintian >/dev/null; then
    lintian --allow-root "$DEB" >"$WORK/lintian.log" 2>&1 || true
    if grep -q '^E:' "$WORK/lintian.log"; then
        echo "FAIL: lintian reports errors"
        grep '^E:' "$WORK/lintian.log"
        failed=1
    fi
else
    echo "lintian is not installed: its check is left out"
fi
exit $failed
