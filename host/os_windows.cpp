#include <windows.h>

#include <cstdlib>
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

}  // namespace os
