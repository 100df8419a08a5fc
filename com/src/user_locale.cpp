#include "com/src/user_locale.hpp"

#include <windows.h>

#include <oleauto.h>

#include <string>

namespace qz::com {
namespace {

// One of the user's settings, or nothing when it cannot be read.
String setting(LCTYPE type) {
  wchar_t buf[96];
  const int n = GetLocaleInfoW(LOCALE_USER_DEFAULT, type, buf, 96);
  if (n <= 1) return String();
  return String(reinterpret_cast<const char16_t*>(buf), static_cast<size_t>(n - 1));
}

void read_char(LCTYPE type, char16_t& into) {
  const String s = setting(type);
  if (s.size() == 1) into = s[0];
}

void read_code(LCTYPE type, int32_t& into) {
  const String s = setting(type);
  if (s.empty() || s.size() > 2) return;
  int32_t v = 0;
  for (char16_t c : s) {
    if (c < u'0' || c > u'9') return;
    v = v * 10 + (c - u'0');
  }
  into = v;
}

// The runtime's parsers take a writable BSTR-like pointer: a copy with its terminating null.
std::wstring terminated(StringView text) {
  return std::wstring(text.begin(), text.end());
}

std::optional<double> read_number(StringView text) {
  std::wstring s = terminated(text);
  double out = 0;
  if (FAILED(VarR8FromStr(s.data(), LOCALE_USER_DEFAULT, 0, &out))) return std::nullopt;
  return out;
}

std::optional<double> read_date(StringView text) {
  std::wstring s = terminated(text);
  DATE out = 0;
  if (FAILED(VarDateFromStr(s.data(), LOCALE_USER_DEFAULT, 0, &out))) return std::nullopt;
  return out;
}

}  // namespace

Locale user_locale() {
  Locale l;
  wchar_t name[LOCALE_NAME_MAX_LENGTH];
  if (LCIDToLocaleName(GetUserDefaultLCID(), name, LOCALE_NAME_MAX_LENGTH, 0) > 1)
    l.name = String(reinterpret_cast<const char16_t*>(name));
  read_char(LOCALE_SDECIMAL, l.decimal);
  read_char(LOCALE_STHOUSAND, l.thousands);
  if (String s = setting(LOCALE_SCURRENCY); !s.empty()) l.currency = s;
  read_code(LOCALE_ICURRENCY, l.currency_position);
  read_code(LOCALE_INEGNUMBER, l.negative_number);
  read_code(LOCALE_INEGCURR, l.negative_currency);
  int32_t order = 0;
  read_code(LOCALE_IDATE, order);
  l.date_order = order == 1   ? Locale::DateOrder::DMY
                 : order == 2 ? Locale::DateOrder::YMD
                              : Locale::DateOrder::MDY;
  read_char(LOCALE_SDATE, l.date_separator);
  read_char(LOCALE_STIME, l.time_separator);
  if (String s = setting(LOCALE_SSHORTDATE); !s.empty()) l.short_date = s;
  if (String s = setting(LOCALE_S1159); !s.empty()) l.am = s;
  if (String s = setting(LOCALE_S2359); !s.empty()) l.pm = s;
  l.number_reader = read_number;
  l.date_reader = read_date;
  return l;
}

}  // namespace qz::com
