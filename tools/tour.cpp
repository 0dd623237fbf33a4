#include "tools/tour.h"

#include <cstdio>
#include <stdexcept>

#include "tools/call.h"

namespace {
std::string encoding_name(uint32_t encoding) {
  switch (encoding) {
    case 0x0000: return "Mac Roman";
    case 0x0600: return "ASCII";
    case 0xFFFF: return "no stated encoding";
    case 0x08000100: return "UTF-8";
    default: {
      char code[16];
      std::snprintf(code, sizeof code, "0x%X", encoding);
      return code;
    }
  }
}
}  // namespace

std::string hex(const uint8_t* bytes, size_t count) {
  std::string text;
  char byte[4];
  for (size_t i = 0; i < count; ++i) {
    std::snprintf(byte, sizeof byte, i == 0 ? "%02X" : " %02X", bytes[i]);
    text += byte;
  }
  return text;
}

std::string address(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

Tour::~Tour() {
  for (const void* handle : owned_) host_.release(handle);
}

Result Tour::invoke(const char* name, caller::Role role, std::initializer_list<caller::Arg> args) {
  const caller::Registered* registered = caller::find_named(calls_, name, role, args.size());
  if (registered == nullptr) {
    throw std::runtime_error(std::string("no ") + name + " of " + std::to_string(args.size()) +
                             " arguments is registered");
  }
  return {caller::call(*registered, args)};
}

void Tour::section(const char* title) { std::printf("\n%s\n", title); }

REALmemoryBlock Tour::block(std::initializer_list<uint8_t> bytes) {
  REALmemoryBlock b = host_.newBlock(bytes);
  owned_.push_back(b);
  return b;
}

REALmemoryBlock Tour::block(size_t size, uint8_t fill) {
  REALmemoryBlock b = host_.newBlock(size, fill);
  owned_.push_back(b);
  return b;
}

void Tour::dump(const char* label, REALmemoryBlock block) {
  if (block == nullptr) {
    line(label, "nil");
    return;
  }
  auto bytes = host_.bytes(block);
  char count[16];
  std::snprintf(count, sizeof count, "%3zu bytes:", bytes.size());
  line(label, count + (bytes.empty() ? "" : " " + hex(bytes.data(), bytes.size())));
}

Result Tour::show(const char* label, Result result) {
  const caller::Value& value = result.value;
  switch (value.kind) {
    case caller::Kind::Boolean: line(label, value.i != 0 ? "True" : "False"); return result;
    case caller::Kind::UInt64: line(label, address(value.u)); return result;
    case caller::Kind::MemoryBlock:
      host_.adopt(value.p);
      if (value.p != nullptr) owned_.push_back(value.p);
      dump(label, result);
      break;
    case caller::Kind::String:
      if (REALstring text = result; text == nullptr) {
        line(label, "nil");
      } else {
        host_.adopt(text);
        line(label, quoted(host_.text(text)) + " (" + encoding_name(host_.encoding(text)) + ")");
        host_.release(text);
      }
      break;
    default: line(label, std::to_string(value.i)); return result;
  }
  raised();
  return result;
}

void Tour::line(const char* label, const std::string& value) {
  std::printf("  %-34s %s\n", label, value.c_str());
}

void Tour::raised() {
  for (const Raised& r : host_.takeRaised()) {
    line("", "raised " + r.className + " \"" + r.message.value_or("") + "\"");
  }
}
