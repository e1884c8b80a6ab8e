// The summary of a run, every number of it.
#include <map>
#include <numeric>

#include "printed_pair.hpp"

namespace {

using namespace printed_pair;

class PrintedSummary : public PrintedNumbers {
 protected:
  void summary_of_phase(printed_file& s, int ph);
  void summary_of_pattern(printed_file& s, int ip);
  void analysis(printed_file& s, int ip);
  void analysis_of_phases(printed_file& s, int ip, int intensity);
  void parameter_table(printed_file& s);
};

void PrintedSummary::summary_of_phase(printed_file& s, int ph) {
  const auto& phase = st().phase[static_cast<std::size_t>(ph)];
  EXPECT_EQ(first_word(s.behind(" => Phase No. ")), std::to_string(ph + 1));
  s.behind(" => Cell parameters");
  const bool cubic = ph == 0;
  for (std::size_t i = 0; i < 7; ++i) {
    const auto quantity = [&] { return model->cell(ph)[i]; };
    const double sigma = cubic && i > 2 && i < 6 ? 0.0 : model->deviation(quantity);
    expect_quoted(first_word(s.line().substr(summary_column)), quantity(), sigma);
  }
  s.behind("    Name ");
  for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
    const auto& atom = st().atom[static_cast<std::size_t>(ia)];
    std::string line = s.line();
    SCOPED_TRACE(line);
    EXPECT_EQ(first_word(line), atom.atext);
    const auto row = [&](std::initializer_list<int> slots) {
      std::size_t column = 12;
      for (const int k : slots) {
        const auto u = static_cast<std::size_t>(k);
        expect_quoted(first_word(line.substr(column, 16)), atom.xl[u], model->sigma(atom.lp[u], atom.a[u]));
        column += 16;
      }
    };
    row({aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ});
    if (atom.n_t == 0) continue;
    line = s.line();
    row({aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23});
  }
  for (int ip : {0, 1}) {
    EXPECT_EQ(first_word(s.behind(" ==> Profile parameters for pattern#")), std::to_string(ip + 1));
    const auto& m = st().mix(ph, ip);
    int refined = 0;
    while (!s.next_begins_with(" => Bragg R-factor:") && !s.at_end()) {
      const std::string line = s.line();
      SCOPED_TRACE(line);
      const auto k = static_cast<std::size_t>(slot_of(line, summary_column, phase_words, pattern(ip)));
      refined += m.lpar[k] != 0;
      expect_quoted(first_word(line.substr(summary_column)), m.par[k], model->sigma(m.lpar[k], m.apar[k]));
    }
    for (int k = 1; k <= slot::last; ++k)
      refined -= m.lpar[static_cast<std::size_t>(k)] != 0 && (k < slot::cell_a || k > slot::cell_f);
    EXPECT_EQ(refined, 0) << "refined parameters are not printed";
    const auto r = r_of(st(), ip, ph);
    const std::string factors = s.behind(" => Bragg R-factor:");
    expect_printed(first_word(factors), r.bragg);
    expect_printed(first_word(after(factors, "RF-factor:")), r.f);
    const auto list = reflections_of(st(), ip);
    const auto count = [&](int waves) {
      return std::ranges::count_if(list, [&](const auto& q) { return q.ph == ph && q.wave <= waves; });
    };
    const std::string line = s.behind(" => Number of reflections:");
    EXPECT_EQ(first_word(line), std::to_string(count(2)));
    EXPECT_EQ(words_of(line).back(), std::to_string(count(1)));
  }
}

void PrintedSummary::summary_of_pattern(printed_file& s, int ip) {
  SCOPED_TRACE(testing::Message() << "pattern " << ip + 1);
  const pattern_type& p = pattern(ip);
  EXPECT_EQ(first_word(s.behind(" ==> GLOBAL PARAMETERS FOR PATTERN#")), std::to_string(ip + 1));
  s.line();
  while (!s.next_begins_with(" ==> RELIABILITY") && !s.at_end()) {
    const std::string line = s.line();
    SCOPED_TRACE(line);
    if (line.ends_with("==>")) continue;  // a heading
    const auto k = static_cast<std::size_t>(slot_of(line, summary_column, pattern_words, p));
    expect_quoted(first_word(line.substr(summary_column)), p.glb[k], model->sigma(p.lglb[k], p.aglb[k]));
  }
  for (const bool bragg : {false, true}) {
    const auto f = factors(ip, bragg);
    const std::string head =
        s.behind(bragg ? " ==> RELIABILITY FACTORS FOR POINTS WITH BRAGG CONTRIBUTIONS FOR PATTERN:"
                       : " ==> RELIABILITY FACTORS WITH ALL NON-EXCLUDED POINTS FOR PATTERN:");
    EXPECT_EQ(first_word(head), std::to_string(ip + 1));
    EXPECT_EQ(words_of(head).back(), std::to_string(static_cast<int>(f.n)));
    for (const numbers& four : {numbers{f.rp, f.rwp, f.re, f.chi2}, {f.crp, f.crwp, f.cre, f.chi2}}) {
      EXPECT_EQ(words_of(s.line()).back(), std::to_string(ip + 1));
      const std::string line = s.behind(" => Rp:");
      expect_printed(first_word(line), four[0]);
      expect_printed(first_word(after(line, "Rwp:")), four[1]);
      expect_printed(first_word(after(line, "Rexp:")), four[2]);
      expect_printed(first_word(after(line, "Chi2:")), four[3]);
    }
    std::string line = s.behind(" => Deviance:");
    expect_printed(first_word(line), f.deviance);
    expect_printed(first_word(after(line, "Dev*  :")), f.dstar);
    line = s.behind(" => DW-Stat.:");
    expect_printed(first_word(line), f.dw);
    expect_printed(first_word(after(line, "DW-exp:")), f.dw_limit);
    expect_printed(first_word(s.behind(" => N-sigma of the GoF:")), f.deviate, 2);
  }
  const std::string line = s.behind(" => Scor:");
  expect_printed(first_word(line), scor(ip));
  expect_printed(words_of(line).back(), scor(ip));
  s.behind(" => Mass fractions");
  for (int ph : {0, 1}) {
    const std::string row = s.line();
    EXPECT_EQ(first_word(row), std::to_string(ph + 1));
    const auto of_scales = [&](int n) {  // deviations of volumes and occupancies are left out
      for (int o : {0, 1})
        if (st().mix(o, ip).lpar[slot::scale] == n) return true;
      return false;
    };
    const auto quantity = [&] { return model->mass_per_cent(ph, ip); };
    expect_quoted(first_word(row.substr(summary_column)), quantity(), model->deviation(quantity, of_scales));
  }
}

void PrintedSummary::analysis(printed_file& s, int ip) {
  SCOPED_TRACE(testing::Message() << "pattern " << ip + 1);
  const pattern_type& p = pattern(ip);
  const auto list = reflections_of(st(), ip);
  EXPECT_EQ(first_word(s.behind("       -    ANALYSIS OF THE REFINEMENT FOR PATTERN #")), std::to_string(ip + 1));
  const double d0 = list.front().d, d1 = list.back().d;
  expect_line(s.behind("    First and last reflections:"), {1.0, static_cast<double>(list.size())}, 1);
  expect_line(s.behind("    2theta(degrees)/T.O.F(microsecs)/Energy(KeV) =>"), {list.front().pos, list.back().pos});
  expect_line(s.behind("    s (angstroms-1) =>"), {1 / d0, 1 / d1});
  expect_line(s.behind("    D (angstroms  ) =>"), {d0, d1});
  expect_line(s.behind("    sin(theta/lamb) =>"), {0.5 / d0, 0.5 / d1});
  expect_line(s.behind("    Q (angstroms-1) =>"), {2 * M_PI / d0, 2 * M_PI / d1});
  double width = 0;
  for (const auto& r : list) width += r.hw / static_cast<double>(list.size());
  std::string line = s.behind("    The average FWHM is:");
  expect_printed(first_word(line), width);
  expect_printed(words_of(line).back(), width / (ip == 0 ? 0.05 : 0.10));

  numbers quarter(4);
  double expected = 0, observed = 0, net = 0;
  for (std::size_t i = 0; i < p.y.size(); ++i) {
    if (p.kr[i] == st().dim.maxreflx) continue;
    quarter[4 * i / p.y.size()] += double(p.y[i]) - p.yc[i] - p.bk[i];
    expected += std::sqrt(2 / M_PI * p.var[i]);
    observed += p.y[i], net += double(p.y[i]) - p.bk[i];
  }
  line = s.behind(" => Sum(Yiobs-Yical):");
  for (std::size_t i = 0; i < 4; ++i) expect_printed(words_of(line).at(i), quarter[i], 1);
  expect_printed(first_word(s.behind("            Total ->")), std::accumulate(quarter.begin(), quarter.end(), 0.0), 1);
  const auto f = factors(ip, false);
  line = s.behind("  Expected Rp (background uncorrected):");
  expect_printed(first_word(line), 100 * expected / observed, 2);
  expect_printed(words_of(line).back(), f.rp);
  line = s.behind("  Expected cRp(background   corrected):");
  expect_printed(first_word(line), 100 * expected / net, 2);
  expect_printed(words_of(line).back(), f.crp);
  expect_printed(words_of(s.behind("  -> Ratio Rp/Exp=cRp/cExp:")).back(), f.rp * observed / (100 * expected), 2);
  const std::array r{r_of(st(), ip, 0), r_of(st(), ip, 1)};
  const double area = r[0].area + r[1].area;
  const auto mean = [&](double r_pair::*q) { return (r[0].*q * r[0].area + r[1].*q * r[1].area) / area; };
  expect_printed(first_word(s.behind("  Weighted Average Bragg R-factor:")), mean(&r_pair::bragg), 2);
  expect_printed(first_word(s.behind("  Weighted Average      RF-factor:")), mean(&r_pair::f), 2);
  expect_printed(first_word(s.behind("  Reduced Chi-square :")), factors(ip, true).chi2, 2);

  const auto independent = std::ranges::count_if(list, [](const auto& q) { return q.wave == 1; });
  EXPECT_EQ(first_word(s.behind(" => Total number of independent reflections:")), std::to_string(independent));
  for (const double reach : {1.0, 0.5, 0.25}) {
    line = s.behind(" => Effective number of reflections (p=");
    expect_printed(line.substr(1, 4), reach, 2);
    expect_printed(words_of(line).back(), effective_number(st(), ip, -1, reach));
  }
  // by hand from the codes above
  const std::array<numbers, 2> counts{numbers{5, 11, 12}, {7, 10, 11}};
  const numbers& n = counts[static_cast<std::size_t>(ip)];
  expect_line(s.behind(" => Number of global parameters:"), {n[0]}, 1);
  expect_line(s.behind(" => Number of profile parameters:"), {n[1]}, 1);
  expect_line(s.behind(" => Number of intensity-affecting parameters:"), {n[2]}, 1);
  for (const auto& [name, reach] :
       {std::pair{"    Pessimistic", 1.0}, {"    Eclectic", 0.5}, {"    Optimistic", 0.25}}) {
    line = s.behind(name);
    expect_printed(after(line, "(p= ").substr(0, 4), reach, 2);
    expect_printed(words_of(line).back(), effective_number(st(), ip, -1, reach) / n[2]);
  }
  analysis_of_phases(s, ip, static_cast<int>(n[2]));
}

void PrintedSummary::analysis_of_phases(printed_file& s, int ip, int) {
  const auto list = reflections_of(st(), ip);
  const double k = 4 * M_PI / pattern(ip).lamda[0];
  s.behind(" Phase    2Theta/TOF ");
  for (int ph : {0, 1}) {
    const printed_reflection* sharp = nullptr;
    for (const auto& r : list)
      if (r.ph == ph && r.wave == 1 && (sharp == nullptr || r.hw < sharp->hw)) sharp = &r;
    const double theta = 0.5 * sharp->pos * degree, half = 0.5 * sharp->hw * degree, dq = k * std::cos(theta) * half;
    expect_line(s.line(),
                {ph + 1.0, sharp->pos, sharp->hw, k * std::sin(theta), dq, 2 * M_PI / dq, 100 * half / std::tan(theta)},
                1);
  }
  const double total = r_of(st(), ip, 0).area + r_of(st(), ip, 1).area;
  // by hand from the codes above: intensity parameters, then those of profile and cell
  constexpr double intensity[2][2] = {{5, 7}, {4, 7}}, profile[2][2] = {{5, 6}, {3, 7}};
  s.behind(" Phase   %Cont ");
  for (const std::size_t ph : {0u, 1u}) {
    const int i = static_cast<int>(ph);
    const auto own = std::ranges::count_if(list, [&](const auto& q) { return q.ph == i && q.wave == 1; });
    numbers row{ph + 1.0, 100 * r_of(st(), ip, i).area / total, intensity[ip][ph], profile[ip][ph],
                static_cast<double>(own)};
    for (const double reach : {1.0, 0.5, 0.25}) row.push_back(effective_number(st(), ip, i, reach));
    for (const std::size_t of : {5u, 6u, 7u}) row.push_back(row[of] / intensity[ip][ph]);
    expect_line(s.line(), row, 1);
  }
  for (const std::size_t ph : {0u, 1u}) {
    const std::string line = s.behind(" => Phase");
    EXPECT_EQ(first_word(line), std::to_string(ph + 1));
    numbers freedom;
    for (const double reach : {1.0, 0.5, 0.25})
      freedom.push_back(effective_number(st(), ip, static_cast<int>(ph), reach) - intensity[ip][ph]);
    expect_line(after(line, "1/4:"), freedom);
  }
  expect_line(s.behind(" -> SCOR ="), {scor(ip)});
}

/// Value and deviation to the same decimals, at least two digits of the deviation.
void PrintedSummary::parameter_table(printed_file& s) {
  s.behind(" => Refined parameters, values and standard deviations ==>");
  std::map<int, std::pair<double, double>> wanted;
  st().for_each_slot([&](const slot_ref& q) {
    if (q.number != 0) wanted.try_emplace(q.number, q.value, model->sigma(q.number, q.code));
  });
  for (const auto& [n, value] : wanted) {
    const auto words = words_of(s.line());
    SCOPED_TRACE(words.at(1));
    EXPECT_EQ(words[0], std::to_string(n));
    EXPECT_EQ(words[1], st().parm.nampar.at(static_cast<std::size_t>(n)));
    expect_printed(words.at(2), value.first);
    expect_printed(words.at(3), value.second, 2);
    if (value.second != 0.0) {
      EXPECT_LT(program_run::last_digit_of(words[2]), 0.11 * value.second) << words[2] << " (" << words[3] << ")";
    }
  }
}

TEST_F(PrintedSummary, IsReadBackNumberByNumber) {
  printed_file s(where.get("pair.sum"));
  s.behind(" ==> RESULTS OF REFINEMENT:");
  const std::string head = s.behind(" => No. of fitted parameters:");
  EXPECT_EQ(first_word(head), std::to_string(refined));
  EXPECT_EQ(words_of(head).back(), std::to_string(st().run.cycles_done));
  for (int ph : {0, 1}) summary_of_phase(s, ph);
  for (int ip : {0, 1}) summary_of_pattern(s, ip);
  expect_line(s.behind(" => Global Chi2 of the last listing:"), {global_chi2()});
  for (int ip : {0, 1}) analysis(s, ip);
  parameter_table(s);
  EXPECT_EQ(
      s.unread({"    Date:", "              CPU", "        ", " => Run finished at:", "    because of", " => PCR",
                " => WARNING: parameter"}),
      "");
  EXPECT_EQ(pattern(0).lamda[0], pattern(0).glb[gslot::lambda]);
  EXPECT_NEAR(pattern(0).lamda[1] / pattern(0).lamda[0], 1.54439 / 1.54056, 1e-6);
  // the limit of SyCos holds it: its number has no deviation
  EXPECT_EQ(pattern(1).glb[gslot::sycos], 0.01f);
}

}  // namespace
