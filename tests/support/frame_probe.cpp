// The frame probe: the plug-in's own code plus these exported entry points,
// built as a separate library so that each frame test loads a fresh copy
// (with empty cache cells) and reaches helpers that no registered method
// exposes: the UTF-16 and UTF-32 string paths, the block builder, the
// exception raiser, rbBytes, rbText and the declaration rewriting.
#include <cstdlib>
#include <cstring>

#include "frame/builders.h"
#include "frame/host_services.h"
#include "frame/modules.h"
#include "frame/rb_bytes.h"
#include "frame/rb_text.h"
#include "frame/target.h"

#define PROBE VEK_EXPORT

// Connects the copy to a host without registering anything.
PROBE void probe_connect(REALResolver resolver, double version) {
  gResolver = resolver;
  rbversion = version;
}

PROBE REALmemoryBlock probe_build_block(const void* data, int32_t size) { return REALBuildMemoryblock(data, size); }

PROBE REALstring probe_build_string(const void* data, int64_t length, uint32_t encoding) {
  return REALBuildUnicodeString(data, length, encoding);
}

PROBE void probe_raise(const char* className, const char* message) { RaiseException(className, message); }

PROBE char* probe_add_class_parameter(const char* declaration, const char* className) {
  return AddClassParameter(declaration, className);
}

PROBE void probe_free(void* p) { std::free(p); }

// The view's data and size while it exists; the view is released on return.
PROBE int32_t probe_view_block(REALmemoryBlock block, const uint8_t** data) {
  rbBytes view(block);
  *data = view.data();
  return view.size();
}

PROBE int32_t probe_view_string(REALstring string, uint8_t* out, int32_t capacity) {
  rbBytes view(string);
  if (view.data() != nullptr && view.size() > 0 && view.size() <= capacity) {
    std::memcpy(out, view.data(), static_cast<size_t>(view.size()));
  }
  return view.size();
}

// Mac Roman text of a string through rbText: source 0 pinned, 1 direct,
// 2 adopted. Copies the text and its terminator; returns the length, or -1
// when the text was not followed by a zero byte.
PROBE int32_t probe_mac_roman(REALstring string, int source, uint8_t* out, int32_t capacity, int* failed) {
  rbText text(string, static_cast<rbText::Source>(source));
  int32_t length = text.macRomanLength();
  const uint8_t* data = text.macRomanData();
  *failed = text.conversionFailed();
  if (data[length] != 0) return -1;
  if (length < capacity) std::memcpy(out, data, static_cast<size_t>(length) + 1);
  return length;
}
