// What a run may do to the files that it finds: replace them whole, or leave them and say why.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "../smaller_files.hpp"
#include "program_run.hpp"

namespace {

namespace fs = std::filesystem;
using program_run::directory;
using program_run::outcome;
using program_run::with_word;
using testing::HasSubstr;
using testing::Not;

constexpr const char* flags = "!Job Npr";
constexpr const char* output_flags = "!Iot Ipl Ipc Mat Nxt";

TEST(FilesOfTheUser, AreWholeTheOldOnesOrTheNewOnesAsTheStatusSays) {
  const directory where("nacl_gauss");
  ASSERT_EQ(where.run("nacl_gauss").status, 0);
  const std::vector<std::string> results{"nacl_gauss.pcr", "nacl_gauss.prf", "nacl_gauss.sum"};
  const auto size = [&](const char* extension) { return where.get(std::string("nacl_gauss") + extension).size(); };
  const std::size_t large = std::max({size(".out"), size(".prf"), size(".sum")}) + 1000;
  for (const std::size_t limit : {std::size_t{0}, size(".sum") / 2, size(".prf") / 2, size(".out") / 2, large}) {
    SCOPED_TRACE(limit);
    for (const std::string& name : results) where.put(name, name.ends_with(".pcr") ? where.get(name) : "old");
    const std::string control = where.get(results[0]);
    outcome run;
    {
      const smaller_files limited(limit);
      run = where.run("nacl_gauss");
    }
    EXPECT_EQ(run.status, limit == large ? 0 : 1);
    EXPECT_EQ(run.errors.find(": File too large") == std::string::npos, run.status == 0) << run.errors;
    EXPECT_EQ(where.get(results[0]) == control, run.status == 1);
    for (const char* extension : {".prf", ".sum"}) EXPECT_EQ(size(extension) == 3, run.status == 1) << extension;
    for (const std::string& name : where.names()) EXPECT_THAT(name, Not(HasSubstr("kvtmp")));
  }
}

TEST(FilesOfTheUser, ThatCannotBeWrittenRefuseTheRunBeforeItsCycles) {
  const auto protect = [](const fs::path& file) { fs::permissions(file, fs::perms::owner_read); };
  struct row {
    const char *name, *nxt, *words;  ///< no words: nothing refuses the run
  };
  for (const row& t :
       {row{"nacl_gauss.pcr", "1", "nacl_gauss.pcr Unit:37: Permission denied. A run writes it at its end"},
        row{"nacl_gauss.pcr", "0", nullptr},
        row{"nacl_gauss.new", "2", "nacl_gauss.new Unit:19: Permission denied. A run writes it at its end"},
        row{"nacl_gauss.prf", "0", "nacl_gauss.prf Unit:17: Permission denied"},
        row{"nacl_gauss.sum", "0", "nacl_gauss.sum Unit: 8: Permission denied"}}) {
    SCOPED_TRACE(std::string(t.name) + " " + t.nxt);
    const directory where("nacl_gauss");
    where.put("nacl_gauss.pcr", with_word(where.get("nacl_gauss.pcr"), output_flags, 1, 4, t.nxt));
    if (!where.has(t.name)) where.put(t.name, "old");
    const std::string before = where.get(t.name);
    protect(where.file(t.name));
    const auto run = where.run("nacl_gauss");
    EXPECT_EQ(run.status, t.words == nullptr ? 0 : 1) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr(t.words == nullptr ? "" : t.words));
    EXPECT_EQ(run.console.find("CYCLE") == std::string::npos, t.words != nullptr);
    EXPECT_EQ(where.get(t.name), before);
    for (const char* look : {"--check", "--explain"}) {
      const auto looked = where.run("nacl_gauss", "", {look});
      EXPECT_EQ(looked.status, 0) << looked.errors;
      const bool told = looked.console.find("warning: nacl_gauss.pcr: a run could not write") != std::string::npos;
      EXPECT_EQ(told, std::string(look) == "--check" && std::string(t.nxt) != "0");
    }
  }
}

TEST(FilesOfTheUser, OfACalculationHaveTheSameNamesWithAndWithoutComments) {
  for (const bool comments : {true, false}) {
    const directory where("nacl_gauss");
    std::vector<std::string> lines = program_run::lines_of(with_word(where.get("nacl_gauss.pcr"), flags, 1, 0, "2"));
    if (!comments) std::erase_if(lines, [](const std::string& line) { return line.starts_with('!'); });
    where.put("nacl_gauss.pcr", program_run::join(lines));
    const auto run = where.run("nacl_gauss");
    EXPECT_EQ(run.status, 0) << run.last_words();
    EXPECT_TRUE(where.has("nacl_gauss.prf"));
    EXPECT_FALSE(where.has("nacl_gauss_1.prf"));
  }
}

}  // namespace
