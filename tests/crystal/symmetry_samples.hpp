// What the tests of symmetry share: groups by their symbols, metrics that a group allows, operators as exact keys.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <set>
#include <string>

#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_symmetry_tables.hpp"

namespace symmetry_samples {

using namespace lmix_crystallographic_symmetry;
namespace tables = lmix_symmetry_tables;

inline space_group_type group_of(std::string_view symbol, std::string_view mode = {}) {
  space_group_type spg;
  const err_symm_type err = set_spacegroup(symbol, spg, {}, mode);
  EXPECT_FALSE(err) << symbol << ": " << err.err_symm_mess;
  return spg;
}

/// Symbol of a row with its origin or axes.
inline std::string symbol_of(const tables::spgr_info_row& s) {
  return std::string(s.hm) + (s.ext.empty() ? "" : ":" + std::string(s.ext));
}

/// Reciprocal metric tensor that has the symmetry of the operators: the mean of an arbitrary one over their rotations.
inline std::array<std::array<float, 3>, 3> metric_of(const std::vector<sym_oper_type>& symop) {
  const double start[3][3] = {{0.031, 0.004, -0.003}, {0.004, 0.022, 0.005}, {-0.003, 0.005, 0.027}};
  std::array<std::array<double, 3>, 3> sum{};
  for (const auto& op : symop)
    for (std::size_t i = 0; i < 3; ++i)
      for (std::size_t j = 0; j < 3; ++j)
        for (std::size_t k = 0; k < 3; ++k)
          for (std::size_t l = 0; l < 3; ++l) sum[i][j] += op.rot[i][k] * start[k][l] * op.rot[j][l];
  std::array<std::array<float, 3>, 3> g{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) g[i][j] = static_cast<float>(sum[i][j] / static_cast<double>(symop.size()));
  return g;
}

/// Rotation and translation in 24ths, an exact key of an operator of a tabulated group.
using op_key = std::array<int, 12>;
inline op_key key_of(const sym_oper_type& op) {
  op_key key{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) key[3 * i + j] = op.rot[i][j];
    const double t = static_cast<double>(op.tr[i]) * 24.0;
    EXPECT_NEAR(t, std::round(t), 1e-4);
    key[9 + i] = (static_cast<int>(std::lround(t)) % 24 + 24) % 24;
  }
  return key;
}
inline std::set<op_key> keys_of(const space_group_type& spg) {
  std::set<op_key> keys;
  for (const auto& op : spg.symop) keys.insert(key_of(op));
  return keys;
}

}  // namespace symmetry_samples
