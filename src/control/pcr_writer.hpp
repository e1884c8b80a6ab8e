// pcr_writer: the parts of the control file in the order in which they are written.
// It owns nothing: each operation appends its lines to the text, the comment above them included.
#pragma once
#include <string>
#include <string_view>

#include "kalvaris_params.hpp"

namespace read_pcr_mod {

/// All of the control file but the comments of the user.
[[nodiscard]] std::string write_without_comments(const kalvaris_params::state_type& st, std::string_view date_line);

/// Puts the comments of the user back where they stood.
[[nodiscard]] std::string with_user_comments(const kalvaris_params::run_type& run, std::string_view text);

struct writing {
  const kalvaris_params::state_type& st;
  std::string text;
};

void write_head(writing& w, std::string_view date_line);
void write_flags(writing& w);
void write_patterns(writing& w);  ///< from the radiation line to the background
void write_phase(writing& w, int ph);
void write_body(writing& w, const kalvaris_params::rigid_body_type& body);  ///< with its atoms
void write_harmonics(writing& w, const kalvaris_params::atom_type& atom);   ///< of a modulated atom
void write_modes(writing& w, const kalvaris_params::phase_type& phase);
void write_lists(writing& w, int ip);  ///< Laue and multi-phase data
void write_end(writing& w);            ///< limits, pattern to plot

}  // namespace read_pcr_mod
