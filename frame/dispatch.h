// Kernel families: one table of function pointers per level, in order of
// preference, and the best level this CPU runs, chosen on first use and kept
// in a relaxed atomic. Tests and benchmarks walk `levels()` to run every
// level the CPU has; the plug-in calls `best()`.
//
//   struct InvertTable { void (*invert)(uint8_t*, size_t) noexcept; };
//   constinit KernelFamily<InvertTable, 3> invert_kernels{{{
//       {Level::AVX2, {invert_avx2}}, {Level::SSE2, {invert_sse2}}, {Level::Scalar, {invert_scalar}}}}};
//   invert_kernels.best().invert(data, size);
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <span>

#include "frame/cpu.h"

namespace vek {

template <typename Table>
struct KernelLevel {
  Level level;
  Table table;
};

template <typename Table, size_t N>
class KernelFamily {
 public:
  constexpr explicit KernelFamily(std::array<KernelLevel<Table>, N> levels) : levels_(levels) {}

  // The first level of the list this CPU runs; the last level must be one
  // every CPU runs.
  const Table& best() {
    const KernelLevel<Table>* chosen = chosen_.load(std::memory_order_relaxed);
    if (chosen == nullptr) {
      chosen = &levels_[N - 1];
      for (const KernelLevel<Table>& candidate : levels_) {
        if (cpu_has(candidate.level)) {
          chosen = &candidate;
          break;
        }
      }
      chosen_.store(chosen, std::memory_order_relaxed);
    }
    return chosen->table;
  }

  std::span<const KernelLevel<Table>> levels() const { return levels_; }

 private:
  std::array<KernelLevel<Table>, N> levels_;
  std::atomic<const KernelLevel<Table>*> chosen_{nullptr};
};

}  // namespace vek
