#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "intensity_correction.hpp"

namespace {

using namespace intensity_correction;
using kalvaris_params::pattern_type;
using kalvaris_params::state_type;
using testing::HasSubstr;

struct cor_run {
  std::filesystem::path directory;
  std::ostringstream console;
  state_type st;

  explicit cor_run(int icorr, const std::string& content, const std::string& name = "code.cor") {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    directory = std::filesystem::temp_directory_path() /
                (std::string("kv_") + test->test_suite_name() + "_" + test->name() + "_" + std::to_string(getpid()));
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    st.io.directory = directory.string() + "/";
    st.io.console = &console;
    st.io.filenam = "code";
    st.pattern.resize(1);
    pattern().icorr = icorr;
    std::ofstream(directory / name, std::ios::binary) << content;
  }
  ~cor_run() { std::filesystem::remove_all(directory); }
  cor_run(const cor_run&) = delete;
  cor_run& operator=(const cor_run&) = delete;

  pattern_type& pattern() { return st.pattern[0]; }
  double at(double x) { return corr_int(pattern().correction, pattern().icorr, x); }
};

TEST(IntensityCorrection, TableIsLinearAndItsEndIntervalsGoOn) {
  for (const char* name : {"code.cor", "cor.cor"}) {
    cor_run run(1, "title\n! x  factor\n10 1.0\n\n20 1.5  remark\r\n40 1.1\n", name);
    ASSERT_TRUE(read_cor(run.st, 0)) << run.st.io.file_error_mess;
    for (const auto& [x, factor] :
         {std::pair{10.0, 1.0}, std::pair{15.0, 1.25}, std::pair{20.0, 1.5}, std::pair{30.0, 1.3}, std::pair{40.0, 1.1},
          std::pair{5.0, 0.75}, std::pair{50.0, 0.9}})
      EXPECT_NEAR(run.at(x), factor, 1e-6) << x;
  }
  cor_run one(1, "title\n10 1.25\n");
  ASSERT_TRUE(read_cor(one.st, 0));
  EXPECT_EQ(one.at(99), 1.25);
}

TEST(IntensityCorrection, PolynomialAndNone) {
  cor_run run(2, "title\n1 1 4\n1.0 0.5\n! no\n", "code.cor");
  EXPECT_FALSE(read_cor(run.st, 0));
  EXPECT_EQ(run.at(70), 1);  // what did not read corrects nothing
  cor_run cubic(2, "title\n# itycorr ityfunc n\n1 1 4\n1.0 0.5\n-0.25 2\n");
  ASSERT_TRUE(read_cor(cubic.st, 0)) << cubic.st.io.file_error_mess;
  EXPECT_NEAR(cubic.at(0), 1, 1e-12);
  EXPECT_NEAR(cubic.at(2), 1 + 1 - 1 + 16, 1e-12);
  cor_run none(0, "");
  ASSERT_TRUE(read_cor(none.st, 0));
  EXPECT_EQ(none.at(70), 1);
}

TEST(IntensityCorrection, FilesThatDoNotRead) {
  struct row {
    int icorr;
    std::string content, words;
  };
  std::string rows = "t\n";
  for (int i = 0; i < NPRC; ++i) rows += std::to_string(i) + " 1\n";
  for (const row& t :
       {row{1, "t\n", "line 1: expected rows of abscissa and factor"},
        row{1, "t\n1 1\n1 2\n", "line 3: expected an abscissa above the one before"},
        row{1, "t\n1 0\n", "a factor above 0"}, row{1, "t\n1\n", "line 2"},
        row{1, rows + "500 1\n", "line 152: expected at most 150"}, row{2, "t\n", "number of coefficients"},
        row{2, "t\n3 1 2\n1 1\n", "line 2: expected 1 (intensities) or 2 (profile)"},
        row{2, "t\n1 2 2\n1 1\n", "1 (polynomial)"}, row{2, "t\n1 1 0\n", "number of coefficients"},
        row{2, "t\n1 1 2000000000\n1\n", "at most 150"}, row{2, "t\n1 1 3\n1 2\n", "3 coefficients"}}) {
    SCOPED_TRACE(t.content.substr(0, 40));
    cor_run run(t.icorr, t.content);
    EXPECT_FALSE(read_cor(run.st, 0));
    EXPECT_TRUE(run.st.io.file_error);
    EXPECT_THAT(run.st.io.file_error_mess, HasSubstr(t.words));
    EXPECT_THAT(run.st.io.file_error_mess, HasSubstr("file code.cor"));
    EXPECT_EQ(run.at(33), 1);
  }
  cor_run full(1, rows);
  EXPECT_TRUE(read_cor(full.st, 0));
  cor_run missing(1, "", "other");
  EXPECT_FALSE(read_cor(missing.st, 0));
  EXPECT_TRUE(missing.st.io.file_error);
}

TEST(IntensityCorrection, ProfileIsDividedWithItsVariance) {
  struct row {
    int icorr, itycorr;
    float y, var;
  };
  for (const row& t : {row{2, 2, 50.f, 25.f}, row{2, 1, 100.f, 100.f}, row{1, 2, 100.f, 100.f}}) {
    SCOPED_TRACE(testing::Message() << t.icorr << ' ' << t.itycorr);
    cor_run run(t.icorr, "");
    auto& p = run.pattern();
    p.correction.itycorr = t.itycorr;
    p.correction.corrv = {1.f, 0.1f};
    p.txv = {10.f, 20.f, 30.f}, p.y = {100.f, 150.f}, p.var = {100.f, 150.f}, p.yo_max = 150.f;
    ASSERT_TRUE(corr_prof(run.st, 0));
    EXPECT_NEAR(p.y[0], t.y, 1e-4);
    EXPECT_NEAR(p.var[0], t.var, 1e-4);
    EXPECT_EQ(p.yo_max, p.y[0] == 100.f ? 150.f : 50.f);
  }
  for (const int itycorr : {1, 2}) {
    cor_run bad(2, "");
    bad.pattern().correction.itycorr = itycorr;
    bad.pattern().correction.corrv = {1.f, -0.05f};
    bad.pattern().txv = {10.f, 20.f, 30.f}, bad.pattern().y = bad.pattern().var = {100.f, 150.f};
    EXPECT_FALSE(corr_prof(bad.st, 0));
    EXPECT_THAT(bad.st.io.file_error_mess, HasSubstr("20"));
    EXPECT_EQ(bad.pattern().y[0], 100.f);
  }
}

TEST(IntensityCorrection, FilesCutOrSpoiltAnywhereGiveFiniteFactorsOrAMessage) {
  const std::string bytes("\0,-E\n", 5);
  for (const auto& [icorr, whole] : {std::pair{1, std::string("t\n10 1.5\n20 2.5\n40 0.5\n")},
                                     std::pair{2, std::string("t\n2 1 3\n1.0 0.5\n-1e-3\n")}}) {
    cor_run run(icorr, "");
    for (std::size_t at = 0; at < whole.size(); ++at)
      for (std::size_t k = 0; k <= bytes.size(); ++k) {
        std::ofstream(run.directory / "code.cor", std::ios::binary)
            << (k == bytes.size() ? whole.substr(0, at) : std::string(whole).replace(at, 1, 1, bytes[k]));
        const bool read = read_cor(run.st, 0);
        EXPECT_EQ(read, !run.st.io.file_error);
        EXPECT_TRUE(std::isfinite(run.at(15)));
      }
  }
}

}  // namespace
