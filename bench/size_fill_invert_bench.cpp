// InvertBytesVEK and FillBytesVEK beside what bounds them. Inverting in place
// reads and writes every byte once, so its memory-bound reference is two
// memcpys of N/2 inside the same N-byte buffer (N bytes read, N written, the
// same footprint); plain memcpy of N bytes between two buffers and the scalar
// twin run in the same binary. Fill is one memset of the run.
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "blockops/size_fill_invert.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"

namespace {
using Invert = void(REALmemoryBlock, int32_t, int32_t);
using Fill = void(REALmemoryBlock, int32_t, int32_t, int32_t);

template <void (*kernel)(uint8_t*, size_t) noexcept>
void BM_InvertKernel(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> bytes(size, 0x5A);
  for (auto _ : state) {
    kernel(bytes.data(), size);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

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

void BM_Memcpy(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> source(size, 0x5A);
  std::vector<uint8_t> destination(size, 0);
  for (auto _ : state) {
    std::memcpy(destination.data(), source.data(), size);
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
void BM_InvertBytesVEK(benchmark::State& state) {
  SimHost host;
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  auto invert = plugin.method<Invert>("InvertBytesVEK(offset as integer, count as integer)");
  auto size = static_cast<int32_t>(state.range(0));
  REALmemoryBlock block = host.newBlock(static_cast<size_t>(size), 0x5A);
  for (auto _ : state) {
    invert(block, 0, size);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * size);
}

void BM_FillBytesVEK(benchmark::State& state) {
  SimHost host;
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  auto fill = plugin.method<Fill>("FillBytesVEK(offset as integer, count as integer, value as integer)");
  auto size = static_cast<int32_t>(state.range(0));
  REALmemoryBlock block = host.newBlock(static_cast<size_t>(size), 0);
  int32_t value = 0;
  for (auto _ : state) {
    fill(block, 0, size, ++value);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * size);
}

void sizes(benchmark::internal::Benchmark* b) { b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20); }

BENCHMARK(BM_InvertKernel<vek::invert_bytes_sse2>)->Apply(sizes);
BENCHMARK(BM_InvertKernel<vek::invert_bytes_scalar>)->Apply(sizes);
BENCHMARK(BM_InvertBytesVEK)->Apply(sizes);
BENCHMARK(BM_TwoHalfMemcpysInPlace)->Apply(sizes);
BENCHMARK(BM_Memcpy)->Apply(sizes);
BENCHMARK(BM_FillBytesVEK)->Apply(sizes);
BENCHMARK(BM_Memset)->Apply(sizes);
}  // namespace
