// The caller: the calls built from registered declarations take the kinds the
// interface document gives, on every host version, and do what the reference
// says the methods do.
#include <cstring>

#include "host/caller.h"
#include "tests/support/plugin_test.h"

namespace {
using caller::Kind;
using caller::Registered;
using caller::Role;
using caller::Value;
using B = REALmemoryBlock;

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
// address, setters' values, getters' ignored word. (The calls below show
// the kinds they spell, with their defaults and cases.)
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
      {"FooVEK(x Integer)", "is not \"name as Type\""},
      {"FooVEK(x as Integer", "no closing parenthesis"},
      {"FooVEK(x as Integer, assigns y as Integer, z as Integer)", "\"assigns\""},
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
  caller::Signature two{"F", {Kind::Integer, Kind::Integer}, Kind::None};
  EXPECT_THROW(caller::call(nullptr, two, std::vector<Value>{Value::integer(1)}), std::invalid_argument);
  EXPECT_THROW(caller::call(nullptr, two, std::vector<Value>{Value::integer(1), Value::int64(2)}),
               std::invalid_argument);
}

// -- calls built from declarations -------------------------------------------

// One call of each kind of argument and result, against the reference's
// worked results: handles by what they hold, addresses by their offset into
// the receiving block.
class CallerCalls : public PluginTest {
 protected:
  std::string seen(const Value& v, B block) {
    auto offset = [&](uint64_t address) {
      return "block+" + std::to_string(address - reinterpret_cast<uintptr_t>(host().bytes(block).data()));
    };
    switch (v.kind) {
      case Kind::MemoryBlock: {
        std::string text = "block";
        for (uint8_t byte : take_block(static_cast<B>(v.p)).value_or(Bytes{})) text += " " + std::to_string(byte);
        return text;
      }
      case Kind::String: return take_string(static_cast<REALstring>(v.p)).value_or("nil");
      case Kind::Ptr: return offset(reinterpret_cast<uintptr_t>(v.p));
      case Kind::UInt64: return offset(v.u);
      default: return std::string(caller::kind_name(v.kind)) + " " + std::to_string(v.i);
    }
  }
  // Guarded raw bytes, as a Ptr argument reads them.
  uint8_t* raw(const Bytes& bytes) {
    uint8_t* buffer = host().rawBuffer(bytes.size());
    std::memcpy(buffer, bytes.data(), bytes.size());
    return buffer;
  }
};

TEST_P(CallerCalls, EveryKindOfArgumentAndResult) {
  uint8_t* source = raw({9, 8, 7, 6});
  uint8_t* handle = host().rawBuffer(sizeof source);
  std::memcpy(handle, &source, sizeof source);
  const struct {
    const char* key;
    Role role;
    Bytes block;  // the receiver's bytes, before and after
    std::vector<caller::Arg> args;  // after the receiver
    std::string result;
    Bytes after;
  } rows[] = {
      // A Boolean of byte 2 is true: signed minimum.
      {"MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as "
       "Integer = 0, lengthBytes as integer = 0) as boolean",
       Role::Method, Bytes(4), {raw({0x80, 0x01, 0x7F, 0xFF}), raw({0x01, 0x80, 0x00, 0x01}), 8, 2, 0, 4},
       "Boolean 1", {0x80, 0x80, 0x00, 0xFF}},
      {"FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer", Role::Method,
       {1, 2, 3, 4, 5}, {1, 4, 4}, "Integer 3", {1, 2, 3, 4, 5}},
      {"AddressVEK(offset as Int64 = 0) as UInt64", Role::Method, Bytes(8), {3}, "block+3", Bytes(8)},
      {"AddressPtrVEK(offset as Int64 = 0) as Ptr", Role::Method, Bytes(8), {5}, "block+5", Bytes(8)},
      {"MidVEK(offset As Integer, length As Integer) as Memoryblock", Role::Method, {1, 2, 3, 4, 5, 6, 7, 8}, {2, 3},
       "block 3 4 5", {1, 2, 3, 4, 5, 6, 7, 8}},
      {"GetStringVEK(offset as Integer, numBytes as Integer) as String", Role::Method, {'A', 'B', 'C', 'D', 'E', 'F'},
       {1, 4}, "BCDE", {'A', 'B', 'C', 'D', 'E', 'F'}},
      {"OSTypeVEK(offset as Integer) as String", Role::Setter, Bytes(8),
       {2, host().newString("WXYZ", kEncodingASCII)}, "nothing 0", {0, 0, 'Z', 'Y', 'X', 'W', 0, 0}},
      {"CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)", Role::Method,
       Bytes(8), {reinterpret_cast<intptr_t>(handle), 4, 2}, "nothing 0", {0, 0, 9, 8, 7, 6, 0, 0}},
      {"MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)", Role::Method,
       {10, 20, 30, 200}, {1.5, 0, 4}, "nothing 0", {15, 30, 45, 255}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.key);
    B receiver = block(row.block);
    std::vector<caller::Arg> args = row.args;
    args.insert(args.begin(), caller::Arg(receiver));
    const caller::Registered& r = caller::find_call(calls_, row.key, row.role);
    std::vector<Value> values;
    for (size_t i = 0; i < args.size(); ++i) values.push_back(caller::value_of(r.signature.args[i], args[i]));
    Value result = caller::call(r, values);
    EXPECT_EQ(seen(result, receiver), row.result);
    EXPECT_EQ(bytes(receiver), row.after);
  }
}

// The class: an Int64 argument, a Boolean result and an Int64 property.
TEST_P(CallerCalls, MemoryBlockVEK) {
  REALobject object = host().newInstance("MemoryBlockVEK");
  EXPECT_EQ(call("Create(size as Int64) as boolean", object, 0x50000), Value::boolean(1));
  EXPECT_EQ(call_as(Role::Getter, "Size", {object, 0}), Value::int64(0x50000));
  host().release(object);
}

INSTANTIATE_ON_EVERY_HOST(CallerCalls);
}  // namespace
