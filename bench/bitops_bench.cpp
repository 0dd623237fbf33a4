// The bit and byte-order kernels: per method the memory-limit reference for
// its traffic, the level the plug-in dispatches to (`best`), and every level
// of its family this CPU runs, over the same buffers in the same run. Names
// read BM_<Method>/<level>/<bytes>. The references:
// - in place on N bytes (swaps, mirrors): two memcpys of N / 2 inside the
//   same block, which read and write every byte once;
// - gathers from N source bytes: a memcpy of the output plus a read (memchr
//   for a byte that is not there) of the rest of the source;
// - expansion to N destination bytes: a memset of the output plus a read of
//   the N / 8 source bytes.
// N is 16 KiB, 1 MiB and 64 MiB, and 0..300 in steps of 17 for the small
// sizes; bytes per second count N.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bitops/mirror.h"
#include "bitops/strided.h"
#include "bitops/swap_bytes.h"

namespace {
// Random bytes, none of them 0xFF, so that memchr for 0xFF reads them all.
std::vector<uint8_t> random_bytes(size_t n) {
  std::vector<uint8_t> bytes(n);
  std::mt19937 gen(5);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(gen() % 255);
  return bytes;
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20)->DenseRange(0, 300, 17)->MinTime(0.05);
}

void count_bytes(benchmark::State& state, size_t n) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

// -- in place --------------------------------------------------------------------

void BM_InPlaceReference(benchmark::State& state) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> block = random_bytes(n);
  for (auto _ : state) {
    std::memcpy(block.data(), block.data() + n / 2, n / 2);
    std::memcpy(block.data() + n / 2, block.data(), n / 2);
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

using InPlace = void (*)(uint8_t*, size_t) noexcept;

void BM_InPlace(benchmark::State& state, InPlace kernel) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> block = random_bytes(n);
  for (auto _ : state) {
    kernel(block.data(), n);
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

using MirrorBits = void (*)(uint8_t*, size_t, size_t) noexcept;

// MirrorBitsVEK from bit 3 to 5 bits before the end: both edges inside a byte.
void BM_MirrorBitsOddOffset(benchmark::State& state, MirrorBits kernel) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> block = random_bytes(n);
  for (auto _ : state) {
    kernel(block.data(), 3, n >= 2 ? 8 * n - 8 : 0);
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

// -- gathers ------------------------------------------------------------------------

// The output is `keep` of every `of` source bytes.
void BM_GatherReference(benchmark::State& state, size_t keep, size_t of) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n);
  size_t out = n / of * keep;
  std::vector<uint8_t> dest(out);
  for (auto _ : state) {
    std::memcpy(dest.data(), source.data(), out);
    benchmark::DoNotOptimize(std::memchr(source.data() + out, 0xFF, n - out));
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

using ByteGather = void (*)(uint8_t*, const uint8_t*, size_t, ptrdiff_t, size_t) noexcept;

void BM_CopyNthBytes(benchmark::State& state, ByteGather kernel, size_t run, size_t step) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n);
  std::vector<uint8_t> dest(n / step * run);
  for (auto _ : state) {
    kernel(dest.data(), source.data(), run, static_cast<ptrdiff_t>(step), n / step);
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

using BitGather = void (*)(uint8_t*, size_t, const uint8_t*, size_t, size_t, size_t, uint64_t) noexcept;

// CopyNthBitsVEK with 12 of every 16 bits.
void BM_CopyNthBits12of16(benchmark::State& state, BitGather kernel) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n);
  uint64_t total = uint64_t{n} / 2 * 12;  // every 16 source bits, 12 copied
  std::vector<uint8_t> dest((total + 7) / 8);
  for (auto _ : state) {
    kernel(dest.data(), 0, source.data(), 0, 12, 4, total);
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

// -- expansion ---------------------------------------------------------------------

void BM_ExpandReference(benchmark::State& state) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n / 8);
  std::vector<uint8_t> dest(n);
  for (auto _ : state) {
    std::memset(dest.data(), 0x5A, n);
    benchmark::DoNotOptimize(std::memchr(source.data(), 0xFF, n / 8));
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

using Expand = void (*)(uint8_t*, const uint8_t*, size_t, int32_t, int32_t) noexcept;

void BM_ExpandBits(benchmark::State& state, Expand kernel, int32_t low, int32_t high) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n / 8);
  std::vector<uint8_t> dest(n);
  for (auto _ : state) {
    kernel(dest.data(), source.data(), n / 8, low, high);
    benchmark::ClobberMemory();
  }
  count_bytes(state, n);
}

// -- registration ------------------------------------------------------------------

// BM_<method>/reference, BM_<method>/best, then BM_<method>/<level> for every
// level of the family; `run(state, kernel)` runs one kernel.
template <class Family, class Kernel, class Reference, class Run>
void register_method(const std::string& method, Family& family, Kernel kernel_of, Reference reference, Run run) {
  std::string prefix = "BM_" + method + "/";
  benchmark::RegisterBenchmark((prefix + "reference").c_str(), reference)->Apply(sizes);
  benchmark::RegisterBenchmark((prefix + "best").c_str(), [&family, kernel_of, run](benchmark::State& state) {
    run(state, kernel_of(family.best()));
  })->Apply(sizes);
  for (const auto& level : family.levels()) {
    if (!vek::cpu_has(level.level)) continue;
    auto kernel = kernel_of(level.table);
    benchmark::RegisterBenchmark((prefix + vek::level_name(level.level)).c_str(),
                                 [kernel, run](benchmark::State& state) { run(state, kernel); })
        ->Apply(sizes);
  }
}

bool register_all() {
  auto in_place = [](benchmark::State& state, InPlace kernel) { BM_InPlace(state, kernel); };
  register_method(
      "SwapBytesVEK_MirrorBytesVEK", vek::reverse_bytes_kernels, [](const auto& t) { return t.reverse; },
      BM_InPlaceReference, in_place);
  register_method(
      "SwapBytes16VEK", vek::swap_bytes16_kernels, [](const auto& t) { return t.swap; }, BM_InPlaceReference,
      in_place);
  register_method(
      "SwapBytes32VEK", vek::swap_bytes32_kernels, [](const auto& t) { return t.swap; }, BM_InPlaceReference,
      in_place);
  register_method(
      "MirrorBitsInBytesVEK", vek::mirror_bits_in_bytes_kernels, [](const auto& t) { return t.mirror; },
      BM_InPlaceReference, in_place);
  register_method(
      "MirrorBitsVEK_odd_offset", vek::mirror_bits_kernels, [](const auto& t) { return t.mirror; },
      BM_InPlaceReference, [](benchmark::State& state, MirrorBits kernel) { BM_MirrorBitsOddOffset(state, kernel); });

  struct Gather {
    const char* name;
    size_t keep, of;
  };
  for (Gather g : {Gather{"3_of_4", 3, 4}, Gather{"12_of_16", 12, 16}, Gather{"48_of_64", 48, 64}}) {
    register_method(
        std::string("CopyNthBytesVEK_") + g.name, vek::copy_nth_bytes_kernels,
        [](const auto& t) { return t.gather; },
        [g](benchmark::State& state) { BM_GatherReference(state, g.keep, g.of); },
        [g](benchmark::State& state, ByteGather kernel) { BM_CopyNthBytes(state, kernel, g.keep, g.of); });
  }
  register_method(
      "CopyNthBitsVEK_12_of_16", vek::copy_nth_bits_kernels, [](const auto& t) { return t.gather; },
      [](benchmark::State& state) { BM_GatherReference(state, 12, 16); }, BM_CopyNthBits12of16);

  register_method(
      "ExpandBitsVEK", vek::expand_bits_kernels, [](const auto& t) { return t.expand; }, BM_ExpandReference,
      [](benchmark::State& state, Expand kernel) { BM_ExpandBits(state, kernel, 0, 255); });
  register_method(
      "ExpandBitsVEK_wide_values", vek::expand_bits_kernels, [](const auto& t) { return t.expand; },
      BM_ExpandReference, [](benchmark::State& state, Expand kernel) { BM_ExpandBits(state, kernel, -1, 256); });
  return true;
}

[[maybe_unused]] const bool registered = register_all();
}  // namespace
