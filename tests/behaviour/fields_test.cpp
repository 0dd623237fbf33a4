// GetStringVEK, SetStringVEK, OSTypeVEK and FSSpecVEK through the simulated
// host. Hosts from 2016.0 hand out a string's bytes through "StringGetCString"
// and Mac Roman through "PluginGetStringData"; a host without a version (and
// the older rows below) has both read from its string record and converted
// with "REALConvertString".
#include <array>
#include <climits>
#include <optional>
#include <string>

#include "tests/support/plugin_test.h"

namespace {
using B = REALmemoryBlock;
using S = REALstring;
using F = REALfolderItem;

constexpr const char* kGet = "GetStringVEK(offset as Integer, numBytes as Integer) as String";
constexpr const char* kSet = "SetStringVEK(str as String, offset as Integer)";
constexpr const char* kOSType = "OSTypeVEK(offset as Integer) as String";
constexpr const char* kFSSpec = "FSSpecVEK(offset as Integer) as FolderItem";

constexpr uint32_t kMacRoman = 0;
constexpr uint32_t kLatin1 = 0x500;
constexpr uint32_t kASCII = 0x600;
constexpr uint32_t kUnknown = 0xFFFF;
constexpr uint32_t kUTF8 = 0x08000100;

const Bytes kZeros(10, 0);

struct Text {
  std::string bytes;
  uint32_t encoding;
  bool operator==(const Text&) const = default;
};
void PrintTo(const Text& t, std::ostream* out) { *out << ::testing::PrintToString(t.bytes) << " in 0x" << std::hex << t.encoding; }

class Fields : public PluginTest {
 protected:
  std::optional<Text> get_string(B b, int32_t offset, int32_t numBytes) {
    return text_of(plugin().method<S(B, int32_t, int32_t)>(kGet)(b, offset, numBytes));
  }
  void set_string(B b, S str, int32_t offset) { plugin().method<void(B, S, int32_t)>(kSet)(b, str, offset); }
  std::optional<Text> get_code(B b, int32_t offset) { return text_of(plugin().method<S(B, int32_t)>(kOSType)(b, offset)); }
  void set_code(B b, int32_t offset, S value) { plugin().setter<void(B, int32_t, S)>(kOSType)(b, offset, value); }
  F get_spec(B b, int32_t offset) {
    F item = plugin().method<F(B, int32_t)>(kFSSpec)(b, offset);
    take(item);
    return item;
  }
  void set_spec(B b, int32_t offset, F value) { plugin().setter<void(B, int32_t, F)>(kFSSpec)(b, offset, value); }

  // A string the test owns for the rest of the test; nullopt gives nil.
  S string(const std::optional<std::string>& bytes, uint32_t encoding) {
    if (!bytes) return nullptr;
    S s = host().newString(*bytes, encoding);
    owned_.push_back(s);
    return s;
  }
  B without_data(const Bytes& bytes) {
    B b = block(bytes);
    host().overrideReportedData(b, nullptr);
    return b;
  }
  void TearDown() override {
    for (S s : owned_) host().release(s);
    for (F item : owned_items_) host().release(item);
    PluginTest::TearDown();
  }
  std::vector<F> owned_items_;  // folder items the test made

 private:
  std::optional<Text> text_of(S result) {
    if (result == nullptr) return std::nullopt;
    std::string bytes = *take_string(result);
    return Text{bytes, host().encoding(result)};
  }
  std::vector<S> owned_;
};

// -- SetStringVEK, GetStringVEK ----------------------------------------------------

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
    {"the last byte", "xyz", kASCII, 9, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x78}},
    {"at the size", "x", kASCII, 10, kZeros},
    {"past the size", "x", kASCII, 11, kZeros},
    {"largest offset", "x", kASCII, INT_MAX, kZeros},
    {"negative offset", "x", kASCII, -1, kZeros},
    {"most negative offset", "x", kASCII, INT_MIN, kZeros},
    {"empty string", "", kASCII, 2, kZeros},
    {"nil string", std::nullopt, kASCII, 2, kZeros},
    {"UTF-8 bytes as they are", "\xC3\xA9", kUTF8, 0, {0xC3, 0xA9, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Mac Roman bytes as they are", "\x8E", kMacRoman, 0, {0x8E, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"zero bytes are written too", std::string("a\0b", 3), kASCII, 1, {0, 0x61, 0, 0x62, 0, 0, 0, 0, 0, 0}},
};

TEST_P(Fields, SetString) {
  for (const SetStringCase& c : kSetStringCases) {
    SCOPED_TRACE(c.name);
    B b = block(kZeros);
    set_string(b, string(c.text, c.encoding), c.offset);
    EXPECT_EQ(bytes(b), c.expected);
    EXPECT_BALANCED(host());
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
    {"largest count, cut back", kLetters, 8, INT_MAX, Text{"AB", kASCII}},
    {"zero bytes are plain ASCII", kLetters, 0, 2, Text{std::string(2, '\0'), kASCII}},
    {"at the size", kLetters, 10, 5, std::nullopt},
    {"no bytes", kLetters, 2, 0, std::nullopt},
    {"past the size", kLetters, 11, 1, std::nullopt},
    {"negative offset", kLetters, -1, 1, std::nullopt},
    {"negative count", kLetters, 2, -1, std::nullopt},
    {"bytes above 0x7F keep no stated encoding", {0x8E, 0x41}, 0, 2, Text{"\x8E\x41", kUnknown}},
};

TEST_P(Fields, GetString) {
  for (const GetStringCase& c : kGetStringCases) {
    SCOPED_TRACE(c.name);
    B b = block(c.block);
    EXPECT_EQ(get_string(b, c.offset, c.numBytes), c.expected);
    EXPECT_EQ(bytes(b), c.block);
  }
}

// -- OSTypeVEK ------------------------------------------------------------------------

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
    {"empty string: four spaces", "", kASCII, {0x20, 0x20, 0x20, 0x20}, {"    ", kASCII}},
    {"nil string: four spaces", std::nullopt, kASCII, {0x20, 0x20, 0x20, 0x20}, {"    ", kASCII}},
    {"UTF-8 converted to Mac Roman", "\xC3\xA9" "ab", kUTF8, {0x20, 0x62, 0x61, 0x8E}, {"\x8E" "ab ", kMacRoman}},
    {"Windows Latin 1 converted to Mac Roman", "\xE9", kLatin1, {0x20, 0x20, 0x20, 0x8E}, {"\x8E   ", kMacRoman}},
    {"Mac Roman as it is", "\x8E\xA5xy", kMacRoman, {0x79, 0x78, 0xA5, 0x8E}, {"\x8E\xA5xy", kMacRoman}},
    {"no stated encoding, plain ASCII", "wxyz", kUnknown, {0x7A, 0x79, 0x78, 0x77}, {"wxyz", kASCII}},
    {"no stated encoding, taken as Mac Roman", "\x8Exy", kUnknown, {0x20, 0x79, 0x78, 0x8E}, {"\x8Exy ", kMacRoman}},
    {"no stated encoding, empty", "", kUnknown, {0x20, 0x20, 0x20, 0x20}, {"    ", kASCII}},
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
    EXPECT_BALANCED(host());
  }
}

TEST_P(Fields, CodeRange) {
  B b = block(kZeros);
  EXPECT_EQ(get_code(b, 0), (Text{std::string(4, '\0'), kASCII})) << "a code of zero bytes still has four characters";
  EXPECT_EQ(get_code(b, 7), std::nullopt);
  EXPECT_EQ(get_code(b, -1), std::nullopt);
  EXPECT_EQ(get_code(b, INT_MAX), std::nullopt);
  S text = string("TEXT", kASCII);
  for (int32_t offset : {7, 8, 10, -1, INT_MIN, INT_MAX}) set_code(b, offset, text);
  EXPECT_EQ(bytes(b), kZeros);
  set_code(b, 6, text);
  EXPECT_EQ(bytes(b), (Bytes{0, 0, 0, 0, 0, 0, 0x54, 0x58, 0x45, 0x54}));
  EXPECT_EQ(get_code(b, 6), (Text{"TEXT", kASCII}));
  EXPECT_EQ(get_code(b, 5), (Text{std::string("EXT\0", 4), kASCII})) << "bytes 00 54 58 45 are the code E, X, T, 0";
}

// When the host cannot give Mac Roman at all, the code is four spaces.
TEST_P(Fields, CodeWithoutConversionServices) {
  host().setMissing("PluginGetStringData", true);
  host().setMissing("REALConvertString", true);
  B b = block(kZeros);
  set_code(b, 0, string("TEXT", kASCII));
  EXPECT_EQ(bytes(b), (Bytes{0x20, 0x20, 0x20, 0x20, 0, 0, 0, 0, 0, 0}));
  set_code(b, 4, string("wxyz", kUnknown));  // taken as it is: no conversion needed
  EXPECT_EQ(bytes(b), (Bytes{0x20, 0x20, 0x20, 0x20, 0x7A, 0x79, 0x78, 0x77, 0, 0}));
}

// -- FSSpecVEK ---------------------------------------------------------------------------

std::array<uint8_t, 70> pattern(uint8_t start) {
  std::array<uint8_t, 70> spec{};
  for (size_t i = 0; i < spec.size(); ++i) spec[i] = static_cast<uint8_t>(start + i);
  return spec;
}

Bytes pattern_bytes(uint8_t start) {
  std::array<uint8_t, 70> spec = pattern(start);
  return Bytes(spec.begin(), spec.end());
}

TEST_P(Fields, FileSpecification) {
  F item = host().newFolderItem(pattern(100));
  owned_items_.push_back(item);

  B short_block = block(Bytes(69, 1));
  EXPECT_EQ(get_spec(short_block, 0), nullptr);
  set_spec(short_block, 0, item);
  EXPECT_EQ(bytes(short_block), Bytes(69, 1));

  B exact = block(Bytes(70, 0));
  set_spec(exact, 0, item);
  EXPECT_EQ(bytes(exact), pattern_bytes(100));
  F read = get_spec(exact, 0);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(host().spec(read), pattern(100));
  EXPECT_EQ(get_spec(exact, 1), nullptr);
  EXPECT_EQ(get_spec(exact, -1), nullptr);
  set_spec(exact, 0, nullptr);  // handed on; the host makes no record of it
  EXPECT_EQ(bytes(exact), pattern_bytes(100));

  B longer = block(Bytes(72, 0));
  set_spec(longer, 2, item);
  Bytes expected(2, 0);
  Bytes spec = pattern_bytes(100);
  expected.insert(expected.end(), spec.begin(), spec.end());
  EXPECT_EQ(bytes(longer), expected);
  F at_two = get_spec(longer, 2);
  ASSERT_NE(at_two, nullptr);
  EXPECT_EQ(host().spec(at_two), pattern(100));
  for (int32_t offset : {3, 72, -1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(get_spec(longer, offset), nullptr) << offset;
    set_spec(longer, offset, item);
  }
  EXPECT_EQ(bytes(longer), expected);
  EXPECT_BALANCED(host());
}

TEST_P(Fields, FileSpecificationWithoutServices) {
  host().setMissing("FolderItemFromFSSpec", true);
  host().setMissing("REALFSSpecFromFolderItem", true);
  F item = host().newFolderItem(pattern(1));
  owned_items_.push_back(item);
  B b = block(Bytes(70, 0));
  EXPECT_EQ(get_spec(b, 0), nullptr);
  set_spec(b, 0, item);
  EXPECT_EQ(bytes(b), Bytes(70, 0));
}

// -- receivers without bytes, and blocks of size 0 ---------------------------------------------

TEST_P(Fields, ReceiverWithoutBytes) {
  B no_data = without_data(kZeros);
  B negative = block(kZeros);
  host().overrideReportedSize(negative, -1);
  S text = string("TEXT", kASCII);
  F item = host().newFolderItem(pattern(1));
  owned_items_.push_back(item);
  for (B b : {B{nullptr}, no_data, negative}) {
    SCOPED_TRACE(b == nullptr ? "nil" : b == no_data ? "no data" : "negative size");
    EXPECT_EQ(get_string(b, 0, 4), std::nullopt);
    set_string(b, text, 0);
    EXPECT_EQ(get_code(b, 0), std::nullopt);
    set_code(b, 0, text);
    EXPECT_EQ(get_spec(b, 0), nullptr);
    set_spec(b, 0, item);
    EXPECT_BALANCED(host());
  }
  EXPECT_EQ(bytes(negative), kZeros);
}

// A block over a raw address reports size 0: the caller's offset and length
// are trusted, and the field is read and written at that address.
TEST_P(Fields, RawAddressBlockTrustsTheRange) {
  uint8_t* raw = host().rawBuffer(80);  // guarded as the host's blocks are
  std::fill(raw, raw + 80, 0);
  B over = host().ptrBlock(raw);
  set_string(over, string("abcdef", kASCII), 74);
  EXPECT_EQ(Bytes(raw + 74, raw + 80), (Bytes{0x61, 0x62, 0x63, 0x64, 0x65, 0x66}));
  EXPECT_EQ(get_string(over, 75, 5), (Text{"bcdef", kASCII}));
  set_code(over, 76, string("TEXT", kASCII));
  EXPECT_EQ(Bytes(raw + 76, raw + 80), (Bytes{0x54, 0x58, 0x45, 0x54}));
  EXPECT_EQ(get_code(over, 76), (Text{"TEXT", kASCII}));
  F item = host().newFolderItem(pattern(7));
  owned_items_.push_back(item);
  set_spec(over, 10, item);
  EXPECT_EQ(Bytes(raw + 10, raw + 80), pattern_bytes(7));
  F read = get_spec(over, 10);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(host().spec(read), pattern(7));
}

// Strings are read the way the host version asks for.
TEST_P(Fields, StringPathOfTheHost) {
  double version = GetParam().version.value_or(0.0);
  B b = block(kZeros);
  host().resetLookupCounts();
  set_string(b, string("abc", kASCII), 0);
  set_code(b, 4, string("wxyz", kUTF8));
  EXPECT_EQ(bytes(b), (Bytes{0x61, 0x62, 0x63, 0, 0x7A, 0x79, 0x78, 0x77, 0, 0}));
  EXPECT_EQ(host().lookups("StringGetCString") > 0, version >= 2016.0);
  EXPECT_EQ(host().lookups("PluginGetStringData") > 0, version >= 2012.0);
  EXPECT_EQ(host().lookups("REALConvertString") > 0, version < 2012.0);
}

INSTANTIATE_ON_EVERY_HOST(Fields);

// Hosts between the string paths: from 2012.0 Mac Roman comes from
// "PluginGetStringData" while a string's own bytes still come from the record.
INSTANTIATE_TEST_SUITE_P(StringPaths, Fields,
                         ::testing::Values(HostSetup{"Host2014_GuardAfter", 2014.0, Placement::GuardAfter},
                                           HostSetup{"Host2011_GuardBefore", 2011.0, Placement::GuardBefore}),
                         host_setup_name);
}  // namespace
