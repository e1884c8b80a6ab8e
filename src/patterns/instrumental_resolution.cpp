// Use of a resolution file: terms of single peaks, the rules that join file and control file, the echo.
#include "instrumental_resolution.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <ostream>

#include "lmix_fixed_format.hpp"
#include "pseudo_voigt_mod.hpp"

namespace instrumental_resolution {

using kalvaris_params::pattern_type;
using kalvaris_params::resolution_row;
using kalvaris_params::resolution_type;
using lmix_fixed_format::fmt_line;

namespace {

/// Two neighbouring rows and how far from the first to the second.
struct bracket {
  const resolution_row& below;
  const resolution_row& above;
  double fraction;

  double operator()(float resolution_row::*field) const {
    const double a = double{below.*field}, b = double{above.*field};
    return a + (b - a) * fraction;
  }
};

/// rows: at least one, tins increasing. Outside them the end row stands for both.
bracket find_bracket(const std::vector<resolution_row>& rows, double x) {
  const auto above = std::upper_bound(rows.begin(), rows.end(), x,
                                      [](double at, const resolution_row& r) { return at < double{r.tins}; });
  if (above == rows.begin()) return {rows.front(), rows.front(), 0.0};
  if (above == rows.end()) return {rows.back(), rows.back(), 0.0};
  const resolution_row& below = *(above - 1);
  return {below, *above, (x - double{below.tins}) / (double{above->tins} - double{below.tins})};
}

cw_terms table_terms(const resolution_type& r, bool axial, double x) {
  cw_terms out;
  if (r.rows.empty()) return out;
  const bracket at = find_bracket(r.rows, x);
  const double g = at(&resolution_row::gins);
  out.ggi = g * g;
  out.cci = at(&resolution_row::cins);
  if (axial) {
    out.sl_i = at(&resolution_row::sl_ins);
    out.dl_i = at(&resolution_row::dl_ins);
  }
  return out;
}

/// Axial divergence of the whole instrument; a table has its own columns for it.
void add_asymmetry(const resolution_type& r, cw_terms& out) {
  if (!r.asym_g) return;
  out.sl_i = double{r.s_l};
  out.dl_i = double{r.d_l};
}

/// One line of write_irf_info: what three coefficients are, as the model of ireso uses them.
struct model_text {
  int ireso;
  std::string_view gauss, lorentz;
};
constexpr std::array<model_text, 4> model_texts{{
    {-1, "    H^2 = U tan^2 + V tan + W, U, V, W: ", "    eta = X + Y 2theta, X, Y, Z: "},
    {1, "    HG^2 = U tan^2 + V tan + W, U, V, W: ", "    HL = X tan + Y/cos + Z, X, Y, Z: "},
    {2, "    HG^2 = U tan^2 + V tan + W, U, V, W: ", "    HL = (X 2theta + Y) 2theta + Z, X, Y, Z: "},
    {3, "    HG^2 = (U 2theta + V) 2theta + W, U, V, W: ", "    HL = (X 2theta + Y) 2theta + Z, X, Y, Z: "},
}};

void write_numbers(std::ostream& out, std::string_view text, std::initializer_list<float> values) {
  fmt_line line;
  line.a(text);
  for (const float v : values) line.g(14, 6, double{v});
  out << line.str() << '\n';
}

void write_cw_model(std::ostream& out, const pattern_type& p) {
  const resolution_type& r = p.resolution;
  for (const model_text& row : model_texts) {
    if (row.ireso != p.ireso) continue;
    for (std::size_t w = 0; w < 2; ++w) {
      out << fmt_line{}.a(" => Wavelength ").i(1, static_cast<int>(w) + 1).a(":").str() << '\n';
      write_numbers(out, row.gauss, {r.uins[w], r.vins[w], r.wins[w]});
      write_numbers(out, row.lorentz, {r.xins[w], r.yins[w], r.zins[w]});
    }
  }
  if (r.asym_g) write_numbers(out, " => Axial divergence of the instrument, S/L, D/L: ", {r.s_l, r.d_l});
  if (r.rows.empty()) return;
  out << (p.ireso == 8 ? " => Table of position, Gaussian FWHM, Lorentzian FWHM, S/L, D/L:\n"
                       : " => Table of position, Gaussian FWHM, Lorentzian FWHM:\n");
  for (const resolution_row& row : r.rows) {
    if (p.ireso == 8) {
      write_numbers(out, "   ", {row.tins, row.gins, row.cins, row.sl_ins, row.dl_ins});
    } else {
      write_numbers(out, "   ", {row.tins, row.gins, row.cins});
    }
  }
}

void write_tof_model(std::ostream& out, const resolution_type& r) {
  write_numbers(out, " => Zero, Dtt1, Dtt2, Dtt_1overd: ", {r.zero_i, r.dtt1_i, r.dtt2_i, r.dtt_1overd_i});
  write_numbers(out,
                " => Zerot, Dtt1t, Dtt2t, Xcross, Wcross: ", {r.zerot_i, r.dtt1t_i, r.dtt2t_i, r.xcross_i, r.wcross_i});
  write_numbers(out, " => 2theta of the detector bank: ", {r.toftet_i});
  write_numbers(out, " => Sigma-2, Sigma-1, Sigma-0, Sigma-Q: ", {r.sig2_i, r.sig1_i, r.sig0_i, r.sigq_i});
  write_numbers(out, " => Gamma-2, Gamma-1, Gamma-0: ", {r.gamma2_i, r.gamma1_i, r.gamma0_i});
  write_numbers(out, " => alph0, alph1, alphQ: ", {r.alfa0_i, r.alfa1_i, r.alfaq_i});
  write_numbers(out, " => beta0, beta1, betaQ: ", {r.beta0_i, r.beta1_i, r.betaq_i});
  write_numbers(out, " => alph0t, beta0t, alph1t, beta1t: ", {r.alfa0t_i, r.beta0t_i, r.alfa1t_i, r.beta1t_i});
  if (r.rows.empty()) return;
  out << " => Table of d-spacing, sigma^2, gamma, alpha, beta" << (r.shift_g ? ", shift:\n" : ":\n");
  for (const resolution_row& row : r.rows)
    write_numbers(out, "   ", {row.tins, row.gins, row.cins, row.alfins, row.betins, row.shiftins});
}

}  // namespace

void merge_radiation(pattern_type& p, const radiation_line& line) {
  const resolution_type& r = p.resolution;
  if (!r.wavel_g) {
    p.lamda = {line.lamda1, line.lamda2};
    p.ratio[1] = line.ratio2;
  }
  p.ratio[0] = 1.f;
  if (!r.cthm_g) p.cthm = line.cthm;
  if (!r.rkk_g) p.rkk = line.rkk;
}

void merge_range(pattern_type& p, const range_line& line) {
  const resolution_type& r = p.resolution;
  const auto larger = [](bool given, float from_file, float from_line) {
    return given ? std::max(from_file, from_line) : from_line;
  };
  p.thmin = larger(r.range_g, r.thmin, line.thmin);
  p.step = larger(r.range_g, r.step, line.step);
  p.thmax = larger(r.range_g, r.thmax, line.thmax);
  p.alpsd = larger(r.geom_g, r.alpsd, line.alpsd);
  p.sent0 = larger(p.ireso != 0, 0.f, line.sent0);
}

bool gives_widths(const pattern_type& p) {
  constexpr std::array<int, 6> kinds{-1, 1, 2, 3, 4, 8};
  return std::ranges::find(kinds, p.ireso) != kinds.end();
}

bool gives_bank_angle(const pattern_type& p) {
  return (p.ireso == 1 || p.ireso == 5 || p.ireso == 6) && p.resolution.toftet_i > 0.f;
}

cw_model make_cw_model(const pattern_type& p, int wave) {
  if (p.ireso == 0) return {};
  return {&p.resolution, p.ireso, wave};
}

cw_terms apply_irf_cw(const cw_model& m, double x, double t2, double t, double c) {
  cw_terms out;
  if (m.resolution == nullptr) return out;
  const resolution_type& r = *m.resolution;
  const std::size_t w = m.wave == 2 ? 1 : 0;
  const double cu = double{r.uins[w]}, cv = double{r.vins[w]}, cw = double{r.wins[w]};
  const double cx = double{r.xins[w]}, cy = double{r.yins[w]}, cz = double{r.zins[w]};
  switch (m.ireso) {
    case -1: {
      const double square = cu * t2 + cv * t + cw;
      const auto widths =
          pseudo_voigt_mod::keijser(square > 0 ? std::sqrt(square) : 0.0, std::clamp(cy * x + cx, 0.0, 1.0));
      out.ggi = widths.HG * widths.HG;
      out.cci = widths.HL;
      break;
    }
    case 1:
      out.ggi = cu * t2 + cv * t + cw;
      out.cci = cx * t + cy / c + cz;
      break;
    case 2:
      out.ggi = cu * t2 + cv * t + cw;
      out.cci = (cx * x + cy) * x + cz;
      break;
    case 3:
      out.ggi = (cu * x + cv) * x + cw;
      out.cci = (cx * x + cy) * x + cz;
      break;
    case 4:
    case 8:
      return table_terms(r, m.ireso == 8, x);
    default:
      return out;
  }
  add_asymmetry(r, out);
  return out;
}

tof_terms apply_irf_tof(const resolution_type& r, double d) {
  tof_terms out;
  if (r.rows.empty()) return out;
  const bracket at = find_bracket(r.rows, d);
  if (r.sigam_g) {
    out.ggi = at(&resolution_row::gins);
    out.cci = at(&resolution_row::cins);
  }
  if (r.alfbet_g) {
    out.alfi = at(&resolution_row::alfins);
    out.beti = at(&resolution_row::betins);
  }
  if (r.shift_g) out.shift = at(&resolution_row::shiftins);
  return out;
}

void write_irf_info(kalvaris_params::state_type& st, int ip, int unit) {
  const auto i = static_cast<std::size_t>(ip);
  const pattern_type& p = st.pattern[i];
  if (p.ireso == 0) return;
  const resolution_type& r = p.resolution;
  std::ostream& out = kalvaris_inout::out(st.io, unit);
  out << " => Instrumental resolution file of pattern " << ip + 1 << ": "
      << (i < st.io.fileres.size() ? st.io.fileres[i] : std::string()) << '\n'
      << " => Title: " << r.title << '\n'
      << " => Kind of resolution function (Res): " << p.ireso << '\n';
  if (r.wavel_g) write_numbers(out, " => Wavelengths and ratio of the file: ", {p.lamda[0], p.lamda[1], p.ratio[1]});
  if (r.cthm_g) write_numbers(out, " => Monochromator of the file: ", {p.cthm});
  if (r.rkk_g) write_numbers(out, " => Polarisation of the file: ", {p.rkk});
  if (r.geom_g) out << " => Geometry of the file (Ilo): " << p.ilor << '\n';
  if (r.range_g) write_numbers(out, " => Range and step of the file: ", {r.thmin, r.thmax, r.step});
  if (p.ixunit == 1) {
    write_tof_model(out, r);
  } else {
    write_cw_model(out, p);
  }
}

}  // namespace instrumental_resolution
