// How the plug-in reaches the host's services: looked up by name on first
// use and kept once found, asked for again while missing, skipped (with a
// neutral result) when the host lacks them. (A host without one of the
// services an exception needs is the missing-service sweep's.)
#include "tests/support/plugin_test.h"

namespace {
struct Loaded {
  explicit Loaded(std::initializer_list<const char*> missing) {
    HostConfig config;
    for (const char* name : missing) config.missing.insert(name);
    host = std::make_unique<SimHost>(config);
    plugin = std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH);
    plugin->start(*host);
    calls = caller::registered_calls(host->registry());
  }
  // MidVEK(block, 2, 3): whether it gave a block (given back at once).
  bool mid(REALmemoryBlock block) {
    auto& mid = caller::find_call(calls, "MidVEK(offset As Integer, length As Integer) as Memoryblock");
    void* result = caller::call(mid, {block, 2, 3}).p;
    if (result == nullptr) return false;
    host->adopt(result);
    host->release(result);
    return true;
  }

  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> plugin;
  std::vector<caller::Registered> calls;
};

TEST(Lookups, MissingServicesAreAskedForAgainFoundOnesKept) {
  Loaded l({"memoryBlockGetSize"});
  REALmemoryBlock block = l.host->newBlock(10, 7);
  EXPECT_FALSE(l.mid(block)) << "no size: nothing to copy";
  EXPECT_FALSE(l.mid(block));
  EXPECT_EQ(l.host->lookups("memoryBlockGetSize"), 2);
  l.host->setMissing("memoryBlockGetSize", false);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(l.mid(block));
  for (const char* name : {"memoryBlockGetSize", "memoryBlockGetPtr", "newMemoryBlock"}) {
    EXPECT_EQ(l.host->lookups(name), name == std::string("memoryBlockGetSize") ? 3 : 1) << name;
  }
  EXPECT_TRUE(RaisedNothing(*l.host));
  EXPECT_TRUE(LedgerBalanced(*l.host));
}

// An exception's ErrorNumber goes through "REALSetPropValueInt" on hosts
// that only know that name, and the cell keeps it.
TEST(Lookups, SetPropValueIntegerFallsBackToItsOldName) {
  Loaded l({"REALSetPropValueInteger"});
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(l.mid(nullptr));
    EXPECT_TRUE(RaisedOnce(*l.host, "NilObjectException", "memoryblock is nil"));
  }
  EXPECT_EQ(l.host->lookups("REALSetPropValueInteger"), 1);
  EXPECT_EQ(l.host->lookups("REALSetPropValueInt"), 1);
  EXPECT_TRUE(LedgerBalanced(*l.host));
}
}  // namespace
