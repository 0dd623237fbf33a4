// How the plug-in reaches the host's services: looked up by name on first
// use and kept once found, asked for again while missing, skipped (with a
// neutral result) when the host lacks them.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMid2 = "MidVEK(offset As Integer, length As Integer) as Memoryblock";
using Mid2 = REALmemoryBlock(REALmemoryBlock, int32_t, int32_t);

struct Loaded {
  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> plugin;
};

Loaded load(HostConfig config = {}) {
  Loaded loaded{std::make_unique<SimHost>(config), std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH)};
  loaded.plugin->start(*loaded.host);
  return loaded;
}

TEST(Lookups, FoundServicesAreLookedUpOnce) {
  Loaded l = load();
  REALmemoryBlock block = l.host->newBlock(10, 7);
  auto mid = l.plugin->method<Mid2>(kMid2);
  for (int i = 0; i < 3; ++i) {
    REALmemoryBlock result = mid(block, 2, 3);
    l.host->adopt(result);
    l.host->release(result);
  }
  for (const char* name : {"memoryBlockGetSize", "memoryBlockGetPtr", "newMemoryBlock"}) {
    EXPECT_EQ(l.host->lookups(name), 1) << name;
  }
  EXPECT_TRUE(LedgerBalanced(*l.host));
}

TEST(Lookups, MissingServiceIsAskedForAgainUntilFound) {
  HostConfig config;
  config.missing.insert("memoryBlockGetSize");
  Loaded l = load(config);
  REALmemoryBlock block = l.host->newBlock(10, 7);
  auto mid = l.plugin->method<Mid2>(kMid2);
  EXPECT_EQ(mid(block, 2, 3), nullptr) << "no size: nothing to copy";
  EXPECT_EQ(mid(block, 2, 3), nullptr);
  EXPECT_EQ(l.host->lookups("memoryBlockGetSize"), 2);

  l.host->setMissing("memoryBlockGetSize", false);
  for (int i = 0; i < 2; ++i) {
    REALmemoryBlock result = mid(block, 2, 3);
    ASSERT_NE(result, nullptr);
    l.host->adopt(result);
    l.host->release(result);
  }
  EXPECT_EQ(l.host->lookups("memoryBlockGetSize"), 3);
  EXPECT_TRUE(RaisedNothing(*l.host));
}

// An exception's ErrorNumber goes through "REALSetPropValueInt" on hosts
// that only know that name, and the cell keeps it.
TEST(Lookups, SetPropValueIntegerFallsBackToItsOldName) {
  HostConfig config;
  config.missing.insert("REALSetPropValueInteger");
  Loaded l = load(config);
  auto mid = l.plugin->method<Mid2>(kMid2);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(mid(nullptr, 0, 1), nullptr);
    EXPECT_TRUE(RaisedOnce(*l.host, "NilObjectException", "memoryblock is nil"));
  }
  EXPECT_EQ(l.host->lookups("REALSetPropValueInteger"), 1);
  EXPECT_EQ(l.host->lookups("REALSetPropValueInt"), 1);
  EXPECT_TRUE(LedgerBalanced(*l.host));
}

// Without the services an exception needs, nothing is raised and the
// message string is still given back.
TEST(Lookups, RaisingWithoutTheServices) {
  for (const char* missing : {"PluginNewInstance", "RuntimeRaiseException", "REALSetPropValueString",
                              "REALBuildString", "REALSetStringEncoding", "REALUnlockObject"}) {
    SCOPED_TRACE(missing);
    HostConfig config;
    config.missing.insert(missing);
    Loaded l = load(config);
    EXPECT_EQ(l.plugin->method<Mid2>(kMid2)(nullptr, 0, 1), nullptr);
    std::vector<Raised> raised = l.host->takeRaised();
    if (std::string(missing) == "PluginNewInstance" || std::string(missing) == "RuntimeRaiseException") {
      EXPECT_TRUE(raised.empty());
    } else {
      ASSERT_EQ(raised.size(), 1u);
      EXPECT_EQ(raised[0].className, "NilObjectException");
    }
    if (std::string(missing) != "REALUnlockObject") {
      EXPECT_TRUE(LedgerBalanced(*l.host));
    }
  }
}
}  // namespace
