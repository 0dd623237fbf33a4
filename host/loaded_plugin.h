// The plug-in as a host sees it: a fresh copy of the shared library loaded
// with dlopen, REALPluginMain called with the current simulated host's
// resolver, and the registered records as the only way in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/sim_host.h"

class LoadedPlugin {
 public:
  // Every instance is a separate copy of the library, with cache cells and
  // tables of its own. It is never unloaded: the host keeps pointers into it.
  // Throws std::runtime_error when the library cannot be loaded or has no
  // REALPluginMain.
  explicit LoadedPlugin(const char* path);
  LoadedPlugin(const LoadedPlugin&) = delete;
  LoadedPlugin& operator=(const LoadedPlugin&) = delete;

  void* dlHandle() const { return dl_; }
  // An exported symbol of the copy (the frame probe exports a few); throws
  // when there is none.
  template <typename Fn>
  Fn* symbol(const char* name) const {
    return reinterpret_cast<Fn*>(symbol_address(name));
  }
  void* entry() const { return entry_; }

  // Loads the copy into the current host and calls REALPluginMain.
  void start(const SimHost& host);

  // From now on every entry point this copy hands out, REALPluginMain in
  // start() included, is `standIn(entry point)` instead: code of the test's
  // own that calls the plug-in's function its own way (on an odd stack, say).
  using StandIn = const void* (*)(const void* function);
  void setStandIn(StandIn standIn) { standIn_ = standIn; }
  // What the host would call for one of this copy's functions: the function,
  // or its stand-in.
  const void* entryPoint(const void* function) const {
    return function != nullptr && standIn_ != nullptr ? standIn_(function) : function;
  }

  // The MemoryBlock extension, whichever way it was registered: a module
  // entry's declaration is given back without its "extends ref as
  // MemoryBlock" parameter, and a module's setter entry is joined to the
  // function entry after it.
  struct Extension {
    std::string declaration;
    const void* function = nullptr;
    const void* setter = nullptr;
  };
  const std::vector<Extension>& extensions() const { return extensions_; }

  // A typed entry point by declaration, for the benchmarks (every other call
  // goes through the host's caller); a declaration the plug-in did not
  // register throws std::runtime_error.
  template <typename Fn>
  Fn* method(std::string_view declaration) const {
    return handOut<Fn>(find(declaration).function);
  }

 private:
  template <typename Fn>
  Fn* handOut(const void* function) const {
    return reinterpret_cast<Fn*>(const_cast<void*>(entryPoint(function)));
  }
  void* symbol_address(const char* name) const;
  const Extension& find(std::string_view declaration) const;

  const SimHost* host_ = nullptr;
  void* dl_ = nullptr;
  void* entry_ = nullptr;
  std::vector<Extension> extensions_;
  StandIn standIn_ = nullptr;
};

// Strips the module form's class parameter:
// "MidVEK(extends ref as MemoryBlock, offset as integer) as Memoryblock"
// -> "MidVEK(offset as integer) as Memoryblock".
std::string without_class_parameter(std::string declaration);
