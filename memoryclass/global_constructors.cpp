// NewMemoryBlockFromPtrVEK and NewMemoryBlockWithBytesVEK: a host block made
// from a raw address, over the bytes themselves or over a copy of them.
//
//   NewMemoryBlockFromPtrVEK(p)        -> a block over p: writing it writes p's bytes;
//                                         it owns nothing and its size is the host's (0 here)
//   NewMemoryBlockWithBytesVEK(p, 4)   -> a new 4-byte block holding a copy of p's 4 bytes
//
// Address 0, a nil pointer or a size below 1 give nil quietly; a copy the
// host cannot make raises "OutOfMemoryException".
#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"

REALmemoryBlock newMemoryblockPtr(intptr_t ptr) {
  if (ptr == 0) return nullptr;
  return REALPtrToMemoryBlock(reinterpret_cast<void*>(ptr));
}

REALmemoryBlock newMemoryblockPtrCopy(void* data, int32_t size) { return REALBuildMemoryblock(data, size); }
