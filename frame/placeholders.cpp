// Methods whose areas have not landed yet. Each raises
// "UnsupportedOperationException" and gives its neutral result, so a host
// program sees a clear error rather than a missing method.
#include "frame/builders.h"
#include "frame/entry_points.h"

namespace {
void unbuilt() { RaiseException("UnsupportedOperationException", "not available in this build"); }
}  // namespace

void MirrorBitsInBytesVEK(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

void MirrorBytesVEK(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

void MirrorBitsVEK(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

void swapBytes(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

void swapBytes16(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

void swapBytes32(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

bool CopyNthBytes(REALmemoryBlock, REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

bool CopyNthBits(REALmemoryBlock, REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

bool ExpandBitsVEK(REALmemoryBlock, REALmemoryBlock, int32_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

