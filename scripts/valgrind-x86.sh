#!/bin/sh
# Runs the test programs under valgrind's memcheck: any invalid access, use of
# an uninitialised value or definitely lost block fails the run.
#
# Where the kernel runs i386 programs: every program of the 32-bit build, each
# once with all its cases. Valgrind's 32-bit CPU has no AVX, so there the
# kernels run their scalar, SSE2 and SSSE3 levels; the AVX2 levels are run by
# the 64-bit kernel tests' AVX2 cases.
#
# Where it does not (IA32 emulation left out of the kernel or switched off;
# valgrind cannot run 32-bit programs under an emulator), or when VEK_NO_I386
# is set to anything but 0: one line says so, and the 64-bit build's programs
# other than the kernel tests run instead, with the kernel tests' AVX2 cases
# as above. The 32-bit build is then not needed.
#
# The kernel tests sweep five start misalignments instead of 64
# (VEK_SHORT_SWEEP), every size and level still; the full sweep runs natively.
#
# Usage: scripts/valgrind-x86.sh [x86 build folder] [x64 build folder]
# (build/x86 and build/x64, built beforehand).
set -eu
cd "$(dirname "$0")/.."
x86="${1:-build/x86}"
x64="${2:-build/x64}"
kernels="bitops_kernel_test numeric_kernels_test compare_search_kernel_test colour_signal_kernels_test invert_test"

# A 32-bit program that lists its tests shows the kernel runs it (a shell
# handed one it cannot execute may try it as a script: only the listing
# counts).
i386=yes
if [ "${VEK_NO_I386:-0}" != 0 ]; then
  i386=no
else
  probe="$x86/host/vek_simhost_selftest"
  [ -x "$probe" ] || { echo "not built: $probe"; exit 1; }
  "$probe" --gtest_list_tests 2>/dev/null | grep -q '^SimHost' || i386=no
fi
if [ "$i386" = no ]; then
  echo "valgrind: this kernel runs no i386 program, so no 32-bit pass; the 64-bit programs instead"
  suite="$x64"
else
  suite="$x86"
fi

# One line per run: program, then gtest arguments. The slow ones first.
runs() {
  if [ "$suite" = "$x86" ]; then
    for k in $kernels; do echo "$x86/tests/$k"; done
  fi
  for k in $kernels; do echo "$x64/tests/$k --gtest_filter=*/avx2"; done
  for program in "$suite"/tests/*_test "$suite"/host/vek_simhost_selftest; do
    case " $kernels " in *" $(basename "$program") "*) continue ;; esac
    echo "$program"
  done
}

for program in $(runs | cut -d' ' -f1); do
  [ -x "$program" ] || { echo "not built: $program"; exit 1; }
done

# Death tests fork a child that faults on purpose: its report is not ours,
# hence --child-silent-after-fork.
export VEK_SHORT_SWEEP=1
runs | xargs -P "$(nproc)" -L 1 sh -c '
  log="$(mktemp)"
  start="$(date +%s)"
  if valgrind --tool=memcheck --error-exitcode=1 --leak-check=full \
      --show-leak-kinds=definite --errors-for-leak-kinds=definite \
      --child-silent-after-fork=yes -q "$@" --gtest_brief=1 >"$log" 2>&1; then
    echo "ok    $*  ($(( $(date +%s) - start )) s)"
  else
    echo "FAIL  $*"
    cat "$log"
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"' sh
