#include "host/loaded_plugin.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {
// A private copy, so that each load gets its own cache cells and tables.
std::string copy_library(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(std::string("cannot read ") + path);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  char name[] = "/tmp/vekplugin-XXXXXX.so";
  int fd = mkstemps(name, 3);
  if (fd < 0) throw std::runtime_error("cannot make a copy of the plug-in");
  bool written = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  close(fd);
  if (!written) throw std::runtime_error("cannot write a copy of the plug-in");
  return name;
}
}  // namespace

std::string without_class_parameter(std::string declaration) {
  for (std::string_view parameter : {"extends ref as MemoryBlock, ", "(extends ref as MemoryBlock)"}) {
    auto at = declaration.find(parameter);
    if (at != std::string::npos) return declaration.erase(at, parameter.size());
  }
  return declaration;
}

LoadedPlugin::LoadedPlugin(const char* path) {
  std::string copy = copy_library(path);
  dl_ = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
  unlink(copy.c_str());
  if (dl_ == nullptr) throw std::runtime_error(std::string("dlopen: ") + dlerror());
  entry_ = dlsym(dl_, "REALPluginMain");
  if (entry_ == nullptr) throw std::runtime_error("the plug-in has no REALPluginMain");
}

void* LoadedPlugin::symbol_address(const char* name) const {
  void* address = dlsym(dl_, name);
  if (address == nullptr) throw std::runtime_error(std::string("no symbol ") + name);
  return address;
}

void LoadedPlugin::start(const SimHost& host) {
  host_ = &host;
  handOut<void(void* (*)(const char*))>(entry_)(&SimHost::resolver);

  const Registry& registry = host.registry();
  for (const ClassReg& extension : registry.extensions) {
    if (extension.name != "MemoryBlock") continue;
    for (const MethodReg& method : extension.methods) {
      extensions_.push_back({method.declaration, method.function, method.setter});
    }
  }
  for (const ModuleReg& module : registry.modules) {
    if (module.name != "MemoryBlockMemoryblockExtensionVEK") continue;
    const void* pending_setter = nullptr;
    for (const MethodReg& entry : module.methods) {
      if (entry.declaration.find("assigns value") != std::string::npos) {
        pending_setter = entry.function;
        continue;
      }
      extensions_.push_back({without_class_parameter(entry.declaration), entry.function, pending_setter});
      pending_setter = nullptr;
    }
  }
}

const LoadedPlugin::Extension& LoadedPlugin::find(std::string_view declaration) const {
  for (const Extension& extension : extensions_) {
    if (extension.declaration == declaration) return extension;
  }
  throw std::runtime_error("not registered: " + std::string(declaration));
}
