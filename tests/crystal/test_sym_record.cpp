#include <gtest/gtest.h>

#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_symmetry_tables.hpp"

namespace {
using namespace lmix_crystallographic_symmetry;
namespace tables = lmix_symmetry_tables;

std::string row_symbol(const tables::spgr_info_row& s) {
  std::string out(s.hm);
  if (s.ext == "1" || s.ext == "2" || s.ext == "R") out += ":" + std::string(s.ext);
  return out;
}

TEST(SpaceGroupTable, EverySettingIsFoundByItsSymbolAndHasTheTabulatedOrder) {
  int row = 0;
  for (const auto& s : tables::spgr_info()) {
    ++row;
    SCOPED_TRACE(row_symbol(s));
    space_group_type spg;
    const auto err = set_spacegroup(row_symbol(s), spg);
    ASSERT_FALSE(err) << err.err_symm_mess;
    EXPECT_EQ(spg.numspg, s.number);
    EXPECT_EQ(spg.hall, s.hall);
    EXPECT_EQ(spg.multip, s.multip);
    EXPECT_EQ(spg.numlat, s.numlat);
    const laue_pg found = get_laue_pg(spg.symop);
    EXPECT_EQ(tables::get_laue_str(found.laue), tables::get_laue_str(s.laue));
    EXPECT_EQ(tables::get_pointgroup_str(found.pg), tables::get_pointgroup_str(s.pg));
  }
}
}  // namespace
