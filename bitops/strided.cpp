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
// nothing and answers False. Offsets must lie inside their blocks; a gather
// that runs past a block's end is cut back there (see each method). A block
// that reports size 0 (one over a raw address) has no known end: the
// caller's range is trusted.
#include <algorithm>
#include <cstring>

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
void copy_runs_bytewise(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t first, size_t end) {
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

}  // namespace vek

bool CopyNthBytes(REALmemoryBlock block, REALmemoryBlock source, int32_t sourceOffsetBytes,
                  int32_t destinationOffsetBytes, int32_t byteCount, int32_t stepCount, int32_t numberOfSteps) {
  if (source == nullptr || block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return false;
  }
  auto* src = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(source));
  auto* dst = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (src == nullptr || dst == nullptr) return false;
  if (sourceOffsetBytes < 0 || destinationOffsetBytes < 0 || byteCount < 0) return false;
  if (numberOfSteps <= 0 || byteCount == 0) return true;

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
    vek::copy_nth_bytes_sse2(dst + destinationOffsetBytes + first_whole * byteCount, src + start(first_whole),
                             static_cast<size_t>(byteCount), stepCount, static_cast<size_t>(end_whole - first_whole));
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

void copy_nth_bits_words(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                         size_t gap, uint64_t total) noexcept {
  if (run_bits == 0) total = 0;
  uint64_t whole_runs = total == 0 ? 0 : total / run_bits;
  uint64_t rest = total == 0 ? 0 : total % run_bits;
  // Whole bytes everywhere: a byte gather, then the part of a cut last run.
  if ((dst_bit | src_bit | run_bits | gap | rest) % 8 == 0) {
    size_t run_bytes = run_bits / 8;
    size_t period = (run_bits + gap) / 8;
    uint8_t* to = dst + dst_bit / 8;
    const uint8_t* from = src + src_bit / 8;
    copy_nth_bytes_sse2(to, from, run_bytes, static_cast<ptrdiff_t>(period), static_cast<size_t>(whole_runs));
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

}  // namespace vek

bool CopyNthBits(REALmemoryBlock block, REALmemoryBlock source, int32_t sourceOffsetBits,
                 int32_t destinationOffsetBits, int32_t bitCount, int32_t stepCount, int32_t numberOfSteps) {
  if (source == nullptr || block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return false;
  }
  auto* src = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(source));
  auto* dst = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (src == nullptr || dst == nullptr) return false;
  if (sourceOffsetBits < 0 || destinationOffsetBits < 0) return false;
  bool copying = numberOfSteps > 0 && bitCount > 0;
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
  vek::copy_nth_bits_words(dst + destinationOffsetBits / 8, static_cast<size_t>(destinationOffsetBits % 8),
                           copying ? src + sourceOffsetBits / 8 : src, static_cast<size_t>(sourceOffsetBits % 8),
                           copying ? static_cast<size_t>(bitCount) : 0, static_cast<size_t>(gap),
                           static_cast<uint64_t>(total));
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
  vek::expand_bits_sse2(dst, src, static_cast<size_t>(count), lowValue, highValue);
  return true;
}
