// Tables of elements and form factors: consistency with physics, published values, the rules of the look-ups.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "lmix_scattering_chemical_tables.hpp"

using namespace lmix_scattering_chemical_tables;

TEST(XrayForm, ForwardValueIsTheNumberOfElectrons) {
  ASSERT_EQ(xray_form().size(), 214u);
  std::set<std::string_view> labels;
  for (const auto& row : xray_form()) {
    EXPECT_EQ(row.symb.size(), 4u);
    EXPECT_TRUE(labels.insert(row.symb).second) << row.symb;
    EXPECT_NEAR(xray_form_factor(row, 0.0), row.z - row.charge, 0.06) << row.symb;
    const auto* element = find_element(row.symb == "hiso" ? "h" : row.symb == "cval" ? "c" : row.symb);
    ASSERT_NE(element, nullptr) << row.symb;
    EXPECT_EQ(element->z, row.z) << row.symb;
  }
}

TEST(XrayForm, IsFoundByFourCharactersWithoutRegardToCase) {
  struct row {
    const char *label, *symb;
  };
  for (const row t : {row{"CU", "cu  "}, row{"Cu", "cu  "}, row{"cu", "cu  "}, row{"Cu+2", "cu+2"},
                      row{"  O-2 ", "o-2 "}, row{"Fe  (site 1)", "fe  "}, row{"SIVA", "siva"}, row{"d", "d   "}}) {
    const auto* hit = find_xray_form(t.label);
    ASSERT_NE(hit, nullptr) << t.label;
    EXPECT_EQ(hit->symb, t.symb);
  }
  for (const char* label : {"", "    ", "xx", "cu+9", "cu2+", "mfe3"})
    EXPECT_EQ(find_xray_form(label), nullptr) << label;
}

TEST(XrayForm, SecondSetOfTheOxideIonFollowsTheFirst) {
  const auto *first = find_xray_form("O-2"), *second = find_xray_form_alt("O-2");
  ASSERT_NE(second, nullptr);
  EXPECT_NEAR(xray_form_factor(*second, 0.0), 9.989, 1e-5);
  for (double s = 0; s <= 0.7; s += 0.05)
    EXPECT_NEAR(xray_form_factor(*second, s * s), xray_form_factor(*first, s * s), 0.045) << s;
  for (const char* label : {"o-1", "o", "fe+3", ""}) EXPECT_EQ(find_xray_form_alt(label), nullptr) << label;
}

TEST(SpecialForms, AreWordsOfTheirOwnAndNoAtomBearsOne) {
  EXPECT_EQ(special_forms().size(), 15u);
  EXPECT_EQ(find_special_form(" sphe")->word, "SPHE");
  EXPECT_EQ(find_special_form("Quad 1")->what, "quadrupole");
  for (const char* label : {"", "SPH", "para2"}) EXPECT_EQ(find_special_form(label) != nullptr, label[0] == 'p');
  for (const auto& row : xray_form()) EXPECT_EQ(find_special_form(row.symb), nullptr) << row.symb;
  for (const auto& row : special_forms()) EXPECT_EQ(find_xray_form(row.word), nullptr) << row.word;
}

// International Tables Vol. C, Table 6.1.1.1 (from the wave functions, not from this fit): f at s = 0.5.
TEST(XrayForm, AgreesWithTheTabulatedCurves) {
  struct row {
    const char* label;
    double f;
  };
  for (const row t : {row{"c", 1.685}, row{"o", 2.338}, row{"si", 6.24}, row{"fe", 11.47}})
    EXPECT_NEAR(xray_form_factor(*find_xray_form(t.label), 0.25), t.f, 0.04) << t.label;
}

TEST(ElectronForm, NeutralAtomTendsToAFiniteForwardValue) {
  // Limit of (Z - f)/s2 for s -> 0 is sum a b. Carbon: 2.509 angstrom (International Tables Vol. C, Table 4.3.1.1).
  EXPECT_NEAR(electron_form_factor(*find_xray_form("c"), 1e-3), 2.509, 0.05);
  EXPECT_NEAR(mott_bethe(29.0, 20.0, 0.25), 9.0 * 0.023934 / 0.25, 1e-12);
  // An ion behaves as its charge over s2.
  const double s2 = 1e-6;
  EXPECT_NEAR(electron_form_factor(*find_xray_form("na+1"), s2) * s2 / 0.023934, 1.0, 0.01);
}

TEST(Anomalous, ColumnIsTheLineWithinFiveThousandths) {
  const auto fe = find_delta_fp_fpp("Fe+3", 1.54056f);  // International Tables Vol. C, 4.2.6: -1.134, 3.197
  ASSERT_TRUE(fe);
  EXPECT_NEAR(fe->fp, -1.134, 0.01);
  EXPECT_NEAR(fe->fpp, 3.197, 0.005);
  struct row {
    float lambda;
    int column;
  };
  for (const row t : {row{2.2897f, 0}, row{1.93604f, 1}, row{1.5406f, 2}, row{1.5444f, 2}, row{0.7107f, 3},
                      row{0.5594f, 4}, row{1.789f, 5}, row{1.6579f, 6}, row{1.5456f, -1}, row{1.536f, 2},
                      row{1.535f, -1}, row{1.0f, -1}, row{0.f, -1}, row{NAN, -1}}) {
    const auto line = anomalous_line(t.lambda);
    EXPECT_EQ(line ? static_cast<int>(*line) : -1, t.column) << t.lambda;
    EXPECT_EQ(find_delta_fp_fpp("fe", t.lambda).has_value(), t.column >= 0) << t.lambda;
  }
  EXPECT_FALSE(find_delta_fp_fpp("Xx", 1.54056f));
  EXPECT_FALSE(find_delta_fp_fpp("Fm", 1.54056f));  // Z = 100, above the table
  EXPECT_EQ(find_delta_fp_fpp("D", 1.54056f)->fpp, 0.f);
}

// Another table of the same theory, with another correction that is one number for an element: S. Sasaki, KEK Report
// 88-14 (1989), at the seven lines. It shows what is no property of the element but of the quadrature.
TEST(Anomalous, DiffersFromAnotherTableByOneNumberPerElement) {
  struct row {
    const char* element;
    std::array<float, 7> fp;  // Cr Fe Cu Mo Ag Co Ni
  };
  for (const row& t : {row{"Ar", {0.242f, 0.352f, 0.365f, 0.155f, 0.100f, 0.369f, 0.372f}},
                       row{"La", {-13.109f, -6.663f, -1.715f, -0.590f, -0.944f, -3.913f, -2.550f}},
                       row{"Ce", {-9.639f, -8.446f, -2.167f, -0.564f, -0.905f, -5.106f, -3.238f}},
                       row{"Pb", {-5.155f, -4.599f, -4.818f, -4.129f, -1.909f, -4.574f, -4.652f}},
                       row{"Bi", {-5.409f, -4.690f, -4.778f, -4.862f, -2.114f, -4.612f, -4.648f}}}) {
    const auto& ours = anomalous_scfac()[static_cast<std::size_t>(find_element(t.element)->z) - 1].fp;
    for (std::size_t i = 0; i < 7; ++i)
      EXPECT_NEAR(ours[i] - t.fp[i], ours[3] - t.fp[3], 0.01) << t.element << " line " << i;
  }
  // International Tables Vol. C, 4.2.6.8, Cu and Mo.
  for (const auto& [element, cu, mo] : {std::tuple{"Pb", -4.0753f, -3.3944f}, std::tuple{"Bi", -4.0111f, -4.1077f}}) {
    const auto& ours = anomalous_scfac()[static_cast<std::size_t>(find_element(element)->z) - 1].fp;
    EXPECT_NEAR(ours[2] - cu, ours[3] - mo, 0.02) << element;
  }
}

TEST(Anomalous, RowsStandInTheOrderOfZAndEdgesAreWhereTheyBelong) {
  for (std::size_t i = 0; i < anomalous_scfac().size(); ++i) {
    const auto* element = find_element(anomalous_scfac()[i].symb);
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(element->z, static_cast<int>(i) + 1);
  }
  // Co K-alpha1 (1.789) lies behind the Fe K edge (1.743 angstrom), Cu K-alpha1 before it: f" jumps by about 6 to 8.
  EXPECT_LT(find_delta_fp_fpp("Fe", 1.78897f)->fpp, 1.f);
  EXPECT_GT(find_delta_fp_fpp("Fe", 1.65791f)->fpp, 3.f);
}

TEST(Neutron, LengthsOfNaturalElementsAndIsotopes) {
  struct row {
    const char* label;
    double b;  // Sears (1992) [1e-12 cm]
  };
  for (const row t : {row{"V", -0.03824}, row{"Ni", 1.03}, row{"NI2+", 1.03}, row{"Mn+3", -0.373}, row{"O", 0.5803},
                      row{"O2", 0.5803}, row{"o18", 0.5803}, row{"h", -0.3739}, row{"D", 0.6671}, row{"2H", 0.6671},
                      row{"T", 0.4792}, row{"ti", -0.3438}, row{"B", 0.53}, row{"11b", 0.665}, row{"11B+3", 0.665},
                      row{"58Ni", 1.44}, row{"62ni", -0.87}, row{"7Li", -0.222}}) {
    const auto b = get_fermi_length(t.label);
    ASSERT_TRUE(b) << t.label;
    EXPECT_NEAR(*b, t.b, 1e-3) << t.label;
  }
  for (const char* label : {"", "12", "Xx", "Po", "84kr", "99Fe", "+3"}) EXPECT_FALSE(get_fermi_length(label)) << label;
  EXPECT_NEAR(find_neutron("Gd")->b_im, -1.382, 1e-3);
  EXPECT_NEAR(*get_inc_xs("V"), 5.08, 1e-3);
  EXPECT_NEAR(*get_abs_xs("10B"), 3835, 1);
}

TEST(Neutron, CoherentCrossSectionIsFourPiBSquared) {
  // Left out: lengths below 0.1, and cross sections that the source gives to a single digit.
  int tested = 0;
  for (const auto& row : neutron_isotopes()) {
    if (!(std::abs(row.b_coh) > 0.1) || std::isnan(row.xs_coh)) continue;
    if (row.xs_coh < 10 && row.xs_coh == std::floor(row.xs_coh)) continue;
    const double b2 = double(row.b_coh) * row.b_coh + double(row.b_coh_im) * row.b_coh_im;
    EXPECT_NEAR(4 * M_PI * b2, row.xs_coh, 0.05 * row.xs_coh + 0.06) << row.symb;  // 1e-24 cm^2 = 1 barn
    ++tested;
  }
  EXPECT_GT(tested, 200);
}

TEST(Elements, LabelsGiveSymbolsAndNumbers) {
  struct row {
    const char *label, *symb;
    int mass;
  };
  for (const row t : {row{"Fe+3", "FE", 0}, row{"O2", "O ", 0}, row{" k1", "K ", 0}, row{"11b", "B ", 11},
                      row{"CA12", "CA", 0}, row{"o-2", "O ", 0}, row{"238U", "U ", 238}}) {
    EXPECT_EQ(get_chemsymb(t.label), t.symb);
    EXPECT_EQ(split_label(t.label).mass, t.mass);
  }
  EXPECT_EQ(get_chemsymb("123"), "  ");
  EXPECT_EQ(symbol_text("FE"), "Fe");
  EXPECT_EQ(symbol_text("O "), "O");
  EXPECT_NEAR(*get_atomic_mass("Fe2"), 55.845, 0.01);
  EXPECT_NEAR(*get_atomic_mass("7Li"), 7.016, 0.02);
  EXPECT_NEAR(*get_covalent_radius("c"), 0.76, 0.01);
  EXPECT_NEAR(*get_atomic_vol("Cu"), 7.11, 0.05);  // 63.546 g/mol over 8.94 g/cm3
  EXPECT_FALSE(get_covalent_radius("Lr"));
  EXPECT_FALSE(get_atomic_mass("Q"));
}

TEST(IonicRadii, ShannonValuesAndTheHighSpinIonFirst) {
  ASSERT_NE(find_ionic_radius("Fe+3", 3, 6), nullptr);
  EXPECT_NEAR(find_ionic_radius("Fe+3", 3, 6)->ionic, 0.645, 1e-4);
  EXPECT_EQ(find_ionic_radius("Fe", 2, 4)->kind, "IV");
  EXPECT_EQ(find_ionic_radius("Fe", 3, 7), nullptr);
  EXPECT_NEAR(*get_ionic_radius("Na", 1), 1.02, 1e-3);
  EXPECT_FALSE(get_ionic_radius("Na", 0));
  EXPECT_FALSE(get_ionic_radius("Na", 6));
  for (const auto& row : ionic_radii()) {
    const auto* first = find_ionic_radius(row.symb, row.charge, row.coordination);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first->spin == "LS" && row.spin == "HS", true) << row.symb << row.charge;
  }
}

TEST(MagneticForm, UnityInForwardDirectionForTheSpinPartAndZeroForTheOthers) {
  for (const auto& row : magnetic_form())
    EXPECT_NEAR(magnetic_form_value<double>(row.sctm, 0, 0.0), 1.0, 0.0025) << row.symb;
  for (const int order : {2, 4, 6}) {
    const auto* row = find_magnetic_form("mho3", order);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(magnetic_form_value<double>(row->sctm, order, 0.0), 0.0);
    const double top = magnetic_form_value<double>(row->sctm, order, 0.49);  // s = 0.7
    EXPECT_GT(top, 0.01) << order;
    EXPECT_LT(top, 0.25) << order;
  }
  // Mn2+ at s = 0.25: 0.669, from the printed <j0> coefficients by hand.
  const double s2 = 0.0625;
  const double by_hand =
      0.4220 * std::exp(-17.684 * s2) + 0.5948 * std::exp(-6.005 * s2) + 0.0043 * std::exp(0.609 * s2) - 0.0219;
  EXPECT_NEAR(*get_magnetic_form_factor("MMN2", float(s2)), by_hand, 1e-4);
}

TEST(MagneticForm, OrderStandsInTheTailOfTheLabel) {
  struct row {
    const char *label, *symb;
    int order;
  };
  for (const row t : {row{"MFe3", "mfe3", 0}, row{"mfe3j2:", "mfe3", 2}, row{"MHO3 j4:", "mho3", 4},
                      row{"mho3J6", "mho3", 6}, row{"jho3", "jho3", 0}, row{"my0 ", "my0 ", 0}}) {
    const auto hit = find_magnetic_form(t.label);
    ASSERT_NE(hit.row, nullptr) << t.label;
    EXPECT_EQ(hit.row->symb, t.symb);
    EXPECT_EQ(hit.order, t.order);
  }
  for (const char* label : {"", "fe3", "mfe3j6", "mho3j3", "mfe9"})
    EXPECT_EQ(find_magnetic_form(label).row, nullptr) << label;
}

TEST(MagneticForm, FittedDipoleFormFollowsItsDefinition) {
  for (const char* ion : {"ho3", "dy3", "er3", "nd3", "tb3"}) {
    const auto* dipole = find_magnetic_dipole(std::string("j") + ion);
    ASSERT_NE(dipole, nullptr) << ion;
    EXPECT_NEAR(dipole->c2, 2.0 / dipole->g_j - 1.0, 1e-5);
    const std::string m = std::string("m") + ion;
    for (double s = 0; s < 1.2; s += 0.1) {
      const double exact = magnetic_form_value<double>(find_magnetic_form(m, 0)->sctm, 0, s * s) +
                           dipole->c2 * magnetic_form_value<double>(find_magnetic_form(m, 2)->sctm, 2, s * s);
      EXPECT_NEAR(*get_magnetic_form_factor(std::string("J") + ion, float(s * s)), exact, 0.005) << ion << ' ' << s;
    }
  }
  EXPECT_NEAR(find_magnetic_dipole("mho3")->g_j, 1.25, 1e-6);
  EXPECT_EQ(find_magnetic_dipole("ho3"), nullptr);
  EXPECT_EQ(find_magnetic_dipole("mfe3"), nullptr);
}

TEST(Sfint, InterpolatesInsideAndKeepsTheEndValuesOutside) {
  const std::vector<float> star{0.f, 1.f, 3.f}, f{10.f, 6.f, 2.f};
  struct row {
    float x, f;
  };
  for (const row t :
       {row{-1.f, 10.f}, row{0.f, 10.f}, row{0.5f, 8.f}, row{1.f, 6.f}, row{2.f, 4.f}, row{3.f, 2.f}, row{9.f, 2.f}})
    EXPECT_FLOAT_EQ(sfint(star, f, t.x, -5.f), t.f) << t.x;
  EXPECT_EQ(sfint(std::span(star).first(1), f, 0.5f, -5.f), -5.f);
  EXPECT_EQ(sfint({}, {}, 0.5f, -5.f), -5.f);
  EXPECT_TRUE(std::isnan(sfint(star, f, NAN, -5.f)));
}

namespace {
std::vector<float> points(float reach, int n) {
  std::vector<float> s;
  for (int i = 0; i < n; ++i) s.push_back(reach * float(i) / float(n - 1));
  return s;
}
}  // namespace

TEST(GaussianFit, GradientIsTheDerivativeOfTheSumOfSquares) {
  const auto s = points(1.5f, 20);
  std::vector<float> f;
  for (const float x : s) f.push_back(20.f * std::exp(-3.f * x));
  const gaussian_sum at{{5, 4, 3, 2}, {1, 4, 12, 40}, 0.7};
  const auto g = grad(s, f, at);
  for (int i = 0; i < 9; ++i) {
    auto moved = [&](double h) {
      gaussian_sum m = at;
      (i < 4 ? m.a[i] : i < 8 ? m.b[i - 4] : m.c) += h;
      return chis(s, f, m);
    };
    const double h = 1e-5;
    EXPECT_NEAR(g[i], (moved(h) - moved(-h)) / (2 * h), 1e-5 * (1 + std::abs(g[i]))) << i;
  }
}

TEST(GaussianFit, ReproducesTabulatedFormFactors) {
  const auto s = points(1.5f, 60);
  for (const auto& row : xray_form()) {
    std::vector<float> f;
    for (const float x : s) f.push_back(xray_form_factor(row, x * x));
    const auto fit = coef(s, f);
    EXPECT_TRUE(fit.converged) << row.symb;
    EXPECT_LT(std::sqrt(fit.chi2 / 60), 5e-4) << row.symb << " in " << fit.iterations;
    for (const double b : fit.coef.b) EXPECT_GT(b, 0) << row.symb;
    EXPECT_NEAR(fit.coef.value(0.731), xray_form_factor(row, 0.731 * 0.731), 1e-3) << row.symb;
  }
}

TEST(GaussianFit, SteepestDescentGoesDownToTheMinimum) {
  const auto s = points(1.5f, 40);
  const auto* iron = find_xray_form("fe");
  std::vector<float> f;
  for (const float x : s) f.push_back(xray_form_factor(*iron, x * x));
  const gaussian_sum start{{10, 6, 4, 3}, {4, 0.5, 12, 60}, 2};
  double last = chis(s, f, start);
  for (const int steps : {1, 10, 100, 1000}) {
    const auto fit = steep(s, f, start, steps);
    EXPECT_LE(fit.iterations, steps);
    EXPECT_NEAR(fit.chi2, chis(s, f, fit.coef), 1e-9 * fit.chi2);
    EXPECT_LT(fit.chi2, last);
    last = fit.chi2;
  }
  EXPECT_LT(last, 1e-3 * chis(s, f, start));
  const auto there = coef(s, f);
  EXPECT_LE(steep(s, f, there.coef, 50).chi2, there.chi2);
}

TEST(GaussianFit, RefusesWhatCannotBeFitted) {
  const auto s = points(1.5f, 12);
  std::vector<float> f(12, 1.f);
  EXPECT_FALSE(coef(points(1.f, 9), std::vector<float>(9, 1.f)).converged);
  f[3] = NAN;
  EXPECT_FALSE(coef(s, f).converged);
  EXPECT_FALSE(coef(std::vector<float>(12, 0.f), std::vector<float>(12, 1.f)).converged);
}
