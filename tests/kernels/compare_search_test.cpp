// The compare and search kernels: every level of each family against its
// scalar twin (kernel_harness.h) over random data with planted matches, the
// bytes around each range chosen so that a read past it changes the answer;
// and the twins against std:: algorithms.
#include <algorithm>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "blockops/compare_search.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;
using kernel_test::Call;
using kernel_test::Random;

// n bytes of three kinds, at random: `sprinkled()` everywhere; `plain()`
// (never the byte searched for) everywhere; or plain with one `planted()`.
template <class Sprinkled, class Plain, class Planted>
Bytes searched(size_t n, Random& random, Sprinkled sprinkled, Plain plain, Planted planted) {
  unsigned kind = random() % 3;
  Bytes bytes(n);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(kind == 0 ? sprinkled() : plain());
  if (kind == 1 && n > 0) bytes[random.in(0, n - 1)] = static_cast<uint8_t>(planted());
  return bytes;
}

// Two runs, or one block's runs `shift` bytes apart (repeating with that
// period, so that they often match).
Call<vek::BytesEqualTable> bytes_equal(size_t n, Random& random) {
  unsigned kind = random() % 3;  // sprinkled differences, one planted, or none
  if (random.one_in(4)) {
    size_t shift = random.in(1, 3);
    Bytes bytes = random.bytes(n + shift);
    for (size_t i = shift; i < bytes.size(); ++i) bytes[i] = bytes[i - shift];
    if (kind == 1 && n > 0) bytes[random.in(shift, n + shift - 1)] ^= 0x10;
    return {{{bytes}}, [=](auto& t, auto p) { return t.bytes_equal(p[0], p[0] + shift, n); },
            kernel_test::text("runs ", shift, " bytes apart")};
  }
  Bytes a = random.bytes(n), b = a;
  for (uint8_t& byte : b) byte = kind == 0 && random.one_in(128) ? static_cast<uint8_t>(random()) : byte;
  if (kind == 1 && n > 0) b[random.in(0, n - 1)] ^= static_cast<uint8_t>(1u << random() % 8);
  return {{{a, 0x00}, {b, 0xFF}}, [n](auto& t, auto p) { return t.bytes_equal(p[0], p[1], n); }};
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
  std::generate(text.begin(), text.end(), letter);
  std::generate(target.begin(), target.end(), letter);
  if (kind != 0 && length <= n) {
    std::copy(target.begin(), target.end(), text.end() - static_cast<ptrdiff_t>(kind == 1 ? random.in(length, n) : length));
  }
  return {{{text, 1}, {target}}, [=](auto& t, auto p) { return t.find_bytes(p[0], n, p[1], length); },
          kernel_test::text("target of ", length)};
}

using kernel_test::family;
const bool registered =
    family("FindByte", vek::find_byte_kernels, {vek::find_byte_scalar}, [](size_t n, Random& random) {
      Bytes bytes = searched(n, random, std::ref(random), [&] { return random() % 255 + 0x3D; }, [] { return 0x3C; });
      return Call<vek::FindByteTable>{{{bytes, 0x3C}}, [n](auto& t, auto p) { return t.find_byte(p[0], n, 0x3C); }};
    }) &&
    family("FindNotByte", vek::find_not_byte_kernels, {vek::find_not_byte_scalar}, [](size_t n, Random& random) {
      Bytes bytes = searched(n, random, [&] { return random.one_in(8) ? random() : 0xA5; }, [] { return 0xA5; },
                             [&] { return 0xA5 + random.in(1, 255); });
      return Call<vek::FindNotByteTable>{{{bytes, 0x00}}, [n](auto& t, auto p) { return t.find_not_byte(p[0], n, 0xA5); }};
    }) &&
    family("AllZero", vek::all_zero_kernels, {vek::all_zero_scalar}, [](size_t n, Random& random) {
      Bytes bytes = searched(n, random, [&] { return random.one_in(64); }, [] { return 0; }, [&] { return random.in(1, 255); });
      return Call<vek::AllZeroTable>{{{bytes, 0xFF}}, [n](auto& t, auto p) { return t.all_zero(p[0], n); }};
    }) &&
    family("BytesEqual", vek::bytes_equal_kernels, {vek::bytes_equal_scalar}, bytes_equal) &&
    family("FindBytes", vek::find_bytes_kernels, {vek::find_bytes_scalar}, find_bytes);

// Sparse ones among zeros, a copy with one byte changed or none, and targets
// of 0..4 bytes: only the first of several matches counts, it must fit, and
// an empty target is found at 0.
TEST(CompareSearchTwins, AgainstStdAlgorithms) {
  Random random(5);
  for (size_t call = 0; call < 301 * 20; ++call) {
    size_t n = call / 20;
    Bytes a(n), target(random.in(0, 4));
    for (uint8_t& byte : a) byte = random.one_in(16);
    for (uint8_t& byte : target) byte = random.one_in(3);
    Bytes b = a;
    if (n > 0 && random.one_in(2)) b[random.in(0, n - 1)] ^= 1;
    auto one = std::find(a.begin(), a.end(), 1), match = std::search(a.begin(), a.end(), target.begin(), target.end());
    auto at = [&](auto found) { return found == a.end() ? vek::kNotFound : static_cast<size_t>(found - a.begin()); };
    ASSERT_EQ(vek::find_byte_scalar(a.data(), n, 1), at(one)) << "size " << n;
    ASSERT_EQ(vek::find_not_byte_scalar(a.data(), n, 0), at(one)) << "size " << n;
    ASSERT_EQ(vek::all_zero_scalar(a.data(), n), one == a.end()) << "size " << n;
    ASSERT_EQ(vek::bytes_equal_scalar(a.data(), b.data(), n), a == b) << "size " << n;
    ASSERT_EQ(vek::find_bytes_scalar(a.data(), n, target.data(), target.size()), target.empty() ? 0 : at(match)) << "size " << n;
  }
}
}  // namespace
