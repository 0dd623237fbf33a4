// Registration adapted to particular hosts: modules of methods for hosts that
// take the MemoryBlock extension as functions with an explicit first
// parameter, and the shorter class records of record version 9.
#pragma once

#include <cstdint>

#include "frame/records.h"

// "MidVEK(offset as integer) as Memoryblock" becomes
// "MidVEK(extends ref as MemoryBlock, offset as integer) as Memoryblock".
// Returns a malloc'ed text, or null when it cannot be made.
char* AddClassParameter(const char* declaration, const char* className);

// Build and register the extension's methods, and the global methods, as
// modules. What cannot be built is not registered.
void BuildExtensionModule();
void BuildGlobalsModule();

// A malloc'ed 25-word copy of a class record in the version-9 layout, with
// converted method and property tables of its own; null when out of memory.
REALclassDefinition* FixClass(const REALclassDefinition* classDefinition);
REALproperty* FixProperties(const REALproperty* properties, intptr_t count);
