// Probability distributions, their inverses and the classical tests: the names of the
// current set (NORM.DIST, T.TEST, ...) and the older names that files keep using (TDIST,
// CHIDIST, ...), whose arguments and tails differ slightly and are kept apart here.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "engine/calc/fn_special.hpp"
#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;
using namespace special;

constexpr double kHuge = 1e300;

/// A probability argument: inside [0, 1] (or the open interval where the ends make no sense).
double probability(Args& a, size_t i, bool open_low, bool open_high) {
  double p = number(a, i);
  if (p < 0 || p > 1 || (open_low && p == 0) || (open_high && p == 1)) raise(cell_error::num);
  return p;
}
/// Degrees of freedom: truncated, at least 1 and at most 10^10.
double freedom(Args& a, size_t i) {
  double df = integer(a, i);
  if (df < 1 || df > 1e10) raise(cell_error::num);
  return df;
}
double positive(Args& a, size_t i) {
  double v = number(a, i);
  if (v <= 0) raise(cell_error::num);
  return v;
}

// ---- normal family ------------------------------------------------------------------------

Operand f_lognorm_dist(Args& a) {
  double x = number(a, 0), mean = number(a, 1), sd = number(a, 2);
  bool cumulative = a.size() < 4 || boolean(a, 3);
  if (x <= 0 || sd <= 0) return error(cell_error::num);
  double z = (std::log(x) - mean) / sd;
  return num(cumulative ? norm_cdf(z) : norm_pdf(z) / (x * sd));
}
Operand f_lognorm_inv(Args& a) {
  double p = number(a, 0), mean = number(a, 1), sd = number(a, 2);
  if (p <= 0 || p >= 1 || sd <= 0) return error(cell_error::num);
  return num(std::exp(mean + sd * norm_quantile(p)));
}
Operand f_phi(Args& a) {
  return num(norm_pdf(number(a, 0)));
}
Operand f_gauss(Args& a) {
  double z = number(a, 0);
  // Φ(z) - 1/2, from the nearer tail so small values keep their digits.
  return num(z >= 0 ? 0.5 - norm_cdf(-z) : norm_cdf(z) - 0.5);
}
Operand f_fisher(Args& a) {
  double x = number(a, 0);
  if (x <= -1 || x >= 1) return error(cell_error::num);
  return num(std::atanh(x));
}
Operand f_fisherinv(Args& a) {
  return num(std::tanh(number(a, 0)));
}

Operand f_confidence_norm(Args& a) {
  double alpha = number(a, 0), sd = number(a, 1), n = integer(a, 2);
  if (alpha <= 0 || alpha >= 1 || sd <= 0 || n < 1) return error(cell_error::num);
  return num(-norm_quantile(alpha / 2) * sd / std::sqrt(n));
}

// ---- exponential, gamma, Weibull, Poisson -------------------------------------------------

Operand f_expon_dist(Args& a) {
  double x = number(a, 0), lambda = number(a, 1);
  bool cumulative = boolean(a, 2);
  if (x < 0 || lambda <= 0) return error(cell_error::num);
  return num(cumulative ? -std::expm1(-lambda * x) : lambda * std::exp(-lambda * x));
}

Operand f_gamma_dist(Args& a) {
  double x = number(a, 0), alpha = number(a, 1), beta = number(a, 2);
  bool cumulative = boolean(a, 3);
  if (x < 0 || alpha <= 0 || beta <= 0) return error(cell_error::num);
  if (cumulative) return num(gamma_p(alpha, x / beta));
  if (x == 0) return alpha < 1 ? error(cell_error::num) : num(alpha == 1 ? 1 / beta : 0);
  return num(
      std::exp((alpha - 1) * std::log(x) - x / beta - std::lgamma(alpha) - alpha * std::log(beta)));
}
Operand f_gamma_inv(Args& a) {
  double p = probability(a, 0, false, false), alpha = positive(a, 1), beta = positive(a, 2);
  if (p == 0) return num(0);
  if (p == 1) return error(cell_error::num);
  double x = p < 0.5 ? solve_increasing([&](double t) { return gamma_p(alpha, t); }, p, 0,
                                        std::max(1.0, alpha), kHuge)
                     : solve_increasing([&](double t) { return -gamma_q(alpha, t); }, p - 1, 0,
                                        std::max(1.0, alpha), kHuge);
  return num(x * beta);
}
Operand f_gamma(Args& a) {
  double x = number(a, 0);
  if (x <= 0 && x == std::floor(x)) return error(cell_error::num);
  return num(std::tgamma(x));
}
Operand f_gammaln(Args& a) {
  double x = number(a, 0);
  if (x <= 0) return error(cell_error::num);
  return num(std::lgamma(x));
}

Operand f_weibull(Args& a) {
  double x = number(a, 0), alpha = number(a, 1), beta = number(a, 2);
  bool cumulative = boolean(a, 3);
  if (x < 0 || alpha <= 0 || beta <= 0) return error(cell_error::num);
  double t = std::pow(x / beta, alpha);
  if (cumulative) return num(-std::expm1(-t));
  return num(alpha / std::pow(beta, alpha) * std::pow(x, alpha - 1) * std::exp(-t));
}

Operand f_poisson(Args& a) {
  double x = integer(a, 0), mean = number(a, 1);
  bool cumulative = boolean(a, 2);
  if (x < 0 || mean < 0) return error(cell_error::num);
  if (mean == 0) return num(cumulative || x == 0 ? 1 : 0);
  if (cumulative) return num(gamma_q(x + 1, mean));
  return num(std::exp(x * std::log(mean) - mean - std::lgamma(x + 1)));
}

// ---- chi-squared ---------------------------------------------------------------------------

Operand f_chisq_dist(Args& a) {
  double x = number(a, 0), df = freedom(a, 1);
  bool cumulative = boolean(a, 2);
  if (x < 0) return error(cell_error::num);
  if (cumulative) return num(gamma_p(df / 2, x / 2));
  if (x == 0) return df == 2 ? num(0.5) : df < 2 ? error(cell_error::num) : num(0);
  double k = df / 2;
  return num(std::exp((k - 1) * std::log(x) - x / 2 - k * std::log(2.0) - std::lgamma(k)));
}
Operand f_chisq_dist_rt(Args& a) {
  double x = number(a, 0), df = freedom(a, 1);
  if (x < 0) return error(cell_error::num);
  return num(chi2_upper(x, df));
}
double chi2_inverse_upper(double p, double df) {
  return solve_increasing([&](double t) { return -chi2_upper(t, df); }, -p, 0, std::max(1.0, df),
                          kHuge);
}
Operand f_chisq_inv(Args& a) {
  double p = probability(a, 0, false, false), df = freedom(a, 1);
  if (p == 0) return num(0);
  if (p == 1) return error(cell_error::num);
  if (p > 0.5) return num(chi2_inverse_upper(1 - p, df));
  return num(solve_increasing([&](double t) { return gamma_p(df / 2, t / 2); }, p, 0,
                              std::max(1.0, df), kHuge));
}
Operand f_chisq_inv_rt(Args& a) {
  double p = probability(a, 0, false, false), df = freedom(a, 1);
  if (p == 0) return error(cell_error::num);
  if (p == 1) return num(0);
  return num(chi2_inverse_upper(p, df));
}

// ---- Student's t ----------------------------------------------------------------------------

/// P(T > t) for t >= 0.
double t_upper(double t, double df) {
  double t2 = t * t;
  return 0.5 * beta_i(df / 2, 0.5, df / (df + t2), t2 / (df + t2));
}
/// The t > 0 whose upper tail is `p` (p <= 1/2).
double t_inverse_upper(double p, double df) {
  if (p >= 0.5) return 0;
  return solve_increasing([&](double t) { return -t_upper(t, df); }, -p, 0, 1, kHuge);
}

Operand f_t_dist(Args& a) {
  double x = number(a, 0), df = freedom(a, 1);
  bool cumulative = boolean(a, 2);
  return num(cumulative ? t_cdf(x, df) : t_pdf(x, df));
}
Operand f_t_dist_rt(Args& a) {
  double x = number(a, 0), df = freedom(a, 1);
  return num(x >= 0 ? t_upper(x, df) : 1 - t_upper(-x, df));
}
Operand f_t_dist_2t(Args& a) {
  double x = number(a, 0), df = freedom(a, 1);
  if (x < 0) return error(cell_error::num);
  return num(2 * t_upper(x, df));
}
Operand f_tdist(Args& a) {
  double x = number(a, 0), df = freedom(a, 1), tails = integer(a, 2);
  if (x < 0 || (tails != 1 && tails != 2)) return error(cell_error::num);
  return num(tails * t_upper(x, df));
}
Operand f_t_inv(Args& a) {
  double p = probability(a, 0, true, true), df = freedom(a, 1);
  return num(p < 0.5 ? -t_inverse_upper(p, df) : t_inverse_upper(1 - p, df));
}
Operand f_t_inv_2t(Args& a) {
  double p = probability(a, 0, true, false), df = freedom(a, 1);
  return num(t_inverse_upper(p / 2, df));
}
Operand f_confidence_t(Args& a) {
  double alpha = number(a, 0), sd = number(a, 1), n = integer(a, 2);
  if (alpha <= 0 || alpha >= 1 || sd <= 0 || n < 1) return error(cell_error::num);
  if (n == 1) return error(cell_error::div0);
  return num(t_inverse_upper(alpha / 2, n - 1) * sd / std::sqrt(n));
}

// ---- F ----------------------------------------------------------------------------------------

Operand f_f_dist(Args& a) {
  double x = number(a, 0), d1 = freedom(a, 1), d2 = freedom(a, 2);
  bool cumulative = boolean(a, 3);
  if (x < 0) return error(cell_error::num);
  if (cumulative) return num(1 - f_upper(x, d1, d2));
  if (x == 0) return d1 == 2 ? num(1) : d1 < 2 ? error(cell_error::num) : num(0);
  double ln = 0.5 * d1 * std::log(d1 * x) + 0.5 * d2 * std::log(d2) -
              0.5 * (d1 + d2) * std::log(d1 * x + d2) - std::log(x) - log_beta(d1 / 2, d2 / 2);
  return num(std::exp(ln));
}
Operand f_f_dist_rt(Args& a) {
  double x = number(a, 0), d1 = freedom(a, 1), d2 = freedom(a, 2);
  if (x < 0) return error(cell_error::num);
  return num(f_upper(x, d1, d2));
}
double f_inverse_upper(double p, double d1, double d2) {
  return solve_increasing([&](double t) { return -f_upper(t, d1, d2); }, -p, 0, 1, kHuge);
}
Operand f_f_inv(Args& a) {
  double p = probability(a, 0, false, false), d1 = freedom(a, 1), d2 = freedom(a, 2);
  if (p == 0) return num(0);
  if (p == 1) return error(cell_error::num);
  return num(f_inverse_upper(1 - p, d1, d2));
}
Operand f_f_inv_rt(Args& a) {
  double p = probability(a, 0, false, false), d1 = freedom(a, 1), d2 = freedom(a, 2);
  if (p == 0) return error(cell_error::num);
  if (p == 1) return num(0);
  return num(f_inverse_upper(p, d1, d2));
}

// ---- beta ---------------------------------------------------------------------------------------

struct BetaArgs {
  double alpha, beta, lo, hi;
};
BetaArgs beta_args(Args& a, size_t first) {
  BetaArgs b{number(a, first), number(a, first + 1), number_or(a, first + 2, 0),
             number_or(a, first + 3, 1)};
  if (b.alpha <= 0 || b.beta <= 0 || b.lo >= b.hi) raise(cell_error::num);
  return b;
}
Operand beta_dist(double x, const BetaArgs& b, bool cumulative) {
  if (x < b.lo || x > b.hi) return error(cell_error::num);
  double w = b.hi - b.lo, t = (x - b.lo) / w, u = (b.hi - x) / w;
  if (cumulative) return num(beta_i(b.alpha, b.beta, t, u));
  if ((t == 0 && b.alpha < 1) || (u == 0 && b.beta < 1)) return error(cell_error::num);
  if (t == 0 || u == 0) {
    bool one = (t == 0 && b.alpha == 1) || (u == 0 && b.beta == 1);
    return num(one ? std::exp(-log_beta(b.alpha, b.beta)) / w : 0);
  }
  return num(std::exp((b.alpha - 1) * std::log(t) + (b.beta - 1) * std::log(u) -
                      log_beta(b.alpha, b.beta)) /
             w);
}
Operand f_beta_dist(Args& a) {
  double x = number(a, 0);
  bool cumulative = boolean(a, 3);
  BetaArgs b{number(a, 1), number(a, 2), number_or(a, 4, 0), number_or(a, 5, 1)};
  if (b.alpha <= 0 || b.beta <= 0 || b.lo >= b.hi) return error(cell_error::num);
  return beta_dist(x, b, cumulative);
}
Operand f_betadist(Args& a) {
  double x = number(a, 0);
  BetaArgs b = beta_args(a, 1);
  return beta_dist(x, b, true);
}
Operand f_beta_inv(Args& a) {
  double p = probability(a, 0, true, false);
  BetaArgs b = beta_args(a, 1);
  if (p == 1) return num(b.hi);
  double t =
      solve_increasing([&](double x) { return beta_i(b.alpha, b.beta, x, 1 - x); }, p, 0, 1, 1);
  return num(b.lo + t * (b.hi - b.lo));
}

// ---- discrete distributions --------------------------------------------------------------------

double binom_pmf(double k, double n, double p) {
  if (p == 0) return k == 0 ? 1 : 0;
  if (p == 1) return k == n ? 1 : 0;
  return std::exp(log_choose(n, k) + k * std::log(p) + (n - k) * std::log1p(-p));
}
double binom_cdf(double k, double n, double p) {
  if (k >= n) return 1;
  if (p == 0) return 1;
  if (p == 1) return 0;
  return beta_i(n - k, k + 1, 1 - p, p);
}

Operand f_binom_dist(Args& a) {
  double k = integer(a, 0), n = integer(a, 1), p = number(a, 2);
  bool cumulative = boolean(a, 3);
  if (k < 0 || k > n || p < 0 || p > 1) return error(cell_error::num);
  return num(cumulative ? binom_cdf(k, n, p) : binom_pmf(k, n, p));
}
Operand f_binom_dist_range(Args& a) {
  double n = integer(a, 0), p = number(a, 1), s1 = integer(a, 2);
  double s2 = a.missing(3) ? s1 : integer(a, 3);
  if (n < 0 || p < 0 || p > 1 || s1 < 0 || s1 > n || s2 < s1 || s2 > n)
    return error(cell_error::num);
  double below = s1 > 0 ? binom_cdf(s1 - 1, n, p) : 0;
  if (s1 == s2) return num(binom_pmf(s1, n, p));
  return num(binom_cdf(s2, n, p) - below);
}
Operand f_binom_inv(Args& a) {
  double n = integer(a, 0), p = number(a, 1), alpha = number(a, 2);
  if (n < 0 || p < 0 || p > 1 || alpha < 0 || alpha > 1) return error(cell_error::num);
  // The smallest k whose cumulative probability reaches alpha: summed term by term, as
  // the boundary cases must come out exactly where the sums cross.
  double target = alpha * (1 - 1e-15);
  if (n <= 1e6) {
    double cdf = 0;
    for (double k = 0; k <= n; ++k) {
      cdf += binom_pmf(k, n, p);
      if (cdf >= target) return num(k);
    }
    return num(n);
  }
  // Past a million trials the walk would take too long (at 1E+15, forever), and the
  // incomplete beta loses the digits that tell neighbouring counts apart; there the normal
  // curve, corrected for skew, lands on the count the walk would reach or next to it.
  if (p == 0) return num(0);
  if (p == 1) return num(n);
  double sd = std::sqrt(n * p * (1 - p));
  double z = norm_quantile(std::min(std::max(target, 1e-300), 1 - 1e-16));
  z += (z * z - 1) * (1 - 2 * p) / sd / 6;
  return num(std::min(n, std::max(0.0, std::ceil(n * p + z * sd - 0.5))));
}

Operand f_negbinom_dist(Args& a) {
  double f = integer(a, 0), s = integer(a, 1), p = number(a, 2);
  bool cumulative = a.size() < 4 || boolean(a, 3);
  if (f < 0 || s < 1 || p < 0 || p > 1) return error(cell_error::num);
  if (cumulative) return num(beta_i(s, f + 1, p, 1 - p));
  if (p == 0) return num(0);
  if (p == 1) return num(f == 0 ? 1 : 0);
  return num(std::exp(log_choose(f + s - 1, s - 1) + s * std::log(p) + f * std::log1p(-p)));
}
Operand f_negbinomdist(Args& a) {
  double f = integer(a, 0), s = integer(a, 1), p = number(a, 2);
  if (f < 0 || s < 1 || p < 0 || p > 1) return error(cell_error::num);
  if (p == 0) return num(0);
  if (p == 1) return num(f == 0 ? 1 : 0);
  return num(std::exp(log_choose(f + s - 1, s - 1) + s * std::log(p) + f * std::log1p(-p)));
}

double hypgeom_pmf(double k, double n, double K, double N) {
  return std::exp(log_choose(K, k) + log_choose(N - K, n - k) - log_choose(N, n));
}
Operand hypgeom(Args& a, bool cumulative) {
  double k = integer(a, 0), n = integer(a, 1), K = integer(a, 2), N = integer(a, 3);
  if (k < 0 || k > std::min(n, K) || k < std::max(0.0, n - N + K) || n <= 0 || n > N || K <= 0 ||
      K > N || N <= 0)
    return error(cell_error::num);
  if (!cumulative) return num(hypgeom_pmf(k, n, K, N));
  double s = 0;
  for (double j = std::max(0.0, n - N + K); j <= k; ++j) s += hypgeom_pmf(j, n, K, N);
  return num(std::min(s, 1.0));
}
Operand f_hypgeom_dist(Args& a) {
  return hypgeom(a, boolean(a, 4));
}
Operand f_hypgeomdist(Args& a) {
  return hypgeom(a, false);
}

// ---- tests over samples ---------------------------------------------------------------------

/// The numbers of an argument that is a sample: from ranges and arrays only numbers, errors
/// propagate.
std::vector<double> sample(Args& a, size_t i) {
  std::vector<double> xs;
  a.ev().for_each(a.get(i), [&](const Value& v, bool) {
    if (v.is_error()) raise(v.error_code());
    if (v.kind == Value::Kind::Number) xs.push_back(v.number);
  });
  return xs;
}
double mean_of(const std::vector<double>& xs) {
  return std::accumulate(xs.begin(), xs.end(), 0.0) / static_cast<double>(xs.size());
}
double sample_variance(const std::vector<double>& xs) {
  double m = mean_of(xs), ss = 0;
  for (double x : xs) ss += (x - m) * (x - m);
  return ss / static_cast<double>(xs.size() - 1);
}

Operand f_z_test(Args& a) {
  std::vector<double> xs = sample(a, 0);
  double x = number(a, 1);
  if (xs.empty()) return error(cell_error::na);
  double n = static_cast<double>(xs.size());
  double sigma;
  if (a.missing(2)) {
    if (xs.size() < 2) return error(cell_error::div0);
    sigma = std::sqrt(sample_variance(xs));
  } else {
    sigma = number(a, 2);
  }
  if (sigma == 0) return error(cell_error::div0);
  return num(norm_cdf(-(mean_of(xs) - x) / (sigma / std::sqrt(n))));
}

Operand f_t_test(Args& a) {
  double tails = integer(a, 2), type = integer(a, 3);
  if ((tails != 1 && tails != 2) || type < 1 || type > 3) return error(cell_error::num);
  double t, df;
  if (type == 1) {
    // Paired: positions where both arrays hold numbers.
    Matrix m1 = a.ev().matrix(a.get(0)), m2 = a.ev().matrix(a.get(1));
    if (m1.cells.size() != m2.cells.size()) return error(cell_error::na);
    std::vector<double> d;
    for (size_t k = 0; k < m1.cells.size(); ++k) {
      const Value &x = m1.cells[k], &y = m2.cells[k];
      if (x.is_error()) raise(x.error_code());
      if (y.is_error()) raise(y.error_code());
      if (x.kind == Value::Kind::Number && y.kind == Value::Kind::Number)
        d.push_back(x.number - y.number);
    }
    if (d.size() < 2) return error(cell_error::div0);
    double var = sample_variance(d);
    if (var == 0) return error(cell_error::div0);
    double n = static_cast<double>(d.size());
    t = mean_of(d) / std::sqrt(var / n);
    df = n - 1;
  } else {
    std::vector<double> x = sample(a, 0), y = sample(a, 1);
    if (x.size() < 2 || y.size() < 2) return error(cell_error::div0);
    double n1 = static_cast<double>(x.size()), n2 = static_cast<double>(y.size());
    double v1 = sample_variance(x), v2 = sample_variance(y);
    if (type == 2) {
      double pooled = ((n1 - 1) * v1 + (n2 - 1) * v2) / (n1 + n2 - 2);
      if (pooled == 0) return error(cell_error::div0);
      t = (mean_of(x) - mean_of(y)) / std::sqrt(pooled * (1 / n1 + 1 / n2));
      df = n1 + n2 - 2;
    } else {
      double s1 = v1 / n1, s2 = v2 / n2;
      if (s1 + s2 == 0) return error(cell_error::div0);
      t = (mean_of(x) - mean_of(y)) / std::sqrt(s1 + s2);
      // Welch's degrees of freedom, not rounded.
      df = (s1 + s2) * (s1 + s2) / (s1 * s1 / (n1 - 1) + s2 * s2 / (n2 - 1));
    }
  }
  return num(tails * t_upper(std::fabs(t), df));
}

Operand f_f_test(Args& a) {
  std::vector<double> x = sample(a, 0), y = sample(a, 1);
  if (x.size() < 2 || y.size() < 2) return error(cell_error::div0);
  double v1 = sample_variance(x), v2 = sample_variance(y);
  if (v1 == 0 || v2 == 0) return error(cell_error::div0);
  double d1 = static_cast<double>(x.size() - 1), d2 = static_cast<double>(y.size() - 1);
  double upper = f_upper(v1 / v2, d1, d2);
  return num(2 * std::min(upper, 1 - upper));
}

Operand f_chisq_test(Args& a) {
  Matrix obs = a.ev().matrix(a.get(0)), exp = a.ev().matrix(a.get(1));
  if (obs.rows != exp.rows || obs.cols != exp.cols) return error(cell_error::na);
  double df = obs.rows > 1 && obs.cols > 1 ? (obs.rows - 1.0) * (obs.cols - 1.0)
              : obs.rows > 1               ? obs.rows - 1.0
                                           : obs.cols - 1.0;
  if (df < 1) return error(cell_error::na);
  double chi = 0;
  for (size_t k = 0; k < obs.cells.size(); ++k) {
    const Value &o = obs.cells[k], &e = exp.cells[k];
    if (o.is_error()) raise(o.error_code());
    if (e.is_error()) raise(e.error_code());
    if (o.kind != Value::Kind::Number || e.kind != Value::Kind::Number) continue;
    if (e.number < 0) return error(cell_error::num);
    if (e.number == 0) return error(cell_error::div0);
    chi += (o.number - e.number) * (o.number - e.number) / e.number;
  }
  return num(chi2_upper(chi, df));
}

Operand f_prob(Args& a) {
  Matrix xs = a.ev().matrix(a.get(0)), ps = a.ev().matrix(a.get(1));
  if (xs.cells.size() != ps.cells.size()) return error(cell_error::na);
  double lo = number(a, 2);
  double hi = a.missing(3) ? lo : number(a, 3);
  double total = 0, in = 0;
  for (size_t k = 0; k < xs.cells.size(); ++k) {
    const Value &x = xs.cells[k], &p = ps.cells[k];
    if (x.is_error()) raise(x.error_code());
    if (p.is_error()) raise(p.error_code());
    if (p.kind != Value::Kind::Number) continue;
    if (p.number < 0 || p.number > 1) return error(cell_error::num);
    total += p.number;
    if (x.kind == Value::Kind::Number && x.number >= lo && x.number <= hi) in += p.number;
  }
  if (std::fabs(total - 1) > 1e-9) return error(cell_error::num);
  return num(in);
}

}  // namespace

void add_distribution_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"BETA.DIST", 4, 6, f_beta_dist, each_arg},
                        {u"BETA.INV", 3, 5, f_beta_inv, each_arg},
                        {u"BETADIST", 3, 5, f_betadist, each_arg},
                        {u"BETAINV", 3, 5, f_beta_inv, each_arg},
                        {u"BINOM.DIST", 4, 4, f_binom_dist, each_arg},
                        {u"BINOM.DIST.RANGE", 3, 4, f_binom_dist_range, each_arg},
                        {u"BINOM.INV", 3, 3, f_binom_inv, each_arg},
                        {u"BINOMDIST", 4, 4, f_binom_dist, each_arg},
                        {u"CHIDIST", 2, 2, f_chisq_dist_rt, each_arg},
                        {u"CHIINV", 2, 2, f_chisq_inv_rt, each_arg},
                        {u"CHISQ.DIST", 3, 3, f_chisq_dist, each_arg},
                        {u"CHISQ.DIST.RT", 2, 2, f_chisq_dist_rt, each_arg},
                        {u"CHISQ.INV", 2, 2, f_chisq_inv, each_arg},
                        {u"CHISQ.INV.RT", 2, 2, f_chisq_inv_rt, each_arg},
                        {u"CHISQ.TEST", 2, 2, f_chisq_test},
                        {u"CHITEST", 2, 2, f_chisq_test},
                        {u"CONFIDENCE", 3, 3, f_confidence_norm, each_arg},
                        {u"CONFIDENCE.NORM", 3, 3, f_confidence_norm, each_arg},
                        {u"CONFIDENCE.T", 3, 3, f_confidence_t, each_arg},
                        {u"CRITBINOM", 3, 3, f_binom_inv, each_arg},
                        {u"EXPON.DIST", 3, 3, f_expon_dist, each_arg},
                        {u"EXPONDIST", 3, 3, f_expon_dist, each_arg},
                        {u"F.DIST", 4, 4, f_f_dist, each_arg},
                        {u"F.DIST.RT", 3, 3, f_f_dist_rt, each_arg},
                        {u"F.INV", 3, 3, f_f_inv, each_arg},
                        {u"F.INV.RT", 3, 3, f_f_inv_rt, each_arg},
                        {u"F.TEST", 2, 2, f_f_test},
                        {u"FDIST", 3, 3, f_f_dist_rt, each_arg},
                        {u"FINV", 3, 3, f_f_inv_rt, each_arg},
                        {u"FISHER", 1, 1, f_fisher, each_arg},
                        {u"FISHERINV", 1, 1, f_fisherinv, each_arg},
                        {u"FTEST", 2, 2, f_f_test},
                        {u"GAMMA", 1, 1, f_gamma, each_arg},
                        {u"GAMMA.DIST", 4, 4, f_gamma_dist, each_arg},
                        {u"GAMMA.INV", 3, 3, f_gamma_inv, each_arg},
                        {u"GAMMADIST", 4, 4, f_gamma_dist, each_arg},
                        {u"GAMMAINV", 3, 3, f_gamma_inv, each_arg},
                        {u"GAMMALN", 1, 1, f_gammaln, each_arg},
                        {u"GAMMALN.PRECISE", 1, 1, f_gammaln, each_arg},
                        {u"GAUSS", 1, 1, f_gauss, each_arg},
                        {u"HYPGEOM.DIST", 5, 5, f_hypgeom_dist, each_arg},
                        {u"HYPGEOMDIST", 4, 4, f_hypgeomdist, each_arg},
                        {u"LOGINV", 3, 3, f_lognorm_inv, each_arg},
                        {u"LOGNORM.DIST", 4, 4, f_lognorm_dist, each_arg},
                        {u"LOGNORM.INV", 3, 3, f_lognorm_inv, each_arg},
                        {u"LOGNORMDIST", 3, 3, f_lognorm_dist, each_arg},
                        {u"NEGBINOM.DIST", 4, 4, f_negbinom_dist, each_arg},
                        {u"NEGBINOMDIST", 3, 3, f_negbinomdist, each_arg},
                        {u"PHI", 1, 1, f_phi, each_arg},
                        {u"POISSON", 3, 3, f_poisson, each_arg},
                        {u"POISSON.DIST", 3, 3, f_poisson, each_arg},
                        {u"PROB", 3, 4, f_prob},
                        {u"T.DIST", 3, 3, f_t_dist, each_arg},
                        {u"T.DIST.2T", 2, 2, f_t_dist_2t, each_arg},
                        {u"T.DIST.RT", 2, 2, f_t_dist_rt, each_arg},
                        {u"T.INV", 2, 2, f_t_inv, each_arg},
                        {u"T.INV.2T", 2, 2, f_t_inv_2t, each_arg},
                        {u"T.TEST", 4, 4, f_t_test},
                        {u"TDIST", 3, 3, f_tdist, each_arg},
                        {u"TINV", 2, 2, f_t_inv_2t, each_arg},
                        {u"TTEST", 4, 4, f_t_test},
                        {u"WEIBULL", 4, 4, f_weibull, each_arg},
                        {u"WEIBULL.DIST", 4, 4, f_weibull, each_arg},
                        {u"Z.TEST", 2, 3, f_z_test},
                        {u"ZTEST", 2, 3, f_z_test},
                    });
}

}  // namespace qz::engine::calc
