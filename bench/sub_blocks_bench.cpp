// MidVEK through the simulated host against the copy it must make: a new
// host block and one memcpy of the same bytes.
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/bench_host.h"

namespace {
using Mid2 = REALmemoryBlock(REALmemoryBlock, int32_t, int32_t);

void BM_MidVEK(benchmark::State& state) {
  auto& [host, plugin] = bench_host();
  auto mid = plugin.method<Mid2>("MidVEK(offset As Integer, length As Integer) as Memoryblock");
  auto size = static_cast<int32_t>(state.range(0));
  REALmemoryBlock block = host.newBlock(static_cast<size_t>(size) + 1, 0x5A);
  time_call(state, {block}, size, [&] {
    REALmemoryBlock result = mid(block, 1, size);
    host.adopt(result);
    host.release(result);
  });
}

void BM_NewBlockAndMemcpy(benchmark::State& state) {
  SimHost host;
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source(size + 1, 0x5A);
  for (auto _ : state) {
    REALmemoryBlock result = host.newBlock(size);
    std::memcpy(host.bytes(result).data(), source.data() + 1, size);
    benchmark::DoNotOptimize(result);
    host.release(result);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

BENCHMARK(BM_MidVEK)->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20);
BENCHMARK(BM_NewBlockAndMemcpy)->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20);
}  // namespace
