// The listing of a run: its last block, lists, pages and matrix number by number, and how its cycles hang together.
#include <gmock/gmock.h>

#include "printed_pair.hpp"

namespace {

using namespace printed_pair;

class PrintedListing : public PrintedNumbers {
 protected:
  void listing_of_phase(printed_file& s, int ph);
  void listing_of_pattern(printed_file& s, int ip);
  void listing_of_agreement(printed_file& s, int ip);
  void reflection_list(printed_file& s, int ip, int ph);
};

void PrintedListing::listing_of_phase(printed_file& s, int ph) {
  const auto& phase = st().phase[static_cast<std::size_t>(ph)];
  EXPECT_EQ(first_word(s.behind(" => Phase No. ")), std::to_string(ph + 1));
  s.behind(" Atom ");
  const auto expect_atoms = [&](auto&& row) {
    for (int ia = phase.first_atom; ia < phase.first_atom + phase.natom; ++ia) {
      const auto& atom = st().atom[static_cast<std::size_t>(ia)];
      const std::string line = s.line();
      SCOPED_TRACE(line);
      EXPECT_EQ(first_word(line), atom.atext);
      row(atom, line);
    }
  };
  const auto sigma = [&](const kalvaris_params::atom_type& atom, std::size_t k) {
    return model->sigma(atom.lp[k], atom.a[k]);
  };
  expect_atoms([&](const auto& atom, const std::string& line) {
    std::size_t column = 7;
    for (const std::size_t k : {aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ}) {
      const std::size_t width = k <= aslot::z ? 9 : 7, code = k <= aslot::z ? 4 : 3;
      for (const double v : {double(atom.xl[k]), 0.0, sigma(atom, k)}) {
        expect_printed(field(line, column, width), v, any);
        column += width;
      }
      EXPECT_EQ(field(line, column + 1, code), std::to_string(atom.lp[k]));
      column += code + 2;
    }
    EXPECT_EQ(words_of(line).back(), std::to_string(atom.n_t));
  });
  const std::array betas{aslot::b11, aslot::b22, aslot::b33, aslot::b12, aslot::b13, aslot::b23};
  const auto& anisotropic = st().atom[4];
  if (ph == 1) {
    s.behind(" Name        B11 ");
    const std::array<std::string, 3> lines{s.line(), s.line(), s.line()};
    for (std::size_t i = 0; i < 6; ++i) {
      const auto k = static_cast<std::size_t>(betas[i]);
      expect_printed(field(lines[0], 7 + 16 * i, 10), 1e4 * anisotropic.xl[k], any);
      EXPECT_EQ(field(lines[0], 18 + 16 * i, 4), std::to_string(anisotropic.lp[k]));
      expect_printed(field(lines[1], 7 + 16 * i, 10), 0.0);
      expect_printed(field(lines[2], 7 + 16 * i, 10), 1e4 * sigma(anisotropic, k), any);
    }
  }
  s.behind("  Name      x     sx");
  expect_atoms([&](const auto& atom, const std::string& line) {
    std::size_t column = 7;
    for (const std::size_t k : {aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ}) {
      const std::size_t width = k <= aslot::z ? 9 : 8;
      const std::string value = field(line, column, width);
      expect_printed(value, atom.xl[k], any);
      expect_printed(field(line, column + width + 1, 5), sigma(atom, k) / program_run::last_digit_of(value), any);
      column += width + 7;
    }
  });
  if (ph == 1) {
    s.behind(" Name        B11 ");
    const std::array<std::string, 2> lines{s.line(), s.line()};
    for (std::size_t i = 0; i < 6; ++i) {
      const auto k = static_cast<std::size_t>(betas[i]);
      expect_printed(field(lines[0], 7 + 8 * i, 8), 1e4 * anisotropic.xl[k], any);
      expect_printed(field(lines[1], 7 + 8 * i, 8), 1e4 * sigma(anisotropic, k), any);
    }
  }
  for (int ip : {0, 1}) {
    EXPECT_EQ(first_word(s.behind(" ==> PROFILE PARAMETERS FOR PATTERN#")), std::to_string(ip + 1));
    const auto& m = st().mix(ph, ip);
    while (!s.next_begins_with(" ==> PROFILE") && !s.next_begins_with(" => Cell parameters") && !s.at_end()) {
      const std::string line = s.line();
      SCOPED_TRACE(line);
      const auto k = static_cast<std::size_t>(slot_of(line, listing_column, phase_words, pattern(ip)));
      expect_line(line.substr(listing_column), {m.par[k], 0.0, model->sigma(m.lpar[k], m.apar[k])}, 2);
    }
  }
  s.behind(" => Cell parameters");
  for (std::size_t i = 0; i < 6; ++i) {
    const auto quantity = [&] { return model->cell(ph)[i]; };
    const double deviation = ph == 0 && i > 2 ? 0.0 : model->deviation(quantity);
    expect_line(s.line().substr(listing_column), {quantity(), deviation}, any);
  }
}

void PrintedListing::listing_of_pattern(printed_file& s, int ip) {
  const pattern_type& p = pattern(ip);
  EXPECT_EQ(first_word(s.behind(" ==> GLOBAL PARAMETERS FOR PATTERN#")), std::to_string(ip + 1));
  s.line();
  while (!s.next_begins_with("---") && !s.next_begins_with(" ==> RELIABILITY") && !s.at_end()) {
    const std::string line = s.line();
    SCOPED_TRACE(line);
    if (line.ends_with("==>")) continue;
    const auto k = static_cast<std::size_t>(slot_of(line, listing_column, pattern_words, p));
    expect_line(line.substr(listing_column), {p.glb[k], 0.0, model->sigma(p.lglb[k], p.aglb[k])}, 2);
  }
}

void PrintedListing::listing_of_agreement(printed_file& s, int ip) {
  for (const bool bragg : {false, true}) {
    const auto f = factors(ip, bragg);
    EXPECT_EQ(words_of(s.behind(" ==> RELIABILITY FACTORS")).back(), std::to_string(ip + 1));
    std::string line = s.behind(" => R-Factors:");
    expect_line(line.substr(0, line.find("Chi2:")), {f.rp, f.rwp});
    expect_printed(first_word(after(line, "Chi2:")), f.chi2);
    expect_printed(first_word(after(line, "DW-Stat.:")), f.dw);
    EXPECT_EQ(words_of(line).back(), std::to_string(ip + 1));
    if (!bragg) {
      EXPECT_NE(run.console.find(" => R-Factors:" + line), std::string::npos);
    }
    expect_line(s.behind(" => Expected :"), {f.re, f.dw_limit});
    line = s.behind(" => Deviance :");
    expect_printed(first_word(line), f.deviance);
    expect_printed(words_of(line).back(), f.dstar);
    expect_printed(first_word(s.behind(" => GoF-index:")), std::sqrt(f.s2 / f.n), 2);
    expect_line(s.behind(" => N-P+C:"), {f.freed}, 1);
    s.behind(" =>    SumYdif ");
    expect_line(s.line(), {f.s1, f.d1, f.s3, f.d2, f.s2, st().run.cond});
    expect_line(s.behind(" => Conventional Rietveld Rp,Rwp,Re and Chi2:"), {f.crp, f.crwp, f.cre, f.chi2});
    expect_line(s.behind(" =>  SumYnet, Sum(w Ynet**2):"), {f.net, f.net2});
  }
  const std::string line = s.behind(" => Scor:");
  expect_printed(first_word(line), scor(ip));
  expect_printed(words_of(line).back(), scor(ip));
  for (int ph : {0, 1}) {
    const std::string row = s.behind(" => Phase:");
    const r_pair r = r_of(st(), ip, ph);
    EXPECT_EQ(first_word(row), std::to_string(ph + 1));
    expect_printed(first_word(after(row, "Bragg R-factor:")), r.bragg);
    expect_printed(first_word(after(row, "RF-factor:")), r.f);
  }
}

void PrintedListing::reflection_list(printed_file& s, int ip, int ph) {
  SCOPED_TRACE(testing::Message() << "phase " << ph + 1 << " pattern " << ip + 1);
  const std::string head = s.behind(" => LIST OF REFLECTIONS OF PHASE No.");
  EXPECT_EQ(first_word(head), std::to_string(ph + 1));
  EXPECT_EQ(words_of(head).back(), std::to_string(ip + 1));
  const r_pair r = r_of(st(), ip, ph);
  const std::string factors = s.behind(" => Bragg R-factor:");
  expect_printed(first_word(factors), r.bragg);
  expect_printed(words_of(factors).back(), r.f);
  s.behind("   No. Code ");
  const auto& list = pattern(ip).refl;
  double number = 0;
  for (const auto& q : reflections_of(st(), ip)) {
    if (q.ph != ph) continue;
    const auto u = static_cast<std::size_t>(q.k);
    const auto key = kalvaris_params::unpack_irefs(list.irefs[u]);
    const double f2 = list.ff[u] / double(list.mlt[u]), ratio = q.icalc > 0 ? q.iobs / q.icalc : 0.0;
    expect_line(s.line(),
                {++number, double(key.wave), double(key.h), double(key.k), double(key.l), double(list.mlt[u]), q.hw,
                 q.pos, q.d, q.iobs, q.icalc, f2 * ratio, f2},
                1);
  }
}

/// In each block of values, shifts and deviations the value is that of the block before, moved by the shift, but for a
/// cycle that started again from an older state.
void expect_chained_cycles(const std::vector<std::string>& lines, int cycles) {
  std::vector<std::vector<std::pair<std::string, std::string>>> blocks;
  std::vector<char> restored;
  bool restores = false;
  for (const std::string& line : lines) {
    restores |= line.find("is restored, damping") != std::string::npos;
    if (line.starts_with(" => CYCLE No.:")) blocks.emplace_back(), restored.push_back(restores), restores = false;
    if (line.starts_with(" ==> RESULTS") || blocks.empty()) continue;
    if (line.size() > 100 && line[34] == '(') {  // an atom
      for (std::size_t j = 0; j < 3; ++j)
        blocks.back().emplace_back(field(line, 7 + 33 * j, 9), field(line, 16 + 33 * j, 9));
      for (std::size_t j = 0; j < 2; ++j)
        blocks.back().emplace_back(field(line, 106 + 26 * j, 7), field(line, 113 + 26 * j, 7));
    } else if (line.size() == listing_column + 45) {
      blocks.back().emplace_back(field(line, listing_column, 15), field(line, listing_column + 15, 15));
    }
  }
  ASSERT_EQ(static_cast<int>(blocks.size()), cycles + 1) << "and the last listing";
  int moved = 0;
  for (std::size_t c = 1; c + 1 < blocks.size(); ++c) {
    ASSERT_EQ(blocks[c].size(), blocks[0].size());
    if (restored[c]) continue;
    for (std::size_t i = 0; i < blocks[c].size(); ++i) {
      const auto& [value, shift] = blocks[c][i];
      const std::string& before = blocks[c - 1][i].first;
      const double unit = std::max(
          {program_run::last_digit_of(value), program_run::last_digit_of(before), program_run::last_digit_of(shift)});
      EXPECT_NEAR(std::stod(value) - std::stod(before), std::stod(shift), 1.51 * unit) << c << ' ' << i;
      moved += std::stod(shift) != 0.0;
    }
  }
  EXPECT_GT(moved, refined);
}

TEST_F(PrintedListing, IsReadBackNumberByNumber) {
  const std::string text = where.get("pair.out");
  printed_file beginning(text);
  beginning.behind(" => X-ray scattering coeff.");
  for (const auto& [name, electrons] : {std::pair{"MG", 12}, {"AL", 13}, {"O", 8}, {"TI", 22}}) {
    const auto words = words_of(beginning.line());
    EXPECT_EQ(words.at(0), name);
    EXPECT_NEAR(std::stod(words.at(10)), electrons, 0.02 * electrons);
    EXPECT_EQ(words.at(11), std::to_string(electrons) + ".");
  }
  expect_chained_cycles(program_run::lines_of(text.substr(0, text.find("LIST OF REFLECTIONS"))), st().run.cycles_done);
  const std::size_t limit = text.find("    Parameter no.:   41   at its lower limit ");
  ASSERT_NE(limit, std::string::npos);
  EXPECT_THAT(words_of(text.substr(limit, 90)), testing::IsSupersetOf({"0.10000E-01", "SyCos_pat2"}));

  printed_file s(text.substr(text.rfind(" ==> RESULTS OF REFINEMENT:")));
  for (int ph : {0, 1}) listing_of_phase(s, ph);
  for (int ip : {0, 1}) listing_of_pattern(s, ip);
  for (int ip : {0, 1}) listing_of_agreement(s, ip);
  expect_line(s.behind(" => Global Chi2 (Bragg contrib.):"), {global_chi2()});
  for (int ip : {0, 1}) {
    for (int ph : {0, 1}) reflection_list(s, ip, ph);
    const pattern_type& p = pattern(ip);
    const auto n = static_cast<std::size_t>(p.npts);
    const auto calc = [&](std::size_t i) { return double(p.yc[i]) + p.bk[i]; };
    if (ip == 0) {  // pages of 60 lines and four groups
      for (std::size_t first = 0; first < n; first += 240) {
        s.behind("1 2THETA   YOBS    YCALC VARIANCE ");
        for (std::size_t j = first; j < std::min(first + 60, n); ++j) {
          numbers row;
          for (std::size_t i = j; i < std::min(first + 240, n); i += 60)
            row.insert(row.end(), {12.0 + 0.05 * static_cast<double>(i), p.y[i], calc(i), p.var[i]});
          expect_line(s.line(), row, 1);
        }
      }
    } else {
      s.behind("    2THETA      YOBS     YCALC ");
      double low = calc(0), high = low;
      for (std::size_t i = 0; i < n; ++i) {
        low = std::min({low, double(p.y[i]), calc(i)});
        high = std::max({high, double(p.y[i]), calc(i)});
      }
      for (std::size_t i = 0; i < n; ++i) {
        const std::string line = s.line();
        expect_line(line.substr(0, 30), {11.0 + 0.1 * static_cast<double>(i), p.y[i], calc(i)}, 1);
        const auto column = [&](double y) { return 32 + static_cast<std::size_t>((y - low) / (high - low) * 100); };
        const std::size_t observed = column(p.y[i]), calculated = column(calc(i));
        EXPECT_EQ(line.substr(observed, 1), observed == calculated ? "*" : "o");
        EXPECT_EQ(line.substr(calculated, 1), observed == calculated ? "*" : "+");
      }
    }
  }
  s.behind(" => Correlation Matrix (per cent):");
  const auto correlation = [&](int i, int j) {
    const double v = st().ne.rjac(i, i) * st().ne.rjac(j, j);
    return v > 0 ? std::round(100 * st().ne.rjac(i, j) / std::sqrt(v)) : 0.0;
  };
  for (int first = 0; first < refined; first += 20) {
    numbers head;
    for (int j = first; j < std::min(first + 20, refined); ++j) head.push_back(j + 1);
    expect_line(s.line(), head, 1);
    for (int i = 0; i < refined; ++i) {
      numbers row{i + 1.0};
      for (int j = first; j < std::min(first + 20, refined); ++j) row.push_back(correlation(i, j));
      expect_line(s.line(), row, 1);
    }
  }
  s.behind(" => Parameters with Correlation");
  for (int i = 0; i < refined; ++i)
    for (int j = i + 1; j < refined; ++j) {
      if (correlation(i, j) < 51) continue;
      const auto words = words_of(s.behind(" -> Correlation of parameter:"));
      const auto name = [&](int k) { return st().parm.nampar[static_cast<std::size_t>(k) + 1]; };
      EXPECT_EQ(words, (std::vector{std::to_string(i + 1), name(i), std::string("with"), std::to_string(j + 1), name(j),
                                    std::string(":"), std::to_string(static_cast<int>(correlation(i, j))) + "%"}));
    }
  EXPECT_EQ(s.unread({"    Max", " => Total approximate", "              CPU", "        ",
                      " => Run finished at:", "    because of", "    J.-F. Berar", " WARNING: parameter", " =>   Anisotropic"}),
            "");
}

}  // namespace
