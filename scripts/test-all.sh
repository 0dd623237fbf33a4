#!/bin/sh
# Every test: the 64-bit, the 32-bit and the sanitizer builds, the thread test
# under ThreadSanitizer, the ARM64 build under qemu-aarch64, the Windows
# builds under Wine, then the 32-bit suite under valgrind beside a bounded
# fuzz run (one core each); the first failure stops the run.
# On a kernel that runs no i386 program the 32-bit Linux tests run under
# qemu-i386, valgrind takes the 64-bit suite instead (scripts/valgrind-x86.sh)
# and the 32-bit Windows build is built but not run (wine32 cannot run there);
# VEK_NO_I386=1 makes the whole run behave so on any kernel.
set -eu
cd "$(dirname "$0")/.."
sh scripts/install-deps.sh
jobs="$(nproc)"
build() {
  echo "== $1 =="
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" -j "$jobs"
}
for preset in x64 x86 asan tsan arm64; do
  build "$preset"
  ctest --preset "$preset" -j "$jobs"
done

# Wine: a prefix of the build's own and one server for the whole suite, so
# that each test program starts in a tenth of a second rather than seconds.
export WINEDEBUG=-all WINEPREFIX="$PWD/build/wine"
mkdir -p "$WINEPREFIX"
/usr/lib/wine/wineserver64 -p >/dev/null 2>&1 </dev/null
# Wine's own services start with the first program and keep its output open:
# start them here, away from ctest's pipes.
/usr/lib/wine/wine64 wineboot >/dev/null 2>&1 </dev/null
trap '/usr/lib/wine/wineserver64 -k 2>/dev/null || true' EXIT
build win64
ctest --preset win64 -j "$jobs"
build win32
probe="$(mktemp -d)"
printf 'int main(void) { return 0; }\n' >"$probe/probe.c"
if [ "${VEK_NO_I386:-0}" = 0 ] && gcc -m32 "$probe/probe.c" -o "$probe/probe" 2>/dev/null && "$probe/probe" 2>/dev/null &&
   [ -x /usr/lib/wine/wine ]; then
  ctest --preset win32 -j "$jobs"
else
  echo "win32: built; its tests not run: this kernel runs no i386 program, so wine32 cannot run"
fi
rm -rf "$probe"

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
