// What the CPU offers beyond the SSE2 baseline, for choosing kernel levels.
#pragma once

#include <cstdint>

namespace vek {

// Kernel levels, in order of preference within a family's list.
enum class Level : uint8_t {
  Scalar,
  SSE2,
  SSSE3,
  AVX2,
  AVX512,  // AVX-512 F, BW and VL
  GFNI,    // GFNI with AVX2
};

const char* level_name(Level level);

// Whether this CPU (and the operating system, for the wider registers) can
// run code of the level. Detected on first use and kept.
bool cpu_has(Level level);

}  // namespace vek
