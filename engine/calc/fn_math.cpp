// Arithmetic: sums, products, rounding, powers and the conditional sums.
#include <algorithm>
#include <numeric>
#include <random>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

std::mt19937_64& rng() {
  static std::mt19937_64 g{std::random_device{}()};
  return g;
}

Operand f_sum(Args& a) {
  double s = 0;
  each_number_all(a, [&](double d) { s += d; });
  return num(s);
}

Operand f_product(Args& a) {
  double p = 1;
  bool any = false;
  each_number_all(a, [&](double d) {
    p *= d;
    any = true;
  });
  return num(any ? p : 0);
}

Operand f_sumsq(Args& a) {
  double s = 0;
  each_number_all(a, [&](double d) { s += d * d; });
  return num(s);
}

Operand f_abs(Args& a) {
  return num(std::fabs(number(a, 0)));
}
Operand f_int(Args& a) {
  return num(std::floor(number(a, 0)));
}
Operand f_sign(Args& a) {
  double x = number(a, 0);
  return num(x > 0 ? 1 : x < 0 ? -1 : 0);
}
Operand f_sqrt(Args& a) {
  double x = number(a, 0);
  if (x < 0) return error(cell_error::num);
  return num(std::sqrt(x));
}
Operand f_exp(Args& a) {
  return num(std::exp(number(a, 0)));
}
Operand f_ln(Args& a) {
  double x = number(a, 0);
  if (x <= 0) return error(cell_error::num);
  return num(std::log(x));
}
Operand f_log10(Args& a) {
  double x = number(a, 0);
  if (x <= 0) return error(cell_error::num);
  return num(std::log10(x));
}
Operand f_log(Args& a) {
  double x = number(a, 0);
  double base = number_or(a, 1, 10);
  if (x <= 0 || base <= 0) return error(cell_error::num);
  if (base == 1) return error(cell_error::div0);
  return num(std::log(x) / std::log(base));
}
Operand f_power(Args& a) {
  double x = number(a, 0), y = number(a, 1);
  if (x == 0 && y == 0) return error(cell_error::num);
  if (x == 0 && y < 0) return error(cell_error::div0);
  return num(std::pow(x, y));
}
Operand f_pi(Args&) {
  return num(3.14159265358979323846);
}

Operand f_mod(Args& a) {
  double x = number(a, 0), y = number(a, 1);
  if (y == 0) return error(cell_error::div0);
  // The result takes the divisor's sign.
  double r = x - y * std::floor(x / y);
  if (numbers_equal(r, y)) r = 0;
  return num(r);
}
Operand f_quotient(Args& a) {
  double x = number(a, 0), y = number(a, 1);
  if (y == 0) return error(cell_error::div0);
  return num(std::trunc(x / y));
}

Operand f_round(Args& a) {
  return num(round_half_away(number(a, 0), static_cast<int>(integer(a, 1))));
}

double round_toward(double x, int digits, bool up) {
  double scale = std::pow(10.0, std::abs(digits));
  double y = digits >= 0 ? x * scale : x / scale;
  // Snap a value a hair off a whole number (0.1*3*10 = 3.0000000000000004) first.
  double snapped = std::round(y);
  if (std::fabs(y - snapped) < 1e-9 * std::max(1.0, std::fabs(y))) y = snapped;
  double r = up ? (y < 0 ? std::floor(y) : std::ceil(y)) : std::trunc(y);
  return digits >= 0 ? r / scale : r * scale;
}
Operand f_roundup(Args& a) {
  return num(round_toward(number(a, 0), static_cast<int>(integer(a, 1)), true));
}
Operand f_rounddown(Args& a) {
  return num(round_toward(number(a, 0), static_cast<int>(integer(a, 1)), false));
}
Operand f_trunc(Args& a) {
  return num(round_toward(number(a, 0), a.missing(1) ? 0 : static_cast<int>(integer(a, 1)), false));
}

double multiple_round(double x, double m, int dir) {
  // dir: 1 ceiling (away from zero for CEILING's sign rules), -1 floor, 0 nearest
  double q = x / m;
  double snapped = std::round(q);
  // Absorbs the binary noise of x / m (0.3 / 0.1 is 2.9999999999999996), but a tiny
  // quotient is no noise around zero: CEILING(1E-10, 1) is 1.
  if (snapped != 0 && std::fabs(q - snapped) < 1e-9) q = snapped;
  double r = dir > 0 ? std::ceil(q) : dir < 0 ? std::floor(q) : std::floor(q + 0.5);
  return r * m;
}

Operand f_ceiling(Args& a) {
  double x = number(a, 0);
  double m = a.size() > 1 ? number(a, 1) : 1;
  if (m == 0 || x == 0) return num(0);
  if (x > 0 && m < 0) return error(cell_error::num);
  // Negative numbers with a negative significance round away from zero.
  if (x < 0 && m < 0) return num(-multiple_round(-x, -m, 1));
  return num(multiple_round(x, m, 1));
}
// The older rule the open file format wrote down: a number and a significance of different
// signs are #NUM!, and the rounding is always away from zero.
Operand f_ecma_ceiling(Args& a) {
  double x = number(a, 0);
  double m = number(a, 1);
  if (m == 0 || x == 0) return num(0);
  if ((x < 0) != (m < 0)) return error(cell_error::num);
  if (x < 0) return num(-multiple_round(-x, -m, 1));
  return num(multiple_round(x, m, 1));
}
Operand f_ceiling_math(Args& a) {
  double x = number(a, 0);
  double m = a.missing(1) ? 1 : std::fabs(number(a, 1));
  bool away = !a.missing(2) && number(a, 2) != 0;
  if (m == 0) return num(0);
  if (x < 0 && away) return num(-multiple_round(-x, m, 1));
  return num(multiple_round(x, m, 1));
}
Operand f_floor(Args& a) {
  double x = number(a, 0);
  double m = a.size() > 1 ? number(a, 1) : 1;
  if (m == 0) return x == 0 ? num(0) : error(cell_error::div0);
  if (x > 0 && m < 0) return error(cell_error::num);
  if (x < 0 && m < 0) return num(-multiple_round(-x, -m, -1));
  return num(multiple_round(x, m, -1));
}
Operand f_floor_math(Args& a) {
  double x = number(a, 0);
  double m = a.missing(1) ? 1 : std::fabs(number(a, 1));
  bool toward_zero = !a.missing(2) && number(a, 2) != 0;
  if (m == 0) return num(0);
  if (x < 0 && toward_zero) return num(-multiple_round(-x, m, -1));
  return num(multiple_round(x, m, -1));
}
Operand f_mround(Args& a) {
  double x = number(a, 0), m = number(a, 1);
  if (m == 0) return num(0);
  if ((x > 0 && m < 0) || (x < 0 && m > 0)) return error(cell_error::num);
  double q = x / m;
  return num(round_half_away(q, 0) * m);
}
Operand f_even(Args& a) {
  double x = number(a, 0);
  double r = std::ceil(std::fabs(x) / 2 - 1e-12) * 2;
  return num(x < 0 ? -r : r);
}
Operand f_odd(Args& a) {
  double x = number(a, 0);
  double ax = std::fabs(x);
  double r = std::ceil((ax - 1) / 2 - 1e-12) * 2 + 1;
  if (r < 1) r = 1;
  return num(x < 0 ? -r : r);
}
/// C(n, k) by the shorter of its two products; #NUM! once it outgrows a double, which also
/// ends the loop early for counts like 1E+15.
Operand binomial(double n, double k) {
  k = std::min(k, n - k);
  double r = 1;
  for (double i = 1; i <= k; ++i) {
    r = r * (n - k + i) / i;
    if (!std::isfinite(r)) return error(cell_error::num);
  }
  return num(std::round(r));
}
Operand f_fact(Args& a) {
  double x = std::floor(number(a, 0));
  if (x < 0) return error(cell_error::num);
  // Past 170! no double holds the result; stopping there also keeps 1E+15 from looping.
  if (x > 170) return error(cell_error::num);
  double r = 1;
  for (int i = 2; i <= x; ++i) r *= i;
  return num(r);
}
Operand f_combin(Args& a) {
  double n = std::trunc(number(a, 0)), k = std::trunc(number(a, 1));
  if (n < 0 || k < 0 || k > n) return error(cell_error::num);
  return binomial(n, k);
}
Operand f_gcd(Args& a) {
  double g = 0;
  each_number_all(a, [&](double d) {
    if (d < 0) raise(cell_error::num);
    double x = std::trunc(d);
    double y = g;
    while (x != 0) {
      double t = std::fmod(y, x);
      y = x;
      x = t;
    }
    g = y;
  });
  return num(g);
}
Operand f_lcm(Args& a) {
  double l = 1;
  bool zero = false;
  each_number_all(a, [&](double d) {
    if (d < 0) raise(cell_error::num);
    double x = std::trunc(d);
    if (x == 0) {
      zero = true;
      return;
    }
    double p = l, q = x;
    while (q != 0) {
      double t = std::fmod(p, q);
      p = q;
      q = t;
    }
    l = l / p * x;
  });
  return num(zero ? 0 : l);
}

Operand f_rand(Args&) {
  std::uniform_real_distribution<double> d(0.0, 1.0);
  return num(d(rng()));
}
Operand f_randbetween(Args& a) {
  double lo = std::ceil(number(a, 0)), hi = std::floor(number(a, 1));
  if (lo > hi) return error(cell_error::num);
  std::uniform_int_distribution<int64_t> d(static_cast<int64_t>(lo), static_cast<int64_t>(hi));
  return num(static_cast<double>(d(rng())));
}

template <double (*F)(double)>
Operand unary_fn(Args& a) {
  return num(F(number(a, 0)));
}
double radians(double x) {
  return x * 3.14159265358979323846 / 180;
}
double degrees(double x) {
  return x * 180 / 3.14159265358979323846;
}
double sin_(double x) {
  return std::sin(x);
}
double cos_(double x) {
  return std::cos(x);
}
double tan_(double x) {
  return std::tan(x);
}
double atan_(double x) {
  return std::atan(x);
}
Operand f_asin(Args& a) {
  double x = number(a, 0);
  if (x < -1 || x > 1) return error(cell_error::num);
  return num(std::asin(x));
}
Operand f_acos(Args& a) {
  double x = number(a, 0);
  if (x < -1 || x > 1) return error(cell_error::num);
  return num(std::acos(x));
}
Operand f_atan2(Args& a) {
  double x = number(a, 0), y = number(a, 1);
  if (x == 0 && y == 0) return error(cell_error::div0);
  return num(std::atan2(y, x));
}

// ---- SUMPRODUCT and the conditional sums ------------------------------------------------

Operand f_sumproduct(Args& a) {
  std::vector<Matrix> ms;
  for (size_t i = 0; i < a.size(); ++i) {
    Operand o = a.get_array(i);
    ms.push_back(a.ev().matrix(o));
    if (ms.back().rows != ms[0].rows || ms.back().cols != ms[0].cols)
      return error(cell_error::value);
  }
  double s = 0;
  size_t n = ms[0].cells.size();
  // A single value must be a number; in larger arrays text counts as zero.
  if (n == 1)
    for (const Matrix& m : ms)
      if (m.cells[0].kind == Value::Kind::Text) return error(cell_error::value);
  for (size_t k = 0; k < n; ++k) {
    double p = 1;
    for (const Matrix& m : ms) {
      const Value& v = m.cells[k];
      if (v.is_error()) raise(v.error_code());
      // Only numbers multiply; text and Booleans in the arrays count as zero.
      p *= v.kind == Value::Kind::Number ? v.number : 0;
    }
    s += p;
  }
  return num(s);
}

Operand f_sumif(Args& a) {
  Evaluator& ev = a.ev();
  const Operand& range = a.get(0);
  Criterion crit(scalar(a, 1));
  const Operand& sum_range = a.missing(2) ? range : a.get(2);
  double s = 0;
  each_match(ev, range, crit, [&](int32_t r, int32_t c) {
    Value v = at_offset(ev, sum_range, r, c);
    if (v.kind == Value::Kind::Number)
      s += v.number;
    else if (v.is_error())
      raise(v.error_code());
  });
  return num(s);
}

Operand f_sumifs(Args& a) {
  Evaluator& ev = a.ev();
  const Operand& sum_range = a.get(0);
  double s = 0;
  each_multi_match(a, 1, [&](int32_t r, int32_t c) {
    Value v = at_offset(ev, sum_range, r, c);
    if (v.kind == Value::Kind::Number)
      s += v.number;
    else if (v.is_error())
      raise(v.error_code());
  });
  return num(s);
}

// ---- SUBTOTAL and AGGREGATE ----------------------------------------------------------------

/// Whether a cell holds a SUBTOTAL or AGGREGATE of its own: those are left out of the
/// ranges of another, so that a grand total over a column of subtotals counts nothing twice.
bool nested_total(Evaluator& ev, SheetId sheet, CellRef c) {
  FormulaPtr f = ev.ctx().formula_at(sheet, c);
  if (!f) return false;
  for (const Node& n : f->nodes) {
    if (n.kind != NodeKind::Func || n.func < 0) continue;
    StringView name = f->text(n.str);
    if (name.size() >= 8 && name.substr(name.size() - 8) == u"SUBTOTAL") return true;
    if (name.size() >= 9 && name.substr(name.size() - 9) == u"AGGREGATE") return true;
  }
  return false;
}

/// The values SUBTOTAL and AGGREGATE summarise.
struct Collected {
  std::vector<double> xs;
  size_t nonempty = 0;
};

/// Reads arguments [from, to): numbers, and a count of non-empty values. Errors raise
/// unless `skip_errors`; nested totals are left out when `skip_nested`. With `as_array` an
/// argument that computes is evaluated element by element, so that AGGREGATE(14,6,A:A/(B:B=x),1)
/// ranks the filtered values instead of the one value in the formula's own row.
Collected collect(Args& a, size_t from, size_t to, bool skip_errors, bool skip_nested,
                  bool errors_count, bool skip_hidden, bool as_array = false) {
  Collected out;
  Evaluator& ev = a.ev();
  auto take = [&](const Value& v) {
    if (v.is_error()) {
      if (skip_errors) return;
      if (errors_count) {  // COUNT and COUNTA are not stopped by errors
        ++out.nonempty;
        return;
      }
      raise(v.error_code());
    }
    if (v.kind == Value::Kind::Number) out.xs.push_back(v.number);
    if (v.kind != Value::Kind::Empty) ++out.nonempty;
  };
  for (size_t i = from; i < to && i < a.size(); ++i) {
    if (a.missing(i)) continue;
    Operand o = as_array ? a.get_array(i) : a.get(i);
    if (!o.is_ref()) {
      ev.for_each(o, [&](const Value& v, bool) { take(v); });
      continue;
    }
    for (const Area& ar : o.areas) {
      auto c = ev.clip(ar);
      if (!c) continue;
      ev.ctx().for_each_value(c->sheet, c->rect, [&](CellRef at, const Value& v) {
        if (skip_hidden && ev.ctx().row_hidden(c->sheet, at.row)) return;
        if (!skip_nested || !nested_total(ev, c->sheet, at)) take(v);
      });
    }
  }
  return out;
}

/// The summaries numbered as SUBTOTAL (1-11) and AGGREGATE (1-19) number them.
Operand summarise(int code, Collected& c, double k) {
  std::vector<double>& xs = c.xs;
  double n = static_cast<double>(xs.size());
  double sum = std::accumulate(xs.begin(), xs.end(), 0.0);
  auto var = [&](bool sample) -> Operand {
    if (xs.size() < (sample ? 2u : 1u)) return error(cell_error::div0);
    double mean = sum / n, ss = 0;
    for (double x : xs) ss += (x - mean) * (x - mean);
    return num(ss / (sample ? n - 1 : n));
  };
  auto root = [](Operand v) { return v.value.is_error() ? v : num(std::sqrt(v.value.number)); };
  switch (code) {
    case 1:
      return xs.empty() ? error(cell_error::div0) : num(sum / n);
    case 2:
      return num(n);
    case 3:
      return num(static_cast<double>(c.nonempty));
    case 4:
      return num(xs.empty() ? 0 : *std::max_element(xs.begin(), xs.end()));
    case 5:
      return num(xs.empty() ? 0 : *std::min_element(xs.begin(), xs.end()));
    case 6: {
      double p = 1;
      for (double x : xs) p *= x;
      return num(xs.empty() ? 0 : p);
    }
    case 7:
      return root(var(true));
    case 8:
      return root(var(false));
    case 9:
      return num(sum);
    case 10:
      return var(true);
    case 11:
      return var(false);
    case 12: {
      if (xs.empty()) return error(cell_error::num);
      std::sort(xs.begin(), xs.end());
      size_t m = xs.size();
      return num(m % 2 ? xs[m / 2] : (xs[m / 2 - 1] + xs[m / 2]) / 2);
    }
    case 13: {
      size_t best = 1;
      double mode = 0;
      for (double x : xs) {
        size_t cnt = static_cast<size_t>(std::count(xs.begin(), xs.end(), x));
        if (cnt > best) best = cnt, mode = x;
      }
      return best > 1 ? num(mode) : error(cell_error::na);
    }
    case 14:
    case 15: {
      double kk = std::ceil(k - 1e-12);
      if (xs.empty() || kk < 1 || kk > n) return error(cell_error::num);
      size_t i = static_cast<size_t>(kk) - 1;
      if (code == 14)
        std::nth_element(xs.begin(), xs.begin() + i, xs.end(), std::greater<double>());
      else
        std::nth_element(xs.begin(), xs.begin() + i, xs.end());
      return num(xs[i]);
    }
    case 16:
      return percentile(xs, k, false);
    case 17:
      return k < 0 || k > 4 ? error(cell_error::num) : percentile(xs, std::trunc(k) / 4, false);
    case 18:
      return percentile(xs, k, true);
    case 19:
      return k <= 0 || k >= 4 ? error(cell_error::num) : percentile(xs, std::trunc(k) / 4, true);
    default:
      return error(cell_error::value);
  }
}

Operand f_subtotal(Args& a) {
  int code = static_cast<int>(integer(a, 0));
  // 101..111: the same summaries, leaving hidden rows out.
  bool skip_hidden = code > 100;
  if (skip_hidden) code -= 100;
  if (code < 1 || code > 11) return error(cell_error::value);
  Collected c = collect(a, 1, a.size(), false, true, code == 2 || code == 3, skip_hidden);
  return summarise(code, c, 0);
}

Operand f_aggregate(Args& a) {
  int code = static_cast<int>(integer(a, 0));
  int options = a.missing(1) ? 0 : static_cast<int>(integer(a, 1));
  if (code < 1 || code > 19 || options < 0 || options > 7) return error(cell_error::value);
  // Options: 0-3 leave out nested totals, odd ones hidden rows, 2, 3, 6 and 7 errors.
  bool skip_nested = options <= 3;
  bool skip_errors = options == 2 || options == 3 || options == 6 || options == 7;
  bool skip_hidden = options % 2 == 1;
  if (code >= 14) {
    if (a.size() < 4) return error(cell_error::value);
    Collected c = collect(a, 2, 3, skip_errors, skip_nested, false, skip_hidden, true);
    return summarise(code, c, number(a, 3));
  }
  Collected c =
      collect(a, 2, a.size(), skip_errors, skip_nested, code == 2 || code == 3, skip_hidden);
  return summarise(code, c, 0);
}

// ---- more arithmetic -----------------------------------------------------------------------

double sinh_(double x) {
  return std::sinh(x);
}
double cosh_(double x) {
  return std::cosh(x);
}
double tanh_(double x) {
  return std::tanh(x);
}
double asinh_(double x) {
  return std::asinh(x);
}
Operand f_acosh(Args& a) {
  double x = number(a, 0);
  if (x < 1) return error(cell_error::num);
  return num(std::acosh(x));
}
Operand f_atanh(Args& a) {
  double x = number(a, 0);
  if (x <= -1 || x >= 1) return error(cell_error::num);
  return num(std::atanh(x));
}

Operand precise(Args& a, int dir) {
  double x = number(a, 0);
  double m = a.missing(1) || a.size() < 2 ? 1 : std::fabs(number(a, 1));
  if (m == 0) return num(0);
  return num(multiple_round(x, m, dir));
}
Operand f_ceiling_precise(Args& a) {
  return precise(a, 1);
}
Operand f_floor_precise(Args& a) {
  return precise(a, -1);
}

/// SUMX2MY2, SUMX2PY2 and SUMXMY2: pairs of numbers from two same-sized arrays.
template <int Kind>
Operand f_sumx(Args& a) {
  Matrix x = a.ev().matrix(a.get_array(0)), y = a.ev().matrix(a.get_array(1));
  if (x.cells.size() != y.cells.size()) return error(cell_error::na);
  double s = 0;
  size_t pairs = 0;
  for (size_t k = 0; k < x.cells.size(); ++k) {
    const Value &u = x.cells[k], &v = y.cells[k];
    if (u.is_error()) raise(u.error_code());
    if (v.is_error()) raise(v.error_code());
    if (u.kind != Value::Kind::Number || v.kind != Value::Kind::Number) continue;
    ++pairs;
    if (Kind == 0)
      s += u.number * u.number - v.number * v.number;
    else if (Kind == 1)
      s += u.number * u.number + v.number * v.number;
    else
      s += (u.number - v.number) * (u.number - v.number);
  }
  if (pairs == 0) return error(cell_error::div0);
  return num(s);
}

Operand f_mmult(Args& a) {
  Matrix x = a.ev().matrix(a.get_array(0)), y = a.ev().matrix(a.get_array(1));
  if (x.cols != y.rows) return error(cell_error::value);
  Matrix out(x.rows, y.cols);
  for (int32_t r = 0; r < x.rows; ++r)
    for (int32_t c = 0; c < y.cols; ++c) {
      double s = 0;
      for (int32_t k = 0; k < x.cols; ++k) {
        const Value &u = x.at(r, k), &v = y.at(k, c);
        if (u.kind != Value::Kind::Number || v.kind != Value::Kind::Number)
          return error(cell_error::value);
        s += u.number * v.number;
      }
      out.at(r, c) = Value::num(s);
    }
  return out.cells.size() == 1 ? Operand(out.cells[0]) : Operand::arr(std::move(out));
}

// ---- reciprocal trigonometry, series, counting ---------------------------------------------

/// Arguments of the circular functions: beyond 2^27 their results carry no precision, and
/// the application refuses them.
double angle(Args& a, size_t i) {
  double x = number(a, i);
  if (std::fabs(x) >= 134217728) raise(cell_error::num);
  return x;
}
template <double (*F)(double)>
Operand circular(Args& a) {
  return num(F(angle(a, 0)));
}
Operand f_cot(Args& a) {
  double x = angle(a, 0);
  if (x == 0) return error(cell_error::div0);
  return num(1 / std::tan(x));
}
Operand f_csc(Args& a) {
  double x = angle(a, 0);
  if (x == 0) return error(cell_error::div0);
  return num(1 / std::sin(x));
}
Operand f_sec(Args& a) {
  return num(1 / std::cos(angle(a, 0)));
}
Operand f_coth(Args& a) {
  double x = number(a, 0);
  if (x == 0) return error(cell_error::div0);
  return num(1 / std::tanh(x));
}
Operand f_csch(Args& a) {
  double x = number(a, 0);
  if (x == 0) return error(cell_error::div0);
  return num(1 / std::sinh(x));
}
Operand f_sech(Args& a) {
  return num(1 / std::cosh(number(a, 0)));
}
Operand f_acot(Args& a) {
  return num(std::atan2(1.0, number(a, 0)));
}
Operand f_acoth(Args& a) {
  double x = number(a, 0);
  if (std::fabs(x) <= 1) return error(cell_error::num);
  return num(0.5 * std::log((x + 1) / (x - 1)));
}
Operand f_sqrtpi(Args& a) {
  double x = number(a, 0);
  if (x < 0) return error(cell_error::num);
  return num(std::sqrt(x * 3.14159265358979323846));
}

Operand f_factdouble(Args& a) {
  double n = std::trunc(number(a, 0));
  if (n < -1) return error(cell_error::num);
  double r = 1;
  for (double k = n; k > 1 && std::isfinite(r); k -= 2) r *= k;
  return std::isfinite(r) ? num(r) : error(cell_error::num);
}
Operand f_combina(Args& a) {
  double n = std::trunc(number(a, 0)), k = std::trunc(number(a, 1));
  if (n < 0 || k < 0 || (n == 0 && k > 0)) return error(cell_error::num);
  if (k == 0) return num(1);
  return binomial(n + k - 1, k);
}
Operand f_multinomial(Args& a) {
  double total = 0, r = 1;
  each_number_all(a, [&](double d) {
    double n = std::trunc(d);
    if (n < 0) raise(cell_error::num);
    // Multiply in the binomial coefficient of each part as it joins the total.
    Operand c = binomial(total + n, std::min(n, total));
    if (!c.is_value() || c.value.is_error()) raise(cell_error::num);
    r *= c.value.number;
    total += n;
  });
  return std::isfinite(r) ? num(std::round(r)) : error(cell_error::num);
}
Operand f_seriessum(Args& a) {
  double x = number(a, 0), n = number(a, 1), m = number(a, 2);
  double s = 0, k = 0;
  const Operand& c = a.get(3);
  auto add = [&](const Value& v) {
    if (v.is_error()) raise(v.error_code());
    if (v.kind != Value::Kind::Number) raise(cell_error::value);
    s += v.number * std::pow(x, n + k * m);
    ++k;
  };
  if (c.is_value())
    add(Value::num(Evaluator::to_number(c.value)));
  else
    a.ev().for_each(c, [&](const Value& v, bool) { add(v); });
  return num(s);
}

// ---- Roman numerals and other bases ---------------------------------------------------------

/// The subtractive pairs each form of ROMAN allows, beyond the classic ones: a form allows
/// its own and those of every form before it.
struct Numeral {
  const char16_t* text;
  int value;
  int form;
};
constexpr Numeral kNumerals[] = {
    {u"M", 1000, 0}, {u"IM", 999, 4}, {u"VM", 995, 3}, {u"XM", 990, 2}, {u"LM", 950, 1},
    {u"CM", 900, 0}, {u"D", 500, 0},  {u"ID", 499, 4}, {u"VD", 495, 3}, {u"XD", 490, 2},
    {u"LD", 450, 1}, {u"CD", 400, 0}, {u"C", 100, 0},  {u"IC", 99, 2},  {u"VC", 95, 1},
    {u"XC", 90, 0},  {u"L", 50, 0},   {u"IL", 49, 2},  {u"VL", 45, 1},  {u"XL", 40, 0},
    {u"X", 10, 0},   {u"IX", 9, 0},   {u"V", 5, 0},    {u"IV", 4, 0},   {u"I", 1, 0},
};

Operand f_roman(Args& a) {
  double x = std::trunc(number(a, 0));
  int form = 0;
  if (!a.missing(1)) {
    Value f = scalar(a, 1);
    if (f.kind == Value::Kind::Boolean)
      form = f.number != 0 ? 0 : 4;
    else
      form = static_cast<int>(std::trunc(Evaluator::to_number(f)));
  }
  if (x < 0 || x > 3999 || form < 0 || form > 4) return error(cell_error::value);
  int left = static_cast<int>(x);
  String out;
  for (const Numeral& n : kNumerals) {
    if (n.form > form) continue;
    while (left >= n.value) {
      out += n.text;
      left -= n.value;
    }
  }
  return text(out);
}

int roman_digit(char16_t c) {
  switch (c | 0x20) {
    case u'i':
      return 1;
    case u'v':
      return 5;
    case u'x':
      return 10;
    case u'l':
      return 50;
    case u'c':
      return 100;
    case u'd':
      return 500;
    case u'm':
      return 1000;
    default:
      return 0;
  }
}
Operand f_arabic(Args& a) {
  String s = text(a, 0);
  size_t b = s.find_first_not_of(u' '), e = s.find_last_not_of(u' ');
  StringView t = b == String::npos ? StringView() : StringView(s).substr(b, e - b + 1);
  if (t.size() > 255) return error(cell_error::value);
  bool negative = !t.empty() && t[0] == u'-';
  if (negative) t.remove_prefix(1);
  double total = 0;
  for (size_t i = 0; i < t.size(); ++i) {
    int v = roman_digit(t[i]);
    if (v == 0) return error(cell_error::value);
    int next = i + 1 < t.size() ? roman_digit(t[i + 1]) : 0;
    total += next > v ? -v : v;
  }
  return num(negative ? -total : total);
}

Operand f_munit(Args& a) {
  double n = std::trunc(number(a, 0));
  if (n < 1 || n > 1000) return error(cell_error::value);
  int32_t k = static_cast<int32_t>(n);
  Matrix m(k, k);
  for (int32_t r = 0; r < k; ++r)
    for (int32_t c = 0; c < k; ++c) m.at(r, c) = Value::num(r == c ? 1 : 0);
  return m.cells.size() == 1 ? Operand(m.cells[0]) : Operand::arr(std::move(m));
}

}  // namespace

void add_math_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"ABS", 1, 1, f_abs, each_arg},
                        {u"ACOS", 1, 1, f_acos, each_arg},
                        {u"ASIN", 1, 1, f_asin, each_arg},
                        {u"ATAN", 1, 1, unary_fn<atan_>, each_arg},
                        {u"ATAN2", 2, 2, f_atan2, each_arg},
                        {u"CEILING", 1, 2, f_ceiling, each_arg},
                        {u"CEILING.MATH", 1, 3, f_ceiling_math, each_arg},
                        {u"COMBIN", 2, 2, f_combin, each_arg},
                        {u"COS", 1, 1, circular<cos_>, each_arg},
                        {u"DEGREES", 1, 1, unary_fn<degrees>, each_arg},
                        {u"EVEN", 1, 1, f_even, each_arg},
                        {u"EXP", 1, 1, f_exp, each_arg},
                        {u"FACT", 1, 1, f_fact, each_arg},
                        {u"FLOOR", 1, 2, f_floor, each_arg},
                        {u"FLOOR.MATH", 1, 3, f_floor_math, each_arg},
                        {u"GCD", 1, -1, f_gcd},
                        {u"INT", 1, 1, f_int, each_arg},
                        {u"LCM", 1, -1, f_lcm},
                        {u"LN", 1, 1, f_ln, each_arg},
                        {u"LOG", 1, 2, f_log, each_arg},
                        {u"LOG10", 1, 1, f_log10, each_arg},
                        {u"MOD", 2, 2, f_mod, each_arg},
                        {u"MROUND", 2, 2, f_mround, each_arg},
                        {u"ODD", 1, 1, f_odd, each_arg},
                        {u"PI", 0, 0, f_pi},
                        {u"POWER", 2, 2, f_power, each_arg},
                        {u"PRODUCT", 1, -1, f_product},
                        {u"QUOTIENT", 2, 2, f_quotient, each_arg},
                        {u"RADIANS", 1, 1, unary_fn<radians>, each_arg},
                        {u"RAND", 0, 0, f_rand, whole_args, true},
                        {u"RANDBETWEEN", 2, 2, f_randbetween, whole_args, true},
                        {u"ROUND", 2, 2, f_round, each_arg},
                        {u"ROUNDDOWN", 2, 2, f_rounddown, each_arg},
                        {u"ROUNDUP", 2, 2, f_roundup, each_arg},
                        {u"SIGN", 1, 1, f_sign, each_arg},
                        {u"SIN", 1, 1, circular<sin_>, each_arg},
                        {u"SQRT", 1, 1, f_sqrt, each_arg},
                        {u"SUBTOTAL", 2, -1, f_subtotal},
                        {u"AGGREGATE", 3, -1, f_aggregate},
                        {u"SINH", 1, 1, unary_fn<sinh_>, each_arg},
                        {u"COSH", 1, 1, unary_fn<cosh_>, each_arg},
                        {u"TANH", 1, 1, unary_fn<tanh_>, each_arg},
                        {u"ASINH", 1, 1, unary_fn<asinh_>, each_arg},
                        {u"ACOSH", 1, 1, f_acosh, each_arg},
                        {u"ATANH", 1, 1, f_atanh, each_arg},
                        {u"CEILING.PRECISE", 1, 2, f_ceiling_precise, each_arg},
                        {u"ECMA.CEILING", 2, 2, f_ecma_ceiling, each_arg},
                        {u"ISO.CEILING", 1, 2, f_ceiling_precise, each_arg},
                        {u"FLOOR.PRECISE", 1, 2, f_floor_precise, each_arg},
                        {u"SUMX2MY2", 2, 2, f_sumx<0>},
                        {u"SUMX2PY2", 2, 2, f_sumx<1>},
                        {u"SUMXMY2", 2, 2, f_sumx<2>},
                        {u"MMULT", 2, 2, f_mmult},
                        {u"SUM", 1, -1, f_sum},
                        {u"SUMIF", 2, 3, f_sumif, each_arg_1},
                        {u"SUMIFS", 3, -1, f_sumifs, each_even_arg_from_2},
                        {u"SUMPRODUCT", 1, -1, f_sumproduct},
                        {u"SUMSQ", 1, -1, f_sumsq},
                        {u"TAN", 1, 1, circular<tan_>, each_arg},
                        {u"TRUNC", 1, 2, f_trunc, each_arg},
                        {u"ACOT", 1, 1, f_acot, each_arg},
                        {u"ACOTH", 1, 1, f_acoth, each_arg},
                        {u"ARABIC", 1, 1, f_arabic, each_arg},
                        {u"COMBINA", 2, 2, f_combina, each_arg},
                        {u"COT", 1, 1, f_cot, each_arg},
                        {u"COTH", 1, 1, f_coth, each_arg},
                        {u"CSC", 1, 1, f_csc, each_arg},
                        {u"CSCH", 1, 1, f_csch, each_arg},
                        {u"FACTDOUBLE", 1, 1, f_factdouble, each_arg},
                        {u"MULTINOMIAL", 1, -1, f_multinomial},
                        {u"MUNIT", 1, 1, f_munit},
                        {u"ROMAN", 1, 2, f_roman, each_arg},
                        {u"SEC", 1, 1, f_sec, each_arg},
                        {u"SECH", 1, 1, f_sech, each_arg},
                        {u"SERIESSUM", 4, 4, f_seriessum},
                        {u"SQRTPI", 1, 1, f_sqrtpi, each_arg},
                    });
}

}  // namespace qz::engine::calc
