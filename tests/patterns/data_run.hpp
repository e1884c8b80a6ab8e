// A run of the reader in a test: a directory of its own, data files that the test writes, what the reader said.
// Owns the directory and removes it.
// For the tests of this folder.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>

#include "kalvaris_init.hpp"
#include "kv_read_intens.hpp"

namespace test_patterns {

using kalvaris_params::pattern_type;
using kalvaris_params::state_type;

/// A run in a directory of its own, with one pattern whose data file is written by the test.
struct data_run {
  std::filesystem::path directory;
  std::ostringstream console;
  state_type st;
  std::string stopped;  ///< text of the stop, blank when the reading ended well

  explicit data_run(int instr, const std::string& content, const std::string& extension = ".dat") {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    directory = std::filesystem::temp_directory_path() /
                (std::string("kv_") + test->test_suite_name() + "_" + test->name() + "_" + std::to_string(getpid()));
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    st.run.n_patt = 1;
    kalvaris_init::init_val(st);
    st.io.directory = directory.string() + "/";
    st.io.console = &console;
    st.io.filedat = {"d"};
    st.io.extdat = {extension};
    pattern().instr = instr;
    write("d" + extension, content);
  }
  ~data_run() { std::filesystem::remove_all(directory); }

  /// As many patterns of time of flight on the one data file.
  void set_banks(int n) {
    const pattern_type first = pattern();
    st.run.n_patt = n;
    st.pattern.assign(static_cast<std::size_t>(n), first);
    for (pattern_type& p : st.pattern) p.ixunit = 1;
    st.io.filedat.assign(static_cast<std::size_t>(n), st.io.filedat[0]);
    st.io.extdat.assign(static_cast<std::size_t>(n), st.io.extdat[0]);
  }
  bool told(std::string_view words) const { return console.str().find(words) != std::string::npos; }

  pattern_type& pattern() { return st.pattern[0]; }
  void write(const std::string& name, const std::string& content) const {
    std::filesystem::remove(directory /
                            name);  // a file made anew is not flushed to the disk, as one cut short would be
    std::ofstream(directory / name, std::ios::binary) << content;
  }
  data_run& read(int ip = 0) {
    std::ostringstream stop_words;
    std::streambuf* const before = std::cerr.rdbuf(stop_words.rdbuf());
    try {
      kv_read_intens::readint(st, ip);
    } catch (const kalvaris_inout::run_stopped& stop) {
      stopped = stop.text;
    }
    std::cerr.rdbuf(before);
    return *this;
  }
};

}  // namespace test_patterns
