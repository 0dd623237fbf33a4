// The compare and search methods against the C library in the same run:
// FindByteVEK against memchr, FindNotByteVEK and BytesZeroVEK against memchr
// over the same bytes (a memchr-class single pass with no match), BytesEqualVEK
// against memcmp and FindBytesVEK against memmem. Each method is measured as
// BM_<Method>/<how>: "best" is the level the plug-in chose (through best()),
// then every level this CPU runs (the scalar twin last), the C library
// reference, and "host", the registered function called through the
// simulated host. Every case reads the whole range: the match, if any, is the
// last possible one.
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "blockops/compare_search.h"
#include "bench/bench_host.h"

namespace {
using Bytes = std::vector<uint8_t>;
using B = REALmemoryBlock;

constexpr uint8_t kWanted = 0x3C;  // the byte FindByteVEK looks for, only at the end
constexpr uint8_t kFill = 0x5A;    // the byte FindNotByteVEK skips, everywhere but the end

B host_block(const Bytes& bytes) {
  B b = bench_host().host.newBlock(bytes.size());
  std::memcpy(bench_host().host.bytes(b).data(), bytes.data(), bytes.size());
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
    if (size > 0) data.back() = kWanted;
    return data;
  });
}

// kFill everywhere but the last byte.
const Bytes& find_not_byte_data(size_t size) {
  static std::map<size_t, Bytes> cache;
  return cached(cache, size, [&] {
    Bytes data(size, kFill);
    if (size > 0) data.back() = 0;
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

// -- FindByteVEK, FindNotByteVEK and BytesZeroVEK: one pass over one block ------

// The registered function on a block of Data's bytes; `call` gets the block and
// the size.
template <const Bytes& (*Data)(size_t), class Call>
void scan_host(benchmark::State& state, Call call) {
  static std::map<size_t, B> blocks;
  auto size = static_cast<size_t>(state.range(0));
  B block = cached_block(blocks, size, Data(size));
  for (auto _ : state) benchmark::DoNotOptimize(call(block, static_cast<int32_t>(size)));
  finish(state, size);
}

// A kernel level, or the C library, on Data's bytes, given Value (if any)
// after the size.
template <const Bytes& (*Data)(size_t), auto... Value, class Kernel>
void scan(benchmark::State& state, Kernel kernel) {
  auto size = static_cast<size_t>(state.range(0));
  const Bytes& data = Data(size);
  for (auto _ : state) benchmark::DoNotOptimize(kernel(data.data(), size, Value...));
  finish(state, size);
}

// memchr over Data's bytes, for a byte they do not hold.
template <const Bytes& (*Data)(size_t), uint8_t Absent>
void scan_memchr(benchmark::State& state) {
  scan<Data, Absent>(state,
                     [](const uint8_t* data, size_t size, uint8_t value) { return std::memchr(data, value, size); });
}

// -- BytesEqualVEK ----------------------------------------------------------------

void bytes_equal_host(benchmark::State& state) {
  static std::map<size_t, std::pair<B, B>> blocks;
  auto size = static_cast<size_t>(state.range(0));
  auto it = blocks.find(size);
  if (it == blocks.end()) it = blocks.emplace(size, std::pair(host_block(equal_data(size)), host_block(equal_data(size)))).first;
  auto equal = bench_host().plugin.method<bool(B, int32_t, int32_t, B, int32_t)>(
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

template <class Kernel>
void bytes_equal(benchmark::State& state, Kernel kernel) {
  auto size = static_cast<size_t>(state.range(0));
  const auto& [a, b] = equal_pair(size);
  for (auto _ : state) benchmark::DoNotOptimize(kernel(a.data(), b.data(), size));
  finish(state, size);
}

void bytes_equal_memcmp(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  const auto& [a, b] = equal_pair(size);
  for (auto _ : state) benchmark::DoNotOptimize(std::memcmp(a.data(), b.data(), size));
  finish(state, size);
}

// -- FindBytesVEK -----------------------------------------------------------------

// Random bytes with the target (random too) only at the very end: earlier
// chance occurrences are broken up. A range shorter than the target holds
// none.
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
  if (size >= length) {
    std::memcpy(c.data.data() + size - length, c.target.data(), length);
    size_t from = 0;
    for (;;) {
      auto* found = static_cast<uint8_t*>(memmem(c.data.data() + from, size - from, c.target.data(), length));
      auto at = static_cast<size_t>(found - c.data.data());
      if (at == size - length) break;
      c.data[at] ^= 0x01;  // no longer starts the target; look again from where a new one could start
      from = at >= length ? at - length + 1 : 0;
    }
  }
  return cache.emplace(key, std::move(c)).first->second;
}

void find_bytes_host(benchmark::State& state) {
  static std::map<std::pair<size_t, size_t>, std::pair<B, B>> blocks;
  auto size = static_cast<size_t>(state.range(0));
  auto length = static_cast<size_t>(state.range(1));
  auto key = std::pair(size, length);
  auto it = blocks.find(key);
  if (it == blocks.end()) {
    const SearchCase& c = search_case(size, length);
    it = blocks.emplace(key, std::pair(host_block(c.data), host_block(c.target))).first;
  }
  auto find = bench_host().plugin.method<int32_t(B, int32_t, int32_t, B, int32_t, int32_t)>(
      "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as "
      "Integer) as Integer");
  for (auto _ : state) benchmark::DoNotOptimize(find(it->second.first, 0, 0, it->second.second, 0, 0));
  finish(state, size);
}

template <class Kernel>
void find_bytes(benchmark::State& state, Kernel kernel) {
  auto size = static_cast<size_t>(state.range(0));
  auto length = static_cast<size_t>(state.range(1));
  const SearchCase& c = search_case(size, length);
  for (auto _ : state) benchmark::DoNotOptimize(kernel(c.data.data(), size, c.target.data(), length));
  finish(state, size);
}

void find_bytes_memmem(benchmark::State& state) {
  auto size = static_cast<size_t>(state.range(0));
  auto length = static_cast<size_t>(state.range(1));
  const SearchCase& c = search_case(size, length);
  for (auto _ : state) benchmark::DoNotOptimize(memmem(c.data.data(), size, c.target.data(), length));
  finish(state, size);
}

// -- registration -----------------------------------------------------------------

using Benchmark = benchmark::internal::Benchmark;
constexpr int64_t kSizes[] = {int64_t{16} << 10, int64_t{1} << 20, int64_t{64} << 20};
constexpr int64_t kTargetLengths[] = {2, 4, 16, 64};
constexpr int64_t kSmallTargetLength = 4;

Benchmark* sized(Benchmark* b) {
  for (int64_t size : kSizes) b->Arg(size);
  return b->MinTime(0.05);
}

// Sizes 0..300, to hold the chosen level against the scalar twin.
Benchmark* small_sizes(Benchmark* b) { return b->DenseRange(0, 300, 17); }

Benchmark* sized_targets(Benchmark* b) {
  for (int64_t size : kSizes) {
    for (int64_t length : kTargetLengths) b->Args({size, length});
  }
  return b->MinTime(0.05);
}

Benchmark* small_sizes_targets(Benchmark* b) {
  for (int64_t size = 0; size <= 300; size += 17) b->Args({size, kSmallTargetLength});
  return b;
}

// The chosen level (with the small sizes), every level this CPU runs (the
// scalar twin with the small sizes too); levels the CPU lacks are left out.
template <class Table, class Kernel>
void register_levels(const std::string& method, vek::KernelFamily<Table>& family, Kernel Table::*kernel,
                     void (*run)(benchmark::State&, Kernel), Kernel best, Benchmark* (*sizes)(Benchmark*),
                     Benchmark* (*small)(Benchmark*)) {
  small(sizes(benchmark::RegisterBenchmark((method + "/best").c_str(), run, best)));
  for (const auto& level : family.levels()) {
    if (!vek::cpu_has(level.level)) continue;
    std::string name = method + "/" + vek::level_name(level.level);
    Benchmark* b = sizes(benchmark::RegisterBenchmark(name.c_str(), run, level.table.*kernel));
    if (level.level == vek::Level::Scalar) small(b);
  }
}

int register_benchmarks() {
  using namespace vek;
  using benchmark::RegisterBenchmark;

  sized(RegisterBenchmark("BM_FindByteVEK/host", [](benchmark::State& state) {
    static auto find = bench_host().plugin.method<int32_t(B, int32_t, int32_t, int32_t)>(
        "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer");
    scan_host<find_byte_data>(state, [](B block, int32_t size) { return find(block, 0, size, kWanted); });
  }));
  register_levels(
      "BM_FindByteVEK", find_byte_kernels, &FindByteTable::find_byte, scan<find_byte_data, kWanted>,
      +[](const uint8_t* data, size_t size, uint8_t value) noexcept {
        return find_byte_kernels.best().find_byte(data, size, value);
      },
      sized, small_sizes);
  sized(RegisterBenchmark("BM_FindByteVEK/memchr", scan_memchr<find_byte_data, kWanted>));

  sized(RegisterBenchmark("BM_FindNotByteVEK/host", [](benchmark::State& state) {
    static auto find_not = bench_host().plugin.method<int32_t(B, int32_t, int32_t, int32_t)>(
        "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer");
    scan_host<find_not_byte_data>(state, [](B block, int32_t size) { return find_not(block, 0, size, kFill); });
  }));
  register_levels(
      "BM_FindNotByteVEK", find_not_byte_kernels, &FindNotByteTable::find_not_byte, scan<find_not_byte_data, kFill>,
      +[](const uint8_t* data, size_t size, uint8_t value) noexcept {
        return find_not_byte_kernels.best().find_not_byte(data, size, value);
      },
      sized, small_sizes);
  // The same bytes in one memchr pass that finds nothing until the end.
  sized(RegisterBenchmark("BM_FindNotByteVEK/memchr", scan_memchr<find_not_byte_data, 0>));

  sized(RegisterBenchmark("BM_BytesZeroVEK/host", [](benchmark::State& state) {
    static auto zero = bench_host().plugin.method<bool(B, int32_t, int32_t)>(
        "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean");
    scan_host<zero_data>(state, [](B block, int32_t size) { return zero(block, 0, size); });
  }));
  register_levels(
      "BM_BytesZeroVEK", all_zero_kernels, &AllZeroTable::all_zero, scan<zero_data>,
      +[](const uint8_t* data, size_t size) noexcept { return all_zero_kernels.best().all_zero(data, size); }, sized,
      small_sizes);
  sized(RegisterBenchmark("BM_BytesZeroVEK/memchr", scan_memchr<zero_data, 1>));

  sized(RegisterBenchmark("BM_BytesEqualVEK/host", bytes_equal_host));
  register_levels(
      "BM_BytesEqualVEK", bytes_equal_kernels, &BytesEqualTable::bytes_equal, bytes_equal,
      +[](const uint8_t* a, const uint8_t* b, size_t size) noexcept {
        return bytes_equal_kernels.best().bytes_equal(a, b, size);
      },
      sized, small_sizes);
  sized(RegisterBenchmark("BM_BytesEqualVEK/memcmp", bytes_equal_memcmp));

  sized_targets(RegisterBenchmark("BM_FindBytesVEK/host", find_bytes_host));
  register_levels(
      "BM_FindBytesVEK", find_bytes_kernels, &FindBytesTable::find_bytes, find_bytes,
      +[](const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept {
        return find_bytes_kernels.best().find_bytes(data, size, target, length);
      },
      sized_targets, small_sizes_targets);
  sized_targets(RegisterBenchmark("BM_FindBytesVEK/memmem", find_bytes_memmem));
  return 0;
}

const int registered = register_benchmarks();
}  // namespace
