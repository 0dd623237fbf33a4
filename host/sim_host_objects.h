// The simulated host's own parts, shared by its source files: the objects
// behind the handles, their guarded storage, and the word-by-word reading of
// the plug-in's records. Nothing outside host/ includes this.
#pragma once


#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>
#include <variant>

#include "host/os.h"
#include "host/sim_host.h"

namespace sim {

// Instance data lies this far past the handle; a multiple of 16 keeps it
// 16-aligned, as handle storage is.
inline constexpr uintptr_t kInstanceDataOffset = 32;
inline constexpr size_t kSpecBytes = 70;
// Readable bytes after every text handed out: the byte right after the text
// (0, or the marker for unterminated text), then zeros.
inline constexpr size_t kBytesAfterText = 4;
inline constexpr uint8_t kUnterminatedMarker = 0xA5;
// Freed handles stay reserved for a while so that a stale handle is reported
// as freed instead of landing on a new object.
inline constexpr size_t kRetiredLimit = 4096;
inline constexpr std::string_view kLenBDeclaration = "LenB( s as string ) as integer";

// Record layouts, in pointer-sized words.
struct RecordLayout {
  size_t classWords;
  size_t methodWords;
  size_t propertyWords;
};
inline constexpr RecordLayout kVersion9Layout{25, 4, 10};
inline constexpr RecordLayout kCurrentLayout{29, 6, 12};
inline constexpr size_t kModuleWords = 24;
inline constexpr size_t kModuleMethodWords = 6;

inline const char* const kExceptionClasses[] = {"NilObjectException", "UnsupportedOperationException",
                                         "OutOfMemoryException", "RuntimeException"};

// Shared records are read and written through memcpy: they are the plug-in's
// arrays, not objects of any type this file knows.
inline uintptr_t loadWord(const void* record, size_t index) {
  uintptr_t word;
  std::memcpy(&word, static_cast<const std::byte*>(record) + index * sizeof word, sizeof word);
  return word;
}

inline void storeWord(void* record, size_t index, uintptr_t word) {
  std::memcpy(static_cast<std::byte*>(record) + index * sizeof word, &word, sizeof word);
}

inline uintptr_t signExtended(int32_t value) { return static_cast<uintptr_t>(static_cast<intptr_t>(value)); }

inline int32_t loadInteger(const void* record, size_t index) { return static_cast<int32_t>(loadWord(record, index)); }

inline const void* loadPointer(const void* record, size_t index) {
  return reinterpret_cast<const void*>(loadWord(record, index));
}

inline std::string loadText(const void* record, size_t index) {
  const char* text = static_cast<const char*>(loadPointer(record, index));
  return text != nullptr ? text : "";
}

inline std::vector<uintptr_t> loadWords(const void* record, size_t count) {
  std::vector<uintptr_t> words(count);
  std::memcpy(words.data(), record, count * sizeof(uintptr_t));
  return words;
}

inline const void* recordAt(const void* table, size_t index, size_t words) {
  return static_cast<const std::byte*>(table) + index * words * sizeof(uintptr_t);
}

MethodReg readMethod(const void* record, size_t words);
std::vector<MethodReg> readMethods(const void* table, int32_t count, size_t words);
std::vector<PropertyReg> readProperties(const void* table, int32_t count, size_t words);

// Text between the host's encodings (glibc iconv); nullopt when it cannot be converted.
std::optional<std::string> convertText(std::string_view text, uint32_t from, uint32_t to);
std::string hexAddress(const void* address);
// At most 40 bytes, anything unprintable escaped: for the ledger's messages.
std::string printable(std::string_view bytes);
template <class Fn>
void* entryPoint(Fn* fn) {
  return reinterpret_cast<void*>(fn);
}

template <class Fn>
Fn toFunction(const void* address) {
  return reinterpret_cast<Fn>(const_cast<void*>(address));
}

}  // namespace sim

// -- storage --------------------------------------------------------------------

struct alignas(16) SimHost::RecordCell {
  std::byte bytes[16];
};

// Block and raw storage: [guard page][data pages][guard page], with
// the data flush against the guard the placement names. Empty storage points
// at the boundary between the two guards, so that any access faults.
class SimHost::GuardedStorage {
 public:
  static std::optional<GuardedStorage> map(size_t size, Placement placement) {
    const size_t page = os::page_size();
    if (size > SIZE_MAX - 3 * page) return std::nullopt;
    const size_t dataBytes = (size + page - 1) / page * page;
    const size_t length = dataBytes + 2 * page;
    void* base = os::reserve_pages(length);
    if (base == nullptr) return std::nullopt;
    uint8_t* first = static_cast<uint8_t*>(base) + page;
    if (dataBytes != 0 && !os::open_pages(first, dataBytes)) {
      os::release_pages(base, length);
      return std::nullopt;
    }
    uint8_t* data = placement == Placement::GuardAfter ? first + dataBytes - size : first;
    return GuardedStorage(base, length, data);
  }

  GuardedStorage(GuardedStorage&& other) noexcept
      : base_(std::exchange(other.base_, nullptr)), length_(other.length_), data_(other.data_) {}
  GuardedStorage& operator=(GuardedStorage&&) = delete;
  ~GuardedStorage() {
    if (base_ != nullptr) os::release_pages(base_, length_);
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
    std::array<uint8_t, sim::kSpecBytes> spec{};
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
                            : "block over " + sim::hexAddress(block->data);
    }
    if (const auto* string = std::get_if<String>(&state)) {
      char encoding[16];
      std::snprintf(encoding, sizeof encoding, "0x%X", string->encoding);
      return "string \"" + sim::printable(string->text()) + "\" (encoding " + encoding + ")";
    }
    if (const auto* instance = std::get_if<Instance>(&state)) return instance->className + " instance";
    return "folder item";
  }
};

template <class State>
State* SimHost::stateOf(const void* handle, const char* service) {
  if (Object* object = find(handle)) {
    if (auto* state = std::get_if<State>(&object->state)) return state;
  }
  noteInvalid(service, whatIs(handle));
  return nullptr;
}

