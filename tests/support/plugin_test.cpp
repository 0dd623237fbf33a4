#include "tests/support/plugin_test.h"

#include <algorithm>
#include <sstream>

std::vector<HostSetup> behaviour_hosts() {
  std::vector<HostSetup> hosts;
  for (Placement placement : {Placement::GuardAfter, Placement::GuardBefore}) {
    const char* where = placement == Placement::GuardAfter ? "GuardAfter" : "GuardBefore";
    hosts.push_back({std::string("Host3000_") + where, 3000.0, placement});
    hosts.push_back({std::string("Host2020Modules_") + where, 2020.0, placement});
    hosts.push_back({std::string("NoVersion_") + where, std::nullopt, placement});
  }
  return hosts;
}

std::string host_setup_name(const ::testing::TestParamInfo<HostSetup>& info) { return info.param.name; }

void PluginTest::SetUp() {
  HostConfig config;
  config.version = GetParam().version;
  config.placement = GetParam().placement;
  host_ = std::make_unique<SimHost>(config);
  plugin_ = std::make_unique<LoadedPlugin>(VEK_PLUGIN_PATH);
  plugin_->start(*host_);
  calls_ = caller::registered_calls(host_->registry());
}

caller::Value PluginTest::call_as(caller::Role role, std::string_view declaration,
                                  std::initializer_list<caller::Arg> args) {
  return caller::call(caller::find_call(calls_, declaration, role), args);
}

void PluginTest::expect_in_place(std::span<const InPlaceCase> cases, bool undoes_itself) {
  for (const InPlaceCase& c : cases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock b = block(c.block, c.storage);
    std::vector<caller::Arg> args{b};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const caller::Registered& method = caller::find_call(calls_, c.declaration);
    caller::call(method, args);
    EXPECT_EQ(bytes(b), c.expected);
    if (undoes_itself) {
      caller::call(method, args);
      EXPECT_EQ(bytes(b), c.block);
    }
    EXPECT_NOTHING_RAISED(*host_);
  }
  EXPECT_BALANCED(*host_);
}

void PluginTest::TearDown() {
  for (const void* handle : taken_) host_->release(handle);
  EXPECT_TRUE(LedgerBalanced(*host_));
  EXPECT_TRUE(RaisedNothing(*host_)) << "an exception no test looked at";
}

REALmemoryBlock PluginTest::block(const Bytes& bytes, Storage storage) {
  if (storage != Storage::RawAddress) {
    REALmemoryBlock b = host_->newBlock(bytes);
    if (storage == Storage::NoData) host_->overrideReportedData(b, nullptr);
    return b;
  }
  uint8_t* raw = host_->rawBuffer(bytes.size());
  std::copy(bytes.begin(), bytes.end(), raw);
  REALmemoryBlock b = host_->ptrBlock(raw);
  raw_[b] = std::span(raw, bytes.size());
  return b;
}

std::optional<Bytes> PluginTest::take_block(REALmemoryBlock result) {
  if (result == nullptr) return std::nullopt;
  take(result);
  return bytes(result);
}

std::optional<std::string> PluginTest::take_string(REALstring result) {
  if (result == nullptr) return std::nullopt;
  take(result);
  return host_->text(result);
}

void PluginTest::take(const void* result) {
  if (result == nullptr) return;
  host_->adopt(result);
  taken_.push_back(result);
}

::testing::AssertionResult LedgerBalanced(const SimHost& host, int baseline) {
  LedgerReport report = host.ledger();
  if (report.pluginHeld == baseline && report.overReleased == 0 && report.outstandingStringData == 0 &&
      report.invalidHandles == 0) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << "ledger: plug-in holds " << report.pluginHeld << " (expected "
                                       << baseline << "), over-released " << report.overReleased
                                       << ", string data outstanding " << report.outstandingStringData
                                       << ", invalid handles " << report.invalidHandles << "\n"
                                       << report.text();
}

namespace {
std::string describe(const std::vector<Raised>& raised) {
  std::ostringstream out;
  for (const Raised& r : raised) {
    out << "\n  " << r.className << " \"" << (r.message ? *r.message : "<null message>") << "\" #"
        << r.errorNumber;
  }
  return out.str();
}
}  // namespace

::testing::AssertionResult RaisedNothing(SimHost& host) {
  std::vector<Raised> raised = host.takeRaised();
  if (raised.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "raised:" << describe(raised);
}

::testing::AssertionResult RaisedOnce(SimHost& host, const std::string& className, const std::string& message) {
  std::vector<Raised> raised = host.takeRaised();
  if (raised.size() == 1 && raised[0].className == className && raised[0].message == message &&
      raised[0].errorNumber == 0) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << "expected " << className << " \"" << message << "\" #0, got:"
                                       << (raised.empty() ? std::string(" nothing") : describe(raised));
}
