// What REALPluginMain registers on every row of host versions, read back from
// the simulated host's registry word by word.
#include <algorithm>
#include <iostream>

#include "host/alloc_faults.h"

#include "tests/support/plugin_test.h"

namespace {
// The extension's declarations in host order, as the host must see them.
const char* const kExtensionDeclarations[] = {
    "ConvertRGB12BitTo8BitVEK(Width as Integer)",
    "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, "
    "Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as "
    "integer = 0)",
    "_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = "
    "true)",
    "_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = "
    "true)",
    "_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)",
    "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)",
    "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)",
    "MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)",
    "MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)",
    "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as "
    "Integer = 0, lengthBytes as integer = 0) as boolean",
    "MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as "
    "Integer = 0, lengthBytes as integer = 0) as boolean",
    "MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)",
    "MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)",
    "MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)",
    "AddressVEK(offset as Int64 = 0) as UInt64",
    "AddressPtrVEK(offset as Int64 = 0) as Ptr",
    "OSTypeVEK(offset as Integer) as String",
    "GetStringVEK(offset as Integer, numBytes as Integer) as String",
    "SetStringVEK(str as String, offset as Integer)",
    "SwapBytesVEK(offset as Integer, numBytes as Integer)",
    "SwapBytes16VEK(offset as Integer, numBytes as Integer)",
    "SwapBytes32VEK(offset as Integer, numBytes as Integer)",
    "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean",
    "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean",
    "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
    "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
    "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
    "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)",
    "CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)",
    "CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)",
    "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
    "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)",
    "FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer",
    "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as "
    "Integer) as Integer",
    "FSSpecVEK(offset as Integer) as FolderItem",
    "MidVEK(offset as integer) as Memoryblock",
    "MidVEK(offset As Integer, length As Integer) as Memoryblock",
    "LeftVEK(length as integer) as Memoryblock",
    "RightVEK(length As Integer) as Memoryblock",
    "AppendVEK(other as Memoryblock) as Memoryblock",
    "FillBytesVEK(offset as integer, count as integer, value as integer)",
    "InvertBytesVEK(offset as integer, count as integer)",
    "CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, "
    "ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean",
    "CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, BitCount "
    "as integer, StepCount as integer, NumberOfSteps as integer) as boolean",
    "ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = "
    "255) as boolean",
};
static_assert(std::size(kExtensionDeclarations) == 45);

const char* const kGlobals[] = {
    "NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock",
    "NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock",
};

bool assignable(const std::string& declaration) {
  return declaration.starts_with("OSTypeVEK(") || declaration.starts_with("FSSpecVEK(");
}

enum class Path { ClassExtension, Modules };

struct HostRow {
  const char* name;
  std::optional<double> version;
  int recordVersion;
  Path path;
};

void PrintTo(const HostRow& row, std::ostream* out) { *out << row.name; }

const HostRow kRows[] = {
    {"NoVersion", std::nullopt, 9, Path::ClassExtension},
    {"V0", 0.0, 9, Path::ClassExtension},
    {"V2011", 2011.0, 9, Path::ClassExtension},
    {"V2012_5", 2012.5, 10, Path::ClassExtension},
    {"V2013", 2013.0, 11, Path::Modules},
    {"V2013_03", 2013.03, 12, Path::Modules},
    {"V2013_04", 2013.04, 13, Path::Modules},
    {"V2020", 2020.0, 13, Path::Modules},
    {"V3000", 3000.0, 13, Path::ClassExtension},
};

class Registration : public ::testing::TestWithParam<HostRow> {
 protected:
  void SetUp() override {
    HostConfig config;
    config.version = GetParam().version;
    host_ = std::make_unique<SimHost>(config);
    plugin_ = std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH);
    plugin_->start(*host_);
  }
  size_t methodWords() const { return GetParam().recordVersion == 9 ? 4 : 6; }
  size_t propertyWords() const { return GetParam().recordVersion == 9 ? 10 : 12; }
  const Registry& registry() const { return host_->registry(); }

  std::unique_ptr<SimHost> host_;
  std::unique_ptr<LoadedPlugin> plugin_;
};

TEST_P(Registration, RecordVersion) {
  EXPECT_EQ(registry().pluginVersion, GetParam().recordVersion);
  EXPECT_EQ(registry().rejectedRecords, 0);
  EXPECT_TRUE(LedgerBalanced(*host_));
}

TEST_P(Registration, MemoryBlockVEKClass) {
  ASSERT_EQ(registry().classes.size(), 1u);
  const ClassReg& cls = registry().classes[0];
  EXPECT_EQ(cls.name, "MemoryBlockVEK");
  EXPECT_EQ(cls.recordVersion, GetParam().recordVersion);
  EXPECT_EQ(cls.recordWords.size(), GetParam().recordVersion == 9 ? 25u : 29u);
  EXPECT_EQ(cls.dataSize, 32);
  EXPECT_EQ(cls.flags, 4);
  ASSERT_EQ(cls.methods.size(), 3u);
  EXPECT_EQ(cls.methods[0].declaration, "Resize(Size as Int64) as boolean");
  EXPECT_EQ(cls.methods[1].declaration, "Close");
  EXPECT_EQ(cls.methods[2].declaration, "Create(size as Int64) as boolean");
  EXPECT_EQ(cls.dispose, cls.methods[1].function) << "Close is also the dispose function";
  for (const MethodReg& m : cls.methods) {
    EXPECT_EQ(m.flags, 4);
    EXPECT_EQ(m.setter, nullptr);
    EXPECT_EQ(m.recordWords.size(), methodWords());
  }
  ASSERT_EQ(cls.properties.size(), 3u);
  const char* names[] = {"Address", "Size", "Memory"};
  const char* types[] = {"Int64", "Int64", "Memoryblock"};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(cls.properties[i].name, names[i]);
    EXPECT_EQ(cls.properties[i].type, types[i]);
    EXPECT_EQ(cls.properties[i].flags, 6);
    EXPECT_NE(cls.properties[i].getter, nullptr);
    EXPECT_EQ(cls.properties[i].setter, nullptr);
    EXPECT_EQ(cls.properties[i].recordWords.size(), propertyWords());
  }
}

TEST_P(Registration, MemoryBlockExtension) {
  if (GetParam().path == Path::Modules) {
    EXPECT_TRUE(registry().extensions.empty()) << "module hosts get no class extension";
    return;
  }
  ASSERT_EQ(registry().extensions.size(), 1u);
  const ClassReg& ext = registry().extensions[0];
  EXPECT_EQ(ext.name, "MemoryBlock");
  EXPECT_EQ(ext.recordVersion, GetParam().recordVersion);
  EXPECT_EQ(ext.recordWords.size(), GetParam().recordVersion == 9 ? 25u : 29u);
  EXPECT_EQ(ext.dataSize, 0);
  EXPECT_EQ(ext.dispose, nullptr);
  EXPECT_EQ(ext.flags, 4);
  ASSERT_EQ(ext.methods.size(), 45u);
  for (size_t i = 0; i < 45; ++i) {
    const MethodReg& m = ext.methods[i];
    SCOPED_TRACE(m.declaration);
    EXPECT_EQ(m.declaration, kExtensionDeclarations[i]);
    EXPECT_EQ(m.flags, 4);
    EXPECT_NE(m.function, nullptr);
    EXPECT_EQ(m.setter != nullptr, assignable(m.declaration));
    EXPECT_EQ(m.recordWords.size(), methodWords());
    EXPECT_EQ(m.word4, 0u);
    EXPECT_EQ(m.word5, 0u);
  }
  ASSERT_EQ(ext.properties.size(), 1u);
  EXPECT_EQ(ext.properties[0].name, "BytesVEK");
  EXPECT_EQ(ext.properties[0].type, "Integer");
  EXPECT_EQ(ext.properties[0].flags, 6);
  EXPECT_NE(ext.properties[0].getter, nullptr);
  EXPECT_EQ(ext.properties[0].recordWords.size(), propertyWords());
}

TEST_P(Registration, ExtensionModule) {
  auto module = std::find_if(registry().modules.begin(), registry().modules.end(),
                             [](const ModuleReg& m) { return m.name == "MemoryBlockMemoryblockExtensionVEK"; });
  if (GetParam().path == Path::ClassExtension) {
    EXPECT_EQ(module, registry().modules.end());
    return;
  }
  ASSERT_NE(module, registry().modules.end());
  EXPECT_EQ(module->recordVersion, GetParam().recordVersion);
  ASSERT_EQ(module->recordWords.size(), 24u);
  for (size_t w = 4; w < 24; ++w) EXPECT_EQ(module->recordWords[w], 0u) << "word " << w;
  ASSERT_EQ(module->methods.size(), 47u);
  for (const MethodReg& entry : module->methods) {
    EXPECT_EQ(entry.flags, 20) << entry.declaration;
    EXPECT_EQ(entry.setter, nullptr);
    EXPECT_NE(entry.function, nullptr);
  }
  // Entries 17-18 and 36-37 (counting from 1): setter entry, then function.
  EXPECT_EQ(module->methods[16].declaration,
            "OSTypeVEK(extends ref as MemoryBlock, offset as Integer, assigns value as String)");
  EXPECT_EQ(module->methods[17].declaration, "OSTypeVEK(extends ref as MemoryBlock, offset as Integer) as String");
  EXPECT_EQ(module->methods[35].declaration,
            "FSSpecVEK(extends ref as MemoryBlock, offset as Integer, assigns value as FolderItem)");
  EXPECT_EQ(module->methods[36].declaration,
            "FSSpecVEK(extends ref as MemoryBlock, offset as Integer) as FolderItem");
  EXPECT_EQ(module->methods[37].declaration,
            "MidVEK(extends ref as MemoryBlock, offset as integer) as Memoryblock");
  EXPECT_NE(module->methods[16].function, module->methods[17].function);
  EXPECT_EQ(module->methods[0].declaration,
            "ConvertRGB12BitTo8BitVEK(extends ref as MemoryBlock, Width as Integer)");

  // Apart from the setter entries, the entries are the 45 records in order.
  std::vector<std::string> functions;
  for (const MethodReg& entry : module->methods) {
    if (entry.declaration.find("assigns value") == std::string::npos) {
      functions.push_back(without_class_parameter(entry.declaration));
    }
  }
  EXPECT_EQ(functions, std::vector<std::string>(std::begin(kExtensionDeclarations), std::end(kExtensionDeclarations)));
}

TEST_P(Registration, GlobalMethods) {
  if (GetParam().path == Path::ClassExtension) {
    ASSERT_EQ(registry().globals.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
      EXPECT_EQ(registry().globals[i].declaration, kGlobals[i]);
      EXPECT_EQ(registry().globals[i].flags, 4);
      EXPECT_EQ(registry().globals[i].recordWords.size(), 6u);
    }
    return;
  }
  EXPECT_TRUE(registry().globals.empty());
  auto module = std::find_if(registry().modules.begin(), registry().modules.end(),
                             [](const ModuleReg& m) { return m.name == "MemoryblockGlobalsVEK"; });
  ASSERT_NE(module, registry().modules.end());
  EXPECT_EQ(module->recordVersion, GetParam().recordVersion);
  ASSERT_EQ(module->methods.size(), 2u);
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(module->methods[i].declaration, kGlobals[i]) << "global declarations are not rewritten";
    EXPECT_EQ(module->methods[i].flags, 20);
  }
}

INSTANTIATE_TEST_SUITE_P(HostVersions, Registration, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

// -- hosts that lack registration services -----------------------------------

struct Loaded {
  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> plugin;
};

Loaded load_without(std::optional<double> version, std::initializer_list<const char*> missing) {
  HostConfig config;
  config.version = version;
  for (const char* name : missing) config.missing.insert(name);
  Loaded loaded{std::make_unique<SimHost>(config), std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH)};
  loaded.plugin->start(*loaded.host);
  return loaded;
}

TEST(RegistrationWithoutServices, NoPluginRegisterMethodStillRegistersBothClasses) {
  for (std::optional<double> version : {std::optional<double>(3000.0), std::optional<double>()}) {
    Loaded l = load_without(version, {"PluginRegisterMethod"});
    EXPECT_TRUE(l.host->registry().globals.empty());
    EXPECT_EQ(l.host->registry().classes.size(), 1u);
    EXPECT_EQ(l.host->registry().extensions.size(), 1u);
    EXPECT_EQ(l.host->lookups("PluginRegisterMethod"), 2) << "asked again for the second record";
  }
}

TEST(RegistrationWithoutServices, NoVersionServiceMeansRecordVersion9) {
  Loaded l = load_without(std::nullopt, {});
  EXPECT_EQ(l.host->registry().pluginVersion, 9);
  EXPECT_EQ(l.host->lookups("REALGetRBVersion"), 1);
}

TEST(RegistrationWithoutServices, NothingToRegisterWith) {
  Loaded l = load_without(2020.0, {"RegisterPluginVersion", "PluginRegisterModule", "PluginRegisterClass"});
  EXPECT_FALSE(l.host->registry().pluginVersion.has_value());
  EXPECT_TRUE(l.host->registry().modules.empty());
  EXPECT_TRUE(l.host->registry().classes.empty());
  EXPECT_TRUE(LedgerBalanced(*l.host));
}

TEST(RegistrationWithoutServices, VersionServicesAreAskedForOnce) {
  Loaded l = load_without(3000.0, {});
  EXPECT_EQ(l.host->lookups("REALGetRBVersion"), 1);
  EXPECT_EQ(l.host->lookups("RegisterPluginVersion"), 1);
}

// -- out of memory while registering ----------------------------------------

// Fails the plug-in's first, second, ... allocation until REALPluginMain runs
// through, on every registration path. What could not be built is not
// registered at all: a module or a converted class is complete or absent,
// never partial. The class-extension paths of record versions 10 to 13
// build nothing and so have no allocation to fail.
TEST(RegistrationOutOfMemory, EveryAllocationPoint) {
  const struct {
    const char* name;
    std::optional<double> version;
    bool allocates;
  } paths[] = {
      {"class extension", 3000.0, false}, {"record version 10", 2012.5, false},
      {"modules", 2020.0, true},
      {"record version 9", 2011.0, true}, {"no version", std::nullopt, true},
  };
  for (const auto& path : paths) {
    SCOPED_TRACE(path.name);
    int points = 0;
    for (int k = 1;; ++k) {
      SCOPED_TRACE(k);
      HostConfig config;
      config.version = path.version;
      SimHost host(config);
      LoadedPlugin plugin(VEK_PLUGIN_PATH);
      ASSERT_GT(AllocFaults::install(plugin.dlHandle()), 0);
      AllocFaults::reset();
      AllocFaults::armFailure(k);
      plugin.start(host);
      bool failed = AllocFaults::allocations() >= k;
      AllocFaults::reset();

      const Registry& registry = host.registry();
      for (const ModuleReg& module : registry.modules) {
        EXPECT_EQ(module.methods.size(), module.name == "MemoryblockGlobalsVEK" ? 2u : 47u) << module.name;
      }
      for (const ClassReg& cls : registry.classes) EXPECT_EQ(cls.methods.size(), 3u);
      for (const ClassReg& ext : registry.extensions) EXPECT_EQ(ext.methods.size(), 45u);
      EXPECT_TRUE(LedgerBalanced(host));
      EXPECT_TRUE(RaisedNothing(host));
      if (!failed) {
        size_t registered = registry.modules.size() + registry.classes.size() + registry.extensions.size();
        bool modules = path.version && *path.version >= 2013.0 && *path.version < 3000.0;
        EXPECT_EQ(registered, modules ? 3u : 2u) << "with every allocation granted, everything is registered";
        break;
      }
      ++points;
    }
    EXPECT_EQ(points > 0, path.allocates) << points << " allocation points";
    std::cout << "[ points   ] REALPluginMain, " << path.name << ": " << points << "\n";
  }
}

// The host's own failures cannot reach registration: REALPluginMain asks for
// no block and no string, so a host whose "newMemoryBlock" and string
// services all fail still gets everything registered, on every path.
TEST(RegistrationOutOfMemory, HostFailuresDoNotReachRegistration) {
  for (std::optional<double> version : {std::optional<double>(3000.0), std::optional<double>(2020.0),
                                        std::optional<double>(2011.0), std::optional<double>()}) {
    for (NewBlockFailure mode : {NewBlockFailure::ReturnNull, NewBlockFailure::ThrowBadAlloc}) {
      HostConfig config;
      config.version = version;
      config.throwing = {"REALBuildString", "REALBuildStringWithEncoding", "REALConvertString"};
      SimHost host(config);
      host.failNewMemoryBlock(mode);
      LoadedPlugin plugin(VEK_PLUGIN_PATH);
      plugin.start(host);
      EXPECT_EQ(host.newMemoryBlockCalls(), 0);
      EXPECT_EQ(plugin.extensions().size(), 45u);
      EXPECT_EQ(host.registry().classes.size(), 1u);
      EXPECT_TRUE(LedgerBalanced(host));
      EXPECT_TRUE(RaisedNothing(host));
    }
  }
}
}  // namespace
