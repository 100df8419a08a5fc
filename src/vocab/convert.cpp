#include "qzxl/convert.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "qzxl/object.hpp"
#include "vocab/dates.hpp"
#include "vocab/text_fold.hpp"

namespace qz {

namespace {
Locale& locale_slot() {
  static Locale l;
  return l;
}

bool is_blank(char16_t c) {
  return c == u' ' || c == u'\t';
}
// White space around a number: what the runtime skips before and after the digits.
bool is_space(char16_t c) {
  return c == u' ' || (c >= u'\t' && c <= u'\r');
}
bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

[[noreturn]] void mismatch() {
  throw Error(err::type_mismatch, "Type mismatch");
}
[[noreturn]] void overflow() {
  throw Error(err::overflow, "Overflow");
}
[[noreturn]] void invalid_null() {
  throw Error(err::invalid_null, "Invalid use of Null");
}

bool starts_with_text(StringView s, size_t pos, StringView what) {
  if (what.empty() || pos + what.size() > s.size()) return false;
  for (size_t i = 0; i < what.size(); ++i)
    if (fold_case(s[pos + i]) != fold_case(what[i])) return false;
  return true;
}
}  // namespace

bool groups_digits(const Locale& locale, char16_t c) noexcept {
  // Spaces that may group digits: the ordinary, the no-break and the narrow no-break one.
  auto space = [](char16_t x) { return x == u' ' || x == u'\u00A0' || x == u'\u202F'; };
  return c == locale.thousands || (space(locale.thousands) && space(c));
}

const Locale& current_locale() noexcept {
  return locale_slot();
}

Locale set_locale(Locale locale) {
  Locale old = locale_slot();
  locale_slot() = std::move(locale);
  return old;
}

namespace {

// A number read from text, kept as its decimal digits so that conversions to whole numbers
// can round the exact written value (half to even) rather than its nearest Double.
struct ScannedNumber {
  bool negative = false;
  std::string digits;           // significant digits, no decimal point
  int64_t exp10 = 0;            // value = digits * 10^exp10
  std::optional<double> radix;  // set for &H / &O text, which is already a whole number
};

std::optional<ScannedNumber> scan_number(StringView text) {
  const Locale& loc = current_locale();
  size_t i = 0, n = text.size();
  auto skip_blanks = [&] {
    while (i < n && is_space(text[i])) ++i;
  };
  auto take_currency = [&] {
    if (starts_with_text(text, i, loc.currency)) {
      i += loc.currency.size();
      return true;
    }
    return false;
  };
  skip_blanks();
  if (i == n) return std::nullopt;
  ScannedNumber out;

  // Radix prefixes: &H hexadecimal, &O (or & alone) octal.
  if (text[i] == u'&') {
    ++i;
    int base = 8;
    if (i < n && (text[i] == u'H' || text[i] == u'h'))
      base = 16, ++i;
    else if (i < n && (text[i] == u'O' || text[i] == u'o'))
      ++i;
    uint64_t v = 0;
    size_t digits = 0;
    for (; i < n; ++i, ++digits) {
      char16_t c = text[i];
      int d = is_digit(c) ? c - u'0'
              : (base == 16 && fold_case(c) >= u'A' && fold_case(c) <= u'F')
                  ? fold_case(c) - u'A' + 10
                  : -1;
      if (d < 0 || d >= base) break;
      v = v * base + static_cast<uint64_t>(d);
      if (v > 0xFFFFFFFFull) return std::nullopt;
    }
    skip_blanks();
    if (digits == 0 || i != n) return std::nullopt;
    // Up to four hex digits read as a 16-bit value, more as 32-bit, both signed.
    if (v <= 0xFFFF && (base == 16 ? digits <= 4 : v <= 0177777))
      out.radix = static_cast<double>(static_cast<int16_t>(static_cast<uint16_t>(v)));
    else
      out.radix = static_cast<double>(static_cast<int32_t>(static_cast<uint32_t>(v)));
    return out;
  }

  bool sign_seen = false, paren = false, currency_seen = false;
  // Leading currency, sign and parenthesis in any order, each at most once.
  for (;;) {
    if (!currency_seen && take_currency()) {
      currency_seen = true;
    } else if (!sign_seen && !paren && (text[i] == u'+' || text[i] == u'-')) {
      out.negative = text[i] == u'-';
      sign_seen = true;
      ++i;
    } else if (!sign_seen && !paren && text[i] == u'(') {
      paren = true;
      out.negative = true;
      ++i;
    } else {
      break;
    }
    skip_blanks();
    if (i == n) return std::nullopt;
  }

  size_t int_digits = 0, frac_digits = 0;
  while (i < n) {
    if (is_digit(text[i])) {
      out.digits.push_back(static_cast<char>(text[i]));
      ++int_digits;
      ++i;
    } else if (int_digits > 0 && i + 1 < n && is_digit(text[i + 1]) &&
               groups_digits(loc, text[i])) {
      ++i;  // a grouping separator between digits; the runtime does not check group sizes
    } else {
      break;
    }
  }
  if (i < n && text[i] == loc.decimal) {
    ++i;
    while (i < n && is_digit(text[i])) {
      out.digits.push_back(static_cast<char>(text[i]));
      ++frac_digits;
      ++i;
    }
  }
  if (int_digits + frac_digits == 0) return std::nullopt;
  int64_t exponent = 0;
  if (i < n && (fold_case(text[i]) == u'E' || fold_case(text[i]) == u'D')) {
    size_t j = i + 1;
    bool exp_negative = false;
    if (j < n && (text[j] == u'+' || text[j] == u'-')) exp_negative = text[j++] == u'-';
    size_t exp_digits = 0;
    while (j < n && is_digit(text[j])) {
      // Beyond any Double's range either way; stop growing so the count cannot overflow.
      if (exponent < 100000) exponent = exponent * 10 + (text[j] - u'0');
      ++j, ++exp_digits;
    }
    if (exp_digits == 0) return std::nullopt;
    if (exp_negative) exponent = -exponent;
    i = j;
  }
  skip_blanks();
  // Trailing currency, sign and closing parenthesis.
  if (i < n && !currency_seen && take_currency()) {
    currency_seen = true;
    skip_blanks();
  }
  if (i < n && !sign_seen && !paren && (text[i] == u'+' || text[i] == u'-')) {
    out.negative = text[i] == u'-';
    sign_seen = true;
    ++i;
    skip_blanks();
  }
  if (paren) {
    if (i == n || text[i] != u')') return std::nullopt;
    ++i;
    skip_blanks();
  }
  if (i < n && !currency_seen && take_currency()) skip_blanks();
  if (i != n) return std::nullopt;

  // Leading zeros carry no value; trailing zeros only scale it.
  size_t first = out.digits.find_first_not_of('0');
  if (first == std::string::npos) {
    out.digits = "0";
    out.exp10 = 0;
    return out;
  }
  out.digits.erase(0, first);
  out.exp10 = exponent - static_cast<int64_t>(frac_digits);
  while (out.digits.size() > 1 && out.digits.back() == '0') out.digits.pop_back(), ++out.exp10;
  return out;
}

std::optional<double> value_of(const ScannedNumber& s) {
  if (s.radix) return *s.radix;
  // Far outside the Double range: overflow or zero, decided without asking strtod.
  int64_t magnitude = static_cast<int64_t>(s.digits.size()) + s.exp10;
  if (magnitude > 310) return std::nullopt;
  if (magnitude < -330) return s.negative ? -0.0 : 0.0;
  std::string buf = s.digits + "e" + std::to_string(s.exp10);
  double v = std::strtod(buf.c_str(), nullptr);
  if (std::isinf(v)) return std::nullopt;
  return s.negative ? -v : v;
}

// The whole number nearest to the written value, ties to even, judged on the decimal digits
// as written ("2.5000000001" rounds up although its nearest Double is 2.5). Values too
// large for any whole-number type come back as a large magnitude for the caller to reject.
double round_half_even(const ScannedNumber& s) {
  if (s.radix) return *s.radix;
  const double huge = 1e300;
  int64_t int_len = static_cast<int64_t>(s.digits.size()) + s.exp10;
  if (int_len > 18) return s.negative ? -huge : huge;
  std::string int_part, frac_part;
  if (s.exp10 >= 0) {
    int_part = s.digits + std::string(static_cast<size_t>(s.exp10), '0');
  } else if (int_len > 0) {
    int_part = s.digits.substr(0, static_cast<size_t>(int_len));
    frac_part = s.digits.substr(static_cast<size_t>(int_len));
  } else {
    // Below one: "0.5" has int_len 0 and rounds by its first digit; "0.05" cannot reach 1.
    frac_part = std::string(static_cast<size_t>(-int_len), '0') + s.digits;
  }
  int64_t whole = 0;
  for (char c : int_part) whole = whole * 10 + (c - '0');
  if (!frac_part.empty()) {
    char first = frac_part[0];
    bool rest_nonzero = frac_part.find_first_not_of('0', 1) != std::string::npos;
    if (first > '5' || (first == '5' && (rest_nonzero || (whole % 2) != 0))) ++whole;
  }
  double d = static_cast<double>(whole);
  return s.negative ? -d : d;
}

}  // namespace

namespace {
// The &H / &O forms: the runtime reads them as typed whole numbers (&HFFFF is the Integer -1),
// which the platform's number reader, if it knows them at all, reads as plain magnitudes.
bool radix_form(StringView text) {
  size_t i = 0;
  while (i < text.size() && is_space(text[i])) ++i;
  return i < text.size() && text[i] == u'&';
}
}  // namespace

std::optional<double> parse_number(StringView text) {
  const Locale::Reader reader = current_locale().number_reader;
  if (reader && !radix_form(text)) return reader(text);
  auto scanned = scan_number(text);
  if (!scanned) return std::nullopt;
  return value_of(*scanned);
}

namespace {

constexpr const char16_t* kMonths[] = {u"JANUARY",   u"FEBRUARY", u"MARCH",    u"APRIL",
                                       u"MAY",       u"JUNE",     u"JULY",     u"AUGUST",
                                       u"SEPTEMBER", u"OCTOBER",  u"NOVEMBER", u"DECEMBER"};

constexpr const char16_t* kWeekdays[] = {u"SUNDAY",   u"MONDAY", u"TUESDAY", u"WEDNESDAY",
                                         u"THURSDAY", u"FRIDAY", u"SATURDAY"};

bool valid_ymd(int y, int m, int d) {
  if (y < 100 || y > 9999 || m < 1 || m > 12 || d < 1) return false;
  return d <= dates::days_in_month(y, m);
}

int current_year() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
#ifdef _WIN32
  localtime_s(&tm, &t);
#else
  localtime_r(&t, &tm);
#endif
  return tm.tm_year + 1900;
}

int expand_year(int y, size_t digits) {
  if (digits <= 2) return y < 30 ? 2000 + y : 1900 + y;
  return y;
}

struct Token {
  enum Kind { Number, Month, AmPm, Sep, Colon, Comma } kind;
  int value = 0;
  size_t digits = 0;
  double frac = 0;  // fractional seconds
};

}  // namespace

std::optional<double> parse_date(StringView text) {
  const Locale& loc = current_locale();
  if (loc.date_reader) return loc.date_reader(text);
  std::vector<Token> toks;
  size_t i = 0, n = text.size();
  while (i < n) {
    char16_t c = text[i];
    if (is_blank(c)) {
      ++i;
    } else if (is_digit(c)) {
      Token t{Token::Number};
      while (i < n && is_digit(text[i])) {
        if (t.digits < 9) t.value = t.value * 10 + (text[i] - u'0');
        ++t.digits;
        ++i;
      }
      // Fractional seconds directly after a time's seconds ("9:30:15.5").
      if (i < n && text[i] == loc.decimal && !toks.empty() && toks.back().kind == Token::Colon) {
        size_t j = i + 1;
        double scale = 0.1;
        while (j < n && is_digit(text[j])) t.frac += (text[j++] - u'0') * scale, scale /= 10;
        i = j;
      }
      toks.push_back(t);
    } else if (c == loc.time_separator) {
      toks.push_back({Token::Colon});
      ++i;
    } else if (c == loc.date_separator || c == u'-' || c == u'/') {
      toks.push_back({Token::Sep});
      ++i;
    } else if (c == u',') {
      toks.push_back({Token::Comma});
      ++i;
    } else if (fold_case(c) >= u'A' && fold_case(c) <= u'Z') {
      size_t j = i;
      while (j < n && fold_case(text[j]) >= u'A' && fold_case(text[j]) <= u'Z') ++j;
      StringView word = text.substr(i, j - i);
      i = j;
      if (i < n && text[i] == u'.') ++i;  // "Nov."
      if (equals_text(word, loc.am) || equals_text(word, u"A")) {
        toks.push_back({Token::AmPm, 0});
        continue;
      }
      if (equals_text(word, loc.pm) || equals_text(word, u"P")) {
        toks.push_back({Token::AmPm, 1});
        continue;
      }
      // A day of the week, as long dates write it ("Saturday, November 14, 2026"), says
      // nothing the date does not.
      bool weekday = false;
      for (StringView full : kWeekdays)
        if (word.size() >= 3 && word.size() <= full.size() &&
            equals_text(word, full.substr(0, word.size())))
          weekday = true;
      if (weekday) continue;
      int month = 0;
      for (int m = 0; m < 12 && !month; ++m) {
        StringView full = kMonths[m];
        if (word.size() >= 3 && word.size() <= full.size() &&
            equals_text(word, full.substr(0, word.size())))
          month = m + 1;
      }
      if (!month) return std::nullopt;
      toks.push_back({Token::Month, month});
    } else {
      return std::nullopt;
    }
  }
  if (toks.empty()) return std::nullopt;

  // Split the tokens into a time part (around the colons / AM-PM) and a date part.
  size_t time_start = toks.size();
  for (size_t k = 0; k < toks.size(); ++k) {
    if (toks[k].kind == Token::Colon ||
        (toks[k].kind == Token::AmPm && k > 0 && toks[k - 1].kind == Token::Number)) {
      time_start = (k > 0 && toks[k - 1].kind == Token::Number) ? k - 1 : k;
      break;
    }
  }
  double time = 0;
  bool has_time = time_start < toks.size();
  if (has_time) {
    int parts[3] = {0, 0, 0};
    double frac = 0;
    int count = 0, ampm = -1;
    size_t k = time_start;
    while (k < toks.size()) {
      const Token& t = toks[k];
      if (t.kind == Token::Number && count < 3) {
        parts[count++] = t.value;
        frac = t.frac;
        ++k;
        if (k < toks.size() && toks[k].kind == Token::Colon) ++k;
      } else if (t.kind == Token::AmPm && ampm < 0) {
        ampm = t.value;
        ++k;
      } else {
        return std::nullopt;
      }
    }
    if (count == 0) return std::nullopt;
    int h = parts[0], m = parts[1], s = parts[2];
    if (ampm >= 0) {
      if (h < 1 || h > 12) return std::nullopt;
      h = h % 12 + (ampm == 1 ? 12 : 0);
    }
    if (h > 23 || m > 59 || s > 59) return std::nullopt;
    time = (h * 3600 + m * 60 + s + frac) / 86400.0;
  }

  std::vector<Token> d(toks.begin(), toks.begin() + static_cast<long>(time_start));
  std::vector<Token> nums;
  int month_word = 0;
  for (const Token& t : d) {
    if (t.kind == Token::Number)
      nums.push_back(t);
    else if (t.kind == Token::Month) {
      if (month_word) return std::nullopt;
      month_word = t.value;
    } else if (t.kind == Token::AmPm || t.kind == Token::Colon) {
      return std::nullopt;
    }
  }
  if (nums.empty() && !month_word) {
    if (!has_time) return std::nullopt;
    return time;
  }
  int y = 0, m = 0, day = 0;
  if (month_word) {
    m = month_word;
    if (nums.size() == 2) {
      day = nums[0].value;
      y = expand_year(nums[1].value, nums[1].digits);
      if (nums[0].digits >= 3) std::swap(day, y), y = nums[0].value, day = nums[1].value;
    } else if (nums.size() == 1) {
      // "Nov 14" is this year's; "Nov 2026" is the first of that month.
      if (nums[0].value > 31 || nums[0].digits >= 3) {
        y = expand_year(nums[0].value, nums[0].digits);
        day = 1;
      } else {
        day = nums[0].value;
        y = current_year();
      }
    } else {
      return std::nullopt;
    }
  } else if (nums.size() == 3) {
    if (nums[0].digits >= 3) {
      y = nums[0].value, m = nums[1].value, day = nums[2].value;
    } else {
      int a = nums[0].value, b = nums[1].value;
      y = expand_year(nums[2].value, nums[2].digits);
      switch (loc.date_order) {
        case Locale::DateOrder::MDY:
          m = a, day = b;
          break;
        case Locale::DateOrder::DMY:
          day = a, m = b;
          break;
        case Locale::DateOrder::YMD:
          y = expand_year(a, nums[0].digits), m = b, day = nums[2].value;
          break;
      }
      // A first number that cannot be a month makes the runtime read day and month the
      // other way round.
      if (m > 12 && day <= 12) std::swap(m, day);
    }
  } else if (nums.size() == 2) {
    int a = nums[0].value, b = nums[1].value;
    if (loc.date_order == Locale::DateOrder::DMY) std::swap(a, b);
    if (a <= 12 && b <= 31 && nums[1].digits <= 2) {
      m = a, day = b, y = current_year();
    } else if (a <= 12) {
      m = a, day = 1, y = expand_year(nums[1].value, nums[1].digits);
    } else {
      return std::nullopt;
    }
  } else {
    return std::nullopt;
  }
  if (!valid_ymd(y, m, day)) return std::nullopt;
  double serial = static_cast<double>(dates::serial_from_civil(y, m, day));
  // Negative serials carry the time with the sign of the date, as the runtime encodes them.
  return serial < 0 ? serial - time : serial + time;
}

bool is_numeric(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
    case Variant::Type::Boolean:
    case Variant::Type::Integer:
    case Variant::Type::Long:
    case Variant::Type::Double:
      return true;
    case Variant::Type::String:
      return parse_number(v.str()).has_value();
    default:
      return false;
  }
}

bool is_date(const Variant& v) {
  if (v.is_date()) return true;
  if (v.is_string()) return parse_date(v.str()).has_value();
  return false;
}

bool to_bool(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
      return false;
    case Variant::Type::Boolean:
      return v.boolean();
    case Variant::Type::Integer:
      return v.integer() != 0;
    case Variant::Type::Long:
      return v.long_value() != 0;
    case Variant::Type::Double:
      return v.dbl() != 0;
    case Variant::Type::Date:
      return v.date().serial != 0;
    case Variant::Type::String: {
      StringView s = trim(v.str());
      // The words in any case, and the runtime's own literal forms #TRUE# and #FALSE#.
      if (equals_text(s, u"True") || equals_text(s, u"#TRUE#")) return true;
      if (equals_text(s, u"False") || equals_text(s, u"#FALSE#")) return false;
      if (auto d = parse_number(s)) return *d != 0;
      mismatch();
    }
    case Variant::Type::Null:
      invalid_null();
    default:
      mismatch();
  }
}

double to_double(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
      return 0;
    case Variant::Type::Boolean:
      return v.boolean() ? -1 : 0;
    case Variant::Type::Integer:
      return v.integer();
    case Variant::Type::Long:
      return v.long_value();
    case Variant::Type::Double:
      return v.dbl();
    case Variant::Type::Date:
      return v.date().serial;
    case Variant::Type::String: {
      // Only number text converts: "1/1/2000" is no number (IsNumeric says False of it too),
      // a caller wanting its serial goes through to_date.
      if (auto d = parse_number(v.str())) return *d;
      mismatch();
    }
    case Variant::Type::Null:
      invalid_null();
    default:
      mismatch();
  }
}

namespace {
// Rounds half to even, as the runtime's whole-number conversions do, whatever rounding mode
// the floating-point environment happens to be in.
double round_even(double d) {
  double f = std::floor(d);
  double diff = d - f;
  if (diff > 0.5) return f + 1;
  if (diff < 0.5) return f;
  return std::fmod(f, 2.0) == 0 ? f : f + 1;
}

// The whole number a value converts to, before the target type's range is checked. Text is
// rounded on its written digits.
double whole_number(const Variant& v) {
  if (v.is_string()) {
    // With the platform's reader, it alone decides what is a number; the digits as written
    // still decide the rounding where the rules here read the same number.
    std::optional<double> read;
    if (current_locale().number_reader && !(read = parse_number(v.str()))) mismatch();
    if (auto scanned = scan_number(v.str()); scanned && (!read || value_of(*scanned) == read))
      return round_half_even(*scanned);
    if (read) return round_even(*read);
    mismatch();
  }
  return round_even(to_double(v));
}
}  // namespace

int32_t to_long(const Variant& v) {
  if (v.type() == Variant::Type::Long) return v.long_value();
  if (v.type() == Variant::Type::Integer) return v.integer();
  if (v.type() == Variant::Type::Boolean) return v.boolean() ? -1 : 0;
  double d = whole_number(v);
  if (!(d >= -2147483648.0 && d <= 2147483647.0)) overflow();
  return static_cast<int32_t>(d);
}

int16_t to_integer(const Variant& v) {
  if (v.type() == Variant::Type::Integer) return v.integer();
  if (v.type() == Variant::Type::Boolean) return v.boolean() ? -1 : 0;
  double d = whole_number(v);
  if (!(d >= -32768.0 && d <= 32767.0)) overflow();
  return static_cast<int16_t>(d);
}

Date to_date(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Date:
      return v.date();
    case Variant::Type::String: {
      if (auto d = parse_date(v.str())) return Date{*d};
      if (auto d = parse_number(v.str())) return Date{*d};
      mismatch();
    }
    case Variant::Type::Null:
      invalid_null();
    default:
      return Date{to_double(v)};
  }
}

String format_number(double d) {
  if (d == 0) return u"0";
  // Whole numbers within the fifteen digits shown are their digits: no formatting needed.
  if (std::fabs(d) < 1e15 && d == std::floor(d)) {
    const std::string digits = std::to_string(static_cast<long long>(d));
    return String(digits.begin(), digits.end());
  }
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.15G", d);
  // The C library writes at least two exponent digits, as the runtime does ("1E+15",
  // "1E-05"); nothing else differs.
  return from_utf8(buf);
}

namespace {
// A date in a short-date pattern: d and M (dd and MM with a leading zero), y or yy (two
// digits), yyy and longer (the full year); anything else stands as written.
String short_date_text(StringView pattern, int y, int m, int d) {
  String out;
  for (size_t i = 0; i < pattern.size();) {
    const char16_t c = pattern[i];
    size_t run = 1;
    while (i + run < pattern.size() && pattern[i + run] == c) ++run;
    auto number = [&](int v, int width) {
      std::string digits = std::to_string(v);
      if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
      out += from_utf8(digits);
    };
    if (c == u'd' && run <= 2)
      number(d, static_cast<int>(run));
    else if (c == u'M' && run <= 2)
      number(m, static_cast<int>(run));
    else if (c == u'y')
      run <= 2 ? number(y % 100, 2) : number(y, 4);
    else
      out.append(run, c);
    i += run;
  }
  return out;
}

String format_date(double serial) {
  const Locale& loc = current_locale();
  // Split into the day and the time of day, rounded to the second; a time that rounds up to
  // midnight moves to the next day. Negative serials count days backwards from 30 December
  // 1899 but keep the time as a positive fraction.
  int64_t day = static_cast<int64_t>(serial < 0 ? std::ceil(serial) : std::floor(serial));
  double frac = std::fabs(serial - static_cast<double>(day));
  int64_t secs = std::llround(frac * 86400.0);
  if (secs >= 86400) {
    secs -= 86400;
    day += serial < 0 ? -1 : 1;
  }
  String out;
  if (day != 0) {
    const dates::Civil civil = dates::civil_from_serial(day);
    out = short_date_text(loc.short_date, static_cast<int>(civil.year), civil.month, civil.day);
  }
  // The day alone when there is no time; the time alone on day zero, so that the zero date
  // itself reads as midnight ("12:00:00 AM"), not as 12/30/1899.
  if (secs != 0 || day == 0) {
    int h = static_cast<int>(secs / 3600), m = static_cast<int>(secs / 60 % 60),
        sec = static_cast<int>(secs % 60);
    char buf[32];
    std::snprintf(buf, sizeof buf, "%d%c%02d%c%02d ", h % 12 == 0 ? 12 : h % 12,
                  static_cast<char>(loc.time_separator), m, static_cast<char>(loc.time_separator),
                  sec);
    if (!out.empty()) out += u' ';
    out += from_utf8(buf);
    out += h < 12 ? loc.am : loc.pm;
  }
  return out;
}
}  // namespace

String to_string(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
      return String();
    case Variant::Type::Boolean:
      return v.boolean() ? u"True" : u"False";
    case Variant::Type::Integer:
      return from_utf8(std::to_string(v.integer()));
    case Variant::Type::Long:
      return from_utf8(std::to_string(v.long_value()));
    case Variant::Type::Double:
      return format_number(v.dbl());
    case Variant::Type::Date:
      return format_date(v.date().serial);
    case Variant::Type::String:
      return v.str();
    case Variant::Type::Error:
      return u"Error " + from_utf8(std::to_string(v.error().code));
    case Variant::Type::Null:
      invalid_null();
    default:
      mismatch();
  }
}

std::string to_utf8(StringView s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    uint32_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
        s[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

String from_utf8(std::string_view s) {
  String out;
  out.reserve(s.size());
  size_t i = 0, n = s.size();
  // Nearly all text in a workbook is ASCII: its leading ASCII run is widened unit by unit
  // without decoding.
  while (i < n && static_cast<unsigned char>(s[i]) < 0x80) ++i;
  out.assign(s.begin(), s.begin() + static_cast<std::ptrdiff_t>(i));
  while (i < n) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    uint32_t c;
    size_t len;
    if (b < 0x80)
      c = b, len = 1;
    else if ((b & 0xE0) == 0xC0)
      c = b & 0x1F, len = 2;
    else if ((b & 0xF0) == 0xE0)
      c = b & 0x0F, len = 3;
    else if ((b & 0xF8) == 0xF0)
      c = b & 0x07, len = 4;
    else
      c = 0xFFFD, len = 0;
    bool ok = len > 0 && i + len <= n;
    for (size_t k = 1; ok && k < len; ++k) {
      unsigned char cb = static_cast<unsigned char>(s[i + k]);
      if ((cb & 0xC0) != 0x80)
        ok = false;
      else
        c = (c << 6) | (cb & 0x3F);
    }
    if (ok && ((len == 2 && c < 0x80) || (len == 3 && c < 0x800) || (len == 4 && c < 0x10000) ||
               c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)))
      ok = false;
    if (!ok) {
      out.push_back(u'\xFFFD');
      ++i;
      continue;
    }
    if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
    i += len;
  }
  return out;
}

String to_upper(StringView s) {
  String out(s);
  for (auto& c : out)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
  return out;
}

String to_lower(StringView s) {
  String out(s);
  for (auto& c : out)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
  return out;
}

bool equals_text(StringView a, StringView b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (fold_case(a[i]) != fold_case(b[i])) return false;
  return true;
}

int compare_text(StringView a, StringView b) noexcept {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char16_t x = fold_case(a[i]), y = fold_case(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

int32_t instr_text(int32_t start, StringView s, StringView what) noexcept {
  if (start < 1) start = 1;
  size_t from = static_cast<size_t>(start - 1);
  // Empty text to search, or a start past its end, finds nothing; an empty sought text is
  // found where the search starts.
  if (from >= s.size()) return 0;
  if (what.empty()) return start;
  for (size_t i = from; i + what.size() <= s.size(); ++i)
    if (starts_with_text(s, i, what)) return static_cast<int32_t>(i + 1);
  return 0;
}

int32_t instr(int32_t start, StringView s, StringView what) noexcept {
  if (start < 1) start = 1;
  size_t from = static_cast<size_t>(start - 1);
  if (from >= s.size()) return 0;
  size_t p = s.find(what, from);
  return p == StringView::npos ? 0 : static_cast<int32_t>(p + 1);
}

StringView trim(StringView s) noexcept {
  size_t b = 0, e = s.size();
  while (b < e && s[b] == u' ') ++b;
  while (e > b && s[e - 1] == u' ') --e;
  return s.substr(b, e - b);
}

}  // namespace qz
