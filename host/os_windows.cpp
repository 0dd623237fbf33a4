#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/os.h"

namespace os {

size_t page_size() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}

void* reserve_pages(size_t length) { return VirtualAlloc(nullptr, length, MEM_RESERVE, PAGE_NOACCESS); }

bool open_pages(void* address, size_t length) {
  return VirtualAlloc(address, length, MEM_COMMIT, PAGE_READWRITE) != nullptr;
}

void close_pages(void* address, size_t length) {
  DWORD old;
  VirtualProtect(address, length, PAGE_NOACCESS, &old);
}

void release_pages(void* address, size_t) { VirtualFree(address, 0, MEM_RELEASE); }

namespace {
std::string reason(DWORD error) {
  if (error == ERROR_BAD_EXE_FORMAT) return "not a DLL for this machine's architecture";
  char text[512] = {};
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, sizeof text,
                 nullptr);
  std::string line = text;
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == ' ')) line.pop_back();
  return line + " (error " + std::to_string(error) + ")";
}

// A loaded copy cannot be deleted; the copies go when the process ends.
std::mutex copies_lock;
std::vector<std::pair<HMODULE, std::string>> copies;

void delete_copies() {
  std::lock_guard<std::mutex> hold(copies_lock);
  for (auto& [module, name] : copies) {
    FreeLibrary(module);
    DeleteFileA(name.c_str());
  }
  copies.clear();
}
}  // namespace

void* load_library_copy(const char* path) {
  if (GetFileAttributesA(path) == INVALID_FILE_ATTRIBUTES) throw std::runtime_error(std::string("cannot read ") + path);
  char folder[MAX_PATH], name[MAX_PATH];
  if (GetTempPathA(MAX_PATH, folder) == 0 || GetTempFileNameA(folder, "vek", 0, name) == 0) {
    throw std::runtime_error("cannot make a copy of the plug-in");
  }
  if (!CopyFileA(path, name, FALSE)) {
    DeleteFileA(name);
    throw std::runtime_error("cannot write a copy of the plug-in");
  }
  HMODULE module = LoadLibraryExA(name, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (module == nullptr) {
    const DWORD error = GetLastError();
    DeleteFileA(name);
    throw std::runtime_error(std::string("LoadLibrary: ") + path + ": " + reason(error));
  }
  std::lock_guard<std::mutex> hold(copies_lock);
  if (copies.empty()) std::atexit(delete_copies);
  copies.emplace_back(module, name);
  return module;
}

void* library_symbol(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

std::string executable_path() {
  char self[MAX_PATH];
  const DWORD n = GetModuleFileNameA(nullptr, self, MAX_PATH);
  return n == 0 || n == MAX_PATH ? std::string() : std::string(self, n);
}

namespace {
// The code page of a byte encoding; 0 for the Unicode forms read directly.
UINT code_page(std::string_view name) {
  if (name == "ASCII") return 20127;
  if (name == "UTF-8") return CP_UTF8;
  if (name == "CP1252") return 1252;
  if (name == "MACINTOSH") return 10000;
  return 0;
}

std::optional<std::wstring> to_utf16(std::string_view text, std::string_view from) {
  std::wstring wide;
  if (from == "UTF-16LE") {
    if (text.size() % 2 != 0) return std::nullopt;
    wide.resize(text.size() / 2);
    std::memcpy(wide.data(), text.data(), text.size());
    return wide;
  }
  if (from == "UTF-32LE") {
    if (text.size() % 4 != 0) return std::nullopt;
    for (size_t i = 0; i < text.size(); i += 4) {
      uint32_t c;
      std::memcpy(&c, text.data() + i, 4);
      if (c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) return std::nullopt;
      if (c < 0x10000) {
        wide += static_cast<wchar_t>(c);
      } else {
        wide += static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
        wide += static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
      }
    }
    return wide;
  }
  const UINT page = code_page(from);
  if (page == 0) return std::nullopt;
  if (page == 20127 && std::any_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; })) {
    return std::nullopt;
  }
  if (text.empty()) return wide;
  const int length = static_cast<int>(text.size());
  const int units = MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, text.data(), length, nullptr, 0);
  if (units <= 0) return std::nullopt;
  wide.resize(static_cast<size_t>(units));
  MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, text.data(), length, wide.data(), units);
  return wide;
}

std::optional<std::string> from_utf16(const std::wstring& wide, std::string_view to) {
  std::string out;
  if (to == "UTF-16LE" || to == "UTF-32LE") {
    for (size_t i = 0; i < wide.size(); ++i) {
      uint32_t c = static_cast<uint16_t>(wide[i]);
      if (c >= 0xD800 && c < 0xE000) {
        const uint32_t low = i + 1 < wide.size() ? static_cast<uint16_t>(wide[i + 1]) : 0;
        if (c >= 0xDC00 || low < 0xDC00 || low >= 0xE000) return std::nullopt;  // a lone surrogate
        if (to == "UTF-32LE") c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00), ++i;
      }
      out.append(reinterpret_cast<const char*>(&c), to == "UTF-32LE" ? 4 : 2);
    }
    return out;
  }
  const UINT page = code_page(to);
  if (page == 0) return std::nullopt;
  if (wide.empty()) return out;
  const int length = static_cast<int>(wide.size());
  const DWORD flags = page == CP_UTF8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
  BOOL defaulted = FALSE;
  BOOL* used_default = page == CP_UTF8 ? nullptr : &defaulted;
  const int bytes = WideCharToMultiByte(page, flags, wide.data(), length, nullptr, 0, nullptr, used_default);
  if (bytes <= 0 || defaulted) return std::nullopt;
  out.resize(static_cast<size_t>(bytes));
  WideCharToMultiByte(page, flags, wide.data(), length, out.data(), bytes, nullptr, used_default);
  if (page == 20127 && std::any_of(out.begin(), out.end(), [](char c) { return (c & 0x80) != 0; })) {
    return std::nullopt;
  }
  return out;
}
}  // namespace

// Through UTF-16, the system's own text: byte encodings by their code pages,
// refusing what a code page would only approximate.
std::optional<std::string> convert_text(std::string_view text, const char* from, const char* to) {
  const std::optional<std::wstring> wide = to_utf16(text, from);
  if (!wide) return std::nullopt;
  return from_utf16(*wide, to);
}

}  // namespace os
