// The static definition tables, written into by REALPluginMain and the host.
#pragma once

#include <cstdint>

#include "frame/records.h"

constexpr int kMemoryblockMethodCount = 45;
constexpr int kGlobalsMethodCount = 2;

extern REALclassDefinition memBlkClass;  // the MemoryBlock extension
extern REALmethodDefinition memoryblockMethods[kMemoryblockMethodCount];
extern REALproperty memBlkClassProperties[1];
extern REALclassDefinition MemClass;  // MemoryBlockVEK
extern REALmethodDefinition MemMethods[3];
extern REALproperty MemProperties[3];
extern REALmethodDefinition globalsMethods[kGlobalsMethodCount];

extern int32_t CurrentREALControlVersion;  // record version for this host
extern const char* gpartname;
