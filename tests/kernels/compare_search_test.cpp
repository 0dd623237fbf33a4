// The compare and search kernels: every level of each family (the scalar
// twin among them) against a std:: algorithm, over random data with planted
// matches, sizes 0..300 and a few large ones at every misalignment 0..63, and
// ranges that end right before (or start right after) a PROT_NONE page.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "blockops/compare_search.h"
#include "frame/dispatch.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/sweep.h"

namespace {
using vek::Level;

// Each test runs at one level of every family; all families list the same
// levels.
class Kernels : public ::testing::TestWithParam<Level> {
 protected:
  void SetUp() override {
    if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  }

  template <class Table, size_t N>
  static const Table& at_level(vek::KernelFamily<Table, N>& family) {
    for (const auto& level : family.levels()) {
      if (level.level == GetParam()) return level.table;
    }
    ADD_FAILURE() << "no " << vek::level_name(GetParam()) << " level";
    return family.levels().back().table;
  }
};

std::vector<Level> family_levels() {
  std::vector<Level> levels;
  for (const auto& level : vek::find_byte_kernels.levels()) levels.push_back(level.level);
  return levels;
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, Kernels, ::testing::ValuesIn(family_levels()),
                         [](const ::testing::TestParamInfo<Level>& info) { return vek::level_name(info.param); });

constexpr size_t kMaxSmallSize = 300;
constexpr size_t kLargeSizes[] = {4096 + 37, 65536 + 5};
constexpr size_t kMaxSize = 65536 + 5;
constexpr size_t kAlignments = 64;

std::vector<size_t> every_size() {
  std::vector<size_t> sizes;
  for (size_t size = 0; size <= kMaxSmallSize; ++size) sizes.push_back(size);
  sizes.insert(sizes.end(), std::begin(kLargeSizes), std::end(kLargeSizes));
  return sizes;
}

// Two ranges of the same size, as a kernel test sees them.
struct Ranges {
  uint8_t* a;
  uint8_t* b;
  size_t size;
  std::string where;
  bool guarded = false;  // next to a PROT_NONE page
};

uint8_t* align64(uint8_t* p) {
  auto address = reinterpret_cast<uintptr_t>(p);
  return p + ((64 - address % 64) % 64);
}

// Runs `check` over every placement of two ranges: first in padded storage
// at each misalignment (b shifted differently from a), the padding set to
// `outside_a` / `outside_b` so that a read beyond a range would change the
// answer; then at guard pages, three times, so that every kind of content
// taken in turn meets them. `check` fills the ranges and compares.
template <class Check>
void for_every_range(uint8_t outside_a, uint8_t outside_b, Check check) {
  std::vector<uint8_t> storage_a(kAlignments * 3 + kMaxSize + kAlignments);
  std::vector<uint8_t> storage_b(storage_a.size());
  uint8_t* base_a = align64(storage_a.data()) + kAlignments;
  uint8_t* base_b = align64(storage_b.data()) + kAlignments;
  for (size_t size : every_size()) {
    for (size_t misalignment : sweep_misalignments()) {
      // the ranges and the padding around them, which is all a kernel could reach
      std::fill(base_a - kAlignments, base_a + 2 * kAlignments + size, outside_a);
      std::fill(base_b - kAlignments, base_b + 2 * kAlignments + size, outside_b);
      size_t shift_b = (misalignment * 13 + 5) % kAlignments;
      check(Ranges{base_a + misalignment, base_b + shift_b, size,
                   "size " + std::to_string(size) + ", misaligned by " + std::to_string(misalignment)});
      if (::testing::Test::HasFailure()) return;
    }
    for (GuardSide side : {GuardSide::After, GuardSide::Before}) {
      GuardedBuffer a(size, side);
      GuardedBuffer b(size, side);
      for (int round = 0; round < 3; ++round) {
        check(Ranges{a.data(), b.data(), size,
                     "size " + std::to_string(size) + (side == GuardSide::After ? ", guard after" : ", guard before"),
                     true});
        if (::testing::Test::HasFailure()) return;
      }
    }
  }
}

size_t oracle_position(const uint8_t* begin, const uint8_t* found, const uint8_t* end) {
  return found == end ? vek::kNotFound : static_cast<size_t>(found - begin);
}

// Three kinds of content, taken in turn: all random, no match but one planted
// at a random place, and no match at all.
enum class Content { Random, Planted, None };
Content next_content(size_t& turn) { return static_cast<Content>(turn++ % 3); }

uint8_t random_byte_except(std::mt19937& rng, uint8_t excluded) {
  auto b = static_cast<uint8_t>(rng());
  return b == excluded ? static_cast<uint8_t>(b + 1) : b;
}

TEST_P(Kernels, FindByteAgreesWithStdFind) {
  auto find_byte = at_level(vek::find_byte_kernels).find_byte;
  std::mt19937 rng(1);
  size_t turn = 0;
  const uint8_t value = 0x3C;
  for_every_range(value, value, [&](const Ranges& r) {
    Content content = next_content(turn);
    for (size_t i = 0; i < r.size; ++i) r.a[i] = content == Content::Random ? static_cast<uint8_t>(rng()) : random_byte_except(rng, value);
    if (content == Content::Planted && r.size > 0) r.a[rng() % r.size] = value;
    size_t expected = oracle_position(r.a, std::find(r.a, r.a + r.size, value), r.a + r.size);
    EXPECT_EQ(find_byte(r.a, r.size, value), expected) << r.where;
  });
}

TEST_P(Kernels, EveryPlantedPosition) {
  auto find_byte = at_level(vek::find_byte_kernels).find_byte;
  auto find_not_byte = at_level(vek::find_not_byte_kernels).find_not_byte;
  auto all_zero = at_level(vek::all_zero_kernels).all_zero;
  auto bytes_equal = at_level(vek::bytes_equal_kernels).bytes_equal;
  std::vector<uint8_t> data(kMaxSmallSize, 0);
  std::vector<uint8_t> zeros(kMaxSmallSize, 0);
  for (size_t at = 0; at < data.size(); ++at) {
    std::fill(data.begin(), data.end(), 0);
    data[at] = 0xFF;
    EXPECT_EQ(find_byte(data.data(), data.size(), 0xFF), at);
    EXPECT_EQ(find_not_byte(data.data(), data.size(), 0), at);
    EXPECT_FALSE(all_zero(data.data(), data.size())) << at;
    EXPECT_FALSE(bytes_equal(data.data(), zeros.data(), data.size())) << at;
  }
}

TEST_P(Kernels, FindNotByteAgreesWithStdFindIf) {
  auto find_not_byte = at_level(vek::find_not_byte_kernels).find_not_byte;
  std::mt19937 rng(2);
  size_t turn = 0;
  const uint8_t value = 0xA5;
  for_every_range(0x00, 0x00, [&](const Ranges& r) {
    Content content = next_content(turn);
    for (size_t i = 0; i < r.size; ++i) r.a[i] = content == Content::Random && rng() % 8 == 0 ? static_cast<uint8_t>(rng()) : value;
    if (content == Content::Planted && r.size > 0) r.a[rng() % r.size] = random_byte_except(rng, value);
    size_t expected = oracle_position(
        r.a, std::find_if(r.a, r.a + r.size, [&](uint8_t b) { return b != value; }), r.a + r.size);
    EXPECT_EQ(find_not_byte(r.a, r.size, value), expected) << r.where;
  });
}

TEST_P(Kernels, AllZeroAgreesWithStdAllOf) {
  auto all_zero = at_level(vek::all_zero_kernels).all_zero;
  std::mt19937 rng(3);
  size_t turn = 0;
  for_every_range(0xFF, 0xFF, [&](const Ranges& r) {
    Content content = next_content(turn);
    for (size_t i = 0; i < r.size; ++i) r.a[i] = content == Content::Random && rng() % 64 == 0 ? 1 : 0;
    if (content == Content::Planted && r.size > 0) r.a[rng() % r.size] = static_cast<uint8_t>(1 + rng() % 255);
    bool expected = std::all_of(r.a, r.a + r.size, [](uint8_t b) { return b == 0; });
    EXPECT_EQ(all_zero(r.a, r.size), expected) << r.where;
  });
}

TEST_P(Kernels, BytesEqualAgreesWithStdEqual) {
  auto bytes_equal = at_level(vek::bytes_equal_kernels).bytes_equal;
  std::mt19937 rng(4);
  size_t turn = 0;
  for_every_range(0x00, 0xFF, [&](const Ranges& r) {
    Content content = next_content(turn);
    for (size_t i = 0; i < r.size; ++i) r.a[i] = static_cast<uint8_t>(rng());
    for (size_t i = 0; i < r.size; ++i) r.b[i] = content == Content::Random && rng() % 128 == 0 ? static_cast<uint8_t>(rng()) : r.a[i];
    if (content == Content::Planted && r.size > 0) {
      size_t at = rng() % r.size;
      r.b[at] = static_cast<uint8_t>(r.a[at] ^ (1u << rng() % 8));  // one bit differs
    }
    bool expected = std::equal(r.a, r.a + r.size, r.b);
    EXPECT_EQ(bytes_equal(r.a, r.b, r.size), expected) << r.where;
  });
}

// The runs of one block may overlap.
TEST_P(Kernels, BytesEqualOverlappingRuns) {
  auto bytes_equal = at_level(vek::bytes_equal_kernels).bytes_equal;
  std::vector<uint8_t> data(kMaxSmallSize + 1, 7);
  EXPECT_TRUE(bytes_equal(data.data(), data.data() + 1, kMaxSmallSize));
  data[150] = 8;
  EXPECT_FALSE(bytes_equal(data.data(), data.data() + 1, kMaxSmallSize));
}

// Lengths around the vector width and the unrolled rounds, taken in turn.
constexpr size_t kTargetLengths[] = {1, 2, 3, 4, 5, 15, 16, 17, 33, 64};

TEST_P(Kernels, FindBytesAgreesWithStdSearch) {
  auto find_bytes = at_level(vek::find_bytes_kernels).find_bytes;
  std::mt19937 rng(5);
  size_t turn = 0;
  // Two-letter text makes partial matches (first and last byte equal,
  // something between not) common; random text with a target planted at a
  // random place, or at the last one, checks the plain case.
  enum class Text { TwoLetters, Planted, PlantedLast };
  auto check = [&](const Ranges& r, size_t length, Text text) {
    bool two_letters = text == Text::TwoLetters;
    std::vector<uint8_t> target(length);
    for (uint8_t& t : target) t = two_letters ? static_cast<uint8_t>(rng() % 2) : static_cast<uint8_t>(rng());
    for (size_t i = 0; i < r.size; ++i) r.a[i] = two_letters ? static_cast<uint8_t>(rng() % 2) : static_cast<uint8_t>(rng());
    if (text == Text::Planted && length <= r.size && rng() % 2 == 0) {
      std::memcpy(r.a + rng() % (r.size - length + 1), target.data(), length);
    }
    if (text == Text::PlantedLast && length <= r.size) std::memcpy(r.a + r.size - length, target.data(), length);
    size_t expected =
        oracle_position(r.a, std::search(r.a, r.a + r.size, target.begin(), target.end()), r.a + r.size);
    EXPECT_EQ(find_bytes(r.a, r.size, target.data(), length), expected) << r.where << ", length " << length;
  };
  for_every_range(1, 1, [&](const Ranges& r) {
    if (r.guarded) {
      // every length runs to the last byte before (or from the first after) the page
      for (size_t length : kTargetLengths) check(r, length, Text::PlantedLast);
      return;
    }
    size_t length = kTargetLengths[turn % std::size(kTargetLengths)];
    check(r, length, turn++ / std::size(kTargetLengths) % 2 == 0 ? Text::TwoLetters : Text::Planted);
  });
}

// Only the first of several occurrences counts, also when a later one sits
// earlier in the same vector round than a partial match.
TEST_P(Kernels, FindBytesFirstOfSeveralAndEdges) {
  auto find_bytes = at_level(vek::find_bytes_kernels).find_bytes;
  const uint8_t target[] = {9, 8, 9};
  std::vector<uint8_t> data(64, 0);
  data[20] = 9, data[21] = 0, data[22] = 9;  // first and last byte match, the middle does not
  data[30] = 9, data[31] = 8, data[32] = 9;
  data[40] = 9, data[41] = 8, data[42] = 9;
  EXPECT_EQ(find_bytes(data.data(), data.size(), target, 3), 30u);
  EXPECT_EQ(find_bytes(data.data(), 32, target, 3), vek::kNotFound) << "must fit in the range";
  EXPECT_EQ(find_bytes(data.data(), 33, target, 3), 30u);
  EXPECT_EQ(find_bytes(data.data(), 2, target, 3), vek::kNotFound);
  EXPECT_EQ(find_bytes(data.data(), 0, target, 0), 0u);
}
}  // namespace
