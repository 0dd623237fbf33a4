// Every registered function, called with a nil block, an empty block and a
// guard-paged block and ordinary arguments: no fault, a neutral result where
// there is nothing to work on, only the plug-in's own exceptions, and a
// balanced ledger after each call. A record without a row fails.
#include <set>
#include <string>

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

// The methods that refuse a nil block quietly; every other one raises
// "NilObjectException" "memoryblock is nil".
const std::set<std::string> kQuietOnNil = {
    "AddressVEK",           "AddressPtrVEK",        "BytesEqualVEK",           "BytesZeroVEK",
    "FindByteVEK",          "FindNotByteVEK",       "FindStringVEK",           "FindBytesVEK",
    "CopyBytesVEK",         "CopyBytesToMacPtrVEK", "CopyBytesFromMacPtrVEK",  "CopyBytesToMacHandleVEK",
    "CopyBytesFromMacHandleVEK", "GetStringVEK",    "SetStringVEK",            "OSTypeVEK",
    "FSSpecVEK",            "SwapBytesVEK",         "SwapBytes16VEK",          "SwapBytes32VEK",
    "ExpandBitsVEK",
};

TEST_P(EveryMethod, NilBlock) {
  Caller c = caller();
  for (const auto& [declaration, call] : extension_calls()) {
    SCOPED_TRACE(declaration);
    int64_t result = call(c, nullptr);
    EXPECT_TRUE(result == 0 || result == -1 || result == -2) << "not neutral: " << result;
    if (kQuietOnNil.count(declaration.substr(0, declaration.find('('))) != 0) {
      EXPECT_NOTHING_RAISED(host());
    } else {
      EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    }
    EXPECT_BALANCED(host());
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
