#include "variances.hpp"

#include <array>
#include <cmath>
#include <filesystem>
#include <numbers>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_text_input.hpp"

namespace variances {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;
using lmix_text_input::text_source;

namespace {

/// Kind of abscissa of the table: how a 2theta or T.O.F. becomes it, v = a/d + x (1 - b) with 1/d = 2 sin(theta)/lambda
/// or dtt1/T.O.F.
struct scale_kind {
  int kind;
  std::string_view text;
  float a, b;
};
constexpr std::array<scale_kind, 4> scale_kinds{{
    {0, "    Scattering variable: 2Theta ", 0.f, 0.f},
    {1, "    Scattering variable: T.O.F. ", 0.f, 0.f},
    {2, "    Scattering variable: s=1/d ", 1.f, 1.f},
    {3, "    Scattering variable: Q= 2pi/d ", 2.f * std::numbers::pi_v<float>, 1.f},
}};

struct correction_table {
  std::string header;
  int kind = 0;
  float factor = 0.f;
  std::vector<table_row> rows;
};

void warn(state_type& st, std::string_view reason) {
  for (const std::string_view line : {reason, std::string_view(" => WARNING: corrected variances are not used!")}) {
    kalvaris_inout::mess_cons(st.io, line);
    kalvaris_inout::both_listings(st.io, line);
  }
}

/// Name of the file with the table, blank when there is none.
std::string table_file(const state_type& st, int ip) {
  const auto i = static_cast<std::size_t>(ip);
  std::error_code ec;
  for (std::string name :
       {i < st.io.filedat.size() ? st.io.filedat[i] + ".wgt" : std::string(), std::string("corr_var.wgt")})
    if (!name.empty() && std::filesystem::is_regular_file(kalvaris_inout::run_path(st.io, name), ec)) return name;
  return {};
}

/// Empty when the comment or the line with kind and factor cannot be read.
std::optional<correction_table> read_table(text_source& file, int n) {
  constexpr std::size_t line_width = 120;
  correction_table table;
  const auto comment = file.next();
  const auto scale = file.next();
  if (!comment || !scale || !lmix_list_input::read_values(*scale, table.kind, table.factor).full()) return std::nullopt;
  table.header = comment->substr(0, line_width);
  while (static_cast<int>(table.rows.size()) < n) {
    const auto line = file.next();
    float s = 0.f, c = 0.f;
    if (!line || !lmix_list_input::read_values(line->substr(0, line_width), s, c).full()) break;
    table.rows.push_back({s, c * c});
  }
  return table;
}

void echo(state_type& st, const std::string& name, const correction_table& table) {
  std::ostream& listing = kalvaris_inout::out(st.io, kalvaris_inout::unit::listing);
  listing << " => File for modifying variances => " << name << '\n'
          << " => Variances are modified according to Var= Var(statistics) - fact * corr \n"
          << "    Where corr is interpolated between the SQUARES of the given values \n"
          << " => Header: " << table.header << '\n'
          << fmt_line{}.a("    Multiplier factor: ").g(12, 5, static_cast<double>(table.factor)).str() << '\n';
  for (const scale_kind& row : scale_kinds)
    if (row.kind == table.kind) listing << row.text << '\n';
}

/// Abscissae of the points in the variable of the table, the zero shift taken off.
std::vector<float> table_variable(const pattern_type& p, int kind) {
  constexpr float half_degree = 0.008726646f;
  float a = 0.f, b = 0.f;
  for (const scale_kind& row : scale_kinds) {
    if (row.kind != kind) continue;
    a = row.a;
    b = row.b;
  }
  const bool time_of_flight = p.ixunit == 1;
  const float dtt1 =
      p.resolution.dtt1_i + p.glb[kalvaris_params::gslot::sycos];  // the slot of cos(theta) is dtt1 there
  std::vector<float> v(static_cast<std::size_t>(p.npts));
  for (std::size_t i = 0; i < v.size(); ++i) {
    const float x = p.txv[i];
    if (time_of_flight) {
      v[i] = x * (1.f - b) + (a > 0.f ? a * dtt1 / x : 0.f);
      continue;
    }
    v[i] = 2.f * a * std::sin(half_degree * (x - p.glb[kalvaris_params::gslot::zero])) / p.lamda[0] + x * (1.f - b);
  }
  return v;
}

void write_side_files(state_type& st, const pattern_type& p, std::span<const float> corr, float factor,
                      std::span<const float> corrected) {
  if (st.io.only_looking) return;
  std::string all, positive;
  const auto row = [](float a, float b, float c) {
    return fmt_line{}
        .g(14, 6, static_cast<double>(a))
        .g(14, 6, static_cast<double>(b))
        .g(14, 6, static_cast<double>(c))
        .str();
  };
  for (std::size_t i = 0; i < corr.size(); ++i) {
    const float scaled = factor * corr[i];
    all += fmt_line{}.f(12, 4, static_cast<double>(p.txv[i])).str() + row(p.var[i], corr[i], corrected[i]) + '\n';
    if (corr[i] > 0.f) positive += row(p.var[i] - scaled, p.txv[i], p.var[i] / scaled) + '\n';
  }
  if (!kalvaris_inout::write_now(st.io, "test_var.xy", all) ||
      !kalvaris_inout::write_now(st.io, "test_var2.xy", positive))
    kalvaris_inout::stop_cond(st.io, st.io.file_error_mess, true);
}

}  // namespace

void interpolate(std::span<const table_row> table, std::span<const float> abscissae, std::span<float> corr) {
  std::size_t k = 0;  // neighbouring points have neighbouring abscissae: the search goes on where the last one ended
  for (std::size_t i = 0; i < abscissae.size(); ++i) {
    const float v = abscissae[i];
    corr[i] = 0.f;
    if (table.empty() || !(v >= table.front().s && v <= table.back().s)) continue;
    while (k + 2 < table.size() && v > table[k + 1].s) ++k;
    while (k > 0 && v < table[k].s) --k;
    if (k + 1 >= table.size()) continue;
    const table_row &lower = table[k], &upper = table[k + 1];
    const float width = upper.s - lower.s;
    corr[i] = width > 0.f ? lower.c2 + (upper.c2 - lower.c2) * (v - lower.s) / width : lower.c2;
  }
}

void corr_variances(state_type& st, int ip, int n) {
  constexpr std::size_t fewest_rows = 6;
  constexpr float strength = 3.3333333e-08f;
  const std::string name = table_file(st, ip);
  if (name.empty()) return warn(st, " => WARNING: File corr_var.wgt, for correcting variances, not found!   ");
  text_source file = text_source::from_file(kalvaris_inout::run_path(st.io, name));
  const std::optional<correction_table> table = read_table(file, n);
  if (!table) return warn(st, " => WARNING: error reading file => " + name);
  if (table->rows.size() < fewest_rows) {
    return warn(st, " => WARNING: too small number of points in file => " + name);
  }
  echo(st, name, *table);

  pattern_type& p = st.pattern[static_cast<std::size_t>(ip)];
  std::vector<float> corr(static_cast<std::size_t>(p.npts), 0.f), corrected(p.var);
  if (p.ixunit == 0 || p.ixunit == 1) interpolate(table->rows, table_variable(p, table->kind), corr);
  for (std::size_t i = 0; i < corr.size(); ++i) corrected[i] = p.var[i] / (std::abs(corr[i]) * strength + 1.f);
  write_side_files(st, p, corr, table->factor, corrected);
  p.var = std::move(corrected);
}

}  // namespace variances
