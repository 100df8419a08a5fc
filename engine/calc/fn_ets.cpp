// Forecasts by exponential smoothing: FORECAST.ETS and its companions CONFINT, SEASONALITY
// and STAT. The model is additive in error, trend and season (level, slope and a seasonal
// pattern, each corrected by a share of the last one-step error); its three shares are
// fitted by minimising the squared one-step errors. The series is first put on a regular
// timeline: points on the same date aggregated, missing steps filled in.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "engine/calc/fn_special.hpp"
#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

constexpr int kMaxSeason = 8760;  // hours in a year: the longest season the application takes

/// How points sharing a date are combined (the aggregation argument, 1-7).
double aggregate(std::vector<double> xs, int how) {
  switch (how) {
    case 2:
    case 3:
      return static_cast<double>(xs.size());
    case 4:
      return *std::max_element(xs.begin(), xs.end());
    case 5: {
      std::sort(xs.begin(), xs.end());
      size_t n = xs.size();
      return n % 2 ? xs[n / 2] : (xs[n / 2 - 1] + xs[n / 2]) / 2;
    }
    case 6:
      return *std::min_element(xs.begin(), xs.end());
    case 7:
      return std::accumulate(xs.begin(), xs.end(), 0.0);
    default:
      return std::accumulate(xs.begin(), xs.end(), 0.0) / static_cast<double>(xs.size());
  }
}

/// A series on a regular timeline.
struct Series {
  std::vector<double> y;
  double start = 0, step = 0;
};

/// Reads values and timeline (arguments `vi`, `ti`) into a regular series: sorted by date,
/// equal dates aggregated, missing steps interpolated (or zero when `complete` is false).
Series series(Args& a, size_t vi, size_t ti, bool complete, int how) {
  Evaluator& ev = a.ev();
  Matrix vm = ev.matrix(a.get_array(vi)), tm = ev.matrix(a.get_array(ti));
  if (vm.cells.size() != tm.cells.size()) raise(cell_error::na);
  std::vector<std::pair<double, double>> pts;
  for (size_t k = 0; k < tm.cells.size(); ++k) {
    const Value &t = tm.cells[k], &v = vm.cells[k];
    if (t.is_error()) raise(t.error_code());
    if (v.is_error()) raise(v.error_code());
    if (t.kind != Value::Kind::Number) raise(cell_error::value);
    // Values that are not numbers are missing points.
    if (v.kind != Value::Kind::Number) continue;
    pts.emplace_back(t.number, v.number);
  }
  if (pts.size() < 3) raise(cell_error::num);
  std::stable_sort(pts.begin(), pts.end(),
                   [](const auto& p, const auto& q) { return p.first < q.first; });
  std::vector<double> dates, vals;
  for (size_t k = 0; k < pts.size();) {
    size_t j = k;
    std::vector<double> same;
    while (j < pts.size() && pts[j].first == pts[k].first) same.push_back(pts[j++].second);
    dates.push_back(pts[k].first);
    vals.push_back(aggregate(same, how));
    k = j;
  }
  if (dates.size() < 3) raise(cell_error::num);
  // The step: the smallest gap; every gap must be a whole number of steps.
  double step = HUGE_VAL;
  for (size_t k = 1; k < dates.size(); ++k) step = std::min(step, dates[k] - dates[k - 1]);
  Series s;
  s.start = dates[0];
  s.step = step;
  double span = (dates.back() - dates[0]) / step;
  if (span > 1e6) raise(cell_error::num);
  size_t n = static_cast<size_t>(std::llround(span)) + 1;
  s.y.assign(n, NAN);
  for (size_t k = 0; k < dates.size(); ++k) {
    double at = (dates[k] - dates[0]) / step;
    if (std::fabs(at - std::round(at)) > 1e-6) raise(cell_error::num);
    s.y[static_cast<size_t>(std::llround(at))] = vals[k];
  }
  // More than 30% of the steps missing is too little to go on.
  if (static_cast<double>(n - dates.size()) > 0.3 * static_cast<double>(n)) raise(cell_error::num);
  for (size_t k = 0; k < n; ++k) {
    if (!std::isnan(s.y[k])) continue;
    if (!complete) {
      s.y[k] = 0;
      continue;
    }
    size_t j = k;
    while (std::isnan(s.y[j])) ++j;
    // Filled between the known neighbours (the first point is always known).
    double lo = s.y[k - 1], hi = s.y[j];
    for (size_t i = k; i < j; ++i)
      s.y[i] = lo + (hi - lo) * static_cast<double>(i - k + 1) / static_cast<double>(j - k + 1);
    k = j;
  }
  return s;
}

/// The seasonality found in a series: the lag whose autocorrelation of the detrended
/// series peaks highest, provided it is clearly positive; 0 for none.
int detect_season(const std::vector<double>& y) {
  size_t n = y.size();
  if (n < 6) return 0;
  // Detrend by the least-squares line.
  double mx = (static_cast<double>(n) - 1) / 2, my = 0;
  for (double v : y) my += v;
  my /= static_cast<double>(n);
  double sxy = 0, sxx = 0;
  for (size_t k = 0; k < n; ++k) {
    sxy += (static_cast<double>(k) - mx) * (y[k] - my);
    sxx += (static_cast<double>(k) - mx) * (static_cast<double>(k) - mx);
  }
  double slope = sxy / sxx;
  std::vector<double> r(n);
  double var = 0;
  for (size_t k = 0; k < n; ++k) {
    r[k] = y[k] - my - slope * (static_cast<double>(k) - mx);
    var += r[k] * r[k];
  }
  double scale = 0;
  for (double v : y) scale += v * v;
  // A straight line leaves only rounding behind: no season.
  if (var <= 1e-20 * scale) return 0;
  // The lags tried cost n steps each; long series try fewer, so no series takes long.
  size_t max_lag = std::min<size_t>({n / 2, kMaxSeason, std::max<size_t>(2, 50000000 / n)});
  std::vector<double> acf(max_lag + 2, 0);
  // Each lag's correlation averaged over the pairs it has, so that a long season is not
  // outweighed by a half season that happens to fit more pairs.
  for (size_t lag = 1; lag <= max_lag + 1 && lag < n; ++lag) {
    double c = 0;
    for (size_t k = lag; k < n; ++k) c += r[k] * r[k - lag];
    acf[lag] = c / static_cast<double>(n - lag) / (var / static_cast<double>(n));
  }
  int best = 0;
  double best_acf = 0;
  // A season must repeat at least twice in the data; the peak must stand above its
  // neighbours and above the noise level of an autocorrelation of n points.
  double noise = 2 / std::sqrt(static_cast<double>(n));
  for (size_t lag = 2; lag <= max_lag; ++lag) {
    bool peak = acf[lag] > acf[lag - 1] && acf[lag] >= acf[lag + 1];
    if (peak && acf[lag] > noise && acf[lag] > best_acf + 1e-9) {
      best = static_cast<int>(lag);
      best_acf = acf[lag];
    }
  }
  return best;
}

/// The fitted model of a series.
struct Fit {
  double alpha = 0, beta = 0, gamma = 0;
  int m = 0;
  double level = 0, trend = 0;
  std::vector<double> season;  // the last m seasonal terms, oldest first
  std::vector<double> errors;  // one-step errors
  std::vector<double> fitted;  // one-step forecasts
  double sse = 0;
};

/// Runs the smoothing equations over the series with the given shares.
Fit run(const std::vector<double>& y, int m, double alpha, double beta, double gamma) {
  Fit f;
  f.alpha = alpha, f.beta = beta, f.gamma = gamma, f.m = m;
  size_t n = y.size();
  // Start: the level and slope of the first two seasons (or points), the season as the
  // first season's departures from its mean.
  if (m >= 2 && n >= static_cast<size_t>(2 * m)) {
    double first = 0, second = 0;
    for (int k = 0; k < m; ++k) first += y[k], second += y[m + k];
    first /= m, second /= m;
    f.trend = (second - first) / m;
    f.level = first - f.trend * (m + 1) / 2.0;
    f.season.resize(m);
    for (int k = 0; k < m; ++k) f.season[k] = y[k] - (first + f.trend * (k - (m - 1) / 2.0));
  } else {
    f.trend = y[1] - y[0];
    f.level = y[0] - f.trend;
    f.season.assign(std::max(m, 1), 0.0);
  }
  bool seasonal = m >= 2;
  for (size_t t = 0; t < n; ++t) {
    double s = seasonal ? f.season[t % m] : 0;
    double forecast = f.level + f.trend + s;
    double e = y[t] - forecast;
    f.fitted.push_back(forecast);
    f.errors.push_back(e);
    f.sse += e * e;
    double level = f.level + f.trend + alpha * e;
    f.trend += beta * e;
    f.level = level;
    if (seasonal) f.season[t % m] = s + gamma * e;
  }
  // Oldest first from the next step's point of view.
  if (seasonal) std::rotate(f.season.begin(), f.season.begin() + (n % m), f.season.end());
  return f;
}

/// The shares that minimise the squared one-step errors, each in [0, 1]: a coarse grid,
/// then a pattern search around the best point.
Fit fit(const std::vector<double>& y, int m) {
  bool seasonal = m >= 2;
  auto cost = [&](double a, double b, double g) { return run(y, m, a, b, g).sse; };
  double best[3] = {0.5, 0.1, seasonal ? 0.1 : 0};
  double best_cost = HUGE_VAL;
  const double grid[] = {0.05, 0.2, 0.4, 0.6, 0.8, 0.95};
  for (double a : grid)
    for (double b : {0.0, 0.05, 0.2, 0.5})
      for (double g : seasonal ? std::vector<double>{0.0, 0.1, 0.3, 0.6} : std::vector<double>{0})
        if (double c = cost(a, b, g); c < best_cost) {
          best_cost = c;
          best[0] = a, best[1] = b, best[2] = g;
        }
  int dims = seasonal ? 3 : 2;
  for (double h = 0.1; h > 1e-5; h /= 2) {
    bool moved = true;
    while (moved) {
      moved = false;
      for (int d = 0; d < dims; ++d)
        for (double dir : {-1.0, 1.0}) {
          double p[3] = {best[0], best[1], best[2]};
          p[d] = std::clamp(p[d] + dir * h, 0.0, 1.0);
          if (double c = cost(p[0], p[1], p[2]); c < best_cost - 1e-12 * best_cost) {
            best_cost = c;
            std::copy(p, p + 3, best);
            moved = true;
          }
        }
    }
  }
  return run(y, m, best[0], best[1], best[2]);
}

/// The optional arguments shared by the four functions.
struct Options {
  int season = -1;  // -1: detect
  bool complete = true;
  int how = 1;
};

Options options(Args& a, size_t season_at, size_t complete_at, size_t how_at) {
  Options o;
  if (season_at < a.size() && !a.missing(season_at)) {
    double s = integer(a, season_at);
    if (s < 0 || s > kMaxSeason) raise(cell_error::num);
    o.season = s == 1 ? -1 : static_cast<int>(s);
  }
  if (complete_at < a.size() && !a.missing(complete_at)) {
    double c = integer(a, complete_at);
    if (c != 0 && c != 1) raise(cell_error::num);
    o.complete = c == 1;
  }
  if (how_at < a.size() && !a.missing(how_at)) {
    double h = integer(a, how_at);
    if (h < 1 || h > 7) raise(cell_error::num);
    o.how = static_cast<int>(h);
  }
  return o;
}

/// The series and its fitted model.
struct Model {
  Series s;
  Fit f;
};

Model model(Args& a, size_t vi, size_t ti, const Options& o) {
  Model md;
  md.s = series(a, vi, ti, o.complete, o.how);
  int m = o.season < 0 ? detect_season(md.s.y) : o.season;
  // A season needs two full cycles to start from.
  if (m >= 2 && md.s.y.size() < static_cast<size_t>(2 * m)) raise(cell_error::num);
  md.f = fit(md.s.y, m);
  return md;
}

/// The forecast h steps past the last point (h >= 1).
double forecast_at(const Fit& f, double h) {
  auto at = [&](long k) {
    double s = f.m >= 2 ? f.season[static_cast<size_t>((k - 1) % f.m)] : 0;
    return f.level + static_cast<double>(k) * f.trend + s;
  };
  long lo = static_cast<long>(std::floor(h));
  if (static_cast<double>(lo) == h) return at(lo);
  // Between two steps of the timeline: along the line between their forecasts.
  double x = at(lo), y = at(lo + 1);
  return x + (y - x) * (h - static_cast<double>(lo));
}

/// The forecast for a date: past the last point, or a fitted value within the data.
double forecast_for(const Model& md, double date) {
  double pos = (date - md.s.start) / md.s.step;
  if (pos < 0) raise(cell_error::num);
  double last = static_cast<double>(md.s.y.size() - 1);
  if (pos > last) return forecast_at(md.f, pos - last);
  size_t k = static_cast<size_t>(std::floor(pos));
  if (k + 1 >= md.s.y.size()) return md.f.fitted[k];
  double frac = pos - static_cast<double>(k);
  return md.f.fitted[k] + frac * (md.f.fitted[k + 1] - md.f.fitted[k]);
}

Operand f_forecast_ets(Args& a) {
  double date = number(a, 0);
  Options o = options(a, 3, 4, 5);
  Model md = model(a, 1, 2, o);
  return num(forecast_for(md, date));
}

Operand f_forecast_ets_confint(Args& a) {
  double date = number(a, 0);
  double level = a.size() > 3 && !a.missing(3) ? number(a, 3) : 0.95;
  if (level <= 0 || level >= 1) return error(cell_error::num);
  Options o = options(a, 4, 5, 6);
  Model md = model(a, 1, 2, o);
  double h = std::ceil((date - md.s.start) / md.s.step - static_cast<double>(md.s.y.size() - 1));
  if ((date - md.s.start) / md.s.step < 0) return error(cell_error::num);
  h = std::max(h, 1.0);
  // The variance of an h-step forecast grows by the squared weights the later errors carry.
  const Fit& f = md.f;
  double sigma2 = f.sse / static_cast<double>(md.s.y.size());
  // Summed in closed form over j = 1 .. h-1 of (alpha + beta j + gamma [m divides j])^2,
  // so a target far ahead costs no more than a near one.
  double k = h - 1, a1 = f.alpha, b1 = f.beta, g1 = f.gamma;
  double grow = 1 + k * a1 * a1 + a1 * b1 * k * (k + 1) + b1 * b1 * k * (k + 1) * (2 * k + 1) / 6;
  if (f.m >= 2) {
    double p = std::floor(k / f.m);
    grow += g1 * ((2 * a1 + g1) * p + b1 * f.m * p * (p + 1));
  }
  double z = special::norm_quantile((1 + level) / 2);
  return num(z * std::sqrt(sigma2 * grow));
}

Operand f_forecast_ets_seasonality(Args& a) {
  Options o = options(a, SIZE_MAX, 2, 3);
  Series s = series(a, 0, 1, o.complete, o.how);
  return num(detect_season(s.y));
}

Operand f_forecast_ets_stat(Args& a) {
  double which = integer(a, 2);
  if (which < 1 || which > 8) return error(cell_error::num);
  Options o = options(a, 3, 4, 5);
  Model md = model(a, 0, 1, o);
  const Fit& f = md.f;
  const std::vector<double>& y = md.s.y;
  size_t n = y.size();
  double mae = 0, smape = 0, naive = 0;
  for (size_t t = 0; t < n; ++t) {
    mae += std::fabs(f.errors[t]);
    double d = std::fabs(y[t]) + std::fabs(f.fitted[t]);
    if (d > 0) smape += 2 * std::fabs(f.errors[t]) / d;
    if (t > 0) naive += std::fabs(y[t] - y[t - 1]);
  }
  double nn = static_cast<double>(n);
  switch (static_cast<int>(which)) {
    case 1:
      return num(f.alpha);
    case 2:
      return num(f.beta);
    case 3:
      return num(f.gamma);
    case 4:
      if (naive == 0) return error(cell_error::div0);
      return num((mae / nn) / (naive / (nn - 1)));
    case 5:
      return num(smape / nn);
    case 6:
      return num(mae / nn);
    case 7:
      return num(std::sqrt(f.sse / nn));
    default:
      return num(md.s.step);
  }
}

}  // namespace

void add_ets_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"FORECAST.ETS", 3, 6, f_forecast_ets, each_arg_0},
                        {u"FORECAST.ETS.CONFINT", 3, 7, f_forecast_ets_confint, each_arg_0},
                        {u"FORECAST.ETS.SEASONALITY", 2, 4, f_forecast_ets_seasonality},
                        {u"FORECAST.ETS.STAT", 3, 6, f_forecast_ets_stat, 4u},
                    });
}

}  // namespace qz::engine::calc
