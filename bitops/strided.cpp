// Strided copies and bit expansion. CopyNthBytesVEK (here) and
// CopyNthBitsVEK (strided_bits.cpp) gather equally spaced runs of bytes or
// bits from `source` and pack them one after the other into the block they
// are called on; ExpandBitsVEK (expand_bits.cpp) turns every bit of the block
// it is called on into one byte of `dest`.
//
//   source 01 02 .. 0C: CopyNthBytesVEK(source, 0, 0, 2, 4, 3)  writes 01 02 05 06 09 0A
//                       CopyNthBytesVEK(source, 8, 0, 2, -4, 3) writes 09 0A 05 06 01 02
// The copies raise "NilObjectException" for a nil block. CopyNthBytesVEK with
// no byte to copy answers True whatever its offsets. Offsets must lie inside
// their blocks; a gather that runs past a block's end is cut back there. A
// block that reports size 0 (one over a raw address) has no known end: the
// caller's range is trusted.
#include <algorithm>
#include <cstring>

#include "bitops/avx2.h"
#include "bitops/sse2.h"
#include "bitops/strided.h"
#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

namespace vek {
#if VEK_X86
using namespace sse2;
#endif

// -- runs of bytes ------------------------------------------------------------------

namespace {
// Kept out of line: inlined into the wider levels, the compiler vectorises
// the byte loop, which costs more than it saves on runs of a few bytes.
[[gnu::noinline]] void copy_runs_bytewise(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t first, size_t end) {
  for (size_t k = first; k < end; ++k) {
    const uint8_t* from = src + static_cast<ptrdiff_t>(k) * step;
    uint8_t* to = dst + k * run_bytes;
    for (size_t i = 0; i < run_bytes; ++i) to[i] = from[i];
  }
}
}  // namespace

void copy_nth_bytes_scalar(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept {
  copy_runs_bytewise(dst, src, run_bytes, step, 0, runs);
}
#if VEK_X86

// Short runs move as one 16-byte load and store wherever those 16 bytes stay
// inside the gather's own bytes: the source from its lowest to its highest
// run, the destination's runs. The bytes stored past a run are written again
// by the runs after it. Longer runs move in 16-byte pieces, the last piece
// ending on the run's last byte; long ones go to memmove.
void copy_nth_bytes_sse2(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept {
  if (runs == 0 || run_bytes == 0) return;
  if (run_bytes >= 256) {
    for (size_t k = 0; k < runs; ++k) {
      std::memmove(dst + k * run_bytes, src + static_cast<ptrdiff_t>(k) * step, run_bytes);
    }
    return;
  }
  if (run_bytes >= 16) {
    for (size_t k = 0; k < runs; ++k) {
      const uint8_t* from = src + static_cast<ptrdiff_t>(k) * step;
      uint8_t* to = dst + k * run_bytes;
      for (size_t i = 0; i + 16 < run_bytes; i += 16) store(to + i, load(from + i));
      store(to + run_bytes - 16, load(from + run_bytes - 16));
    }
    return;
  }
  // The runs [wide_first, wide_end) can move 16 bytes: in the destination a
  // prefix of the runs; in the source a prefix going forwards, a suffix going
  // backwards (past run 0's end lies nothing of the gather), none in place.
  size_t dest_bytes = runs * run_bytes;
  size_t wide_first = 0;
  size_t wide_end = dest_bytes < 16 ? 0 : std::min(runs, (dest_bytes - 16) / run_bytes + 1);
  if (step > 0) {
    size_t source_end = (runs - 1) * static_cast<size_t>(step) + run_bytes;
    wide_end = source_end < 16 ? 0 : std::min(wide_end, (source_end - 16) / static_cast<size_t>(step) + 1);
  } else if (step < 0) {
    auto back = static_cast<size_t>(-step);
    wide_first = (16 - run_bytes + back - 1) / back;
  } else {
    wide_end = 0;
  }
  if (wide_first > wide_end) wide_first = wide_end;
  // head: runs too near the source's top for a 16-byte load
  copy_runs_bytewise(dst, src, run_bytes, step, 0, wide_first);
  // main loop
  ptrdiff_t from = static_cast<ptrdiff_t>(wide_first) * step;
  size_t to = wide_first * run_bytes;
  for (size_t k = wide_first; k < wide_end; ++k, from += step, to += run_bytes) store(dst + to, load(src + from));
  // remainder: runs too near either end for a 16-byte move
  copy_runs_bytewise(dst, src, run_bytes, step, wide_end, runs);
}

namespace {
int64_t floor_div(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }  // b > 0

// Runs shorter than 16 bytes whose stride packs two or more of them into one
// 16-byte window of the source: `per` runs a window, moved by one pshufb
// into the first per * run_bytes bytes of a vector. Group g of `lanes`
// windows starts at run first + g * per * lanes; the groups run while
// every load stays inside the gather's source bytes and every store inside
// its destination bytes (`store_end`: how far past its first run's
// destination byte a group stores).
struct ShuffleGather {
  size_t per = 0;        // 0: no window holds two runs
  ptrdiff_t window = 0;  // the window's start, relative to its first run
  size_t first = 0;      // the first run of the first group
  int64_t last = -1;     // the first run of the last group; below first: none
  uint8_t order[16] = {};
};

ShuffleGather plan_shuffle_gather(size_t run_bytes, ptrdiff_t step, size_t runs, size_t lanes, size_t store_end) {
  ShuffleGather plan;
  if (run_bytes == 0 || run_bytes >= 16 || step == 0 || runs < 4) return plan;
  auto r = static_cast<int64_t>(run_bytes);
  int64_t b = step > 0 ? step : -step;
  int64_t per = std::min<int64_t>((16 - r) / b + 1, 16 / r);
  if (per < 2) return plan;
  plan.per = static_cast<size_t>(per);
  plan.window = step > 0 ? 0 : (per - 1) * step;
  for (size_t i = 0; i < 16; ++i) plan.order[i] = 0x80;  // pshufb: a zero byte
  for (int64_t j = 0; j < per; ++j) {
    for (int64_t i = 0; i < r; ++i) plan.order[j * r + i] = static_cast<uint8_t>(j * step - plan.window + i);
  }
  auto n = static_cast<int64_t>(runs);
  int64_t span = per * static_cast<int64_t>(lanes);  // runs a group
  // Upper bounds on a group's first run k: whole groups, stores inside.
  int64_t last = std::min(n - span, floor_div(n * r - static_cast<int64_t>(store_end), r));
  int64_t first = 0;
  if (step > 0) {
    // The last window of the group ends inside the last run.
    last = std::min(last, floor_div((n - 1) * step + r - 16, step) - (span - per));
  } else {
    // The first window of the group (highest in memory) ends inside run 0.
    first = std::max<int64_t>(0, (16 - r + b - 1) / b - (per - 1));
  }
  plan.first = static_cast<size_t>(first);
  plan.last = last;
  return plan;
}
}  // namespace

[[gnu::target("ssse3")]] void copy_nth_bytes_ssse3(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step,
                                                   size_t runs) noexcept {
  if (runs * run_bytes < 64) {  // too few bytes to pay for a plan
    copy_nth_bytes_scalar(dst, src, run_bytes, step, runs);
    return;
  }
  ShuffleGather plan = plan_shuffle_gather(run_bytes, step, runs, 1, 16);
  if (plan.per == 0 || plan.last < static_cast<int64_t>(plan.first)) {
    copy_nth_bytes_sse2(dst, src, run_bytes, step, runs);
    return;
  }
  const __m128i order = load(plan.order);
  // head: runs too near the source's top for a window
  copy_nth_bytes_sse2(dst, src, run_bytes, step, plan.first);
  // main loop: a window of runs per pass
  size_t k = plan.first;
  const uint8_t* from = src + static_cast<ptrdiff_t>(k) * step + plan.window;
  uint8_t* to = dst + k * run_bytes;
  const ptrdiff_t from_step = static_cast<ptrdiff_t>(plan.per) * step;
  const size_t to_step = plan.per * run_bytes;
  for (; static_cast<int64_t>(k) <= plan.last; k += plan.per, from += from_step, to += to_step) {
    store(to, ssse3::shuffle(load(from), order));
  }
  // remainder: runs too near either end for a window or a 16-byte store
  copy_nth_bytes_sse2(to, src + static_cast<ptrdiff_t>(k) * step, run_bytes, step, runs - k);
}

[[gnu::target("avx2")]] void copy_nth_bytes_avx2(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step,
                                                 size_t runs) noexcept {
  // Two windows a pass, one per lane. When a window's output is whole 32-bit
  // words the two outputs are packed into one 32-byte store, else each lane
  // is stored on its own.
  if (runs * run_bytes < 64) {  // too few bytes to pay for a plan
    copy_nth_bytes_scalar(dst, src, run_bytes, step, runs);
    return;
  }
  ShuffleGather plan = plan_shuffle_gather(run_bytes, step, runs, 2, 32);
  size_t out = plan.per * run_bytes;
  bool packed = out % 4 == 0;
  if (!packed) plan = plan_shuffle_gather(run_bytes, step, runs, 2, out + 16);
  if (plan.per == 0) {  // no window holds two runs
    copy_nth_bytes_sse2(dst, src, run_bytes, step, runs);
    return;
  }
  if (plan.last < static_cast<int64_t>(plan.first)) {  // too few runs for two windows
    copy_nth_bytes_ssse3(dst, src, run_bytes, step, runs);
    return;
  }
  // head: runs too near the source's top for a window
  copy_nth_bytes_sse2(dst, src, run_bytes, step, plan.first);
  const __m256i order = avx2::both_lanes(load(plan.order));
  // dwords 0..q-1 of the low lane, then 0..q-1 of the high lane
  int32_t index[8] = {};
  for (int i = 0, q = static_cast<int>(out / 4); i < q; ++i) {
    index[i] = i;
    index[q + i] = 4 + i;
  }
  const __m256i pack_words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(index));
  // main loop: two windows of runs per pass
  size_t k = plan.first;
  const uint8_t* from = src + static_cast<ptrdiff_t>(k) * step + plan.window;
  uint8_t* to = dst + k * run_bytes;
  const ptrdiff_t window_step = static_cast<ptrdiff_t>(plan.per) * step;
  for (; static_cast<int64_t>(k) <= plan.last; k += 2 * plan.per, from += 2 * window_step, to += 2 * out) {
    __m256i windows = _mm256_inserti128_si256(_mm256_castsi128_si256(load(from)), load(from + window_step), 1);
    __m256i gathered = avx2::shuffle_in_lanes(windows, order);
    if (packed) {
      avx2::store(to, _mm256_permutevar8x32_epi32(gathered, pack_words));
    } else {
      store(to, _mm256_castsi256_si128(gathered));
      store(to + out, _mm256_extracti128_si256(gathered, 1));
    }
  }
  // remainder: runs too near either end for two windows or the stores
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  copy_nth_bytes_sse2(to, src + static_cast<ptrdiff_t>(k) * step, run_bytes, step, runs - k);
}
#endif

constinit KernelFamily<CopyNthBytesTable> copy_nth_bytes_kernels{
#if VEK_X86
    {Level::AVX2, {copy_nth_bytes_avx2}},
    {Level::SSSE3, {copy_nth_bytes_ssse3}},
    {Level::SSE2, {copy_nth_bytes_sse2}},
#endif
    {Level::Scalar, {copy_nth_bytes_scalar}},
};

}  // namespace vek

bool CopyNthBytes(REALmemoryBlock block, REALmemoryBlock source, int32_t sourceOffsetBytes,
                  int32_t destinationOffsetBytes, int32_t byteCount, int32_t stepCount, int32_t numberOfSteps) {
  if (source == nullptr || block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return false;
  }
  auto* src = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(source));
  auto* dst = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (numberOfSteps <= 0 || byteCount == 0) return true;  // no byte to read, write or refuse
  if (src == nullptr || dst == nullptr) return false;
  if (sourceOffsetBytes < 0 || destinationOffsetBytes < 0 || byteCount < 0) return false;

  // The output is cut back at the destination's end, inside a run if need be.
  int64_t out = vek::items_trusting_unknown_size(REALMemoryBlockGetSize(block), destinationOffsetBytes,
                                                int64_t{numberOfSteps} * byteCount);
  if (out == 0) return false;
  int64_t runs = (out + byteCount - 1) / byteCount;
  // In the source, the first run starts inside and no run before its start;
  // what lies past its end is not copied.
  int32_t source_size = REALMemoryBlockGetSize(source);
  auto start = [&](int64_t k) { return sourceOffsetBytes + k * stepCount; };
  if (source_size > 0 && sourceOffsetBytes >= source_size) return false;
  if (start(runs - 1) < 0) return false;
  if (source_size > 0 && stepCount > 0) {  // runs that would start past the source's end
    runs = std::min<int64_t>(runs, (source_size - 1 - sourceOffsetBytes) / stepCount + 1);
  }
  auto length = [&](int64_t k) {  // the bytes of run k both blocks hold
    return vek::items_trusting_unknown_size(source_size, start(k),
                                            std::min<int64_t>(byteCount, out - k * byteCount));
  };
  auto copy_cut_run = [&](int64_t k) {
    int64_t n = length(k);
    if (n > 0) std::memmove(dst + destinationOffsetBytes + k * byteCount, src + start(k), static_cast<size_t>(n));
  };
  // Cut runs gather at the ends (first for a backward walk, last for a
  // forward one); the whole runs between them go to the kernel in one call.
  int64_t first_whole = 0;
  for (; first_whole < runs && length(first_whole) != byteCount; ++first_whole) copy_cut_run(first_whole);
  int64_t end_whole = runs;
  while (end_whole > first_whole && length(end_whole - 1) != byteCount) --end_whole;
  if (end_whole > first_whole) {
    vek::copy_nth_bytes_kernels.best().gather(dst + destinationOffsetBytes + first_whole * byteCount,
                                              src + start(first_whole), static_cast<size_t>(byteCount), stepCount,
                                              static_cast<size_t>(end_whole - first_whole));
  }
  for (int64_t k = end_whole; k < runs; ++k) copy_cut_run(k);
  return true;
}
