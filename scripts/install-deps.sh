#!/bin/sh
# Installs what the build needs from Debian's packages; safe to run again.
# GoogleTest comes built for the 64-bit builds (libgtest-dev) and as source
# for the 32-bit one (googletest); qemu-user runs the 32-bit tests on a kernel
# that runs no i386 program.
set -eu
# valgrind runs the 32-bit tests only with the symbols of the i386 C library
# (libc6-dbg:i386), which needs the i386 architecture known to dpkg.
dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386
packages="cmake make g++ g++-multilib googletest libgtest-dev libbenchmark-dev binutils valgrind libc6-dbg:i386
  qemu-user clang libclang-rt-14-dev libffi-dev libffi-dev:i386"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  export DEBIAN_FRONTEND=noninteractive
  # A mirror caught mid-sync fails one index now and then: try again, and let
  # the install say whether what it needs is there.
  apt-get update || { sleep 20; apt-get update; } || true
  apt-get install -y --no-install-recommends $missing
fi
