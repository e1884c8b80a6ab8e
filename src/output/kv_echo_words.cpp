#include "kv_echo_words.hpp"

#include <algorithm>
#include <array>

namespace kv_echo_words {

namespace {

constexpr std::array job_words{
    flag_words{0, " => Refinement, X-ray data"},          flag_words{1, " => Refinement, neutron data"},
    flag_words{4, " => Refinement, electron data"},       flag_words{2, " => Pattern calculation, X-ray"},
    flag_words{3, " => Pattern calculation, Neutrons"},   flag_words{-1, " => Refinement, neutron data"},
    flag_words{-2, " => Pattern calculation, X-ray"},     flag_words{-3, " => Pattern calculation, Neutrons"},
    flag_words{-4, " => Pattern calculation, Electrons"},
};

constexpr std::array search_words{
    flag_words{1, " => Refinement against integrated intensities"},
    flag_words{2, " => Montecarlo search for a number of "},
    flag_words{-2, " => Montecarlo search for a number of "},
    flag_words{3, " => Simulated Annealing for a number of "},
    flag_words{-3, " => Simulated Annealing for a number of "},
    flag_words{4, " => Integrated intensities are simulated"},
};

constexpr std::array abscissa_words{
    flag_words{0, " => Abscissa variable is 2Theta in degrees"},
    flag_words{1, " => Abcisa variable is T.O.F. in microsecs"},
    flag_words{2, " => Energy Dispersive X-ray data"},
    flag_words{3, " => Abscissa variable is Q in inverse angstroms"},
    flag_words{4, " => Abscissa variable is s=1/d in inverse angstroms"},
    flag_words{10, " => Laue images"},
};

constexpr std::array geometry_words{
    flag_words{-2, " => Debye-Scherrer geometry, conventional X-rays"},
    flag_words{-1, " => Lorentz-polarisation not applied: the profile is corrected"},
    flag_words{0, " => Bragg-Brentano geometry (X-rays) or Debye-Scherrer geometry (neutrons)"},
    flag_words{1, " => Flat plate with position-sensitive detector at a fixed incident angle"},
    flag_words{2, " => Transmission, flat sample, bisecting geometry"},
    flag_words{3, " => Synchrotron, Debye-Scherrer geometry"},
    flag_words{4, " => Transmission, flat sample, fixed incident angle"},
    flag_words{5, " => Bragg-Brentano geometry with thin-film corrections"},
    flag_words{6, " => Bragg-Brentano geometry with automatic variable slit"},
};

constexpr std::array correction_file_words{
    flag_words{1, " => Intensities corrections in file *.cor"},
    flag_words{2, " => Intensities corrections in file *.cor\n    by a polynomial"},
};

constexpr std::array orientation_words{
    flag_words{0, " => Exponential function for preferred orientation"},
    flag_words{1, " => March-Dollase model for preferred orientation"},
    flag_words{2, " => March-Dollase model for preferred orientation, several axes"},
    flag_words{3, " => March-Dollase model for preferred orientation, several axes, mean over the diffraction ring"},
};

constexpr std::array weight_words{
    flag_words{0, " => Conventional weights: w=1.0/Variance(yobs)"},
    flag_words{1, " => Maximum likelihood weights: w=1.0/Variance(ycal)"},
    flag_words{2, " => Unit weights, less at high intensity: w=1.0/(1.0+((yobs+2ycal)/15)**2)"},
    flag_words{3, " => SHELX-like weights: w = 1 / [ variance(yobs) + (a*P)^2 + b*P + d ]"},
};
constexpr std::array integrated_weight_words{
    flag_words{0, " => Conventional weight: w(H)=1.0/Variance(GobsH)"},
    flag_words{1, " => Normalized Unit(equal) weight for all reflections: w=1.0/MeanVariance"},
    flag_words{2, " => Modified weights: w(H)=1.0/(Variance(GobsH)+0.2*(GobsH+2GcalH)/3)"},
    flag_words{3, " => SHELX-like weights: w = q / [ variance(Fo^2) + (a*P)^2 + b*P + d + e*sin(theta)/Lambda ]"},
};

constexpr std::array shape_words{
    flag_words{-4, " => Peak shape: double Gaussian"},
    flag_words{0, " => Peak shape: Gaussian"},
    flag_words{1, " => Peak shape: Lorentzian"},
    flag_words{2, " => Peak shape: modified Lorentzian, exponent 2"},
    flag_words{3, " => Peak shape: modified Lorentzian, exponent 3/2"},
    flag_words{4, " => Peak shape: tripled pseudo-Voigt"},
    flag_words{5, " => Peak shape: pseudo-Voigt"},
    flag_words{6, " => Peak shape: Pearson VII"},
    flag_words{7, " => Peak shape: Thompson-Cox-Hastings pseudo-Voigt"},
    flag_words{8, " => Peak shape: numerical profile"},
    flag_words{11, " => Peak shape: split pseudo-Voigt"},
    flag_words{12, " => Peak shape: pseudo-Voigt with axial divergence"},
};
constexpr std::array shape_tof_words{
    flag_words{7, " => Peak shape: Thompson-Cox-Hastings pseudo-Voigt in time of flight"},
    flag_words{9, " => Peak shape: pseudo-Voigt convoluted with back-to-back exponentials"},
    flag_words{10, " => Peak shape: pseudo-Voigt convoluted with back-to-back exponentials, two regimes"},
    flag_words{13, " => Peak shape: pseudo-Voigt convoluted with the pulse of Ikeda and Carpenter"},
};

// H: full width at half maximum; T: 2theta; t: theta.
constexpr std::array shape_formula_words{
    flag_words{-4, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2"},
    flag_words{0, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2"},
    flag_words{1, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2"},
    flag_words{2, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2"},
    flag_words{3, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2"},
    flag_words{4, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   eta = Shape1"},
    flag_words{5, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   eta = Shape1 + X 2t + Xi H"},
    flag_words{6,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   m = Shape1 + 100 X/2t + 10000 "
               "Y/(2t)**2"},
    flag_words{7,
               "    H(Gauss)**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2\n"
               "    H(Lorentz) = (X + strain) tan(t) + (Y + size)/cos(t)"},
    flag_words{8,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   profile from GLOBAL.SHP or the "
               ".shp file"},
    flag_words{11,
               "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2 + S_L or D_L/tan(2t)**2,   eta = "
               "Shape1 + X 2t + Xi H, per side"},
    flag_words{12, "    H**2 = (U + strain) tan(t)**2 + V tan(t) + W + GauSiz/cos(t)**2,   eta = Shape1 + X 2t + Xi H"},
};
constexpr std::array shape_formula_tof_words{
    flag_words{7, "    sigma**2 = Sig-2 d**4 + Sig-1 d**2 + Sig-0 + Sig-Q d,   gamma = Gam-2 d**2 + Gam-1 d + Gam-0"},
    flag_words{9,
               "    sigma**2 = Sig-2 d**4 + Sig-1 d**2 + Sig-0 + Sig-Q d,   gamma = Gam-2 d**2 + Gam-1 d + Gam-0\n"
               "    rise = alph0 + alph1/d + alphQ/sqrt(d),   decay = beta0 + beta1/d**4 + betaQ/d**2"},
    flag_words{10,
               "    sigma**2 = Sig-2 d**4 + Sig-1 d**2 + Sig-0 + Sig-Q d,   gamma = Gam-2 d**2 + Gam-1 d + Gam-0\n"
               "    rise and decay of the two regimes pass over at the crossing"},
    flag_words{13, "    sigma**2 = Sig-2 d**4 + Sig-1 d**2 + Sig-0 + Sig-Q d,   gamma = Gam-2 d**2 + Gam-1 d + Gam-0"},
};

constexpr std::array absorption_words{
    flag_words{1, " => Absorption correction: flat plate in transmission, mu.t: "},
    flag_words{2, " => Absorption correction: cylinder, mu.R: "},
    flag_words{4, " => Absorption correction: cylinder, series for any mu.R: "},
};
constexpr std::array absorption_tof_words{
    flag_words{0, " => Absorption correction: none"},
    flag_words{1, " => Absorption correction: flat plate perpendicular to the beam, Abs1 Lambda + Abs2"},
    flag_words{2, " => Absorption correction: cylinder, Abs1 Lambda"},
    flag_words{3, " => Absorption correction: exponential, exp(-Abs1 Lambda)"},
    flag_words{4, " => Absorption correction: cylinder, series for any Abs1 Lambda, not below Abs2"},
};

constexpr std::array structure_words{
    flag_words{0, " => Crystal structure refinement"},
    flag_words{1, " => Magnetic structure refinement: components of the moments along the cell axes"},
    flag_words{-1, " => Magnetic structure refinement: moments in spherical components"},
    flag_words{2, " => Profile matching: intensities are extracted in every cycle"},
    flag_words{-2, " => Profile matching: intensities are extracted in every cycle"},
    flag_words{3, " => Profile matching: relative intensities are constant"},
    flag_words{-3, " => Profile matching: relative intensities are constant"},
    flag_words{4, " => Crystal structure refinement with rigid bodies"},
    flag_words{-4, " => Crystal structure refinement with rigid bodies"},
    flag_words{5, " => Magnetic structure refinement: modulated moments"},
    flag_words{-5, " => Magnetic structure refinement: modulated moments in spherical components"},
    flag_words{6, " => Crystal structure refinement with symmetry modes"},
    flag_words{-6, " => Crystal and magnetic structure refinement with symmetry modes"},
    flag_words{7, " => Modulated structure in superspace"},
    flag_words{-7, " => Modulated structure in superspace, moments in spherical components"},
    flag_words{10, " => Crystal and magnetic structure refinement"},
    flag_words{-10, " => Crystal and magnetic structure refinement: moments in spherical components"},
};

constexpr std::array symmetry_words{
    flag_words{0, " => Symmetry from the space-group symbol"},
    flag_words{1, " => Symmetry operators given in the control file"},
    flag_words{-1, " => Symmetry operators given in the control file"},
    flag_words{-2, " => Symmetry operators and basis functions given in the control file"},
    flag_words{2, " => Magnetic space group"},
};

constexpr std::array reflections_words{
    flag_words{0, " => Reflections are generated from the space group"},
    flag_words{1, " => Reflections are read from a file: indices and multiplicity"},
    flag_words{2, " => Reflections are read from a file: indices, multiplicity and intensity"},
    flag_words{3, " => Reflections are read from a file: indices, multiplicity and a fixed part of F"},
    flag_words{4, " => Reflections are read from a file of observed intensities"},
    flag_words{-4, " => Reflections are read from a file of observed intensities with a fixed part of F"},
};

constexpr std::array strain_kind_words{
    flag_words{0, " => Strain model of the phase: one of special directions"},
    flag_words{1, " => Strain model of the phase: quartic form in hkl"},
    flag_words{2, " => Strain model of the phase: one of special directions; size by a quadratic form"},
    flag_words{3, " => Strain model of the phase: quartic form in hkl; size by a quadratic form"},
    flag_words{4, " => Strain model of the phase: spherical harmonics"},
};
// G: the metric of the reciprocal lattice, d**2 = 1/(h G h).
constexpr std::array strain_words{
    flag_words{1, "    strain along a against b: 2 |h2-k2|/(a2 hGh)"},
    flag_words{2, "    strain along a: 2 h2/(a2 hGh)"},
    flag_words{3, "    strain along the short diagonal of ab: (|h+k|/(a cos(gamma/2)))2/(2 hGh)"},
    flag_words{4, "    two strains along the diagonals of ab: h+k and h-k"},
};

constexpr std::array size_words{
    flag_words{0, " => Size model of the phase: no anisotropic broadening"},
    flag_words{1, " => Size model of the phase: platelet, broadest for hkl along its normal"},
    flag_words{-1, " => Size model of the phase: needle, broadest for hkl across its axis"},
    flag_words{2, " => Size model of the phase: reflections 00l are broadened"},
    flag_words{3, " => Size model of the phase: reflections 0k0 are broadened"},
    flag_words{4, " => Size model of the phase: reflections h00 are broadened"},
    flag_words{5, " => Size model of the phase: reflections hk0 are broadened, h and k not 0"},
    flag_words{6, " => Size model of the phase: reflections h0l are broadened, h and l not 0"},
    flag_words{7, " => Size model of the phase: reflections 0kl are broadened, k and l not 0"},
    flag_words{8, " => Size model of the phase: reflections with a fractional index are broadened"},
    flag_words{9, " => Size model of the phase: reflections with h and k odd are broadened"},
    flag_words{10, " => Size model of the phase: reflections h0l with h+l even are broadened"},
    flag_words{11, " => Size model of the phase: reflections with h different from k are broadened"},
    flag_words{12, " => Size model of the phase: reflections with h odd are broadened"},
    flag_words{13, " => Size model of the phase: reflections with h even and k odd are broadened"},
    flag_words{14, " => Size model of the phase: reflections with l odd, and h or k odd, are broadened"},
    flag_words{-14, " => Size model of the phase: all but hkl all even are broadened; with h and k odd only l=0"},
    flag_words{15, " => Size model of the phase: spherical harmonics"},
    flag_words{16, " => Size model of the phase: spherical harmonics"},
    flag_words{17, " => Size model of the phase: spherical harmonics"},
    flag_words{18, " => Size model of the phase: spherical harmonics"},
    flag_words{19, " => Size model of the phase: spherical harmonics"},
    flag_words{20, " => Size model of the phase: spherical harmonics"},
    flag_words{21, " => Size model of the phase: spherical harmonics"},
    flag_words{22, " => Size model of the phase: cubic harmonics"},
    flag_words{30, " => Size model of the phase: quadratic form in hkl"},
};

constexpr std::array shift_words{
    flag_words{0, " => Shift model of the phase: no shifts that depend on hkl"},
    flag_words{2, " => Shift model of the phase: stacking, with the factors of the reflection file"},
};

constexpr std::array extinction_words{
    flag_words{0, "No correction"},           flag_words{1, "Shelx-like Isotropic"},
    flag_words{2, "Becker-Coppens Gaussian"}, flag_words{3, "Becker-Coppens Lorentzian"},
    flag_words{4, "Shelx-like Anisotropic"},
};

constexpr std::array limit_words{
    flag_words{0, "fixed limits"},
    flag_words{1, "periodic"},
    flag_words{2, "soft limits"},
};

}  // namespace

std::span<const flag_words> table(flag name) {
  switch (name) {
    case flag::job:
      return job_words;
    case flag::search:
      return search_words;
    case flag::abscissa:
      return abscissa_words;
    case flag::geometry:
      return geometry_words;
    case flag::correction_file:
      return correction_file_words;
    case flag::orientation:
      return orientation_words;
    case flag::weights:
      return weight_words;
    case flag::integrated_weights:
      return integrated_weight_words;
    case flag::shape:
      return shape_words;
    case flag::shape_tof:
      return shape_tof_words;
    case flag::shape_formula:
      return shape_formula_words;
    case flag::shape_formula_tof:
      return shape_formula_tof_words;
    case flag::absorption:
      return absorption_words;
    case flag::absorption_tof:
      return absorption_tof_words;
    case flag::structure:
      return structure_words;
    case flag::symmetry:
      return symmetry_words;
    case flag::reflections:
      return reflections_words;
    case flag::strain_kind:
      return strain_kind_words;
    case flag::strain:
      return strain_words;
    case flag::size:
      return size_words;
    case flag::shift:
      return shift_words;
    case flag::extinction:
      return extinction_words;
    case flag::limit:
      return limit_words;
  }
  return {};
}

std::string_view words_of(flag name, int value) {
  const auto rows = table(name);
  const auto row = std::ranges::find(rows, value, &flag_words::value);
  return row == rows.end() ? std::string_view{} : row->words;
}

}  // namespace kv_echo_words
