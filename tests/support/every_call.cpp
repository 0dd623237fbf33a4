#include "tests/support/every_call.h"

#include <cstring>
#include <span>

#include <gtest/gtest.h>

using B = REALmemoryBlock;

int64_t Caller::handed(const void* result) {
  if (result == nullptr) return 0;
  host.adopt(result);
  host.release(result);
  return 1;
}

std::vector<uint8_t> pattern(size_t size) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 37 + 11);
  return bytes;
}

Caller make_caller(SimHost& host, const LoadedPlugin& plugin) {
  uint8_t* raw = host.rawBuffer(64);
  uint8_t* handle = host.rawBuffer(sizeof(void*));
  std::memcpy(handle, &raw, sizeof raw);
  return Caller{host,   plugin, host.newBlock(64, 3), host.newString("ab", 0x600), host.newFolderItem({}), raw,
                handle, false, caller::registered_calls(host.registry())};
}


// Methods that read a reported size of 0 as "not known" trust the caller's
// range; a caller of the empty block asks them for no bytes.
namespace {
int32_t within(Caller& c, B b, int32_t count) { return b != nullptr && c.host.size(b) == 0 ? 0 : count; }

}  // namespace

namespace {
using Args = std::vector<caller::Arg>;

// One extension method's ordinary call: the arguments after the block, and
// for an assignable method the value assigned before the read.
struct ExtensionRow {
  const char* declaration;
  Args (*args)(Caller& c, B b);
  const void* (*assigned)(Caller& c) = nullptr;
};

int32_t records_of(Caller& c, B b) { return b != nullptr ? c.host.size(b) / 8 : 4; }

// Ordinary arguments: small offsets and counts inside a 64-byte block.
const ExtensionRow kExtensionRows[] = {
    // a block of size 0 is trusted with the count: counts here fit the block
    {"ConvertRGB12BitTo8BitVEK(Width as Integer)",
     [](Caller& c, B b) -> Args { return {b != nullptr ? c.host.size(b) / 9 : 2}; }},
    {"_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as integer = 0)",
     [](Caller&, B) -> Args { return {1, 2, 3, 4, 5, 6, 7, 8, 0.1, 0, 0}; }},
    {"_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)",
     [](Caller&, B) -> Args { return {255, 0, 0, true}; }},
    {"_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)",
     [](Caller&, B) -> Args { return {255, 0, 0, true}; }},
    {"_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)",
     [](Caller& c, B b) -> Args { return {0, records_of(c, b), 1, 2, 4.0}; }},
    {"_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)",
     [](Caller& c, B b) -> Args { return {0, records_of(c, b), c.other}; }},
    {"_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)",
     [](Caller& c, B b) -> Args { return {0, records_of(c, b), c.other}; }},
    {"MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)",
     [](Caller&, B) -> Args { return {1.5, 0, 0}; }},
    {"MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)",
     [](Caller&, B) -> Args { return {1.5, 0, 0}; }},
    // The rest of the block from 48: 16 bytes of the 64-byte block, none of an
    // empty one (whose size 0 would make an explicit length the caller's).
    {"MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
     [](Caller& c, B) -> Args { return {c.raw, c.raw ? c.raw + 32 : nullptr, 8, false, 48, 0}; }},
    {"MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
     [](Caller& c, B) -> Args { return {c.raw, c.raw ? c.raw + 32 : nullptr, 8, false, 48, 0}; }},
    {"MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)",
     [](Caller& c, B b) -> Args { return {0, within(c, b, 8)}; }},
    {"MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)", [](Caller&, B) -> Args { return {0, -1}; }},
    {"MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)",
     [](Caller& c, B b) -> Args { return {3, within(c, b, 20)}; }},
    {"AddressVEK(offset as Int64 = 0) as UInt64", [](Caller&, B) -> Args { return {0}; }},
    {"AddressPtrVEK(offset as Int64 = 0) as Ptr", [](Caller&, B) -> Args { return {0}; }},
    {"OSTypeVEK(offset as Integer) as String", [](Caller&, B) -> Args { return {4}; },
     [](Caller& c) -> const void* { return c.text; }},
    {"GetStringVEK(offset as Integer, numBytes as Integer) as String", [](Caller&, B) -> Args { return {2, 5}; }},
    {"SetStringVEK(str as String, offset as Integer)", [](Caller& c, B) -> Args { return {c.text, 2}; }},
    {"SwapBytesVEK(offset as Integer, numBytes as Integer)", [](Caller& c, B b) -> Args { return {1, within(c, b, 100)}; }},
    {"SwapBytes16VEK(offset as Integer, numBytes as Integer)",
     [](Caller& c, B b) -> Args { return {1, within(c, b, 100)}; }},
    {"SwapBytes32VEK(offset as Integer, numBytes as Integer)",
     [](Caller& c, B b) -> Args { return {1, within(c, b, 100)}; }},
    {"BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean",
     [](Caller& c, B) -> Args { return {0, 8, c.other, 0}; }},
    {"BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean", [](Caller&, B) -> Args { return {0, 8}; }},
    {"FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
     [](Caller&, B) -> Args { return {0, 8, 0}; }},
    {"FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
     [](Caller&, B) -> Args { return {0, 8, 7}; }},
    {"CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)", [](Caller&, B) -> Args { return {0, 4, 2}; }},
    {"CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)",
     [](Caller& c, B) -> Args { return {0, 4, c.other, 2}; }},
    {"CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)",
     [](Caller& c, B) -> Args { return {0, 4, c.raw}; }},
    {"CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)",
     [](Caller& c, B) -> Args { return {c.raw, 4, 0}; }},
    {"CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
     [](Caller& c, B) -> Args { return {0, 4, reinterpret_cast<intptr_t>(c.handle)}; }},
    {"CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)",
     [](Caller& c, B) -> Args { return {reinterpret_cast<intptr_t>(c.handle), 4, 0}; }},
    {"FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer",
     [](Caller& c, B) -> Args { return {0, 0, c.text}; }},
    {"FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as Integer) as Integer",
     [](Caller& c, B) -> Args { return {0, 0, c.other, 0, 2}; }},
    {"FSSpecVEK(offset as Integer) as FolderItem", [](Caller&, B) -> Args { return {0}; },
     [](Caller& c) -> const void* { return c.folder; }},
    {"MidVEK(offset as integer) as Memoryblock", [](Caller&, B) -> Args { return {3}; }},
    {"MidVEK(offset As Integer, length As Integer) as Memoryblock", [](Caller&, B) -> Args { return {3, 100}; }},
    {"LeftVEK(length as integer) as Memoryblock", [](Caller&, B) -> Args { return {100}; }},
    {"RightVEK(length As Integer) as Memoryblock", [](Caller&, B) -> Args { return {100}; }},
    // the block itself, or nil where the caller's blocks are
    {"AppendVEK(other as Memoryblock) as Memoryblock",
     [](Caller& c, B b) -> Args { return {c.other != nullptr ? b : nullptr}; }},
    {"FillBytesVEK(offset as integer, count as integer, value as integer)", [](Caller&, B) -> Args { return {0, 0, 7}; }},
    {"InvertBytesVEK(offset as integer, count as integer)", [](Caller&, B) -> Args { return {0, 8}; }},
    {"CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean",
     [](Caller& c, B b) -> Args { return {c.other, 0, 0, 2, 4, within(c, b, 3)}; }},
    {"CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean",
     [](Caller& c, B b) -> Args { return {c.other, 3, 0, 4, 2, within(c, b, 3)}; }},
    {"ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = 255) as boolean",
     [](Caller& c, B b) -> Args { return {c.other, within(c, b, 1), 0, 255}; }},
};

Args with_first(caller::Arg first, Args rest) {
  rest.insert(rest.begin(), first);
  return rest;
}
}  // namespace

caller::Value Caller::invoke(std::string_view key, caller::Role role, std::span<const caller::Arg> args) {
  const caller::Registered& registered = caller::find_call(calls, key, role);
  return caller::call(registered, args, plugin.entryPoint(registered.function));
}

bool Caller::has(std::string_view key, caller::Role role) const {
  for (const caller::Registered& r : calls) {
    if (r.role == role && r.key == key) return true;
  }
  return false;
}

int64_t Caller::number(const caller::Value& result) {
  switch (result.kind) {
    case caller::Kind::None: return 0;
    case caller::Kind::UInt64: return result.u != 0;
    case caller::Kind::Ptr: return result.p != nullptr;
    case caller::Kind::String:
    case caller::Kind::MemoryBlock:
    case caller::Kind::FolderItem:
    case caller::Kind::Object: return handed(result.p);
    default: return result.i;
  }
}

const std::map<std::string, Call>& extension_calls() {
  static const std::map<std::string, Call> table = [] {
    std::map<std::string, Call> calls;
    for (const ExtensionRow& row : kExtensionRows) {
      calls[row.declaration] = [&row](Caller& c, B b) {
        Args args = with_first(b, row.args(c, b));
        if (c.negative) {
          const auto& kinds = caller::find_call(c.calls, row.declaration).signature.args;
          for (size_t k = 0; k < args.size(); ++k) {
            if (kinds[k] == caller::Kind::Integer || kinds[k] == caller::Kind::Int64) args[k] = -1;
          }
        }
        if (row.assigned != nullptr) {
          Args set = args;
          set.push_back(row.assigned(c));
          c.invoke(row.declaration, caller::Role::Setter, set);
        }
        return c.number(c.invoke(row.declaration, caller::Role::Method, args));
      };
    }
    return calls;
  }();
  return table;
}

// The exceptions a method of this plug-in may raise.
const std::set<std::pair<std::string, std::string>> kOwnExceptions = {
    {"NilObjectException", "memoryblock is nil"},
    {"NilObjectException", "ptr is nil"},
    {"UnsupportedOperationException", "offset < 0"},
};

// Every overload of these methods.
const std::set<std::string> kTrustSizeZero = [] {
  const std::set<std::string> names = {
      "InvertBytesVEK", "CopyBytesVEK",  "CopyBytesToMacPtrVEK", "CopyBytesFromMacPtrVEK", "CopyBytesToMacHandleVEK",
      "CopyBytesFromMacHandleVEK", "BytesEqualVEK", "BytesZeroVEK", "FindNotByteVEK", "FindByteVEK", "OSTypeVEK",
      "GetStringVEK", "SetStringVEK", "FSSpecVEK"};
  std::set<std::string> declarations;
  for (const ExtensionRow& row : kExtensionRows) {
    std::string declaration = row.declaration;
    if (names.count(declaration.substr(0, declaration.find('('))) != 0) declarations.insert(declaration);
  }
  return declarations;
}();

const std::map<std::string, OtherCall>& other_calls() {
  using caller::Role;
  static const std::map<std::string, OtherCall> table = {
      {"MemoryBlockVEK",
       [](Caller& c) {
         REALobject object = c.host.newInstance("MemoryBlockVEK");
         if (object == nullptr) return int64_t{0};
         auto member = [&](const char* key, Role role, Args args) {
           return c.number(c.invoke(key, role, with_first(object, std::move(args))));
         };
         int64_t made = member("Create(size as Int64) as boolean", Role::Method, {64});
         made += member("Resize(Size as Int64) as boolean", Role::Method, {96});
         made += member("Address", Role::Getter, {0}) != 0;
         made += member("Size", Role::Getter, {0}) != 0;
         made += member("Memory", Role::Getter, {0});
         member("Close", Role::Method, {});
         c.host.release(object);
         return made;
       }},
      {"BytesVEK",
       [](Caller& c) {
         if (!c.has("BytesVEK", Role::Getter)) return int64_t{-1};  // a host of modules takes no property
         return c.number(c.invoke("BytesVEK", Role::Getter, Args{c.other, 0}));
       }},
      {"NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock",
       [](Caller& c) {
         return c.number(c.invoke("NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock", Role::Method,
                                  Args{reinterpret_cast<intptr_t>(c.raw)}));
       }},
      {"NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock",
       [](Caller& c) {
         return c.number(c.invoke("NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock",
                                  Role::Method, Args{c.raw, 16}));
       }},
  };
  return table;
}

Workspace make_workspace(SimHost& host, const LoadedPlugin& plugin) {
  return {make_caller(host, plugin), host.newBlock(64, 0x5A)};
}

namespace {
std::vector<uint8_t> copy_of(std::span<const uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }
}  // namespace

Seen run_every_call(Workspace& space, int rounds) {
  Seen seen;
  Caller& c = space.caller;
  try {
    for (int round = 0; round < rounds; ++round) {
      for (const auto& [declaration, call] : extension_calls()) seen.results.emplace_back(declaration, call(c, space.block));
      for (const auto& [name, call] : other_calls()) seen.results.emplace_back(name, call(c));
    }
  } catch (const std::exception& e) {
    seen.failure = e.what();
  }
  seen.block = copy_of(c.host.bytes(space.block));
  seen.other = copy_of(c.host.bytes(c.other));
  seen.raw = copy_of({c.raw, 64});
  return seen;
}

void expect_same(const Seen& seen, const Seen& expected) {
  EXPECT_EQ(seen.failure, "");
  EXPECT_EQ(seen.results, expected.results);
  EXPECT_EQ(seen.block, expected.block);
  EXPECT_EQ(seen.other, expected.other);
  EXPECT_EQ(seen.raw, expected.raw);
}
