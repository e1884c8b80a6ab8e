#include "kv_prf.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "kv_prf_columns.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_prf {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::reflection_key;
using kalvaris_params::state_type;
using kv_listing_text::at;
using lmix_fixed_format::fmt_line;
namespace file_key = kalvaris_inout::file_key;
namespace gslot = kalvaris_params::gslot;
namespace layout {
enum : int { compact = 1, igor = 2, columns = 3, picsure = 4, xvgr = 5, xy = 6, agr = 7 };
}

/// Appends numbers of one kind, `per_line` of them to a line; the last line is ended.
template <class Write>
void put_block(std::string& out, int count, int per_line, Write&& write) {
  for (int i = 0; i < count; ++i) {
    write(out, i);
    if (i % per_line == per_line - 1) out += '\n';
  }
  if (count % per_line != 0) out += '\n';
}

/// A count with the decimals of its column, fewer where the field would overflow.
void put_count(std::string& out, int width, int decimals, double value) {
  std::string field;
  do {
    field.clear();
    lmix_fixed_format::put_f(field, width, decimals, value);
  } while (field.find('*') != std::string::npos && --decimals >= 0);
  out += field;
}

/// "  cell: a b c alpha beta gamma   spgr: symbol   temp:  t" of the first phase, the words in either case.
std::string cell_string(const state_type& st, int ip, const std::array<std::string_view, 3>& words) {
  constexpr int symbol_width = 20;
  const auto& phase = st.phase.front();
  return fmt_line{}
      .a(words[0])
      .f(10, 5, phase.cellp.cell)
      .f(10, 4, phase.cellp.ang)
      .a(words[1])
      .a(symbol_width, phase.spgr.spg_symb)
      .a(words[2])
      .f(8, 2, static_cast<double>(at(st.pattern, ip).tsamp))
      .str();
}

/// Reflections per phase and propagation vectors per phase (there are none): first to last phase, then the same.
void put_phase_counts(fmt_line& line, const state_type& st, int ip, int width, int first, int last) {
  for (int ph = first; ph < last; ++ph) line.i(width, st.mix(ph, ip).num_refl);
  for (int ph = first; ph < last; ++ph) line.i(width, at(st.phase, ph).nvk);
}

std::array<double, 5> radiation_and_shifts(const pattern_type& p) {
  return {static_cast<double>(p.lamda[0]), static_cast<double>(p.lamda[1]), static_cast<double>(p.glb[gslot::zero]),
          static_cast<double>(p.glb[gslot::sycos]), static_cast<double>(p.glb[gslot::sysin])};
}

std::string kaleida_head(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  std::string text = plot_title(st) + fmt_line{}.a("  CHI2: ").f(8, 4, static_cast<double>(p.all.chi2)).str() +
                     cell_string(st, ip, {"  CELL: ", "   SPGR: ", "   TEMP:  "}) + '\n';
  fmt_line numbers;
  numbers.i(3, st.run.nphase).i(7, p.npts);
  for (const double v : radiation_and_shifts(p)) numbers.f(12, 5, v);
  text += numbers.i(5, p.ixunit).str() + '\n';
  fmt_line counts;
  put_phase_counts(counts, st, ip, 6, 0, st.run.nphase);
  text += counts.i(6, static_cast<int>(p.excluded.size())).str() + '\n';
  for (const auto& region : p.excluded)
    text +=
        fmt_line{}.f(14, 5, static_cast<double>(region.alow)).f(14, 5, static_cast<double>(region.ahigh)).str() + '\n';
  return text + " 2Theta\tYobs\tYcal\tYobs-Yc\tBackg\tPosr\t\t(hkl)\tK\n";
}

std::string kaleida_reflection(const state_type& st, int ip, int k) {
  const auto& refl = at(st.pattern, ip).refl;
  const reflection_key key = kalvaris_params::unpack_irefs(at(refl.irefs, k));
  return fmt_line{}
      .a("\t")
      .f(12, 4, kv_peak_geometry::peak_position(st, ip, k))
      .a("\t")
      .i(8, key.phase + 1)
      .a("\t")
      .i(3, key.h)
      .i(3, key.k)
      .i(3, key.l)
      .a("\t")
      .i(3, key.wave)
      .i(3, at(refl.ihkl, k))
      .str();
}

struct plot_file {
  int pl_prf;
  int key;
  std::string (*text)(const state_type&, int);
};
constexpr std::array plot_files{
    plot_file{layout::compact, file_key::plot, write_prf}, plot_file{layout::igor, file_key::plot, wigor},
    plot_file{layout::columns, file_key::plot, kaleida},   plot_file{layout::xvgr, file_key::plot_xvgr, plot_xvgr},
    plot_file{layout::xy, file_key::plot_xy, plot_xy},     plot_file{layout::agr, file_key::plot_agr, plot_agr},
};

}  // namespace

int count_decimals(double ymax) {
  int decimals = 4;
  for (double limit = 100.0; decimals > 0 && !(ymax < limit); limit *= 10.0) --decimals;
  return decimals;
}

double count_scale(double ymax) {
  constexpr double small = 16.0, wanted = 16.1, largest = 1.0e6;
  if (!(ymax > 0.0) || !std::isfinite(ymax)) return 1.0;
  double scale = ymax <= small ? wanted / ymax : 1.0;
  while (!(ymax * scale < largest)) scale *= 0.1;
  return scale;
}

std::string write_prf(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const auto ymax = static_cast<double>(p.yo_max);
  const double scale = ymax < 1.0e6 ? 1.0 : count_scale(ymax);  // small counts keep their size
  const int decimals = count_decimals(ymax);
  std::string text = plot_title(st) + "  " + cell_string(st, ip, {"  cell: ", "   spgr: ", "   temp:  "}) + '\n';
  text += fmt_line{}.a("3111   1.0000").f(9, 4, scale).str() + '\n';
  constexpr int values_per_line = 8;
  text += fmt_line{}
              .f(8, 3, static_cast<double>(p.thmax))
              .f(8, 3, static_cast<double>(p.thmin))
              .f(8, 5, static_cast<double>(p.step))
              .i(8, values_per_line)
              .i(8, p.ixunit)
              .str() +
          '\n';
  fmt_line numbers;
  numbers.i(3, st.run.nphase).i(7, p.npts);
  for (const double v : radiation_and_shifts(p)) numbers.f(10, 5, v);
  text += numbers.str() + '\n';
  constexpr int phases_per_line = 8;
  for (int first = 0; first < st.run.nphase; first += phases_per_line) {
    fmt_line counts;
    put_phase_counts(counts, st, ip, 5, first, std::min(first + phases_per_line, st.run.nphase));
    text += counts.str() + '\n';
  }
  const auto put_column = [&](auto&& value) {
    put_block(text, p.npts, values_per_line, [&](std::string& out, int i) {
      put_count(out, 7, decimals, value(i) * scale);
      out += ' ';
    });
  };
  put_column([&](int i) { return static_cast<double>(at(p.y, i)); });
  put_column([&](int i) { return point_at(st, p, i).calc; });
  put_block(text, p.refl.size(), 8,
            [&](std::string& out, int k) { lmix_fixed_format::put_i(out, 10, at(p.refl.irefs, k)); });
  put_block(text, p.refl.size(), 10,
            [&](std::string& out, int k) { lmix_fixed_format::put_f(out, 8, 3, at(p.refl.pos, k)); });
  text += fmt_line{}.i(8, static_cast<int>(p.excluded.size())).str() + '\n';
  fmt_line regions;
  for (const auto& region : p.excluded)
    regions.f(8, 2, static_cast<double>(region.alow)).f(8, 2, static_cast<double>(region.ahigh));
  return p.excluded.empty() ? text : text + regions.str() + '\n';
}

std::string kaleida(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const double scale = count_scale(static_cast<double>(p.yo_max));
  const int decimals = count_decimals(static_cast<double>(p.yo_max) * scale);
  std::string text = kaleida_head(st, ip);
  const int lines = std::max(p.npts, p.refl.size());
  for (int i = 0; i < lines; ++i) {
    if (i < p.npts) {
      const plot_point q = point_at(st, p, i);
      lmix_fixed_format::put_f(text, 12, 4, q.x);
      for (const double v : {q.obs, q.calc, q.difference(), q.background}) {
        text += '\t';
        put_count(text, 8, decimals, v * scale);
      }
    } else {
      text += "\t\t\t\t";
    }
    if (i < p.refl.size()) text += kaleida_reflection(st, ip, i);
    text += '\n';
  }
  return text;
}

namespace {

/// The text under the key, whole or not at all.
void write_file(state_type& st, const kalvaris_inout::open_request& request, int unit, const std::string& text) {
  kalvaris_inout::openfile(st.io, request);
  if (!st.io.file_error) {
    kalvaris_inout::out(st.io, unit) << text;
    kalvaris_inout::close_unit(st.io, unit);
  }
  if (st.io.file_error) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
}

const plot_file& plot_file_of(const pattern_type& p) {
  const auto row = std::ranges::find(plot_files, p.pl_prf, &plot_file::pl_prf);
  return row != plot_files.end() ? *row : *std::ranges::find(plot_files, int{layout::columns}, &plot_file::pl_prf);
}

bool wants_plot(const pattern_type& p) {
  return p.pl_prf != 0 && p.pl_prf != layout::picsure && !p.cry_pat && p.npts > 0;
}

bool wants_background(const pattern_type& p) {
  return (p.ipl == 2 || p.ipl == 3) && !p.cry_pat && p.npts > 0 &&
         kv_background::model_of(p) != kv_background::model::file;
}

}  // namespace

void refuse_unwritable(state_type& st) {
  for (int ip = 0; ip < st.run.n_patt; ++ip) {
    const pattern_type& p = at(st.pattern, ip);
    const bool plot = !wants_plot(p) || kalvaris_inout::may_open(st.io, {.key = plot_file_of(p).key, .ipat = ip + 1});
    const bool background =
        !wants_background(p) || kalvaris_inout::may_open(st.io, {.key = file_key::background_out, .ipat = ip + 1});
    if (!plot || !background) kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
  }
}

void write_plot(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  if (p.pl_prf == 0 || p.cry_pat || p.npts == 0) return;
  if (p.pl_prf == layout::picsure) {
    kalvaris_inout::mess_cons(st.io, "Plot file of pattern" + fmt_line{}.i(3, ip + 1).str() +
                                         ": pl_prf 4 (picsure, *.pgf) is not written; 1, 2, 3, 5, 6 and 7 are");
    return;
  }
  const plot_file& plot = plot_file_of(p);
  write_file(st, {.key = plot.key, .ipat = ip + 1}, kalvaris_inout::unit::plot, plot.text(st, ip));
}

// ---- background file -----------------------------------------------------------------------------------------------

std::string background_text(const state_type& st, int ip, bool difference) {
  const pattern_type& p = at(st.pattern, ip);
  const auto value = [&](int i) {
    const plot_point q = point_at(st, p, i);
    return difference ? q.obs - (q.calc - q.background) : q.background;
  };
  std::string text =
      "! " + std::string(difference ? "Observed minus Bragg part" : "Background") + " of: " + plot_title(st) + '\n';
  if (p.iconstep) {
    text += fmt_line{}
                .f(14, 6, static_cast<double>(p.thmin))
                .f(14, 8, static_cast<double>(p.step))
                .f(14, 6, static_cast<double>(p.thmax))
                .str() +
            '\n';
    put_block(text, p.npts, 10, [&](std::string& out, int i) { lmix_fixed_format::put_f(out, 14, 4, value(i)); });
    return text;
  }
  for (int i = 0; i < p.npts; ++i)
    text += fmt_line{}.f(14, 6, static_cast<double>(at(p.txv, i))).f(16, 4, value(i)).str() + '\n';
  return text;
}

void write_background(state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  if ((p.ipl != 2 && p.ipl != 3) || p.cry_pat || p.npts == 0) return;
  if (kv_background::model_of(p) == kv_background::model::file) {
    kalvaris_inout::mess_cons(st.io,
                              "The background file is the input of this run (nbckgd 1): it is not written again");
    return;
  }
  write_file(st, {.key = file_key::background_out, .ipat = ip + 1}, kalvaris_inout::unit::background,
             background_text(st, ip, p.ipl == 3));
}

}  // namespace kv_prf
