// What the simulated host and the test programs need from the operating
// system: pages that fault when touched, and private copies of a library
// loaded by path. os_posix.cpp serves Linux, os_windows.cpp Windows; nothing
// else in the host or the tests calls the system for these.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace os {

size_t page_size();

// `length` bytes (whole pages) of address space that fault when touched;
// nullptr when the system gives none.
void* reserve_pages(size_t length);
// Lets whole pages be read and written (false when the system refuses), or
// makes them fault again.
bool open_pages(void* address, size_t length);
void close_pages(void* address, size_t length);
void release_pages(void* address, size_t length);

// Loads a private copy of the library at `path`, so that each load has its
// own globals; throws std::runtime_error with a one-line reason (no such
// file, not a library for this machine, ...).
void* load_library_copy(const char* path);
// An exported symbol of a loaded library, or nullptr.
void* library_symbol(void* library, const char* name);

// The running program's path, and the plug-in's file name on this system.
std::string executable_path();
#if defined(_WIN32)
inline constexpr const char* kPluginFileName = "memoryblockvek.dll";
#else
inline constexpr const char* kPluginFileName = "libmemoryblockvek.so";
#endif

// Text in one encoding in another: "ASCII", "UTF-8", "UTF-16LE", "UTF-32LE",
// "CP1252" or "MACINTOSH" (Mac Roman). nullopt when a character has no place
// in the target encoding or the text is malformed.
std::optional<std::string> convert_text(std::string_view text, const char* from, const char* to);

}  // namespace os
