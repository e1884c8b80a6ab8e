#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <utility>

#include "../smaller_files.hpp"
#include "kalvaris_inout.hpp"
#include "kalvaris_util.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kalvaris_inout;

class RunFiles : public testing::Test {
 protected:
  RunFiles() : directory(fs::temp_directory_path() / ("kv_run_files_" + test_name() + std::to_string(getpid()))) {
    fs::remove_all(directory);
    fs::create_directories(directory);
    io.directory = directory.string() + "/";
    io.filenam = "code";
    io.filedat = {"dat", "dat2"};
    io.extdat = {"", ".xys"};
    io.fileres = {"a.irf", "b.irf"};
    io.console = &console;
  }
  ~RunFiles() override { fs::remove_all(directory); }
  static std::string test_name() { return testing::UnitTest::GetInstance()->current_test_info()->name(); }

  void write(const std::string& name, const std::string& text = "x\n") const {
    std::ofstream(directory / name) << text;
  }
  std::string text_of(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(directory / name).rdbuf();
    return text.str();
  }
  bool opens(const open_request& request) {
    io.file_error = false;
    openfile(io, request);
    return !io.file_error;
  }

  fs::path directory;
  std::ostringstream console;
  inout_type io;
};

TEST_F(RunFiles, NamesAndUnitsOfWrittenFiles) {
  struct row {
    open_request request;
    int unit;
    const char* single;
    const char* multi;  ///< with per-pattern names
  };
  for (const row& t : {
           row{{2}, 7, "code.out", "code.out"},
           row{{2}, 8, "code.sum", "code.sum"},
           row{{3}, 3, "code.sym", "code.sym"},
           row{{4}, 2, "code.rpa", "code.rpa"},
           row{{7, 2}, 9, "code.fou", "code_2.fou"},
           row{{7, 2, 0, true}, 9, "code.msf", "code_2.msf"},
           row{{8, 2}, 10, "code.hkl", "code_2.hkl"},
           row{{9}, 11, "code.sav", "code.sav"},
           row{{10, 2, 3}, 16, "code3.hkl", "code3_2.hkl"},
           row{{11, 2}, 17, "code.prf", "code_2.prf"},
           row{{11, 2, -4}, 17, "code4.prf", "code_24.prf"},
           row{{11, 0, -1}, 17, "code.prf", "code_.prf"},
           row{{-12, 1}, 12, "code.bac", "code_1.bac"},
           row{{14}, 14, "code.sim", "code.sim"},
           row{{15, 1, 3}, 18, "code3.sch", "code3.sch"},
           row{{16}, 19, "code.new", "code.new"},
           row{{17}, 21, "code.ins", "code.ins"},
           row{{17, 1}, 21, "code.inp", "code_1.inp"},
           row{{18, 1, 16}, 22, "code16.atm", "code16.atm"},
           row{{19, 80, 12}, 23, "code12.sub", "code12_80.sub"},
           row{{22, 1, 2}, 26, "code2_cltr.int", "code2_cltr.int"},
           row{{22, 2, 2}, 26, "code2_cltr.int", "code2_2_cltr.int"},
           row{{24, 2, 3}, 29, "code3.mic", "code3_2.mic"},
           row{{25}, 31, "code.spf", "code.spf"},
           row{{26}, 32, "edma.input", "edma.input"},
       }) {
    SCOPED_TRACE(t.single);
    for (const bool multi : {false, true}) {
      io.multipatt = multi;
      ASSERT_TRUE(opens(t.request)) << io.file_error_mess;
      out(io, t.unit) << "written\n";
      ASSERT_TRUE(commit(io)) << io.file_error_mess;
      EXPECT_EQ(text_of(multi ? t.multi : t.single), "written\n");
      for (const auto& entry : fs::directory_iterator(directory)) fs::remove(entry.path());
    }
  }
  io.ishkl = 1;
  io.multipatt = false;
  ASSERT_TRUE(opens({10, 1, 3}));
  EXPECT_EQ(io.namefil, "hkl3.hkl");
}

TEST_F(RunFiles, ReplacedAndGrowingFiles) {
  for (int run = 0; run < 2; ++run) {
    for (const auto& [key, unit_number] : {std::pair{4, 2}, std::pair{9, 11}, std::pair{3, 3}}) {
      ASSERT_TRUE(opens({key}));
      out(io, unit_number) << "run\n";
    }
    ASSERT_TRUE(commit(io));
  }
  EXPECT_EQ(text_of("code.rpa"), "run\nrun\n");
  EXPECT_EQ(text_of("code.sav"), "run\nrun\n");
  EXPECT_EQ(text_of("code.sym"), "run\n");
}

TEST_F(RunFiles, DataFileIsFoundByItsExtensions) {
  write("dat.xrdml");
  ASSERT_TRUE(opens({file_key::data, 1}));
  EXPECT_EQ(io.extdat[0], ".xrdml");
  write("dat.uxd");
  io.extdat[0] = "";
  ASSERT_TRUE(opens({file_key::data, 1}));
  EXPECT_EQ(io.extdat[0], ".uxd");
  write("dat2.xys", "a\nb\nc");
  ASSERT_TRUE(opens({file_key::data, 2}));
  EXPECT_EQ(io.extdat[1], ".xys");
  EXPECT_EQ(io.namefil, "dat2.xys");
  EXPECT_EQ(number_of_records(io, unit::data), 3);
  EXPECT_EQ(content(io, unit::data), "a\nb\nc");
}

TEST_F(RunFiles, ReflectionsAndBackgroundAreTriedInOrder) {
  write("code1.int");
  ASSERT_TRUE(opens({file_key::reflections_in, 1, 1}));
  EXPECT_EQ(io.namefil, "code1.int");
  EXPECT_EQ(io.ishkl, 1);
  write("code1.hkl");
  ASSERT_TRUE(opens({file_key::reflections_in, 1, 1}));
  EXPECT_EQ(io.namefil, "code1.hkl");
  EXPECT_EQ(io.ishkl, 0);
  write("dat.int");
  io.extdat[0] = ".int";
  ASSERT_TRUE(opens({file_key::reflections_in, 1, 1, false, true}));
  EXPECT_EQ(io.namefil, "dat.int");

  EXPECT_FALSE(opens({file_key::background, 1}));
  EXPECT_EQ(io.file_error_mess, " => Error opening a BAC-file: code.bac   - or - dat.bac");
  ASSERT_TRUE(opens({file_key::background_out, 1}));
  out(io, unit::background) << "1 2\n";
  ASSERT_TRUE(commit(io));
  ASSERT_TRUE(opens({file_key::background, 1}));  // what one run writes the next one finds
  EXPECT_EQ(io.namefil, "code.bac");
}

TEST_F(RunFiles, FailuresSayWhatCouldNotBeOpened) {
  struct row {
    open_request request;
    const char* words;
  };
  for (const row& t : {
           row{{1}, " => Error opening file: code.pcr Unit: 1"},
           row{{-1}, " => Error opening file: code.new Unit: 1"},
           row{{5, 1}, " ==> Error opening file CODEFIL.DAT(UXD,ACQ,CSV,UDF,JCP,XRDML) with CODEFIL=dat Unit: 4"},
           row{{6, 1, 2}, " => Error opening a (hkl)-file: code2.hkl,hkl2.hkl,dat.int Unit:15"},
           row{{13, 2}, "Error opening Instrumental Resolution File: b.irf"},
           row{{20}, " => Error opening file: global.shp Unit:24"},
           row{{23}, " => Illegal option nopf:   23"},
           row{{99}, " => Illegal option nopf:   99"},
       }) {
    EXPECT_FALSE(opens(t.request));
    EXPECT_EQ(io.file_error_mess, t.words);
  }
  const std::string data = std::exchange(io.filedat[0], "");
  io.multipatt = true;
  EXPECT_FALSE(opens({6, 1, 2}));
  EXPECT_EQ(io.file_error_mess, " => Error opening a (hkl)-file: code2_1.hkl,hkl2_1.hkl,code2_1.int Unit:15");
  io.filedat[0] = data, io.multipatt = false;
  fs::create_directory(directory / "code.out");
  EXPECT_FALSE(opens({2}));
  EXPECT_EQ(io.file_error_mess, " => Error opening file: code.out Unit: 7: Is a directory");
  out(io, 7) << "swallowed\n";
  EXPECT_EQ(content(io, 7), std::nullopt);
}

TEST_F(RunFiles, PipesAndDirectoriesAreRefusedInsteadOfWaitedFor) {
  ASSERT_EQ(mkfifo((directory / "dat.dat").c_str(), 0600), 0);
  EXPECT_FALSE(opens({file_key::data, 1}));
  fs::create_directory(directory / "code.pcr");
  EXPECT_FALSE(opens({file_key::control}));
}

TEST_F(RunFiles, AControlFileNamedStartingIsMadeButNeverEmptied) {
  io.filenam = "starting";
  EXPECT_TRUE(opens({file_key::control}));
  close_all(io);
  EXPECT_TRUE(fs::exists(directory / "starting.pcr"));
  write("starting.pcr", "mine\n");
  EXPECT_TRUE(opens({file_key::control}));
  EXPECT_EQ(content(io, unit::control), "mine\n");
}

// --- What is written ---------------------------------------------------------------------------------------------

TEST_F(RunFiles, ComeToTheirPlacesTogetherOrNotAtAll) {
  struct row {
    const char* what;
    std::function<void()> fault;
    const char* words;  ///< nullptr: none
  };
  for (const row& t : {
           row{"no fault", [] {}, nullptr},
           row{"dropped", [&] { close_all(io); }, nullptr},
           row{"a file that is too long", [&] { out(io, unit::summary) << std::string(9000, 'x'); },
               " => Error writing file: code.sum: File too large"},
           row{"a listing that is too long", [&] { out(io, unit::listing) << std::string(9000, 'x'); },
               " => Error writing file: code.out: File too large"},
           row{"a control file that is too long", [&] { next_control_file(io, std::string(9000, 'x'), false); },
               " => Error writing file: code.pcr: File too large"},
           row{"a place that is taken",
               [&] { fs::remove(directory / "code.sum"), fs::create_directory(directory / "code.sum"); },
               " => Error writing file: code.sum: Is a directory"},
       }) {
    SCOPED_TRACE(t.what);
    fs::remove_all(directory);
    fs::create_directories(directory);
    for (const char* name : {"code.pcr", "code.sum", "code.prf"}) write(name, "old");
    io.file_error = false;
    const smaller_files limit(8192);
    ASSERT_TRUE(opens({file_key::control}) && opens({file_key::plot, 1}));
    out(io, unit::plot) << "new";
    close_unit(io, unit::plot);
    ASSERT_TRUE(opens({file_key::listings}));
    both_listings(io, "new");
    next_control_file(io, "new", false);
    EXPECT_EQ(text_of("code.sum") + text_of("code.prf") + text_of("code.pcr"), "oldoldold");
    t.fault();
    EXPECT_EQ(commit(io), t.words == nullptr);
    EXPECT_EQ(io.file_error_mess, t.words == nullptr ? "" : t.words);
    const bool done = std::string(t.what) == "no fault";
    EXPECT_EQ(text_of("code.pcr"), done ? "new" : "old");
    EXPECT_EQ(text_of("code.prf"), done ? "new" : "old");
    if (!fs::is_directory(directory / "code.sum")) {
      EXPECT_EQ(text_of("code.sum"), done ? "new\n" : "old");
    }
    EXPECT_EQ(fs::exists(directory / "code.pcr.bak"), done);
    close_all(io);
    io.file_error_mess = "";
    for (const auto& entry : fs::directory_iterator(directory))
      EXPECT_EQ(entry.path().string().find("kvtmp"), std::string::npos) << entry.path();
  }
}

TEST_F(RunFiles, UnderANameOfTheControlFileLieInTheFolderOfTheRun) {
  fs::create_directories(directory / "run/inside");
  fs::create_directory(directory / "run/code.bac");  // so that the name of the data is tried
  fs::create_symlink("..", directory / "run/link");
  io.directory += "run/";
  struct row {
    std::string data;
    const char* written;  ///< nullptr: refused
  };
  for (const row& t : {row{"inside/d", "run/inside/d.bac"}, row{"../d", nullptr}, row{"link/d", nullptr},
                       row{(directory / "d").string(), nullptr}}) {
    io.filedat[0] = t.data;
    EXPECT_EQ(opens({file_key::background_out, 1}), t.written != nullptr) << t.data;
    if (t.written == nullptr) {
      EXPECT_EQ(io.file_error_mess, " => Error opening a BAC-file: " + t.data + ".bac: " + t.data +
                                        ".bac lies outside of the folder of the run");
    }
    io.file_error = false;
    ASSERT_TRUE(commit(io));
    EXPECT_EQ(fs::exists(directory / "run/inside/d.bac"), true);
    EXPECT_FALSE(fs::exists(directory / "d.bac"));
  }
}

TEST_F(RunFiles, KeepOwnerModeAndLinks) {
  write("code.pcr", "old");
  fs::create_directory(directory / "elsewhere");
  write("elsewhere/kept.sum", "old");
  fs::create_symlink("elsewhere/kept.sum", directory / "code.sum");
  fs::create_symlink("nowhere", directory / "code.prf");
  fs::create_symlink("elsewhere/kept.sum", directory / "debug_PCR.lst");
  ASSERT_EQ(chmod((directory / "code.pcr").c_str(), 0640), 0);
  const bool may_give_away = chown((directory / "code.pcr").c_str(), 12345, 23456) == 0;
  ASSERT_TRUE(opens({file_key::control}) && opens({file_key::listings}) && opens({file_key::plot, 1}));
  out(io, unit::summary) << "new";
  out(io, unit::plot) << "new";
  next_control_file(io, "new", false);
  ASSERT_TRUE(commit(io)) << io.file_error_mess;
  EXPECT_TRUE(write_now(io, "debug_PCR.lst", "lines"));
  for (const char* name : {"code.pcr", "code.pcr.bak"}) {
    struct stat s {};
    ASSERT_EQ(stat((directory / name).c_str(), &s), 0);
    EXPECT_EQ(s.st_mode & 07777, 0640) << name;
    if (may_give_away) {
      EXPECT_EQ(s.st_uid * 100000 + s.st_gid, 12345u * 100000 + 23456);
    }
  }
  EXPECT_TRUE(fs::is_symlink(directory / "code.sum") && fs::is_symlink(directory / "code.prf"));
  EXPECT_EQ(text_of("elsewhere/kept.sum"), "new");
  EXPECT_EQ(text_of("nowhere"), "new");
  EXPECT_FALSE(fs::is_symlink(directory / "debug_PCR.lst"));
  EXPECT_EQ(text_of("debug_PCR.lst"), "lines");
}

TEST_F(RunFiles, ConsoleLines) {
  struct row {
    const char* text;
    const char* line;
  };
  for (const row& t : {row{"", "  \n"}, row{"   ", "  \n"}, row{"text  ", " => text\n"}, row{"  text", " => text\n"},
                       row{"=> text", "=> text\n"}, row{" => text", " => text\n"}, row{"==> text", "==> text\n"},
                       row{"  => text", " => => text\n"}}) {
    console.str("");
    mess_cons(io, t.text);
    EXPECT_EQ(console.str(), t.line);
  }
  console.str("");
  io.console_is_log = true;
  mess_cons(io, "  text");
  EXPECT_EQ(console.str(), " =>   text\n");

  console.str("");
  message_cons(io, " Points:", 12, 0, 1);
  message_cons(io, "=> Value:", 0, 0.5f, 2, " deg ");
  message_cons(io, " Both:", 3, 1234567.f, 3);
  message_cons(io, " None", 3, 1.f, 0);
  message_cons(io, std::string(200, 'x'), 3, 1.f, 1);
  EXPECT_EQ(console.str(),
            " => Points:      12\n   => Value:  0.5000      deg\n => Both:       3 and   0.1235E+07\n => None\n =>" +
                std::string(129, 'x') + "\n");
}

TEST_F(RunFiles, OnlyAFatalStopUnwinds) {
  std::ostringstream words;
  std::streambuf* const before = std::cerr.rdbuf(words.rdbuf());
  stop_cond(io, " only told ", false);
  EXPECT_THROW(stop_cond(io, " Program interrupted", true), run_stopped);
  std::cerr.rdbuf(before);
  EXPECT_EQ(words.str(), " only told\n Program interrupted\n");
}

TEST_F(RunFiles, ClockLinesTellProcessorTimeOnConsoleAndListings) {
  ASSERT_TRUE(opens({2}));
  kalvaris_util::clock_type clock;
  kalvaris_util::ggtim(io, clock, 1);
  clock.itick1 -= std::chrono::seconds(90);
  kalvaris_util::ggtim(io, clock, 2);
  const std::string lines = content(io, 7).value_or("");
  EXPECT_EQ(lines, content(io, 8));
  EXPECT_EQ(console.str(), "  \n  " + lines);
  const double shown = std::stod(lines.substr(lines.find("CPU Time:") + 9));
  EXPECT_GE(shown, 90.0);
  EXPECT_NEAR(std::stod(lines.substr(lines.find(" seconds\n") + 9)), shown / 60.0, 0.001);

  console.str("");
  clock.itick1 = {};  // the start of the process
  const auto seconds = [] { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; };
  const double before = seconds();
  kalvaris_util::ggtim(io, clock, 2);
  const double told = std::stod(console.str().substr(console.str().find("Time:") + 5));
  EXPECT_GE(told, before - 0.002);  // printed to a millisecond
  EXPECT_LE(told, seconds() + 0.002);

  const auto now = kalvaris_util::fecha(clock);
  EXPECT_EQ(now.dat.size(), 10u);
  EXPECT_EQ(now.tim.size(), 12u);
  EXPECT_EQ(clock.dat_tim, "    Date: " + now.dat + "  Time: " + now.tim);
}

TEST(InitRan, SameSeedsGiveTheSameNumbersAndZeroTheClock) {
  lmix_math_general::combined_generator a, b, c;
  const std::int32_t seed[] = {-5, 2147483647};
  kalvaris_util::init_ran(a, seed);
  kalvaris_util::init_ran(b, seed);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(a.uniform(), b.uniform());
  const std::int32_t none[] = {0, 7};
  kalvaris_util::init_ran(b, none);
  kalvaris_util::init_ran(c, {});
  for (const auto& generator : {a, b, c}) {
    EXPECT_GE(generator.s1, 1);
    EXPECT_GE(generator.s2, 1);
    EXPECT_LT(generator.s1, generator.modulus1);
    EXPECT_LT(generator.s2, generator.modulus2);
  }
  EXPECT_NE(a.s1, b.s1);
}

}  // namespace
