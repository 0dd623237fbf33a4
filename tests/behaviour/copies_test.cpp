// CopyBytesVEK, the raw-pointer and handle copies, AddressVEK and
// AddressPtrVEK through the simulated host. None of them raises; the
// fixture's TearDown checks that nothing was.
#include <cstring>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kCopy1 = "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destOfs as Integer)";
constexpr const char* kCopy2 =
    "CopyBytesVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer)";
constexpr const char* kToPtr = "CopyBytesToMacPtrVEK(srcOfs as Integer, numBytes as Integer, destPtr as Ptr)";
constexpr const char* kFromPtr = "CopyBytesFromMacPtrVEK(srcPtr as Ptr, numBytes as Integer, destOfs as Integer)";
constexpr const char* kToHandle =
    "CopyBytesToMacHandleVEK(srcOfs as Integer, numBytes as Integer, destHandle as Integer)";
constexpr const char* kFromHandle =
    "CopyBytesFromMacHandleVEK(srcHandle as Integer, numBytes as Integer, destOfs as Integer)";
constexpr const char* kAddress = "AddressVEK(offset as Int64 = 0) as UInt64";
constexpr const char* kAddressPtr = "AddressPtrVEK(offset as Int64 = 0) as Ptr";

using Copy1 = void(REALmemoryBlock, int32_t, int32_t, int32_t);
using Copy2 = void(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock, int32_t);
using ToPtr = void(REALmemoryBlock, int32_t, int32_t, void*);
using FromPtr = void(REALmemoryBlock, void*, int32_t, int32_t);
using ToHandle = void(REALmemoryBlock, int32_t, int32_t, intptr_t);
using FromHandle = void(REALmemoryBlock, intptr_t, int32_t, int32_t);
using Address = uint64_t(REALmemoryBlock, int64_t);
using AddressPtr = void*(REALmemoryBlock, int64_t);

const Bytes kOneToTen = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
constexpr int32_t kMax = 2147483647;

class Copies : public PluginTest {
 protected:
  // Raw bytes the caller owns, guarded, all 0xEE.
  uint8_t* raw(size_t size) {
    uint8_t* bytes = host().rawBuffer(size);
    std::memset(bytes, 0xEE, size);
    return bytes;
  }
  // A master pointer to `bytes`, as a handle.
  intptr_t handle_to(uint8_t* bytes) {
    uint8_t* master = host().rawBuffer(sizeof bytes);
    std::memcpy(master, &bytes, sizeof bytes);
    return reinterpret_cast<intptr_t>(master);
  }
  uint64_t address_of(REALmemoryBlock b, int64_t offset) { return plugin().method<Address>(kAddress)(b, offset); }
  uint64_t data_address(REALmemoryBlock b) { return reinterpret_cast<uintptr_t>(host().bytes(b).data()); }
};

struct WithinCase {
  const char* name;
  int32_t src, count, dest;
  Bytes expected;
};

const WithinCase kWithin[] = {
    {"overlap, moving up", 0, 4, 2, {1, 2, 1, 2, 3, 4, 7, 8, 9, 10}},
    {"overlap, moving down", 2, 4, 0, {3, 4, 5, 6, 5, 6, 7, 8, 9, 10}},
    {"count 0", 0, 0, 5, kOneToTen},
    {"negative count", 0, -1, 5, kOneToTen},
    {"negative source", -1, 2, 0, kOneToTen},
    {"negative destination", 0, 2, -1, kOneToTen},
    {"source run cut at the end", 8, 5, 0, {9, 10, 3, 4, 5, 6, 7, 8, 9, 10}},
    {"destination run cut at the end", 0, 5, 8, {1, 2, 3, 4, 5, 6, 7, 8, 1, 2}},
    {"the shorter cut wins", 7, kMax, 5, {1, 2, 3, 4, 5, 8, 9, 10, 9, 10}},
    {"source at the end", 10, 1, 0, kOneToTen},
    {"destination at the end", 0, 1, 10, kOneToTen},
};

TEST_P(Copies, WithinTheBlock) {
  for (const WithinCase& c : kWithin) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(kOneToTen);
    plugin().method<Copy1>(kCopy1)(block, c.src, c.count, c.dest);
    EXPECT_EQ(bytes(block), c.expected);
    // The same through the other form, with the receiver as destination.
    REALmemoryBlock again = this->block(kOneToTen);
    plugin().method<Copy2>(kCopy2)(again, c.src, c.count, again, c.dest);
    EXPECT_EQ(bytes(again), c.expected);
  }
}

struct IntoCase {
  const char* name;
  int32_t src, count, dest;
  Bytes expected;  // the six-byte destination, from zeros
};

const IntoCase kInto[] = {
    {"inside both", 2, 3, 1, {0, 3, 4, 5, 0, 0}},
    {"destination cut at its end", 0, 10, 2, {0, 0, 1, 2, 3, 4}},
    {"source cut at its end", 8, 10, 0, {9, 10, 0, 0, 0, 0}},
    {"destination offset at its end", 0, 1, 6, Bytes(6, 0)},
    {"source offset at its end", 10, 1, 0, Bytes(6, 0)},
    {"negative count", 0, -4, 0, Bytes(6, 0)},
    {"negative destination offset", 0, 4, -2, Bytes(6, 0)},
};

TEST_P(Copies, IntoAnotherBlock) {
  REALmemoryBlock block = this->block(kOneToTen);
  for (const IntoCase& c : kInto) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock six = host().newBlock(6);
    plugin().method<Copy2>(kCopy2)(block, c.src, c.count, six, c.dest);
    EXPECT_EQ(bytes(six), c.expected);
  }
  REALmemoryBlock ten = host().newBlock(10);
  plugin().method<Copy2>(kCopy2)(block, 0, 10, ten, 0);
  EXPECT_EQ(bytes(ten), kOneToTen);
  EXPECT_EQ(bytes(block), kOneToTen);
}

TEST_P(Copies, NilBlocksChangeNothing) {
  REALmemoryBlock block = this->block(kOneToTen);
  uint8_t* bytes = raw(8);
  plugin().method<Copy2>(kCopy2)(block, 0, 4, nullptr, 0);
  plugin().method<Copy2>(kCopy2)(nullptr, 0, 4, block, 0);
  plugin().method<Copy1>(kCopy1)(nullptr, 0, 4, 2);
  plugin().method<ToPtr>(kToPtr)(nullptr, 0, 4, bytes);
  plugin().method<FromPtr>(kFromPtr)(nullptr, bytes, 4, 0);
  plugin().method<ToHandle>(kToHandle)(nullptr, 0, 4, handle_to(bytes));
  plugin().method<FromHandle>(kFromHandle)(nullptr, handle_to(bytes), 4, 0);
  EXPECT_EQ(this->bytes(block), kOneToTen);
  EXPECT_EQ(Bytes(bytes, bytes + 8), Bytes(8, 0xEE));
  EXPECT_BALANCED(host());
}

TEST_P(Copies, RawPointers) {
  REALmemoryBlock block = this->block(kOneToTen);
  uint8_t* p = raw(4);
  plugin().method<ToPtr>(kToPtr)(block, 3, 2, p);
  EXPECT_EQ(Bytes(p, p + 4), Bytes({4, 5, 0xEE, 0xEE}));
  plugin().method<FromPtr>(kFromPtr)(block, p, 2, 0);
  EXPECT_EQ(bytes(block), Bytes({4, 5, 3, 4, 5, 6, 7, 8, 9, 10}));

  uint8_t* q = raw(4);
  plugin().method<ToPtr>(kToPtr)(block, 8, 100, q);  // cut at the block's end
  EXPECT_EQ(Bytes(q, q + 4), Bytes({9, 10, 0xEE, 0xEE}));
  plugin().method<FromPtr>(kFromPtr)(block, q, 4, 8);  // only two bytes fit
  EXPECT_EQ(bytes(block), Bytes({4, 5, 3, 4, 5, 6, 7, 8, 9, 10}));

  // Refused: no pointer, no count, a negative offset, an offset at the end.
  uint8_t* r = raw(4);
  plugin().method<ToPtr>(kToPtr)(block, 0, 4, nullptr);
  plugin().method<FromPtr>(kFromPtr)(block, nullptr, 4, 0);
  plugin().method<ToPtr>(kToPtr)(block, 0, 0, r);
  plugin().method<ToPtr>(kToPtr)(block, -1, 4, r);
  plugin().method<ToPtr>(kToPtr)(block, 10, 4, r);
  plugin().method<FromPtr>(kFromPtr)(block, r, -4, 0);
  plugin().method<FromPtr>(kFromPtr)(block, r, 4, -1);
  plugin().method<FromPtr>(kFromPtr)(block, r, 4, 10);
  EXPECT_EQ(Bytes(r, r + 4), Bytes(4, 0xEE));
  EXPECT_EQ(bytes(block), Bytes({4, 5, 3, 4, 5, 6, 7, 8, 9, 10}));
}

// A handle's bytes are those its master pointer points at, not the handle's.
TEST_P(Copies, Handles) {
  REALmemoryBlock block = this->block(kOneToTen);
  uint8_t* bytes = raw(4);
  intptr_t handle = handle_to(bytes);
  Bytes master(reinterpret_cast<uint8_t*>(handle), reinterpret_cast<uint8_t*>(handle) + sizeof(void*));
  plugin().method<ToHandle>(kToHandle)(block, 0, 3, handle);
  EXPECT_EQ(Bytes(bytes, bytes + 4), Bytes({1, 2, 3, 0xEE}));
  EXPECT_EQ(Bytes(reinterpret_cast<uint8_t*>(handle), reinterpret_cast<uint8_t*>(handle) + sizeof(void*)), master);
  plugin().method<FromHandle>(kFromHandle)(block, handle, 4, 7);  // three fit
  EXPECT_EQ(this->bytes(block), Bytes({1, 2, 3, 4, 5, 6, 7, 1, 2, 3}));

  plugin().method<ToHandle>(kToHandle)(block, 0, 4, 0);
  plugin().method<FromHandle>(kFromHandle)(block, 0, 4, 0);
  intptr_t empty_handle = handle_to(nullptr);
  plugin().method<ToHandle>(kToHandle)(block, 0, 4, empty_handle);
  plugin().method<FromHandle>(kFromHandle)(block, empty_handle, 4, 0);
  EXPECT_EQ(this->bytes(block), Bytes({1, 2, 3, 4, 5, 6, 7, 1, 2, 3}));
}

// A block over a raw address reports size 0: its runs are the caller's.
TEST_P(Copies, BlockOverARawAddressIsTrusted) {
  uint8_t* bytes = raw(8);
  REALmemoryBlock over = host().ptrBlock(bytes);
  REALmemoryBlock block = this->block(kOneToTen);
  plugin().method<Copy2>(kCopy2)(block, 0, 4, over, 3);
  EXPECT_EQ(Bytes(bytes, bytes + 8), Bytes({0xEE, 0xEE, 0xEE, 1, 2, 3, 4, 0xEE}));
  plugin().method<Copy1>(kCopy1)(over, 3, 4, 4);
  EXPECT_EQ(Bytes(bytes, bytes + 8), Bytes({0xEE, 0xEE, 0xEE, 1, 1, 2, 3, 4}));
  uint8_t* out = raw(2);
  plugin().method<ToPtr>(kToPtr)(over, 6, 2, out);
  EXPECT_EQ(Bytes(out, out + 2), Bytes({3, 4}));
}

TEST_P(Copies, HostReportsNoData) {
  REALmemoryBlock no_data = block(kOneToTen);
  host().overrideReportedData(no_data, nullptr);
  REALmemoryBlock block = this->block(kOneToTen);
  uint8_t* bytes = raw(4);
  plugin().method<Copy1>(kCopy1)(no_data, 0, 4, 2);
  plugin().method<Copy2>(kCopy2)(block, 0, 4, no_data, 0);
  plugin().method<Copy2>(kCopy2)(no_data, 0, 4, block, 2);
  plugin().method<ToPtr>(kToPtr)(no_data, 0, 4, bytes);
  plugin().method<FromHandle>(kFromHandle)(no_data, handle_to(bytes), 4, 0);
  EXPECT_EQ(this->bytes(block), kOneToTen);
  EXPECT_EQ(Bytes(bytes, bytes + 4), Bytes(4, 0xEE));
  // Its bytes are taken to start at address 0, as a nil block's; its size still bounds the offset.
  EXPECT_EQ(address_of(no_data, 3), 3u);
  EXPECT_EQ(plugin().method<AddressPtr>(kAddressPtr)(no_data, 10), reinterpret_cast<void*>(10));
  EXPECT_EQ(address_of(no_data, 11), 0u);
  EXPECT_EQ(address_of(no_data, -1), 0u);
}

TEST_P(Copies, Addresses) {
  REALmemoryBlock block = this->block(kOneToTen);
  const uint64_t data = data_address(block);
  EXPECT_EQ(address_of(block, 0), data);
  EXPECT_EQ(address_of(block, 10), data + 10) << "just past the last byte";
  EXPECT_EQ(address_of(block, 11), 0u);
  EXPECT_EQ(address_of(block, -1), 0u);
  EXPECT_EQ(address_of(block, INT64_MAX), 0u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(plugin().method<AddressPtr>(kAddressPtr)(block, 4)), address_of(block, 4));
  EXPECT_EQ(plugin().method<AddressPtr>(kAddressPtr)(block, 11), nullptr);

  // A nil block is one at address 0 of no known size.
  EXPECT_EQ(address_of(nullptr, 5), 5u);
  EXPECT_EQ(plugin().method<AddressPtr>(kAddressPtr)(nullptr, 5), reinterpret_cast<void*>(5));
  EXPECT_EQ(address_of(nullptr, -5), 0u);

  // Addresses are as wide as the host's: a 32-bit host adds the low 32 bits.
  const int64_t beyond_32_bits = (int64_t{1} << 32) + 7;
  EXPECT_EQ(address_of(nullptr, beyond_32_bits), sizeof(void*) == 4 ? 7u : uint64_t(beyond_32_bits));

  uint8_t* bytes = raw(4);
  REALmemoryBlock over = host().ptrBlock(bytes);
  EXPECT_EQ(address_of(over, 1000), reinterpret_cast<uintptr_t>(bytes) + 1000) << "size 0: no upper bound";
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(Copies);
}  // namespace
