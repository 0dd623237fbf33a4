// Every function a host calls, REALPluginMain and each registered function,
// called on a stack misaligned by 4, 8 and 12 bytes, as a 32-bit host that
// keeps its stack aligned to 4 bytes only may call them: each must give what
// an ordinary call gives on a fresh copy, leave the same bytes and raise the
// same exceptions. No kernel level is forced: each family runs the widest
// this CPU has, chosen on its first call, which is itself a misaligned one.
// i386 only (tests/CMakeLists.txt builds it there alone).
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/every_call.h"
#include "tests/support/misaligned_call.h"
#include "tests/support/plugin_test.h"

// Where esp pointed at the call that reached it.
extern "C" [[gnu::visibility("hidden")]] uintptr_t vek_stack_at_call();
asm(R"(
        .pushsection .text
        .type vek_stack_at_call, @function
vek_stack_at_call:
        leal 4(%esp), %eax
        ret
        .size vek_stack_at_call, . - vek_stack_at_call
        .popsection
)");

namespace {

// Thirteen argument words of every width, weighed by position so that a
// word moved or lost shows.
double weigh(int32_t a, double b, int64_t c, uint8_t d, int32_t e, int32_t f, int32_t g, int32_t h, int32_t i,
             int32_t j, int32_t k) {
  return a + 2 * b + 3.0 * c + 4 * d + 5 * e + 6 * f + 7 * g + 8 * h + 9 * i + 10 * j + 11 * k;
}
int64_t widen(int64_t x) { return x * 3 + 1; }

template <typename Fn>
Fn* through_thunk(Fn* function) {
  return reinterpret_cast<Fn*>(const_cast<void*>(misaligned_call::stand_in(reinterpret_cast<const void*>(function))));
}

TEST(MisalignedCall, GivesTheStackAskedForAndPassesArgumentsAndResults) {
  for (int misalignment : {0, 4, 8, 12}) {
    SCOPED_TRACE(misalignment);
    misaligned_call::reset(misalignment);
    EXPECT_EQ(through_thunk(vek_stack_at_call)() % 16, uintptr_t(misalignment));
    EXPECT_EQ(through_thunk(weigh)(1, 0.5, int64_t{1} << 40, 200, -5, 6, 7, 8, 9, 10, 11),
              weigh(1, 0.5, int64_t{1} << 40, 200, -5, 6, 7, 8, 9, 10, 11));
    EXPECT_EQ(through_thunk(widen)(0x123456789), widen(0x123456789));
    EXPECT_EQ(misaligned_call::calls(), 3);
  }
}

// Every function the host was given: REALPluginMain and each registered
// function, setter, getter and dispose.
std::set<const void*> entry_points(const LoadedPlugin& plugin, const Registry& registry) {
  std::set<const void*> functions{plugin.entry()};
  auto add = [&](const void* function) {
    if (function != nullptr) functions.insert(function);
  };
  auto add_methods = [&](const std::vector<MethodReg>& methods) {
    for (const MethodReg& method : methods) add(method.function), add(method.setter);
  };
  for (const auto* classes : {&registry.classes, &registry.extensions}) {
    for (const ClassReg& cls : *classes) {
      add(cls.dispose);
      add_methods(cls.methods);
      for (const PropertyReg& property : cls.properties) add(property.getter), add(property.setter);
    }
  }
  for (const ModuleReg& module : registry.modules) add_methods(module.methods);
  add_methods(registry.globals);
  return functions;
}

struct Outcome {
  Seen seen;
  std::vector<std::pair<std::string, std::string>> raised;
  std::set<const void*> entryPoints;
};

// A fresh host and copy of the plug-in, started and taken once through every call.
Outcome run_fresh(const HostSetup& setup, LoadedPlugin::StandIn stand_in) {
  SimHost host(HostConfig{.version = setup.version, .placement = setup.placement});
  LoadedPlugin plugin(VEK_PLUGIN_PATH);
  plugin.setStandIn(stand_in);
  plugin.start(host);
  Workspace space = make_workspace(host, plugin);
  Outcome outcome{run_every_call(space, 1), {}, entry_points(plugin, host.registry())};
  for (const Raised& r : host.takeRaised()) outcome.raised.emplace_back(r.className, r.message.value_or("<null>"));
  EXPECT_BALANCED(host);
  return outcome;
}

class MisalignedStack : public ::testing::TestWithParam<HostSetup> {};

TEST_P(MisalignedStack, EveryFunctionWorksAsOnAnAlignedStack) {
  const Outcome expected = run_fresh(GetParam(), nullptr);
  ASSERT_EQ(expected.seen.failure, "");
  for (int misalignment : {4, 8, 12}) {
    SCOPED_TRACE("esp % 16 == " + std::to_string(misalignment) + " at every call");
    misaligned_call::reset(misalignment);
    const Outcome outcome = run_fresh(GetParam(), &misaligned_call::stand_in);
    const std::set<const void*> called = misaligned_call::functions();
    for (const void* function : outcome.entryPoints) EXPECT_TRUE(called.count(function)) << "not called: " << function;
    EXPECT_GE(misaligned_call::calls(), int(expected.seen.results.size()));
    expect_same(outcome.seen, expected.seen);
    EXPECT_EQ(outcome.raised, expected.raised);
  }
}

INSTANTIATE_ON_EVERY_HOST(MisalignedStack);

}  // namespace
