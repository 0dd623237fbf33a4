// The caller: the calls built from registered declarations take the kinds the
// interface document gives, on every host version. (What the calls do is
// every other suite's; they all call through it.)
#include "host/caller.h"
#include "tests/support/plugin_test.h"

namespace {
using caller::Kind;
using caller::Registered;
using caller::Role;

std::string kinds_text(const std::vector<Kind>& args, Kind result) {
  std::string text;
  for (Kind kind : args) text += std::string(caller::kind_name(kind)) + ", ";
  return text + "-> " + caller::kind_name(result);
}

// -- every registration path ---------------------------------------------------

struct Version {
  std::string name;
  std::optional<double> version;
  size_t calls;  // functions registered: methods, setters, property getters
};
// Printed by name: gtest would otherwise dump the bytes, padding included.
void PrintTo(const Version& v, std::ostream* out) { *out << v.name; }

class CallerRegistry : public ::testing::TestWithParam<Version> {};

// What the declarations do not spell: receivers, Integers that carry an
// address, setters' values, getters' ignored word; and an overloaded name
// (FSSpecVEK) told apart by its role.
TEST_P(CallerRegistry, CallsTakeTheirDocumentedArguments) {
  SimHost host(HostConfig{.version = GetParam().version});
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  std::vector<Registered> calls = caller::registered_calls(host.registry());
  EXPECT_EQ(calls.size(), GetParam().calls);
  for (const Registered& r : calls) {
    EXPECT_EQ(r.signature.receiver, !r.owner.empty() && r.owner != "MemoryblockGlobalsVEK") << r.declaration;
    EXPECT_EQ(r.signature.assigns, r.role == Role::Setter || r.role == Role::PropertySetter) << r.declaration;
  }
  const struct {
    Role role;
    const char* key;
    std::vector<Kind> args;
    Kind result;
  } rows[] = {
      {Role::Method, "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
       {Kind::MemoryBlock, Kind::Integer, Kind::Integer, Kind::Address}, Kind::None},
      {Role::Method, "NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock", {Kind::Address}, Kind::MemoryBlock},
      {Role::Method, "NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock",
       {Kind::Ptr, Kind::Integer}, Kind::MemoryBlock},
      {Role::Setter, "FSSpecVEK(offset as Integer) as FolderItem",
       {Kind::MemoryBlock, Kind::Integer, Kind::FolderItem}, Kind::None},
      {Role::Method, "FSSpecVEK(offset as Integer) as FolderItem", {Kind::MemoryBlock, Kind::Integer},
       Kind::FolderItem},
      {Role::Method, "SetStringVEK(str as String, offset as Integer)",
       {Kind::MemoryBlock, Kind::String, Kind::Integer}, Kind::None},
      {Role::Method, "Close", {Kind::Object}, Kind::None},
      {Role::Getter, "Memory", {Kind::Object, Kind::Integer}, Kind::MemoryBlock},
  };
  for (const auto& row : rows) {
    const Registered& r = caller::find_call(calls, row.key, row.role);
    EXPECT_EQ(kinds_text(r.signature.args, r.signature.result), kinds_text(row.args, row.result)) << row.key;
  }
  if (!host.registry().extensions.empty()) {  // hosts of modules take no extension property
    const Registered& bytes = caller::find_call(calls, "BytesVEK", Role::Getter);
    EXPECT_EQ(kinds_text(bytes.signature.args, bytes.signature.result),
              kinds_text({Kind::MemoryBlock, Kind::Integer}, Kind::Integer));
  }
}

// Class extension on record versions 9 to 13, then modules, then the class
// extension again; 48 extension functions (45 methods, 2 setters, BytesVEK),
// 6 of the class, 2 globals; modules carry no BytesVEK.
INSTANTIATE_TEST_SUITE_P(Versions, CallerRegistry,
                         ::testing::Values(Version{"none", std::nullopt, 56}, Version{"v2011", 2011.0, 56},
                                           Version{"v2012_5", 2012.5, 56}, Version{"v2013", 2013.0, 55},
                                           Version{"v2013_03", 2013.03, 55}, Version{"v2013_04", 2013.04, 55},
                                           Version{"v2020", 2020.0, 55}, Version{"v3000", 3000.0, 56}),
                         [](const auto& info) { return info.param.name; });

TEST(CallerDeclarations, ThoseThatCannotBeCalledAreRefusedByName) {
  const struct {
    const char* declaration;
    const char* why;
  } rows[] = {
      {"FooVEK(x as Single) as Integer", "unknown type \"Single\""},
      {"FooVEK(x as Integer) as Currency", "unknown type \"Currency\""},
  };
  for (const auto& row : rows) {
    try {
      caller::parse_declaration(row.declaration);
      ADD_FAILURE() << row.declaration << " parsed";
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find(row.why), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find(row.declaration), std::string::npos) << error.what();
    }
  }
}
}  // namespace
