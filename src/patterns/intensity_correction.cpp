#include "intensity_correction.hpp"

#include <algorithm>
#include <cmath>
#include <span>
#include <string>
#include <string_view>

#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_math_general.hpp"
#include "lmix_text_input.hpp"

namespace intensity_correction {

namespace {

using kalvaris_params::correction_type;
using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_list_input::read_values;
using lmix_text_input::text_source;

constexpr int table_of_intensities = 1, polynomial = 2;         // icorr
constexpr int multiplies_intensities = 1, divides_profile = 2;  // itycorr

bool fail(state_type& st, const text_source& in, std::string_view expected) {
  st.io.file_error = true;
  st.io.file_error_mess = " => Error in the file of intensity corrections (file " + st.io.namefil + ", line " +
                          std::to_string(in.lines_taken()) + ": expected ";
  st.io.file_error_mess += expected;
  st.io.file_error_mess += ')';
  return false;
}

std::string too_many() { return "at most " + std::to_string(NPRC) + " rows or coefficients"; }

bool read_table(state_type& st, text_source& in, correction_type& c) {
  c.corrp.clear(), c.corrv.clear();
  while (const auto line = in.next()) {
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    float x = 0.f, factor = 0.f;
    if (!read_values(*line, x, factor).full() || !(factor > 0.f) || (!c.corrp.empty() && !(x > c.corrp.back())))
      return fail(st, in, "an abscissa above the one before and a factor above 0");
    if (c.corrp.size() >= std::size_t{NPRC}) return fail(st, in, too_many());
    c.corrp.push_back(x);
    c.corrv.push_back(factor);
  }
  return !c.corrp.empty() || fail(st, in, "rows of abscissa and factor");
}

bool read_polynomial(state_type& st, text_source& in, correction_type& c) {
  int n = 0;
  const auto head = in.peek_value();
  const bool read = head && read_values(*head, c.itycorr, c.ityfunc, n).full();
  while (const auto line = in.next())
    if (!lmix_text_input::is_blank_or_comment(*line)) break;
  if (!read || (c.itycorr != multiplies_intensities && c.itycorr != divides_profile) || c.ityfunc != 1 || n < 1)
    return fail(st, in, "1 (intensities) or 2 (profile), 1 (polynomial), number of coefficients");
  if (n > NPRC) return fail(st, in, too_many());
  c.corrv.assign(static_cast<std::size_t>(n), 0.f);
  return lmix_list_input::read_list(in, std::span<float>(c.corrv)).full() ||
         fail(st, in, std::to_string(n) + " coefficients");
}

double table_value(const correction_type& c, double x) {
  if (c.corrp.size() < 2) return double{c.corrv.front()};
  const std::size_t above = lmix_math_general::locate(std::span<const float>(c.corrp), static_cast<float>(x));
  const std::size_t j = std::clamp<std::size_t>(above, 1, c.corrp.size() - 1);
  const double x0 = double{c.corrp[j - 1]}, x1 = double{c.corrp[j]};
  const double v0 = double{c.corrv[j - 1]}, v1 = double{c.corrv[j]};
  return v0 + (v1 - v0) * (x - x0) / (x1 - x0);
}

}  // namespace

bool read_cor(state_type& st, int ip) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  p.correction = {};
  if (p.icorr == 0) return true;
  st.io.file_error = false;
  kalvaris_inout::openfile(st.io, {.key = kalvaris_inout::file_key::corrections, .ipat = ip + 1});
  if (st.io.file_error) return false;
  const auto text = kalvaris_inout::content(st.io, kalvaris_inout::unit::corrections);
  kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::corrections);
  text_source in = text_source::from_string(text.value_or(""));
  in.next();
  correction_type c;
  if (!(p.icorr == table_of_intensities ? read_table : read_polynomial)(st, in, c)) return false;
  p.correction = std::move(c);
  return true;
}

double corr_int(const correction_type& c, int icorr, double x) {
  if (icorr == table_of_intensities && !c.corrp.empty()) return table_value(c, x);
  double sum = 0;
  for (auto v = c.corrv.rbegin(); v != c.corrv.rend(); ++v) sum = sum * x + double{*v};
  return sum;
}

bool acts_on_reflections(const pattern_type& p) {
  return p.icorr == table_of_intensities || (p.icorr == polynomial && p.correction.itycorr == multiplies_intensities);
}

bool corr_prof(state_type& st, int ip) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  if (p.icorr == 0) return true;
  const bool divides = p.icorr == polynomial && p.correction.itycorr == divides_profile;
  std::vector<float> y = p.y, var = p.var;
  for (std::size_t i = 0; i < y.size(); ++i) {
    const double factor = corr_int(p.correction, p.icorr, double{p.txv[i]});
    if (!(factor > 0) || !std::isfinite(factor)) {
      st.io.file_error = true;
      st.io.file_error_mess = " => The correction of the intensities is not above 0 at " +
                              lmix_fixed_format::fmt_line{}.f(0, 4, double{p.txv[i]}).str();
      return false;
    }
    if (!divides) continue;
    y[i] = static_cast<float>(double{y[i]} / factor);
    var[i] = static_cast<float>(double{var[i]} / (factor * factor));
  }
  p.y = std::move(y);
  p.var = std::move(var);
  if (divides && !p.y.empty()) p.yo_max = *std::max_element(p.y.begin(), p.y.end());
  return true;
}

}  // namespace intensity_correction
