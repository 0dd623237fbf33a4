// Sub-blocks: MidVEK, LeftVEK, RightVEK and AppendVEK hand back a new block
// holding a copy of some of the receiver's bytes; the receiver never changes.
//
// On the 10-byte block 01 02 .. 0A:
//   MidVEK(2, 3)   -> 03 04 05        MidVEK(8, 100) -> 09 0A (cut at the end)
//   LeftVEK(3)     -> 01 02 03        RightVEK(3)    -> 08 09 0A
//   AppendVEK(b)   -> 01 .. 0A followed by b's bytes
// A nil receiver raises "NilObjectException"; any other argument that leaves
// no bytes gives nil quietly. Every result is a distinct new block.
#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

REALmemoryBlock getMid1(REALmemoryBlock block, int32_t offset) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return nullptr;
  }
  if (offset < 0) return nullptr;
  int64_t count = vek::rest_of_block(REALMemoryBlockGetSize(block), offset);
  if (count == 0) return nullptr;
  auto* data = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return nullptr;
  return REALBuildMemoryblock(data + offset, static_cast<int32_t>(count));
}

REALmemoryBlock getMid2(REALmemoryBlock block, int32_t offset, int32_t length) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return nullptr;
  }
  if (length <= 0) return nullptr;
  if (offset < 0) return nullptr;
  int64_t count = vek::run_in_known_size(REALMemoryBlockGetSize(block), offset, length);
  if (count == 0) return nullptr;
  auto* data = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return nullptr;
  return REALBuildMemoryblock(data + offset, static_cast<int32_t>(count));
}

REALmemoryBlock getLeft(REALmemoryBlock block, int32_t length) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return nullptr;
  }
  if (length <= 0) return nullptr;
  int64_t count = vek::run_in_known_size(REALMemoryBlockGetSize(block), 0, length);
  if (count == 0) return nullptr;  // also what building 0 bytes would give
  auto* data = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return nullptr;
  return REALBuildMemoryblock(data, static_cast<int32_t>(count));
}

REALmemoryBlock getRight(REALmemoryBlock block, int32_t length) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return nullptr;
  }
  if (length <= 0) return nullptr;
  int32_t size = REALMemoryBlockGetSize(block);
  int64_t count = vek::run_in_known_size(size, 0, length);
  if (count == 0) return nullptr;
  auto* data = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return nullptr;
  return REALBuildMemoryblock(data + size - count, static_cast<int32_t>(count));
}

REALmemoryBlock getAppend(REALmemoryBlock block, REALmemoryBlock other) {
  if (block == nullptr || other == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return nullptr;
  }
  int32_t size = REALMemoryBlockGetSize(block);
  int32_t other_size = REALMemoryBlockGetSize(other);
  auto* data = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  auto* other_data = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(other));
  if (size <= 0) return other_size > 0 ? REALBuildMemoryblock(other_data, other_size) : nullptr;
  if (other_size <= 0) return REALBuildMemoryblock(data, size);
  if (data == nullptr || other_data == nullptr) return nullptr;

  uint32_t total = static_cast<uint32_t>(size) + static_cast<uint32_t>(other_size);
  if (total > 0x7FFFFFFE) return nullptr;  // too large for the host; nothing is raised
  REALmemoryBlock result = REALNewMemoryBlockOriginal(static_cast<int32_t>(total));
  if (result == nullptr) return nullptr;
  auto* storage = static_cast<uint8_t*>(REALMemoryBlockGetPtr(result));
  if (storage == nullptr) {
    REALUnlockObject(as_object(result));
    return nullptr;
  }
  std::memcpy(storage, data, static_cast<size_t>(size));
  std::memcpy(storage + size, other_data, static_cast<size_t>(other_size));
  return result;
}
