// The set-up stage: what it refuses before anything is calculated, and the temperatures of a series.
#include "kv_setup.hpp"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "../own_directory.hpp"
#include "told_radiation_check.hpp"

namespace {

using kalvaris_params::state_type;
using testing::HasSubstr;

/// A pattern that is calculated on 1001 points, one phase without atoms.
state_type calculated_pattern(std::ostream& console) {
  state_type st;
  st.pattern.resize(1);
  st.phase.resize(1);
  st.mixes.resize(1);
  auto& p = st.pattern[0];
  p.thmin = 10.f, p.step = 0.1f, p.thmax = 110.f;
  st.phase[0].jbt = 2;
  EXPECT_FALSE(lmix_crystal_metrics::set_crystal_cell({4.f, 4.f, 4.f}, {90.f, 90.f, 90.f}, st.phase[0].cellp).err_crys);
  EXPECT_FALSE(set_spacegroup("P m -3 m", st.phase[0].spgr).err_symm);
  auto& mix = st.mixes[0];
  mix.npro = 5;
  for (int i = 0; i < 6; ++i) mix.par[static_cast<std::size_t>(kalvaris_params::slot::cell_a + i)] = i < 3 ? 4.f : 90.f;
  mix.par[kalvaris_params::slot::w] = 0.01f;
  st.io.console = &console;
  return st;
}

/// The words of the stop or the refusal, and the console.
std::string words_of_set_up(state_type& st, const std::ostringstream& console) {
  std::string words;
  try {
    kv_setup::write_out(st);
  } catch (const kalvaris_inout::run_stopped& stop) {
    words = "stopped:" + stop.text + '\n';
  }
  for (int i = 0; i < st.fmt.mess_findfmt.nlines; ++i)
    words += st.fmt.mess_findfmt.txt[static_cast<std::size_t>(i)] + '\n';
  return words + console.str();
}

TEST(SetUp, RefusesWhatCannotBeCalculated) {
  const auto filter = [](float window) {
    return [=](state_type& st) { st.pattern[0].nbckgd = 2, st.pattern[0].isbac = -1, st.pattern[0].fwindow = window; };
  };
  const auto background_file = [](state_type& st) {
    st.io.directory = own_directory();
    st.io.filenam = "kv_setup_test", st.io.filedat = {st.io.filenam}, st.io.extdat = {".dat"};
    st.pattern[0].nbckgd = 1, st.pattern[0].isbac = 1;
    std::ofstream(st.io.directory + "kv_setup_test.bac") << "10 5\n20 five\n";
  };
  struct row {
    std::function<void(state_type&)> change;
    std::vector<const char*> words;
    bool goes_on = false;
  };
  for (const row& t : {
           row{[](state_type&) {}, {}, true},
           row{[](state_type& st) { st.pattern[0].jobtyp = 7; }, {" Invalid JOBTYP 7\n"}},
           row{[](state_type& st) { st.run.icryg = 2; }, {"stopped:Montecarlo search for 0 parameters???\n"}},
           row{[](state_type& st) { st.run.icryg = -3; }, {"stopped:Simulated Annealing for 0 parameters???\n"}},
           row{[](state_type& st) { st.run.icryg = 3, st.run.limits.resize(1); }, {"searches (Cry) are not available"}},
           row{[](state_type& st) { st.pattern[0].step = 0.f; }, {"Error in the range of pattern: 1\n"}},
           row{[](state_type& st) { st.pattern[0].thmax = 10.01f; }, {"must give at least 2 points\n"}},
           row{[](state_type& st) { st.dim.maxpoint = 1001; }, {}, true},
           row{[](state_type& st) { st.dim.maxpoint = 1000; }, {"stopped: Too many data points NPTS>MaxPOINT!\n"}},
           row{[](state_type& st) { st.pattern[0].step = 1e-30f; }, {"stopped: Too many data points NPTS>MaxPOINT!\n"}},
           row{background_file,
               {"stopped: => Error reading the BAC-file ", ": line 2 holds something that is no number"}},
           row{filter(166.f), {}, true},
           row{filter(165.f),
               {"=> The provided Window for Fourier filtering is too small! It should be larger than NPTS/6 !\n",
                "=> The provided Window has been changed to     166.00\n"},
               true},
           row{filter(2.1e6f),
               {"Too many data points for Fourier filtering, NPTS=     1001\n", "FWINDOW=    2100000.0\n",
                "Power of 2 higher than 2*(NPTS+FWINDOW)-> M(2^k)=        8388608\n",
                "M(2^k) should be less than  4194304\n",
                "stopped: You should diminish your maximum 2Theta/TOF/En !\n"}},
       }) {
    std::ostringstream console;
    state_type st = calculated_pattern(console);
    t.change(st);
    const std::string words = words_of_set_up(st, console);
    SCOPED_TRACE(words);
    for (const char* w : t.words) EXPECT_THAT(words, HasSubstr(w));
    EXPECT_EQ(words.find("stopped:") == words.npos && st.fmt.ierr_fmt == 0, t.goes_on);
    EXPECT_EQ(st.pattern[0].refl.size() > 0, t.goes_on);
  }
}

TEST(SetUp, TemperatureOfAStepStandsInTheListOfTheSeries) {
  struct row {
    const char* list;
    int processed;
    float temperature;  ///< 0: refused
    const char* reason = "";
  };
  const auto file = std::filesystem::path(own_directory() + "temperatures.txt");
  for (const row& t :
       {row{"10.5\n20\n30 K\n", 0, 10.5f}, row{"10.5\n20\n30 K\n", 2, 30.f},
        row{"! furnace\n\n# C\n1.0D2\r\n4\n", 0, 100.f}, row{"10\n20\n", 2, 0.f, "2 temperatures, none for step 3"},
        row{"10\nwarm\n", 1, 0.f, "line 2 holds no temperature"}, row{"", 0, 0.f, "none for step 1"},
        row{"nan\n", 0, 0.f, "line 1 holds no temperature"}, row{nullptr, 0, 0.f, "No such file"}}) {
    SCOPED_TRACE(t.list != nullptr ? t.list : "no file");
    std::filesystem::remove(file);
    if (t.list != nullptr) std::ofstream(file) << t.list;
    state_type st;
    st.io.filetemp = file.string(), st.io.file_temp = true, st.io.processed = t.processed;
    const auto value = kv_setup::read_filetemp(st);
    EXPECT_EQ(value.value_or(0.f), t.temperature);
    EXPECT_EQ(st.io.file_error, t.temperature == 0.f);
    EXPECT_THAT(st.io.file_error_mess, HasSubstr(t.reason));
    EXPECT_EQ(st.io.file_error_mess.starts_with(" => Error in the list of temperatures "), st.io.file_error);
  }
  std::filesystem::remove(file);
}

TEST(ToldRadiationCheck, SpeaksWhereFileAndControlFileDiffer) {
  using kalvaris_params::pattern_type;
  namespace gslot = kalvaris_params::gslot;
  struct row {
    const char* what;
    void (*change)(pattern_type&);
    const char* told;  ///< null: nothing
  };
  const row rows[] = {
      {"the same within the tolerance", [](pattern_type& p) { p.told.lambda1.value = 1.54058f; }, nullptr},
      {"beyond it", [](pattern_type& p) { p.told.lambda1.value = 1.5408f; },
       "Warning! a.xrdml tells another radiation than the control file, which is used: kAlpha1 1.5408 (line 4) against "
       "Lambda1 1.5406. Correct the wavelengths, unless the data file is wrong"},
      {"the second alone", [](pattern_type& p) { p.told.lambda2.value = 1.5418f; }, "kAlpha2 1.5418 (line 5) against"},
      {"the ratio", [](pattern_type& p) { p.told.ratio.value = 0.4f; }, "ratio 0.4 (line 6) against Ratio 0.5"},
      {"no second line in the file", [](pattern_type& p) { p.told.ratio.value = 0.f, p.told.lambda2.value = 9.f; },
       "used: ratio 0 (line 6) against Ratio 0.5."},
      {"one wavelength in the control file",
       [](pattern_type& p) { p.single_wave = true, p.lamda[1] = p.lamda[0], p.ratio[1] = 1.f; },
       "used: ratio 0.5 (line 6) against Ratio 0."},
      {"nothing told", [](pattern_type& p) { p.told = {}, p.lamda[0] = 9.f; }, nullptr},
      {"no wavelength in use", [](pattern_type& p) { p.lamda[0] = 9.f, p.ixunit = 1; }, nullptr},
      {"refined",
       [](pattern_type& p) {
         p.lamda[0] = 1.6f;
         p.lglb[gslot::lambda] = 1, p.aglb[gslot::lambda] = 1.f;
       },
       "Note: the refined wavelengths start beside those of a.xrdml: kAlpha1 1.5406 (line 4) against Lambda1 1.6"},
      {"refined, but not what differs",
       [](pattern_type& p) {
         p.told.ratio.value = 0.4f;
         p.lglb[gslot::lambda] = 1, p.aglb[gslot::lambda] = 1.f;
       },
       "Warning!"},
  };
  for (const row& t : rows) {
    SCOPED_TRACE(t.what);
    std::ostringstream console;
    state_type st = calculated_pattern(console);
    pattern_type& p = st.pattern[0];
    st.run.maxs = 1;
    p.lamda = {1.5406f, 1.5444f}, p.ratio = {1.f, 0.5f};
    p.told = {{1.5406f, 4, "kAlpha1"}, {1.5444f, 5, "kAlpha2"}, {0.5f, 6, "ratio"}};
    t.change(p);
    told_radiation_check::look_at(st, 0, "a.xrdml");
    if (t.told == nullptr) {
      EXPECT_EQ(console.str(), "");
    } else {
      EXPECT_THAT(console.str(), HasSubstr(t.told));
    }
  }
}

}  // namespace
