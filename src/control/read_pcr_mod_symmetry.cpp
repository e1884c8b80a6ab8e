#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "lmix_crystallographic_symmetry.hpp"
#include "pcr_forms.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::hand_matrix_type;
using kalvaris_params::hand_operator_type;
using kalvaris_params::hand_symmetry_type;
using kalvaris_params::phase_type;
using kalvaris_params::vector_type;
using lmix_fixed_format::fmt_line;
using lmix_string_utilities::u_case;
using pcr_fields::part;
using pcr_lines::place;
namespace sym = lmix_crystallographic_symmetry;

namespace {

constexpr std::size_t symbol_length = 20;  // of a Hermann-Mauguin symbol; what stands behind it is a remark
constexpr std::string_view hall = "HALL";
constexpr int basis_functions = -2, magnetic_group = 2;  // isym

// ---- the symbol -----------------------------------------------------------------------------------------------------

/// A lattice letter with 1 or -1: the symbols that stand over a symmetry given by hand, in any centring.
sym::err_symm_type set_triclinic(std::string_view symbol, sym::space_group_type& group) {
  std::vector<std::string> generators;
  if (symbol.find("-1") != std::string_view::npos) generators.emplace_back("-x,-y,-z");
  const char letter = u_case(symbol.substr(0, 1))[0];
  for (const sym::vector3& t : sym::latsym(letter)) {
    generators.push_back(sym::get_symsymbi({{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}, t));
  }
  return sym::set_spacegroup(symbol.substr(0, 1), group, generators, "GEN");
}

bool is_triclinic_symbol(const std::string& symbol) {
  const std::string packed = lmix_string_utilities::pack_string(symbol);
  return packed.size() > 1 && (packed.substr(1) == "1" || packed.substr(1) == "-1");
}

bool set_group(reading& r, const place& at, phase_type& phase) {
  const bool is_hall = pcr_lines::begins_with(u_case(phase.symb), hall);
  const std::string_view name = is_hall ? std::string_view(phase.symb).substr(hall.size()) : phase.symb;
  auto err = sym::set_spacegroup(lmix_string_utilities::trim(name), phase.spgr, {}, is_hall ? "HAL" : "");
  if (err.err_symm && phase.isym != 0 && is_triclinic_symbol(phase.symb)) err = set_triclinic(phase.symb, phase.spgr);
  if (err.err_symm) return r.in.refuse(at, err.err_symm_mess);
  if (!phase.spgr.note.empty()) {
    const bool origin_in_doubt = phase.spgr.numspg == 0;
    kalvaris_inout::console_line(r.st.io, fmt_line{}
                                              .a(origin_in_doubt ? " Warning! Phase " : " => Note: Phase ")
                                              .i(0, at.phase)
                                              .a(": ")
                                              .a(phase.spgr.note)
                                              .str());
  }
  return true;
}

// ---- operators by hand ----------------------------------------------------------------------------------------------

/// Nine numbers from field `first` on that are integers of a matrix.
bool take_matrix(reading& r, const place& at, std::span<const int, 9> fields, std::array<int, 9>& m) {
  for (std::size_t k = 0; k < 9; ++k) {
    const float element = r.in.f(fields[k]);
    constexpr float largest = 100.f, tolerance = 0.001f;
    const float whole = std::round(element);
    if (!(std::fabs(element) < largest) || std::fabs(element - whole) > tolerance) {
      return r.in.refuse(at, "matrix element is not an integer");
    }
    m[k] = static_cast<int>(whole);
  }
  return true;
}

/// Text such as x,y,z of an operator into its rows.
bool take_text_matrix(reading& r, const place& at, std::string_view text, std::array<int, 9>& m,
                      std::array<float, 3>& t) {
  sym::sym_oper_type op;
  if (const auto err = sym::read_xsym(text, 0, op, false)) return r.in.refuse(at, err.err_symm_mess);
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) m[3 * i + j] = op.rot[i][j];
    t[i] = op.tr[i];
  }
  return true;
}

/// The next line of a symmetry block, kept as it stands; empty at the end of the file.
std::optional<std::string> symmetry_line(reading& r, const place& at, hand_operator_type& op) {
  const auto text = r.in.text(at);
  if (!text) return std::nullopt;
  op.lines.push_back(pcr_lines::without_comment(*text));
  return op.lines.back();
}

/// What follows the word at the beginning of the line, nothing when the line begins with another word.
std::optional<std::string> behind_word(const std::string& line, std::string_view word) {
  if (!pcr_lines::begins_with(u_case(line), word)) return std::nullopt;
  return line.substr(word.size());
}

/// A key word of four letters and what follows it.
void describe_text(reading& r, const place& at, std::span<const pcr_fields::field> fields, std::string_view line) {
  r.in.words(at, fields, std::array{line.substr(0, 4), lmix_string_utilities::trim(line.substr(4))});
}

bool read_operator(reading& r, int ph, hand_operator_type& op) {
  const place at{pcr_forms::symmetry_operator.name, ph + 1};
  const auto line = symmetry_line(r, at, op);
  if (!line) return false;
  if (const auto text = behind_word(*line, "SYMM")) {
    describe_text(r, at, pcr_forms::operator_text_fields, *line);
    if (!take_text_matrix(r, at, *text, op.s, op.t)) return false;
  } else {
    if (!r.in.values_of(at, *line, {pcr_forms::operator_fields})) return false;
    op.t = {r.in.f(3), r.in.f(7), r.in.f(11)};
    if (!take_matrix(r, at, std::array{0, 1, 2, 4, 5, 6, 8, 9, 10}, op.s)) return false;
  }
  sym::matrix3i rot{};
  for (std::size_t k = 0; k < 9; ++k) rot[k / 3][k % 3] = op.s[k];
  return std::abs(sym::determinant(rot)) == 1 || r.in.refuse(at, "the determinant of the operator is not 1 or -1");
}

/// u,v,w,phase behind the word, or ten numbers.
bool read_matrix(reading& r, int ph, std::string_view name, std::string_view word, hand_operator_type& op,
                 std::vector<hand_matrix_type>& to) {
  const place at{name, ph + 1};
  const auto line = symmetry_line(r, at, op);
  if (!line) return false;
  hand_matrix_type matrix;
  if (auto text = behind_word(*line, word)) {
    describe_text(r, at, pcr_forms::matrix_text_fields, *line);
    std::size_t comma = 0;
    for (int k = 0; k < 3 && comma != std::string::npos; ++k) comma = text->find(',', k == 0 ? 0 : comma + 1);
    if (comma != std::string::npos) {
      const std::string phase(lmix_string_utilities::trim(std::string_view(*text).substr(comma + 1)));
      if (!phase.empty() && !lmix_fixed_format::parse_real(phase, matrix.ph)) {
        return r.in.refuse(at, "the phase behind the matrix cannot be read");
      }
      text->erase(comma);
    }
    for (char& c : *text) {
      constexpr std::string_view from = "uvwUVW", to_letters = "xyzXYZ";
      if (const auto k = from.find(c); k != std::string_view::npos) c = to_letters[k];
    }
    std::array<float, 3> none{};
    if (!take_text_matrix(r, at, *text, matrix.m, none)) return false;
  } else {
    if (!r.in.values_of(at, *line, {pcr_forms::matrix_fields})) return false;
    matrix.ph = r.in.f(9);
    if (!take_matrix(r, at, std::array{0, 1, 2, 3, 4, 5, 6, 7, 8}, matrix.m)) return false;
  }
  to.push_back(matrix);
  return true;
}

bool read_basis_line(reading& r, const place& at, const std::string& text, int n_bas,
                     std::vector<std::vector<float>>& to) {
  const int n = 3 * n_bas;
  if (!r.in.values_of(at, lmix_string_utilities::trim(text), {part(pcr_forms::basis_fields, n_bas)})) return false;
  std::vector<float>& functions = to.emplace_back();
  for (int k = 0; k < n; ++k) functions.push_back(r.in.f(k));
  return true;
}

/// BASR with the real parts and, when the next line has them, BASI with the imaginary parts.
bool read_basis(reading& r, int ph, const hand_symmetry_type& hand, hand_operator_type& op) {
  const place at{pcr_forms::basis_functions.name, ph + 1};
  const auto line = symmetry_line(r, at, op);
  if (!line) return false;
  const auto real = behind_word(*line, "BASR");
  if (!real) return r.in.refuse(at, "a line BASR expected");
  if (!read_basis_line(r, at, *real, hand.n_bas, op.basr)) return false;
  if (!pcr_lines::begins_with(u_case(r.in.peek()), "BASI")) {
    op.basi.emplace_back();
    return true;
  }
  const auto imaginary = symmetry_line(r, at, op);
  return read_basis_line(r, at, imaginary->substr(4), hand.n_bas, op.basi);
}

bool read_header(reading& r, int ph, bool basis) {
  const place at{pcr_forms::hand_symmetry.name, ph + 1};
  hand_symmetry_type& hand = r.st.phase[ph].by_hand;
  if (!r.in.values(basis ? pcr_forms::basis_header : pcr_forms::hand_symmetry, ph + 1)) return false;
  hand.nsym = r.in.i(0), hand.cen = r.in.i(1), hand.laue = r.in.i(2);
  if (!r.in.in_range(at, "number of operators", hand.nsym, 1, kalvaris_params::N_EQ)) return false;
  constexpr int monoclinic_unique_c = -2, last_class = 14;
  if (hand.laue != monoclinic_unique_c && !r.in.in_range(at, "Laue class", hand.laue, 1, last_class)) return false;
  if (basis) {
    hand.ireps = r.in.i(3), hand.n_bas = r.in.i(4);
    return r.in.in_range(at, "number of representations", hand.ireps, 1, kalvaris_params::NIREPS) &&
           r.in.in_range(at, "number of basis functions", hand.n_bas, 1, kalvaris_params::NBASIS);
  }
  hand.magmat = r.in.i(3), hand.depmat = r.in.i(4);
  return r.in.in_range(at, "number of magnetic matrices", hand.magmat, 0, kalvaris_params::NMAGM) &&
         r.in.in_range(at, "number of displacement matrices", hand.depmat, 0, kalvaris_params::NMAGM);
}

bool read_indicators(reading& r, int ph) {
  const place at{pcr_forms::indicators.name, ph + 1};
  hand_symmetry_type& hand = r.st.phase[ph].by_hand;
  for (int j = 0; j < hand.ireps; ++j) {
    if (!r.in.values(at, {part(pcr_forms::indicator_fields, hand.n_bas)})) return false;
    std::vector<int>& row = hand.icompl.emplace_back();
    for (int k = 0; k < hand.n_bas; ++k) {
      row.push_back(r.in.i(k));
      if (!r.in.in_range(at, "indicator", row.back(), 0, 1)) return false;
    }
  }
  return true;
}

bool read_hand_symmetry(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  hand_symmetry_type& hand = phase.by_hand;
  const bool basis = phase.isym == basis_functions;
  if (!read_header(r, ph, basis) || (basis && !read_indicators(r, ph))) return false;
  for (int k = 0; k < hand.nsym; ++k) {
    hand_operator_type& op = hand.op.emplace_back();
    if (!read_operator(r, ph, op)) return false;
    for (int j = 0; j < hand.magmat; ++j) {
      if (!read_matrix(r, ph, pcr_forms::magnetic_matrix.name, "MSYM", op, op.mag)) return false;
    }
    for (int j = 0; j < hand.depmat; ++j) {
      if (!read_matrix(r, ph, pcr_forms::displacement_matrix.name, "DSYM", op, op.dep)) return false;
    }
    for (int j = 0; basis && j < hand.ireps; ++j) {
      if (!read_basis(r, ph, hand, op)) return false;
    }
  }
  return true;
}

// ---- propagation vectors --------------------------------------------------------------------------------------------

/// Numbers on a line that holds nothing else, 0 otherwise.
int numbers_on(const std::string& line) {
  const std::string text = pcr_lines::without_comment(line);
  std::string_view rest = text;
  int count = 0;
  for (auto word = lmix_string_utilities::cutst(rest); !word.empty(); word = lmix_string_utilities::cutst(rest)) {
    float number = 0.f;
    if (!lmix_fixed_format::parse_real(word, number)) return 0;
    ++count;
  }
  return count;
}

constexpr std::array<int, 3> components{1, 2, 3};

bool read_vector(reading& r, const place& at, phase_type& phase, bool codes_below) {
  vector_type& v = phase.vector.emplace_back();
  const int number = static_cast<int>(phase.vector.size()) - 1;
  const slot_arrays to{v.pvk, v.avk, v.avk_read, kalvaris_params::slot_family::vector, at.phase - 1, number};
  const part values = part::values(to, components), codes = part::codes(to, components);
  if (!codes_below) return r.in.values(at, {values, codes});
  return r.in.values(at, {values}) && r.in.values({"codes of the propagation vectors", at.phase}, {codes});
}

/// A negative number of vectors: their opposites follow, moving with them.
void append_opposites(phase_type& phase) {
  const std::size_t given = phase.vector.size();
  for (std::size_t j = 0; j < given && phase.nvk < 0; ++j) {
    vector_type v = phase.vector[j];
    for (std::size_t c = 1; c <= 3; ++c) {
      v.pvk[c] = 0.f - v.pvk[c];
      v.avk[c] = v.avk_read[c] = 0.f - v.avk[c];
    }
    phase.vector.push_back(v);
  }
}

}  // namespace

int number_of_operators(const phase_type& phase) {
  if (phase.by_hand.op.empty()) return phase.spgr.multip;
  return static_cast<int>(phase.by_hand.op.size()) * (phase.by_hand.cen == 2 ? 2 : 1);
}

bool read_space_group(reading& r, int ph) {
  const place at{pcr_forms::space_group.name, ph + 1};
  phase_type& phase = r.st.phase[ph];
  const auto line = r.in.text(pcr_forms::space_group, ph + 1);
  if (!line) return false;
  const std::string symbol(line->substr(0, line->find('<')));
  const bool is_hall = pcr_lines::begins_with(u_case(symbol), hall);
  phase.symb = pcr_lines::adjl_tab(is_hall ? lmix_string_utilities::trim(symbol) : symbol.substr(0, symbol_length));
  if (phase.symb.empty()) return r.in.refuse(at, "the symbol is missing");
  if (phase.isym != 0) phase.nlatti = u_case(phase.symb.substr(0, 1))[0];
  // The tables of magnetic and of superspace groups are not built: the lattice alone is known, and nothing is
  // calculated from it.
  const bool modulated = pcr_layout::kind_of(phase) == pcr_layout::jbt::modulated && phase.isym == 0;
  const bool unknown_group = modulated || phase.symb.find("Mag;") != std::string::npos || phase.isym == magnetic_group;
  if (unknown_group) return !sym::set_spacegroup("P 1", phase.spgr).err_symm;
  if (!set_group(r, at, phase)) return false;
  return phase.isym == 0 || read_hand_symmetry(r, ph);
}

bool read_vectors(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  if (phase.nvk == 0) return true;
  const place at{"propagation vectors", ph + 1};
  const int n = std::abs(phase.nvk);
  constexpr int most_numbers = 6;  // a vector with its codes; the lines of a profile block are longer
  int lines = 0;
  for (int found = 1; lines < 2 * n + 1 && found >= 1 && found <= most_numbers;) {
    found = numbers_on(r.in.peek(lines + 1));
    if (found >= 1 && found <= most_numbers) ++lines;
  }
  phase.vectors_behind = lines == 0;
  if (phase.vectors_behind) return true;
  const bool followed_by_atoms = phase.natom > 0;
  if (lines != n && lines != 2 * n && (followed_by_atoms || lines < n)) {
    // Where the numbers end too early stands the wrong word.
    for (int k = lines < 2 * n ? lines : 0; k >= 0; --k) r.in.take();
    return r.in.refuse(at, "one line, or one and its codes, per vector expected");
  }
  const bool codes_below = lines >= 2 * n && numbers_on(r.in.peek()) <= 3;
  for (int j = 0; j < n; ++j) {
    if (!read_vector(r, at, phase, codes_below)) return false;
  }
  append_opposites(phase);
  return true;
}

bool read_vectors_behind(reading& r, int ph) {
  phase_type& phase = r.st.phase[ph];
  if (!phase.vectors_behind) return true;
  for (int j = 0; j < std::abs(phase.nvk); ++j) {
    // Words are counted, not numbers, so that a wrong word is told where it stands.
    const bool codes_below = lmix_string_utilities::getword(pcr_lines::without_comment(r.in.peek())).iv <= 3;
    if (!read_vector(r, {"propagation vectors", ph + 1}, phase, codes_below)) return false;
  }
  append_opposites(phase);
  return true;
}

}  // namespace read_pcr_mod
