// starts_settings: what the command line of kalvaris_starts asks for.
// It owns the table of its options, from which parser and help are made.
#pragma once
#include <string>
#include <vector>

#include "starts_model.hpp"
#include "starts_run.hpp"

namespace starts_settings {

struct settings {
  starts_run::program program, reference;
  std::vector<starts_run::case_folder> cases;
  std::vector<starts_model::level> levels{starts_model::levels.begin(), starts_model::levels.end()};
  int starts = 20, cycles = 30, seed = 1, jobs = 2;
  bool usual_order = false, corner = false, list = false, matching = false;
  std::filesystem::path optima, keep, record;
};

/// Throws std::invalid_argument with the words of a refusal.
[[nodiscard]] settings read(const std::vector<std::string>& arguments);
[[nodiscard]] std::string usage();

}  // namespace starts_settings
