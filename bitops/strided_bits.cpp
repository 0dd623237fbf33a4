// CopyNthBitsVEK: runs of bits gathered from `source` and packed one after
// the other into the block the method is called on, bit 0 being the most
// significant bit of byte 0.
//
//   source 12 34 AB CD: CopyNthBitsVEK(source, 3, 0, 4, 2, 3)   writes 96 50
//                       (bits 3..6, 9..12, 15..18; the last byte's free bits become 0)
// A nil block raises "NilObjectException"; with no bit to copy the call
// answers True also where the host gives no destination bytes to clear.
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

#if VEK_X86
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
#endif

// The words level is the baseline: 64-bit windows and SSE2 byte gathers.
constinit KernelFamily<CopyNthBitsTable> copy_nth_bits_kernels{
#if VEK_X86
    {Level::AVX2, {copy_nth_bits_avx2}},
    {Level::SSSE3, {copy_nth_bits_ssse3}},
    {Level::SSE2, {copy_nth_bits_words}},
#endif
    {Level::Scalar, {copy_nth_bits_scalar}},
};

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
    total = vek::items_trusting_unknown_size(dest_bits, destinationOffsetBits,
                                             int64_t{numberOfSteps} * bitCount);
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
