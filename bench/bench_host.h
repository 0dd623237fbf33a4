// The simulated host with the plug-in loaded, for the cases that time a
// registered method called as a host calls it (with a typed call: a call
// through the host's caller would add its own cost to what is timed).
#pragma once

#include <initializer_list>

#include <benchmark/benchmark.h>

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

// Times `call` once an iteration, counting `bytes`, then gives back the case's
// blocks.
template <class Call>
void time_call(benchmark::State& state, std::initializer_list<REALmemoryBlock> blocks, int64_t bytes, Call call) {
  for (auto _ : state) {
    call();
    benchmark::ClobberMemory();
  }
  for (REALmemoryBlock block : blocks) bench_host().host.release(block);
  state.SetBytesProcessed(state.iterations() * bytes);
}
