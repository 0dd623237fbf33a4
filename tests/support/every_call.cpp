#include "tests/support/every_call.h"

#include <cstring>
#include <span>

#include <gtest/gtest.h>

using B = REALmemoryBlock;
using S = REALstring;
using F = REALfolderItem;

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
  return Caller{host, plugin, host.newBlock(64, 3), host.newString("ab", 0x600), host.newFolderItem({}), raw, handle};
}


// Methods that read a reported size of 0 as "not known" trust the caller's
// range; a caller of the empty block asks them for no bytes.
namespace {
int32_t within(Caller& c, B b, int32_t count) { return b != nullptr && c.host.size(b) == 0 ? 0 : count; }

}  // namespace

// Ordinary arguments: small offsets and counts inside a 64-byte block.
const std::map<std::string, Call>& extension_calls() {
  static const std::map<std::string, Call> table = {
      {"ConvertRGB12BitTo8BitVEK(Width as Integer)",
       [](Caller& c, B b) {
         // a block of size 0 is trusted with the count: counts here fit the block
         int32_t groups = b != nullptr ? c.host.size(b) / 9 : 2;
         return c.plugin.method<void(B, int32_t)>("ConvertRGB12BitTo8BitVEK(Width as Integer)")(b, groups), int64_t{0};
       }},
      {"_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as integer = 0)",
       [](Caller& c, B b) {
         c.plugin.method<void(B, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, double, int32_t, int32_t)>(
             "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as integer = 0)")(
             b, 1, 2, 3, 4, 5, 6, 7, 8, 0.1, 0, 0);
         return int64_t{0};
       }},
      {"_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)",
       [](Caller& c, B b) {
         c.plugin.method<void(B, int32_t, int32_t, int32_t, uint8_t)>("_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)")(b, 255, 0, 0, 1);
         return int64_t{0};
       }},
      {"_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)",
       [](Caller& c, B b) {
         c.plugin.method<void(B, int32_t, int32_t, int32_t, uint8_t)>("_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)")(b, 255, 0, 0, 1);
         return int64_t{0};
       }},
      {"_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)",
       [](Caller& c, B b) {
         int32_t records = b != nullptr ? c.host.size(b) / 8 : 4;
         c.plugin.method<void(B, int32_t, int32_t, int32_t, int32_t, double)>("_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)")(b, 0, records, 1, 2, 4.0);
         return int64_t{0};
       }},
      {"_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)",
       [](Caller& c, B b) {
         int32_t records = b != nullptr ? c.host.size(b) / 8 : 4;
         c.plugin.method<void(B, int32_t, int32_t, B)>("_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)")(b, 0, records, c.other);
         return int64_t{0};
       }},
      {"_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)",
       [](Caller& c, B b) {
         int32_t records = b != nullptr ? c.host.size(b) / 8 : 4;
         c.plugin.method<void(B, int32_t, int32_t, B)>("_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)")(b, 0, records, c.other);
         return int64_t{0};
       }},
      {"MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)",
       [](Caller& c, B b) {
         c.plugin.method<void(B, double, int32_t, int32_t)>("MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)")(b, 1.5, 0, 0);
         return int64_t{0};
       }},
      {"MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)",
       [](Caller& c, B b) {
         c.plugin.method<void(B, double, int32_t, int32_t)>("MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)")(b, 1.5, 0, 0);
         return int64_t{0};
       }},
      // The rest of the block from 48: 16 bytes of the 64-byte block, none of an
      // empty one (whose size 0 would make an explicit length the caller's).
      {"MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
       [](Caller& c, B b) {
         return int64_t{c.plugin.method<bool(B, void*, void*, int32_t, uint8_t, int32_t, int32_t)>("MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean")(b, c.raw, c.raw + 32, 8, 0, 48, 0)};
       }},
      {"MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean",
       [](Caller& c, B b) {
         return int64_t{c.plugin.method<bool(B, void*, void*, int32_t, uint8_t, int32_t, int32_t)>("MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean")(b, c.raw, c.raw + 32, 8, 0, 48, 0)};
       }},
      {"MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)")(b, 0, within(c, b, 8)), int64_t{0}; }},
      {"MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)")(b, 0, -1), int64_t{0}; }},
      {"MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)")(b, 3, within(c, b, 20)), int64_t{0}; }},
      {"AddressVEK(offset as Int64 = 0) as UInt64",
       [](Caller& c, B b) { return int64_t(c.plugin.method<uint64_t(B, int64_t)>("AddressVEK(offset as Int64 = 0) as UInt64")(b, 0) != 0); }},
      {"AddressPtrVEK(offset as Int64 = 0) as Ptr",
       [](Caller& c, B b) { return int64_t(c.plugin.method<void*(B, int64_t)>("AddressPtrVEK(offset as Int64 = 0) as Ptr")(b, 0) != nullptr); }},
      {"OSTypeVEK(offset as Integer) as String",
       [](Caller& c, B b) {
         c.plugin.setter<void(B, int32_t, S)>("OSTypeVEK(offset as Integer) as String")(b, 4, c.text);
         return c.handed(c.plugin.method<S(B, int32_t)>("OSTypeVEK(offset as Integer) as String")(b, 4));
       }},
      {"GetStringVEK(offset as Integer, numBytes as Integer) as String",
       [](Caller& c, B b) { return c.handed(c.plugin.method<S(B, int32_t, int32_t)>("GetStringVEK(offset as Integer, numBytes as Integer) as String")(b, 2, 5)); }},
      {"SetStringVEK(str as String, offset as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, S, int32_t)>("SetStringVEK(str as String, offset as Integer)")(b, c.text, 2), int64_t{0}; }},
      {"SwapBytesVEK(offset as Integer, numBytes as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("SwapBytesVEK(offset as Integer, numBytes as Integer)")(b, 1, within(c, b, 100)), int64_t{0}; }},
      {"SwapBytes16VEK(offset as Integer, numBytes as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("SwapBytes16VEK(offset as Integer, numBytes as Integer)")(b, 1, within(c, b, 100)), int64_t{0}; }},
      {"SwapBytes32VEK(offset as Integer, numBytes as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("SwapBytes32VEK(offset as Integer, numBytes as Integer)")(b, 1, within(c, b, 100)), int64_t{0}; }},
      {"BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean",
       [](Caller& c, B b) { return int64_t{c.plugin.method<bool(B, int32_t, int32_t, B, int32_t)>("BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean")(b, 0, 8, c.other, 0)}; }},
      {"BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean",
       [](Caller& c, B b) { return int64_t{c.plugin.method<bool(B, int32_t, int32_t)>("BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean")(b, 0, 8)}; }},
      {"FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
       [](Caller& c, B b) { return int64_t{c.plugin.method<int32_t(B, int32_t, int32_t, int32_t)>("FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer")(b, 0, 8, 0)}; }},
      {"FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
       [](Caller& c, B b) { return int64_t{c.plugin.method<int32_t(B, int32_t, int32_t, int32_t)>("FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer")(b, 0, 8, 7)}; }},
      {"CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t, int32_t)>("CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)")(b, 0, 4, 2), int64_t{0}; }},
      {"CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t, B, int32_t)>("CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)")(b, 0, 4, c.other, 2), int64_t{0}; }},
      {"CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t, void*)>("CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)")(b, 0, 4, c.raw), int64_t{0}; }},
      {"CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, void*, int32_t, int32_t)>("CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)")(b, c.raw, 4, 0), int64_t{0}; }},
      {"CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t, intptr_t)>("CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)")(b, 0, 4, reinterpret_cast<intptr_t>(c.handle)), int64_t{0}; }},
      {"CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, intptr_t, int32_t, int32_t)>("CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)")(b, reinterpret_cast<intptr_t>(c.handle), 4, 0), int64_t{0}; }},
      {"FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer",
       [](Caller& c, B b) { return int64_t{c.plugin.method<int32_t(B, int32_t, int32_t, S)>("FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer")(b, 0, 0, c.text)}; }},
      {"FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as Integer) as Integer",
       [](Caller& c, B b) { return int64_t{c.plugin.method<int32_t(B, int32_t, int32_t, B, int32_t, int32_t)>("FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as Integer) as Integer")(b, 0, 0, c.other, 0, 2)}; }},
      {"FSSpecVEK(offset as Integer) as FolderItem",
       [](Caller& c, B b) {
         c.plugin.setter<void(B, int32_t, F)>("FSSpecVEK(offset as Integer) as FolderItem")(b, 0, c.folder);
         return c.handed(c.plugin.method<F(B, int32_t)>("FSSpecVEK(offset as Integer) as FolderItem")(b, 0));
       }},
      {"MidVEK(offset as integer) as Memoryblock",
       [](Caller& c, B b) { return c.handed(c.plugin.method<B(B, int32_t)>("MidVEK(offset as integer) as Memoryblock")(b, 3)); }},
      {"MidVEK(offset As Integer, length As Integer) as Memoryblock",
       [](Caller& c, B b) { return c.handed(c.plugin.method<B(B, int32_t, int32_t)>("MidVEK(offset As Integer, length As Integer) as Memoryblock")(b, 3, 100)); }},
      {"LeftVEK(length as integer) as Memoryblock",
       [](Caller& c, B b) { return c.handed(c.plugin.method<B(B, int32_t)>("LeftVEK(length as integer) as Memoryblock")(b, 100)); }},
      {"RightVEK(length As Integer) as Memoryblock",
       [](Caller& c, B b) { return c.handed(c.plugin.method<B(B, int32_t)>("RightVEK(length As Integer) as Memoryblock")(b, 100)); }},
      {"AppendVEK(other as Memoryblock) as Memoryblock",
       [](Caller& c, B b) { return c.handed(c.plugin.method<B(B, B)>("AppendVEK(other as Memoryblock) as Memoryblock")(b, b)); }},
      {"FillBytesVEK(offset as integer, count as integer, value as integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t, int32_t)>("FillBytesVEK(offset as integer, count as integer, value as integer)")(b, 0, 0, 7), int64_t{0}; }},
      {"InvertBytesVEK(offset as integer, count as integer)",
       [](Caller& c, B b) { return c.plugin.method<void(B, int32_t, int32_t)>("InvertBytesVEK(offset as integer, count as integer)")(b, 0, 8), int64_t{0}; }},
      {"CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean",
       [](Caller& c, B b) { return int64_t{c.plugin.method<bool(B, B, int32_t, int32_t, int32_t, int32_t, int32_t)>("CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean")(b, c.other, 0, 0, 2, 4, within(c, b, 3))}; }},
      {"CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean",
       [](Caller& c, B b) { return int64_t{c.plugin.method<bool(B, B, int32_t, int32_t, int32_t, int32_t, int32_t)>("CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean")(b, c.other, 3, 0, 4, 2, within(c, b, 3))}; }},
      {"ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = 255) as boolean",
       [](Caller& c, B b) { return int64_t{c.plugin.method<bool(B, B, int32_t, int32_t, int32_t)>("ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = 255) as boolean")(b, c.other, within(c, b, 1), 0, 255)}; }},
  };
  return table;
}

// The exceptions a method of this plug-in may raise.
const std::set<std::pair<std::string, std::string>> kOwnExceptions = {
    {"NilObjectException", "memoryblock is nil"},
    {"NilObjectException", "ptr is nil"},
    {"UnsupportedOperationException", "offset < 0"},
};

// Methods that read a size of 0 as not known (a block over a raw address) and
// trust the caller's range there: an ordinary call on an empty block would
// reach past it, so EmptyBlock gives them a block over 128 raw bytes instead
// (room for a 70-byte FSSpec record).
const std::set<std::string> kTrustSizeZero = {
    "InvertBytesVEK(offset as integer, count as integer)",
    "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)",
    "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)",
    "CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)",
    "CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)",
    "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)",
    "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)",
    "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean",
    "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean",
    "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
    "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer",
    "OSTypeVEK(offset as Integer) as String",
    "GetStringVEK(offset as Integer, numBytes as Integer) as String",
    "SetStringVEK(str as String, offset as Integer)",
    "FSSpecVEK(offset as Integer) as FolderItem",
};
namespace {
using SizeMethod = bool(REALobject, int64_t);
using ObjectGetter = uint64_t(REALobject, int32_t);
using MemoryGetter = B(REALobject, int32_t);
}  // namespace

const std::map<std::string, OtherCall>& other_calls() {
  static const std::map<std::string, OtherCall> table = {
      {"MemoryBlockVEK",
       [](Caller& c) {
         REALobject object = c.host.newInstance("MemoryBlockVEK");
         if (object == nullptr) return int64_t{0};
         auto member = [&](const char* name) { return c.plugin.classMember<void>("MemoryBlockVEK", name); };
         int64_t made = reinterpret_cast<SizeMethod*>(member("Create(size as Int64) as boolean"))(object, 64);
         made += reinterpret_cast<SizeMethod*>(member("Resize(Size as Int64) as boolean"))(object, 96);
         made += reinterpret_cast<ObjectGetter*>(member("Address"))(object, 0) != 0;
         made += reinterpret_cast<ObjectGetter*>(member("Size"))(object, 0) != 0;
         made += c.handed(reinterpret_cast<MemoryGetter*>(member("Memory"))(object, 0));
         reinterpret_cast<void (*)(REALobject)>(member("Close"))(object);
         c.host.release(object);
         return made;
       }},
      {"BytesVEK",
       [](Caller& c) {
         auto getter = c.plugin.extensionGetter<int32_t(B, int32_t)>("BytesVEK");
         return getter != nullptr ? int64_t{getter(c.other, 0)} : int64_t{-1};
       }},
      {"NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock",
       [](Caller& c) {
         auto global = c.plugin.global<B(intptr_t)>("NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock");
         return c.handed(global(reinterpret_cast<intptr_t>(c.raw)));
       }},
      {"NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock",
       [](Caller& c) {
         auto global = c.plugin.global<B(void*, int32_t)>("NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock");
         return c.handed(global(c.raw, 16));
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
