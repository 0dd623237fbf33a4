// The colour kernels in place over N bytes: through the plug-in's choice of
// level, at every level this CPU runs, as the scalar twin, and beside the
// in-place memory limit, two memcpys of N/2 bytes within the same buffer,
// which read and write N bytes as the kernels do (the RGB conversion writes
// two thirds of what it reads).
//
//   BM_InPlaceLimit/<N>
//   BM_<method>/dispatched/<N>, BM_<method>/<level>/<N>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "colour_signal/colour_rules.h"
#include "colour_signal/rgb12.h"
#include "frame/target.h"

namespace {
using Kernel = std::function<void(uint8_t*, size_t)>;

// The same random bytes for every benchmark of a size.
const std::vector<uint8_t>& random_bytes(size_t size) {
  static std::vector<uint8_t> pool;
  if (pool.size() < size) {
    pool.resize(size);
    std::mt19937 random(1);
    for (uint8_t& b : pool) b = static_cast<uint8_t>(random());
  }
  return pool;
}

void run(benchmark::State& state, const Kernel& kernel) {
  auto size = static_cast<size_t>(state.range(0));
  const std::vector<uint8_t>& pool = random_bytes(size);
  std::vector<uint8_t> buffer(pool.begin(), pool.begin() + static_cast<ptrdiff_t>(size));
  for (auto _ : state) {
    kernel(buffer.data(), size);
    benchmark::DoNotOptimize(buffer.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20)->DenseRange(0, 300, 17)->MinTime(0.05);
}

void add(const std::string& name, Kernel kernel) {
  benchmark::RegisterBenchmark(name.c_str(), [kernel](benchmark::State& state) { run(state, kernel); })->Apply(sizes);
}

// One benchmark per level of `family` the CPU runs, `bind` turning a level's
// table into the kernel over (data, size).
template <typename Family, typename Bind>
void add_levels(const std::string& method, Family& family, Bind bind) {
  add(method + "/dispatched", bind(family.best()));
  for (const auto& level : family.levels()) {
    if (vek::cpu_has(level.level)) add(method + "/" + vek::level_name(level.level), bind(level.table));
  }
}

// _Calc3te with source (200, 100, 50, 0) and Tolerance 0.1
constexpr int32_t kLow[4] = {180, 90, 45, 0};
constexpr int32_t kHigh[4] = {220, 110, 55, 0};
constexpr uint8_t kDest[4] = {1, 2, 3, 4};

[[maybe_unused]] const bool registered = [] {
  add("BM_InPlaceLimit", [](uint8_t* data, size_t size) {
    std::memcpy(data + size / 2, data, size / 2);
    std::memcpy(data, data + size / 2, size / 2);
  });
  add_levels("BM_ConvertRGB12BitTo8BitVEK", vek::rgb12_kernels, [](const vek::Rgb12Table& t) -> Kernel {
    return [convert = t.convert](uint8_t* data, size_t size) { convert(data, data, size / 9); };
  });
  add_levels("BM_Calc3te", vek::replace_colour_kernels, [](const vek::ReplaceColourTable& t) -> Kernel {
    return [replace = t.replace](uint8_t* data, size_t size) { replace(data, size / 4, kLow, kHigh, kDest); };
  });
  // _Calc2teCMY and _Calc2teCMYK with their defaults
  add_levels("BM_Calc2teCMY", vek::complement_kernels, [](const vek::ComplementTable& t) -> Kernel {
    return [cmy = t.cmy](uint8_t* data, size_t size) { cmy(data, size / 4, 255, true); };
  });
  add_levels("BM_Calc2teCMYK", vek::complement_kernels, [](const vek::ComplementTable& t) -> Kernel {
    return [cmyk = t.cmyk](uint8_t* data, size_t size) { cmyk(data, size / 4, 255, true); };
  });
  return true;
}();
}  // namespace
