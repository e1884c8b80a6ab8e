// kv_structure_factors: squared structure factors of a nuclear phase and their derivatives by the atom parameters.
// It owns the prepared model of a phase in a pattern; the state is read when the model is made, never in the kernel.
// Terms are single precision, sums over atoms double. The reflection is rotated (hs = h R), never the atom.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "kalvaris_params.hpp"

namespace kv_structure_factors {

/// One atom parameter whose derivative is wanted: atom counted from the first of the phase, k = aslot:: column.
struct column {
  int atom = 0, k = 0;
};

/// Scattering of one species at one s: real part (f0 + f', or length), imaginary part.
struct scattering_value {
  double re = 0, im = 0;
};

/// Scattering of an entry at s2 = (sin(theta)/lambda)^2 [1/angstrom^2]: X-ray form factor with f', f'' [electrons];
/// neutrons the length [1e-12 cm]; electrons (Z - f) 0.023934/s2 by Mott and Bethe, no imaginary part.
/// A table is interpolated linearly in sin(theta)/lambda, its end values hold outside.
[[nodiscard]] scattering_value scattering_at(const kalvaris_params::scattering_entry& entry, double s2, bool electrons);

/// A phase in a pattern, laid out for the kernel.
struct phase_model {
  struct atom {
    float x = 0, y = 0, z = 0, biso = 0, occ = 0;
    std::array<float, 6> beta{};  ///< 11 22 33 12 13 23
    bool anisotropic = false;
    int species = -1;               ///< index into entries, -1: scatters nothing
    int first_op = 0, last_op = 0;  ///< half-open range of operators summed for this atom
    bool wants_position = false, wants_beta = false;
  };
  std::vector<atom> atoms;
  std::vector<column> columns;  ///< derivatives wanted, in this order
  std::vector<kalvaris_params::scattering_entry> entries;
  std::array<std::vector<float>, 9> rot;  ///< rotation parts of the operators, element (i,j) in rot[3i+j]
  std::array<std::vector<float>, 3> tr;
  int n_ops = 0;
  int nlatti = 1;                    ///< centring vectors
  bool inversion_at_origin = false;  ///< half of the operators is summed and the sine sums vanish
  bool electrons = false;
};

/// Lays out phase ph (0-based) for pattern ip with the atoms' current values. columns: what to differentiate by.
/// Operators: the reduced set of the group, with their inverses when the centre of symmetry is off the origin.
[[nodiscard]] phase_model prepare(const kalvaris_params::state_type& st, int ph, int ip, std::vector<column> columns);

/// Work arrays of stfac; one per thread of work, reused from call to call.
struct workspace {
  std::array<std::vector<float>, 3> hs;
  std::vector<float> ht, cosine, sine;
  std::vector<scattering_value> f;
  std::vector<std::array<double, 10>> d_cos, d_sin;  ///< per column owner: sums over operators, see the source
  std::vector<double> a1, b1, f1, f2;
};

struct result {
  double fsq = 0;       ///< nlatti (|F(h)|^2 + |F(-h)|^2)/2 over the summed operators [electrons^2 or 1e-24 cm^2]
  double a = 0, b = 0;  ///< real and imaginary part of F(h)
};

/// F^2 of the reflection h at s2 = (sin(theta)/lambda)^2. dfsq: empty, or one place per column of the model for
/// dF^2/d(column). A powder line holds h and its Friedel mate, so the mean of both squares is taken: it differs from
/// |F(h)|^2 when the group has no centre and some atom has an imaginary part.
result stfac(const phase_model& model, const std::array<float, 3>& h, double s2, workspace& work,
             std::span<double> dfsq);

}  // namespace kv_structure_factors
