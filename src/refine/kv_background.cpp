#include "kv_background.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "lmix_list_input.hpp"
#include "lmix_math_general.hpp"
#include "lmix_text_input.hpp"

namespace kv_background {

namespace {

using kalvaris_params::pattern_type;
namespace gslot = kalvaris_params::gslot;

constexpr int n_polynomial = 6, n_polynomial12 = 12, n_powers12 = 9, n_cosine = 18, n_chebychev = 24, n_debye = 6;
constexpr int n_file = 4, debye_end = gslot::debye_dist + n_debye;
constexpr double degree = std::numbers::pi / 180.0;

constexpr std::array<bg_model, 9> bg_models{{
    {model::polynomial, " => Background refined by polynomial function", n_polynomial},
    {model::file, " => Background read from file", n_file},
    {model::debye, " => Background refined by polynomial + Debye-like function", debye_end - gslot::bac},
    {model::filter, " => Background adjusted by Fourier filtering ", 0},
    {model::polynomial12, " => Background refined by 12-term polynomial function", n_polynomial12},
    {model::cosine, " => Background refined by cosine Fourier series", n_cosine},
    {model::chebychev, " => Background refined by Chebychev polynomials", n_chebychev},
    {model::linear_nodes, " => Background by linear interpolation between given points", 0},
    {model::spline_nodes, " => Background by cubic splines through given points", 0},
}};

bool analytic(model m) {
  return m != model::file && m != model::filter && m != model::linear_nodes && m != model::spline_nodes;
}

bool nodes(model m) { return m == model::linear_nodes || m == model::spline_nodes; }

double x_at(const pattern_type& p, int i) { return static_cast<double>(p.txv[static_cast<std::size_t>(i)]); }

double scattering_q(const pattern_type& p, double x) {
  return 4.0 * std::numbers::pi * std::sin(0.5 * x * degree) / static_cast<double>(p.lamda[0]);
}

/// Natural cubic spline as weights: value at x = sum of weight_j height_j. The second derivatives are linear in the
/// heights; their matrix is made once (W. H. Press et al., Numerical Recipes, natural boundary conditions).
struct spline_weights {
  std::vector<double> at;                   ///< abscissae of the nodes
  std::vector<std::vector<double>> second;  ///< second[j][i]: second derivative at node i for unit height j

  explicit spline_weights(const std::vector<float>& pos) : at(pos.begin(), pos.end()) {
    const std::size_t n = at.size();
    second.assign(n, std::vector<double>(n, 0.0));
    if (n < 3) return;
    std::vector<double> height(n), u(n), diagonal(n);
    for (std::size_t j = 0; j < n; ++j) {
      std::fill(height.begin(), height.end(), 0.0);
      height[j] = 1.0;
      std::vector<double>& y2 = second[j];
      u[0] = 0.0;
      for (std::size_t i = 1; i + 1 < n; ++i) {
        const double width = at[i + 1] - at[i - 1];
        const double sig = (at[i] - at[i - 1]) / width;
        const double p = sig * y2[i - 1] + 2.0;
        y2[i] = (sig - 1.0) / p;
        const double bend =
            (height[i + 1] - height[i]) / (at[i + 1] - at[i]) - (height[i] - height[i - 1]) / (at[i] - at[i - 1]);
        u[i] = (6.0 * bend / width - sig * u[i - 1]) / p;
      }
      y2[n - 1] = 0.0;
      for (std::size_t i = n - 1; i-- > 0;) y2[i] = y2[i] * y2[i + 1] + u[i];
      y2[0] = 0.0;
    }
  }

  /// Weight of the height of node j at abscissa x; constant outside the nodes.
  [[nodiscard]] double operator()(std::size_t j, double x) const {
    const std::size_t n = at.size();
    if (x <= at.front()) return j == 0 ? 1.0 : 0.0;
    if (x >= at.back()) return j + 1 == n ? 1.0 : 0.0;
    const auto next = static_cast<std::size_t>(std::upper_bound(at.begin(), at.end(), x) - at.begin());
    const double h = at[next] - at[next - 1];
    const double a = (at[next] - x) / h, b = 1.0 - a;
    const double line = (j == next - 1 ? a : 0.0) + (j == next ? b : 0.0);
    return line + ((a * a * a - a) * second[j][next - 1] + (b * b * b - b) * second[j][next]) * h * h / 6.0;
  }
};

/// Weights of the two nodes around x: constant before the first and behind the last node, a flat segment where two
/// nodes are no more than 0.0001 apart.
struct two_weights {
  std::size_t left;
  double w_left, w_right;
};
two_weights linear_weights(const std::vector<float>& pos, double x) {
  const std::size_t n = pos.size();
  if (n == 1 || x <= static_cast<double>(pos.front())) return {0, 1.0, 0.0};
  const auto next = static_cast<std::size_t>(
      std::upper_bound(pos.begin(), pos.end(), x, [](double v, float p) { return v < static_cast<double>(p); }) -
      pos.begin());
  if (next >= n) return {n - 2, 0.0, 1.0};
  const double left = static_cast<double>(pos[next - 1]), width = static_cast<double>(pos[next]) - left;
  if (width <= 1.0e-4) return {next - 1, 1.0, 0.0};
  const double w = (x - left) / width;
  return {next - 1, 1.0 - w, w};
}

/// Basis functions of an analytic model at one abscissa, slot gslot::bac + n in place n; Debye derivatives as well.
/// `for_value`: the polynomial holds its abscissa at 0.1 or above, as the value does.
void analytic_basis(const pattern_type& p, model m, double x, bool for_value, std::array<double, debye_end>& out) {
  const auto at = [&](int slot) -> double& { return out[static_cast<std::size_t>(slot)]; };
  if (m == model::chebychev || m == model::cosine) {
    const bool chebychev = m == model::chebychev;
    const double lo = static_cast<double>(p.thmin), hi = static_cast<double>(p.thmax);
    const double c1 = chebychev ? std::clamp((2.0 * x - lo - hi) / (hi - lo), -1.0, 1.0) : std::cos(x * degree);
    double before = 1.0, now = c1;
    at(gslot::bac) = 1.0;
    for (int n = 1; n < (chebychev ? n_chebychev : n_cosine); ++n) {
      at(gslot::bac + n) = now;
      const double next = 2.0 * c1 * now - before;  // cos((n+1)t) = 2 cos t cos nt - cos((n-1)t)
      before = now;
      now = next;
    }
    return;
  }
  const double q = for_value ? std::max(x, 0.1) : x;
  const double t = q / static_cast<double>(p.bkpos) - 1.0;
  const int powers = m == model::polynomial12 ? n_powers12 : n_polynomial;
  double power = 1.0;
  for (int n = 0; n < powers; ++n, power *= t) at(gslot::bac + n) = power;
  if (m == model::polynomial12)
    for (int n = 0; n < 3; ++n) at(gslot::bac + n_powers12 + n) = std::pow(q, -(n + 1));
  if (m != model::debye) return;
  const double sq = scattering_q(p, x);
  for (int j = 0; j < n_debye; ++j) {
    const double d = static_cast<double>(p.glb[static_cast<std::size_t>(gslot::debye_dist + j)]);
    const double amplitude = static_cast<double>(p.glb[static_cast<std::size_t>(gslot::debye_amp + j)]);
    const double qd = sq * d;
    const bool alive = sq > 0.0 && std::abs(qd) > 1.0e-12;
    at(gslot::debye_amp + j) = alive ? std::sin(qd) / qd : 1.0;
    at(gslot::debye_dist + j) = alive ? (qd * std::cos(qd) - std::sin(qd)) * amplitude / (qd * d) : 0.0;
  }
}

/// Slots that enter the value of an analytic model linearly.
int value_end(model m) {
  switch (m) {
    case model::chebychev:
      return gslot::bac + n_chebychev;
    case model::cosine:
      return gslot::bac + n_cosine;
    case model::polynomial12:
      return gslot::bac + n_polynomial12;
    default:
      return gslot::bac + n_polynomial;
  }
}

void add_user_profiles(pattern_type& p) {
  if (p.iglmore != 2 && p.iglmore != 3) return;
  for (std::size_t j = 0; j < p.bk_pr.size(); ++j)
    for (std::size_t i = 0; i < p.bk.size() && i < p.bk_pr[j].size(); ++i)
      p.bk[i] += p.bk_pr[j][i] * p.glb[gslot::user_bk + j];
}

/// Values of the scaled file: index into bk as a real number, the segment below it.
struct file_place {
  std::size_t i;
  double fraction;
};
file_place file_index(const pattern_type& p, double x, int i) {
  const double c = static_cast<double>(p.glb[gslot::bfile_c]), d = static_cast<double>(p.glb[gslot::bfile_d]);
  const double moved = (1.0 + c) * x + d;
  double index = 0.0;
  if (p.iconstep) {
    index = (moved - static_cast<double>(p.thmin)) / static_cast<double>(p.step);
  } else if (i > 0) {
    index = (moved - static_cast<double>(p.thmin)) * i / (x - static_cast<double>(p.thmin));
  }
  const double floor_index = std::clamp(std::floor(index), 0.0, static_cast<double>(std::max(p.npts - 2, 0)));
  return {static_cast<std::size_t>(floor_index), index - floor_index};
}

double file_value(const pattern_type& p, const file_place& at) {
  const double here = static_cast<double>(p.bk[at.i]);
  return at.i + 1 < p.bk.size() ? here + at.fraction * (static_cast<double>(p.bk[at.i + 1]) - here) : here;
}

/// Derivatives of the scaled file by a, b, c, d at point i.
std::array<double, n_file> file_derivatives(const pattern_type& p, int i) {
  const double x = x_at(p, i);
  const file_place at = file_index(p, x, i);
  const double slope =
      at.i + 1 < p.bk.size() ? static_cast<double>(p.bk[at.i + 1]) - static_cast<double>(p.bk[at.i]) : 0.0;
  const double index_per_x = p.iconstep ? 1.0 / static_cast<double>(p.step)
                             : i > 0    ? i / (x - static_cast<double>(p.thmin))
                                        : 0.0;
  const double by_shift = static_cast<double>(p.glb[gslot::bfile_a]) * slope * index_per_x;
  return {file_value(p, at), 1.0, by_shift * x, by_shift};
}

}  // namespace

const bg_model& find_bg(int nbckgd, int isbac) {
  const auto row = [](model m) -> const bg_model& { return bg_models[static_cast<std::size_t>(m)]; };
  if (nbckgd == 0) return row(model::polynomial);
  if (isbac > 0) return row(nbckgd == 1 ? model::file : model::linear_nodes);
  switch (nbckgd) {
    case 1:
      return row(model::debye);
    case 2:
      return row(model::filter);
    case 3:
      return row(model::polynomial12);
    case 4:
      return row(model::cosine);
    case 5:
      return row(model::chebychev);
    default:
      return row(model::spline_nodes);
  }
}

model model_of(const pattern_type& pattern) { return find_bg(pattern.nbckgd, pattern.isbac).kind; }

std::vector<int> slots(const pattern_type& pattern) {
  std::vector<int> list;
  const auto add = [&](int first, int n) {
    for (int k = first; k < first + n; ++k) list.push_back(k);
  };
  const model m = model_of(pattern);
  if (nodes(m)) {
    add(gslot::bac, static_cast<int>(pattern.pos.size()));
  } else if (m == model::debye) {
    add(gslot::bac, n_polynomial);
    add(gslot::debye_amp, 2 * n_debye);
  } else {
    add(gslot::bac, find_bg(pattern.nbckgd, pattern.isbac).n_coefficients);
  }
  if (pattern.iglmore == 2 || pattern.iglmore == 3) add(gslot::user_bk, pattern.nbk_pr);
  return list;
}

void set_flags(pattern_type& pattern) {
  const model m = model_of(pattern);
  pattern.brea = m == model::file;
  pattern.bref = analytic(m) || (nodes(m) && pattern.brefint) || pattern.brea;
}

namespace {

/// Derivatives of the background before it is cut.
void uncut_rows(const pattern_type& pattern, std::span<const int> wanted, int first, int count, float* rows,
                std::size_t stride) {
  const model m = model_of(pattern);
  const auto row = [&](std::size_t j) { return rows + j * stride; };
  const std::size_t n_model = static_cast<std::size_t>(
      std::lower_bound(wanted.begin(), wanted.end(), static_cast<int>(gslot::user_bk)) - wanted.begin());

  if (m == model::linear_nodes) {
    for (int i = 0; i < count; ++i) {
      const two_weights w = linear_weights(pattern.pos, x_at(pattern, first + i));
      for (std::size_t j = 0; j < n_model; ++j) {
        const auto node = static_cast<std::size_t>(wanted[j] - gslot::bac);
        row(j)[i] = static_cast<float>(node == w.left ? w.w_left : node == w.left + 1 ? w.w_right : 0.0);
      }
    }
  } else if (m == model::spline_nodes) {
    const spline_weights weight(pattern.pos);
    for (std::size_t j = 0; j < n_model; ++j)
      for (int i = 0; i < count; ++i)
        row(j)[i] =
            static_cast<float>(weight(static_cast<std::size_t>(wanted[j] - gslot::bac), x_at(pattern, first + i)));
  } else if (m == model::file) {
    for (int i = 0; i < count; ++i) {
      const auto d = file_derivatives(pattern, first + i);
      for (std::size_t j = 0; j < n_model; ++j)
        row(j)[i] = static_cast<float>(d[static_cast<std::size_t>(wanted[j] - gslot::bac)]);
    }
  } else if (analytic(m)) {
    std::array<double, debye_end> basis{};
    for (int i = 0; i < count; ++i) {
      analytic_basis(pattern, m, x_at(pattern, first + i), false, basis);
      for (std::size_t j = 0; j < n_model; ++j)
        row(j)[i] = static_cast<float>(basis[static_cast<std::size_t>(wanted[j])]);
    }
  }
  for (std::size_t j = n_model; j < wanted.size(); ++j) {
    const auto& profile = pattern.bk_pr[static_cast<std::size_t>(wanted[j] - gslot::user_bk)];
    std::copy_n(profile.begin() + first, count, row(j));
  }
}

}  // namespace

void derivative_rows(const pattern_type& pattern, std::span<const int> wanted, int first, int count, float* rows,
                     std::size_t stride) {
  uncut_rows(pattern, wanted, first, count, rows, stride);
  const auto cut = [&](int i) { return pattern.bk_cut[static_cast<std::size_t>(first + i)] != 0; };
  if (pattern.bk_cut.empty()) return;
  for (int i = 0; i < count; ++i)
    for (std::size_t j = 0; cut(i) && j < wanted.size(); ++j) rows[j * stride + static_cast<std::size_t>(i)] = 0.f;
}

void build(pattern_type& pattern) {
  const model m = model_of(pattern);
  if (m == model::file || m == model::filter) return;
  pattern.bk.assign(static_cast<std::size_t>(pattern.npts), 0.f);
  if (nodes(m)) {
    if (pattern.pos.empty()) return;
    const auto height = [&](std::size_t j) { return static_cast<double>(pattern.glb[gslot::bac + j]); };
    const spline_weights spline(m == model::spline_nodes ? pattern.pos : std::vector<float>{});
    for (int i = 0; i < pattern.npts; ++i) {
      double value = 0.0;
      if (m == model::linear_nodes) {
        const two_weights w = linear_weights(pattern.pos, x_at(pattern, i));
        value = w.w_left * height(w.left) + (w.w_right != 0.0 ? w.w_right * height(w.left + 1) : 0.0);
      } else {
        for (std::size_t j = 0; j < pattern.pos.size(); ++j) value += spline(j, x_at(pattern, i)) * height(j);
      }
      pattern.bk[static_cast<std::size_t>(i)] = static_cast<float>(value);
    }
  } else {
    std::array<double, debye_end> basis{};
    const int end = value_end(m);
    for (int i = 0; i < pattern.npts; ++i) {
      analytic_basis(pattern, m, x_at(pattern, i), true, basis);
      double value = 0.0;
      for (int k = gslot::bac; k < end; ++k)
        value += basis[static_cast<std::size_t>(k)] * static_cast<double>(pattern.glb[static_cast<std::size_t>(k)]);
      if (m == model::debye)
        for (int k = gslot::debye_amp; k < gslot::debye_dist; ++k)
          value += basis[static_cast<std::size_t>(k)] * static_cast<double>(pattern.glb[static_cast<std::size_t>(k)]);
      pattern.bk[static_cast<std::size_t>(i)] = static_cast<float>(value);
    }
  }
  add_user_profiles(pattern);
  if (!pattern.refining()) return;
  pattern.bk_cut.assign(pattern.bk.size(), 0);
  for (std::size_t i = 0; i < pattern.bk.size(); ++i) {
    float& b = pattern.bk[i];
    if (!(b > pattern.yo_max || b < 0.f)) continue;
    b = 0.f;  // kept: a background that runs away falls to 0, it is not capped
    pattern.bk_cut[i] = 1;
  }
  // cut nearly everywhere its slopes before the cut are all that leads back
  if (2 * std::ranges::count(pattern.bk_cut, 1) > std::ssize(pattern.bk_cut)) pattern.bk_cut.assign(pattern.bk.size(), 0);
}

float backa(const pattern_type& pattern, int i) {
  if (!pattern.brea) return pattern.bk[static_cast<std::size_t>(i)];
  const double b = file_value(pattern, file_index(pattern, x_at(pattern, i), i));
  return static_cast<float>(b * static_cast<double>(pattern.glb[gslot::bfile_a]) +
                            static_cast<double>(pattern.glb[gslot::bfile_b]));
}

bool load_file(std::string_view content, pattern_type& pattern, std::string& reason) {
  auto source = lmix_text_input::text_source::from_string(content);
  std::vector<double> numbers;
  std::size_t per_line = 0;
  bool same_count = true;
  while (auto line = source.next()) {
    if (lmix_text_input::is_blank_or_comment(*line)) continue;
    const std::size_t before = numbers.size();
    lmix_list_input::list_scanner scanner(*line);
    double value = 0.0;
    auto status = lmix_list_input::list_status::value;
    while ((status = scanner.read(value)) == lmix_list_input::list_status::value) numbers.push_back(value);
    const bool words_behind_range = before == 0 && numbers.size() == 3;  // a title may follow thmin step thmax
    if (status == lmix_list_input::list_status::bad && !words_behind_range) {
      reason = "line " + std::to_string(source.lines_taken()) + " holds something that is no number";
      return false;
    }
    const std::size_t here = numbers.size() - before;
    if (per_line == 0) per_line = here;
    same_count = same_count && here == per_line;
  }
  std::vector<double> x, b;
  if (same_count && per_line == 2) {
    for (std::size_t i = 0; i + 1 < numbers.size(); i += 2) x.push_back(numbers[i]), b.push_back(numbers[i + 1]);
  } else if (per_line == 3 && numbers.size() > 4 && numbers[1] > 0.0) {
    for (std::size_t i = 3; i < numbers.size(); ++i)
      x.push_back(numbers[0] + static_cast<double>(i - 3) * numbers[1]), b.push_back(numbers[i]);
  }
  if (x.size() < 2 || !std::is_sorted(x.begin(), x.end())) {
    reason = "neither a line `thmin step thmax` with values behind it nor ascending lines of x and value";
    return false;
  }
  pattern.bk.resize(static_cast<std::size_t>(pattern.npts));
  for (int i = 0; i < pattern.npts; ++i) {
    const double at = std::clamp(x_at(pattern, i), x.front(), x.back());
    const auto next = std::clamp<std::ptrdiff_t>(std::upper_bound(x.begin(), x.end(), at) - x.begin(), 1,
                                                 static_cast<std::ptrdiff_t>(x.size()) - 1);
    const auto j = static_cast<std::size_t>(next);
    const double width = x[j] - x[j - 1];
    const double w = width > 0.0 ? (at - x[j - 1]) / width : 0.0;
    pattern.bk[static_cast<std::size_t>(i)] = static_cast<float>(b[j - 1] + w * (b[j] - b[j - 1]));
  }
  return true;
}

void filter(pattern_type& pattern, float window) {
  const auto n = static_cast<std::size_t>(pattern.npts);
  if (n < 4) return;
  std::vector<double> net(n);
  for (std::size_t i = 0; i < n; ++i) net[i] = static_cast<double>(pattern.y[i]) - static_cast<double>(pattern.yc[i]);
  lmix_math_general::smooft(net, static_cast<double>(window), std::max<std::size_t>(1, n / 50));
  pattern.bk.resize(n);
  for (std::size_t i = 0; i < n; ++i) pattern.bk[i] = std::max(0.f, static_cast<float>(net[i]));
}

}  // namespace kv_background
