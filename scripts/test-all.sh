#!/bin/sh
# Every test: the 64-bit, the 32-bit and the sanitizer builds, the thread test
# under ThreadSanitizer, the 32-bit suite under valgrind and a bounded fuzz
# run, one after the other; the first failure stops the run.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
jobs="$(nproc)"
for preset in x64 x86 asan tsan; do
  echo "== $preset =="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
echo "== valgrind =="
sh scripts/valgrind-x86.sh build/x86 build/x64
echo "== fuzz =="
sh scripts/fuzz.sh 120
