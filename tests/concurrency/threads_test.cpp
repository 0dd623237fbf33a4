// Every registered function from eight threads at once, each on blocks of its
// own, on a freshly loaded plug-in: nothing is called before the threads are
// released together, so the first lookup of every host service and the first
// choice of every kernel level happen under the race. Under ThreadSanitizer
// (the tsan preset) any unsynchronised access to shared state fails the run;
// in every build each thread must see exactly what a single thread sees, the
// ledger must balance and only the plug-in's own exceptions may be raised.
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/every_call.h"
#include "tests/support/plugin_test.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 3;

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
        runs[i] = run_every_call(spaces[i], kRounds);
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
  const Seen expected = run_every_call(alone, kRounds);
  EXPECT_EQ(expected.failure, "");
  EXPECT_EQ(raised.size(), kThreads * host().takeRaised().size());
  for (int i = 0; i < kThreads; ++i) {
    SCOPED_TRACE("thread " + std::to_string(i));
    expect_same(runs[i], expected);
  }
}

INSTANTIATE_ON_EVERY_HOST(Threads);

}  // namespace
