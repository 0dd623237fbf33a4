// `vekhost tour`: a readable session of calls through the simulated host,
// one function per area of methods, each in its own file.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <vector>

#include "host/caller.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"

// A registered function's result, read as the type the tour uses it as.
struct Result {
  caller::Value value;
  template <class T>
  operator T() const {
    if constexpr (std::is_pointer_v<T>) {
      return static_cast<T>(value.p);
    } else if constexpr (std::is_floating_point_v<T>) {
      return static_cast<T>(value.d);
    } else {
      return static_cast<T>(value.kind == caller::Kind::UInt64 ? value.u : static_cast<uint64_t>(value.i));
    }
  }
};

class Tour {
 public:
  explicit Tour(SimHost& host) : host_(host), calls_(caller::registered_calls(host.registry())) {}
  ~Tour();

  SimHost& host() { return host_; }
  // A registered function named as a program names it, called through the
  // host's caller with the receiver (block or object) first; overloads are
  // told apart by the number of arguments.
  template <class... Args>
  Result call(const char* name, Args... args) { return invoke(name, caller::Role::Method, {caller::Arg(args)...}); }
  template <class... Args>
  Result set(const char* name, Args... args) { return invoke(name, caller::Role::Setter, {caller::Arg(args)...}); }
  // A method that works on `block` in place, then the block under `label`.
  template <class... Args>
  void in_place(const char* label, const char* name, REALmemoryBlock block, Args... args) {
    call(name, block, args...);
    dump(label, block);
  }
  // A property, with the getter's ignored word.
  Result get(const char* name, const void* receiver) { return invoke(name, caller::Role::Getter, {receiver, 0}); }

  void section(const char* title);
  // A block the tour owns, given back at the end.
  REALmemoryBlock block(std::initializer_list<uint8_t> bytes);
  REALmemoryBlock block(size_t size, uint8_t fill = 0);
  // One line: the label, then the block's bytes in hex (or "nil").
  void dump(const char* label, REALmemoryBlock block);
  // A method's result by its kind: a Boolean as True or False, an Integer in
  // decimal, a UInt64 address in hex; a block or string is taken over and
  // shown, then any exception the call raised. Gives the result back.
  Result show(const char* label, Result result);
  // A method's plain result, or a note, in the same columns.
  void line(const char* label, const std::string& value);
  void raised();

 private:
  SimHost& host_;
  Result invoke(const char* name, caller::Role role, std::initializer_list<caller::Arg> args);

  std::vector<caller::Registered> calls_;
  std::vector<const void*> owned_;
};

// Bytes in hex, a space between; an address in hex after "0x".
std::string hex(const uint8_t* bytes, size_t count);
std::string address(uint64_t value);

void tour_sub_blocks(Tour& tour);
void tour_memory(Tour& tour);  // the MemoryBlockVEK class, global constructors, fill, invert, copies
void tour_numeric(Tour& tour);
void tour_colour_signal(Tour& tour);
void tour_search_fields(Tour& tour);
void tour_bitops(Tour& tour);
