// The simulated host with the plug-in loaded, for the cases that time a
// registered method called as a host calls it (with a typed call: a call
// through the host's caller would add its own cost to what is timed).
#pragma once

#include "host/loaded_plugin.h"
#include "host/sim_host.h"

struct BenchHost {
  SimHost host;
  LoadedPlugin plugin{VEK_PLUGIN_PATH};
  BenchHost() { plugin.start(host); }
};

// One for the whole run, never destroyed: cases keep their blocks in it.
inline BenchHost& bench_host() {
  static BenchHost* shared = new BenchHost();
  return *shared;
}
