#include <algorithm>

#include "lmix_string_utilities.hpp"

namespace lmix_string_utilities {

namespace {

/// A part of a setting: no blanks, no quotes, lower case.
std::string plain_part(std::string_view part) {
  std::string plain = l_case(pack_string(part));
  std::erase(plain, '"');
  return plain;
}

/// The three parts of a text with two commas outside quotes.
std::optional<std::array<std::string, 3>> three_parts(std::string_view text) {
  if (text.size() >= 2 && text.front() == '"' && text.find('"', 1) == text.size() - 1) {
    text = text.substr(1, text.size() - 2);
  }
  const std::vector<int> commas = get_separator_pos(text, ',');
  if (commas.size() != 2) return std::nullopt;
  const std::size_t first = static_cast<std::size_t>(commas[0]), second = static_cast<std::size_t>(commas[1]);
  return std::array{plain_part(text.substr(0, first)), plain_part(text.substr(first + 1, second - first - 1)),
                    plain_part(text.substr(second + 1))};
}

/// Adds the terms of an expression such as 1/2a-b to a row. False when a term has no legal coefficient or no letter.
bool read_row(std::string_view expression, std::string_view letters, std::array<float, 3>& row) {
  if (expression == "0") return true;
  while (!expression.empty()) {
    const std::size_t end = expression.find_first_of(letters);
    if (end == std::string_view::npos) return false;
    const std::string_view coefficient = expression.substr(0, end);
    const read_fract_result factor = read_fract(coefficient.empty() ? "+" : coefficient);
    if (factor.err.err_string) return false;
    row[letters.find(expression[end])] += factor.value;
    expression.remove_prefix(end + 1);
    if (!expression.empty() && expression[0] != '+' && expression[0] != '-') return false;
  }
  return true;
}

bool read_matrix(std::string_view symb, std::string_view letters, matrix_3& mat) {
  const auto parts = three_parts(trim(symb));
  if (!parts || letters.size() != 3) return false;
  matrix_3 read{};
  for (std::size_t i = 0; i < 3; ++i) {
    if ((*parts)[i].empty() || !read_row((*parts)[i], letters, read[i])) return false;
  }
  mat = read;
  return true;
}

bool read_origin(std::string_view text, vector_3& origin) {
  const auto parts = three_parts(trim(text));
  if (!parts) return false;
  vector_3 read{};
  for (std::size_t i = 0; i < 3; ++i) {
    const read_fract_result component = read_fract((*parts)[i]);
    if (component.err.err_string) return false;
    read[i] = component.value;
  }
  origin = read;
  return true;
}

std::string row_text(const std::array<float, 3>& row, std::string_view letters) {
  std::string text;
  for (std::size_t j = 0; j < 3; ++j) {
    if (row[j] != 0.f) text += get_num_string(row[j]) + letters[j];
  }
  if (text.starts_with('+')) text.erase(0, 1);
  return text.empty() ? "0" : text;
}

}  // namespace

setting_result get_mat_from_symb(std::string_view symb, std::string_view letters) {
  setting_result result;
  if (!read_matrix(symb, l_case(letters), result.mat)) {
    result.err.set(" Bad matrix setting...: " + std::string(symb));
  }
  return result;
}

setting_result get_transf(std::string_view str, char separator) {
  setting_result result;
  const std::vector<int> places = get_separator_pos(str, separator);
  if (places.empty()) {
    result.err.set(std::string(" No appropriate separator (") + separator +
                   ") is present in the input string:" + std::string(str));
    return result;
  }
  const std::size_t place = static_cast<std::size_t>(places[0]);
  const std::string_view matrix = str.substr(0, place), origin = str.substr(place + 1);
  const bool direct_letters = l_case(matrix).find_first_of("xyz") == std::string::npos;
  result = get_mat_from_symb(matrix, direct_letters ? "abc" : "xyz");
  if (!result.err.err_string && !read_origin(origin, result.origin)) {
    result.err.set(" Bad origing setting...: " + std::string(origin));
  }
  return result;
}

std::string get_symb_from_mat(const matrix_3& mat, std::string_view letters) {
  if (letters.size() < 3) return {};
  return row_text(mat[0], letters) + "," + row_text(mat[1], letters) + "," + row_text(mat[2], letters);
}

std::string get_symb_from_mat(const matrix_3& mat, const vector_3& origin, std::string_view letters) {
  const std::string translation = frac_trans_2dig(origin);
  return get_symb_from_mat(mat, letters) + ";" + translation.substr(1, translation.size() - 2);
}

std::string get_num_string(float coefficient) {
  if (coefficient == 1.f) return "+";
  if (coefficient == -1.f) return "-";
  return get_fraction_2dig(coefficient);
}

}  // namespace lmix_string_utilities
