// The kernel harness: every level of a kernel family against the family's
// scalar twin. A generator makes a call for each size n (0..300 and a few
// large ones): its buffers and the kernel call on them. The harness makes
// each call at every start misalignment within a 64-byte line (five of them
// under VEK_SHORT_SWEEP, see sweep.h), twice: its buffers starting that many
// bytes after a PROT_NONE page, and ending that many bytes before one (so
// flush against the page at 0). The level's call and the twin's call on a
// plain copy must give the same result and the same bytes in and around
// every buffer: a stray read at a page faults, one elsewhere meets bytes
// (`around`) chosen to change a search's answer, a stray write shows up.
//
//   const bool registered = kernel_test::family("InvertBytes", vek::invert_bytes_kernels,
//       {vek::invert_bytes_scalar}, kernel_test::in_place(&vek::InvertBytesTable::invert));
//
// registers InvertBytes.MatchesTwin/<level> for each level; a level the CPU
// lacks is skipped.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "frame/cpu.h"
#include "frame/dispatch.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/sweep.h"

namespace kernel_test {
using Bytes = std::vector<uint8_t>;

// Random numbers from splitmix64, cheap enough for generators that draw
// several per byte and for the large sizes.
class Random {
 public:
  using result_type = uint32_t;
  explicit Random(uint64_t seed) : state_(seed) {}
  static constexpr uint32_t min() { return 0; }
  static constexpr uint32_t max() { return UINT32_MAX; }
  uint32_t operator()() {
    uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return static_cast<uint32_t>((z ^ (z >> 31)) >> 32);
  }
  size_t in(size_t low, size_t high) { return std::uniform_int_distribution<size_t>(low, high)(*this); }
  bool one_in(unsigned n) { return (*this)() % n == 0; }
  void fill(uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; i += 4) {
      uint32_t r = (*this)();
      std::memcpy(data + i, &r, std::min<size_t>(4, size - i));
    }
  }
  Bytes bytes(size_t size) {
    Bytes bytes(size);
    fill(bytes.data(), size);
    return bytes;
  }

 private:
  uint64_t state_;
};

// A buffer of a call: its bytes, and the byte that fills the 64 bytes on
// either side of it (-1: random bytes).
struct Buffer {
  Bytes bytes;
  int around = -1;
};

// A kernel call: its buffers, and the call on them (at p[0], p[1], ...) with
// a family's table, giving the result to compare (0 for none).
template <class Table>
struct Call {
  std::vector<Buffer> buffers;
  std::function<uint64_t(const Table&, uint8_t* const* p)> run;
  std::string args = {};  // the other arguments, for failure messages
};

// The words of a failure message, run together.
template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

template <class Table>
using Generator = std::function<Call<Table>(size_t n, Random&)>;

// The call being made, for the failure messages and for a fault at a guard
// page, which ends the test program: its handler prints this and lets the
// fault recur.
inline char current_call[160];

inline void print_current_call(int) {
  const char prefix[] = "\nFault at a guard page: ";
  (void)!write(2, prefix, sizeof prefix - 1);
  (void)!write(2, current_call, strlen(current_call));
  (void)!write(2, "\n", 1);
}

template <class Table>
void expect_level_matches_twin(const char* level, const Table& table, const Table& twin, const Generator<Table>& make) {
  struct sigaction action = {};
  action.sa_handler = print_current_call;
  action.sa_flags = SA_RESETHAND;
  sigaction(SIGSEGV, &action, nullptr);
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  std::vector<std::unique_ptr<GuardedBuffer>> arenas;  // per buffer and side, reused while big enough
  Random random(7);
  for (size_t k = 0; k <= 302; ++k) {
    size_t n = k <= 300 ? k : k == 301 ? 4096 + 37 : 65536 + 5;  // and two that run long main loops
    for (size_t shift : sweep_misalignments()) {
      for (GuardSide side : {GuardSide::Before, GuardSide::After}) {
        Call<Table> call = make(n, random);
        size_t count = call.buffers.size();
        std::vector<uint8_t*> window(count), at(count), twin_at(count);
        std::vector<Bytes> plain(count);
        if (arenas.size() < 2 * count) arenas.resize(2 * count);
        for (size_t i = 0; i < count; ++i) {
          const Buffer& buffer = call.buffers[i];
          size_t size = buffer.bytes.size();
          size_t gap = shift * (2 * i + 1) % 64;  // the buffers at different misalignments
          size_t lead = side == GuardSide::Before ? gap : 64;
          size_t total = lead + size + (side == GuardSide::Before ? 64 : gap);
          std::unique_ptr<GuardedBuffer>& slot = arenas[2 * i + (side == GuardSide::Before)];
          if (!slot || slot->size() < total) slot = std::make_unique<GuardedBuffer>((total + page - 1) / page * page, side);
          window[i] = side == GuardSide::Before ? slot->data() : slot->data() + slot->size() - total;
          if (buffer.around < 0) random.fill(window[i], total);
          else std::memset(window[i], buffer.around, total);
          if (size != 0) std::memcpy(window[i] + lead, buffer.bytes.data(), size);
          plain[i].assign(window[i], window[i] + total);
          at[i] = window[i] + lead;
          twin_at[i] = plain[i].data() + lead;
        }
        std::snprintf(current_call, sizeof current_call, "%s, size %zu, offset %zu, %zu bytes %s a guard page%s%s",
                      level, n, count == 0 ? 0 : static_cast<size_t>(reinterpret_cast<uintptr_t>(at[0]) % 64), shift,
                      side == GuardSide::Before ? "after" : "before", call.args.empty() ? "" : ", ", call.args.c_str());
        uint64_t expected = call.run(twin, twin_at.data());
        uint64_t result = call.run(table, at.data());
        ASSERT_EQ(result, expected) << current_call;
        for (size_t i = 0; i < count; ++i) {
          auto differs = std::mismatch(plain[i].begin(), plain[i].end(), window[i]).first;
          ASSERT_TRUE(differs == plain[i].end())
              << current_call << ": buffer " << i << " differs at byte "
              << (differs - plain[i].begin()) - (at[i] - window[i]) << " of " << call.buffers[i].bytes.size();
        }
      }
    }
  }
}

// A test whose body is a function, for RegisterTest.
class FunctionTest : public testing::Test {
 public:
  explicit FunctionTest(std::function<void()> body) : body_(std::move(body)) {}
  void TestBody() override { body_(); }

 private:
  std::function<void()> body_;
};

// Registers <suite>.MatchesTwin/<level> for every level of `kernels`.
template <class Table, size_t N>
bool family(const char* suite, const vek::KernelFamily<Table, N>& kernels, Table twin,
            std::type_identity_t<Generator<Table>> make) {
  for (const vek::KernelLevel<Table>& level : kernels.levels()) {
    std::string name = std::string("MatchesTwin/") + vek::level_name(level.level);
    testing::RegisterTest(suite, name.c_str(), nullptr, nullptr, __FILE__, __LINE__, [=]() -> testing::Test* {
      return new FunctionTest([=] {
        if (!vek::cpu_has(level.level)) GTEST_SKIP() << "CPU lacks " << vek::level_name(level.level);
        expect_level_matches_twin(vek::level_name(level.level), level.table, twin, make);
      });
    });
  }
  return true;
}

// The generator of a kernel that works in place on n random bytes.
template <class Table>
Generator<Table> in_place(void (*Table::*kernel)(uint8_t*, size_t) noexcept) {
  return [kernel](size_t n, Random& random) {
    return Call<Table>{{{random.bytes(n)}}, [=](const Table& t, uint8_t* const* p) { return (t.*kernel)(p[0], n), uint64_t{0}; }};
  };
}
}  // namespace kernel_test
