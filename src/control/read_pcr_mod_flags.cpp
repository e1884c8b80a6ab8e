#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

#include "instrumental_resolution.hpp"
#include "lmix_list_input.hpp"
#include "pcr_sections.hpp"

namespace read_pcr_mod {

using kalvaris_params::pattern_type;
using kalvaris_params::run_type;
using lmix_fixed_format::fmt_line;
using pcr_layout::flag;
using pcr_layout::long_pattern_flags;
using pcr_layout::long_pattern_output_flags;
using pcr_layout::long_run_flags;
using pcr_layout::long_run_output_flags;
using pcr_layout::short_flags;
using pcr_layout::short_output_flags;
using pcr_lines::place;
namespace job = kalvaris_params::job;

namespace {

/// Value of a flag of the run or of the pattern.
int& value_of(reading& r, const flag& f, int ip) {
  return f.of_run != nullptr ? r.st.run.*f.of_run : r.st.pattern[ip].*f.of_pattern;
}

/// Reads a line of flags into the run and the pattern.
bool read_flag_line(reading& r, const place& at, const pcr_layout::flag_line& line, int ip) {
  if (!r.in.values(at, {line.form.fields})) return false;
  for (std::size_t k = 0; k < line.flags.size(); ++k) {
    value_of(r, line.flags[k], ip) = r.in.i(static_cast<int>(k));
  }
  return true;
}

/// Opt and Aut, fields k and k + 1 of the line in hand.
void take_options(reading& r, int k) {
  r.st.run.optimize = r.in.i(k) == 1;
  r.st.run.automatic = r.in.i(k + 1) == 1;
  r.st.run.automatic_read = r.st.run.automatic;
}

bool check_one_pattern(reading& r, const place& at) {
  return r.st.run.icryg == 0 || r.st.run.n_patt == 1 ||
         r.in.refuse(at, "integrated intensities and searches (Cry) take one pattern");
}

bool check_run_flags(reading& r, const place& at) {
  run_type& run = r.st.run;
  if (!r.in.in_range(at, "mode of the run (Cry)", run.icryg, -4, 4)) return false;
  if (!check_one_pattern(r, at)) return false;
  if (!r.in.in_range(at, "number of phases", run.nphase, 0, kalvaris_params::NPHT)) return false;
  if (!r.in.in_range(at, "number of parameters with limits", run.nrell, 0, r.st.dim.maxparam)) return false;
  run.nphase = std::max(run.nphase, 1);
  return true;
}

/// What a flag may not be, and why.
struct flag_refusal {
  int pattern_type::*field;
  int low, high;  ///< values inside are taken
  std::string_view reason;
};
constexpr std::array<flag_refusal, 7> flag_refusals{{
    {&pattern_type::jobtyp, -4, 4, "unknown kind of job (Job)"},
    {&pattern_type::nori, 0, 3, "unknown model of preferred orientation (Nor)"},
    {&pattern_type::iwgt, 0, 3, "unknown weighting (Iwg)"},
    {&pattern_type::ilor, -2, 6, "unknown geometry (Ilo)"},
    {&pattern_type::cry_flag, 0, 2, "unknown kind of data (Int)"},
    {&pattern_type::icorr, 0, 2, "unknown corrections from a file (Cor)"},
    {&pattern_type::istep, 0, 1000000, "the reduction of the number of points (Ste) is negative"},
}};

bool check_pattern_flags(reading& r, const place& at, int ip) {
  pattern_type& p = r.st.pattern[ip];
  for (const flag_refusal& row : flag_refusals) {
    const int value = p.*row.field;
    if (value < row.low || value > row.high) return r.in.refuse(at, row.reason);
  }
  if (!r.in.in_range(at, "number of scattering entries", p.nscat, -kalvaris_params::N_SPE, kalvaris_params::N_SPE)) {
    return false;
  }
  if (p.nexcrg < 0) return r.in.refuse(at, "number of excluded regions is negative");
  if (p.jobtyp == -job::neutrons) return r.in.refuse(at, "unknown kind of job (Job)");
  const bool laue = p.ixunit == kalvaris_params::abscissa::laue;
  if (!laue && (p.ixunit < 0 || p.ixunit > kalvaris_params::abscissa::s)) {
    return r.in.refuse(at, "unknown abscissa (Uni)");
  }
  constexpr int multi_phase = 2, two_gaussians = -4, last_shape = 13;
  if (p.nprof != two_gaussians && (p.nprof < 0 || p.nprof > last_shape)) {
    return r.in.refuse(at, "unknown peak shape (Npr)");
  }
  p.cry_mphas = p.cry_flag == multi_phase;
  if (p.cry_mphas) r.st.run.icryg = 0;
  if (laue && !p.cry_mphas && r.st.run.icryg == 0) r.st.run.icryg = 1;
  if (!check_one_pattern(r, at)) return false;
  p.cry_pat = p.cry_flag != 0 || r.st.run.icryg != 0 || laue;
  p.disp_ds = p.radiation() == job::neutrons || p.ilor == 3 || p.ilor == -2;
  return true;
}

/// Keeps the flags as they were read, for the writer.
void keep_run_flags(reading& r) {
  for (std::size_t k = 0; k < long_run_flags.size(); ++k) r.st.run.flags_read[k] = value_of(r, long_run_flags[k], 0);
}
void keep_pattern_flags(reading& r, int ip) {
  for (std::size_t k = 0; k < long_pattern_flags.size(); ++k) {
    r.st.pattern[ip].flags_read[k] = value_of(r, long_pattern_flags[k], ip);
  }
}

/// Without a powder pattern there is no profile, no background and nothing of the instrument; a time-of-flight pattern
/// has its own peak shapes; annealing on a calculated pattern measures nothing.
void force_flags(reading& r) {
  run_type& run = r.st.run;
  for (pattern_type& p : r.st.pattern) {
    if (run.icryg != 0) p.nprof = p.nbckgd = p.nexcrg = p.ireso = p.istep = run.idum = 0;
    const bool tof_shape = p.nprof == 7 || p.nprof == 9 || p.nprof == 10 || p.nprof == 13;
    if (p.ixunit == kalvaris_params::abscissa::tof && !tof_shape && !p.cry_pat) p.nprof = 9;
  }
  if (run.icryg != 4) return;
  run.nphase = 1;
  int& jobtyp = r.st.pattern[0].jobtyp;
  jobtyp = jobtyp == job::xrays ? job::calc_x : jobtyp == job::neutrons ? job::calc_n : jobtyp;
  if (jobtyp == job::electrons) jobtyp = -job::electrons;
}

/// Text line with the name of a file of a pattern; `words` stand in front of the message at the end of the file.
bool read_file_name(reading& r, const place& at, std::string& name, std::string_view words) {
  const auto line = r.in.text(at);
  if (line) r.in.words(at, pcr_forms::file_fields, std::array<std::string_view, 1>{*line});
  if (line) name = pcr_lines::without_comment(*line);
  if (line) return !name.empty() || r.in.refuse(at, "the name is missing");
  return r.in.fail(
      {fmt_line{}.a(words).i(0, at.pattern).str(), fmt_line{}.a(" => The control file ends before: ").a(at.name).str()},
      lmix_string_utilities::fmt_error::end_of_file);
}

/// WGHT lines of a pattern with the weighting scheme of six constants; the last one counts.
void read_weighting(reading& r, pattern_type& p) {
  while (true) {
    const std::string next = r.in.peek();
    const std::string_view word = std::string_view(next).substr(0, 4);
    if (word != "WGHT" && word != "Wght" && word != "wght") return;
    const std::string line = pcr_lines::without_comment(r.in.take());
    r.in.words({pcr_forms::wght.name}, pcr_forms::wght_fields, lmix_string_utilities::getword(line).dire);
    const std::string text = line.substr(4);
    lmix_list_input::list_scanner scan(text);
    std::array<float, 6> v{};
    bool read = true;
    for (float& x : v) read = read && scan.read(x) == lmix_list_input::list_status::value;
    if (!read) v = {0.f, 0.f, 0.f, 0.f, 0.f, 1.f / 3.f};
    std::string option;
    const bool refine = read && scan.read(option) == lmix_list_input::list_status::value && option == "refine";
    p.wght = {refine, true, v[0], v[1], v[2], v[3], v[4], v[5]};
  }
}

/// A text line with the name of a data file: name and extension, which begins with the last point.
void split_file_name(reading& r, const std::string& line, std::string& name, std::string& extension) {
  const std::size_t point = line.rfind('.');
  const std::size_t slash = line.rfind('/');
  if (point != std::string::npos && (slash == std::string::npos || point > slash)) {
    name = line.substr(0, point);
    extension = line.substr(point);
    return;
  }
  std::error_code ec;
  name = line;
  extension = std::filesystem::exists(kalvaris_inout::run_path(r.st.io, line + ".dat"), ec) ? ".dat" : ".int";
}

/// A file that the control file names is not there: the end of the reading, unless the run is only looked at.
bool missing_file(reading& r, const std::string& message) {
  if (r.st.io.only_looking) {
    r.st.io.missing_files.push_back({r.in.lines_taken(), message});
    return true;
  }
  r.st.io.file_error = true;
  r.st.io.file_error_mess = message;
  return r.in.fail_here(message);
}

bool data_file_exists(reading& r, int ip) {
  const std::string name = r.st.io.filedat[ip] + r.st.io.extdat[ip];
  std::error_code ec;
  if (std::filesystem::is_regular_file(kalvaris_inout::run_path(r.st.io, name), ec)) return true;
  return missing_file(r, fmt_line{}.a("The data file: ").a(name).a(" does not exist! -> Pattern#").i(3, ip + 1).str());
}

/// A series decides itself what is listed.
void force_flags_of_a_series(reading& r) {
  run_type& run = r.st.run;
  if (run.jcil == -1) {
    run.jcil = -4;
  } else if (run.jcil == 0) {
    run.jcil = -2;
  }
  run.jsy = run.mat = 0;
  run.nxt = run.ishor = 1;
  for (pattern_type& p : r.st.pattern) {
    p.iot = p.ipl = p.lst1 = p.lst3 = p.jlkh = p.jfou = p.ianaly = 0;
    p.ipc = 1;
  }
}

/// Keeps the output flags as they were read, for the writer.
void keep_output_flags(reading& r) {
  for (std::size_t k = 0; k < long_run_output_flags.size(); ++k) {
    r.st.run.output_flags[k] = r.st.run.*long_run_output_flags[k].of_run;
  }
  for (pattern_type& p : r.st.pattern) {
    for (std::size_t k = 0; k < long_pattern_output_flags.size(); ++k) {
      p.output_flags[k] = p.*long_pattern_output_flags[k].of_pattern;
    }
  }
}

bool check_run_output_flags(reading& r, const place& at) {
  return r.in.in_range(at, "number of linear restraints", r.st.run.nlinc, 0, kalvaris_params::N_LINC);
}

/// Iot -2 is followed by the name of a numerical profile, -1 takes the code of the run.
bool read_profile_name(reading& r, int ip) {
  pattern_type& p = r.st.pattern[ip];
  if (p.iot == -1) p.fileprof = r.st.io.filenam;
  if (p.iot != -2) return true;
  return read_file_name(r, {pcr_forms::profile_file.name, 0, ip + 1}, p.fileprof,
                        " Error reading the name of *.spr file of pattern ");
}

/// A search prints nothing but its own course.
void force_flags_of_a_search(reading& r) {
  run_type& run = r.st.run;
  if (std::abs(run.icryg) < 2) return;
  run.mat = run.ishor = 0;
  for (pattern_type& p : r.st.pattern) {
    p.ipl = p.lst1 = p.lst3 = p.ianaly = p.jlkh = 0;
    p.ipc = 1;
  }
}

}  // namespace

bool read_flags(reading& r) {
  if (r.st.run.s_format) {
    const place at{"flags"};
    if (!read_flag_line(r, at, pcr_layout::short_flag_line, 0)) return false;
    take_options(r, static_cast<int>(short_flags.size()));
    keep_run_flags(r);
    keep_pattern_flags(r, 0);
    if (!check_run_flags(r, at) || !check_pattern_flags(r, at, 0)) return false;
  } else {
    const place at{"flags"};
    if (!read_flag_line(r, at, pcr_layout::long_run_flag_line, 0)) return false;
    take_options(r, static_cast<int>(long_run_flags.size()));
    keep_run_flags(r);
    if (!check_run_flags(r, at)) return false;
    for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
      const place at_pattern{"flags", 0, ip + 1};
      if (!read_flag_line(r, at_pattern, pcr_layout::long_pattern_flag_line, ip)) return false;
      keep_pattern_flags(r, ip);
      if (!check_pattern_flags(r, at_pattern, ip)) return false;
    }
  }
  for (pattern_type& p : r.st.pattern) {
    if (p.iwgt == 3) read_weighting(r, p);
  }
  return true;
}

bool read_resolution_files(reading& r) {
  force_flags(r);
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    if (r.st.pattern[ip].ireso == 0) continue;
    const place at{pcr_forms::resolution_file.name, 0, ip + 1};
    std::string& name = r.st.io.fileres[ip];
    if (!read_file_name(r, at, name, " Error reading the name of resolution file of pattern ")) return false;
    std::error_code ec;
    if (std::filesystem::is_regular_file(kalvaris_inout::run_path(r.st.io, name), ec)) continue;
    if (!missing_file(r, fmt_line{}.a("The IRF file: ").a(name).a(" does not exist! -> Pattern#").i(3, ip + 1).str()))
      return false;
    name.clear();
  }
  return true;
}

bool read_data_files(reading& r) {
  const auto measured = [](const pattern_type& p) { return p.jobtyp < 2 || p.jobtyp == job::electrons; };
  if (r.st.run.s_format || std::none_of(r.st.pattern.begin(), r.st.pattern.end(), measured)) return true;
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    const auto line = r.in.text(pcr_forms::data_file, 0, ip + 1);
    if (!line) return false;
    const bool name_of_series = r.st.io.l_sequential && !r.multi_pattern_of_driver && r.st.run.n_patt == 1;
    if (!name_of_series) split_file_name(r, *line, r.st.io.filedat[ip], r.st.io.extdat[ip]);
    if (r.st.pattern[ip].refining() && !data_file_exists(r, ip)) return false;
  }
  return true;
}

bool check_limits(reading& r) {
  using kalvaris_params::IBACP, kalvaris_params::IEXCL;
  for (pattern_type& p : r.st.pattern) {
    p.isbac = p.nbckgd < 0 ? -1 : 1;
    if (p.nbckgd > IBACP || p.nbckgd < -IBACP) {
      const long long points = std::llabs(p.nbckgd);
      return r.in.fail({fmt_line{}.a("         Number of backg. points/pattern:").i(5, points).str(),
                        fmt_line{}.a(" Maximum Number of backg. points/pattern:").i(5, IBACP).str(),
                        " Too many background points "});
    }
    p.nbckgd = std::abs(p.nbckgd);
    if (p.nexcrg > IEXCL) {
      return r.in.fail({fmt_line{}.a("          Number of excl. regions/pattern: ").i(5, p.nexcrg).str(),
                        fmt_line{}.a("  Maximum number of excl. regions/pattern: ").i(5, IEXCL).str(),
                        " Too many excluded regions "});
    }
  }
  for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
    if (r.st.pattern[ip].ireso == 0 || (r.st.io.only_looking && r.st.io.fileres[ip].empty())) continue;
    if (!instrumental_resolution::read_irf(r.st, ip)) return r.in.fail({r.st.io.file_error_mess});
  }
  return true;
}

bool read_output_flags(reading& r) {
  const place at{"output flags"};
  if (r.st.run.s_format) {
    if (!read_flag_line(r, at, pcr_layout::short_output_line, 0) || !check_run_output_flags(r, at)) return false;
    if (!read_profile_name(r, 0)) return false;
  } else {
    // A line of words may stand above the numbers.
    if (const std::string next = r.in.peek(); !next.empty()) {
      lmix_list_input::list_scanner scan(next);
      float number = 0.f;
      if (scan.read(number) != lmix_list_input::list_status::value) r.in.take();
    }
    if (!read_flag_line(r, at, pcr_layout::long_run_output_line, 0)) return false;
    if (!check_run_output_flags(r, at)) return false;
    for (int ip = 0; ip < r.st.run.n_patt; ++ip) {
      const place at_pattern{"output flags", 0, ip + 1};
      if (!read_flag_line(r, at_pattern, pcr_layout::long_pattern_output_line, ip)) return false;
      if (!read_profile_name(r, ip)) return false;
    }
  }
  keep_output_flags(r);
  for (pattern_type& p : r.st.pattern) {
    if (p.ireso != 0 && p.ipc == 0) p.ipc = 1;
  }
  force_flags_of_a_search(r);
  if (r.st.io.l_sequential) force_flags_of_a_series(r);
  return true;
}

}  // namespace read_pcr_mod
