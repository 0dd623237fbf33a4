#!/bin/sh
# One run of every benchmark on one core, and the table of docs/performance.md
# built from it:  sh scripts/bench.sh [x64|x86] [out-dir]
# x86 needs Google Benchmark for i386 (libbenchmark-dev:i386).
set -eu
cd "$(dirname "$0")/.."
target="${1:-x64}"
out="${2:-build/bench-$target}"
case "$target" in
  x64) preset=x64 ;;
  x86) preset=x86-bench ;;
  *) echo "usage: sh scripts/bench.sh [x64|x86] [out-dir]" >&2; exit 2 ;;
esac
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)" --target vek_bench
mkdir -p "$out"
taskset -c 1 "build/$preset/bench/vek_bench" --benchmark_out="$out/run.json" --benchmark_out_format=json \
  >"$out/run.txt"
# the small sizes again, five times each: the table takes each one's fastest
taskset -c 1 "build/$preset/bench/vek_bench" --benchmark_filter="$(python3 tools/perf_table.py --small-filter)" \
  --benchmark_repetitions=5 --benchmark_out="$out/small.json" --benchmark_out_format=json >"$out/small.txt"
python3 tools/perf_table.py "$out/run.json" "$out/small.json" >"$out/table.md"
echo "table: $out/table.md"
