// Plot files and the control file for the next run, every number of them.
#include "printed_pair.hpp"

namespace {

using namespace printed_pair;

/// Numbers in fields of one width with a gap behind each, over as many lines as they take.
std::vector<std::string> fields_of(printed_file& s, std::size_t count, std::size_t per_line, std::size_t width,
                                   std::size_t gap) {
  std::vector<std::string> fields;
  while (fields.size() < count) {
    const std::string line = s.line();
    for (std::size_t j = 0; j < per_line && fields.size() < count; ++j)
      fields.push_back(field(line, j * (width + gap), width));
  }
  return fields;
}

void expect_cell(const std::string& text, const numbers& cell, double temperature) {
  expect_line(text.substr(0, text.find("pgr") == std::string::npos ? text.find("SPGR") : text.find("spgr")),
              numbers(cell.begin(), cell.begin() + 6));
  EXPECT_NE(text.find("F d -3 m:1"), std::string::npos);
  expect_printed(words_of(text).back(), temperature);
}

TEST_F(PrintedNumbers, OfTheCompactPlotFile) {
  printed_file s(where.get("pair_1.prf"));
  const pattern_type& p = pattern(0);
  const auto list = reflections_of(st(), 0);
  const auto n = static_cast<std::size_t>(p.npts);
  expect_cell(after(s.line(), "cell:"), model->cell(0), 295.5);
  expect_line(s.line(), {3111, 1, 1}, 1);
  expect_line(s.line(), {86, 12, 0.05, 8, 0}, 1);
  expect_line(s.line(), {2, double(n), p.lamda[0], p.lamda[1], p.glb[gslot::zero], -0.03, 0.012}, 1);
  const auto of_phase = [&](int ph) { return double(std::ranges::count(list, ph, &printed_reflection::ph)); };
  expect_line(s.line(), {of_phase(0), of_phase(1), 0, 0}, 1);
  const auto observed = fields_of(s, n, 8, 7, 1), calculated = fields_of(s, n, 8, 7, 1);
  for (std::size_t i = 0; i < n; ++i) {
    expect_printed(observed[i], p.y[i], 1);
    expect_printed(calculated[i], double(p.yc[i]) + p.bk[i], 1);
  }
  const auto codes = fields_of(s, list.size(), 8, 10, 0), positions = fields_of(s, list.size(), 10, 8, 0);
  for (std::size_t k = 0; k < list.size(); ++k) {
    EXPECT_EQ(codes[k], std::to_string(p.refl.irefs[k]));
    const double angle = 2 * std::asin(p.lamda[static_cast<std::size_t>(list[k].wave - 1)] / (2 * list[k].d)) / degree;
    expect_printed(positions[k], angle, 5);  // without the shifts of the head
  }
  expect_line(s.line(), {1}, 1);
  expect_line(s.line(), {40, 41.5}, 1);
  EXPECT_EQ(s.unread({}), "");
}

TEST_F(PrintedNumbers, OfTheColumnsForPlots) {
  printed_file s(where.get("pair_2.prf"));
  const pattern_type& p = pattern(1);
  const auto list = reflections_of(st(), 1);
  const auto n = static_cast<std::size_t>(p.npts);
  const std::string head = s.line();
  expect_printed(first_word(after(head, "CHI2:")), factors(1, false).chi2);
  expect_cell(after(head, "CELL:"), model->cell(0), 4.25);
  expect_line(s.line(), {2, double(n), 1.594, 1.594, p.glb[gslot::zero], p.glb[gslot::sycos], -0.02, 0}, 1);
  const auto of_phase = [&](int ph) { return double(std::ranges::count(list, ph, &printed_reflection::ph)); };
  expect_line(s.line(), {of_phase(0), of_phase(1), 0, 0, 2}, 1);
  expect_line(s.line(), {26, 27}, 1);
  expect_line(s.line(), {75, 77.5}, 1);
  s.line();
  for (std::size_t i = 0; i < n; ++i) {
    const auto words = words_of(s.line());
    const double x = 11.0 + 0.1 * static_cast<double>(i), calc = double(p.yc[i]) + p.bk[i];
    const bool excluded = (x > 25.99 && x < 27.01) || (x > 74.99 && x < 77.51);
    const numbers point{x, p.y[i], calc, excluded ? 0.0 : p.y[i] - calc, p.bk[i]};
    ASSERT_EQ(words.size(), i < list.size() ? 12u : 5u);
    for (std::size_t j = 0; j < 5; ++j) expect_printed(words[j], point[j], j == 3 ? any : 1);
    if (i >= list.size()) continue;
    const auto key = kalvaris_params::unpack_irefs(p.refl.irefs[i]);
    const numbers reflection{
        list[i].pos, key.phase + 1.0, double(key.h), double(key.k), double(key.l), double(key.wave), 0};
    for (std::size_t j = 0; j < 7; ++j) expect_printed(words[5 + j], reflection[j], 1);
  }
  EXPECT_EQ(s.unread({}), "");
}

TEST_F(PrintedNumbers, OfTheControlFileOfTheNextRun) {
  const std::string written = where.get("pair.pcr");
  expect_printed(first_word(after(written, "! Current global Chi2 (Bragg contrib.) =")), global_chi2(), 6);
  where.put("next.pcr", program_run::with_word(written, "! Number of refined parameters", 1, 0, "0"));
  const auto next = where.run_and_keep("next");
  ASSERT_TRUE(next.reached_end) << next.console;
  std::vector<std::array<float, 2>> left, found;  // value and code word of every slot
  for (auto& [state, into] : {std::pair{run.state.get(), &left}, {next.state.get(), &found}})
    state->for_each_slot([&into = into](const slot_ref& q) { into->push_back({q.value, q.code_read}); });
  ASSERT_EQ(left.size(), found.size());
  for (std::size_t i = 0; i < left.size(); ++i) {
    EXPECT_NEAR(found[i][0], left[i][0], 1e-6 + 5e-6 * std::abs(left[i][0])) << i;
    EXPECT_EQ(found[i][1], left[i][1]) << i;
  }
}

}  // namespace
