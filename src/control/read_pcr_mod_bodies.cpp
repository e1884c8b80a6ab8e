// Rigid bodies: reading and writing of a block
//   MOLE  atoms  coordinates  [name]
//   one line per atom, whose coordinates are of the kind that the header names
//   position and orientation with the kinds of angles and of thermal motion, codes
//   tensors of the thermal motion, each with its codes, as many as its kind has
#include <numeric>

#include "pcr_forms_further.hpp"
#include "pcr_numbers.hpp"
#include "pcr_sections.hpp"
#include "pcr_writer.hpp"

namespace read_pcr_mod {

using kalvaris_params::atom_type;
using kalvaris_params::phase_type;
using kalvaris_params::rigid_body_type;
using pcr_fields::part;
using pcr_lines::place;
using pcr_numbers::line;
namespace aslot = kalvaris_params::aslot;
namespace bslot = kalvaris_params::bslot;

namespace {

constexpr std::string_view keyword = "MOLE";

/// What the three coordinates of an atom are, by the number in the header.
constexpr std::array<std::string_view, 4> coordinate_headers{
    "X         Y         Z", "XC        YC        ZC", "distance  Theta     Phi", "distance  Bond-Angle Torsion-Ang"};

/// A line of slots with its codes below.
struct tensor_line {
  std::string_view name, header;
  int first, count;
};
constexpr std::array<tensor_line, 3> tensors{{
    {"tensor T of the rigid body", "!      T11         T22         T33         T12         T13         T23", bslot::t11,
     6},
    {"tensor L of the rigid body", "!      L11         L22         L33         L12         L13         L23", bslot::l11,
     6},
    {"tensor S of the rigid body", "!      S11         S12         S13         S21 ...", bslot::s11, 9},
}};

std::vector<int> slots_from(int first, int count) {
  std::vector<int> slots(static_cast<std::size_t>(count));
  std::iota(slots.begin(), slots.end(), first);
  return slots;
}

constexpr std::array<int, 5> atom_slots{aslot::x, aslot::y, aslot::z, aslot::biso, aslot::occ};

bool read_header(reading& r, int ph, int atoms_left, rigid_body_type& body) {
  const place at{pcr_forms::body.name, ph + 1};
  const auto text = r.in.text(at);
  if (!text) return false;
  const std::string header = pcr_lines::without_comment(*text);
  const auto words = lmix_string_utilities::getword(header).dire;
  r.in.words(at, pcr_forms::body.fields, words);
  const bool read = words.size() >= 3 && lmix_fixed_format::parse_integer(words[1], body.natoms) &&
                    lmix_fixed_format::parse_integer(words[2], body.coordinates);
  if (!read) return r.in.refuse(at, "the number of atoms and the kind of their coordinates expected behind MOLE");
  if (words.size() > 3) body.name = words[3];
  return r.in.in_range(at, "number of atoms", body.natoms, 1, atoms_left) &&
         r.in.in_range(at, "kind of the coordinates", body.coordinates, 1, static_cast<int>(coordinate_headers.size()));
}

bool read_body_atom(reading& r, int ph) {
  const int ia = static_cast<int>(r.st.atom.size());
  atom_type atom;
  atom.phase = ph;
  const slot_arrays to{atom.xl, atom.a, atom.a_read, kalvaris_params::slot_family::atom, ia, 0};
  const std::span slots(atom_slots);
  const pcr_lines::place at{pcr_forms::body_atom.name, ph + 1};
  if (!r.in.values(at, {pcr_forms::body_atom_fields, part::values(to, slots.first(3)), pcr_forms::connected_fields,
                        part::values(to, slots.last(2)), pcr_forms::behind_body_atom_fields})) {
    return false;
  }
  atom.line_nb = r.in.lines_taken();
  atom.atext = r.in.word(0), atom.ntyp = r.in.word(1);
  atom.connected = {r.in.f(5), r.in.f(6), r.in.f(7)};
  atom.sp_pointers = r.in.i(10);
  if (!has_species(r, at, atom)) return false;
  r.st.atom.push_back(std::move(atom));
  return true;
}

bool read_position(reading& r, int ph, const slot_arrays& to, rigid_body_type& body) {
  const place at{pcr_forms::body_position.name, ph + 1};
  const std::vector<int> slots = slots_from(bslot::xc, 6);
  if (!r.in.values(at, {part::values(to, slots), pcr_forms::body_kind_fields})) return false;
  body.type_angles = r.in.i(6), body.type_thermal = r.in.i(7);
  return r.in.in_range(at, "kind of the thermal motion", body.type_thermal, 0, static_cast<int>(tensors.size())) &&
         r.in.values({"codes of the position of the rigid body", ph + 1}, {part::codes(to, slots)});
}

bool read_tensor(reading& r, int ph, const slot_arrays& to, const tensor_line& tensor) {
  const std::vector<int> slots = slots_from(tensor.first, tensor.count);
  return r.in.values({tensor.name, ph + 1}, {part::values(to, slots)}) &&
         r.in.values({"codes of the tensors of the rigid body", ph + 1}, {part::codes(to, slots)});
}

bool read_body(reading& r, int ph, int atoms_left) {
  rigid_body_type body;
  body.first_atom = static_cast<int>(r.st.atom.size());
  if (!read_header(r, ph, atoms_left, body)) return false;
  for (int ia = 0; ia < body.natoms; ++ia) {
    if (!read_body_atom(r, ph)) return false;
  }
  const slot_arrays to{body.value,
                       body.code,
                       body.code_read,
                       kalvaris_params::slot_family::body,
                       ph,
                       static_cast<int>(r.st.phase[ph].bodies.size())};
  if (!read_position(r, ph, to, body)) return false;
  for (int k = 0; k < body.type_thermal; ++k) {
    if (!read_tensor(r, ph, to, tensors[static_cast<std::size_t>(k)])) return false;
  }
  r.st.phase[ph].bodies.push_back(std::move(body));
  return true;
}

void write_slots(writing& w, const rigid_body_type& body, const std::vector<int>& slots, bool kinds = false) {
  line values, codes;
  for (const int k : slots) {
    values.n(12, 6, body.value[k]);
    codes.k(12, body.code_read[k]);
  }
  if (kinds) values.i(9, body.type_angles).i(9, body.type_thermal);
  w.text += values.str() + codes.str();
}

}  // namespace

/// Atoms between the bodies are read as in any nuclear phase.
bool read_bodies(reading& r, int ph) {
  const int end = r.st.phase[ph].first_atom + r.st.phase[ph].natom;
  for (int left = r.st.phase[ph].natom; left > 0; left = end - static_cast<int>(r.st.atom.size())) {
    const bool body = pcr_lines::begins_with(r.in.peek(), keyword);
    if (!(body ? read_body(r, ph, left) : read_atom(r, ph))) return false;
  }
  return true;
}

void write_body(writing& w, const rigid_body_type& body) {
  const std::string_view coordinates = coordinate_headers[static_cast<std::size_t>(body.coordinates - 1)];
  w.text += line{}.text("MOLE").i(5, body.natoms).i(5, body.coordinates).text("  ").text(body.name).str();
  w.text +=
      line{}.text("!Atom   Type   ").text(coordinates).text("  N1  N2  N3  Biso  Occ  Spc  (Coor1 Coor2 Coor3)").str();
  for (int ia = body.first_atom; ia < body.first_atom + body.natoms; ++ia) {
    const atom_type& atom = w.st.atom[ia];
    line out;
    out.text(6, atom.atext).text(" ").text(4, atom.ntyp).text(" ");
    for (const int k : {aslot::x, aslot::y, aslot::z}) out.n(11, 6, atom.xl[k]);
    for (const float n : atom.connected) out.n(6, 1, n);
    w.text += out.n(10, 5, atom.xl[aslot::biso]).n(11, 6, atom.xl[aslot::occ]).i(4, atom.sp_pointers).str();
  }
  w.text += "!       Xc          Yc          Zc         Phi       Theta         Chi TypeAngles TypeThermal\n";
  write_slots(w, body, slots_from(bslot::xc, 6), true);
  if (body.type_thermal > 0) w.text += "! TLS parameters: \n";
  for (int k = 0; k < body.type_thermal; ++k) {
    const tensor_line& tensor = tensors[static_cast<std::size_t>(k)];
    w.text += std::string(tensor.header) + '\n';
    write_slots(w, body, slots_from(tensor.first, tensor.count));
  }
}

}  // namespace read_pcr_mod
