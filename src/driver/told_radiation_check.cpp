#include "told_radiation_check.hpp"

#include <algorithm>
#include <cmath>

#include "pcr_check.hpp"

namespace told_radiation_check {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::told_value;
namespace gslot = kalvaris_params::gslot;

bool told(const told_value& value) { return value.line > 0; }

bool differs(const told_value& value, float used) {
  constexpr double tolerance = 1.0e-4;
  const double a = static_cast<double>(value.value), b = static_cast<double>(used);
  return told(value) && std::abs(a - b) > tolerance * std::max(std::abs(a), std::abs(b));
}

std::string number(float value) { return pcr_check::text_of(static_cast<double>(value)); }

/// The differences of a pattern: what the file tells, with its line, against what is used.
struct differences {
  std::string text;
  bool refined = true;  ///< all of them are of refined quantities
  void add(const told_value& value, const std::string& name, float used, bool is_refined) {
    if (!differs(value, used)) return;
    text += (text.empty() ? "" : "; ") + value.word + " " + number(value.value) + " (line " +
            std::to_string(value.line) + ") against " + name + " " + number(used);
    refined = refined && is_refined;
  }
};

}  // namespace

void look_at(kalvaris_params::state_type& st, int ip, const std::string& file) {
  const pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (p.ixunit != 0) return;
  const auto is_refined = [&](int k) {
    const auto slot = static_cast<std::size_t>(k);
    return p.lglb[slot] > 0 && p.lglb[slot] <= st.run.maxs && p.aglb[slot] != 0.f;
  };
  const float ratio = p.single_wave ? 0.f : p.ratio[1];
  const bool two_in_file = !told(p.told.ratio) || p.told.ratio.value > 0.f;
  differences found;
  found.add(p.told.lambda1, "Lambda1", p.lamda[0], is_refined(gslot::lambda));
  if (two_in_file && ratio > 0.f) found.add(p.told.lambda2, "Lambda2", p.lamda[1], is_refined(gslot::lambda));
  found.add(p.told.ratio, "Ratio", ratio, is_refined(gslot::ratio2));
  if (found.text.empty()) return;
  const std::string of_pattern = st.run.n_patt > 1 ? "pattern " + std::to_string(ip + 1) + ": " : "";
  if (found.refined) {
    st.tell({false, of_pattern + "the refined wavelengths start beside those of " + file + ": " + found.text, {}});
    return;
  }
  const std::string rules = p.resolution.wavel_g ? "the resolution file" : "the control file";
  st.tell({true, of_pattern + file + " tells another radiation than " + rules + ", which is used: " + found.text,
           "Correct the wavelengths, unless the data file is wrong"});
}

}  // namespace told_radiation_check
