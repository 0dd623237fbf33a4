// InvertBytesVEK and FillBytesVEK beside what bounds them, one row per name:
//   BM_InvertBytesVEK/method   the registered method, called as a host calls it
//   BM_InvertBytesVEK/best     the level the plug-in picks on this CPU
//   BM_InvertBytesVEK/<level>  each level of the family (scalar is the twin)
//   BM_InvertBytesVEK/limit    two memcpys of N/2 inside the same N bytes: N read
//                              and N written, the footprint of inverting in place
//   BM_FillBytesVEK/method     the registered method (one memset of the run)
//   BM_FillBytesVEK/limit      memset of the same N bytes
// Sizes 16 KiB, 1 MiB and 64 MiB, and 0..300 for the small-size check.
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "blockops/size_fill_invert.h"
#include "bench/bench_host.h"

namespace {
using Invert = void(REALmemoryBlock, int32_t, int32_t);
using Fill = void(REALmemoryBlock, int32_t, int32_t, int32_t);

void invert_with(benchmark::State& state, void (*kernel)(uint8_t*, size_t) noexcept) {
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> bytes(size, 0x5A);
  for (auto _ : state) {
    kernel(bytes.data(), size);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_InvertLevel(benchmark::State& state, vek::Level level, void (*kernel)(uint8_t*, size_t) noexcept) {
  if (!vek::cpu_has(level)) {
    state.SkipWithError((std::string("CPU lacks ") + vek::level_name(level)).c_str());
    return;
  }
  invert_with(state, kernel);
}

void BM_InvertBest(benchmark::State& state) { invert_with(state, vek::invert_bytes_kernels.best().invert); }

void BM_TwoHalfMemcpysInPlace(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> bytes(size, 0x5A);
  const size_t half = size / 2;
  for (auto _ : state) {
    std::memcpy(bytes.data() + half, bytes.data(), half);
    std::memcpy(bytes.data(), bytes.data() + half, half);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Memset(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> bytes(size, 0);
  int value = 0;
  for (auto _ : state) {
    std::memset(bytes.data(), ++value & 0xFF, size);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

// The registered methods, called as a host calls them, on a host block.
void BM_InvertMethod(benchmark::State& state) {
  auto& [host, plugin] = bench_host();
  auto invert = plugin.method<Invert>("InvertBytesVEK(offset as integer, count as integer)");
  auto size = static_cast<int32_t>(state.range(0));
  REALmemoryBlock block = host.newBlock(static_cast<size_t>(size), 0x5A);
  time_call(state, {block}, size, [&] { invert(block, 0, size); });
}

void BM_FillMethod(benchmark::State& state) {
  auto& [host, plugin] = bench_host();
  auto fill = plugin.method<Fill>("FillBytesVEK(offset as integer, count as integer, value as integer)");
  auto size = static_cast<int32_t>(state.range(0));
  REALmemoryBlock block = host.newBlock(static_cast<size_t>(size), 0);
  int32_t value = 0;
  time_call(state, {block}, size, [&] { fill(block, 0, size, ++value); });
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20)->DenseRange(0, 300, 17)->MinTime(0.05);
}

const bool registered = [] {
  benchmark::RegisterBenchmark("BM_InvertBytesVEK/method", BM_InvertMethod)->Apply(sizes);
  benchmark::RegisterBenchmark("BM_InvertBytesVEK/best", BM_InvertBest)->Apply(sizes);
  for (const auto& level : vek::invert_bytes_kernels.levels()) {
    std::string name = std::string("BM_InvertBytesVEK/") + vek::level_name(level.level);
    benchmark::RegisterBenchmark(name.c_str(), BM_InvertLevel, level.level, level.table.invert)->Apply(sizes);
  }
  benchmark::RegisterBenchmark("BM_InvertBytesVEK/limit", BM_TwoHalfMemcpysInPlace)->Apply(sizes);
  benchmark::RegisterBenchmark("BM_FillBytesVEK/method", BM_FillMethod)->Apply(sizes);
  benchmark::RegisterBenchmark("BM_FillBytesVEK/limit", BM_Memset)->Apply(sizes);
  return true;
}();
}  // namespace
