// Dates and times. Serial numbers follow the workbook's date system (1900 with its
// 29 February 1900, or 1904).
#include <algorithm>
#include <cmath>
#include <set>

#include "engine/calc/fn_dates.hpp"
#include "engine/calc/fn_util.hpp"
#include "engine/numfmt/numfmt.hpp"

namespace qz::engine::calc {

namespace fn {

Ymd ymd_of(bool date1904, double serial) {
  Ymd r{};
  numfmt::date_from_serial(serial, date1904, r.y, r.m, r.d);
  return r;
}
double serial_from(bool date1904, int y, int m, int d) {
  return numfmt::serial_from_date(y, m, d, date1904);
}

double date_arg(Args& a, size_t i) {
  double v = number(a, i);
  if (v < 0 || v >= 2958466) raise(cell_error::num);
  return std::floor(v);
}

double days_30_360(Ymd d1, Ymd d2, bool european) {
  if (european) {
    if (d1.d == 31) d1.d = 30;
    if (d2.d == 31) d2.d = 30;
  } else {
    bool last_feb1 = d1.m == 2 && d1.d == days_in_month(d1.y, 2);
    bool last_feb2 = d2.m == 2 && d2.d == days_in_month(d2.y, 2);
    if (last_feb1 && last_feb2) d2.d = 30;
    if (last_feb1) d1.d = 30;
    if (d2.d == 31 && d1.d >= 30) d2.d = 30;
    if (d1.d == 31) d1.d = 30;
  }
  return (d2.y - d1.y) * 360.0 + (d2.m - d1.m) * 30.0 + (d2.d - d1.d);
}

double year_fraction(bool date1904, double s1, double s2, int basis) {
  if (s1 > s2) std::swap(s1, s2);
  Ymd d1 = ymd_of(date1904, s1), d2 = ymd_of(date1904, s2);
  switch (basis) {
    case 0:
      return days_30_360(d1, d2, false) / 360;
    case 1: {
      double days = s2 - s1;
      if (d1.y == d2.y) return days / (is_leap(d1.y) ? 366 : 365);
      bool within_year = d2.y == d1.y + 1 && (d1.m > d2.m || (d1.m == d2.m && d1.d >= d2.d));
      if (within_year) {
        // 366 when a 29 February falls between the two dates.
        bool feb29 = false;
        if (is_leap(d1.y) && (d1.m < 3)) feb29 = true;
        if (is_leap(d2.y) && (d2.m > 2 || (d2.m == 2 && d2.d == 29))) feb29 = true;
        return days / (feb29 ? 366 : 365);
      }
      double span = serial_from(date1904, d2.y + 1, 1, 1) - serial_from(date1904, d1.y, 1, 1);
      double avg = span / (d2.y - d1.y + 1);
      return days / avg;
    }
    case 2:
      return (s2 - s1) / 360;
    case 3:
      return (s2 - s1) / 365;
    default:
      return days_30_360(d1, d2, true) / 360;
  }
}

}  // namespace fn

namespace {

using namespace fn;

Ymd ymd(Args& a, double serial) {
  return ymd_of(a.ev().date1904(), serial);
}
double serial_of(Args& a, int y, int m, int d) {
  return serial_from(a.ev().date1904(), y, m, d);
}

/// Day of the week, 0 = Sunday.
int dow(Args& a, double serial) {
  int64_t s = static_cast<int64_t>(std::floor(serial));
  return static_cast<int>(((s + (a.ev().date1904() ? 5 : 6)) % 7 + 7) % 7);
}

Operand f_date(Args& a) {
  double y = std::trunc(number(a, 0)), m = std::trunc(number(a, 1)), d = std::trunc(number(a, 2));
  if (y < 0 || y >= 10000) return error(cell_error::num);
  if (y < 1900) y += 1900;
  if (std::fabs(m) > 1e6 || std::fabs(d) > 1e8) return error(cell_error::num);
  double s = serial_of(a, static_cast<int>(y), static_cast<int>(m), static_cast<int>(d));
  if (s < 0 || s >= 2958466) return error(cell_error::num);
  return num(s);
}

Operand f_year(Args& a) {
  return num(ymd(a, date_arg(a, 0)).y);
}
Operand f_month(Args& a) {
  return num(ymd(a, date_arg(a, 0)).m);
}
Operand f_day(Args& a) {
  return num(ymd(a, date_arg(a, 0)).d);
}

Operand f_today(Args& a) {
  return num(std::floor(a.ev().ctx().now()));
}
Operand f_now(Args& a) {
  return num(a.ev().ctx().now());
}

Operand f_time(Args& a) {
  double h = std::trunc(number(a, 0)), m = std::trunc(number(a, 1)), s = std::trunc(number(a, 2));
  double total = h * 3600 + m * 60 + s;
  if (total < 0 || h > 32767 || m > 32767 || s > 32767) return error(cell_error::num);
  return num(std::fmod(total, 86400) / 86400);
}

/// Seconds into the day of a serial, rounded to the nearest second as the clock shows it.
int64_t day_seconds(Args& a, size_t i) {
  double v = number(a, i);
  if (v < 0) raise(cell_error::num);
  double frac = v - std::floor(v);
  int64_t s = static_cast<int64_t>(std::llround(frac * 86400));
  return s % 86400;
}
Operand f_hour(Args& a) {
  return num(static_cast<double>(day_seconds(a, 0) / 3600));
}
Operand f_minute(Args& a) {
  return num(static_cast<double>(day_seconds(a, 0) / 60 % 60));
}
Operand f_second(Args& a) {
  return num(static_cast<double>(day_seconds(a, 0) % 60));
}

Operand f_weekday(Args& a) {
  double s = date_arg(a, 0);
  int type = a.missing(1) ? 1 : static_cast<int>(std::trunc(number(a, 1)));
  int d = dow(a, s);  // 0 = Sunday
  switch (type) {
    case 1:
    case 17:
      return num(d + 1);
    case 2:
    case 11:
      return num((d + 6) % 7 + 1);
    case 3:
      return num((d + 6) % 7);
    case 12:
      return num((d + 5) % 7 + 1);
    case 13:
      return num((d + 4) % 7 + 1);
    case 14:
      return num((d + 3) % 7 + 1);
    case 15:
      return num((d + 2) % 7 + 1);
    case 16:
      return num((d + 1) % 7 + 1);
    default:
      return error(cell_error::num);
  }
}

Operand add_months(Args& a, bool end_of_month) {
  double s = date_arg(a, 0);
  double months = std::trunc(number(a, 1));
  Ymd d = ymd(a, s);
  if (d.d == 0) d.d = 1;  // serial 0 ("1/0/1900") moves as 31 December 1899 would not
  int64_t total = static_cast<int64_t>(d.y) * 12 + (d.m - 1) + static_cast<int64_t>(months);
  int y = static_cast<int>(total / 12), m = static_cast<int>(total % 12) + 1;
  if (y < (a.ev().date1904() ? 1904 : 1900) || y > 9999) return error(cell_error::num);
  // The 1900 system counts a 29 February 1900, so that month ends a day later there.
  int last = days_in_month(y, m) + (y == 1900 && m == 2 && !a.ev().date1904() ? 1 : 0);
  int day = end_of_month ? last : std::min(d.d, last);
  double r = serial_of(a, y, m, day);
  if (r < 0) return error(cell_error::num);
  return num(r);
}
Operand f_edate(Args& a) {
  return add_months(a, false);
}
Operand f_eomonth(Args& a) {
  return add_months(a, true);
}

Operand f_days(Args& a) {
  // A number outside the calendar is no date: #NUM!, as everywhere else.
  return num(date_arg(a, 0) - date_arg(a, 1));
}

Operand f_datedif(Args& a) {
  double s1 = date_arg(a, 0), s2 = date_arg(a, 1);
  String unit = upper_text(text(a, 2));
  if (s1 > s2) return error(cell_error::num);
  Ymd d1 = ymd(a, s1), d2 = ymd(a, s2);
  int months = (d2.y - d1.y) * 12 + (d2.m - d1.m);
  if (d2.d < d1.d) --months;
  if (unit == u"D") return num(s2 - s1);
  if (unit == u"M") return num(months);
  if (unit == u"Y") return num(months / 12);
  if (unit == u"YM") return num(months % 12);
  if (unit == u"MD") {
    int diff = d2.d - d1.d;
    if (diff < 0) {
      int pm = d2.m == 1 ? 12 : d2.m - 1, py = d2.m == 1 ? d2.y - 1 : d2.y;
      diff += days_in_month(py, pm);
    }
    return num(diff);
  }
  if (unit == u"YD") {
    // The start moved into the end's year; 29 February of a common year is 1 March there.
    auto moved = [&](int y) { return serial_of(a, y, d1.m, 1) + d1.d - 1; };
    double start = moved(d2.y);
    if (start > s2) start = moved(d2.y - 1);
    return num(s2 - start);
  }
  return error(cell_error::num);
}

Operand f_days360(Args& a) {
  double s1 = date_arg(a, 0), s2 = date_arg(a, 1);
  bool european = boolean_or(a, 2, false);
  Ymd d1 = ymd(a, s1), d2 = ymd(a, s2);
  if (european) {
    if (d1.d == 31) d1.d = 30;
    if (d2.d == 31) d2.d = 30;
  } else {
    bool d1_last_feb = d1.m == 2 && d1.d == days_in_month(d1.y, 2);
    if (d1.d == 31 || d1_last_feb) d1.d = 30;
    if (d2.d == 31 && d1.d >= 30) d2.d = 30;
  }
  return num((d2.y - d1.y) * 360.0 + (d2.m - d1.m) * 30.0 + (d2.d - d1.d));
}

Operand f_yearfrac(Args& a) {
  double s1 = date_arg(a, 0), s2 = date_arg(a, 1);
  int basis = a.missing(2) ? 0 : static_cast<int>(std::trunc(number(a, 2)));
  if (basis < 0 || basis > 4) return error(cell_error::num);
  return num(year_fraction(a.ev().date1904(), s1, s2, basis));
}

/// Weekend days as a mask over 0 = Sunday .. 6 = Saturday, from the .INTL argument.
bool weekend_mask(Args& a, size_t i, bool mask[7]) {
  for (int k = 0; k < 7; ++k) mask[k] = false;
  if (a.missing(i)) {
    mask[0] = mask[6] = true;
    return true;
  }
  Value v = scalar(a, i);
  if (v.is_error()) raise(v.error_code());
  if (v.kind == Value::Kind::Text) {
    // "0000011": Monday first, 1 = weekend.
    if (v.text.size() != 7) return false;
    for (int k = 0; k < 7; ++k) {
      if (v.text[k] != u'0' && v.text[k] != u'1') return false;
      mask[(k + 1) % 7] = v.text[k] == u'1';
    }
    return !(mask[0] && mask[1] && mask[2] && mask[3] && mask[4] && mask[5] && mask[6]);
  }
  int code = static_cast<int>(Evaluator::to_number(v));
  if (code >= 1 && code <= 7) {
    // 1: Sat+Sun, 2: Sun+Mon, ..., 7: Fri+Sat
    int first = (code + 5) % 7;  // 1 -> Saturday(6)
    mask[first] = mask[(first + 1) % 7] = true;
    return true;
  }
  if (code >= 11 && code <= 17) {
    mask[code - 11] = true;  // 11: Sunday only ... 17: Saturday only
    return true;
  }
  return false;
}

std::set<int64_t> holidays(Args& a, size_t i) {
  std::set<int64_t> out;
  if (i >= a.size() || a.missing(i)) return out;
  const Operand& o = a.get(i);
  // A holiday typed directly must read as a date (text that does not is #VALUE!); in a range
  // or an array only the numbers are days off.
  if (o.is_value() && o.value.kind == Value::Kind::Text) {
    out.insert(static_cast<int64_t>(std::floor(number(a, i))));
    return out;
  }
  a.ev().for_each(o, [&](const Value& v, bool) {
    if (v.is_error()) raise(v.error_code());
    if (v.kind == Value::Kind::Number) out.insert(static_cast<int64_t>(std::floor(v.number)));
  });
  return out;
}

Operand networkdays(Args& a, bool intl) {
  double s1 = date_arg(a, 0), s2 = date_arg(a, 1);
  bool mask[7];
  if (!weekend_mask(a, intl ? 2 : 99, mask)) return error(cell_error::num);
  auto hol = holidays(a, intl ? 3 : 2);
  int sign = 1;
  if (s1 > s2) {
    std::swap(s1, s2);
    sign = -1;
  }
  int64_t from = static_cast<int64_t>(s1), to = static_cast<int64_t>(s2);
  int64_t count = 0;
  int work_per_week = 0;
  for (int k = 0; k < 7; ++k) work_per_week += !mask[k];
  // Whole weeks at once, then the rest day by day.
  int64_t span = to - from + 1;
  count += (span / 7) * work_per_week;
  int64_t rest_from = from + (span / 7) * 7;
  for (int64_t d = rest_from; d <= to; ++d)
    if (!mask[dow(a, static_cast<double>(d))]) ++count;
  for (int64_t h : hol)
    if (h >= from && h <= to && !mask[dow(a, static_cast<double>(h))]) --count;
  return num(static_cast<double>(sign * count));
}
Operand f_networkdays(Args& a) {
  return networkdays(a, false);
}
Operand f_networkdays_intl(Args& a) {
  return networkdays(a, true);
}

Operand workday(Args& a, bool intl) {
  double s = date_arg(a, 0);
  double days = std::trunc(number(a, 1));
  bool mask[7];
  if (!weekend_mask(a, intl ? 2 : 99, mask)) return error(cell_error::num);
  bool all_weekend = true;
  for (int k = 0; k < 7; ++k) all_weekend = all_weekend && mask[k];
  if (all_weekend) return error(cell_error::num);
  auto hol = holidays(a, intl ? 3 : 2);
  int64_t d = static_cast<int64_t>(s);
  int step = days >= 0 ? 1 : -1;
  int64_t left = static_cast<int64_t>(std::fabs(days));
  if (left > 10000000) return error(cell_error::num);
  while (left > 0) {
    d += step;
    if (d < 0 || d >= 2958466) return error(cell_error::num);
    if (mask[dow(a, static_cast<double>(d))] || hol.count(d)) continue;
    --left;
  }
  return num(static_cast<double>(d));
}
Operand f_workday(Args& a) {
  return workday(a, false);
}
Operand f_workday_intl(Args& a) {
  return workday(a, true);
}

Operand f_datevalue(Args& a) {
  Value v = scalar(a, 0);
  if (v.is_error()) return v;
  if (v.kind != Value::Kind::Text) return error(cell_error::value);
  auto e = numfmt::parse_entry(v.text, a.ev().date1904());
  if (e.type != numfmt::Entry::Type::Number || !e.implied_format ||
      !numfmt::is_date_format(*e.implied_format))
    return error(cell_error::value);
  return num(std::floor(e.number));
}
Operand f_timevalue(Args& a) {
  Value v = scalar(a, 0);
  if (v.is_error()) return v;
  if (v.kind != Value::Kind::Text) return error(cell_error::value);
  auto e = numfmt::parse_entry(v.text, a.ev().date1904());
  if (e.type != numfmt::Entry::Type::Number || !e.implied_format ||
      !numfmt::is_date_format(*e.implied_format))
    return error(cell_error::value);
  return num(e.number - std::floor(e.number));
}

Operand f_weeknum(Args& a) {
  double s = date_arg(a, 0);
  int type = a.missing(1) ? 1 : static_cast<int>(std::trunc(number(a, 1)));
  if (type == 21) {
    // ISO weeks
    Ymd d = ymd(a, s);
    int wd = (dow(a, s) + 6) % 7;  // Monday = 0
    double thursday = s - wd + 3;
    Ymd t = ymd(a, thursday);
    double jan1 = serial_of(a, t.y, 1, 1);
    (void)d;
    return num(std::floor((thursday - jan1) / 7) + 1);
  }
  int first;  // the day weeks begin on, 0 = Sunday
  switch (type) {
    case 1:
    case 17:
      first = 0;
      break;
    case 2:
    case 11:
      first = 1;
      break;
    case 12:
      first = 2;
      break;
    case 13:
      first = 3;
      break;
    case 14:
      first = 4;
      break;
    case 15:
      first = 5;
      break;
    case 16:
      first = 6;
      break;
    default:
      return error(cell_error::num);
  }
  Ymd d = ymd(a, s);
  double jan1 = serial_of(a, d.y, 1, 1);
  int offset = (dow(a, jan1) - first + 7) % 7;
  return num(std::floor((s - jan1 + offset) / 7) + 1);
}
Operand f_isoweeknum(Args& a) {
  double s = date_arg(a, 0);
  int wd = (dow(a, s) + 6) % 7;
  double thursday = s - wd + 3;
  Ymd t = ymd(a, thursday);
  double jan1 = serial_of(a, t.y, 1, 1);
  return num(std::floor((thursday - jan1) / 7) + 1);
}

}  // namespace

void add_date_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"DATE", 3, 3, f_date, each_arg},
                        {u"DATEDIF", 3, 3, f_datedif, each_arg},
                        {u"DATEVALUE", 1, 1, f_datevalue, each_arg},
                        {u"DAY", 1, 1, f_day, each_arg},
                        {u"DAYS", 2, 2, f_days, each_arg},
                        {u"DAYS360", 2, 3, f_days360, each_arg},
                        {u"EDATE", 2, 2, f_edate, each_arg},
                        {u"EOMONTH", 2, 2, f_eomonth, each_arg},
                        {u"HOUR", 1, 1, f_hour, each_arg},
                        {u"ISOWEEKNUM", 1, 1, f_isoweeknum, each_arg},
                        {u"MINUTE", 1, 1, f_minute, each_arg},
                        {u"MONTH", 1, 1, f_month, each_arg},
                        {u"NETWORKDAYS", 2, 3, f_networkdays, each_arg_0_1},
                        {u"NETWORKDAYS.INTL", 2, 4, f_networkdays_intl},
                        {u"NOW", 0, 0, f_now, whole_args, true},
                        {u"SECOND", 1, 1, f_second, each_arg},
                        {u"TIME", 3, 3, f_time, each_arg},
                        {u"TIMEVALUE", 1, 1, f_timevalue, each_arg},
                        {u"TODAY", 0, 0, f_today, whole_args, true},
                        {u"WEEKDAY", 1, 2, f_weekday, each_arg},
                        {u"WEEKNUM", 1, 2, f_weeknum, each_arg},
                        {u"WORKDAY", 2, 3, f_workday, each_arg_0_1},
                        {u"WORKDAY.INTL", 2, 4, f_workday_intl},
                        {u"YEAR", 1, 1, f_year, each_arg},
                        {u"YEARFRAC", 2, 3, f_yearfrac, each_arg},
                    });
}

}  // namespace qz::engine::calc
