// The kernel harness: every level of a kernel family against the family's
// scalar twin. A kernel is one row:
//
//   family("FindByte", vek::find_byte_kernels, {vek::find_byte_scalar}, [](size_t n, Random& random) {
//     return Call<vek::FindByteTable>{{{random.bytes(n), 0x3C}},
//                                     [n](auto& t, auto p) { return t.find_byte(p[0], n, 0x3C); }};
//   });
//
// registers FindByte.MatchesTwin/<level> for each level (a level the CPU
// lacks is skipped) and FindByte.BestIsTheFirstLevelTheCpuRuns. The row's
// maker gives, for each size n (0..300 and two that run long main loops),
// the call's buffers and the call on them (at p[0], p[1], ...). The harness
// makes each call at every start misalignment within a 64-byte line (five
// under VEK_SHORT_SWEEP, see sweep.h), twice: its buffers starting that many
// bytes after a PROT_NONE page, and ending that many bytes before one (flush
// against it at 0). The level's call and the twin's on a plain copy must give
// the same result and the same bytes in and around every buffer: a stray read
// at a page faults, one elsewhere meets bytes (`around`) chosen to change a
// search's answer, a stray write shows up.
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

#include "frame/target.h"
#include "frame/dispatch.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/sweep.h"

namespace kernel_test {
using Bytes = std::vector<uint8_t>;

// Random numbers, with the draws the makers need.
struct Random : std::mt19937 {
  using std::mt19937::mt19937;
  size_t in(size_t low, size_t high) { return std::uniform_int_distribution<size_t>(low, high)(*this); }
  bool one_in(unsigned n) { return (*this)() % n == 0; }
  void fill(uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; i += 4) {
      auto r = static_cast<uint32_t>((*this)());
      std::memcpy(data + i, &r, std::min<size_t>(4, size - i));
    }
  }
  Bytes bytes(size_t size) {
    Bytes bytes(size);
    fill(bytes.data(), size);
    return bytes;
  }
};

// A buffer of a call, and the byte that fills the 64 bytes on either side of
// it (-1: random bytes).
struct Buffer {
  Bytes bytes;
  int around = -1;
};

// The words of a failure message, run together.
template <class... Parts>
std::string text(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

// A kernel call: its buffers, the call with a family's table on them (its
// result compared; a kernel without one gives 0), and its other arguments
// for failure messages.
template <class Table>
struct Call {
  template <class Run>
  Call(std::vector<Buffer> buffers, Run run, std::string args = {}) : buffers(std::move(buffers)), args(std::move(args)) {
    this->run = [run](const Table& t, uint8_t* const* p) -> uint64_t {
      if constexpr (std::is_void_v<decltype(run(t, p))>) return run(t, p), 0;
      else return static_cast<uint64_t>(run(t, p));
    };
  }
  std::vector<Buffer> buffers;
  std::function<uint64_t(const Table&, uint8_t* const*)> run;
  std::string args;
};

template <class Table>
using Maker = std::function<Call<Table>(size_t n, Random&)>;

// The call being made: for failure messages, and printed by the handler of a
// fault at a guard page (which ends the program) before the fault recurs.
inline char current_call[160];

inline void print_current_call(int) {
  const char prefix[] = "\nFault at a guard page: ";
  (void)!write(2, prefix, sizeof prefix - 1);
  (void)!write(2, current_call, strlen(current_call));
  signal(SIGSEGV, SIG_DFL);
}

template <class Table>
void expect_level_matches_twin(const char* level, const Table& table, const Table& twin, const Maker<Table>& make) {
  signal(SIGSEGV, print_current_call);
  const size_t page = os::page_size();
  std::vector<std::unique_ptr<GuardedBuffer>> arenas;  // per buffer and side, reused while big enough
  Random random(7);
  for (size_t k = 0; k <= 302; ++k) {
    size_t n = k <= 300 ? k : k == 301 ? 4096 + 37 : 65536 + 5;
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
        ASSERT_EQ(call.run(table, at.data()), expected) << current_call;
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

// The row of a kernel family: <suite>.MatchesTwin/<level> for every level,
// and a test that the adapters' choice is the first level the CPU runs.
template <class Table>
bool family(const std::string& suite, vek::KernelFamily<Table>& kernels, Table twin,
            std::type_identity_t<Maker<Table>> make) {
  struct FunctionTest : testing::Test {
    explicit FunctionTest(std::function<void()> body) : body(std::move(body)) {}
    void TestBody() override { body(); }
    std::function<void()> body;
  };
  auto add = [&suite](const std::string& name, std::function<void()> body) {
    testing::RegisterTest(suite.c_str(), name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                          [body]() -> testing::Test* { return new FunctionTest(body); });
  };
  for (const vek::KernelLevel<Table>& level : kernels.levels()) {
    add(std::string("MatchesTwin/") + vek::level_name(level.level), [=] {
      if (!vek::cpu_has(level.level)) GTEST_SKIP() << "CPU lacks " << vek::level_name(level.level);
      expect_level_matches_twin(vek::level_name(level.level), level.table, twin, make);
    });
  }
  add("BestIsTheFirstLevelTheCpuRuns", [&kernels] {
    auto first = std::find_if(kernels.levels().begin(), kernels.levels().end(), [](auto& l) { return vek::cpu_has(l.level); });
    ASSERT_NE(first, kernels.levels().end());
    EXPECT_EQ(std::memcmp(&kernels.best(), &first->table, sizeof(Table)), 0) << vek::level_name(first->level);
  });
  return true;
}

// The maker of a kernel that works in place on n random bytes.
template <class Table>
Maker<Table> in_place(void (*Table::*kernel)(uint8_t*, size_t) noexcept) {
  return [kernel](size_t n, Random& random) { return Call<Table>({{random.bytes(n)}}, [=](auto& t, auto p) { (t.*kernel)(p[0], n); }); };
}
}  // namespace kernel_test
