// Date arithmetic the date, financial and securities families share. Internal to the calc
// component.
#pragma once

#include "engine/calc/eval.hpp"
#include "vocab/dates.hpp"

namespace qz::engine::calc::fn {

struct Ymd {
  int y, m, d;
};

/// A serial as year, month and day, and back, in the workbook's date system.
Ymd ymd_of(bool date1904, double serial);
double serial_from(bool date1904, int y, int m, int d);

/// A date argument: a serial (text that reads as a date counts), truncated, not negative.
double date_arg(Args& a, size_t i);

using dates::days_in_month;
using dates::is_leap;

/// Days between two dates counted 30/360: the US (NASD) rules with their end-of-February
/// adjustments, or the European ones.
double days_30_360(Ymd d1, Ymd d2, bool european);

/// The fraction of a year between two serials under a day-count basis (0 US 30/360,
/// 1 actual/actual, 2 actual/360, 3 actual/365, 4 European 30/360), as YEARFRAC gives it.
double year_fraction(bool date1904, double s1, double s2, int basis);

}  // namespace qz::engine::calc::fn
