#include "tools/tour.h"

#include <cstdio>
#include <stdexcept>

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
  std::string text = count;
  char hex[4];
  for (uint8_t b : bytes) {
    std::snprintf(hex, sizeof hex, " %02X", b);
    text += hex;
  }
  line(label, text);
}

void Tour::show(const char* label, REALmemoryBlock result) {
  host_.adopt(result);
  if (result != nullptr) owned_.push_back(result);
  dump(label, result);
  raised();
}

void Tour::line(const char* label, const std::string& value) {
  std::printf("  %-34s %s\n", label, value.c_str());
}

void Tour::raised() {
  for (const Raised& r : host_.takeRaised()) {
    line("", "raised " + r.className + " \"" + r.message.value_or("") + "\"");
  }
}
