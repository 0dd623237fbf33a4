// Every registered function from eight threads at once, each on blocks of its
// own, on a freshly loaded plug-in: nothing is called before the threads are
// released together, so the first lookup of every host service and the first
// choice of every kernel level happen under the race. Under ThreadSanitizer
// (the tsan preset) any unsynchronised access to shared state fails the run;
// in every build each thread must see exactly what a single thread sees, the
// ledger must balance and only the plug-in's own exceptions may be raised.
#include <latch>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 3;

// One thread's own blocks: those of a caller and a 64-byte guarded block.
struct Workspace {
  Caller caller;
  REALmemoryBlock block;
};

Workspace make_workspace(SimHost& host, const LoadedPlugin& plugin) {
  return {make_caller(host, plugin), host.newBlock(64, 0x5A)};
}

// What one thread saw: each call's result in order, then its blocks' bytes.
struct Seen {
  std::vector<std::pair<std::string, int64_t>> results;
  std::vector<uint8_t> block, other, raw;
  std::string failure;  // a C++ exception that left a call
};

std::vector<uint8_t> copy_of(std::span<const uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

Seen run_every_call(Workspace& space) {
  Seen seen;
  Caller& c = space.caller;
  try {
    for (int round = 0; round < kRounds; ++round) {
      for (const auto& [declaration, call] : extension_calls()) seen.results.emplace_back(declaration, call(c, space.block));
      for (const auto& [name, call] : other_calls()) seen.results.emplace_back(name, call(c));
    }
  } catch (const std::exception& e) {
    seen.failure = e.what();
  }
  seen.block = copy_of(c.host.bytes(space.block));
  seen.other = copy_of(c.host.bytes(c.other));
  seen.raw = copy_of({c.raw, 64});
  return seen;
}

class Threads : public PluginTest {};

TEST_P(Threads, EveryFunctionFromEightThreadsAtOnce) {
  std::vector<Workspace> spaces;
  for (int i = 0; i < kThreads; ++i) spaces.push_back(make_workspace(host(), plugin()));

  std::vector<Seen> runs(kThreads);
  std::latch start(kThreads);
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        start.arrive_and_wait();
        runs[i] = run_every_call(spaces[i]);
      });
    }
  }
  const std::vector<Raised> raised = host().takeRaised();
  for (const Raised& r : raised) {
    EXPECT_TRUE(kOwnExceptions.count({r.className, r.message.value_or("")}))
        << "raised " << r.className << " " << r.message.value_or("<null>");
  }
  EXPECT_BALANCED(host());

  // The same calls on the same kind of blocks, one thread, now that every
  // cell is filled.
  Workspace alone = make_workspace(host(), plugin());
  const Seen expected = run_every_call(alone);
  EXPECT_EQ(expected.failure, "");
  EXPECT_EQ(raised.size(), kThreads * host().takeRaised().size());
  for (int i = 0; i < kThreads; ++i) {
    SCOPED_TRACE("thread " + std::to_string(i));
    EXPECT_EQ(runs[i].failure, "");
    EXPECT_EQ(runs[i].results, expected.results);
    EXPECT_EQ(runs[i].block, expected.block);
    EXPECT_EQ(runs[i].other, expected.other);
    EXPECT_EQ(runs[i].raw, expected.raw);
  }
}

INSTANTIATE_ON_EVERY_HOST(Threads);

}  // namespace
