#include <algorithm>
#include <cctype>

#include "lmix_crystallographic_symmetry.hpp"
#include "lmix_symmetry_tables.hpp"

// Known symbols that lie nearest to a text that is none: what its writer may have meant.
namespace lmix_crystallographic_symmetry {
namespace {

/// Price of turning one sequence into another; what the writer left out is cheaper than what he would have added.
struct prices {
  int lost, surplus;
};

/// Least sum of prices over all alignments (V. I. Levenshtein, Sov. Phys. Dokl. 10 (1966) 707-710); `exchange` tells
/// the price of one element for another.
template <class Sequence, class Exchange>
int edit_distance(const Sequence& text, const Sequence& known, prices p, Exchange exchange) {
  std::vector<int> row(known.size() + 1);
  for (std::size_t j = 0; j <= known.size(); ++j) row[j] = static_cast<int>(j) * p.lost;
  for (std::size_t i = 1; i <= text.size(); ++i) {
    int diagonal = row[0];
    row[0] = static_cast<int>(i) * p.surplus;
    for (std::size_t j = 1; j <= known.size(); ++j) {
      const int above = row[j];
      row[j] = std::min({above + p.surplus, row[j - 1] + p.lost, diagonal + exchange(text[i - 1], known[j - 1])});
      diagonal = above;
    }
  }
  return row.back();
}

int letters_apart(const std::string& text, const std::string& known) {
  return edit_distance(text, known, {2, 3}, [](char a, char b) { return a == b ? 0 : 3; });
}

using words = std::vector<std::string>;

/// The lattice letter, then the fields, in upper case.
words fields_of(std::string_view symbol) {
  words out;
  bool begins = true;
  for (const char c : symbol) {
    if (c == '_') continue;
    const bool blank = c == ' ' || c == '\t';
    if (!blank && (begins || out.size() == 1)) out.emplace_back();
    if (!blank) out.back() += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    begins = blank;
  }
  return out;
}

std::string joined(const words& fields) {
  std::string out;
  for (const std::string& f : fields) out += f;
  return out;
}

/// Field by field where the text has blanks between its fields, else letter by letter; next to nothing when only the
/// blanks differ.
int symbols_apart(const words& text, const words& known) {
  if (joined(text) == joined(known)) return 1;
  if (text.size() < 3) return letters_apart(joined(text), joined(known));
  return edit_distance(text, known, {3, 6}, [](const std::string& a, const std::string& b) {
    return a == b ? 0 : std::min(letters_apart(a, b), 8);
  });
}

struct candidate {
  int distance;
  int row;
  std::string symbol;
};

/// The nearest ones, one for each row of the table, none much farther than the first.
std::vector<std::string> chosen(std::vector<candidate> all, std::size_t most) {
  std::ranges::stable_sort(all, {}, &candidate::distance);
  std::vector<std::string> out;
  std::vector<int> rows;
  constexpr int much_farther = 3;
  for (const candidate& c : all) {
    if (out.size() == most || c.distance > all.front().distance + much_farther) break;
    if (std::ranges::find(rows, c.row) != rows.end() || std::ranges::find(out, c.symbol) != out.end()) continue;
    rows.push_back(c.row);
    out.push_back(c.symbol);
  }
  return out;
}

}  // namespace

std::vector<std::string> nearest_symbols(std::string_view text, std::size_t most) {
  const words given = fields_of(text.substr(0, text.find(':')));
  std::vector<candidate> all;
  const auto add = [&](std::string_view symbol, int row) {
    symbol = symbol.substr(0, symbol.find(':'));
    if (!symbol.empty()) all.push_back({symbols_apart(given, fields_of(symbol)), row, std::string(symbol)});
  };
  int row = 0;
  for (const auto& s : lmix_symmetry_tables::spgr_info()) {
    add(s.hm, ++row);
    add(s.short_hm, row);
  }
  for (const auto& a : lmix_symmetry_tables::spgr_aliases()) add(a.symbol, a.row);
  return chosen(std::move(all), most);
}

std::vector<std::string> nearest_hall_symbols(std::string_view text, std::size_t most) {
  const words given = fields_of(text);
  std::vector<candidate> all;
  int row = 0;
  for (const auto& s : lmix_symmetry_tables::spgr_info())
    all.push_back({symbols_apart(given, fields_of(s.hall)), ++row, std::string(s.hall)});
  return chosen(std::move(all), most);
}

}  // namespace lmix_crystallographic_symmetry
