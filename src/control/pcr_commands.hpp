// pcr_commands: the words of the VARY and FIX lines of a pattern, which free or fix parameters by name.
// It owns the split words; the lines themselves belong to the pattern. The reader of the control file applies them.
#pragma once
#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace pcr_commands {

/// Codes below this size count as absent when VARY asks for a parameter.
inline constexpr float absent_code = 0.001f;

/// All words that name parameters, as they are usually written.
inline constexpr std::array<std::string_view, 26> parameter_words{
    "ratio", "backgd",        "zero",   "sycos",   "sysin",   "dtt1",  "dtt2",  "dtt_1overd", "Zt",
    "dtt1t", "dtt2t",         "xcross", "width",   "P0",      "Cp",    "Tau",   "Microabs",   "add_back",
    "back",  "Scale_Factors", "Bover",  "Ustrain", "Xstrain", "Gsize", "Ysize", "CELL:"};
/// Beginnings of words that end with a number of coefficients.
inline constexpr std::array<std::string_view, 3> counted_words{"flux_", "abs_", "eff_"};
[[nodiscard]] bool is_parameter_word(std::string_view word);

/// Words of one line, whole words between blanks or commas, any case. "Phase No.:" and the numbers behind it restrict
/// the words before it (since the last such list) to these phases; when the line has one list only, all its words.
class word_line {
 public:
  explicit word_line(std::string_view line);
  /// True when the word stands on the line, for phase 1.. when given: unless a list names other phases only.
  [[nodiscard]] bool has(std::string_view word, int phase = 0) const;
  /// The largest number behind the prefix, of words such as flux_12; 0 when there is none.
  [[nodiscard]] int count_behind(std::string_view prefix) const;
  [[nodiscard]] std::vector<std::string> words() const;  ///< all, in upper case

 private:
  struct group {
    std::vector<std::string> words;
    std::vector<int> phases;  ///< empty: all
  };
  std::vector<group> groups_;
};

/// Both lines. FIX is applied second, so that it wins over VARY.
class commands {
 public:
  commands(std::string_view vary_command, std::string_view fix_command) : vary_(vary_command), fix_(fix_command) {}
  [[nodiscard]] bool vary(std::string_view word, int phase = 0) const { return vary_.has(word, phase); }
  [[nodiscard]] bool fix(std::string_view word, int phase = 0) const { return fix_.has(word, phase); }
  /// How many coefficients words such as flux_12 name.
  [[nodiscard]] int varied(std::string_view prefix) const { return vary_.count_behind(prefix); }
  [[nodiscard]] int fixed(std::string_view prefix) const { return fix_.count_behind(prefix); }
  /// Applies both lines to the code of a named parameter: VARY makes an absent code 1.0, which asks for a number
  /// without giving one; FIX makes it 0.
  void apply(std::string_view word, float& code, int phase = 0) const;

 private:
  word_line vary_, fix_;
};

}  // namespace pcr_commands
