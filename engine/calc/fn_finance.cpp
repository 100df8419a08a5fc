// Financial functions: annuities, net present values, internal rates of return,
// depreciation.
#include <algorithm>
#include <cmath>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

// Annuity relations, with the application's sign convention (money paid out is negative)
// and payments at the end (type 0) or the beginning (type 1) of each period.
double fv_of(double r, double n, double pmt, double pv, int type) {
  if (r == 0) return -(pv + pmt * n);
  double g = std::pow(1 + r, n);
  return -(pv * g + pmt * (1 + r * type) * (g - 1) / r);
}
double pmt_of(double r, double n, double pv, double fv, int type) {
  if (r == 0) return -(pv + fv) / n;
  double g = std::pow(1 + r, n);
  return -(r * (fv + pv * g)) / ((1 + r * type) * (g - 1));
}
double pv_of(double r, double n, double pmt, double fv, int type) {
  if (r == 0) return -(fv + pmt * n);
  double g = std::pow(1 + r, n);
  return -(fv + pmt * (1 + r * type) * (g - 1) / r) / g;
}
double ipmt_of(double r, double per, double n, double pv, double fv, int type) {
  double pmt = pmt_of(r, n, pv, fv, type);
  if (type == 1) {
    if (per == 1) return 0;
    // With payments in advance, period k's interest accrued during period k - 1, on the
    // balance left after that period's payment.
    return (fv_of(r, per - 2, pmt, pv, 1) - pmt) * r;
  }
  return fv_of(r, per - 1, pmt, pv, 0) * r;
}

int type_arg(Args& a, size_t i) {
  if (i >= a.size() || a.missing(i)) return 0;
  return number(a, i) != 0 ? 1 : 0;
}

Operand f_pmt(Args& a) {
  double r = number(a, 0), n = number(a, 1), pv = number(a, 2);
  double fv = number_or(a, 3, 0);
  if (n == 0) return error(cell_error::num);
  return num(pmt_of(r, n, pv, fv, type_arg(a, 4)));
}
Operand f_pv(Args& a) {
  double r = number(a, 0), n = number(a, 1), pmt = number(a, 2);
  double fv = number_or(a, 3, 0);
  return num(pv_of(r, n, pmt, fv, type_arg(a, 4)));
}
Operand f_fv(Args& a) {
  double r = number(a, 0), n = number(a, 1), pmt = number(a, 2);
  double pv = number_or(a, 3, 0);
  return num(fv_of(r, n, pmt, pv, type_arg(a, 4)));
}
Operand f_nper(Args& a) {
  double r = number(a, 0), pmt = number(a, 1), pv = number(a, 2);
  double fv = number_or(a, 3, 0);
  int type = type_arg(a, 4);
  if (r == 0) {
    if (pmt == 0) return error(cell_error::num);
    return num(-(pv + fv) / pmt);
  }
  double num_ = pmt * (1 + r * type) - fv * r;
  double den = pmt * (1 + r * type) + pv * r;
  if (den == 0 || num_ / den <= 0) return error(cell_error::num);
  return num(std::log(num_ / den) / std::log(1 + r));
}
Operand f_ipmt(Args& a) {
  double r = number(a, 0), per = number(a, 1), n = number(a, 2), pv = number(a, 3);
  double fv = number_or(a, 4, 0);
  if (per < 1 || per > n) return error(cell_error::num);
  return num(ipmt_of(r, per, n, pv, fv, type_arg(a, 5)));
}
Operand f_ppmt(Args& a) {
  double r = number(a, 0), per = number(a, 1), n = number(a, 2), pv = number(a, 3);
  double fv = number_or(a, 4, 0);
  int type = type_arg(a, 5);
  if (per < 1 || per > n) return error(cell_error::num);
  return num(pmt_of(r, n, pv, fv, type) - ipmt_of(r, per, n, pv, fv, type));
}
Operand cumulative(Args& a, bool principal) {
  double r = number(a, 0), n = number(a, 1), pv = number(a, 2);
  double start = std::trunc(number(a, 3)), end = std::trunc(number(a, 4));
  int type = static_cast<int>(number(a, 5));
  if (r <= 0 || n <= 0 || pv <= 0 || start < 1 || end < start || end > n ||
      (type != 0 && type != 1))
    return error(cell_error::num);
  double total = 0;
  for (double per = start; per <= end; ++per) {
    double ip = ipmt_of(r, per, n, pv, 0, type);
    total += principal ? pmt_of(r, n, pv, 0, type) - ip : ip;
  }
  return num(total);
}
Operand f_cumipmt(Args& a) {
  return cumulative(a, false);
}
Operand f_cumprinc(Args& a) {
  return cumulative(a, true);
}

Operand f_rate(Args& a) {
  double n = number(a, 0), pmt = number(a, 1), pv = number(a, 2);
  double fv = number_or(a, 3, 0);
  int type = type_arg(a, 4);
  double r = a.size() > 5 && !a.missing(5) ? number(a, 5) : 0.1;
  // Newton's method on the annuity relation.
  for (int i = 0; i < 100; ++i) {
    double f, df;
    if (std::fabs(r) < 1e-12) {
      f = pv + pmt * n + fv;
      df = pv * n + pmt * (n * (n - 1) / 2 + type * n);
    } else {
      double g = std::pow(1 + r, n);
      double dg = n * std::pow(1 + r, n - 1);
      f = pv * g + pmt * (1 + r * type) * (g - 1) / r + fv;
      df = pv * dg + pmt * type * (g - 1) / r + pmt * (1 + r * type) * (dg * r - (g - 1)) / (r * r);
    }
    if (df == 0 || !std::isfinite(df)) return error(cell_error::num);
    double next = r - f / df;
    if (!std::isfinite(next) || next <= -1) return error(cell_error::num);
    if (std::fabs(next - r) < 1e-10) return num(next);
    r = next;
  }
  return error(cell_error::num);
}

/// The cash flows of NPV and IRR: numbers from ranges and arrays; typed numbers, Booleans
/// and number-like text as given.
std::vector<double> flows(Args& a, size_t from) {
  std::vector<double> out;
  for (size_t i = from; i < a.size(); ++i) each_number(a, i, [&](double d) { out.push_back(d); });
  return out;
}

Operand f_npv(Args& a) {
  double r = number(a, 0);
  if (r == -1) return error(cell_error::div0);
  double s = 0, g = 1;
  for (double v : flows(a, 1)) {
    g *= 1 + r;
    s += v / g;
  }
  return num(s);
}

Operand f_irr(Args& a) {
  std::vector<double> cf;
  a.ev().for_each(a.get(0), [&](const Value& v, bool) {
    if (v.is_error()) raise(v.error_code());
    if (v.kind == Value::Kind::Number) cf.push_back(v.number);
  });
  double r = a.size() > 1 && !a.missing(1) ? number(a, 1) : 0.1;
  bool pos = false, neg = false;
  for (double v : cf) pos = pos || v > 0, neg = neg || v < 0;
  if (!pos || !neg) return error(cell_error::num);
  for (int i = 0; i < 100; ++i) {
    double f = 0, df = 0, g = 1;
    for (size_t t = 0; t < cf.size(); ++t) {
      f += cf[t] / g;
      df -= static_cast<double>(t) * cf[t] / (g * (1 + r));
      g *= 1 + r;
    }
    if (df == 0) return error(cell_error::num);
    double next = r - f / df;
    if (!std::isfinite(next) || next <= -1) return error(cell_error::num);
    if (std::fabs(next - r) < 1e-12 * std::max(1.0, std::fabs(r))) return num(next);
    r = next;
  }
  return error(cell_error::num);
}

Operand f_mirr(Args& a) {
  std::vector<double> cf;
  a.ev().for_each(a.get(0), [&](const Value& v, bool) {
    if (v.is_error()) raise(v.error_code());
    if (v.kind == Value::Kind::Number) cf.push_back(v.number);
  });
  double fr = number(a, 1), rr = number(a, 2);
  double n = static_cast<double>(cf.size());
  double npv_pos = 0, npv_neg = 0;
  for (size_t t = 0; t < cf.size(); ++t) {
    if (cf[t] > 0)
      npv_pos += cf[t] / std::pow(1 + rr, static_cast<double>(t));
    else
      npv_neg += cf[t] / std::pow(1 + fr, static_cast<double>(t));
  }
  if (npv_neg == 0 || npv_pos == 0) return error(cell_error::div0);
  return num(std::pow(-npv_pos * std::pow(1 + rr, n) / (npv_neg * (1 + rr)), 1 / (n - 1)) - 1);
}

/// Values and dates of XNPV/XIRR, pairwise.
bool dated_flows(Args& a, size_t vi, size_t di, std::vector<double>& v, std::vector<double>& d) {
  Matrix mv = a.ev().matrix(a.get(vi)), md = a.ev().matrix(a.get(di));
  if (mv.cells.size() != md.cells.size()) return false;
  for (size_t k = 0; k < mv.cells.size(); ++k) {
    const Value &x = mv.cells[k], &y = md.cells[k];
    if (x.is_error()) raise(x.error_code());
    if (y.is_error()) raise(y.error_code());
    if (x.kind != Value::Kind::Number || y.kind != Value::Kind::Number) raise(cell_error::value);
    v.push_back(x.number);
    d.push_back(std::floor(y.number));
  }
  return !v.empty();
}

Operand f_xnpv(Args& a) {
  double r = number(a, 0);
  std::vector<double> v, d;
  if (!dated_flows(a, 1, 2, v, d)) return error(cell_error::num);
  if (r <= -1) return error(cell_error::num);
  double s = 0;
  for (size_t k = 0; k < v.size(); ++k) {
    if (d[k] < d[0]) return error(cell_error::num);
    s += v[k] / std::pow(1 + r, (d[k] - d[0]) / 365);
  }
  return num(s);
}

Operand f_xirr(Args& a) {
  std::vector<double> v, d;
  if (!dated_flows(a, 0, 1, v, d)) return error(cell_error::num);
  bool pos = false, neg = false;
  for (double x : v) pos = pos || x > 0, neg = neg || x < 0;
  if (!pos || !neg) return error(cell_error::num);
  double r = a.size() > 2 && !a.missing(2) ? number(a, 2) : 0.1;
  for (int i = 0; i < 100; ++i) {
    double f = 0, df = 0;
    for (size_t k = 0; k < v.size(); ++k) {
      double t = (d[k] - d[0]) / 365;
      double g = std::pow(1 + r, t);
      f += v[k] / g;
      df -= t * v[k] / (g * (1 + r));
    }
    if (df == 0) return error(cell_error::num);
    double next = r - f / df;
    if (!std::isfinite(next)) return error(cell_error::num);
    if (next <= -1) next = (r - 1) / 2;  // stay in the domain
    if (std::fabs(next - r) < 1e-12 * std::max(1.0, std::fabs(r))) return num(next);
    r = next;
  }
  return error(cell_error::num);
}

Operand f_sln(Args& a) {
  double cost = number(a, 0), salvage = number(a, 1), life = number(a, 2);
  if (life == 0) return error(cell_error::div0);
  return num((cost - salvage) / life);
}
Operand f_syd(Args& a) {
  double cost = number(a, 0), salvage = number(a, 1), life = number(a, 2), per = number(a, 3);
  if (life <= 0 || per <= 0 || per > life) return error(cell_error::num);
  return num((cost - salvage) * (life - per + 1) * 2 / (life * (life + 1)));
}
Operand f_ddb(Args& a) {
  double cost = number(a, 0), salvage = number(a, 1), life = number(a, 2), per = number(a, 3);
  double factor = number_or(a, 4, 2);
  if (cost < 0 || salvage < 0 || life <= 0 || per <= 0 || per > life || factor <= 0)
    return error(cell_error::num);
  double book = cost, dep = 0;
  for (int p = 1; p <= static_cast<int>(std::ceil(per)); ++p) {
    dep = std::min(book * factor / life, std::max(0.0, book - salvage));
    book -= dep;
  }
  return num(dep);
}
Operand f_db(Args& a) {
  double cost = number(a, 0), salvage = number(a, 1), life = number(a, 2), per = number(a, 3);
  double month = number_or(a, 4, 12);
  if (cost < 0 || salvage < 0 || life <= 0 || per <= 0 || month < 1 || month > 12 || per > life + 1)
    return error(cell_error::num);
  double rate = cost == 0 ? 0 : round_half_away(1 - std::pow(salvage / cost, 1 / life), 3);
  double total = 0, dep = 0;
  for (int p = 1; p <= static_cast<int>(per); ++p) {
    if (p == 1)
      dep = cost * rate * month / 12;
    else if (p == static_cast<int>(life) + 1)
      dep = (cost - total) * rate * (12 - month) / 12;
    else
      dep = (cost - total) * rate;
    total += dep;
  }
  return num(dep);
}
Operand f_effect(Args& a) {
  double r = number(a, 0), n = std::trunc(number(a, 1));
  if (r <= 0 || n < 1) return error(cell_error::num);
  return num(std::pow(1 + r / n, n) - 1);
}
Operand f_nominal(Args& a) {
  double r = number(a, 0), n = std::trunc(number(a, 1));
  if (r <= 0 || n < 1) return error(cell_error::num);
  return num(n * (std::pow(1 + r, 1 / n) - 1));
}

// ---- declining balance over fractional periods, schedules, growth --------------------------

/// Depreciation from the start of life up to time `t` (in periods, possibly fractional) by
/// declining balance at `factor`, switching to straight line over the remaining life once
/// that gives more (unless told not to); a partial period counts its share.
double declining_until(double cost, double salvage, double life, double t, double factor,
                       bool no_switch) {
  double book = cost, total = 0;
  bool straight = false;
  double straight_amount = 0;
  for (double p = 0; p < t; ++p) {
    double dep;
    if (straight) {
      dep = straight_amount;
    } else {
      dep = std::min(book * factor / life, std::max(0.0, book - salvage));
      double remaining = life - p;
      double line = remaining > 0 ? std::max(0.0, book - salvage) / remaining : 0;
      if (!no_switch && line > dep) {
        straight = true;
        straight_amount = line;
        dep = line;
      }
    }
    dep = std::min(dep, std::max(0.0, book - salvage));
    double share = std::min(1.0, t - p);
    total += dep * share;
    book -= dep;
  }
  return total;
}

Operand f_vdb(Args& a) {
  double cost = number(a, 0), salvage = number(a, 1), life = number(a, 2);
  double start = number(a, 3), end = number(a, 4);
  double factor = number_or(a, 5, 2);
  bool no_switch = boolean_or(a, 6, false);
  if (cost < 0 || salvage < 0 || life <= 0 || start < 0 || end < start || end > life || factor <= 0)
    return error(cell_error::num);
  return num(declining_until(cost, salvage, life, end, factor, no_switch) -
             declining_until(cost, salvage, life, start, factor, no_switch));
}

Operand f_fvschedule(Args& a) {
  double v = number(a, 0);
  const Operand& o = a.get(1);
  auto grow = [&](const Value& r) {
    if (r.is_error()) raise(r.error_code());
    if (r.kind == Value::Kind::Text) raise(cell_error::value);
    v *= 1 + r.number;
  };
  if (o.is_value())
    grow(Value::num(Evaluator::to_number(o.value)));
  else
    a.ev().for_each(o, [&](const Value& r, bool) { grow(r); });
  return num(v);
}

Operand f_pduration(Args& a) {
  double r = number(a, 0), pv = number(a, 1), fv = number(a, 2);
  if (r <= 0 || pv <= 0 || fv <= 0) return error(cell_error::num);
  return num((std::log(fv) - std::log(pv)) / std::log1p(r));
}
Operand f_rri(Args& a) {
  double n = number(a, 0), pv = number(a, 1), fv = number(a, 2);
  if (n <= 0 || pv == 0) return error(cell_error::num);
  return num(std::pow(fv / pv, 1 / n) - 1);
}
Operand f_ispmt(Args& a) {
  double r = number(a, 0), per = number(a, 1), n = number(a, 2), pv = number(a, 3);
  if (n == 0) return error(cell_error::div0);
  return num(pv * r * (per / n - 1));
}

/// DOLLARDE and DOLLARFR: the digits after the point as a count of 1/fraction parts.
Operand dollar_fraction(Args& a, bool to_decimal) {
  double x = number(a, 0), fraction = std::trunc(number(a, 1));
  if (fraction < 0) return error(cell_error::num);
  if (fraction == 0) return error(cell_error::div0);
  double whole = std::trunc(x), part = x - whole;
  double scale = std::pow(10.0, std::ceil(std::log10(fraction)));
  return num(whole + (to_decimal ? part * scale / fraction : part * fraction / scale));
}
Operand f_dollarde(Args& a) {
  return dollar_fraction(a, true);
}
Operand f_dollarfr(Args& a) {
  return dollar_fraction(a, false);
}

}  // namespace

void add_finance_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"CUMIPMT", 6, 6, f_cumipmt},
                        {u"CUMPRINC", 6, 6, f_cumprinc},
                        {u"DB", 4, 5, f_db, each_arg},
                        {u"DDB", 4, 5, f_ddb, each_arg},
                        {u"EFFECT", 2, 2, f_effect, each_arg},
                        {u"FV", 3, 5, f_fv, each_arg},
                        {u"IPMT", 4, 6, f_ipmt, each_arg},
                        {u"IRR", 1, 2, f_irr},
                        {u"MIRR", 3, 3, f_mirr},
                        {u"NOMINAL", 2, 2, f_nominal, each_arg},
                        {u"NPER", 3, 5, f_nper, each_arg},
                        {u"NPV", 2, -1, f_npv},
                        {u"PMT", 3, 5, f_pmt, each_arg},
                        {u"PPMT", 4, 6, f_ppmt, each_arg},
                        {u"PV", 3, 5, f_pv, each_arg},
                        {u"RATE", 3, 6, f_rate, each_arg},
                        {u"SLN", 3, 3, f_sln, each_arg},
                        {u"SYD", 4, 4, f_syd, each_arg},
                        {u"XIRR", 2, 3, f_xirr},
                        {u"XNPV", 3, 3, f_xnpv},
                        {u"DOLLARDE", 2, 2, f_dollarde, each_arg},
                        {u"DOLLARFR", 2, 2, f_dollarfr, each_arg},
                        {u"FVSCHEDULE", 2, 2, f_fvschedule},
                        {u"ISPMT", 4, 4, f_ispmt, each_arg},
                        {u"PDURATION", 3, 3, f_pduration, each_arg},
                        {u"RRI", 3, 3, f_rri, each_arg},
                        {u"VDB", 5, 7, f_vdb, each_arg},
                    });
}

}  // namespace qz::engine::calc
