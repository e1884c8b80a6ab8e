#include "starts_model.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <sstream>

#include "kalvaris_codes.hpp"
#include "kv_live_slots.hpp"
#include "kv_setup.hpp"
#include "read_pcr_mod.hpp"
#include "run_names.hpp"

namespace starts_model {

using kalvaris_params::slot_family;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;
using slot_text::slot_place;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;
namespace aslot = kalvaris_params::aslot;

namespace {

constexpr int thompson_cox_hastings = 7;

template <class list>
auto& at(list& values, int i) {
  return values[static_cast<std::size_t>(i)];
}

bool in_cell(int k) { return k >= slot::cell_a && k <= slot::cell_f; }

/// What the reader or the split of the codes refused; blank when nothing was.
std::string failure_of(const state_type& st) {
  std::string words = st.io.file_error ? st.io.file_error_mess : std::string();
  const auto& message = st.fmt.mess_findfmt;
  for (int i = 0; st.fmt.ierr_fmt != 0 && i < message.nlines; ++i) words += at(message.txt, i) + " ";
  return st.fmt.ierr_fmt != 0 && words.empty() ? "refused" : words;
}

/// The control file of the name in a state of its own; the words of the refusal otherwise.
std::unique_ptr<state_type> read_file(const std::filesystem::path& file, std::string& refusal) {
  auto st = std::make_unique<state_type>();
  std::ostringstream said;
  st->io.console = &said;
  st->io.only_looking = true;  // a file that is missing is for the run to tell
  run_names::set_names(st->io, file.string(), "");
  kalvaris_inout::openfile(st->io, {kalvaris_inout::file_key::control});
  if (!st->io.file_error) read_pcr_mod::read_pcr(*st);
  refusal = failure_of(*st);
  kalvaris_inout::close_all(st->io);
  st->io.console = nullptr;
  return st;
}

/// Whether the numbers of the codes are found by the program.
bool automatic_codes(const state_type& st) {
  const auto named = [](const auto& p) { return !p.vary_command.empty() || !p.fix_command.empty(); };
  const auto all = [](const auto& phase) { return phase.vary_xyz || phase.fix_xyz; };
  return st.run.automatic || st.run.automatic_read || std::ranges::any_of(st.pattern, named) ||
         std::ranges::any_of(st.phase, all);
}

}  // namespace

std::uint64_t seed_of(std::string_view case_name, std::string_view level_name, int number, int base) {
  std::uint64_t hash = 14695981039346656037ULL;  // FNV-1a, 64 bits
  const std::string text = std::string(case_name) + '/' + std::string(level_name) + '/' + std::to_string(number) + '/' +
                           std::to_string(base);
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return hash;
}

double dice::uniform() {
  constexpr double unit = 1.0 / 9007199254740992.0;  // 2^-53
  return (static_cast<double>(bits_() >> 11U) + 0.5) * unit;
}

double dice::signed_unit() {
  const double u = 2.0 * uniform() - 1.0;
  return corner_ ? std::copysign(1.0, u) : u;
}

double dice::normal() {
  const double radius = std::sqrt(-2.0 * std::log(uniform()));
  return radius * std::cos(2.0 * std::numbers::pi * uniform());
}

double dice::factor(double largest) { return std::exp(signed_unit() * std::log(largest)); }

step step_of(const slot_place& place) {
  if (place.family == slot_family::global) {
    if (place.k >= gslot::bac) return step::scale_and_background;
    return place.k <= gslot::lambda ? step::zero_and_cell : step::all;
  }
  if (place.family != slot_family::phase) return step::all;
  if (place.k == slot::scale) return step::scale_and_background;
  if (in_cell(place.k) || (place.k >= slot::zero_ph && place.k <= slot::sysin_ph)) return step::zero_and_cell;
  const bool intensity = place.k == slot::bov || place.k == slot::pref1 || place.k == slot::pref2 ||
                         (place.k >= slot::md1 && place.k < slot::zero_ph);
  return intensity ? step::all : step::profile;
}

control_file::control_file(const std::filesystem::path& file) {
  st_ = read_file(file, refusal_);
  if (!refusal_.empty()) return;
  // The codes are split in a second copy: the first keeps direct cells and the words as they stand in the file.
  const auto numbered = read_file(file, refusal_);
  if (!refusal_.empty()) return;
  std::ostringstream said;
  numbered->io.console = &said;
  if (!kv_setup::prepare_codes(*numbered)) {
    refusal_ = failure_of(*numbered);
    return;
  }
  find_parameters(*numbered);
  st_->run.output_flags[1] = 1;  // Nxt: the result is written
}

void control_file::find_parameters(state_type& numbered) {
  const bool automatic = automatic_codes(*st_);
  std::map<int, double> reference;
  numbered.for_each_slot([&](const slot_ref& s) {
    const bool refined = s.number >= 1 && s.number <= numbered.run.maxs && s.code != 0.f;
    words_.push_back(refined && automatic ? kalvaris_codes::join({s.number, s.code}, false) : 0.f);
    const bool known = s.family <= slot_family::phase || s.family == slot_family::atom;
    if (!refined || !known) return;
    const auto m = static_cast<double>(s.code);
    const double first = reference.try_emplace(s.number, m).first->second;
    parameters_[s.number].push_back({slot_place::of(s), m / first});
  });
  if (!automatic) {
    words_.clear();
    st_->for_each_slot([&](const slot_ref& s) { words_.push_back(s.code); });
  }
  for (const auto& phase : numbered.phase) {
    auto& g = metric_.emplace_back();
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) at(at(g, i), j) = static_cast<double>(at(at(phase.cellp.gd, i), j));
  }
}

std::string control_file::text() const { return read_pcr_mod::write_pcr(*st_, "start of a test of convergence"); }

int control_file::number_at(const slot_place& place) const {
  for (const auto& [number, slots] : parameters_)
    for (const coded_slot& s : slots)
      if (s.place == place) return number;
  return 0;
}

float& control_file::value_at(const slot_place& place) {
  if (place.family == slot_family::global) return at(at(st_->pattern, place.owner).glb, place.k);
  if (place.family == slot_family::phase) return at(st_->mix(place.owner, place.ip).par, place.k);
  return at(at(st_->atom, place.owner).xl, place.k);
}

/// True the first time that a refined number is met.
bool control_file::once(int number) {
  if (number == 0 || std::ranges::find(moved_, number) != moved_.end()) return false;
  moved_.push_back(number);
  return true;
}

/// Moves all slots of a number as a shift of its first slot does, which stays within the limits of the file.
void control_file::move(int number, double shift) {
  const auto& slots = parameters_.at(number);
  const auto before = static_cast<double>(value_at(slots.front().place));
  for (const auto& limit : st_->run.limits)
    if (limit.number == number)
      shift = std::clamp(before + shift, static_cast<double>(limit.vlim1), static_cast<double>(limit.vlim2)) - before;
  for (const coded_slot& s : slots) {
    float& value = value_at(s.place);
    value = static_cast<float>(static_cast<double>(value) + shift * s.weight);
  }
}

void control_file::multiply(int number, double factor) {
  move(number, (factor - 1.0) * static_cast<double>(value_at(parameters_.at(number).front().place)));
}

void control_file::disturb(const level& by, dice& random) {
  moved_.clear();
  disturb_zero(by.zero, random);
  disturb_scales(by.scale, random);
  disturb_cells(by.cell, random);
  disturb_widths(by.width, random);
  disturb_atoms(by.atoms, random);
}

/// One shift of each pattern: zero, displacement or transparency, the first that is refined.
void control_file::disturb_zero(double by, dice& random) {
  for (int ip = 0; ip < st_->run.n_patt; ++ip)
    for (const int k : {gslot::zero, gslot::sycos, gslot::sysin}) {
      const int number = number_at({slot_family::global, ip, ip, k});
      if (number == 0) continue;
      if (once(number)) move(number, by * random.signed_unit());
      break;
    }
}

void control_file::disturb_scales(double by, dice& random) {
  for (int ph = 0; ph < st_->run.nphase; ++ph)
    for (int ip = 0; ip < st_->run.n_patt; ++ip)
      if (const int number = number_at({slot_family::phase, ph, ip, slot::scale}); once(number))
        multiply(number, random.factor(by));
}

/// Lengths that share a number change by one factor; angles stay.
void control_file::disturb_cells(double by, dice& random) {
  std::map<int, double> factors;
  for (int ph = 0; ph < st_->run.nphase; ++ph)
    for (int ip = 0; ip < st_->run.n_patt; ++ip)
      for (int i = 0; i < 3; ++i) {
        const int number = number_at({slot_family::phase, ph, ip, slot::cell_a + i});
        if (number == 0) continue;
        if (once(number)) factors[number] = 1.0 + by * random.signed_unit();
        float& length = value_at({slot_family::phase, ph, ip, slot::cell_a + i});
        length = static_cast<float>(static_cast<double>(length) * factors.at(number));
      }
}

control_file::width_numbers control_file::widths_of(int ph, int ip) {
  width_numbers found;
  const auto add = [&](std::vector<int>& to, std::initializer_list<int> slots) {
    for (const int k : slots)
      if (const int number = number_at({slot_family::phase, ph, ip, k}); once(number)) to.push_back(number);
  };
  add(found.gaussian, {slot::u, slot::v, slot::w, slot::gausiz, slot::u2, slot::v2, slot::w2});
  if (st_->mix(ph, ip).npro == thompson_cox_hastings) add(found.lorentzian, {slot::x, slot::y, slot::lorsiz});
  return found;
}

void control_file::multiply_widths(const width_numbers& widths, double factor) {
  for (const int number : widths.gaussian) multiply(number, factor * factor);
  for (const int number : widths.lorentzian) multiply(number, factor);
}

/// Coefficients that stay fixed may make a width negative when the refined ones shrink: then another factor is drawn.
void control_file::disturb_widths(double by, dice& random) {
  constexpr int tries = 50;
  for (int ph = 0; ph < st_->run.nphase; ++ph)
    for (int ip = 0; ip < st_->run.n_patt; ++ip) {
      const width_numbers widths = widths_of(ph, ip);
      if (widths.gaussian.empty() && widths.lorentzian.empty()) continue;
      const auto before = st_->mixes;
      const bool was_positive = widths_are_positive();
      for (int n = 0; n < tries; ++n) {
        multiply_widths(widths, random.factor(by));
        if (!was_positive || widths_are_positive()) break;
        st_->mixes = before;
      }
    }
}

/// Both widths of every phase over the range of the pattern. A resolution file has widths of its own: not looked at.
bool control_file::widths_are_positive() const {
  constexpr double rad = std::numbers::pi / 180.0;
  constexpr int samples = 40;
  for (int ph = 0; ph < st_->run.nphase; ++ph)
    for (int ip = 0; ip < st_->run.n_patt; ++ip) {
      const auto& pattern = at(st_->pattern, ip);
      const auto& mix = st_->mix(ph, ip);
      if (mix.jcontr == 0 || pattern.ireso != 0) continue;
      const auto par = [&](int k) { return static_cast<double>(at(mix.par, k)); };
      const auto first = static_cast<double>(pattern.thmin_read), last = static_cast<double>(pattern.thmax_read);
      for (int i = 0; i <= samples; ++i) {
        const double theta = 0.5 * rad * (first + (last - first) * i / samples);
        const double t = std::tan(theta), c = std::cos(theta);
        const double square = (par(slot::u) * t + par(slot::v)) * t + par(slot::w) + par(slot::gausiz) / (c * c);
        const double lorentzian = par(slot::x) * t + par(slot::y) / c;
        if (!(square > 0.0) || (mix.npro == thompson_cox_hastings && !(lorentzian >= 0.0))) return false;
      }
    }
  return true;
}

void control_file::disturb_atoms(double by, dice& random) {
  for (int ph = 0; ph < st_->run.nphase; ++ph) {
    const auto& phase = at(st_->phase, ph);
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) disturb_atom(ph, ia, by, random);
  }
}

/// A step of an atom in a random direction of those that the codes leave to it.
void control_file::disturb_atom(int ph, int ia, double by, dice& random) {
  const auto& g = at(metric_, ph);
  const auto length = [&](const std::array<double, 3>& v) {
    double square = 0.0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) square += at(v, i) * at(at(g, i), j) * at(v, j);
    return std::sqrt(square);
  };
  std::array<double, 3> direction{};
  std::vector<std::pair<int, double>> shifts;
  for (const int k : {aslot::x, aslot::y, aslot::z}) {
    const int number = number_at({slot_family::atom, ia, 0, k});
    if (!once(number)) continue;
    std::array<double, 3> along{};
    for (const coded_slot& s : parameters_.at(number))
      if (s.place.family == slot_family::atom && s.place.owner == ia && s.place.k <= aslot::z)
        at(along, s.place.k - aslot::x) = s.weight;
    shifts.emplace_back(number, random.normal() / length(along));
    for (int i = 0; i < 3; ++i) at(direction, i) += shifts.back().second * at(along, i);
  }
  if (shifts.empty()) return;
  const double size = by * random.signed_unit() / length(direction);
  for (const auto& [number, shift] : shifts) move(number, shift * size);
}

void control_file::change(double cell_factor, double width_factor) {
  moved_.clear();
  for (int ph = 0; ph < st_->run.nphase; ++ph)
    for (int ip = 0; ip < st_->run.n_patt; ++ip) {
      for (int k = slot::cell_a; k < slot::cell_a + 3; ++k)
        if (number_at({slot_family::phase, ph, ip, k}) != 0)
          at(st_->mix(ph, ip).par, k) *= static_cast<float>(cell_factor);
      multiply_widths(widths_of(ph, ip), width_factor);
    }
}

int control_file::take_codes(const control_file& full, step last) {
  words_ = full.words_;
  parameters_ = full.parameters_;
  st_->run.limits = full.st_->run.limits;
  return keep_codes([last](const slot_place& place) { return step_of(place) <= last; });
}

/// Writes the words of the slots that the rule keeps, numbered without gaps, and leaves the others fixed. Returns how
/// many numbers there are.
int control_file::keep_codes(const keep_rule& keep) {
  std::vector<kalvaris_codes::split_code> codes;
  std::map<int, int> renumbered;
  st_->for_each_slot([&](const slot_ref& s) {
    auto code = kalvaris_codes::split(words_.at(codes.size()));
    if (!parameters_.contains(code.number) || !keep(slot_place::of(s))) code = {};
    if (code.number != 0) renumbered.emplace(code.number, 0);
    codes.push_back(code);
  });
  int last = 0;
  for (auto& [number, fresh] : renumbered) fresh = ++last;
  std::size_t i = 0;
  st_->for_each_slot([&](const slot_ref& s) {
    const auto code = codes.at(i++);
    s.code = s.code_read =
        code.number == 0 ? 0.f : kalvaris_codes::join({renumbered.at(code.number), code.multiplier}, false);
  });
  auto& run = st_->run;
  run.maxs = run.maxs_read = last;
  run.automatic = run.automatic_read = false;
  for (auto& p : st_->pattern) p.vary_command.clear(), p.fix_command.clear();
  for (auto& phase : st_->phase) phase.vary_xyz = phase.fix_xyz = false;
  std::erase_if(run.limits, [&](const auto& limit) { return !renumbered.contains(limit.number); });
  for (auto& limit : run.limits) limit.number = renumbered.at(limit.number);
  run.nrell = run.flags_read[3] = static_cast<int>(run.limits.size());
  return last;
}

bool control_file::make_profile_matching() {
  std::size_t i = 0;
  st_->for_each_slot([&](const slot_ref& s) { s.code = words_.at(i++); });
  bool any = false;
  for (int ph = 0; ph < st_->run.nphase; ++ph)
    if (at(st_->phase, ph).jbt == 0) take_atoms(ph), any = true;
  words_.clear();
  st_->for_each_slot([&](const slot_ref& s) { words_.push_back(s.code); });
  keep_codes([&](const slot_place& place) {
    return place.family != slot_family::phase ||
           kv_live_slots::why_phase_slot_is_idle(*st_, place.owner, place.ip, place.k).empty();
  });
  return any;
}

void control_file::take_atoms(int ph) {
  auto& phase = at(st_->phase, ph);
  const auto first = st_->atom.begin() + phase.first_atom;
  st_->atom.erase(first, first + phase.natom);
  for (auto& other : st_->phase)
    if (other.first_atom > phase.first_atom) other.first_atom -= phase.natom;
  phase.natom = 0;
  phase.jbt = 2;
}

}  // namespace starts_model
