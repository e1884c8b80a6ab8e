#include "kv_running_output.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "kv_background.hpp"
#include "kv_listing_text.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_running_output {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::run_type;
using kalvaris_params::state_type;
using kv_listing_text::at;
using kv_listing_text::list;
using lmix_fixed_format::fmt_line;
namespace gslot = kalvaris_params::gslot;
namespace slot = kalvaris_params::slot;

struct flag_words {
  int value;
  std::string_view words;
};

constexpr std::array job_words{
    flag_words{0, " => Refinement, X-ray data"},        flag_words{1, " => Refinement, neutron data"},
    flag_words{4, " => Refinement, electron data"},     flag_words{2, " => Pattern calculation, X-ray"},
    flag_words{3, " => Pattern calculation, Neutrons"}, flag_words{-1, " => Refinement, neutron data"},
    flag_words{-2, " => Pattern calculation, X-ray"},   flag_words{-3, " => Pattern calculation, Neutrons"},
};
constexpr std::array geometry_words{
    flag_words{-2, " => Debye-Scherrer geometry, conventional X-rays"},
    flag_words{-1, " => Lorentz-polarisation not applied: the profile is corrected"},
    flag_words{0, " => Bragg-Brentano geometry (X-rays) or Debye-Scherrer geometry (neutrons)"},
    flag_words{1, " => Flat plate with position-sensitive detector at a fixed incident angle"},
    flag_words{2, " => Transmission, flat sample, bisecting geometry"},
    flag_words{3, " => Synchrotron, Debye-Scherrer geometry"},
    flag_words{4, " => Transmission, flat sample, fixed incident angle"},
    flag_words{5, " => Bragg-Brentano geometry with thin-film corrections"},
    flag_words{6, " => Bragg-Brentano geometry with automatic variable slit"},
};
constexpr std::array orientation_words{
    flag_words{0, " => Exponential function for preferred orientation"},
    flag_words{1, " => March-Dollase model for preferred orientation"},
};
constexpr std::array weight_words{
    flag_words{0, " => Conventional weights: w=1.0/Variance(yobs)"},
    flag_words{1, " => Maximum likelihood weights: w=1.0/Variance(ycal)"},
    flag_words{2, " => Unit weights"},
    flag_words{3, " => SHELX-like weights"},
};
constexpr std::array shape_words{
    flag_words{-4, " => Peak shape: double Gaussian"},
    flag_words{4, " => Peak shape: tripled pseudo-Voigt"},
    flag_words{5, " => Peak shape: pseudo-Voigt"},
    flag_words{6, " => Peak shape: Pearson VII"},
    flag_words{7, " => Peak shape: Thompson-Cox-Hastings pseudo-Voigt"},
    flag_words{8, " => Peak shape: numerical profile"},
    flag_words{11, " => Peak shape: split pseudo-Voigt"},
    flag_words{12, " => Peak shape: Thompson-Cox-Hastings pseudo-Voigt with axial divergence"},
};

template <std::size_t N>
std::string_view words_of(const std::array<flag_words, N>& table, int value, std::string_view otherwise) {
  const auto row = std::ranges::find(table, value, &flag_words::value);
  return row == table.end() ? otherwise : row->words;
}

/// An output flag of the control file and what it asks for.
struct option_row {
  int pattern_type::*pattern_flag;
  int run_type::*run_flag;  ///< in place of the first
  int value;                ///< asked for by this value alone; 0: by any but 0
  std::string_view words;
};
constexpr std::array option_rows{
    option_row{nullptr, &run_type::mat, 0, " => Output Correlation Matrix"},
    option_row{nullptr, &run_type::nxt, 0, " => Generate new input file *.PCR"},
    option_row{&pattern_type::iot, nullptr, 0, " => Print observed and calculated intensities"},
    option_row{&pattern_type::ipl, nullptr, 1, " => Line-printer plot"},
    option_row{&pattern_type::ipl, nullptr, 2, " => Generate background file *.BAC"},
    option_row{&pattern_type::ipl, nullptr, 3, " => Generate difference curve in *.BAC"},
    option_row{&pattern_type::lst1, nullptr, 0, " => Print reflection list"},
    option_row{&pattern_type::lst2, nullptr, 1, " => Print corrected data"},
    option_row{&pattern_type::lst2, nullptr, 4, " => Plot pattern at each cycle"},
    option_row{&pattern_type::lst3, nullptr, 0, " => Print merged reflection list"},
    option_row{&pattern_type::pl_prf, nullptr, 0, " => Generate file *.PRF for plot"},
    option_row{&pattern_type::ianaly, nullptr, 0, " => Analysis of refinement at the end"},
};

void echo_options(state_type& st, const pattern_type& p) {
  list(st, "\n ==> INPUT/OUTPUT OPTIONS:\n");
  for (const option_row& row : option_rows) {
    const int flag = row.run_flag != nullptr ? st.run.*row.run_flag : p.*row.pattern_flag;
    if (row.value == 0 ? flag != 0 : flag == row.value) list(st, row.words);
  }
}

bool asymmetry_in_use(const state_type& st, int ip) {
  for (int ph = 0; ph < st.run.nphase; ++ph)
    for (const int k : {slot::asy1, slot::asy2, slot::asy3, slot::asy4}) {
      const auto& mix = st.mix(ph, ip);
      if (at(mix.par, k) != 0.f || at(mix.lpar, k) != 0) return true;
    }
  return false;
}

void echo_model(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  list(st, fmt_line{}.a("\n ==> CONDITIONS OF THIS RUN FOR PATTERN No.:").i(3, ip + 1).a("\n").str());
  list(st, words_of(job_words, p.jobtyp, " Invalid JOBTYP "));
  if (p.refining() && static_cast<std::size_t>(ip) < st.io.filedat.size() &&
      static_cast<std::size_t>(ip) < st.io.extdat.size())
    list(st, " => Data file: " + at(st.io.filedat, ip) + at(st.io.extdat, ip));
  list(st, words_of(geometry_words, p.ilor, " => Unknown geometry"));
  if (p.icorr != 0) list(st, " => Intensities corrections in file *.cor");
  list(st, fmt_line{}.a(" => Number of phases: ").i(3, st.run.nphase).str());
  list(st, fmt_line{}.a(" => Number of excluded regions: ").i(3, p.nexcrg).str());
  list(st, fmt_line{}.a(" => Number of scattering factors supplied: ").i(3, std::abs(p.nscat)).str());
  list(st, words_of(orientation_words, p.nori, " => Unknown model for preferred orientation"));
  if (p.refining()) list(st, words_of(weight_words, p.iwgt, " => Unknown weights"));
  if (asymmetry_in_use(st, ip)) list(st, " => Asymmetry correction as in J.Appl.Cryst. 26,128(1993)");
  list(st, kv_background::find_bg(p.nbckgd, p.isbac).listing);
  list(st, words_of(shape_words, p.nprof, " => Unknown peak shape"));
}

void echo_radiation(state_type& st, const pattern_type& p) {
  const auto d = [](float v) { return static_cast<double>(v); };
  list(st, "");
  list(st, fmt_line{}.a(" => Wavelengths: ").f(10, 6, p.lamda).str());
  list(st, fmt_line{}.a(" => Alpha2/Alpha1 ratio: ").f(9, 4, d(p.ratio[1])).str());
  if (p.iuvw == 1) list(st, " => Different U,V,W parameters for Lambda(2) will be read");
  list(st, fmt_line{}.a(" => Cos(Monochromator angle)= ").f(9, 4, d(p.cthm)).str());
  if (p.rkk != 0.f) list(st, fmt_line{}.a(" => Polarization= ").f(9, 4, d(p.rkk)).str());
  list(st, fmt_line{}.a(" => Asymmetry correction for angles lower than ").f(9, 3, d(p.rlim)).a(" degrees").str());
  if (p.tmv[0] != 0.f || p.tmv[1] != 0.f)
    list(st,
         fmt_line{}.a(" => Absorption correction (mu.R or mu.t), model").i(2, p.iabscor).a(":").f(9, 4, p.tmv).str());
  list(st, fmt_line{}.a(" => Reach of a peak (+/-) in units of its FWHM: ").f(8, 2, d(p.wdt)).str());
  list(st, fmt_line{}.a(" => Origin of the polynomial background: ").f(9, 3, d(p.bkpos)).str());
  if (p.alpsd != 0.f) list(st, fmt_line{}.a(" => Incident angle of the flat plate: ").f(9, 3, d(p.alpsd)).str());
  if (p.sent0 != 0.f) list(st, fmt_line{}.a(" => The beam overfills the sample below: ").f(9, 3, d(p.sent0)).str());
}

void echo_points(state_type& st, const pattern_type& p, int ip) {
  const auto d = [](float v) { return static_cast<double>(v); };
  if (!p.pos.empty()) list(st, "\n => Background points:       position      height  parameter");
  for (int j = 0; j < static_cast<int>(p.pos.size()); ++j)
    list(st, fmt_line{}
                 .x(22)
                 .f(14, 4, d(at(p.pos, j)))
                 .f(12, 4, d(at(p.glb, gslot::bac + j)))
                 .i(7, at(p.lglb, gslot::bac + j))
                 .str());
  if (p.excluded.empty()) return;
  list(st, fmt_line{}.a("\n => Excluded regions for Pattern#").i(3, ip + 1).str());
  for (const auto& region : p.excluded)
    list(st, fmt_line{}.a("      From").f(10, 4, d(region.alow)).a(" to").f(10, 4, d(region.ahigh)).str());
}

void echo_cycles(state_type& st) {
  const auto d = [](float v) { return static_cast<double>(v); };
  list(st, fmt_line{}.a("\n => Number of cycles: ").i(5, st.run.mcycle).str());
  list(st, " => Relaxation factors ==>");
  list(st, fmt_line{}.a("    for coordinates: ").f(6, 2, d(st.run.relax[1])).str());
  list(st, fmt_line{}.a(" => for anisotropic temperature factors: ").f(6, 2, d(st.run.relax[2])).str());
  list(st, fmt_line{}.a(" => for halfwidth/strain/size/further parameters: ").f(6, 2, d(st.run.relax[3])).str());
  list(st, fmt_line{}.a(" => for lattice constants and propagation vectors: ").f(6, 2, d(st.run.relax[4])).str());
  list(st, fmt_line{}.a(" => EPS-value for convergence: ").f(8, 4, d(st.run.eps)).str());
}

}  // namespace

void echo_conditions(state_type& st) {
  list(st, "\n => Title: " + st.run.title);
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = at(st.pattern, ip);
    if (st.run.n_patt > 1) list(st, fmt_line{}.a("\n =>------->  PATTERN number:").i(3, ip + 1).str());
    echo_model(st, ip);
    echo_options(st, p);
    echo_radiation(st, p);
    echo_points(st, p, ip);
  }
  echo_cycles(st);
}

void echo_data(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const auto d = [](float v) { return static_cast<double>(v); };
  if (st.run.n_patt > 1) list(st, fmt_line{}.a("\n =>------->  PATTERN number:").i(3, ip + 1).str());
  if (p.istep > 1)
    list(st, fmt_line{}.a(" => The number of data points has been reduced by a factor of ").i(4, p.istep).str());
  list(st, "\n ==> Angular range, step and number of points:");
  list(st, fmt_line{}
               .a("     2Thmin:")
               .f(12, 6, d(p.thmin))
               .a("  2Thmax:")
               .f(12, 6, d(p.thmax))
               .a("  Step:")
               .f(10, 6, d(p.step))
               .a("  No. of points:")
               .i(7, p.npts)
               .str());
  if (!p.iconstep) list(st, "     The step is not constant: its mean is given");
  if (p.tsamp != 0.f) list(st, fmt_line{}.a("     Temperature of the sample:").f(10, 2, d(p.tsamp)).str());
}

}  // namespace kv_running_output
