// REALPluginMain: the plug-in's only export. The host calls it once, right
// after loading, with its resolver; from then on it calls the registered
// functions directly.
#include <cstring>
#include <cstdlib>

#include "frame/host_services.h"
#include "frame/modules.h"
#include "frame/tables.h"
#include "frame/target.h"

namespace {
int32_t record_version_for_host() {
  if (host_from(kHost2013_04)) return 13;
  if (host_from(kHost2013_03)) return 12;
  if (host_from(kHost2013)) return 11;
  if (host_from(kHost2012)) return 10;
  return 9;
}

// Hosts from 2013.0 up to 3000.0 take the extension and the global methods
// as modules of functions instead.
bool host_takes_modules() { return host_from(kHost2013) && !host_from(kHost3000); }

// Record version 9 hosts get the shorter record, copied over the static one
// so that the host's pointer stays valid for the life of the process.
void register_class(REALclassDefinition* definition, void (*registrar)(REALclassDefinition*)) {
  if (CurrentREALControlVersion > 9) {
    definition->version = CurrentREALControlVersion;
    registrar(definition);
    return;
  }
  REALclassDefinition* converted = FixClass(definition);
  if (converted == nullptr) return;  // out of memory: the class is not offered
  std::memcpy(static_cast<void*>(definition), converted, kClassWordsV9 * kWord);
  registrar(definition);
  std::free(converted);  // its tables stay: the registered record points at them
}
}  // namespace

VEK_EXPORT void REALPluginMain(REALResolver resolver) {
  connect_host(resolver);
  if (resolver == nullptr) return;
  // Asked for once, here, and not kept.
  CurrentREALControlVersion = record_version_for_host();
  if (auto register_version = reinterpret_cast<void (*)(int32_t)>(resolver("RegisterPluginVersion"))) {
    register_version(CurrentREALControlVersion);
  }
  gpartname = "Memoryblock";

  if (host_takes_modules()) {
    BuildExtensionModule();
  } else {
    register_class(&memBlkClass, REALRegisterClassExtension);
  }

  MemClass.dataSize = (MemClass.dataSize + 15) & ~intptr_t{15};
  register_class(&MemClass, REALRegisterClass);

  if (host_takes_modules()) {
    BuildGlobalsModule();
  } else {
    for (auto& method : globalsMethods) REALRegisterMethod(&method);
  }
}
