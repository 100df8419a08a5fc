// The runtime's conversions, written once. They decide how AutoColor reads cells and how
// settings come back from the store, so every rule here matches the automation runtime.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "qzxl/variant.hpp"

namespace qz {

/// The regional settings the conversions read. One seam, so that a test or a host can
/// switch them; the default is en-US. The platform fills it from the user's settings when a
/// session starts (the COM server from the user's locale, the command-line tool from the
/// environment or its --locale option).
struct Locale {
  /// The locale's name ("en-US", "de-DE"), for messages.
  String name = u"en-US";
  char16_t decimal = u'.';
  /// The digit-grouping mark. Where it is a space of any kind (fr-FR's narrow no-break
  /// space), an ordinary or no-break space typed in its place reads the same.
  char16_t thousands = u',';
  String currency = u"$";
  /// Where amounts put the currency symbol, in the platform's codes: 0 "$1", 1 "1$",
  /// 2 "$ 1", 3 "1 $".
  int32_t currency_position = 0;
  /// How negatives are written, in the platform's codes: numbers 0 "(1.1)", 1 "-1.1",
  /// 2 "- 1.1", 3 "1.1-", 4 "1.1 -"; amounts 0 "($1.1)", 1 "-$1.1", ... 8 "-1.1 $" ...
  int32_t negative_number = 1;
  int32_t negative_currency = 0;
  /// Short-date order of day, month and year in text such as "11/14/2026".
  enum class DateOrder { MDY, DMY, YMD } date_order = DateOrder::MDY;
  char16_t date_separator = u'/';
  char16_t time_separator = u':';
  /// The short-date pattern in the platform's letters (d, dd, M, MM, yy, yyyy; anything else
  /// is literal): how dates are written by CStr and by the built-in date format.
  String short_date = u"M/d/yyyy";
  String am = u"AM";
  String pm = u"PM";
  /// The platform's own readers of number and date text, where it has them (the automation
  /// runtime's parsers on Windows), so that IsNumeric and IsDate answer exactly as the
  /// user's application does. Without them the rules below read the fields above.
  using Reader = std::optional<double> (*)(StringView text);
  Reader number_reader = nullptr;
  Reader date_reader = nullptr;
};

/// Whether `c` groups digits in this locale: its grouping mark, and where that mark is a
/// space of any kind, every kind of space.
bool groups_digits(const Locale& locale, char16_t c) noexcept;

/// The locale conversions use now (en-US unless replaced).
const Locale& current_locale() noexcept;
/// Replaces the locale; returns the previous one.
Locale set_locale(Locale locale);

/// Reads `text` as a number by the runtime's rules for the current locale (through its
/// number reader when it has one; the &H / &O forms are read here either way): leading and
/// trailing white space (blanks, tabs, line breaks), a leading or trailing sign, parentheses
/// for negatives, a currency symbol before or after, thousands separators between digits of
/// the integer part (group sizes are not checked: "1,0" is 10), one decimal point, an
/// exponent (E or D), and &H / &O radix prefixes. Empty or unreadable text, and numbers
/// beyond the Double range, give nothing.
std::optional<double> parse_number(StringView text);

/// Reads `text` as a date, a time or both (the runtime's IsDate/CDate rules for the
/// current locale: "11/14/2026", "2026-11-14", "14 Nov 2026", "Nov 14, 2026", "9:30",
/// "9:30 PM", "11/14/2026 9:30:15"); through the locale's date reader when it has one.
/// Gives the automation date serial.
std::optional<double> parse_date(StringView text);

/// IsNumeric: True for Empty, Boolean, Integer, Long, Double, and text that
/// `parse_number` accepts. False for Date, Null, Error, Object, Array and other text.
bool is_numeric(const Variant& v);

/// IsDate: True for a Date, and for text that `parse_date` accepts.
bool is_date(const Variant& v);

/// CBool: Empty is False; numbers are True when non-zero; text "True"/"False" in any case
/// (also "#TRUE#"/"#FALSE#"), or text that reads as a number. Null raises 94; anything else
/// raises 13.
bool to_bool(const Variant& v);

/// CLng: numbers rounded half to even; Boolean True is -1; text read as a number and rounded
/// on its written digits ("2.5" is 2, "2.5000001" is 3). Raises 6 when out of range, 13 when
/// it does not convert, 94 for Null.
int32_t to_long(const Variant& v);

/// CInt: as `to_long`, for the 16-bit range.
int16_t to_integer(const Variant& v);

/// CDbl: numbers, Booleans (-1/0), dates (their serial), text read as a number. Date text
/// ("1/1/2000") is no number and raises 13.
double to_double(const Variant& v);

/// CDate: a date, a number taken as a serial, or text read as a date (or number).
Date to_date(const Variant& v);

/// CStr: Empty is ""; Booleans "True"/"False"; numbers in the runtime's shortest form with at
/// most 15 significant digits ("1.5", "1E+16", "-0.001"); dates in the locale's short form
/// (the locale's short-date pattern: "11/14/2026", "9:30:00 AM", "11/14/2026 9:30:00 AM";
/// the zero date is "12:00:00 AM");
/// errors "Error 2007". Null raises 94.
String to_string(const Variant& v);

/// Formats a Double the way CStr does.
String format_number(double d);

/// Text conversions between the runtime's UTF-16 and UTF-8 (files, terminals). Invalid
/// sequences become U+FFFD; lone surrogates are kept in UTF-16 and written as U+FFFD.
std::string to_utf8(StringView s);
String from_utf8(std::string_view s);

/// ASCII-only case folding, as the runtime's text comparison does for names and addresses.
String to_upper(StringView s);
String to_lower(StringView s);
/// Text comparison (the runtime's vbTextCompare for our purposes: case-insensitive over
/// ASCII and Latin-1 letters).
bool equals_text(StringView a, StringView b) noexcept;
/// Orders two texts as the text comparison sees them: negative, zero or positive.
int compare_text(StringView a, StringView b) noexcept;
/// Position (1-based) of `what` in `s` from `start` (1-based), text compare; 0 when absent.
int32_t instr_text(int32_t start, StringView s, StringView what) noexcept;
/// Position (1-based) of `what` in `s` from `start`, binary compare; 0 when absent.
int32_t instr(int32_t start, StringView s, StringView what) noexcept;
/// Trim of blanks (spaces only, as the runtime's Trim).
StringView trim(StringView s) noexcept;

/// Builds a String from ASCII/UTF-8 text; for messages and literals in C++ code.
inline String u16(std::string_view s) {
  return from_utf8(s);
}

}  // namespace qz
