// Every word of the VARY and FIX lines: which parameters it frees and fixes, and that it leaves all others alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "control_files.hpp"
#include "pcr_commands.hpp"
#include "sample_files.hpp"

namespace {

using control_files::run_directory;
using kalvaris_params::slot_family;
using testing::HasSubstr;
namespace slot = kalvaris_params::slot;
namespace gslot = kalvaris_params::gslot;

using place = std::tuple<slot_family, int, int, int>;
using codes_type = std::map<place, float>;

codes_type codes_of(kalvaris_params::state_type& st) {
  codes_type codes;
  st.for_each_slot([&](const kalvaris_params::slot_ref& s) { codes[{s.family, s.owner, s.ip, s.k}] = s.code; });
  return codes;
}

/// The text with the lines in front of the cycles line, without the commands that stand there.
std::string with_commands(const std::string& text, const std::string& added) {
  std::vector<std::string> lines = control_files::lines_of(text);
  std::erase_if(lines, [](const std::string& line) { return line.starts_with("VARY") || line.starts_with("FIX"); });
  const auto cycles = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("    0.10   1.00") != std::string::npos;
  });
  lines.insert(cycles, added);
  return control_files::join(lines);
}

struct word_row {
  std::string word, file;
  slot_family family;
  int first, last;
};
constexpr slot_family of_pattern = slot_family::global, of_phase = slot_family::phase;

const std::vector<word_row>& word_rows() {
  static const std::vector<word_row> rows{
      {"ratio", "lab6", of_pattern, gslot::ratio2, gslot::ratio2},
      {"zero", "lab6", of_pattern, gslot::zero, gslot::zero},
      {"sycos", "lab6", of_pattern, gslot::sycos, gslot::sycos},
      {"sysin", "lab6", of_pattern, gslot::sysin, gslot::sysin},
      {"back", "lab6", of_pattern, gslot::bac, gslot::bac + 5},
      {"back", "ceria", of_pattern, gslot::bac, gslot::bac + 11},
      {"back", "Debye terms", of_pattern, gslot::bac, -1},
      {"back", "18 cosine terms", of_pattern, gslot::bac, gslot::bac + 17},
      {"back", "Chebychev", of_pattern, gslot::bac, gslot::bac + 23},
      {"back", "background file", of_pattern, gslot::bfile_a, gslot::bfile_d},
      {"backgd", "zincite", of_pattern, gslot::bac, gslot::bac + 5},
      {"P0", "user profiles", of_pattern, gslot::p0, gslot::p0},
      {"Cp", "user profiles", of_pattern, gslot::cp, gslot::cp},
      {"Tau", "user profiles", of_pattern, gslot::tau, gslot::tau},
      {"add_back", "user profiles", of_pattern, gslot::user_bk, gslot::user_bk + 1},
      {"dtt1", "yttria", of_pattern, gslot::dtt1, gslot::dtt1},
      {"dtt2", "yttria", of_pattern, gslot::dtt2, gslot::dtt2},
      {"dtt_1overd", "yttria", of_pattern, gslot::dtt_1overd, gslot::dtt_1overd},
      {"zero", "energy", of_pattern, gslot::zero, gslot::zero},
      {"dtt2", "energy", of_pattern, gslot::dtt2, gslot::dtt2},
      {"Zt", "two regimes", of_pattern, gslot::zero_t, gslot::zero_t},
      {"dtt1t", "two regimes", of_pattern, gslot::dtt1t, gslot::dtt1t},
      {"dtt2t", "two regimes", of_pattern, gslot::dtt2t, gslot::dtt2t},
      {"xcross", "two regimes", of_pattern, gslot::xcross, gslot::xcross},
      {"width", "two regimes", of_pattern, gslot::wcross, gslot::wcross},
      {"flux_7", "Laue, modelled spectrum", of_pattern, gslot::flux, gslot::flux + 6},
      {"abs_12", "Laue, modelled spectrum", of_pattern, gslot::laue_abs, gslot::laue_abs + 11},
      {"abs_4", "Laue, histogram", of_pattern, gslot::laue_abs, gslot::laue_abs + 3},
      {"eff_2", "Laue, modelled spectrum", of_pattern, gslot::effic, gslot::effic + 1},
      {"Scale_Factors", "lab6", of_phase, slot::scale, slot::scale},
      {"Bover", "lab6", of_phase, slot::bov, slot::bov},
      {"Ustrain", "lab6", of_phase, slot::u, slot::u},
      {"Xstrain", "lab6", of_phase, slot::x, slot::x},
      {"Gsize", "lab6", of_phase, slot::gausiz, slot::gausiz},
      {"Ysize", "lab6", of_phase, slot::y, slot::y},
      {"CELL:", "lab6", of_phase, slot::cell_a, slot::cell_f},
      {"Ustrain", "yttria", of_phase, slot::iso_gstrain, slot::iso_gstrain},
      {"Xstrain", "yttria", of_phase, slot::iso_lstrain, slot::iso_lstrain},
      {"Ysize", "yttria", of_phase, slot::iso_lsize, slot::iso_lsize},
      {"Gsize", "yttria", of_phase, slot::iso_gsize, slot::iso_gsize},
      {"Scale_Factors", "ceria", of_phase, slot::scale, -1},  // free intensities absorb the scale
  };
  return rows;
}

/// Parameters that the word names in the file.
std::set<int> slots_of(const word_row& row) {
  std::set<int> slots;
  for (int k = row.first; k <= row.last; ++k) slots.insert(k);
  if (row.file == "Debye terms") {
    for (const int first : {int{gslot::bac}, int{gslot::debye_amp}, int{gslot::debye_dist}}) {
      for (int k = first; k < first + 6; ++k) slots.insert(k);
    }
  }
  return slots;
}

TEST(VaryFix, EachWordActsOnItsParametersAndNoOther) {
  run_directory run;
  run.put_named_files();
  const auto read = [&](const word_row& row, const std::string& commands) {
    auto& st = run.read(with_commands(control_files::sample(row.file), commands));
    EXPECT_EQ(st.fmt.ierr_fmt, 0) << run.message();
    EXPECT_THAT(run.console.str(), testing::Not(HasSubstr("Unknown word")));
    return codes_of(st);
  };
  for (const word_row& row : word_rows()) {
    SCOPED_TRACE(row.word + " in " + row.file);
    const std::set<int> slots = slots_of(row);
    const codes_type none = read(row, "! none"), vary = read(row, "VARY " + row.word),
                     fix = read(row, "FIX " + row.word), both = read(row, "VARY " + row.word + "\nFIX " + row.word);
    for (const auto& [where, code] : none) {
      const auto& [family, owner, ip, k] = where;
      const bool named = family == row.family && slots.count(k) != 0;
      EXPECT_EQ(vary.at(where), named && code == 0.f ? 1.f : code) << k;
      EXPECT_EQ(fix.at(where), named ? 0.f : code) << k;
      EXPECT_EQ(both.at(where), named ? 0.f : code) << k;
    }
  }
}

TEST(VaryFix, TheTableHoldsEveryWord) {
  std::set<std::string> tested{"Microabs"};
  for (const word_row& row : word_rows()) tested.insert(row.word);
  for (const std::string_view word : pcr_commands::parameter_words)
    EXPECT_EQ(tested.count(std::string(word)), 1u) << word;
}

TEST(VaryFix, MicroabsFixesAllThree) {
  run_directory run;
  const std::string text = with_commands(control_files::sample("user profiles"), "VARY P0 Cp Tau\nFIX Microabs");
  const auto& p = run.read(text).pattern[0];
  for (const int k : {int{gslot::p0}, int{gslot::cp}, int{gslot::tau}}) EXPECT_EQ(p.aglb[k], 0.f);
}

TEST(VaryFix, UnknownWordsAreToldAndLowerCaseKeysAreNoKeys) {
  run_directory run;
  EXPECT_EQ(run.read(with_commands(control_files::ceria, "VARY zero sykos flux_\nFIX Phase No.: 1 Uvw")).fmt.ierr_fmt,
            0);
  for (const char* words : {" on the VARY line of pattern 1: SYKOS\n", " on the VARY line of pattern 1: FLUX_\n",
                            " Warning! Unknown word on the FIX line of pattern 1: UVW\n"}) {
    EXPECT_THAT(run.console.str(), HasSubstr(words));
  }
  EXPECT_EQ(run.read(with_commands(control_files::ceria, "vary zero")).fmt.ierr_fmt, 7);  // read as the cycles line
}

}  // namespace
