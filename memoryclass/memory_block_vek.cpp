// MemoryBlockVEK: a byte buffer the plug-in owns, with 64-bit Size and
// Address, and a host MemoryBlock over the same bytes (Memory) so that host
// code can use the host's own methods on them.
//
//   Dim m As New MemoryBlockVEK
//   m.Create(16)     -> True; Size 16, Address <> 0, 16 zero bytes
//   m.Resize(32)     -> True; the first 16 bytes kept, the rest not cleared
//   m.Memory         -> a block over Address; each read adds a reference
//   m.Close          -> Size 0, Address 0, Memory nil (also run on destruction)
//
// Sizes outside 1..2147483647 and failed allocations give False and raise
// nothing. "Create" closes first, so a failed "Create" leaves the object
// closed; a failed "Resize" leaves it as it was. A Memory block read before a
// "Resize" that moves the buffer, or before "Close", still points at the old
// address: the class does not track the blocks it has handed out.
#include <cstdlib>

#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/tables.h"

namespace {
// The instance data, in the order the class declares it. A new instance has
// it all zero: closed.
struct MemoryBlockVEKData {
  int64_t size;            // 0 when closed
  REALmemoryBlock memory;  // host block over the buffer; holds one reference of ours
  void* address;           // null exactly when closed
};
static_assert(sizeof(MemoryBlockVEKData) <= 32, "fits the declared instance data");

constexpr int64_t kLargestSize = 0x7FFFFFFF;  // what a host block over the buffer can address

// The host writes where the instance data lies into the class record when
// the class is registered.
MemoryBlockVEKData* fields_of(REALobject object) {
  return reinterpret_cast<MemoryBlockVEKData*>(reinterpret_cast<char*>(object) + MemClass.dataOffset);
}

bool size_in_range(int64_t size) { return size > 0 && size <= kLargestSize; }
}  // namespace

void MemClose(REALobject object) {
  if (object == nullptr) return;
  MemoryBlockVEKData* fields = fields_of(object);
  if (fields->memory != nullptr) {
    REALUnlockObject(as_object(fields->memory));
    fields->memory = nullptr;
  }
  std::free(fields->address);
  fields->address = nullptr;
  fields->size = 0;
}

bool CreateMem(REALobject object, int64_t size) {
  if (object == nullptr) return false;
  MemClose(object);
  if (!size_in_range(size)) return false;
  void* buffer = std::calloc(static_cast<size_t>(size), 1);
  if (buffer == nullptr) return false;
  MemoryBlockVEKData* fields = fields_of(object);
  fields->address = buffer;
  fields->size = size;
  fields->memory = REALPtrToMemoryBlock(buffer);
  return true;
}

bool Resize(REALobject object, int64_t size) {
  if (object == nullptr) return false;
  if (!size_in_range(size)) return false;
  MemoryBlockVEKData* fields = fields_of(object);
  void* buffer = std::realloc(fields->address, static_cast<size_t>(size));
  if (buffer == nullptr) return false;  // the old buffer is still ours, unchanged
  fields->address = buffer;
  fields->size = size;
  if (fields->memory != nullptr) REALUnlockObject(as_object(fields->memory));
  fields->memory = REALPtrToMemoryBlock(buffer);
  return true;
}

uint64_t GetAddress(REALobject object, int32_t) {
  if (object == nullptr) return 0;
  return reinterpret_cast<uintptr_t>(fields_of(object)->address);
}

int64_t GetSize(REALobject object, int32_t) {
  if (object == nullptr) return 0;
  return fields_of(object)->size;
}

REALmemoryBlock GetMemory(REALobject object, int32_t) {
  if (object == nullptr) return nullptr;
  REALmemoryBlock memory = fields_of(object)->memory;
  if (memory == nullptr) return nullptr;
  // The receiver's own reference; a host that cannot add one gets nil rather
  // than a block it would release once too often.
  if (!REALLockObject(as_object(memory))) return nullptr;
  return memory;
}
