// The targets the plug-in builds for, its export, and the kernel levels each
// target can run. Everything else in the plug-in is the same on every target
// and calls no operating-system function.
//
//   target            kernel levels, in the order a family prefers them
//   x86-64, i386      AVX-512, GFNI, AVX2, SSSE3, SSE2 (chosen by the CPU's features), scalar
//   ARM64             NEON (every ARM64 CPU has it), scalar
//
// Linux builds give libmemoryblockvek.so, Windows builds memoryblockvek.dll.
#pragma once

#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#define VEK_X86 1
#define VEK_ARM64 0
#elif defined(__aarch64__)
#define VEK_X86 0
#define VEK_ARM64 1
#else
#error "the plug-in builds for x86-64, i386 and ARM64"
#endif

// The one function the library exports: REALPluginMain, with C linkage.
#if defined(_WIN32)
#define VEK_EXPORT extern "C" __declspec(dllexport)
#else
#define VEK_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace vek {

// Kernel levels. A family lists the levels of its target in order of
// preference, the scalar twin last.
enum class Level : uint8_t {
  Scalar,
  SSE2,
  SSSE3,
  AVX2,
  AVX512,  // AVX-512 F, BW and VL
  GFNI,    // GFNI with AVX2
  NEON,
};

const char* level_name(Level level);

// Whether this CPU (and the operating system, for the wider registers) can
// run code of the level. Detected on first use and kept (frame/cpu.cpp).
bool cpu_has(Level level);

}  // namespace vek
