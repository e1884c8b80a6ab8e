#include <cmath>
#include <fstream>

#include "kv_read_intens_parts.hpp"
#include "lmix_string_utilities.hpp"

// Layout 13, XRDML: read as text, a scan's intensities stand between two tags. These files grow large, so that they are
// not held as a whole: a line at a time is.

namespace kv_read_intens {

namespace {

constexpr std::string_view words = " Error reading a profile XRDML-DATA file: ";

/// Tags of the intensities; the one that a file uses first holds for all of it.
struct scan_tag {
  std::string_view open, close;
};
constexpr std::array<scan_tag, 2> scan_tags{
    {{"<intensities unit=\"counts\">", "</intensities>"}, {"<counts unit=\"counts\">", "</counts>"}}};

bool refuse(reading& r, std::string_view what, std::string where) {
  r.detail.push_back(std::string(words) + std::string(what));
  return r.fail(interrupted, std::move(where));
}

/// A place in the text of the measurement: what is left of the line taken last.
struct cursor {
  reading& r;
  std::ifstream file;
  std::string held = {};
  std::string_view rest = {};
  int line = 0;

  /// Goes on behind the first of the tags, whose index comes back; -1 at the end of the measurement or of the file.
  int find(std::span<const std::string_view> tags) {
    do {
      for (std::size_t at = rest.find('<'); at != std::string_view::npos; at = rest.find('<', at + 1)) {
        const std::string_view here = rest.substr(at);
        if (here.starts_with("</xrdMeasurement>")) return rest = here, -1;
        for (std::size_t k = 0; k < tags.size(); ++k) {
          if (!here.starts_with(tags[k])) continue;
          rest = here.substr(tags[k].size());
          return static_cast<int>(k);
        }
      }
    } while (next_line());
    return -1;
  }
  bool find(std::string_view tag) { return find({&tag, 1}) == 0; }
  bool next_line() {
    rest = {};
    if (!std::getline(file, held)) return false;
    rest = held;
    ++line;
    return true;
  }
};

bool position(cursor& at, std::string_view name, float& value) {
  reading& r = at.r;
  const std::string open = "<" + std::string(name) + ">", close = "</" + std::string(name) + ">";
  if (!at.find(open)) return refuse(r, open + " string not found!", place(r, at.line) + ": " + open + " expected");
  const std::string_view text = at.rest.substr(0, at.rest.find(close));
  if (lmix_list_input::read_values(text, value).full()) return true;
  return refuse(r, open + " string not found!", bad_value(r, at.line, text, 0, "a number behind " + open));
}

/// The wavelengths in front of the positions of 2theta; true at these. A measurement with K-Beta tells that line alone.
bool find_positions(cursor& at) {
  constexpr std::array<std::string_view, 6> tags{"<positions axis=\"2Theta\" unit=\"deg\">",
                                                 "<usedWavelength",
                                                 "<kAlpha1 ",
                                                 "<kAlpha2 ",
                                                 "<kBeta ",
                                                 "<ratioKAlpha2KAlpha1>"};
  enum tag { positions, used, alpha1, alpha2, beta, ratio };
  kalvaris_params::told_radiation& told = at.r.p.told;
  bool of_beta = false;
  const auto take = [&](kalvaris_params::told_value& value, std::string_view word) {
    std::string_view text = at.rest;
    if (const auto attributes = text.find('>'); word != "ratioKAlpha2KAlpha1")
      text.remove_prefix(attributes == std::string_view::npos ? text.size() : attributes + 1);
    take_told(value, word, text.substr(0, text.find('<')), at.line);
  };
  while (true) {
    const int found = at.find(tags);
    if (found <= positions) return found == positions;
    if (found == used) of_beta = at.rest.substr(0, at.rest.find('>')).find("K-Beta") != std::string_view::npos;
    if (found == alpha1 && !of_beta) take(told.lambda1, "kAlpha1");
    if (found == alpha2 && !of_beta) take(told.lambda2, "kAlpha2");
    if (found == beta && of_beta) take(told.lambda1, "kBeta");
    if (found == ratio && !of_beta) take(told.ratio, "ratioKAlpha2KAlpha1");
  }
}

/// A sum over scans: the first one tells the number of points, the others must have as many.
struct scan_sum {
  int scans = 0;
  std::size_t point = 0;  ///< of the scan being read
  long long found = 0;    ///< points of the first scan, also those that are too many to hold
};

bool bad_scan(cursor& at, const scan_sum& sum, std::string_view token) {
  return refuse(at.r, "error reading the intensities",
                bad_value(at.r, at.line, token, 0,
                          "intensity " + std::to_string(sum.point + 1) + " of scan " + std::to_string(sum.scans)));
}

/// Adds the intensities of a piece of text to the points.
bool add_intensities(cursor& at, std::string_view text, scan_sum& sum) {
  std::vector<float>& y = at.r.p.y;
  lmix_list_input::list_scanner scan(text);
  while (true) {
    float value = NaN;
    const list_status status = scan.read(value);
    if (status == list_status::end) return true;
    if (status != list_status::value) return bad_scan(at, sum, scan.token());
    if (sum.scans == 1) {
      if (++sum.found <= at.r.st.dim.maxpoint) y.push_back(value);
    } else if (sum.point < y.size()) {
      y[sum.point] += value;
    }
    ++sum.point;
  }
}

/// Reads the scan that begins at the cursor and may run over lines up to the closing tag.
bool read_scan(cursor& at, const scan_tag& tag, scan_sum& sum) {
  ++sum.scans;
  sum.point = 0;
  while (true) {
    const auto end = at.rest.find(tag.close);
    if (!add_intensities(at, at.rest.substr(0, end), sum)) return false;
    if (end != std::string_view::npos) {
      at.rest.remove_prefix(end + tag.close.size());
      break;
    }
    if (!at.next_line()) return bad_scan(at, sum, "end of file");
  }
  if (sum.scans == 1 || sum.point >= at.r.p.y.size()) return true;
  return bad_scan(at, sum, tag.close);
}

/// The temperature behind the scans, when there is one.
void take_temperature(cursor& at) {
  constexpr std::string_view open = "<nonAmbientValues>";
  do {
    const auto begin = at.rest.find(open);
    if (begin == std::string_view::npos) continue;
    const std::string_view text = at.rest.substr(begin + open.size());
    float value = 0.f;
    if (lmix_list_input::read_values(text.substr(0, text.find('<')), value).full()) at.r.p.tsamp = value;
    return;
  } while (at.next_line());
}

}  // namespace

bool data_panalytical_xrdml(reading& r) {
  pattern_type& p = r.p;
  cursor at{r, std::ifstream(r.path, std::ios::binary)};
  if (!find_positions(at))
    return refuse(r, "end of file while trying to read Wavelength",
                  place(r, at.line) + ": <positions axis=\"2Theta\" unit=\"deg\"> expected");
  if (!position(at, "startPosition", p.thmin) || !position(at, "endPosition", p.thmax)) return false;
  scan_sum sum;
  const std::array<std::string_view, 2> tags{scan_tags[0].open, scan_tags[1].open};
  const int tag = at.find(tags);
  if (tag < 0)
    return refuse(r, tags[0].data() + std::string(" string not found!"),
                  place(r, at.line) + ": " + std::string(tags[0]) + " or " + std::string(tags[1]) + " expected");
  const scan_tag& used = scan_tags[static_cast<std::size_t>(tag)];
  do {
    if (!read_scan(at, used, sum)) return false;
  } while (at.find(used.open));
  if (!check_count(r, sum.found)) return false;
  p.npts = static_cast<int>(sum.found);
  p.step = (p.thmax - p.thmin) / static_cast<float>(p.npts - 1);
  if (!check_step(r, at.line, p.step)) return false;
  constant_grid(p);
  variance_of_counts(r);
  take_temperature(at);
  return true;
}

}  // namespace kv_read_intens
