// Kernels of _CalcLogSweepTableVEK, _ConvertPolarToCartesian and
// _ConvertCartesianToPolar: tables of 8-byte records, two floats each, in the
// machine's byte order and with no alignment required.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek {

// `count` sweep records (0.944·sin(K·(e^(L·i/T) − 1)), 100.53096491488·i/T)
// from `out` on, for i = 0, 1, ...
void log_sweep(uint8_t* out, size_t count, double L, double K, double T) noexcept;

// `count` records read from `in` and written to `out`, record by record in
// ascending order, each record read before it is written: `in` may be
// `out`, or overlap it anywhere.
void polar_to_cartesian(const uint8_t* in, uint8_t* out, size_t count) noexcept;
void cartesian_to_polar(const uint8_t* in, uint8_t* out, size_t count) noexcept;

}  // namespace vek
