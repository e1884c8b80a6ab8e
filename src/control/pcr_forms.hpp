// pcr_forms: the lines of a control file that have fixed fields, in the order of the file.
// It owns the tables that reader, messages, explanation and reference document share; it knows no values.
// Lines that hold slots of the model and nothing else are described by the table of slots and stand here only by name.
#pragma once
#include <array>

#include "pcr_choices.hpp"
#include "pcr_fields.hpp"

namespace pcr_forms {

using pcr_fields::field;
using pcr_fields::line_form;
namespace ch = pcr_choices;

inline constexpr char rest = 't';  ///< letter of a field that is the rest of its line as text

// ---- head -----------------------------------------------------------------------------------------------------------

inline constexpr std::array title_fields{
    field{"Title", rest, "title of the run; PRINT_PCR in it copies the lines read"}};
inline constexpr line_form title{"title", "first line of the file, also when it is blank", title_fields};
inline constexpr std::array npatt_fields{
    field{"NPATT", '6', "says that the file has the long form"}, field{"N_patt", 'i', "number of patterns, 1 to 80"},
    field{"Selected", 'i', "the pattern takes part; all do when the numbers are left out", {}, ch::no_yes}};
inline constexpr line_form npatt{"NPATT line", "long form: first line behind the title", npatt_fields};
inline constexpr std::array w_pat_fields{field{"W_PAT", '6', "weights of the patterns in the joint sum"},
                                         field{"Weight", 'f', "weight of the pattern; they are divided by their sum"}};
inline constexpr line_form w_pat{"W_PAT line", "long form, optional", w_pat_fields};

// ---- flags ----------------------------------------------------------------------------------------------------------
// The rows of these lines belong to the flags of the state, see pcr_layout.

inline constexpr field job{"Job", 'i', "task and radiation", {}, ch::jobs};
inline constexpr field npr{"Npr", 'i', "peak shape, unless a phase has its own", {}, ch::shapes};
inline constexpr field nph{"Nph", 'i', "number of phases"};
inline constexpr field nba{
    "Nba", 'i', "background: N > 1 points joined by lines, N < -5 by a spline", {}, ch::backgrounds};
inline constexpr field nex{"Nex", 'i', "number of excluded regions"};
inline constexpr field nsc{"Nsc", 'i', "number of scattering entries; negative: form factors as tables"};
inline constexpr field nor_flag{"Nor", 'i', "preferred orientation", {}, ch::orientations};
inline constexpr field dum{"Dum", 'i', "divergence", {}, ch::dummies};
inline constexpr field iwg{"Iwg", 'i', "weights of the points", {}, ch::weights};
inline constexpr field ilo{"Ilo", 'i', "geometry of the measurement", {}, ch::geometries};
inline constexpr field ias{"Ias", 'i', "assignment of reflections", {}, ch::assignments};
inline constexpr field res{"Res", 'i', "resolution file", {}, ch::resolutions};
inline constexpr field ste{"Ste", 'i', "every Ste-th point of the data is kept; 0 and 1: all"};
inline constexpr field nre{"Nre", 'i', "number of parameters with limits"};
inline constexpr field cry{"Cry", 'i', "kind of run", {}, ch::engines};
inline constexpr field uni{"Uni", 'i', "abscissa of the pattern", {}, ch::abscissae};
inline constexpr field cor{"Cor", 'i', "corrections from a file", {}, ch::corrections};
inline constexpr field anm{"Anm", 'i', "difference to the next pattern (anomalous scattering)", {}, ch::no_yes};
inline constexpr field int_flag{"Int", 'i', "kind of data", {}, ch::data_kinds};
inline constexpr std::array options{
    field{"Opt", 'i', "integrated intensities in the last cycle alone; here in each: no effect", {}, ch::no_yes},
    field{"Aut", 'i', "codes without a number get one, symmetry ties positions, betas and moments", {}, ch::no_yes}};

inline constexpr std::array wght_fields{field{"WGHT", '4', "constants of SHELX-like weights"},
                                        field{"a", 'f', "w = 1/(var + (a P)^2 + b P + d)"},
                                        field{"b", 'f', "factor of P = f obs + (1 - f) calc"},
                                        field{"c", 'f', "kept for sine terms"},
                                        field{"d", 'f', "constant"},
                                        field{"e", 'f', "kept for sine terms"},
                                        field{"f", 'f', "fraction of the observed value in P"},
                                        field{"refine", '6', "the word refine: no effect yet"}};
inline constexpr line_form wght{"WGHT line", "optional, with Iwg 3", wght_fields};
inline constexpr std::array file_fields{field{"File", rest, "name of the file, beside the control file"}};
inline constexpr line_form data_file{"name of the data file", "long form: one line per pattern when data are read",
                                     file_fields};
inline constexpr line_form resolution_file{"name of the resolution file", "with Res not 0, one line per such pattern",
                                           file_fields};
inline constexpr line_form profile_file{"name of the numerical profile", "with Iot -2, below the output flags",
                                        file_fields};

inline constexpr field iot{"Iot", 'i', "observed and calculated intensities are listed", {}, ch::profile_files};
inline constexpr field ipl{"Ipl", 'i', "line-printer plot and background file", {}, ch::line_plots};
inline constexpr field ipc{"Ipc", 'i', "reflections are listed", {}, ch::no_yes};
inline constexpr field mat{"Mat", 'i', "correlation matrix is listed", {}, ch::no_yes};
inline constexpr field nxt{"Nxt", 'i', "control file at the end of the run", {}, ch::new_files};
inline constexpr field ls1{"Ls1", 'i', "reflection list before the refinement", {}, ch::no_yes};
inline constexpr field ls2{"Ls2", 'i', "plot of the pattern", {}, ch::plot_times};
inline constexpr field ls3{"Ls3", 'i', "merged reflection list", {}, ch::no_yes};
inline constexpr field nli{"Nli", 'i', "number of linear restraints"};
inline constexpr field prf{"Prf", 'i', "file for plotting", {}, ch::plot_files};
inline constexpr field ins{"Ins", 'i', "layout of the data file", {}, ch::layouts};
inline constexpr field jci{
    "Jci", 'i', "files of reflections for other programs: no effect yet", {}, ch::usual_or_other};
inline constexpr field jsy{"Jsy", 'i', "listing of the symmetry", {}, ch::symmetry_listings};
inline constexpr field jlk{"Jlk", 'i', "files of reflections for other programs: no effect yet", {}, ch::none_or_some};
inline constexpr field jfo{"Jfo", 'i', "files for Fourier maps: no effect yet", {}, ch::none_or_some};
inline constexpr field sho{"Sho", 'i', "short listing: no effect yet", {}, ch::no_yes};
inline constexpr field ana{"Ana", 'i', "analysis of the refinement at the end", {}, ch::no_yes};

// ---- global section -------------------------------------------------------------------------------------------------

inline constexpr std::array radiation_fields{
    field{"Lambda1", 'f', "wavelength", "angstrom"},
    field{"Lambda2", 'f', "second wavelength; 0 or the same: there is one only", "angstrom"},
    field{"Ratio", 'f', "intensity of the second to the first; negative: U2 V2 W2 of the second are read"},
    field{"Bkpos", 'f', "origin of the background polynomial; 0: middle of the range", "deg"},
    field{"Wdt", 'f', "reach of a peak on both sides, at least 3", "FWHM"},
    field{"Cthm", 'f', "monochromator, cos^2(2theta_m)"},
    field{"tmv(1)", 'f', "absorption mu R (mu t), first wavelength; negative: series for strong absorption"},
    field{"Rlim", 'f', "asymmetry acts at and below this angle", "deg"},
    field{"Rkk", 'f', "polarised fraction of the beam"},
    field{"tmv(2)", 'f', "absorption at the second wavelength; 0: as the first"}};
inline constexpr line_form radiation{"radiation line", "per powder pattern, constant wavelength", radiation_fields};
inline constexpr std::array radiation_tof_fields{
    field{"Bkpos", 'f', "origin of the background polynomial; 0: middle of the range", "us or keV"},
    field{"Wdt", 'f', "reach of a peak on both sides", "FWHM"},
    field{"Iabscor", 'i', "absorption correction", {}, ch::absorptions}};
inline constexpr line_form radiation_tof{"radiation line", "per powder pattern, time of flight and energy",
                                         radiation_tof_fields};
inline constexpr std::array vary_fields{field{"VARY", '4', "frees the parameters named behind it"},
                                        field{"Word", '9', "name of a parameter, or Phase No.: with numbers"}};
inline constexpr std::array fix_fields{field{"FIX", '4', "fixes the parameters named behind it"},
                                       field{"Word", '9', "name of a parameter, or Phase No.: with numbers"}};
inline constexpr line_form vary{"VARY line", "optional, below the radiation line", vary_fields};
inline constexpr line_form fix{"FIX line", "optional, below the radiation line or the VARY line", fix_fields};

inline constexpr std::array cycles_fields{
    field{"Mcycle", 'i', "number of cycles"},
    field{"Eps", 'f', "convergence: largest shift over esd; below 0.001 it is 0.01"},
    field{"Relax1", 'f', "factor on the shifts of atoms"},
    field{"Relax2", 'f', "factor on the shifts of betas, moments and form factors"},
    field{"Relax3", 'f', "factor on the shifts of the profile"},
    field{"Relax4", 'f', "factor on the shifts of cell and pattern"}};
inline constexpr std::array range_fields{
    field{"Thmin", 'f', "start of the range", "abscissa"}, field{"Step", 'f', "step", "abscissa"},
    field{"Thmax", 'f', "end of the range", "abscissa"},
    field{"Alpsd", 'f', "incident angle of a flat plate with a position-sensitive detector", "deg"},
    field{"Sent0", 'f', "angle below which the beam is wider than the sample", "deg"}};
inline constexpr line_form cycles{"cycles line", "always; in the short form the range stands on the same line",
                                  cycles_fields};
inline constexpr line_form range{"range line", "long form, per powder pattern", range_fields};

inline constexpr std::array point_fields{field{"Position", 'f', "abscissa of the background point", "abscissa"}};
inline constexpr line_form points{"background points",
                                  "Nba above 1 or below -5, that many lines: position, height, code", point_fields};
inline constexpr std::array region_fields{field{"Low", 'f', "start of the excluded region", "abscissa"},
                                          field{"High", 'f', "end of the excluded region", "abscissa"}};
inline constexpr line_form regions{"excluded regions", "Nex lines", region_fields};
inline constexpr std::array scattering_fields{
    field{"Name", '4', "species as the atoms call it"},
    field{"Dfp", 'f', "X-rays: f'; neutrons: scattering length", "X-rays: electrons, neutrons: 1e-12 cm"},
    field{"Dfpp", 'f', "imaginary part", "as Dfp"}, field{"Ity", 'i', "kind of entry", {}, ch::entries}};
inline constexpr line_form scattering{"scattering entry", "as many as Nsc says, each with its form factor",
                                      scattering_fields};
inline constexpr std::array table_fields{field{"s", 'f', "sin(theta)/lambda; -100 ends the table", "1/angstrom"},
                                         field{"f", 'f', "form factor there", "electrons"}};
inline constexpr line_form scattering_table{"scattering table", "below a scattering entry, Nsc negative", table_fields};
inline constexpr std::array form_factor_fields{
    field{"a1", 'f', "f = sum a exp(-b s^2) + c", "electrons"},
    field{"b1", 'f', "exponent", "angstrom^2"},
    field{"a2", 'f', "second term; 0: the line is a pair s, f that is only kept", "electrons"},
    field{"b2", 'f', "exponent", "angstrom^2"},
    field{"a3", 'f', "third term", "electrons"},
    field{"b3", 'f', "exponent", "angstrom^2"},
    field{"a4", 'f', "fourth term", "electrons"},
    field{"b4", 'f', "exponent", "angstrom^2"},
    field{"c", 'f', "constant", "electrons"}};
inline constexpr line_form form_factor{"coefficients of the form factor", "below a scattering entry, Nsc positive",
                                       form_factor_fields};
inline constexpr std::array maxs_fields{field{
    "Maxs", 'i',
    "number of refined parameters: fewer than the codes carry keeps the highest fixed; with Aut 1 it is counted"}};
inline constexpr line_form maxs{"number of refined parameters", "always", maxs_fields};

inline constexpr std::array more_global_fields{field{"More", 'i', "lines that follow", {}, ch::more_global}};
inline constexpr std::array angle_fields{field{"Angle", 'f', "detector: 2theta above 2, else 2 sin(theta)", "deg"}};
inline constexpr std::array user_profile_fields{
    field{"N", 'i', "number of profiles, 1 to 10"},
    field{"File", rest, "name of a profile that is added to the background"}};
inline constexpr line_form user_profiles{"profiles in the background",
                                         "More 2 or 3; a line of factors and one of codes follow", user_profile_fields};
inline constexpr std::array filter_fields{field{"Fwindow", 'f', "window of the Fourier filter", "points"},
                                          field{"Win_cyc", 'i', "cycles between two filterings; 0: every cycle"}};
inline constexpr line_form filter{"window of the background filter", "Nba -2", filter_fields};

// ---- phase ----------------------------------------------------------------------------------------------------------

inline constexpr std::array name_fields{
    field{"Name", rest, "name of the phase; VARY xyz, FIX xyz, MAG_ONLY, NUC_ONLY in it are orders"}};
inline constexpr line_form phase_name{"name of the phase", "first line of each phase", name_fields};
inline constexpr std::array commands_fields{field{"COMMANDS", '9', "lines with a key word each follow, up to END"}};
inline constexpr std::array command_fields{field{"Key", '9', "key word of the order"},
                                           field{"Argument", rest, "its argument"}};
inline constexpr std::array domain_fields{field{"Key", '9', "fraction of a magnetic domain"},
                                          field{"Operator", '9', "operator that makes it"}};
inline constexpr std::array end_fields{field{"END", '9', "end of the command lines"}};
inline constexpr line_form commands{"command lines", "optional, below the name: COMMANDS, lines with a key, END",
                                    command_fields};

inline constexpr field nat{"Nat", 'i', "number of atoms"};
inline constexpr field dis{"Dis", 'i', "number of distance restraints"};
inline constexpr field ang{"Ang", 'i', "number of angle restraints"};
inline constexpr field pr1{"Pr1", 'f', "direction of preferred orientation, h"};
inline constexpr field pr2{"Pr2", 'f', "direction of preferred orientation, k"};
inline constexpr field pr3{"Pr3", 'f', "direction of preferred orientation, l"};
inline constexpr field jbt{"Jbt", 'i', "kind of structure", {}, ch::structures};
inline constexpr field irf{"Irf", 'i', "reflections", {}, ch::lists};
inline constexpr field isy{"Isy", 'i', "symmetry", {}, ch::symmetries};
inline constexpr field str{"Str", 'i', "form of size and strain", {}, ch::strain_forms};
inline constexpr field furth{"Furth", 'i', "further parameters; kept, without effect"};
inline constexpr field atz{"ATZ", 'f', "Z M of the cell over the multiplicity, for weight fractions; 0: calculated"};
inline constexpr field nvk{"Nvk", 'i', "number of propagation vectors; negative: their opposites are added"};
inline constexpr field npr_phase{"Npr", 'i', "peak shape of the phase; 0: that of the pattern", {}, ch::shapes};
inline constexpr field more{"More", 'i', "a line of additional flags follows", {}, ch::no_yes};
inline constexpr field jview{"Jvi", 'i', "files for structure drawings", {}, ch::none_or_some};
inline constexpr field jdist{"Jdi", 'i', "distances and angles are listed", {}, ch::distances};
inline constexpr field jhelix{"Hel", 'i', "the moments form a helix", {}, ch::no_yes};
inline constexpr field jsol{"Sol", 'i', "a line of hkl-dependent shifts stands in the profile block", {}, ch::no_yes};
inline constexpr field nmagc{"Mom", 'i', "number of moment restraints"};
inline constexpr field jter{"Ter", 'i', "kept, without effect"};
inline constexpr field brinl{"Brind", 'f', "Brindley coefficient: no effect yet", "1"};
inline constexpr field rmua{"Rmua", 'f', "particle absorption, or factor of the weights of integrated intensities"};
inline constexpr field rmub{"Rmub", 'f', "particle absorption, second value"};
inline constexpr field rmuc{"Rmuc", 'f', "particle absorption, third value"};
inline constexpr field jtyp{"Jtyp", 'i', "task and radiation for this phase; 0: those of the pattern", {}, ch::jobs};
inline constexpr field nsp_ref{"Nsp_Ref", 'i', "number of special reflections"};
inline constexpr field ph_shift{
    "Ph_Shift", 'i', "a line of shifts of this phase stands in the profile block", {}, ch::no_yes};
inline constexpr field n_domains{"N_Domains", 'i', "number of domains"};

inline constexpr std::array phase_short_fields{nat, dis, ang,   pr1, pr2, pr3,       jbt, irf,
                                               isy, str, furth, atz, nvk, npr_phase, more};
inline constexpr line_form phase_short{"flags of the phase", "short form", phase_short_fields};
inline constexpr std::array more_short_fields{jview, jdist, jhelix, jsol, nmagc,   jter,     brinl,
                                              rmua,  rmub,  rmuc,   jtyp, nsp_ref, ph_shift, n_domains};
inline constexpr line_form more_short{"additional flags of the phase", "short form, More not 0", more_short_fields};
inline constexpr std::array phase_long_fields{nat, dis, ang, jbt, isy, str, furth, atz, nvk, more};
inline constexpr line_form phase_long{"flags of the phase", "long form", phase_long_fields};
inline constexpr std::array more_long_fields{jview, jdist, jhelix, jsol, nmagc, jter, n_domains};
inline constexpr line_form more_long{"additional flags of the phase", "long form, More not 0", more_long_fields};
inline constexpr std::array contribution_fields{
    field{"Contr", 'i', "the phase contributes to the pattern", {}, ch::no_yes}};
inline constexpr line_form contributions{"contributions of the phase", "long form, a number per pattern",
                                         contribution_fields};
inline constexpr std::array contribution_flag_fields{irf, npr_phase, jtyp, nsp_ref, ph_shift};
inline constexpr line_form contribution_flags{"flags of the phase in the pattern", "long form, per contribution",
                                              contribution_flag_fields};
inline constexpr std::array direction_fields{pr1, pr2, pr3, brinl, rmua, rmub, rmuc};
inline constexpr line_form direction{"direction line", "long form, per contribution, below its flags",
                                     direction_fields};
inline constexpr std::array hkl_fields{field{"FILE_HKL", '9', "reflection file of the phase"},
                                       field{"Pattern", 'i', "pattern it belongs to; may be left out: 1"},
                                       field{"File", rest, "name of the file"},
                                       field{"Phase", 'i', "number of the phase in that file; may be left out"}};
inline constexpr std::array hkl_fields_short{hkl_fields[0], hkl_fields[2], hkl_fields[3]};
inline constexpr line_form hkl_file{"FILE_HKL line", "optional, any number", hkl_fields};
inline constexpr std::array distance_limit_fields{
    field{"Dis_max", 'f', "largest distance", "angstrom"},
    field{"Ang_max", 'f', "largest distance of the bonds of an angle", "angstrom"},
    field{"BVS", '6', "the word BVS: bond-valence sums are wanted"}};
inline constexpr line_form distance_limits{"limits of distances and angles", "Dis or Ang not 0", distance_limit_fields};
inline constexpr std::array bvs_fields{field{"N_cations", 'i', "number of cations"},
                                       field{"N_anions", 'i', "number of anions"},
                                       field{"Tolerance", 'f', "of the sum of the radii", "%"}};
inline constexpr line_form bvs{"line of the bond-valence sums", "with the word BVS", bvs_fields};
inline constexpr std::array bvs_name_fields{field{"Ion", '6', "cation with its charge, then the anions"}};
inline constexpr line_form bvs_names{"names of cations and anions", "with the word BVS", bvs_name_fields};

inline constexpr std::array space_group_fields{
    field{"Space group", rest, "Hermann-Mauguin symbol, or HALL and a Hall symbol; text behind < is a remark"}};
inline constexpr line_form space_group{"space group", "always", space_group_fields};
inline constexpr field nsym{"Nsym", 'i', "number of operators"};
inline constexpr field cen{"Cen", 'i', "centre", {}, ch::centres};
inline constexpr field laue{"Laue", 'i', "Laue class", {}, ch::classes};
inline constexpr std::array hand_fields{nsym, cen, laue, field{"MagMat", 'i', "magnetic matrices per operator"},
                                        field{"DepMat", 'i', "displacement matrices per operator"}};
inline constexpr line_form hand_symmetry{"header of the symmetry operators", "Isy 1 or -1", hand_fields};
inline constexpr std::array basis_header_fields{nsym, cen, laue, field{"Ireps", 'i', "number of representations"},
                                                field{"N_Bas", 'i', "basis functions per representation"}};
inline constexpr line_form basis_header{"header of the symmetry operators", "Isy -2", basis_header_fields};
inline constexpr std::array indicator_fields{
    field{"Ci", 'i', "coefficient of the basis function", {}, ch::coefficients}};
inline constexpr line_form indicators{"line of real and imaginary coefficients", "Isy -2, a line per representation",
                                      indicator_fields};
inline constexpr std::array operator_text_fields{field{"SYMM", '4', "operator as text"},
                                                 field{"x,y,z", rest, "the general position that it makes"}};
inline constexpr std::array operator_fields{
    field{"S11", 'f', "rotation"},        field{"S12", 'f', "rotation"},        field{"S13", 'f', "rotation"},
    field{"T1", 'f', "translation", "a"}, field{"S21", 'f', "rotation"},        field{"S22", 'f', "rotation"},
    field{"S23", 'f', "rotation"},        field{"T2", 'f', "translation", "b"}, field{"S31", 'f', "rotation"},
    field{"S32", 'f', "rotation"},        field{"S33", 'f', "rotation"},        field{"T3", 'f', "translation", "c"}};
inline constexpr line_form symmetry_operator{"symmetry operator", "symmetry by hand: SYMM and text, or twelve numbers",
                                             operator_fields};
inline constexpr std::array matrix_text_fields{field{"MSYM/DSYM", '4', "magnetic or displacement matrix as text"},
                                               field{"u,v,w,phase", rest, "its rows, and the phase in units of 2 pi"}};
inline constexpr std::array matrix_fields{field{"M11", 'f', "matrix"}, field{"M12", 'f', "matrix"},
                                          field{"M13", 'f', "matrix"}, field{"M21", 'f', "matrix"},
                                          field{"M22", 'f', "matrix"}, field{"M23", 'f', "matrix"},
                                          field{"M31", 'f', "matrix"}, field{"M32", 'f', "matrix"},
                                          field{"M33", 'f', "matrix"}, field{"Ph", 'f', "phase", "2 pi"}};
inline constexpr line_form magnetic_matrix{
    "magnetic matrix", "below each operator, MagMat lines: MSYM and text, or ten numbers", matrix_fields};
inline constexpr line_form displacement_matrix{
    "displacement matrix", "below each operator, DepMat lines: DSYM and text, or ten numbers", matrix_fields};
inline constexpr std::array basis_fields{field{"x", 'f', "component of a basis function"}, field{"y", 'f', "component"},
                                         field{"z", 'f', "component"}};
inline constexpr line_form basis_functions{
    "basis functions (BASR)", "Isy -2, below each operator per representation: BASR real parts, BASI imaginary",
    basis_fields};

// ---- atoms ----------------------------------------------------------------------------------------------------------

inline constexpr field label{"Atom", '6', "label"};
inline constexpr field species{"Typ", '4', "scattering species"};
inline constexpr field imagr{"Imagr", 'i', "number of the magnetic matrix or of the representation"};
inline constexpr field ikv{"Ikv", 'i', "number of the propagation vector"};
inline constexpr field n_t{"N_t", 'i', "kind of atom", {}, ch::atom_kinds};
inline constexpr field spc{"Spc", 'i', "number of the species, for bond valences"};
inline constexpr std::array nuclear_atom_fields{label, species};
inline constexpr std::array magnetic_atom_fields{label, species, imagr, ikv};
inline constexpr std::array behind_nuclear_atom_fields{field{"In", 'i', "first operator of the atom; 0: all"},
                                                       field{"Fin", 'i', "last operator of the atom"}, n_t, spc};
inline constexpr std::array behind_common_atom_fields{n_t, spc};
inline constexpr std::array spherical_fields{field{"Type", '4', "ylmp or klj"},
                                             field{"Terms", 'i', "number of terms, at most 12"},
                                             field{"Axes", 'f', "matrix of its axes; all 0: the identity"}};
inline constexpr std::array spherical_type_fields{spherical_fields[0], spherical_fields[1]};
inline constexpr std::array spherical_axis_fields{spherical_fields[2]};
inline constexpr line_form spherical{"form factor of the atom (SASH)", "species SASH", spherical_fields};
inline constexpr std::array lm_fields{field{"l", 'i', "of the term"}, field{"m", 'i', "of the term"},
                                      field{"+-", 'i', "sign of the term"}};
inline constexpr std::array radial_kind_fields{field{"Radial", 'i', "kind of the radial function"}};
inline constexpr std::array radial_scale_fields{field{"Scale", 'f', "of the radial function; up to 1e-7: none"}};
inline constexpr std::array coupled_kind_fields{field{"Kind", 'i', "of the coupling"}};
inline constexpr std::array coupled_fields{field{"Atom", '6', "label of a coupled atom"}};
inline constexpr std::array distance_cell_fields{
    field{"R1", 'f', "row of the matrix of the cell for distances"}, field{"R2", 'f', "row of the matrix"},
    field{"R3", 'f', "row of the matrix"}, field{"T", 'f', "component of its origin"}};
inline constexpr line_form distance_cell{"cell for the distances", "Jdi 2 or -2, three lines below the atoms",
                                         distance_cell_fields};

// ---- profile block --------------------------------------------------------------------------------------------------

inline constexpr std::array strain_model_fields{
    field{"Strain-Model", 'i', "model of the anisotropic strain, 1 to 14 and -1 to -14; 0: none"}};
inline constexpr std::array strain_class_fields{
    field{"Strain-Model", 'i', "Laue class of the form of the strain; 0: none", {}, ch::classes}};
inline constexpr std::array size_model_fields{
    field{"Size-Model", 'i', "size; -2 to -9: that many conditions below", {}, ch::size_models}};
inline constexpr std::array shift_model_fields{field{
    "ModS", 'i', "shift; 101 to 114: quartic form of class - 100; -1 to -10: conditions below", {}, ch::shift_models}};
inline constexpr std::array scales_fields{field{"Num_scale", 'i', "number of scale factors, at most 36"}};
inline constexpr std::array extinction_fields{field{"Ext-Model", 'i', "extinction", {}, ch::extinctions}};
inline constexpr std::array size_direction_fields{field{"h", 'f', "direction of platelet or needle"},
                                                  field{"k", 'f', "direction"}, field{"l", 'f', "direction"}};
inline constexpr std::array axes_fields{field{"Naxes", 'i', "number of directions of preferred orientation, 1 to 5"},
                                        field{"N_Int_steps", 'i', "steps of the ring average (Nor 3); 0: 20"}};
inline constexpr std::array axis_fields{field{"h", 'f', "direction of the axis"}, field{"k", 'f', "direction"},
                                        field{"l", 'f', "direction"}};
inline constexpr std::array condition_fields{
    field{"n1", 'i', "reflections with n1 h + n2 k + n3 l ="}, field{"n2", 'i', "factor of k"},
    field{"n3", 'i', "factor of l"}, field{"n4", 'i', "= n n4 + n5, any integer n"}, field{"n5", 'i', "remainder"}};
inline constexpr std::array special_fields{field{"h", 'i', "special reflection"}, field{"k", 'i', "index"},
                                           field{"l", 'i', "index"},
                                           field{"nvk", 'i', "number of the propagation vector"}};

// ---- restraints, limits, search -------------------------------------------------------------------------------------

inline constexpr field operator_number{"Oper", 'i', "operator applied to the atom before; 0: 1"};
inline constexpr field t_x{"Tx", 'f', "lattice translation of that atom", "a"};
inline constexpr field t_y{"Ty", 'f', "lattice translation of that atom", "b"};
inline constexpr field t_z{"Tz", 'f', "lattice translation of that atom", "c"};
inline constexpr std::array distance_fields{field{"Atom1", '6', "label"},
                                            field{"Atom2", '6', "label"},
                                            operator_number,
                                            t_x,
                                            t_y,
                                            t_z,
                                            field{"Dist", 'f', "wanted distance", "angstrom"},
                                            field{"Sigma", 'f', "its esd; 0: listed only", "angstrom"}};
inline constexpr line_form distance_restraint{"distance restraint", "Dis lines behind the profile blocks of the phase",
                                              distance_fields};
inline constexpr std::array angle_restraint_fields{field{"Atom1", '6', "label"},
                                                   field{"Atom2", '6', "label of the vertex"},
                                                   field{"Atom3", '6', "label"},
                                                   field{"Oper1", 'i', "operator applied to atom 1; 0: 1"},
                                                   field{"Oper3", 'i', "operator applied to atom 3; 0: 1"},
                                                   field{"Tx1", 'f', "translation of atom 1", "a"},
                                                   field{"Ty1", 'f', "translation of atom 1", "b"},
                                                   field{"Tz1", 'f', "translation of atom 1", "c"},
                                                   field{"Tx3", 'f', "translation of atom 3", "a"},
                                                   field{"Ty3", 'f', "translation of atom 3", "b"},
                                                   field{"Tz3", 'f', "translation of atom 3", "c"},
                                                   field{"Angle", 'f', "wanted angle", "deg"},
                                                   field{"Sigma", 'f', "its esd; 0: listed only", "deg"}};
inline constexpr line_form angle_restraint{"angle restraint", "Ang lines", angle_restraint_fields};
inline constexpr std::array moment_fields{field{"Atom", '6', "label"},
                                          field{"Moment", 'f', "wanted size", "Bohr magnetons"},
                                          field{"Sigma", 'f', "its esd; 0: listed only", "Bohr magnetons"}};
inline constexpr line_form moment_restraint{"moment restraint", "Mom lines", moment_fields};

inline constexpr std::array linear_fields{field{"Value", 'f', "sum of coefficient times parameter"},
                                          field{"Sigma", 'f', "its esd; 0: listed only"},
                                          field{"N", 'i', "number of terms, 1 to 10; negative: listed only"}};
inline constexpr std::array term_fields{field{"Coef", 'f', "coefficient"},
                                        field{"Param", 'i', "number of the parameter; 0: none, not applied"}};
inline constexpr std::array linear_line_fields{linear_fields[0], linear_fields[1], linear_fields[2], term_fields[0],
                                               term_fields[1]};
inline constexpr line_form linear_restraint{
    "linear restraint", "Nli lines behind the phases; the last two fields stand N times", linear_line_fields};
inline constexpr std::array limit_fields{field{"Param", 'i', "number of the parameter; 0: of none, the line waits"},
                                         field{"Low", 'f', "lower limit"}, field{"High", 'f', "upper limit"},
                                         field{"Step", 'f', "largest move in a search"},
                                         field{"Cond", 'i', "at a limit, in a search", {}, ch::conditions}};
inline constexpr line_form limits{"limits of a parameter", "Nre lines; text behind the fields is a remark",
                                  limit_fields};
inline constexpr std::array monte_carlo_fields{
    field{"Nconf", 'i', "configurations"},
    field{"Nsolu", 'i', "solutions kept, 1 to 10"},
    field{"Nref", 'i', "reflections used; 0: all"},
    field{"Nscalef", 'i', "scale fitted to each configuration", {}, ch::no_yes},
    field{"Seed1", 'i', "start of the random numbers; 0 0: from the clock"},
    field{"Seed2", 'i', "second seed"}};
inline constexpr line_form monte_carlo{"search parameters", "Cry 2 or -2", monte_carlo_fields};
inline constexpr std::array annealing_fields{field{"T_ini", 'f', "first temperature; 0: 10"},
                                             field{"Anneal", 'f', "factor from one temperature to the next; 0: 0.9"},
                                             field{"Accept", 'f', "least accepted moves", "%"},
                                             field{"Num_temps", 'i', "largest number of temperatures; 0: 60"},
                                             field{"Nalgor", 'i', "step sizes", {}, ch::algorithms},
                                             field{"Initconf", 'i', "start", {}, ch::starts}};
inline constexpr line_form annealing{"search parameters", "Cry 3 or -3, first line", annealing_fields};
inline constexpr std::array annealing_more_fields{
    field{"Nconfg", 'i', "configurations per temperature; 0: 50"},
    field{"Num_therm", 'i', "of them not counted"},
    field{"Nscalef", 'i', "scale fitted to each configuration", {}, ch::no_yes},
    field{"Weight", 'i', "the cost is weighted", {}, ch::no_yes},
    field{"Seed1", 'i', "start of the random numbers; 0 0: from the clock"},
    field{"Seed2", 'i', "second seed"}};
inline constexpr line_form annealing_more{"search parameters", "Cry 3 or -3, second line", annealing_more_fields};
inline constexpr std::string_view passed_over_name = "behind the last line";
inline constexpr std::array passed_over_fields{
    field{"Text", rest, "passed over: the flags ask for no further line here"}};
inline constexpr std::array plot_key_fields{field{"Text", rest, "announces the line of the plotted range"}};
inline constexpr std::array plot_fields{field{"From", 'f', "start of the plotted range", "abscissa"},
                                        field{"To", 'f', "end of the plotted range", "abscissa"},
                                        field{"Pattern", 'i', "number of the pattern"}};
inline constexpr line_form pattern_to_plot{"pattern to plot", "optional, behind a line with the words Pattern to plot",
                                           plot_fields};

}  // namespace pcr_forms
