#include "lmix_bvspar.hpp"

#include <algorithm>
#include <array>

#include "lmix_scattering_chemical_tables.hpp"

namespace lmix_bvspar {
namespace {

constexpr auto table = std::to_array<bvs_par_type>({
#include "tables/bvs_par.inc"
});

}  // namespace

std::span<const bvs_par_type> bvs_par() { return table; }

const bvs_par_type* find_bvs_par(std::string_view cation, int charge, std::string_view anion) {
  using lmix_scattering_chemical_tables::get_chemsymb;
  const std::string first = get_chemsymb(cation), second = get_chemsymb(anion);
  const auto hit = std::find_if(table.begin(), table.end(), [&](const bvs_par_type& row) {
    return row.cation == first && row.charge == charge && row.anion == second;
  });
  return hit == table.end() ? nullptr : &*hit;
}

}  // namespace lmix_bvspar
