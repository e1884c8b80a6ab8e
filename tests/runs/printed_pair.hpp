// A run whose every printed number can be checked: two patterns of unlike data, two phases (one with its inversion off
// the origin, one triclinic), two wavelengths, codes with multipliers 1, 2, -0.5, -1, excluded regions, all shifts, a
// parameter at its limit. And what its numbers have to be, by formulas of the test's own.
#pragma once
#include <functional>
#include <memory>
#include <span>

#include "../refine/agreement_by_hand.hpp"
#include "printed_file.hpp"

namespace printed_pair {

using kalvaris_params::pattern_type;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
using program_run::directory;
using program_run::expect_printed;
using program_run::expect_quoted;
using program_run::printed_file;
using program_run::words_of;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;
constexpr double degree = M_PI / 180.0;
using numbers = std::vector<double>;
constexpr int any = -9;      ///< digits of a number with fixed decimals, which may be small
constexpr int refined = 41;  ///< parameters

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
  [[nodiscard]] numbers cell(int ph) const;  ///< a, b, c [angstrom], alpha, beta, gamma [deg], volume
  /// Per cent of the mass from scale, content and volume; both phases leave the same factor out of their F^2: the four
  /// centring vectors of F, the doubled half of the operators of -1.
  [[nodiscard]] double mass_per_cent(int ph, int ip) const {
    const double spinel = 8 * (24.305 + 2 * 26.982 + 4 * 15.999) * par(0, ip, slot::scale) * cell(0)[6];
    const double oxide = 2 * (47.867 + (1 + st.atom[5].xl[aslot::occ]) * 15.999) * par(1, ip, slot::scale) * cell(1)[6];
    return 100 * (ph == 0 ? spinel : oxide) / (spinel + oxide);
  }
  /// Deviation of a quantity from the covariances of those parameters that `names` lets through.
  double deviation(const std::function<double()>& quantity, const std::function<bool(int)>& names);
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
std::vector<printed_reflection> reflections_of(const state_type& st, int ip);

struct r_pair {
  double bragg, f, area;
};
r_pair r_of(const state_type& st, int ip, int ph);

/// Reflections of the first wavelength of one phase or of all (-1), each as the part that it has of its own among those
/// within `reach` widths.
double effective_number(const state_type& st, int ip, int ph, double reach);

struct named_slot {
  const char* words;
  int k;
};
inline constexpr named_slot phase_words[] = {{"Overall scale factor", slot::scale},
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
inline constexpr named_slot pattern_words[] = {{"Zero shift", gslot::zero},
                                               {"SYCOS: displacement, cosine shift", gslot::sycos},
                                               {"SYSIN: transparency, sine shift", gslot::sysin},
                                               {"Refined wavelength (Lambda1):", gslot::lambda}};

/// Slot that a line " => words   numbers" tells of, the numbers from column `column` on; a background line " n at x".
int slot_of(const std::string& line, std::size_t column, std::span<const named_slot> names, const pattern_type& p);
constexpr std::size_t summary_column = 58, listing_column = 56;

std::string after(const std::string& text, std::string_view words);
std::string first_word(const std::string& text);
/// The first word of columns `first` to `first + width` of a line.
std::string field(const std::string& line, std::size_t first, std::size_t width);
/// The words of the line are the values, each with its digits.
void expect_line(const std::string& text, const numbers& values, int digits = 3);

const std::string& control_file();  ///< of the run, from its start
void make_data(const directory& where);

/// The files of the run and the state that it left.
class PrintedNumbers : public testing::Test {
 protected:
  void SetUp() override;
  [[nodiscard]] state_type& st() const { return *run.state; }
  [[nodiscard]] pattern_type& pattern(int ip) const { return st().pattern[static_cast<std::size_t>(ip)]; }
  [[nodiscard]] agreement_by_hand::factors factors(int ip, bool bragg) const;
  [[nodiscard]] double scor(int ip) const;
  [[nodiscard]] double global_chi2() const { return 0.7 * factors(0, true).chi2 + 0.3 * factors(1, true).chi2; }

  directory where;
  directory::kept_run run;
  std::unique_ptr<refined_model> model;
};

}  // namespace printed_pair
