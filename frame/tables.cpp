// Everything the plug-in offers the host, as static records in host order.
//
// memoryblockMethods is the MemoryBlock extension: one row per method, an
// overload is just another row, and the order is the order the host lists
// them in (modules keep it, a setter entry going just before its function).
// The function pointers are converted in each row rather than through a
// helper function, which would make these tables dynamically initialised.
#include "frame/tables.h"

#include <iterator>

#include "frame/entry_points.h"

int32_t CurrentREALControlVersion = 13;
const char* gpartname = nullptr;

REALmethodDefinition memoryblockMethods[] = {
    // -- colour and signal --------------------------------------------------
    {reinterpret_cast<const void*>(Convert12BitTo8Bit), nullptr, "ConvertRGB12BitTo8BitVEK(Width as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(Calc3te), nullptr, "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as integer = 0)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(Calc2teCMY), nullptr, "_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(Calc2teCMYK), nullptr, "_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = true)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(CalcLogSweepTable), nullptr, "_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(ConvertPolarToCartesian), nullptr, "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(ConvertCartesianToPolar), nullptr, "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)", kMethodFlags, 0, 0},
    // -- scaling, minimum and maximum ---------------------------------------
    {reinterpret_cast<const void*>(MultiplyUInt16VEK), nullptr, "MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(MultiplyUInt8VEK), nullptr, "MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(MinVEK), nullptr, "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(MaxVEK), nullptr, "MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean", kMethodFlags, 0, 0},
    // -- mirroring ----------------------------------------------------------
    {reinterpret_cast<const void*>(MirrorBitsInBytesVEK), nullptr, "MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(MirrorBytesVEK), nullptr, "MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(MirrorBitsVEK), nullptr, "MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)", kMethodFlags, 0, 0},
    // -- addresses and fields -----------------------------------------------
    {reinterpret_cast<const void*>(AddressVEK), nullptr, "AddressVEK(offset as Int64 = 0) as UInt64", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(AddressPtrVEK), nullptr, "AddressPtrVEK(offset as Int64 = 0) as Ptr", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getOSType), reinterpret_cast<const void*>(setOSType), "OSTypeVEK(offset as Integer) as String", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getString), nullptr, "GetStringVEK(offset as Integer, numBytes as Integer) as String", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(setString), nullptr, "SetStringVEK(str as String, offset as Integer)", kMethodFlags, 0, 0},
    // -- byte swapping ------------------------------------------------------
    {reinterpret_cast<const void*>(swapBytes), nullptr, "SwapBytesVEK(offset as Integer, numBytes as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(swapBytes16), nullptr, "SwapBytes16VEK(offset as Integer, numBytes as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(swapBytes32), nullptr, "SwapBytes32VEK(offset as Integer, numBytes as Integer)", kMethodFlags, 0, 0},
    // -- compare and search -------------------------------------------------
    {reinterpret_cast<const void*>(BytesEqualVEK), nullptr, "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(BytesZeroVEK), nullptr, "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(FindNotByteVEK), nullptr, "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(FindByteVEK), nullptr, "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer", kMethodFlags, 0, 0},
    // -- copies and raw memory ----------------------------------------------
    {reinterpret_cast<const void*>(copyBytes1), nullptr, "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(copyBytes2), nullptr, "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(toMacPtr), nullptr, "CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(fromMacPtr), nullptr, "CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(toMacHdl), nullptr, "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(fromMacHdl), nullptr, "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)", kMethodFlags, 0, 0},
    // -- searches and FSSpec records ---------------------------------------
    {reinterpret_cast<const void*>(findBytes1), nullptr, "FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(findBytes2), nullptr, "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as Integer) as Integer", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getFSSpec), reinterpret_cast<const void*>(setFSSpec), "FSSpecVEK(offset as Integer) as FolderItem", kMethodFlags, 0, 0},
    // -- sub-blocks ---------------------------------------------------------
    {reinterpret_cast<const void*>(getMid1), nullptr, "MidVEK(offset as integer) as Memoryblock", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getMid2), nullptr, "MidVEK(offset As Integer, length As Integer) as Memoryblock", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getLeft), nullptr, "LeftVEK(length as integer) as Memoryblock", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getRight), nullptr, "RightVEK(length As Integer) as Memoryblock", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(getAppend), nullptr, "AppendVEK(other as Memoryblock) as Memoryblock", kMethodFlags, 0, 0},
    // -- fill and invert ----------------------------------------------------
    {reinterpret_cast<const void*>(fillbytes), nullptr, "FillBytesVEK(offset as integer, count as integer, value as integer)", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(InvertBytesVEK), nullptr, "InvertBytesVEK(offset as integer, count as integer)", kMethodFlags, 0, 0},
    // -- strided copies and bit expansion -----------------------------------
    {reinterpret_cast<const void*>(CopyNthBytes), nullptr, "CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(CopyNthBits), nullptr, "CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(ExpandBitsVEK), nullptr, "ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = 255) as boolean", kMethodFlags, 0, 0},
};
static_assert(std::size(memoryblockMethods) == kMemoryblockMethodCount, "one record per extension method");

REALproperty memBlkClassProperties[] = {
    {0, "BytesVEK", "Integer", kPropertyFlags, reinterpret_cast<const void*>(GetBlockSize), nullptr, {}},
};

REALclassDefinition memBlkClass = {
    .version = 13,
    .name = "MemoryBlock",
    .dataSize = 0,
    .properties = memBlkClassProperties,
    .propertyCount = std::size(memBlkClassProperties),
    .methods = memoryblockMethods,
    .methodCount = std::size(memoryblockMethods),
    .classFlags = kClassFlags,
};

REALproperty MemProperties[] = {
    {0, "Address", "Int64", kPropertyFlags, reinterpret_cast<const void*>(GetAddress), nullptr, {}},
    {0, "Size", "Int64", kPropertyFlags, reinterpret_cast<const void*>(GetSize), nullptr, {}},
    {0, "Memory", "Memoryblock", kPropertyFlags, reinterpret_cast<const void*>(GetMemory), nullptr, {}},
};

REALmethodDefinition MemMethods[] = {
    {reinterpret_cast<const void*>(Resize), nullptr, "Resize(Size as Int64) as boolean", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(MemClose), nullptr, "Close", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(CreateMem), nullptr, "Create(size as Int64) as boolean", kMethodFlags, 0, 0},
};

// Instance data: size (8 bytes), the host block over the buffer, the buffer's
// address; declared as 32 bytes.
REALclassDefinition MemClass = {
    .version = 13,
    .name = "MemoryBlockVEK",
    .dataSize = 32,
    .dispose = reinterpret_cast<const void*>(MemClose),
    .properties = MemProperties,
    .propertyCount = std::size(MemProperties),
    .methods = MemMethods,
    .methodCount = std::size(MemMethods),
    .classFlags = kClassFlags,
};

REALmethodDefinition globalsMethods[] = {
    {reinterpret_cast<const void*>(newMemoryblockPtr), nullptr, "NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock", kMethodFlags, 0, 0},
    {reinterpret_cast<const void*>(newMemoryblockPtrCopy), nullptr, "NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock", kMethodFlags, 0, 0},
};
static_assert(std::size(globalsMethods) == kGlobalsMethodCount);
