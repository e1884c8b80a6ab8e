#include "kv_echo_words.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "pcr_choices.hpp"

namespace kv_echo_words {

namespace {

using pcr_fields::choice;

/// A line of fixed wording.
struct fixed_line {
  flag name;
  int value;
  std::string_view words;
};
// H: full width at half maximum; t: theta; hGh: 1/d**2.
constexpr std::string_view gaussian_width = "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2";
constexpr std::string_view flight_widths =
    "    sigma**2 = Sig-2 d**4 + Sig-1 d**2 + Sig-0 + Sig-Q d,   gamma = Gam-2 d**2 + Gam-1 d + Gam-0";

constexpr std::array fixed_lines{
    fixed_line{flag::job, 0, " => Refinement, X-ray data"},
    fixed_line{flag::job, 1, " => Refinement, neutron data"},
    fixed_line{flag::job, -1, " => Refinement, neutron data"},
    fixed_line{flag::job, 4, " => Refinement, electron data"},
    fixed_line{flag::job, 2, " => Pattern calculation, X-ray"},
    fixed_line{flag::job, -2, " => Pattern calculation, X-ray"},
    fixed_line{flag::job, 3, " => Pattern calculation, Neutrons"},
    fixed_line{flag::job, -3, " => Pattern calculation, Neutrons"},
    fixed_line{flag::job, -4, " => Pattern calculation, Electrons"},

    fixed_line{flag::search, 1, " => Refinement against integrated intensities"},
    fixed_line{flag::search, 2, " => Montecarlo search for a number of "},
    fixed_line{flag::search, -2, " => Montecarlo search for a number of "},
    fixed_line{flag::search, 3, " => Simulated Annealing for a number of "},
    fixed_line{flag::search, -3, " => Simulated Annealing for a number of "},
    fixed_line{flag::search, 4, " => Simulated Annealing on a calculated pattern"},

    fixed_line{flag::abscissa, 1, " => Abcisa variable is T.O.F. in microsecs"},
    fixed_line{flag::abscissa, 2, " => Energy Dispersive X-ray data"},

    fixed_line{flag::correction_file, 1, " => Intensities corrections in file *.cor"},
    fixed_line{flag::correction_file, 2, " => Intensities corrections in file *.cor\n    by a polynomial"},

    fixed_line{flag::orientation, 0, " => Exponential function for preferred orientation"},
    fixed_line{flag::orientation, 1, " => March-Dollase model for preferred orientation"},
    fixed_line{flag::orientation, 2, " => March-Dollase model for preferred orientation, several axes"},
    fixed_line{flag::orientation, 3,
               " => March-Dollase model for preferred orientation, several axes, mean over the diffraction ring"},

    fixed_line{flag::weights, 0, " => Conventional weights: w=1.0/Variance(yobs)"},
    fixed_line{flag::weights, 1, " => Maximum likelihood weights: w=1.0/Variance(ycal)"},
    fixed_line{flag::weights, 2, " => Unit weights, less at high intensity: w=1.0/(1.0+((yobs+2ycal)/15)**2)"},
    fixed_line{flag::weights, 3, " => SHELX-like weights: w = 1 / [ variance(yobs) + (a*P)^2 + b*P + d ]"},
    fixed_line{flag::integrated_weights, 0, " => Conventional weight: w(H)=1.0/Variance(GobsH)"},
    fixed_line{flag::integrated_weights, 1,
               " => Normalized Unit(equal) weight for all reflections: w=1.0/MeanVariance"},
    fixed_line{flag::integrated_weights, 2, " => Modified weights: w(H)=1.0/(Variance(GobsH)+0.2*(GobsH+2GcalH)/3)"},
    fixed_line{flag::integrated_weights, 3,
               " => SHELX-like weights: w = q / [ variance(Fo^2) + (a*P)^2 + b*P + d + e*sin(theta)/Lambda ]"},

    fixed_line{flag::shape_formula, -4, gaussian_width},
    fixed_line{flag::shape_formula, 0, gaussian_width},
    fixed_line{flag::shape_formula, 1, gaussian_width},
    fixed_line{flag::shape_formula, 2, gaussian_width},
    fixed_line{flag::shape_formula, 3, gaussian_width},
    fixed_line{flag::shape_formula, 4,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   eta = Shape1"},
    fixed_line{flag::shape_formula, 5,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   eta = Shape1 + X 2t + Xi H"},
    fixed_line{flag::shape_formula, 6,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2\n"
               "    m = Shape1 + 100 X/2t + 10000 Y/(2t)**2"},
    fixed_line{flag::shape_formula, 7,
               "    H(Gauss)**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2\n"
               "    H(Lorentz) = (X + strain) tan(t) + (Y + size)/cos(t)"},
    fixed_line{flag::shape_formula, 8, gaussian_width},
    fixed_line{flag::shape_formula, 11,
               "    of each side: H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2 + S_L or "
               "D_L/tan(t)**2\n"
               "    eta = Shape1 + X 2t + Xi H"},
    fixed_line{flag::shape_formula, 12,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   eta = Shape1 + X 2t + Xi H"},
    fixed_line{flag::shape_formula_tof, 7, flight_widths},
    fixed_line{flag::shape_formula_tof, 9,
               "    sigma**2 = Sig-2 d**4 + Sig-1 d**2 + Sig-0 + Sig-Q d,   gamma = Gam-2 d**2 + Gam-1 d + Gam-0\n"
               "    rise = alph0 + alph1/d + alphQ/sqrt(d),   decay = beta0 + beta1/d**4 + betaQ/d**2"},
    fixed_line{flag::shape_formula_tof, 10, flight_widths},
    fixed_line{flag::shape_formula_tof, 13, flight_widths},

    fixed_line{flag::absorption, 1, " => Absorption correction: flat plate in transmission, mu.t: "},
    fixed_line{flag::absorption, 2, " => Absorption correction: cylinder, mu.R: "},
    fixed_line{flag::absorption, 4, " => Absorption correction: cylinder, series for any mu.R: "},

    fixed_line{flag::strain, 1, "    strain along a against b: 2 |h2-k2|/(a2 hGh)"},
    fixed_line{flag::strain, 2, "    strain along a: 2 h2/(a2 hGh)"},
    fixed_line{flag::strain, 3, "    strain along the short diagonal of ab: (|h+k|/(a cos(gamma/2)))2/(2 hGh)"},
    fixed_line{flag::strain, 4, "    two strains along the diagonals of ab: h+k and h-k"},

    fixed_line{flag::extinction, 0, " => Extinction: No correction"},
    fixed_line{flag::extinction, 1, " => Extinction: Shelx-like Isotropic"},
    fixed_line{flag::extinction, 2, " => Extinction: Becker-Coppens Gaussian"},
    fixed_line{flag::extinction, 3, " => Extinction: Becker-Coppens Lorentzian"},
    fixed_line{flag::extinction, 4, " => Extinction: Shelx-like Anisotropic"},
};

/// A line that is made of the words for the flag behind its heading.
struct made_line {
  flag name;
  std::string_view heading;
  std::span<const choice> words;
};
constexpr std::array made_lines{
    made_line{flag::abscissa, " => Abscissa variable is ", pcr_choices::abscissae},
    made_line{flag::geometry, " => Geometry: ", pcr_choices::geometries},
    made_line{flag::shape, " => Peak shape: ", pcr_choices::shapes},
    made_line{flag::assignment, " => Assignment: ", pcr_choices::assignments},
    made_line{flag::layout, " => Layout of the data file: ", pcr_choices::layouts},
    made_line{flag::absorption_tof, " => Absorption correction: ", pcr_choices::absorptions},
    made_line{flag::structure, " => Kind of phase: ", pcr_choices::structures},
    made_line{flag::symmetry, " => Symmetry: ", pcr_choices::symmetries},
    made_line{flag::reflections, " => Reflections: ", pcr_choices::lists},
    made_line{flag::strain_kind, " => Strain model of the phase: ", pcr_choices::strain_forms},
    made_line{flag::size, " => Size model of the phase: ", pcr_choices::size_models},
    made_line{flag::shift, " => Shift model of the phase: ", pcr_choices::shift_models},
    made_line{flag::limit, "   ", pcr_choices::conditions},
};

}  // namespace

std::string words_of(flag name, int value) {
  const auto fixed =
      std::ranges::find_if(fixed_lines, [&](const fixed_line& row) { return row.name == name && row.value == value; });
  if (fixed != fixed_lines.end()) return std::string(fixed->words);
  const auto made = std::ranges::find(made_lines, name, &made_line::name);
  if (made == made_lines.end()) return {};
  const auto words = std::ranges::find(made->words, value, &choice::value);
  return words == made->words.end() ? std::string() : std::string(made->heading) + std::string(words->text);
}

}  // namespace kv_echo_words
