// Date serials: whole days counted from 30 December 1899, the automation date's day zero, on
// the proleptic Gregorian calendar of <chrono>. The workbook's 1900 system with its
// 29 February 1900 and the 1904 system are built on these by the engine's number formats.
#pragma once

#include <chrono>
#include <cstdint>

namespace qz::dates {

/// The serial of 1 January 1970, the system clock's epoch.
inline constexpr int64_t kSerialOf1970 = 25569;
/// Days the 1904 date system counts fewer than the 1900 one.
inline constexpr int64_t k1904Shift = 1462;
inline constexpr int64_t kSecondsPerDay = 86400;

struct Civil {
  int64_t year = 0;
  int month = 0;  ///< 1 to 12
  int day = 0;    ///< 1 to 31
};

namespace detail {
// The Gregorian calendar repeats every 400 years, 146097 days; <chrono> counts years within
// +-32767 only, so far years are brought into its range by whole cycles.
inline constexpr int64_t kCycleYears = 400, kCycleDays = 146097;
constexpr int64_t cycles_of(int64_t v, int64_t per) {
  return v >= 0 ? v / per : -((-v + per - 1) / per);
}
}  // namespace detail

/// Serial of a civil date. The month must be 1 to 12; a day past the month's end or below 1
/// rolls over into the next or previous month.
constexpr int64_t serial_from_civil(int64_t year, int month, int day) {
  using namespace std::chrono;
  const int64_t cycles = detail::cycles_of(year, detail::kCycleYears);
  const int64_t y = year - cycles * detail::kCycleYears;
  const sys_days first{std::chrono::year{static_cast<int>(y)} / month / 1};
  return first.time_since_epoch().count() + (day - 1) + cycles * detail::kCycleDays + kSerialOf1970;
}

/// The civil date of a serial.
constexpr Civil civil_from_serial(int64_t serial) {
  using namespace std::chrono;
  const int64_t since_1970 = serial - kSerialOf1970;
  // Whole cycles off, so that what is left lies within <chrono>'s years.
  const int64_t cycles = detail::cycles_of(since_1970, detail::kCycleDays);
  const year_month_day ymd{sys_days{days{since_1970 - cycles * detail::kCycleDays}}};
  return {static_cast<int>(ymd.year()) + cycles * detail::kCycleYears,
          static_cast<int>(static_cast<unsigned>(ymd.month())),
          static_cast<int>(static_cast<unsigned>(ymd.day()))};
}

constexpr bool is_leap(int64_t year) {
  const int64_t in_cycle = year - detail::cycles_of(year, detail::kCycleYears) * 400;
  return std::chrono::year{static_cast<int>(in_cycle)}.is_leap();
}

/// Days in a month (1 to 12) of a year.
constexpr int days_in_month(int64_t year, int month) {
  using namespace std::chrono;
  const int64_t in_cycle = year - detail::cycles_of(year, detail::kCycleYears) * 400;
  const year_month_day_last last{std::chrono::year{static_cast<int>(in_cycle)} /
                                 std::chrono::month{static_cast<unsigned>(month)} /
                                 std::chrono::last};
  return static_cast<int>(static_cast<unsigned>(last.day()));
}

/// The serial (with the time of day as its fraction) of a moment given as seconds since 1970.
constexpr double serial_from_unix_seconds(double seconds) {
  return static_cast<double>(kSerialOf1970) + seconds / static_cast<double>(kSecondsPerDay);
}

}  // namespace qz::dates
