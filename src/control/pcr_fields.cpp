#include "pcr_fields.hpp"

#include <algorithm>

namespace pcr_fields {

int part::size() const {
  const std::size_t slots = slots_.size();
  if (arrangement_ == arrangement::fields) return static_cast<int>(fields_.size()) * times_;
  return static_cast<int>(arrangement_ == arrangement::pairs ? 2 * slots : slots);
}

part::element part::at(int j) const {
  const auto n = static_cast<std::size_t>(j);
  switch (arrangement_) {
    case arrangement::fields:
      break;
    case arrangement::values:
      return {kind::value, nullptr, 0, slots_[n]};
    case arrangement::codes:
      return {kind::code, nullptr, 0, slots_[n]};
    case arrangement::pairs:
      return {n % 2 == 0 ? kind::value : kind::code, nullptr, 0, slots_[n / 2]};
  }
  const std::size_t rows = fields_.size();
  return {kind::plain, &fields_[n % rows], times_ > 1 ? static_cast<int>(n / rows) + 1 : 0, 0};
}

std::string_view words_of(const field& row, int value) {
  const auto found = std::ranges::find(row.choices, value, &choice::value);
  return found == row.choices.end() ? std::string_view() : found->text;
}

}  // namespace pcr_fields
