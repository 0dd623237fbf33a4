// Ordinary calls of every function the plug-in registers, by name, for the
// suites that sweep them all: every method on nil, empty and guarded blocks,
// hosts that lack a service, failed allocations, and many threads at once.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/caller.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"

// What a call gave back, as a number: handles are adopted, released and
// counted as 1, so that "neutral" reads as 0, -1 or -2 for every method.
struct Caller {
  SimHost& host;
  const LoadedPlugin& plugin;
  REALmemoryBlock other;
  REALstring text;
  REALfolderItem folder;
  uint8_t* raw;       // 64 guarded bytes
  uint8_t* handle;    // a master pointer to `raw`
  bool negative = false;  // every Integer and Int64 argument given as -1 instead
  std::vector<caller::Registered> calls;  // what the plug-in registered with this host

  int64_t handed(const void* result);
  // A registered function by key and role, called through the plug-in's
  // entry point for it (a stand-in where the test set one).
  caller::Value invoke(std::string_view key, caller::Role role, std::span<const caller::Arg> args);
  bool has(std::string_view key, caller::Role role) const;
  // A result as a number: nothing is 0, a handle 1 (adopted and released),
  // an address whether it is not 0.
  int64_t number(const caller::Value& result);
};

// Bytes that differ from their neighbours, so a moved or lost byte shows.
std::vector<uint8_t> pattern(size_t size);

// A caller with its own 64-byte block, a string, a folder item and 64 guarded
// raw bytes with a master pointer to them, all owned by the host.
Caller make_caller(SimHost& host, const LoadedPlugin& plugin);

// A call of one extension method on the block given (nil, empty or not),
// keyed by its declaration. A caller whose `other`, `text`, `folder`, `raw`
// and `handle` are nil passes nil for them.
using Call = std::function<int64_t(Caller&, REALmemoryBlock)>;
const std::map<std::string, Call>& extension_calls();

// The rest of the registration: the MemoryBlockVEK class's members (one row
// runs an instance through Create, Resize, its properties and Close), the
// BytesVEK property and the two globals. Each gives a positive number when it
// worked; a member the host did not take (BytesVEK on a host of modules)
// gives -1.
using OtherCall = std::function<int64_t(Caller&)>;
const std::map<std::string, OtherCall>& other_calls();

// A run's own blocks: those of a caller and a 64-byte block of 0x5A.
struct Workspace {
  Caller caller;
  REALmemoryBlock block;
};
Workspace make_workspace(SimHost& host, const LoadedPlugin& plugin);

// What a run of every call saw: each call's result in order, then its
// blocks' bytes.
struct Seen {
  std::vector<std::pair<std::string, int64_t>> results;
  std::vector<uint8_t> block, other, raw;
  std::string failure;  // a C++ exception that left a call
};

// Every extension call on the workspace's block, then every other call,
// `rounds` times over.
Seen run_every_call(Workspace& space, int rounds);

// Fails the current test where `seen` differs from `expected`.
void expect_same(const Seen& seen, const Seen& expected);

// The exceptions a method of this plug-in may raise.
extern const std::set<std::pair<std::string, std::string>> kOwnExceptions;

// Methods that read a size of 0 as not known (a block over a raw address) and
// trust the caller's range there: an ordinary call on an empty block would
// reach past it, so callers give them a block over 128 raw bytes instead
// (room for a 70-byte FSSpec record).
extern const std::set<std::string> kTrustSizeZero;
