// Number formats: the built-in table, classification, the date systems and rendering.
#include "engine/numfmt/numfmt.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine/numfmt/code.hpp"
#include "engine/numfmt/digits.hpp"
#include "qzxl/convert.hpp"
#include "vocab/dates.hpp"

namespace qz::engine::numfmt {
namespace {

struct Builtin {
  int32_t id;
  const char16_t* code;
};

// The application's built-in formats for en-US. Ids 23 to 36 belong to other locales.
constexpr Builtin kBuiltins[] = {
    {0, u"General"},
    {1, u"0"},
    {2, u"0.00"},
    {3, u"#,##0"},
    {4, u"#,##0.00"},
    {5, u"$#,##0_);($#,##0)"},
    {6, u"$#,##0_);[Red]($#,##0)"},
    {7, u"$#,##0.00_);($#,##0.00)"},
    {8, u"$#,##0.00_);[Red]($#,##0.00)"},
    {9, u"0%"},
    {10, u"0.00%"},
    {11, u"0.00E+00"},
    {12, u"# ?/?"},
    {13, u"# ?\?/??"},
    {14, u"m/d/yyyy"},
    {15, u"d-mmm-yy"},
    {16, u"d-mmm"},
    {17, u"mmm-yy"},
    {18, u"h:mm AM/PM"},
    {19, u"h:mm:ss AM/PM"},
    {20, u"h:mm"},
    {21, u"h:mm:ss"},
    {22, u"m/d/yyyy h:mm"},
    {37, u"#,##0_);(#,##0)"},
    {38, u"#,##0_);[Red](#,##0)"},
    {39, u"#,##0.00_);(#,##0.00)"},
    {40, u"#,##0.00_);[Red](#,##0.00)"},
    {41, u"_(* #,##0_);_(* (#,##0);_(* \"-\"_);_(@_)"},
    {42, u"_(\"$\"* #,##0_);_(\"$\"* (#,##0);_(\"$\"* \"-\"_);_(@_)"},
    {43, u"_(* #,##0.00_);_(* (#,##0.00);_(* \"-\"??_);_(@_)"},
    {44, u"_(\"$\"* #,##0.00_);_(\"$\"* (#,##0.00);_(\"$\"* \"-\"??_);_(@_)"},
    {45, u"mm:ss"},
    {46, u"[h]:mm:ss"},
    {47, u"mm:ss.0"},
    {48, u"##0.0E+0"},
    {49, u"@"},
};

constexpr const char16_t* kMonths[] = {u"January",   u"February", u"March",    u"April",
                                       u"May",       u"June",     u"July",     u"August",
                                       u"September", u"October",  u"November", u"December"};
constexpr const char16_t* kDays[] = {u"Sunday",   u"Monday", u"Tuesday", u"Wednesday",
                                     u"Thursday", u"Friday", u"Saturday"};

String pad(int64_t v, int width) {
  std::string s = std::to_string(v);
  if (static_cast<int>(s.size()) < width) s.insert(0, width - s.size(), '0');
  return u16(s);
}

String hashes() {
  return u"########";
}

// The locale a rendering for the user's eyes shows its numbers in (render_shown); nothing for
// the file form, whose marks are "." and ",".
thread_local const Locale* shown_in = nullptr;

char16_t decimal_mark() {
  return shown_in ? shown_in->decimal : u'.';
}
char16_t group_mark() {
  return shown_in ? shown_in->thousands : u',';
}

// A number written with "." for its decimal point, in the marks it is shown with.
String marked(const std::string& ascii) {
  String out = u16(ascii);
  for (char16_t& c : out)
    if (c == u'.') c = decimal_mark();
  return out;
}

}  // namespace

// ---- built-in formats ----------------------------------------------------------------

std::optional<String> builtin_code(int32_t id) {
  for (const auto& b : kBuiltins)
    if (b.id == id) return String(b.code);
  return std::nullopt;
}

std::optional<int32_t> builtin_id(StringView code) {
  for (const auto& b : kBuiltins)
    if (code == b.code) return b.id;
  if (equals_text(code, u"General")) return 0;
  return std::nullopt;
}

// ---- date systems --------------------------------------------------------------------

double serial_from_date(int year, int month, int day, bool date1904) {
  // Months and days out of range roll over, as DATE(2026,14,0) does.
  int64_t y = year, m = month - 1;
  y += m >= 0 ? m / 12 : -((11 - m) / 12);
  m = ((m % 12) + 12) % 12;
  int64_t first = dates::serial_from_civil(y, static_cast<int>(m + 1), 1);
  if (date1904) return static_cast<double>(first - dates::k1904Shift + day - 1);
  // Before March 1900 the count is one lower: the application counts a 29 February 1900.
  if (first <= 60) first -= 1;
  return static_cast<double>(first + day - 1);
}

void date_from_serial(double serial, bool date1904, int& year, int& month, int& day) {
  int64_t n = static_cast<int64_t>(std::floor(serial));
  auto set = [&](int64_t s) {
    dates::Civil c = dates::civil_from_serial(s);
    year = static_cast<int>(c.year), month = c.month, day = c.day;
  };
  if (date1904) {
    set(n + dates::k1904Shift);
  } else if (n == 0) {
    year = 1900, month = 1, day = 0;
  } else if (n == 60) {
    year = 1900, month = 2, day = 29;
  } else if (n < 60) {
    set(n + 1);
  } else {
    set(n);
  }
}

double automation_date(double serial, bool date1904) {
  if (date1904) return serial + dates::k1904Shift;
  if (serial >= 1 && serial < 60) return serial + 1;
  return serial;
}

double serial_from_automation(double date, bool date1904) {
  if (date1904) return date - dates::k1904Shift;
  if (date >= 1 && date < 61) return date - 1;
  return date;
}

// ---- classification ------------------------------------------------------------------

namespace {
Kind classify_section(const Section& s) {
  if (s.has_elapsed) return Kind::Elapsed;
  if (s.has_date && s.has_time) return Kind::DateTime;
  if (s.has_date) return Kind::Date;
  if (s.has_time) return Kind::Time;
  if (s.has_general) return Kind::General;
  if (s.has_fraction) return Kind::Fraction;
  if (s.has_exponent) return Kind::Scientific;
  if (s.has_percent) return Kind::Percent;
  if (s.has_text && !s.has_digits) return Kind::Text;
  return Kind::Number;
}

Kind classify_code(StringView code) {
  Code c;
  try {
    c = parse_code(code);
  } catch (const Error&) {
    return Kind::General;
  }
  if (c.sections.empty()) return Kind::General;
  if (c.sections[0].tokens.empty()) return Kind::General;
  return classify_section(c.sections[0]);
}
}  // namespace

Kind classify(StringView code) {
  // Nearly every cell shows General, and a workbook uses few other formats, so the answer
  // for the last codes asked is kept rather than parsing a code for every cell read.
  if (code.empty() || equals_text(code, u"General")) return Kind::General;
  thread_local std::array<std::pair<String, Kind>, 8> recent;
  thread_local size_t next = 0;
  for (const auto& [known, kind] : recent)
    if (!known.empty() && known == code) return kind;
  Kind kind = classify_code(code);
  recent[next] = {String(code), kind};
  next = (next + 1) % recent.size();
  return kind;
}

bool is_date_format(StringView code) {
  Kind k = classify(code);
  return k == Kind::Date || k == Kind::Time || k == Kind::DateTime || k == Kind::Elapsed;
}

void validate(StringView code) {
  if (code.size() > 255) throw Error(err::host_failure, "number format longer than 255 characters");
  Code c = parse_code(code);
  int digit_groups = 0;
  for (const Section& s : c.sections) {
    int exps = 0, points = 0, ats = 0;
    for (const Token& t : s.tokens) {
      exps += t.type == Tok::Exponent;
      points += t.type == Tok::Point;
      ats += t.type == Tok::At;
    }
    if (exps > 1)
      throw Error(err::host_failure, "number format '" + to_utf8(code) + "': two exponents");
    if (points > 1 && !s.has_fraction)
      throw Error(err::host_failure, "number format '" + to_utf8(code) + "': two decimal points");
    if (ats > 0 && (s.has_digits || s.has_date || s.has_time))
      throw Error(err::host_failure,
                  "number format '" + to_utf8(code) + "': @ mixed with number or date codes");
    digit_groups += s.has_digits;
  }
  (void)digit_groups;
}

// ---- rendering -----------------------------------------------------------------------

String general_number(double v) {
  if (v == 0) return u"0";
  // Whole numbers of up to ten digits show every digit and nothing else.
  if (std::fabs(v) < 1e10 && v == std::floor(v)) {
    const std::string digits = std::to_string(static_cast<long long>(v));
    return String(digits.begin(), digits.end());
  }
  std::string sign = v < 0 ? "-" : "";
  Digits x = Digits::of(std::fabs(v));
  int e10 = x.exp - 1;

  // Scientific: 1.23457E+12, eleven characters at most.
  int exp_digits = std::abs(e10) >= 99 ? 3 : 2;
  Digits sr = x;
  sr.round_significant(exp_digits == 3 ? 5 : 6);
  int e = sr.exp - 1;
  std::string sci(1, sr.d.empty() ? '0' : sr.d[0]);
  if (sr.d.size() > 1) sci += "." + sr.d.substr(1);
  std::string es = std::to_string(std::abs(e));
  if (es.size() < 2) es.insert(0, 2 - es.size(), '0');
  sci += (e < 0 ? "E-" : "E+") + es;

  // Fixed: as many decimals as fit in eleven characters. It wins unless it shows fewer
  // significant digits than the scientific form (so 1E-09 shows as 0.000000001, but
  // 1.5E-09 stays scientific).
  if (e10 <= 10) {
    int int_digits = e10 >= 0 ? e10 + 1 : 1;
    int decimals = std::max(0, 10 - int_digits);
    Digits r = x;
    r.round_decimals(decimals);
    size_t sig_fixed = r.d.size(), sig_sci = sr.d.size(), sig_all = x.d.size();
    if (!r.zero() && r.exp - 1 <= 10 && sig_fixed >= std::min(sig_all, sig_sci)) {
      std::string ip = r.integer_part();
      std::string out = sign + (ip.empty() ? "0" : ip);
      std::string frac;
      for (int k = 0; k < decimals; ++k) frac.push_back(r.fraction_digit(k));
      while (!frac.empty() && frac.back() == '0') frac.pop_back();
      if (!frac.empty()) out += "." + frac;
      return marked(out);
    }
  }
  return marked(sign + sci);
}

namespace {

bool is_digit_tok(Tok t) {
  return t == Tok::Zero || t == Tok::Hash || t == Tok::Question;
}

/// Digits spread over integer placeholders (left to right), with optional thousands
/// grouping. Extra leading digits go to the first placeholder; positions beyond the digits
/// show 0 under "0", a blank under "?" (a grouped blank too) and nothing under "#".
class IntegerFiller {
 public:
  IntegerFiller(std::string digits, int placeholders, bool group)
      : d_(std::move(digits)), n_(placeholders), group_(group) {}

  /// The text for placeholder k of kind t.
  String take(int k, Tok t) {
    String out;
    int low = n_ - 1 - k;
    int high = k == 0 ? std::max<int>(static_cast<int>(d_.size()), n_) - 1 : low;
    for (int p = high; p >= low; --p) {
      char16_t c = 0;
      if (p < static_cast<int>(d_.size()))
        c = static_cast<char16_t>(d_[d_.size() - 1 - p]);
      else if (t == Tok::Zero)
        c = u'0';
      else if (t == Tok::Question)
        c = u' ';
      if (c == 0) continue;
      out.push_back(c);
      if (group_ && p > 0 && p % 3 == 0) out.push_back(c == u' ' ? u' ' : group_mark());
    }
    return out;
  }

 private:
  std::string d_;
  int n_;
  bool group_;
};

/// Renders the plain-number tokens [b, e) of a section for a non-negative value: digits,
/// the decimal point, literals and percent signs. `plain` sections scale by their percent
/// signs and trailing commas; the mantissa of a scientific section does not.
String fixed_body(const std::vector<Token>& t, int b, int e, double v, bool plain,
                  bool zero_digit = false) {
  int point = -1;
  for (int k = b; k < e; ++k)
    if (t[k].type == Tok::Point) {
      point = k;
      break;
    }
  int int_end = point >= 0 ? point : e;
  int n_int = 0, n_frac = 0;
  for (int k = b; k < e; ++k) {
    if (!is_digit_tok(t[k].type)) continue;
    if (k < int_end)
      ++n_int;
    else
      ++n_frac;
  }
  // A comma between integer placeholders groups thousands; one with no placeholder after it
  // in its part scales by a thousand; one before any placeholder is just a comma.
  bool group = false;
  int scale = 0;
  std::vector<int> literal_commas;
  for (int k = b; k < e; ++k) {
    if (t[k].type != Tok::Comma) continue;
    bool before = false, after = false;
    for (int j = b; j < k; ++j) before = before || is_digit_tok(t[j].type);
    int part_end = k < int_end ? int_end : e;
    for (int j = k + 1; j < part_end; ++j) after = after || is_digit_tok(t[j].type);
    if (!before)
      literal_commas.push_back(k);
    else if (after && k < int_end)
      group = true;
    else if (!after)
      ++scale;
  }
  if (plain) {
    for (int k = b; k < e; ++k)
      if (t[k].type == Tok::Percent) v *= 100;
    for (int i = 0; i < scale; ++i) v /= 1000;
  }

  Digits x = Digits::of(v);
  x.round_decimals(n_frac);
  std::string int_digits = x.integer_part();
  // A zero mantissa fills its integer placeholders with zeros (0000.E+0), where a plain
  // zero under "#" shows nothing.
  if (zero_digit && int_digits.empty()) int_digits = std::string(std::max(n_int, 1), '0');
  String frac;
  std::vector<Tok> frac_kinds;
  for (int k = 0; k < n_frac; ++k) frac.push_back(static_cast<char16_t>(x.fraction_digit(k)));
  for (int k = int_end; k < e; ++k)
    if (is_digit_tok(t[k].type)) frac_kinds.push_back(t[k].type);
  // Trailing zeros of the fraction drop under "#" and turn blank under "?".
  std::vector<int> frac_show(n_frac, 1);  // 1 digit, 0 nothing, 2 blank
  for (int k = n_frac - 1; k >= 0; --k) {
    if (frac[k] != u'0' || frac_kinds[k] == Tok::Zero) break;
    frac_show[k] = frac_kinds[k] == Tok::Hash ? 0 : 2;
  }

  IntegerFiller filler(int_digits, n_int, group);
  String out;
  int int_k = 0, frac_k = 0;
  for (int k = b; k < e; ++k) {
    const Token& tok = t[k];
    switch (tok.type) {
      case Tok::Literal:
        out += tok.text;
        break;
      case Tok::Zero:
      case Tok::Hash:
      case Tok::Question:
        if (k < int_end) {
          out += filler.take(int_k++, tok.type);
        } else {
          int show = frac_show[frac_k];
          if (show == 1)
            out.push_back(frac[frac_k]);
          else if (show == 2)
            out.push_back(u' ');
          ++frac_k;
        }
        break;
      case Tok::Point:
        // With no integer placeholders the whole part still shows, before the point.
        if (n_int == 0 && !int_digits.empty()) out += u16(int_digits);
        out.push_back(decimal_mark());
        break;
      case Tok::Comma:
        if (std::find(literal_commas.begin(), literal_commas.end(), k) != literal_commas.end())
          out.push_back(u',');
        break;
      case Tok::Percent:
        out.push_back(u'%');
        break;
      case Tok::General:
        out += general_number(v);
        break;
      default:
        break;
    }
  }
  return out;
}

String render_fixed(const Section& s, double v) {
  return fixed_body(s.tokens, 0, static_cast<int>(s.tokens.size()), v, true);
}

String render_scientific(const Section& s, double v) {
  const auto& t = s.tokens;
  int epos = 0;
  while (t[epos].type != Tok::Exponent) ++epos;
  int point = epos;
  for (int k = 0; k < epos; ++k)
    if (t[k].type == Tok::Point) {
      point = k;
      break;
    }
  int n_int = 0, n_frac = 0;
  for (int k = 0; k < epos; ++k) {
    if (!is_digit_tok(t[k].type)) continue;
    if (k < point)
      ++n_int;
    else
      ++n_frac;
  }
  // The exponent is a multiple of the integer width: one placeholder gives 1.23E+05,
  // three give engineering notation (123.5E+03).
  int step = std::max(n_int, 1);
  int exponent = 0;
  double mantissa = 0;
  if (v > 0) {
    Digits x = Digits::of(v);
    int e10 = x.exp - 1;
    exponent = static_cast<int>(std::floor(static_cast<double>(e10) / step)) * step;
    Digits m = x;
    m.exp -= exponent;
    m.round_decimals(n_frac);
    if (m.exp > step) {
      // Rounding carried into a new digit (9.99 -> 10.0): the next exponent.
      exponent += step;
      m = x;
      m.exp -= exponent;
      m.round_decimals(n_frac);
    }
    std::string text = "0." + m.d + "e" + std::to_string(m.exp);
    mantissa = std::strtod(text.c_str(), nullptr);
  }
  String out = fixed_body(t, 0, epos, mantissa, false, v == 0);
  out.push_back(t[epos].text.empty() ? u'E' : t[epos].text[0]);
  // The exponent's digits, its sign just before the first of them.
  std::vector<Tok> kinds;
  for (size_t k = epos + 1; k < t.size(); ++k)
    if (is_digit_tok(t[k].type)) kinds.push_back(t[k].type);
  IntegerFiller filler(std::to_string(std::abs(exponent)), static_cast<int>(kinds.size()), false);
  int exp_k = 0;
  for (size_t k = epos + 1; k < t.size(); ++k) {
    const Token& tok = t[k];
    if (is_digit_tok(tok.type)) {
      if (exp_k == 0) {
        if (exponent < 0)
          out.push_back(u'-');
        else if (t[epos].n == 1)
          out.push_back(u'+');
      }
      out += filler.take(exp_k, kinds[exp_k]);
      ++exp_k;
    } else if (tok.type == Tok::Literal) {
      out += tok.text;
    } else if (tok.type == Tok::Percent) {
      out.push_back(u'%');
    } else if (tok.type == Tok::Point) {
      out.push_back(decimal_mark());
    }
  }
  return out;
}

String render_fraction(const Section& s, double v) {
  const auto& t = s.tokens;
  for (const Token& tok : t)
    if (tok.type == Tok::Percent) v *= 100;
  const int n = static_cast<int>(t.size());
  int slash = 0;
  while (t[slash].type != Tok::Slash) ++slash;
  // The numerator is the run of placeholders nearest before the bar (literals may sit
  // between them and the bar); placeholders before that run form the whole part.
  int num_end = slash;
  while (num_end > 0 && !is_digit_tok(t[num_end - 1].type)) --num_end;
  int num_begin = num_end;
  while (num_begin > 0 && is_digit_tok(t[num_begin - 1].type)) --num_begin;
  int int_last = num_begin;  // one past the last whole-part placeholder
  while (int_last > 0 && !is_digit_tok(t[int_last - 1].type)) --int_last;
  bool has_int = int_last > 0;
  // The denominator: placeholders after the bar (literals may come first), or a fixed
  // number written as digits.
  int den_begin = slash + 1;
  int64_t fixed_den = 0;
  int den_end = den_begin;
  if (den_begin < n && t[den_begin].type == Tok::Literal && !t[den_begin].text.empty() &&
      t[den_begin].text[0] >= u'1' && t[den_begin].text[0] <= u'9') {
    const String& lit = t[den_begin].text;
    size_t j = 0;
    while (j < lit.size() && lit[j] >= u'0' && lit[j] <= u'9')
      // Capped: a denominator beyond nine digits is refused by the application anyway, and
      // the count must not overflow on a code with an endless run of digits.
      fixed_den = std::min<int64_t>(fixed_den * 10 + (lit[j++] - u'0'), 1'000'000'000);
    den_end = den_begin + 1;
  } else {
    while (den_begin < n && !is_digit_tok(t[den_begin].type)) ++den_begin;
    den_end = den_begin;
    while (den_end < n && is_digit_tok(t[den_end].type)) ++den_end;
  }
  auto kinds_in = [&](int from, int to) {
    std::vector<Tok> out;
    for (int k = from; k < to; ++k)
      if (is_digit_tok(t[k].type)) out.push_back(t[k].type);
    return out;
  };
  auto any = [](const std::vector<Tok>& ks, Tok k) {
    return std::find(ks.begin(), ks.end(), k) != ks.end();
  };
  std::vector<Tok> int_kinds = kinds_in(0, int_last);
  std::vector<Tok> num_kinds = kinds_in(num_begin, num_end);
  std::vector<Tok> den_kinds = fixed_den ? std::vector<Tok>{} : kinds_in(den_begin, den_end);

  double whole = has_int ? std::floor(v) : 0;
  double frac = v - whole;
  int64_t num = 0, den = 1;
  if (fixed_den > 0) {
    den = fixed_den;
    num = static_cast<int64_t>(std::llround(frac * static_cast<double>(den)));
  } else {
    int64_t max_den = 1;
    for (size_t k = 0; k < std::min<size_t>(den_kinds.size(), 7); ++k) max_den *= 10;
    max_den = std::max<int64_t>(max_den - 1, 1);
    double best = 2;
    for (int64_t d = 1; d <= max_den; ++d) {
      int64_t nn = static_cast<int64_t>(std::llround(frac * static_cast<double>(d)));
      double err = std::fabs(frac - static_cast<double>(nn) / static_cast<double>(d));
      if (err < best - 1e-12) {
        best = err;
        num = nn;
        den = d;
        if (err == 0) break;
      }
    }
  }
  if (has_int && num == den) {
    whole += 1;
    num = 0;
  }
  // A zero fraction after a whole part shows only when its numerator has a 0 placeholder
  // (as 0/1); otherwise it is left out, or blanked when the code pads with "?".
  bool show_fraction = !has_int || num > 0 || any(num_kinds, Tok::Zero);
  if (has_int && num == 0 && show_fraction) den = 1;
  bool blank = !show_fraction && (any(int_kinds, Tok::Question) || any(num_kinds, Tok::Question) ||
                                  any(den_kinds, Tok::Question));
  // The whole part at the fifteen digits the application shows, which also holds for wholes
  // too large for any integer type.
  std::string whole_digits = whole > 0 ? Digits::of(whole).integer_part() : std::string();
  // A zero whole part shows as 0 when nothing else would show, and for the value 0 itself
  // unless its last placeholder is "#".
  if (whole == 0 && !show_fraction) whole_digits = "0";
  if (v == 0 && has_int && int_kinds.back() != Tok::Hash) whole_digits = "0";

  // The pieces, left to right.
  String out;
  IntegerFiller int_fill(whole_digits, static_cast<int>(int_kinds.size()), false);
  int int_k = 0;
  for (int k = 0; k < int_last; ++k) {
    if (is_digit_tok(t[k].type)) {
      out += int_fill.take(int_k, int_kinds[int_k]);
      ++int_k;
    } else if (t[k].type == Tok::Literal) {
      out += t[k].text;
    }
  }
  // What joins the whole part to the fraction follows the whole part: hidden with it under
  // "#", blank under "?".
  String joint;
  for (int k = int_last; k < num_begin; ++k)
    if (t[k].type == Tok::Literal) joint += t[k].text;
  if (has_int && whole_digits.empty()) {
    Tok last = int_kinds.back();
    if (last == Tok::Zero) {
      // the whole part shows its 0, and the joint with it
    } else if (last == Tok::Question || any(num_kinds, Tok::Question)) {
      joint.assign(joint.size(), u' ');
    } else if (last == Tok::Hash) {
      joint.clear();
    }
  }
  String fraction;
  {
    IntegerFiller nf(std::to_string(num), static_cast<int>(num_kinds.size()), false);
    for (size_t k = 0; k < num_kinds.size(); ++k)
      fraction += nf.take(static_cast<int>(k), num_kinds[k]);
    for (int k = num_end; k < den_begin; ++k)
      if (t[k].type == Tok::Literal || t[k].type == Tok::Slash)
        fraction += t[k].type == Tok::Slash ? String(u"/") : t[k].text;
    if (fixed_den > 0) {
      fraction += t[den_begin].text;
    } else {
      std::string ds = std::to_string(den);
      // Zero placeholders pad the denominator on the left, "?" on the right.
      size_t zeros = 0;
      for (Tok k : den_kinds) zeros += k == Tok::Zero;
      if (ds.size() < zeros) ds.insert(0, zeros - ds.size(), '0');
      fraction += u16(ds);
      for (size_t k = ds.size(); k < den_kinds.size(); ++k)
        if (den_kinds[k] == Tok::Question) fraction.push_back(u' ');
    }
  }
  if (show_fraction) {
    out += joint;
    out += fraction;
  } else if (blank) {
    out += String(joint.size() + fraction.size(), u' ');
  }
  for (int k = den_end; k < n; ++k) {
    if (t[k].type == Tok::Literal)
      out += t[k].text;
    else if (t[k].type == Tok::Percent)
      out.push_back(u'%');
  }
  return out;
}

String render_datetime(const Section& s, double v, bool date1904) {
  int sub = 0;
  bool elapsed_h = false, elapsed_m = false, elapsed_s = false;
  for (const Token& t : s.tokens) {
    if (t.type == Tok::SubSecond) sub = std::max(sub, t.n);
    if (t.type == Tok::ElapsedH) elapsed_h = true;
    if (t.type == Tok::ElapsedM) elapsed_m = true;
    if (t.type == Tok::ElapsedS) elapsed_s = true;
  }
  // Elapsed times may be negative (a duration); dates and clock times may not.
  if (v < 0 && (elapsed_h || elapsed_m || elapsed_s) && !s.has_date)
    return u"-" + render_datetime(s, -v, date1904);
  if (v < 0 || v >= 2958466) return hashes();
  int64_t per_second = 1;
  for (int i = 0; i < sub; ++i) per_second *= 10;
  int64_t per_day = 86400 * per_second;
  // Round at the application's fifteen digits first, so that 12:00:00.5 stored a hair
  // below the half still rounds up.
  char buf[48];
  std::snprintf(buf, sizeof buf, "%.15g", v * static_cast<double>(per_day));
  int64_t units = static_cast<int64_t>(std::llround(std::strtod(buf, nullptr)));
  int64_t days = units / per_day;
  int64_t in_day = units % per_day;
  int64_t total_seconds = units / per_second;
  int64_t frac_units = units % per_second;
  int64_t secs_of_day = in_day / per_second;
  int hour = static_cast<int>(secs_of_day / 3600);
  int minute = static_cast<int>(secs_of_day / 60 % 60);
  int second = static_cast<int>(secs_of_day % 60);
  int y = 0, mo = 0, d = 0;
  date_from_serial(static_cast<double>(days), date1904, y, mo, d);
  int weekday = static_cast<int>(((days + (date1904 ? 5 : 6)) % 7 + 7) % 7);

  String out;
  for (const Token& t : s.tokens) {
    switch (t.type) {
      case Tok::Literal:
        out += t.text;
        break;
      case Tok::Year:
        out += t.n <= 2 ? pad(y % 100, 2) : pad(y, 4);
        break;
      case Tok::Month:
        if (t.n == 1)
          out += pad(mo, 1);
        else if (t.n == 2)
          out += pad(mo, 2);
        else if (t.n == 3)
          out += String(kMonths[mo - 1]).substr(0, 3);
        else if (t.n == 5)
          out += String(kMonths[mo - 1]).substr(0, 1);
        else
          out += kMonths[mo - 1];
        break;
      case Tok::Day:
        if (t.n == 1)
          out += pad(d, 1);
        else if (t.n == 2)
          out += pad(d, 2);
        else if (t.n == 3)
          out += String(kDays[weekday]).substr(0, 3);
        else
          out += kDays[weekday];
        break;
      case Tok::Hour: {
        // Beside an elapsed [h], a plain h counts the hours too.
        if (elapsed_h) {
          out += pad(total_seconds / 3600, t.n >= 2 ? 2 : 1);
          break;
        }
        int h = hour;
        if (s.has_ampm) {
          h %= 12;
          if (h == 0) h = 12;
        }
        out += pad(h, t.n >= 2 ? 2 : 1);
        break;
      }
      case Tok::Minute:
        if (elapsed_m && !elapsed_h)
          out += pad(total_seconds / 60, t.n >= 2 ? 2 : 1);
        else
          out += pad(minute, t.n >= 2 ? 2 : 1);
        break;
      case Tok::Second:
        if (elapsed_s && !elapsed_h && !elapsed_m)
          out += pad(total_seconds, t.n >= 2 ? 2 : 1);
        else
          out += pad(second, t.n >= 2 ? 2 : 1);
        break;
      case Tok::SubSecond: {
        out.push_back(decimal_mark());
        std::string f = std::to_string(frac_units);
        if (static_cast<int>(f.size()) < sub) f.insert(0, sub - f.size(), '0');
        out += u16(f.substr(0, t.n));
        break;
      }
      case Tok::AmPm: {
        bool pm = hour >= 12;
        // "am/pm" shows as AM/PM in any case; "a/p" keeps the case written.
        bool lower = t.text[0] == u'a' || t.text[0] == u'p';
        if (t.text.size() == 3)
          out += pm ? (lower ? u"p" : u"P") : (lower ? u"a" : u"A");
        else
          out += pm ? u"PM" : u"AM";
        break;
      }
      case Tok::ElapsedH:
        out += pad(total_seconds / 3600, t.n);
        break;
      case Tok::ElapsedM:
        out += pad(elapsed_h ? total_seconds / 60 % 60 : total_seconds / 60, t.n);
        break;
      case Tok::ElapsedS:
        out += pad(elapsed_h || elapsed_m ? total_seconds % 60 : total_seconds, t.n);
        break;
      case Tok::General:
        out += general_number(v);
        break;
      default:
        break;
    }
  }
  return out;
}

}  // namespace

String render_number(const Section& s, double v, bool date1904) {
  if (s.has_date || s.has_time || s.has_elapsed) return render_datetime(s, v, date1904);
  if (s.has_general) {
    String out;
    for (const Token& t : s.tokens) {
      if (t.type == Tok::Literal)
        out += t.text;
      else if (t.type == Tok::General)
        out += general_number(v);
    }
    return out;
  }
  if (s.has_fraction) return render_fraction(s, v);
  if (s.has_exponent) return render_scientific(s, v);
  return render_fixed(s, v);
}

StringView error_literal(int32_t code) {
  switch (code) {
    case cell_error::null:
      return u"#NULL!";
    case cell_error::div0:
      return u"#DIV/0!";
    case cell_error::value:
      return u"#VALUE!";
    case cell_error::ref:
      return u"#REF!";
    case cell_error::name:
      return u"#NAME?";
    case cell_error::num:
      return u"#NUM!";
    case cell_error::na:
      return u"#N/A";
    // The newer errors a file may carry as cached values.
    case 2043:
      return u"#GETTING_DATA";
    case 2045:
      return u"#SPILL!";
    case 2046:
      return u"#CONNECT!";
    case 2047:
      return u"#BLOCKED!";
    case 2048:
      return u"#UNKNOWN!";
    case 2049:
      return u"#FIELD!";
    case 2050:
      return u"#CALC!";
    default:
      return u"#N/A";
  }
}

String render(const CellValue& value, StringView code, bool date1904) {
  switch (value.type) {
    case CellValue::Type::Empty:
      return String();
    case CellValue::Type::Boolean:
      return value.number != 0 ? u"TRUE" : u"FALSE";
    case CellValue::Type::Error: {
      return String(error_literal(static_cast<int32_t>(value.number)));
    }
    default:
      break;
  }
  if (code.empty() || equals_text(code, u"General")) {
    if (value.type == CellValue::Type::Text) return String(value.text);
    return general_number(value.number);
  }
  Code c = parse_code(code);
  auto& secs = c.sections;
  // A code the parser makes nothing of (say one that ends in a lone escape) shows as General
  // would, rather than picking a section that is not there.
  if (secs.empty())
    return value.type == CellValue::Type::Text ? String(value.text) : general_number(value.number);
  if (value.type == CellValue::Type::Text) {
    const Section* text_section = nullptr;
    if (secs.size() >= 4)
      text_section = &secs[3];
    else
      for (const Section& s : secs)
        if (s.has_text) text_section = &s;
    if (!text_section) return String(value.text);
    String out;
    for (const Token& t : text_section->tokens) {
      if (t.type == Tok::Literal)
        out += t.text;
      else if (t.type == Tok::At)
        out += value.text;
    }
    return out;
  }

  double v = value.number;
  size_t n = secs.size() >= 4 ? 3 : secs.size();
  // A trailing text-only section does not take numbers.
  while (n > 1 && secs[n - 1].has_text && !secs[n - 1].has_digits) --n;
  const Section* chosen = &secs[0];
  bool drop_sign = false;
  bool explicit0 = secs[0].condition.has_value();
  bool explicit1 = n >= 2 && secs[1].condition.has_value();
  if (n == 1) {
    chosen = &secs[0];
    if (explicit0 && !secs[0].condition->test(v)) {
      // A lone condition that fails leaves the number in General.
      return general_number(v);
    }
  } else {
    auto test0 = [&] {
      if (explicit0) return secs[0].condition->test(v);
      return n == 2 ? v >= 0 : v > 0;
    };
    auto test1 = [&] {
      if (explicit1) return secs[1].condition->test(v);
      if (explicit0 && n == 2) return true;
      return v < 0;
    };
    if (test0()) {
      chosen = &secs[0];
    } else if (test1()) {
      chosen = &secs[1];
      // Under a condition on the first section alone, the second is simply "the rest".
      drop_sign = !(explicit0 && !explicit1 && n == 2);
    } else if (n >= 3) {
      chosen = &secs[2];
      drop_sign = true;
    } else {
      return hashes();
    }
  }
  if (chosen->has_text && !chosen->has_digits && !chosen->has_general && !chosen->has_date &&
      !chosen->has_time && !chosen->has_elapsed) {
    // "@" alone takes numbers as General.
    String out;
    for (const Token& t : chosen->tokens) {
      if (t.type == Tok::Literal)
        out += t.text;
      else if (t.type == Tok::At)
        out += general_number(v);
    }
    return out;
  }
  bool datetime = chosen->has_date || chosen->has_time || chosen->has_elapsed;
  if (datetime) return render_number(*chosen, drop_sign ? std::fabs(v) : v, date1904);
  bool negative = v < 0 && !drop_sign;
  String body = render_number(*chosen, std::fabs(v), date1904);
  // The application shows "-0" for -0.4 under "0": the sign follows the value, not the text.
  if (negative) body.insert(body.begin(), u'-');
  return body;
}

namespace {
// A short-date pattern (d, dd, M, MM, yyyy) as a format code; its other characters literal.
String short_date_code(StringView pattern) {
  String code;
  for (char16_t c : pattern) {
    if (c == u'd' || c == u'y') {
      code.push_back(c);
    } else if (c == u'M') {
      code.push_back(u'm');
    } else {
      code.push_back(u'\\');
      code.push_back(c);
    }
  }
  return code;
}
}  // namespace

String render_shown(const CellValue& value, StringView code, bool date1904, const Locale& locale) {
  struct Restore {
    const Locale* old;
    ~Restore() { shown_in = old; }
  } restore{shown_in};
  shown_in = &locale;
  // The built-in short date, alone or with a time, shows in the user's short-date pattern.
  if (code == u"m/d/yyyy") return render(value, short_date_code(locale.short_date), date1904);
  if (code == u"m/d/yyyy h:mm")
    return render(value, short_date_code(locale.short_date) + u" h:mm", date1904);
  return render(value, code, date1904);
}

}  // namespace qz::engine::numfmt
