// Every number that a run prints: two patterns of unlike data, two phases (one with its inversion off the origin, one
// triclinic), two wavelengths, codes with multipliers 1, 2, -0.5, -1, excluded regions, all shifts. The files are read
// back and compared with the state that the run left and with formulas of the test's own.
#include <functional>
#include <map>
#include <numeric>
#include <random>

#include "../refine/agreement_by_hand.hpp"
#include "kv_background.hpp"
#include "printed_file.hpp"

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::slot_family;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
using program_run::directory;
using program_run::expect_printed;
using program_run::expect_quoted;
using program_run::printed_file;
using program_run::with;
using program_run::words_of;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
constexpr double degree = M_PI / 180.0;
using numbers = std::vector<double>;

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

// ---- what the numbers have to be --------------------------------------------------------------------------------

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

/// The refined model: values of slots as functions of the parameters, deviations of what follows from them.
class refined_model {
 public:
  explicit refined_model(state_type& state) : st(state), reference_(static_cast<std::size_t>(st.run.maxs) + 1, 0.0) {
    st.for_each_slot([&](const slot_ref& s) {
      if (s.number != 0 && reference_.at(static_cast<std::size_t>(s.number)) == 0.0)
        reference_[static_cast<std::size_t>(s.number)] = std::abs(s.code);
    });
  }
  /// How far a slot moves with its parameter.
  [[nodiscard]] double weight(int number, float code) const {
    return number == 0 ? 0.0 : code / reference_.at(static_cast<std::size_t>(number));
  }
  [[nodiscard]] double sigma(int number, float code) const {
    return number == 0 ? 0.0 : std::abs(weight(number, code)) * std::sqrt(st.ne.rjac(number - 1, number - 1));
  }
  [[nodiscard]] double par(int ph, int ip, int k) const {
    const auto& m = st.mix(ph, ip);
    const auto i = static_cast<std::size_t>(k);
    return m.par[i] + (m.lpar[i] == moved_ && moved_ != 0 ? by_ * weight(m.lpar[i], m.apar[i]) : 0.0);
  }
  [[nodiscard]] numbers cell(int ph) const {
    numbers q;
    for (int i = 0; i < 6; ++i) q.push_back(par(ph, 0, slot::cell_a + i));
    return direct_cell(q);
  }
  /// Per cent of the mass from scale, content and volume; both phases leave the same factor out of their F^2: the four
  /// centring vectors of F, the doubled half of the operators of -1.
  [[nodiscard]] double mass_per_cent(int ph, int ip) const {
    const double spinel = 8 * (24.305 + 2 * 26.982 + 4 * 15.999) * par(0, ip, slot::scale) * cell(0)[6];
    const double oxide = 2 * (47.867 + (1 + st.atom[5].xl[aslot::occ]) * 15.999) * par(1, ip, slot::scale) * cell(1)[6];
    return 100 * (ph == 0 ? spinel : oxide) / (spinel + oxide);
  }
  /// Deviation of a quantity from the covariances of those parameters that `names` lets through.
  double deviation(const std::function<double()>& quantity, const std::function<bool(int)>& names) {
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
  double deviation(const std::function<double()>& quantity) {
    return deviation(quantity, [](int) { return true; });
  }

  state_type& st;

 private:
  numbers reference_;
  int moved_ = 0;
  double by_ = 0;
};

struct printed_reflection {
  int ph, wave, k;  ///< k: index in the list
  double d, pos, hw, iobs, icalc, unit;
};

/// Reflections of a pattern, angles from the cell alone.
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

struct r_pair {
  double bragg, f, area;
};
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

/// Reflections of the first wavelength of one phase or of all (-1), each as the part that it has of its own among those
/// within `reach` widths.
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

struct named_slot {
  const char* words;
  int k;
};
constexpr named_slot phase_words[] = {{"Overall scale factor", slot::scale},
                                      {"Shape parameter: eta0 or m0", slot::shape1},
                                      {"Overall temperature factor B", slot::bov},
                                      {"Halfwidth parameter U", slot::u},
                                      {"Halfwidth parameter V", slot::v},
                                      {"Halfwidth parameter W", slot::w},
                                      {"X (Lorentzian strain width, or slope of the shape)", slot::x},
                                      {"Y (Lorentzian size width, or slope of the shape)", slot::y},
                                      {"Preferred orientation G1", slot::pref1},
                                      {"Preferred orientation G2", slot::pref2},
                                      {"Asymmetry parameter P1", slot::asy1},
                                      {"Asymmetry parameter P3", slot::asy3},
                                      {"Axial divergence S_L", slot::s_l},
                                      {"Axial divergence D_L", slot::d_l},
                                      {"Zero shift of the phase", slot::zero_ph},
                                      {"Displacement of the phase", slot::sycos_ph},
                                      {"Transparency of the phase", slot::sysin_ph}};
constexpr named_slot pattern_words[] = {{"Zero shift", gslot::zero},
                                        {"SYCOS: displacement, cosine shift", gslot::sycos},
                                        {"SYSIN: transparency, sine shift", gslot::sysin},
                                        {"Refined wavelength (Lambda1):", gslot::lambda}};

/// Slot that a line " => words   numbers" tells of, the numbers from column `column` on; a background line " n at x".
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
/// The words of the line are the values, each with its digits.
void expect_line(const std::string& text, const numbers& values, int digits = 3) {
  const auto words = words_of(text);
  ASSERT_EQ(words.size(), values.size()) << text;
  for (std::size_t i = 0; i < values.size(); ++i) expect_printed(words[i], values[i], digits);
}

class PrintedNumbers : public testing::Test {
 protected:
  void SetUp() override {
    make_data(where);
    if (HasFatalFailure()) return;
    where.put("pair.pcr", pair_of_patterns);
    run = where.run_and_keep("pair");
    ASSERT_TRUE(run.reached_end) << run.console;
    ASSERT_LT(run.state->run.cycles_done, 30) << "converges";
    model = std::make_unique<refined_model>(*run.state);
  }
  [[nodiscard]] state_type& st() const { return *run.state; }
  [[nodiscard]] pattern_type& pattern(int ip) const { return st().pattern[static_cast<std::size_t>(ip)]; }
  [[nodiscard]] agreement_by_hand::factors factors(int ip, bool bragg) const {
    const auto all = agreement_by_hand::points_of(pattern(ip), st().dim.maxreflx);
    const double share = st().run.maxs / 2;  // whole numbers
    return agreement_by_hand::factors_of(bragg ? bragg_points(all) : all, durbin_watson_sum(all), share);
  }
  [[nodiscard]] double scor(int ip) const {
    return correlated_residuals(agreement_by_hand::points_of(pattern(ip), st().dim.maxreflx));
  }
  [[nodiscard]] double global_chi2() const { return 0.7 * factors(0, true).chi2 + 0.3 * factors(1, true).chi2; }

  void summary_of_phase(printed_file& s, int ph);
  void summary_of_pattern(printed_file& s, int ip);
  void analysis(printed_file& s, int ip);
  void analysis_of_phases(printed_file& s, int ip, int intensity);
  void parameter_table(printed_file& s);
  void listing_of_phase(printed_file& s, int ph);
  void listing_of_pattern(printed_file& s, int ip);
  void listing_of_agreement(printed_file& s, int ip);
  void reflection_list(printed_file& s, int ip, int ph);

  directory where;
  directory::kept_run run;
  std::unique_ptr<refined_model> model;
};

// ---- .sum ---------------------------------------------------------------------------------------------------------

constexpr std::size_t summary_column = 58, listing_column = 56;

void PrintedNumbers::summary_of_phase(printed_file& s, int ph) {
  const auto& phase = st().phase[static_cast<std::size_t>(ph)];
  EXPECT_EQ(first_word(s.behind(" => Phase No. ")), std::to_string(ph + 1));
  s.behind(" => Cell parameters");
  const bool cubic = ph == 0;
  for (std::size_t i = 0; i < 7; ++i) {
    const auto quantity = [&] { return model->cell(ph)[i]; };
    const double sigma = cubic && i > 2 && i < 6 ? 0.0 : model->deviation(quantity);
    expect_quoted(first_word(s.line().substr(summary_column)), quantity(), sigma);
  }
  s.behind("    Name ");
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const auto& atom = st().atom[static_cast<std::size_t>(ia)];
    std::string line = s.line();
    SCOPED_TRACE(line);
    EXPECT_EQ(first_word(line), atom.atext);
    const auto row = [&](std::initializer_list<int> slots) {
      std::size_t column = 12;
      for (const int k : slots) {
        const auto u = static_cast<std::size_t>(k);
        expect_quoted(first_word(line.substr(column, 16)), atom.xl[u], model->sigma(atom.lp[u], atom.a[u]));
        column += 16;
      }
    };
    row({aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ});
    if (atom.n_t == 0) continue;
    line = s.line();
    row({aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23});
  }
  for (int ip : {0, 1}) {
    EXPECT_EQ(first_word(s.behind(" ==> Profile parameters for pattern#")), std::to_string(ip + 1));
    const auto& m = st().mix(ph, ip);
    int refined = 0;
    while (!s.next_begins_with(" => Bragg R-factor:") && !s.at_end()) {
      const std::string line = s.line();
      SCOPED_TRACE(line);
      const auto k = static_cast<std::size_t>(slot_of(line, summary_column, phase_words, pattern(ip)));
      refined += m.lpar[k] != 0;
      expect_quoted(first_word(line.substr(summary_column)), m.par[k], model->sigma(m.lpar[k], m.apar[k]));
    }
    for (int k = 1; k <= slot::last; ++k)
      refined -= m.lpar[static_cast<std::size_t>(k)] != 0 && (k < slot::cell_a || k > slot::cell_f);
    EXPECT_EQ(refined, 0) << "refined parameters are not printed";
    const auto r = r_of(st(), ip, ph);
    const std::string factors = s.behind(" => Bragg R-factor:");
    expect_printed(first_word(factors), r.bragg);
    expect_printed(first_word(after(factors, "RF-factor:")), r.f);
    const auto list = reflections_of(st(), ip);
    const auto count = [&](int waves) {
      return std::ranges::count_if(list, [&](const auto& q) { return q.ph == ph && q.wave <= waves; });
    };
    const std::string line = s.behind(" => Number of reflections:");
    EXPECT_EQ(first_word(line), std::to_string(count(2)));
    EXPECT_EQ(words_of(line).back(), std::to_string(count(1)));
  }
}

void PrintedNumbers::summary_of_pattern(printed_file& s, int ip) {
  SCOPED_TRACE(testing::Message() << "pattern " << ip + 1);
  const pattern_type& p = pattern(ip);
  EXPECT_EQ(first_word(s.behind(" ==> GLOBAL PARAMETERS FOR PATTERN#")), std::to_string(ip + 1));
  s.line();
  while (!s.next_begins_with(" ==> RELIABILITY") && !s.at_end()) {
    const std::string line = s.line();
    SCOPED_TRACE(line);
    if (line.ends_with("==>")) continue;  // a heading
    const auto k = static_cast<std::size_t>(slot_of(line, summary_column, pattern_words, p));
    expect_quoted(first_word(line.substr(summary_column)), p.glb[k], model->sigma(p.lglb[k], p.aglb[k]));
  }
  for (const bool bragg : {false, true}) {
    const auto f = factors(ip, bragg);
    const std::string head =
        s.behind(bragg ? " ==> RELIABILITY FACTORS FOR POINTS WITH BRAGG CONTRIBUTIONS FOR PATTERN:"
                       : " ==> RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS FOR PATTERN:");
    EXPECT_EQ(first_word(head), std::to_string(ip + 1));
    EXPECT_EQ(words_of(head).back(), std::to_string(static_cast<int>(f.n)));
    for (const numbers& four : {numbers{f.rp, f.rwp, f.re, f.chi2}, {f.crp, f.crwp, f.cre, f.chi2}}) {
      EXPECT_EQ(words_of(s.line()).back(), std::to_string(ip + 1));
      const std::string line = s.behind(" => Rp:");
      expect_printed(first_word(line), four[0]);
      expect_printed(first_word(after(line, "Rwp:")), four[1]);
      expect_printed(first_word(after(line, "Rexp:")), four[2]);
      expect_printed(first_word(after(line, "Chi2:")), four[3]);
    }
    std::string line = s.behind(" => Deviance:");
    expect_printed(first_word(line), f.deviance);
    expect_printed(first_word(after(line, "Dev*  :")), f.dstar);
    line = s.behind(" => DW-Stat.:");
    expect_printed(first_word(line), f.dw);
    expect_printed(first_word(after(line, "DW-exp:")), f.dw_limit);
    expect_printed(first_word(s.behind(" => N-sigma of the GoF:")), f.deviate);
  }
  const std::string line = s.behind(" => Scor:");
  expect_printed(first_word(line), scor(ip));
  expect_printed(words_of(line).back(), scor(ip));
  s.behind(" => Mass fractions");
  for (int ph : {0, 1}) {
    const std::string row = s.line();
    EXPECT_EQ(first_word(row), std::to_string(ph + 1));
    const auto of_scales = [&](int n) {  // deviations of volumes and occupancies are left out
      for (int o : {0, 1})
        if (st().mix(o, ip).lpar[slot::scale] == n) return true;
      return false;
    };
    const auto quantity = [&] { return model->mass_per_cent(ph, ip); };
    expect_quoted(first_word(row.substr(summary_column)), quantity(), model->deviation(quantity, of_scales));
  }
}

void PrintedNumbers::analysis(printed_file& s, int ip) {
  SCOPED_TRACE(testing::Message() << "pattern " << ip + 1);
  const pattern_type& p = pattern(ip);
  const auto list = reflections_of(st(), ip);
  EXPECT_EQ(first_word(s.behind("       -    ANALYSIS OF THE REFINEMENT FOR PATTERN #")), std::to_string(ip + 1));
  const double d0 = list.front().d, d1 = list.back().d;
  expect_line(s.behind("    First and last reflections:"), {1.0, static_cast<double>(list.size())}, 1);
  expect_line(s.behind("    2theta(degrees)/T.O.F(microsecs)/Energy(KeV) =>"), {list.front().pos, list.back().pos});
  expect_line(s.behind("    s (angstroms-1) =>"), {1 / d0, 1 / d1});
  expect_line(s.behind("    D (angstroms  ) =>"), {d0, d1});
  expect_line(s.behind("    sin(theta/lamb) =>"), {0.5 / d0, 0.5 / d1});
  expect_line(s.behind("    Q (angstroms-1) =>"), {2 * M_PI / d0, 2 * M_PI / d1});
  double width = 0;
  for (const auto& r : list) width += r.hw / static_cast<double>(list.size());
  std::string line = s.behind("    The average FWHM is:");
  expect_printed(first_word(line), width);
  expect_printed(words_of(line).back(), width / (ip == 0 ? 0.05 : 0.10));

  numbers quarter(4);
  double expected = 0, observed = 0, net = 0;
  for (std::size_t i = 0; i < p.y.size(); ++i) {
    if (p.kr[i] == st().dim.maxreflx) continue;
    quarter[4 * i / p.y.size()] += double(p.y[i]) - p.yc[i] - p.bk[i];
    expected += std::sqrt(2 / M_PI * p.var[i]);
    observed += p.y[i], net += double(p.y[i]) - p.bk[i];
  }
  line = s.behind(" => Sum(Yiobs-Yical):");
  for (std::size_t i = 0; i < 4; ++i) expect_printed(words_of(line).at(i), quarter[i], 1);
  expect_printed(first_word(s.behind("            Total ->")), std::accumulate(quarter.begin(), quarter.end(), 0.0), 1);
  const auto f = factors(ip, false);
  line = s.behind("  Expected Rp (background uncorrected):");
  expect_printed(first_word(line), 100 * expected / observed, 2);
  expect_printed(words_of(line).back(), f.rp);
  line = s.behind("  Expected cRp(background   corrected):");
  expect_printed(first_word(line), 100 * expected / net, 2);
  expect_printed(words_of(line).back(), f.crp);
  expect_printed(words_of(s.behind("  -> Ratio Rp/Exp=cRp/cExp:")).back(), f.rp * observed / (100 * expected), 2);
  const std::array r{r_of(st(), ip, 0), r_of(st(), ip, 1)};
  const double area = r[0].area + r[1].area;
  const auto mean = [&](double r_pair::*q) { return (r[0].*q * r[0].area + r[1].*q * r[1].area) / area; };
  expect_printed(first_word(s.behind("  Weighted Average Bragg R-factor:")), mean(&r_pair::bragg), 2);
  expect_printed(first_word(s.behind("  Weighted Average      RF-factor:")), mean(&r_pair::f), 2);
  expect_printed(first_word(s.behind("  Reduced Chi-square :")), factors(ip, true).chi2, 2);

  const auto independent = std::ranges::count_if(list, [](const auto& q) { return q.wave == 1; });
  EXPECT_EQ(first_word(s.behind(" => Total number of independent reflections:")), std::to_string(independent));
  for (const double reach : {1.0, 0.5, 0.25}) {
    line = s.behind(" => Effective number of reflections (p=");
    expect_printed(line.substr(1, 4), reach, 2);
    expect_printed(words_of(line).back(), effective_number(st(), ip, -1, reach));
  }
  // by hand from the codes above
  const std::array<numbers, 2> counts{numbers{5, 11, 12}, {7, 10, 11}};
  const numbers& n = counts[static_cast<std::size_t>(ip)];
  expect_line(s.behind(" => Number of global parameters:"), {n[0]}, 1);
  expect_line(s.behind(" => Number of profile parameters:"), {n[1]}, 1);
  expect_line(s.behind(" => Number of intensity-affecting parameters:"), {n[2]}, 1);
  for (const auto& [name, reach] :
       {std::pair{"    Pessimistic", 1.0}, {"    Eclectic", 0.5}, {"    Optimistic", 0.25}}) {
    line = s.behind(name);
    expect_printed(after(line, "(p= ").substr(0, 4), reach, 2);
    expect_printed(words_of(line).back(), effective_number(st(), ip, -1, reach) / n[2]);
  }
  analysis_of_phases(s, ip, static_cast<int>(n[2]));
}

void PrintedNumbers::analysis_of_phases(printed_file& s, int ip, int) {
  const auto list = reflections_of(st(), ip);
  const double k = 4 * M_PI / pattern(ip).lamda[0];
  s.behind(" Phase    2Theta/TOF ");
  for (int ph : {0, 1}) {
    const printed_reflection* sharp = nullptr;
    for (const auto& r : list)
      if (r.ph == ph && r.wave == 1 && (sharp == nullptr || r.hw < sharp->hw)) sharp = &r;
    const double theta = 0.5 * sharp->pos * degree, half = 0.5 * sharp->hw * degree, dq = k * std::cos(theta) * half;
    expect_line(s.line(),
                {ph + 1.0, sharp->pos, sharp->hw, k * std::sin(theta), dq, 2 * M_PI / dq, 100 * half / std::tan(theta)},
                1);
  }
  const double total = r_of(st(), ip, 0).area + r_of(st(), ip, 1).area;
  // by hand from the codes above: intensity parameters, then those of profile and cell
  constexpr double intensity[2][2] = {{5, 7}, {4, 7}}, profile[2][2] = {{5, 6}, {3, 7}};
  s.behind(" Phase   %Cont ");
  for (const std::size_t ph : {0u, 1u}) {
    const int i = static_cast<int>(ph);
    const auto own = std::ranges::count_if(list, [&](const auto& q) { return q.ph == i && q.wave == 1; });
    numbers row{ph + 1.0, 100 * r_of(st(), ip, i).area / total, intensity[ip][ph], profile[ip][ph],
                static_cast<double>(own)};
    for (const double reach : {1.0, 0.5, 0.25}) row.push_back(effective_number(st(), ip, i, reach));
    for (const std::size_t of : {5u, 6u, 7u}) row.push_back(row[of] / intensity[ip][ph]);
    expect_line(s.line(), row, 1);
  }
  for (const std::size_t ph : {0u, 1u}) {
    const std::string line = s.behind(" => Phase");
    EXPECT_EQ(first_word(line), std::to_string(ph + 1));
    numbers freedom;
    for (const double reach : {1.0, 0.5, 0.25})
      freedom.push_back(effective_number(st(), ip, static_cast<int>(ph), reach) - intensity[ip][ph]);
    expect_line(after(line, "1/4:"), freedom);
  }
  expect_line(s.behind(" -> SCOR ="), {scor(ip)});
}

/// Value and deviation to the same decimals, at least two digits of the deviation.
void PrintedNumbers::parameter_table(printed_file& s) {
  s.behind(" => Refined parameters, values and standard deviations ==>");
  std::map<int, std::pair<double, double>> wanted;
  st().for_each_slot([&](const slot_ref& q) {
    if (q.number != 0) wanted.try_emplace(q.number, q.value, model->sigma(q.number, q.code));
  });
  for (const auto& [n, value] : wanted) {
    const auto words = words_of(s.line());
    SCOPED_TRACE(words.at(1));
    EXPECT_EQ(words[0], std::to_string(n));
    EXPECT_EQ(words[1], st().parm.nampar.at(static_cast<std::size_t>(n)));
    expect_printed(words.at(2), value.first);
    expect_printed(words.at(3), value.second, 2);
    if (value.second != 0.0) {
      EXPECT_LT(program_run::last_digit_of(words[2]), 0.11 * value.second) << words[2] << " (" << words[3] << ")";
    }
  }
}

TEST_F(PrintedNumbers, OfTheSummary) {
  printed_file s(where.get("pair.sum"));
  s.behind(" ==> RESULTS OF REFINEMENT:");
  const std::string head = s.behind(" => No. of fitted parameters:");
  EXPECT_EQ(first_word(head), "41");
  EXPECT_EQ(words_of(head).back(), std::to_string(st().run.cycles_done));
  for (int ph : {0, 1}) summary_of_phase(s, ph);
  for (int ip : {0, 1}) summary_of_pattern(s, ip);
  expect_line(s.behind(" => Global Chi2 of the last listing:"), {global_chi2()});
  for (int ip : {0, 1}) analysis(s, ip);
  parameter_table(s);
  EXPECT_EQ(
      s.unread({"    Date:", "              CPU", "        ", " => Run finished at:", "    because of", " => PCR"}),
      "");
  EXPECT_EQ(pattern(0).lamda[0], pattern(0).glb[gslot::lambda]);
  EXPECT_NEAR(pattern(0).lamda[1] / pattern(0).lamda[0], 1.54439 / 1.54056, 1e-6);
  // the limit of SyCos holds it: its number has no deviation
  EXPECT_EQ(pattern(1).glb[gslot::sycos], 0.01f);
}

}  // namespace
