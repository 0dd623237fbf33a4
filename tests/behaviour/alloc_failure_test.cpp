// Out of memory during a call. Every registered function runs with ordinary
// arguments while the first, second, ... k-th allocation fails, until the call
// runs through as it does with nothing failing: the plug-in's own allocations,
// the host's "newMemoryBlock" giving nil or throwing std::bad_alloc, and the
// string services throwing. For each k: no fault, a balanced ledger, and the
// builders' answer to the failure: nil with "OutOfMemoryException" for a
// block or string the host could not make, the plain neutral result where the
// function's own allocation failed.
#include <algorithm>
#include <new>
#include <set>

#include "host/alloc_faults.h"
#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {
using B = REALmemoryBlock;
using caller::Role;

const std::string kAppend = "AppendVEK(other as Memoryblock) as Memoryblock";
const std::string kOSType = "OSTypeVEK(offset as Integer) as String";

caller::Value call(Caller& c, Role role, std::string_view key, std::initializer_list<caller::Arg> args) {
  return caller::call(caller::find_call(caller::registered_calls(c.host.registry()), key, role), args);
}

// Calls beyond the ordinary ones of every_call.h that reach another way of
// building: AppendVEK's copy of the receiver (the other block empty) and an
// assigned code of no stated encoding with a high byte, which is made into a
// new Mac Roman string first.
const std::map<std::string, Call> kBuildingCalls = {
    {"AppendVEK, copy of the receiver",
     [](Caller& c, B b) { return c.handed(call(c, Role::Method, kAppend, {b, c.host.newBlock(0)}).p); }},
    {"OSTypeVEK = text of no stated encoding",
     [](Caller& c, B b) {
       call(c, Role::Setter, kOSType, {b, 4, c.host.newString("\xA5xy", 0xFFFF)});
       return c.handed(call(c, Role::Method, kOSType, {b, 4}).p);
     }},
};

// What each block builder fails with on the 64-byte block: "Failed to
// allocate a memoryblock with N bytes in size." AppendVEK joining two blocks
// asks the host itself: a nil block gives nil quietly, and a std::bad_alloc
// the host throws passes through.
const std::map<std::string, int> kBlockBuilders = {
    {"MidVEK(offset as integer) as Memoryblock", 61},
    {"MidVEK(offset As Integer, length As Integer) as Memoryblock", 61},
    {"LeftVEK(length as integer) as Memoryblock", 64},
    {"RightVEK(length As Integer) as Memoryblock", 64},
    {"AppendVEK, copy of the receiver", 64},
    {"NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock", 16},
};

struct Outcome {
  int64_t result = 0;
  bool threw = false;  // std::bad_alloc passed through
  Bytes block;
  std::vector<std::string> raised;  // "class: message", or the class alone without a message
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& o) {
  out << "result " << o.result << (o.threw ? ", threw bad_alloc" : "") << ", raised";
  for (const std::string& r : o.raised) out << " \"" << r << "\"";
  return out;
}

// One row: an extension call on a fresh 64-byte guarded block (128 for those
// that trust an unknown size), or a call of the rest of the registration.
struct Row {
  std::string name;
  Call call;
  bool onBlock;
};

std::vector<Row> rows() {
  std::vector<Row> all;
  for (const auto& [declaration, call] : extension_calls()) all.push_back({declaration, call, true});
  for (const auto& [name, call] : kBuildingCalls) all.push_back({name, call, true});
  for (const auto& [name, call] : other_calls()) all.push_back({name, [call](Caller& c, B) { return call(c); }, false});
  return all;
}

class AllocFailure : public ::testing::TestWithParam<HostSetup> {
 protected:
  void SetUp() override {
    HostConfig config{.version = GetParam().version, .placement = GetParam().placement};
    config.unterminatedText = true;  // the plug-in then copies what it reads as Mac Roman
    host_ = std::make_unique<SimHost>(config);
    plugin_ = std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH);
    plugin_->start(*host_);
    ASSERT_GT(AllocFaults::install(plugin_->dlHandle()), 0);
    AllocFaults::reset();
  }
  void TearDown() override { AllocFaults::reset(); }

  // The row's call, on its block or on nil.
  Outcome run(const Row& row, bool nil = false) {
    Caller c = make_caller(*host_, *plugin_);
    B block = host_->newBlock(pattern(kTrustSizeZero.count(row.name) ? 128 : 64));
    Outcome o;
    try {
      o.result = row.call(c, row.onBlock && !nil ? block : nullptr);
    } catch (const std::bad_alloc&) {
      o.threw = true;
    }
    auto bytes = host_->bytes(block);
    o.block.assign(bytes.begin(), bytes.end());
    for (const Raised& r : host_->takeRaised()) o.raised.push_back(r.className + (r.message ? ": " + *r.message : ""));
    return o;
  }

  // Runs every row with the k-th failure armed by `arm` (k = 1, 2, ...) until
  // it gives what it gives with nothing failing; `disarm` tells whether the
  // k-th was reached, `check` judges each failed run.
  template <class Arm, class Disarm, class Check>
  void sweep(Arm arm, Disarm disarm, Check check) {
    for (const Row& row : rows()) {
      SCOPED_TRACE(row.name);
      const Outcome reference = run(row);
      EXPECT_FALSE(reference.threw);
      EXPECT_TRUE(LedgerBalanced(*host_));
      for (int k = 1;; ++k) {
        ASSERT_LE(k, 16) << "still failing after 16 allocations";
        SCOPED_TRACE("failing allocation " + std::to_string(k));
        arm(k);
        Outcome o = run(row);
        bool reached = disarm(k);
        EXPECT_TRUE(LedgerBalanced(*host_));
        if (!reached) {
          EXPECT_EQ(o, reference) << "nothing failed, yet the call did not run through";
          break;
        }
        check(row, o, reference);
      }
    }
  }

  std::unique_ptr<SimHost> host_;
  std::unique_ptr<LoadedPlugin> plugin_;
};

// The plug-in's own malloc, calloc and realloc: the MemoryBlockVEK buffer and
// the copy of a text that the host hands out without a terminator. A failed
// allocation raises nothing and gives the call's neutral answer: Create and
// Resize give False, a code assigned from text that cannot be copied is four
// spaces.
TEST_P(AllocFailure, PluginAllocations) {
  sweep([](int k) { AllocFaults::reset(); AllocFaults::armFailure(k); },
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

// The host's "newMemoryBlock" gives nil, or throws std::bad_alloc (on Linux:
// no Windows host throws into a plug-in).
TEST_P(AllocFailure, HostNewMemoryBlock) {
  for (NewBlockFailure mode : {NewBlockFailure::ReturnNull, NewBlockFailure::ThrowBadAlloc}) {
    if (mode == NewBlockFailure::ThrowBadAlloc && !kServicesThrow) continue;
    SCOPED_TRACE(mode == NewBlockFailure::ReturnNull ? "nil" : "bad_alloc");
    int calls_before = 0;
    sweep(
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
            const std::string message = "Failed to allocate a memoryblock with " + std::to_string(builder->second);
            EXPECT_EQ(o.raised, std::vector<std::string>{"OutOfMemoryException: " + message + " bytes in size."});
          } else if (r.name == kAppend) {
            EXPECT_EQ(o.threw, mode == NewBlockFailure::ThrowBadAlloc) << o;
            EXPECT_TRUE(o.raised.empty()) << o;
          } else {
            ADD_FAILURE() << "asks for a block unexpectedly: " << o;
          }
        });
  }
}

// The string services throw std::bad_alloc, each alone and all at once. A
// string the builders could not make is nil with "OutOfMemoryException"
// (without a message when the message could not be built either); an
// exception the plug-in raises keeps its class and loses only its message.
// Only the text an old host converts for OSTypeVEK's assignment is read
// outside the builders, and there the allocation failure passes through.
TEST_P(AllocFailure, StringServicesThrow) {
  if (!kServicesThrow) GTEST_SKIP() << "no Windows host throws into a plug-in";
  const std::set<std::string> out_of_memory = {"OutOfMemoryException",
                                               "OutOfMemoryException: Failed to allocate memory for a string."};
  std::set<std::string> refusals = {"NilObjectException", "UnsupportedOperationException"};
  for (const auto& [className, message] : kOwnExceptions) refusals.insert(className + ": " + message);
  const std::vector<std::string> all = {"REALBuildString", "REALBuildStringWithEncoding", "REALConvertString"};
  for (const auto& services : {std::vector{all[0]}, std::vector{all[1]}, std::vector{all[2]}, all}) {
    SCOPED_TRACE(services.size() == 1 ? services[0] : "all string services");
    for (const Row& row : rows()) {
      SCOPED_TRACE(row.name);
      const Outcome reference = run(row);
      for (const std::string& s : services) host_->setThrowing(s, true);
      Outcome o = run(row);
      Outcome nil = row.onBlock ? run(row, true) : Outcome{};  // refused by the plug-in
      for (const std::string& s : services) host_->setThrowing(s, false);
      EXPECT_TRUE(LedgerBalanced(*host_));

      EXPECT_FALSE(nil.threw);
      EXPECT_TRUE(nil.result == 0 || nil.result == -1 || nil.result == -2) << nil;
      for (const std::string& r : nil.raised) EXPECT_TRUE(refusals.count(r) || out_of_memory.count(r)) << nil;

      if (o == reference) continue;
      if (o.threw) {
        EXPECT_TRUE(!GetParam().version && row.name.starts_with("OSTypeVEK") &&
                    std::count(services.begin(), services.end(), "REALConvertString"))
            << "an allocation failure passed through: " << o;
        EXPECT_EQ(o.block, pattern(o.block.size())) << "nothing is written when the text cannot be read";
        continue;
      }
      EXPECT_EQ(o.result, 0) << o;
      EXPECT_FALSE(o.raised.empty()) << o;
      for (const std::string& r : o.raised) EXPECT_TRUE(out_of_memory.count(r)) << o;
    }
  }
}

INSTANTIATE_ON_EVERY_HOST(AllocFailure);
}  // namespace
