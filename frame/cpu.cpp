#include "frame/target.h"

#if VEK_X86
#include <cpuid.h>
#endif

#include <atomic>

namespace vek {
namespace {

// Bit per level; bit 7 marks "detected" so that 0 means "not yet".
constexpr uint32_t kDetected = 1u << 7;
std::atomic<uint32_t> detected_levels{0};

uint32_t bit(Level level) { return 1u << static_cast<uint32_t>(level); }

#if VEK_X86
// The OS saves the YMM (and for AVX-512 the opmask and ZMM) state.
uint64_t enabled_register_state() {
  uint32_t eax = 0, edx = 0;
  __asm__("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
  return (static_cast<uint64_t>(edx) << 32) | eax;
}

uint32_t detect() {
  uint32_t levels = kDetected | bit(Level::Scalar);
  unsigned eax, ebx, ecx, edx;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return levels;
  if (edx & bit_SSE2) levels |= bit(Level::SSE2);
  if (ecx & bit_SSSE3) levels |= bit(Level::SSSE3);
  bool os_avx = (ecx & bit_OSXSAVE) && (ecx & bit_AVX) && (enabled_register_state() & 0x6) == 0x6;
  bool os_avx512 = os_avx && (enabled_register_state() & 0xE6) == 0xE6;
  if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) return levels;
  bool avx2 = os_avx && (ebx & bit_AVX2);
  if (avx2) levels |= bit(Level::AVX2);
  if (os_avx512 && (ebx & bit_AVX512F) && (ebx & bit_AVX512BW) && (ebx & bit_AVX512VL)) levels |= bit(Level::AVX512);
  if (avx2 && (ecx & bit_GFNI)) levels |= bit(Level::GFNI);
  return levels;
}
#else
uint32_t detect() { return kDetected | bit(Level::Scalar) | bit(Level::NEON); }
#endif

}  // namespace

const char* level_name(Level level) {
  switch (level) {
    case Level::Scalar: return "scalar";
    case Level::SSE2: return "sse2";
    case Level::SSSE3: return "ssse3";
    case Level::AVX2: return "avx2";
    case Level::AVX512: return "avx512";
    case Level::GFNI: return "gfni";
    case Level::NEON: return "neon";
  }
  return "?";
}

bool cpu_has(Level level) {
  uint32_t levels = detected_levels.load(std::memory_order_relaxed);
  if (levels == 0) {
    levels = detect();
    detected_levels.store(levels, std::memory_order_relaxed);  // every thread finds the same
  }
  return (levels & bit(level)) != 0;
}

}  // namespace vek
