// Typed entries: how text a person types into a cell becomes a value, read in the user's
// locale (its decimal and grouping marks, currency symbol and date order).
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>

#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"
#include "vocab/dates.hpp"

namespace qz::engine::numfmt {
namespace {

bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
bool is_alpha(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}
char16_t lower(char16_t c) {
  return (c >= u'A' && c <= u'Z') ? c + 32 : c;
}

bool iequals(StringView a, StringView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

StringView trim_spaces(StringView s) {
  size_t a = 0, b = s.size();
  while (a < b && s[a] == u' ') ++a;
  while (b > a && s[b - 1] == u' ') --b;
  return s.substr(a, b - a);
}

// Digits with the locale's grouping and decimal marks (and perhaps an exponent) as a Double.
double to_double(StringView digits, const Locale& loc) {
  std::string ascii;
  for (char16_t c : digits) {
    if (c == loc.decimal)
      ascii.push_back('.');
    else if (!groups_digits(loc, c))
      ascii.push_back(static_cast<char>(c));
  }
  return std::strtod(ascii.c_str(), nullptr);
}

Entry number(double v, std::optional<String> format = std::nullopt) {
  Entry e;
  e.type = Entry::Type::Number;
  e.number = v;
  e.implied_format = std::move(format);
  return e;
}

// ---- numbers ---------------------------------------------------------------------------

/// Digits with optional thousands separators ("1,234,567" or "1234567") and a decimal part,
/// in the locale's marks.
struct Mantissa {
  bool ok = false;
  bool grouped = false;
  bool decimals = false;
  size_t end = 0;
};

Mantissa scan_mantissa(StringView s, size_t i, const Locale& loc) {
  Mantissa m;
  size_t start = i;
  size_t lead = 0;
  while (i < s.size() && is_digit(s[i])) ++i, ++lead;
  // Groups of three after a first group of one to three digits.
  while (lead >= 1 && lead <= 3 && i + 3 < s.size() && groups_digits(loc, s[i]) &&
         is_digit(s[i + 1]) && is_digit(s[i + 2]) && is_digit(s[i + 3]) &&
         (i + 4 >= s.size() || !is_digit(s[i + 4]))) {
    m.grouped = true;
    i += 4;
  }
  if (i < s.size() && groups_digits(loc, s[i])) return m;  // a separator in the wrong place
  size_t int_digits = i - start;
  size_t frac = 0;
  if (i < s.size() && s[i] == loc.decimal) {
    ++i;
    while (i < s.size() && is_digit(s[i])) ++i, ++frac;
    m.decimals = frac > 0;
  }
  if (int_digits == 0 && frac == 0) return m;
  m.ok = true;
  m.end = i;
  return m;
}

// The format an amount typed with the currency symbol implies. The en-US forms are the
// application's built-in ones; elsewhere the symbol stands where the locale puts it.
String currency_format(const Locale& loc, bool decimals, bool paren) {
  if (loc.currency == u"$" && loc.currency_position == 0) {
    if (paren) return decimals ? u"$#,##0.00_);($#,##0.00)" : u"$#,##0_);($#,##0)";
    return decimals ? u"$#,##0.00" : u"$#,##0";
  }
  String symbol = u"\"" + loc.currency + u"\"";
  String digits = decimals ? u"#,##0.00" : u"#,##0";
  String one;
  switch (loc.currency_position) {
    case 1:
      one = digits + symbol;
      break;
    case 2:
      one = symbol + u"\\ " + digits;
      break;
    case 3:
      one = digits + u"\\ " + symbol;
      break;
    default:
      one = symbol + digits;
      break;
  }
  return paren ? one + u";(" + one + u")" : one;
}

std::optional<Entry> parse_number_entry(StringView s, const Locale& loc) {
  size_t i = 0;
  bool paren = false, negative = false, currency = false;
  // The currency symbol on the side the locale writes it, a blank or none between it and the
  // digits.
  auto take_currency = [&](StringView& text, bool front) {
    const StringView sym = loc.currency;
    if (currency || sym.empty() || text.size() <= sym.size()) return;
    if (front ? text.substr(0, sym.size()) != sym : text.substr(text.size() - sym.size()) != sym)
      return;
    currency = true;
    text = front ? text.substr(sym.size()) : text.substr(0, text.size() - sym.size());
    while (!text.empty() && (front ? text.front() : text.back()) == u' ')
      text = front ? text.substr(1) : text.substr(0, text.size() - 1);
  };
  const bool symbol_first = loc.currency_position % 2 == 0;
  if (!symbol_first) take_currency(s, false);
  if (i < s.size() && s[i] == u'(') paren = true, ++i;
  auto take_sign = [&] {
    if (i < s.size() && (s[i] == u'-' || s[i] == u'+')) {
      if (negative || paren) return false;
      negative = s[i] == u'-';
      ++i;
    }
    return true;
  };
  if (!take_sign()) return std::nullopt;
  if (symbol_first) {
    StringView rest = s.substr(i);
    take_currency(rest, true);
    i = s.size() - rest.size();
  }
  if (!take_sign()) return std::nullopt;
  size_t mstart = i;
  Mantissa m = scan_mantissa(s, i, loc);
  if (!m.ok) return std::nullopt;
  i = m.end;
  bool exponent = false;
  size_t mend = i;
  if (i < s.size() && (s[i] == u'e' || s[i] == u'E')) {
    size_t j = i + 1;
    if (j < s.size() && (s[j] == u'+' || s[j] == u'-')) ++j;
    size_t digits = j;
    while (j < s.size() && is_digit(s[j])) ++j;
    if (j == digits) return std::nullopt;
    exponent = true;
    i = mend = j;
  }
  bool percent = false;
  if (i < s.size() && s[i] == u'%') percent = true, ++i;
  if (paren && !symbol_first && !currency) {
    // A symbol written after the amount stands inside the parentheses: "(2,50 €)".
    size_t j = i;
    while (j < s.size() && s[j] == u' ') ++j;
    if (!loc.currency.empty() && s.substr(j, loc.currency.size()) == StringView(loc.currency))
      currency = true, i = j + loc.currency.size();
  }
  if (paren) {
    if (i >= s.size() || s[i] != u')') return std::nullopt;
    ++i;
  }
  if (i != s.size()) return std::nullopt;
  double v = to_double(s.substr(mstart, mend - mstart), loc);
  if (!std::isfinite(v)) return std::nullopt;
  if (negative || paren) v = -v;
  if (percent) return number(v / 100, String(m.decimals ? u"0.00%" : u"0%"));
  if (currency) return number(v, currency_format(loc, m.decimals, paren));
  if (exponent) return number(v, String(u"0.00E+00"));
  if (m.grouped) return number(v, String(m.decimals ? u"#,##0.00" : u"#,##0"));
  return number(v);
}

/// "1 1/2", "-0 3/16": a whole number, one blank and a fraction.
std::optional<Entry> parse_fraction_entry(StringView s) {
  size_t i = 0;
  bool negative = false;
  if (i < s.size() && (s[i] == u'-' || s[i] == u'+')) negative = s[i++] == u'-';
  auto read = [&](int64_t& v) {
    size_t start = i;
    v = 0;
    while (i < s.size() && is_digit(s[i]) && i - start < 12) v = v * 10 + (s[i++] - u'0');
    return i > start && (i >= s.size() || !is_digit(s[i]));
  };
  int64_t whole = 0, num = 0, den = 0;
  if (!read(whole)) return std::nullopt;
  if (i >= s.size() || s[i] != u' ') return std::nullopt;
  ++i;
  if (!read(num) || i >= s.size() || s[i] != u'/') return std::nullopt;
  ++i;
  if (!read(den) || i != s.size() || den == 0 || num >= den) return std::nullopt;
  double v = static_cast<double>(whole) + static_cast<double>(num) / static_cast<double>(den);
  return number(negative ? -v : v, String(den < 10 ? u"# ?/?" : u"# ?\?/??"));
}

// ---- dates and times -------------------------------------------------------------------

constexpr const char16_t* kMonthNames[] = {u"january",   u"february", u"march",    u"april",
                                           u"may",       u"june",     u"july",     u"august",
                                           u"september", u"october",  u"november", u"december"};

int month_from_name(StringView w) {
  for (int m = 0; m < 12; ++m) {
    StringView full(kMonthNames[m]);
    if (iequals(w, full) || (w.size() == 3 && iequals(w, full.substr(0, 3))) ||
        (m == 8 && iequals(w, u"sept")))
      return m + 1;
  }
  return 0;
}

int days_in(int y, int m, bool date1904) {
  // The 1900 system counts a 29 February 1900.
  if (m == 2 && y == 1900 && !date1904) return 29;
  return dates::days_in_month(y, m);
}

int current_year() {
  using namespace std::chrono;
  auto today = floor<days>(system_clock::now());
  year_month_day ymd{sys_days{today}};
  return static_cast<int>(ymd.year());
}

struct Part {
  enum class Kind { Number, Word, Sep } kind;
  String text;
  int64_t value = 0;
  size_t digits = 0;
};

std::vector<Part> split_parts(StringView s, bool& ok) {
  std::vector<Part> out;
  ok = true;
  size_t i = 0;
  while (i < s.size()) {
    char16_t c = s[i];
    if (is_digit(c)) {
      size_t j = i;
      int64_t v = 0;
      while (j < s.size() && is_digit(s[j]) && j - i < 9) v = v * 10 + (s[j++] - u'0');
      if (j < s.size() && is_digit(s[j])) return ok = false, out;
      out.push_back({Part::Kind::Number, String(s.substr(i, j - i)), v, j - i});
      i = j;
    } else if (is_alpha(c)) {
      size_t j = i;
      while (j < s.size() && is_alpha(s[j])) ++j;
      out.push_back({Part::Kind::Word, String(s.substr(i, j - i))});
      i = j;
    } else if (c == u'/' || c == u'-' || c == u' ' || c == u',' || c == u':' || c == u'.') {
      // Blanks next to other separators fold into them ("Nov 14, 2026").
      if (c == u' ' && !out.empty() && out.back().kind == Part::Kind::Sep) {
        ++i;
        continue;
      }
      if (c != u' ' && !out.empty() && out.back().kind == Part::Kind::Sep &&
          out.back().text == u" ")
        out.back().text = String(1, c);
      else
        out.push_back({Part::Kind::Sep, String(1, c)});
      ++i;
    } else {
      return ok = false, out;
    }
  }
  return out;
}

int full_year(const Part& p) {
  if (p.digits <= 2) return static_cast<int>(p.value < 30 ? 2000 + p.value : 1900 + p.value);
  if (p.digits == 4) return static_cast<int>(p.value);
  return -1;
}

struct DateResult {
  int y = 0, m = 0, d = 0;
  String format;
};

/// A date made of parts [b, e).
std::optional<DateResult> match_date(const std::vector<Part>& p, size_t b, size_t e, bool date1904,
                                     const Locale& loc) {
  const String own(1, loc.date_separator);
  std::vector<const Part*> items;  // numbers and words, with separators checked
  String sep;
  for (size_t k = b; k < e; ++k) {
    if (p[k].kind == Part::Kind::Sep) {
      if ((k - b) % 2 == 0) return std::nullopt;
      const String& t = p[k].text;
      const bool joins = t == u"/" || t == u"-" || t == own;
      if (!joins && t != u" " && t != u",") return std::nullopt;
      if (joins) {
        if (!sep.empty() && sep != t) return std::nullopt;
        sep = t;
      }
    } else {
      if ((k - b) % 2 == 1) return std::nullopt;
      items.push_back(&p[k]);
    }
  }
  if (items.size() < 2 || items.size() > 3) return std::nullopt;
  int month_at = -1;
  for (size_t k = 0; k < items.size(); ++k) {
    if (items[k]->kind == Part::Kind::Word) {
      if (month_at >= 0) return std::nullopt;
      if (!month_from_name(items[k]->text)) return std::nullopt;
      month_at = static_cast<int>(k);
    }
  }
  DateResult r;
  auto valid = [&](int y, int m, int d) {
    int min_year = date1904 ? 1904 : 1900;
    return y >= min_year && y <= 9999 && m >= 1 && m <= 12 && d >= 1 &&
           d <= days_in(y, m, date1904);
  };
  if (month_at < 0) {
    // Numbers only, in the locale's order (m/d/y, d.m.y, y/m/d) or with a four-digit year
    // first; two of them are a day of this year (m/d, d.m) or a month (m/y); all with one
    // separator.
    if (sep.empty()) return std::nullopt;
    for (size_t k = b + 1; k < e; k += 2)
      if (p[k].text != sep) return std::nullopt;
    if (items.size() == 3) {
      if (items[0]->digits == 4 || loc.date_order == Locale::DateOrder::YMD) {
        r.y = full_year(*items[0]);
        r.m = static_cast<int>(items[1]->value);
        r.d = static_cast<int>(items[2]->value);
      } else if (loc.date_order == Locale::DateOrder::DMY) {
        r.d = static_cast<int>(items[0]->value);
        r.m = static_cast<int>(items[1]->value);
        r.y = full_year(*items[2]);
      } else {
        r.m = static_cast<int>(items[0]->value);
        r.d = static_cast<int>(items[1]->value);
        r.y = full_year(*items[2]);
      }
      r.format = u"m/d/yyyy";
      if (!valid(r.y, r.m, r.d)) return std::nullopt;
      return r;
    }
    r.m = static_cast<int>(items[0]->value);
    int second = static_cast<int>(items[1]->value);
    r.y = current_year();
    if (loc.date_order == Locale::DateOrder::DMY && items[1]->digits <= 2 &&
        valid(r.y, second, r.m)) {
      r.d = r.m;
      r.m = second;
      r.format = u"d-mmm";
      return r;
    }
    if (items[1]->digits <= 2 && valid(r.y, r.m, second)) {
      r.d = second;
      r.format = u"d-mmm";
      return r;
    }
    r.y = full_year(*items[1]);
    r.d = 1;
    r.format = u"mmm-yy";
    if (!valid(r.y, r.m, r.d)) return std::nullopt;
    return r;
  }
  r.m = month_from_name(items[month_at]->text);
  std::vector<const Part*> nums;
  for (size_t k = 0; k < items.size(); ++k)
    if (static_cast<int>(k) != month_at) nums.push_back(items[k]);
  if (items.size() == 3) {
    // 14-Nov-2026, Nov 14 2026, Nov 14, 2026
    if (month_at == 2) return std::nullopt;
    r.d = static_cast<int>(nums[0]->value);
    r.y = full_year(*nums[1]);
    if (nums[0]->digits > 2) return std::nullopt;
    r.format = u"d-mmm-yy";
    if (!valid(r.y, r.m, r.d)) return std::nullopt;
    return r;
  }
  // 14-Nov or Nov-14 (a day this year), Nov-2026 or Nov-32 (a month).
  const Part& n = *nums[0];
  r.y = current_year();
  if (n.digits <= 2 && valid(r.y, r.m, static_cast<int>(n.value))) {
    r.d = static_cast<int>(n.value);
    r.format = u"d-mmm";
    return r;
  }
  if (month_at != 0) return std::nullopt;
  r.y = full_year(n);
  r.d = 1;
  r.format = u"mmm-yy";
  if (!valid(r.y, r.m, r.d)) return std::nullopt;
  return r;
}

struct TimeResult {
  double fraction = 0;  // of a day; may exceed 1 for elapsed times such as 25:30
  String format;
};

/// A time made of parts [b, e): h:mm, h:mm:ss, mm:ss.0, with AM/PM, or "9 PM".
std::optional<TimeResult> match_time(const std::vector<Part>& p, size_t b, size_t e,
                                     const Locale& loc) {
  if (b >= e) return std::nullopt;
  // AM/PM at the end, after a blank or directly.
  int ampm = 0;  // 1 am, 2 pm
  if (p[e - 1].kind == Part::Kind::Word) {
    const String& w = p[e - 1].text;
    if (iequals(w, u"am") || iequals(w, u"a"))
      ampm = 1;
    else if (iequals(w, u"pm") || iequals(w, u"p"))
      ampm = 2;
    else
      return std::nullopt;
    --e;
    if (e > b && p[e - 1].kind == Part::Kind::Sep && p[e - 1].text == u" ") --e;
  }
  std::vector<const Part*> nums;
  std::vector<String> seps;
  for (size_t k = b; k < e; ++k) {
    if ((k - b) % 2 == 0) {
      if (p[k].kind != Part::Kind::Number) return std::nullopt;
      nums.push_back(&p[k]);
    } else {
      if (p[k].kind != Part::Kind::Sep) return std::nullopt;
      seps.push_back(p[k].text);
    }
  }
  if (nums.empty()) return std::nullopt;
  TimeResult r;
  double h = 0, m = 0, s = 0;
  if (nums.size() == 1) {
    if (!ampm) return std::nullopt;
    h = static_cast<double>(nums[0]->value);
    r.format = u"h:mm AM/PM";  // shown as 9:00 PM, a built-in format
  } else if (seps.size() == 2 && seps[0] == u":" && seps[1] == String(1, loc.decimal) &&
             nums.size() == 3) {
    // mm:ss.0
    m = static_cast<double>(nums[0]->value);
    s = static_cast<double>(nums[1]->value) +
        static_cast<double>(nums[2]->value) / std::pow(10.0, static_cast<double>(nums[2]->digits));
    if (s >= 60 || ampm) return std::nullopt;
    r.format = u"mm:ss.0";
  } else {
    for (const String& sp : seps)
      if (sp != u":") return std::nullopt;
    if (nums.size() > 3) return std::nullopt;
    h = static_cast<double>(nums[0]->value);
    m = static_cast<double>(nums[1]->value);
    if (nums[1]->digits != 2 && nums[1]->digits != 1) return std::nullopt;
    if (nums.size() == 3) s = static_cast<double>(nums[2]->value);
    if (m >= 60 || s >= 60) return std::nullopt;
    bool seconds = nums.size() == 3;
    if (ampm)
      r.format = seconds ? u"h:mm:ss AM/PM" : u"h:mm AM/PM";
    else if (h >= 24)
      r.format = u"[h]:mm:ss";
    else
      r.format = seconds ? u"h:mm:ss" : u"h:mm";
  }
  if (ampm) {
    if (h > 12) return std::nullopt;
    if (h == 12) h = 0;
    if (ampm == 2) h += 12;
  }
  if (h > 9999) return std::nullopt;
  r.fraction = (h * 3600 + m * 60 + s) / 86400.0;
  return r;
}

std::optional<Entry> parse_date_time_entry(StringView s, bool date1904, const Locale& loc) {
  bool ok = true;
  std::vector<Part> parts = split_parts(s, ok);
  if (!ok || parts.empty()) return std::nullopt;
  // Where a time starts: the number before the first ":" (or a trailing AM/PM).
  size_t time_at = parts.size();
  for (size_t k = 0; k < parts.size(); ++k) {
    if (parts[k].kind == Part::Kind::Sep && parts[k].text == u":") {
      time_at = k == 0 ? 0 : k - 1;
      break;
    }
  }
  if (time_at == parts.size() && parts.back().kind == Part::Kind::Word) {
    const String& w = parts.back().text;
    if (iequals(w, u"am") || iequals(w, u"pm") || iequals(w, u"a") || iequals(w, u"p")) {
      size_t k = parts.size() - 1;
      if (k > 0 && parts[k - 1].kind == Part::Kind::Sep) --k;
      if (k > 0 && parts[k - 1].kind == Part::Kind::Number) time_at = k - 1;
    }
  }
  std::optional<TimeResult> time;
  if (time_at < parts.size()) {
    time = match_time(parts, time_at, parts.size(), loc);
    if (!time) return std::nullopt;
  }
  size_t date_end = time_at;
  if (date_end < parts.size() && date_end > 0) {
    // A blank separates the date from the time.
    if (parts[date_end - 1].kind != Part::Kind::Sep || parts[date_end - 1].text != u" ")
      return std::nullopt;
    --date_end;
  }
  std::optional<DateResult> date;
  if (date_end > 0) {
    date = match_date(parts, 0, date_end, date1904, loc);
    if (!date) return std::nullopt;
  }
  if (!date && !time) return std::nullopt;
  double serial = 0;
  String format;
  if (date) {
    serial = serial_from_date(date->y, date->m, date->d, date1904);
    format = date->format;
  }
  if (time) {
    serial += time->fraction;
    format = date ? String(u"m/d/yyyy h:mm") : time->format;
  }
  return number(serial, format);
}

struct ErrorName {
  const char16_t* text;
  int32_t code;
};
constexpr ErrorName kErrorNames[] = {
    {u"#NULL!", cell_error::null}, {u"#DIV/0!", cell_error::div0}, {u"#VALUE!", cell_error::value},
    {u"#REF!", cell_error::ref},   {u"#NAME?", cell_error::name},  {u"#NUM!", cell_error::num},
    {u"#N/A", cell_error::na},
};

}  // namespace

Entry parse_entry(StringView typed, bool date1904) {
  Entry e;
  if (typed.empty()) return e;
  if (typed[0] == u'\'') {
    e.type = Entry::Type::Text;
    e.text = String(typed.substr(1));
    e.apostrophe = true;
    return e;
  }
  StringView t = trim_spaces(typed);
  if (!t.empty()) {
    if (iequals(t, u"TRUE") || iequals(t, u"FALSE")) {
      e.type = Entry::Type::Boolean;
      e.number = iequals(t, u"TRUE") ? 1 : 0;
      return e;
    }
    for (const auto& err : kErrorNames) {
      if (iequals(t, err.text)) {
        e.type = Entry::Type::Error;
        e.number = err.code;
        return e;
      }
    }
    const Locale& loc = current_locale();
    if (auto n = parse_number_entry(t, loc)) return *n;
    if (auto n = parse_fraction_entry(t)) return *n;
    if (auto n = parse_date_time_entry(t, date1904, loc)) return *n;
  }
  e.type = Entry::Type::Text;
  e.text = String(typed);
  return e;
}

}  // namespace qz::engine::numfmt
