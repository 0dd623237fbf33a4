// The kernels of MinVEK/MaxVEK, MultiplyUInt8VEK and MultiplyUInt16VEK
// beside their scalar twins and a memory-bound reference in the same run:
//   min/max:  memcpy of N bytes plus a memchr over N more bytes that finds
//             nothing (two sources read, one destination written);
//   scaling:  two memcpys of N/2 bytes inside the same block (N bytes read
//             and written in place).
// Throughput is counted over the N destination bytes.
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "numeric/minmax.h"
#include "numeric/scaling.h"

namespace {
using vek::Extreme;

constexpr int64_t kSizes[] = {16 << 10, 1 << 20, 64 << 20};
constexpr size_t kLargest = size_t{64} << 20;

// Three buffers of random bytes, made once. No byte is 0xFF, so the
// reference's memchr for 0xFF reads all N bytes.
struct Pool {
  std::vector<uint8_t> first, second, dst;
  Pool() : first(kLargest), second(kLargest), dst(kLargest) {
    uint32_t state = 2463534242u;
    for (auto* buffer : {&first, &second, &dst}) {
      for (uint8_t& byte : *buffer) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<uint8_t>(state % 255);
      }
    }
  }
};

Pool& pool() {
  static Pool buffers;
  return buffers;
}

void BM_MinMax(benchmark::State& state, int32_t bits, bool isSigned, Extreme extreme, bool sse2) {
  vek::MinMaxLevels levels = vek::minmax_levels(bits, isSigned, extreme);
  vek::MinMaxKernel kernel = sse2 ? levels.sse2 : levels.scalar;
  auto size = static_cast<size_t>(state.range(0));
  Pool& p = pool();
  for (auto _ : state) {
    kernel(p.dst.data(), p.first.data(), p.second.data(), size / static_cast<size_t>(bits / 8));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_MinMaxReference(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  Pool& p = pool();
  for (auto _ : state) {
    std::memcpy(p.dst.data(), p.first.data(), size);
    benchmark::DoNotOptimize(std::memchr(p.second.data(), 0xFF, size));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

// A factor of 1.0 keeps the bytes as they are, so every pass sees the same
// random values; the kernels do the same work for any factor.
void BM_Scale(benchmark::State& state, void (*kernel)(uint8_t*, size_t, double) noexcept, size_t width) {
  auto size = static_cast<size_t>(state.range(0));
  Pool& p = pool();
  for (auto _ : state) {
    kernel(p.dst.data(), size / width, 1.0);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_ScaleReference(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  uint8_t* block = pool().dst.data();
  for (auto _ : state) {
    std::memcpy(block + size / 2, block, size / 2);
    std::memcpy(block, block + size / 2, size / 2);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <class Registered>
void with_sizes(Registered* benchmark) {
  for (int64_t size : kSizes) benchmark->Arg(size);
}

const bool registered = [] {
  struct Type {
    const char* name;
    int32_t bits;
    bool isSigned;
  };
  const Type types[] = {{"u8", 8, false},   {"s8", 8, true},   {"u16", 16, false}, {"s16", 16, true},
                        {"u32", 32, false}, {"s32", 32, true}, {"u64", 64, false}, {"s64", 64, true}};
  with_sizes(benchmark::RegisterBenchmark("MinMaxReference_memcpy_plus_memchr", BM_MinMaxReference));
  for (Extreme extreme : {Extreme::Min, Extreme::Max}) {
    for (const Type& t : types) {
      for (bool sse2 : {true, false}) {
        std::string name = std::string(extreme == Extreme::Min ? "MinVEK_" : "MaxVEK_") + t.name +
                           (sse2 ? "_sse2" : "_scalar");
        with_sizes(benchmark::RegisterBenchmark(name.c_str(), BM_MinMax, t.bits, t.isSigned, extreme, sse2));
      }
    }
  }
  with_sizes(benchmark::RegisterBenchmark("ScaleReference_two_half_memcpys", BM_ScaleReference));
  with_sizes(benchmark::RegisterBenchmark("MultiplyUInt8VEK_table", BM_Scale, vek::scale_u8_table, size_t{1}));
  with_sizes(benchmark::RegisterBenchmark("MultiplyUInt8VEK_scalar", BM_Scale, vek::scale_u8_scalar, size_t{1}));
  with_sizes(benchmark::RegisterBenchmark("MultiplyUInt16VEK_sse2", BM_Scale, vek::scale_u16_sse2, size_t{2}));
  with_sizes(benchmark::RegisterBenchmark("MultiplyUInt16VEK_scalar", BM_Scale, vek::scale_u16_scalar, size_t{2}));
  return true;
}();
}  // namespace
