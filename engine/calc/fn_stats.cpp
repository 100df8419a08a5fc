// Aggregates and statistics: averages, counts, extremes, order statistics, spread, rank.
#include <algorithm>
#include <numeric>

#include "engine/calc/fn_special.hpp"
#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

Operand f_average(Args& a) {
  double s = 0;
  size_t n = 0;
  each_number_all(a, [&](double d) {
    s += d;
    ++n;
  });
  if (n == 0) return error(cell_error::div0);
  return num(s / static_cast<double>(n));
}

/// The "A" variants read text in ranges as 0 and Booleans as 0/1.
template <class F>
void each_value_a(Args& a, F&& f) {
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) {
      f(0.0);
      continue;
    }
    const Operand& o = a.get(i);
    if (o.is_value()) {
      f(direct_number(o.value));
      continue;
    }
    a.ev().for_each(o, [&](const Value& v, bool) {
      switch (v.kind) {
        case Value::Kind::Number:
        case Value::Kind::Boolean:
          f(v.number);
          break;
        case Value::Kind::Text:
          f(0.0);
          break;
        case Value::Kind::Error:
          raise(v.error_code());
        default:
          break;
      }
    });
  }
}

Operand f_averagea(Args& a) {
  double s = 0;
  size_t n = 0;
  each_value_a(a, [&](double d) {
    s += d;
    ++n;
  });
  if (n == 0) return error(cell_error::div0);
  return num(s / static_cast<double>(n));
}

Operand f_count(Args& a) {
  double n = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) continue;
    const Operand& o = a.get(i);
    if (o.is_value()) {
      // Typed directly, anything that reads as a number counts; errors do not.
      const Value& v = o.value;
      if (v.kind == Value::Kind::Number || v.kind == Value::Kind::Boolean)
        ++n;
      else if (v.kind == Value::Kind::Text && a.ev().text_to_number(v.text))
        ++n;
      continue;
    }
    a.ev().for_each(o, [&](const Value& v, bool) {
      if (v.kind == Value::Kind::Number) ++n;
    });
  }
  return num(n);
}

Operand f_counta(Args& a) {
  double n = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) continue;
    const Operand& o = a.get(i);
    if (o.is_value()) {
      ++n;
      continue;
    }
    a.ev().for_each(o, [&](const Value& v, bool) {
      if (v.kind != Value::Kind::Empty) ++n;
    });
  }
  return num(n);
}

Operand f_countblank(Args& a) {
  const Operand& o = a.get(0);
  if (!o.is_ref()) return error(cell_error::value);
  double total = 0, filled = 0;
  for (const Area& ar : o.areas) {
    total += static_cast<double>(ar.rows()) * ar.cols();
    a.ev().for_each(Operand::ref({ar}), [&](const Value& v, bool) {
      // Empty text counts as blank.
      if (!(v.kind == Value::Kind::Text && v.text.empty()) && v.kind != Value::Kind::Empty)
        ++filled;
    });
  }
  return num(total - filled);
}

Operand f_countif(Args& a) {
  Criterion c(scalar(a, 1));
  const Operand& range = a.get(0);
  double n = 0;
  if (range.is_ref() && c.matches_empty()) {
    // Count every position of the range without visiting the empty ones.
    for (const Area& ar : range.areas) {
      double total = static_cast<double>(ar.rows()) * ar.cols(), nonempty = 0, matched = 0;
      a.ev().for_each(Operand::ref({ar}), [&](const Value& v, bool) {
        ++nonempty;
        if (c.matches(v)) ++matched;
      });
      n += total - nonempty + matched;
    }
    return num(n);
  }
  if (range.is_ref()) {
    for (const Area& ar : range.areas)
      each_match(a.ev(), Operand::ref({ar}), c, [&](int32_t, int32_t) { ++n; });
    return num(n);
  }
  each_match(a.ev(), range, c, [&](int32_t, int32_t) { ++n; });
  return num(n);
}

Operand f_countifs(Args& a) {
  double n = 0;
  each_multi_match(a, 0, [&](int32_t, int32_t) { ++n; });
  return num(n);
}

Operand f_averageif(Args& a) {
  Evaluator& ev = a.ev();
  const Operand& range = a.get(0);
  Criterion crit(scalar(a, 1));
  const Operand& avg_range = a.missing(2) ? range : a.get(2);
  double s = 0, n = 0;
  each_match(ev, range, crit, [&](int32_t r, int32_t c) {
    Value v = at_offset(ev, avg_range, r, c);
    if (v.kind == Value::Kind::Number)
      s += v.number, ++n;
    else if (v.is_error())
      raise(v.error_code());
  });
  if (n == 0) return error(cell_error::div0);
  return num(s / n);
}

Operand f_averageifs(Args& a) {
  Evaluator& ev = a.ev();
  const Operand& avg_range = a.get(0);
  double s = 0, n = 0;
  each_multi_match(a, 1, [&](int32_t r, int32_t c) {
    Value v = at_offset(ev, avg_range, r, c);
    if (v.kind == Value::Kind::Number)
      s += v.number, ++n;
    else if (v.is_error())
      raise(v.error_code());
  });
  if (n == 0) return error(cell_error::div0);
  return num(s / n);
}

template <bool Max>
Operand f_minmaxifs(Args& a) {
  Evaluator& ev = a.ev();
  const Operand& range = a.get(0);
  bool any = false;
  double best = 0;
  each_multi_match(a, 1, [&](int32_t r, int32_t c) {
    Value v = at_offset(ev, range, r, c);
    if (v.is_error()) raise(v.error_code());
    if (v.kind != Value::Kind::Number) return;
    if (!any || (Max ? v.number > best : v.number < best)) best = v.number;
    any = true;
  });
  return num(any ? best : 0);
}

template <bool Max>
Operand f_minmax(Args& a) {
  bool any = false;
  double best = 0;
  each_number_all(a, [&](double d) {
    if (!any || (Max ? d > best : d < best)) best = d;
    any = true;
  });
  return num(any ? best : 0);
}

template <bool Max>
Operand f_minmax_a(Args& a) {
  bool any = false;
  double best = 0;
  each_value_a(a, [&](double d) {
    if (!any || (Max ? d > best : d < best)) best = d;
    any = true;
  });
  return num(any ? best : 0);
}

Operand f_median(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.empty()) return error(cell_error::num);
  std::sort(xs.begin(), xs.end());
  size_t n = xs.size();
  return num(n % 2 ? xs[n / 2] : (xs[n / 2 - 1] + xs[n / 2]) / 2);
}

template <bool Large>
Operand f_kth(Args& a) {
  std::vector<double> xs = numbers_of(a, 0, 1);
  double k = std::ceil(number(a, 1) - 1e-12);
  if (xs.empty() || k < 1 || k > static_cast<double>(xs.size())) return error(cell_error::num);
  size_t i = static_cast<size_t>(k) - 1;
  if (Large)
    std::nth_element(xs.begin(), xs.begin() + i, xs.end(), std::greater<double>());
  else
    std::nth_element(xs.begin(), xs.begin() + i, xs.end());
  return num(xs[i]);
}

double variance(const std::vector<double>& xs, bool sample) {
  double n = static_cast<double>(xs.size());
  double mean = std::accumulate(xs.begin(), xs.end(), 0.0) / n;
  double ss = 0;
  for (double x : xs) ss += (x - mean) * (x - mean);
  return ss / (sample ? n - 1 : n);
}

template <bool Sample, bool Root>
Operand f_var(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.size() < (Sample ? 2u : 1u)) return error(cell_error::div0);
  double v = variance(xs, Sample);
  return num(Root ? std::sqrt(v) : v);
}

Operand rank_impl(Args& a, bool average) {
  double x = number(a, 0);
  std::vector<double> xs;
  const Operand& ref = a.get(1);
  if (!ref.is_ref()) return error(cell_error::value);
  a.ev().for_each(ref, [&](const Value& v, bool) {
    if (v.kind == Value::Kind::Number) xs.push_back(v.number);
  });
  bool ascending = !a.missing(2) && number(a, 2) != 0;
  double before = 0, equal = 0;
  for (double y : xs) {
    if (numbers_equal(x, y))
      ++equal;
    else if (ascending ? y < x : y > x)
      ++before;
  }
  if (equal == 0) return error(cell_error::na);
  return num(average ? before + (equal + 1) / 2 : before + 1);
}
Operand f_rank(Args& a) {
  return rank_impl(a, false);
}
Operand f_rank_avg(Args& a) {
  return rank_impl(a, true);
}

Operand f_percentile(Args& a) {
  return percentile(numbers_of(a, 0, 1), number(a, 1), false);
}
Operand f_percentile_exc(Args& a) {
  return percentile(numbers_of(a, 0, 1), number(a, 1), true);
}
Operand f_quartile(Args& a) {
  double q = std::trunc(number(a, 1));
  if (q < 0 || q > 4) return error(cell_error::num);
  return percentile(numbers_of(a, 0, 1), q / 4, false);
}

Operand f_mode(Args& a) {
  // Unlike SUM, MODE takes no text among its arguments, nor a lone empty cell.
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) continue;
    const Operand& o = a.get(i);
    if (o.is_value() && o.value.kind == Value::Kind::Text) return error(cell_error::value);
    if (o.is_ref() && o.areas.size() == 1 && o.areas[0].single() &&
        a.ev().scalar(o).kind == Value::Kind::Empty)
      return error(cell_error::value);
  }
  std::vector<double> xs = numbers_of(a);
  size_t best_count = 1;
  double best = 0;
  bool found = false;
  // The first value (in argument order) with the highest repeat count.
  for (size_t i = 0; i < xs.size(); ++i) {
    size_t c = static_cast<size_t>(std::count(xs.begin(), xs.end(), xs[i]));
    if (c > best_count) {
      best_count = c;
      best = xs[i];
      found = true;
    }
  }
  if (!found) return error(cell_error::na);
  return num(best);
}

Operand f_geomean(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.empty()) return error(cell_error::num);
  double s = 0;
  for (double x : xs) {
    if (x <= 0) return error(cell_error::num);
    s += std::log(x);
  }
  return num(std::exp(s / static_cast<double>(xs.size())));
}

/// Pairs of numbers from two same-sized arguments, skipping pairs where either is not a
/// number (as CORREL, SLOPE and INTERCEPT do).
bool pairs(Args& a, std::vector<double>& ys, std::vector<double>& xs) {
  Matrix my = a.ev().matrix(a.get(0)), mx = a.ev().matrix(a.get(1));
  if (my.cells.size() != mx.cells.size()) return false;
  for (size_t k = 0; k < my.cells.size(); ++k) {
    const Value &y = my.cells[k], &x = mx.cells[k];
    if (y.is_error()) raise(y.error_code());
    if (x.is_error()) raise(x.error_code());
    if (y.kind == Value::Kind::Number && x.kind == Value::Kind::Number) {
      ys.push_back(y.number);
      xs.push_back(x.number);
    }
  }
  return true;
}

Operand f_slope_intercept(Args& a, bool slope) {
  std::vector<double> ys, xs;
  if (!pairs(a, ys, xs)) return error(cell_error::na);
  if (xs.empty()) return error(cell_error::div0);
  double n = static_cast<double>(xs.size());
  double mx = std::accumulate(xs.begin(), xs.end(), 0.0) / n;
  double my = std::accumulate(ys.begin(), ys.end(), 0.0) / n;
  double sxy = 0, sxx = 0;
  for (size_t k = 0; k < xs.size(); ++k) {
    sxy += (xs[k] - mx) * (ys[k] - my);
    sxx += (xs[k] - mx) * (xs[k] - mx);
  }
  if (sxx == 0) return error(cell_error::div0);
  double b = sxy / sxx;
  return num(slope ? b : my - b * mx);
}
Operand f_slope(Args& a) {
  return f_slope_intercept(a, true);
}
Operand f_intercept(Args& a) {
  return f_slope_intercept(a, false);
}
Operand f_correl(Args& a) {
  std::vector<double> ys, xs;
  if (!pairs(a, ys, xs)) return error(cell_error::na);
  if (xs.size() < 2) return error(cell_error::div0);
  double n = static_cast<double>(xs.size());
  double mx = std::accumulate(xs.begin(), xs.end(), 0.0) / n;
  double my = std::accumulate(ys.begin(), ys.end(), 0.0) / n;
  double sxy = 0, sxx = 0, syy = 0;
  for (size_t k = 0; k < xs.size(); ++k) {
    sxy += (xs[k] - mx) * (ys[k] - my);
    sxx += (xs[k] - mx) * (xs[k] - mx);
    syy += (ys[k] - my) * (ys[k] - my);
  }
  if (sxx == 0 || syy == 0) return error(cell_error::div0);
  return num(sxy / std::sqrt(sxx * syy));
}

// ---- spread, the normal distribution, covariance, forecasts --------------------------------

Operand f_avedev(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.empty()) return error(cell_error::num);
  double mean = std::accumulate(xs.begin(), xs.end(), 0.0) / static_cast<double>(xs.size());
  double s = 0;
  for (double x : xs) s += std::fabs(x - mean);
  return num(s / static_cast<double>(xs.size()));
}
Operand f_devsq(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.empty()) return error(cell_error::num);
  double mean = std::accumulate(xs.begin(), xs.end(), 0.0) / static_cast<double>(xs.size());
  double s = 0;
  for (double x : xs) s += (x - mean) * (x - mean);
  return num(s);
}

double phi(double z) {
  return special::norm_pdf(z);
}
double cdf(double z) {
  return special::norm_cdf(z);
}
double quantile(double p) {
  return special::norm_quantile(p);
}

Operand f_norm_s_dist(Args& a) {
  double z = number(a, 0);
  bool cumulative = a.size() < 2 || boolean(a, 1);
  return num(cumulative ? cdf(z) : phi(z));
}
Operand f_norm_dist(Args& a) {
  double x = number(a, 0), mean = number(a, 1), sd = number(a, 2);
  bool cumulative = boolean(a, 3);
  if (sd <= 0) return error(cell_error::num);
  double z = (x - mean) / sd;
  return num(cumulative ? cdf(z) : phi(z) / sd);
}
Operand f_norm_s_inv(Args& a) {
  double p = number(a, 0);
  if (p <= 0 || p >= 1) return error(cell_error::num);
  return num(quantile(p));
}
Operand f_norm_inv(Args& a) {
  double p = number(a, 0), mean = number(a, 1), sd = number(a, 2);
  if (p <= 0 || p >= 1 || sd <= 0) return error(cell_error::num);
  return num(mean + sd * quantile(p));
}
Operand f_standardize(Args& a) {
  double x = number(a, 0), mean = number(a, 1), sd = number(a, 2);
  if (sd <= 0) return error(cell_error::num);
  return num((x - mean) / sd);
}

template <bool Sample>
Operand f_covariance(Args& a) {
  std::vector<double> ys, xs;
  if (!pairs(a, ys, xs)) return error(cell_error::na);
  if (xs.size() < (Sample ? 2u : 1u)) return error(cell_error::div0);
  double n = static_cast<double>(xs.size());
  double mx = std::accumulate(xs.begin(), xs.end(), 0.0) / n;
  double my = std::accumulate(ys.begin(), ys.end(), 0.0) / n;
  double s = 0;
  for (size_t k = 0; k < xs.size(); ++k) s += (xs[k] - mx) * (ys[k] - my);
  return num(s / (Sample ? n - 1 : n));
}
Operand f_rsq(Args& a) {
  Operand r = f_correl(a);
  if (r.value.is_error()) return r;
  return num(r.value.number * r.value.number);
}
Operand f_forecast(Args& a) {
  double x = number(a, 0);
  std::vector<double> ys, xs;
  Matrix my = a.ev().matrix(a.get(1)), mx = a.ev().matrix(a.get(2));
  if (my.cells.size() != mx.cells.size()) return error(cell_error::na);
  for (size_t k = 0; k < my.cells.size(); ++k) {
    if (my.cells[k].is_error()) raise(my.cells[k].error_code());
    if (mx.cells[k].is_error()) raise(mx.cells[k].error_code());
    if (my.cells[k].kind == Value::Kind::Number && mx.cells[k].kind == Value::Kind::Number) {
      ys.push_back(my.cells[k].number);
      xs.push_back(mx.cells[k].number);
    }
  }
  if (xs.empty()) return error(cell_error::div0);
  double n = static_cast<double>(xs.size());
  double mxv = std::accumulate(xs.begin(), xs.end(), 0.0) / n;
  double myv = std::accumulate(ys.begin(), ys.end(), 0.0) / n;
  double sxy = 0, sxx = 0;
  for (size_t k = 0; k < xs.size(); ++k) {
    sxy += (xs[k] - mxv) * (ys[k] - myv);
    sxx += (xs[k] - mxv) * (xs[k] - mxv);
  }
  if (sxx == 0) return error(cell_error::div0);
  double b = sxy / sxx;
  return num(myv + b * (x - mxv));
}

Operand f_percentrank(Args& a) {
  std::vector<double> xs = numbers_of(a, 0, 1);
  double x = number(a, 1);
  double digits = a.size() > 2 && !a.missing(2) ? std::trunc(number(a, 2)) : 3;
  if (xs.empty() || digits < 1) return error(cell_error::num);
  std::sort(xs.begin(), xs.end());
  if (x < xs.front() || x > xs.back()) return error(cell_error::na);
  double n = static_cast<double>(xs.size());
  if (xs.size() == 1) return num(1);
  double rank;
  auto lower = std::lower_bound(xs.begin(), xs.end(), x);
  double below = static_cast<double>(lower - xs.begin());
  if (*lower == x) {
    rank = below / (n - 1);
  } else {
    // Between two values: interpolate their ranks.
    double hi = *lower, lo = *(lower - 1);
    rank = (below - 1 + (x - lo) / (hi - lo)) / (n - 1);
  }
  double scale = std::pow(10.0, digits);
  return num(std::floor(rank * scale + 1e-9) / scale);
}
Operand f_quartile_exc(Args& a) {
  double q = std::trunc(number(a, 1));
  if (q <= 0 || q >= 4) return error(cell_error::num);
  return percentile(numbers_of(a, 0, 1), q / 4, true);
}

// ---- shape, other means, the "A" spreads ---------------------------------------------------

struct Moments {
  double n = 0, mean = 0, m2 = 0, m3 = 0, m4 = 0;  // sums of powers of deviations
};
Moments moments(const std::vector<double>& xs) {
  Moments m;
  m.n = static_cast<double>(xs.size());
  m.mean = std::accumulate(xs.begin(), xs.end(), 0.0) / m.n;
  for (double x : xs) {
    double d = x - m.mean;
    m.m2 += d * d;
    m.m3 += d * d * d;
    m.m4 += d * d * d * d;
  }
  return m;
}

Operand f_kurt(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.size() < 4) return error(cell_error::div0);
  Moments m = moments(xs);
  double var = m.m2 / (m.n - 1);
  if (var == 0) return error(cell_error::div0);
  double n = m.n;
  return num(n * (n + 1) / ((n - 1) * (n - 2) * (n - 3)) * (m.m4 / (var * var)) -
             3 * (n - 1) * (n - 1) / ((n - 2) * (n - 3)));
}
Operand f_skew(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.size() < 3) return error(cell_error::div0);
  Moments m = moments(xs);
  double sd = std::sqrt(m.m2 / (m.n - 1));
  if (sd == 0) return error(cell_error::div0);
  return num(m.n / ((m.n - 1) * (m.n - 2)) * m.m3 / (sd * sd * sd));
}
Operand f_skew_p(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.empty()) return error(cell_error::div0);
  Moments m = moments(xs);
  double sd = std::sqrt(m.m2 / m.n);
  if (sd == 0) return error(cell_error::div0);
  return num(m.m3 / m.n / (sd * sd * sd));
}

Operand f_harmean(Args& a) {
  std::vector<double> xs = numbers_of(a);
  if (xs.empty()) return error(cell_error::num);
  double s = 0;
  for (double x : xs) {
    if (x <= 0) return error(cell_error::num);
    s += 1 / x;
  }
  return num(static_cast<double>(xs.size()) / s);
}
Operand f_trimmean(Args& a) {
  std::vector<double> xs = numbers_of(a, 0, 1);
  double p = number(a, 1);
  if (p < 0 || p >= 1 || xs.empty()) return error(cell_error::num);
  // The same whole number of points leaves each end.
  size_t cut = static_cast<size_t>(std::floor(static_cast<double>(xs.size()) * p / 2));
  std::sort(xs.begin(), xs.end());
  double s = 0;
  for (size_t i = cut; i < xs.size() - cut; ++i) s += xs[i];
  return num(s / static_cast<double>(xs.size() - 2 * cut));
}

template <bool Sample, bool Root>
Operand f_var_a(Args& a) {
  std::vector<double> xs;
  each_value_a(a, [&](double d) { xs.push_back(d); });
  if (xs.size() < (Sample ? 2u : 1u)) return error(cell_error::div0);
  double v = variance(xs, Sample);
  return num(Root ? std::sqrt(v) : v);
}

Operand f_steyx(Args& a) {
  std::vector<double> ys, xs;
  if (!pairs(a, ys, xs)) return error(cell_error::na);
  if (xs.size() < 3) return error(cell_error::div0);
  double n = static_cast<double>(xs.size());
  double mx = std::accumulate(xs.begin(), xs.end(), 0.0) / n;
  double my = std::accumulate(ys.begin(), ys.end(), 0.0) / n;
  double sxy = 0, sxx = 0, syy = 0;
  for (size_t k = 0; k < xs.size(); ++k) {
    sxy += (xs[k] - mx) * (ys[k] - my);
    sxx += (xs[k] - mx) * (xs[k] - mx);
    syy += (ys[k] - my) * (ys[k] - my);
  }
  if (sxx == 0) return error(cell_error::div0);
  return num(std::sqrt(std::max(0.0, (syy - sxy * sxy / sxx) / (n - 2))));
}

// ---- counts by bin, several modes, exclusive rank --------------------------------------------

Operand f_frequency(Args& a) {
  std::vector<double> data, bins;
  auto read = [&](size_t i, std::vector<double>& out) {
    a.ev().for_each(a.get_array(i), [&](const Value& v, bool) {
      if (v.is_error()) raise(v.error_code());
      if (v.kind == Value::Kind::Number) out.push_back(v.number);
    });
  };
  read(0, data);
  read(1, bins);
  // Each value counts at the smallest bin that holds it; bins keep their given order in the
  // result, and the last place counts what lies above every bin.
  std::vector<size_t> order(bins.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t x, size_t y) { return bins[x] < bins[y]; });
  Matrix out(static_cast<int32_t>(bins.size()) + 1, 1);
  for (Value& v : out.cells) v = Value::num(0);
  for (double d : data) {
    auto it = std::lower_bound(order.begin(), order.end(), d,
                               [&](size_t k, double v) { return bins[k] < v; });
    size_t slot = it == order.end() ? bins.size() : *it;
    out.cells[slot].number += 1;
  }
  return Operand::arr(std::move(out));
}

Operand f_mode_mult(Args& a) {
  std::vector<double> xs = numbers_of(a);
  size_t best = 1;
  for (double x : xs)
    best = std::max(best, static_cast<size_t>(std::count(xs.begin(), xs.end(), x)));
  if (best < 2) return error(cell_error::na);
  std::vector<double> modes;
  for (double x : xs)
    if (static_cast<size_t>(std::count(xs.begin(), xs.end(), x)) == best &&
        std::find(modes.begin(), modes.end(), x) == modes.end())
      modes.push_back(x);
  Matrix out(static_cast<int32_t>(modes.size()), 1);
  for (size_t i = 0; i < modes.size(); ++i) out.cells[i] = Value::num(modes[i]);
  return out.cells.size() == 1 ? Operand(out.cells[0]) : Operand::arr(std::move(out));
}

Operand f_percentrank_exc(Args& a) {
  std::vector<double> xs = numbers_of(a, 0, 1);
  double x = number(a, 1);
  double digits = a.missing(2) ? 3 : std::trunc(number(a, 2));
  if (xs.empty() || digits < 1) return error(cell_error::num);
  std::sort(xs.begin(), xs.end());
  if (x < xs.front() || x > xs.back()) return error(cell_error::na);
  double n = static_cast<double>(xs.size());
  auto lower = std::lower_bound(xs.begin(), xs.end(), x);
  double below = static_cast<double>(lower - xs.begin());
  double rank;
  if (*lower == x) {
    rank = (below + 1) / (n + 1);
  } else {
    double hi = *lower, lo = *(lower - 1);
    rank = (below + (x - lo) / (hi - lo)) / (n + 1);
  }
  double scale = std::pow(10.0, digits);
  return num(std::floor(rank * scale + 1e-9) / scale);
}

Operand f_permut(Args& a) {
  double n = std::trunc(number(a, 0)), k = std::trunc(number(a, 1));
  if (n <= 0 || k < 0 || n < k) return error(cell_error::num);
  double r = 1;
  for (double i = 0; i < k; ++i) r *= n - i;
  return num(r);
}
Operand f_permutationa(Args& a) {
  double n = std::trunc(number(a, 0)), k = std::trunc(number(a, 1));
  if (n < 0 || k < 0) return error(cell_error::num);
  return num(std::pow(n, k));
}

}  // namespace

void add_stat_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"AVERAGE", 1, -1, f_average},
                        {u"AVEDEV", 1, -1, f_avedev},
                        {u"COVAR", 2, 2, f_covariance<false>},
                        {u"COVARIANCE.P", 2, 2, f_covariance<false>},
                        {u"COVARIANCE.S", 2, 2, f_covariance<true>},
                        {u"DEVSQ", 1, -1, f_devsq},
                        {u"FORECAST", 3, 3, f_forecast},
                        {u"FORECAST.LINEAR", 3, 3, f_forecast},
                        {u"NORM.DIST", 4, 4, f_norm_dist, each_arg},
                        {u"NORM.INV", 3, 3, f_norm_inv, each_arg},
                        {u"NORM.S.DIST", 2, 2, f_norm_s_dist, each_arg},
                        {u"NORM.S.INV", 1, 1, f_norm_s_inv, each_arg},
                        {u"NORMDIST", 4, 4, f_norm_dist, each_arg},
                        {u"NORMINV", 3, 3, f_norm_inv, each_arg},
                        {u"NORMSDIST", 1, 1, f_norm_s_dist, each_arg},
                        {u"NORMSINV", 1, 1, f_norm_s_inv, each_arg},
                        {u"PEARSON", 2, 2, f_correl},
                        {u"PERCENTRANK", 2, 3, f_percentrank},
                        {u"PERCENTRANK.INC", 2, 3, f_percentrank},
                        {u"QUARTILE.EXC", 2, 2, f_quartile_exc},
                        {u"RSQ", 2, 2, f_rsq},
                        {u"STANDARDIZE", 3, 3, f_standardize, each_arg},
                        {u"AVERAGEA", 1, -1, f_averagea},
                        {u"AVERAGEIF", 2, 3, f_averageif, each_arg_1},
                        {u"AVERAGEIFS", 3, -1, f_averageifs, each_even_arg_from_2},
                        {u"CORREL", 2, 2, f_correl},
                        {u"COUNT", 1, -1, f_count},
                        {u"COUNTA", 1, -1, f_counta},
                        {u"COUNTBLANK", 1, 1, f_countblank},
                        {u"COUNTIF", 2, 2, f_countif, each_arg_1},
                        {u"COUNTIFS", 2, -1, f_countifs, each_odd_arg},
                        {u"GEOMEAN", 1, -1, f_geomean},
                        {u"INTERCEPT", 2, 2, f_intercept},
                        {u"LARGE", 2, 2, f_kth<true>},
                        {u"MAX", 1, -1, f_minmax<true>},
                        {u"MAXA", 1, -1, f_minmax_a<true>},
                        {u"MAXIFS", 3, -1, f_minmaxifs<true>, each_even_arg_from_2},
                        {u"MEDIAN", 1, -1, f_median},
                        {u"MIN", 1, -1, f_minmax<false>},
                        {u"MINA", 1, -1, f_minmax_a<false>},
                        {u"MINIFS", 3, -1, f_minmaxifs<false>, each_even_arg_from_2},
                        {u"MODE", 1, -1, f_mode},
                        {u"MODE.SNGL", 1, -1, f_mode},
                        {u"PERCENTILE", 2, 2, f_percentile},
                        {u"PERCENTILE.EXC", 2, 2, f_percentile_exc},
                        {u"PERCENTILE.INC", 2, 2, f_percentile},
                        {u"QUARTILE", 2, 2, f_quartile},
                        {u"QUARTILE.INC", 2, 2, f_quartile},
                        {u"RANK", 2, 3, f_rank},
                        {u"RANK.AVG", 2, 3, f_rank_avg},
                        {u"RANK.EQ", 2, 3, f_rank},
                        {u"SLOPE", 2, 2, f_slope},
                        {u"SMALL", 2, 2, f_kth<false>},
                        {u"STDEV", 1, -1, f_var<true, true>},
                        {u"STDEV.P", 1, -1, f_var<false, true>},
                        {u"STDEV.S", 1, -1, f_var<true, true>},
                        {u"STDEVP", 1, -1, f_var<false, true>},
                        {u"VAR", 1, -1, f_var<true, false>},
                        {u"VAR.P", 1, -1, f_var<false, false>},
                        {u"VAR.S", 1, -1, f_var<true, false>},
                        {u"VARP", 1, -1, f_var<false, false>},
                        {u"FREQUENCY", 2, 2, f_frequency},
                        {u"HARMEAN", 1, -1, f_harmean},
                        {u"KURT", 1, -1, f_kurt},
                        {u"MODE.MULT", 1, -1, f_mode_mult},
                        {u"PERCENTRANK.EXC", 2, 3, f_percentrank_exc},
                        {u"PERMUT", 2, 2, f_permut, each_arg},
                        {u"PERMUTATIONA", 2, 2, f_permutationa, each_arg},
                        {u"SKEW", 1, -1, f_skew},
                        {u"SKEW.P", 1, -1, f_skew_p},
                        {u"STDEVA", 1, -1, f_var_a<true, true>},
                        {u"STDEVPA", 1, -1, f_var_a<false, true>},
                        {u"STEYX", 2, 2, f_steyx},
                        {u"TRIMMEAN", 2, 2, f_trimmean},
                        {u"VARA", 1, -1, f_var_a<true, false>},
                        {u"VARPA", 1, -1, f_var_a<false, false>},
                    });
}

}  // namespace qz::engine::calc
