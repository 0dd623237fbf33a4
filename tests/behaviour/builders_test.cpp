// The frame's builders and views, reached through the frame probe (the
// plug-in's own code in a fresh copy per test): blocks, strings in every
// encoding, raised exceptions and rbText; the views rbBytes gives are every
// method's.
#include <cstring>

#include "host/alloc_faults.h"
#include "tests/support/plugin_test.h"

namespace {
struct Probe {
  explicit Probe(std::optional<double> version = 3000.0, HostConfig config = {}) {
    config.version = version;
    host = std::make_unique<SimHost>(config);
    lib = std::make_unique<LoadedPlugin>(VEK_FRAME_PROBE_PATH);
    fn<void(void* (*)(const char*), double)>("probe_connect")(&SimHost::resolver, version.value_or(0.0));
  }
  template <class F>
  F* fn(const char* name) {
    return lib->symbol<F>(name);
  }
  REALstring build(const std::string& bytes, uint32_t encoding) {
    return fn<REALstring(const void*, int64_t, uint32_t)>("probe_build_string")(bytes.data(), bytes.size(), encoding);
  }
  // A handle the probe made, its contents read and given back.
  template <class Read>
  auto given_back(const void* handle, Read read) {
    host->adopt(handle);
    auto contents = read();
    host->release(handle);
    return contents;
  }

  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> lib;
};

std::string units(std::initializer_list<uint32_t> values, size_t width) {
  std::string bytes;
  for (uint32_t v : values) bytes.append(reinterpret_cast<const char*>(&v), width);
  return bytes;
}
std::string utf16(std::initializer_list<uint32_t> values) { return units(values, 2); }
std::string utf32(std::initializer_list<uint32_t> values) { return units(values, 4); }

// A copy, nil data, sizes below 1 and the largest size are the global
// constructors' (and a "newMemoryBlock" that gives nil or throws is swept by
// alloc_failure_test); a new block without data is given back here.
TEST(BuildMemoryblock, HostWithoutBlocks) {
  const uint8_t data[16] = {9, 8, 7};
  for (const char* missing : {"newMemoryBlock", "memoryBlockGetPtr"}) {
    SCOPED_TRACE(missing);
    Probe p;
    p.host->setMissing(missing, true);
    EXPECT_EQ(p.fn<REALmemoryBlock(const void*, int32_t)>("probe_build_block")(data, 16), nullptr);
    EXPECT_TRUE(RaisedOnce(*p.host, "OutOfMemoryException", "Failed to allocate a memoryblock with 16 bytes in size."));
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// What no method builds: plain Mac Roman and Windows Latin 1, the first
// byte that is not ASCII, UTF-16 and UTF-32. (Other text of no stated
// encoding, ASCII and Mac Roman codes are the fields' tests.)
TEST(BuildUnicodeString, Encodings) {
  const struct {
    const char* name;
    double version;
    std::string bytes;
    uint32_t encoding;
    std::string text;
    uint32_t resultEncoding;
  } rows[] = {
      {"plain ASCII from Mac Roman is ASCII", 3000.0, "ABC", 0, "ABC", 0x600},
      {"Windows Latin 1 plain ASCII", 3000.0, "ok", 0x500, "ok", 0x600},
      {"no stated encoding, 0x80 is not ASCII", 3000.0, "a\x80", 0xFFFF, "a\x80", 0xFFFF},
      {"UTF-16 becomes UTF-8", 3000.0, utf16({'h', 0xE9}), 0x100, "h\xC3\xA9", 0x08000100},
      {"UTF-16 on an old host", 2011.0, utf16({'h', 0xE9}), 0x100, "h\xC3\xA9", 0x08000100},
      {"UTF-32 built by the host", 2013.0, utf32({0x41, 0x1F600}), 0x0C000100, "A\xF0\x9F\x98\x80", 0x08000100},
      {"UTF-32 converted locally", 2012.0, utf32({0x41, 0xD800, 0x1F600, 0x110000}), 0x0C000100,
       "A\xF0\x9F\x98\x80\xEF\xBF\xBD", 0x08000100},
      {"UTF-32 trailing bytes are ignored", 2012.0, utf32({0x42}) + "\x43\x00\x00", 0x0C000100, "B", 0x08000100},
      {"UTF-32 of lone surrogates only is an empty string", 2012.0, utf32({0xDC00}), 0x0C000100, "", 0x08000100},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Probe p(row.version);
    REALstring string = p.build(row.bytes, row.encoding);
    ASSERT_NE(string, nullptr);
    auto [text, encoding] =
        p.given_back(string, [&] { return std::pair(p.host->text(string), p.host->encoding(string)); });
    EXPECT_EQ(text, row.text);
    EXPECT_EQ(encoding, row.resultEncoding);
    EXPECT_TRUE(RaisedNothing(*p.host));
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// 799 bytes (199 supplementary code points and 3 trailing bytes) fit the
// local buffer; 800 need an allocation, whose failure gives nil quietly.
TEST(BuildUnicodeString, LocalBufferAndItsLimit) {
  for (size_t length : {799, 800}) {
    SCOPED_TRACE(length);
    Probe p(2012.0);
    std::string bytes;
    for (size_t i = 0; i < length / 4; ++i) bytes += utf32({0x10400});
    bytes.resize(length);
    REALstring string = p.build(bytes, 0x0C000100);
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(p.given_back(string, [&] { return p.host->text(string).size(); }), length / 4 * 4);
    ASSERT_GT(AllocFaults::install(p.lib->dlHandle()), 0);
    AllocFaults::reset();
    AllocFaults::armFailure(1);
    REALstring failed = p.build(bytes, 0x0C000100);
    AllocFaults::reset();
    if (length == 799) {
      ASSERT_NE(failed, nullptr) << "no allocation below 800 bytes";
      p.given_back(failed, [] { return 0; });
    } else {
      EXPECT_EQ(failed, nullptr);
    }
    EXPECT_TRUE(RaisedNothing(*p.host));
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

TEST(BuildUnicodeString, RefusedArguments) {
  Probe p;
  auto build = p.fn<REALstring(const void*, int64_t, uint32_t)>("probe_build_string");
  EXPECT_EQ(build(nullptr, 3, 0), nullptr);
  for (int64_t length : {int64_t{0}, int64_t{-1}, int64_t{0x80000000}}) EXPECT_EQ(build("abc", length, 0), nullptr);
  EXPECT_TRUE(RaisedNothing(*p.host));
  EXPECT_TRUE(LedgerBalanced(*p.host));
}

// A host service that throws while a string is built: the builder raises
// "OutOfMemoryException" and gives nil. When building the message itself
// throws too, the exception comes without a message instead of recursing.
// The raiser turns an unknown class into "RuntimeException".
TEST(BuildUnicodeString, HostThrowsWhileBuildingAndRaising) {
  const std::string failed = "Failed to allocate memory for a string.";
  const struct {
    const char* service;  // or the class raised
    double version;
    std::string text;  // or the message raised
    uint32_t encoding;  // 0: raised
    const char* className;
    std::optional<std::string> message;
  } rows[] = {
      {"REALBuildStringWithEncoding", 3000.0, utf16({'a'}), 0x100, "OutOfMemoryException", failed},
      {"REALConvertString", 3000.0, utf16({'a'}), 0x100, "OutOfMemoryException", failed},
      {"REALConvertString", 2012.0, utf32({'a'}), 0x0C000100, "OutOfMemoryException", failed},
      {"REALBuildString", 3000.0, "a", 0x600, "OutOfMemoryException", std::nullopt},
      {"NoSuchException", 3000.0, "it went wrong", 0, "RuntimeException", "it went wrong"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.service);
    if (row.encoding != 0 && !kServicesThrow) continue;  // no Windows host throws into a plug-in
    Probe p(row.version);
    if (row.encoding == 0) {
      p.fn<void(const char*, const char*)>("probe_raise")(row.service, row.text.c_str());
    } else {
      p.host->setThrowing(row.service, true);
      EXPECT_EQ(p.build(row.text, row.encoding), nullptr);
    }
    std::vector<Raised> raised = p.host->takeRaised();
    ASSERT_EQ(raised.size(), 1u);
    EXPECT_EQ(raised[0].className, row.className);
    EXPECT_EQ(raised[0].message, row.message);
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- rbText --------------------------------------------------------------------

// Source 0 pinned, 2 adopted (a string the plug-in made itself). Text
// without a terminator is copied; an adopted nil string (built from no text)
// gives empty text, flagged as failed. (Each source on both string paths,
// and a host that cannot convert, are the fields' tests.)
TEST(RbText, MacRoman) {
  const struct {
    const char* name;
    double version;
    bool unterminated;
    int source;
    std::string text;
    uint32_t encoding;
    std::string expected;
  } rows[] = {
      {"unterminated text is copied", 3000.0, true, 0, "caf\xC3\xA9", 0x08000100, "caf\x8E"},
      {"old host unterminated", 2011.0, true, 0, "TEXT", 0x600, "TEXT"},
      {"adopted nil", 3000.0, false, 2, "", 0x600, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Probe p(row.version, HostConfig{.unterminatedText = row.unterminated});
    auto mac_roman = p.fn<int32_t(REALstring, int, uint8_t*, int32_t, int*)>("probe_mac_roman");
    REALstring string = row.source == 2 ? p.build(row.text, row.encoding) : p.host->newString(row.text, row.encoding);
    uint8_t out[16];
    std::memset(out, 1, sizeof out);
    int failed = -1;
    int32_t length = mac_roman(string, row.source, out, sizeof out, &failed);
    ASSERT_EQ(length, static_cast<int32_t>(row.expected.size()));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), length + 1), row.expected + '\0');
    EXPECT_EQ(failed, row.text.empty());
    EXPECT_TRUE(LedgerBalanced(*p.host));
  }
}

// -- declaration rewriting -----------------------------------------------------

TEST(AddClassParameter, WorkedExamples) {
  Probe p;
  auto rewrite = [&](const std::string& declaration) {
    auto add = p.fn<char*(const char*, const char*)>("probe_add_class_parameter");
    char* text = add(declaration.c_str(), "MemoryBlock");
    std::string copy = text != nullptr ? text : "<null>";
    p.fn<void(void*)>("probe_free")(text);
    return copy;
  };
  const struct {
    const char* declaration;
    const char* expected;
  } rows[] = {
      {"MidVEK(offset as integer) as Memoryblock",
       "MidVEK(extends ref as MemoryBlock, offset as integer) as Memoryblock"},
      {"Count as Integer", "Count(extends ref as MemoryBlock) as Integer"},
      {"Close", "Close(extends ref as MemoryBlock)"},
      {"", "(extends ref as MemoryBlock)"},
      {"A (b as integer)", "A(extends ref as MemoryBlock) (b as integer)"},
  };
  for (const auto& row : rows) EXPECT_EQ(rewrite(row.declaration), row.expected);
  EXPECT_EQ(rewrite(std::string(1200, 'x')).size(), 999u) << "a rewritten declaration never exceeds 999 characters";
}
}  // namespace
