// Checks of the simulated host's own mechanics, with no plug-in loaded: the
// guard pages, the reference ledger, text conversion, the string record and
// the reading of class records. The services are called the way a plug-in
// calls them, through the resolver.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "host/sim_host.h"

namespace {

template <class Fn>
Fn* service(const char* name) {
  return reinterpret_cast<Fn*>(SimHost::resolver(name));
}

// The byte read is kept: valgrind drops a load whose value goes unused, and
// the fault with it.
volatile uint8_t touched;
void touch(const uint8_t* address) { touched = *static_cast<const volatile uint8_t*>(address); }

uintptr_t word(const void* record, size_t index) {
  uintptr_t value;
  std::memcpy(&value, static_cast<const std::byte*>(record) + index * sizeof value, sizeof value);
  return value;
}

uintptr_t pointerWord(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

template <class Fn>
uintptr_t functionWord(Fn* function) {
  return reinterpret_cast<uintptr_t>(function);
}

TEST(SimHostDeathTest, GuardAfterFaultsOneBytePastTheEnd) {
  SimHost host({.placement = Placement::GuardAfter});
  const uint8_t* data = host.bytes(host.newBlock(10, 0x5A)).data();
  touch(data);
  touch(data + 9);
  EXPECT_DEATH(touch(data + 10), "");
  const uint8_t* empty = host.bytes(host.newBlock(0)).data();
  ASSERT_NE(empty, nullptr);
  EXPECT_DEATH(touch(empty), "");
}

TEST(SimHostDeathTest, GuardBeforeFaultsOneByteBeforeTheStart) {
  SimHost host({.placement = Placement::GuardBefore});
  const uint8_t* data = host.rawBuffer(10);
  touch(data);
  EXPECT_DEATH(touch(data - 1), "");
}

TEST(SimHost, LedgerCountsPluginReferences) {
  SimHost host;
  auto newMemoryBlock = service<REALmemoryBlock(int32_t)>("newMemoryBlock");
  auto lockObject = service<void(REALobject)>("REALLockObject");
  auto unlockObject = service<void(REALobject)>("REALUnlockObject");

  REALmemoryBlock made = newMemoryBlock(4);
  EXPECT_EQ(host.ledger().pluginHeld, 1);
  host.adopt(made);  // handed to the test as a result
  EXPECT_EQ(host.ledger().pluginHeld, 0);

  REALmemoryBlock argument = host.newBlock(3);
  lockObject(as_object(argument));
  EXPECT_EQ(host.pluginReferences(argument), 1);
  unlockObject(as_object(argument));
  unlockObject(as_object(argument));  // one too many: refused, the test's reference stands
  EXPECT_EQ(host.references(argument), 1);
  host.release(argument);
  unlockObject(as_object(argument));  // freed

  const LedgerReport report = host.ledger();
  EXPECT_EQ(report.pluginHeld, 0);
  EXPECT_EQ(report.overReleased, 2);
  EXPECT_NE(report.text().find("freed block of 3 bytes"), std::string::npos) << report.text();
  host.release(made);
}

TEST(SimHost, StringDataRecordsAreTracked) {
  SimHost host;
  auto getStringData = service<uint8_t(REALstring, uint32_t, void*)>("PluginGetStringData");
  auto disposeStringData = service<void(void*)>("PluginDisposeStringData");
  REALstring latin = host.newString("caf\xC3\xA9", kEncodingUTF8);
  std::array<uintptr_t, 5> record{};
  ASSERT_EQ(getStringData(latin, kEncodingMacRoman, record.data()), 1);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(record[0]), record[1]), "caf\x8E");
  EXPECT_EQ(host.ledger().outstandingStringData, 1);
  disposeStringData(record.data());
  EXPECT_EQ(host.ledger().outstandingStringData, 0);
  disposeStringData(record.data());
  EXPECT_EQ(host.ledger().overReleased, 1);
  host.release(latin);
}

TEST(SimHost, ConvertsMacRomanAndUtf8BothWays) {
  SimHost host;
  auto convertString = service<REALstring(REALstring, uint32_t)>("REALConvertString");
  auto unlockString = service<void(REALstring)>("REALUnlockString");
  REALstring macRoman = host.newString("\x8E", kEncodingMacRoman);
  REALstring utf8 = convertString(macRoman, kEncodingUTF8);
  ASSERT_NE(utf8, nullptr);
  EXPECT_EQ(host.text(utf8), "\xC3\xA9");
  EXPECT_EQ(host.encoding(utf8), kEncodingUTF8);
  REALstring back = convertString(utf8, kEncodingMacRoman);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(host.text(back), "\x8E");
  EXPECT_EQ(convertString(utf8, kEncodingASCII), nullptr);  // é has no ASCII form
  unlockString(utf8);
  unlockString(back);
  EXPECT_EQ(host.ledger().pluginHeld, 0);
  host.release(macRoman);
}

TEST(SimHost, StringRecordHoldsBufferAndLength) {
  SimHost host({.unterminatedText = true});
  REALstring string = host.newString("abc", kEncodingASCII);
  const auto* buffer = reinterpret_cast<const uint8_t*>(word(string, 1));
  EXPECT_EQ(std::memcmp(buffer + 1, "abc", 3), 0);
  EXPECT_EQ(word(string, 3), 3u);
  EXPECT_NE(buffer[1 + 3], 0);
  EXPECT_EQ(service<const char*(REALstring)>("StringGetCString")(string), reinterpret_cast<const char*>(buffer + 1));
  host.release(string);
}

int disposals = 0;
void disposeThing(REALobject) { ++disposals; }
void thingMethod(REALobject) {}
int64_t thingGetter(REALobject, int32_t) { return 0; }

TEST(SimHost, ReadsCurrentClassRecords) {
  SimHost host;
  std::array<uintptr_t, 6> method{functionWord(&thingMethod), 0, pointerWord("Close"), 4, 0, 0};
  std::array<uintptr_t, 12> property{0, pointerWord("Size"), pointerWord("Int64"), 6, functionWord(&thingGetter)};
  std::array<uintptr_t, 29> record{};
  record[0] = 13;
  record[1] = pointerWord("Thing");
  record[3] = 32;
  record[6] = functionWord(&disposeThing);
  record[7] = pointerWord(property.data());
  record[8] = 1;
  record[9] = pointerWord(method.data());
  record[10] = 1;
  record[20] = 4;
  service<void(void*)>("PluginRegisterClass")(record.data());

  ASSERT_EQ(host.registry().classes.size(), 1u);
  const ClassReg& thing = host.registry().classes[0];
  EXPECT_EQ(thing.name, "Thing");
  EXPECT_EQ(thing.dataOffset % 16, 0);
  EXPECT_EQ(record[4], static_cast<uintptr_t>(thing.dataOffset));
  EXPECT_EQ(thing.flags, 4);
  ASSERT_EQ(thing.methods.size(), 1u);
  EXPECT_EQ(thing.methods[0].declaration, "Close");
  ASSERT_EQ(thing.properties.size(), 1u);
  EXPECT_EQ(thing.properties[0].type, "Int64");
  EXPECT_EQ(thing.properties[0].recordWords.size(), 12u);

  REALobject instance = host.newInstance("Thing");
  const auto* data = reinterpret_cast<const uint8_t*>(instance) + thing.dataOffset;
  EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % 16, 0u);
  EXPECT_EQ(std::count(data, data + 32, 0), 32);
  disposals = 0;
  host.release(instance);
  EXPECT_EQ(disposals, 1);
}

TEST(SimHost, ReadsVersion9ClassRecords) {
  SimHost host;
  std::array<uintptr_t, 8> methods{functionWord(&thingMethod), 0, pointerWord("Close"), 4,
                                   functionWord(&thingMethod), 0, pointerWord("Open"),  4};
  std::array<uintptr_t, 10> property{0, pointerWord("Size"), pointerWord("Int64"), 6, functionWord(&thingGetter)};
  std::array<uintptr_t, 25> record{};
  record[0] = 9;
  record[1] = pointerWord("MemoryBlock");
  record[7] = pointerWord(property.data());
  record[8] = 1;
  record[9] = pointerWord(methods.data());
  record[10] = 2;
  service<void(void*)>("PluginRegisterClassExtension")(record.data());

  ASSERT_EQ(host.registry().extensions.size(), 1u);
  const ClassReg& extension = host.registry().extensions[0];
  EXPECT_EQ(extension.recordWords.size(), 25u);
  ASSERT_EQ(extension.methods.size(), 2u);
  EXPECT_EQ(extension.methods[1].declaration, "Open");
  EXPECT_EQ(extension.methods[1].recordWords.size(), 4u);
  ASSERT_EQ(extension.properties.size(), 1u);
  EXPECT_EQ(extension.properties[0].name, "Size");
  EXPECT_EQ(extension.properties[0].flags, 6);
}

}  // namespace
