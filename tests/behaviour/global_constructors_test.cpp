// NewMemoryBlockFromPtrVEK and NewMemoryBlockWithBytesVEK through the
// simulated host, registered one by one or in the globals module.
#include "tests/support/plugin_test.h"

namespace {
using FromPtr = REALmemoryBlock(intptr_t);
using WithBytes = REALmemoryBlock(void*, int32_t);

class GlobalConstructors : public PluginTest {
 protected:
  FromPtr* from_ptr() { return plugin().global<FromPtr>("NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock"); }
  WithBytes* with_bytes() {
    return plugin().global<WithBytes>("NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock");
  }
  // Four guarded bytes 1 2 3 4.
  uint8_t* raw4() {
    uint8_t* raw = host().rawBuffer(4);
    for (uint8_t i = 0; i < 4; ++i) raw[i] = i + 1;
    return raw;
  }
};

// The block is over the address itself, whatever the address's width.
TEST_P(GlobalConstructors, FromPtrIsOverTheBytes) {
  uint8_t* raw = raw4();
  REALmemoryBlock block = from_ptr()(reinterpret_cast<intptr_t>(raw));
  ASSERT_NE(block, nullptr);
  take(block);
  EXPECT_EQ(host().bytes(block).data(), raw);
  EXPECT_EQ(host().size(block), 0) << "a block over an address has no size of its own";
  EXPECT_NOTHING_RAISED(host());
}

TEST_P(GlobalConstructors, FromPtrRefuses) {
  EXPECT_EQ(from_ptr()(0), nullptr);
  host().setMissing("PtrToMemoryBlock", true);
  EXPECT_EQ(from_ptr()(reinterpret_cast<intptr_t>(raw4())), nullptr);
  EXPECT_NOTHING_RAISED(host());
}

TEST_P(GlobalConstructors, WithBytesIsACopy) {
  uint8_t* raw = raw4();
  REALmemoryBlock copy = with_bytes()(raw, 4);
  EXPECT_EQ(take_block(copy), Bytes({1, 2, 3, 4}));
  host().bytes(copy)[0] = 0xEE;
  EXPECT_EQ(raw[0], 1) << "changing the copy leaves the bytes at the address";
  EXPECT_NOTHING_RAISED(host());
}

TEST_P(GlobalConstructors, WithBytesRefusesQuietly) {
  uint8_t* raw = raw4();
  EXPECT_EQ(with_bytes()(raw, 0), nullptr);
  EXPECT_EQ(with_bytes()(raw, -1), nullptr);
  EXPECT_EQ(with_bytes()(nullptr, 8), nullptr);
  EXPECT_NOTHING_RAISED(host());
}

TEST_P(GlobalConstructors, WithBytesTheHostCannotMake) {
  uint8_t* raw = raw4();
  EXPECT_EQ(with_bytes()(raw, 2147483647), nullptr);
  EXPECT_RAISED(host(), "OutOfMemoryException", "Failed to allocate a memoryblock with 2147483647 bytes in size.");
  for (NewBlockFailure failure : {NewBlockFailure::ReturnNull, NewBlockFailure::ThrowBadAlloc}) {
    host().failNewMemoryBlock(failure);
    EXPECT_EQ(with_bytes()(raw, 4), nullptr);
    EXPECT_RAISED(host(), "OutOfMemoryException", "Failed to allocate a memoryblock with 4 bytes in size.");
  }
  host().failNewMemoryBlock(NewBlockFailure::None);
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(GlobalConstructors);
}  // namespace
