// The simulated host: every service a plug-in of this kind asks its host for,
// reached through one resolver, plus what a test needs around them: block
// storage that ends (or starts) at a PROT_NONE page, a ledger of every
// reference the plug-in takes and gives back, failure injection, and a record
// of every registration and raised exception.
//
// The resolver takes no context, so one host answers at a time: constructing a
// SimHost makes it the current one, destroying it clears that. The plug-in
// caches the services it resolves, so the services are plain functions that
// always reach whichever host is current.
//
// Every service and every public method holds the host's one lock while it
// runs, so the plug-in may be called from several threads at once. The lock is
// recursive: releasing an instance runs the plug-in's dispose, which calls
// services again. registry() is read without it; it changes only while the
// plug-in registers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "frame/rb_handles.h"

enum class Placement {
  GuardAfter,   // storage ends exactly at a PROT_NONE page: one byte past the end faults
  GuardBefore,  // storage starts right after a PROT_NONE page: one byte before the start faults
};

enum class NewBlockFailure { None, ReturnNull, ThrowBadAlloc };

// Whether a failing service throws std::bad_alloc into the plug-in. A DLL
// carries its own GCC runtime, which cannot catch what the host's runtime
// throws (on Windows x86 it cannot even unwind through it), and a real
// Windows host never throws into a plug-in: there a failing service gives its
// null result, as a C host's does, and ThrowBadAlloc gives nil too.
#if defined(_WIN32)
inline constexpr bool kServicesThrow = false;
#else
inline constexpr bool kServicesThrow = true;
#endif

struct HostConfig {
  std::optional<double> version = 3000.0;  // nullopt: "REALGetRBVersion" is missing
  std::set<std::string, std::less<>> missing = {};  // names the resolver answers with null
  Placement placement = Placement::GuardAfter;
  // Texts handed out (string data records, C strings, the string record) are
  // followed by a non-zero byte instead of a 0; the byte stays readable.
  bool unterminatedText = false;
  // String services ("REALBuildString", "REALBuildStringWithEncoding",
  // "REALConvertString") that fail when called: they throw std::bad_alloc
  // where kServicesThrow, else give nil.
  std::set<std::string, std::less<>> throwing = {};
};

// What the plug-in registered, read from its records word by word.
// `recordWords` is a copy of the record's pointer-sized words as registered, so
// a test can check the words no field below covers.
struct MethodReg {
  std::string declaration;
  const void* function = nullptr;
  const void* setter = nullptr;
  int32_t flags = 0;
  uintptr_t word4 = 0;  // 0 in the 4-word records, which have no such word
  uintptr_t word5 = 0;
  std::vector<uintptr_t> recordWords;
};

struct PropertyReg {
  std::string name;
  std::string type;
  int32_t flags = 0;
  const void* getter = nullptr;
  const void* setter = nullptr;
  std::vector<uintptr_t> recordWords;
};

struct ClassReg {
  int32_t recordVersion = 0;
  std::string name;
  int32_t dataSize = 0;
  int32_t dataOffset = 0;  // what the host wrote, for a class; as found, for an extension
  const void* dispose = nullptr;
  int32_t flags = 0;
  std::vector<PropertyReg> properties;
  std::vector<MethodReg> methods;
  std::vector<uintptr_t> recordWords;  // 25 or 29 words
  const void* record = nullptr;        // the plug-in's record itself
};

struct ModuleReg {
  int32_t recordVersion = 0;
  std::string name;
  std::vector<MethodReg> methods;
  std::vector<uintptr_t> recordWords;  // all 24 words
  const void* record = nullptr;
};

struct Registry {
  std::optional<int32_t> pluginVersion;  // as passed to "RegisterPluginVersion"
  std::vector<ClassReg> classes;
  std::vector<ClassReg> extensions;
  std::vector<ModuleReg> modules;
  std::vector<MethodReg> globals;
  int rejectedRecords = 0;  // class records of a version the host has no layout for
};

struct Raised {
  std::string className;
  std::optional<std::string> message;  // the message's bytes; nullopt for a null message
  int32_t errorNumber = 0;
};

struct LedgerReport {
  int pluginHeld = 0;     // references the plug-in holds now, over all live objects
  // Unlocks of references the plug-in did not hold (or of freed or unknown
  // handles), disposes of string data records not outstanding, and results
  // adopted that carried no plug-in reference.
  int overReleased = 0;
  int outstandingStringData = 0;  // string data records filled and not yet disposed
  int invalidHandles = 0; // services given a null, freed, unknown or wrong-kind handle
  std::vector<std::string> offenders;  // one line per object or event behind the counts
  std::string text() const;            // the offenders, one per line, for failure messages
};

class SimHost {
 public:
  explicit SimHost(HostConfig config = {});
  ~SimHost();
  SimHost(const SimHost&) = delete;
  SimHost& operator=(const SimHost&) = delete;

  // What REALPluginMain receives: a service name to its entry point, or null.
  static void* resolver(const char* name);

  // -- configuration ---------------------------------------------------------
  // Makes this host the one the services reach, for a process that keeps
  // several hosts (one per loaded copy of the plug-in) alive at once.
  void makeCurrent() { current_ = this; }
  void setMissing(const std::string& name, bool missing);
  void setThrowing(const std::string& name, bool throwing);
  // The first `afterSuccesses` calls of "newMemoryBlock" from now succeed;
  // every later one fails in `mode` until this is called with None.
  void failNewMemoryBlock(NewBlockFailure mode, int afterSuccesses = 0);
  // Calls of "newMemoryBlock" so far, failed ones included.
  int newMemoryBlockCalls() const { return newBlockCalls_; }
  // Lookups through the resolver per name; framework methods loaded through
  // "REALLoadGlobalMethod" count under their declaration.
  int lookups(std::string_view name) const;
  // Every name asked for since the last reset, missing ones included.
  std::vector<std::string> lookedUp() const;
  void resetLookupCounts();

  // -- objects the test owns (one reference each, the test's) ----------------
  REALmemoryBlock newBlock(std::span<const uint8_t> bytes);
  REALmemoryBlock newBlock(std::initializer_list<uint8_t> bytes) { return newBlock(std::span(bytes)); }
  REALmemoryBlock newBlock(size_t size, uint8_t fill = 0);
  // A block over `address` that owns nothing and reports size 0; a null
  // address is accepted, as "PtrToMemoryBlock" accepts it.
  REALmemoryBlock ptrBlock(void* address);
  REALstring newString(std::string_view bytes, uint32_t encoding);
  REALfolderItem newFolderItem(const std::array<uint8_t, 70>& spec);
  // An instance of an exception class or of a class the plug-in registered;
  // null for any other name.
  REALobject newInstance(std::string_view className);
  // Raw storage guarded per the placement, freed with the host.
  uint8_t* rawBuffer(size_t size);

  // -- inspection (a handle the host does not know throws invalid_argument) --
  std::span<uint8_t> bytes(REALmemoryBlock block) const;
  int32_t size(REALmemoryBlock block) const;
  std::string text(REALstring string) const;
  uint32_t encoding(REALstring string) const;
  std::array<uint8_t, 70> spec(REALfolderItem item) const;
  int references(const void* handle) const;  // every holder: test, plug-in and host
  int pluginReferences(const void* handle) const;
  // From now on "memoryBlockGetSize" / "memoryBlockGetPtr" report these for
  // the block instead of the truth, to stand in for a host that misreports.
  void overrideReportedSize(REALmemoryBlock block, int32_t size);
  void overrideReportedData(REALmemoryBlock block, void* data);

  // -- the reference ledger ----------------------------------------------------
  // Moves one plug-in reference of a returned handle to the test, as the
  // receiver of a method's result; a null handle is ignored.
  void adopt(const void* handle);
  // Gives back one of the test's references; a null handle is ignored.
  void release(const void* handle);
  LedgerReport ledger() const;

  const Registry& registry() const { return registry_; }
  // The exceptions raised since the last call; the host lets go of them.
  std::vector<Raised> takeRaised();

 private:
  struct Object;
  struct Services;
  struct RecordCell;
  class GuardedStorage;
  enum class Owner { Test, Plugin };

  struct Retired {  // a freed object's handle storage, kept so its address is not reused soon
    std::unique_ptr<RecordCell[]> record;
    std::string description;
  };

  static std::unique_ptr<RecordCell[]> newRecord(size_t bytes);
  Object* find(const void* handle) const;
  Object& get(const void* handle, const char* what) const;
  template <class State>
  State* stateOf(const void* handle, const char* service);
  Object& addObject(Object&& object, Owner owner);
  Object* makeBlock(size_t size, Owner owner);
  Object* makePointerBlock(void* address, Owner owner);
  Object* makeString(std::string_view bytes, uint32_t encoding, Owner owner);
  Object* makeInstance(std::string_view className, Owner owner);
  Object& makeFolderItem(const uint8_t* spec, Owner owner);
  void pluginRelease(const void* handle, const char* service, bool wantString);
  void hostRetain(Object& object);
  void hostRelease(const void* handle);
  void dropReference(Object& object);
  void destroy(Object& object);
  std::string whatIs(const void* handle) const;
  void noteInvalid(const char* service, std::string_view given);
  void registerClassRecord(void* record, bool isExtension);

  HostConfig config_;
  std::unordered_map<const void*, std::unique_ptr<Object>> objects_;
  std::deque<Retired> retired_;
  std::vector<std::string> events_;
  int overReleased_ = 0;
  int invalidHandles_ = 0;
  std::map<uintptr_t, std::vector<uint8_t>> stringData_;  // keyed by the token in word 2
  uintptr_t nextStringDataToken_ = 1;
  Registry registry_;
  std::vector<Raised> raised_;
  std::vector<const void*> raisedObjects_;  // each holds one host reference
  std::map<std::string, int, std::less<>> lookups_;
  NewBlockFailure newBlockFailure_ = NewBlockFailure::None;
  int newBlockSuccessesLeft_ = 0;
  int newBlockCalls_ = 0;
  std::vector<GuardedStorage> rawBuffers_;

  mutable std::recursive_mutex mutex_;

  static SimHost* current_;
};
