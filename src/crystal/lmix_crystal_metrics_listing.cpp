// The cell record in a listing and in a binary file.
#include <cstdio>
#include <istream>
#include <ostream>

#include "lmix_crystal_metrics.hpp"

namespace lmix_crystal_metrics {
namespace {

/// A number right-justified in `width` columns with `decimals` decimals, stars when it does not fit.
std::string fixed(float value, int width, int decimals) {
  std::array<char, 64> text{};
  const int length = std::snprintf(text.data(), text.size(), "%*.*f", width, decimals, double{value} + 0.0);
  return length == width ? std::string(text.data(), static_cast<std::size_t>(length))
                         : std::string(static_cast<std::size_t>(width), '*');
}

/// Three lines of a length beside its angle.
std::string parameters(const vec3f& len, const vec3f& ang, int decimals, const std::array<const char*, 6>& names) {
  std::string text;
  for (std::size_t i = 0; i < 3; ++i)
    text += std::string("       ") + names[i] + " =" + fixed(len[i], 12, decimals) + "      " + names[3 + i] + " =" +
            fixed(ang[i], 12, 3) + '\n';
  return text;
}

/// Two matrices side by side.
std::string matrices(const mat3f& left, int left_decimals, const mat3f& right, int right_decimals) {
  std::string text;
  for (std::size_t i = 0; i < 3; ++i) {
    text += "     ";
    for (const float x : left[i]) text += fixed(x, 12, left_decimals);
    text += "     ";
    for (const float x : right[i]) text += fixed(x, 12, right_decimals);
    text += '\n';
  }
  return text;
}

/// A head over each of the two matrices of `matrices`.
std::string heads(std::string_view left, std::string_view right) {
  std::string text = "     ";
  text += left;
  text.resize(46, ' ');
  text += right;
  return text + '\n';
}

std::string_view frame_line(const crystal_cell_type& cell) {
  const auto code = find_frame(std::string_view(cell.cartype.data(), cell.cartype.size()));
  switch (code.value_or(frame::CA)) {
    case frame::BA:
      return " =>  Cartesian frame: y // b; z is in the bc-plane; x is y ^ z = a*";
    case frame::BC:
      return " =>  Cartesian frame: y // b; x is in the ab-plane; z is x ^ y = c*";
    case frame::AC:
      return " =>  Cartesian frame: x // a; z is along c*; y is within the ab-plane";
    case frame::CB:  // kept: shares the line of CA
    case frame::CA:
      break;
  }
  return " =>  Cartesian frame: z // c; y is in the bc-plane; x is along y ^ z = a*";
}

/// Each field of the record in the order of the file, as bytes.
template <class Cell, class Action>
void for_each_field(Cell& cell, Action action) {
  const auto each = [&](auto&... field) { (action(&field, sizeof field), ...); };
  each(cell.cell, cell.ang, cell.cell_std, cell.ang_std, cell.rcell, cell.rang, cell.gd, cell.gr, cell.cr_orth_cel,
       cell.orth_cr_cel, cell.bl_m, cell.bl_minv, cell.cellvol, cell.stdvol, cell.rcellvol, cell.cartype);
}

}  // namespace

std::string write_crystal_cell(const crystal_cell_type& cell) {
  std::string text = "\n        Metric information:\n        -------------------\n\n";
  text += " => Direct cell parameters:\n\n";
  text += parameters(cell.cell, cell.ang, 4, {" a", " b", " c", "alpha", " beta", "gamma"});
  text += "                        Direct Cell Volume =" + fixed(cell.cellvol, 12, 4) + "\n\n";
  text += " => Reciprocal cell parameters:\n\n";
  text += parameters(cell.rcell, cell.rang, 6, {"a*", "b*", "c*", "alpha*", " beta*", "gamma*"});
  text += "                    Reciprocal Cell Volume =" + fixed(cell.rcellvol, 12, 8) + "\n\n";
  text += " => Direct and Reciprocal Metric Tensors:\n\n";
  text += heads("GD", "GR") + matrices(cell.gd, 4, cell.gr, 6) + '\n';
  text += std::string(frame_line(cell)) + "\n\n";
  text += heads("Crystal_to_Orthonormal_Matrix", "Orthonormal_to_Crystal Matrix");
  text += matrices(cell.cr_orth_cel, 4, cell.orth_cr_cel, 6) + '\n';
  text += heads("Busing-Levy B-matrix: Hc=B.H", "Inverse of the Busing-Levy B-matrix");
  text += matrices(cell.bl_m, 6, cell.bl_minv, 4);
  return text;
}

void write_bin_crystal_cell(const crystal_cell_type& cell, std::ostream& file) {
  for_each_field(cell, [&](const void* field, std::size_t bytes) {
    file.write(static_cast<const char*>(field), static_cast<std::streamsize>(bytes));
  });
}

bool read_bin_crystal_cell(crystal_cell_type& cell, std::istream& file) {
  crystal_cell_type record;
  for_each_field(record, [&](void* field, std::size_t bytes) {
    file.read(static_cast<char*>(field), static_cast<std::streamsize>(bytes));
  });
  if (!file) return false;
  cell = record;
  return true;
}

}  // namespace lmix_crystal_metrics
