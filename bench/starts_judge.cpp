#include "starts_judge.hpp"

#include <sstream>
#include <stdexcept>

namespace starts_judge {

double base::chi2_of(const outcome& other) const {
  const auto& own = result.fits;
  if (other.how != outcome::end::normal || own.size() != weights.size() || other.fits.size() != own.size()) return 0.0;
  double chi2 = result.chi2;
  for (std::size_t ip = 0; ip < own.size(); ++ip)
    if (own[ip].freedom > 0.0) chi2 += weights.at(ip) * (other.fits[ip].residual - own[ip].residual) / own[ip].freedom;
  return chi2;
}

optima_table optima_table::read(const std::filesystem::path& file) {
  optima_table table;
  std::istringstream lines(starts_run::text_of(file));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    double chi2 = 0.0;
    if (!(words >> name >> chi2) || !(chi2 > 0.0)) throw std::runtime_error("not a line of optima: " + line);
    table.smallest_[name] = chi2;
  }
  return table;
}

void optima_table::write(const std::filesystem::path& file) const {
  std::ostringstream text;
  text.precision(8);
  for (const auto& [name, chi2] : smallest_) text << name << ' ' << chi2 << '\n';
  starts_run::write_text(file, text.str());
}

void optima_table::take(const std::string& case_name, double chi2) {
  if (!(chi2 > 0.0)) return;
  const auto row = smallest_.try_emplace(case_name, chi2).first;
  if (chi2 < row->second) row->second = chi2;
}

verdict judge(double chi2, bool converged, double optimum) {
  if (!(chi2 > 0.0)) return verdict::failed;
  if (chi2 < reaches * optimum) return verdict::reached;
  return converged ? verdict::false_end : verdict::not_converged;
}

const char* words_of(verdict v) { return verdict_words[static_cast<std::size_t>(v)]; }

void counts::add(const outcome& o, verdict v) {
  ++starts;
  ++by_verdict[static_cast<std::size_t>(v)];
  seconds += o.seconds;
  if (v != verdict::reached) return;
  cycles += o.cycles;
  open += o.converged ? 0 : 1;
}

}  // namespace starts_judge
