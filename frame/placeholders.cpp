// Methods whose areas have not landed yet. Each raises
// "UnsupportedOperationException" and gives its neutral result, so a host
// program sees a clear error rather than a missing method.
#include "frame/builders.h"
#include "frame/entry_points.h"

namespace {
void unbuilt() { RaiseException("UnsupportedOperationException", "not available in this build"); }
}  // namespace

int32_t GetBlockSize(REALmemoryBlock, int32_t) {
  unbuilt();
  return {};
}

void Convert12BitTo8Bit(REALmemoryBlock, int32_t) {
  unbuilt();
}

void Calc3te(REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, double, int32_t, int32_t) {
  unbuilt();
}

void Calc2teCMY(REALmemoryBlock, int32_t, int32_t, int32_t, uint8_t) {
  unbuilt();
}

void Calc2teCMYK(REALmemoryBlock, int32_t, int32_t, int32_t, uint8_t) {
  unbuilt();
}

void CalcLogSweepTable(REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, double) {
  unbuilt();
}

void ConvertPolarToCartesian(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock) {
  unbuilt();
}

void ConvertCartesianToPolar(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock) {
  unbuilt();
}

void MultiplyUInt16VEK(REALmemoryBlock, double, int32_t, int32_t) {
  unbuilt();
}

void MultiplyUInt8VEK(REALmemoryBlock, double, int32_t, int32_t) {
  unbuilt();
}

bool MinVEK(REALmemoryBlock, void*, void*, int32_t, uint8_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

bool MaxVEK(REALmemoryBlock, void*, void*, int32_t, uint8_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

uint64_t AddressVEK(REALmemoryBlock, int64_t) {
  unbuilt();
  return {};
}

void* AddressPtrVEK(REALmemoryBlock, int64_t) {
  unbuilt();
  return {};
}

REALstring getOSType(REALmemoryBlock, int32_t) {
  unbuilt();
  return {};
}

void setOSType(REALmemoryBlock, int32_t, REALstring) {
  unbuilt();
}

REALstring getString(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
  return {};
}

void setString(REALmemoryBlock, REALstring, int32_t) {
  unbuilt();
}

REALfolderItem getFSSpec(REALmemoryBlock, int32_t) {
  unbuilt();
  return {};
}

void setFSSpec(REALmemoryBlock, int32_t, REALfolderItem) {
  unbuilt();
}

void copyBytes1(REALmemoryBlock, int32_t, int32_t, int32_t) {
  unbuilt();
}

void copyBytes2(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock, int32_t) {
  unbuilt();
}

void toMacPtr(REALmemoryBlock, int32_t, int32_t, void*) {
  unbuilt();
}

void fromMacPtr(REALmemoryBlock, void*, int32_t, int32_t) {
  unbuilt();
}

void toMacHdl(REALmemoryBlock, int32_t, int32_t, intptr_t) {
  unbuilt();
}

void fromMacHdl(REALmemoryBlock, intptr_t, int32_t, int32_t) {
  unbuilt();
}

bool BytesEqualVEK(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock, int32_t) {
  unbuilt();
  return {};
}

bool BytesZeroVEK(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
  return {};
}

int32_t FindNotByteVEK(REALmemoryBlock, int32_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

int32_t FindByteVEK(REALmemoryBlock, int32_t, int32_t, int32_t) {
  unbuilt();
  return {};
}

int32_t findBytes1(REALmemoryBlock, int32_t, int32_t, REALstring) {
  unbuilt();
  return {};
}

int32_t findBytes2(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
  return {};
}

void fillbytes(REALmemoryBlock, int32_t, int32_t, int32_t) {
  unbuilt();
}

void InvertBytesVEK(REALmemoryBlock, int32_t, int32_t) {
  unbuilt();
}

bool CreateMem(REALobject, int64_t) {
  unbuilt();
  return {};
}

bool Resize(REALobject, int64_t) {
  unbuilt();
  return {};
}

void MemClose(REALobject) {
  unbuilt();
}

uint64_t GetAddress(REALobject, int32_t) {
  unbuilt();
  return {};
}

int64_t GetSize(REALobject, int32_t) {
  unbuilt();
  return {};
}

REALmemoryBlock GetMemory(REALobject, int32_t) {
  unbuilt();
  return {};
}

REALmemoryBlock newMemoryblockPtr(intptr_t) {
  unbuilt();
  return {};
}

REALmemoryBlock newMemoryblockPtrCopy(void*, int32_t) {
  unbuilt();
  return {};
}
