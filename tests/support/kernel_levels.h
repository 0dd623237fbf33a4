// The levels of a kernel family as test parameters: the kernel tests run one
// instance per level and look the level's table up by its name.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/cpu.h"
#include "frame/dispatch.h"

template <class Table, size_t N>
std::vector<vek::Level> levels_of(const vek::KernelFamily<Table, N>& family) {
  std::vector<vek::Level> levels;
  for (const auto& level : family.levels()) levels.push_back(level.level);
  return levels;
}

template <class Table, size_t N>
const Table& table_of(const vek::KernelFamily<Table, N>& family, vek::Level level) {
  for (const auto& candidate : family.levels()) {
    if (candidate.level == level) return candidate.table;
  }
  return family.levels().back().table;  // not reached: the levels come from the family
}

inline std::string level_param_name(const testing::TestParamInfo<vek::Level>& info) {
  return vek::level_name(info.param);
}
