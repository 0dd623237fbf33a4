// The start misalignments within a 64-byte line that the kernel tests sweep
// at every size: all 64; or, when the environment sets VEK_SHORT_SWEEP (the
// valgrind run, where the full sweep takes a quarter of an hour), five of
// them: aligned, one past, half a line, and one short of a half and a whole
// line. Sizes and levels are swept in full either way.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <vector>

inline const std::vector<size_t>& sweep_misalignments() {
  static const std::vector<size_t> misalignments = [] {
    if (std::getenv("VEK_SHORT_SWEEP") != nullptr) return std::vector<size_t>{0, 1, 16, 31, 63};
    std::vector<size_t> all;
    for (size_t m = 0; m < 64; ++m) all.push_back(m);
    return all;
  }();
  return misalignments;
}
