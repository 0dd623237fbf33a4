// The kernels of MinVEK/MaxVEK, MultiplyUInt8VEK and MultiplyUInt16VEK: the
// dispatched kernel ("best"), every level this CPU runs and the scalar twin,
// beside a memory-bound reference in the same run:
//   min/max:  memcpy of N bytes plus a memchr over N more bytes that finds
//             nothing (two sources read, one destination written);
//   scaling:  two memcpys of N/2 bytes inside the same block (N bytes read
//             and written in place).
// Throughput is counted over the N destination bytes. Names read
// BM_<method>/<element>/<level>/<bytes>.
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

void BM_MinMax(benchmark::State& state, vek::MinMaxKernel kernel, size_t width) {
  auto size = static_cast<size_t>(state.range(0));
  Pool& p = pool();
  for (auto _ : state) {
    kernel(p.dst.data(), p.first.data(), p.second.data(), size / width);
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
// random values. The 8-bit vector levels compute most tables, 1.0's among
// them, as a fixed-point product; -1000.5's table is not one, so they look
// it up ("lookup").
constexpr double kComputedFactor = 1.0;
constexpr double kLookedUpFactor = -1000.5;
// The 16-bit AVX2 level clamps products only above a factor of 1.0 ("held"),
// and takes float lanes for a factor of at most 8 significant bits, 1.0 and
// 1.5 among them; 0.999 takes double lanes ("double").
constexpr double kHeldFactor = 1.5;
constexpr double kDoubleFactor = 0.999;

void BM_Scale(benchmark::State& state, void (*kernel)(uint8_t*, size_t, double) noexcept, size_t width,
              double factor) {
  auto size = static_cast<size_t>(state.range(0));
  Pool& p = pool();
  for (auto _ : state) {
    kernel(p.dst.data(), size / width, factor);
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

// The large sizes, and for the dispatched kernel and the twin the small ones.
void large(benchmark::internal::Benchmark* benchmark) {
  for (int64_t size : kSizes) benchmark->Arg(size);
  benchmark->MinTime(0.05);
}

void small(benchmark::internal::Benchmark* benchmark) { benchmark->DenseRange(0, 300, 17)->MinTime(0.01); }

template <class Fn, class... Args>
void add(const std::string& name, bool with_small, Fn fn, Args... args) {
  large(benchmark::RegisterBenchmark(name.c_str(), fn, args...));
  if (with_small) small(benchmark::RegisterBenchmark(name.c_str(), fn, args...));
}

template <class Table, class Register>
void each_level(vek::KernelFamily<Table>& family, Register add_level) {
  add_level("best", family.best(), true);
  for (const auto& level : family.levels()) {
    if (vek::cpu_has(level.level)) add_level(vek::level_name(level.level), level.table, false);
  }
}

const bool registered = [] {
  struct Type {
    const char* name;
    int32_t bits;
    bool isSigned;
  };
  const Type types[] = {{"u8", 8, false},   {"s8", 8, true},   {"u16", 16, false}, {"s16", 16, true},
                        {"u32", 32, false}, {"s32", 32, true}, {"u64", 64, false}, {"s64", 64, true}};
  add("BM_MinMaxReference/memcpy_plus_read", false, BM_MinMaxReference);
  for (Extreme extreme : {Extreme::Min, Extreme::Max}) {
    for (const Type& t : types) {
      std::string method = std::string(extreme == Extreme::Min ? "BM_MinVEK/" : "BM_MaxVEK/") + t.name + "/";
      each_level(vek::minmax_kernels, [&](const char* level, const vek::MinMaxTable& table, bool with_small) {
        vek::MinMaxKernel kernel = vek::minmax_kernel(table, t.bits, t.isSigned, extreme);
        add(method + level, with_small || level == std::string("scalar"), BM_MinMax, kernel,
            static_cast<size_t>(t.bits / 8));
      });
    }
  }
  add("BM_ScaleReference/two_half_memcpys", false, BM_ScaleReference);
  each_level(vek::scale_u8_kernels, [](const char* level, const vek::ScaleTable& table, bool with_small) {
    add(std::string("BM_MultiplyUInt8VEK/") + level, with_small, BM_Scale, table.scale, size_t{1}, kComputedFactor);
    add(std::string("BM_MultiplyUInt8VEK/") + level + "/lookup", false, BM_Scale, table.scale, size_t{1},
        kLookedUpFactor);
  });
  add("BM_MultiplyUInt8VEK/twin", true, BM_Scale, vek::scale_u8_scalar, size_t{1}, kComputedFactor);
  add("BM_MultiplyUInt8VEK/twin/lookup", false, BM_Scale, vek::scale_u8_scalar, size_t{1}, kLookedUpFactor);
  each_level(vek::scale_u16_kernels, [](const char* level, const vek::ScaleTable& table, bool with_small) {
    add(std::string("BM_MultiplyUInt16VEK/") + level, with_small || level == std::string("scalar"), BM_Scale,
        table.scale, size_t{2}, kComputedFactor);
    add(std::string("BM_MultiplyUInt16VEK/") + level + "/held", false, BM_Scale, table.scale, size_t{2}, kHeldFactor);
    add(std::string("BM_MultiplyUInt16VEK/") + level + "/double", false, BM_Scale, table.scale, size_t{2},
        kDoubleFactor);
  });
  return true;
}();
}  // namespace
