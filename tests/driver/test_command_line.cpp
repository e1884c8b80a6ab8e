#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>
#include <thread>

#include "command_line.hpp"
#include "floating_point.hpp"
#include "kv_plot_stop.hpp"
#include "run_names.hpp"
#include "run_signals.hpp"
#include "standard_streams.hpp"

namespace {

namespace fs = std::filesystem;
using kalvaris_inout::inout_type;
using kalvaris_params::state_type;
namespace status = command_line::status;

class Driver : public testing::Test {
 protected:
  Driver()
      : directory(fs::temp_directory_path() /
                  (std::string("kv_driver_") + testing::UnitTest::GetInstance()->current_test_info()->name() +
                   std::to_string(getpid()))) {
    fs::remove_all(directory);
    fs::create_directories(directory);
    unsetenv("KALVARIS");
  }
  ~Driver() override { fs::remove_all(directory); }

  void write(const std::string& name, const std::string& text = "x\n") const {
    std::ofstream(directory / name) << text;
  }
  std::string text_of(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(directory / name).rdbuf();
    return text.str();
  }
  std::string code(const std::string& name = "code") const { return (directory / name).string(); }

  fs::path directory;
};

// --- Options -------------------------------------------------------------------------------------------------------

TEST(Options, RefusedCommandLinesEndWithStatusTwoAndSayWhy) {
  struct row {
    std::vector<std::string> arguments;
    const char* why;
  };
  for (const row& t : {
           row{{}, "Usage:"},
           row{{"--strict"}, "missing"},
           row{{""}, "missing"},
           row{{"--nonsense", "code"}, "unknown option: --nonsense"},
           row{{"-h"}, "unknown option: -h"},
           row{{"-"}, "unknown option: -"},
           row{{"code", "--strict"}, "options stand before the code: --strict"},
           row{{"code", "data", "more"}, "one word too many: more"},
           row{{"--undo", "code", "data"}, "one word too many: data"},
           row{{"--check", "--undo", "code"}, "--undo stands alone"},
           row{{"seq"}, "words of a series"},
           row{{"Sequential", "a", "b"}, "not available yet"},
           row{{"CYC", "a"}, "not available yet"},
       }) {
    std::ostringstream out, err;
    EXPECT_EQ(command_line::run(t.arguments, {}, "1", out, err), status::usage);
    EXPECT_NE(err.str().find(t.why), std::string::npos) << err.str();
    EXPECT_EQ(out.str(), "");
  }
}

TEST(Options, CodesThatBeginAsASeriesAreCodes) {
  for (const char* code : {"cyclohexane", "sequence1", "Sequoia.pcr", "seq.pcr", "./cyc", "cycles"})
    EXPECT_EQ(command_line::parse(std::vector<std::string>{code}).refusal, "") << code;
}

TEST(Options, AreParsedAndAnswered) {
  EXPECT_TRUE(command_line::parse(std::vector<std::string>{"--strict", "code"}).strict);
  EXPECT_FALSE(command_line::parse(std::vector<std::string>{"code"}).strict);
  EXPECT_EQ(command_line::parse(std::vector<std::string>{"--", "-code", "data"}).words,
            (std::vector<std::string>{"-code", "data"}));
  struct row {
    const char *option, *printed;
  };
  for (const row& t : {row{"--help", "Usage:"}, row{"--version", "7.8.9"}, row{"--formats", "x, y, sigma"},
                       row{"--formats", "PANalytical XRDML"}}) {
    std::ostringstream out, err;
    EXPECT_EQ(command_line::run(std::vector<std::string>{t.option}, {}, "7.8.9", out, err), status::ended);
    EXPECT_NE(out.str().find(t.printed), std::string::npos);
    EXPECT_EQ(err.str(), "");
  }
}

// --- Names of a run ------------------------------------------------------------------------------------------------

TEST(SetCode, PathQuotesAndExtension) {
  struct row {
    const char *word, *directory, *code;
  };
  for (const row& t :
       {row{"code", "", "code"}, row{"code.pcr", "", "code"}, row{"code.PCR", "", "code"}, row{"code.PCr", "", "code"},
        row{"code.pCr", "", "code.pCr"}, row{"code.new", "", "code.new"}, row{"a.b.pcr", "", "a.b"},
        row{"a/b.c/code.pcr", "a/b.c/", "code"}, row{"/code", "/", "code"}, row{"x\"my code.pcr\"y", "", "my code"},
        row{"\"code", "", "\"code"}, row{"../c.pcrx", "../", "c.pcrx"}}) {
    inout_type io;
    run_names::set_code(io, t.word);
    EXPECT_EQ(io.directory, t.directory) << t.word;
    EXPECT_EQ(io.filenam, t.code) << t.word;
  }
}

TEST_F(Driver, PeekFindsTheMultiPatternFormAndCalculations) {
  struct row {
    const char* what;
    std::string content;
    bool multi;
    const char* filedat;
  };
  const std::string nine = "t\n2\n3\n4\n5\n6\n7\n8\n9\n";
  for (const row& t : {
           row{"tenth line", nine + "NPATT 2\n", true, ""},
           row{"eleventh line", nine + "10\nNPATT 2\n", false, ""},
           row{"calculation", "t\n!Job Npr\n 2 7\n", false, "code"},
           row{"calculation, negative", "t\n!Job Npr\n-3 7\n", false, "code"},
           row{"refinement", "t\n!Job Npr\n 1 7\n", false, ""},
           row{"no job below", "t\n!Job Npr\nx\n2\n", false, ""},
           row{"job on the eleventh line", nine + "!Job\n 2\n", false, ""},
           row{"empty", "", false, ""},
       }) {
    SCOPED_TRACE(t.what);
    write("code.pcr", t.content);
    inout_type io;
    std::ostringstream console;
    io.console = &console;
    run_names::set_names(io, code(), "");
    EXPECT_EQ(io.multi_pattern, t.multi);
    EXPECT_EQ(io.filedat, std::vector<std::string>{t.filedat});
    EXPECT_EQ(console.str(), "");
  }
  fs::remove(directory / "code.pcr");
  inout_type io;
  std::ostringstream console;
  io.console = &console;
  run_names::set_names(io, code("code.pcr"), "");
  EXPECT_EQ(console.str(), "! Error opening the code.pcr file !\n");
}

TEST_F(Driver, DataFileIsThatOfTheWordElseThatOfTheCode) {
  struct row {
    std::vector<std::string> present;
    std::string word, file, extension;
  };
  for (const row& t : {
           row{{"d.dat"}, "d", "d", ".dat"},
           row{{"d.uxd"}, " \"d.uxd\" ", "d", ".uxd"},
           row{{"d.int"}, "d.xyz", "d", ".xyz"},  // the list of intensities counts
           row{{"code.dat", "code.uxd"}, "", "code", ".dat"},
           row{{"code.xys"}, "", "code", ".xys"},
           row{{"code.csv", "code.xrdml"}, "", "code", ".csv"},
           row{{"code1.int"}, "", "code", ".int"},
           row{{"code.raw"}, "", "", ""},
           row{{"v.1/d.dat"}, "v.1/d", "v.1/d", ".dat"},
       }) {
    SCOPED_TRACE(t.word + " " + t.present[0]);
    fs::remove_all(directory);
    fs::create_directories(directory / "v.1");
    write("code.pcr");
    for (const std::string& name : t.present) write(name);
    inout_type io;
    std::ostringstream console;
    io.console = &console;
    run_names::set_names(io, code(), t.word);
    EXPECT_EQ(io.filedat, std::vector<std::string>{t.file});
    EXPECT_EQ(io.extdat, std::vector<std::string>{t.extension});
  }
  inout_type io;
  run_names::set_names(io, code(), (directory / "v.1/d.dat").string());
  EXPECT_EQ(io.filedat[0], (directory / "v.1/d").string());
  for (const auto& [content, why] : {std::pair{"t\nNPATT 1\n", "the control file names its own"},
                                     std::pair{"t\n!Job\n2\n", "a calculation needs none"}}) {
    write("code.pcr", content);
    std::ostringstream console;
    io.console = &console;
    run_names::set_names(io, code(), "d");
    EXPECT_EQ(console.str(), std::string(" => Not used: the data file d, as ") + why + "\n");
  }
}

// --- The run -------------------------------------------------------------------------------------------------------

/// Stages that write down that they were called, and do nothing else unless a test replaces them.
struct recorded_stages {
  std::string order;
  kalvaris_sub::run_stages stages;
  recorded_stages() {
    stages.read_pcr = [this](state_type&) { order += "read "; };
    stages.write_out = [this](state_type&) { order += "setup "; };
    stages.iterate = [this](state_type&) { return order += "cycles ", 0; };
    stages.final_calcn_output = [this](state_type&) { order += "final "; };
  }
};

class Run : public Driver {
 protected:
  int run(std::vector<std::string> options = {}, const std::string& data = "") {
    write("code.pcr", control);
    options.push_back(code());
    if (!data.empty()) options.push_back(data);
    std::ostringstream stop_words;
    std::streambuf* const before = std::cerr.rdbuf(stop_words.rdbuf());
    const int result = command_line::run(options, recorded.stages, "1", out, stop_words);
    std::cerr.rdbuf(before);
    err = stop_words.str();
    return result;
  }
  std::string control = "x\n";
  recorded_stages recorded;
  std::ostringstream out;
  std::string err;
};

TEST_F(Run, ReachesItsEndInOrderAndFramesTheListing) {
  EXPECT_EQ(run(), status::ended);
  EXPECT_EQ(recorded.order, "read setup cycles final ");
  const std::string listing = text_of("code.out");
  EXPECT_TRUE(listing.starts_with("\n\n        *****")) << listing;
  EXPECT_EQ(listing, text_of("code.sum"));
  for (const char* line :
       {"PROGRAM Kalvaris.2k", "    Date: ", " => PCR file code: code\n", "CPU Time:", " => Run finished at: "})
    EXPECT_NE(listing.find(line), std::string::npos) << line;
  for (const char* line :
       {" => START Date:", " => Reading control file *.PCR ... code\n", " => END   Date:", "  Time => "})
    EXPECT_NE(out.str().find(line), std::string::npos) << line;
  EXPECT_EQ(err, "");
}

TEST_F(Run, FailuresStopWithStatusOneAndTheirWords) {
  struct row {
    const char* what;
    std::function<void(state_type&)> read_pcr, write_out;
    const char *order, *console, *err;
  };
  const auto nothing = [](state_type&) {};
  const auto refuse = [](int ierr) {
    return [ierr](state_type& st) {
      st.fmt.ierr_fmt = ierr;
      st.fmt.mess_findfmt.add(" => the reason");
    };
  };
  const auto no_file = [](state_type& st) { st.io.file_error = true, st.io.file_error_mess = " => no file"; };
  for (const row& t : {
           row{"refused control file", refuse(100), nothing, "", " Error reading the PCR file:\n => the reason\n",
               " Program interrupted\n"},
           row{"early end of the control file", refuse(-1), nothing, "", " Error reading the PCR file:\n",
               " Program interrupted\n"},
           row{"file of the control file", no_file, nothing, "", "", " => no file\n"},
           row{"refused content", nothing, refuse(7), "",
               " Error during treating the content of the PCR file:\n => the reason\n", " Program interrupted\n"},
           row{"file of the set-up", nothing, no_file, "", "", " => no file\n"},
           row{"annealing", [](state_type& st) { st.run.icryg = -3; }, nothing, "", "",
               " Simulated annealing is not available yet\n"},
           row{"search", [](state_type& st) { st.run.icryg = 2; }, nothing, "", "",
               " Monte Carlo search is not available yet\n"},
           row{"memory", [](state_type&) { throw std::bad_alloc(); }, nothing, "", "",
               " => Error allocating the arrays of the run\n"},
       }) {
    SCOPED_TRACE(t.what);
    recorded.order.clear();
    out.str("");
    recorded.stages.read_pcr = t.read_pcr;
    recorded.stages.write_out = t.write_out;
    EXPECT_EQ(run(), status::stopped);
    EXPECT_EQ(recorded.order, t.order);
    EXPECT_NE(out.str().find(t.console), std::string::npos) << out.str();
    EXPECT_EQ(err, t.err);
    EXPECT_EQ(text_of("code.pcr"), "x\n");
  }
  recorded.stages.read_pcr = nothing;
  recorded.stages.write_out = refuse(-1);  // a negative status of the set-up is no error
  EXPECT_EQ(run(), status::ended);
}

TEST_F(Run, MissingControlFileStopsTheRun) {
  std::ostringstream stop_words;
  std::streambuf* const before = std::cerr.rdbuf(stop_words.rdbuf());
  const int result =
      command_line::run(std::vector<std::string>{code("absent.new")}, recorded.stages, "1", out, stop_words);
  std::cerr.rdbuf(before);
  EXPECT_EQ(result, status::stopped);
  EXPECT_EQ(stop_words.str(), " => Error opening file: absent.new.pcr Unit: 1\n");
  EXPECT_FALSE(fs::exists(directory / "absent.new.out"));
}

TEST_F(Run, CyclesThatEndAbnormallyRewriteNothingAndCountOnlyWhenStrict) {
  for (const bool strict : {false, true}) {
    const std::vector<std::string> options = strict ? std::vector<std::string>{"--strict"} : std::vector<std::string>{};
    const int expected = strict ? status::abnormal : status::ended;
    recorded.order.clear();
    recorded.stages.iterate = [](state_type&) { return 1; };
    EXPECT_EQ(run(options), expected);
    EXPECT_EQ(recorded.order, "read setup ");
    EXPECT_NE(text_of("code.out").find("Run finished"), std::string::npos);

    recorded.stages.iterate = [](state_type& st) { return st.run.ctr_err = true, 0; };
    EXPECT_EQ(run(options), expected);
    EXPECT_EQ(recorded.order, "read setup read setup ");
    EXPECT_NE(text_of("code.out").find("PCR file code"), std::string::npos);
    EXPECT_EQ(text_of("code.out").find("Run finished"), std::string::npos);
  }
}

TEST_F(Run, SeveralPatternsTurnOnTheirOwnFileNames) {
  bool multipatt = false;
  recorded.stages.write_out = [&](state_type& st) { multipatt = st.io.multipatt; };
  run();
  EXPECT_FALSE(multipatt);
  recorded.stages.read_pcr = [](state_type& st) { st.run.n_patt = 2; };
  run();
  EXPECT_TRUE(multipatt);
  recorded.stages.read_pcr = [](state_type& st) { st.run.s_format = false; };  // NPATT 1
  run();
  EXPECT_TRUE(multipatt);
}

TEST_F(Run, ADataFileThatIsNamedAndNotThereEndsIt) {
  write("code.dat");
  for (const char* option : {"--strict", "--check", "--explain"}) {
    for (const char* word : {"sampelB.dat", "a.b.xrdml", "absent"}) {
      EXPECT_EQ(run({option}, word), status::stopped);
      EXPECT_EQ(err, " => Data file not found: " + std::string(word) + "\n");
      EXPECT_EQ(recorded.order, "");
      EXPECT_FALSE(fs::exists(directory / "code.out"));
    }
  }
}

// --- Files of the user -----------------------------------------------------------------------------------------------

TEST_F(Run, ASecondRunOnTheSameControlFileIsRefused) {
  write("code.out", "old");
  write("code.sum", "old");
  write("code.kvtmp1", "of the run that works");
  {
    inout_type other;
    run_names::set_code(other, code());
    write("code.pcr");
    kalvaris_inout::openfile(other, {kalvaris_inout::file_key::control});
    ASSERT_FALSE(other.file_error);
    write("code.kvtmp1", "of the run that works");
    for (const char* option : {"--strict", "--undo"}) {
      EXPECT_EQ(run({option}), status::stopped);
      EXPECT_EQ(err, " => Error opening file: code.pcr Unit: 1: another run works on it\n");
    }
    EXPECT_EQ(text_of("code.out") + text_of("code.sum") + recorded.order, "oldold");
    EXPECT_TRUE(fs::exists(directory / "code.kvtmp1"));
  }
  write("code.kvtmpx", "a file of the user");
  EXPECT_EQ(run(), status::ended);
  EXPECT_FALSE(fs::exists(directory / "code.kvtmp1")) << "left by a run that was killed";
  EXPECT_TRUE(fs::exists(directory / "code.kvtmpx"));
}

TEST_F(Run, AControlFileThatWasEditedMeanwhileStays) {
  for (const bool edited : {false, true}) {
    recorded.stages.final_calcn_output = [&](state_type& st) {
      kalvaris_inout::next_control_file(st.io, "refined\n", false);
      write("code.pcr", edited ? "edited\n" : control);  // saved by an editor, with or without a change
    };
    EXPECT_EQ(run(), status::ended) << err;
    EXPECT_EQ(text_of("code.pcr"), edited ? "edited\n" : "refined\n");
    EXPECT_EQ(text_of("code.new"), edited ? "refined\n" : "");
    for (const std::string& text : {out.str(), text_of("code.out")})
      EXPECT_EQ(text.find(" => The control file code.pcr was changed while the run went on") != std::string::npos,
                edited);
    if (!edited) fs::remove(directory / "code.pcr.bak");
  }
  EXPECT_FALSE(fs::exists(directory / "code.pcr.bak"));
}

TEST_F(Run, ARewritingKeepsLineEndsAndCanBeTakenBack) {
  recorded.stages.final_calcn_output = [](state_type& st) {
    kalvaris_inout::next_control_file(st.io, "t\nu\n", false);
  };
  const auto undo = [&] {
    std::ostringstream words;
    std::streambuf* const before = std::cerr.rdbuf(words.rdbuf());
    const int result =
        command_line::run(std::vector<std::string>{"--undo", code("code.pcr")}, recorded.stages, "1", out, words);
    std::cerr.rdbuf(before);
    err = words.str();
    return result;
  };
  struct row {
    const char *old, *rewritten;
  };
  for (const row& t : {row{"a\nb\n", "t\nu\n"}, row{"a\r\nb\r\n", "t\r\nu\r\n"}, row{"a", "t\nu\n"}}) {
    control = t.old;
    fs::remove(directory / "code.pcr.bak");
    write("code.pcr", control);
    EXPECT_EQ(undo(), status::stopped);
    EXPECT_EQ(err, " => There is no file code.pcr.bak: no rewriting can be taken back\n");
    EXPECT_EQ(run(), status::ended);
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(text_of("code.pcr"), k % 2 == 0 ? t.rewritten : t.old);
      EXPECT_EQ(text_of("code.pcr.bak"), k % 2 == 0 ? t.old : t.rewritten);
      EXPECT_EQ(undo(), status::ended) << err;
    }
  }
}

// --- Signals ---------------------------------------------------------------------------------------------------------

TEST_F(Run, ASignalEndsTheCyclesAndTheResultsAreWritten) {
  struct row {
    int number;
    const char* name;  ///< blank: ignored before the run
  };
  for (const row& t : {row{SIGINT, "SIGINT"}, row{SIGTERM, "SIGTERM"}, row{SIGHUP, "SIGHUP"}, row{SIGHUP, ""}}) {
    SCOPED_TRACE(t.name);
    const bool ignored = std::string(t.name).empty();
    const auto before = std::signal(t.number, ignored ? SIG_IGN : SIG_DFL);
    int cycle = 3;
    recorded.order.clear();
    recorded.stages.iterate = [&](state_type& st) {
      st.run.mcycle = 10;
      raise(t.number);
      kv_plot_stop::kalvaris_stop(st, cycle);
      return 0;
    };
    out.str("");
    EXPECT_EQ(run(), status::ended);
    EXPECT_EQ(cycle, ignored ? 3 : 11);
    EXPECT_EQ(recorded.order, "read setup final ");
    const std::string line = " => " + std::string(t.name) + ": the cycles end here, the results are written\n";
    for (const std::string& text : {out.str(), text_of("code.out")})
      EXPECT_EQ(text.find(line) != std::string::npos, !ignored) << text;
    EXPECT_EQ(std::signal(t.number, before), ignored ? SIG_IGN : SIG_DFL) << "is as it was before the run";
  }
}

TEST_F(Run, ASecondSignalEndsItAtOnceAndTheOldResultsStay) {
  write("code.sum", "old");
  recorded.stages.final_calcn_output = [](state_type& st) {
    kalvaris_inout::next_control_file(st.io, "new", false);
    raise(SIGINT);
    raise(SIGTERM);
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGTERM), "the next signal ends it at once");
  EXPECT_EQ(text_of("code.pcr") + text_of("code.sum"), "x\nold");
}

TEST(Signals, ThatComeWhileTheFilesAreMovedEndNothing) {
  const run_signals::guard signals;
  {
    run_signals::hold while_moving;
    raise(SIGINT), raise(SIGTERM);
    EXPECT_EQ(run_signals::asked_to_end(), "");
    while_moving.done();
  }
  raise(SIGINT);
  EXPECT_EQ(run_signals::asked_to_end(), "");
}

TEST(StandardStreams, LostLinesAreTold) {
  std::ostringstream good, bad;
  bad.setstate(std::ios::badbit);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int file = open("/dev/null", O_WRONLY);
  EXPECT_EQ(standard_streams::loss(good, file), "");
  EXPECT_EQ(standard_streams::loss(bad, ends[1]), "") << "its reader has gone";
  EXPECT_NE(standard_streams::loss(bad, file), "");
  for (const int descriptor : {ends[0], ends[1], file}) close(descriptor);
}

TEST(StandardStreams, PreparedTheyTakeNoFileAndKillNobody) {
  EXPECT_EXIT(
      {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        standard_streams::prepare();
        const int file = open("/dev/null", O_RDONLY);
        char c = 'x';
        const bool filled =
            file > STDERR_FILENO && ::write(STDOUT_FILENO, &c, 1) == -1 && ::read(STDIN_FILENO, &c, 1) == -1;
        int ends[2];
        const bool piped = pipe(ends) == 0 && close(ends[0]) == 0 && ::write(ends[1], &c, 1) == -1;
        raise(SIGXFSZ);
        std::exit(filled && piped ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

// --- Stop request, floating point ----------------------------------------------------------------------------------

TEST_F(Driver, StopRequestIsObeyedWordForWordAndLeftInPlace) {
  state_type st;
  std::ostringstream console;
  st.io.console = &console;
  st.io.directory = directory.string() + "/";
  st.run.mcycle = 10;
  const auto cycle_after = [&](const std::string& request) {
    write("kalvaris.tmp", request);
    int icycle = 3;
    st.run.finish_required = false;
    kv_plot_stop::kalvaris_stop(st, icycle);
    EXPECT_EQ(st.run.finish_required, icycle != 3);
    EXPECT_TRUE(fs::exists(directory / "kalvaris.tmp"));
    return icycle;
  };
  EXPECT_EQ(cycle_after("  KALVARIS FINISH REQUIRED  \nmore\n"), 11);
  EXPECT_EQ(console.str(), " => KALVARIS FINISH REQUIRED: the cycles end here, the results are written\n");
  EXPECT_EQ(cycle_after("KALVARIS FINISH REQUIRED"), 11);
  for (const char* other :
       {"", "\n", "kalvaris finish required\n", "KALVARIS FINISH REQUIRED!\n", "\nKALVARIS FINISH REQUIRED\n"})
    EXPECT_EQ(cycle_after(other), 3) << other;
  EXPECT_EQ(cycle_after(std::string(100000, 'x')), 3);
  std::ostringstream words;
  std::streambuf* const before = std::cerr.rdbuf(words.rdbuf());
  EXPECT_THROW(cycle_after("KALVARIS STOP REQUIRED\n"), kalvaris_inout::run_stopped);
  std::cerr.rdbuf(before);
  EXPECT_EQ(words.str(), "KALVARIS INTERRUPTED\n");

  setenv("KALVARIS", (directory / "elsewhere").c_str(), 1);  // then only the file there counts
  int icycle = 3;
  kv_plot_stop::kalvaris_stop(st, icycle);
  EXPECT_EQ(icycle, 3);
  unsetenv("KALVARIS");
}

TEST(FloatingPoint, DenormalResultsBecomeZero) {
  float product = 1.f;
  std::thread([&product] {  // the mode is that of a thread: the other tests keep theirs
    floating_point::flush_denormals();
    volatile float tiny = std::numeric_limits<float>::min();
    product = tiny * 0.25f;
  })
      .join();
#if defined(__SSE__) || defined(__aarch64__)
  EXPECT_EQ(product, 0.f);
#endif
}

}  // namespace
