// CopyBytesVEK, the raw-pointer and handle copies, AddressVEK and
// AddressPtrVEK through the simulated host. None of them raises; the
// fixture's TearDown checks that nothing was.
#include <cstring>
#include <string_view>

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

const Bytes kOneToTen = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
constexpr int32_t kMax = 2147483647;

class Copies : public PluginTest {
 protected:
  // Raw bytes the caller owns, guarded.
  uint8_t* raw(const Bytes& bytes) {
    uint8_t* p = host().rawBuffer(bytes.size());
    std::copy(bytes.begin(), bytes.end(), p);
    return p;
  }
  // A master pointer to `bytes`, as a handle.
  intptr_t handle_to(uint8_t* bytes) {
    uint8_t* master = host().rawBuffer(sizeof bytes);
    std::memcpy(master, &bytes, sizeof bytes);
    return reinterpret_cast<intptr_t>(master);
  }
};

// A row whose expected bytes are six copies into a block of six zeros;
// any other copies within the block, by both forms (the second with the
// receiver as its destination).
struct CopyCase {
  const char* name;
  int32_t src, count, dest;
  Bytes expected;
};

const CopyCase kCopies[] = {
    {"overlap, moving up", 0, 4, 2, {1, 2, 1, 2, 3, 4, 7, 8, 9, 10}},
    {"overlap, moving down", 2, 4, 0, {3, 4, 5, 6, 5, 6, 7, 8, 9, 10}},
    {"negative count", 0, -1, 5, kOneToTen},
    {"negative source", -1, 2, 0, kOneToTen},
    {"negative destination", 0, 2, -1, kOneToTen},
    {"source run cut at the end", 8, 5, 0, {9, 10, 3, 4, 5, 6, 7, 8, 9, 10}},
    {"destination run cut at the end", 0, 5, 8, {1, 2, 3, 4, 5, 6, 7, 8, 1, 2}},
    {"the shorter cut wins", 7, kMax, 5, {1, 2, 3, 4, 5, 8, 9, 10, 9, 10}},
    {"source at the end", 10, 1, 0, kOneToTen},
    {"destination at the end", 0, 1, 10, kOneToTen},
    {"into: inside both", 2, 3, 1, {0, 3, 4, 5, 0, 0}},
    {"into: destination cut at its end", 0, 10, 2, {0, 0, 1, 2, 3, 4}},
    {"into: source cut at its end", 8, 10, 0, {9, 10, 0, 0, 0, 0}},
    {"into: destination offset at its end", 0, 1, 6, Bytes(6, 0)},
};

TEST_P(Copies, Blocks) {
  for (const CopyCase& c : kCopies) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock one = block(kOneToTen);
    if (c.expected.size() == 6) {
      REALmemoryBlock six = host().newBlock(6);
      call(kCopy2, one, c.src, c.count, six, c.dest);
      EXPECT_EQ(bytes(six), c.expected);
      EXPECT_EQ(bytes(one), kOneToTen);
      continue;
    }
    call(kCopy1, one, c.src, c.count, c.dest);
    EXPECT_EQ(bytes(one), c.expected);
    REALmemoryBlock two = block(kOneToTen);
    call(kCopy2, two, c.src, c.count, two, c.dest);
    EXPECT_EQ(bytes(two), c.expected);
  }
}

// Between the block and raw memory: the To methods read the block from
// `offset`, the From methods write it there. A handle's bytes are those its
// master pointer points at. Each method refuses a negative offset itself.
// (A block over a raw address, which reports size 0, is the sweeps'.)
struct RawCase {
  const char* name;
  const char* declaration;
  int32_t offset, count;
  Bytes raw, block;  // afterwards, from A1 A2 A3 A4 and 1..10
};

const Bytes kRaw = {0xA1, 0xA2, 0xA3, 0xA4};

const RawCase kRawCases[] = {
    {"to a pointer", kToPtr, 3, 2, {4, 5, 0xA3, 0xA4}, kOneToTen},
    {"to a pointer, cut at the block's end", kToPtr, 8, 100, {9, 10, 0xA3, 0xA4}, kOneToTen},
    {"from a pointer", kFromPtr, 0, 2, kRaw, {0xA1, 0xA2, 3, 4, 5, 6, 7, 8, 9, 10}},
    {"from a pointer, two fit", kFromPtr, 8, 4, kRaw, {1, 2, 3, 4, 5, 6, 7, 8, 0xA1, 0xA2}},
    {"to a handle", kToHandle, 0, 3, {1, 2, 3, 0xA4}, kOneToTen},
    {"from a handle, three fit", kFromHandle, 7, 4, kRaw, {1, 2, 3, 4, 5, 6, 7, 0xA1, 0xA2, 0xA3}},
    {"to a pointer: negative offset", kToPtr, -1, 4, kRaw, kOneToTen},
    {"to a handle: negative offset", kToHandle, -1, 4, kRaw, kOneToTen},
    {"from a pointer: negative offset", kFromPtr, -1, 4, kRaw, kOneToTen},
    {"from a handle: negative offset", kFromHandle, -1, 4, kRaw, kOneToTen},
};

TEST_P(Copies, RawMemory) {
  for (const RawCase& c : kRawCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(kOneToTen);
    uint8_t* bytes = raw(kRaw);
    std::string_view declaration = c.declaration;
    caller::Arg other = declaration.find("Handle") != declaration.npos ? caller::Arg(handle_to(bytes)) : bytes;
    if (declaration.starts_with("CopyBytesTo")) {
      call(c.declaration, block, c.offset, c.count, other);
    } else {
      call(c.declaration, block, other, c.count, c.offset);
    }
    EXPECT_EQ(Bytes(bytes, bytes + 4), c.raw);
    EXPECT_EQ(this->bytes(block), c.block);
  }
  // A nil pointer, handle 0 and a handle holding nil change nothing.
  REALmemoryBlock block = this->block(kOneToTen);
  intptr_t to_nil = handle_to(nullptr);
  call(kToPtr, block, 0, 4, nullptr);
  call(kFromPtr, block, nullptr, 4, 0);
  for (intptr_t handle : {intptr_t{0}, to_nil}) {
    call(kToHandle, block, 0, 4, handle);
    call(kFromHandle, block, handle, 4, 0);
  }
  EXPECT_EQ(bytes(block), kOneToTen);
}

// Either block without data, a negative size or a nil destination block:
// nothing changes.
TEST_P(Copies, UnusableBlocks) {
  REALmemoryBlock no_data = block(kOneToTen);
  host().overrideReportedData(no_data, nullptr);
  REALmemoryBlock negative = block(kOneToTen);
  host().overrideReportedSize(negative, -1);
  REALmemoryBlock block = this->block(kOneToTen);
  call(kCopy2, block, 0, 4, no_data, 0);
  call(kCopy2, no_data, 0, 4, block, 2);
  call(kCopy2, block, 0, 4, nullptr, 0);
  call(kCopy2, block, 0, 4, negative, 0);
  call(kCopy2, negative, 0, 4, block, 2);
  call(kCopy1, negative, 0, 4, 2);
  EXPECT_EQ(bytes(block), kOneToTen);
  EXPECT_EQ(bytes(negative), kOneToTen);
}

TEST_P(Copies, Addresses) {
  REALmemoryBlock block = this->block(kOneToTen);
  uint8_t* raw_bytes = raw(Bytes(4, 0));
  REALmemoryBlock over = host().ptrBlock(raw_bytes);
  const uint64_t data = reinterpret_cast<uintptr_t>(host().bytes(block).data());
  // AddressVEK, which AddressPtrVEK must agree with.
  auto address = [&](REALmemoryBlock b, int64_t offset) {
    uint64_t result = call(kAddress, b, offset).u;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(call(kAddressPtr, b, offset).p), uintptr_t(result)) << offset;
    return result;
  };
  EXPECT_EQ(address(block, 0), data);
  EXPECT_EQ(address(block, 10), data + 10) << "just past the last byte";
  EXPECT_EQ(address(block, 11), 0u);
  EXPECT_EQ(address(block, -1), 0u);
  EXPECT_EQ(address(over, 1000), reinterpret_cast<uintptr_t>(raw_bytes) + 1000) << "size 0: no upper bound";
  // Nil: a block at address 0.
  EXPECT_EQ(address(nullptr, 5), 5u);
  EXPECT_EQ(address(nullptr, -5), 0u);
  // As wide as the host's addresses: a 32-bit host adds the low 32 bits.
  const int64_t beyond_32_bits = (int64_t{1} << 32) + 7;
  EXPECT_EQ(address(nullptr, beyond_32_bits), sizeof(void*) == 4 ? 7u : uint64_t(beyond_32_bits));
}

INSTANTIATE_ON_EVERY_HOST(Copies);
}  // namespace
