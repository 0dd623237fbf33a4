// The host's services, reached through the resolver handed to REALPluginMain.
//
// Each REAL... wrapper owns one cache cell: the service is looked up by name
// on first use and kept once found. A service the host lacks is asked for
// again on the next use, and meanwhile the call is skipped and the wrapper
// gives its neutral result (null, 0, false or nothing). No service is looked
// up eagerly. The cells are relaxed atomics: the same instructions as plain
// pointers on x86, and two threads racing on a first lookup store the same
// value without a data race.
#pragma once

#include <atomic>
#include <cstdint>

#include "frame/rb_handles.h"
#include "frame/records.h"

extern REALResolver gResolver;  // set by connect_host, first thing in REALPluginMain
extern double rbversion;        // host version; 0.0 when the host does not say

// Keeps the host's resolver and reads the host's version through it.
void connect_host(REALResolver resolver);

// Host versions at which the plug-in changes course. A host "from" a version
// is one whose rbversion is at least that version.
constexpr double kHost2012 = 2012.0;   // record version 10; strings built with an encoding
constexpr double kHost2013 = 2013.0;   // record version 11; modules; UTF-32 built by the host
constexpr double kHost2013_03 = 2013.03;  // record version 12
constexpr double kHost2013_04 = 2013.04;  // record version 13
constexpr double kHost2016 = 2016.0;   // string bytes through LenB and "StringGetCString"
constexpr double kHost3000 = 3000.0;   // class extensions again instead of modules

inline bool host_from(double version) { return rbversion >= version; }

template <typename Fn>
inline Fn resolve(std::atomic<Fn>& cell, const char* name) {
  Fn fn = cell.load(std::memory_order_relaxed);
  if (fn == nullptr && gResolver != nullptr) {
    fn = reinterpret_cast<Fn>(gResolver(name));
    cell.store(fn, std::memory_order_relaxed);  // null too: a missing service is asked for again
  }
  return fn;
}

// -- registration -----------------------------------------------------------

inline void REALRegisterClass(REALclassDefinition* definition) {
  static std::atomic<void (*)(REALclassDefinition*)> cell;
  if (auto fn = resolve(cell, "PluginRegisterClass")) fn(definition);
}

inline void REALRegisterClassExtension(REALclassDefinition* definition) {
  static std::atomic<void (*)(REALclassDefinition*)> cell;
  if (auto fn = resolve(cell, "PluginRegisterClassExtension")) fn(definition);
}

// False when the host has no such service: the module is then the caller's
// to free.
inline bool REALRegisterModule(REALmoduleDefinition* module) {
  static std::atomic<void (*)(REALmoduleDefinition*)> cell;
  auto fn = resolve(cell, "PluginRegisterModule");
  if (fn == nullptr) return false;
  fn(module);
  return true;
}

inline void REALRegisterMethod(REALmethodDefinition* method) {
  static std::atomic<void (*)(REALmethodDefinition*)> cell;
  if (auto fn = resolve(cell, "PluginRegisterMethod")) fn(method);
}

// -- memory blocks ----------------------------------------------------------

inline REALmemoryBlock REALNewMemoryBlockOriginal(int32_t size) {
  static std::atomic<REALmemoryBlock (*)(int32_t)> cell;
  auto fn = resolve(cell, "newMemoryBlock");
  return fn != nullptr ? fn(size) : nullptr;
}

// A nil block has no bytes: it is never handed to the host's accessors.
inline void* REALMemoryBlockGetPtr(REALmemoryBlock block) {
  static std::atomic<void* (*)(REALmemoryBlock)> cell;
  if (block == nullptr) return nullptr;
  auto fn = resolve(cell, "memoryBlockGetPtr");
  return fn != nullptr ? fn(block) : nullptr;
}

inline int32_t REALMemoryBlockGetSize(REALmemoryBlock block) {
  static std::atomic<int32_t (*)(REALmemoryBlock)> cell;
  if (block == nullptr) return 0;
  auto fn = resolve(cell, "memoryBlockGetSize");
  return fn != nullptr ? fn(block) : 0;
}

inline REALmemoryBlock REALPtrToMemoryBlock(void* address) {
  static std::atomic<REALmemoryBlock (*)(void*)> cell;
  auto fn = resolve(cell, "PtrToMemoryBlock");
  return fn != nullptr ? fn(address) : nullptr;
}

// -- references -------------------------------------------------------------

// True when the reference was taken. A host without the service takes none,
// and the caller then has none to give back.
inline bool REALLockObject(REALobject object) {
  static std::atomic<void (*)(REALobject)> cell;
  auto fn = resolve(cell, "REALLockObject");
  if (fn == nullptr) return false;
  fn(object);
  return true;
}

inline void REALUnlockObject(REALobject object) {
  static std::atomic<void (*)(REALobject)> cell;
  if (auto fn = resolve(cell, "REALUnlockObject")) fn(object);
}

// True when the reference was taken, as for REALLockObject.
inline bool REALLockString(REALstring string) {
  static std::atomic<void (*)(REALstring)> cell;
  auto fn = resolve(cell, "REALLockString");
  if (fn == nullptr) return false;
  fn(string);
  return true;
}

inline void REALUnlockString(REALstring string) {
  static std::atomic<void (*)(REALstring)> cell;
  if (auto fn = resolve(cell, "REALUnlockString")) fn(string);
}

// -- strings ----------------------------------------------------------------

inline REALstring originalREALBuildString(const void* data, int32_t length) {
  static std::atomic<REALstring (*)(const void*, int32_t)> cell;
  auto fn = resolve(cell, "REALBuildString");
  return fn != nullptr ? fn(data, length) : nullptr;
}

inline REALstring REALBuildStringWithEncoding(const void* data, int32_t length, uint32_t encoding) {
  static std::atomic<REALstring (*)(const void*, int32_t, uint32_t)> cell;
  auto fn = resolve(cell, "REALBuildStringWithEncoding");
  return fn != nullptr ? fn(data, length, encoding) : nullptr;
}

inline void REALSetStringEncoding(REALstring string, uint32_t encoding) {
  static std::atomic<void (*)(REALstring, uint32_t)> cell;
  if (auto fn = resolve(cell, "REALSetStringEncoding")) fn(string, encoding);
}

inline REALstring REALConvertString(REALstring string, uint32_t encoding) {
  static std::atomic<REALstring (*)(REALstring, uint32_t)> cell;
  auto fn = resolve(cell, "REALConvertString");
  return fn != nullptr ? fn(string, encoding) : nullptr;
}

inline uint32_t REALGetStringEncoding(REALstring string) {
  static std::atomic<uint32_t (*)(REALstring)> cell;
  auto fn = resolve(cell, "REALGetStringEncoding");
  return fn != nullptr ? fn(string) : 0;
}

inline bool REALGetStringData(REALstring string, uint32_t encoding, StringDataRecord* record) {
  static std::atomic<uint8_t (*)(REALstring, uint32_t, StringDataRecord*)> cell;
  auto fn = resolve(cell, "PluginGetStringData");
  return fn != nullptr && fn(string, encoding, record) != 0;
}

inline void REALDisposeStringData(StringDataRecord* record) {
  static std::atomic<void (*)(StringDataRecord*)> cell;
  if (auto fn = resolve(cell, "PluginDisposeStringData")) fn(record);
}

inline void* REALLoadFrameworkMethod(const char* declaration) {
  static std::atomic<void* (*)(const char*, const char*)> cell;
  auto fn = resolve(cell, "REALLoadGlobalMethod");
  return fn != nullptr ? fn(nullptr, declaration) : nullptr;
}

// A string's own bytes, in its own encoding, with no terminator: the pointer
// from "StringGetCString" and the byte count from the framework's LenB. The
// length cell is filled through the framework loader rather than the
// resolver, since LenB is a function of the language, not a plug-in service.
inline const uint8_t* REALGetStringContents(REALstring string, int32_t* length) {
  static std::atomic<const uint8_t* (*)(REALstring)> bytes_cell;
  static std::atomic<int32_t (*)(REALstring)> length_cell;
  auto lenb = length_cell.load(std::memory_order_relaxed);
  if (lenb == nullptr) {
    lenb = reinterpret_cast<int32_t (*)(REALstring)>(
        REALLoadFrameworkMethod("LenB( s as string ) as integer"));
    length_cell.store(lenb, std::memory_order_relaxed);
  }
  *length = lenb != nullptr ? lenb(string) : 0;
  auto fn = resolve(bytes_cell, "StringGetCString");
  return fn != nullptr ? fn(string) : nullptr;
}

// -- objects and exceptions -------------------------------------------------

inline REALobject REALnewInstance(const char* className) {
  static std::atomic<REALobject (*)(const char*)> cell;
  auto fn = resolve(cell, "PluginNewInstance");
  return fn != nullptr ? fn(className) : nullptr;
}

inline void REALSetPropValueString(REALobject object, const char* property, REALstring value) {
  static std::atomic<uint8_t (*)(REALobject, const char*, REALstring)> cell;
  if (auto fn = resolve(cell, "REALSetPropValueString")) fn(object, property, value);
}

// Older hosts name this service "REALSetPropValueInt"; the cell keeps
// whichever of the two names the host answers.
inline void REALSetPropValueInteger(REALobject object, const char* property, int32_t value) {
  using Fn = uint8_t (*)(REALobject, const char*, int32_t);
  static std::atomic<Fn> cell;
  Fn fn = cell.load(std::memory_order_relaxed);
  if (fn == nullptr && gResolver != nullptr) {
    fn = reinterpret_cast<Fn>(gResolver("REALSetPropValueInteger"));
    if (fn == nullptr) fn = reinterpret_cast<Fn>(gResolver("REALSetPropValueInt"));
    cell.store(fn, std::memory_order_relaxed);
  }
  if (fn != nullptr) fn(object, property, value);
}

inline void REALRaiseException(REALobject exception) {
  static std::atomic<void (*)(REALobject)> cell;
  if (auto fn = resolve(cell, "RuntimeRaiseException")) fn(exception);
}

// -- FSSpec records ----------------------------------------------------------

inline REALfolderItem REALFolderItemFromFSSpec(const void* spec) {
  static std::atomic<REALfolderItem (*)(const void*)> cell;
  auto fn = resolve(cell, "FolderItemFromFSSpec");
  return fn != nullptr ? fn(spec) : nullptr;
}

inline void REALFSSpecFromFolderItem(void* spec, REALfolderItem item) {
  static std::atomic<uint8_t (*)(void*, REALfolderItem)> cell;
  if (auto fn = resolve(cell, "REALFSSpecFromFolderItem")) fn(spec, item);  // result unused
}
