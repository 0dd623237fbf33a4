// What REALPluginMain registers on every row of host versions, read back from
// the simulated host's registry word by word.
#include <algorithm>
#include <iostream>
#include <set>

#include "host/alloc_faults.h"
#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {
// The 45 extension declarations, as the sweeps call them (the registered
// order is pinned where a host sees it).
std::set<std::string> extension_declarations() {
  std::set<std::string> all;
  for (const auto& [declaration, call] : extension_calls()) all.insert(declaration);
  return all;
}
std::vector<std::string> declarations(const std::vector<MethodReg>& methods, bool setters = true) {
  std::vector<std::string> all;
  for (const MethodReg& m : methods) {
    if (setters || m.declaration.find("assigns value") == std::string::npos) all.push_back(m.declaration);
  }
  return all;
}
const std::vector<std::string> kGlobals = {"NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock",
                                           "NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock"};

struct HostRow {
  const char* name;
  std::optional<double> version;
  int recordVersion;
  bool modules;  // the extension and the globals come as modules
};

void PrintTo(const HostRow& row, std::ostream* out) { *out << row.name; }

const HostRow kRows[] = {
    {"NoVersion", std::nullopt, 9, false}, {"V0", 0.0, 9, false},          {"V2011", 2011.0, 9, false},
    {"V2012_5", 2012.5, 10, false},        {"V2013", 2013.0, 11, true},    {"V2013_03", 2013.03, 12, true},
    {"V2013_04", 2013.04, 13, true},       {"V2020", 2020.0, 13, true},    {"V3000", 3000.0, 13, false},
};

class Registration : public ::testing::TestWithParam<HostRow> {
 protected:
  void SetUp() override {
    host_ = std::make_unique<SimHost>(HostConfig{.version = GetParam().version});
    plugin_ = std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH);
    plugin_->start(*host_);
  }
  size_t methodWords() const { return GetParam().recordVersion == 9 ? 4 : 6; }
  size_t propertyWords() const { return GetParam().recordVersion == 9 ? 10 : 12; }
  size_t classWords() const { return GetParam().recordVersion == 9 ? 25 : 29; }
  const Registry& registry() const { return host_->registry(); }
  const ModuleReg* module(const std::string& name) const {
    auto found = std::find_if(registry().modules.begin(), registry().modules.end(),
                              [&](const ModuleReg& m) { return m.name == name; });
    return found == registry().modules.end() ? nullptr : &*found;
  }
  // Records carry a setter for the two assignable methods, module entries
  // never; `words` 0: not checked.
  void expectMethods(const std::vector<MethodReg>& methods, int flags, size_t words, bool setters = false) {
    for (const MethodReg& m : methods) {
      SCOPED_TRACE(m.declaration);
      EXPECT_EQ(m.flags, flags);
      EXPECT_NE(m.function, nullptr);
      EXPECT_EQ(m.setter != nullptr,
                setters && (m.declaration.starts_with("OSTypeVEK(") || m.declaration.starts_with("FSSpecVEK(")));
      EXPECT_TRUE(words == 0 || m.recordWords.size() == words);
      EXPECT_EQ(m.word4 | m.word5, 0u);
    }
  }
  void expectProperties(const ClassReg& cls, const std::vector<std::pair<std::string, std::string>>& expected) {
    ASSERT_EQ(cls.properties.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      const PropertyReg& p = cls.properties[i];
      EXPECT_EQ(std::pair(p.name, p.type), expected[i]);
      EXPECT_EQ(p.flags, 6);
      EXPECT_NE(p.getter, nullptr);
      EXPECT_EQ(p.setter, nullptr);
      EXPECT_EQ(p.recordWords.size(), propertyWords());
    }
  }

  std::unique_ptr<SimHost> host_;
  std::unique_ptr<LoadedPlugin> plugin_;
};

TEST_P(Registration, MemoryBlockVEKClass) {
  EXPECT_EQ(registry().pluginVersion, GetParam().recordVersion);
  EXPECT_EQ(registry().rejectedRecords, 0);
  EXPECT_EQ(host_->lookups("REALGetRBVersion"), 1);
  EXPECT_EQ(host_->lookups("RegisterPluginVersion"), 1);
  EXPECT_TRUE(LedgerBalanced(*host_));
  ASSERT_EQ(registry().classes.size(), 1u);
  const ClassReg& cls = registry().classes[0];
  EXPECT_EQ(cls.name, "MemoryBlockVEK");
  EXPECT_EQ(cls.recordVersion, GetParam().recordVersion);
  EXPECT_EQ(cls.recordWords.size(), classWords());
  EXPECT_EQ(cls.dataSize, 32);
  EXPECT_EQ(cls.flags, 4);
  const std::vector<std::string> methods = {"Resize(Size as Int64) as boolean", "Close",
                                            "Create(size as Int64) as boolean"};
  EXPECT_EQ(declarations(cls.methods), methods);
  ASSERT_EQ(cls.methods.size(), 3u);
  EXPECT_EQ(cls.dispose, cls.methods[1].function) << "Close is also the dispose function";
  expectMethods(cls.methods, 4, methodWords());
  expectProperties(cls, {{"Address", "Int64"}, {"Size", "Int64"}, {"Memory", "Memoryblock"}});
}

// The class extension's records, or on hosts of modules the same 45 as
// module entries with the class parameter, each setter entry before its
// function.
TEST_P(Registration, MemoryBlockExtension) {
  const ModuleReg* module = this->module("MemoryBlockMemoryblockExtensionVEK");
  std::vector<std::string> functions;
  if (GetParam().modules) {
    EXPECT_TRUE(registry().extensions.empty()) << "module hosts get no class extension";
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->recordVersion, GetParam().recordVersion);
    ASSERT_EQ(module->recordWords.size(), 24u);
    for (size_t w = 4; w < 24; ++w) EXPECT_EQ(module->recordWords[w], 0u) << "word " << w;
    ASSERT_EQ(module->methods.size(), 47u);
    expectMethods(module->methods, 20, 0);
    const std::pair<size_t, const char*> pinned[] = {
        {0, "ConvertRGB12BitTo8BitVEK(extends ref as MemoryBlock, Width as Integer)"},
        {16, "OSTypeVEK(extends ref as MemoryBlock, offset as Integer, assigns value as String)"},
        {17, "OSTypeVEK(extends ref as MemoryBlock, offset as Integer) as String"},
        {35, "FSSpecVEK(extends ref as MemoryBlock, offset as Integer, assigns value as FolderItem)"},
        {36, "FSSpecVEK(extends ref as MemoryBlock, offset as Integer) as FolderItem"},
        {37, "MidVEK(extends ref as MemoryBlock, offset as integer) as Memoryblock"},
        {46, "ExpandBitsVEK(extends ref as MemoryBlock, dest as memoryblock, SourceByteCount as integer, LowValue as "
             "integer = 0, HighValue as integer = 255) as boolean"}};
    for (const auto& [index, declaration] : pinned) EXPECT_EQ(module->methods[index].declaration, declaration);
    EXPECT_NE(module->methods[16].function, module->methods[17].function);
    for (const std::string& d : declarations(module->methods, false)) functions.push_back(without_class_parameter(d));
  } else {
    EXPECT_EQ(module, nullptr);
    ASSERT_EQ(registry().extensions.size(), 1u);
    const ClassReg& ext = registry().extensions[0];
    EXPECT_EQ(ext.name, "MemoryBlock");
    EXPECT_EQ(ext.recordVersion, GetParam().recordVersion);
    EXPECT_EQ(ext.recordWords.size(), classWords());
    EXPECT_EQ(ext.dataSize, 0);
    EXPECT_EQ(ext.dispose, nullptr);
    EXPECT_EQ(ext.flags, 4);
    expectMethods(ext.methods, 4, methodWords(), true);
    expectProperties(ext, {{"BytesVEK", "Integer"}});
    functions = declarations(ext.methods);
  }
  ASSERT_EQ(functions.size(), 45u);
  EXPECT_EQ(functions[16], "OSTypeVEK(offset as Integer) as String");
  EXPECT_EQ(functions[34], "FSSpecVEK(offset as Integer) as FolderItem");
  EXPECT_EQ(std::set<std::string>(functions.begin(), functions.end()), extension_declarations());
}

TEST_P(Registration, GlobalMethods) {
  const ModuleReg* module = this->module("MemoryblockGlobalsVEK");
  ASSERT_EQ(module != nullptr, GetParam().modules);
  const std::vector<MethodReg>& globals = GetParam().modules ? module->methods : registry().globals;
  EXPECT_EQ(GetParam().modules, registry().globals.empty());
  EXPECT_EQ(declarations(globals), kGlobals) << "global declarations are not rewritten";
  expectMethods(globals, GetParam().modules ? 20 : 4, GetParam().modules ? 0 : 6);
  EXPECT_EQ(module != nullptr ? module->recordVersion : 0, GetParam().modules ? GetParam().recordVersion : 0);
}

INSTANTIATE_TEST_SUITE_P(HostVersions, Registration, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

// -- hosts that fail ----------------------------------------------------------

struct Loaded {
  Loaded(std::optional<double> version, int failing_allocation)
      : host(HostConfig{.version = version,
                        .throwing = {"REALBuildString", "REALBuildStringWithEncoding", "REALConvertString"}}),
        plugin(VEK_PLUGIN_PATH) {
    EXPECT_GT(AllocFaults::install(plugin.dlHandle()), 0);
    AllocFaults::reset();
    AllocFaults::armFailure(failing_allocation);
    plugin.start(host);
    failed = failing_allocation > 0 && AllocFaults::allocations() >= failing_allocation;
    AllocFaults::reset();
  }
  SimHost host;
  LoadedPlugin plugin;
  bool failed = false;
};

// Fails the plug-in's first, second, ... allocation until REALPluginMain runs
// through, on every registration path. What could not be built is not
// registered at all: a module or a converted class is complete or absent,
// never partial. The class-extension paths of record versions 10 to 13
// build nothing and so have no allocation to fail. The host's own failures
// cannot reach registration: it asks for no block and no string (the
// host's string services throw here, and its "newMemoryBlock" fails).
TEST(RegistrationOutOfMemory, EveryAllocationPoint) {
  const struct {
    const char* name;
    std::optional<double> version;
    bool allocates;
  } paths[] = {
      {"class extension", 3000.0, false}, {"record version 10", 2012.5, false}, {"modules", 2020.0, true},
      {"record version 9", 2011.0, true}, {"no version", std::nullopt, true},
  };
  for (const auto& path : paths) {
    SCOPED_TRACE(path.name);
    int points = 0;
    for (int k = 1;; ++k) {
      SCOPED_TRACE(k);
      Loaded l(path.version, k);
      const Registry& registry = l.host.registry();
      for (const ModuleReg& module : registry.modules) {
        EXPECT_EQ(module.methods.size(), module.name == "MemoryblockGlobalsVEK" ? 2u : 47u) << module.name;
      }
      for (const ClassReg& cls : registry.classes) EXPECT_EQ(cls.methods.size(), 3u);
      for (const ClassReg& ext : registry.extensions) EXPECT_EQ(ext.methods.size(), 45u);
      EXPECT_TRUE(LedgerBalanced(l.host));
      EXPECT_TRUE(RaisedNothing(l.host));
      if (!l.failed) {
        size_t registered = registry.modules.size() + registry.classes.size() + registry.extensions.size();
        EXPECT_EQ(registered, path.version == 2020.0 ? 3u : 2u) << "with every allocation granted, all is registered";
        EXPECT_EQ(l.host.newMemoryBlockCalls(), 0);
        break;
      }
      ++points;
    }
    EXPECT_EQ(points > 0, path.allocates) << points << " allocation points";
    std::cout << "[ points   ] REALPluginMain, " << path.name << ": " << points << "\n";
  }
}
}  // namespace
