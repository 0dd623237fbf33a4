// Out of memory during a call. Every registered function runs with ordinary
// arguments while the first, second, ... k-th allocation fails, until the call
// runs through as it does with nothing failing: the plug-in's own allocations,
// the host's "newMemoryBlock" giving nil or throwing std::bad_alloc, and the
// string services throwing. For each k: no fault, a balanced ledger, and the
// builders' answer to the failure: nil with "OutOfMemoryException" for a
// block or string the host could not make, the plain neutral result where the
// function's own allocation failed.
#include <algorithm>
#include <iostream>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "host/alloc_faults.h"
#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {

using B = REALmemoryBlock;
using S = REALstring;

// Calls beyond the ordinary ones of every_call.h that reach another way of
// building: AppendVEK's copy of the receiver (the other block empty) and an
// assigned code of no stated encoding with a high byte, which is made into a
// new Mac Roman string first.
const std::map<std::string, Call>& building_calls() {
  static const std::map<std::string, Call> table = {
      {"AppendVEK, copy of the receiver",
       [](Caller& c, B b) {
         B empty = c.host.newBlock(0);
         return c.handed(c.plugin.method<B(B, B)>("AppendVEK(other as Memoryblock) as Memoryblock")(b, empty));
       }},
      {"OSTypeVEK = text of no stated encoding",
       [](Caller& c, B b) {
         S value = c.host.newString("\xA5xy", 0xFFFF);
         c.plugin.setter<void(B, int32_t, S)>("OSTypeVEK(offset as Integer) as String")(b, 4, value);
         return c.handed(c.plugin.method<S(B, int32_t)>("OSTypeVEK(offset as Integer) as String")(b, 4));
       }},
  };
  return table;
}

// The block each builder asks the host for on the 64-byte block, as its
// failure message gives it.
const std::map<std::string, int> kBlockBuilders = {
    {"MidVEK(offset as integer) as Memoryblock", 61},
    {"MidVEK(offset As Integer, length As Integer) as Memoryblock", 61},
    {"LeftVEK(length as integer) as Memoryblock", 64},
    {"RightVEK(length As Integer) as Memoryblock", 64},
    {"AppendVEK, copy of the receiver", 64},
    {"NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock", 16},
};

// AppendVEK joins two blocks in a block it asks the host for itself: a nil
// block gives nil quietly, and an allocation failure the host throws passes
// through to the caller.
const std::string kAppend = "AppendVEK(other as Memoryblock) as Memoryblock";

std::string block_message(int size) {
  return "Failed to allocate a memoryblock with " + std::to_string(size) + " bytes in size.";
}

struct Outcome {
  int64_t result = 0;
  bool threw = false;  // std::bad_alloc passed through
  Bytes block;
  std::vector<Raised> raised;
  bool operator==(const Outcome& o) const {
    auto same = [](const Raised& a, const Raised& b) { return a.className == b.className && a.message == b.message; };
    return result == o.result && threw == o.threw && block == o.block &&
           std::equal(raised.begin(), raised.end(), o.raised.begin(), o.raised.end(), same);
  }
};

std::ostream& operator<<(std::ostream& out, const Outcome& o) {
  out << "result " << o.result << (o.threw ? ", threw bad_alloc" : "") << ", raised";
  for (const Raised& r : o.raised) out << " " << r.className << " \"" << r.message.value_or("<null>") << "\"";
  return out;
}

// One row: an extension call on a fresh 64-byte guarded block (128 for those
// that trust an unknown size), or a call of the rest of the registration.
struct Row {
  std::string name;
  std::function<int64_t(Caller&, B)> call;
  bool onBlock;
};

std::vector<Row> rows() {
  std::vector<Row> all;
  for (const auto& [declaration, call] : extension_calls()) all.push_back({declaration, call, true});
  for (const auto& [name, call] : building_calls()) all.push_back({name, call, true});
  for (const auto& [name, call] : other_calls()) {
    all.push_back({name, [call](Caller& c, B) { return call(c); }, false});
  }
  return all;
}

class AllocFailure : public ::testing::TestWithParam<HostSetup> {
 protected:
  void SetUp() override {
    HostConfig config;
    config.version = GetParam().version;
    config.placement = GetParam().placement;
    config.unterminatedText = true;  // the plug-in then copies what it reads as Mac Roman
    host_ = std::make_unique<SimHost>(config);
    plugin_ = std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH);
    plugin_->start(*host_);
    ASSERT_GT(AllocFaults::install(plugin_->dlHandle()), 0);
    AllocFaults::reset();
  }
  void TearDown() override { AllocFaults::reset(); }

  bool registered(const Row& row) {
    if (row.name == "BytesVEK") return !host_->registry().extensions.empty();
    return true;  // the three paths all register the rest
  }

  Outcome run(const Row& row) {
    Caller c = make_caller(*host_, *plugin_);
    size_t size = kTrustSizeZero.count(row.name) ? 128 : 64;
    B block = host_->newBlock(pattern(size));
    Outcome o;
    try {
      o.result = row.call(c, row.onBlock ? block : nullptr);
    } catch (const std::bad_alloc&) {
      o.threw = true;
    }
    auto bytes = host_->bytes(block);
    o.block.assign(bytes.begin(), bytes.end());
    o.raised = host_->takeRaised();
    return o;
  }

  // Runs the row with the k-th failure armed by `arm` (k = 1, 2, ...) until
  // it gives what it gives with nothing failing; `check` judges each failed
  // run. Returns the number of failure points.
  template <class Arm, class Disarm, class Check>
  int sweep(const Row& row, Arm arm, Disarm disarm, Check check) {
    SCOPED_TRACE(row.name);
    const Outcome reference = run(row);
    EXPECT_FALSE(reference.threw);
    EXPECT_TRUE(LedgerBalanced(*host_));
    for (int k = 1; k <= 16; ++k) {
      SCOPED_TRACE("failing allocation " + std::to_string(k));
      arm(k);
      Outcome o = run(row);
      bool reached = disarm(k);
      EXPECT_TRUE(LedgerBalanced(*host_));
      if (!reached) {
        EXPECT_EQ(o, reference) << "nothing failed, yet the call did not run through";
        return k - 1;
      }
      check(row, o, reference);
    }
    ADD_FAILURE() << "still failing after 16 allocations";
    return 16;
  }

  std::unique_ptr<SimHost> host_;
  std::unique_ptr<LoadedPlugin> plugin_;
};

void report(const char* what, const std::map<std::string, int>& points) {
  std::cout << "[ points   ] " << what << ":";
  int total = 0;
  for (const auto& [name, n] : points) {
    if (n == 0) continue;
    std::cout << "\n    " << n << "  " << name;
    total += n;
  }
  std::cout << "\n    total " << total << " over " << points.size() << " functions\n";
}

// The plug-in's own malloc, calloc and realloc: the MemoryBlockVEK buffer and
// the copy of a text that the host hands out without a terminator. A failed
// allocation raises nothing and gives the call's neutral answer: Create and
// Resize give False, a code assigned from text that cannot be copied is four
// spaces.
TEST_P(AllocFailure, PluginAllocations) {
  std::map<std::string, int> points;
  for (const Row& row : rows()) {
    if (!registered(row)) continue;
    points[row.name] = sweep(
        row, [](int k) { AllocFaults::reset(); AllocFaults::armFailure(k); },
        [](int k) {
          bool reached = AllocFaults::allocations() >= k;
          AllocFaults::reset();
          return reached;
        },
        [](const Row& r, const Outcome& o, const Outcome& reference) {
          EXPECT_FALSE(o.threw);
          EXPECT_TRUE(o.raised.empty()) << o;
          if (r.name == "MemoryBlockVEK") {
            EXPECT_LT(o.result, reference.result) << "a failed Create or Resize gives False";
          } else if (r.name.starts_with("OSTypeVEK")) {
            Bytes spaces = pattern(o.block.size());
            std::fill(spaces.begin() + 4, spaces.begin() + 8, 0x20);
            EXPECT_EQ(o.block, spaces) << "a code of text that cannot be read is four spaces";
            EXPECT_EQ(o.result, reference.result);
          } else {
            ADD_FAILURE() << "allocates unexpectedly: " << o;
          }
        });
  }
  report("plug-in allocations", points);
}

// The host's "newMemoryBlock" gives nil, or throws std::bad_alloc.
TEST_P(AllocFailure, HostNewMemoryBlock) {
  for (NewBlockFailure mode : {NewBlockFailure::ReturnNull, NewBlockFailure::ThrowBadAlloc}) {
    SCOPED_TRACE(mode == NewBlockFailure::ReturnNull ? "nil" : "bad_alloc");
    std::map<std::string, int> points;
    int calls_before = 0;
    for (const Row& row : rows()) {
      if (!registered(row)) continue;
      points[row.name] = sweep(
          row,
          [&](int k) {
            calls_before = host_->newMemoryBlockCalls();
            host_->failNewMemoryBlock(mode, k - 1);
          },
          [&](int k) {
            host_->failNewMemoryBlock(NewBlockFailure::None);
            return host_->newMemoryBlockCalls() - calls_before >= k;
          },
          [&](const Row& r, const Outcome& o, const Outcome&) {
            EXPECT_EQ(o.result, 0);
            EXPECT_EQ(o.block, pattern(o.block.size())) << "the receiver never changes";
            auto builder = kBlockBuilders.find(r.name);
            if (builder != kBlockBuilders.end()) {
              EXPECT_FALSE(o.threw);
              ASSERT_EQ(o.raised.size(), 1u) << o;
              EXPECT_EQ(o.raised[0].className, "OutOfMemoryException");
              EXPECT_EQ(o.raised[0].message, block_message(builder->second));
            } else if (r.name == kAppend) {
              EXPECT_EQ(o.threw, mode == NewBlockFailure::ThrowBadAlloc) << o;
              EXPECT_TRUE(o.raised.empty()) << o;
            } else {
              ADD_FAILURE() << "asks for a block unexpectedly: " << o;
            }
          });
    }
    report(mode == NewBlockFailure::ReturnNull ? "newMemoryBlock gives nil" : "newMemoryBlock throws", points);
  }
}

// The string services throw std::bad_alloc, each alone and all at once. A
// string the builders could not make is nil with "OutOfMemoryException"
// (without a message when the message could not be built either); an
// exception the plug-in raises keeps its class and loses only its message.
// Only the text an old host converts for OSTypeVEK's assignment is read
// outside the builders, and there the allocation failure passes through.
TEST_P(AllocFailure, StringServicesThrow) {
  const std::vector<std::vector<std::string>> sets = {
      {"REALBuildString"}, {"REALBuildStringWithEncoding"}, {"REALConvertString"},
      {"REALBuildString", "REALBuildStringWithEncoding", "REALConvertString"}};
  const std::set<std::string> refusals = {"NilObjectException", "UnsupportedOperationException"};
  for (const auto& services : sets) {
    std::string label;
    for (const std::string& s : services) label += s + " ";
    SCOPED_TRACE(label + "throwing");
    std::map<std::string, int> affected;
    for (const Row& row : rows()) {
      if (!registered(row)) continue;
      SCOPED_TRACE(row.name);
      const Outcome reference = run(row);
      for (const std::string& s : services) host_->setThrowing(s, true);
      Outcome o = run(row);
      Outcome nil;  // the same call on a nil block, which the plug-in refuses
      if (row.onBlock) {
        Caller c = make_caller(*host_, *plugin_);
        try {
          nil.result = row.call(c, nullptr);
        } catch (const std::bad_alloc&) {
          nil.threw = true;
        }
        nil.raised = host_->takeRaised();
      }
      for (const std::string& s : services) host_->setThrowing(s, false);
      EXPECT_TRUE(LedgerBalanced(*host_));

      EXPECT_FALSE(nil.threw);
      EXPECT_EQ(nil.result == 0 || nil.result == -1 || nil.result == -2, true) << nil;
      for (const Raised& r : nil.raised) {
        bool own = refusals.count(r.className) && (!r.message || kOwnExceptions.count({r.className, *r.message}));
        bool out_of_memory = r.className == "OutOfMemoryException" &&
                             (!r.message || *r.message == "Failed to allocate memory for a string.");
        EXPECT_TRUE(own || out_of_memory) << nil;
      }

      affected[row.name] = o == reference ? 0 : 1;
      if (o == reference) continue;
      const bool converted_by_old_host = !GetParam().version && row.name.starts_with("OSTypeVEK") &&
                                         std::find(services.begin(), services.end(), "REALConvertString") != services.end();
      if (o.threw) {
        EXPECT_TRUE(converted_by_old_host) << "an allocation failure passed through: " << o;
        EXPECT_EQ(o.block, pattern(o.block.size())) << "nothing is written when the text cannot be read";
        continue;
      }
      EXPECT_EQ(o.result, 0) << o;
      EXPECT_FALSE(o.raised.empty()) << o;
      for (const Raised& r : o.raised) {
        EXPECT_EQ(r.className, "OutOfMemoryException") << o;
        EXPECT_TRUE(!r.message || *r.message == "Failed to allocate memory for a string.") << o;
      }
    }
    report(("strings: " + label).c_str(), affected);
  }
}

INSTANTIATE_ON_EVERY_HOST(AllocFailure);
}  // namespace
