// pcr_choices: the values of the flags and codes of a control file, in words.
// It owns these tables, which never change. The rows of pcr_forms.hpp point at them; messages and documents print them.
// A value that a run cannot calculate yet stands here all the same: the file may hold it.
#pragma once
#include <array>

#include "pcr_fields.hpp"

namespace pcr_choices {

using pcr_fields::choice;

inline constexpr std::array<choice, 2> no_yes{{{0, "no"}, {1, "yes"}}};
inline constexpr std::array<choice, 1> none_or_some{{{0, "none"}}};
inline constexpr std::array<choice, 1> usual_or_other{{{0, "usual"}}};
inline constexpr std::array symmetry_listings{choice{0, "group and operators"},
                                              choice{1, "with the Wyckoff positions"}};

// ---- flags of run and pattern ---------------------------------------------------------------------------------------

inline constexpr std::array jobs{choice{0, "refinement, X-rays"},           choice{1, "refinement, neutrons"},
                                 choice{2, "pattern calculated, X-rays"},   choice{3, "pattern calculated, neutrons"},
                                 choice{4, "refinement, electrons"},        choice{-2, "pattern calculated, X-rays"},
                                 choice{-3, "pattern calculated, neutrons"}};
inline constexpr std::array shapes{choice{-4, "two Gaussians"},
                                   choice{0, "Gaussian; of a phase: that of the pattern"},
                                   choice{1, "Lorentzian"},
                                   choice{2, "modified Lorentzian, power 2"},
                                   choice{3, "modified Lorentzian, power 3/2"},
                                   choice{4, "three pseudo-Voigts"},
                                   choice{5, "pseudo-Voigt"},
                                   choice{6, "Pearson VII"},
                                   choice{7, "pseudo-Voigt of Thompson, Cox and Hastings"},
                                   choice{8, "numerical, from a file"},
                                   choice{9, "time of flight: two exponentials and pseudo-Voigt"},
                                   choice{10, "time of flight: as 9, two regimes of neutron energy"},
                                   choice{11, "split pseudo-Voigt"},
                                   choice{12, "pseudo-Voigt with axial divergence"},
                                   choice{13, "time of flight: moderator function and pseudo-Voigt"}};
inline constexpr std::array backgrounds{choice{0, "polynomial, 6 coefficients"},
                                        choice{1, "from a .bac file, scaled and shifted"},
                                        choice{-1, "polynomial and Debye-like terms"},
                                        choice{-2, "Fourier filter of the difference"},
                                        choice{-3, "polynomial, 12 coefficients"},
                                        choice{-4, "cosine Fourier series, 12 or 18 coefficients"},
                                        choice{-5, "Chebychev polynomial, 24 coefficients"}};
inline constexpr std::array orientations{
    choice{0, "exponential function, one direction"}, choice{1, "March-Dollase, one direction"},
    choice{2, "March-Dollase, several directions"}, choice{3, "March-Dollase, several directions, ring average"}};
inline constexpr std::array dummies{choice{0, "cycles end when they have converged"},
                                    choice{2, "the run stops at the first rise of chi-square"}};
inline constexpr std::array weights{choice{0, "1/variance of the data"}, choice{1, "1/variance of the calculation"},
                                    choice{2, "1/(1 + ((observed + 2 calculated)/15)^2)"},
                                    choice{3, "SHELX-like, constants on WGHT lines"}};
inline constexpr std::array geometries{choice{-2, "Debye-Scherrer, laboratory X-rays"},
                                       choice{-1, "no Lorentz-polarisation factor, the data are corrected"},
                                       choice{0, "Bragg-Brentano X-rays, or Debye-Scherrer neutrons"},
                                       choice{1, "flat plate, position-sensitive detector, fixed incidence"},
                                       choice{2, "transmission, flat sample, bisecting"},
                                       choice{3, "Debye-Scherrer, synchrotron"},
                                       choice{4, "transmission, flat sample, fixed incidence"},
                                       choice{5, "thin film, Bragg-Brentano X-rays"},
                                       choice{6, "automatic slit, Bragg-Brentano X-rays"}};
inline constexpr std::array assignments{choice{0, "reflections are assigned to points once"},
                                        choice{1, "reflections are assigned to points in every cycle"}};
inline constexpr std::array resolutions{choice{0, "no file"},
                                        choice{-1, "U V W of the width, X Y of the mixing"},
                                        choice{1, "U V W over tan(theta), X Y Z Lorentzian"},
                                        choice{2, "U V W over tan(theta), Lorentzian polynomial in the position"},
                                        choice{3, "both polynomials in the position"},
                                        choice{4, "table: position, Gaussian and Lorentzian width"},
                                        choice{8, "table with axial divergence"}};
inline constexpr std::array engines{choice{0, "powder patterns"},
                                    choice{1, "integrated intensities"},
                                    choice{2, "Monte Carlo search"},
                                    choice{-2, "Monte Carlo search"},
                                    choice{3, "simulated annealing"},
                                    choice{-3, "simulated annealing"},
                                    choice{4, "simulated annealing on a calculated pattern"}};
inline constexpr std::array abscissae{choice{0, "2theta in degrees"}, choice{1, "time of flight in microseconds"},
                                      choice{2, "energy in keV"},     choice{3, "Q in 1/angstrom"},
                                      choice{4, "s in 1/angstrom"},   choice{10, "Laue images"}};
inline constexpr std::array corrections{choice{0, "none"}, choice{1, "intensities corrected by the .cor file"},
                                        choice{2, "profile corrected by the .cor file"}};
inline constexpr std::array data_kinds{choice{0, "powder pattern"}, choice{1, "integrated intensities"},
                                       choice{2, "integrated intensities of several phases"}};

// ---- output flags ---------------------------------------------------------------------------------------------------

inline constexpr std::array profile_files{choice{-2, "numerical profile, named below"},
                                          choice{-1, "numerical profile of the code of the run"}, choice{0, "no"},
                                          choice{1, "yes"}};
inline constexpr std::array line_plots{choice{0, "none"}, choice{1, "line-printer plot"},
                                       choice{2, "background file .bac"}, choice{3, "difference curve in .bac"}};
inline constexpr std::array new_files{choice{0, "the control file stays as it is"},
                                      choice{1, "the control file gets the refined values"},
                                      choice{2, "the refined values go to code.new"}};
inline constexpr std::array plot_times{choice{0, "at the end"}, choice{1, "corrected data are printed"},
                                       choice{4, "in every cycle: no effect"}, choice{-4, "in every cycle: no effect"},
                                       choice{5, "a file per cycle: no effect yet"}};
inline constexpr std::array plot_files{choice{0, "tab-separated columns"},
                                       choice{1, ".prf, compact form"},
                                       choice{2, "script for IGOR"},
                                       choice{3, "tab-separated columns"},
                                       choice{-3, "tab-separated columns"},
                                       choice{4, ".pgf"},
                                       choice{5, "xmgrace"},
                                       choice{6, "plain columns"},
                                       choice{7, ".agr"}};
inline constexpr std::array layouts{choice{0, "header with start, step, end, then intensities"},
                                    choice{1, "header, then ten pairs of count and intensity a line"},
                                    choice{2, "400 points of step 0.2"},
                                    choice{3, "two-axis header, ten pairs a line"},
                                    choice{4, "lines of ten intensities, lines of ten sigmas"},
                                    choice{-4, "dated blocks with monitor"},
                                    choice{5, "three titles, line of parameters, free data"},
                                    choice{6, "titles, two monitors"},
                                    choice{7, "x, y, sigma, five points a line"},
                                    choice{8, "two titles, header, intensities, then sigmas"},
                                    choice{9, "UXD"},
                                    choice{10, "x, y and sigma, a point a line"},
                                    choice{11, "pairs of counting time and counts"},
                                    choice{-11, "pairs of counting time and counts"},
                                    choice{12, "GSAS"},
                                    choice{13, "PANalytical, by the extension"},
                                    choice{14, "time of flight, banks"},
                                    choice{-14, "time of flight, banks"}};

// ---- phases ---------------------------------------------------------------------------------------------------------

inline constexpr std::array structures{choice{0, "crystal structure"},
                                       choice{1, "magnetic structure, moments along the axes"},
                                       choice{-1, "magnetic structure, moments in spherical components"},
                                       choice{2, "profile matching, intensities free"},
                                       choice{-2, "profile matching, intensities free, start from F in a file"},
                                       choice{3, "profile matching, relative intensities fixed"},
                                       choice{-3, "profile matching, relative intensities fixed, F in a file"},
                                       choice{4, "rigid bodies"},
                                       choice{-4, "rigid bodies"},
                                       choice{5, "magnetic structure with a helix"},
                                       choice{-5, "magnetic structure with a helix, spherical components"},
                                       choice{6, "symmetry modes"},
                                       choice{-6, "symmetry modes, magnetic atoms"},
                                       choice{7, "superspace"},
                                       choice{-7, "superspace"},
                                       choice{10, "crystal and magnetic structure in one list"},
                                       choice{-10, "crystal and magnetic structure, spherical components"}};
inline constexpr std::array lists{choice{0, "generated from the space group"},
                                  choice{1, "h k l and multiplicity from the .hkl file"},
                                  choice{2, "h k l, multiplicity and intensity (or F) from the .hkl file"},
                                  choice{3, "h k l and a fixed structure factor from the .hkl file"},
                                  choice{4, "observed intensities from the .int file"},
                                  choice{-4, "as 4, with a fixed part of the structure factor"}};
inline constexpr std::array symmetries{choice{0, "by the space-group symbol"}, choice{1, "operators by hand, below"},
                                       choice{-1, "operators by hand, below"},
                                       choice{-2, "basis functions of representations, below"},
                                       choice{2, "magnetic space group"}};
inline constexpr std::array strain_forms{
    choice{0, "strain by the strain model"}, choice{1, "quartic form of the strain"},
    choice{2, "quadratic form of the size, strain as 0"}, choice{3, "quadratic form of the size, strain as 1"},
    choice{4, "spherical harmonics of the strain"}};
inline constexpr std::array distances{choice{0, "no"}, choice{2, "in the cell given below the atoms"},
                                      choice{-2, "in the cell given below the atoms"}};
inline constexpr std::array more_global{choice{0, "nothing more"}, choice{1, "microabsorption line"},
                                        choice{2, "profiles added to the background"},
                                        choice{3, "microabsorption line and profiles added to the background"}};
inline constexpr std::array absorptions{choice{0, "none"}, choice{1, "flat plate"},
                                        choice{2, "cylinder, quadratic form"}, choice{3, "exponential"},
                                        choice{4, "cylinder, series up to strong absorption"}};
inline constexpr std::array extinctions{
    choice{0, "no correction"}, choice{1, "SHELX-like, isotropic"}, choice{2, "Becker-Coppens, Gaussian mosaic"},
    choice{3, "Becker-Coppens, Lorentzian mosaic"}, choice{4, "SHELX-like, anisotropic"}};
inline constexpr std::array centres{choice{1, "no centre added"}, choice{2, "-1 at the origin is added"}};
inline constexpr std::array classes{choice{1, "-1"},
                                    choice{2, "2/m, unique axis b"},
                                    choice{-2, "2/m, unique axis c"},
                                    choice{3, "mmm"},
                                    choice{4, "4/m"},
                                    choice{5, "4/mmm"},
                                    choice{6, "-3 R"},
                                    choice{7, "-3m R"},
                                    choice{8, "-3"},
                                    choice{9, "-31m"},
                                    choice{10, "-3m1"},
                                    choice{11, "6/m"},
                                    choice{12, "6/mmm"},
                                    choice{13, "m-3"},
                                    choice{14, "m-3m"}};
inline constexpr std::array coefficients{choice{0, "real"}, choice{1, "imaginary"}};
inline constexpr std::array atom_kinds{choice{0, "isotropic"},
                                       choice{1, "with a moment"},
                                       choice{2, "with betas"},
                                       choice{3, "with a moment and betas"},
                                       choice{-3, "with a moment"},
                                       choice{4, "with form-factor lines"},
                                       choice{-4, "with form-factor lines"},
                                       choice{5, "with form-factor lines and betas"},
                                       choice{-5, "with form-factor lines"}};
inline constexpr std::array entries{choice{0, "named entry; X-rays: with a form factor below"},
                                    choice{1, "with a form factor below"}, choice{2, "f' and f'' only"}};

// ---- models of size, strain and shift -------------------------------------------------------------------------------

inline constexpr std::array size_models{choice{0, "isotropic: LorSiz alone"},
                                        choice{1, "platelet, direction below"},
                                        choice{-1, "needle, direction below"},
                                        choice{2, "reflections 0 0 l"},
                                        choice{3, "reflections 0 k 0"},
                                        choice{4, "reflections h 0 0"},
                                        choice{5, "reflections h k 0"},
                                        choice{6, "reflections h 0 l"},
                                        choice{7, "reflections 0 k l"},
                                        choice{8, "satellites: h, k or l not integer"},
                                        choice{9, "h and k odd"},
                                        choice{10, "h 0 l with h + l even"},
                                        choice{11, "h not equal to k"},
                                        choice{12, "h odd"},
                                        choice{13, "h even, k odd"},
                                        choice{14, "l odd and h or k odd"},
                                        choice{15, "spherical harmonics, 2/m"},
                                        choice{16, "spherical harmonics, mmm"},
                                        choice{17, "spherical harmonics, 4/m"},
                                        choice{18, "spherical harmonics, 4/mmm"},
                                        choice{19, "spherical harmonics, -3"},
                                        choice{20, "spherical harmonics, -3m"},
                                        choice{21, "spherical harmonics, 6/m and 6/mmm"},
                                        choice{22, "cubic harmonics"},
                                        choice{30, "quadratic form, six values below"},
                                        choice{-14, "not all of h, k, l even; both h and k odd: l = 0"}};
inline constexpr std::array shift_models{choice{0, "none"}, choice{2, "refraction-like, with the phase of F"}};
inline constexpr std::array conditions{choice{0, "drawn anew"}, choice{1, "periodic"}, choice{2, "kept inside"}};
inline constexpr std::array algorithms{choice{0, "steps adapt to the acceptance"},
                                       choice{1, "steps adapt to the acceptance"}, choice{2, "steps stay as given"}};
inline constexpr std::array starts{choice{0, "a random point"}, choice{1, "the values of this file"}};

}  // namespace pcr_choices
