// The colour kernels in place over N bytes, beside their scalar twins and the
// in-place memory limit: two memcpys of N/2 bytes within the same buffer,
// which read and write N bytes as the kernels do (the RGB conversion writes
// two thirds of what it reads).
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "colour_signal/colour_rules.h"
#include "colour_signal/rgb12.h"

namespace {
std::vector<uint8_t> random_buffer(size_t size) {
  std::vector<uint8_t> buffer(size);
  std::mt19937 random(1);
  for (uint8_t& b : buffer) b = static_cast<uint8_t>(random());
  return buffer;
}

template <typename Kernel>
void run(benchmark::State& state, Kernel kernel) {
  auto size = static_cast<size_t>(state.range(0));
  std::vector<uint8_t> buffer = random_buffer(size);
  for (auto _ : state) {
    kernel(buffer.data(), size);
    benchmark::DoNotOptimize(buffer.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

void BM_TwoHalfMemcpys(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) {
    std::memcpy(data + size / 2, data, size / 2);
    std::memcpy(data, data + size / 2, size / 2);
  });
}

// -- ConvertRGB12BitTo8BitVEK -----------------------------------------------------

void BM_Rgb12_sse2(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::rgb12_to_rgb8_sse2(data, data, size / 9); });
}
void BM_Rgb12_scalar(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::rgb12_to_rgb8_scalar(data, data, size / 9); });
}

// -- _Calc3te: source (200, 100, 50, 0), Tolerance 0.1 ---------------------------

constexpr int32_t kLow[4] = {180, 90, 45, 0};
constexpr int32_t kHigh[4] = {220, 110, 55, 0};
constexpr uint8_t kDest[4] = {1, 2, 3, 4};

void BM_Calc3te_sse2(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::replace_colour_sse2(data, size / 4, kLow, kHigh, kDest); });
}
void BM_Calc3te_scalar(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::replace_colour_scalar(data, size / 4, kLow, kHigh, kDest); });
}

// -- _Calc2teCMY, _Calc2teCMYK with the defaults ----------------------------------

void BM_Calc2teCMY_sse2(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::complement_cmy_sse2(data, size / 4, 255, true); });
}
void BM_Calc2teCMY_scalar(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::complement_cmy_scalar(data, size / 4, 255, true); });
}
void BM_Calc2teCMYK_sse2(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::complement_cmyk_sse2(data, size / 4, 255, true); });
}
void BM_Calc2teCMYK_scalar(benchmark::State& state) {
  run(state, [](uint8_t* data, size_t size) { vek::complement_cmyk_scalar(data, size / 4, 255, true); });
}

void sizes(benchmark::internal::Benchmark* b) { b->Arg(16 << 10)->Arg(1 << 20)->Arg(64 << 20); }

BENCHMARK(BM_TwoHalfMemcpys)->Apply(sizes);
BENCHMARK(BM_Rgb12_sse2)->Apply(sizes);
BENCHMARK(BM_Rgb12_scalar)->Apply(sizes);
BENCHMARK(BM_Calc3te_sse2)->Apply(sizes);
BENCHMARK(BM_Calc3te_scalar)->Apply(sizes);
BENCHMARK(BM_Calc2teCMY_sse2)->Apply(sizes);
BENCHMARK(BM_Calc2teCMY_scalar)->Apply(sizes);
BENCHMARK(BM_Calc2teCMYK_sse2)->Apply(sizes);
BENCHMARK(BM_Calc2teCMYK_scalar)->Apply(sizes);
}  // namespace
