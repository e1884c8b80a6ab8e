#include "starts_bases.hpp"

#include <iostream>
#include <stdexcept>

namespace starts_bases {

using starts_judge::base;
using starts_model::control_file;
using starts_run::case_folder;
using starts_settings::settings;

namespace {

constexpr int cycles_of_reference = 100;  ///< enough for a case to come to its end

/// The control file with the values of a result and the codes that were given: guards change multipliers.
std::string control_of_result(const fs::path& file, const control_file& given) {
  control_file result = read_control(file);
  result.take_codes(given, starts_model::step::all);
  return result.text();
}

base refine_base(const settings& s, const case_folder& c, const scratch& room) {
  const fs::path directory = room / (c.name + "_base"), file = directory / (c.name + ".pcr");
  starts_run::copy_inputs(c, directory);
  fs::copy_file(c.path / (c.name + ".pcr"), file);
  control_file control = read_control(file);
  control.set_cycles(cycles_of_reference);
  starts_run::write_text(file, control.text());
  base b;
  for (const auto& p : control.state().pattern) b.weights.push_back(static_cast<double>(p.w_pat));
  b.result = starts_run::run(s.reference, directory, c.name);
  b.control = control_of_result(file, control);
  fs::remove_all(directory);
  return b;
}

}  // namespace

control_file read_control(const fs::path& file) {
  control_file control(file);
  if (!control.refusal().empty()) throw std::runtime_error(file.string() + ": " + control.refusal());
  return control;
}

std::vector<base> refine(const settings& s, const scratch& room) {
  std::vector<base> bases(s.cases.size());
  in_parallel(static_cast<int>(s.cases.size()), s.jobs, [&](int i) {
    const auto u = static_cast<std::size_t>(i);
    bases[u] = refine_base(s, s.cases[u], room);
  });
  for (std::size_t i = 0; i < bases.size(); ++i) {
    const std::string& name = s.cases[i].name;
    if (!bases[i].good()) {
      std::cout << "! " << name << ": the reference did not end normally: " << bases[i].result.reason << '\n';
    } else if (!bases[i].result.converged) {
      std::cout << "! " << name << ": the reference did not converge in " << cycles_of_reference << " cycles\n";
    }
  }
  return bases;
}

}  // namespace starts_bases
