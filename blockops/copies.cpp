// Copies, raw memory and addresses: CopyBytesVEK moves bytes within the
// receiver or into another block, CopyBytesTo/FromMacPtrVEK between the
// receiver and a raw address, CopyBytesTo/FromMacHandleVEK between the
// receiver and the bytes of a memory-manager handle (the address of a master
// pointer), and AddressVEK / AddressPtrVEK hand out the address of a byte.
//
// On the 10-byte block 01 02 .. 0A:
//   CopyBytesVEK(0, 4, 2)          -> 01 02 01 02 03 04 07 08 09 0A (overlap-safe)
//   CopyBytesVEK(8, 5, 0)          -> 09 0A 03 .. 0A (the run is cut at the end)
//   CopyBytesToMacPtrVEK(3, 2, p)  -> 04 05 written at p
//   AddressVEK(10)                 -> the block's address + 10; AddressVEK(11) -> 0
// Every block's run is bounded by that block's own size when it is known: a
// run that starts inside and runs past the end is cut back, one that starts at
// or past the end changes nothing, so does a negative count or offset. A block
// of size 0 (one over a raw address) has no known end: the caller's run is
// trusted there, as are raw addresses and handles. A nil block changes
// nothing. Nothing here raises.
#include <cstring>

#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

namespace {
uint8_t* data_of(REALmemoryBlock block) { return static_cast<uint8_t*>(REALMemoryBlockGetPtr(block)); }

// A handle is the address of one address-sized word holding the address of
// its bytes; read as late as possible, since the bytes may move between calls.
uint8_t* handle_bytes(intptr_t handle) {
  uint8_t* bytes;
  std::memcpy(&bytes, reinterpret_cast<const void*>(handle), sizeof bytes);
  return bytes;
}

// The address of the byte at `offset`, in the width of an address (the low
// 32 bits of `offset`, wrapping, on a 32-bit host); 0 when refused.
uintptr_t byte_address(REALmemoryBlock block, int64_t offset) {
  int32_t size = REALMemoryBlockGetSize(block);  // 0 for nil: not known
  if (offset < 0) return 0;
  if (size != 0 && offset > size) return 0;  // just past the last byte is still an address
  // A nil block, or one the host gives no data pointer for, is taken as one at
  // address 0: the offset itself comes back.
  uintptr_t base = block != nullptr ? reinterpret_cast<uintptr_t>(REALMemoryBlockGetPtr(block)) : 0;
  return base + static_cast<uintptr_t>(offset);
}
}  // namespace

void copyBytes1(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t destOfs) {
  if (block == nullptr) return;
  if (numBytes <= 0 || srcOfs < 0 || destOfs < 0) return;
  int32_t size = REALMemoryBlockGetSize(block);
  int64_t count = vek::run_refusing_negative_size(size, srcOfs, numBytes);
  count = vek::run_refusing_negative_size(size, destOfs, count);
  if (count <= 0) return;
  uint8_t* data = data_of(block);
  if (data == nullptr) return;
  std::memmove(data + destOfs, data + srcOfs, static_cast<size_t>(count));
}

void copyBytes2(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, REALmemoryBlock destBlk, int32_t destOfs) {
  if (block == nullptr || destBlk == nullptr) return;
  if (numBytes <= 0 || srcOfs < 0 || destOfs < 0) return;
  int64_t count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), srcOfs, numBytes);
  count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(destBlk), destOfs, count);
  if (count <= 0) return;
  uint8_t* source = data_of(block);
  uint8_t* destination = data_of(destBlk);
  if (source == nullptr || destination == nullptr) return;
  std::memmove(destination + destOfs, source + srcOfs, static_cast<size_t>(count));  // destBlk may be the receiver
}

void toMacPtr(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, void* destPtr) {
  if (block == nullptr || destPtr == nullptr) return;
  if (numBytes <= 0 || srcOfs < 0) return;
  int64_t count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), srcOfs, numBytes);
  if (count <= 0) return;
  uint8_t* source = data_of(block);
  if (source == nullptr) return;
  std::memmove(destPtr, source + srcOfs, static_cast<size_t>(count));
}

void fromMacPtr(REALmemoryBlock block, void* srcPtr, int32_t numBytes, int32_t destOfs) {
  if (block == nullptr || srcPtr == nullptr) return;
  if (numBytes <= 0 || destOfs < 0) return;
  int64_t count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), destOfs, numBytes);
  if (count <= 0) return;
  uint8_t* destination = data_of(block);
  if (destination == nullptr) return;
  std::memmove(destination + destOfs, srcPtr, static_cast<size_t>(count));
}

void toMacHdl(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, intptr_t destHandle) {
  if (block == nullptr || destHandle == 0) return;
  if (numBytes <= 0 || srcOfs < 0) return;
  int64_t count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), srcOfs, numBytes);
  if (count <= 0) return;
  uint8_t* source = data_of(block);
  if (source == nullptr) return;
  uint8_t* destination = handle_bytes(destHandle);
  if (destination == nullptr) return;
  std::memmove(destination, source + srcOfs, static_cast<size_t>(count));
}

void fromMacHdl(REALmemoryBlock block, intptr_t srcHandle, int32_t numBytes, int32_t destOfs) {
  if (block == nullptr || srcHandle == 0) return;
  if (numBytes <= 0 || destOfs < 0) return;
  int64_t count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), destOfs, numBytes);
  if (count <= 0) return;
  uint8_t* destination = data_of(block);
  if (destination == nullptr) return;
  uint8_t* source = handle_bytes(srcHandle);
  if (source == nullptr) return;
  std::memmove(destination + destOfs, source, static_cast<size_t>(count));
}

uint64_t AddressVEK(REALmemoryBlock block, int64_t offset) { return byte_address(block, offset); }

void* AddressPtrVEK(REALmemoryBlock block, int64_t offset) {
  return reinterpret_cast<void*>(byte_address(block, offset));
}
