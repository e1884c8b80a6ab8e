#include "kv_assignk.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <utility>

#include "kv_peak_geometry.hpp"
#include "lmix_fixed_format.hpp"
#include "reflections_mod.hpp"

namespace kv_assignk {

namespace {

using kalvaris_inout::stop_cond;
using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;
namespace slot = kalvaris_params::slot;

/// First and last reflection of every point, 1-based, 0 none. An excluded point holds lo 0, hi 1.
struct point_table {
  std::vector<int> lo, hi;
};

/// 1-based point of an abscissa: below 1 before the pattern, above npts behind it.
int point_number(const pattern_type& p, double x) {
  if (p.iconstep) return static_cast<int>(std::clamp((x - p.thmin) / p.step + 1.5, -1.0, p.npts + 2.0));
  const auto end = p.txv.begin() + p.npts;
  if (x > *(end - 1)) return p.npts + 1;
  return static_cast<int>(std::upper_bound(p.txv.begin(), end, x) - p.txv.begin());
}

/// Writes a number into all points of a range that have none yet; each point is visited once over all calls.
class first_come {
 public:
  explicit first_come(int npts) : next_(static_cast<std::size_t>(npts) + 1) {
    std::iota(next_.begin(), next_.end(), 0);
  }
  void fill(const point_range& range, int number, std::vector<int>& where) {
    for (int i = free_from(range.first); i < range.last; i = free_from(i)) {
      where[static_cast<std::size_t>(i)] = number;
      next_[static_cast<std::size_t>(i)] = i + 1;
    }
  }

 private:
  int free_from(int i) {
    int root = i;
    while (next_[static_cast<std::size_t>(root)] != root) root = next_[static_cast<std::size_t>(root)];
    while (next_[static_cast<std::size_t>(i)] != root) i = std::exchange(next_[static_cast<std::size_t>(i)], root);
    return root;
  }
  std::vector<int> next_;  ///< a point, or one towards the next that is free
};

void set_reach(state_type& st, int ip) {
  auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  auto& list = pattern.refl;
  const auto n = static_cast<std::size_t>(list.size());
  list.first_point.assign(n, 0);
  list.last_point.assign(n, 0);
  std::vector<kv_peak_geometry::shift_model> shifts;
  for (int ph = 0; ph < st.run.nphase; ++ph) shifts.push_back(kv_peak_geometry::make_shift_model(st, ip, ph));
  for (std::size_t k = 0; k < n; ++k) {
    const int ph = kalvaris_params::unpack_irefs(list.irefs[k]).phase;
    const double position = kv_peak_geometry::apply_shifts(shifts[static_cast<std::size_t>(ph)], list.pos[k]).pos;
    const double left = double{list.hw[k]} * pattern.wdt;
    const double right = st.mix(ph, ip).npro == 11 ? double{list.halfl[k]} * pattern.wdt : left;
    const point_range range = points_between(pattern, position - left, position + right);
    list.first_point[k] = range.first;
    list.last_point[k] = range.last;
  }
}

point_table first_and_last(const pattern_type& pattern) {
  const auto& list = pattern.refl;
  const auto npts = static_cast<std::size_t>(pattern.npts);
  point_table table{std::vector<int>(npts), std::vector<int>(npts)};
  const auto reach = [&list](int k) {
    const auto i = static_cast<std::size_t>(k);
    return point_range{list.first_point[i], list.last_point[i]};
  };
  first_come from_below(pattern.npts), from_above(pattern.npts);
  for (int k = 0; k < list.size(); ++k) from_below.fill(reach(k), k + 1, table.lo);
  for (int k = list.size() - 1; k >= 0; --k) from_above.fill(reach(k), k + 1, table.hi);
  return table;
}

void mark_excluded(const pattern_type& pattern, point_table& table) {
  for (const auto& region : pattern.excluded) {
    if (!(pattern.thmin < region.ahigh)) continue;
    const point_range out = points_between(pattern, region.alow, region.ahigh);
    for (int i = out.first; i < out.last; ++i) {
      table.lo[static_cast<std::size_t>(i)] = 0;
      table.hi[static_cast<std::size_t>(i)] = 1;
    }
    if (out.last == pattern.npts) return;
  }
}

/// The first point whose lowest reflection is not the first of the list is given it, once, so that the reflections
/// below all points are computed too.
void pack(pattern_type& pattern, const point_table& table, int maxreflx) {
  pattern.kr.resize(table.lo.size());
  for (std::size_t i = 0; i < table.lo.size(); ++i)
    pattern.kr[i] = kalvaris_params::pack_kr(table.lo[i], table.hi[i], maxreflx);
  const auto late = std::find_if(table.lo.begin(), table.lo.end(), [](int lo) { return lo > 1; });
  if (late == table.lo.end()) return;
  const auto i = static_cast<std::size_t>(late - table.lo.begin());
  pattern.kr[i] = kalvaris_params::pack_kr(1, table.hi[i], maxreflx);
}

void write_reflections(state_type& st, const pattern_type& pattern) {
  auto& out = kalvaris_inout::out(st.io, kalvaris_inout::unit::listing);
  const auto& list = pattern.refl;
  for (std::size_t k = 0; k < static_cast<std::size_t>(list.size()); ++k) {
    if (k % 100 == 0)
      out << "   No.  Code       H   K   L  Phase      Hw           2THETA/TOF    jLpAbs  d-spacing   tof_alfa  "
             "tof_beta\n";
    const auto key = kalvaris_params::unpack_irefs(list.irefs[k]);
    out << fmt_line{}
               .i(6, static_cast<long long>(k) + 1)
               .i(6, key.wave)
               .x(3)
               .i(4, key.h)
               .i(4, key.k)
               .i(4, key.l)
               .i(7, key.phase + 1)
               .f(14, 6, list.hw[k])
               .f(14, 5, list.pos[k])
               .g(12, 4, list.lp[k])
               .f(11, 6, list.dspacing[k])
               .f(10, 4, 0)
               .f(10, 4, 0)
               .str()
        << '\n';
  }
}

void write_points(state_type& st, const pattern_type& pattern, const point_table& table) {
  auto& out = kalvaris_inout::out(st.io, kalvaris_inout::unit::listing);
  out << "  2theta  "
      << "       Ytotal         Backg "
      << "         Ynet      Variance    K11    K21 \n";
  const std::size_t n = std::min({table.lo.size(), pattern.y.size(), pattern.var.size(), pattern.txv.size()});
  for (std::size_t i = 0; i < n; ++i) {
    const float bk = i < pattern.bk.size() ? pattern.bk[i] : 0.f;
    out << fmt_line{}
               .f(10, 4, pattern.txv[i])
               .f(13, 2, pattern.y[i])
               .f(14, 2, bk)
               .f(14, 2, pattern.y[i] - bk)
               .f(14, 2, pattern.var[i])
               .i(7, table.lo[i])
               .i(7, table.hi[i])
               .str()
        << '\n';
  }
}

void check_overlap(state_type& st, int ip, const point_table& table) {
  for (std::size_t i = 0; i < table.lo.size(); ++i) {
    const int reflections = table.hi[i] - table.lo[i];
    if (reflections <= st.dim.maxoverl) continue;
    auto& out = kalvaris_inout::out(st.io, kalvaris_inout::unit::listing);
    out << fmt_line{}.a(" => Excessive peak overlap for pattern ").i(3, ip + 1).str() << '\n'
        << "    at the " << i + 1 << "th step there are " << reflections << " reflections\n"
        << " => Solutions:\n"
        << fmt_line{}
               .a("    Decrease the value of *WDT* which is now ")
               .f(8, 3, st.pattern[static_cast<std::size_t>(ip)].wdt)
               .str()
        << '\n'
        << "    Perhaps the FWHM parameters give too broad peaks\n"
        << "    Change the starting values of FWHM parameters!\n"
        << "    The maximun allowed number of reflections contributing\n"
        << "    to a single point is: " << st.dim.maxoverl << '\n';
    kalvaris_inout::mess_cons(st.io, " Excessive peak overlap! (see *.OUT)");
    stop_cond(st.io, " Excessive peak overlap", true);
  }
}

void check_any(state_type& st, const pattern_type& pattern) {
  const int base = st.dim.maxreflx;
  const auto empty = [base](std::int64_t kr) { return kr == 0 || kalvaris_params::kr_excluded(kr, base); };
  if (std::all_of(pattern.kr.begin(), pattern.kr.end(), empty))
    stop_cond(st.io, " NO REFLECTIONS FOUND -> Check your INS parameter for input data and/or ZERO point", true);
}

bool asymmetry_refined(const state_type& st, int ip) {
  for (int ph = 0; ph < st.run.nphase; ++ph)
    for (const int k : {int{slot::asy1}, int{slot::asy2}, int{slot::asy3}, int{slot::asy4}})
      if (st.mix(ph, ip).lpar[static_cast<std::size_t>(k)] != 0) return true;
  return false;
}

void check_asymmetry(state_type& st, int ip, const point_table& table) {
  const auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  const auto first = std::find_if(table.lo.begin(), table.lo.end(), [](int lo) { return lo > 0; });
  if (first == table.lo.end() || !asymmetry_refined(st, ip)) return;
  if (pattern.refl.pos[static_cast<std::size_t>(*first - 1)] < pattern.rlim) return;
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << " => Asymmetry parameters usage invalid !!\n";
  kalvaris_inout::mess_cons(st.io, " Asymmetry parameters usage invalid !! ... Check RLIM or diminish WDT!");
  stop_cond(st.io, " Asymmetry parameters usage invalid !!", true);
}

void check_preferred_orientation(state_type& st, int ip) {
  constexpr float none = 1.0e-7f;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    const auto& mix = st.mix(ph, ip);
    const bool dead = std::abs(mix.par[slot::pref1]) <= none && std::abs(mix.par[slot::pref2]) <= none;
    if (!dead || mix.lpar[slot::pref2] == 0) continue;
    kalvaris_inout::out(st.io, kalvaris_inout::unit::listing) << " => Preferred orientation usage invalid !!\n";
    stop_cond(st.io, " Preferred orientation usage invalid !!", true);
  }
}

}  // namespace

point_range points_between(const pattern_type& pattern, double low, double high) {
  if (!(low <= high) || pattern.npts < 1) return {};
  const int first = std::max(point_number(pattern, low), 1), last = std::min(point_number(pattern, high), pattern.npts);
  return first <= last ? point_range{first - 1, last} : point_range{};
}

void assignk(state_type& st, int ip) {
  auto& pattern = st.pattern[static_cast<std::size_t>(ip)];
  kalvaris_inout::message_cons(st.io, " Ordering reflections contributing to each point for pattern:", ip + 1, 0.f, 1);
  if (st.run.nphase > 1) reflections_mod::sort_all(st, ip);
  if (pattern.lst3 != 0) write_reflections(st, pattern);
  set_reach(st, ip);
  point_table table = first_and_last(pattern);
  mark_excluded(pattern, table);
  pack(pattern, table, st.dim.maxreflx);
  if (pattern.lst2 == 1) write_points(st, pattern, table);
  check_overlap(st, ip, table);
  check_any(st, pattern);
  check_asymmetry(st, ip, table);
  check_preferred_orientation(st, ip);
}

}  // namespace kv_assignk
