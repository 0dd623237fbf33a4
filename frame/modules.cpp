#include "frame/modules.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/host_services.h"
#include "frame/tables.h"

namespace {
constexpr size_t kDeclarationBuffer = 1000;
constexpr size_t kNameBuffer = 100;
constexpr int64_t kLargestAllocation = 0x7FFFFFFF;

// Our own copy rather than strdup, so that every allocation of the plug-in
// goes through its own malloc.
char* copy_text(const char* text) {
  size_t size = std::strlen(text) + 1;
  auto* copy = static_cast<char*>(std::malloc(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

// The setter's declaration from its getter's (already given the class
// parameter): the assigned value becomes the last parameter and takes the
// getter's result type.
//   "F(extends ref as MemoryBlock, offset as Integer) as String"
//     -> "F(extends ref as MemoryBlock, offset as Integer, assigns value as String)"
bool AddAssignsParameter(const char* declaration, char (&buffer)[kDeclarationBuffer]) {
  const char* cut = std::strchr(declaration, ')');
  const char* format = ", assigns value%s)";
  const char* rest = cut != nullptr ? cut + 1 : nullptr;
  if (cut == nullptr) {
    cut = std::strchr(declaration, ' ');
    format = "(assigns value%s)";
    rest = cut;
  }
  if (cut == nullptr) return false;
  auto k = static_cast<size_t>(cut - declaration);
  if (k >= kDeclarationBuffer) return false;
  std::memcpy(buffer, declaration, k);
  std::snprintf(buffer + k, kDeclarationBuffer - k, format, rest);
  return true;
}

void free_entries(REALmethodDefinition* entries, size_t count) {
  for (size_t i = 0; i < count; ++i) std::free(const_cast<char*>(entries[i].declaration));
  std::free(entries);
}

template <typename T>
T* allocate_table(intptr_t count, size_t recordBytes) {
  int64_t bytes = static_cast<int64_t>(count) * static_cast<int64_t>(recordBytes);
  if (bytes <= 0 || bytes > kLargestAllocation) return nullptr;
  return static_cast<T*>(std::calloc(1, static_cast<size_t>(bytes)));
}

// The first four words of each method record.
REALmethodDefinition* FixMethods(const REALmethodDefinition* methods, intptr_t count) {
  if (methods == nullptr || count == 0) return nullptr;
  auto* table = allocate_table<intptr_t>(count, kMethodWordsV9 * kWord);
  if (table == nullptr) return nullptr;
  for (intptr_t i = 0; i < count; ++i) std::memcpy(table + i * kMethodWordsV9, &methods[i], kMethodWordsV9 * kWord);
  return reinterpret_cast<REALmethodDefinition*>(table);
}
}  // namespace

char* AddClassParameter(const char* declaration, const char* className) {
  char buffer[kDeclarationBuffer] = {};
  size_t k = 0;
  while (k < kDeclarationBuffer - 1 && declaration[k] != '\0' && declaration[k] != ' ' && declaration[k] != '(') {
    buffer[k] = declaration[k];
    ++k;
  }
  if (declaration[k] == ' ') {
    std::snprintf(buffer + k, kDeclarationBuffer - k, "(extends ref as %s)%s", className, declaration + k);
  } else if (declaration[k] == '(') {
    std::snprintf(buffer + k, kDeclarationBuffer - k, "(extends ref as %s, %s", className, declaration + k + 1);
  } else {
    std::snprintf(buffer, kDeclarationBuffer, "%s(extends ref as %s)", declaration, className);
  }
  return copy_text(buffer);
}

void BuildExtensionModule() {
  const REALclassDefinition& extension = memBlkClass;
  if (extension.methodCount == 0) return;
  char name[kNameBuffer];
  std::snprintf(name, sizeof name, "%s%s%s", extension.name, gpartname, "ExtensionVEK");

  auto* module = static_cast<REALmoduleDefinition*>(std::calloc(1, sizeof(REALmoduleDefinition)));
  if (module == nullptr) return;
  intptr_t count = 0;  // a setter is an entry of its own
  for (intptr_t i = 0; i < extension.methodCount; ++i) {
    count += (extension.methods[i].function != nullptr) + (extension.methods[i].setter != nullptr);
  }
  auto* entries = allocate_table<REALmethodDefinition>(count, sizeof(REALmethodDefinition));
  if (entries == nullptr) {
    std::free(module);
    return;
  }

  // A failure abandons the whole module: the extension is then not offered.
  size_t built = 0;
  auto abandon = [&] {
    free_entries(entries, built);
    std::free(module);
  };
  for (intptr_t i = 0; i < extension.methodCount; ++i) {
    const REALmethodDefinition& method = extension.methods[i];
    if (method.setter != nullptr) {
      char buffer[kDeclarationBuffer] = {};
      char* getter = AddClassParameter(method.declaration, extension.name);
      bool rewritten = getter != nullptr && getter[0] != '\0' && AddAssignsParameter(getter, buffer);
      std::free(getter);
      char* declaration = rewritten ? copy_text(buffer) : nullptr;
      if (declaration == nullptr) return abandon();
      entries[built++] = {method.setter, nullptr, declaration, method.flags | kModuleEntryFlag, method.reserved4,
                          method.reserved5};
    }
    if (method.function != nullptr) {
      char* declaration = AddClassParameter(method.declaration, extension.name);
      if (declaration == nullptr || declaration[0] == '\0') {
        std::free(declaration);
        return abandon();
      }
      entries[built++] = {method.function, nullptr, declaration, method.flags | kModuleEntryFlag, method.reserved4,
                          method.reserved5};
    }
  }
  module->name = copy_text(name);
  if (module->name == nullptr) return abandon();
  module->version = CurrentREALControlVersion;
  module->methods = entries;
  module->methodCount = count;
  if (!REALRegisterModule(module)) {
    std::free(const_cast<char*>(module->name));
    abandon();
  }
}

void BuildGlobalsModule() {
  char name[kNameBuffer];
  std::snprintf(name, sizeof name, "%s%s", gpartname, "GlobalsVEK");
  auto* module = static_cast<REALmoduleDefinition*>(std::calloc(1, sizeof(REALmoduleDefinition)));
  auto* entries = allocate_table<REALmethodDefinition>(kGlobalsMethodCount, sizeof(REALmethodDefinition));
  char* module_name = module != nullptr && entries != nullptr ? copy_text(name) : nullptr;
  if (module_name == nullptr) {
    std::free(module);
    std::free(entries);
    return;
  }
  for (int i = 0; i < kGlobalsMethodCount; ++i) {
    entries[i] = globalsMethods[i];  // global declarations need no rewriting
    entries[i].flags |= kModuleEntryFlag;
  }
  module->version = CurrentREALControlVersion;
  module->name = module_name;
  module->methods = entries;
  module->methodCount = kGlobalsMethodCount;
  if (!REALRegisterModule(module)) {
    std::free(module_name);
    std::free(entries);
    std::free(module);
  }
}

REALproperty* FixProperties(const REALproperty* properties, intptr_t count) {
  if (properties == nullptr || count == 0) return nullptr;
  auto* table = allocate_table<intptr_t>(count, kPropertyWordsV9 * kWord);
  if (table == nullptr) return nullptr;
  for (intptr_t i = 0; i < count; ++i) {
    std::memcpy(table + i * kPropertyWordsV9, &properties[i], kPropertyWordsV9 * kWord);
  }
  return reinterpret_cast<REALproperty*>(table);
}

namespace {
// A table that should have been converted and was not ran out of memory.
bool converted(const void* fixedTable, const void* sourceTable, intptr_t count) {
  return fixedTable != nullptr || sourceTable == nullptr || count == 0;
}
}  // namespace

// The version-9 record keeps the leading 25 words, in the same places, with
// its tables in the shorter record layouts. Its words 11-12 and 18-19 name
// tables that no class here has; they stay null and 0.
REALclassDefinition* FixClass(const REALclassDefinition* source) {
  // A whole current record, of which the caller copies the first 25 words.
  auto* fixed = static_cast<REALclassDefinition*>(std::calloc(1, sizeof(REALclassDefinition)));
  if (fixed == nullptr) return nullptr;
  fixed->version = CurrentREALControlVersion;
  fixed->name = source->name;
  fixed->reserved2 = source->reserved2;
  fixed->dataSize = source->dataSize;
  fixed->dataOffset = source->dataOffset;
  fixed->reserved5 = source->reserved5;
  fixed->dispose = source->dispose;
  fixed->properties = FixProperties(source->properties, source->propertyCount);
  fixed->propertyCount = source->propertyCount;
  fixed->methods = FixMethods(source->methods, source->methodCount);
  fixed->methodCount = source->methodCount;
  std::memcpy(fixed->reserved13, source->reserved13, sizeof fixed->reserved13);
  fixed->classFlags = source->classFlags;
  fixed->sharedProperties = FixProperties(source->sharedProperties, source->sharedPropertyCount);
  fixed->sharedPropertyCount = source->sharedPropertyCount;
  fixed->sharedMethods = FixMethods(source->sharedMethods, source->sharedMethodCount);
  fixed->sharedMethodCount = source->sharedMethodCount;

  if (!converted(fixed->properties, source->properties, source->propertyCount) ||
      !converted(fixed->methods, source->methods, source->methodCount) ||
      !converted(fixed->sharedProperties, source->sharedProperties, source->sharedPropertyCount) ||
      !converted(fixed->sharedMethods, source->sharedMethods, source->sharedMethodCount)) {
    std::free(fixed->properties);
    std::free(fixed->methods);
    std::free(fixed->sharedProperties);
    std::free(fixed->sharedMethods);
    std::free(fixed);
    return nullptr;
  }
  return fixed;
}
