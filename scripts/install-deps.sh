#!/bin/sh
# Installs what the build needs from Debian's packages; safe to run again.
set -eu
packages="cmake make g++ g++-multilib googletest libbenchmark-dev binutils clang libclang-rt-14-dev"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y --no-install-recommends $missing
fi
