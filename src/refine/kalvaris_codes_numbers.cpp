#include <algorithm>
#include <cmath>
#include <span>

#include "kalvaris_codes.hpp"

namespace kalvaris_codes {

namespace {

using kalvaris_params::pattern_type;
using kalvaris_params::phase_type;
using kalvaris_params::slot_ref;
using kalvaris_params::state_type;

bool has_request(const slot_ref& s) { return s.number == 0 && std::abs(s.code) > smallest_multiplier; }

bool all_selected(const state_type& st) {
  return std::ranges::none_of(st.pattern, [](const pattern_type& p) { return p.affpat == 0; });
}

bool calculation_only(const state_type& st) {
  return std::ranges::any_of(st.pattern, [](const pattern_type& p) { return !p.refining(); });
}

/// What becomes of the parameter numbers.
struct renumbering {
  std::vector<int> to;     ///< by number as read; 0: no code carries it
  std::vector<int> given;  ///< numbers that went to codes without one
  [[nodiscard]] int now(int n) const {
    return n > 0 && n < static_cast<int>(to.size()) ? to[static_cast<std::size_t>(n)] : 0;
  }
};

std::vector<char> carried_numbers(state_type& st) {
  std::vector<char> carried(static_cast<std::size_t>(st.run.maximum_lcode) + 1, 0);
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number > 0) carried[static_cast<std::size_t>(s.number)] = 1;
  });
  return carried;
}

void rename_slots(state_type& st, const std::vector<int>& to) {
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number > 0) s.number = to[static_cast<std::size_t>(s.number)];
  });
}

/// A negative number of vectors gives one half of them: the other half are their opposites, on the same parameters with
/// the multiplier of the other sign.
void tie_opposite_vectors(state_type& st, bool numbered) {
  for (phase_type& phase : st.phase) {
    if (phase.nvk >= 0) continue;
    const std::size_t half = phase.vector.size() / 2;
    for (std::size_t j = 0; j < half; ++j) {
      const kalvaris_params::vector_type& given = phase.vector[j];
      kalvaris_params::vector_type& opposite = phase.vector[half + j];
      for (std::size_t c = 1; c <= 3; ++c) {
        opposite.lvk[c] = numbered ? given.lvk[c] : 0;
        opposite.avk[c] = numbered ? -given.avk[c] : 0.f;
      }
    }
  }
}

/// The highest of the numbers 1 to count move into the gaps that are left, counted from below; count is lowered to what
/// is then in use. By number: the new one.
std::vector<int> highest_into_gaps(int& count, std::span<const int> gaps) {
  std::vector<int> renamed(static_cast<std::size_t>(count) + 1);
  std::vector<char> empty(renamed.size(), 0);
  for (std::size_t n = 0; n < renamed.size(); ++n) renamed[n] = static_cast<int>(n);
  for (const int gap : gaps) empty[static_cast<std::size_t>(gap)] = 1;
  const auto drop_empty = [&] {
    while (count > 0 && empty[static_cast<std::size_t>(count)]) --count;
  };
  for (const int gap : gaps) {
    drop_empty();
    if (gap > count) break;
    renamed[static_cast<std::size_t>(count--)] = gap;
    empty[static_cast<std::size_t>(gap)] = 0;
  }
  drop_empty();
  return renamed;
}

/// Numbers by the program: requests get the free numbers in order, then new ones; what is still free is closed up.
renumbering modify_codes(state_type& st) {
  const std::vector<char> carried = carried_numbers(st);
  std::vector<int> gaps;
  for (std::size_t n = 1; n < carried.size(); ++n)
    if (!carried[n]) gaps.push_back(static_cast<int>(n));
  renumbering r;
  std::size_t next_gap = 0;
  st.run.maxs = st.run.maximum_lcode;
  tie_opposite_vectors(st, false);
  st.for_each_slot([&](const slot_ref& s) {
    if (!has_request(s)) return;
    s.number = next_gap < gaps.size() ? gaps[next_gap++] : ++st.run.maxs;
    s.code = requested_multiplier(s.code);
    r.given.push_back(s.number);
  });
  r.to = highest_into_gaps(st.run.maxs, std::span(gaps).subspan(next_gap));
  rename_slots(st, r.to);
  r.to.resize(carried.size());
  for (std::size_t n = 0; n < carried.size(); ++n)
    if (!carried[n]) r.to[n] = 0;
  tie_opposite_vectors(st, true);
  return r;
}

/// Codes that the run does not use (of phases and patterns that take no part, fixed by a word or by the lattice) stay
/// in the control file: their numbers go behind those in use, so that none of them meets another parameter there.
void park_idle_codes(state_type& st, renumbering& r, int in_use) {
  std::vector<int> idle;
  st.for_each_slot([&](const slot_ref& s) {
    const int n = split(s.code_read).number;
    if (s.number == 0 && n > 0 && n <= st.dim.maxparam && r.now(n) == 0) idle.push_back(n);
  });
  std::ranges::sort(idle);
  idle.erase(std::ranges::unique(idle).begin(), idle.end());
  const bool in_the_way = !idle.empty() && idle.front() <= in_use;
  for (const int n : idle) {
    if (n >= static_cast<int>(r.to.size())) r.to.resize(static_cast<std::size_t>(n) + 1, 0);
    r.to[static_cast<std::size_t>(n)] = in_the_way ? ++in_use : n;
  }
}

// ---- what is told ---------------------------------------------------------------------------------------------------

/// Names of the slots that carry one of the numbers (as in the run).
std::string names_of(state_type& st, const std::vector<int>& numbers) {
  std::vector<slot_place> slots;
  st.for_each_slot([&](const slot_ref& s) {
    if (s.number > 0 && std::ranges::find(numbers, s.number) != numbers.end()) slots.push_back(place_of(s));
  });
  return name_list(st, slots);
}

/// Numbers that moved, neighbours that moved together as one: "7 to 9 -> 6 to 8".
std::string moves_text(const renumbering& r, int in_use) {
  constexpr int most = 8;
  const auto moved = [&](int n) { return r.now(n) > 0 && r.now(n) != n && r.now(n) <= in_use; };
  std::string text;
  int told = 0, left = 0;
  for (int n = 1; n < static_cast<int>(r.to.size()); ++n) {
    if (!moved(n)) continue;
    int last = n;
    while (moved(last + 1) && r.now(last + 1) - r.now(last) == 1) ++last;
    const auto range = [&](int first, int end) {
      return std::to_string(first) + (end > first ? " to " + std::to_string(end) : "");
    };
    if (told++ < most) {
      text += (text.empty() ? "" : ", ") + range(n, last) + " -> " + range(r.now(n), r.now(last));
    } else {
      left += last - n + 1;
    }
    n = last;
  }
  return left > 0 ? text + " and " + std::to_string(left) + " more" : text;
}

void tell_moves(state_type& st, const renumbering& r, int given, int in_use) {
  const bool by_program = st.run.automatic || !all_selected(st);
  const std::string moves = moves_text(r, in_use);
  std::string text;
  if (!moves.empty()) text = "gaps in the parameter numbers are closed: " + moves;
  if (!by_program && given > in_use)
    text += (text.empty() ? "" : "; ") + std::string("Maxs is ") + std::to_string(given) + ", the codes carry " +
            std::to_string(in_use) + " different numbers: " + std::to_string(in_use) + " parameters are refined";
  if (text.empty()) return;
  st.tell({false, text,
           all_selected(st) ? "The rewritten control file has these numbers"
                            : "The control file keeps its numbers, since a pattern takes no part"});
}

/// Codes that stay fixed because the control file asks for fewer parameters.
void tell_codes_beyond(state_type& st, const renumbering& r, int in_use) {
  const int wanted = st.run.maxs;
  std::vector<int> as_read, now;
  for (int n = 1; n < static_cast<int>(r.to.size()); ++n)
    if (r.now(n) > wanted && r.now(n) <= in_use) as_read.push_back(n), now.push_back(r.now(n));
  if (as_read.empty()) return;
  st.tell({true,
           "Codes above the number of refined parameters are not refined: " + number_list(as_read) + " (" +
               names_of(st, now) + ")",
           "Maxs is " + std::to_string(wanted) + "; " + std::to_string(in_use) + " refines them all"});
}

void tell_requests(state_type& st) {
  if (st.run.automatic || !all_selected(st)) return;
  std::vector<slot_place> asked;
  st.for_each_slot([&](const slot_ref& s) {
    if (has_request(s)) asked.push_back(place_of(s));
  });
  if (!asked.empty()) st.tell(unnumbered_requests(st, asked));
}

// ---- limits and linear restraints -----------------------------------------------------------------------------------

/// Numbers of limits or restraints that reach no refined parameter, and those that a code without a number has got.
struct strays {
  std::vector<int> unrefined, given;
};

/// The number of the run that a limit or a restraint on parameter n speaks of.
int follow(const renumbering& r, int n, int refined, strays& lost) {
  const bool given = r.now(n) == 0 && std::ranges::find(r.given, n) != r.given.end();
  const int now = given ? n : r.now(n);
  if (now == 0 || now > refined) lost.unrefined.push_back(n);
  if (given) lost.given.push_back(n);
  return now;
}

void tell_strays(state_type& st, std::string_view what, strays& lost) {
  const auto ordered = [](std::vector<int>& numbers) -> std::vector<int>& {
    std::ranges::sort(numbers);
    numbers.erase(std::ranges::unique(numbers).begin(), numbers.end());
    return numbers;
  };
  const std::string words(what);
  if (!ordered(lost.unrefined).empty())
    st.tell({true, words + " parameters that are not refined: " + number_list(lost.unrefined),
             "They act on nothing: take the line out, or refine the parameter"});
  if (!ordered(lost.given).empty())
    st.tell({true,
             words + " parameter numbers that no code had: " + number_list(lost.given) + " now belongs to " +
                 names_of(st, lost.given),
             "Write the numbers into the codes to be sure of them"});
}

void follow_limits(state_type& st, const renumbering& r) {
  strays lost;
  for (auto& limit : st.run.limits) limit.number = follow(r, limit.number, st.run.maxs, lost);
  tell_strays(st, "limits of", lost);
}

void follow_restraints(state_type& st, const renumbering& r) {
  strays lost;
  for (auto& restraint : st.run.linear) {
    for (int& n : restraint.para) {
      n = follow(r, n, st.run.maxs, lost);
      if (n == 0 || n > st.run.maxs) restraint.noapply = true;  // a term without a value
    }
  }
  tell_strays(st, "linear restraints on", lost);
}

}  // namespace

std::vector<int> closed_up(std::span<const char> carried) {
  std::vector<int> to(carried.size(), 0);
  int count = 0;
  for (std::size_t n = 1; n < carried.size(); ++n)
    if (carried[n]) to[n] = ++count;
  return to;
}

void settle_numbers(state_type& st) {
  const int given = st.run.maxs;
  const bool by_program = st.run.automatic || !all_selected(st);
  if (calculation_only(st)) {
    st.run.maxs = 0;
    return;
  }
  tell_requests(st);
  if (!by_program && given == 0) {
    if (st.run.maximum_lcode > 0)
      st.tell({false,
               "Maxs is 0: nothing is refined, though codes carry parameter numbers up to " +
                   std::to_string(st.run.maximum_lcode),
               {}});
    return;
  }
  renumbering r;
  if (by_program) {
    r = modify_codes(st);
  } else {
    r.to = closed_up(carried_numbers(st));
    rename_slots(st, r.to);
    st.run.maxs = *std::ranges::max_element(r.to);
  }
  const int in_use = st.run.maxs;
  if (!by_program) st.run.maxs = std::min(given, in_use);
  if (!st.run.automatic && given == 0) st.run.maxs = 0;
  park_idle_codes(st, r, in_use);
  tell_moves(st, r, given, in_use);
  tell_codes_beyond(st, r, in_use);
  if (st.run.maxs > 0 || given > 0) {
    follow_limits(st, r);
    follow_restraints(st, r);
  }
  st.run.number_now = std::move(r.to);
}

std::string number_list(std::span<const int> numbers) {
  std::string text;
  for (std::size_t i = 0; i < numbers.size();) {
    std::size_t j = i;
    while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
    if (!text.empty()) text += ", ";
    text += std::to_string(numbers[i]);
    if (j > i) text += (j > i + 1 ? " to " : ", ") + std::to_string(numbers[j]);
    i = j + 1;
  }
  return text;
}

std::string name_list(const state_type& st, std::span<const slot_place> slots) {
  constexpr std::size_t most = 4;
  std::string text;
  for (std::size_t i = 0; i < std::min(slots.size(), most); ++i) text += (i ? ", " : "") + slot_name(st, slots[i]);
  if (slots.size() > most) text += " and " + std::to_string(slots.size() - most) + " more";
  return text;
}

kalvaris_params::notice unnumbered_requests(const state_type& st, std::span<const slot_place> slots) {
  return {true,
          "codes below 10 (or words on a VARY line) ask for parameter numbers, but automatic codes are off (Aut 0), so "
          "that nothing is refined by them: " +
              name_list(st, slots),
          "Set Aut to 1, or write codes with a number, such as 21.00"};
}

}  // namespace kalvaris_codes
