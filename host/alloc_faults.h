// Fails the plug-in's own malloc, calloc or realloc on request.
//
// install() redirects the slots through which the loaded plug-in calls those
// three functions (its ELF relocation slots, or a DLL's import address
// table) to counting wrappers that forward to the process's allocator. Nothing else in the process is touched, free nowhere,
// which is what lets this run beside AddressSanitizer, whose allocator owns
// the process-wide malloc.
//
// The counters are process-wide, like the slots; the wrappers are safe to call
// from any thread.
#pragma once

class AllocFaults {
 public:
  // Redirects the slots of the library `dlHandle` was opened as. Returns how
  // many slots now go through the wrappers (0 when the library imports none of
  // the three, or the handle is not a loaded library). Repeating it is harmless.
  static int install(void* dlHandle);
  // The k-th plug-in allocation from now (1-based) returns null; 0 disarms.
  // Only that one fails.
  static void armFailure(int k);
  // Plug-in allocations since the last reset, the failed one included.
  static int allocations();
  // Clears the count and disarms.
  static void reset();
};
