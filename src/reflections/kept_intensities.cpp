#include "kept_intensities.hpp"

#include <cmath>
#include <cstdlib>
#include <span>

#include "lmix_fixed_format.hpp"
#include "lmix_list_input.hpp"
#include "lmix_string_utilities.hpp"
#include "lmix_text_input.hpp"

namespace kept_intensities {

namespace {

using kalvaris_params::state_type;
using lmix_fixed_format::fmt_line;
using lmix_text_input::text_source;

std::int64_t key_of(const std::array<int, 3>& hkl) {
  constexpr std::int64_t base = 1 << 20, half = base / 2;
  return ((hkl[0] + half) * base + hkl[1] + half) * base + hkl[2] + half;
}

/// What the values belong to: second line of the file.
std::string origin_of(const state_type& st, int ip, int ph) {
  const auto u = static_cast<std::size_t>(ip);
  const std::string data = u < st.io.filedat.size() ? st.io.filedat[u] + st.io.extdat[u] : std::string();
  return "Data: " + data + "  Group: " + st.phase[static_cast<std::size_t>(ph)].spgr.spg_symb;
}

void tell(state_type& st, const std::string& text, int ip, int ph) {
  kalvaris_inout::mess_cons(st.io, text + " (phase" + fmt_line{}.i(3, ph + 1).str() + ", pattern" +
                                       fmt_line{}.i(3, ip + 1).str() + ")");
}

/// Value of a reflection in the sense of the list: its intensity at the first wavelength, for jbt -2 F.
double value_of(const state_type& st, int ip, int ph, std::size_t k) {
  const auto& refl = st.pattern[static_cast<std::size_t>(ip)].refl;
  const double ff = refl.ff[k];
  if (st.phase[static_cast<std::size_t>(ph)].jbt == -2) return std::sqrt(std::max(ff, 0.0) / std::max(refl.mlt[k], 1));
  return ff * refl.lp[k] * refl.corr[k] * st.mix(ph, ip).par[kalvaris_params::slot::scale];
}

bool read_rows(text_source& source, kept& into) {
  while (const auto line = source.next()) {
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    std::array<double, 5> items{};
    if (!lmix_list_input::read_list(*line, std::span<double>(items)).full()) return false;
    for (const double item : items)
      if (!(std::abs(item) < 1.0e30)) return false;
    for (std::size_t i = 0; i < 3; ++i)
      if (!(std::abs(items[i]) < 1.0e4) || items[i] != std::round(items[i])) return false;
    into.add({static_cast<int>(items[0]), static_cast<int>(items[1]), static_cast<int>(items[2])}, items[4]);
  }
  return true;
}

}  // namespace

bool keeps(const state_type& st, int ip, int ph) {
  const auto& mix = st.mix(ph, ip);
  return std::abs(st.phase[static_cast<std::size_t>(ph)].jbt) == 2 && mix.irf == 0 && mix.jcontr != 0 &&
         st.pattern[static_cast<std::size_t>(ip)].refining();
}

void kept::add(const std::array<int, 3>& hkl, double value) { values_[key_of(hkl)] = value; }

std::optional<double> kept::of(const std::array<int, 3>& hkl) const {
  const auto found = values_.find(key_of(hkl));
  return found == values_.end() ? std::nullopt : std::optional(found->second);
}

kept read(state_type& st, int ip, int ph) {
  if (!keeps(st, ip, ph)) return {};
  namespace key = kalvaris_inout::file_key;
  kalvaris_inout::openfile(st.io, {key::intensities_in, ip + 1, ph + 1, false});
  if (st.io.file_error) {  // the first run of a code has none
    st.io.file_error = false;
    st.io.file_error_mess.clear();
    return {};
  }
  const auto text = kalvaris_inout::content(st.io, kalvaris_inout::unit::kept_intensities);
  kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::kept_intensities);
  auto source = text_source::from_string(text.value_or(""));
  source.next();
  const auto origin = source.next();
  if (!origin || lmix_string_utilities::trim(*origin) != lmix_string_utilities::trim(origin_of(st, ip, ph))) {
    tell(st, " => The kept intensities belong to other data and are not used", ip, ph);
    return {};
  }
  kept result;
  if (!read_rows(source, result)) {
    tell(st, " => The kept intensities do not read and are not used", ip, ph);
    return {};
  }
  tell(st, " => The intensities start from those of the run before:" +
               fmt_line{}.i(7, static_cast<long long>(result.size())).str(), ip, ph);
  return result;
}

void write(state_type& st, int ip) {
  namespace key = kalvaris_inout::file_key;
  const auto& refl = st.pattern[static_cast<std::size_t>(ip)].refl;
  for (int ph = 0; ph < st.run.nphase; ++ph) {
    if (!keeps(st, ip, ph)) continue;
    kalvaris_inout::openfile(st.io, {key::intensities_out, ip + 1, ph + 1, false});
    if (st.io.file_error) {
      tell(st, " => Warning! The intensities are not kept: " + st.io.file_error_mess, ip, ph);
      st.io.file_error = false;
      continue;
    }
    auto& out = kalvaris_inout::out(st.io, kalvaris_inout::unit::kept_intensities);
    out << "Intensities of profile matching: h k l multiplicity value\n" << origin_of(st, ip, ph) << '\n';
    for (std::size_t k = 0; k < refl.irefs.size(); ++k) {
      const auto index = kalvaris_params::unpack_irefs(refl.irefs[k]);
      if (index.phase != ph || index.wave != 1) continue;
      out << fmt_line{}.i(5, index.h).i(5, index.k).i(5, index.l).i(5, refl.mlt[k]).pe(16, 7, value_of(st, ip, ph, k)).str()
          << '\n';
    }
    kalvaris_inout::close_unit(st.io, kalvaris_inout::unit::kept_intensities);
  }
}

}  // namespace kept_intensities
