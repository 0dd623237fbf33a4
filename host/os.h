// What the simulated host and the test programs need from the operating
// system: pages that fault when touched, and private copies of a library
// loaded by path. os_posix.cpp serves Linux, os_windows.cpp Windows; nothing
// else in the host or the tests calls the system for these.
#pragma once

#include <cstddef>

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

}  // namespace os
