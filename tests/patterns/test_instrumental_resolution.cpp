#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "instrumental_resolution.hpp"

namespace {

using namespace instrumental_resolution;
using kalvaris_params::pattern_type;
using kalvaris_params::resolution_type;
using kalvaris_params::state_type;
using testing::HasSubstr;
namespace job = kalvaris_params::job;

/// A run in a directory of its own, its patterns sharing one resolution file written by the test.
struct irf_run {
  std::filesystem::path directory;
  std::ostringstream console;
  state_type st;

  explicit irf_run(int ireso, const std::string& content, int ixunit = 0, int n_patt = 1) {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    directory = std::filesystem::temp_directory_path() /
                (std::string("kv_") + test->test_suite_name() + "_" + test->name() + "_" + std::to_string(getpid()));
    std::filesystem::create_directories(directory);
    st.io.directory = directory.string() + "/";
    st.io.console = &console;
    st.run.n_patt = n_patt;
    st.pattern.resize(static_cast<std::size_t>(n_patt));
    st.io.fileres.assign(static_cast<std::size_t>(n_patt), "lab.irf");
    for (auto& p : st.pattern) p.ireso = ireso, p.ixunit = ixunit, p.jobtyp = job::xrays;
    write(content);
  }
  ~irf_run() { std::filesystem::remove_all(directory); }
  irf_run(const irf_run&) = delete;
  irf_run& operator=(const irf_run&) = delete;

  void write(const std::string& content) const { std::ofstream(directory / "lab.irf", std::ios::binary) << content; }
  bool read(int ip = 0) { return read_irf(st, ip); }
  pattern_type& pattern(std::size_t ip = 0) { return st.pattern[ip]; }
  resolution_type& record(std::size_t ip = 0) { return st.pattern[ip].resolution; }
  [[nodiscard]] const std::string& message() const { return st.io.file_error_mess; }
  cw_terms at(double x, int wave = 1) {
    const double theta = 0.5 * x * std::acos(-1.0) / 180;
    return apply_irf_cw(make_cw_model(pattern(), wave), x, std::pow(std::tan(theta), 2), std::tan(theta),
                        std::cos(theta));
  }
};

const std::string coefficients = " 0.3 -0.2 0.1\n 0.08 0.06 0.04\n";
const std::string table4 = "3\n10 0.1 0.02\n20 0.2 0.04\n40 0.1 0.08\n";
const std::string table8 = "3\n10 0.1 0.02 0.01 0.02\n20 0.2 0.04 0.03 0.06\n40 0.1 0.08 0.05 0.02\n";

TEST(ReadIrf, LaboratoryFileAsItIsWritten) {
  irf_run run(1,
              "Laboratory diffractometer, from LaB6\r\n! remark\r\n\r\nWAVE 1.54056 1.54439 0.5 ! Cu\r\n"
              " 0.0060 -0.0040 0.0035 # U V W\r\n\t0.0080\t0.0150  0.0000\r\n");
  ASSERT_TRUE(run.read()) << run.message();
  const auto& r = run.record();
  EXPECT_EQ(r.title, "Laboratory diffractometer, from LaB6");
  EXPECT_TRUE(r.wavel_g);
  EXPECT_EQ(run.pattern().lamda, (std::array{1.54056f, 1.54439f}));
  EXPECT_EQ(run.pattern().ratio, (std::array{1.f, 0.5f}));
  for (std::size_t w = 0; w < 2; ++w) {
    EXPECT_EQ((std::array{r.uins[w], r.vins[w], r.wins[w]}), (std::array{0.006f, -0.004f, 0.0035f}));
    EXPECT_EQ((std::array{r.xins[w], r.yins[w], r.zins[w]}), (std::array{0.008f, 0.015f, 0.f}));
  }
  EXPECT_FALSE(r.rkk_g || r.range_g || r.cthm_g || r.geom_g || r.asym_g || r.sigam_g || r.alfbet_g || r.shift_g);
  EXPECT_EQ(run.console.str(), "");
}

TEST(ReadIrf, SecondWavelengthMayHaveItsOwnWidths) {
  irf_run run(1, "t\n1 2 3\n4 5 6\n7 8 9\n10 11 12\n");
  ASSERT_TRUE(run.read()) << run.message();
  const auto& r = run.record();
  EXPECT_EQ(r.uins, (std::array{1.f, 7.f}));
  EXPECT_EQ(r.wins, (std::array{3.f, 9.f}));
  EXPECT_EQ(r.xins, (std::array{4.f, 10.f}));
  EXPECT_EQ(r.zins, (std::array{6.f, 12.f}));
}

TEST(ReadIrf, KeywordsOfConstantWavelength) {
  struct row {
    const char* line;
    int jobtyp;  ///< of the control file
    bool (*holds)(const pattern_type& p);
  };
  for (const row& t : {
           row{"SYNC 0.95", 0, [](const pattern_type& p) { return p.resolution.rkk_g && p.rkk == 0.95f; }},
           row{"sync 0.95", 0, [](const pattern_type& p) { return p.resolution.rkk_g && p.rkk == 0.95f; }},
           row{"CTHM 0.7998", 0, [](const pattern_type& p) { return p.resolution.cthm_g && p.cthm == 0.7998f; }},
           row{"PROF 12", 0, [](const pattern_type& p) { return p.nprof == 12; }},
           row{"ASYM 0.02 0.03", 0,
               [](const pattern_type& p) {
                 return p.resolution.asym_g && p.resolution.s_l == 0.02f && p.resolution.d_l == 0.03f;
               }},
           row{"THRG 5 0.01 120", 0,
               [](const pattern_type& p) {
                 const auto& r = p.resolution;
                 return r.range_g && r.thmin == 5.f && r.step == 0.01f && r.thmax == 120.f && p.low_range == 5.f &&
                        p.high_range == 120.f;
               }},
           row{"GEOM trmf 6.5", 0,
               [](const pattern_type& p) {
                 return p.resolution.geom_g && p.ilor == 1 && p.resolution.alpsd == 6.5f && !p.disp_ds;
               }},
           row{"GEOM trmb 45", 0, [](const pattern_type& p) { return p.ilor == 4 && p.resolution.alpsd == 45.f; }},
           row{"GEOM debye", 0, [](const pattern_type& p) { return p.ilor == 3 && p.disp_ds; }},
           row{"GEOM brag", 0, [](const pattern_type& p) { return p.resolution.geom_g && p.ilor == 0 && !p.disp_ds; }},
           row{"GEOM SYNC", 0, [](const pattern_type& p) { return p.ilor == -2 && p.disp_ds; }},
           row{"GEOM tran", 0, [](const pattern_type& p) { return p.ilor == 2 && p.resolution.alpsd == 0.f; }},
           row{"NEUT", 0, [](const pattern_type& p) { return p.jobtyp == -1 && p.disp_ds; }},
           row{"neuc", 0, [](const pattern_type& p) { return p.jobtyp == 1; }},
           row{"NEUC", 2, [](const pattern_type& p) { return p.jobtyp == 3 && !p.refining(); }},
           row{"JOBT TOF", 1, [](const pattern_type& p) { return p.jobtyp == -1 && p.refining(); }},
           row{"JOBT tof", 3, [](const pattern_type& p) { return p.jobtyp == -3 && !p.refining(); }},
           row{"JOBT tofc", 1, [](const pattern_type& p) { return p.jobtyp == -3; }},
           row{"tofc", 1, [](const pattern_type& p) { return p.jobtyp == -3; }},
       })
    for (const bool behind_the_numbers : {false, true}) {
      SCOPED_TRACE(testing::Message() << t.line << ' ' << behind_the_numbers);
      const std::string line = std::string(t.line) + "\n";
      irf_run run(1, "t\n" + (behind_the_numbers ? coefficients + line : line + coefficients));
      run.pattern().ilor = 5;
      run.pattern().jobtyp = t.jobtyp;
      ASSERT_TRUE(run.read()) << run.message();
      EXPECT_TRUE(t.holds(run.pattern()));
      EXPECT_EQ(run.record().uins[0], 0.3f);
      EXPECT_EQ(run.console.str(), "");
    }
  irf_run energy(1, "t\nENRG\n" + coefficients, 2);
  EXPECT_TRUE(energy.read());
}

TEST(ReadIrf, UnknownLinesArePassedOverWithAWarning) {
  irf_run run(1, "t\nBANK of the laboratory\n" + coefficients + "1 2 3\n4 5 6\n7 8 9\n");
  ASSERT_TRUE(run.read()) << run.message();
  EXPECT_THAT(run.console.str(), HasSubstr("lab.irf, line 2: \"BANK of the laboratory\" is no keyword"));
  EXPECT_THAT(run.console.str(), HasSubstr("line 7: numbers passed over"));
}

TEST(ReadIrf, ConstantWavelengthFilesThatDoNotRead) {
  struct row {
    int ireso;
    std::string content;
    const char* words;
  };
  const std::string general = " => Error in the resolution file (file lab.irf, line ";
  const std::string count = " => Error reading NPOINS in the the LOOKUP table  (file lab.irf, line ";
  const std::string point = "Lorentzian FWHM at point #", axial_point = "Lorentzian FWHM, S/L, D/L at point #";
  for (const row& t : {
           row{1, "", "the lines U V W and X Y Z"},
           row{1, "t\n1 2 3\n",
               "line 2: expected the lines U V W and X Y Z of one or of two wavelengths, found the end"},
           row{1, "t\n1 2 3\n4 5 6\n7 8 9\n", "of one or of two wavelengths"},
           row{1, "t\n1 2\n4 5 6\n", "line 2: expected three numbers: U V W, found \"1 2\""},
           row{-1, "t\n1 2 3\n4 5\n", "line 3: expected three numbers: X Y Z"},
           row{2, "t\n1 2 nan\n4 5 6\n", "U V W"},
           row{1, "t\nWAVE 1.5 1.5\n", "line 2: expected two wavelengths and their ratio, found \"WAVE 1.5 1.5\""},
           row{1, "t\nWAVE -1.5 1.5 0.5\n", "two wavelengths"},
           row{1, "t\n\n! c\nASYM 0.02\n", "line 4: expected S/L and D/L"},
           row{1, "t\nPROF 99\n", "the number of a peak shape"},
           row{1, "t\nPROF 7.5\n", "the number of a peak shape"},
           row{1, "t\nGEOM\n", "a geometry"},
           row{1, "t\nGEOM guinier\n", "a geometry"},
           row{1, "t\nGEOM trmf\n", "the incident angle"},
           row{1, "t\nSYNC x\n", "polarisation"},
           row{1, "t\nCTHM\n", "monochromator"},
           row{1, "t\nENRG\n", "Uni of the pattern is not 2"},
           row{1, "t\nTHRG 5 0 120\n", "first abscissa"},
           row{1, "t\nTHRG 5 0.1 5\n", "first abscissa"},
           row{1, "t\nJOBT laue\n", "TOF or TOFC"},
           row{4, "t\n", " => Error reading NPOINS in the the LOOKUP table  (file lab.irf, line 1"},
           row{4, "t\n0\n", "line 2: expected the number of rows, found \"0\""},
           row{4, "t\n-1\n", "NPOINS"},
           row{8, "t\n2.5\n1 2 3 4 5\n", "NPOINS"},
           row{4, "t\n2\n1 2 3\n", "at point #2 (file lab.irf, line 3: expected 3 numbers"},
           row{4, "t\n2000000000\n1 2 3\n", "at point #2"},
           row{4, "t\n2\n1 2 3\n4 5\n", "Lorentzian FWHM at point #2 (file lab.irf, line 4"},
           row{4, "t\n2\n1 2 3\n1 5 6\n", "at point #2"},
           row{4, "t\n1\n1 -2 3\n", "at point #1"},
           row{8, "t\n1\n1 2 3 4\n", "Lorentzian FWHM, S/L, D/L at point #1 (file lab.irf, line 3: expected 5 numbers"},
       }) {
    SCOPED_TRACE(t.content);
    irf_run run(t.ireso, t.content);
    const auto before = run.pattern();
    EXPECT_FALSE(run.read());
    EXPECT_TRUE(run.st.io.file_error);
    EXPECT_THAT(run.message(), HasSubstr(t.words));
    EXPECT_THAT(run.message(), HasSubstr("file lab.irf, line "));
    EXPECT_EQ(run.pattern().lamda, before.lamda);
    EXPECT_FALSE(run.record().wavel_g);
    EXPECT_TRUE(run.record().rows.empty());
  }
}

TEST(ReadIrf, MissingFileAndTooManyPatterns) {
  irf_run run(1, "");
  run.st.io.fileres[0] = "none.irf";
  EXPECT_FALSE(run.read());
  EXPECT_EQ(run.message(), "Error opening Instrumental Resolution File: none.irf");
  irf_run many(1, "t\n" + coefficients, 0, 81);
  EXPECT_TRUE(many.read(79));
  EXPECT_FALSE(many.read(80));
  EXPECT_EQ(many.message(), "The external instrumental function can be given only for 80 patterns!");
}

TEST(ReadIrf, KeywordsOfTimeOfFlight) {
  irf_run run(5,
              "bank 1\nNPROF 9\nTOFRG 1000 5 20000\nTWOTH 90.5\nSIGMA 4 3 2 1\nGAMMA 7 6 5\nALFBE 0.1 0.2 0.3 0.4\n"
              "alfbt 1.1 1.2 1.3 1.4\nD2TOT 11 12 13 14\nD2TOF 7000 -1.5 -9\nEND\nSIGMA 0 0 0 0\n",
              1);
  ASSERT_TRUE(run.read()) << run.message();
  const auto& r = run.record();
  EXPECT_EQ(run.pattern().nprof, 9);
  EXPECT_TRUE(r.range_g);
  EXPECT_EQ(run.pattern().high_range, 20000.f);
  EXPECT_EQ(r.toftet_i, 90.5f);
  EXPECT_TRUE(gives_bank_angle(run.pattern()));
  EXPECT_EQ((std::array{r.sig2_i, r.sig1_i, r.sig0_i, r.sigq_i}), (std::array{4.f, 3.f, 2.f, 1.f}));
  EXPECT_EQ((std::array{r.gamma2_i, r.gamma1_i, r.gamma0_i}), (std::array{7.f, 6.f, 5.f}));
  EXPECT_EQ((std::array{r.alfa0_i, r.beta0_i, r.alfa1_i, r.beta1_i, r.alfaq_i, r.betaq_i}),
            (std::array{0.1f, 0.2f, 0.3f, 0.4f, 0.f, 0.f}));
  EXPECT_EQ((std::array{r.alfa0t_i, r.beta0t_i, r.alfa1t_i, r.beta1t_i}), (std::array{1.1f, 1.2f, 1.3f, 1.4f}));
  EXPECT_EQ((std::array{r.dtt1t_i, r.dtt2t_i, r.xcross_i, r.wcross_i}), (std::array{11.f, 12.f, 13.f, 14.f}));
  EXPECT_EQ((std::array{r.dtt1_i, r.dtt2_i, r.zero_i, r.dtt_1overd_i}), (std::array{7000.f, -1.5f, -9.f, 0.f}));
}

TEST(ReadIrf, CountOfItemsTellsWhatALineHolds) {
  struct row {
    const char* line;
    float resolution_type::*field;
    float value;
  };
  using r = resolution_type;
  for (const row& t :
       {row{"D2TOF 1", &r::dtt1_i, 1.f}, row{"D2TOF 1 2", &r::dtt2_i, 2.f}, row{"D2TOF 1 2 3", &r::zero_i, 3.f},
        row{"D2TOF 1 2 3", &r::dtt_1overd_i, 0.f}, row{"D2TOF 1 2 3 4", &r::dtt_1overd_i, 3.f},
        row{"D2TOF 1 2 3 4", &r::zero_i, 4.f}, row{"ZD2TOF 1 2 3", &r::zero_i, 1.f},
        row{"ZD2TOF 1 2 3", &r::dtt2_i, 3.f}, row{"ZD2TOT 1 2 3 4 5", &r::zerot_i, 1.f},
        row{"ZD2TOT 1 2 3 4 5", &r::wcross_i, 5.f}, row{"SIGMA 1 2 3", &r::sigq_i, 0.f},
        row{"ALFBE 1 2 3 4 5 6", &r::alfaq_i, 5.f}, row{"ALFBE 1 2 3 4 5 6", &r::betaq_i, 6.f}}) {
    SCOPED_TRACE(t.line);
    irf_run run(1, "t\n" + std::string(t.line) + "\n", 1);
    ASSERT_TRUE(run.read()) << run.message();
    EXPECT_EQ(run.record().*t.field, t.value);
  }
}

TEST(ReadIrf, TimeOfFlightTables) {
  const std::string rows6 = "2\n0.5 4 1 0.2 0.04 -3\n1.5 8 2 0.4 0.02 5\n", rows5 = "1\n0.5 4 1 0.2 0.04\n";
  {
    irf_run run(1, "t\nLIST_SIG_GAM_ALF_BET_SHIFT\n! d s2 g a b shift\n" + rows6 + "GAMMA 1 2 3\nEND\n", 1);
    ASSERT_TRUE(run.read()) << run.message();
    const auto& r = run.record();
    EXPECT_TRUE(r.sigam_g && r.alfbet_g && r.shift_g);
    EXPECT_EQ(r.gamma0_i, 3.f);
    const tof_terms middle = apply_irf_tof(r, 0.75);
    EXPECT_NEAR(middle.ggi, 5, 1e-6);
    EXPECT_NEAR(middle.cci, 1.25, 1e-6);
    EXPECT_NEAR(middle.alfi, 0.25, 1e-6);
    EXPECT_NEAR(middle.beti, 0.035, 1e-6);
    EXPECT_NEAR(middle.shift, -1, 1e-6);
    EXPECT_NEAR(apply_irf_tof(r, 0.1).ggi, 4, 1e-6);
    EXPECT_NEAR(apply_irf_tof(r, 9).shift, 5, 1e-6);
  }
  for (const auto& [keyword, rows] :
       {std::pair{"LIST_SIG_GAM_ALF_BET", rows6}, std::pair{"LIST_SIG_GAM_ALF_BET", rows5},
        std::pair{"LIST_SIG_GAM_ALF_BET_SHIFT", rows5}}) {
    irf_run run(1, std::string("t\n") + keyword + "\n" + rows, 1);
    ASSERT_TRUE(run.read()) << run.message();
    EXPECT_TRUE(run.record().sigam_g && run.record().alfbet_g);
    EXPECT_FALSE(run.record().shift_g);
    EXPECT_EQ(apply_irf_tof(run.record(), 0.5).shift, 0);
  }
}

TEST(ReadIrf, BanksOfOneFileGoToThePatternsThatNameIt) {
  const std::string banks =
      "two banks\nTWOTH 1\nNPROF 9\nTWOTH 30\nEND\nNPROF 10\nTWOTH 90\nNPROF 13\nTWOTH 150\nEND\n";
  irf_run run(1, banks, 1, 5);
  run.st.io.fileres[1] = "other.irf";
  for (const auto& [ip, angle, nprof] : {std::tuple{0, 30.f, 9}, std::tuple{2, 90.f, 10}, std::tuple{3, 150.f, 13}}) {
    ASSERT_TRUE(run.read(ip)) << run.message();
    EXPECT_EQ(run.record(static_cast<std::size_t>(ip)).toftet_i, angle);
    EXPECT_EQ(run.pattern(static_cast<std::size_t>(ip)).nprof, nprof);
  }
  EXPECT_FALSE(run.read(4));
  EXPECT_THAT(run.message(), HasSubstr("an NPROF line for each bank, 4"));
  run.write("one bank\nTWOTH 77\nNPROF 9\n");
  EXPECT_TRUE(run.read(3));
  EXPECT_EQ(run.record(3).toftet_i, 77.f);
}

TEST(ReadIrf, TimeOfFlightFilesThatDoNotRead) {
  struct row {
    const char* content;
    const char* words;
  };
  for (const row& t : {
           row{"t\nSIGMA 1 2\n", "line 2: expected 3 or more numbers behind SIGMA, found \"SIGMA 1 2\""},
           row{"t\nSIGMA 1 2 3 x\n", "numbers behind SIGMA"},
           row{"t\nD2TOF\n", "1 or more numbers behind D2TOF"},
           row{"t\nNPROF\n", "a peak shape"},
           row{"t\nTOFRG 1\n", "first abscissa"},
           row{"t\nLIST_SIG_GAM_ALF_BET\n", " => Error reading NPOINS in the the LOOKUP table "},
           row{"t\nLIST_SIG_GAM_ALF_BET\nEND\n", " => Error reading NPOINS in the the LOOKUP table "},
           row{"t\nLIST_SIG_GAM_ALF_BET_SHIFT\n2\n1 2 3 4 5 6\n2 2 3 4 5\n",
               " => Error reading the LOOKUP table with items: d-spacing, sigma^2, gamma, alpha, beta & Shift at point "
               "#2 (file lab.irf, line 5"},
           row{"t\nLIST_SIG_GAM_ALF_BET\n2\n1 2 3 4 5\n1 2 3 4 5\n", "at point #2"},
       }) {
    SCOPED_TRACE(t.content);
    irf_run run(1, t.content, 1);
    EXPECT_FALSE(run.read());
    EXPECT_THAT(run.message(), HasSubstr(t.words));
  }
}

TEST(ReadIrf, FilesCutOrShuffledAnywhereEndInAMessageOrAPartialRead) {
  const std::string cw = "t\nWAVE 1.5 1.6 0.5\nGEOM trmf 3\nTHRG 5 0.1 90\nASYM 0.1 0.2\nPROF 7\n";
  const std::string tof =
      "t\nNPROF 9\nTOFRG 1 2 3\nD2TOF 1 2 3\nSIGMA 1 2 3\nLIST_SIG_GAM_ALF_BET_SHIFT\n2\n1 2 3 4 5 6\n2 2 3 4 5 "
      "6\nEND\n";
  const std::string two_banks = tof + tof.substr(2);
  struct row {
    int ireso, ixunit;
    std::string content;
  };
  std::mt19937 gen(20250101);
  int read = 0, refused = 0;
  for (const row& t : {row{1, 0, cw + coefficients + coefficients}, row{4, 0, cw + table4}, row{8, 0, cw + table8},
                       row{1, 1, tof}, row{1, 1, two_banks}}) {
    irf_run run(t.ireso, "", t.ixunit, 2);
    std::uniform_int_distribution<std::size_t> place(0, t.content.size() - 1);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int trial = 0; trial < 200; ++trial) {
      std::string content = t.content;
      if (trial < 100) {
        content.resize(place(gen));
      } else {
        content[place(gen)] = static_cast<char>(byte(gen));
      }
      run.write(content);
      run.st.pattern[1].resolution = {};
      const bool ok = run.read(1);
      ++(ok ? read : refused);
      EXPECT_EQ(ok, !run.st.io.file_error);
      if (!ok) {
        EXPECT_TRUE(run.record(1).rows.empty());
        EXPECT_THAT(run.message(), HasSubstr("lab.irf"));
      }
      for (const double x : {0.0, 15.0, 40.0, 200.0}) {
        const cw_terms c = apply_irf_cw(make_cw_model(run.pattern(1), 2), x, 0.1, 0.3, 0.9);
        EXPECT_TRUE(std::isfinite(c.ggi) && std::isfinite(c.cci));
        EXPECT_TRUE(std::isfinite(apply_irf_tof(run.record(1), x).ggi));
      }
    }
  }
  EXPECT_GT(read, 100);
  EXPECT_GT(refused, 100);
}

TEST(ApplyIrfCw, ModelsByHand) {
  struct row {
    int ireso;
    double x, ggi, cci;
  };
  // U V W 0.3 -0.2 0.1, X Y Z 0.08 0.06 0.04; at 2theta 90 tan = 1, 1/cos = sqrt(2)
  const double root2 = std::sqrt(2.0);
  for (const row& t : {row{1, 90, 0.2, 0.12 + 0.06 * root2}, row{2, 90, 0.2, (0.08 * 90 + 0.06) * 90 + 0.04},
                       row{3, 90, (0.3 * 90 - 0.2) * 90 + 0.1, (0.08 * 90 + 0.06) * 90 + 0.04}, row{1, 0, 0.1, 0.1},
                       row{2, 0, 0.1, 0.04}, row{3, 0, 0.1, 0.04}, row{5, 90, 0, 0}, row{6, 90, 0, 0}, row{7, 90, 0, 0},
                       row{9, 90, 0, 0}}) {
    SCOPED_TRACE(testing::Message() << t.ireso << ' ' << t.x);
    irf_run run(t.ireso, "t\n" + coefficients);
    ASSERT_TRUE(run.read()) << run.message();
    EXPECT_NEAR(run.at(t.x).ggi, t.ggi, 1e-6 * std::max(1.0, t.ggi));
    EXPECT_NEAR(run.at(t.x).cci, t.cci, 1e-6 * std::max(1.0, t.cci));
    EXPECT_EQ(run.at(t.x).sl_i, 0);
  }
  irf_run waves(1, "t\n0 0 1\n0 0 2\n0 0 3\n0 0 4\n");
  ASSERT_TRUE(waves.read());
  EXPECT_NEAR(waves.at(50, 1).ggi, 1, 1e-12);
  EXPECT_NEAR(waves.at(50, 2).ggi, 3, 1e-12);
  EXPECT_NEAR(waves.at(50, 2).cci, 4, 1e-12);
}

TEST(ApplyIrfCw, PseudoVoigtWidthsAddAgainToTheirWidth) {
  // H = 0.2 deg, eta 0.1 + 0.004 2theta; Thompson, Cox & Hastings from both parts gives H back within 2 %
  irf_run run(-1, "t\n0 0 0.04\n0.1 0.004 0\n");
  ASSERT_TRUE(run.read()) << run.message();
  double lorentz_before = 0;
  for (const double x : {10.0, 60.0, 110.0, 160.0}) {
    const auto c = run.at(x);
    const double g = std::sqrt(c.ggi), l = c.cci;
    const double fifth = std::pow(g, 5) + 2.69269 * std::pow(g, 4) * l + 2.42843 * std::pow(g, 3) * l * l +
                         4.47163 * g * g * l * l * l + 0.07842 * g * std::pow(l, 4) + std::pow(l, 5);
    EXPECT_NEAR(std::pow(fifth, 0.2), 0.2, 0.004) << x;
    EXPECT_GT(l, lorentz_before);
    lorentz_before = l;
  }
  // eta beyond 1 counts as 1, below 0 as 0; a square that is not positive gives no width
  irf_run limits(-1, "t\n0 0 0.04\n2 0 0\n0 0 0.04\n-1 0 0\n");
  ASSERT_TRUE(limits.read());
  EXPECT_NEAR(limits.at(50, 1).cci, 0.2, 0.004);
  EXPECT_NEAR(limits.at(50, 1).ggi, 0, 1e-5);
  EXPECT_NEAR(limits.at(50, 2).cci, 0, 0.004);
  EXPECT_NEAR(limits.at(50, 2).ggi, 0.04, 0.001);
  irf_run none(-1, "t\n0 0 -0.04\n0.5 0 0\n");
  ASSERT_TRUE(none.read());
  EXPECT_EQ(none.at(50).ggi, 0);
  EXPECT_EQ(none.at(50).cci, 0);
}

TEST(ApplyIrfCw, TablesAreLinearBetweenTheirRows) {
  struct row {
    double x, g, cci, sl, dl;
  };
  for (const int ireso : {4, 8}) {
    irf_run run(ireso, "t\nASYM 0.7 0.8\n! positions\n" + (ireso == 4 ? table4 : table8));
    ASSERT_TRUE(run.read()) << run.message();
    EXPECT_THAT(run.console.str(), HasSubstr("ASYM has no effect beside a table"));
    for (const row& t : {row{0, 0.1, 0.02, 0.01, 0.02}, row{10, 0.1, 0.02, 0.01, 0.02}, row{15, 0.15, 0.03, 0.02, 0.04},
                         row{20, 0.2, 0.04, 0.03, 0.06}, row{35, 0.125, 0.07, 0.045, 0.03},
                         row{40, 0.1, 0.08, 0.05, 0.02}, row{150, 0.1, 0.08, 0.05, 0.02}}) {
      SCOPED_TRACE(testing::Message() << ireso << ' ' << t.x);
      const cw_terms c = run.at(t.x);
      EXPECT_NEAR(c.ggi, t.g * t.g, 1e-7);
      EXPECT_NEAR(c.cci, t.cci, 1e-7);
      EXPECT_NEAR(c.sl_i, ireso == 8 ? t.sl : 0, 1e-7);
      EXPECT_NEAR(c.dl_i, ireso == 8 ? t.dl : 0, 1e-7);
    }
  }
  irf_run one(4, "t\n1\n30 0.5 0.25\n");
  ASSERT_TRUE(one.read());
  EXPECT_NEAR(one.at(10).ggi, 0.25, 1e-12);
  EXPECT_NEAR(one.at(50).cci, 0.25, 1e-12);
}

TEST(MergeIrf, FileBeforeLineAndTheLargerOfBoth) {
  const radiation_line radiation{1.2f, 1.3f, 0.25f, 0.6f, 0.4f};
  const range_line range{10.f, 0.02f, 100.f, 4.f, -1.f};
  irf_run full(1, "t\nWAVE 1.54 1.55 0.5\nCTHM 0.8\nSYNC 0.9\nTHRG 12 0.01 90\nGEOM trmf 6\n" + coefficients);
  ASSERT_TRUE(full.read());
  for (int twice = 0; twice < 2; ++twice) {
    merge_radiation(full.pattern(), radiation);
    merge_range(full.pattern(), range);
    const auto& p = full.pattern();
    EXPECT_EQ(p.lamda, (std::array{1.54f, 1.55f}));
    EXPECT_EQ(p.ratio, (std::array{1.f, 0.5f}));
    EXPECT_EQ((std::array{p.cthm, p.rkk, p.thmin, p.step, p.thmax, p.alpsd, p.sent0}),
              (std::array{0.8f, 0.9f, 12.f, 0.02f, 100.f, 6.f, 0.f}));
    ASSERT_TRUE(full.read());  // reading once more changes nothing
  }
}

TEST(WriteIrfInfo, NamesFileModelAndNumbers) {
  struct row {
    int ireso, ixunit;
    std::string content;
    const char* words;
  };
  for (const row& t :
       {row{1, 0, "my title\nASYM 0.02 0.03\n" + coefficients, "HL = X tan + Y/cos + Z"},
        row{8, 0, "my title\n" + table8, "Table of position"}, row{1, 1, "my title\nTWOTH 144.845\n", "144.845"}}) {
    irf_run run(t.ireso, t.content, t.ixunit);
    ASSERT_TRUE(run.read()) << run.message();
    run.st.io.filenam = "code";
    kalvaris_inout::openfile(run.st.io, {.key = kalvaris_inout::file_key::listings});
    write_irf_info(run.st, 0, kalvaris_inout::unit::listing);
    kalvaris_inout::close_all(run.st.io);
    std::ostringstream text;
    text << std::ifstream(run.directory / "code.out").rdbuf();
    EXPECT_THAT(text.str(), testing::AllOf(HasSubstr("lab.irf"), HasSubstr("my title"), HasSubstr(t.words)));
  }
}

}  // namespace
