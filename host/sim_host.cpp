#include "host/sim_host.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include "host/sim_host_objects.h"

using namespace sim;

SimHost* SimHost::current_ = nullptr;

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
