#include "host/sim_host.h"

#include <iconv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>
#include <variant>

static_assert(std::endian::native == std::endian::little,
              "host-order UTF-16 and UTF-32 are converted as little-endian");

namespace {

// Instance data lies this far past the handle; a multiple of 16 keeps it
// 16-aligned, as handle storage is.
constexpr uintptr_t kInstanceDataOffset = 32;
constexpr size_t kSpecBytes = 70;
// Readable bytes after every text handed out: the byte right after the text
// (0, or the marker for unterminated text), then zeros.
constexpr size_t kBytesAfterText = 4;
constexpr uint8_t kUnterminatedMarker = 0xA5;
// Freed handles stay reserved for a while so that a stale handle is reported
// as freed instead of landing on a new object.
constexpr size_t kRetiredLimit = 4096;
constexpr std::string_view kLenBDeclaration = "LenB( s as string ) as integer";

// Record layouts, in pointer-sized words.
struct RecordLayout {
  size_t classWords;
  size_t methodWords;
  size_t propertyWords;
};
constexpr RecordLayout kVersion9Layout{25, 4, 10};
constexpr RecordLayout kCurrentLayout{29, 6, 12};
constexpr size_t kModuleWords = 24;
constexpr size_t kModuleMethodWords = 6;

const char* const kExceptionClasses[] = {"NilObjectException", "UnsupportedOperationException",
                                         "OutOfMemoryException", "RuntimeException"};

// Shared records are read and written through memcpy: they are the plug-in's
// arrays, not objects of any type this file knows.
uintptr_t loadWord(const void* record, size_t index) {
  uintptr_t word;
  std::memcpy(&word, static_cast<const std::byte*>(record) + index * sizeof word, sizeof word);
  return word;
}

void storeWord(void* record, size_t index, uintptr_t word) {
  std::memcpy(static_cast<std::byte*>(record) + index * sizeof word, &word, sizeof word);
}

uintptr_t signExtended(int32_t value) { return static_cast<uintptr_t>(static_cast<intptr_t>(value)); }

int32_t loadInteger(const void* record, size_t index) { return static_cast<int32_t>(loadWord(record, index)); }

const void* loadPointer(const void* record, size_t index) {
  return reinterpret_cast<const void*>(loadWord(record, index));
}

std::string loadText(const void* record, size_t index) {
  const char* text = static_cast<const char*>(loadPointer(record, index));
  return text != nullptr ? text : "";
}

std::vector<uintptr_t> loadWords(const void* record, size_t count) {
  std::vector<uintptr_t> words(count);
  std::memcpy(words.data(), record, count * sizeof(uintptr_t));
  return words;
}

const void* recordAt(const void* table, size_t index, size_t words) {
  return static_cast<const std::byte*>(table) + index * words * sizeof(uintptr_t);
}

MethodReg readMethod(const void* record, size_t words) {
  MethodReg method;
  method.function = loadPointer(record, 0);
  method.setter = loadPointer(record, 1);
  method.declaration = loadText(record, 2);
  method.flags = loadInteger(record, 3);
  if (words > 4) {
    method.word4 = loadWord(record, 4);
    method.word5 = loadWord(record, 5);
  }
  method.recordWords = loadWords(record, words);
  return method;
}

std::vector<MethodReg> readMethods(const void* table, int32_t count, size_t words) {
  std::vector<MethodReg> methods;
  for (int32_t i = 0; table != nullptr && i < count; ++i) methods.push_back(readMethod(recordAt(table, i, words), words));
  return methods;
}

std::vector<PropertyReg> readProperties(const void* table, int32_t count, size_t words) {
  std::vector<PropertyReg> properties;
  for (int32_t i = 0; table != nullptr && i < count; ++i) {
    const void* record = recordAt(table, i, words);
    PropertyReg property;
    property.name = loadText(record, 1);
    property.type = loadText(record, 2);
    property.flags = loadInteger(record, 3);
    property.getter = loadPointer(record, 4);
    property.setter = loadPointer(record, 5);
    property.recordWords = loadWords(record, words);
    properties.push_back(std::move(property));
  }
  return properties;
}

const char* iconvName(uint32_t encoding) {
  switch (encoding) {
    case kEncodingMacRoman: return "MACINTOSH";
    case kEncodingUTF16: return "UTF-16LE";
    case kEncodingWindowsLatin1: return "CP1252";
    case kEncodingASCII: return "ASCII";
    case kEncodingUTF8: return "UTF-8";
    case kEncodingUTF32: return "UTF-32LE";
    default: return nullptr;
  }
}

// Text without a stated encoding is taken byte for byte, in either direction.
std::optional<std::string> convertText(std::string_view text, uint32_t from, uint32_t to) {
  if (from == to || from == kEncodingUnknown || to == kEncodingUnknown) return std::string(text);
  const char* fromName = iconvName(from);
  const char* toName = iconvName(to);
  if (fromName == nullptr || toName == nullptr) return std::nullopt;
  iconv_t converter = iconv_open(toName, fromName);
  if (converter == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(text.size() * 4, '\0');  // no source unit grows past four bytes
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  char* outNext = out.data();
  size_t outLeft = out.size();
  const size_t result = inLeft == 0 ? 0 : iconv(converter, &in, &inLeft, &outNext, &outLeft);
  iconv_close(converter);
  if (result == static_cast<size_t>(-1)) return std::nullopt;  // unmappable or malformed
  out.resize(out.size() - outLeft);
  return out;
}

std::string hexAddress(const void* address) {
  char text[2 + 2 * sizeof(void*) + 1];
  std::snprintf(text, sizeof text, "%p", address);
  return text;
}

std::string printable(std::string_view bytes) {
  constexpr size_t kShown = 40;
  std::string out;
  for (unsigned char c : bytes.substr(0, kShown)) {
    if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
      out += escaped;
    }
  }
  if (bytes.size() > kShown) out += "...";
  return out;
}

template <class Fn>
void* entryPoint(Fn* fn) {
  return reinterpret_cast<void*>(fn);
}

template <class Fn>
Fn toFunction(const void* address) {
  return reinterpret_cast<Fn>(const_cast<void*>(address));
}

}  // namespace

SimHost* SimHost::current_ = nullptr;

// -- storage --------------------------------------------------------------------

struct alignas(16) SimHost::RecordCell {
  std::byte bytes[16];
};

// Block and raw storage: [PROT_NONE page][data pages][PROT_NONE page], with
// the data flush against the guard the placement names. Empty storage points
// at the boundary between the two guards, so that any access faults.
class SimHost::GuardedStorage {
 public:
  static std::optional<GuardedStorage> map(size_t size, Placement placement) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (size > SIZE_MAX - 3 * page) return std::nullopt;
    const size_t dataBytes = (size + page - 1) / page * page;
    const size_t length = dataBytes + 2 * page;
    // NORESERVE: a test may ask for a block of nearly 2 GiB and touch a few bytes.
    void* base = mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) return std::nullopt;
    uint8_t* first = static_cast<uint8_t*>(base) + page;
    if (dataBytes != 0 && mprotect(first, dataBytes, PROT_READ | PROT_WRITE) != 0) {
      munmap(base, length);
      return std::nullopt;
    }
    uint8_t* data = placement == Placement::GuardAfter ? first + dataBytes - size : first;
    return GuardedStorage(base, length, data);
  }

  GuardedStorage(GuardedStorage&& other) noexcept
      : base_(std::exchange(other.base_, nullptr)), length_(other.length_), data_(other.data_) {}
  GuardedStorage& operator=(GuardedStorage&&) = delete;
  ~GuardedStorage() {
    if (base_ != nullptr) munmap(base_, length_);
  }

  uint8_t* data() const { return data_; }

 private:
  GuardedStorage(void* base, size_t length, uint8_t* data) : base_(base), length_(length), data_(data) {}

  void* base_;
  size_t length_;
  uint8_t* data_;
};

// Every host object. The handle is the address of `record`: for strings it
// holds the record old hosts let the plug-in read (word 1: buffer, text one
// byte after it; word 3: length); for instances the instance data follows at
// kInstanceDataOffset; for other kinds it only gives the handle an address.
struct SimHost::Object {
  struct Block {
    std::optional<GuardedStorage> storage;  // none for a block over someone else's address
    uint8_t* data = nullptr;
    int32_t size = 0;
    std::optional<int32_t> reportedSize;
    std::optional<void*> reportedData;
  };
  struct String {
    std::vector<uint8_t> buffer;  // one byte, the text, kBytesAfterText bytes
    int32_t length = 0;
    uint32_t encoding = 0;
    std::string_view text() const {
      return {reinterpret_cast<const char*>(buffer.data() + 1), static_cast<size_t>(length)};
    }
  };
  struct Instance {
    std::string className;
    bool isException = false;
    void (*dispose)(REALobject) = nullptr;
    const void* message = nullptr;  // a string the host holds a reference of
    int32_t errorNumber = 0;
  };
  struct FolderItem {
    std::array<uint8_t, kSpecBytes> spec{};
  };

  std::unique_ptr<RecordCell[]> record;
  std::variant<Block, String, Instance, FolderItem> state;
  int references = 1;
  int pluginHeld = 0;
  int hostHeld = 0;

  void* handle() const { return record.get(); }

  std::string describe() const {
    if (const auto* block = std::get_if<Block>(&state)) {
      return block->storage ? "block of " + std::to_string(block->size) + " bytes"
                            : "block over " + hexAddress(block->data);
    }
    if (const auto* string = std::get_if<String>(&state)) {
      char encoding[16];
      std::snprintf(encoding, sizeof encoding, "0x%X", string->encoding);
      return "string \"" + printable(string->text()) + "\" (encoding " + encoding + ")";
    }
    if (const auto* instance = std::get_if<Instance>(&state)) return instance->className + " instance";
    return "folder item";
  }
};

// -- handles --------------------------------------------------------------------

std::unique_ptr<SimHost::RecordCell[]> SimHost::newRecord(size_t bytes) {
  const size_t cells = std::max<size_t>(1, (bytes + sizeof(RecordCell) - 1) / sizeof(RecordCell));
  return std::make_unique<RecordCell[]>(cells);  // zero-filled
}

SimHost::Object* SimHost::find(const void* handle) const {
  const auto found = objects_.find(handle);
  return found != objects_.end() ? found->second.get() : nullptr;
}

SimHost::Object& SimHost::get(const void* handle, const char* what) const {
  Object* object = find(handle);
  if (object == nullptr) throw std::invalid_argument(std::string(what) + ": " + whatIs(handle));
  return *object;
}

template <class State>
State* SimHost::stateOf(const void* handle, const char* service) {
  if (Object* object = find(handle)) {
    if (auto* state = std::get_if<State>(&object->state)) return state;
  }
  noteInvalid(service, whatIs(handle));
  return nullptr;
}

std::string SimHost::whatIs(const void* handle) const {
  if (handle == nullptr) return "a null handle";
  if (const Object* object = find(handle)) return object->describe();
  for (const Retired& retired : retired_) {
    if (retired.record.get() == handle) return "freed " + retired.description;
  }
  return "unknown handle " + hexAddress(handle);
}

void SimHost::noteInvalid(const char* service, std::string_view given) {
  ++invalidHandles_;
  events_.push_back(std::string(service) + " given " + std::string(given));
}

// -- the services ---------------------------------------------------------------

struct SimHost::Services {
  static SimHost& host() {
    if (current_ == nullptr) {
      std::fputs("simulated host: a service was called with no host current\n", stderr);
      std::abort();
    }
    return *current_;
  }

  // What the resolver hands out: the service, run holding the host's lock.
  template <auto service, class Result, class... Args>
  static Result underLock(Args... args) {
    const std::lock_guard guard(host().mutex_);
    return service(args...);
  }
  template <auto service, class Result, class... Args>
  static void* lockedEntry(Result (*)(Args...)) {
    return entryPoint(&underLock<service, Result, Args...>);
  }
  template <auto service>
  static void* locked() {
    return lockedEntry<service>(service);
  }

  static double getRBVersion() { return host().config_.version.value_or(0.0); }

  static void registerPluginVersion(int32_t version) { host().registry_.pluginVersion = version; }

  static void registerClass(void* record) { host().registerClassRecord(record, false); }

  static void registerClassExtension(void* record) { host().registerClassRecord(record, true); }

  // A host keeps every registered module for the life of the process, as the
  // plug-in expects; the records stay reachable after this SimHost is gone.
  static void keepForever(const void* record) {
    static auto* kept = new std::vector<const void*>();
    kept->push_back(record);
  }

  static void registerModule(void* record) {
    SimHost& h = host();
    if (record == nullptr) {
      h.noteInvalid("PluginRegisterModule", "a null record");
      return;
    }
    ModuleReg module;
    module.recordVersion = loadInteger(record, 0);
    module.name = loadText(record, 1);
    module.methods = readMethods(loadPointer(record, 2), loadInteger(record, 3), kModuleMethodWords);
    module.recordWords = loadWords(record, kModuleWords);
    module.record = record;
    keepForever(record);
    h.registry_.modules.push_back(std::move(module));
  }

  static void registerMethod(void* record) {
    SimHost& h = host();
    if (record == nullptr) {
      h.noteInvalid("PluginRegisterMethod", "a null record");
      return;
    }
    h.registry_.globals.push_back(readMethod(record, kModuleMethodWords));
  }

  static REALmemoryBlock newMemoryBlock(int32_t size) {
    SimHost& h = host();
    ++h.newBlockCalls_;
    if (h.newBlockFailure_ != NewBlockFailure::None) {
      if (h.newBlockSuccessesLeft_ > 0) {
        --h.newBlockSuccessesLeft_;
      } else if (h.newBlockFailure_ == NewBlockFailure::ThrowBadAlloc) {
        throw std::bad_alloc();
      } else {
        return nullptr;
      }
    }
    if (size < 0) return nullptr;
    Object* block = h.makeBlock(static_cast<size_t>(size), Owner::Plugin);
    return block != nullptr ? static_cast<REALmemoryBlock>(block->handle()) : nullptr;
  }

  static void* memoryBlockGetPtr(REALmemoryBlock handle) {
    const auto* block = host().stateOf<Object::Block>(handle, "memoryBlockGetPtr");
    return block != nullptr ? block->reportedData.value_or(block->data) : nullptr;
  }

  static int32_t memoryBlockGetSize(REALmemoryBlock handle) {
    const auto* block = host().stateOf<Object::Block>(handle, "memoryBlockGetSize");
    return block != nullptr ? block->reportedSize.value_or(block->size) : 0;
  }

  static REALmemoryBlock ptrToMemoryBlock(void* address) {
    return static_cast<REALmemoryBlock>(host().makePointerBlock(address, Owner::Plugin)->handle());
  }

  static void lockObject(REALobject handle) { lock(handle, "REALLockObject", false); }
  static void unlockObject(REALobject handle) { host().pluginRelease(handle, "REALUnlockObject", false); }
  static void lockString(REALstring handle) { lock(handle, "REALLockString", true); }
  static void unlockString(REALstring handle) { host().pluginRelease(handle, "REALUnlockString", true); }

  static void lock(const void* handle, const char* service, bool wantString) {
    SimHost& h = host();
    Object* object = h.find(handle);
    if (object == nullptr || std::holds_alternative<Object::String>(object->state) != wantString) {
      h.noteInvalid(service, h.whatIs(handle));
      return;
    }
    ++object->references;
    ++object->pluginHeld;
  }

  static void throwIfAsked(const char* service) {
    if (host().config_.throwing.count(service) != 0) throw std::bad_alloc();
  }

  static REALstring buildString(const void* bytes, int32_t length) {
    throwIfAsked("REALBuildString");
    return makeBuiltString(bytes, length, kEncodingUnknown);
  }

  static REALstring buildStringWithEncoding(const void* bytes, int32_t length, uint32_t encoding) {
    throwIfAsked("REALBuildStringWithEncoding");
    return makeBuiltString(bytes, length, encoding);
  }

  static REALstring makeBuiltString(const void* bytes, int32_t length, uint32_t encoding) {
    if (length < 0 || (bytes == nullptr && length > 0)) return nullptr;
    const std::string_view text(static_cast<const char*>(bytes), static_cast<size_t>(length));
    Object* string = host().makeString(text, encoding, Owner::Plugin);
    return string != nullptr ? static_cast<REALstring>(string->handle()) : nullptr;
  }

  static void setStringEncoding(REALstring handle, uint32_t encoding) {
    if (auto* string = host().stateOf<Object::String>(handle, "REALSetStringEncoding")) string->encoding = encoding;
  }

  // A null source is part of the contract: the plug-in converts the result of
  // a build that may have failed.
  static REALstring convertString(REALstring handle, uint32_t encoding) {
    throwIfAsked("REALConvertString");
    if (handle == nullptr) return nullptr;
    SimHost& h = host();
    const auto* string = h.stateOf<Object::String>(handle, "REALConvertString");
    if (string == nullptr) return nullptr;
    const std::optional<std::string> converted = convertText(string->text(), string->encoding, encoding);
    if (!converted) return nullptr;
    Object* result = h.makeString(*converted, encoding, Owner::Plugin);
    return result != nullptr ? static_cast<REALstring>(result->handle()) : nullptr;
  }

  static uint32_t getStringEncoding(REALstring handle) {
    const auto* string = host().stateOf<Object::String>(handle, "REALGetStringEncoding");
    return string != nullptr ? string->encoding : kEncodingUnknown;
  }

  static uint8_t getStringData(REALstring handle, uint32_t encoding, void* record) {
    SimHost& h = host();
    if (record == nullptr) {
      h.noteInvalid("PluginGetStringData", "a null record");
      return 0;
    }
    const auto* string = h.stateOf<Object::String>(handle, "PluginGetStringData");
    if (string == nullptr) return 0;
    const std::optional<std::string> converted = convertText(string->text(), string->encoding, encoding);
    if (!converted || converted->size() > INT32_MAX) return 0;
    std::vector<uint8_t> data(converted->size() + kBytesAfterText, 0);
    std::memcpy(data.data(), converted->data(), converted->size());
    if (h.config_.unterminatedText) data[converted->size()] = kUnterminatedMarker;
    const uintptr_t token = h.nextStringDataToken_++;
    storeWord(record, 0, reinterpret_cast<uintptr_t>(data.data()));
    storeWord(record, 1, signExtended(static_cast<int32_t>(converted->size())));
    storeWord(record, 2, token);  // how the dispose finds the data again
    storeWord(record, 3, 0);
    storeWord(record, 4, 0);
    h.stringData_.emplace(token, std::move(data));
    return 1;
  }

  static void disposeStringData(void* record) {
    SimHost& h = host();
    if (record == nullptr || h.stringData_.erase(loadWord(record, 2)) == 0) {
      ++h.overReleased_;
      h.events_.push_back("PluginDisposeStringData of a record that holds no string data");
    }
  }

  static const char* stringGetCString(REALstring handle) {
    const auto* string = host().stateOf<Object::String>(handle, "StringGetCString");
    return string != nullptr ? string->text().data() : nullptr;
  }

  static int32_t lenB(REALstring handle) {
    const auto* string = host().stateOf<Object::String>(handle, "LenB");
    return string != nullptr ? string->length : 0;
  }

  static void* loadGlobalMethod(const char* className, const char* declaration) {
    SimHost& h = host();
    if (declaration == nullptr) return nullptr;
    ++h.lookups_[declaration];
    if (h.config_.missing.contains(declaration)) return nullptr;
    return className == nullptr && declaration == kLenBDeclaration ? locked<&lenB>() : nullptr;
  }

  static REALobject newInstance(const char* className) {
    if (className == nullptr) return nullptr;
    Object* instance = host().makeInstance(className, Owner::Plugin);
    return instance != nullptr ? static_cast<REALobject>(instance->handle()) : nullptr;
  }

  // Only the exception classes have properties the host sets; the plug-in's
  // own classes read theirs through their getters.
  static uint8_t setPropValueString(REALobject handle, const char* property, REALstring value) {
    SimHost& h = host();
    auto* instance = h.stateOf<Object::Instance>(handle, "REALSetPropValueString");
    if (instance == nullptr || property == nullptr) return 0;
    if (!instance->isException || std::string_view(property) != "Message") return 0;
    if (value != nullptr) {
      if (h.stateOf<Object::String>(value, "REALSetPropValueString") == nullptr) return 0;
      h.hostRetain(*h.find(value));
    }
    if (const void* previous = std::exchange(instance->message, value)) h.hostRelease(previous);
    return 1;
  }

  static uint8_t setPropValueInteger(REALobject handle, const char* property, int32_t value) {
    auto* instance = host().stateOf<Object::Instance>(handle, "REALSetPropValueInteger");
    if (instance == nullptr || property == nullptr) return 0;
    if (!instance->isException || std::string_view(property) != "ErrorNumber") return 0;
    instance->errorNumber = value;
    return 1;
  }

  static void raiseException(REALobject handle) {
    SimHost& h = host();
    const auto* instance = h.stateOf<Object::Instance>(handle, "RuntimeRaiseException");
    if (instance == nullptr) return;
    Raised raised{instance->className, std::nullopt, instance->errorNumber};
    if (instance->message != nullptr) {
      raised.message = std::string(std::get<Object::String>(h.find(instance->message)->state).text());
    }
    h.raised_.push_back(std::move(raised));
    h.hostRetain(*h.find(handle));
    h.raisedObjects_.push_back(handle);
  }

  static REALfolderItem folderItemFromFSSpec(const void* spec) {
    SimHost& h = host();
    if (spec == nullptr) {
      h.noteInvalid("FolderItemFromFSSpec", "a null record");
      return nullptr;
    }
    return static_cast<REALfolderItem>(h.makeFolderItem(static_cast<const uint8_t*>(spec), Owner::Plugin).handle());
  }

  // A null item is part of the contract: the plug-in hands the assigned
  // value on untested.
  static uint8_t fsSpecFromFolderItem(void* spec, REALfolderItem handle) {
    if (handle == nullptr) return 0;
    SimHost& h = host();
    const auto* item = h.stateOf<Object::FolderItem>(handle, "REALFSSpecFromFolderItem");
    if (item == nullptr) return 0;
    if (spec == nullptr) {
      h.noteInvalid("REALFSSpecFromFolderItem", "a null record");
      return 0;
    }
    std::memcpy(spec, item->spec.data(), kSpecBytes);
    return 1;
  }

  static void* entry(std::string_view name) {
    static const std::pair<std::string_view, void*> kServices[] = {
        {"REALGetRBVersion", locked<&getRBVersion>()},
        {"RegisterPluginVersion", locked<&registerPluginVersion>()},
        {"PluginRegisterClass", locked<&registerClass>()},
        {"PluginRegisterClassExtension", locked<&registerClassExtension>()},
        {"PluginRegisterModule", locked<&registerModule>()},
        {"PluginRegisterMethod", locked<&registerMethod>()},
        {"newMemoryBlock", locked<&newMemoryBlock>()},
        {"memoryBlockGetPtr", locked<&memoryBlockGetPtr>()},
        {"memoryBlockGetSize", locked<&memoryBlockGetSize>()},
        {"PtrToMemoryBlock", locked<&ptrToMemoryBlock>()},
        {"REALLockObject", locked<&lockObject>()},
        {"REALUnlockObject", locked<&unlockObject>()},
        {"REALLockString", locked<&lockString>()},
        {"REALUnlockString", locked<&unlockString>()},
        {"REALBuildString", locked<&buildString>()},
        {"REALBuildStringWithEncoding", locked<&buildStringWithEncoding>()},
        {"REALSetStringEncoding", locked<&setStringEncoding>()},
        {"REALConvertString", locked<&convertString>()},
        {"REALGetStringEncoding", locked<&getStringEncoding>()},
        {"PluginGetStringData", locked<&getStringData>()},
        {"PluginDisposeStringData", locked<&disposeStringData>()},
        {"StringGetCString", locked<&stringGetCString>()},
        {"REALLoadGlobalMethod", locked<&loadGlobalMethod>()},
        {"PluginNewInstance", locked<&newInstance>()},
        {"REALSetPropValueString", locked<&setPropValueString>()},
        {"REALSetPropValueInteger", locked<&setPropValueInteger>()},
        {"REALSetPropValueInt", locked<&setPropValueInteger>()},  // the older name of the same service
        {"RuntimeRaiseException", locked<&raiseException>()},
        {"FolderItemFromFSSpec", locked<&folderItemFromFSSpec>()},
        {"REALFSSpecFromFolderItem", locked<&fsSpecFromFolderItem>()},
    };
    for (const auto& [serviceName, function] : kServices) {
      if (serviceName == name) return function;
    }
    return nullptr;
  }
};

void* SimHost::resolver(const char* name) {
  if (current_ == nullptr || name == nullptr) return nullptr;
  SimHost& host = *current_;
  const std::lock_guard guard(host.mutex_);
  ++host.lookups_[name];
  if (host.config_.missing.contains(name)) return nullptr;
  if (!host.config_.version && std::string_view(name) == "REALGetRBVersion") return nullptr;
  return Services::entry(name);
}

// -- lifetime -------------------------------------------------------------------

SimHost::SimHost(HostConfig config) : config_(std::move(config)) { current_ = this; }

SimHost::~SimHost() {
  // Disposing an instance calls back into the plug-in, which reaches the host
  // through the current one.
  SimHost* const previous = current_;
  current_ = this;
  takeRaised();
  std::vector<const void*> disposable;
  for (const auto& [handle, object] : objects_) {
    const auto* instance = std::get_if<Object::Instance>(&object->state);
    if (instance != nullptr && instance->dispose != nullptr) disposable.push_back(handle);
  }
  for (const void* handle : disposable) {
    if (Object* object = find(handle)) destroy(*object);
  }
  objects_.clear();
  current_ = previous == this ? nullptr : previous;
}

SimHost::Object& SimHost::addObject(Object&& object, Owner owner) {
  auto owned = std::make_unique<Object>(std::move(object));
  owned->pluginHeld = owner == Owner::Plugin ? 1 : 0;
  Object& added = *owned;
  objects_.emplace(added.handle(), std::move(owned));
  return added;
}

SimHost::Object* SimHost::makeBlock(size_t size, Owner owner) {
  if (size > INT32_MAX) return nullptr;
  std::optional<GuardedStorage> storage = GuardedStorage::map(size, config_.placement);
  if (!storage) return nullptr;
  Object::Block block;
  block.storage.emplace(std::move(*storage));
  block.data = block.storage->data();
  block.size = static_cast<int32_t>(size);
  return &addObject(Object{.record = newRecord(sizeof(uintptr_t)), .state = std::move(block)}, owner);
}

SimHost::Object* SimHost::makePointerBlock(void* address, Owner owner) {
  Object::Block block;
  block.data = static_cast<uint8_t*>(address);
  return &addObject(Object{.record = newRecord(sizeof(uintptr_t)), .state = std::move(block)}, owner);
}

SimHost::Object* SimHost::makeString(std::string_view text, uint32_t encoding, Owner owner) {
  if (text.size() > INT32_MAX) return nullptr;
  Object::String string;
  string.buffer.assign(1 + text.size() + kBytesAfterText, 0);
  std::memcpy(string.buffer.data() + 1, text.data(), text.size());
  if (config_.unterminatedText) string.buffer[1 + text.size()] = kUnterminatedMarker;
  string.length = static_cast<int32_t>(text.size());
  string.encoding = encoding;
  Object& added = addObject(Object{.record = newRecord(4 * sizeof(uintptr_t)), .state = std::move(string)}, owner);
  const auto& stored = std::get<Object::String>(added.state);
  storeWord(added.handle(), 1, reinterpret_cast<uintptr_t>(stored.buffer.data()));
  storeWord(added.handle(), 3, signExtended(stored.length));
  return &added;
}

SimHost::Object* SimHost::makeInstance(std::string_view className, Owner owner) {
  Object::Instance instance;
  instance.className = className;
  size_t dataSize = 0;
  if (std::find(std::begin(kExceptionClasses), std::end(kExceptionClasses), className) !=
      std::end(kExceptionClasses)) {
    instance.isException = true;
  } else {
    const auto& classes = registry_.classes;
    const auto registered = std::find_if(classes.rbegin(), classes.rend(),
                                         [&](const ClassReg& c) { return c.name == className; });
    if (registered == classes.rend()) return nullptr;
    dataSize = static_cast<size_t>(std::max(0, registered->dataSize));
    instance.dispose = toFunction<void (*)(REALobject)>(registered->dispose);
  }
  return &addObject(Object{.record = newRecord(kInstanceDataOffset + dataSize), .state = std::move(instance)}, owner);
}

SimHost::Object& SimHost::makeFolderItem(const uint8_t* spec, Owner owner) {
  Object::FolderItem item;
  std::memcpy(item.spec.data(), spec, kSpecBytes);
  return addObject(Object{.record = newRecord(sizeof(uintptr_t)), .state = item}, owner);
}

// -- references -----------------------------------------------------------------

// An unlock the plug-in has no reference for is recorded and otherwise
// ignored, so that the object the test still holds stays usable.
void SimHost::pluginRelease(const void* handle, const char* service, bool wantString) {
  Object* object = find(handle);
  if (object == nullptr || std::holds_alternative<Object::String>(object->state) != wantString) {
    ++overReleased_;
    events_.push_back(std::string(service) + " of " + whatIs(handle));
    return;
  }
  if (object->pluginHeld == 0) {
    ++overReleased_;
    events_.push_back(std::string(service) + " of " + object->describe() + " the plug-in holds no reference of");
    return;
  }
  --object->pluginHeld;
  dropReference(*object);
}

void SimHost::hostRetain(Object& object) {
  ++object.hostHeld;
  ++object.references;
}

void SimHost::hostRelease(const void* handle) {
  Object& object = get(handle, "host release");
  --object.hostHeld;
  dropReference(object);
}

void SimHost::dropReference(Object& object) {
  if (--object.references == 0) destroy(object);
}

void SimHost::destroy(Object& object) {
  void* const handle = object.handle();
  if (auto* instance = std::get_if<Object::Instance>(&object.state)) {
    if (auto dispose = std::exchange(instance->dispose, nullptr)) dispose(static_cast<REALobject>(handle));
    if (const void* message = std::exchange(instance->message, nullptr)) hostRelease(message);
  }
  std::string description = object.describe();
  auto node = objects_.extract(handle);
  retired_.push_back({std::move(node.mapped()->record), std::move(description)});
  if (retired_.size() > kRetiredLimit) retired_.pop_front();
}

void SimHost::adopt(const void* handle) {
  const std::lock_guard guard(mutex_);
  if (handle == nullptr) return;
  Object* object = find(handle);
  if (object == nullptr || object->pluginHeld == 0) {
    // The receiver would give back a reference the plug-in never handed over.
    ++overReleased_;
    events_.push_back("result " + whatIs(handle) + " carries no plug-in reference");
    return;
  }
  --object->pluginHeld;
}

void SimHost::release(const void* handle) {
  const std::lock_guard guard(mutex_);
  if (handle == nullptr) return;
  Object& object = get(handle, "release");
  if (object.references - object.pluginHeld - object.hostHeld <= 0) {
    throw std::invalid_argument("release: the test holds no reference of " + object.describe());
  }
  dropReference(object);
}

int SimHost::references(const void* handle) const {
  const std::lock_guard guard(mutex_);
  return get(handle, "references").references;
}

int SimHost::pluginReferences(const void* handle) const {
  const std::lock_guard guard(mutex_);
  return get(handle, "pluginReferences").pluginHeld;
}

LedgerReport SimHost::ledger() const {
  const std::lock_guard guard(mutex_);
  LedgerReport report;
  for (const auto& [handle, object] : objects_) {
    if (object->pluginHeld == 0) continue;
    report.pluginHeld += object->pluginHeld;
    report.offenders.push_back(object->describe() + ": " + std::to_string(object->pluginHeld) +
                               " plug-in reference(s)");
  }
  std::sort(report.offenders.begin(), report.offenders.end());  // the map's order is not stable
  for (const auto& [token, data] : stringData_) {
    report.offenders.push_back("string data record of " + std::to_string(data.size() - kBytesAfterText) +
                               " bytes not disposed");
  }
  report.outstandingStringData = static_cast<int>(stringData_.size());
  report.overReleased = overReleased_;
  report.invalidHandles = invalidHandles_;
  report.offenders.insert(report.offenders.end(), events_.begin(), events_.end());
  return report;
}

std::string LedgerReport::text() const {
  std::string text;
  for (const std::string& line : offenders) text += line + "\n";
  return text;
}

std::vector<Raised> SimHost::takeRaised() {
  const std::lock_guard guard(mutex_);
  std::vector<Raised> taken = std::exchange(raised_, {});
  for (const void* handle : std::exchange(raisedObjects_, {})) hostRelease(handle);
  return taken;
}

// -- configuration and test objects ---------------------------------------------

void SimHost::setThrowing(const std::string& name, bool throwing) {
  const std::lock_guard guard(mutex_);
  if (throwing) {
    config_.throwing.insert(name);
  } else {
    config_.throwing.erase(name);
  }
}

void SimHost::setMissing(const std::string& name, bool missing) {
  const std::lock_guard guard(mutex_);
  if (missing) {
    config_.missing.insert(name);
  } else {
    config_.missing.erase(name);
  }
}

void SimHost::failNewMemoryBlock(NewBlockFailure mode, int afterSuccesses) {
  const std::lock_guard guard(mutex_);
  newBlockFailure_ = mode;
  newBlockSuccessesLeft_ = afterSuccesses;
}

int SimHost::lookups(std::string_view name) const {
  const std::lock_guard guard(mutex_);
  const auto found = lookups_.find(name);
  return found != lookups_.end() ? found->second : 0;
}

std::vector<std::string> SimHost::lookedUp() const {
  const std::lock_guard guard(mutex_);
  std::vector<std::string> names;
  for (const auto& [name, count] : lookups_) names.push_back(name);
  return names;
}

void SimHost::resetLookupCounts() {
  const std::lock_guard guard(mutex_);
  lookups_.clear();
}

REALmemoryBlock SimHost::newBlock(std::span<const uint8_t> bytes) {
  const std::lock_guard guard(mutex_);
  Object* object = makeBlock(bytes.size(), Owner::Test);
  if (object == nullptr) throw std::bad_alloc();
  if (!bytes.empty()) std::memcpy(std::get<Object::Block>(object->state).data, bytes.data(), bytes.size());
  return static_cast<REALmemoryBlock>(object->handle());
}

REALmemoryBlock SimHost::newBlock(size_t size, uint8_t fill) {
  const std::lock_guard guard(mutex_);
  Object* object = makeBlock(size, Owner::Test);
  if (object == nullptr) throw std::bad_alloc();
  std::memset(std::get<Object::Block>(object->state).data, fill, size);
  return static_cast<REALmemoryBlock>(object->handle());
}

REALmemoryBlock SimHost::ptrBlock(void* address) {
  const std::lock_guard guard(mutex_);
  return static_cast<REALmemoryBlock>(makePointerBlock(address, Owner::Test)->handle());
}

REALstring SimHost::newString(std::string_view bytes, uint32_t encoding) {
  const std::lock_guard guard(mutex_);
  Object* object = makeString(bytes, encoding, Owner::Test);
  if (object == nullptr) throw std::length_error("newString: longer than a host string can be");
  return static_cast<REALstring>(object->handle());
}

REALfolderItem SimHost::newFolderItem(const std::array<uint8_t, 70>& spec) {
  const std::lock_guard guard(mutex_);
  return static_cast<REALfolderItem>(makeFolderItem(spec.data(), Owner::Test).handle());
}

REALobject SimHost::newInstance(std::string_view className) {
  const std::lock_guard guard(mutex_);
  Object* object = makeInstance(className, Owner::Test);
  return object != nullptr ? static_cast<REALobject>(object->handle()) : nullptr;
}

uint8_t* SimHost::rawBuffer(size_t size) {
  const std::lock_guard guard(mutex_);
  std::optional<GuardedStorage> storage = GuardedStorage::map(size, config_.placement);
  if (!storage) throw std::bad_alloc();
  return rawBuffers_.emplace_back(std::move(*storage)).data();
}

// -- inspection -----------------------------------------------------------------

namespace {

template <class State, class HostObject>
State& expect(HostObject& object, const char* what) {
  auto* state = std::get_if<State>(&object.state);
  if (state == nullptr) throw std::invalid_argument(std::string(what) + ": " + object.describe());
  return *state;
}

}  // namespace

std::span<uint8_t> SimHost::bytes(REALmemoryBlock block) const {
  const std::lock_guard guard(mutex_);
  const auto& state = expect<Object::Block>(get(block, "bytes"), "bytes");
  return {state.data, static_cast<size_t>(state.size)};
}

int32_t SimHost::size(REALmemoryBlock block) const {
  const std::lock_guard guard(mutex_);
  return expect<Object::Block>(get(block, "size"), "size").size;
}

std::string SimHost::text(REALstring string) const {
  const std::lock_guard guard(mutex_);
  return std::string(expect<Object::String>(get(string, "text"), "text").text());
}

uint32_t SimHost::encoding(REALstring string) const {
  const std::lock_guard guard(mutex_);
  return expect<Object::String>(get(string, "encoding"), "encoding").encoding;
}

std::array<uint8_t, 70> SimHost::spec(REALfolderItem item) const {
  const std::lock_guard guard(mutex_);
  return expect<Object::FolderItem>(get(item, "spec"), "spec").spec;
}

void SimHost::overrideReportedSize(REALmemoryBlock block, int32_t size) {
  const std::lock_guard guard(mutex_);
  expect<Object::Block>(get(block, "overrideReportedSize"), "overrideReportedSize").reportedSize = size;
}

void SimHost::overrideReportedData(REALmemoryBlock block, void* data) {
  const std::lock_guard guard(mutex_);
  expect<Object::Block>(get(block, "overrideReportedData"), "overrideReportedData").reportedData = data;
}

// -- registration ---------------------------------------------------------------

void SimHost::registerClassRecord(void* record, bool isExtension) {
  const char* service = isExtension ? "PluginRegisterClassExtension" : "PluginRegisterClass";
  if (record == nullptr) {
    noteInvalid(service, "a null record");
    return;
  }
  const int32_t version = loadInteger(record, 0);
  if (version < 9 || version > 13) {
    ++registry_.rejectedRecords;
    return;
  }
  const RecordLayout& layout = version == 9 ? kVersion9Layout : kCurrentLayout;
  if (!isExtension) storeWord(record, 4, kInstanceDataOffset);
  ClassReg registered;
  registered.recordVersion = version;
  registered.name = loadText(record, 1);
  registered.dataSize = loadInteger(record, 3);
  registered.dataOffset = loadInteger(record, 4);
  registered.dispose = loadPointer(record, 6);
  registered.properties = readProperties(loadPointer(record, 7), loadInteger(record, 8), layout.propertyWords);
  registered.methods = readMethods(loadPointer(record, 9), loadInteger(record, 10), layout.methodWords);
  registered.flags = loadInteger(record, 20);
  registered.recordWords = loadWords(record, layout.classWords);
  registered.record = record;
  (isExtension ? registry_.extensions : registry_.classes).push_back(std::move(registered));
}
