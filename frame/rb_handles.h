// Opaque handles of the host's reference-counted objects, as they cross the
// plug-in boundary. The plug-in never looks inside them, except for the
// string record that old hosts let it read (rb_bytes.cpp) and the instance
// data of its own class, which lies at the handle plus the offset the host
// writes into the class record.
#pragma once

#include <cstdint>

struct REALobjectStruct;
struct REALmemoryBlockStruct;
struct REALstringStruct;
struct REALfolderItemStruct;

using REALobject = REALobjectStruct*;
using REALmemoryBlock = REALmemoryBlockStruct*;
using REALstring = REALstringStruct*;
using REALfolderItem = REALfolderItemStruct*;

// A block and a folder item are objects too; the host's object services
// (lock, unlock) take them as such.
inline REALobject as_object(REALmemoryBlock block) { return reinterpret_cast<REALobject>(block); }
inline REALobject as_object(REALfolderItem item) { return reinterpret_cast<REALobject>(item); }

// The resolver the host hands to REALPluginMain: service name to entry point.
using REALResolver = void* (*)(const char* name);

// Apple text-encoding codes the plug-in uses.
constexpr uint32_t kEncodingMacRoman = 0x00000000;
constexpr uint32_t kEncodingUTF16 = 0x00000100;
constexpr uint32_t kEncodingWindowsLatin1 = 0x00000500;
constexpr uint32_t kEncodingASCII = 0x00000600;
constexpr uint32_t kEncodingUnknown = 0x0000FFFF;
constexpr uint32_t kEncodingUTF8 = 0x08000100;
constexpr uint32_t kEncodingUTF32 = 0x0C000100;
