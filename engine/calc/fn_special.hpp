// Special functions the statistical families share: the incomplete gamma and beta functions,
// the distributions built on them, and a root finder for their inverses. Internal to the calc
// component.
#pragma once

#include <functional>

namespace qz::engine::calc::special {

/// Regularized lower and upper incomplete gamma functions P(a, x) and Q(a, x).
double gamma_p(double a, double x);
double gamma_q(double a, double x);
/// Regularized incomplete beta I_x(a, b); `y` is 1 - x, passed separately so that values of
/// x close to 1 keep their precision.
double beta_i(double a, double b, double x, double y);
/// ln B(a, b).
double log_beta(double a, double b);
/// ln C(n, k) for whole n >= k >= 0.
double log_choose(double n, double k);

/// The standard normal distribution and its quantile.
double norm_cdf(double z);
double norm_pdf(double z);
double norm_quantile(double p);

/// Student's t with `df` degrees of freedom: the lower tail P(T <= t) and the density.
double t_cdf(double t, double df);
double t_pdf(double t, double df);
/// F with (d1, d2) degrees of freedom: the upper tail P(F > f).
double f_upper(double f, double d1, double d2);
/// Chi-squared with `df` degrees of freedom: the upper tail P(X > x).
double chi2_upper(double x, double df);

/// The x in [lo, hi] where the increasing function `f` reaches `target`, to full precision,
/// by bisection (robust where the function is flat); the bracket grows upward while f(hi)
/// stays below the target, as far as `max_hi`.
double solve_increasing(const std::function<double(double)>& f, double target, double lo, double hi,
                        double max_hi);

}  // namespace qz::engine::calc::special
