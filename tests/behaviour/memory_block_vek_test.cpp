// The MemoryBlockVEK class through the simulated host: instances are made and
// destroyed by the host, the methods and properties reached through the
// class's registered records. The plug-in's buffer allocations are counted
// and failed on request, so the largest sizes are tried without 2 GiB.
#include <cstring>
#include <utility>

#include "host/alloc_faults.h"
#include "tests/support/plugin_test.h"

namespace {
using SizeMethod = bool(REALobject, int64_t);
using CloseMethod = void(REALobject);
using AddressGetter = uint64_t(REALobject, int32_t);
using SizeGetter = int64_t(REALobject, int32_t);
using MemoryGetter = REALmemoryBlock(REALobject, int32_t);

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

  bool create(int64_t size) { return member<SizeMethod>("Create(size as Int64) as boolean")(object_, size); }
  bool resize(int64_t size) { return member<SizeMethod>("Resize(Size as Int64) as boolean")(object_, size); }
  void close() { member<CloseMethod>("Close")(object_); }
  uint64_t address() { return member<AddressGetter>("Address")(object_, 0); }
  int64_t size() { return member<SizeGetter>("Size")(object_, 0); }
  // What Memory hands out, taken over by the test.
  REALmemoryBlock memory() {
    REALmemoryBlock block = member<MemoryGetter>("Memory")(object_, 0);
    take(block);
    return block;
  }
  uint8_t* buffer() { return reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(address())); }

  void expectClosed() {
    EXPECT_EQ(address(), 0u);
    EXPECT_EQ(size(), 0);
    EXPECT_EQ(member<MemoryGetter>("Memory")(object_, 0), nullptr);
    EXPECT_BALANCED(host());
  }
  // Open: the plug-in holds exactly the reference of its own Memory block.
  void expectOpen(int64_t expected_size) {
    EXPECT_NE(address(), 0u);
    EXPECT_EQ(size(), expected_size);
    EXPECT_TRUE(LedgerBalanced(host(), 1));
  }

  template <typename Fn>
  Fn* member(const char* name) {
    return plugin().classMember<Fn>("MemoryBlockVEK", name);
  }

  REALobject object_ = nullptr;
};

TEST_P(MemoryBlockVEKClass, NewInstanceIsClosed) {
  expectClosed();
  close();  // closing a closed object is harmless
  expectClosed();
}

TEST_P(MemoryBlockVEKClass, CreateOpensZeroFilled) {
  ASSERT_TRUE(create(16));
  expectOpen(16);
  EXPECT_EQ(Bytes(buffer(), buffer() + 16), Bytes(16, 0));
  REALmemoryBlock block = memory();
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(host().bytes(block).data(), buffer()) << "Memory is over the same bytes";
  EXPECT_EQ(AllocFaults::allocations(), 1);
}

// The fields lie where the host said the instance data is.
TEST_P(MemoryBlockVEKClass, FieldsAtTheHostsOffset) {
  ASSERT_TRUE(create(24));
  const auto& classes = host().registry().classes;
  ASSERT_EQ(classes.size(), 1u);
  const char* data = reinterpret_cast<const char*>(object_) + classes[0].dataOffset;
  int64_t stored_size;
  void* stored_memory;
  void* stored_address;
  std::memcpy(&stored_size, data, 8);
  std::memcpy(&stored_memory, data + 8, sizeof(void*));
  std::memcpy(&stored_address, data + 8 + sizeof(void*), sizeof(void*));
  EXPECT_EQ(stored_size, 24);
  EXPECT_EQ(stored_address, buffer());
  REALmemoryBlock block = memory();
  EXPECT_EQ(stored_memory, block);
}

TEST_P(MemoryBlockVEKClass, CreateRefusesSizesOutOfRange) {
  for (int64_t size : {int64_t{0}, int64_t{-1}, INT64_MIN, kLargest + 1, INT64_MAX}) {
    SCOPED_TRACE(size);
    ASSERT_TRUE(create(8));
    AllocFaults::reset();
    EXPECT_FALSE(create(size));
    EXPECT_EQ(AllocFaults::allocations(), 0) << "refused before allocating";
    expectClosed();  // closed first, whatever the outcome
  }
}

TEST_P(MemoryBlockVEKClass, CreateOfTheLargestSizeIsAttempted) {
  ASSERT_TRUE(create(8));
  AllocFaults::reset();
  AllocFaults::armFailure(1);
  EXPECT_FALSE(create(kLargest));
  EXPECT_EQ(AllocFaults::allocations(), 1);
  expectClosed();
}

TEST_P(MemoryBlockVEKClass, ResizeOpensAClosedObject) {
  ASSERT_TRUE(resize(32));
  expectOpen(32);
  EXPECT_NE(memory(), nullptr);
}

TEST_P(MemoryBlockVEKClass, ResizeKeepsTheLeadingBytes) {
  ASSERT_TRUE(create(16));
  for (int i = 0; i < 16; ++i) buffer()[i] = static_cast<uint8_t>(i + 1);
  ASSERT_TRUE(resize(4096));
  expectOpen(4096);
  EXPECT_EQ(Bytes(buffer(), buffer() + 16), Bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
  ASSERT_TRUE(resize(3));
  expectOpen(3);
  EXPECT_EQ(Bytes(buffer(), buffer() + 3), Bytes({1, 2, 3}));
  EXPECT_EQ(host().bytes(memory()).data(), buffer()) << "Memory follows the buffer";
}

// Out-of-range sizes and a failed reallocation leave the object as it was.
TEST_P(MemoryBlockVEKClass, RefusedResizeChangesNothing) {
  ASSERT_TRUE(create(16));
  buffer()[15] = 0x77;
  const uint64_t before = address();
  REALmemoryBlock block = memory();
  for (int64_t size : {int64_t{0}, int64_t{-5}, kLargest + 1, INT64_MAX, int64_t{64}}) {
    SCOPED_TRACE(size);
    AllocFaults::reset();
    AllocFaults::armFailure(1);  // fails the reallocation to 64 bytes
    EXPECT_FALSE(resize(size));
    EXPECT_EQ(AllocFaults::allocations(), size == 64 ? 1 : 0);
    EXPECT_EQ(address(), before);
    expectOpen(16);
    EXPECT_EQ(buffer()[15], 0x77);
    REALmemoryBlock again = memory();
    EXPECT_EQ(again, block) << "the same Memory block";
  }
}

// Each read of Memory hands out a reference of the receiver's own; Close
// gives back only the plug-in's.
TEST_P(MemoryBlockVEKClass, MemoryReferences) {
  ASSERT_TRUE(create(16));
  REALmemoryBlock first = memory();
  REALmemoryBlock second = memory();
  EXPECT_EQ(first, second);
  EXPECT_EQ(host().references(first), 3);
  EXPECT_EQ(host().pluginReferences(first), 1);
  close();
  expectClosed();
  EXPECT_EQ(host().references(first), 2) << "the test's two stay";
}

TEST_P(MemoryBlockVEKClass, DestroyingTheInstanceClosesIt) {
  ASSERT_TRUE(create(16));
  REALmemoryBlock block = memory();
  host().release(std::exchange(object_, nullptr));
  EXPECT_BALANCED(host());
  EXPECT_EQ(host().references(block), 1) << "only the test's reference is left";
}

TEST_P(MemoryBlockVEKClass, WithoutPtrToMemoryBlock) {
  host().setMissing("PtrToMemoryBlock", true);
  ASSERT_TRUE(create(16));
  EXPECT_NE(address(), 0u);
  EXPECT_EQ(memory(), nullptr);
  ASSERT_TRUE(resize(64));
  EXPECT_EQ(size(), 64);
  EXPECT_EQ(memory(), nullptr);
  EXPECT_BALANCED(host());
}

// The host never calls a class member without its object; if it did, nothing
// would be touched.
TEST_P(MemoryBlockVEKClass, NoObject) {
  EXPECT_FALSE(member<SizeMethod>("Create(size as Int64) as boolean")(nullptr, 16));
  EXPECT_FALSE(member<SizeMethod>("Resize(Size as Int64) as boolean")(nullptr, 16));
  member<CloseMethod>("Close")(nullptr);
  EXPECT_EQ(member<AddressGetter>("Address")(nullptr, 0), 0u);
  EXPECT_EQ(member<SizeGetter>("Size")(nullptr, 0), 0);
  EXPECT_EQ(member<MemoryGetter>("Memory")(nullptr, 0), nullptr);
  EXPECT_EQ(AllocFaults::allocations(), 0);
}

INSTANTIATE_ON_EVERY_HOST(MemoryBlockVEKClass);
}  // namespace
