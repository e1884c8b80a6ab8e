// Fourier transform, low-pass filter and Savitzky-Golay filter.
#include <bit>
#include <numbers>

#include "lmix_math_general.hpp"

namespace lmix_math_general {
namespace {

/// Element i goes to the place of its mirrored binary number.
void bit_reversal(std::span<std::complex<double>> a) {
  for (std::size_t i = 1, j = 0; i < a.size(); ++i) {
    std::size_t bit = a.size() >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j |= bit;
    if (i < j) std::swap(a[i], a[j]);
  }
}

/// A straight line through the mean of the first and that of the last `ends` points, at their ends of the curve.
struct end_line {
  double left = 0.0, slope = 0.0;
  end_line(std::span<const double> y, std::size_t ends) {
    double right = 0.0;
    for (std::size_t i = 0; i < ends; ++i) {
      left += y[i] / static_cast<double>(ends);
      right += y[y.size() - 1 - i] / static_cast<double>(ends);
    }
    slope = (right - left) / static_cast<double>(y.size() - 1);
  }
  [[nodiscard]] double operator()(std::size_t i) const { return left + slope * static_cast<double>(i); }
};

/// Gram polynomials of degree 0..degree over -m..m at t and their derivatives: g[s] is the polynomial of the degree
/// reached so far, differentiated s times.
class gram {
 public:
  gram(int t, int m, int derivative) : t_(t), m_(m), now_(size(derivative)), before_(now_) { now_[0] = 1.0; }
  [[nodiscard]] double operator[](int s) const { return now_[static_cast<std::size_t>(s)]; }
  /// From degree k - 1 to k.
  void raise(int k) {
    const double scale = 1.0 / (k * (2.0 * m_ - k + 1.0));
    const double first = (4.0 * k - 2.0) * scale, second = (k - 1.0) * (2.0 * m_ + k) * scale;
    for (std::size_t s = now_.size(); s-- > 0;) {
      const double lower = s > 0 ? static_cast<double>(s) * now_[s - 1] : 0.0;
      const double next = first * (t_ * now_[s] + lower) - second * before_[s];
      before_[s] = now_[s];
      now_[s] = next;
    }
  }

 private:
  static std::size_t size(int derivative) { return static_cast<std::size_t>(derivative) + 1; }
  double t_, m_;
  std::vector<double> now_, before_;
};

}  // namespace

bool fft(std::span<std::complex<double>> a, int sign) {
  const std::size_t n = a.size();
  if (!std::has_single_bit(n)) return false;
  bit_reversal(a);
  for (std::size_t half = 1; half < n; half <<= 1) {
    const double angle = (sign < 0 ? -1.0 : 1.0) * std::numbers::pi / static_cast<double>(half);
    // root - 1 instead of the root: its digits are not lost beside the 1, and the error grows slowly along the row.
    const double s = std::sin(0.5 * angle);
    const std::complex<double> root_minus_1(-2.0 * s * s, std::sin(angle));
    std::complex<double> w = 1.0;
    for (std::size_t k = 0; k < half; ++k, w += w * root_minus_1) {
      for (std::size_t even = k; even < n; even += 2 * half) {
        const std::complex<double> odd = a[even + half] * w;
        a[even + half] = a[even] - odd;
        a[even] += odd;
      }
    }
  }
  return true;
}

void smooft(std::span<double> y, double window, std::size_t ends) {
  const std::size_t n = y.size();
  if (n < 4 || !(window > 1.0) || !std::isfinite(window)) return;
  const std::size_t size = std::bit_ceil(n + static_cast<std::size_t>(std::ceil(2.0 * std::min(window, double(n)))));
  const end_line trend(y, std::clamp<std::size_t>(ends, 1, n));
  std::vector<std::complex<double>> a(size);
  for (std::size_t i = 0; i < n; ++i) a[i] = y[i] - trend(i);
  (void)fft(a, -1);
  for (std::size_t k = 0; k < size; ++k) {
    const double frequency = static_cast<double>(std::min(k, size - k)) / static_cast<double>(size) * window;
    a[k] *= std::max(0.0, 1.0 - 0.25 * frequency * frequency) / static_cast<double>(size);
  }
  (void)fft(a, +1);
  for (std::size_t i = 0; i < n; ++i) y[i] = a[i].real() + trend(i);
}

double savitzky_golay_weight(int i, int t, int m, int degree, int derivative) {
  gram at_i(i, m, 0), at_t(t, m, derivative);
  double norm = 1.0 / (2.0 * m + 1.0);  // (2m)(2m-1)..(2m-k+1)/[(2m+k+1)(2m+k)..(2m+1)]
  double weight = norm * at_i[0] * at_t[derivative];
  for (int k = 1; k <= degree; ++k) {
    at_i.raise(k);
    at_t.raise(k);
    norm *= (2.0 * m - k + 1.0) / (2.0 * m + k + 1.0);
    weight += (2.0 * k + 1.0) * norm * at_i[0] * at_t[derivative];
  }
  return weight;
}

bool savitzky_golay(std::span<const double> y, int m, int degree, int derivative, std::span<double> out) {
  if (m < 0 || derivative < 0 || degree < derivative || degree > 2 * m) return false;
  const auto half = static_cast<std::size_t>(m), width = 2 * half + 1, n = y.size();
  if (n < width || out.size() != n) return false;
  std::vector<double> w(width), smooth(n);
  const auto sum = [&](std::size_t first) {
    double s = 0.0;
    for (std::size_t j = 0; j < width; ++j) s += w[j] * y[first + j];
    return s;
  };
  const auto set_weights = [&](int t) {
    for (std::size_t j = 0; j < width; ++j)
      w[j] = savitzky_golay_weight(static_cast<int>(j) - m, t, m, degree, derivative);
  };
  for (std::size_t i = 0; i < half; ++i) {
    set_weights(static_cast<int>(i) - m);
    smooth[i] = sum(0);
    set_weights(m - static_cast<int>(i));
    smooth[n - 1 - i] = sum(n - width);
  }
  set_weights(0);
  for (std::size_t i = half; i + half < n; ++i) smooth[i] = sum(i - half);
  std::copy(smooth.begin(), smooth.end(), out.begin());
  return true;
}

}  // namespace lmix_math_general
