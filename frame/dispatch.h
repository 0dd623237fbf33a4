// Kernel families: one table of function pointers per level, in order of
// preference, and the best level this CPU runs, chosen on first use and kept
// in a relaxed atomic. Tests and benchmarks walk `levels()` to run every
// level the CPU has; the plug-in calls `best()`. A family lists the levels
// of the target it is built for (frame/target.h), its scalar twin last:
//
//   struct InvertTable { void (*invert)(uint8_t*, size_t) noexcept; };
//   constinit KernelFamily<InvertTable> invert_kernels{
//   #if VEK_X86
//       {Level::AVX2, {invert_avx2}}, {Level::SSE2, {invert_sse2}},
//   #else
//       {Level::NEON, {invert_neon}},
//   #endif
//       {Level::Scalar, {invert_scalar}}};
//   invert_kernels.best().invert(data, size);
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <span>

#include "frame/target.h"

namespace vek {

template <typename Table>
struct KernelLevel {
  Level level;
  Table table;
};

template <typename Table>
class KernelFamily {
 public:
  constexpr KernelFamily(std::initializer_list<KernelLevel<Table>> levels) {
    for (const KernelLevel<Table>& level : levels) levels_[count_++] = level;
  }

  // The first level of the list this CPU runs; the last level must be one
  // every CPU runs.
  const Table& best() {
    const KernelLevel<Table>* chosen = chosen_.load(std::memory_order_relaxed);
    if (chosen == nullptr) {
      chosen = &levels_[count_ - 1];
      for (const KernelLevel<Table>& candidate : levels()) {
        if (cpu_has(candidate.level)) {
          chosen = &candidate;
          break;
        }
      }
      chosen_.store(chosen, std::memory_order_relaxed);
    }
    return chosen->table;
  }

  std::span<const KernelLevel<Table>> levels() const { return {levels_.data(), count_}; }

 private:
  std::array<KernelLevel<Table>, 8> levels_{};
  size_t count_ = 0;
  std::atomic<const KernelLevel<Table>*> chosen_{nullptr};
};

}  // namespace vek
