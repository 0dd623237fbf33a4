// The services the resolver hands out, each run under the host's lock.
#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <new>

#include "host/sim_host.h"
#include "host/sim_host_objects.h"

using namespace sim;

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
      } else if (h.newBlockFailure_ == NewBlockFailure::ThrowBadAlloc && kServicesThrow) {
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

  // Whether the test made this service fail (see HostConfig::throwing).
  static bool failsAsked(const char* service) {
    if (host().config_.throwing.count(service) == 0) return false;
    if constexpr (kServicesThrow) throw std::bad_alloc();
    return true;
  }

  static REALstring buildString(const void* bytes, int32_t length) {
    if (failsAsked("REALBuildString")) return nullptr;
    return makeBuiltString(bytes, length, kEncodingUnknown);
  }

  static REALstring buildStringWithEncoding(const void* bytes, int32_t length, uint32_t encoding) {
    if (failsAsked("REALBuildStringWithEncoding")) return nullptr;
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
    if (failsAsked("REALConvertString")) return nullptr;
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
