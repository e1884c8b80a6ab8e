// libFuzzer's entry to the reader of the control file: texts are changed word by word and line by line as often as byte
// by byte, since a text of random bytes is refused at its third line.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "control_check.hpp"
#include "sample_files.hpp"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using control_files::join;
using control_files::lines_of;

const std::vector<control_files::file_row>& samples() {
  static const std::vector<control_files::file_row> all = control_files::all_files();
  return all;
}

control_files::run_directory& directory() {
  static control_files::run_directory run;
  return run;
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

const char* random_word(std::mt19937& random) {
  constexpr const char* words[] = {"0",    "1",    "-1",  "2",           "3",          "-2",    "5",    "7",
                                   "10",   "-10",  "15",  "22",          "30",         "36",    "37",   "60",
                                   "101",  "-102", "384", "1e38",        "-1e9",       "1e-40", "0.5",  "nan",
                                   "#",    "!",    "\"",  "1,2",         "3*1",        "/",     "x",    "1.5-2",
                                   "1D-3", "END",  ".",   "99999999999", "2147483647", "SYMM",  "MOLE", "SASH"};
  return words[random() % std::size(words)];
}

void change_word(std::string& line, std::mt19937& random) {
  std::vector<std::string> words = words_of(line);
  if (words.empty()) return;
  const std::size_t k = random() % words.size();
  switch (random() % 4) {
    case 0:
      words.erase(words.begin() + static_cast<std::ptrdiff_t>(k));
      break;
    case 1:
      words.insert(words.begin() + static_cast<std::ptrdiff_t>(k), words[k]);
      break;
    default:
      words[k] = random_word(random);
  }
  line.clear();
  for (const std::string& word : words) line += ' ' + word;
}

void change_line(std::vector<std::string>& lines, std::mt19937& random) {
  const std::size_t n = random() % lines.size();
  const std::vector<std::string> other = lines_of(samples()[random() % samples().size()].text);
  const auto place = lines.begin() + static_cast<std::ptrdiff_t>(n);
  switch (random() % 8) {
    case 0:
      if (lines.size() > 1) lines.erase(place);
      break;
    case 1:
      lines.insert(place, lines[random() % lines.size()]);
      break;
    case 2:
      lines.insert(place, other[random() % other.size()]);
      break;
    case 3:
      lines[n] = other[random() % other.size()];
      break;
    default:
      change_word(lines[n], random);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  directory().put_named_files();
  const char* seeds = std::getenv("KV_FUZZ_SEEDS");
  for (std::size_t k = 0; seeds != nullptr && k < samples().size(); ++k) {
    std::ofstream(std::string(seeds) + "/sample_" + std::to_string(k)) << samples()[k].text;
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned seed) {
  std::mt19937 random(seed);
  if (random() % 4 == 0) return LLVMFuzzerMutate(data, size, max_size);
  std::vector<std::string> lines = lines_of({reinterpret_cast<const char*>(data), size});
  if (lines.empty()) lines = lines_of(samples()[random() % samples().size()].text);
  for (unsigned k = 0; k <= random() % 3; ++k) change_line(lines, random);
  const std::string text = join(lines);
  const std::size_t length = std::min(text.size(), max_size);
  std::memcpy(data, text.data(), length);
  return length;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string found = control_files::complaint(directory(), {reinterpret_cast<const char*>(data), size});
  if (found.empty()) return 0;
  std::fprintf(stderr, "%s\n", found.c_str());
  std::abort();
}
