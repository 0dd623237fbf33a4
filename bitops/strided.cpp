// Strided copies and bit expansion. CopyNthBytesVEK and CopyNthBitsVEK
// gather equally spaced runs of bytes or bits from `source` and pack them one
// after the other into the block they are called on; ExpandBitsVEK turns
// every bit of the block it is called on into one byte of `dest`.
//
//   source 01 02 .. 0C: CopyNthBytesVEK(source, 0, 0, 2, 4, 3)  writes 01 02 05 06 09 0A
//                       CopyNthBytesVEK(source, 8, 0, 2, -4, 3) writes 09 0A 05 06 01 02
//   source 12 34 AB CD: CopyNthBitsVEK(source, 3, 0, 4, 2, 3)   writes 96 50
//                       (bits 3..6, 9..12, 15..18; the last byte's free bits become 0)
//   block A5 01 00 80:  ExpandBitsVEK(dest, 4) writes FF 00 FF 00 00 FF 00 FF, 00 .. 00 FF, ...
// The copies raise "NilObjectException" for a nil block; ExpandBitsVEK raises
// nothing and answers False. CopyNthBytesVEK with no byte to copy answers True
// whatever its offsets; CopyNthBitsVEK with no bit to copy answers True also
// where the host gives no destination bytes to clear. Offsets must lie inside
// their blocks; a gather
// that runs past a block's end is cut back there (see each method). A block
// that reports size 0 (one over a raw address) has no known end: the
// caller's range is trusted.
#include <algorithm>
#include <cstring>

#include "bitops/avx2.h"
#include "bitops/range.h"
#include "bitops/sse2.h"
#include "bitops/strided.h"
#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"

namespace vek {
using namespace sse2;

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

constinit KernelFamily<CopyNthBytesTable, 4> copy_nth_bytes_kernels{{{
    {Level::AVX2, {copy_nth_bytes_avx2}},
    {Level::SSSE3, {copy_nth_bytes_ssse3}},
    {Level::SSE2, {copy_nth_bytes_sse2}},
    {Level::Scalar, {copy_nth_bytes_scalar}},
}}};

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
  int64_t out = vek::count_in_block(destinationOffsetBytes, int64_t{numberOfSteps} * byteCount,
                                    REALMemoryBlockGetSize(block));
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
    return vek::count_in_block(start(k), std::min<int64_t>(byteCount, out - k * byteCount), source_size);
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

// -- runs of bits ---------------------------------------------------------------------

namespace vek {

void copy_nth_bits_scalar(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                          size_t gap, uint64_t total) noexcept {
  uint8_t* to = dst + dst_bit / 8;
  unsigned dbit = 7 - dst_bit % 8;
  unsigned acc = 0;
  uint64_t from = src_bit;
  uint64_t copied = 0;
  while (copied < total && run_bits > 0) {
    for (size_t i = 0; i < run_bits && copied < total; ++i, ++from, ++copied) {
      unsigned bit = (src[static_cast<size_t>(from / 8)] >> (7 - from % 8)) & 1u;
      acc |= bit << dbit;
      if (dbit == 0) {
        *to++ = static_cast<uint8_t>(acc);
        acc = 0;
        dbit = 7;
      } else {
        --dbit;
      }
    }
    from += gap;
  }
  if (dbit <= 6) *to = static_cast<uint8_t>(acc);
}

namespace {
// Up to 32 bits from bit `at` of src, right-aligned. A wide read takes the
// eight bytes from the one holding `at`; a narrow one only those it needs.
uint32_t take_bits(const uint8_t* src, uint64_t at, unsigned count, bool wide) {
  const uint8_t* p = src + static_cast<size_t>(at / 8);
  auto skip = static_cast<unsigned>(at % 8);
  uint64_t window = 0;
  if (wide) {
    std::memcpy(&window, p, 8);
    window = __builtin_bswap64(window);
  } else {
    for (unsigned j = 0; j < (skip + count + 7) / 8; ++j) window |= uint64_t{p[j]} << (56 - 8 * j);
  }
  return static_cast<uint32_t>((window << skip) >> (64 - count));
}

// The destination side: bits collect at the top of `acc` and leave four
// whole bytes at a time.
struct BitSink {
  uint8_t* to;
  uint64_t acc;
  unsigned pending;  // bits in acc, below 32 between calls

  void put(uint32_t bits, unsigned count) {  // count 1..32
    acc |= uint64_t{bits} << (64 - pending - count);
    pending += count;
    if (pending >= 32) {
      uint32_t word = __builtin_bswap32(static_cast<uint32_t>(acc >> 32));
      std::memcpy(to, &word, 4);
      to += 4;
      acc <<= 32;
      pending -= 32;
    }
  }
  // The last bytes; the final one keeps 0 after the last bit.
  void finish() {
    for (; pending > 0; pending = pending > 8 ? pending - 8 : 0) {
      *to++ = static_cast<uint8_t>(acc >> 56);
      acc <<= 8;
    }
  }
};
}  // namespace

namespace {
using ByteGather = void (*)(uint8_t*, const uint8_t*, size_t, ptrdiff_t, size_t) noexcept;

// The words level with the byte gather of a given level.
template <ByteGather gather_bytes>
void copy_nth_bits_in_words(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                            size_t gap, uint64_t total) {
  if (run_bits == 0) total = 0;
  uint64_t whole_runs = total == 0 ? 0 : total / run_bits;
  uint64_t rest = total == 0 ? 0 : total % run_bits;
  // Whole bytes everywhere: a byte gather, then the part of a cut last run.
  if ((dst_bit | src_bit | run_bits | gap | rest) % 8 == 0) {
    size_t run_bytes = run_bits / 8;
    size_t period = (run_bits + gap) / 8;
    uint8_t* to = dst + dst_bit / 8;
    const uint8_t* from = src + src_bit / 8;
    gather_bytes(to, from, run_bytes, static_cast<ptrdiff_t>(period), static_cast<size_t>(whole_runs));
    if (rest > 0) {
      std::memmove(to + whole_runs * run_bytes, from + whole_runs * period, static_cast<size_t>(rest / 8));
    }
    return;
  }
  // Wide reads are safe up to the byte holding the last copied bit.
  uint64_t source_end = 0;
  if (total > 0) {
    uint64_t last = total - 1;
    source_end = (src_bit + last / run_bits * (run_bits + gap) + last % run_bits) / 8 + 1;
  }
  BitSink sink{dst + dst_bit / 8, 0, static_cast<unsigned>(dst_bit % 8)};
  uint64_t from = src_bit;
  uint64_t copied = 0;
  // main loop: short whole runs, one wide read each
  if (run_bits <= 32) {
    auto count = static_cast<unsigned>(run_bits);
    for (; total - copied >= run_bits && from / 8 + 8 <= source_end; copied += run_bits, from += run_bits + gap) {
      sink.put(take_bits(src, from, count, true), count);
    }
  }
  // remainder: runs near the source's end, long runs, a cut last run
  while (copied < total) {
    uint64_t left = std::min<uint64_t>(run_bits, total - copied);
    while (left > 0) {
      auto count = static_cast<unsigned>(std::min<uint64_t>(left, 32));
      sink.put(take_bits(src, from, count, from / 8 + 8 <= source_end), count);
      from += count;
      copied += count;
      left -= count;
    }
    from += gap;
  }
  sink.finish();
}
}  // namespace

void copy_nth_bits_words(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                         size_t gap, uint64_t total) noexcept {
  copy_nth_bits_in_words<copy_nth_bytes_sse2>(dst, dst_bit, src, src_bit, run_bits, gap, total);
}

namespace {
// Short runs whose period fits a 64-bit lane k times over a whole number of
// bytes, and whose k runs make whole bytes, into a destination starting on a
// byte: each lane holds the k periods from one source byte on (read most
// significant bit first), shifted so the first run starts at its top, and
// its runs are packed to the top in a few steps (step b moves the runs whose
// index has bit b set by 2^b gaps). Byte shuffles put the source bytes in
// the lanes and the packed bytes back in order. Lanes go two to a 16-byte
// window, `windows` windows a group; `groups` groups stay inside the copied
// source bytes, the runs to copy and the destination bytes (a group stores
// up to `group_store` bytes past its first).
struct LaneGather {
  size_t groups = 0;
  unsigned per = 0;        // runs a lane (k)
  unsigned source = 0;     // source bytes a lane
  unsigned out = 0;        // destination bytes a lane
  unsigned offset = 0;     // the first run's bit in its byte
  unsigned steps = 0;
  uint64_t fields = 0;     // the runs' bits once shifted
  uint64_t moved[4] = {};  // the runs step b moves
  unsigned shift[4] = {};
  uint8_t into_lanes[16] = {};
  uint8_t out_of_lanes[16] = {};
};

LaneGather plan_lane_gather(size_t dst_bit, size_t src_bit, size_t run_bits, size_t gap, uint64_t total,
                            size_t windows, size_t group_store) {
  LaneGather plan;
  size_t period = run_bits + gap;
  if (dst_bit % 8 != 0 || src_bit >= 8 || run_bits == 0 || period > 64 || total < 8 * period) return plan;
  if ((src_bit | run_bits | gap) % 8 == 0) return plan;  // a byte gather does it
  unsigned k = 0;
  for (unsigned c = 1; c <= 16 && src_bit + (c - 1) * period + run_bits <= 64; ++c) {
    if (c * period % 8 == 0 && c * run_bits % 8 == 0 && c * period <= 64) k = c;
  }
  if (k == 0) return plan;
  plan.per = k;
  plan.source = static_cast<unsigned>(k * period / 8);
  plan.out = static_cast<unsigned>(k * run_bits / 8);
  plan.offset = static_cast<unsigned>(src_bit);
  auto field = [&](size_t at) { return (~uint64_t{0} >> (64 - run_bits)) << (64 - run_bits - at); };
  for (unsigned i = 0; i < k; ++i) plan.fields |= field(i * period);
  while ((1u << plan.steps) < k) ++plan.steps;
  for (unsigned b = 0; b < plan.steps; ++b) {
    plan.shift[b] = static_cast<unsigned>((size_t{1} << b) * gap);
    for (unsigned i = 0; i < k; ++i) {
      if (i & (1u << b)) plan.moved[b] |= field(i * period - (i & ((1u << b) - 1)) * gap);
    }
  }
  for (unsigned lane = 0; lane < 2; ++lane) {
    for (unsigned t = 0; t < 8; ++t) plan.into_lanes[8 * lane + t] = static_cast<uint8_t>(lane * plan.source + 7 - t);
  }
  for (unsigned i = 0; i < 16; ++i) plan.out_of_lanes[i] = 0x80;
  for (unsigned lane = 0; lane < 2; ++lane) {
    for (unsigned t = 0; t < plan.out; ++t) plan.out_of_lanes[lane * plan.out + t] = static_cast<uint8_t>(8 * lane + 7 - t);
  }
  // Whole groups: runs, source bytes (the last window's last byte), stores.
  uint64_t last = total - 1;
  uint64_t source_end = (src_bit + last / run_bits * period + last % run_bits) / 8 + 1;
  uint64_t dest_end = (total + 7) / 8;
  uint64_t group_runs = uint64_t{2} * k * windows;
  uint64_t group_source = uint64_t{2} * plan.source * windows;
  uint64_t group_out = uint64_t{2} * plan.out * windows;
  uint64_t groups = total / run_bits / group_runs;
  uint64_t last_window = group_source - 2 * plan.source + 16;  // from the group's start
  groups = std::min(groups, source_end < last_window ? 0 : (source_end - last_window) / group_source + 1);
  groups = std::min(groups, dest_end < group_store ? 0 : (dest_end - group_store) / group_out + 1);
  plan.groups = static_cast<size_t>(groups);
  return plan;
}

// The plan's masks and shift counts, in registers.
struct LaneMasks128 {
  __m128i offset, fields, moved[4], shift[4];
};
struct LaneMasks256 {
  __m128i offset, shift[4];
  __m256i fields, moved[4];
};

// Filled in place: a 32-byte vector is never passed by value to baseline code.
template <class Masks>
void set_lane_shifts(const LaneGather& plan, Masks& masks) {
  masks.offset = _mm_cvtsi32_si128(static_cast<int>(plan.offset));
  for (unsigned b = 0; b < 4; ++b) masks.shift[b] = _mm_cvtsi32_si128(static_cast<int>(plan.shift[b]));
}

// The runs of the lanes packed to the top of each 64-bit lane.
template <unsigned Steps>
[[gnu::target("ssse3"), gnu::always_inline]] inline __m128i pack_runs(__m128i v, const LaneMasks128& masks) {
  v = _mm_and_si128(_mm_sll_epi64(v, masks.offset), masks.fields);
  for (unsigned b = 0; b < Steps; ++b) {
    __m128i m = _mm_and_si128(v, masks.moved[b]);
    v = _mm_or_si128(_mm_xor_si128(v, m), _mm_sll_epi64(m, masks.shift[b]));
  }
  return v;
}

template <unsigned Steps>
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i pack_runs(__m256i v, const LaneMasks256& masks) {
  v = _mm256_and_si256(_mm256_sll_epi64(v, masks.offset), masks.fields);
  for (unsigned b = 0; b < Steps; ++b) {
    __m256i m = _mm256_and_si256(v, masks.moved[b]);
    v = _mm256_or_si256(_mm256_xor_si256(v, m), _mm256_sll_epi64(m, masks.shift[b]));
  }
  return v;
}

// One window (two lanes) a pass; returns where the destination got to.
template <unsigned Steps>
[[gnu::target("ssse3")]] uint8_t* lane_gather_ssse3(uint8_t* dst, const uint8_t* src, const LaneGather& plan) {
  LaneMasks128 masks{};
  set_lane_shifts(plan, masks);
  masks.fields = _mm_set1_epi64x(static_cast<int64_t>(plan.fields));
  for (unsigned b = 0; b < 4; ++b) masks.moved[b] = _mm_set1_epi64x(static_cast<int64_t>(plan.moved[b]));
  const __m128i into_lanes = load(plan.into_lanes);
  const __m128i out_of_lanes = load(plan.out_of_lanes);
  const size_t source_step = 2 * plan.source;
  const size_t out_step = 2 * plan.out;
  for (size_t g = 0; g < plan.groups; ++g, src += source_step, dst += out_step) {
    __m128i lanes = ssse3::shuffle(load(src), into_lanes);
    store(dst, ssse3::shuffle(pack_runs<Steps>(lanes, masks), out_of_lanes));
  }
  return dst;
}

// Two windows (four lanes) a pass, packed into one store when a window's
// output is whole 32-bit words.
template <unsigned Steps>
[[gnu::target("avx2")]] uint8_t* lane_gather_avx2(uint8_t* dst, const uint8_t* src, const LaneGather& plan) {
  LaneMasks256 masks{};
  set_lane_shifts(plan, masks);
  masks.fields = _mm256_set1_epi64x(static_cast<int64_t>(plan.fields));
  for (unsigned b = 0; b < 4; ++b) masks.moved[b] = _mm256_set1_epi64x(static_cast<int64_t>(plan.moved[b]));
  const __m256i into_lanes = avx2::both_lanes(load(plan.into_lanes));
  const __m256i out_of_lanes = avx2::both_lanes(load(plan.out_of_lanes));
  const size_t window_source = 2 * plan.source;
  const size_t window_out = 2 * plan.out;
  const bool packed = window_out % 4 == 0;
  int32_t index[8] = {};
  for (int i = 0, q = static_cast<int>(window_out / 4); i < q; ++i) {
    index[i] = i;
    index[q + i] = 4 + i;
  }
  const __m256i pack_words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(index));
  for (size_t g = 0; g < plan.groups; ++g, src += 2 * window_source, dst += 2 * window_out) {
    __m256i windows = _mm256_inserti128_si256(_mm256_castsi128_si256(load(src)), load(src + window_source), 1);
    __m256i lanes = avx2::shuffle_in_lanes(windows, into_lanes);
    __m256i gathered = avx2::shuffle_in_lanes(pack_runs<Steps>(lanes, masks), out_of_lanes);
    if (packed) {
      avx2::store(dst, _mm256_permutevar8x32_epi32(gathered, pack_words));
    } else {
      store(dst, _mm256_castsi256_si128(gathered));
      store(dst + window_out, _mm256_extracti128_si256(gathered, 1));
    }
  }
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  return dst;
}
}  // namespace


[[gnu::target("ssse3")]] void copy_nth_bits_ssse3(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit,
                                                  size_t run_bits, size_t gap, uint64_t total) noexcept {
  if (total < 512) {  // too few bits to pay for a plan
    copy_nth_bits_words(dst, dst_bit, src, src_bit, run_bits, gap, total);
    return;
  }
  dst += dst_bit / 8;
  dst_bit %= 8;
  src += src_bit / 8;
  src_bit %= 8;
  LaneGather plan = plan_lane_gather(dst_bit, src_bit, run_bits, gap, total, 1, 16);
  if (plan.groups > 0) {
    // main loop: whole windows of runs
    uint8_t* end = dst;
    switch (plan.steps) {
      case 0: end = lane_gather_ssse3<0>(dst, src, plan); break;
      case 1: end = lane_gather_ssse3<1>(dst, src, plan); break;
      case 2: end = lane_gather_ssse3<2>(dst, src, plan); break;
      case 3: end = lane_gather_ssse3<3>(dst, src, plan); break;
      default: end = lane_gather_ssse3<4>(dst, src, plan); break;
    }
    dst = end;
    src += plan.groups * 2 * plan.source;
    total -= uint64_t{plan.groups} * 2 * plan.per * run_bits;
  }
  // remainder: the runs after the last window, or all of them
  copy_nth_bits_in_words<copy_nth_bytes_ssse3>(dst, dst_bit, src, src_bit, run_bits, gap, total);
}

[[gnu::target("avx2")]] void copy_nth_bits_avx2(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit,
                                                size_t run_bits, size_t gap, uint64_t total) noexcept {
  if (total < 512) {  // too few bits to pay for a plan
    copy_nth_bits_words(dst, dst_bit, src, src_bit, run_bits, gap, total);
    return;
  }
  dst += dst_bit / 8;
  dst_bit %= 8;
  src += src_bit / 8;
  src_bit %= 8;
  LaneGather plan = plan_lane_gather(dst_bit, src_bit, run_bits, gap, total, 2, 32);
  if (plan.per != 0 && 2 * plan.out % 4 != 0) {  // two stores a pass
    plan = plan_lane_gather(dst_bit, src_bit, run_bits, gap, total, 2, 2 * plan.out + 16);
  }
  if (plan.groups > 0) {
    // main loop: whole pairs of windows of runs
    uint8_t* end = dst;
    switch (plan.steps) {
      case 0: end = lane_gather_avx2<0>(dst, src, plan); break;
      case 1: end = lane_gather_avx2<1>(dst, src, plan); break;
      case 2: end = lane_gather_avx2<2>(dst, src, plan); break;
      case 3: end = lane_gather_avx2<3>(dst, src, plan); break;
      default: end = lane_gather_avx2<4>(dst, src, plan); break;
    }
    dst = end;
    src += plan.groups * 4 * plan.source;
    total -= uint64_t{plan.groups} * 4 * plan.per * run_bits;
  }
  // remainder: the runs after the last pair of windows, or all of them
  _mm256_zeroupper();  // the remainder may call memmove, legacy SSE code
  copy_nth_bits_in_words<copy_nth_bytes_avx2>(dst, dst_bit, src, src_bit, run_bits, gap, total);
}

// The words level is the baseline: 64-bit windows and SSE2 byte gathers.
constinit KernelFamily<CopyNthBitsTable, 4> copy_nth_bits_kernels{{{
    {Level::AVX2, {copy_nth_bits_avx2}},
    {Level::SSSE3, {copy_nth_bits_ssse3}},
    {Level::SSE2, {copy_nth_bits_words}},
    {Level::Scalar, {copy_nth_bits_scalar}},
}}};

}  // namespace vek

bool CopyNthBits(REALmemoryBlock block, REALmemoryBlock source, int32_t sourceOffsetBits,
                 int32_t destinationOffsetBits, int32_t bitCount, int32_t stepCount, int32_t numberOfSteps) {
  if (source == nullptr || block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return false;
  }
  auto* src = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(source));
  auto* dst = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  bool copying = numberOfSteps > 0 && bitCount > 0;
  if (!copying && dst == nullptr) return true;  // nothing copied, and no byte to clear through
  if (src == nullptr || dst == nullptr) return false;
  if (sourceOffsetBits < 0 || destinationOffsetBits < 0) return false;
  if (!copying && destinationOffsetBits % 8 == 0) return true;  // nothing copied, nothing cleared

  int64_t dest_bits = int64_t{REALMemoryBlockGetSize(block)} * 8;
  if (dest_bits > 0 && destinationOffsetBits >= dest_bits) return false;
  int64_t gap = std::max(stepCount, 0);
  int64_t total = 0;
  if (copying) {
    int64_t source_bits = int64_t{REALMemoryBlockGetSize(source)} * 8;
    if (source_bits > 0 && sourceOffsetBits >= source_bits) return false;
    // The packed bits end at the destination's last bit...
    total = vek::count_in_block(destinationOffsetBits, int64_t{numberOfSteps} * bitCount, dest_bits);
    if (source_bits > 0) {
      // ...or with the source's last bit, whichever comes first.
      int64_t room = source_bits - sourceOffsetBits;
      int64_t whole = room / (bitCount + gap);
      total = std::min(total, whole * bitCount + std::min<int64_t>(bitCount, room - whole * (bitCount + gap)));
    }
  }
  vek::copy_nth_bits_kernels.best().gather(
      dst + destinationOffsetBits / 8, static_cast<size_t>(destinationOffsetBits % 8),
      copying ? src + sourceOffsetBits / 8 : src, static_cast<size_t>(sourceOffsetBits % 8),
      copying ? static_cast<size_t>(bitCount) : 0, static_cast<size_t>(gap), static_cast<uint64_t>(total));
  return true;
}

// -- bit expansion ------------------------------------------------------------------------

namespace vek {

void expand_bits_scalar(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept {
  for (size_t i = 0; i < n; ++i) {
    for (unsigned half = 0; half < 2; ++half) {
      uint32_t word = 0;
      for (unsigned j = 0; j < 4; ++j) {
        bool set = ((src[i] >> (7 - 4 * half - j)) & 1u) != 0;
        word |= static_cast<uint32_t>(set ? high : low) << (8 * j);
      }
      uint8_t* out = dst + 8 * i + 4 * half;
      for (unsigned j = 0; j < 4; ++j) out[j] = static_cast<uint8_t>(word >> (8 * j));
    }
  }
}

namespace {
// One of the two values per bit, when both fit in a byte.
__m128i pick_bytes(__m128i set, __m128i high, __m128i low) {
  return _mm_or_si128(_mm_and_si128(set, high), _mm_andnot_si128(set, low));
}

// The same for values of any size: byte j of each 32-bit word contributes
// its value shifted by 8j, ORed into the word, carry bits and all.
__m128i pick_words(__m128i set, const __m128i (&high)[4], const __m128i (&low)[4]) {
  __m128i j0 = _mm_srai_epi32(_mm_slli_epi32(set, 24), 24);
  __m128i j1 = _mm_srai_epi32(_mm_slli_epi32(set, 16), 24);
  __m128i j2 = _mm_srai_epi32(_mm_slli_epi32(set, 8), 24);
  __m128i j3 = _mm_srai_epi32(set, 24);
  __m128i word = pick_bytes(j0, high[0], low[0]);
  word = _mm_or_si128(word, pick_bytes(j1, high[1], low[1]));
  word = _mm_or_si128(word, pick_bytes(j2, high[2], low[2]));
  return _mm_or_si128(word, pick_bytes(j3, high[3], low[3]));
}
}  // namespace

void expand_bits_sse2(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept {
  const __m128i bit_of_byte = _mm_setr_epi8(static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1,
                                            static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1);
  if (n < 4) {  // no group of four
    expand_bits_scalar(dst, src, n, low, high);
    return;
  }
  const bool bytes_only = low >= 0 && low <= 255 && high >= 0 && high <= 255;
  const __m128i high_bytes = bytes_of(static_cast<unsigned>(high));
  const __m128i low_bytes = bytes_of(static_cast<unsigned>(low));
  __m128i highs[4], lows[4];
  for (int j = 0; j < 4; ++j) {
    highs[j] = _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(high) << (8 * j)));
    lows[j] = _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(low) << (8 * j)));
  }
  size_t i = 0;
  // main loop: four source bytes, two 16-byte stores
  for (; i + 4 <= n; i += 4) {
    uint32_t four;
    std::memcpy(&four, src + i, 4);
    __m128i x = _mm_cvtsi32_si128(static_cast<int>(four));
    x = _mm_unpacklo_epi8(x, x);
    x = _mm_unpacklo_epi16(x, x);  // each source byte four times
    __m128i set01 = _mm_unpacklo_epi32(x, x);  // bytes 0 and 1 eight times each
    __m128i set23 = _mm_unpackhi_epi32(x, x);
    set01 = _mm_cmpeq_epi8(_mm_and_si128(set01, bit_of_byte), bit_of_byte);
    set23 = _mm_cmpeq_epi8(_mm_and_si128(set23, bit_of_byte), bit_of_byte);
    if (bytes_only) {
      store(dst + 8 * i, pick_bytes(set01, high_bytes, low_bytes));
      store(dst + 8 * i + 16, pick_bytes(set23, high_bytes, low_bytes));
    } else {
      store(dst + 8 * i, pick_words(set01, highs, lows));
      store(dst + 8 * i + 16, pick_words(set23, highs, lows));
    }
  }
  // remainder: up to three source bytes
  expand_bits_scalar(dst + 8 * i, src + i, n - i, low, high);
}

namespace {
// Every byte all ones where its bit of the four source bytes is set.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i avx2_bits_set(const uint8_t* four_bytes, __m256i spread,
                                                                         __m256i bit_of_byte) {
  int32_t four;
  std::memcpy(&four, four_bytes, 4);
  __m256i x = _mm256_shuffle_epi8(_mm256_set1_epi32(four), spread);
  return _mm256_cmpeq_epi8(_mm256_and_si256(x, bit_of_byte), bit_of_byte);
}

// Values of any size: the whole word chosen by byte j's bit, for each j.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i avx2_pick_words(__m256i set, const __m256i (&high)[4],
                                                                           const __m256i (&low)[4]) {
  __m256i j0 = _mm256_srai_epi32(_mm256_slli_epi32(set, 24), 24);
  __m256i j1 = _mm256_srai_epi32(_mm256_slli_epi32(set, 16), 24);
  __m256i j2 = _mm256_srai_epi32(_mm256_slli_epi32(set, 8), 24);
  __m256i j3 = _mm256_srai_epi32(set, 24);
  __m256i word = _mm256_blendv_epi8(low[0], high[0], j0);
  word = _mm256_or_si256(word, _mm256_blendv_epi8(low[1], high[1], j1));
  word = _mm256_or_si256(word, _mm256_blendv_epi8(low[2], high[2], j2));
  return _mm256_or_si256(word, _mm256_blendv_epi8(low[3], high[3], j3));
}
}  // namespace

[[gnu::target("avx2")]] void expand_bits_avx2(uint8_t* dst, const uint8_t* src, size_t n, int32_t low,
                                              int32_t high) noexcept {
  // Four source bytes in every lane; the shuffle gives each its eight bytes.
  const __m256i spread = _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1,  //
                                          2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3);
  const __m256i bit_of_byte = _mm256_set1_epi64x(0x0102040810204080);
  if (n < 8) {  // no group of eight
    _mm256_zeroupper();  // the constants above may already sit in ymm registers
    expand_bits_sse2(dst, src, n, low, high);
    return;
  }
  const bool bytes_only = low >= 0 && low <= 255 && high >= 0 && high <= 255;
  const __m256i high_bytes = _mm256_set1_epi8(static_cast<char>(high));
  const __m256i low_bytes = _mm256_set1_epi8(static_cast<char>(low));
  __m256i highs[4], lows[4];
  for (int j = 0; j < 4; ++j) {
    highs[j] = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(high) << (8 * j)));
    lows[j] = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(low) << (8 * j)));
  }
  size_t i = 0;
  // main loop: eight source bytes, two 32-byte stores
  if (bytes_only) {
    for (; i + 8 <= n; i += 8) {
      __m256i set0 = avx2_bits_set(src + i, spread, bit_of_byte);
      __m256i set1 = avx2_bits_set(src + i + 4, spread, bit_of_byte);
      avx2::store(dst + 8 * i, _mm256_blendv_epi8(low_bytes, high_bytes, set0));
      avx2::store(dst + 8 * i + 32, _mm256_blendv_epi8(low_bytes, high_bytes, set1));
    }
  } else {
    for (; i + 8 <= n; i += 8) {
      __m256i set0 = avx2_bits_set(src + i, spread, bit_of_byte);
      __m256i set1 = avx2_bits_set(src + i + 4, spread, bit_of_byte);
      avx2::store(dst + 8 * i, avx2_pick_words(set0, highs, lows));
      avx2::store(dst + 8 * i + 32, avx2_pick_words(set1, highs, lows));
    }
  }
  // remainder: up to seven source bytes
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  expand_bits_sse2(dst + 8 * i, src + i, n - i, low, high);
}

constinit KernelFamily<ExpandBitsTable, 3> expand_bits_kernels{{{
    {Level::AVX2, {expand_bits_avx2}},
    {Level::SSE2, {expand_bits_sse2}},
    {Level::Scalar, {expand_bits_scalar}},
}}};

}  // namespace vek

bool ExpandBitsVEK(REALmemoryBlock block, REALmemoryBlock dest, int32_t sourceByteCount, int32_t lowValue,
                   int32_t highValue) {
  if (sourceByteCount <= 0) return false;
  if (block == nullptr || dest == nullptr) return false;
  auto* src = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  auto* dst = static_cast<uint8_t*>(REALMemoryBlockGetPtr(dest));
  if (src == nullptr || dst == nullptr) return false;
  // Whole groups of four source bytes, cut back to the bytes the source holds
  // and to those whose eight bytes the destination holds.
  int64_t count = (int64_t{sourceByteCount} + 3) / 4 * 4;
  count = vek::count_in_block(0, count, REALMemoryBlockGetSize(block));
  int32_t dest_size = REALMemoryBlockGetSize(dest);
  if (dest_size > 0) count = std::min<int64_t>(count, dest_size / 8);
  if (count == 0) return false;
  vek::expand_bits_kernels.best().expand(dst, src, static_cast<size_t>(count), lowValue, highValue);
  return true;
}
