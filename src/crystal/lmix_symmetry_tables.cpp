#include "lmix_symmetry_tables.hpp"

#include <algorithm>
#include <cctype>
#include <vector>

namespace lmix_symmetry_tables {
namespace {

constexpr spgr_info_row settings[] = {
#include "tables/space_groups.inc"
};
constexpr alias_row aliases[] = {
#include "tables/space_group_aliases.inc"
};
constexpr spg_gen_row generators[] = {
#include "tables/generators.inc"
};
constexpr wyckoff_row wyckoff_rows[] = {
#include "tables/wyckoff.inc"
};
constexpr point_operation_row point_ops[] = {
#include "tables/sitesym_ops.inc"
};
static_assert(std::size(settings) == 564 && std::size(generators) == 230 && std::size(point_ops) == 72);

char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

// The key under which symbols are compared: upper case, without blanks and underscores. No two groups share a key.
std::string symbol_key(std::string_view text) {
  std::string key;
  for (const char c : text)
    if (c != ' ' && c != '\t' && c != '_') key += upper(c);
  return key;
}

// Whether a word is one field of a symbol by itself: "21", "-4", "m", "42/n"; not "-3m" and not "212".
bool is_one_field(std::string_view word) {
  constexpr std::string_view planes = "MABCDEN", inverted = "1346";
  if (word.size() == 1 && planes.find(word[0]) != std::string_view::npos) return true;
  if (word.size() == 2 && word[0] == '-') return inverted.find(word[1]) != std::string_view::npos;
  if (word.empty() || std::string_view("12346").find(word[0]) == std::string_view::npos) return false;
  const char order = word[0];
  word.remove_prefix(1);
  if (!word.empty() && word[0] >= '1' && word[0] < order) word.remove_prefix(1);
  return word.empty() || (word.size() == 2 && word[0] == '/' && planes.find(word[1]) != std::string_view::npos);
}

// The words behind the lattice letter, in upper case; blanks around a slash and behind a minus are none.
std::vector<std::string> words_of(std::string_view symbol) {
  std::string text;
  for (const char c : symbol) {
    const bool blank = c == ' ' || c == '\t';
    if (c == '_' || (blank && (text.empty() || std::string_view(" /-").find(text.back()) != std::string_view::npos)))
      continue;
    if (c == '/' && !text.empty() && text.back() == ' ') text.pop_back();
    text += blank ? ' ' : upper(c);
  }
  std::vector<std::string> words;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == ' ') continue;
    if (i == 1 || text[i - 1] == ' ') words.emplace_back();
    words.back() += text[i];
  }
  return words;
}

// Whether a text with the key of a symbol also has its fields. Without blanks the key alone decides. With blanks a word
// may hold several fields ("F m -3m") but no part of one, and a word that is a field by itself is that field: "P 3 2"
// is not "P 32", and "P 31 2" is not "P 3 1 2".
bool fields_fit(const std::vector<std::string>& words, std::string_view symbol) {
  if (words.size() < 2) return true;
  const std::vector<std::string> fields = words_of(symbol);
  std::size_t next = 0;
  for (const std::string& word : words) {
    std::string joined;
    std::size_t parts = 0;
    for (; joined.size() < word.size() && next < fields.size(); ++parts) joined += fields[next++];
    if (joined != word || (parts > 1 && is_one_field(word))) return false;
  }
  return next == fields.size();
}

// Upper case with single blanks. In a Hall symbol the blanks matter: "P 2 2a" and "P 22a" are not the same.
std::string folded(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '\t' || c == '_') c = ' ';
    if (c == ' ' && (out.empty() || out.back() == ' ')) continue;
    out += upper(c);
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

void add_row(row_list& list, int row) {
  const auto end = list.row.begin() + list.size;
  if (list.size < static_cast<int>(list.row.size()) && std::find(list.row.begin(), end, row) == end)
    list.row[static_cast<std::size_t>(list.size++)] = row;
}

template <std::size_t N>
int index_from_1(const std::array<std::string_view, N>& names, std::string_view text) {
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  const auto it = std::find(names.begin(), names.end(), text);
  return it == names.end() ? 0 : static_cast<int>(it - names.begin()) + 1;
}

}  // namespace

std::span<const spgr_info_row> spgr_info() { return settings; }
std::span<const alias_row> spgr_aliases() { return aliases; }
std::span<const spg_gen_row> spg_gen() { return generators; }
std::span<const point_operation_row> point_operations() { return point_ops; }

std::span<const wyckoff_row> wyckoff_info(int row) {
  const auto first = std::ranges::lower_bound(wyckoff_rows, row, {}, &wyckoff_row::row);
  return {first, std::ranges::upper_bound(wyckoff_rows, row, {}, &wyckoff_row::row)};
}

int get_laue_num(std::string_view laue) {
  const int i = index_from_1(laue_class, laue);
  return i > 14 ? i - 2 : i;
}

int get_pointgroup_num(std::string_view pg) {
  const int i = index_from_1(point_group, pg);
  return i == 40 ? 36 : i == 41 ? 39 : i == 42 ? 23 : i;
}

std::string_view get_laue_str(int ilaue) {
  return ilaue < 1 || ilaue > 16 ? std::string_view{} : laue_class[static_cast<std::size_t>(ilaue - 1)];
}

std::string_view get_pointgroup_str(int ipg) {
  return ipg < 1 || ipg > 42 ? std::string_view{} : point_group[static_cast<std::size_t>(ipg - 1)];
}

int crystal_system_of_laue(int ilaue) {
  constexpr std::array<int, 17> system{-1, 0, 1, 2, 3, 3, 4, 4, 4, 4, 4, 5, 5, 6, 6, 6, 6};
  return ilaue < 1 || ilaue > 16 ? -1 : system[static_cast<std::size_t>(ilaue)];
}

std::string_view get_laue_class(int ispg) {
  struct range {
    int last;
    std::string_view laue;
  };
  // Trigonal groups are told apart one by one: the two orientations of -3m alternate.
  constexpr range ranges[] = {{2, "-1"},     {15, "2/m"},   {74, "mmm"},   {88, "4/m"},   {142, "4/mmm"},
                              {148, "-3"},   {149, "-31m"}, {150, "-3m1"}, {151, "-31m"}, {152, "-3m1"},
                              {153, "-31m"}, {156, "-3m1"}, {157, "-31m"}, {158, "-3m1"}, {159, "-31m"},
                              {161, "-3m1"}, {163, "-31m"}, {167, "-3m1"}, {176, "6/m"},  {194, "6/mmm"},
                              {206, "m-3"},  {230, "m-3m"}};
  if (ispg >= 1)
    for (const range& r : ranges)
      if (ispg <= r.last) return r.laue;
  return "-1";
}

row_list find_hm(std::string_view symbol) {
  const std::size_t colon = symbol.find(':');
  const std::string base = symbol_key(symbol.substr(0, colon));
  const bool any_choice = colon == std::string_view::npos;
  const std::string choice = any_choice ? std::string{} : symbol_key(symbol.substr(colon + 1));
  const std::vector<std::string> words = words_of(symbol.substr(0, colon));
  row_list found;
  if (base.empty() || (!any_choice && choice.empty())) return found;
  const auto take = [&](int row) {
    const spgr_info_row& s = settings[row - 1];
    if (any_choice || choice == s.ext || choice == symbol_key(s.choice)) add_row(found, row);
  };
  const auto names = [&](std::string_view known) { return base == symbol_key(known) && fields_fit(words, known); };
  for (std::size_t i = 0; i < std::size(settings); ++i)
    if (names(settings[i].hm) || names(settings[i].short_hm)) take(static_cast<int>(i) + 1);
  for (const alias_row& a : aliases)
    if (names(a.symbol.substr(0, a.symbol.find(':')))) take(a.row);
  std::sort(found.row.begin(), found.row.begin() + found.size);
  return found;
}

int find_number(int number, std::string_view choice) {
  const auto first = std::ranges::find(settings, number, &spgr_info_row::number);
  if (first == std::end(settings)) return 0;
  const int row = static_cast<int>(first - std::begin(settings)) + 1;
  const std::string key = symbol_key(choice);
  const bool orthorhombic = number >= 16 && number <= 74;
  if (key.empty() || (orthorhombic && key == "ABC")) return first->ext == "1" ? row + 1 : row;
  const auto row_of = [&](const std::string& wanted) {
    for (std::size_t i = 0; i < std::size(settings); ++i)
      if (settings[i].number == number && wanted == symbol_key(settings[i].choice)) return static_cast<int>(i) + 1;
    return 0;
  };
  if (const int found = row_of(key)) return found;
  if (const int second_origin = row_of("2" + key)) return second_origin;
  return key == "1" ? row : 0;
}

const spg_gen_row* get_generators(std::string_view spgr) {
  const std::string key = symbol_key(spgr);
  const bool digits = !key.empty() && key.size() < 4 && key.find_first_not_of("0123456789") == std::string::npos;
  const int row = preferred_row(find_hm(spgr));
  const int number = digits ? std::stoi(key) : row > 0 ? settings[row - 1].number : 0;
  if (number < 1 || number > static_cast<int>(std::size(generators))) return nullptr;
  const spg_gen_row& found = generators[number - 1];
  return digits || found.row == row ? &found : nullptr;
}

int find_hall(std::string_view hall) {
  const std::string key = folded(hall);
  for (std::size_t i = 0; i < std::size(settings); ++i)
    if (key == folded(settings[i].hall)) return static_cast<int>(i) + 1;
  return 0;
}

int preferred_row(const row_list& rows) {
  for (int i = 0; i < rows.size; ++i) {
    const int row = rows.row[static_cast<std::size_t>(i)];
    if (settings[row - 1].ext == "2") return row;
  }
  return rows.size > 0 ? rows.row[0] : 0;
}

}  // namespace lmix_symmetry_tables
