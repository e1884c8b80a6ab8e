// Whole runs that end in a wrong minimum: the remark that comes first names what was put in, with its size; runs that
// end well, or whose intensities alone are wrong, say nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "kv_misfit.hpp"
#include "program_run.hpp"

namespace {

using kv_misfit::kind;
using program_run::directory;

constexpr const char* block_title = "REMARKS ON THE FIT";

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& w : words) line += w + " ";
  return line;
}

/// A control file as lines; each change acts on all lines below the heads that begin with the words.
class control_file {
 public:
  explicit control_file(const std::string& text) : lines(program_run::lines_of(text)) {}

  control_file& zero_off(double by) {
    return below("!    Zero    Code", 1, [&](auto& w) {
      w[0] = std::to_string(std::stod(w[0]) + by);
      w[1] = "0.00";
    });
  }
  control_file& wavelength_times(double factor) {
    return below("!  Lambda1   Lambda2", 1, [&](auto& w) {
      for (const int k : {0, 1}) times(w[at(k)], factor);
    });
  }
  control_file& cell_times(double factor) {
    below("!     a          b", 1, [&](auto& w) {
      for (const int k : {0, 1, 2}) times(w[at(k)], factor);
    });
    return hold("!     a          b");
  }
  control_file& widths_times(double factor) {
    below("!       U            V", 1, [&](auto& w) {
      for (const int k : {0, 1, 2, 5}) times(w[at(k)], factor * factor);
      for (const int k : {3, 4}) times(w[at(k)], factor);
    });
    return hold("!       U            V");
  }
  control_file& background_points_times(double factor) {
    for (std::size_t i = line_with("!     Position      Height") + 1; !lines[i].starts_with("!"); ++i) {
      auto w = words_of(lines[i]);
      times(w[1], factor);
      w[2] = "0.00";
      lines[i] = joined(w);
    }
    return *this;
  }
  control_file& texture(double coefficient) {
    return below("!  Pref1", 1, [&](auto& w) { w[0] = std::to_string(coefficient); }).below("!  Pref1", 2, [](auto& w) {
      w[0] = "0.00";
    });
  }
  control_file& without_phase(int number) {
    const auto head = [](int n) { return "! Data for PHASE number: " + std::to_string(n); };
    const auto first = lines.begin() + static_cast<std::ptrdiff_t>(line_with(head(number)));
    const auto next = std::find(first + 1, lines.end(), head(number + 1));
    lines.erase(first, next);
    return phases(1);
  }
  /// The last phase of another file, its scale factor refined and all else held, as phase 2.
  control_file& with_phase_of(control_file other, double a) {
    other.lines.erase(other.lines.begin(),
                      other.lines.begin() + static_cast<std::ptrdiff_t>(other.line_with("! Data for PHASE number: 2")));
    for (const char* head : {"!       U            V", "!     a          b", "!  Pref1"}) other.hold(head);
    other.below("!     a          b", 1, [&](auto& w) { w[0] = w[1] = w[2] = std::to_string(a); });
    for (std::size_t i = other.line_with("!Atom") + 2; !other.lines[i].starts_with("!"); i += 2)
      other.lines[i] = "0.00 0.00 0.00 0.00 0.00";
    other.below("!  Scale", 2, [](auto& w) { w[0] = "9991.00"; });
    while (lines.back().find_first_not_of(' ') == std::string::npos) lines.pop_back();
    lines.insert(lines.end(), other.lines.begin(), other.lines.end());
    return phases(2);
  }

  /// The text with the numbers of the codes closed up, as the program wants them.
  [[nodiscard]] std::string text() const {
    std::vector<std::string> used;
    for (const std::string& line : lines)
      if (!line.starts_with("!"))
        for (const std::string& w : words_of(line))
          if (const std::string n = number_of(w); !n.empty()) used.push_back(n);
    std::ranges::sort(used, {}, [](const std::string& n) { return std::stoi(n); });
    used.erase(std::unique(used.begin(), used.end()), used.end());
    control_file out = *this;
    for (std::string& line : out.lines) {
      auto w = words_of(line);
      if (line.starts_with("!") || std::ranges::all_of(w, [](const auto& x) { return number_of(x).empty(); })) continue;
      for (std::string& x : w)
        if (const std::string n = number_of(x); !n.empty())
          x = std::to_string(std::ranges::find(used, n) - used.begin() + 1) + "1.00";
      line = joined(w);
    }
    out.below("! Number of refined", 1, [&](auto& w) { w[0] = std::to_string(used.size()); });
    return program_run::join(out.lines);
  }

 private:
  static std::size_t at(int k) { return static_cast<std::size_t>(k); }
  static void times(std::string& word, double factor) { word = std::to_string(std::stod(word) * factor); }
  /// Number of the parameter in a code word such as 121.00; empty for other words.
  static std::string number_of(const std::string& word) {
    if (word.size() < 5 || !word.ends_with("1.00")) return "";
    const std::string n = word.substr(0, word.size() - 4);
    return std::ranges::all_of(n, [](char c) { return '0' <= c && c <= '9'; }) ? n : "";
  }
  [[nodiscard]] std::size_t line_with(const std::string& words) const { return program_run::line_with(lines, words); }
  template <class F>
  control_file& below(const std::string& head, std::size_t distance, F&& change) {
    for (std::size_t i = 0; i < lines.size(); ++i)
      if (lines[i].starts_with(head)) {
        auto w = words_of(lines[i + distance]);
        change(w);
        lines[i + distance] = joined(w);
      }
    return *this;
  }
  control_file& hold(const std::string& head) {
    return below(head, 2, [](auto& w) { std::ranges::fill(w, "0.00"); });
  }
  control_file& phases(int n) {
    return below("!Job Npr", 1, [&](auto& w) { w[2] = std::to_string(n); });
  }

  std::vector<std::string> lines;
};

/// The points of an x y sigma file, changed one by one.
template <class F>
std::string with_points(const std::string& text, F&& change) {
  auto lines = program_run::lines_of(text);
  for (std::size_t i = 6; i < lines.size(); ++i) {
    auto w = words_of(lines[i]);
    if (w.size() != 3) continue;
    change(i - 6, w);
    lines[i] = joined(w);
  }
  return program_run::join(lines);
}

struct wrong_row {
  std::string name, code;
  std::function<void(const directory&, control_file&, const std::string& data)> put_in;
  kind what{};
  std::size_t number = 0;  ///< which of the numbers of the remark is judged
  double value = 0, tolerance = 0;
  int phase = -1;
};

std::vector<wrong_row> wrong_rows() {
  using control = control_file;
  const auto in_control = [](auto&& change) {
    return [change](const directory&, control& c, const std::string&) { change(c); };
  };
  const auto in_data = [](auto&& change) {
    return [change](const directory& where, control&, const std::string& data) {
      where.put(data, with_points(where.get(data), change));
    };
  };
  return {
      // positions; the true zero of zincite is 0.004 deg
      {"ZeroTooHigh", "zno_edge", in_control([](control& c) { c.zero_off(0.3).cell_times(1.0); }), kind::shift, 0,
       -0.296, 0.012},
      {"ZeroTooLow", "zno_edge", in_control([](control& c) { c.zero_off(-0.3).cell_times(1.0); }), kind::shift, 0,
       0.304, 0.012},
      {"ZeroOffCellFree", "lab6_axial", in_control([](control& c) { c.zero_off(0.3); }), kind::shift, 0, -0.31, 0.03},
      {"ZeroOffInsideThePeaks", "lab6_axial", in_control([](control& c) { c.zero_off(0.05); }), kind::shift, 0, -0.06,
       0.02},
      // the cycles trade a tenth of a wrong cell for a shift of the zero, which the remark tells beside it
      {"CellTooSmall", "calcite_quartz", in_control([](control& c) { c.cell_times(0.98); }), kind::cell, 2, -2.0, 0.25},
      {"CellTooLarge", "calcite_quartz", in_control([](control& c) { c.cell_times(1.02); }), kind::cell, 2, 2.0, 0.25},
      {"WavelengthTooShort", "calcite_quartz", in_control([](control& c) { c.cell_times(1.0).wavelength_times(0.98); }),
       kind::cell, 2, 2.04, 0.25},
      // phases
      {"PhaseMissing", "calcite_quartz", in_control([](control& c) { c.without_phase(2); }), kind::unexplained_peaks, 1,
       26.61, 0.02},  // quartz 1 0 1
      {"OtherPhaseMissing", "corundum_fluorite", in_control([](control& c) { c.without_phase(1); }),
       kind::unexplained_peaks, 1, 35.17, 0.03},  // corundum 1 0 4
      {"PhaseTooMuch", "lab6_axial", in_control([](control& c) {
         c.with_phase_of(
             control(program_run::text_of(program_run::example_root() / "corundum_fluorite" / "corundum_fluorite.pcr")),
             6.1);
       }),
       kind::empty_phase, 1, 0.0, 0.5, 1},
      // widths, background
      {"WidthsTimesThree", "calcite_quartz", in_control([](control& c) { c.widths_times(3.0); }), kind::width, 0,
       1.0 / 3.0, 0.04},
      {"WidthsOverThree", "corundum_joint", in_control([](control& c) { c.widths_times(1.0 / 3.0); }), kind::width, 0,
       3.0, 0.4},
      {"BackgroundTooHigh", "lab6_axial", in_control([](control& c) { c.background_points_times(1.5); }),
       kind::background, 1, -33.0, 8.0},
      {"BackgroundTooLow", "lab6_axial", in_control([](control& c) { c.background_points_times(0.7); }),
       kind::background, 1, 43.0, 15.0},
      // data
      {"TwoDeadPoints", "lab6_axial", in_data([](std::size_t i, auto& w) {
         if (i == 611 || i == 612) w[1] = "0", w[2] = "4.3";  // on the flank of the strongest peak
       }),
       kind::dead_points, 1, 30.23, 0.02},
      {"DataScaled", "calcite_quartz", in_data([](std::size_t, auto& w) {
         const double y = std::stod(w[1]) / 15000.0;
         w[1] = std::to_string(y), w[2] = std::to_string(std::sqrt(y));
       }),
       kind::weights, 0, 1.0 / 122.5, 0.15 / 122.5},
  };
}

class WrongMinimum : public testing::TestWithParam<wrong_row> {};

TEST_P(WrongMinimum, IsToldFirstWithItsSizeOnceOnTheConsoleAndOnceInTheSummary) {
  const wrong_row& row = GetParam();
  const directory where(row.code);
  control_file control(where.get(row.code + ".pcr"));
  row.put_in(where, control, row.code + ".dat");
  where.put(row.code + ".pcr", control.text());
  std::vector<kv_misfit::remark> remarks;
  const auto run =
      where.run_and_keep(row.code, row.code + ".dat", [&](const auto& st) { remarks = kv_misfit::remarks(st); });
  ASSERT_TRUE(run.reached_end) << run.console;
  ASSERT_FALSE(remarks.empty()) << "chi-square " << run.state->pattern[0].all.chi2;
  SCOPED_TRACE(remarks[0].text);
  EXPECT_EQ(remarks[0].what, row.what);
  EXPECT_EQ(remarks[0].phase, row.phase);
  ASSERT_GT(remarks[0].numbers.size(), row.number);
  EXPECT_NEAR(remarks[0].numbers[row.number], row.value, row.tolerance);
  for (int ip = 0; ip < run.state->run.n_patt; ++ip)
    EXPECT_LE(std::ranges::count(remarks, ip, &kv_misfit::remark::pattern), 3);

  const std::string first_words = remarks[0].text.substr(0, 40);
  for (const std::string& text : {run.console, where.get(row.code + ".sum")}) {
    const auto block = text.find(block_title);
    ASSERT_NE(block, std::string::npos);
    EXPECT_EQ(text.find(block_title, block + 1), std::string::npos);
    EXPECT_NE(text.find(first_words, block), std::string::npos);
  }
}
INSTANTIATE_TEST_SUITE_P(Rows, WrongMinimum, testing::ValuesIn(wrong_rows()),
                         [](const auto& row) { return row.param.name; });

struct silent_row {
  std::string name, code;
  std::function<void(control_file&)> change;
  float least_chi2 = 0;  ///< the run is meant to be this bad
};

std::vector<silent_row> silent_rows() {
  std::vector<silent_row> rows;
  for (const std::string& name : program_run::case_names()) rows.push_back({name, name, [](control_file&) {}, 0.f});
  for (const std::string& name : program_run::exact_case_names())
    rows.push_back({name + "_exact", name + "_exact", [](control_file&) {}, 0.f});
  rows.push_back({"TextureLeftOut", "calcite_quartz", [](control_file& c) { c.texture(1.0); }, 1.3f});
  rows.push_back({"TextureWrong", "corundum_fluorite", [](control_file& c) { c.texture(2.5); }, 10.f});
  return rows;
}

class RightMinimum : public testing::TestWithParam<silent_row> {};

TEST_P(RightMinimum, IsLeftInPeace) {
  const silent_row& row = GetParam();
  const auto name = row.code.substr(0, row.code.find("_exact"));
  const directory where(name);
  if (row.least_chi2 > 0.f) {
    control_file control(where.get(row.code + ".pcr"));
    row.change(control);
    where.put(row.code + ".pcr", control.text());
  }
  const auto run = where.run_and_keep(row.code, name + ".dat");
  ASSERT_TRUE(run.reached_end) << run.console;
  EXPECT_GE(run.state->pattern[0].all.chi2, row.least_chi2);
  EXPECT_EQ(run.console.find(block_title), std::string::npos) << run.console.substr(run.console.find(block_title));
  EXPECT_EQ(where.get(row.code + ".sum").find(block_title), std::string::npos);
}
INSTANTIATE_TEST_SUITE_P(Rows, RightMinimum, testing::ValuesIn(silent_rows()),
                         [](const auto& row) { return row.param.name; });

}  // namespace
