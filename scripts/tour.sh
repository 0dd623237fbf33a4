#!/bin/sh
# The main job: install, build the 64-bit plug-in and the simulated host, and
# run a short tour of calls through it.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
cmake --preset x64 >/dev/null
cmake --build --preset x64 -j "$(nproc)" --target memoryblockvek vekhost
build/x64/tools/vekhost tour build/x64/libmemoryblockvek.so
