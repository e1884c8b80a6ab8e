#include <cstring>
#include <istream>
#include <ostream>

#include "lmix_crystallographic_symmetry.hpp"

// The stored form of a group: sequential records, each with its length in bytes (32 bit) before and behind it, as
// unformatted sequential files of common compilers have it. Texts have their declared widths, numbers four bytes.
namespace lmix_crystallographic_symmetry {
namespace {

constexpr std::size_t most_operators = 1152, most_orbits = 64;

class record_writer {
 public:
  explicit record_writer(std::ostream& to) : to_(to) {}
  record_writer& integer(std::int32_t v) { return raw(&v, sizeof v); }
  record_writer& real(float v) { return raw(&v, sizeof v); }
  record_writer& text(std::string_view s, std::size_t width) {
    std::string padded(s.substr(0, width));
    padded.resize(width, ' ');
    return raw(padded.data(), width);
  }
  record_writer& vector(const vector3& v) {
    for (const float e : v) real(e);
    return *this;
  }
  void end() {
    const auto length = static_cast<std::int32_t>(bytes_.size());
    to_.write(reinterpret_cast<const char*>(&length), sizeof length);
    to_.write(bytes_.data(), length);
    to_.write(reinterpret_cast<const char*>(&length), sizeof length);
    bytes_.clear();
  }

 private:
  record_writer& raw(const void* data, std::size_t n) {
    bytes_.append(static_cast<const char*>(data), n);
    return *this;
  }
  std::ostream& to_;
  std::string bytes_;
};

/// Reads record by record; once something was missing or did not fit, good() stays false and all values are zero.
class record_reader {
 public:
  explicit record_reader(std::istream& from) : from_(from) {}
  bool good() const { return good_; }

  void next() {
    std::int32_t length = 0, again = 0;
    constexpr std::int32_t longest = 1 << 16;
    at_ = 0;
    bytes_.clear();
    read(&length, sizeof length);
    if (length < 0 || length > longest) good_ = false;
    if (!good_) return;
    bytes_.resize(static_cast<std::size_t>(length));
    read(bytes_.data(), bytes_.size());
    read(&again, sizeof again);
    good_ = good_ && again == length;
  }
  std::int32_t integer() { return take<std::int32_t>(); }
  float real() { return take<float>(); }
  /// A count that sizes something.
  std::size_t count(std::size_t most) {
    const std::int32_t n = integer();
    if (n < 0 || static_cast<std::size_t>(n) > most) good_ = false;
    return good_ ? static_cast<std::size_t>(n) : 0;
  }
  std::string text(std::size_t width) {
    if (!good_ || bytes_.size() - at_ < width) {
      good_ = false;
      return {};
    }
    std::string s = bytes_.substr(at_, width);
    at_ += width;
    s.erase(s.find_last_not_of(' ') + 1);
    return s;
  }
  vector3 vector() {
    vector3 v{};
    for (float& e : v) e = real();
    return v;
  }

 private:
  void read(void* to, std::size_t n) {
    if (!good_) return;
    from_.read(static_cast<char*>(to), static_cast<std::streamsize>(n));
    good_ = from_.gcount() == static_cast<std::streamsize>(n);
  }
  template <class T>
  T take() {
    T v{};
    if (!good_ || bytes_.size() - at_ < sizeof v) {
      good_ = false;
      return v;
    }
    std::memcpy(&v, bytes_.data() + at_, sizeof v);
    at_ += sizeof v;
    return v;
  }
  std::istream& from_;
  std::string bytes_;
  std::size_t at_ = 0;
  bool good_ = true;
};

/// Declared widths of the texts.
namespace width {
constexpr std::size_t spg_symb = 20, hall = 16, crystalsys = 12, laue = 5, pg = 5, info = 5, sg_setting = 90,
                      spg_lat = 1, spg_latsy = 2, bravais = 51, centre = 80, symopsymb = 50, orbit = 40;
}

void write_head(const space_group_type& spg, record_writer& to) {
  const auto texts = {std::pair{&spg.spg_symb, width::spg_symb},
                      std::pair{&spg.hall, width::hall},
                      std::pair{&spg.crystalsys, width::crystalsys},
                      std::pair{&spg.laue, width::laue},
                      std::pair{&spg.pg, width::pg},
                      std::pair{&spg.info, width::info},
                      std::pair{&spg.sg_setting, width::sg_setting}};
  to.integer(spg.numspg).end();
  for (const auto& [text, n] : texts) to.text(*text, n).end();
  to.integer(spg.hexa).end();
  to.text(std::string_view(&spg.spg_lat, 1), width::spg_lat).end();
  to.text(spg.spg_latsy, width::spg_latsy).end();
  to.integer(spg.numlat).end();
  for (const vector3& v : spg.latt_trans) to.vector(v);
  to.end();
  to.text(spg.bravais, width::bravais).end();
  to.text(spg.centre, width::centre).end();
  to.integer(spg.centred).end();
  to.vector(spg.centre_coord).end();
  for (const int n : {spg.numops, spg.multip, spg.num_gen}) to.integer(n).end();
}

template <class Get>
auto one(record_reader& from, Get get) {
  from.next();
  return get();
}

void read_head(record_reader& from, space_group_type& spg) {
  const auto integer = [&] { return one(from, [&] { return from.integer(); }); };
  const auto text = [&](std::size_t n) { return one(from, [&] { return from.text(n); }); };
  spg.numspg = integer();
  spg.spg_symb = text(width::spg_symb);
  spg.hall = text(width::hall);
  spg.crystalsys = text(width::crystalsys);
  spg.laue = text(width::laue);
  spg.pg = text(width::pg);
  spg.info = text(width::info);
  spg.sg_setting = text(width::sg_setting);
  spg.hexa = integer() != 0;
  const std::string lattice = text(width::spg_lat);
  spg.spg_lat = lattice.empty() ? ' ' : lattice[0];
  spg.spg_latsy = text(width::spg_latsy);
  const std::size_t numlat = one(from, [&] { return from.count(most_operators); });
  spg.numlat = static_cast<int>(numlat);
  from.next();
  for (std::size_t i = 0; i < numlat && from.good(); ++i) spg.latt_trans.push_back(from.vector());
  spg.bravais = text(width::bravais);
  spg.centre = text(width::centre);
  spg.centred = integer();
  spg.centre_coord = one(from, [&] { return from.vector(); });
  spg.numops = integer();
  spg.multip = integer();
  spg.num_gen = integer();
}

}  // namespace

bool write_bin_spacegroup(const space_group_type& spg, std::ostream& to) {
  record_writer record(to);
  write_head(spg, record);
  for (std::size_t m = 0; m < spg.symop.size(); ++m) {
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t i = 0; i < 3; ++i) record.integer(spg.symop[m].rot[i][j]);  // column by column
    record.vector(spg.symop[m].tr).end();
    record.text(spg.symopsymb[m], width::symopsymb).end();
  }
  for (std::size_t k = 0; k < 2; ++k)
    for (std::size_t i = 0; i < 3; ++i) record.real(spg.r_asym_unit[i][k]);
  record.end();
  record.integer(spg.wyckoff.num_orbit).end();
  for (const wyck_pos_type& w : spg.wyckoff.orbit) {
    record.integer(w.norb).end();
    record.text(w.str_orig, width::orbit).end();
    for (const std::string& position : w.str_orbit) record.text(position, width::orbit);
    record.end();
  }
  return to.good();
}

err_symm_type read_bin_spacegroup(std::istream& from, space_group_type& spg) {
  record_reader record(from);
  space_group_type read;
  read_head(record, read);
  const bool sized = read.multip >= 0 && static_cast<std::size_t>(read.multip) <= most_operators && read.numops >= 0 &&
                     read.numops <= read.multip && read.centred >= 0 && read.centred <= 2;
  for (int m = 0; sized && m < read.multip && record.good(); ++m) {
    record.next();
    sym_oper_type& op = read.symop.emplace_back();
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t i = 0; i < 3; ++i) op.rot[i][j] = record.integer();
    op.tr = record.vector();
    record.next();
    read.symopsymb.push_back(record.text(width::symopsymb));
  }
  record.next();
  for (std::size_t k = 0; k < 2; ++k)
    for (std::size_t i = 0; i < 3; ++i) read.r_asym_unit[i][k] = record.real();
  record.next();
  const std::size_t orbits = record.count(most_orbits);
  read.wyckoff.num_orbit = static_cast<int>(orbits);
  for (std::size_t k = 0; k < orbits && record.good(); ++k) {
    wyck_pos_type& w = read.wyckoff.orbit.emplace_back();
    record.next();
    const std::size_t norb = record.count(most_operators);
    w.norb = static_cast<int>(norb);
    record.next();
    w.str_orig = record.text(width::orbit);
    record.next();
    for (std::size_t i = 0; i < norb && record.good(); ++i) w.str_orbit.push_back(record.text(width::orbit));
  }
  if (!sized || !record.good()) return {true, " The stored space group is incomplete or damaged"};
  spg = std::move(read);
  return {};
}

}  // namespace lmix_crystallographic_symmetry
