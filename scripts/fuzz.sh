#!/bin/sh
# The bounded fuzz run of CI: builds the fuzz preset (clang, libFuzzer, ASan
# and UBSan) and runs the call-sequence fuzzer for the given number of
# seconds (default 150) over a copy of the seed corpus. A crash, a failed
# check or an input slower than 10 seconds fails the run, and so does a leak:
# LeakSanitizer looks for one when the run ends (not after every input, since
# the simulated host keeps the records of freed handles for a while, which a
# per-input check takes for leaks and which slows the run tenfold). The
# failing input is kept under build/fuzz/artifacts. Installs nothing
# (scripts/install-deps.sh does).
set -eu
cd "$(dirname "$0")/.."
seconds="${1:-150}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
corpus="build/fuzz/corpus"
artifacts="build/fuzz/artifacts"
rm -rf "$corpus"
mkdir -p "$corpus" "$artifacts"
cp fuzz/corpus/* "$corpus/"
build/fuzz/fuzz/call_sequence_fuzzer -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -detect_leaks=0 \
  -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus"
