// The compare and search methods against the C library in the same run:
// FindByteVEK against memchr, FindNotByteVEK and BytesZeroVEK against memchr
// over the same bytes (a memchr-class single pass with no match), BytesEqualVEK
// against memcmp and FindBytesVEK against memmem. Each method is measured
// through the simulated host (the registered function, as a program calls it)
// and at its kernel levels, SSE2 and the scalar twin. Every case reads the
// whole range: the match, if any, is the last possible one.
#include <cstring>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "blockops/compare_search.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"

namespace {
using Bytes = std::vector<uint8_t>;
using B = REALmemoryBlock;

constexpr uint8_t kWanted = 0x3C;  // the byte FindByteVEK looks for, only at the end
constexpr uint8_t kFill = 0x5A;    // the byte FindNotByteVEK skips, everywhere but the end

// One host and one copy of the plug-in for the whole run.
struct Session {
  SimHost host;
  LoadedPlugin plugin{VEK_PLUGIN_PATH};
  Session() { plugin.start(host); }
};

Session& session() {
  static Session* s = new Session();
  return *s;
}

B host_block(const Bytes& bytes) {
  B b = session().host.newBlock(bytes.size());
  std::memcpy(session().host.bytes(b).data(), bytes.data(), bytes.size());
  return b;
}

// Contents are made once per size and kept for the run.
template <class Make>
const Bytes& cached(std::map<size_t, Bytes>& cache, size_t key, Make make) {
  auto it = cache.find(key);
  if (it == cache.end()) it = cache.emplace(key, make()).first;
  return it->second;
}

Bytes random_bytes(size_t size, uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes data(size);
  for (uint8_t& b : data) b = static_cast<uint8_t>(rng());
  return data;
}

// Random bytes without kWanted, and kWanted last.
const Bytes& find_byte_data(size_t size) {
  static std::map<size_t, Bytes> cache;
  return cached(cache, size, [&] {
    Bytes data = random_bytes(size, 1);
    for (uint8_t& b : data) b = b == kWanted ? static_cast<uint8_t>(b + 1) : b;
    data.back() = kWanted;
    return data;
  });
}

// kFill everywhere but the last byte.
const Bytes& find_not_byte_data(size_t size) {
  static std::map<size_t, Bytes> cache;
  return cached(cache, size, [&] {
    Bytes data(size, kFill);
    data.back() = 0;
    return data;
  });
}

const Bytes& zero_data(size_t size) {
  static std::map<size_t, Bytes> cache;
  return cached(cache, size, [&] { return Bytes(size, 0); });
}

const Bytes& equal_data(size_t size) {
  static std::map<size_t, Bytes> cache;
  return cached(cache, size, [&] { return random_bytes(size, 2); });
}

B cached_block(std::map<size_t, B>& cache, size_t size, const Bytes& bytes) {
  auto it = cache.find(size);
  if (it == cache.end()) it = cache.emplace(size, host_block(bytes)).first;
  return it->second;
}

void finish(benchmark::State& state, size_t size) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

// -- FindByteVEK ------------------------------------------------------------------

void BM_FindByteVEK(benchmark::State& state) {
  static std::map<size_t, B> blocks;
  auto size = static_cast<size_t>(state.range(0));
  B block = cached_block(blocks, size, find_byte_data(size));
  auto find = session().plugin.method<int32_t(B, int32_t, int32_t, int32_t)>(
      "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer");
  for (auto _ : state) benchmark::DoNotOptimize(find(block, 0, static_cast<int32_t>(size), kWanted));
  finish(state, size);
}

template <size_t (*Kernel)(const uint8_t*, size_t, uint8_t) noexcept>
void BM_find_byte(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = find_byte_data(size);
  for (auto _ : state) benchmark::DoNotOptimize(Kernel(data.data(), size, kWanted));
  finish(state, size);
}

void BM_memchr(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = find_byte_data(size);
  for (auto _ : state) benchmark::DoNotOptimize(std::memchr(data.data(), kWanted, size));
  finish(state, size);
}

// -- FindNotByteVEK ---------------------------------------------------------------

void BM_FindNotByteVEK(benchmark::State& state) {
  static std::map<size_t, B> blocks;
  auto size = static_cast<size_t>(state.range(0));
  B block = cached_block(blocks, size, find_not_byte_data(size));
  auto find = session().plugin.method<int32_t(B, int32_t, int32_t, int32_t)>(
      "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer");
  for (auto _ : state) benchmark::DoNotOptimize(find(block, 0, static_cast<int32_t>(size), kFill));
  finish(state, size);
}

template <size_t (*Kernel)(const uint8_t*, size_t, uint8_t) noexcept>
void BM_find_not_byte(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = find_not_byte_data(size);
  for (auto _ : state) benchmark::DoNotOptimize(Kernel(data.data(), size, kFill));
  finish(state, size);
}

// The same bytes in one memchr pass that finds nothing until the end.
void BM_memchr_not_byte_reference(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = find_not_byte_data(size);
  for (auto _ : state) benchmark::DoNotOptimize(std::memchr(data.data(), 0, size));
  finish(state, size);
}

// -- BytesZeroVEK -----------------------------------------------------------------

void BM_BytesZeroVEK(benchmark::State& state) {
  static std::map<size_t, B> blocks;
  auto size = static_cast<size_t>(state.range(0));
  B block = cached_block(blocks, size, zero_data(size));
  auto zero = session().plugin.method<bool(B, int32_t, int32_t)>(
      "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean");
  for (auto _ : state) benchmark::DoNotOptimize(zero(block, 0, static_cast<int32_t>(size)));
  finish(state, size);
}

template <bool (*Kernel)(const uint8_t*, size_t) noexcept>
void BM_all_zero(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = zero_data(size);
  for (auto _ : state) benchmark::DoNotOptimize(Kernel(data.data(), size));
  finish(state, size);
}

void BM_memchr_zero_reference(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = zero_data(size);
  for (auto _ : state) benchmark::DoNotOptimize(std::memchr(data.data(), 1, size));
  finish(state, size);
}

// -- BytesEqualVEK ----------------------------------------------------------------

void BM_BytesEqualVEK(benchmark::State& state) {
  static std::map<size_t, std::pair<B, B>> blocks;
  auto size = static_cast<size_t>(state.range(0));
  auto it = blocks.find(size);
  if (it == blocks.end()) it = blocks.emplace(size, std::pair(host_block(equal_data(size)), host_block(equal_data(size)))).first;
  auto equal = session().plugin.method<bool(B, int32_t, int32_t, B, int32_t)>(
      "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean");
  for (auto _ : state) benchmark::DoNotOptimize(equal(it->second.first, 0, static_cast<int32_t>(size), it->second.second, 0));
  finish(state, size);
}

// Two separate buffers with the same bytes.
const std::pair<Bytes, Bytes>& equal_pair(size_t size) {
  static std::map<size_t, std::pair<Bytes, Bytes>> cache;
  auto it = cache.find(size);
  if (it == cache.end()) it = cache.emplace(size, std::pair(equal_data(size), equal_data(size))).first;
  return it->second;
}

template <bool (*Kernel)(const uint8_t*, const uint8_t*, size_t) noexcept>
void BM_bytes_equal(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const auto& [a, b] = equal_pair(size);
  for (auto _ : state) benchmark::DoNotOptimize(Kernel(a.data(), b.data(), size));
  finish(state, size);
}

void BM_memcmp(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const auto& [a, b] = equal_pair(size);
  for (auto _ : state) benchmark::DoNotOptimize(std::memcmp(a.data(), b.data(), size));
  finish(state, size);
}

// -- FindBytesVEK -----------------------------------------------------------------

// Random bytes with the target (random too) only at the very end: earlier
// chance occurrences are broken up.
struct SearchCase {
  Bytes data;
  Bytes target;
};

const SearchCase& search_case(size_t size, size_t length) {
  static std::map<std::pair<size_t, size_t>, SearchCase> cache;
  auto key = std::pair(size, length);
  auto it = cache.find(key);
  if (it != cache.end()) return it->second;
  SearchCase c{random_bytes(size, 3), random_bytes(length, 4)};
  std::memcpy(c.data.data() + size - length, c.target.data(), length);
  size_t from = 0;
  for (;;) {
    auto* found = static_cast<uint8_t*>(memmem(c.data.data() + from, size - from, c.target.data(), length));
    auto at = static_cast<size_t>(found - c.data.data());
    if (at == size - length) break;
    c.data[at] ^= 0x01;  // no longer starts the target; look again from where a new one could start
    from = at >= length ? at - length + 1 : 0;
  }
  return cache.emplace(key, std::move(c)).first->second;
}

void BM_FindBytesVEK(benchmark::State& state) {
  static std::map<std::pair<size_t, size_t>, std::pair<B, B>> blocks;
  auto size = static_cast<size_t>(state.range(0));
  auto length = static_cast<size_t>(state.range(1));
  auto key = std::pair(size, length);
  auto it = blocks.find(key);
  if (it == blocks.end()) {
    const SearchCase& c = search_case(size, length);
    it = blocks.emplace(key, std::pair(host_block(c.data), host_block(c.target))).first;
  }
  auto find = session().plugin.method<int32_t(B, int32_t, int32_t, B, int32_t, int32_t)>(
      "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as "
      "Integer) as Integer");
  for (auto _ : state) benchmark::DoNotOptimize(find(it->second.first, 0, 0, it->second.second, 0, 0));
  finish(state, size);
}

template <size_t (*Kernel)(const uint8_t*, size_t, const uint8_t*, size_t) noexcept>
void BM_find_bytes(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  auto length = static_cast<size_t>(state.range(1));
  const SearchCase& c = search_case(size, length);
  for (auto _ : state) benchmark::DoNotOptimize(Kernel(c.data.data(), size, c.target.data(), length));
  finish(state, size);
}

void BM_memmem(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  auto length = static_cast<size_t>(state.range(1));
  const SearchCase& c = search_case(size, length);
  for (auto _ : state) benchmark::DoNotOptimize(memmem(c.data.data(), size, c.target.data(), length));
  finish(state, size);
}

void Sizes(benchmark::internal::Benchmark* b) {
  for (int64_t size : {int64_t{16} << 10, int64_t{1} << 20, int64_t{64} << 20}) b->Arg(size);
}

void SizesAndTargets(benchmark::internal::Benchmark* b) {
  for (int64_t size : {int64_t{16} << 10, int64_t{1} << 20, int64_t{64} << 20}) {
    for (int64_t length : {2, 4, 16, 64}) b->Args({size, length});
  }
}

BENCHMARK(BM_FindByteVEK)->Apply(Sizes);
BENCHMARK(BM_find_byte<vek::find_byte_sse2>)->Apply(Sizes);
BENCHMARK(BM_find_byte<vek::find_byte_scalar>)->Apply(Sizes);
BENCHMARK(BM_memchr)->Apply(Sizes);

BENCHMARK(BM_FindNotByteVEK)->Apply(Sizes);
BENCHMARK(BM_find_not_byte<vek::find_not_byte_sse2>)->Apply(Sizes);
BENCHMARK(BM_find_not_byte<vek::find_not_byte_scalar>)->Apply(Sizes);
BENCHMARK(BM_memchr_not_byte_reference)->Apply(Sizes);

BENCHMARK(BM_BytesZeroVEK)->Apply(Sizes);
BENCHMARK(BM_all_zero<vek::all_zero_sse2>)->Apply(Sizes);
BENCHMARK(BM_all_zero<vek::all_zero_scalar>)->Apply(Sizes);
BENCHMARK(BM_memchr_zero_reference)->Apply(Sizes);

BENCHMARK(BM_BytesEqualVEK)->Apply(Sizes);
BENCHMARK(BM_bytes_equal<vek::bytes_equal_sse2>)->Apply(Sizes);
BENCHMARK(BM_bytes_equal<vek::bytes_equal_scalar>)->Apply(Sizes);
BENCHMARK(BM_memcmp)->Apply(Sizes);

BENCHMARK(BM_FindBytesVEK)->Apply(SizesAndTargets);
BENCHMARK(BM_find_bytes<vek::find_bytes_sse2>)->Apply(SizesAndTargets);
BENCHMARK(BM_find_bytes<vek::find_bytes_scalar>)->Apply(SizesAndTargets);
BENCHMARK(BM_memmem)->Apply(SizesAndTargets);
}  // namespace
