// Reflections of a phase from a file.
#include <cmath>
#include <string>

#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_text_input.hpp"
#include "reflections_mod.hpp"
#include "reflections_mod_rows.hpp"

namespace reflections_mod {

namespace {

using kalvaris_inout::stop_cond;
using kalvaris_params::state_type;
using lmix_text_input::text_source;

constexpr std::string_view phase_mark = "Phase No.:";
constexpr std::string_view atz_mark = "ATZ:";

/// Number behind a mark; what does not read leaves it empty.
template <class T>
std::optional<T> number_behind(std::string_view line, std::string_view mark) {
  const auto place = line.find(mark);
  if (place == std::string_view::npos) return std::nullopt;
  T value{};
  if (!lmix_list_input::read_values(line.substr(place + mark.size()), value).full()) return std::nullopt;
  return value;
}

/// The default file from its third line, or the named one from the line behind "Phase No.:" and one more.
text_source open_list(state_type& st, int ip, int ph) {
  const auto& mix = st.mix(ph, ip);
  if (mix.file_hkl.empty()) {
    kalvaris_inout::openfile(st.io, {kalvaris_inout::file_key::reflections_in, ip + 1, ph + 1, false});
    if (st.io.file_error) stop_cond(st.io, st.io.file_error_mess, true);
    const auto text = kalvaris_inout::content(st.io, kalvaris_inout::unit::reflections_in);
    kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::reflections_in);
    auto source = text_source::from_string(text.value_or(""));
    source.next(), source.next();
    return source;
  }
  kalvaris_inout::mess_cons(st.io, " => Reflections file name: " + mix.file_hkl);
  auto source = text_source::from_file(kalvaris_inout::run_path(st.io, mix.file_hkl));
  if (!source.ok()) stop_cond(st.io, " => Error opening the file " + mix.file_hkl, true);
  while (const auto line = source.next())
    if (number_behind<int>(*line, phase_mark) == mix.p_ph) {
      source.next();
      return source;
    }
  stop_cond(st.io, " => No line \"Phase No.: " + std::to_string(mix.p_ph) + "\" in the file " + mix.file_hkl, true);
  return source;
}

struct file_row {
  std::array<double, 3> h{};
  double mult = 0, value = 0;
  bool ok = false;
};
file_row read_row(std::string_view line, bool with_value) {
  file_row row;
  std::array<double, 5> items{};
  const auto result = lmix_list_input::read_list(line, std::span<double>(items).first(with_value ? 5 : 4));
  row.h = {items[0], items[1], items[2]};
  row.mult = items[3];
  row.value = items[4];
  const auto whole = [](double x) { return std::abs(x) < 1.0e6 && x == std::round(x); };
  row.ok = result.full() && whole(items[0]) && whole(items[1]) && whole(items[2]) && whole(row.mult) && row.mult >= 1 &&
           std::isfinite(row.value);
  return row;
}

void refuse_row(state_type& st, const text_source& source, std::string_view line, bool with_value) {
  stop_cond(st.io,
            " => Reflection list, line " + std::to_string(source.lines_taken()) + ": expected h k l mult" +
                (with_value ? " value" : "") + ", whole indices and mult > 0, found: " + std::string(line),
            true);
}

}  // namespace

void reflec(state_type& st, int ip, int ph) {
  auto& mix = st.mix(ph, ip);
  auto& phase = st.phase[static_cast<std::size_t>(ph)];
  mix.num_refl = 0;
  if (mix.jcontr == 0) return;
  const bool intensities = mix.irf == 2;
  const bool with_value = intensities || phase.jsol == 1;
  if (mix.irf != 1 && mix.irf != 2)
    stop_cond(st.io, " => Reflection lists of kind Irf = " + std::to_string(mix.irf) + " are not available", true);
  if ((phase.jbt == 3 || phase.jbt == -3) && !intensities)
    stop_cond(st.io,
              " => Jbt = 3 and -3 need the values of a reflection list with Irf = 2, phase " + std::to_string(ph + 1) +
                  " has Irf = 1",
              true);
  text_source source = open_list(st, ip, ph);
  row_maker rows(st, ip, ph, make_limits(st, ip, ph), false);
  while (const auto line = source.next()) {
    if (line->find(phase_mark) != std::string_view::npos) break;  // the list of the next phase
    if (const auto atz = number_behind<float>(*line, atz_mark)) phase.atz = *atz;
    if (lmix_text_input::is_blank_or_comment(*line) || line->find(atz_mark) != std::string_view::npos) continue;
    const file_row row = read_row(*line, with_value);
    if (!row.ok) refuse_row(st, source, *line, with_value);
    if (with_value && !intensities) rows.set_phasen(static_cast<float>(row.value));
    rows.add({int(row.h[0]), int(row.h[1]), int(row.h[2])}, static_cast<int>(row.mult),
             intensities ? std::optional(row.value) : std::nullopt);
  }
  mix.num_refl = rows.added();
  kalvaris_inout::both_listings(st.io, lmix_fixed_format::fmt_line{}
                                           .a(" The Number of Reflections read for phase")
                                           .i(3, ph + 1)
                                           .a(" For pattern number:")
                                           .i(3, ip + 1)
                                           .a(" is:")
                                           .i(7, mix.num_refl)
                                           .str());
  sort_rhkl(st, ip, ph);
}

}  // namespace reflections_mod
