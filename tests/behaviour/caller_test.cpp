// The caller: every registered declaration parses on every host version into
// the kinds the interface document gives, and calls built from declarations
// do what the typed calls do.
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "host/caller.h"

#include "tests/support/plugin_test.h"

namespace {
using caller::Kind;
using caller::Registered;
using caller::Role;
using caller::Value;
using B = REALmemoryBlock;

// The document's table of declared types, and its three Integers that carry
// an address.
const std::map<std::string, Kind> kDeclaredTypes = {
    {"integer", Kind::Integer}, {"int64", Kind::Int64},   {"uint64", Kind::UInt64},
    {"double", Kind::Double},   {"boolean", Kind::Boolean}, {"ptr", Kind::Ptr},
    {"string", Kind::String},   {"memoryblock", Kind::MemoryBlock}, {"folderitem", Kind::FolderItem},
};
const std::set<std::string> kAddressParameters = {
    "NewMemoryBlockFromPtrVEK ptr", "CopyBytesToMacHandleVEK destHandle", "CopyBytesFromMacHandleVEK srcHandle"};

Kind declared(std::string type) {
  for (char& c : type) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return kDeclaredTypes.at(type);
}

// Each "name as Type" of a text read as a stream of words; the result type's
// name is ")".
std::vector<std::pair<std::string, std::string>> as_pairs(const std::string& text) {
  std::vector<std::string> w(1);
  for (char c : text + " ") {
    if (c == ' ' || c == ',' || c == '(' || c == ')') {
      if (!w.back().empty()) w.emplace_back();
      if (c == ')') {
        w.back() = ")";
        w.emplace_back();
      }
    } else {
      w.back() += c;
    }
  }
  std::vector<std::pair<std::string, std::string>> pairs;
  for (size_t i = 1; i + 1 < w.size(); ++i) {
    if (w[i] == "as" || w[i] == "As" || w[i] == "AS") pairs.emplace_back(w[i - 1], w[i + 1]);
  }
  return pairs;
}

// What a host calls the function with, read off its declaration and place.
std::pair<std::vector<Kind>, Kind> expected_kinds(const Registered& r) {
  Kind receiver = r.owner == "MemoryBlock" ? Kind::MemoryBlock : Kind::Object;
  auto pairs = as_pairs(r.declaration);
  if (r.role == Role::Getter) return {{receiver, Kind::Integer}, declared(pairs.at(0).second)};
  if (r.role == Role::PropertySetter) return {{receiver, Kind::Integer, declared(pairs.at(0).second)}, Kind::None};

  std::vector<Kind> args;
  // The module form declares its receiver ("extends ref as MemoryBlock").
  if (r.owner == "MemoryBlock" || r.owner == "MemoryBlockVEK") args.push_back(receiver);
  std::string method = r.declaration.substr(0, r.declaration.find_first_of("( "));
  Kind result = Kind::None;
  for (const auto& [name, type] : pairs) {
    if (name == ")") {
      result = declared(type);
    } else {
      args.push_back(kAddressParameters.contains(method + " " + name) ? Kind::Address : declared(type));
    }
  }
  if (r.role == Role::Setter && r.declaration.find("assigns ") == std::string::npos) args.push_back(result);
  if (r.role == Role::Setter) result = Kind::None;
  return {args, result};
}

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

class CallerRegistry : public ::testing::TestWithParam<Version> {};

TEST_P(CallerRegistry, EveryDeclarationParsesIntoItsDocumentedKinds) {
  SimHost host(HostConfig{.version = GetParam().version});
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  std::vector<Registered> calls = caller::registered_calls(host.registry());
  EXPECT_EQ(calls.size(), GetParam().calls);
  for (const Registered& r : calls) {
    auto [args, result] = expected_kinds(r);
    EXPECT_EQ(kinds_text(r.signature.args, r.signature.result), kinds_text(args, result)) << r.declaration;
    EXPECT_EQ(r.signature.receiver, !r.owner.empty() && r.owner != "MemoryblockGlobalsVEK") << r.declaration;
    EXPECT_EQ(r.signature.assigns, r.role == Role::Setter || r.role == Role::PropertySetter) << r.declaration;
  }
}

// The arguments the declaration does not spell, pinned down where they arise.
TEST_P(CallerRegistry, ReceiversHandlesSettersAndGettersTakeTheirDocumentedArguments) {
  SimHost host(HostConfig{.version = GetParam().version});
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.start(host);
  std::vector<Registered> calls = caller::registered_calls(host.registry());
  const struct {
    Role role;
    const char* key;
    std::vector<Kind> args;
    Kind result;
  } rows[] = {
      {Role::Method, "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
       {Kind::MemoryBlock, Kind::Integer, Kind::Integer, Kind::Address}, Kind::None},
      {Role::Method, "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)",
       {Kind::MemoryBlock, Kind::Address, Kind::Integer, Kind::Integer}, Kind::None},
      {Role::Method, "NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock", {Kind::Address}, Kind::MemoryBlock},
      {Role::Method, "NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock",
       {Kind::Ptr, Kind::Integer}, Kind::MemoryBlock},
      {Role::Setter, "OSTypeVEK(offset as Integer) as String",
       {Kind::MemoryBlock, Kind::Integer, Kind::String}, Kind::None},
      {Role::Setter, "FSSpecVEK(offset as Integer) as FolderItem",
       {Kind::MemoryBlock, Kind::Integer, Kind::FolderItem}, Kind::None},
      {Role::Method, "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, "
                     "offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
       {Kind::MemoryBlock, Kind::Ptr, Kind::Ptr, Kind::Integer, Kind::Boolean, Kind::Integer, Kind::Integer},
       Kind::Boolean},
      {Role::Method, "Close", {Kind::Object}, Kind::None},
      {Role::Getter, "Size", {Kind::Object, Kind::Integer}, Kind::Int64},
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

// -- calls through the caller against the typed calls ---------------------------

class CallerCalls : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    calls_ = caller::registered_calls(host().registry());
  }

  // A result as text the two calls are compared by: handles by what they
  // hold, addresses by their offset into the receiving block.
  std::string seen(const Value& v, B block) {
    auto offset = [&](uint64_t address) {
      return "block+" + std::to_string(address - reinterpret_cast<uintptr_t>(host().bytes(block).data()));
    };
    switch (v.kind) {
      case Kind::MemoryBlock: {
        auto b = take_block(static_cast<B>(v.p));
        return b ? ::testing::PrintToString(*b) : "nil";
      }
      case Kind::String: return take_string(static_cast<REALstring>(v.p)).value_or("nil");
      case Kind::Ptr: return offset(reinterpret_cast<uintptr_t>(v.p));
      case Kind::UInt64: return offset(v.u);
      case Kind::Double: return std::to_string(v.d);
      default: return std::string(caller::kind_name(v.kind)) + " " + std::to_string(v.i);
    }
  }

  std::vector<Registered> calls_;
};

// Guarded raw bytes, as a Ptr argument reads them.
uint8_t* raw(SimHost& host, const Bytes& bytes) {
  uint8_t* buffer = host.rawBuffer(bytes.size());
  std::memcpy(buffer, bytes.data(), bytes.size());
  return buffer;
}

struct CallRow {
  const char* key;
  Role role;
  Bytes block;  // the receiver's bytes
  std::function<std::vector<Value>(SimHost&)> args;  // after the receiver
  std::function<Value(const LoadedPlugin&, B, const std::vector<Value>&)> typed;
};

TEST_P(CallerCalls, AgreeWithTheTypedCalls) {
  const CallRow rows[] = {
      {"MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as "
       "Integer = 0, lengthBytes as integer = 0) as boolean",
       Role::Method, Bytes(4),
       [](SimHost& h) {
         return std::vector<Value>{Value::handle(Kind::Ptr, raw(h, {0x80, 0x01, 0x7F, 0xFF})),
                                   Value::handle(Kind::Ptr, raw(h, {0x01, 0x80, 0x00, 0x01})), Value::integer(8),
                                   Value::boolean(2), Value::integer(0), Value::integer(4)};
       },
       [](const LoadedPlugin& p, B b, const std::vector<Value>& a) {
         return Value::boolean(p.method<bool(B, void*, void*, int32_t, uint8_t, int32_t, int32_t)>(
             "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, "
             "offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean")(b, a[0].p, a[1].p, 8, 2, 0, 4));
       }},
      {"FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer", Role::Method,
       {1, 2, 3, 4, 5}, [](SimHost&) { return std::vector{Value::integer(1), Value::integer(4), Value::integer(4)}; },
       [](const LoadedPlugin& p, B b, const std::vector<Value>&) {
         return Value::integer(p.method<int32_t(B, int32_t, int32_t, int32_t)>(
             "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer")(b, 1, 4, 4));
       }},
      {"AddressVEK(offset as Int64 = 0) as UInt64", Role::Method, Bytes(8),
       [](SimHost&) { return std::vector{Value::int64(3)}; },
       [](const LoadedPlugin& p, B b, const std::vector<Value>&) {
         return Value::uint64(p.method<uint64_t(B, int64_t)>("AddressVEK(offset as Int64 = 0) as UInt64")(b, 3));
       }},
      {"AddressPtrVEK(offset as Int64 = 0) as Ptr", Role::Method, Bytes(8),
       [](SimHost&) { return std::vector{Value::int64(5)}; },
       [](const LoadedPlugin& p, B b, const std::vector<Value>&) {
         return Value::handle(Kind::Ptr, p.method<void*(B, int64_t)>("AddressPtrVEK(offset as Int64 = 0) as Ptr")(b, 5));
       }},
      {"MidVEK(offset As Integer, length As Integer) as Memoryblock", Role::Method, {1, 2, 3, 4, 5, 6, 7, 8},
       [](SimHost&) { return std::vector{Value::integer(2), Value::integer(3)}; },
       [](const LoadedPlugin& p, B b, const std::vector<Value>&) {
         return Value::handle(Kind::MemoryBlock, p.method<B(B, int32_t, int32_t)>(
                                                     "MidVEK(offset As Integer, length As Integer) as Memoryblock")(b, 2, 3));
       }},
      {"GetStringVEK(offset as Integer, numBytes as Integer) as String", Role::Method, {'A', 'B', 'C', 'D', 'E', 'F'},
       [](SimHost&) { return std::vector{Value::integer(1), Value::integer(4)}; },
       [](const LoadedPlugin& p, B b, const std::vector<Value>&) {
         return Value::handle(Kind::String, p.method<REALstring(B, int32_t, int32_t)>(
                                                "GetStringVEK(offset as Integer, numBytes as Integer) as String")(b, 1, 4));
       }},
      {"OSTypeVEK(offset as Integer) as String", Role::Setter, Bytes(8),
       [](SimHost& h) {
         return std::vector{Value::integer(2), Value::handle(Kind::String, h.newString("WXYZ", kEncodingASCII))};
       },
       [](const LoadedPlugin& p, B b, const std::vector<Value>& a) {
         p.setter<void(B, int32_t, REALstring)>("OSTypeVEK(offset as Integer) as String")(b, 2,
                                                                                          static_cast<REALstring>(a[1].p));
         return Value::none();
       }},
      {"CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)", Role::Method,
       Bytes(8),
       [](SimHost& h) {
         uint8_t* bytes = raw(h, {9, 8, 7, 6});
         uint8_t* handle = h.rawBuffer(sizeof bytes);
         std::memcpy(handle, &bytes, sizeof bytes);
         return std::vector{Value::address(reinterpret_cast<intptr_t>(handle)), Value::integer(4), Value::integer(2)};
       },
       [](const LoadedPlugin& p, B b, const std::vector<Value>& a) {
         p.method<void(B, intptr_t, int32_t, int32_t)>(
             "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)")(
             b, static_cast<intptr_t>(a[0].i), 4, 2);
         return Value::none();
       }},
      {"MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)", Role::Method,
       {10, 20, 30, 200}, [](SimHost&) { return std::vector{Value::real(1.5), Value::integer(0), Value::integer(4)}; },
       [](const LoadedPlugin& p, B b, const std::vector<Value>&) {
         p.method<void(B, double, int32_t, int32_t)>(
             "MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)")(b, 1.5, 0, 4);
         return Value::none();
       }},
  };
  for (const CallRow& row : rows) {
    SCOPED_TRACE(row.key);
    std::vector<Value> args = row.args(host());
    B typed_block = block(row.block);
    B called_block = block(row.block);
    Value typed = row.typed(plugin(), typed_block, args);
    args.insert(args.begin(), Value::handle(Kind::MemoryBlock, called_block));
    Value called = caller::call(caller::find_call(calls_, row.key, row.role), args);
    EXPECT_EQ(seen(called, called_block), seen(typed, typed_block));
    EXPECT_EQ(bytes(called_block), bytes(typed_block));
  }
}

// The class: an Int64 argument, a Boolean result and an Int64 property.
TEST_P(CallerCalls, MemoryBlockVEKAgreesWithTheTypedCalls) {
  using Create = bool(REALobject, int64_t);
  using Size = int64_t(REALobject, int32_t);
  REALobject typed = host().newInstance("MemoryBlockVEK");
  REALobject called = host().newInstance("MemoryBlockVEK");
  const Registered& create = caller::find_call(calls_, "Create(size as Int64) as boolean");
  const Registered& size = caller::find_call(calls_, "Size", Role::Getter);

  bool created = plugin().classMember<Create>("MemoryBlockVEK", "Create(size as Int64) as boolean")(typed, 0x50000);
  EXPECT_EQ(caller::call(create, {Value::handle(Kind::Object, called), Value::int64(0x50000)}),
            Value::boolean(created));
  int64_t typed_size = plugin().classMember<Size>("MemoryBlockVEK", "Size")(typed, 0);
  EXPECT_EQ(caller::call(size, {Value::handle(Kind::Object, called), Value::integer(0)}), Value::int64(typed_size));
  EXPECT_EQ(typed_size, 0x50000);
  host().release(typed);
  host().release(called);
}

INSTANTIATE_ON_EVERY_HOST(CallerCalls);
}  // namespace
