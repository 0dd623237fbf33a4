// Every registered function: each extension method's exact outcome on a nil
// block, nil arguments, negative numbers and a block without data; then
// ordinary arguments on an empty and a guard-paged block, and the class and
// globals: no fault, only the plug-in's own exceptions, and a balanced ledger
// after each call. A record without a row fails.
#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {

class EveryMethod : public PluginTest {
 protected:
  Caller caller() { return make_caller(host(), plugin()); }

  void expectOwnExceptionsOnly(const std::string& declaration) {
    for (const Raised& r : host().takeRaised()) {
      EXPECT_TRUE(kOwnExceptions.count({r.className, r.message.value_or("")}))
          << declaration << " raised " << r.className << " " << r.message.value_or("<null>");
    }
  }
};

TEST_P(EveryMethod, EveryRecordHasARow) {
  EXPECT_EQ(plugin().extensions().size(), 45u);
  for (const auto& extension : plugin().extensions()) {
    EXPECT_EQ(extension_calls().count(extension.declaration), 1u) << "no row for " << extension.declaration;
  }
}

// What each extension method gives in six cases: (1) a nil block; (2) a nil
// block with -1 for every Integer and Int64 argument (not the addresses);
// (3) a 64-byte block with nil for every other block, pointer, handle, string
// and folder item; (4) that block with -1 as in (2); (5) a block the host
// gives no data for; (6) as (3) with -1 as in (2). Where every number is -1
// no byte changes. Each case is what is raised (N
// "NilObjectException" "memoryblock is nil", P "NilObjectException" "ptr is
// nil", O "UnsupportedOperationException" "offset < 0", . nothing) and the
// result (* not looked at: an ordinary call).
const std::pair<const char*, std::vector<std::string>> kOutcomes[] = {
    {"N0 N0 .0 .0 .0 .0", {"ConvertRGB12BitTo8BitVEK", "MirrorBitsInBytesVEK", "MirrorBytesVEK", "MirrorBitsVEK",
                           "FillBytesVEK", "InvertBytesVEK"}},
    {"N0 N0 .0 O0 .0 O0", {"_Calc3te", "_Calc2teCMY", "_Calc2teCMYK", "_CalcLogSweepTableVEK", "MultiplyUInt16VEK",
                           "MultiplyUInt8VEK"}},
    {"N0 N0 .0 O0 .0 .0", {"_ConvertPolarToCartesian", "_ConvertCartesianToPolar"}},
    {"N0 N0 P0 O0 .1 P0", {"MinVEK", "MaxVEK"}},
    {"N0 N0 .1 .0 .0 .0", {"MidVEK", "LeftVEK", "RightVEK"}},
    {"N0 N0 N0 .1 .0 N0", {"AppendVEK", "CopyNthBytesVEK"}},
    {"N0 N0 N0 .0 .0 N0", {"CopyNthBitsVEK"}},
    {".0 .0 .1 .0 .0 .0", {"AddressVEK", "AddressPtrVEK", "OSTypeVEK", "GetStringVEK"}},
    {".0 .0 .0 .0 .0 .0", {"SetStringVEK", "FSSpecVEK", "SwapBytesVEK", "SwapBytes16VEK", "SwapBytes32VEK",
                           "BytesEqualVEK", "CopyBytesVEK", "CopyBytesToMacPtrVEK", "CopyBytesFromMacPtrVEK",
                           "CopyBytesToMacHandleVEK", "CopyBytesFromMacHandleVEK", "ExpandBitsVEK"}},
    {".0 .0 .* .1 .0 .1", {"BytesZeroVEK"}},
    {".-1 .-1 .* .-1 .-1 .-1", {"FindNotByteVEK", "FindByteVEK"}},
    {".-2 .-2 .-2 .-2 .-2 .-2", {"FindStringVEK", "FindBytesVEK"}},
};

std::string outcomes_of(const std::string& declaration) {
  for (const auto& [outcomes, names] : kOutcomes) {
    if (std::count(names.begin(), names.end(), declaration.substr(0, declaration.find('('))) != 0) return outcomes;
  }
  return "";
}

TEST_P(EveryMethod, Refusals) {
  const std::map<char, std::pair<std::string, std::string>> raised = {
      {'N', {"NilObjectException", "memoryblock is nil"}},
      {'P', {"NilObjectException", "ptr is nil"}},
      {'O', {"UnsupportedOperationException", "offset < 0"}}};
  for (const auto& [declaration, call] : extension_calls()) {
    std::istringstream outcomes(outcomes_of(declaration));
    ASSERT_NE(outcomes.str(), "") << declaration;
    for (int kind = 1; kind <= 6; ++kind) {
      SCOPED_TRACE(testing::Message() << declaration << ", case " << kind);
      Caller c = caller();
      c.negative = kind == 2 || kind == 4 || kind == 6;
      if (kind == 3 || kind == 6) {
        c.other = nullptr, c.text = nullptr, c.folder = nullptr, c.raw = nullptr, c.handle = nullptr;
      }
      REALmemoryBlock b = kind <= 2 ? nullptr : host().newBlock(64, 0x5A);
      if (kind == 5) host().overrideReportedData(b, nullptr);
      auto snapshot = [&] {  // the bytes of the block, the other block and the raw bytes
        Bytes all = b ? bytes(b) : Bytes(), other = c.other ? bytes(c.other) : Bytes();
        all.insert(all.end(), other.begin(), other.end());
        if (c.raw) all.insert(all.end(), c.raw, c.raw + 64);
        return all;
      };
      const Bytes before = snapshot();
      int64_t result = call(c, b);
      std::string outcome;
      outcomes >> outcome;
      EXPECT_TRUE(outcome[1] == '*' || result == std::stoll(outcome.substr(1))) << "result " << result;
      EXPECT_TRUE(outcome[0] == '.' ? RaisedNothing(host())
                                    : RaisedOnce(host(), raised.at(outcome[0]).first, raised.at(outcome[0]).second));
      EXPECT_TRUE(!c.negative || snapshot() == before) << "a byte changed";
      EXPECT_BALANCED(host());
    }
  }
}

TEST_P(EveryMethod, EmptyBlock) {
  Caller c = caller();
  REALmemoryBlock empty = host().newBlock(0);
  REALmemoryBlock over_raw = host().ptrBlock(host().rawBuffer(128));
  for (const auto& [declaration, call] : extension_calls()) {
    SCOPED_TRACE(declaration);
    call(c, kTrustSizeZero.count(declaration) ? over_raw : empty);
    expectOwnExceptionsOnly(declaration);
    EXPECT_BALANCED(host());
  }
}

// Ordinary arguments on a 64-byte block whose storage ends (or starts) at a
// guard page: any access outside it faults.
TEST_P(EveryMethod, GuardedBlock) {
  Caller c = caller();
  REALmemoryBlock block = host().newBlock(64, 0x5A);
  for (const auto& [declaration, call] : extension_calls()) {
    SCOPED_TRACE(declaration);
    call(c, block);
    expectOwnExceptionsOnly(declaration);
    EXPECT_BALANCED(host());
  }
}

// The class, the property and the globals with ordinary arguments.
TEST_P(EveryMethod, ClassPropertyAndGlobals) {
  Caller c = caller();
  for (const auto& [name, call] : other_calls()) {
    SCOPED_TRACE(name);
    EXPECT_NE(call(c), 0);
    expectOwnExceptionsOnly(name);
    EXPECT_BALANCED(host());
  }
}

INSTANTIATE_ON_EVERY_HOST(EveryMethod);
}  // namespace
