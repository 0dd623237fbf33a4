// The frame's builders and views, reached through the frame probe (the
// plug-in's own code in a fresh copy per test): blocks, strings in every
// encoding, raised exceptions, rbBytes and rbText.
#include <cstring>

#include "host/alloc_faults.h"
#include "tests/support/plugin_test.h"

namespace {
struct Probe {
  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> lib;

  REALmemoryBlock buildBlock(const void* data, int32_t size) {
    return lib->symbol<REALmemoryBlock(const void*, int32_t)>("probe_build_block")(data, size);
  }
  REALstring buildString(const void* data, int64_t length, uint32_t encoding) {
    return lib->symbol<REALstring(const void*, int64_t, uint32_t)>("probe_build_string")(data, length, encoding);
  }
  REALstring buildString(const std::string& bytes, uint32_t encoding) {
    return buildString(bytes.data(), static_cast<int64_t>(bytes.size()), encoding);
  }
  void raise(const char* className, const char* message) {
    lib->symbol<void(const char*, const char*)>("probe_raise")(className, message);
  }
};

Probe probe(std::optional<double> version = 3000.0, HostConfig config = {}) {
  config.version = version;
  Probe p{std::make_unique<SimHost>(config), std::make_unique<LoadedPlugin>(VEK_FRAME_PROBE_PATH)};
  p.lib->symbol<void(void* (*)(const char*), double)>("probe_connect")(&SimHost::resolver, version.value_or(0.0));
  return p;
}

// -- REALBuildMemoryblock ----------------------------------------------------

TEST(BuildMemoryblock, CopiesTheBytes) {
  Probe p = probe();
  const uint8_t data[] = {9, 8, 7};
  REALmemoryBlock block = p.buildBlock(data, 3);
  ASSERT_NE(block, nullptr);
  p.host->adopt(block);
  EXPECT_EQ(Bytes(p.host->bytes(block).begin(), p.host->bytes(block).end()), Bytes({9, 8, 7}));
  p.host->release(block);
  EXPECT_TRUE(LedgerBalanced(*p.host));
}

TEST(BuildMemoryblock, FailureTable) {
  const uint8_t data[16] = {};
  struct Row {
    const char* name;
    const void* data;
    int32_t size;
    NewBlockFailure failure;
    const char* missing;
    const char* message;  // null: nothing raised
  } rows[] = {
      {"nil data", nullptr, 10, NewBlockFailure::None, nullptr, nullptr},
      {"size 0", data, 0, NewBlockFailure::None, nullptr, nullptr},
      {"negative size", data, -1, NewBlockFailure::None, nullptr, nullptr},
      {"largest size is refused before asking the host", data, 2147483647, NewBlockFailure::None, nullptr,
       "Failed to allocate a memoryblock with 2147483647 bytes in size."},
      {"host gives nil", data, 16, NewBlockFailure::ReturnNull, nullptr,
       "Failed to allocate a memoryblock with 16 bytes in size."},
      {"host throws", data, 16, NewBlockFailure::ThrowBadAlloc, nullptr,
       "Failed to allocate a memoryblock with 16 bytes in size."},
      {"no newMemoryBlock", data, 16, NewBlockFailure::None, "newMemoryBlock",
       "Failed to allocate a memoryblock with 16 bytes in size."},
      {"new block without data", data, 16, NewBlockFailure::None, "memoryBlockGetPtr",
       "Failed to allocate a memoryblock with 16 bytes in size."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Probe p = probe();
    p.host->failNewMemoryBlock(row.failure);
    if (row.missing != nullptr) p.host->setMissing(row.missing, true);
    EXPECT_EQ(p.buildBlock(row.data, row.size), nullptr);
    if (row.message != nullptr) {
      EXPECT_TRUE(RaisedOnce(*p.host, "OutOfMemoryException", row.message));
    } else {
      EXPECT_TRUE(RaisedNothing(*p.host));
    }
    if (row.size == 2147483647) {
      EXPECT_EQ(p.host->lookups("newMemoryBlock"), 0);
    }
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- REALBuildUnicodeString --------------------------------------------------

std::string utf32(std::initializer_list<uint32_t> units) {
  std::string bytes;
  for (uint32_t u : units) bytes.append(reinterpret_cast<const char*>(&u), 4);
  return bytes;
}

std::string utf16(std::initializer_list<uint16_t> units) {
  std::string bytes;
  for (uint16_t u : units) bytes.append(reinterpret_cast<const char*>(&u), 2);
  return bytes;
}

struct StringRow {
  const char* name;
  double version;
  std::string bytes;
  uint32_t encoding;
  std::optional<std::string> text;  // nullopt: nil
  uint32_t resultEncoding;
};

const StringRow kStringRows[] = {
    {"plain ASCII from Mac Roman is ASCII", 3000.0, "ABC", 0, "ABC", 0x600},
    {"Mac Roman with a high byte keeps its code", 3000.0, "A\xE9", 0, "A\xE9", 0},
    {"Windows Latin 1 plain ASCII", 3000.0, "ok", 0x500, "ok", 0x600},
    {"no stated encoding plain ASCII", 3000.0, "ok", 0xFFFF, "ok", 0x600},
    {"no stated encoding high byte", 3000.0, "\x80", 0xFFFF, "\x80", 0xFFFF},
    {"UTF-8 is kept", 3000.0, "\xC3\xA9", 0x08000100, "\xC3\xA9", 0x08000100},
    {"ASCII is kept", 3000.0, "x", 0x600, "x", 0x600},
    {"UTF-16 becomes UTF-8", 3000.0, utf16({'h', 0xE9}), 0x100, "h\xC3\xA9", 0x08000100},
    {"UTF-16 on an old host", 2011.0, utf16({'h', 0xE9}), 0x100, "h\xC3\xA9", 0x08000100},
    {"UTF-32 built by the host", 2013.0, utf32({0x41, 0x1F600}), 0x0C000100, "A\xF0\x9F\x98\x80", 0x08000100},
    {"UTF-32 converted locally", 2012.0, utf32({0x41, 0xD800, 0x1F600, 0x110000}), 0x0C000100,
     "A\xF0\x9F\x98\x80\xEF\xBF\xBD", 0x08000100},
    {"UTF-32 trailing bytes are ignored", 2012.0, utf32({0x42}) + "\x43\x00\x00", 0x0C000100, "B", 0x08000100},
    {"UTF-32 of lone surrogates only is an empty string", 2012.0, utf32({0xDC00}), 0x0C000100, "", 0x08000100},
};

TEST(BuildUnicodeString, Encodings) {
  for (const StringRow& row : kStringRows) {
    SCOPED_TRACE(row.name);
    Probe p = probe(row.version);
    REALstring string = p.buildString(row.bytes, row.encoding);
    EXPECT_TRUE(RaisedNothing(*p.host));
    if (!row.text) {
      EXPECT_EQ(string, nullptr);
    } else {
      ASSERT_NE(string, nullptr);
      p.host->adopt(string);
      EXPECT_EQ(p.host->text(string), *row.text);
      EXPECT_EQ(p.host->encoding(string), row.resultEncoding);
      p.host->release(string);
    }
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// 199 supplementary code points fill the local buffer exactly; one more
// needs an allocation, whose failure gives nil quietly.
TEST(BuildUnicodeString, LocalBufferAndItsLimit) {
  for (int points : {199, 200}) {
    SCOPED_TRACE(points);
    Probe p = probe(2012.0);
    std::string bytes;
    for (int i = 0; i < points; ++i) bytes += utf32({0x10400});
    REALstring string = p.buildString(bytes, 0x0C000100);
    ASSERT_NE(string, nullptr);
    p.host->adopt(string);
    EXPECT_EQ(p.host->text(string).size(), 4u * points) << "every point is a four-byte UTF-8 sequence";
    p.host->release(string);

    ASSERT_GT(AllocFaults::install(p.lib->dlHandle()), 0);
    AllocFaults::reset();
    AllocFaults::armFailure(1);
    REALstring failed = p.buildString(bytes, 0x0C000100);
    if (points == 199) {
      ASSERT_NE(failed, nullptr) << "no allocation below 800 bytes";
      p.host->adopt(failed);
      p.host->release(failed);
    } else {
      EXPECT_EQ(failed, nullptr);
    }
    AllocFaults::reset();
    EXPECT_TRUE(RaisedNothing(*p.host));
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

TEST(BuildUnicodeString, RefusedArguments) {
  Probe p = probe();
  const char text[] = "abc";
  EXPECT_EQ(p.buildString(nullptr, 3, 0), nullptr);
  EXPECT_EQ(p.buildString(text, 0, 0), nullptr);
  EXPECT_EQ(p.buildString(text, -1, 0), nullptr);
  EXPECT_EQ(p.buildString(text, 0x80000000LL, 0), nullptr);
  p.host->setMissing("REALBuildString", true);
  EXPECT_EQ(p.buildString(text, 3, 0), nullptr);
  EXPECT_TRUE(RaisedNothing(*p.host));
  EXPECT_TRUE(LedgerBalanced(*p.host));
}

// A host service that throws while a string is built: the builder raises
// "OutOfMemoryException" and gives nil. When building the message itself
// throws too, the exception comes without a message instead of recursing.
TEST(BuildUnicodeString, HostThrowsWhileBuilding) {
  struct {
    const char* service;
    double version;
    uint32_t encoding;
    std::optional<std::string> message;
  } rows[] = {
      {"REALBuildStringWithEncoding", 3000.0, 0x100, "Failed to allocate memory for a string."},
      {"REALConvertString", 3000.0, 0x100, "Failed to allocate memory for a string."},
      {"REALConvertString", 2012.0, 0x0C000100, "Failed to allocate memory for a string."},
      {"REALBuildString", 3000.0, 0x600, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.service);
    Probe p = probe(row.version);
    p.host->setThrowing(row.service, true);
    const std::string text = row.encoding == 0x100 ? utf16({'a'}) : row.encoding == 0x600 ? "a" : utf32({'a'});
    EXPECT_EQ(p.buildString(text, row.encoding), nullptr);
    std::vector<Raised> raised = p.host->takeRaised();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].className, "OutOfMemoryException");
    EXPECT_EQ(raised[0].message, row.message);
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- RaiseException ------------------------------------------------------------

TEST(RaiseException, UnknownClassBecomesRuntimeException) {
  Probe p = probe();
  p.raise("NoSuchException", "it went wrong");
  EXPECT_TRUE(RaisedOnce(*p.host, "RuntimeException", "it went wrong"));
  EXPECT_TRUE(LedgerBalanced(*p.host));
}

TEST(RaiseException, NullAndEmptyMessagesSetANullString) {
  for (const char* message : {static_cast<const char*>(nullptr), ""}) {
    Probe p = probe();
    p.raise("NilObjectException", message);
    std::vector<Raised> raised = p.host->takeRaised();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].className, "NilObjectException");
    EXPECT_FALSE(raised[0].message.has_value());
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- rbBytes -------------------------------------------------------------------

TEST(RbBytes, BlockViews) {
  Probe p = probe();
  auto view = p.lib->symbol<int32_t(REALmemoryBlock, const uint8_t**)>("probe_view_block");
  REALmemoryBlock block = p.host->newBlock(8, 1);
  const uint8_t* data = nullptr;

  EXPECT_EQ(view(nullptr, &data), 0);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(p.host->lookups("REALLockObject"), 0) << "a nil block is not pinned";

  EXPECT_EQ(view(block, &data), 8);
  EXPECT_EQ(data, p.host->bytes(block).data());

  p.host->overrideReportedSize(block, -5);
  EXPECT_EQ(view(block, &data), 0);
  EXPECT_NE(data, nullptr);

  p.host->overrideReportedData(block, nullptr);
  EXPECT_EQ(view(block, &data), 0);
  EXPECT_EQ(data, nullptr);
  EXPECT_TRUE(LedgerBalanced(*p.host)) << "the pin is given back also without data";
}

// From 2016.0 a string's bytes come from LenB and "StringGetCString"; older
// hosts read the host's string record.
TEST(RbBytes, StringViews) {
  for (double version : {2015.0, 2016.0}) {
    SCOPED_TRACE(version);
    Probe p = probe(version);
    auto view = p.lib->symbol<int32_t(REALstring, uint8_t*, int32_t)>("probe_view_string");
    REALstring string = p.host->newString("caf\x8E", 0);
    uint8_t out[8] = {};
    EXPECT_EQ(view(string, out, sizeof out), 4);
    EXPECT_EQ(std::memcmp(out, "caf\x8E", 4), 0);
    EXPECT_EQ(view(nullptr, out, sizeof out), 0);
    bool modern = version >= 2016.0;
    EXPECT_EQ(p.host->lookups("StringGetCString"), modern ? 1 : 0);
    EXPECT_EQ(p.host->lookups("LenB( s as string ) as integer"), modern ? 1 : 0);
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- rbText --------------------------------------------------------------------

struct MacRomanRow {
  const char* name;
  double version;
  bool unterminated;
  int source;  // 0 pinned, 1 direct, 2 adopted
  std::string text;
  uint32_t encoding;
  std::string expected;
};

const MacRomanRow kMacRomanRows[] = {
    {"UTF-8 converted by the host", 3000.0, false, 0, "caf\xC3\xA9", 0x08000100, "caf\x8E"},
    {"old host converts the string", 2011.0, false, 0, "caf\xC3\xA9", 0x08000100, "caf\x8E"},
    {"unterminated text is copied", 3000.0, true, 0, "caf\xC3\xA9", 0x08000100, "caf\x8E"},
    {"old host unterminated", 2011.0, true, 0, "TEXT", 0x600, "TEXT"},
    {"direct bytes", 3000.0, false, 1, "TEXT", 0x600, "TEXT"},
    {"direct on an old host", 2011.0, false, 1, "ab", 0x600, "ab"},
    {"adopted", 3000.0, false, 2, "\xC3\xA9", 0x08000100, "\x8E"},
};

TEST(RbText, MacRoman) {
  for (const MacRomanRow& row : kMacRomanRows) {
    SCOPED_TRACE(row.name);
    HostConfig config;
    config.unterminatedText = row.unterminated;
    Probe p = probe(row.version, config);
    auto mac_roman = p.lib->symbol<int32_t(REALstring, int, uint8_t*, int32_t, int*)>("probe_mac_roman");
    // An adopted string is one the plug-in made itself.
    REALstring string = row.source == 2 ? p.buildString(row.text, row.encoding)
                                        : p.host->newString(row.text, row.encoding);
    uint8_t out[16] = {};
    int failed = -1;
    int32_t length = mac_roman(string, row.source, out, sizeof out, &failed);
    ASSERT_EQ(length, static_cast<int32_t>(row.expected.size()));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), length), row.expected);
    EXPECT_EQ(failed, 0);
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

TEST(RbText, ConversionFailureGivesEmptyText) {
  for (double version : {2011.0, 3000.0}) {
    SCOPED_TRACE(version);
    Probe p = probe(version);
    p.host->setMissing(version >= 2012.0 ? "PluginGetStringData" : "REALConvertString", true);
    auto mac_roman = p.lib->symbol<int32_t(REALstring, int, uint8_t*, int32_t, int*)>("probe_mac_roman");
    REALstring string = p.host->newString("abc", 0x600);
    uint8_t out[4] = {1, 1, 1, 1};
    int failed = 0;
    EXPECT_EQ(mac_roman(string, 0, out, sizeof out, &failed), 0);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(failed, 1);
    int nil_failed = 0;
    EXPECT_EQ(mac_roman(nullptr, 2, out, sizeof out, &nil_failed), 0);
    EXPECT_EQ(nil_failed, 1) << "an adopted nil string is a failed conversion";
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- declaration rewriting -----------------------------------------------------

TEST(AddClassParameter, WorkedExamples) {
  Probe p = probe();
  auto rewrite = p.lib->symbol<char*(const char*, const char*)>("probe_add_class_parameter");
  auto release = p.lib->symbol<void(void*)>("probe_free");
  struct {
    const char* declaration;
    const char* expected;
  } rows[] = {
      {"MidVEK(offset as integer) as Memoryblock", "MidVEK(extends ref as MemoryBlock, offset as integer) as Memoryblock"},
      {"Count as Integer", "Count(extends ref as MemoryBlock) as Integer"},
      {"Close", "Close(extends ref as MemoryBlock)"},
      {"", "(extends ref as MemoryBlock)"},
      {"A (b as integer)", "A(extends ref as MemoryBlock) (b as integer)"},
  };
  for (const auto& row : rows) {
    char* text = rewrite(row.declaration, "MemoryBlock");
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, row.expected);
    release(text);
  }
  std::string longest(1200, 'x');
  char* text = rewrite(longest.c_str(), "MemoryBlock");
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::strlen(text), 999u) << "a rewritten declaration never exceeds 999 characters";
  release(text);
}
}  // namespace
