// starts_model: control files as starting points of a refinement: read, disturbed at random, with part of their codes,
// or turned into profile matching, and written again.
// It owns the levels of disturbance. A control_file owns its state; nothing here runs the program.
#pragma once
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kalvaris_params.hpp"
#include "slot_text.hpp"

namespace starts_model {

/// How far a start lies from the optimum. Factors are drawn as exp(uniform(-ln f, ln f)), the others uniformly in +-.
struct level {
  std::string_view name;
  double zero;   ///< shift of all reflections [deg]
  double cell;   ///< relative change of a cell length
  double scale;  ///< factor of a scale factor
  double width;  ///< factor of the widths: U, V, W and the Gaussian size go with its square
  double atoms;  ///< displacement of an atom [angstrom]
};
inline constexpr std::array<level, 3> levels{{
    {"near", 0.02, 0.0005, 1.5, 1.25, 0.0},
    {"typical", 0.05, 0.0015, 3.0, 1.6, 0.0},
    {"far", 0.1, 0.003, 10.0, 2.0, 0.1},
}};

/// Seed of one start: the same for every program, build and machine.
[[nodiscard]] std::uint64_t seed_of(std::string_view case_name, std::string_view level_name, int number, int base);

/// Random numbers in -1 ... 1. corner: the ends alone.
class dice {
 public:
  dice(std::uint64_t seed, bool corner) : bits_(seed), corner_(corner) {}
  [[nodiscard]] double signed_unit();
  [[nodiscard]] double normal();
  [[nodiscard]] double factor(double largest);

 private:
  [[nodiscard]] double uniform();  ///< above 0, below 1
  std::mt19937_64 bits_;
  bool corner_;
};

/// Orders in which a person frees parameters; each step keeps those before.
enum class step { scale_and_background, zero_and_cell, profile, all };
inline constexpr std::array steps{step::scale_and_background, step::zero_and_cell, step::profile, step::all};
[[nodiscard]] step step_of(const slot_text::slot_place& slot);

/// A control file in memory and the parameters that its codes name.
class control_file {
 public:
  /// Reads a file whose name ends in .pcr. A refusal leaves its words in refusal() and nothing else to be used.
  explicit control_file(const std::filesystem::path& file);
  [[nodiscard]] const std::string& refusal() const { return refusal_; }

  [[nodiscard]] std::string text() const;  ///< as the program would write it, without a chi-square of its own
  [[nodiscard]] kalvaris_params::state_type& state() { return *st_; }
  [[nodiscard]] int refined() const { return static_cast<int>(parameters_.size()); }

  void set_cycles(int cycles) { st_->run.mcycle = cycles; }
  void disturb(const level& by, dice& random);
  /// Cell lengths and widths that are refined, by these factors.
  void change(double cell_factor, double width_factor);
  /// Takes the codes of another control file of the same model, but for those that come after the step. Returns how
  /// many parameters stay refined.
  int take_codes(const control_file& full, step last);
  /// Every phase with a structure gives its atoms away and takes its intensities from the pattern; codes that mean
  /// nothing then are gone. True when there was such a phase. To be written and read again before anything else.
  bool make_profile_matching();

 private:
  struct coded_slot {
    slot_text::slot_place place;
    double weight = 1.0;  ///< its shift over that of the first slot
  };
  using keep_rule = std::function<bool(const slot_text::slot_place&)>;

  void find_parameters(kalvaris_params::state_type& numbered);
  [[nodiscard]] int number_at(const slot_text::slot_place& place) const;
  [[nodiscard]] float& value_at(const slot_text::slot_place& place);
  [[nodiscard]] bool once(int number);
  void move(int number, double shift);
  void multiply(int number, double factor);
  void disturb_zero(double by, dice& random);
  void disturb_scales(double by, dice& random);
  void disturb_cells(double by, dice& random);
  void disturb_widths(double by, dice& random);
  void disturb_atoms(double by, dice& random);
  void disturb_atom(int ph, int ia, double by, dice& random);
  struct width_numbers {
    std::vector<int> gaussian, lorentzian;
  };
  [[nodiscard]] width_numbers widths_of(int ph, int ip);
  void multiply_widths(const width_numbers& widths, double factor);
  [[nodiscard]] bool widths_are_positive() const;
  int keep_codes(const keep_rule& keep);
  void take_atoms(int ph);

  std::unique_ptr<kalvaris_params::state_type> st_;
  std::map<int, std::vector<coded_slot>> parameters_;         ///< slots of each refined number
  std::vector<float> words_;                                  ///< code words, slot by slot
  std::vector<std::array<std::array<double, 3>, 3>> metric_;  ///< direct metric tensor of each phase [angstrom^2]
  std::vector<int> moved_;                                    ///< numbers that were disturbed
  std::string refusal_;
};

}  // namespace starts_model
