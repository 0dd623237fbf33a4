// The fixture of every behaviour suite: a simulated host and a freshly loaded
// plug-in per test, rerun on the three registration paths (class extension,
// modules, record version 9) and on both guard-page placements. The
// reference ledger is checked after the test; a test checks it after each
// call with EXPECT_BALANCED.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/caller.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"

struct HostSetup {
  std::string name;
  std::optional<double> version;  // nullopt: the host does not say
  Placement placement;
};

inline void PrintTo(const HostSetup& setup, std::ostream* out) { *out << setup.name; }

// 3000.0 (class extension), 2020.0 (modules), no version (record version 9),
// each with storage ending at a guard page and starting after one.
std::vector<HostSetup> behaviour_hosts();
std::string host_setup_name(const ::testing::TestParamInfo<HostSetup>& info);

using Bytes = std::vector<uint8_t>;

// Where a test block's bytes live: in an ordinary block; behind a block made
// over a raw address, which reports size 0; or in a block the host gives no
// data pointer for.
enum class Storage { Block, RawAddress, NoData };

// A method that works on its block in place: the block before, the
// arguments after the block, the block after.
struct InPlaceCase {
  const char* name;
  const char* declaration;
  Bytes block;
  std::vector<caller::Arg> args;
  Bytes expected;
  Storage storage = Storage::Block;
};

class PluginTest : public ::testing::TestWithParam<HostSetup> {
 protected:
  void SetUp() override;
  void TearDown() override;

  SimHost& host() { return *host_; }
  const LoadedPlugin& plugin() { return *plugin_; }

  // Calls a registered function by its declaration (a property by its
  // name), as the host calls it: the block or object first, a setter's value
  // last. A declaration the plug-in did not register throws.
  //   EXPECT_TRUE(call(kNthBytes, dest, source, 0, 0, 2, 4, 3).i);
  template <class... Args>
  caller::Value call(std::string_view declaration, Args... args) {
    return call_as(caller::Role::Method, declaration, {caller::Arg(args)...});
  }
  template <class... Args>
  caller::Value set(std::string_view declaration, Args... args) {
    return call_as(caller::Role::Setter, declaration, {caller::Arg(args)...});
  }
  caller::Value call_as(caller::Role role, std::string_view declaration, std::initializer_list<caller::Arg> args);

  // Each case on a block of its own, nothing raised; with `undoes_itself`
  // the same call again gives the block back.
  void expect_in_place(std::span<const InPlaceCase> cases, bool undoes_itself = false);

  REALmemoryBlock block(const Bytes& bytes, Storage storage = Storage::Block);
  // The block's bytes; for one made by block(bytes, Storage::RawAddress),
  // the raw bytes behind it.
  Bytes bytes(REALmemoryBlock b) const {
    auto raw = raw_.find(b);
    auto span = raw != raw_.end() ? raw->second : host_->bytes(b);
    return Bytes(span.begin(), span.end());
  }
  // Takes a method's result over from the plug-in and gives back its bytes
  // (nullopt for nil); the test releases it at the end.
  std::optional<Bytes> take_block(REALmemoryBlock result);
  // The same for a string result: its bytes, or nullopt for nil.
  std::optional<std::string> take_string(REALstring result);
  // Takes over any other handle a method returned (a folder item, say); it is
  // given back at the end of the test.
  void take(const void* result);

  std::unique_ptr<SimHost> host_;
  std::unique_ptr<LoadedPlugin> plugin_;
  std::vector<caller::Registered> calls_;
  std::vector<const void*> taken_;
  std::map<REALmemoryBlock, std::span<uint8_t>> raw_;
};

// The plug-in holds no reference beyond `baseline`, released nothing it did
// not hold and lent no string data it did not get back.
::testing::AssertionResult LedgerBalanced(const SimHost& host, int baseline = 0);
#define EXPECT_BALANCED(host) EXPECT_TRUE(LedgerBalanced(host))

// What was raised since the last check: nothing, or exactly one exception.
::testing::AssertionResult RaisedNothing(SimHost& host);
::testing::AssertionResult RaisedOnce(SimHost& host, const std::string& className, const std::string& message);
#define EXPECT_NOTHING_RAISED(host) EXPECT_TRUE(RaisedNothing(host))
#define EXPECT_RAISED(host, className, message) EXPECT_TRUE(RaisedOnce(host, className, message))

#define INSTANTIATE_ON_EVERY_HOST(suite) \
  INSTANTIATE_TEST_SUITE_P(Hosts, suite, ::testing::ValuesIn(behaviour_hosts()), host_setup_name)
