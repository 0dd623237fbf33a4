#!/bin/sh
# Every test: the 64-bit, the 32-bit and the sanitizer builds, the thread test
# under ThreadSanitizer, then the 32-bit suite under valgrind beside a bounded
# fuzz run (one core each); the first failure stops the run.
# On a kernel that runs no i386 program the 32-bit tests run under qemu-i386
# and valgrind takes the 64-bit suite instead (scripts/valgrind-x86.sh);
# VEK_NO_I386=1 makes the whole run behave so on any kernel.
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
echo "== fuzz build =="
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"
echo "== valgrind, and fuzzing for 120 s beside it =="
sh scripts/fuzz.sh 120 >build/fuzz/run.log 2>&1 &
fuzzing=$!
if ! sh scripts/valgrind-x86.sh build/x86 build/x64; then
  kill "$fuzzing" 2>/dev/null || true
  exit 1
fi
if ! wait "$fuzzing"; then
  cat build/fuzz/run.log
  echo "fuzz run failed"
  exit 1
fi
tail -n 15 build/fuzz/run.log
