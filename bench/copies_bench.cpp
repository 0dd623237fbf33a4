// CopyBytesVEK between two host blocks, through the registered method, beside
// memmove of the same number of bytes between two such blocks: the method
// moves its bytes with memmove, so the gap between the two rows is the cost
// of the call and its range checks.
#include <cstring>

#include <benchmark/benchmark.h>

#include "bench/bench_host.h"

namespace {
using CopyToBlock = void(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock, int32_t);

void BM_CopyBytesMethod(benchmark::State& state) {
  auto& [host, plugin] = bench_host();
  auto copy = plugin.method<CopyToBlock>(
      "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)");
  auto size = static_cast<int32_t>(state.range(0));
  REALmemoryBlock source = host.newBlock(static_cast<size_t>(size), 0x5A);
  REALmemoryBlock destination = host.newBlock(static_cast<size_t>(size), 0);
  time_call(state, {source, destination}, size, [&] { copy(source, 0, size, destination, 0); });
}

void BM_Memmove(benchmark::State& state) {
  SimHost host;
  auto size = static_cast<size_t>(state.range(0));
  uint8_t* source = host.bytes(host.newBlock(size, 0x5A)).data();
  uint8_t* destination = host.bytes(host.newBlock(size, 0)).data();
  for (auto _ : state) {
    std::memmove(destination, source, size);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void copy_sizes(benchmark::internal::Benchmark* b) {
  b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20)->MinTime(0.05);
}

const bool copies_registered = [] {
  benchmark::RegisterBenchmark("BM_CopyBytesVEK/method", BM_CopyBytesMethod)->Apply(copy_sizes);
  benchmark::RegisterBenchmark("BM_CopyBytesVEK/limit", BM_Memmove)->Apply(copy_sizes);
  return true;
}();
}  // namespace
