// The MemoryBlockVEK class through the simulated host: instances are made and
// destroyed by the host, the members called by their registered keys. The
// plug-in's buffer allocations are counted and failed on request, so the
// largest sizes are tried without 2 GiB.
#include <cstring>
#include <utility>

#include "host/alloc_faults.h"
#include "tests/support/plugin_test.h"

namespace {
constexpr int64_t kLargest = 2147483647;

class MemoryBlockVEKClass : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    ASSERT_GT(AllocFaults::install(plugin().dlHandle()), 0);
    AllocFaults::reset();
    object_ = host().newInstance("MemoryBlockVEK");
    ASSERT_NE(object_, nullptr);
  }
  void TearDown() override {
    AllocFaults::reset();
    host().release(std::exchange(object_, nullptr));  // the host disposes of it: Close
    PluginTest::TearDown();
  }

  bool create(int64_t size, const void* object) { return call("Create(size as Int64) as boolean", object, size).i; }
  bool create(int64_t size) { return create(size, object_); }
  bool resize(int64_t size, const void* object) { return call("Resize(Size as Int64) as boolean", object, size).i; }
  bool resize(int64_t size) { return resize(size, object_); }
  caller::Value get(const char* property, const void* object) {
    return call_as(caller::Role::Getter, property, {object, 0});
  }
  uint8_t* buffer() { return reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(get("Address", object_).i)); }
  int64_t size() { return get("Size", object_).i; }
  // What Memory hands out, taken over by the test.
  REALmemoryBlock memory() {
    auto block = static_cast<REALmemoryBlock>(get("Memory", object_).p);
    take(block);
    return block;
  }

  void expectClosed() {
    EXPECT_EQ(buffer(), nullptr);
    EXPECT_EQ(size(), 0);
    EXPECT_EQ(memory(), nullptr);
    EXPECT_BALANCED(host());
  }
  // Open: the plug-in holds exactly the reference of its own Memory block.
  void expectOpen(int64_t expected_size) {
    EXPECT_NE(buffer(), nullptr);
    EXPECT_EQ(size(), expected_size);
    EXPECT_TRUE(LedgerBalanced(host(), 1));
  }

  REALobject object_ = nullptr;
};

// The host never calls a member without its object; if it did, nothing would
// be touched.
TEST_P(MemoryBlockVEKClass, NewInstanceIsClosedAndNoObjectIsRefused) {
  expectClosed();
  call("Close", object_);  // closing a closed object is harmless
  expectClosed();
  EXPECT_FALSE(create(16, nullptr));
  EXPECT_FALSE(resize(16, nullptr));
  call("Close", nullptr);
  EXPECT_EQ(get("Address", nullptr).i, 0);
  EXPECT_EQ(get("Size", nullptr).i, 0);
  EXPECT_EQ(get("Memory", nullptr).p, nullptr);
  EXPECT_EQ(AllocFaults::allocations(), 0);
}

// Zero-filled, with the fields where the host said the instance data lies
// and Memory over the same bytes.
TEST_P(MemoryBlockVEKClass, CreateOpensZeroFilled) {
  ASSERT_TRUE(create(24));
  expectOpen(24);
  EXPECT_EQ(AllocFaults::allocations(), 1);
  EXPECT_EQ(Bytes(buffer(), buffer() + 24), Bytes(24, 0));
  REALmemoryBlock block = memory();
  EXPECT_EQ(host().bytes(block).data(), buffer());
  ASSERT_EQ(host().registry().classes.size(), 1u);
  const char* data = reinterpret_cast<const char*>(object_) + host().registry().classes[0].dataOffset;
  struct {
    int64_t size;
    void* memory;
    void* address;
  } stored;
  std::memcpy(&stored, data, sizeof stored);
  EXPECT_EQ(stored.size, 24);
  EXPECT_EQ(stored.memory, block);
  EXPECT_EQ(stored.address, buffer());
}

// Sizes out of range are refused before allocating; the largest is tried,
// its allocation failed here. A refused Resize leaves the object as it was;
// Create closes it first, whatever the outcome.
TEST_P(MemoryBlockVEKClass, RefusedSizes) {
  for (int64_t size : {int64_t{0}, int64_t{-1}, INT64_MIN, kLargest + 1, INT64_MAX, kLargest}) {
    SCOPED_TRACE(size);
    AllocFaults::reset();
    ASSERT_TRUE(create(16));
    buffer()[15] = 0x77;
    uint8_t* before = buffer();
    REALmemoryBlock block = memory();
    AllocFaults::reset();
    AllocFaults::armFailure(1);
    EXPECT_FALSE(resize(size));
    EXPECT_EQ(AllocFaults::allocations(), size == kLargest ? 1 : 0);
    EXPECT_EQ(buffer(), before);
    expectOpen(16);
    EXPECT_EQ(buffer()[15], 0x77);
    EXPECT_EQ(memory(), block) << "the same Memory block";
    AllocFaults::reset();
    AllocFaults::armFailure(1);
    EXPECT_FALSE(create(size));
    EXPECT_EQ(AllocFaults::allocations(), size == kLargest ? 1 : 0);
    expectClosed();
  }
}

TEST_P(MemoryBlockVEKClass, ResizeOpensKeepsAndFollows) {
  ASSERT_TRUE(resize(3));
  expectOpen(3);
  std::memcpy(buffer(), "\x01\x02\x03", 3);
  ASSERT_TRUE(resize(4096));
  expectOpen(4096);
  EXPECT_EQ(Bytes(buffer(), buffer() + 3), Bytes({1, 2, 3}));
  ASSERT_TRUE(resize(2));
  expectOpen(2);
  EXPECT_EQ(Bytes(buffer(), buffer() + 2), Bytes({1, 2}));
  EXPECT_EQ(host().bytes(memory()).data(), buffer()) << "Memory follows the buffer";
}

// Each read of Memory hands out a reference of the receiver's own; Close
// and the instance's destruction give back only the plug-in's.
TEST_P(MemoryBlockVEKClass, MemoryReferences) {
  for (bool destroy : {false, true}) {
    ASSERT_TRUE(create(16));
    REALmemoryBlock first = memory();
    EXPECT_EQ(memory(), first);
    EXPECT_EQ(host().references(first), 3);
    EXPECT_EQ(host().pluginReferences(first), 1);
    if (destroy) {
      host().release(std::exchange(object_, host().newInstance("MemoryBlockVEK")));
    } else {
      call("Close", object_);
      expectClosed();
    }
    EXPECT_BALANCED(host());
    EXPECT_EQ(host().references(first), 2) << "the test's two stay";
  }
}

INSTANTIATE_ON_EVERY_HOST(MemoryBlockVEKClass);
}  // namespace
