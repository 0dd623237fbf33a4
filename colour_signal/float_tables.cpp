// Tables of float pairs, eight bytes a record, written from offsetByte on:
//   _CalcLogSweepTableVEK(offsetByte, Z, lw1, lw2, T)  Z records of an
//     exponential sine sweep whose frequency rises from lw1 to lw2 cycles per
//     T records: (0.944·sin(K·(e^(L·i/T) − 1)), 100.53096491488·i/T), with
//     L = ln(lw2/lw1) and K = 2π·lw1/L. lw1 1, lw2 2, T 4 gives (0, 0),
//     (0.93419, 25.13274), (-0.54321, 50.26548), ...
//   _ConvertPolarToCartesian(offsetByte, Z, polarData)  (r, θ) records from
//     the start of polarData to (cos θ·r, r·sin θ).
//   _ConvertCartesianToPolar(offsetByte, Z, CartesianData)  (x, y) records to
//     (√(y·y + x·x), atan2(y, x)): (3, 4) -> (5, 0.9272952).
// Every intermediate has the precision the stored bits depend on: the sweep's
// time, exponent argument, phase and angle in double, its exponential, sine
// and the phase offset in single precision; the conversions entirely in
// single precision. The build compiles this file without contraction into
// fused multiply-adds and with sinf and cosf kept as the two calls they are.
//
// A nil block raises "NilObjectException", a negative offsetByte
// "UnsupportedOperationException" "offset < 0"; a nil source block does
// nothing. Only whole records inside the destination block are written and
// only whole records inside the source block are read; a block of size 0
// (over a raw address) is trusted with all Z records.
#include "colour_signal/float_tables.h"

#include <math.h>

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

namespace {
// Of `z` records from `offset` on, those wholly inside a block of `size`
// bytes; a block of size 0 is trusted with all of them.
size_t records_inside(int32_t size, int32_t offset, int32_t z) {
  if (z <= 0) return 0;
  return static_cast<size_t>(vek::items_trusting_unknown_size(size, offset, z, 8));
}

uint8_t* block_data(REALmemoryBlock block) { return static_cast<uint8_t*>(REALMemoryBlockGetPtr(block)); }

// The records both blocks hold: the destination's from offsetByte, the
// source's from its start.
size_t records_of_both(REALmemoryBlock block, int32_t offsetByte, int32_t z, REALmemoryBlock source) {
  size_t count = records_inside(REALMemoryBlockGetSize(block), offsetByte, z);
  size_t from_source = records_inside(REALMemoryBlockGetSize(source), 0, z);
  return count < from_source ? count : from_source;
}
}  // namespace

void CalcLogSweepTable(REALmemoryBlock block, int32_t offsetByte, int32_t z, int32_t lw1, int32_t lw2, double t) {
  if (refuse_nil_block_or_negative_offset(block, offsetByte)) return;
  const double L = log(static_cast<double>(lw2) / static_cast<double>(lw1));
  const double K = (static_cast<double>(lw1) * 6.28318530718) / L;
  uint8_t* data = block_data(block);
  if (data == nullptr) return;
  size_t count = records_inside(REALMemoryBlockGetSize(block), offsetByte, z);
  if (count == 0) return;
  vek::log_sweep(data + offsetByte, count, L, K, t);
}

namespace {
// The two conversions differ only in their kernel. A nil source is passed
// over quietly, before the offset is looked at.
void convert_pairs(REALmemoryBlock block, int32_t offsetByte, int32_t z, REALmemoryBlock pairs,
                   void (*kernel)(const uint8_t*, uint8_t*, size_t)) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (pairs == nullptr) return;
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return;
  }
  uint8_t* data = block_data(block);
  const uint8_t* source = block_data(pairs);
  if (data == nullptr || source == nullptr) return;
  size_t count = records_of_both(block, offsetByte, z, pairs);
  if (count == 0) return;
  kernel(source, data + offsetByte, count);
}
}  // namespace

void ConvertPolarToCartesian(REALmemoryBlock block, int32_t offsetByte, int32_t z, REALmemoryBlock polarData) {
  convert_pairs(block, offsetByte, z, polarData, vek::polar_to_cartesian);
}

void ConvertCartesianToPolar(REALmemoryBlock block, int32_t offsetByte, int32_t z, REALmemoryBlock cartesianData) {
  convert_pairs(block, offsetByte, z, cartesianData, vek::cartesian_to_polar);
}

namespace vek {

namespace {
void read_pair(const uint8_t* record, float& first, float& second) {
  std::memcpy(&first, record, 4);
  std::memcpy(&second, record + 4, 4);
}

void write_pair(uint8_t* record, float first, float second) {
  std::memcpy(record, &first, 4);
  std::memcpy(record + 4, &second, 4);
}

void polar_record(const uint8_t* in, uint8_t* out) {
  float r, theta;
  read_pair(in, r, theta);
  write_pair(out, cosf(theta) * r, r * sinf(theta));
}
}  // namespace

void log_sweep(uint8_t* out, size_t count, double L, double K, double T) noexcept {
  double t = 0.0;
  for (size_t i = 0; i < count; ++i, t += 1.0, out += 8) {
    double tau = t / T;
    float e = expf(static_cast<float>(L * tau));
    float phase = static_cast<float>(static_cast<double>(e + -1.0f) * K);
    write_pair(out, sinf(phase) * 0.944f, static_cast<float>(tau * 100.53096491488));
  }
}

// Two records a turn, the first peeled when the count is odd; each record is
// still read and written before the next is read, so an overlapping source
// sees what earlier records wrote.
void polar_to_cartesian(const uint8_t* in, uint8_t* out, size_t count) noexcept {
  size_t i = 0;
  if (count % 2 != 0) {
    polar_record(in, out);
    i = 1;
  }
  for (; i < count; i += 2) {
    polar_record(in + 8 * i, out + 8 * i);
    polar_record(in + 8 * i + 8, out + 8 * i + 8);
  }
}

void cartesian_to_polar(const uint8_t* in, uint8_t* out, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i, in += 8, out += 8) {
    float x, y;
    read_pair(in, x, y);
    write_pair(out, sqrtf(y * y + x * x), atan2f(y, x));
  }
}

}  // namespace vek
