// pcr_profile: the lines of a profile block in the order of the file, which stand by what was read before them.
// It owns the table that the reader and the writer of the control file both walk; a row added here is read and written.
// It reads the state and changes nothing.
#pragma once
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"
#include "pcr_fields.hpp"

namespace pcr_profile {

/// Whose block it is. All indices 0-based.
struct block {
  const kalvaris_params::state_type& st;
  int ph, ip;
  [[nodiscard]] const kalvaris_params::pattern_type& pattern() const {
    return st.pattern[static_cast<std::size_t>(ip)];
  }
  [[nodiscard]] const kalvaris_params::phase_type& phase() const { return st.phase[static_cast<std::size_t>(ph)]; }
  [[nodiscard]] const kalvaris_params::mix_type& mix() const { return st.mix(ph, ip); }
};

/// How a line is laid out.
enum class layout {
  coded,       ///< values, then a line of their codes; more than `per_line` values take further pairs of lines
  pairs,       ///< value, code, value, code ... on one line
  direction,   ///< three numbers without codes
  axes,        ///< number of axes and steps, then per axis: direction, coefficient, code, fraction, code
  conditions,  ///< per slot: n1 n2 n3 n4 n5, value, code
  special,     ///< per special reflection: h k l nvk, then five values with their codes
};

/// Which integer stands behind the values of a coded line.
enum class model { none, strain, size, shift, scales, extinction };

/// A step of the reader behind a line.
enum class check { none, shape, widths, cell, tof };

struct line {
  std::string_view name;  ///< as messages call it
  layout kind = layout::coded;
  std::string_view header;  ///< comment above it, blank when header_of makes it
  bool (*stands)(const block&) = nullptr;
  std::vector<int> (*slots)(const block&) = nullptr;
  std::string (*header_of)(const block&) = nullptr;
  model behind = model::none;
  check then = check::none;
  std::size_t per_line = 8;

  [[nodiscard]] std::string comment(const block& b) const { return header_of ? header_of(b) : std::string(header); }
};

/// All lines that a block can have, in their order.
[[nodiscard]] std::span<const line> lines();

/// What the integer behind the values of a line is.
[[nodiscard]] std::span<const pcr_fields::field> model_fields(model behind, const kalvaris_params::phase_type& phase);

/// Integers in front of a special reflection: h k l and the propagation vector, or the indices of the modulation.
[[nodiscard]] std::size_t special_indices(const kalvaris_params::phase_type& phase);

/// Name of the term of a form or of harmonics whose coefficient stands in slot k, such as S_400; blank without one.
[[nodiscard]] std::string_view term_of(const block& b, int k);

/// Slots that lines of coefficients fill although the scale line or the width line has a field for them: the field is
/// 0.
[[nodiscard]] bool taken_by_coefficients(const block& b, int k);

/// Coefficients of a model that have lines of their own; none for a model without such lines.
struct terms_of_model {
  std::string_view terms;  ///< blank-separated names in the order of the slots
  std::string_view laue;   ///< Laue class that it serves
  [[nodiscard]] int count() const;
};
[[nodiscard]] terms_of_model strain_terms(int istr, int ismo);
[[nodiscard]] terms_of_model size_harmonics(int isi);
[[nodiscard]] terms_of_model shift_terms(int ishif);

// Models are known or unknown; 0 is always known.
[[nodiscard]] bool known_strain_model(int istr, int ismo);
[[nodiscard]] bool known_size_model(int isi);
[[nodiscard]] bool known_shift_model(int ishif);

}  // namespace pcr_profile
