#include <cstdio>
#include <cstring>

#include "tools/tour.h"

namespace {
std::string hex(const uint8_t* bytes, size_t count) {
  std::string text;
  char byte[4];
  for (size_t i = 0; i < count; ++i) {
    std::snprintf(byte, sizeof byte, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += byte;
  }
  return text;
}

std::string number(long long value) { return std::to_string(value); }
std::string truth(bool value) { return value ? "True" : "False"; }
std::string address(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

void tour_memory_class(Tour& tour) {
  using SizeMethod = bool(REALobject, int64_t);
  auto create = tour.plugin().classMember<SizeMethod>("MemoryBlockVEK", "Create(size as Int64) as boolean");
  auto resize = tour.plugin().classMember<SizeMethod>("MemoryBlockVEK", "Resize(Size as Int64) as boolean");
  auto close = tour.plugin().classMember<void(REALobject)>("MemoryBlockVEK", "Close");
  auto address_of = tour.plugin().classMember<uint64_t(REALobject, int32_t)>("MemoryBlockVEK", "Address");
  auto size_of = tour.plugin().classMember<int64_t(REALobject, int32_t)>("MemoryBlockVEK", "Size");
  auto memory = tour.plugin().classMember<REALmemoryBlock(REALobject, int32_t)>("MemoryBlockVEK", "Memory");

  tour.section("the MemoryBlockVEK class");
  REALobject m = tour.host().newInstance("MemoryBlockVEK");
  tour.line("m.Create(16)", truth(create(m, 16)));
  tour.line("m.Size", number(size_of(m, 0)));
  auto* buffer = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(address_of(m, 0)));
  tour.line("m.Address", address(address_of(m, 0)));
  tour.line("bytes at m.Address", hex(buffer, 16));
  REALmemoryBlock view = memory(m, 0);
  tour.show("m.Memory", view);
  auto* viewed = static_cast<uint8_t*>(tour.host().bytes(view).data());
  tour.line("m.Memory is over", address(reinterpret_cast<uintptr_t>(viewed)));
  viewed[0] = 0x2A;
  tour.line("after m.Memory.Byte(0) = &h2A", hex(buffer, 4));
  tour.line("m.Resize(4)", truth(resize(m, 4)));
  tour.line("m.Size", number(size_of(m, 0)));
  tour.line("m.Create(2147483648)", truth(create(m, int64_t{1} << 31)));
  tour.line("m.Size, m.Address", number(size_of(m, 0)) + ", " + address(address_of(m, 0)));
  tour.line("m.Resize(8)", truth(resize(m, 8)));
  close(m);
  tour.line("m.Close: m.Size", number(size_of(m, 0)));
  tour.host().release(m);  // the host disposes of it, closing it again
}

void tour_global_constructors(Tour& tour) {
  using FromPtr = REALmemoryBlock(intptr_t);
  using WithBytes = REALmemoryBlock(void*, int32_t);
  auto from_ptr = tour.plugin().global<FromPtr>("NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock");
  auto with_bytes =
      tour.plugin().global<WithBytes>("NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock");

  tour.section("global constructors");
  uint8_t* p = tour.host().rawBuffer(4);
  std::memcpy(p, "\x01\x02\x03\x04", 4);
  tour.line("bytes at p", hex(p, 4));
  tour.show("NewMemoryBlockWithBytesVEK(p, 4)", with_bytes(p, 4));
  REALmemoryBlock over = from_ptr(reinterpret_cast<intptr_t>(p));
  tour.show("NewMemoryBlockFromPtrVEK(p)", over);
  static_cast<uint8_t*>(tour.host().bytes(over).data())[3] = 0x40;
  tour.line("after writing &h40 to its byte 3", "p: " + hex(p, 4));
  tour.show("NewMemoryBlockFromPtrVEK(0)", from_ptr(0));
  tour.show("NewMemoryBlockWithBytesVEK(nil, 8)", with_bytes(nullptr, 8));
  tour.show("NewMemoryBlockWithBytesVEK(p, 2147483647)", with_bytes(p, 2147483647));
}

void tour_size_fill_invert(Tour& tour) {
  using Fill = void(REALmemoryBlock, int32_t, int32_t, int32_t);
  using Invert = void(REALmemoryBlock, int32_t, int32_t);
  auto fill = tour.plugin().method<Fill>("FillBytesVEK(offset as integer, count as integer, value as integer)");
  auto invert = tour.plugin().method<Invert>("InvertBytesVEK(offset as integer, count as integer)");

  tour.section("block size, fill and invert");
  REALmemoryBlock block = tour.block(10);
  tour.dump("block", block);
  for (const ClassReg& extension : tour.host().registry().extensions) {
    for (const PropertyReg& property : extension.properties) {
      auto bytes_vek = reinterpret_cast<int32_t (*)(REALmemoryBlock, int32_t)>(const_cast<void*>(property.getter));
      tour.line("block.BytesVEK", number(bytes_vek(block, 0)));
      tour.line("nil.BytesVEK", number(bytes_vek(nullptr, 0)));
    }
  }
  fill(block, 2, 3, 65);
  tour.dump("block.FillBytesVEK(2, 3, 65)", block);
  fill(block, 8, 5, 511);
  tour.dump("block.FillBytesVEK(8, 5, 511)", block);
  invert(block, 0, 8);
  tour.dump("block.InvertBytesVEK(0, 8)", block);
  invert(block, 6, 100);
  tour.dump("block.InvertBytesVEK(6, 100)", block);
  fill(block, 0, 0, 7);
  tour.dump("block.FillBytesVEK(0, 0, 7)", block);
  fill(block, -1, 3, 1);
  tour.dump("block.FillBytesVEK(-1, 3, 1)", block);
  fill(nullptr, 0, 3, 1);
  tour.line("nil.FillBytesVEK(0, 3, 1)", "");
  tour.raised();
  invert(nullptr, 0, 3);
  tour.line("nil.InvertBytesVEK(0, 3)", "");
  tour.raised();
}

void tour_copies(Tour& tour) {
  auto copy1 = tour.plugin().method<void(REALmemoryBlock, int32_t, int32_t, int32_t)>(
      "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)");
  auto copy2 = tour.plugin().method<void(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock, int32_t)>(
      "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)");
  auto to_ptr = tour.plugin().method<void(REALmemoryBlock, int32_t, int32_t, void*)>(
      "CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)");
  auto from_ptr = tour.plugin().method<void(REALmemoryBlock, void*, int32_t, int32_t)>(
      "CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)");
  auto to_handle = tour.plugin().method<void(REALmemoryBlock, int32_t, int32_t, intptr_t)>(
      "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)");
  auto from_handle = tour.plugin().method<void(REALmemoryBlock, intptr_t, int32_t, int32_t)>(
      "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)");
  auto address_of = tour.plugin().method<uint64_t(REALmemoryBlock, int64_t)>("AddressVEK(offset as Int64 = 0) as UInt64");
  auto pointer_to = tour.plugin().method<void*(REALmemoryBlock, int64_t)>("AddressPtrVEK(offset as Int64 = 0) as Ptr");

  tour.section("copies, raw memory and addresses");
  REALmemoryBlock block = tour.block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  tour.dump("block", block);
  copy1(block, 0, 4, 2);
  tour.dump("block.CopyBytesVEK(0, 4, 2)", block);
  copy1(block, 8, 5, 0);
  tour.dump("block.CopyBytesVEK(8, 5, 0)", block);
  REALmemoryBlock other = tour.block(6, 0);
  copy2(block, 0, 10, other, 2);
  tour.dump("block.CopyBytesVEK(0, 10, other, 2)", other);
  uint8_t* p = tour.host().rawBuffer(4);
  std::memset(p, 0xEE, 4);
  to_ptr(block, 3, 2, p);
  tour.line("block.CopyBytesToMacPtrVEK(3, 2, p)", "p: " + hex(p, 4));
  from_ptr(block, p, 2, 0);
  tour.dump("block.CopyBytesFromMacPtrVEK(p, 2, 0)", block);
  uint8_t* master = tour.host().rawBuffer(sizeof p);
  std::memcpy(master, &p, sizeof p);
  auto h = reinterpret_cast<intptr_t>(master);
  to_handle(block, 7, 3, h);
  tour.line("block.CopyBytesToMacHandleVEK(7, 3, h)", "bytes of h: " + hex(p, 4));
  from_handle(block, h, 4, 6);
  tour.dump("block.CopyBytesFromMacHandleVEK(h, 4, 6)", block);
  const uint64_t base = address_of(block, 0);
  tour.line("block.AddressVEK(0)", address(base));
  tour.line("block.AddressVEK(10) - AddressVEK(0)", number(static_cast<long long>(address_of(block, 10) - base)));
  tour.line("block.AddressVEK(11)", address(address_of(block, 11)));
  tour.line("block.AddressPtrVEK(4) - AddressVEK(0)",
            number(static_cast<long long>(reinterpret_cast<uintptr_t>(pointer_to(block, 4)) - base)));
  tour.line("nil.AddressVEK(5)", address(address_of(nullptr, 5)));
  tour.raised();
}
}  // namespace

void tour_memory(Tour& tour) {
  tour_memory_class(tour);
  tour_global_constructors(tour);
  tour_size_fill_invert(tour);
  tour_copies(tour);
}
