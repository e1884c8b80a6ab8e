// Plot files for other programs, and the plots on paper.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "kv_prf.hpp"
#include "kv_prf_columns.hpp"
#include "lmix_fixed_format.hpp"

namespace kv_prf {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using kv_listing_text::at;
using lmix_fixed_format::fmt_line;

std::string xy_line(double x, double y) {
  std::string line = fmt_line{}.f(12, 5, x).str();
  kv_listing_text::put_number(line, 16, 4, y);
  return line + '\n';
}

/// Where curves and ticks stand on a plot: ticks below the lowest curve, the difference below the ticks.
struct plot_frame {
  double low = 0, high = 0;    ///< range of the counts
  double tick_step = 0;        ///< distance of the tick rows
  double difference_zero = 0;  ///< ordinate of a difference of 0
  double lowest = 0;           ///< lower edge of the plot
  [[nodiscard]] double tick_row(int ph) const { return low - (ph + 1) * tick_step; }
};

plot_frame frame_of(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  double low = std::numeric_limits<double>::max(), high = -low, top = 0, bottom = 0;
  for (int i = 0; i < p.npts; ++i) {
    const plot_point q = point_at(st, p, i);
    low = std::min({low, q.obs, q.calc});
    high = std::max({high, q.obs, q.calc});
    top = std::max(top, q.difference());
    bottom = std::min(bottom, q.difference());
  }
  constexpr double rows_in_height = 30.0;
  plot_frame f{low, high, (high - low) / rows_in_height, 0, 0};
  f.difference_zero = f.tick_row(st.run.nphase) - top;
  f.lowest = f.difference_zero + bottom - f.tick_step;
  return f;
}

/// The sets of xmgrace in their order, each ended by its mark; `open` is called in front of each with its number.
template <class Open>
std::string data_sets(const state_type& st, int ip, Open&& open) {
  const pattern_type& p = at(st.pattern, ip);
  const plot_frame frame = frame_of(st, ip);
  std::string text;
  int set = 0;
  const auto curve = [&](auto&& ordinate) {
    text += open(set++);
    for (int i = 0; i < p.npts; ++i) {
      const plot_point q = point_at(st, p, i);
      text += xy_line(q.x, ordinate(q));
    }
    text += "&\n";
  };
  curve([](const plot_point& q) { return q.obs; });
  curve([](const plot_point& q) { return q.calc; });
  curve([&](const plot_point& q) { return q.difference() + frame.difference_zero; });
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    text += open(set++);
    for (const double x : tick_positions(st, ip, ph)) text += xy_line(x, frame.tick_row(ph));
    text += "&\n";
  }
  return text;
}

std::string set_style(int set, int symbol, int colour, bool line, std::string_view legend) {
  const std::string head = "@    s" + std::to_string(set) + ' ';
  std::string text = head + "type xy\n" + head + "symbol " + std::to_string(symbol) + '\n';
  constexpr int a_character = 11;  // symbol 11 draws the character of the next line: a bar
  if (symbol == a_character) text += head + "symbol char 124\n";
  text += head + "symbol size 0.400000\n" + head + "symbol color " + std::to_string(colour) + '\n';
  text += head + "line type " + (line ? "1" : "0") + '\n' + head + "line color " + std::to_string(colour) + '\n';
  return text + head + "legend  \"" + std::string(legend) + "\"\n";
}

std::string without_quotes(std::string text) {
  std::ranges::replace(text, '"', '\'');
  return text;
}

std::string igor_waves(std::string_view names, std::string_view rows) {
  return "WAVES/D/O " + std::string(names) + "\nBEGIN\n" + std::string(rows) + "END\n";
}

}  // namespace

std::string plot_xvgr(const state_type& st, int ip) {
  std::string text = "@    title \"" + without_quotes(plot_title(st)) + "\"\n@    xaxis  label \"2Theta (degrees)\"\n";
  text += "@    yaxis  label \"Intensity\"\n";
  return text + data_sets(st, ip, [](int set) { return "@TYPE xy\n# set " + std::to_string(set) + '\n'; });
}

std::string plot_agr(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const plot_frame f = frame_of(st, ip);
  const auto world = [](std::string_view edge, double value) {
    return "@    world " + std::string(edge) + fmt_line{}.pe(16, 6, value).str() + '\n';
  };
  constexpr double room_above = 1.05;
  std::string text = "# Grace project file\n#\n@version 50122\n@page size 792, 612\n@g0 on\n@g0 type XY\n@with g0\n";
  text += world("xmin", static_cast<double>(at(p.txv, 0))) + world("xmax", static_cast<double>(at(p.txv, p.npts - 1)));
  text += world("ymin", f.lowest) + world("ymax", f.low + room_above * (f.high - f.low));
  text += "@    title \"" + without_quotes(plot_title(st)) + "\"\n@    xaxis  label \"2Theta (degrees)\"\n";
  text += "@    yaxis  label \"Intensity\"\n@    autoticks\n@    legend on\n";
  text += set_style(0, 1, 2, false, "Yobs") + set_style(1, 0, 1, true, "Ycal") + set_style(2, 0, 4, true, "Yobs-Ycal");
  for (int ph = 0; ph < st.run.nphase; ++ph)
    text += set_style(3 + ph, 11, 3 + ph, false, without_quotes(at(st.phase, ph).phsnm));
  return text + data_sets(st, ip, [](int set) { return "@target G0.S" + std::to_string(set) + "\n@type xy\n"; });
}

std::string plot_xy(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  std::string text =
      "# " + plot_title(st) + "\n#    2Theta            Yobs            Ycal         Yobs-Yc           Backg\n";
  for (int i = 0; i < p.npts; ++i) {
    const plot_point q = point_at(st, p, i);
    text += fmt_line{}.f(12, 5, q.x).str();
    for (const double v : {q.obs, q.calc, q.difference(), q.background}) kv_listing_text::put_number(text, 16, 4, v);
    text += '\n';
  }
  return text;
}

std::string wigor(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  const plot_frame frame = frame_of(st, ip);
  std::string rows;
  for (int i = 0; i < p.npts; ++i) {
    const plot_point q = point_at(st, p, i);
    fmt_line line;
    for (const double v : {q.x, q.obs, q.calc, q.difference() + frame.difference_zero, q.background})
      line.x(1).f(12, 3, v);
    rows += line.str() + '\n';
  }
  std::string text = "IGOR\n" + igor_waves("TwoTheta, Iobs, Icalc, Diff, Backg", rows);
  std::string appends;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    rows.clear();
    for (const double x : tick_positions(st, ip, ph))
      rows += fmt_line{}.x(1).f(12, 3, x).x(1).f(12, 3, frame.tick_row(ph)).str() + '\n';
    const std::string number = std::to_string(ph + 1);
    text += igor_waves("Phase" + number + ", tik" + number, rows);
    appends += "X Append tik" + number + " vs Phase" + number + "\nX Modify mode(tik" + number + ")=3, marker(tik" +
               number + ")=10\n";
  }
  for (std::size_t j = 0; j < p.excluded.size(); ++j) {
    const std::string number = std::to_string(j + 1);
    rows.clear();
    for (const float x : {p.excluded[j].alow, p.excluded[j].ahigh})
      rows += fmt_line{}.x(1).f(12, 3, static_cast<double>(x)).x(1).f(12, 3, frame.low).str() + '\n';
    text += igor_waves("Excrg" + number + ", excl" + number, rows);
    appends += "X Append excl" + number + " vs Excrg" + number + '\n';
  }
  return text +
         "X Silent 1\nX DefaultFont Times\nX Display Iobs, Icalc, Diff vs TwoTheta\n"
         "X Modify mode(Iobs)=2, rgb(Iobs)=(0,0,0), lsize(Iobs)=2\n" +
         appends;
}

// ---- paper ---------------------------------------------------------------------------------------------------------

std::string lp_pattern(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  constexpr int lines = 60, groups = 4;
  std::string text;
  for (int first = 0; first < p.npts; first += lines * groups) {
    text += "1 ";
    for (int g = 0; g < groups; ++g) text += "2THETA   YOBS    YCALC VARIANCE ";
    text += '\n';
    for (int j = 0; j < lines && first + j < p.npts; ++j) {
      fmt_line line;
      line.x(1);
      for (int i = first + j; i < std::min(first + lines * groups, p.npts); i += lines) {
        const plot_point q = point_at(st, p, i);
        line.f(7, 3, q.x).f(8, 0, q.obs).f(8, 0, q.calc).f(8, 0, static_cast<double>(at(p.var, i))).x(1);
      }
      text += line.str() + '\n';
    }
  }
  return text;
}

std::string lp_plot(const state_type& st, int ip) {
  const pattern_type& p = at(st.pattern, ip);
  constexpr int columns = 100;
  const plot_frame frame = frame_of(st, ip);
  const double height = std::max(frame.high - frame.low, std::numeric_limits<double>::min());
  std::string text = "    2THETA      YOBS     YCALC  (o observed, + calculated, * both)\n";
  for (int i = 0; i < p.npts; ++i) {
    const plot_point q = point_at(st, p, i);
    std::string bar(columns + 1, ' ');
    const auto column = [&](double v) {
      const double c = (v - frame.low) / height * columns;
      return c >= 0.0 && c <= columns ? static_cast<std::size_t>(c) : std::size_t{0};
    };
    bar[column(q.obs)] = 'o';
    char& calculated = bar[column(q.calc)];
    calculated = calculated == 'o' ? '*' : '+';
    bar.erase(bar.find_last_not_of(' ') + 1);
    text += fmt_line{}.f(10, 4, q.x).f(10, 0, q.obs).f(10, 0, q.calc).a(" |").str() + bar + '\n';
  }
  return text;
}

}  // namespace kv_prf
