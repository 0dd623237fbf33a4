#!/usr/bin/env python3
"""Builds the table of docs/performance.md from one run of vek_bench.

    vek_bench --benchmark_out=run.json --benchmark_out_format=json
    vek_bench --benchmark_filter="$(python3 tools/perf_table.py --small-filter)" \
        --benchmark_repetitions=5 --benchmark_out=small.json --benchmark_out_format=json
    python3 tools/perf_table.py run.json small.json > table.md

Each row: the dispatched kernel's GB/s at 16 KiB, 1 MiB and 64 MiB, its
speed over the memory-limit reference's and over the scalar twin's at 1 MiB
(above 1 is faster), and the worst speed over the twin at 0..300 bytes. Times
are CPU times, which another process on the machine disturbs less than wall
time. The small sizes take a second run with repetitions, each size's
fastest repetition: a few nanoseconds of noise would swamp one.
"""
import json
import re
import sys

LARGE = [16384, 1048576, 67108864]

# method, dispatched kernel, limit reference, scalar twin ("{n}" is the size)
ROWS = [
    ("FillBytesVEK", "BM_FillBytesVEK/method/{n}", "BM_FillBytesVEK/limit/{n}", None),
    ("InvertBytesVEK", "BM_InvertBytesVEK/best/{n}", "BM_InvertBytesVEK/limit/{n}", "BM_InvertBytesVEK/scalar/{n}"),
    ("SwapBytesVEK, MirrorBytesVEK", "BM_SwapBytesVEK_MirrorBytesVEK/best/{n}",
     "BM_SwapBytesVEK_MirrorBytesVEK/reference/{n}", "BM_SwapBytesVEK_MirrorBytesVEK/scalar/{n}"),
    ("SwapBytes16VEK", "BM_SwapBytes16VEK/best/{n}", "BM_SwapBytes16VEK/reference/{n}", "BM_SwapBytes16VEK/scalar/{n}"),
    ("SwapBytes32VEK", "BM_SwapBytes32VEK/best/{n}", "BM_SwapBytes32VEK/reference/{n}", "BM_SwapBytes32VEK/scalar/{n}"),
    ("MirrorBitsInBytesVEK", "BM_MirrorBitsInBytesVEK/best/{n}", "BM_MirrorBitsInBytesVEK/reference/{n}",
     "BM_MirrorBitsInBytesVEK/scalar/{n}"),
    ("MirrorBitsVEK, odd bit offset", "BM_MirrorBitsVEK_odd_offset/best/{n}", "BM_MirrorBitsVEK_odd_offset/reference/{n}",
     "BM_MirrorBitsVEK_odd_offset/scalar/{n}"),
]
for run in ["3_of_4", "12_of_16", "48_of_64"]:
    ROWS.append((f"CopyNthBytesVEK, {run.replace('_', ' ')}", f"BM_CopyNthBytesVEK_{run}/best/{{n}}",
                 f"BM_CopyNthBytesVEK_{run}/reference/{{n}}", f"BM_CopyNthBytesVEK_{run}/scalar/{{n}}"))
ROWS += [
    ("CopyNthBitsVEK, 12 of 16", "BM_CopyNthBitsVEK_12_of_16/best/{n}", "BM_CopyNthBitsVEK_12_of_16/reference/{n}",
     "BM_CopyNthBitsVEK_12_of_16/scalar/{n}"),
    ("ExpandBitsVEK, byte values", "BM_ExpandBitsVEK/best/{n}", "BM_ExpandBitsVEK/reference/{n}",
     "BM_ExpandBitsVEK/scalar/{n}"),
    ("ExpandBitsVEK, wider values", "BM_ExpandBitsVEK_wide_values/best/{n}", "BM_ExpandBitsVEK_wide_values/reference/{n}",
     "BM_ExpandBitsVEK_wide_values/scalar/{n}"),
]
for method in ["MinVEK", "MaxVEK"]:
    for t in ["u8", "s8", "u16", "s16", "u32", "s32", "u64", "s64"]:
        ROWS.append((f"{method}, {t}", f"BM_{method}/{t}/best/{{n}}", "BM_MinMaxReference/memcpy_plus_read/{n}",
                     f"BM_{method}/{t}/scalar/{{n}}"))
ROWS += [
    ("MultiplyUInt8VEK, computed table", "BM_MultiplyUInt8VEK/best/{n}", "BM_ScaleReference/two_half_memcpys/{n}",
     "BM_MultiplyUInt8VEK/twin/{n}"),
    ("MultiplyUInt8VEK, looked-up table", "BM_MultiplyUInt8VEK/best/lookup/{n}", "BM_ScaleReference/two_half_memcpys/{n}",
     "BM_MultiplyUInt8VEK/twin/lookup/{n}"),
    ("MultiplyUInt16VEK, factor 1.0", "BM_MultiplyUInt16VEK/best/{n}", "BM_ScaleReference/two_half_memcpys/{n}",
     "BM_MultiplyUInt16VEK/scalar/{n}"),
    ("MultiplyUInt16VEK, factor 1.5", "BM_MultiplyUInt16VEK/best/held/{n}", "BM_ScaleReference/two_half_memcpys/{n}",
     "BM_MultiplyUInt16VEK/scalar/held/{n}"),
    ("MultiplyUInt16VEK, factor 0.999", "BM_MultiplyUInt16VEK/best/double/{n}", "BM_ScaleReference/two_half_memcpys/{n}",
     "BM_MultiplyUInt16VEK/scalar/double/{n}"),
    ("ConvertRGB12BitTo8BitVEK", "BM_ConvertRGB12BitTo8BitVEK/dispatched/{n}", "BM_InPlaceLimit/{n}",
     "BM_ConvertRGB12BitTo8BitVEK/scalar/{n}"),
    ("_Calc3te", "BM_Calc3te/dispatched/{n}", "BM_InPlaceLimit/{n}", "BM_Calc3te/scalar/{n}"),
    ("_Calc2teCMY", "BM_Calc2teCMY/dispatched/{n}", "BM_InPlaceLimit/{n}", "BM_Calc2teCMY/scalar/{n}"),
    ("_Calc2teCMYK", "BM_Calc2teCMYK/dispatched/{n}", "BM_InPlaceLimit/{n}", "BM_Calc2teCMYK/scalar/{n}"),
    ("FindByteVEK", "BM_FindByteVEK/best/{n}", "BM_FindByteVEK/memchr/{n}", "BM_FindByteVEK/scalar/{n}"),
    ("FindNotByteVEK", "BM_FindNotByteVEK/best/{n}", "BM_FindNotByteVEK/memchr/{n}", "BM_FindNotByteVEK/scalar/{n}"),
    ("BytesZeroVEK", "BM_BytesZeroVEK/best/{n}", "BM_BytesZeroVEK/memchr/{n}", "BM_BytesZeroVEK/scalar/{n}"),
    ("BytesEqualVEK", "BM_BytesEqualVEK/best/{n}", "BM_BytesEqualVEK/memcmp/{n}", "BM_BytesEqualVEK/scalar/{n}"),
]
for needle in [2, 4, 16, 64]:
    ROWS.append((f"FindBytesVEK, {needle}-byte target", f"BM_FindBytesVEK/best/{{n}}/{needle}",
                 f"BM_FindBytesVEK/memmem/{{n}}/{needle}", f"BM_FindBytesVEK/scalar/{{n}}/{needle}"))

LEVEL_ORDER = ["avx512", "gfni", "avx2", "ssse3", "sse2"]


def load(path):
    """Each benchmark's CPU time in ns, the fastest of its repetitions."""
    with open(path) as f:
        run = json.load(f)
    times = {}
    for b in run["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        name = re.sub(r"/min_time:[0-9.]+", "", b.get("run_name", b["name"]))
        scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b.get("time_unit", "ns")]
        t = b["cpu_time"] * scale
        times[name] = min(t, times.get(name, t))
    return run["context"], times


def small_filter():
    """A --benchmark_filter for the dispatched kernels and twins at 0..300 bytes."""
    stems = set()
    for _, method, _, twin in ROWS:
        for name in (method, twin):
            if name:
                stems.add(re.escape(name.split("{n}")[0]))
    return "^(" + "|".join(sorted(stems)) + r")([0-9]|[0-9][0-9]|[0-2][0-9][0-9]|300)(/[0-9]+)?/"


def level_of(times, dispatched):
    # The dispatch takes the first level the CPU has; the benchmark ran every
    # level the CPU has, so the widest one benchmarked is the one chosen.
    stem = dispatched.split("/{n}")[0]
    for level in LEVEL_ORDER:
        probe = stem.replace("/best", "/" + level).replace("/dispatched", "/" + level)
        if probe != stem and any(k.startswith(probe + "/") for k in times):
            return level.upper()
    return "memset" if "Fill" in stem else "-"


def size_of(name, n):
    return name.replace("{n}", str(n))


def main():
    if sys.argv[1:] == ["--small-filter"]:
        print(small_filter())
        return
    context, times = load(sys.argv[1])
    small = load(sys.argv[2])[1] if len(sys.argv) > 2 else times
    fmt = lambda x: "-" if x is None else f"{x:.2f}"
    print("| method | level | GB/s 16 KiB | GB/s 1 MiB | GB/s 64 MiB | × limit (1 MiB) | × limit, level's own (1 MiB) "
          "| × twin (1 MiB) | worst × twin, 0–300 B |")
    print("|---|---|---:|---:|---:|---:|---:|---:|---:|")
    for label, method, reference, twin in ROWS:
        gbs = []
        for n in LARGE:
            t = times.get(size_of(method, n))
            gbs.append(None if t is None else n / t)
        t1 = times.get(size_of(method, 1048576))
        ref = times.get(size_of(reference, 1048576)) if reference else None
        tw = times.get(size_of(twin, 1048576)) if twin else None
        over_ref = ref / t1 if ref and t1 else None
        over_twin = tw / t1 if tw and t1 else None
        # The chosen level's own benchmark runs the same function as the
        # dispatched one; the two differ only by the run's noise.
        level = level_of(times, method)
        own = times.get(size_of(method.replace("/best", "/" + level.lower()).replace("/dispatched", "/" + level.lower()),
                                1048576))
        over_ref_own = ref / own if ref and own and own is not t1 else None
        worst = None
        if twin:
            for n in range(0, 301, 17):
                a, b = small.get(size_of(method, n)), small.get(size_of(twin, n))
                if a and b:
                    r = b / a
                    if worst is None or r < worst[0]:
                        worst = (r, n, a - b)
        worst_text = "-" if worst is None else f"{worst[0]:.2f} at {worst[1]} B ({worst[2]:+.1f} ns)"
        print(f"| {label} | {level} | {fmt(gbs[0])} | {fmt(gbs[1])} | {fmt(gbs[2])} | "
              f"{fmt(over_ref)} | {fmt(over_ref_own)} | {fmt(over_twin)} | {worst_text} |")


if __name__ == "__main__":
    main()
