#include "host/caller.h"

#include <ffi.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "host/loaded_plugin.h"

namespace caller {

bool same_name(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

namespace {

// The Integers that carry an address (intptr_t), by method and parameter:
// the declarations cannot say so, the interface document does.
constexpr std::pair<std::string_view, std::string_view> kAddressIntegers[] = {
    {"NewMemoryBlockFromPtrVEK", "ptr"},
    {"CopyBytesToMacHandleVEK", "destHandle"},
    {"CopyBytesFromMacHandleVEK", "srcHandle"},
};

constexpr std::pair<std::string_view, Kind> kDeclaredTypes[] = {
    {"integer", Kind::Integer},   {"int64", Kind::Int64},
    {"uint64", Kind::UInt64},     {"double", Kind::Double},
    {"boolean", Kind::Boolean},   {"ptr", Kind::Ptr},
    {"string", Kind::String},     {"memoryblock", Kind::MemoryBlock},
    {"folderitem", Kind::FolderItem}, {"object", Kind::Object},
};

std::string_view trimmed(std::string_view text) {
  size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> found;
  while (!(text = trimmed(text)).empty()) {
    size_t end = std::min(text.find_first_of(" \t"), text.size());
    found.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return found;
}

[[noreturn]] void refuse(std::string_view declaration, const std::string& why) {
  throw std::invalid_argument(why + " in the declaration \"" + std::string(declaration) + "\"");
}

// "[extends|assigns] name as Type [= default]"
void add_parameter(Signature& signature, std::string_view parameter, bool first, bool last,
                   std::string_view declaration) {
  std::vector<std::string_view> w = words(parameter.substr(0, parameter.find('=')));
  bool extends = !w.empty() && same_name(w[0], "extends");
  bool assigns = !w.empty() && same_name(w[0], "assigns");
  if (extends || assigns) w.erase(w.begin());
  if (w.size() != 3 || !same_name(w[1], "as")) refuse(declaration, "parameter \"" + std::string(trimmed(parameter)) + "\" is not \"name as Type\"");
  if (extends && !first) refuse(declaration, "\"extends\" on a parameter other than the first");
  if (assigns && !last) refuse(declaration, "\"assigns\" on a parameter other than the last");
  signature.receiver |= extends;
  signature.assigns |= assigns;

  Kind kind = kind_of_type(w[2], declaration);
  for (auto [method, name] : kAddressIntegers) {
    if (kind == Kind::Integer && same_name(signature.name, method) && same_name(w[0], name)) kind = Kind::Address;
  }
  signature.args.push_back(kind);
}

ffi_type* ffi_type_of(Kind kind) {
  switch (kind) {
    case Kind::Integer: return &ffi_type_sint32;
    case Kind::Address: return sizeof(intptr_t) == 8 ? &ffi_type_sint64 : &ffi_type_sint32;
    case Kind::Int64: return &ffi_type_sint64;
    case Kind::UInt64: return &ffi_type_uint64;
    case Kind::Double: return &ffi_type_double;
    case Kind::Boolean: return &ffi_type_uint8;
    case Kind::Ptr:
    case Kind::String:
    case Kind::MemoryBlock:
    case Kind::FolderItem:
    case Kind::Object: return &ffi_type_pointer;
    case Kind::None: return &ffi_type_void;
  }
  throw std::invalid_argument("no such kind");
}

struct Prepared {
  ffi_cif cif;
  std::vector<ffi_type*> types;  // the cif points into it
};

// One call interface per shape (result and argument kinds), prepared on
// first use: declarations that share a shape share it.
const ffi_cif& prepared(const Signature& signature) {
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<Prepared>> cache;
  std::string shape(1, static_cast<char>(signature.result));
  for (Kind kind : signature.args) shape.push_back(static_cast<char>(kind));

  std::lock_guard lock(mutex);
  std::unique_ptr<Prepared>& slot = cache[shape];
  if (slot == nullptr) {
    auto fresh = std::make_unique<Prepared>();
    for (Kind kind : signature.args) fresh->types.push_back(ffi_type_of(kind));
    if (ffi_prep_cif(&fresh->cif, FFI_DEFAULT_ABI, static_cast<unsigned>(fresh->types.size()),
                     ffi_type_of(signature.result), fresh->types.data()) != FFI_OK) {
      throw std::runtime_error("libffi cannot call " + signature.name);
    }
    slot = std::move(fresh);
  }
  return slot->cif;
}

// Each argument in the C type its kind stands for; libffi reads it from here.
union Slot {
  int32_t integer;
  intptr_t address;
  int64_t int64;
  uint64_t uint64;
  double real;
  uint8_t byte;
  void* pointer;
};

Slot slot_of(const Value& value) {
  Slot slot{};
  switch (value.kind) {
    case Kind::Integer: slot.integer = static_cast<int32_t>(value.i); break;
    case Kind::Address: slot.address = static_cast<intptr_t>(value.i); break;
    case Kind::Int64: slot.int64 = value.i; break;
    case Kind::UInt64: slot.uint64 = value.u; break;
    case Kind::Double: slot.real = value.d; break;
    case Kind::Boolean: slot.byte = static_cast<uint8_t>(value.i); break;
    default: slot.pointer = value.p; break;
  }
  return slot;
}

bool fits(const Value& value) {
  switch (value.kind) {
    case Kind::Integer: return value.i >= INT32_MIN && value.i <= INT32_MAX;
    case Kind::Address: return value.i >= INTPTR_MIN && value.i <= INTPTR_MAX;
    case Kind::Boolean: return value.i >= 0 && value.i <= 0xFF;
    default: return true;
  }
}

// libffi widens results narrower than a word to ffi_arg; 64-bit results need
// eight bytes on 32-bit targets too.
union Result {
  ffi_arg arg;
  ffi_sarg sarg;
  int64_t int64;
  uint64_t uint64;
  double real;
  void* pointer;
};
static_assert(sizeof(intptr_t) <= sizeof(ffi_sarg), "an address result comes back in one ffi_sarg");

Value value_of(Kind kind, const Result& result) {
  switch (kind) {
    case Kind::Integer: return Value::integer(static_cast<int32_t>(result.sarg));
    case Kind::Address: return Value::address(static_cast<intptr_t>(result.sarg));
    case Kind::Int64: return Value::int64(result.int64);
    case Kind::UInt64: return Value::uint64(result.uint64);
    case Kind::Double: return Value::real(result.real);
    case Kind::Boolean: return Value::boolean(static_cast<uint8_t>(result.arg));
    case Kind::None: return Value::none();
    default: return Value::handle(kind, result.pointer);
  }
}

Signature with_receiver(Signature signature, Kind receiver) {
  signature.args.insert(signature.args.begin(), receiver);
  signature.receiver = true;
  return signature;
}

Signature with_value(Signature signature, Kind value) {
  signature.args.push_back(value);
  signature.result = Kind::None;
  signature.assigns = true;
  return signature;
}

// A class's or an extension's members, called on `receiver`.
void add_members(std::vector<Registered>& calls, const ClassReg& cls, Kind receiver) {
  for (const MethodReg& method : cls.methods) {
    Signature function = with_receiver(parse_declaration(method.declaration), receiver);
    if (method.function != nullptr) {
      calls.push_back({Role::Method, cls.name, method.declaration, method.declaration, method.function, function});
    }
    if (method.setter != nullptr) {
      calls.push_back({Role::Setter, cls.name, method.declaration, method.declaration, method.setter,
                       with_value(function, function.result)});
    }
  }
  for (const PropertyReg& property : cls.properties) {
    std::string declaration = property.name + " as " + property.type;
    // The getters' C++ signatures take the ignored word as int32_t.
    Signature getter{property.name, {receiver, Kind::Integer}, kind_of_type(property.type, declaration), true, false};
    if (property.getter != nullptr) {
      calls.push_back({Role::Getter, cls.name, property.name, declaration, property.getter, getter});
    }
    if (property.setter != nullptr) {
      calls.push_back({Role::PropertySetter, cls.name, property.name, declaration, property.setter,
                       with_value(getter, getter.result)});
    }
  }
}

const char* role_name(Role role) {
  switch (role) {
    case Role::Method: return "method";
    case Role::Setter: return "setter";
    case Role::Getter: return "property getter";
    case Role::PropertySetter: return "property setter";
  }
  return "?";
}

}  // namespace

const char* kind_name(Kind kind) {
  switch (kind) {
    case Kind::Integer: return "Integer";
    case Kind::Address: return "Integer (address)";
    case Kind::Int64: return "Int64";
    case Kind::UInt64: return "UInt64";
    case Kind::Double: return "Double";
    case Kind::Boolean: return "Boolean";
    case Kind::Ptr: return "Ptr";
    case Kind::String: return "String";
    case Kind::MemoryBlock: return "MemoryBlock";
    case Kind::FolderItem: return "FolderItem";
    case Kind::Object: return "Object";
    case Kind::None: return "nothing";
  }
  return "?";
}

Kind kind_of_type(std::string_view type, std::string_view declaration) {
  for (auto [name, kind] : kDeclaredTypes) {
    if (same_name(type, name)) return kind;
  }
  refuse(declaration, "unknown type \"" + std::string(type) + "\"");
}

Signature parse_declaration(std::string_view text) {
  std::string_view rest = trimmed(text);
  size_t name_end = std::min(rest.find_first_of("( \t"), rest.size());
  Signature signature;
  signature.name = rest.substr(0, name_end);
  if (signature.name.empty()) refuse(text, "no method name");
  rest = trimmed(rest.substr(name_end));

  if (rest.starts_with('(')) {
    size_t close = rest.find(')');
    if (close == std::string_view::npos) refuse(text, "no closing parenthesis");
    std::string_view list = rest.substr(1, close - 1);
    rest = trimmed(rest.substr(close + 1));
    if (!trimmed(list).empty()) {
      size_t count = static_cast<size_t>(std::ranges::count(list, ',')) + 1;
      for (size_t i = 0; i < count; ++i) {
        size_t comma = std::min(list.find(','), list.size());
        add_parameter(signature, list.substr(0, comma), i == 0, i + 1 == count, text);
        list.remove_prefix(std::min(comma + 1, list.size()));
      }
    }
  }
  if (!rest.empty()) {
    std::vector<std::string_view> w = words(rest);
    if (w.size() != 2 || !same_name(w[0], "as")) refuse(text, "\"" + std::string(rest) + "\" is not \"as Type\"");
    signature.result = kind_of_type(w[1], text);
  }
  return signature;
}

Value call(const void* function, const Signature& signature, std::span<const Value> args) {
  if (args.size() != signature.args.size()) {
    throw std::invalid_argument(signature.name + " takes " + std::to_string(signature.args.size()) +
                                " arguments, not " + std::to_string(args.size()));
  }
  std::vector<Slot> slots;
  std::vector<void*> pointers(args.size());
  slots.reserve(args.size());
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i].kind != signature.args[i] || !fits(args[i])) {
      throw std::invalid_argument("argument " + std::to_string(i + 1) + " of " + signature.name + " must be " +
                                  kind_name(signature.args[i]) + ", not " + kind_name(args[i].kind) +
                                  (fits(args[i]) ? "" : " out of range"));
    }
    pointers[i] = &slots.emplace_back(slot_of(args[i]));
  }
  const ffi_cif& cif = prepared(signature);
  Result result{};
  ffi_call(const_cast<ffi_cif*>(&cif), reinterpret_cast<void (*)()>(const_cast<void*>(function)), &result,
           pointers.data());
  return value_of(signature.result, result);
}

std::vector<Registered> registered_calls(const Registry& registry) {
  std::vector<Registered> calls;
  for (const ClassReg& extension : registry.extensions) {
    add_members(calls, extension, kind_of_type(extension.name, extension.name));
  }
  for (const ClassReg& cls : registry.classes) add_members(calls, cls, Kind::Object);
  for (const ModuleReg& module : registry.modules) {
    for (size_t i = 0; i < module.methods.size(); ++i) {
      const MethodReg& entry = module.methods[i];
      Signature signature = parse_declaration(entry.declaration);
      bool setter = signature.assigns;
      // A setter entry goes just before its function's entry.
      const MethodReg& keyed = setter && i + 1 < module.methods.size() ? module.methods[i + 1] : entry;
      calls.push_back({setter ? Role::Setter : Role::Method, module.name,
                       without_class_parameter(keyed.declaration), entry.declaration, entry.function, signature});
    }
  }
  for (const MethodReg& global : registry.globals) {
    calls.push_back({Role::Method, "", global.declaration, global.declaration, global.function,
                     parse_declaration(global.declaration)});
  }
  return calls;
}

const Registered& find_call(std::span<const Registered> calls, std::string_view key, Role role) {
  for (const Registered& registered : calls) {
    if (registered.role == role && registered.key == key) return registered;
  }
  throw std::invalid_argument(std::string("no ") + role_name(role) + " registered as \"" + std::string(key) + "\"");
}

const Registered* find_named(std::span<const Registered> calls, std::string_view name, Role role, size_t arity) {
  for (const Registered& registered : calls) {
    if (registered.role == role && same_name(registered.signature.name, name) &&
        (arity == 0 || registered.signature.args.size() == arity)) {
      return &registered;
    }
  }
  return nullptr;
}

Value value_of(Kind kind, const Arg& arg) {
  switch (kind) {
    case Kind::Integer:
    case Kind::Address:
    case Kind::Int64:
    case Kind::Boolean:
      if (arg.type == Arg::Type::Integer) return {kind, arg.i};
      break;
    case Kind::UInt64:
      if (arg.type == Arg::Type::Integer) return Value::uint64(static_cast<uint64_t>(arg.i));
      break;
    case Kind::Double:
      if (arg.type == Arg::Type::Double) return Value::real(arg.d);
      if (arg.type == Arg::Type::Integer) return Value::real(static_cast<double>(arg.i));
      break;
    case Kind::Ptr:
    case Kind::String:
    case Kind::MemoryBlock:
    case Kind::FolderItem:
    case Kind::Object:
      if (arg.type == Arg::Type::Pointer) return Value::handle(kind, arg.p);
      break;
    case Kind::None: break;
  }
  throw std::invalid_argument(std::string("a plain value that cannot be ") + kind_name(kind));
}

Value call(const Registered& registered, std::span<const Arg> args, const void* function) {
  const std::vector<Kind>& kinds = registered.signature.args;
  if (args.size() != kinds.size()) {
    throw std::invalid_argument(registered.declaration + " takes " + std::to_string(kinds.size()) +
                                " arguments, not " + std::to_string(args.size()));
  }
  std::vector<Value> values;
  size_t at = 0;
  for (const Arg& arg : args) values.push_back(value_of(kinds[at++], arg));
  return call(function != nullptr ? function : registered.function, registered.signature, values);
}

}  // namespace caller
