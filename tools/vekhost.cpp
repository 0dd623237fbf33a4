// vekhost: the simulated host on the command line.
//
//   vekhost list [--host-version V|none] [--missing SERVICE]... [PLUGIN]
//       loads the plug-in as a host of that version would and prints what it
//       registered: record version, classes, properties, methods with their
//       declarations and flags, modules with their rewritten declarations.
//   vekhost tour [PLUGIN]
//       runs a short session of calls on real blocks, with hex dumps.
//   vekhost call [--host-version V|none] [--plugin PATH] [--block ...]... METHOD [ARG]... [= VALUE]
//       calls one registered method, built from its declaration (tools/call.cpp).
//
// PLUGIN defaults to the libmemoryblockvek.so of the build folder this
// vekhost was built in.
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/loaded_plugin.h"
#include "host/os.h"
#include "host/sim_host.h"
#include "tools/call.h"
#include "tools/tour.h"

namespace {
struct Options {
  std::string command;
  std::optional<double> version = 3000.0;
  std::vector<std::string> missing;
  std::string plugin;
};

// The plug-in of the build this program belongs to: .../build/x64/tools/vekhost
// loads .../build/x64/libmemoryblockvek.so.
std::string default_plugin() {
  std::string path = os::executable_path();
  for (int up = 0; up < 2; ++up) {
    const size_t slash = path.find_last_of("/\\");
    path = slash == std::string::npos ? std::string() : path.substr(0, slash);
  }
  return path.empty() ? os::kPluginFileName : path + "/" + os::kPluginFileName;
}

int usage() {
  std::fprintf(stderr,
               "usage: vekhost list [--host-version V|none] [--missing SERVICE]... [PLUGIN]\n"
               "       vekhost tour [PLUGIN]\n%s",
               kCallUsage);
  return 2;
}

std::optional<Options> parse(int argc, char** argv) {
  if (argc < 2) return std::nullopt;
  Options options;
  options.command = argv[1];
  if (options.command != "list" && options.command != "tour") return std::nullopt;
  for (int i = 2; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--host-version" && i + 1 < argc && options.command == "list") {
      std::string value = argv[++i];
      if (value == "none") {
        options.version.reset();
      } else {
        char* end = nullptr;
        options.version = std::strtod(value.c_str(), &end);
        if (end == value.c_str() || *end != '\0') return std::nullopt;
      }
    } else if (arg == "--missing" && i + 1 < argc && options.command == "list") {
      options.missing.push_back(argv[++i]);
    } else if (!arg.starts_with("-") && options.plugin.empty()) {
      options.plugin = arg;
    } else {
      return std::nullopt;
    }
  }
  if (options.plugin.empty()) options.plugin = default_plugin();
  return options;
}

std::string version_text(const std::optional<double>& version) {
  if (!version) return "none (no \"REALGetRBVersion\")";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", *version);
  return text;
}

// -- list ------------------------------------------------------------------

void print_methods(const std::vector<MethodReg>& methods, const char* indent) {
  for (size_t i = 0; i < methods.size(); ++i) {
    const MethodReg& m = methods[i];
    std::printf("%s%3zu  flags %-2d %-7s %s\n", indent, i + 1, m.flags, m.setter != nullptr ? "setter" : "",
                m.declaration.c_str());
  }
}

void print_class(const char* kind, const ClassReg& c) {
  std::printf("%s \"%s\"\n", kind, c.name.c_str());
  std::printf("    record version %d, %zu words, flags %d, data size %d at offset %d, dispose %s\n",
              c.recordVersion, c.recordWords.size(), c.flags, c.dataSize, c.dataOffset,
              c.dispose != nullptr ? "yes" : "none");
  std::printf("    properties (%zu):\n", c.properties.size());
  for (const PropertyReg& p : c.properties) {
    std::printf("          flags %-2d %-12s as %s%s\n", p.flags, p.name.c_str(), p.type.c_str(),
                p.setter != nullptr ? " (settable)" : "");
  }
  std::printf("    methods (%zu):\n", c.methods.size());
  print_methods(c.methods, "      ");
}

int list(const Options& options) {
  HostConfig config;
  config.version = options.version;
  for (const std::string& name : options.missing) config.missing.insert(name);
  SimHost host(config);
  LoadedPlugin plugin(options.plugin.c_str());
  plugin.start(host);
  const Registry& registry = host.registry();

  std::printf("host version   %s\n", version_text(options.version).c_str());
  std::printf("plug-in        %s\n", options.plugin.c_str());
  if (!options.missing.empty()) {
    std::printf("missing        ");
    for (const std::string& name : options.missing) std::printf("%s ", name.c_str());
    std::printf("\n");
  }
  if (registry.pluginVersion) {
    std::printf("record version %d\n", *registry.pluginVersion);
  } else {
    std::printf("record version not reported\n");
  }
  std::printf("\n");
  for (const ClassReg& c : registry.extensions) print_class("class extension", c), std::printf("\n");
  for (const ClassReg& c : registry.classes) print_class("class", c), std::printf("\n");
  for (const ModuleReg& m : registry.modules) {
    std::printf("module \"%s\"\n    record version %d, %zu entries\n", m.name.c_str(), m.recordVersion,
                m.methods.size());
    print_methods(m.methods, "      ");
    std::printf("\n");
  }
  std::printf("global methods (%zu):\n", registry.globals.size());
  print_methods(registry.globals, "      ");
  if (registry.rejectedRecords != 0) std::printf("\nrecords the host could not read: %d\n", registry.rejectedRecords);
  return 0;
}

// -- tour ------------------------------------------------------------------

int tour(const Options& options) {
  SimHost host;
  LoadedPlugin plugin(options.plugin.c_str());
  plugin.start(host);
  std::printf("host version   %s\n", version_text(3000.0).c_str());
  std::printf("plug-in        %s\n", options.plugin.c_str());
  {
    Tour tour(host);
    tour_sub_blocks(tour);
    tour_memory(tour);
    tour_numeric(tour);
    tour_colour_signal(tour);
    tour_search_fields(tour);
    tour_bitops(tour);
  }
  LedgerReport ledger = host.ledger();
  std::printf("\nreferences held by the plug-in afterwards: %d, over-released: %d\n", ledger.pluginHeld,
              ledger.overReleased);
  return ledger.pluginHeld == 0 && ledger.overReleased == 0 ? 0 : 1;
}
}  // namespace

int main(int argc, char** argv) {
  bool calling = argc > 2 && std::strcmp(argv[1], "call") == 0;
  std::optional<Options> options;
  if (!calling && !(options = parse(argc, argv))) return usage();
  try {
    if (calling) return call_command(std::span(argv + 2, static_cast<size_t>(argc - 2)), default_plugin());
    return options->command == "list" ? list(*options) : tour(*options);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vekhost: %s\n", error.what());
    return 1;
  }
}
