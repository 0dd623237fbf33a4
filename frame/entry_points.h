// Every function the plug-in registers with the host, by area. The host
// calls them through the registered records only; their argument and result
// types are those of the declarations in tables.cpp.
#pragma once

#include <cstdint>

#include "frame/rb_handles.h"

// -- MemoryBlock property ---------------------------------------------------
int32_t GetBlockSize(REALmemoryBlock block, int32_t unused);

// -- colour and signal ------------------------------------------------------
void Convert12BitTo8Bit(REALmemoryBlock block, int32_t width);
void Calc3te(REALmemoryBlock block, int32_t source1, int32_t source2, int32_t source3, int32_t source4,
             int32_t dest1, int32_t dest2, int32_t dest3, int32_t dest4, double tolerance, int32_t offsetByte,
             int32_t length);
void Calc2teCMY(REALmemoryBlock block, int32_t iByteMax, int32_t offsetByte, int32_t length, uint8_t withSum0);
void Calc2teCMYK(REALmemoryBlock block, int32_t iByteMax, int32_t offsetByte, int32_t length, uint8_t withSum0);
void CalcLogSweepTable(REALmemoryBlock block, int32_t offsetByte, int32_t z, int32_t lw1, int32_t lw2, double t);
void ConvertPolarToCartesian(REALmemoryBlock block, int32_t offsetByte, int32_t z, REALmemoryBlock polarData);
void ConvertCartesianToPolar(REALmemoryBlock block, int32_t offsetByte, int32_t z, REALmemoryBlock cartesianData);

// -- numeric ----------------------------------------------------------------
void MultiplyUInt16VEK(REALmemoryBlock block, double factor, int32_t offsetByte, int32_t lengthBytes);
void MultiplyUInt8VEK(REALmemoryBlock block, double factor, int32_t offsetByte, int32_t lengthBytes);
bool MinVEK(REALmemoryBlock block, void* firstMem, void* secondMem, int32_t bitSize, uint8_t isSigned,
            int32_t offsetByte, int32_t lengthBytes);
bool MaxVEK(REALmemoryBlock block, void* firstMem, void* secondMem, int32_t bitSize, uint8_t isSigned,
            int32_t offsetByte, int32_t lengthBytes);

// -- bit and byte order -----------------------------------------------------
void MirrorBitsInBytesVEK(REALmemoryBlock block, int32_t offsetByte, int32_t lengthByte);
void MirrorBytesVEK(REALmemoryBlock block, int32_t offsetByte, int32_t lengthByte);
void MirrorBitsVEK(REALmemoryBlock block, int32_t offsetBit, int32_t lengthBit);
void swapBytes(REALmemoryBlock block, int32_t offset, int32_t numBytes);
void swapBytes16(REALmemoryBlock block, int32_t offset, int32_t numBytes);
void swapBytes32(REALmemoryBlock block, int32_t offset, int32_t numBytes);
bool CopyNthBytes(REALmemoryBlock block, REALmemoryBlock source, int32_t sourceOffsetBytes,
                  int32_t destinationOffsetBytes, int32_t byteCount, int32_t stepCount, int32_t numberOfSteps);
bool CopyNthBits(REALmemoryBlock block, REALmemoryBlock source, int32_t sourceOffsetBits,
                 int32_t destinationOffsetBits, int32_t bitCount, int32_t stepCount, int32_t numberOfSteps);
bool ExpandBitsVEK(REALmemoryBlock block, REALmemoryBlock dest, int32_t sourceByteCount, int32_t lowValue,
                   int32_t highValue);

// -- addresses, copies and fields -------------------------------------------
uint64_t AddressVEK(REALmemoryBlock block, int64_t offset);
void* AddressPtrVEK(REALmemoryBlock block, int64_t offset);
REALstring getOSType(REALmemoryBlock block, int32_t offset);
void setOSType(REALmemoryBlock block, int32_t offset, REALstring value);
REALstring getString(REALmemoryBlock block, int32_t offset, int32_t numBytes);
void setString(REALmemoryBlock block, REALstring str, int32_t offset);
REALfolderItem getFSSpec(REALmemoryBlock block, int32_t offset);
void setFSSpec(REALmemoryBlock block, int32_t offset, REALfolderItem value);
void copyBytes1(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t destOfs);
void copyBytes2(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, REALmemoryBlock destBlk, int32_t destOfs);
void toMacPtr(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, void* destPtr);
void fromMacPtr(REALmemoryBlock block, void* srcPtr, int32_t numBytes, int32_t destOfs);
void toMacHdl(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, intptr_t destHandle);
void fromMacHdl(REALmemoryBlock block, intptr_t srcHandle, int32_t numBytes, int32_t destOfs);

// -- compare and search -----------------------------------------------------
bool BytesEqualVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, REALmemoryBlock destBlk,
                   int32_t destOfs);
bool BytesZeroVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes);
int32_t FindNotByteVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t byteValue);
int32_t FindByteVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t byteValue);
int32_t findBytes1(REALmemoryBlock block, int32_t srcOfs, int32_t maxBytes, REALstring target);
int32_t findBytes2(REALmemoryBlock block, int32_t srcOfs, int32_t maxBytes, REALmemoryBlock target, int32_t targOfs,
                   int32_t targLen);

// -- sub-blocks, fill and invert --------------------------------------------
REALmemoryBlock getMid1(REALmemoryBlock block, int32_t offset);
REALmemoryBlock getMid2(REALmemoryBlock block, int32_t offset, int32_t length);
REALmemoryBlock getLeft(REALmemoryBlock block, int32_t length);
REALmemoryBlock getRight(REALmemoryBlock block, int32_t length);
REALmemoryBlock getAppend(REALmemoryBlock block, REALmemoryBlock other);
void fillbytes(REALmemoryBlock block, int32_t offset, int32_t count, int32_t value);
void InvertBytesVEK(REALmemoryBlock block, int32_t offset, int32_t count);

// -- the MemoryBlockVEK class -----------------------------------------------
bool CreateMem(REALobject object, int64_t size);
bool Resize(REALobject object, int64_t size);
void MemClose(REALobject object);
uint64_t GetAddress(REALobject object, int32_t unused);
int64_t GetSize(REALobject object, int32_t unused);
REALmemoryBlock GetMemory(REALobject object, int32_t unused);

// -- global methods ---------------------------------------------------------
REALmemoryBlock newMemoryblockPtr(intptr_t ptr);
REALmemoryBlock newMemoryblockPtrCopy(void* data, int32_t size);
