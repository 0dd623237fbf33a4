// Definition records shared with the host. Every word is pointer-sized (four
// bytes on i386, eight on x86-64) and integers are stored sign-extended, so
// the same field order serves both targets. The host reads these records by
// word position; do not reorder, insert or remove fields. Words are counted
// from 0, as offsetof counts them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/rb_handles.h"

// One method: 6 words.
struct REALmethodDefinition {
  const void* function;     // plain function; the object or block comes first
  const void* setter;       // called for an assignment; null when not assignable
  const char* declaration;  // the method's interface in the host language
  intptr_t flags;
  intptr_t reserved4;  // carried unchanged
  intptr_t reserved5;  // carried unchanged
};

// One property: 12 words.
struct REALproperty {
  intptr_t reserved0;
  const char* name;
  const char* type;
  intptr_t flags;
  const void* getter;  // (object, ignored word) -> value
  const void* setter;  // null: every property here is read-only
  intptr_t reserved[6];
};

// A class, or an extension of a host class: 29 words. The tables name only
// the words they use; every other word is 0.
struct REALclassDefinition {
  intptr_t version{};  // record version, set just before registration
  const char* name{};
  intptr_t reserved2{};
  intptr_t dataSize{};    // instance data bytes, rounded up to 16 before registration
  intptr_t dataOffset{};  // filled in by the host when the class is registered
  intptr_t reserved5{};
  const void* dispose{};
  REALproperty* properties{};
  intptr_t propertyCount{};
  REALmethodDefinition* methods{};
  intptr_t methodCount{};
  const void* otherTableA{};  // words 11-12: a table this plug-in leaves empty
  intptr_t otherCountA{};
  intptr_t reserved13[3]{};  // words 13-15
  intptr_t reserved16[2]{};  // words 16-17
  const void* otherTableB{};  // words 18-19: another table left empty
  intptr_t otherCountB{};
  intptr_t classFlags{};  // word 20
  REALproperty* sharedProperties{};  // words 21-22
  intptr_t sharedPropertyCount{};
  REALmethodDefinition* sharedMethods{};  // words 23-24
  intptr_t sharedMethodCount{};
  intptr_t reserved25[4]{};  // words 25-28: no place in the version-9 layout
};

// A module of methods: 24 words.
struct REALmoduleDefinition {
  intptr_t version;
  const char* name;
  REALmethodDefinition* methods;
  intptr_t methodCount;
  intptr_t reserved[20];
};

// The record "PluginGetStringData" fills: 5 words.
struct StringDataRecord {
  const void* data;
  intptr_t length;
  intptr_t hostOwned[3];
};

constexpr size_t kWord = sizeof(void*);
static_assert(sizeof(REALmethodDefinition) == 6 * kWord);
static_assert(sizeof(REALproperty) == 12 * kWord);
static_assert(sizeof(REALclassDefinition) == 29 * kWord);
static_assert(offsetof(REALclassDefinition, classFlags) == 20 * kWord);
static_assert(offsetof(REALclassDefinition, sharedMethods) == 23 * kWord);
static_assert(sizeof(REALmoduleDefinition) == 24 * kWord);
static_assert(sizeof(StringDataRecord) == 5 * kWord);

// Record-version-9 layouts: the leading words of the current records.
constexpr size_t kClassWordsV9 = 25;
constexpr size_t kMethodWordsV9 = 4;
constexpr size_t kPropertyWordsV9 = 10;

constexpr intptr_t kMethodFlags = 4;
constexpr intptr_t kPropertyFlags = 6;
constexpr intptr_t kClassFlags = 4;
constexpr intptr_t kModuleEntryFlag = 16;
