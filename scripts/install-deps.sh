#!/bin/sh
# Installs what the build needs from Debian's packages; safe to run again.
# GoogleTest comes built for the native 64-bit builds (libgtest-dev) and as
# source for the others (googletest); qemu-user runs the ARM64 tests, and the
# 32-bit tests on a kernel that runs no i386 program; Wine runs the Windows
# tests. Debian has no libffi for Windows: its source is fetched with
# apt-get source into /usr/local/src/vek-libffi and built by the Windows builds.
set -eu
# g++-12-multilib, not g++-multilib, which conflicts with the ARM64 cross
# compiler (CMakeLists.txt supplies the one link it adds). valgrind runs the
# 32-bit tests only with the symbols of the i386 C library
# (libc6-dbg:i386), which needs the i386 architecture known to dpkg; the ARM64
# build links arm64 libraries.
for arch in i386 arm64; do
  dpkg --print-foreign-architectures | grep -qx "$arch" || dpkg --add-architecture "$arch"
done
sources=/etc/apt/sources.list.d/vek-source.sources
if [ ! -f "$sources" ]; then
  printf '%s\n' "Types: deb-src" "URIs: http://deb.debian.org/debian" "Suites: bookworm" "Components: main" \
    "Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg" >"$sources"
fi
packages="cmake make g++ g++-12-multilib googletest libgtest-dev libbenchmark-dev binutils valgrind libc6-dbg:i386
  qemu-user clang libclang-rt-14-dev libffi-dev libffi-dev:i386
  g++-aarch64-linux-gnu libffi-dev:arm64 libbenchmark-dev:arm64
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix binutils-mingw-w64 wine64 dpkg-dev"
export DEBIAN_FRONTEND=noninteractive
updated=""
install_missing() {
  missing=""
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
  done
  [ -n "$missing" ] || return 0
  if [ -z "$updated" ]; then
    # A mirror caught mid-sync fails one index now and then: try again, and let
    # the install say whether what it needs is there.
    apt-get update || { sleep 20; apt-get update; } || true
    updated=1
  fi
  apt-get install -y --no-install-recommends $missing
}
install_missing $packages
# Wine for 32-bit programs, where the kernel runs them.
probe="$(mktemp -d)"
printf 'int main(void) { return 0; }\n' >"$probe/probe.c"
if gcc -m32 "$probe/probe.c" -o "$probe/probe" 2>/dev/null && "$probe/probe" 2>/dev/null; then
  install_missing wine32:i386
fi
rm -rf "$probe"
if ! ls -d /usr/local/src/vek-libffi/libffi-*/ >/dev/null 2>&1; then
  mkdir -p /usr/local/src/vek-libffi
  [ -n "$updated" ] || apt-get update || true
  (cd /usr/local/src/vek-libffi && apt-get source libffi)
fi
