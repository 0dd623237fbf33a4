// Calls a registered function from its declaration alone, as a real host
// does: the declaration text gives the argument and result kinds, the
// interface document's rules give what the text does not say (which Integers
// carry an address, where the receiver goes, what a setter or a property
// getter takes besides), and libffi builds the call.
//
//   auto calls = caller::registered_calls(host.registry());
//   auto& mid = caller::find_call(calls, "MidVEK(offset as integer) as Memoryblock");
//   caller::Value sub = caller::call(mid, {caller::Value::handle(caller::Kind::MemoryBlock, block),
//                                          caller::Value::integer(2)});
//
// A handle the call returns comes with the plug-in's reference, as from the
// typed call; the caller adopts or releases it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/sim_host.h"

namespace caller {

enum class Kind {
  Integer,  // int32_t
  Address,  // an Integer that carries an address: intptr_t
  Int64,
  UInt64,
  Double,
  Boolean,  // one byte
  Ptr,
  String,
  MemoryBlock,
  FolderItem,
  Object,
  None,  // a result only: the function returns nothing
};

const char* kind_name(Kind kind);

// A function's arguments in the order it is called with them.
struct Signature {
  std::string name;
  std::vector<Kind> args;
  Kind result = Kind::None;
  bool receiver = false;  // args[0] is the block or object the call is made on
  bool assigns = false;   // the last argument is the value assigned
};

// "MidVEK(offset as integer) as Memoryblock" -> MidVEK (Integer) -> MemoryBlock.
// Only the declared parameters: "extends ref as MemoryBlock" (the module
// form's receiver) and "assigns value as String" (a setter's value) are
// declared ones and set `receiver` and `assigns`. Default values are text
// only. Throws std::invalid_argument naming the declaration for an unknown
// type or a text that is not a declaration.
Signature parse_declaration(std::string_view text);

// A declared type name (any case) as a kind; throws std::invalid_argument
// naming `declaration` for an unknown one.
Kind kind_of_type(std::string_view type, std::string_view declaration);

struct Value {
  Kind kind = Kind::None;
  int64_t i = 0;      // Integer, Address, Int64, and Boolean's byte
  uint64_t u = 0;     // UInt64
  double d = 0;       // Double
  void* p = nullptr;  // Ptr and the handles

  static Value integer(int32_t v) { return {Kind::Integer, v}; }
  static Value address(intptr_t v) { return {Kind::Address, v}; }
  static Value int64(int64_t v) { return {Kind::Int64, v}; }
  static Value uint64(uint64_t v) { return {Kind::UInt64, 0, v}; }
  static Value real(double v) { return {Kind::Double, 0, 0, v}; }
  static Value boolean(uint8_t byte) { return {Kind::Boolean, byte}; }  // any non-zero byte is true
  static Value handle(Kind kind, const void* v) { return {kind, 0, 0, 0, const_cast<void*>(v)}; }
  static Value none() { return {}; }

  bool operator==(const Value&) const = default;
};

// Calls `function` with `args`, one per signature argument and of its kind
// (std::invalid_argument otherwise, naming the function), and gives back its
// result as a value of the result's kind. The libffi call interface is
// prepared once per argument and result shape and kept for the process.
Value call(const void* function, const Signature& signature, std::span<const Value> args);

// What the host calls a registered function for.
enum class Role {
  Method,          // a method (the function of an assignable one)
  Setter,          // an assignable method's setter: its arguments, then the value
  Getter,          // a property getter: the receiver and a 32-bit word it ignores
  PropertySetter,  // the receiver, the same ignored word, then the value
};

struct Registered {
  Role role = Role::Method;
  std::string owner;        // the class, extension or module; empty for a global method
  std::string key;          // what find_call looks for: the declaration in the class form, a property's name
  std::string declaration;  // as registered; a property's is "Name as Type"
  const void* function = nullptr;
  Signature signature;      // as called: receiver first, a setter's value last
};

// Every function the plug-in registered: extension and class methods with
// their setters and properties, module entries and global methods. A module
// entry's key is its declaration without the class parameter; a module's
// setter entry takes the key of the function entry after it.
std::vector<Registered> registered_calls(const Registry& registry);

// By key, so that overloads are told apart by their full declarations;
// throws std::invalid_argument when nothing of that role is registered.
const Registered& find_call(std::span<const Registered> calls, std::string_view key, Role role = Role::Method);

// Names and declared words compare in any case.
bool same_name(std::string_view a, std::string_view b);

// By name (any case) and role, as a program names a method; `arity`, the
// number of arguments as called (receiver and value included), tells
// overloads apart (0: the first of the name). Null when none is registered.
const Registered* find_named(std::span<const Registered> calls, std::string_view name, Role role = Role::Method,
                             size_t arity = 0);

inline Value call(const Registered& registered, std::span<const Value> args) {
  return call(registered.function, registered.signature, args);
}
inline Value call(const Registered& registered, std::initializer_list<Value> args) {
  return call(registered.function, registered.signature, std::span(args.begin(), args.size()));
}

// A plain value for a call whose kinds the declaration gives: an integer
// (for Integer, Int64, UInt64, an address and a Boolean's byte), a double,
// or a pointer (for Ptr and the handles; nullptr is nil). Tests and tools
// write calls with these: call(method, {block, 2, 3}).
struct Arg {
  enum class Type { Integer, Double, Pointer } type;
  int64_t i = 0;
  double d = 0;
  const void* p = nullptr;

  template <class T>
    requires std::is_integral_v<T>
  Arg(T v) : type(Type::Integer), i(static_cast<int64_t>(v)) {}
  Arg(double v) : type(Type::Double), d(v) {}
  Arg(const void* v) : type(Type::Pointer), p(v) {}
  Arg(std::nullptr_t) : type(Type::Pointer) {}
};

// The value of `kind` an argument stands for; std::invalid_argument when it
// cannot be one (a pointer for an Integer, say).
Value value_of(Kind kind, const Arg& arg);

// Calls with plain values, each taken as the kind of its place; `function`
// stands in for the registered one where given.
Value call(const Registered& registered, std::span<const Arg> args, const void* function = nullptr);
inline Value call(const Registered& registered, std::initializer_list<Arg> args) {
  return call(registered, std::span(args.begin(), args.size()));
}

}  // namespace caller
