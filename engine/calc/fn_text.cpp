// Text functions.
#include <algorithm>
#include <cmath>

#include "engine/calc/fn_util.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

/// A character count or position argument: truncated, at least `min`.
size_t count_arg(Args& a, size_t i, double fallback, double min) {
  double v = a.missing(i) ? fallback : std::trunc(number(a, i));
  if (v < min) raise(cell_error::value);
  return static_cast<size_t>(std::min(v, 1e9));
}

Operand f_len(Args& a) {
  return num(static_cast<double>(text(a, 0).size()));
}
Operand f_left(Args& a) {
  String s = text(a, 0);
  size_t n = count_arg(a, 1, 1, 0);
  return Value::str(s.substr(0, std::min(n, s.size())));
}
Operand f_right(Args& a) {
  String s = text(a, 0);
  size_t n = std::min(count_arg(a, 1, 1, 0), s.size());
  return Value::str(s.substr(s.size() - n));
}
Operand f_mid(Args& a) {
  String s = text(a, 0);
  size_t start = count_arg(a, 1, 1, 1);
  size_t n = count_arg(a, 2, 0, 0);
  if (start > s.size()) return Value::str({});
  return Value::str(s.substr(start - 1, n));
}
Operand f_upper(Args& a) {
  return Value::str(upper_text(text(a, 0)));
}
Operand f_lower(Args& a) {
  return Value::str(lower_text(text(a, 0)));
}
Operand f_proper(Args& a) {
  String s = lower_text(text(a, 0));
  bool start = true;
  for (char16_t& c : s) {
    bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= 0xC0 && c <= 0x24F);
    if (letter && start) c = upper_text(String(1, c))[0];
    start = !letter;
  }
  return Value::str(s);
}
Operand f_trim(Args& a) {
  // Blanks at both ends go; runs of blanks inside shrink to one.
  String s = text(a, 0), out;
  for (char16_t c : s) {
    if (c == u' ' && (out.empty() || out.back() == u' ')) continue;
    out.push_back(c);
  }
  if (!out.empty() && out.back() == u' ') out.pop_back();
  return Value::str(out);
}
Operand f_clean(Args& a) {
  String s = text(a, 0), out;
  for (char16_t c : s)
    if (c >= 32) out.push_back(c);
  return Value::str(out);
}

Operand f_concatenate(Args& a) {
  String out;
  for (size_t i = 0; i < a.size(); ++i)
    if (!a.missing(i)) out += text(a, i);
  if (out.size() > 32767) return error(cell_error::value);
  return Value::str(out);
}

/// CONCAT and TEXTJOIN read every cell of ranges and arrays.
template <class F>
void each_text(Args& a, size_t i, F&& f) {
  if (a.missing(i)) return;
  const Operand& o = a.get(i);
  if (o.is_value()) {
    f(Evaluator::to_text(o.value));
    return;
  }
  Matrix m = a.ev().matrix(o);
  for (const Value& v : m.cells) f(Evaluator::to_text(v));
}

Operand f_concat(Args& a) {
  String out;
  for (size_t i = 0; i < a.size(); ++i) each_text(a, i, [&](const String& s) { out += s; });
  if (out.size() > 32767) return error(cell_error::value);
  return Value::str(out);
}
Operand f_textjoin(Args& a) {
  // A range or array of delimiters is used in turn, starting again after the last.
  std::vector<String> delims;
  each_text(a, 0, [&](const String& s) { delims.push_back(s); });
  if (delims.empty()) delims.emplace_back();
  bool skip_empty = boolean(a, 1);
  String out;
  size_t joined = 0;
  for (size_t i = 2; i < a.size(); ++i)
    each_text(a, i, [&](const String& s) {
      if (skip_empty && s.empty()) return;
      if (joined) out += delims[(joined - 1) % delims.size()];
      out += s;
      ++joined;
    });
  if (out.size() > 32767) return error(cell_error::value);
  return Value::str(out);
}

Operand f_text(Args& a) {
  Value v = scalar(a, 0);
  if (v.is_error()) return v;
  String code = text(a, 1);
  if (code.empty()) return Value::str({});  // an empty format shows nothing
  numfmt::CellValue cv;
  String held;
  if (v.kind == Value::Kind::Text) {
    // Number-like text formats as the number it reads as.
    if (auto n = a.ev().text_to_number(v.text)) {
      cv.type = numfmt::CellValue::Type::Number;
      cv.number = *n;
    } else {
      held = v.text;
      cv.type = numfmt::CellValue::Type::Text;
      cv.text = held;
    }
  } else if (v.kind == Value::Kind::Boolean) {
    held = v.number != 0 ? u"TRUE" : u"FALSE";
    cv.type = numfmt::CellValue::Type::Text;
    cv.text = held;
  } else {
    cv.type = numfmt::CellValue::Type::Number;
    cv.number = v.kind == Value::Kind::Number ? v.number : 0;
  }
  try {
    return Value::str(numfmt::render(cv, code, a.ev().date1904()));
  } catch (const Error&) {
    return error(cell_error::value);
  }
}

Operand f_value(Args& a) {
  Value v = scalar(a, 0);
  if (v.is_error()) return v;
  if (v.kind == Value::Kind::Number) return v;
  if (v.kind == Value::Kind::Empty) return num(0);
  if (v.kind == Value::Kind::Boolean) return error(cell_error::value);
  auto n = a.ev().text_to_number(v.text);
  if (!n) return error(cell_error::value);
  return num(*n);
}

Operand find_impl(Args& a, bool search) {
  String what = text(a, 0);
  String within = text(a, 1);
  size_t start = count_arg(a, 2, 1, 1);
  if (start > within.size() + 1) return error(cell_error::value);
  if (!search) {
    size_t p = within.find(what, start - 1);
    if (p == String::npos) return error(cell_error::value);
    return num(static_cast<double>(p + 1));
  }
  // SEARCH: case-insensitive, with wildcards; the pattern matches a prefix at each position.
  bool wild = what.find_first_of(u"*?~") != String::npos;
  for (size_t p = start - 1; p <= within.size(); ++p) {
    if (!wild) {
      if (p + what.size() <= within.size() &&
          text_equal(StringView(within).substr(p, what.size()), what))
        return num(static_cast<double>(p + 1));
      continue;
    }
    for (size_t e = p; e <= within.size(); ++e)
      if (wildcard_match(what, StringView(within).substr(p, e - p)))
        return num(static_cast<double>(p + 1));
  }
  return error(cell_error::value);
}
Operand f_find(Args& a) {
  return find_impl(a, false);
}
Operand f_search(Args& a) {
  return find_impl(a, true);
}

Operand f_substitute(Args& a) {
  String s = text(a, 0), from = text(a, 1), to = text(a, 2);
  if (from.empty()) return Value::str(s);
  double which = a.missing(3) ? 0 : std::trunc(number(a, 3));
  if (!a.missing(3) && which < 1) return error(cell_error::value);
  String out;
  size_t pos = 0, k = 0;
  for (;;) {
    size_t hit = s.find(from, pos);
    if (hit == String::npos) break;
    ++k;
    out += s.substr(pos, hit - pos);
    out += (which == 0 || static_cast<double>(k) == which) ? to : from;
    pos = hit + from.size();
  }
  out += s.substr(pos);
  return Value::str(out);
}

Operand f_replace(Args& a) {
  String s = text(a, 0);
  size_t start = count_arg(a, 1, 1, 1);
  size_t n = count_arg(a, 2, 0, 0);
  String with = text(a, 3);
  if (start - 1 > s.size()) start = s.size() + 1;
  String out = s.substr(0, start - 1) + with;
  if (start - 1 + n < s.size()) out += s.substr(start - 1 + n);
  return Value::str(out);
}

Operand f_rept(Args& a) {
  String s = text(a, 0);
  double n = std::trunc(number(a, 1));
  if (n < 0) return error(cell_error::value);
  if (s.size() * n > 32767) return error(cell_error::value);
  String out;
  for (int i = 0; i < n; ++i) out += s;
  return Value::str(out);
}

Operand f_exact(Args& a) {
  return boolean(text(a, 0) == text(a, 1));
}

// The code page the application uses for CHAR and CODE on its home platform (Windows-1252):
// 128..159 hold typographic characters.
constexpr char16_t kCp1252[32] = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                  0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

Operand f_char(Args& a) {
  double n = std::trunc(number(a, 0));
  if (n < 1 || n > 255) return error(cell_error::value);
  char16_t c = static_cast<char16_t>(n);
  if (c >= 128 && c < 160) c = kCp1252[c - 128];
  return Value::str(String(1, c));
}
Operand f_code(Args& a) {
  String s = text(a, 0);
  if (s.empty()) return error(cell_error::value);
  char16_t c = s[0];
  for (int k = 0; k < 32; ++k)
    if (kCp1252[k] == c) return num(128 + k);
  if (c > 255) return num(63);  // "?": not in the code page
  return num(c);
}
Operand f_unichar(Args& a) {
  double n = std::trunc(number(a, 0));
  if (n < 1 || n > 0x10FFFF) return error(cell_error::value);
  uint32_t cp = static_cast<uint32_t>(n);
  String s;
  if (cp < 0x10000) {
    s.push_back(static_cast<char16_t>(cp));
  } else {
    cp -= 0x10000;
    s.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
    s.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
  }
  return Value::str(s);
}
Operand f_unicode(Args& a) {
  String s = text(a, 0);
  if (s.empty()) return error(cell_error::value);
  uint32_t c = s[0];
  if (c >= 0xD800 && c < 0xDC00 && s.size() > 1)
    c = 0x10000 + ((c - 0xD800) << 10) + (s[1] - 0xDC00);
  return num(c);
}

/// The digits of FIXED and DOLLAR: rounded to `decimals` (negative rounds left of the
/// point), grouped by thousands unless asked not to.
String fixed_text(double x, int decimals, bool group) {
  x = round_half_away(x, decimals);
  String code = group ? u"#,##0" : u"0";
  if (decimals > 0) code += u"." + String(static_cast<size_t>(std::min(decimals, 127)), u'0');
  numfmt::CellValue cv;
  cv.type = numfmt::CellValue::Type::Number;
  cv.number = x;
  return numfmt::render(cv, code, false);
}

Operand f_fixed(Args& a) {
  double x = number(a, 0);
  int decimals = a.missing(1) ? 2 : static_cast<int>(std::trunc(number(a, 1)));
  bool no_commas = boolean_or(a, 2, false);
  if (decimals > 127) return error(cell_error::value);
  return Value::str(fixed_text(x, decimals, !no_commas));
}
Operand f_dollar(Args& a) {
  double x = number(a, 0);
  int decimals = a.missing(1) ? 2 : static_cast<int>(std::trunc(number(a, 1)));
  if (decimals > 127) return error(cell_error::value);
  String body = fixed_text(std::fabs(x), decimals, true);
  if (x < 0 && round_half_away(x, decimals) != 0) return Value::str(u"($" + body + u")");
  return Value::str(u"$" + body);
}

/// T and N read the first cell of a range (not the one in the formula's row).
Value first_cell(Args& a, size_t i) {
  const Operand& o = a.get(i);
  if (o.is_ref() && !o.areas.empty()) {
    const Area& ar = o.areas[0];
    return a.ev().cell(ar.sheet, ar.rect.row1, ar.rect.col1);
  }
  return a.ev().scalar(o);
}

Operand f_t(Args& a) {
  Value v = first_cell(a, 0);
  if (v.is_error()) return v;
  return Value::str(v.kind == Value::Kind::Text ? v.text : String());
}
Operand f_n(Args& a) {
  Value v = first_cell(a, 0);
  if (v.is_error()) return v;
  if (v.kind == Value::Kind::Number) return v;
  if (v.kind == Value::Kind::Boolean) return num(v.number);
  return num(0);
}

Operand f_numbervalue(Args& a) {
  String s = text(a, 0);
  char16_t dec = a.missing(1) ? u'.' : text(a, 1).empty() ? u'.' : text(a, 1)[0];
  char16_t grp = a.missing(2) ? u',' : text(a, 2).empty() ? u',' : text(a, 2)[0];
  String clean;
  for (char16_t c : s) {
    if (c == u' ') continue;
    if (c == grp && c != dec) continue;
    clean.push_back(c == dec ? u'.' : c);
  }
  if (clean.empty()) return num(0);
  size_t pct = 0;
  while (!clean.empty() && clean.back() == u'%') clean.pop_back(), ++pct;
  auto e = numfmt::parse_entry(clean, false);
  if (e.type != numfmt::Entry::Type::Number) return error(cell_error::value);
  return num(e.number / std::pow(100.0, static_cast<double>(pct)));
}

}  // namespace

void add_text_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"CHAR", 1, 1, f_char, each_arg},
                        {u"CLEAN", 1, 1, f_clean, each_arg},
                        {u"CODE", 1, 1, f_code, each_arg},
                        {u"CONCAT", 1, -1, f_concat},
                        {u"CONCATENATE", 1, -1, f_concatenate},
                        {u"DOLLAR", 1, 2, f_dollar, each_arg},
                        {u"EXACT", 2, 2, f_exact, each_arg},
                        {u"FIND", 2, 3, f_find, each_arg},
                        {u"FIXED", 1, 3, f_fixed, each_arg},
                        {u"LEFT", 1, 2, f_left, each_arg},
                        {u"LEN", 1, 1, f_len, each_arg},
                        {u"LOWER", 1, 1, f_lower, each_arg},
                        {u"MID", 3, 3, f_mid, each_arg},
                        {u"N", 1, 1, f_n, each_arg},
                        {u"NUMBERVALUE", 1, 3, f_numbervalue, each_arg},
                        {u"PROPER", 1, 1, f_proper, each_arg},
                        {u"REPLACE", 4, 4, f_replace, each_arg},
                        {u"REPT", 2, 2, f_rept, each_arg},
                        {u"RIGHT", 1, 2, f_right, each_arg},
                        {u"SEARCH", 2, 3, f_search, each_arg},
                        {u"SUBSTITUTE", 3, 4, f_substitute, each_arg},
                        {u"T", 1, 1, f_t, each_arg},
                        {u"TEXT", 2, 2, f_text, each_arg},
                        {u"TEXTJOIN", 3, -1, f_textjoin},
                        {u"TRIM", 1, 1, f_trim, each_arg},
                        {u"UNICHAR", 1, 1, f_unichar, each_arg},
                        {u"UNICODE", 1, 1, f_unicode, each_arg},
                        {u"UPPER", 1, 1, f_upper, each_arg},
                        {u"VALUE", 1, 1, f_value, each_arg},
                        // The byte-counting variants count one byte a character, as the
                        // application does where the default language is not a
                        // double-byte one.
                        {u"FINDB", 2, 3, f_find, each_arg},
                        {u"LEFTB", 1, 2, f_left, each_arg},
                        {u"LENB", 1, 1, f_len, each_arg},
                        {u"MIDB", 3, 3, f_mid, each_arg},
                        {u"REPLACEB", 4, 4, f_replace, each_arg},
                        {u"RIGHTB", 1, 2, f_right, each_arg},
                        {u"SEARCHB", 2, 3, f_search, each_arg},
                    });
}

}  // namespace qz::engine::calc
