#include "host/loaded_plugin.h"

#include <stdexcept>

#include "host/os.h"

std::string without_class_parameter(std::string declaration) {
  for (std::string_view parameter : {"extends ref as MemoryBlock, ", "(extends ref as MemoryBlock)"}) {
    auto at = declaration.find(parameter);
    if (at != std::string::npos) return declaration.erase(at, parameter.size());
  }
  return declaration;
}

LoadedPlugin::LoadedPlugin(const char* path) {
  dl_ = os::load_library_copy(path);
  entry_ = os::library_symbol(dl_, "REALPluginMain");
  if (entry_ == nullptr) throw std::runtime_error("the plug-in has no REALPluginMain");
}

void* LoadedPlugin::symbol_address(const char* name) const {
  void* address = os::library_symbol(dl_, name);
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
