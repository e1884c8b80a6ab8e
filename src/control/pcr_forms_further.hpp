// pcr_forms_further: the lines of rigid bodies, symmetry modes, modulated atoms, Laue and multi-phase lists.
// It owns the tables that reader, messages and explanation share, in the namespace of the other lines; no values.
// Lines that hold slots of the model and nothing else are described by the table of slots and stand here only by name.
#pragma once
#include "pcr_forms.hpp"

namespace pcr_forms {

// ---- rigid bodies ---------------------------------------------------------------------------------------------------

namespace further_choices {
using pcr_fields::choice;
inline constexpr std::array coordinates{choice{1, "X Y Z, fractions of the cell"}, choice{2, "XC YC ZC, Cartesian"},
                                        choice{3, "distance Theta Phi, spherical"},
                                        choice{4, "distance Bond-Angle Torsion-Ang, Z-matrix"}};
inline constexpr std::array thermal{choice{0, "B of each atom"}, choice{1, "tensor T"}, choice{2, "tensors T and L"},
                                    choice{3, "tensors T, L and S"}};
inline constexpr std::array spectra{choice{-1, "histogram in a file"}, choice{0, "none"}};
inline constexpr std::array laue_absorptions{choice{0, "none"}, choice{1, "exponential"}, choice{2, "Chebychev"}};
}  // namespace further_choices

inline constexpr std::array body_fields{field{"MOLE", '4', "a rigid body begins"},
                                        field{"Atoms", 'i', "number of its atoms, whose lines follow"},
                                        field{"Coord", 'i', "their coordinates", {}, further_choices::coordinates},
                                        field{"Name", rest, "name of the body; may be left out"}};
inline constexpr line_form body{"header of the rigid body (MOLE)", "Jbt 4 or -4, among the atoms", body_fields};
inline constexpr std::array body_atom_fields{label, species};
inline constexpr std::array connected_fields{field{"N1", 'f', "atom that the distance is counted from"},
                                             field{"N2", 'f', "atom of the bond angle"},
                                             field{"N3", 'f', "atom of the torsion angle"}};
inline constexpr std::array behind_body_atom_fields{spc};
inline constexpr line_form body_atom{"atom of the rigid body", "below the header, a line per atom", body_atom_fields};
inline constexpr std::array body_kind_fields{
    field{"TypeAngles", 'i', "convention of the angles"},
    field{"TypeThermal", 'i', "thermal motion, lines below", {}, further_choices::thermal}};
inline constexpr line_form body_position{
    "position of the rigid body", "below its atoms; codes below, then each tensor with its codes", body_kind_fields};

// ---- modulated atoms, modes -----------------------------------------------------------------------------------------

inline constexpr std::array modulated_atom_fields{label, species,
                                                  field{"Max_Qcoeff", 'i', "harmonics of the atom, at most 5"}};
inline constexpr line_form modulated_atom{"atom line", "Jbt 7 or -7", modulated_atom_fields};
inline constexpr std::array modulation_index_fields{field{"h", 'i', "special reflection"}, field{"k", 'i', "index"},
                                                    field{"l", 'i', "index"}};
inline constexpr std::array modulation_satellite_fields{field{"m", 'i', "index of a modulation vector"}};

inline constexpr std::array mode_key_fields{
    field{"V_MODES", '9', "V_MODES displacements, M_MODES moments, O_MODES occupancies"},
    field{"Modes", 'i', "number of modes"},
    field{"max_amplitude", rest, "optional: this word and the largest amplitude; else 2"}};
inline constexpr line_form mode_key{"key line of the modes", "Jbt 6 or -6, behind the atoms, one to three kinds",
                                    mode_key_fields};
inline constexpr std::array mode_fields{field{"Mode", '8', "name"}, field{"Comp", 'i', "number of its components"}};
inline constexpr line_form mode{"mode line", "below the key line, per mode", mode_fields};
inline constexpr std::array component_fields{field{"Number", 'i', "kept, without effect"},
                                             label,
                                             field{"Vx", 'f', "component along a, or the scalar of an occupancy"},
                                             field{"Vy", 'f', "component along b"},
                                             field{"Vz", 'f', "component along c"},
                                             field{"Norm", 'f', "kept, without effect"}};
inline constexpr line_form component{"component of the mode", "below the mode line", component_fields};
inline constexpr std::array amplitude_fields{field{"Ampl", 'f', "amplitude of a mode, six to a line"}};
inline constexpr line_form amplitudes{"amplitudes of the modes", "below the modes of a kind, codes below",
                                      amplitude_fields};

// ---- lists of intensities -------------------------------------------------------------------------------------------

inline constexpr std::array laue_fields{
    field{"Laue_Sets", 'i', "number of lists"},
    field{"Inc_Spect.", 'i', "incident spectrum: number of its coefficients, up to 60", {}, further_choices::spectra},
    field{"Abs_Model", 'i', "absorption", {}, further_choices::laue_absorptions},
    field{"Det_Eff", 'i', "coefficients of the efficiency of the detector, up to 12"},
    field{"SinTheta/L(min)", 'f', "start of the range", "1/angstrom"},
    field{"SinTheta/L(max)", 'f', "end of the range", "1/angstrom"},
    field{"Delta(SinT/Lamb)", 'f', "step", "1/angstrom"}};
inline constexpr line_form laue_patterns{"line of the Laue patterns", "Uni 10, in the place of the radiation line",
                                         laue_fields};
inline constexpr std::array histogram_fields{field{"W_HISTOGRAM", '9', "the incident spectrum is a histogram"},
                                             field{"File", rest, "name of its file"}};
inline constexpr line_form histogram{"histogram of the incident spectrum (W_HISTOGRAM)", "Inc_Spect. -1",
                                     histogram_fields};
inline constexpr std::array crystal_fields{field{"SXtal_Sets", 'i', "number of lists"}};
inline constexpr line_form crystals{"number of the single crystals", "Int 2, in the place of the radiation line",
                                    crystal_fields};
inline constexpr std::array crystal_wave_fields{field{"Lambda1", 'f', "wavelength", "angstrom"},
                                                field{"Lambda2", 'f', "second wavelength; 0: one only", "angstrom"},
                                                field{"Ratio", 'f', "intensity of the second to the first"}};
inline constexpr line_form crystal_waves{"line of the wavelengths", "Int 2, below", crystal_wave_fields};
inline constexpr line_form intensity_file{"list of intensity files", "Uni 10 and Int 2, a line per list", file_fields};

}  // namespace pcr_forms
