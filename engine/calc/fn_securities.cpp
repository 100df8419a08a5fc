// Securities: coupon schedules (COUP...), bond prices, yields and durations, discounted
// and at-maturity securities, Treasury bills, odd first and last periods, accrued interest
// and the French depreciation schedules (AMORLINC, AMORDEGRC).
//
// Coupon dates step back from maturity (or from the first or last coupon) by whole months;
// a schedule anchored on the last day of a month keeps to month ends.
#include <algorithm>
#include <cmath>

#include "engine/calc/fn_dates.hpp"
#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

int frequency_arg(Args& a, size_t i) {
  double f = integer(a, i);
  if (f != 1 && f != 2 && f != 4) raise(cell_error::num);
  return static_cast<int>(f);
}
int basis_arg(Args& a, size_t i) {
  if (i >= a.size() || a.missing(i)) return 0;
  double b = integer(a, i);
  if (b < 0 || b > 4) raise(cell_error::num);
  return static_cast<int>(b);
}

/// Dates and day counts of one security.
class Schedule {
 public:
  Schedule(bool date1904, int freq, int basis) : d1904_(date1904), freq_(freq), basis_(basis) {}

  int freq() const { return freq_; }
  int basis() const { return basis_; }

  /// The date `periods` coupon periods after `anchor` (before it when negative).
  double shift(double anchor, int periods) const {
    Ymd d = ymd_of(d1904_, anchor);
    bool month_end = d.d == days_in_month(d.y, d.m);
    int64_t total = static_cast<int64_t>(d.y) * 12 + (d.m - 1) + int64_t{periods} * (12 / freq_);
    int y = static_cast<int>(total / 12), m = static_cast<int>(total % 12) + 1;
    if (y < 1900 || y > 9999) raise(cell_error::num);
    int day = month_end ? days_in_month(y, m) : std::min(d.d, days_in_month(y, m));
    return serial_from(d1904_, y, m, day);
  }

  /// Days between two dates under the basis.
  double days(double from, double to) const {
    if (basis_ == 0 || basis_ == 4)
      return days_30_360(ymd_of(d1904_, from), ymd_of(d1904_, to), basis_ == 4);
    return to - from;
  }
  /// The length the basis gives a coupon period starting at `start`.
  double period_length(double start, double end) const {
    if (basis_ == 1) return end - start;
    return (basis_ == 3 ? 365.0 : 360.0) / freq_;
  }
  double year_days() const { return basis_ == 3 ? 365.0 : 360.0; }
  double year_frac(double from, double to) const { return year_fraction(d1904_, from, to, basis_); }

  /// How many periods before `maturity` the last coupon on or before `settle` falls.
  int periods_before(double settle, double maturity) const {
    Ymd s = ymd_of(d1904_, settle), m = ymd_of(d1904_, maturity);
    int months = (m.y - s.y) * 12 + (m.m - s.m);
    int k = std::max(1, months / (12 / freq_));
    while (k > 1 && shift(maturity, -(k - 1)) <= settle) --k;
    while (shift(maturity, -k) > settle) ++k;
    return k;
  }

 private:
  bool d1904_;
  int freq_, basis_;
};

/// The common arguments of the COUP functions, PRICE, YIELD and DURATION.
struct Bond {
  double settle, maturity;
  Schedule sched;
  double pcd, ncd;
  int coupons;  // coupons from settlement to maturity
};

Bond bond(Args& a, size_t settle_i, size_t mat_i, size_t freq_i, size_t basis_i) {
  double settle = date_arg(a, settle_i), maturity = date_arg(a, mat_i);
  int freq = frequency_arg(a, freq_i), basis = basis_arg(a, basis_i);
  if (settle >= maturity) raise(cell_error::num);
  Schedule s(a.ev().date1904(), freq, basis);
  int k = s.periods_before(settle, maturity);
  return Bond{settle, maturity, s, s.shift(maturity, -k), s.shift(maturity, -(k - 1)), k};
}

double coupdays(const Bond& b) {
  return b.sched.period_length(b.pcd, b.ncd);
}
double coupdaybs(const Bond& b) {
  return b.sched.days(b.pcd, b.settle);
}
double coupdaysnc(const Bond& b) {
  // On the 30/360 bases the days left are what the period has after the days gone by.
  if (b.sched.basis() == 0 || b.sched.basis() == 4) return coupdays(b) - coupdaybs(b);
  return b.ncd - b.settle;
}

Operand f_coupdaybs(Args& a) {
  return num(coupdaybs(bond(a, 0, 1, 2, 3)));
}
Operand f_coupdays(Args& a) {
  return num(coupdays(bond(a, 0, 1, 2, 3)));
}
Operand f_coupdaysnc(Args& a) {
  return num(coupdaysnc(bond(a, 0, 1, 2, 3)));
}
Operand f_coupncd(Args& a) {
  return num(bond(a, 0, 1, 2, 3).ncd);
}
Operand f_couppcd(Args& a) {
  return num(bond(a, 0, 1, 2, 3).pcd);
}
Operand f_coupnum(Args& a) {
  return num(bond(a, 0, 1, 2, 3).coupons);
}

double price_of(const Bond& b, double rate, double yld, double redemption) {
  double f = b.sched.freq(), e = coupdays(b), dsc = coupdaysnc(b), acc = coupdaybs(b);
  double c = 100 * rate / f;
  int n = b.coupons;
  if (n == 1) return (redemption + c) / (1 + dsc / e * yld / f) - c * acc / e;
  double g = 1 + yld / f, p = redemption / std::pow(g, n - 1 + dsc / e);
  for (int k = 1; k <= n; ++k) p += c / std::pow(g, k - 1 + dsc / e);
  return p - c * acc / e;
}

/// The yield at which `price` meets the target, for a price falling as the yield rises.
double solve_yield(const std::function<double(double)>& price, double target, double freq) {
  double lo = -freq + 1e-10, hi = 1;
  while (price(hi) > target) {
    lo = hi;
    hi *= 2;
    if (hi > 1e10) raise(cell_error::num);
  }
  if (price(lo) < target) raise(cell_error::num);
  for (int i = 0; i < 200; ++i) {
    double mid = lo + (hi - lo) / 2;
    if (mid <= lo || mid >= hi) break;
    if (price(mid) > target)
      lo = mid;
    else
      hi = mid;
  }
  return lo + (hi - lo) / 2;
}

Operand f_price(Args& a) {
  Bond b = bond(a, 0, 1, 5, 6);
  double rate = number(a, 2), yld = number(a, 3), redemption = number(a, 4);
  if (rate < 0 || yld < 0 || redemption <= 0) return error(cell_error::num);
  return num(price_of(b, rate, yld, redemption));
}
Operand f_yield(Args& a) {
  Bond b = bond(a, 0, 1, 5, 6);
  double rate = number(a, 2), pr = number(a, 3), redemption = number(a, 4);
  if (rate < 0 || pr <= 0 || redemption <= 0) return error(cell_error::num);
  if (b.coupons == 1) {
    double f = b.sched.freq(), e = coupdays(b), dsc = coupdaysnc(b), acc = coupdaybs(b);
    double paid = pr / 100 + acc / e * rate / f;
    return num((redemption / 100 + rate / f - paid) / paid * f * e / dsc);
  }
  return num(
      solve_yield([&](double y) { return price_of(b, rate, y, redemption); }, pr, b.sched.freq()));
}

double duration_of(const Bond& b, double coupon, double yld) {
  double f = b.sched.freq(), frac = coupdaysnc(b) / coupdays(b), g = 1 + yld / f;
  double sum = 0, weighted = 0;
  for (int k = 1; k <= b.coupons; ++k) {
    double t = k - 1 + frac;
    double flow = 100 * coupon / f + (k == b.coupons ? 100 : 0);
    double pv = flow / std::pow(g, t);
    sum += pv;
    weighted += t * pv;
  }
  return weighted / sum / f;
}
Operand f_duration(Args& a) {
  Bond b = bond(a, 0, 1, 4, 5);
  double coupon = number(a, 2), yld = number(a, 3);
  if (coupon < 0 || yld < 0) return error(cell_error::num);
  return num(duration_of(b, coupon, yld));
}
Operand f_mduration(Args& a) {
  Bond b = bond(a, 0, 1, 4, 5);
  double coupon = number(a, 2), yld = number(a, 3);
  if (coupon < 0 || yld < 0) return error(cell_error::num);
  return num(duration_of(b, coupon, yld) / (1 + yld / b.sched.freq()));
}

// ---- discounted and at-maturity securities ---------------------------------------------------

/// Settlement, maturity and basis of the securities without coupons.
struct Term {
  double settle, maturity;
  Schedule sched;
};
Term term(Args& a, size_t basis_i) {
  double settle = date_arg(a, 0), maturity = date_arg(a, 1);
  int basis = basis_arg(a, basis_i);
  if (settle >= maturity) raise(cell_error::num);
  return Term{settle, maturity, Schedule(a.ev().date1904(), 1, basis)};
}

Operand f_disc(Args& a) {
  Term t = term(a, 4);
  double pr = number(a, 2), redemption = number(a, 3);
  if (pr <= 0 || redemption <= 0) return error(cell_error::num);
  return num((redemption - pr) / redemption / t.sched.year_frac(t.settle, t.maturity));
}
Operand f_intrate(Args& a) {
  Term t = term(a, 4);
  double investment = number(a, 2), redemption = number(a, 3);
  if (investment <= 0 || redemption <= 0) return error(cell_error::num);
  return num((redemption - investment) / investment / t.sched.year_frac(t.settle, t.maturity));
}
Operand f_received(Args& a) {
  Term t = term(a, 4);
  double investment = number(a, 2), discount = number(a, 3);
  if (investment <= 0 || discount <= 0) return error(cell_error::num);
  double d = 1 - discount * t.sched.year_frac(t.settle, t.maturity);
  if (d <= 0) return error(cell_error::num);
  return num(investment / d);
}
Operand f_pricedisc(Args& a) {
  Term t = term(a, 4);
  double discount = number(a, 2), redemption = number(a, 3);
  if (discount <= 0 || redemption <= 0) return error(cell_error::num);
  return num(redemption * (1 - discount * t.sched.year_frac(t.settle, t.maturity)));
}
Operand f_yielddisc(Args& a) {
  Term t = term(a, 4);
  double pr = number(a, 2), redemption = number(a, 3);
  if (pr <= 0 || redemption <= 0) return error(cell_error::num);
  return num((redemption - pr) / pr / t.sched.year_frac(t.settle, t.maturity));
}
Operand f_pricemat(Args& a) {
  Term t = term(a, 5);
  double issue = date_arg(a, 2), rate = number(a, 3), yld = number(a, 4);
  if (rate < 0 || yld < 0 || issue >= t.settle) return error(cell_error::num);
  double dim = t.sched.year_frac(issue, t.maturity), a_ = t.sched.year_frac(issue, t.settle);
  double dsm = t.sched.year_frac(t.settle, t.maturity);
  return num((100 + dim * rate * 100) / (1 + dsm * yld) - a_ * rate * 100);
}
Operand f_yieldmat(Args& a) {
  Term t = term(a, 5);
  double issue = date_arg(a, 2), rate = number(a, 3), pr = number(a, 4);
  if (rate < 0 || pr <= 0 || issue >= t.settle) return error(cell_error::num);
  double dim = t.sched.year_frac(issue, t.maturity), a_ = t.sched.year_frac(issue, t.settle);
  double dsm = t.sched.year_frac(t.settle, t.maturity);
  double paid = pr / 100 + a_ * rate;
  return num((1 + dim * rate - paid) / paid / dsm);
}
Operand f_accrintm(Args& a) {
  double issue = date_arg(a, 0), settle = date_arg(a, 1), rate = number(a, 2);
  double par = number_or(a, 3, 1000);
  int basis = basis_arg(a, 4);
  if (rate <= 0 || par <= 0 || issue >= settle) return error(cell_error::num);
  return num(par * rate * year_fraction(a.ev().date1904(), issue, settle, basis));
}

/// Treasury bills: settlement to maturity within a year, counted in actual days.
double bill_days(Args& a) {
  double settle = date_arg(a, 0), maturity = date_arg(a, 1);
  if (settle >= maturity) raise(cell_error::num);
  Ymd s = ymd_of(a.ev().date1904(), settle);
  if (maturity > serial_from(a.ev().date1904(), s.y + 1, s.m, s.d)) raise(cell_error::num);
  return maturity - settle;
}
Operand f_tbillprice(Args& a) {
  double dsm = bill_days(a), discount = number(a, 2);
  if (discount <= 0) return error(cell_error::num);
  double p = 100 * (1 - discount * dsm / 360);
  if (p <= 0) return error(cell_error::num);
  return num(p);
}
Operand f_tbillyield(Args& a) {
  double dsm = bill_days(a), pr = number(a, 2);
  if (pr <= 0) return error(cell_error::num);
  return num((100 - pr) / pr * 360 / dsm);
}
Operand f_tbilleq(Args& a) {
  double dsm = bill_days(a), discount = number(a, 2);
  if (discount <= 0) return error(cell_error::num);
  if (dsm <= 182) return num(365 * discount / (360 - discount * dsm));
  // Beyond half a year the bond-equivalent yield compounds once.
  double price = 100 * (1 - discount * dsm / 360);
  if (price <= 0) return error(cell_error::num);
  double t = dsm / 365;
  return num((-t + std::sqrt(t * t - (2 * t - 1) * (1 - 100 / price))) / (t - 0.5));
}

// ---- accrued interest ----------------------------------------------------------------------

/// Sum over the quasi-coupon periods that [from, to] touches of the days it holds in each,
/// over the length of each: the fraction of coupons accrued between two dates on a
/// schedule through `anchor`.
double accrued_periods(const Schedule& s, double anchor, double from, double to) {
  int k = 0;
  while (s.shift(anchor, k) > from) --k;
  while (s.shift(anchor, k + 1) <= from) ++k;
  double sum = 0;
  for (;; ++k) {
    double start = s.shift(anchor, k), end = s.shift(anchor, k + 1);
    if (start >= to) break;
    double lo = std::max(start, from), hi = std::min(end, to);
    if (hi > lo) sum += s.days(lo, hi) / s.period_length(start, end);
  }
  return sum;
}

Operand f_accrint(Args& a) {
  double issue = date_arg(a, 0), first = date_arg(a, 1), settle = date_arg(a, 2);
  double rate = number(a, 3), par = number_or(a, 4, 1000);
  int freq = frequency_arg(a, 5), basis = basis_arg(a, 6);
  bool from_issue = a.size() < 8 || a.missing(7) || boolean(a, 7);
  if (rate <= 0 || par <= 0 || issue >= settle) return error(cell_error::num);
  Schedule s(a.ev().date1904(), freq, basis);
  double start = issue;
  if (!from_issue && settle > first) {
    // Only since the last coupon paid.
    int k = 0;
    while (s.shift(first, k + 1) <= settle) ++k;
    start = s.shift(first, k);
  }
  return num(par * rate / freq * accrued_periods(s, first, start, settle));
}

// ---- odd first and last periods --------------------------------------------------------------

struct OddLast {
  double dc = 0, accrued = 0, dsc = 0;  // sums of days over period lengths
};
OddLast odd_last(const Schedule& s, double last, double settle, double maturity) {
  OddLast o;
  for (int k = 0;; ++k) {
    double start = s.shift(last, k), end = s.shift(last, k + 1);
    if (start >= maturity) break;
    double nl = s.period_length(start, end), stop = std::min(end, maturity);
    o.dc += s.days(start, stop) / nl;
    if (settle > start) o.accrued += s.days(start, std::min(settle, stop)) / nl;
    if (stop > settle) o.dsc += s.days(std::max(settle, start), stop) / nl;
  }
  return o;
}

struct OddLastArgs {
  Schedule sched;
  double settle, maturity, last, rate, value, redemption;
};
OddLastArgs odd_last_args(Args& a) {
  double settle = date_arg(a, 0), maturity = date_arg(a, 1), last = date_arg(a, 2);
  double rate = number(a, 3), value = number(a, 4), redemption = number(a, 5);
  int freq = frequency_arg(a, 6), basis = basis_arg(a, 7);
  if (!(maturity > settle && settle > last) || rate < 0 || value < 0 || redemption <= 0)
    raise(cell_error::num);
  return {
      Schedule(a.ev().date1904(), freq, basis), settle, maturity, last, rate, value, redemption};
}
Operand f_oddlprice(Args& a) {
  OddLastArgs x = odd_last_args(a);
  OddLast o = odd_last(x.sched, x.last, x.settle, x.maturity);
  double f = x.sched.freq(), c = 100 * x.rate / f;
  return num((x.redemption + o.dc * c) / (1 + o.dsc * x.value / f) - o.accrued * c);
}
Operand f_oddlyield(Args& a) {
  OddLastArgs x = odd_last_args(a);
  if (x.value == 0) return error(cell_error::num);
  OddLast o = odd_last(x.sched, x.last, x.settle, x.maturity);
  double f = x.sched.freq(), c = 100 * x.rate / f;
  double paid = x.value + o.accrued * c;
  return num((x.redemption + o.dc * c - paid) / paid * f / o.dsc);
}

struct OddFirstArgs {
  Schedule sched;
  double settle, maturity, issue, first, rate, value, redemption;
};
OddFirstArgs odd_first_args(Args& a) {
  double settle = date_arg(a, 0), maturity = date_arg(a, 1), issue = date_arg(a, 2);
  double first = date_arg(a, 3), rate = number(a, 4), value = number(a, 5);
  double redemption = number(a, 6);
  int freq = frequency_arg(a, 7), basis = basis_arg(a, 8);
  if (!(maturity > first && first > settle && settle > issue) || rate < 0 || value < 0 ||
      redemption <= 0)
    raise(cell_error::num);
  return {Schedule(a.ev().date1904(), freq, basis),
          settle,
          maturity,
          issue,
          first,
          rate,
          value,
          redemption};
}
/// The price of a security whose first period runs from issue to an odd first coupon. The
/// odd period is cut into quasi-coupon periods that end on the first coupon.
double odd_first_price(const OddFirstArgs& x, double yld) {
  const Schedule& s = x.sched;
  double f = s.freq(), c = 100 * x.rate / f, g = 1 + yld / f;
  double dc = 0, accrued = 0, dsc = 0;
  int whole_before_first = 0;
  for (int k = -1;; --k) {
    double start = s.shift(x.first, k), end = s.shift(x.first, k + 1);
    double nl = s.period_length(start, end), from = std::max(start, x.issue);
    dc += s.days(from, end) / nl;
    if (x.settle > from) accrued += s.days(from, std::min(x.settle, end)) / nl;
    if (x.settle >= start && x.settle < end) {
      dsc = s.days(x.settle, end) / nl;
      whole_before_first = -k - 1;
    }
    if (start <= x.issue) break;
  }
  int later = 0;  // regular coupons after the first
  while (s.shift(x.first, later + 1) <= x.maturity) ++later;
  double lead = whole_before_first + dsc;
  double p = x.redemption / std::pow(g, later + lead) + c * dc / std::pow(g, lead);
  for (int k = 1; k <= later; ++k) p += c / std::pow(g, k + lead);
  return p - c * accrued;
}
Operand f_oddfprice(Args& a) {
  OddFirstArgs x = odd_first_args(a);
  return num(odd_first_price(x, x.value));
}
Operand f_oddfyield(Args& a) {
  OddFirstArgs x = odd_first_args(a);
  if (x.value == 0) return error(cell_error::num);
  return num(solve_yield([&](double y) { return odd_first_price(x, y); }, x.value, x.sched.freq()));
}

// ---- French depreciation -------------------------------------------------------------------

struct Amortization {
  double cost, purchased, first_end, salvage, period, rate;
  int basis;
};
Amortization amort_args(Args& a) {
  Amortization m{number(a, 0),   date_arg(a, 1),           date_arg(a, 2),
                 number(a, 3),   std::trunc(number(a, 4)), number(a, 5),
                 basis_arg(a, 6)};
  if (m.cost < 0 || m.salvage < 0 || m.salvage > m.cost || m.period < 0 || m.rate <= 0 ||
      m.purchased > m.first_end || m.basis == 2)
    raise(cell_error::num);
  return m;
}

Operand f_amorlinc(Args& a) {
  Amortization m = amort_args(a);
  double year = m.cost * m.rate;
  double first = year_fraction(a.ev().date1904(), m.purchased, m.first_end, m.basis) * year;
  double left = m.cost - m.salvage;
  if (m.period == 0) return num(std::min(first, left));
  left -= first;
  double full = std::floor(left / year);
  if (m.period <= full) return num(year);
  if (m.period == full + 1) return num(std::max(0.0, left - full * year));
  return num(0);
}

Operand f_amordegrc(Args& a) {
  Amortization m = amort_args(a);
  double life = 1 / m.rate;
  double coefficient;
  if (life < 3)
    coefficient = 1;
  else if (life < 5)
    coefficient = 1.5;
  else if (life <= 6)
    coefficient = 2;
  else
    coefficient = 2.5;
  double rate = m.rate * coefficient;
  double dep = round_half_away(
      year_fraction(a.ev().date1904(), m.purchased, m.first_end, m.basis) * rate * m.cost, 0);
  double value = m.cost - dep;
  double left = value - m.salvage;
  for (int n = 0; n < m.period; ++n) {
    dep = round_half_away(rate * value, 0);
    left -= dep;
    if (left < 0) {
      // The schedule ends: half of what is left in the second-to-last period, the rest
      // in the last, and nothing after.
      return num(m.period - n <= 1 ? round_half_away(value * 0.5, 0) : 0);
    }
    value -= dep;
  }
  return num(dep);
}

}  // namespace

void add_securities_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"ACCRINT", 6, 8, f_accrint, each_arg},
                        {u"ACCRINTM", 3, 5, f_accrintm, each_arg},
                        {u"AMORDEGRC", 6, 7, f_amordegrc, each_arg},
                        {u"AMORLINC", 6, 7, f_amorlinc, each_arg},
                        {u"COUPDAYBS", 3, 4, f_coupdaybs, each_arg},
                        {u"COUPDAYS", 3, 4, f_coupdays, each_arg},
                        {u"COUPDAYSNC", 3, 4, f_coupdaysnc, each_arg},
                        {u"COUPNCD", 3, 4, f_coupncd, each_arg},
                        {u"COUPNUM", 3, 4, f_coupnum, each_arg},
                        {u"COUPPCD", 3, 4, f_couppcd, each_arg},
                        {u"DISC", 4, 5, f_disc, each_arg},
                        {u"DURATION", 5, 6, f_duration, each_arg},
                        {u"INTRATE", 4, 5, f_intrate, each_arg},
                        {u"MDURATION", 5, 6, f_mduration, each_arg},
                        {u"ODDFPRICE", 8, 9, f_oddfprice, each_arg},
                        {u"ODDFYIELD", 8, 9, f_oddfyield, each_arg},
                        {u"ODDLPRICE", 7, 8, f_oddlprice, each_arg},
                        {u"ODDLYIELD", 7, 8, f_oddlyield, each_arg},
                        {u"PRICE", 6, 7, f_price, each_arg},
                        {u"PRICEDISC", 4, 5, f_pricedisc, each_arg},
                        {u"PRICEMAT", 5, 6, f_pricemat, each_arg},
                        {u"RECEIVED", 4, 5, f_received, each_arg},
                        {u"TBILLEQ", 3, 3, f_tbilleq, each_arg},
                        {u"TBILLPRICE", 3, 3, f_tbillprice, each_arg},
                        {u"TBILLYIELD", 3, 3, f_tbillyield, each_arg},
                        {u"YIELD", 6, 7, f_yield, each_arg},
                        {u"YIELDDISC", 4, 5, f_yielddisc, each_arg},
                        {u"YIELDMAT", 5, 6, f_yieldmat, each_arg},
                    });
}

}  // namespace qz::engine::calc
