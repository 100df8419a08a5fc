// Special functions for the statistical families. The series and continued fractions are
// the classical ones; the care goes into the prefactors, which are computed in a form that
// keeps full precision when the shape parameters are large (a chi-squared test over
// thousands of degrees of freedom must not lose half its digits).
#include "engine/calc/fn_special.hpp"

#include <algorithm>
#include <cmath>

namespace qz::engine::calc::special {
namespace {

constexpr double kTiny = 1e-300;
constexpr double kEps = 1e-16;
constexpr double kLnSqrt2Pi = 0.91893853320467274178;

/// ln(1 + e) - e, without the cancellation of the plain difference for small e.
double log1pmx(double e) {
  if (std::fabs(e) > 0.1) return std::log1p(e) - e;
  double term = e, sum = 0;
  for (int k = 2; k < 60; ++k) {
    term *= -e;
    double add = term / k;
    sum += add;
    if (std::fabs(add) < 1e-18 * std::fabs(sum)) break;
  }
  return sum;
}

/// The error of Stirling's formula: ln Γ(a) - ((a - 1/2) ln a - a + ln √(2π)), for a >= 10.
double stirling_error(double a) {
  double a2 = a * a;
  return (1.0 / 12 - (1.0 / 360 - (1.0 / 1260 - 1.0 / (1680 * a2)) / a2) / a2) / a;
}

/// ln(x^a e^-x / Γ(a)): the prefactor of both incomplete gamma expansions.
double log_gamma_prefactor(double a, double x) {
  if (a < 10) return a * std::log(x) - x - std::lgamma(a);
  return 0.5 * std::log(a) - kLnSqrt2Pi + a * log1pmx((x - a) / a) - stirling_error(a);
}

double gamma_series(double a, double x) {
  double sum = 1 / a, term = sum, ap = a;
  for (int n = 0; n < 10000000; ++n) {
    ap += 1;
    term *= x / ap;
    sum += term;
    if (std::fabs(term) < std::fabs(sum) * kEps) break;
  }
  return sum * std::exp(log_gamma_prefactor(a, x));
}

double gamma_fraction(double a, double x) {
  double b = x + 1 - a, c = 1 / kTiny, d = 1 / b, h = d;
  for (int i = 1; i < 10000000; ++i) {
    double an = -i * (i - a);
    b += 2;
    d = an * d + b;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = b + an / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1 / d;
    double del = d * c;
    h *= del;
    if (std::fabs(del - 1) < kEps) break;
  }
  return std::exp(log_gamma_prefactor(a, x)) * h;
}

/// ln Γ(a + b) - ln Γ(a), precise when a is large and b is not.
double log_gamma_ratio(double a, double b) {
  if (a < 1e3) return std::lgamma(a + b) - std::lgamma(a);
  double s = a + b;
  return (a - 0.5) * std::log1p(b / a) + b * std::log(s) - b + stirling_error(s) -
         stirling_error(a);
}

double beta_fraction(double a, double b, double x) {
  double qab = a + b, qap = a + 1, qam = a - 1;
  double c = 1, d = 1 - qab * x / qap;
  if (std::fabs(d) < kTiny) d = kTiny;
  d = 1 / d;
  double h = d;
  for (int m = 1; m < 100000; ++m) {
    double m2 = 2.0 * m;
    double aa = m * (b - m) * x / ((qam + m2) * (a + m2));
    d = 1 + aa * d;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = 1 + aa / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1 / d;
    h *= d * c;
    aa = -(a + m) * (qab + m) * x / ((a + m2) * (qap + m2));
    d = 1 + aa * d;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = 1 + aa / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1 / d;
    double del = d * c;
    h *= del;
    if (std::fabs(del - 1) < kEps) break;
  }
  return h;
}

}  // namespace

double gamma_p(double a, double x) {
  if (x <= 0) return 0;
  if (std::isinf(x)) return 1;
  if (x < a + 1) return gamma_series(a, x);
  return 1 - gamma_fraction(a, x);
}

double gamma_q(double a, double x) {
  if (x <= 0) return 1;
  if (std::isinf(x)) return 0;
  if (x < a + 1) return 1 - gamma_series(a, x);
  return gamma_fraction(a, x);
}

double log_beta(double a, double b) {
  if (a < b) std::swap(a, b);
  return std::lgamma(b) - log_gamma_ratio(a, b);
}

double log_choose(double n, double k) {
  if (k < 0 || k > n) return -INFINITY;
  k = std::min(k, n - k);
  if (k < 30) {
    // Term by term while that stays short: exact for the small cases people type.
    double s = 0;
    for (int i = 1; i <= static_cast<int>(k); ++i) s += std::log((n - k + i) / i);
    return s;
  }
  return -std::log(n + 1) - log_beta(n - k + 1, k + 1);
}

double beta_i(double a, double b, double x, double y) {
  if (x <= 0) return 0;
  if (y <= 0) return 1;
  double ln_front = a * std::log(x) + b * std::log(y) - log_beta(a, b);
  if (x < (a + 1) / (a + b + 2)) return std::exp(ln_front) * beta_fraction(a, b, x) / a;
  return 1 - std::exp(ln_front) * beta_fraction(b, a, y) / b;
}

double norm_cdf(double z) {
  return 0.5 * std::erfc(-z / 1.4142135623730951);
}

double norm_pdf(double z) {
  return std::exp(-z * z / 2 - kLnSqrt2Pi);
}

double norm_quantile(double p) {
  // A rational first guess, then Newton steps to full precision.
  double q = std::min(p, 1 - p);
  double t = std::sqrt(-2 * std::log(q));
  double z = t - (2.515517 + 0.802853 * t + 0.010328 * t * t) /
                     (1 + 1.432788 * t + 0.189269 * t * t + 0.001308 * t * t * t);
  if (p < 0.5) z = -z;
  for (int i = 0; i < 8; ++i) {
    // Step on the tail that p lies in, so that tiny probabilities keep their digits.
    double step =
        p < 0.5 ? (norm_cdf(z) - p) / norm_pdf(z) : ((1 - p) - norm_cdf(-z)) / norm_pdf(z);
    z -= step;
    if (std::fabs(step) < 1e-15 * std::max(1.0, std::fabs(z))) break;
  }
  return z;
}

double t_cdf(double t, double df) {
  double t2 = t * t;
  double tail = 0.5 * beta_i(df / 2, 0.5, df / (df + t2), t2 / (df + t2));
  return t > 0 ? 1 - tail : tail;
}

double t_pdf(double t, double df) {
  return std::exp(-0.5 * (df + 1) * std::log1p(t * t / df) - 0.5 * std::log(df) -
                  log_beta(df / 2, 0.5));
}

double f_upper(double f, double d1, double d2) {
  if (f <= 0) return 1;
  double den = d2 + d1 * f;
  return beta_i(d2 / 2, d1 / 2, d2 / den, d1 * f / den);
}

double chi2_upper(double x, double df) {
  return gamma_q(df / 2, x / 2);
}

double solve_increasing(const std::function<double(double)>& f, double target, double lo, double hi,
                        double max_hi) {
  while (f(hi) < target && hi < max_hi) {
    lo = hi;
    hi *= 2;
  }
  for (int i = 0; i < 3000; ++i) {
    // Halve the bracket geometrically while it spans orders of magnitude.
    double mid = lo > 0 && hi > 4 * lo ? std::sqrt(lo * hi) : lo + (hi - lo) / 2;
    if (mid <= lo || mid >= hi) break;
    if (f(mid) < target)
      lo = mid;
    else
      hi = mid;
  }
  // Of the two neighbours left, the one nearer the target.
  return std::fabs(f(lo) - target) < std::fabs(f(hi) - target) ? lo : hi;
}

}  // namespace qz::engine::calc::special
