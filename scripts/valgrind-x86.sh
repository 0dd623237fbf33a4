#!/bin/sh
# Runs the test programs under valgrind's memcheck: any invalid access, use of
# an uninitialised value or definitely lost block fails the run.
#
# Every program of the 32-bit build, each once with all its cases. Valgrind's
# 32-bit CPU has no AVX, so there the kernels run their scalar, SSE2 and SSSE3
# levels; the AVX2 levels are run by the 64-bit kernel tests' AVX2 cases.
# The kernel tests sweep five start misalignments instead of 64
# (VEK_SHORT_SWEEP), every size and level still; the full sweep runs natively.
#
# Usage: scripts/valgrind-x86.sh [x86 build folder] [x64 build folder]
# (build/x86 and build/x64, both built beforehand).
set -eu
cd "$(dirname "$0")/.."
x86="${1:-build/x86}"
x64="${2:-build/x64}"
kernels="bitops_kernel_test numeric_kernels_test compare_search_kernel_test colour_signal_kernels_test invert_test"

# One line per run: program, then gtest arguments. The slow ones first.
runs() {
  for k in $kernels; do echo "$x86/tests/$k"; done
  for k in $kernels; do echo "$x64/tests/$k --gtest_filter=*/avx2"; done
  for program in "$x86"/tests/*_test "$x86"/host/vek_simhost_selftest; do
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
