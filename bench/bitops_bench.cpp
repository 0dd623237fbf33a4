// The bit and byte-order kernels, each level beside the memory-limit
// reference for its traffic in the same run:
// - in place on N bytes (swaps, mirrors): two memcpys of N / 2 inside the
//   same block, which read and write every byte once;
// - gathers from N source bytes: a memcpy of the output plus a read (memchr
//   for a byte that is not there) of the rest of the source;
// - expansion to N destination bytes: a memset of the output plus a read of
//   the N / 8 source bytes.
// N is 16 KiB, 1 MiB and 64 MiB; bytes per second count N.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
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

void sizes(benchmark::internal::Benchmark* b) { b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20); }

// -- in place --------------------------------------------------------------------

void BM_InPlaceReference(benchmark::State& state) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> block = random_bytes(n);
  for (auto _ : state) {
    std::memcpy(block.data(), block.data() + n / 2, n / 2);
    std::memcpy(block.data() + n / 2, block.data(), n / 2);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_InPlace(benchmark::State& state, void (*kernel)(uint8_t*, size_t) noexcept) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> block = random_bytes(n);
  for (auto _ : state) {
    kernel(block.data(), n);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

// MirrorBitsVEK from bit 3 to 5 bits before the end: both edges inside a byte.
void BM_MirrorBitsOddOffset(benchmark::State& state, void (*kernel)(uint8_t*, size_t, size_t) noexcept) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> block = random_bytes(n);
  for (auto _ : state) {
    kernel(block.data(), 3, 8 * n - 8);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

BENCHMARK(BM_InPlaceReference)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, SwapBytesVEK_MirrorBytesVEK_sse2, vek::reverse_bytes_sse2)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, SwapBytesVEK_MirrorBytesVEK_scalar, vek::reverse_bytes_scalar)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, SwapBytes16VEK_sse2, vek::swap_bytes16_sse2)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, SwapBytes16VEK_scalar, vek::swap_bytes16_scalar)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, SwapBytes32VEK_sse2, vek::swap_bytes32_sse2)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, SwapBytes32VEK_scalar, vek::swap_bytes32_scalar)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, MirrorBitsInBytesVEK_sse2, vek::mirror_bits_in_bytes_sse2)->Apply(sizes);
BENCHMARK_CAPTURE(BM_InPlace, MirrorBitsInBytesVEK_scalar, vek::mirror_bits_in_bytes_scalar)->Apply(sizes);
BENCHMARK_CAPTURE(BM_MirrorBitsOddOffset, MirrorBitsVEK_sse2, vek::mirror_bits_sse2)->Apply(sizes);
BENCHMARK_CAPTURE(BM_MirrorBitsOddOffset, MirrorBitsVEK_scalar, vek::mirror_bits_scalar)->Apply(sizes);

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
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
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
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

using BitGather = void (*)(uint8_t*, size_t, const uint8_t*, size_t, size_t, size_t, uint64_t) noexcept;

// CopyNthBitsVEK with 12 of every 16 bits.
void BM_CopyNthBits12of16(benchmark::State& state, BitGather kernel) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n);
  std::vector<uint8_t> dest(n / 16 * 12);
  for (auto _ : state) {
    kernel(dest.data(), 0, source.data(), 0, 12, 4, uint64_t{n} / 2 * 12);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

BENCHMARK_CAPTURE(BM_GatherReference, 3_of_4, 3, 4)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBytes, CopyNthBytesVEK_3_of_4_sse2, vek::copy_nth_bytes_sse2, 3, 4)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBytes, CopyNthBytesVEK_3_of_4_scalar, vek::copy_nth_bytes_scalar, 3, 4)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBits12of16, CopyNthBitsVEK_words, vek::copy_nth_bits_words)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBits12of16, CopyNthBitsVEK_scalar, vek::copy_nth_bits_scalar)->Apply(sizes);
BENCHMARK_CAPTURE(BM_GatherReference, 12_of_16, 12, 16)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBytes, CopyNthBytesVEK_12_of_16_sse2, vek::copy_nth_bytes_sse2, 12, 16)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBytes, CopyNthBytesVEK_12_of_16_scalar, vek::copy_nth_bytes_scalar, 12, 16)->Apply(sizes);
BENCHMARK_CAPTURE(BM_GatherReference, 48_of_64, 48, 64)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBytes, CopyNthBytesVEK_48_of_64_sse2, vek::copy_nth_bytes_sse2, 48, 64)->Apply(sizes);
BENCHMARK_CAPTURE(BM_CopyNthBytes, CopyNthBytesVEK_48_of_64_scalar, vek::copy_nth_bytes_scalar, 48, 64)->Apply(sizes);

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
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_ExpandBits(benchmark::State& state, void (*kernel)(uint8_t*, const uint8_t*, size_t, int32_t, int32_t) noexcept,
                   int32_t low, int32_t high) {
  auto n = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source = random_bytes(n / 8);
  std::vector<uint8_t> dest(n);
  for (auto _ : state) {
    kernel(dest.data(), source.data(), n / 8, low, high);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

BENCHMARK(BM_ExpandReference)->Apply(sizes);
BENCHMARK_CAPTURE(BM_ExpandBits, ExpandBitsVEK_sse2, vek::expand_bits_sse2, 0, 255)->Apply(sizes);
BENCHMARK_CAPTURE(BM_ExpandBits, ExpandBitsVEK_scalar, vek::expand_bits_scalar, 0, 255)->Apply(sizes);
BENCHMARK_CAPTURE(BM_ExpandBits, ExpandBitsVEK_wide_values_sse2, vek::expand_bits_sse2, -1, 256)->Apply(sizes);
BENCHMARK_CAPTURE(BM_ExpandBits, ExpandBitsVEK_wide_values_scalar, vek::expand_bits_scalar, -1, 256)->Apply(sizes);
}  // namespace
