// NewMemoryBlockFromPtrVEK and NewMemoryBlockWithBytesVEK through the
// simulated host, registered one by one or in the globals module.
#include <utility>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kFromPtr = "NewMemoryBlockFromPtrVEK(ptr as integer) as MemoryBlock";
constexpr const char* kWithBytes = "NewMemoryBlockWithBytesVEK(Data as Ptr, size as Integer) as MemoryBlock";

class GlobalConstructors : public PluginTest {
 protected:
  REALmemoryBlock from_ptr(const void* raw) {
    return static_cast<REALmemoryBlock>(call(kFromPtr, reinterpret_cast<intptr_t>(raw)).p);
  }
  REALmemoryBlock with_bytes(const void* raw, int32_t size) {
    return static_cast<REALmemoryBlock>(call(kWithBytes, raw, size).p);
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
  EXPECT_EQ(from_ptr(nullptr), nullptr);
  REALmemoryBlock block = from_ptr(raw);
  ASSERT_NE(block, nullptr);
  take(block);
  EXPECT_EQ(host().bytes(block).data(), raw);
  EXPECT_EQ(host().size(block), 0) << "a block over an address has no size of its own";
}

// A copy, of 1 byte or more; the largest size the host cannot make. (A host
// that fails to make a block is swept by alloc_failure_test.)
TEST_P(GlobalConstructors, WithBytesIsACopy) {
  uint8_t* raw = raw4();
  REALmemoryBlock copy = with_bytes(raw, 4);
  EXPECT_EQ(take_block(copy), Bytes({1, 2, 3, 4}));
  host().bytes(copy)[0] = 0xEE;
  EXPECT_EQ(raw[0], 1) << "changing the copy leaves the bytes at the address";
  EXPECT_EQ(take_block(with_bytes(raw, 1)), Bytes({1}));
  for (auto [data, size] : {std::pair<const void*, int32_t>{raw, 0}, {raw, -1}, {nullptr, 8}}) {
    EXPECT_EQ(with_bytes(data, size), nullptr) << size;
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_EQ(with_bytes(raw, 2147483647), nullptr);
  EXPECT_RAISED(host(), "OutOfMemoryException", "Failed to allocate a memoryblock with 2147483647 bytes in size.");
}

INSTANTIATE_ON_EVERY_HOST(GlobalConstructors);
}  // namespace
