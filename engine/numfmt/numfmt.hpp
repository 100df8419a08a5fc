// Number formats and typed entries: what a cell shows for a value under a format code, which
// formats are dates or times, the built-in formats by id, and how text a person types into a
// cell becomes a number, a date, a percentage, a Boolean, an error or text.
#pragma once

#include <cstdint>
#include <optional>

#include "qzxl/convert.hpp"
#include "qzxl/variant.hpp"

namespace qz::engine::numfmt {

/// The format code of a built-in format id (0 "General", 14 "m/d/yyyy", ...); nothing for
/// ids without a built-in code.
std::optional<String> builtin_code(int32_t id);
/// The built-in id of a code, if it is one.
std::optional<int32_t> builtin_id(StringView code);

/// What a format shows for numbers.
enum class Kind : uint8_t {
  General,
  Number,
  Percent,
  Scientific,
  Fraction,
  Date,
  Time,
  DateTime,
  Elapsed,
  Text
};
/// Classifies a code by its first section: dates (d, m next to d/y, y), times (h, s, AM/PM,
/// m next to h or s), both, elapsed ([h], [m], [s]), ... Literal text and escapes are not
/// mistaken for codes ("\d", "\"days\"" are no day).
Kind classify(StringView code);
/// Date, Time, DateTime or Elapsed: the application returns a Date for such cells' values.
bool is_date_format(StringView code);

/// A value to render: a number, text, Boolean or error (code), as a cell holds it.
struct CellValue {
  enum class Type : uint8_t { Empty, Number, Text, Boolean, Error } type = Type::Empty;
  double number = 0;
  StringView text;
};

/// The text the cell shows (`Range.Text`), with the application's rules: General's 11-digit
/// rendering, sections for positive;negative;zero;text, conditions ([>100]), colours
/// ([Red]) dropped from the text, literal text and escapes, thousands and scaling commas,
/// percent, scientific, fractions (# ?/?, # ??/16), dates and times (the 1900 system with its
/// 29 February 1900, or the 1904 system), AM/PM, elapsed [h]:mm:ss, fractional seconds, and
/// "@" text sections. Malformed codes raise qz::Error.
String render(const CellValue& value, StringView code, bool date1904);

/// The text the cell shows the user under `locale`: as `render`, with the locale's decimal
/// and grouping marks in place of the code's "." and "," ("#,##0.00" shows 1234.5 as
/// "1.234,50" in de-DE), and the built-in short date ("m/d/yyyy", also with " h:mm") in the
/// locale's short-date pattern. The code itself stays in its file form.
String render_shown(const CellValue& value, StringView code, bool date1904, const Locale& locale);

/// The text of an error value ("#DIV/0!"), by its code; unknown codes read "#N/A".
StringView error_literal(int32_t code);

/// Validates a format code (as `Range.NumberFormat = code` would); raises qz::Error naming
/// the problem when the application would refuse it.
void validate(StringView code);

/// What a typed entry becomes (the application's entry rules). Formulas ("=...") are not
/// handled here.
struct Entry {
  enum class Type : uint8_t { Empty, Number, Text, Boolean, Error } type = Type::Empty;
  double number = 0;        ///< Number (a serial for dates and times), Error code
  String text;              ///< Text (without a leading apostrophe)
  bool apostrophe = false;  ///< the entry began with "'" (PrefixCharacter)
  /// A format the entry implies when the cell has General: "0%", "0.00%", "$#,##0.00",
  /// "#,##0", "m/d/yyyy", "h:mm", "m/d/yyyy h:mm", "0.00E+00", "d-mmm", "mmm-yy", ...
  std::optional<String> implied_format;
};
/// Reads a typed entry in the current locale (qz::current_locale): numbers with its
/// thousands separators and decimal mark, its currency symbol on the side it writes it,
/// percent, exponent, parentheses for negatives; dates and times in its date order
/// ("11/14/2026" in en-US, "14.11.2026" in de-DE, "14-Nov", "9:30 PM", "2026-11-14 9:30");
/// TRUE/FALSE (any case); error literals ("#N/A"); a leading apostrophe keeps the rest as
/// text.
Entry parse_entry(StringView typed, bool date1904);

/// Serial <-> civil date in the workbook's date system. The 1900 system counts the
/// non-existent 29 February 1900 as serial 60, as the application does.
double serial_from_date(int year, int month, int day, bool date1904);
void date_from_serial(double serial, bool date1904, int& year, int& month, int& day);

/// The automation Date for a cell serial: equal to the serial in the 1900 system from
/// 1 March 1900 on; serials 1..59 shift by one (the automation calendar has no 29 February
/// 1900); the 1904 system adds 1462.
double automation_date(double serial, bool date1904);
double serial_from_automation(double date, bool date1904);

}  // namespace qz::engine::numfmt
