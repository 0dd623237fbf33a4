#include <dlfcn.h>
#include <iconv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "host/os.h"

namespace os {

size_t page_size() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

void* reserve_pages(size_t length) {
  // NORESERVE: a test may ask for a block of nearly 2 GiB and touch a few bytes.
  void* base = mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return base == MAP_FAILED ? nullptr : base;
}

bool open_pages(void* address, size_t length) { return mprotect(address, length, PROT_READ | PROT_WRITE) == 0; }
void close_pages(void* address, size_t length) { mprotect(address, length, PROT_NONE); }
void release_pages(void* address, size_t length) { munmap(address, length); }

void* load_library_copy(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(std::string("cannot read ") + path);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  char name[] = "/tmp/vekplugin-XXXXXX.so";
  int fd = mkstemps(name, 3);
  if (fd < 0) throw std::runtime_error("cannot make a copy of the plug-in");
  bool written = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  close(fd);
  if (!written) throw std::runtime_error("cannot write a copy of the plug-in");
  void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
  unlink(name);
  if (library == nullptr) throw std::runtime_error(std::string("dlopen: ") + dlerror());
  return library;
}

void* library_symbol(void* library, const char* name) { return dlsym(library, name); }

std::string executable_path() {
  char self[4096];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  return n <= 0 ? std::string() : std::string(self, static_cast<size_t>(n));
}

std::optional<std::string> convert_text(std::string_view text, const char* from, const char* to) {
  iconv_t converter = iconv_open(to, from);
  if (converter == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(text.size() * 4, '\0');  // no source unit grows past four bytes
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  char* outNext = out.data();
  size_t outLeft = out.size();
  const size_t result = inLeft == 0 ? 0 : iconv(converter, &in, &inLeft, &outNext, &outLeft);
  iconv_close(converter);
  if (result == static_cast<size_t>(-1)) return std::nullopt;  // unmappable or malformed
  out.resize(out.size() - outLeft);
  return out;
}

}  // namespace os
