#include <cstring>

#include "tools/tour.h"

namespace {
std::string number(long long value) { return std::to_string(value); }

void tour_memory_class(Tour& tour) {

  tour.section("the MemoryBlockVEK class");
  REALobject m = tour.host().newInstance("MemoryBlockVEK");
  tour.show("m.Create(16)", tour.call("Create", m, 16));
  tour.show("m.Size", tour.get("Size", m));
  auto* buffer = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(tour.get("Address", m)));
  tour.line("m.Address", address(tour.get("Address", m)));
  tour.line("bytes at m.Address", hex(buffer, 16));
  REALmemoryBlock view = tour.show("m.Memory", tour.get("Memory", m));
  auto* viewed = static_cast<uint8_t*>(tour.host().bytes(view).data());
  tour.line("m.Memory is over", address(reinterpret_cast<uintptr_t>(viewed)));
  viewed[0] = 0x2A;
  tour.line("after m.Memory.Byte(0) = &h2A", hex(buffer, 4));
  tour.show("m.Resize(4)", tour.call("Resize", m, 4));
  tour.show("m.Size", tour.get("Size", m));
  tour.show("m.Create(2147483648)", tour.call("Create", m, int64_t{1} << 31));
  tour.line("m.Size, m.Address", number(tour.get("Size", m)) + ", " + address(tour.get("Address", m)));
  tour.show("m.Resize(8)", tour.call("Resize", m, 8));
  tour.call("Close", m);
  tour.show("m.Close: m.Size", tour.get("Size", m));
  tour.host().release(m);  // the host disposes of it, closing it again
}

void tour_global_constructors(Tour& tour) {

  tour.section("global constructors");
  uint8_t* p = tour.host().rawBuffer(4);
  std::memcpy(p, "\x01\x02\x03\x04", 4);
  tour.line("bytes at p", hex(p, 4));
  tour.show("NewMemoryBlockWithBytesVEK(p, 4)", tour.call("NewMemoryBlockWithBytesVEK", p, 4));
  REALmemoryBlock over =
      tour.show("NewMemoryBlockFromPtrVEK(p)", tour.call("NewMemoryBlockFromPtrVEK", reinterpret_cast<intptr_t>(p)));
  static_cast<uint8_t*>(tour.host().bytes(over).data())[3] = 0x40;
  tour.line("after writing &h40 to its byte 3", "p: " + hex(p, 4));
  tour.show("NewMemoryBlockFromPtrVEK(0)", tour.call("NewMemoryBlockFromPtrVEK", 0));
  tour.show("NewMemoryBlockWithBytesVEK(nil, 8)", tour.call("NewMemoryBlockWithBytesVEK", nullptr, 8));
  tour.show("NewMemoryBlockWithBytesVEK(p, 2147483647)", tour.call("NewMemoryBlockWithBytesVEK", p, 2147483647));
}

void tour_size_fill_invert(Tour& tour) {

  tour.section("block size, fill and invert");
  REALmemoryBlock block = tour.block(10);
  tour.dump("block", block);
  tour.show("block.BytesVEK", tour.get("BytesVEK", block));
  tour.show("nil.BytesVEK", tour.get("BytesVEK", nullptr));
  tour.in_place("block.FillBytesVEK(2, 3, 65)", "FillBytesVEK", block, 2, 3, 65);
  tour.in_place("block.FillBytesVEK(8, 5, 511)", "FillBytesVEK", block, 8, 5, 511);
  tour.in_place("block.InvertBytesVEK(0, 8)", "InvertBytesVEK", block, 0, 8);
  tour.in_place("block.InvertBytesVEK(6, 100)", "InvertBytesVEK", block, 6, 100);
  tour.in_place("block.FillBytesVEK(0, 0, 7)", "FillBytesVEK", block, 0, 0, 7);
  tour.in_place("block.FillBytesVEK(-1, 3, 1)", "FillBytesVEK", block, -1, 3, 1);
  tour.call("FillBytesVEK", nullptr, 0, 3, 1);
  tour.line("nil.FillBytesVEK(0, 3, 1)", "");
  tour.raised();
  tour.call("InvertBytesVEK", nullptr, 0, 3);
  tour.line("nil.InvertBytesVEK(0, 3)", "");
  tour.raised();
}

void tour_copies(Tour& tour) {

  tour.section("copies, raw memory and addresses");
  REALmemoryBlock block = tour.block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  tour.dump("block", block);
  tour.in_place("block.CopyBytesVEK(0, 4, 2)", "CopyBytesVEK", block, 0, 4, 2);
  tour.in_place("block.CopyBytesVEK(8, 5, 0)", "CopyBytesVEK", block, 8, 5, 0);
  REALmemoryBlock other = tour.block(6, 0);
  tour.call("CopyBytesVEK", block, 0, 10, other, 2);
  tour.dump("block.CopyBytesVEK(0, 10, other, 2)", other);
  uint8_t* p = tour.host().rawBuffer(4);
  std::memset(p, 0xEE, 4);
  tour.call("CopyBytesToMacPtrVEK", block, 3, 2, p);
  tour.line("block.CopyBytesToMacPtrVEK(3, 2, p)", "p: " + hex(p, 4));
  tour.in_place("block.CopyBytesFromMacPtrVEK(p, 2, 0)", "CopyBytesFromMacPtrVEK", block, p, 2, 0);
  uint8_t* master = tour.host().rawBuffer(sizeof p);
  std::memcpy(master, &p, sizeof p);
  auto h = reinterpret_cast<intptr_t>(master);
  tour.call("CopyBytesToMacHandleVEK", block, 7, 3, h);
  tour.line("block.CopyBytesToMacHandleVEK(7, 3, h)", "bytes of h: " + hex(p, 4));
  tour.in_place("block.CopyBytesFromMacHandleVEK(h, 4, 6)", "CopyBytesFromMacHandleVEK", block, h, 4, 6);
  const uint64_t base = tour.show("block.AddressVEK(0)", tour.call("AddressVEK", block, 0));
  const uint64_t end = tour.call("AddressVEK", block, 10);
  tour.line("block.AddressVEK(10) - AddressVEK(0)", number(static_cast<long long>(end - base)));
  tour.show("block.AddressVEK(11)", tour.call("AddressVEK", block, 11));
  void* pointer = tour.call("AddressPtrVEK", block, 4);
  tour.line("block.AddressPtrVEK(4) - AddressVEK(0)",
            number(static_cast<long long>(reinterpret_cast<uintptr_t>(pointer) - base)));
  tour.show("nil.AddressVEK(5)", tour.call("AddressVEK", nullptr, 5));
  tour.raised();
}
}  // namespace

void tour_memory(Tour& tour) {
  tour_memory_class(tour);
  tour_global_constructors(tour);
  tour_size_fill_invert(tour);
  tour_copies(tour);
}
