// Hosts that lack services. For each service the plug-in can ask for, a host
// that lacks it (and hosts that lack all of them) loads the plug-in on each
// registration path and runs every function it could register, on a nil block
// and with ordinary arguments on a guard-paged block: no fault, a balanced
// ledger after each call, only the plug-in's own exceptions, a neutral result
// where the call needs the missing service, and otherwise exactly the result
// and bytes of the same call on a complete host.
#include <algorithm>
#include <optional>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {

// Every name the plug-in may ask its host for: the services, and the one
// framework method it loads through "REALLoadGlobalMethod". The sweep fails
// when the plug-in asks for a name that is not here.
const char* const kServices[] = {
    "REALGetRBVersion",
    "RegisterPluginVersion",
    "PluginRegisterClass",
    "PluginRegisterClassExtension",
    "PluginRegisterModule",
    "PluginRegisterMethod",
    "newMemoryBlock",
    "memoryBlockGetPtr",
    "memoryBlockGetSize",
    "PtrToMemoryBlock",
    "REALLockObject",
    "REALUnlockObject",
    "REALLockString",
    "REALUnlockString",
    "REALBuildString",
    "REALBuildStringWithEncoding",
    "REALSetStringEncoding",
    "REALConvertString",
    "REALGetStringEncoding",
    "PluginGetStringData",
    "PluginDisposeStringData",
    "StringGetCString",
    "REALLoadGlobalMethod",
    "LenB( s as string ) as integer",
    "PluginNewInstance",
    "REALSetPropValueString",
    "REALSetPropValueInteger",
    "REALSetPropValueInt",
    "RuntimeRaiseException",
    "FolderItemFromFSSpec",
    "REALFSSpecFromFolderItem",
};

const std::set<std::string> kRegistrationServices = {
    "PluginRegisterClass", "PluginRegisterClassExtension", "PluginRegisterModule", "PluginRegisterMethod",
};

// Services that give a reference back. A host that lacks one leaves the
// plug-in holding what it took: the ledger may then show references held,
// but never one given back that was not taken.
const std::set<std::string> kReleaseServices = {"REALUnlockObject", "REALUnlockString", "PluginDisposeStringData"};

// What an ordinary call does without a service it needs, against what it
// does on a complete host. A call whose needs are all there must do exactly
// what it does on a complete host.
enum class Effect {
  Neutral,    // nil, 0, false, -1 or -2, and no byte changed
  NoResult,   // the getter of an assignable pair gives nil; the setter works
  NoChange,   // the setter changes nothing; the getter works
  Spaces,     // a code assigned from text the host cannot give is four spaces
  NoMemory,   // MemoryBlockVEK works, but its Memory is nil
};

enum class Hosts { All, From2012, From2016, Before2012 };

struct Need {
  const char* service;
  const char* function;  // a name, or "*" for every extension method
  Effect effect;
  Hosts hosts = Hosts::All;
};

const Need kNeeds[] = {
    {"memoryBlockGetPtr", "*", Effect::Neutral},
    {"memoryBlockGetPtr", "NewMemoryBlockWithBytesVEK", Effect::Neutral},
    {"memoryBlockGetSize", "BytesVEK", Effect::Neutral},
    {"newMemoryBlock", "MidVEK", Effect::Neutral},
    {"newMemoryBlock", "LeftVEK", Effect::Neutral},
    {"newMemoryBlock", "RightVEK", Effect::Neutral},
    {"newMemoryBlock", "AppendVEK", Effect::Neutral},
    {"newMemoryBlock", "NewMemoryBlockWithBytesVEK", Effect::Neutral},
    {"PtrToMemoryBlock", "NewMemoryBlockFromPtrVEK", Effect::Neutral},
    {"PtrToMemoryBlock", "MemoryBlockVEK", Effect::NoMemory},
    {"REALLockObject", "MemoryBlockVEK", Effect::NoMemory},  // no reference of its own to hand out
    {"REALBuildString", "GetStringVEK", Effect::Neutral},
    {"REALBuildString", "OSTypeVEK", Effect::NoResult},
    {"PluginGetStringData", "OSTypeVEK", Effect::Spaces, Hosts::From2012},
    {"REALConvertString", "OSTypeVEK", Effect::Spaces, Hosts::Before2012},
    {"FolderItemFromFSSpec", "FSSpecVEK", Effect::NoResult},
    {"REALFSSpecFromFolderItem", "FSSpecVEK", Effect::NoChange},
    // A string's own bytes, read through "StringGetCString" and the framework's LenB.
    {"StringGetCString", "SetStringVEK", Effect::Neutral, Hosts::From2016},
    {"StringGetCString", "FindStringVEK", Effect::Neutral, Hosts::From2016},
    {"LenB( s as string ) as integer", "SetStringVEK", Effect::Neutral, Hosts::From2016},
    {"LenB( s as string ) as integer", "FindStringVEK", Effect::Neutral, Hosts::From2016},
    {"REALLoadGlobalMethod", "SetStringVEK", Effect::Neutral, Hosts::From2016},
    {"REALLoadGlobalMethod", "FindStringVEK", Effect::Neutral, Hosts::From2016},
};

bool applies(Hosts hosts, std::optional<double> version) {
  double v = version.value_or(0.0);
  switch (hosts) {
    case Hosts::All: return true;
    case Hosts::From2012: return v >= 2012.0;
    case Hosts::From2016: return v >= 2016.0;
    case Hosts::Before2012: return v < 2012.0;
  }
  return false;
}

// A function's name: its declaration up to the parameters.
std::string name_of(const std::string& declaration) { return declaration.substr(0, declaration.find('(')); }

struct Outcome {
  int64_t result = 0;
  Bytes block, other, raw;
  std::vector<std::string> raised;  // class names
  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& o) {
  out << "result " << o.result << ", raised";
  for (const std::string& r : o.raised) out << " " << r;
  return out;
}

// A host of the given version lacking `missing`, with the plug-in started.
struct Loaded {
  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> plugin;
};

Loaded load(std::optional<double> version, Placement placement, const std::set<std::string>& missing) {
  HostConfig config;
  config.version = version;
  config.placement = placement;
  config.missing.insert(missing.begin(), missing.end());
  Loaded l{std::make_unique<SimHost>(config), std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH)};
  l.plugin->start(*l.host);
  return l;
}

bool has_global(const SimHost& host, const std::string& declaration) {
  const Registry& r = host.registry();
  auto named = [&](const MethodReg& m) { return m.declaration == declaration; };
  if (std::any_of(r.globals.begin(), r.globals.end(), named)) return true;
  return std::any_of(r.modules.begin(), r.modules.end(),
                     [&](const ModuleReg& m) { return std::any_of(m.methods.begin(), m.methods.end(), named); });
}

bool has_class(const SimHost& host) { return !host.registry().classes.empty(); }

// What a call did, on a fresh block and a fresh caller: a 64-byte block (128
// for the methods that trust an unknown size). A host without
// "memoryBlockGetSize" reports every size as 0, not known, so there the
// caller keeps within the block as it must for a block over a raw address:
// such a block (over 128 bytes) for the methods that trust that size, an
// empty one for the rest, just as the complete host is given.
Outcome run_extension(Loaded& l, const std::string& declaration, const Call& call, bool unknown_sizes) {
  SimHost& host = *l.host;
  Caller c = make_caller(host, *l.plugin);
  const bool trusting = kTrustSizeZero.count(declaration) != 0;
  Bytes initial = pattern(trusting ? 128 : unknown_sizes ? 0 : 64);
  REALmemoryBlock block;
  uint8_t* storage;
  if (unknown_sizes && trusting) {
    storage = host.rawBuffer(initial.size());
    std::memcpy(storage, initial.data(), initial.size());
    block = host.ptrBlock(storage);
  } else {
    block = initial.empty() ? host.newBlock(size_t{0}) : host.newBlock(initial);
    storage = host.bytes(block).data();
  }
  Outcome o;
  o.result = call(c, block);
  auto other = host.bytes(c.other);
  o.block.assign(storage, storage + initial.size());
  o.other.assign(other.begin(), other.end());
  o.raw.assign(c.raw, c.raw + 64);
  for (const Raised& r : host.takeRaised()) o.raised.push_back(r.className);
  return o;
}

Outcome run_other(Loaded& l, const OtherCall& call) {
  Caller c = make_caller(*l.host, *l.plugin);
  Outcome o;
  o.result = call(c);
  o.raw.assign(c.raw, c.raw + 64);
  for (const Raised& r : l.host->takeRaised()) o.raised.push_back(r.className);
  return o;
}

// Nothing to give: the neutral result, no byte of the block, the other block
// or the raw bytes changed, and at most the plug-in's own refusal.
// MinVEK and MaxVEK report whether the element size was theirs, also when
// there was nothing to do; the strided copies answer true for no run at all.
const std::set<std::string> kTrueWithNothingDone = {"MinVEK", "MaxVEK", "CopyNthBytesVEK", "CopyNthBitsVEK"};

bool neutral(const Outcome& o, const std::string& name) {
  const std::set<std::string> refusals = {"NilObjectException", "UnsupportedOperationException",
                                          "OutOfMemoryException"};
  bool own = std::all_of(o.raised.begin(), o.raised.end(), [&](const std::string& r) { return refusals.count(r); });
  bool untouched = (o.block.empty() || o.block == pattern(o.block.size())) &&
                   (o.other.empty() || o.other == Bytes(64, 3)) && o.raw == Bytes(64, 0);
  bool result = o.result == 0 || o.result == -1 || o.result == -2 || (o.result == 1 && kTrueWithNothingDone.count(name));
  return result && untouched && own;
}

// The outcome expected without `missing`, from the complete host's; nullopt
// when the call must be neutral.
std::optional<Outcome> expected(const Outcome& complete, const std::string& name, bool extension,
                                const std::set<std::string>& missing, std::optional<double> version) {
  Outcome o = complete;
  for (const Need& need : kNeeds) {
    if (!missing.count(need.service) || !applies(need.hosts, version)) continue;
    if (!(need.function == name || (extension && std::string(need.function) == "*"))) continue;
    switch (need.effect) {
      case Effect::Neutral: return std::nullopt;
      case Effect::NoResult: o.result = 0; break;
      case Effect::NoChange: o.block = pattern(o.block.size()); break;
      case Effect::Spaces: std::fill(o.block.begin() + 4, o.block.begin() + 8, 0x20); break;
      case Effect::NoMemory: o.result = complete.result - 1; break;
    }
  }
  return o;
}

class MissingService : public ::testing::TestWithParam<HostSetup> {
 protected:
  // The complete host's outcomes, per function, on the given version.
  const std::map<std::string, Outcome>& complete(std::optional<double> version, bool unknown_sizes) {
    auto& outcomes = complete_[{version.value_or(-1.0), unknown_sizes}];
    if (!outcomes.empty()) return outcomes;
    Loaded l = load(version, GetParam().placement, {});
    for (const auto& [declaration, call] : extension_calls()) {
      outcomes[declaration] = run_extension(l, declaration, call, unknown_sizes);
    }
    for (const auto& [name, call] : other_calls()) outcomes[name] = run_other(l, call);
    return outcomes;
  }

  ::testing::AssertionResult balanced(const SimHost& host, const std::set<std::string>& missing) {
    bool cannot_release = std::any_of(missing.begin(), missing.end(),
                                      [](const std::string& s) { return kReleaseServices.count(s) != 0; });
    if (!cannot_release) return LedgerBalanced(host);
    LedgerReport report = host.ledger();
    if (report.overReleased == 0 && report.invalidHandles == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "over-released " << report.overReleased << ", invalid handles "
                                         << report.invalidHandles << "\n" << report.text();
  }

  void checkLookups(const SimHost& host) {
    for (const std::string& name : host.lookedUp()) {
      EXPECT_NE(std::find(std::begin(kServices), std::end(kServices), name), std::end(kServices))
          << "the plug-in asks for \"" << name << "\", which the sweep does not take away";
      asked_.insert(name);
    }
  }

  void sweep(const std::string& label, const std::set<std::string>& missing);

  std::map<std::pair<double, bool>, std::map<std::string, Outcome>> complete_;
  std::set<std::string> asked_;
};

void MissingService::sweep(const std::string& label, const std::set<std::string>& missing) {
  SCOPED_TRACE("without " + label);
  const std::optional<double> version = missing.count("REALGetRBVersion") ? std::nullopt : GetParam().version;
  const bool modules = version && *version >= 2013.0 && *version < 3000.0;
  auto lacks = [&](const char* service) { return missing.count(service) != 0; };
  const bool unknown_sizes = lacks("memoryBlockGetSize");
  const std::map<std::string, Outcome>& reference = complete(version, unknown_sizes);
  Loaded l = load(GetParam().version, GetParam().placement, missing);
  SimHost& host = *l.host;
  EXPECT_TRUE(balanced(host, missing));

  // What registration did: whatever the host had a service for, and no more.
  const Registry& registry = host.registry();
  EXPECT_EQ(registry.pluginVersion.has_value(), !lacks("RegisterPluginVersion"));
  EXPECT_EQ(registry.classes.size(), lacks("PluginRegisterClass") ? 0u : 1u);
  const bool extension_registered = modules ? !lacks("PluginRegisterModule") : !lacks("PluginRegisterClassExtension");
  EXPECT_EQ(l.plugin->extensions().size(), extension_registered ? 45u : 0u);
  const bool globals_registered = modules ? !lacks("PluginRegisterModule") : !lacks("PluginRegisterMethod");
  EXPECT_EQ(has_global(host, "NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock"), globals_registered);


  for (const auto& extension : l.plugin->extensions()) {
    const std::string& declaration = extension.declaration;
    SCOPED_TRACE(declaration);
    const Call& call = extension_calls().at(declaration);
    // A nil block: the neutral result, and at most the plug-in's own refusal.
    Caller c = make_caller(host, *l.plugin);
    int64_t result = call(c, nullptr);
    EXPECT_TRUE(result == 0 || result == -1 || result == -2) << "not neutral: " << result;
    for (const Raised& r : host.takeRaised()) {
      EXPECT_TRUE(r.message ? kOwnExceptions.count({r.className, *r.message}) != 0 : r.className == "NilObjectException")
          << r.className << " " << r.message.value_or("<null>");
    }
    EXPECT_TRUE(balanced(host, missing));

    Outcome o = run_extension(l, declaration, call, unknown_sizes);
    EXPECT_TRUE(balanced(host, missing));
    auto want = expected(reference.at(declaration), name_of(declaration), true, missing, version);
    if (want) {
      EXPECT_EQ(o, *want);
    } else {
      EXPECT_TRUE(neutral(o, name_of(declaration))) << o;
    }
  }

  for (const auto& [name, call] : other_calls()) {
    SCOPED_TRACE(name);
    if (name == "MemoryBlockVEK" && !has_class(host)) continue;
    if (name == "BytesVEK" && host.registry().extensions.empty()) continue;
    if (name.starts_with("New") && !has_global(host, name)) continue;
    Outcome o = run_other(l, call);
    EXPECT_TRUE(balanced(host, missing));
    auto want = expected(reference.at(name), name_of(name), false, missing, version);
    if (want) {
      EXPECT_EQ(o, *want);
    } else {
      EXPECT_TRUE(neutral(o, name)) << o;
    }
  }
  checkLookups(host);
}

TEST_P(MissingService, EachServiceAndAll) {
  for (const char* service : kServices) sweep(service, {service});

  std::set<std::string> all(std::begin(kServices), std::end(kServices));
  sweep("every service", all);
  std::set<std::string> all_but_registration;
  for (const std::string& s : all) {
    if (!kRegistrationServices.count(s)) all_but_registration.insert(s);
  }
  sweep("every service but registration", all_but_registration);

  // Every name on the list was asked for somewhere in the sweep, except
  // those no registered function of this host reaches: UTF-16 and UTF-32
  // strings are never built, modules are for hosts from 2013.0 to 3000.0,
  // and old hosts read a string's record themselves.
  const std::optional<double> version = GetParam().version;
  std::set<std::string> never = {"REALBuildStringWithEncoding"};
  if (!(version && *version >= 2013.0 && *version < 3000.0)) never.insert("PluginRegisterModule");
  if (!version) {
    never.insert({"PluginGetStringData", "PluginDisposeStringData", "StringGetCString", "REALLoadGlobalMethod",
                  "LenB( s as string ) as integer"});
  }
  std::set<std::string> unasked;
  for (const char* service : kServices) {
    if (!asked_.count(service)) unasked.insert(service);
  }
  EXPECT_EQ(unasked, never);
}

INSTANTIATE_ON_EVERY_HOST(MissingService);
}  // namespace
