#include "printed_pair.hpp"

#include <algorithm>
#include <random>

namespace printed_pair {

namespace {

using program_run::with;

// clang-format off
const std::string pair_of_patterns = R"pcr(Spinel and a triclinic phase, X-rays and neutrons
NPATT 2 1 1
W_PAT 0.7 0.3
!Nph Dum Ias Nre Cry Opt Aut
  2   0   1   1   0   0   0
!Job Npr Nba Nex Nsc Nor Iwg Ilo Res Ste Uni Cor Anm Int
  0   7   0   1   0   1   0   0   0   0   0   0   0   0
  1   5   5   2   0   0   0   0   0   0   0   0   0   0
pair_x.dat
pair_n.dat
!Mat Nxt Nli Jci Jsy Sho
  1   1   0   0   0   0
!Iot Ipl Ipc Ls1 Ls2 Ls3 Prf Ins Jlk Jfo Ana
  1   0   1   0   0   0   1   0   0   0   1
  0   1   1   0   0   0   3  10   0   0   1
!  Lambda1   Lambda2     Ratio     Bkpos       Wdt      Cthm    tmv(1)      Rlim       Rkk    tmv(2)
  1.54056   1.54439       0.5      50.0       8.0    0.7998       0.0       60.0       0.0       0.0
    1.594     1.594       1.0      60.0       6.0       0.0      -0.05      40.0       0.0       0.0
!Mcycle   Eps  Relax1 Relax2 Relax3 Relax4
30 0.05 1.00 1.00 1.00 1.00
!     Thmin        Step       Thmax   Alpsd   Sent0
12.0 0.05 86.0 0.0 0.0
11.0 0.10 110.0 0.0 0.0
! Excluded regions, background points
 40.0 41.5
 11.0 120.0 61.00
 45.0 100.0 70.50
 70.0  90.0 81.00
 90.0  95.0 91.00
110.0 105.0 101.00
 26.0  27.0
 75.0  77.5
! Number of refined parameters (maxs)
41
!    Zero    Code   SyCos    Code   SySin    Code  Lambda     Code  More
0.021 11.00 -0.03 0.00 0.012 0.00 1.54056 401.00 0
160.0 -60.0 25.0 0.0 0.0 0.0
31.00 41.00 51.00 0.0 0.0 0.0
-0.05 21.00 0.015 -411.00 -0.02 0.00 0.00000 0.00 0
Spinel
3 0 0 0 0 0 0 0.000 0 0
1 1
0 7 0 0 0
1.0 1.0 1.0 0.0 0.0 0.0 0.0
0 5 0 0 0
1.0 1.0 1.0 0.0 0.0 0.0 0.0
F d -3 m:1               <-- space group symbol
Mg MG 0.0 0.0 0.0 0.5 0.041667 0 0 0 0
0 0 0 111.00 0
Al AL 0.625 0.625 0.625 0.4 0.083333 0 0 0 0
0 0 0 110.50 0
O1 O 0.3874 0.3874 0.3874 0.6 0.166667 0 0 0 0
121.00 121.00 121.00 131.00 0
0.02 0.0 0.15 0.0 0.0 0.0 0
141.00 0 0 0 0 0
0.009 -0.005 0.009 0.01 0.035 0.0 0.0 0
151.00 -160.50 171.00 0 181.00 0 0
8.0830 8.0830 8.0830 90.0 90.0 90.0
191.00 191.00 191.00 0 0 0
0.93 0.0 0.01 0.0 0.02 0.0 0.02 0.015
361.00 0 0 0 0 0 0 0
1.2 0.25 0.15 0.0 0.0 0.0 0
201.00 211.00 0 0 0 0
0.2 -0.33 0.3 0.001 0.0 0.0 0.0 0
0 0 221.00 0 0 0 0
8.0830 8.0830 8.0830 90.0 90.0 90.0
191.00 191.00 191.00 0 0 0
0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0
0 0 0 0 0 0 0 0
Triclinic oxide
3 0 0 0 0 0 0 0.000 0 0
1 1
0 7 0 0 0
0.0 0.0 1.0 0.0 0.0 0.0 0.0
0 5 0 0 1
0.0 0.0 1.0 0.0 0.0 0.0 0.0
P -1               <-- space group symbol
Ti TI 0.21 0.34 0.13 0.45 1.0 0 0 0 0
231.00 -230.50 241.00 251.00 0
O1 O 0.62 0.11 0.43 0.0 1.0 0 0 2 0
232.00 0 0 0 0
0.0070 0.0085 0.0044 0.0011 -0.0012 0.0009
261.00 271.00 0 -260.50 0 0
O2 O 0.07 0.81 0.57 0.7 0.9 0 0 0 0
0 0 0 250.50 281.00
0.6 0.0 0.0 0.0 0.0 0.0 0
291.00 0 0 0 0 0
0.009 -0.005 0.012 0.02 0.045 0.0 0.0 0
0 0 301.00 0 0 0 0
4.90 5.60 6.40 82.0 97.0 105.0
311.00 321.00 331.00 341.00 -340.50 351.00
1.1 0.0 0.0 0.0 0.0 0.0 0.02 0.02
0 0 0 0 0 0 0 0
12.0 0.25 0.0 0.0 0.0 0.0 0
371.00 0 0 0 0 0
0.2 -0.33 0.3 0.001 0.0 0.0 0.0 0
0 0 381.00 0 0 0 0
4.90 5.60 6.40 82.0 97.0 105.0
311.00 321.00 331.00 341.00 -340.50 351.00
0.0 0.0 0.0 0.0 0.0 0.0 0.0 0.0
0 0 0 0 0 0 0 0
0.01 -0.02 0.03
391.00 0 0
41 0.01 0.2 0 0 none
)pcr";
// clang-format on

/// The text without the names of data, with jobs that only calculate.
std::string calculation_of(std::string text) {
  text = with(text, "pair_x.dat\npair_n.dat\n", "");
  text = with(text, "  0   7   0   1   0   1", "  2   7   0   1   0   1");
  return with(text, "  1   5   5   2", "  3   5   5   2");
}

/// A..F of 1/d^2 to a, b, c [angstrom], alpha, beta, gamma [deg], volume.
numbers direct_cell(const numbers& q) {
  const double a = q[0], b = q[1], c = q[2], d = q[3] / 2, e = q[4] / 2, f = q[5] / 2;  // reciprocal metric tensor
  const double det = a * b * c + 2 * d * e * f - a * d * d - b * e * e - c * f * f;
  const double aa = (b * c - d * d) / det, bb = (a * c - e * e) / det, cc = (a * b - f * f) / det;
  const double bc = (e * f - a * d) / det, ac = (d * f - b * e) / det, ab = (d * e - c * f) / det;
  return {std::sqrt(aa),
          std::sqrt(bb),
          std::sqrt(cc),
          std::acos(bc / std::sqrt(bb * cc)) / degree,
          std::acos(ac / std::sqrt(aa * cc)) / degree,
          std::acos(ab / std::sqrt(aa * bb)) / degree,
          1 / std::sqrt(det)};
}

}  // namespace

const std::string& control_file() { return pair_of_patterns; }

/// Counts about the calculated patterns: noise, and a misfit that no parameter takes away. The second file has
/// deviations that do not follow from its counts.
void make_data(const directory& where) {
  where.put("calculated.pcr", calculation_of(pair_of_patterns));
  const auto run = where.run_and_keep("calculated");
  ASSERT_TRUE(run.reached_end) << run.console;
  std::mt19937 random(11u);
  std::normal_distribution<double> normal;
  std::ostringstream x, n;
  x << "12.0 0.05 86.0 TSAMP 295.5\n";
  n << "XYDATA\nINTER 1.0 1.0 0 0.0\nTEMP 4.25\n\n\nx y sigma\n";
  for (int ip : {0, 1}) {
    const pattern_type& p = run.state->pattern[static_cast<std::size_t>(ip)];
    for (int i = 0; i < p.npts; ++i) {
      const double c = p.y[static_cast<std::size_t>(i)], sigma = std::sqrt(c * (1 + 0.5 * (i % 3)));
      const double y = c * (1 + 0.03 * std::sin(0.13 * i)) + std::sqrt(c) * normal(random);
      if (ip == 0)
        x << std::round(y) << '\n';
      else
        n << p.txv[static_cast<std::size_t>(i)] << ' ' << y << ' ' << sigma << '\n';
    }
  }
  where.put("pair_x.dat", x.str());
  where.put("pair_n.dat", n.str());
}

numbers refined_model::cell(int ph) const {
  numbers q;
  for (int i = 0; i < 6; ++i) q.push_back(par(ph, 0, slot::cell_a + i));
  return direct_cell(q);
}

double refined_model::deviation(const std::function<double()>& quantity, const std::function<bool(int)>& names) {
  numbers slope(reference_.size(), 0.0);
  for (int n = 1; n <= st.run.maxs; ++n) {
    const double step = 1e-2 * std::sqrt(st.ne.rjac(n - 1, n - 1));
    if (step == 0.0 || !names(n)) continue;
    moved_ = n, by_ = step;
    const double up = quantity();
    by_ = -step;
    slope[static_cast<std::size_t>(n)] = (up - quantity()) / (2 * step);
  }
  moved_ = 0;
  double variance = 0;
  for (int i = 0; i < st.run.maxs; ++i)
    for (int j = 0; j < st.run.maxs; ++j)
      variance += slope[static_cast<std::size_t>(i) + 1] * slope[static_cast<std::size_t>(j) + 1] * st.ne.rjac(i, j);
  return std::sqrt(std::max(0.0, variance));
}

std::vector<printed_reflection> reflections_of(const state_type& st, int ip) {
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  std::vector<printed_reflection> list;
  for (int k = 0; k < p.refl.size(); ++k) {
    const auto u = static_cast<std::size_t>(k);
    const auto key = kalvaris_params::unpack_irefs(p.refl.irefs[u]);
    const auto& par = st.mix(key.phase, ip).par;
    const double h = key.h, kk = key.k, l = key.l, monomials[6] = {h * h, kk * kk, l * l, kk * l, h * l, h * kk};
    double q = 0;
    for (std::size_t i = 0; i < 6; ++i) q += monomials[i] * par[slot::cell_a + i];
    const double theta = std::asin(0.5 * p.lamda[static_cast<std::size_t>(key.wave - 1)] * std::sqrt(q));
    const double cosine = ip == 0 ? std::cos(theta) : std::cos(2 * theta);  // neutrons: a capillary
    const double pos = 2 * theta / degree + p.glb[gslot::zero] + par[slot::zero_ph] +
                       (p.glb[gslot::sycos] + par[slot::sycos_ph]) * cosine +
                       (p.glb[gslot::sysin] + par[slot::sysin_ph]) * std::sin(2 * theta);
    list.push_back({key.phase, key.wave, k, 1 / std::sqrt(q), pos, p.refl.hw[u], p.refl.iobs[u], p.refl.icalc[u],
                    double(par[slot::scale]) * p.refl.lp[u]});
  }
  return list;
}

r_pair r_of(const state_type& st, int ip, int ph) {
  double difference = 0, sum = 0, f_difference = 0, f_sum = 0, area = 0;
  for (const auto& r : reflections_of(st, ip)) {
    if (r.ph != ph) continue;
    const double fo = std::sqrt(r.iobs / r.unit), fc = std::sqrt(r.icalc / r.unit);
    difference += std::abs(r.iobs - r.icalc), sum += r.iobs;
    f_difference += std::abs(fo - fc), f_sum += fo;
    if (r.wave == 1) area += r.icalc;
  }
  return {100 * difference / sum, 100 * f_difference / f_sum, area};
}

double effective_number(const state_type& st, int ip, int ph, double reach) {
  double total = 0;
  const auto all = reflections_of(st, ip);
  for (const auto& r : all) {
    if (r.wave != 1 || (ph >= 0 && r.ph != ph) || r.icalc <= 0) continue;
    double near = 0;
    for (const auto& o : all)
      if (o.wave == 1 && o.ph == r.ph && std::abs(o.pos - r.pos) <= reach * r.hw) near += o.icalc;
    total += r.icalc / near;
  }
  return total;
}

int slot_of(const std::string& line, std::size_t column, std::span<const named_slot> names, const pattern_type& p) {
  std::string words = line.substr(0, column);
  words.erase(words.find_last_not_of(' ') + 1);
  for (const named_slot& n : names)
    if (words == std::string(" => ") + n.words) return n.k;
  const auto parts = words_of(words);
  if (parts.empty() || parts[0].find_first_not_of("0123456789") != std::string::npos) {
    ADD_FAILURE() << "unknown words: " << line;
    return 0;
  }
  const int j = std::stoi(parts[0]);
  if (!p.pos.empty()) expect_printed(parts.at(2), p.pos.at(static_cast<std::size_t>(j - 1)));
  return gslot::bac + j - 1;
}

std::string after(const std::string& text, std::string_view words) {
  const auto at = text.find(words);
  EXPECT_NE(at, std::string::npos) << words << " in " << text;
  return at == std::string::npos ? "" : text.substr(at + words.size());
}
std::string first_word(const std::string& text) {
  const auto words = words_of(text);
  EXPECT_FALSE(words.empty());
  return words.empty() ? "" : words[0];
}
void expect_line(const std::string& text, const numbers& values, int digits) {
  const auto words = words_of(text);
  ASSERT_EQ(words.size(), values.size()) << text;
  for (std::size_t i = 0; i < values.size(); ++i) expect_printed(words[i], values[i], digits);
}

std::string field(const std::string& line, std::size_t first, std::size_t width) {
  return first < line.size() ? first_word(line.substr(first, width)) : "";
}

void PrintedNumbers::SetUp() {
  make_data(where);
  if (HasFatalFailure()) return;
  where.put("pair.pcr", pair_of_patterns);
  run = where.run_and_keep("pair");
  ASSERT_TRUE(run.reached_end) << run.console;
  ASSERT_LT(run.state->run.cycles_done, 30) << "converges";
  ASSERT_EQ(run.state->run.maxs, refined);
  model = std::make_unique<refined_model>(*run.state);
}

agreement_by_hand::factors PrintedNumbers::factors(int ip, bool bragg) const {
  const auto all = agreement_by_hand::points_of(pattern(ip), st().dim.maxreflx);
  const double share = refined / 2;  // whole numbers
  return agreement_by_hand::factors_of(bragg ? bragg_points(all) : all, durbin_watson_sum(all), share);
}

double PrintedNumbers::scor(int ip) const {
  return correlated_residuals(agreement_by_hand::points_of(pattern(ip), st().dim.maxreflx));
}

}  // namespace printed_pair
