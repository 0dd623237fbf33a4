// GetStringVEK, SetStringVEK, OSTypeVEK and FSSpecVEK through the simulated
// host. Hosts from 2016.0 hand out a string's bytes through "StringGetCString"
// and Mac Roman through "PluginGetStringData"; a host without a version (and
// the older rows below) has both read from its string record and converted
// with "REALConvertString".
#include <array>
#include <climits>
#include <numeric>
#include <optional>
#include <string>

#include "tests/support/plugin_test.h"

namespace {
using B = REALmemoryBlock;
using S = REALstring;

constexpr const char* kGet = "GetStringVEK(offset as Integer, numBytes as Integer) as String";
constexpr const char* kSet = "SetStringVEK(str as String, offset as Integer)";
constexpr const char* kOSType = "OSTypeVEK(offset as Integer) as String";
constexpr const char* kFSSpec = "FSSpecVEK(offset as Integer) as FolderItem";

constexpr uint32_t kMacRoman = 0;
constexpr uint32_t kASCII = 0x600;
constexpr uint32_t kUnknown = 0xFFFF;
constexpr uint32_t kUTF8 = 0x08000100;

const Bytes kZeros(10, 0);

using Text = std::pair<std::string, uint32_t>;  // a string's bytes and encoding

class Fields : public PluginTest {
 protected:
  std::optional<Text> get_string(B b, int32_t offset, int32_t count) { return text_of(call(kGet, b, offset, count).p); }
  std::optional<Text> get_code(B b, int32_t offset) { return text_of(call(kOSType, b, offset).p); }
  void set_code(B b, int32_t offset, S value) { set(kOSType, b, offset, value); }
  // The record a FolderItem read back names; nullopt for nil.
  std::optional<std::array<uint8_t, 70>> get_spec(B b, int32_t offset) {
    void* item = call(kFSSpec, b, offset).p;
    take(item);
    if (item == nullptr) return std::nullopt;
    return host().spec(static_cast<REALfolderItem>(item));
  }
  S string(const std::optional<std::string>& bytes, uint32_t encoding) {
    return bytes ? host().newString(*bytes, encoding) : nullptr;
  }

 private:
  std::optional<Text> text_of(void* result) {
    auto s = static_cast<S>(result);
    if (s == nullptr) return std::nullopt;
    return Text{*take_string(s), host().encoding(s)};
  }
};

struct SetStringCase {
  const char* name;
  std::optional<std::string> text;
  uint32_t encoding;
  int32_t offset;
  Bytes expected;
};

const SetStringCase kSetStringCases[] = {
    {"inside", "abc", kASCII, 2, {0, 0, 0x61, 0x62, 0x63, 0, 0, 0, 0, 0}},
    {"cut back at the end", "abcdef", kASCII, 7, {0, 0, 0, 0, 0, 0, 0, 0x61, 0x62, 0x63}},
    {"at the size", "x", kASCII, 10, kZeros},
    {"negative offset", "x", kASCII, -1, kZeros},
    {"empty string", "", kASCII, 2, kZeros},
    {"nil string", std::nullopt, kASCII, 2, kZeros},
    {"UTF-8 bytes as they are", "\xC3\xA9", kUTF8, 0, {0xC3, 0xA9, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"zero bytes are written too", std::string("a\0b", 3), kASCII, 1, {0, 0x61, 0, 0x62, 0, 0, 0, 0, 0, 0}},
};

TEST_P(Fields, SetString) {
  for (const SetStringCase& c : kSetStringCases) {
    SCOPED_TRACE(c.name);
    B b = block(kZeros);
    call(kSet, b, string(c.text, c.encoding), c.offset);
    EXPECT_EQ(bytes(b), c.expected);
  }
}

struct GetStringCase {
  const char* name;
  Bytes block;
  int32_t offset, numBytes;
  std::optional<Text> expected;
};

const Bytes kLetters = {0, 0, 0x61, 0x62, 0x63, 0, 0, 0, 0x41, 0x42};

const GetStringCase kGetStringCases[] = {
    {"inside", kLetters, 2, 3, Text{"abc", kASCII}},
    {"cut back at the end", kLetters, 8, 100, Text{"AB", kASCII}},
    {"zero bytes are plain ASCII", kLetters, 0, 2, Text{std::string(2, '\0'), kASCII}},
    {"at the size", kLetters, 10, 5, std::nullopt},
    {"no bytes", kLetters, 2, 0, std::nullopt},
    {"negative offset", kLetters, -1, 1, std::nullopt},
    {"negative count", kLetters, 2, -1, std::nullopt},
    {"bytes above 0x7F keep no stated encoding", {0x8E, 0x41}, 0, 2, Text{"\x8E\x41", kUnknown}},
};

TEST_P(Fields, GetString) {
  for (const GetStringCase& c : kGetStringCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(get_string(block(c.block), c.offset, c.numBytes), c.expected);
  }
}

struct CodeCase {
  const char* name;
  std::optional<std::string> value;
  uint32_t encoding;
  std::array<uint8_t, 4> stored;  // bytes 0 to 3 of the block, little-endian
  Text read_back;
};

const CodeCase kCodeCases[] = {
    {"four characters", "TEXT", kASCII, {0x54, 0x58, 0x45, 0x54}, {"TEXT", kASCII}},
    {"two characters and two spaces", "ab", kASCII, {0x20, 0x20, 0x62, 0x61}, {"ab  ", kASCII}},
    {"the first four of seven", "ABCDEFG", kASCII, {0x44, 0x43, 0x42, 0x41}, {"ABCD", kASCII}},
    {"nil string: four spaces", std::nullopt, kASCII, {0x20, 0x20, 0x20, 0x20}, {"    ", kASCII}},
    {"UTF-8 converted to Mac Roman", "\xC3\xA9" "ab", kUTF8, {0x20, 0x62, 0x61, 0x8E}, {"\x8E" "ab ", kMacRoman}},
    {"Mac Roman as it is", "\x80\xA5xy", kMacRoman, {0x79, 0x78, 0xA5, 0x80}, {"\x80\xA5xy", kMacRoman}},
    {"no stated encoding, plain ASCII", "wxyz", kUnknown, {0x7A, 0x79, 0x78, 0x77}, {"wxyz", kASCII}},
    {"no stated encoding, taken as Mac Roman", "\x80xy", kUnknown, {0x20, 0x79, 0x78, 0x80}, {"\x80xy ", kMacRoman}},
    {"no Mac Roman for it: four spaces", "\xE6\x97\xA5", kUTF8, {0x20, 0x20, 0x20, 0x20}, {"    ", kASCII}},
    {"a zero character is kept", std::string("a\0b", 3), kASCII, {0x20, 0x62, 0x00, 0x61}, {std::string("a\0b ", 4), kASCII}},
};

TEST_P(Fields, AssignAndReadCode) {
  for (const CodeCase& c : kCodeCases) {
    SCOPED_TRACE(c.name);
    B b = block(kZeros);
    set_code(b, 0, string(c.value, c.encoding));
    Bytes expected = kZeros;
    std::copy(c.stored.begin(), c.stored.end(), expected.begin());
    EXPECT_EQ(bytes(b), expected);
    EXPECT_EQ(get_code(b, 0), c.read_back);
  }
}

TEST_P(Fields, CodeRange) {
  B b = block(kZeros);
  EXPECT_EQ(get_code(b, 0), (Text{std::string(4, '\0'), kASCII})) << "a code of zero bytes still has four characters";
  S text = string("TEXT", kASCII);
  for (int32_t offset : {7, 10, -1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(get_code(b, offset), std::nullopt) << offset;
    set_code(b, offset, text);
  }
  EXPECT_EQ(bytes(b), kZeros);
  set_code(b, 6, text);
  EXPECT_EQ(bytes(b), (Bytes{0, 0, 0, 0, 0, 0, 0x54, 0x58, 0x45, 0x54}));
  EXPECT_EQ(get_code(b, 6), (Text{"TEXT", kASCII}));
}

// When the host cannot give Mac Roman at all, the code is four spaces; text
// of no stated encoding in plain ASCII needs no conversion.
TEST_P(Fields, CodeWithoutConversionServices) {
  host().setMissing("PluginGetStringData", true);
  host().setMissing("REALConvertString", true);
  B b = block(kZeros);
  set_code(b, 0, string("TEXT", kASCII));
  set_code(b, 4, string("wxyz", kUnknown));
  EXPECT_EQ(bytes(b), (Bytes{0x20, 0x20, 0x20, 0x20, 0x7A, 0x79, 0x78, 0x77, 0, 0}));
}

const std::array<uint8_t, 70> kSpec = [] {
  std::array<uint8_t, 70> spec;
  std::iota(spec.begin(), spec.end(), uint8_t{100});
  return spec;
}();

// The 70-byte record must lie wholly inside the block.
TEST_P(Fields, FileSpecification) {
  REALfolderItem item = host().newFolderItem(kSpec);
  struct {
    size_t size;
    int32_t offset;
    bool fits;
  } const cases[] = {{70, 0, true}, {72, 2, true},      {69, 0, false},      {70, 1, false},
                     {70, -1, false}, {72, 3, false}, {72, INT_MIN, false}, {72, INT_MAX, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.size << " bytes, offset " << c.offset);
    B b = host().newBlock(c.size);
    set(kFSSpec, b, c.offset, item);
    Bytes expected(c.size, 0);
    if (c.fits) std::copy(kSpec.begin(), kSpec.end(), expected.begin() + c.offset);
    EXPECT_EQ(bytes(b), expected);
    EXPECT_EQ(get_spec(b, c.offset), c.fits ? std::optional(kSpec) : std::nullopt);
  }
}

// A negative size: nothing is read or written. (A nil block, one without
// data and one over a raw address, which reports size 0, are the sweeps'.)
TEST_P(Fields, NegativeSize) {
  B negative = block(kZeros);
  host().overrideReportedSize(negative, -1);
  S text = string("TEXT", kASCII);
  EXPECT_EQ(get_string(negative, 0, 4), std::nullopt);
  call(kSet, negative, text, 0);
  EXPECT_EQ(get_code(negative, 0), std::nullopt);
  set_code(negative, 0, text);
  EXPECT_EQ(get_spec(negative, 0), std::nullopt);
  set(kFSSpec, negative, 0, host().newFolderItem(kSpec));
  EXPECT_EQ(bytes(negative), kZeros);
}

INSTANTIATE_ON_EVERY_HOST(Fields);

// Hosts between the string paths: from 2012.0 Mac Roman comes from
// "PluginGetStringData" while a string's own bytes still come from the record.
INSTANTIATE_TEST_SUITE_P(StringPaths, Fields,
                         ::testing::Values(HostSetup{"Host2014_GuardAfter", 2014.0, Placement::GuardAfter},
                                           HostSetup{"Host2011_GuardBefore", 2011.0, Placement::GuardBefore}),
                         host_setup_name);
}  // namespace
