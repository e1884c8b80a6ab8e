#include <cmath>

#include "kv_read_intens_parts.hpp"

// Correction of the measured profile by a polynomial: the efficiency of a detector, say.

namespace kv_read_intens {

namespace {

/// A correction file: kind of correction, kind of function and number of coefficients in the first line that is no
/// comment; then the coefficients of 1, x, x^2 and so on.
bool read_polynomial(text_source& file, const std::string& name, std::vector<float>& coefficients, std::string& fault) {
  constexpr int of_the_profile = 2, polynomial = 1, most = 30;
  const auto here = [&] { return " => File: " + name + ", line: " + std::to_string(file.lines_taken()) + ": "; };
  const auto first = file.peek_value();
  while (file.peek() && file.peek() != first) file.next();
  int kind = 0, function = 0, n = 0;
  const auto line = file.next();
  if (!line || !lmix_list_input::read_values(*line, kind, function, n).full()) {
    fault = here() + "kind of correction, kind of function and number of coefficients expected";
  } else if (kind != of_the_profile || function != polynomial) {
    fault = here() + "kind of correction " + std::to_string(kind) + ", function " + std::to_string(function) +
            ": only 2 1, a polynomial that divides the profile, is available";
  } else if (n < 1 || n > most) {
    fault = here() + std::to_string(n) + " coefficients, 1 to " + std::to_string(most) + " expected";
  } else {
    coefficients.assign(static_cast<std::size_t>(n), NaN);
    const list_result found = lmix_list_input::read_list(file, std::span<float>(coefficients));
    if (!found.full())
      fault = here() + "coefficient " + std::to_string(found.count + 1) + " of " + std::to_string(n) + " expected";
  }
  return fault.empty();
}

double polynomial_at(std::span<const float> coefficients, float x) {
  double sum = 0;  // double: powers of 100 degrees
  for (std::size_t k = coefficients.size(); k-- > 0;)
    sum = sum * static_cast<double>(x) + static_cast<double>(coefficients[k]);
  return sum;
}

void stop_at(state_type& st, const std::string& fault) {
  kalvaris_inout::console_line(st.io, fault);
  kalvaris_inout::both_listings(st.io, fault);
  kalvaris_inout::stop_cond(st.io, interrupted, true);
}

}  // namespace

void corr_prof(state_type& st, int ip) {
  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  kalvaris_inout::openfile(st.io, {.key = kalvaris_inout::file_key::corrections, .ipat = ip + 1});
  if (st.io.file_error) return kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
  const std::string name = st.io.namefil;
  text_source file = text_source::from_string(
      kalvaris_inout::content(st.io, kalvaris_inout::unit::corrections).value_or(std::string()));
  kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::corrections);
  std::vector<float> coefficients;
  std::string fault;
  if (!read_polynomial(file, name, coefficients, fault)) return stop_at(st, fault);
  std::vector<float> divisor(p.y.size());
  for (std::size_t i = 0; i < divisor.size(); ++i) {
    divisor[i] = static_cast<float>(polynomial_at(coefficients, p.txv[i]));
    const float corrected = p.var[i] / (divisor[i] * divisor[i]);
    if (!(divisor[i] > 0.f && corrected > 0.f && std::isfinite(corrected) && std::isfinite(p.y[i] / divisor[i])))
      return stop_at(st, " => File: " + name + ": the correction is " + number_text(divisor[i]) + " at" +
                             point_text(i, p.txv[i]) + ", a positive number expected");
  }
  p.yo_max = 0.f;
  for (std::size_t i = 0; i < divisor.size(); ++i) {
    p.y[i] /= divisor[i];
    p.var[i] /= divisor[i] * divisor[i];
    p.yo_max = std::max(p.yo_max, p.y[i]);
  }
  kalvaris_inout::out(st.io, kalvaris_inout::unit::listing)
      << " => Intensities divided by the polynomial of the file " << name << '\n';
}

}  // namespace kv_read_intens
