// The compare and search kernels: every level of each family against its
// scalar twin (kernel_harness.h) over random data with planted matches, the
// bytes around each range chosen so that a read past it changes the answer;
// and the twins against std:: algorithms and hand-written positions.
#include <algorithm>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "blockops/compare_search.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;
using kernel_test::Call;
using kernel_test::Random;

// Three kinds of content, at random: all random, no match but one planted at
// a random place, and no match at all.
enum class Content { Random, Planted, None };
Content content(Random& random) { return static_cast<Content>(random() % 3); }

Call<vek::FindByteTable> find_byte(size_t n, Random& random) {
  constexpr uint8_t value = 0x3C;
  Content kind = content(random);
  Bytes bytes = random.bytes(n);
  if (kind != Content::Random) std::replace(bytes.begin(), bytes.end(), value, uint8_t{value + 1});
  if (kind == Content::Planted && n > 0) bytes[random.in(0, n - 1)] = value;
  return {{{bytes, value}}, [n](const vek::FindByteTable& t, uint8_t* const* p) { return t.find_byte(p[0], n, value); }};
}

Call<vek::FindNotByteTable> find_not_byte(size_t n, Random& random) {
  constexpr uint8_t value = 0xA5;
  Content kind = content(random);
  Bytes bytes(n, value);
  for (uint8_t& b : bytes) b = kind == Content::Random && random.one_in(8) ? static_cast<uint8_t>(random()) : value;
  if (kind == Content::Planted && n > 0) bytes[random.in(0, n - 1)] = static_cast<uint8_t>(value + random.in(1, 255));
  return {{{bytes, 0x00}},
          [n](const vek::FindNotByteTable& t, uint8_t* const* p) { return t.find_not_byte(p[0], n, value); }};
}

Call<vek::AllZeroTable> all_zero(size_t n, Random& random) {
  Content kind = content(random);
  Bytes bytes(n);
  for (uint8_t& b : bytes) b = kind == Content::Random && random.one_in(64) ? 1 : 0;
  if (kind == Content::Planted && n > 0) bytes[random.in(0, n - 1)] = static_cast<uint8_t>(random.in(1, 255));
  return {{{bytes, 0xFF}}, [n](const vek::AllZeroTable& t, uint8_t* const* p) { return uint64_t{t.all_zero(p[0], n)}; }};
}

// Two runs, or one block's runs `shift` bytes apart (repeating with that
// period, so that they often match).
Call<vek::BytesEqualTable> bytes_equal(size_t n, Random& random) {
  Content kind = content(random);
  if (random.one_in(4)) {
    size_t shift = random.in(1, 3);
    Bytes bytes = random.bytes(n + shift);
    for (size_t i = shift; i < bytes.size(); ++i) bytes[i] = bytes[i - shift];
    if (kind == Content::Planted && n > 0) bytes[random.in(shift, n + shift - 1)] ^= 0x10;
    return {{{bytes}},
            [=](const vek::BytesEqualTable& t, uint8_t* const* p) { return uint64_t{t.bytes_equal(p[0], p[0] + shift, n)}; },
            kernel_test::text("runs ", shift, " bytes apart")};
  }
  Bytes a = random.bytes(n), b = a;
  for (uint8_t& byte : b) byte = kind == Content::Random && random.one_in(128) ? static_cast<uint8_t>(random()) : byte;
  if (kind == Content::Planted && n > 0) b[random.in(0, n - 1)] ^= static_cast<uint8_t>(1u << random() % 8);
  return {{{a, 0x00}, {b, 0xFF}},
          [n](const vek::BytesEqualTable& t, uint8_t* const* p) { return uint64_t{t.bytes_equal(p[0], p[1], n)}; }};
}

// Targets around the vector width and the unrolled rounds. Two-letter text
// makes partial matches (first and last byte equal, something between not)
// common; random text with the target planted at a random place, or at the
// last one, checks the plain case.
Call<vek::FindBytesTable> find_bytes(size_t n, Random& random) {
  const size_t lengths[] = {1, 2, 3, 4, 5, 15, 16, 17, 33, 64};
  size_t length = lengths[random.in(0, std::size(lengths) - 1)];
  unsigned kind = random() % 3;
  auto letter = [&] { return static_cast<uint8_t>(kind == 0 ? random() % 2 : random()); };
  Bytes text(n), target(length);
  for (uint8_t& b : text) b = letter();
  for (uint8_t& b : target) b = letter();
  if (kind != 0 && length <= n) {
    size_t at = kind == 1 ? random.in(0, n - length) : n - length;
    std::copy(target.begin(), target.end(), text.begin() + static_cast<ptrdiff_t>(at));
  }
  return {{{text, 1}, {target}},
          [=](const vek::FindBytesTable& t, uint8_t* const* p) { return t.find_bytes(p[0], n, p[1], length); },
          kernel_test::text("target of ", length)};
}

using kernel_test::family;
const bool registered =
    family("FindByte", vek::find_byte_kernels, {vek::find_byte_scalar}, find_byte) &&
    family("FindNotByte", vek::find_not_byte_kernels, {vek::find_not_byte_scalar}, find_not_byte) &&
    family("AllZero", vek::all_zero_kernels, {vek::all_zero_scalar}, all_zero) &&
    family("BytesEqual", vek::bytes_equal_kernels, {vek::bytes_equal_scalar}, bytes_equal) &&
    family("FindBytes", vek::find_bytes_kernels, {vek::find_bytes_scalar}, find_bytes);

// -- the twins against oracles ---------------------------------------------------

size_t position(const uint8_t* begin, const uint8_t* found, const uint8_t* end) {
  return found == end ? vek::kNotFound : static_cast<size_t>(found - begin);
}

// Sparse ones among zeros, and a copy with one byte changed or none.
TEST(CompareSearchTwins, AgainstStdAlgorithms) {
  Random random(5);
  for (size_t n = 0; n <= 300; ++n) {
    for (int round = 0; round < 20; ++round) {
      Bytes a(n), b(n), target(random.in(1, 4));
      for (uint8_t& byte : a) byte = random.one_in(16) ? 1 : 0;
      for (uint8_t& byte : target) byte = random.one_in(3) ? 1 : 0;
      b = a;
      if (n > 0 && random.one_in(2)) b[random.in(0, n - 1)] ^= 1;
      const uint8_t *begin = a.data(), *end = begin + n;
      EXPECT_EQ(vek::find_byte_scalar(begin, n, 1), position(begin, std::find(begin, end, 1), end));
      EXPECT_EQ(vek::find_not_byte_scalar(begin, n, 0), position(begin, std::find(begin, end, 1), end));
      EXPECT_EQ(vek::all_zero_scalar(begin, n), std::find(begin, end, 1) == end);
      EXPECT_EQ(vek::bytes_equal_scalar(begin, b.data(), n), a == b);
      EXPECT_EQ(vek::find_bytes_scalar(begin, n, target.data(), target.size()),
                position(begin, std::search(begin, end, target.begin(), target.end()), end));
      if (HasFailure()) FAIL() << "size " << n << ", round " << round;
    }
  }
}

// Only the first of several occurrences counts, and it must fit in the range.
TEST(CompareSearchTwins, FindBytesFirstOfSeveralAndEdges) {
  const uint8_t target[] = {9, 8, 9};
  Bytes data(64, 0);
  data[20] = 9, data[21] = 0, data[22] = 9;  // first and last byte match, the middle does not
  data[30] = 9, data[31] = 8, data[32] = 9;
  data[40] = 9, data[41] = 8, data[42] = 9;
  EXPECT_EQ(vek::find_bytes_scalar(data.data(), data.size(), target, 3), 30u);
  EXPECT_EQ(vek::find_bytes_scalar(data.data(), 32, target, 3), vek::kNotFound);
  EXPECT_EQ(vek::find_bytes_scalar(data.data(), 33, target, 3), 30u);
  EXPECT_EQ(vek::find_bytes_scalar(data.data(), 2, target, 3), vek::kNotFound);
  EXPECT_EQ(vek::find_bytes_scalar(data.data(), 0, target, 0), 0u);
  data[0] = 1;  // two overlapping runs of one block
  EXPECT_TRUE(vek::bytes_equal_scalar(data.data() + 1, data.data() + 2, 10));
  EXPECT_FALSE(vek::bytes_equal_scalar(data.data(), data.data() + 1, 10));
}
}  // namespace
