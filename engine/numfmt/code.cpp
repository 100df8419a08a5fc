// Taking format codes apart: sections, conditions, colours, literal text and the tokens the
// renderer walks.
#include <cstdlib>

#include "engine/numfmt/code.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::numfmt {
namespace {

char16_t lower(char16_t c) {
  return (c >= u'A' && c <= u'Z') ? c + 32 : c;
}

bool iequals(StringView a, StringView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

bool starts_ci(StringView s, size_t i, StringView what) {
  return i + what.size() <= s.size() && iequals(s.substr(i, what.size()), what);
}

[[noreturn]] void refuse(StringView code, const std::string& why) {
  throw Error(err::host_failure, "number format '" + to_utf8(code) + "': " + why);
}

constexpr const char16_t* kColours[] = {u"black",   u"blue", u"cyan",  u"green",
                                        u"magenta", u"red",  u"white", u"yellow"};

bool is_colour(StringView inner) {
  for (auto* c : kColours)
    if (iequals(inner, c)) return true;
  if (starts_ci(inner, 0, u"color")) {
    StringView digits = inner.substr(5);
    if (digits.empty() || digits.size() > 2) return false;
    int v = 0;
    for (char16_t c : digits) {
      if (c < u'0' || c > u'9') return false;
      v = v * 10 + (c - u'0');
    }
    return v >= 1 && v <= 56;
  }
  return false;
}

bool is_digit_token(Tok t) {
  return t == Tok::Zero || t == Tok::Hash || t == Tok::Question;
}
bool is_datetime_token(Tok t) {
  switch (t) {
    case Tok::Year:
    case Tok::Month:
    case Tok::Day:
    case Tok::Hour:
    case Tok::Minute:
    case Tok::Second:
    case Tok::SubSecond:
    case Tok::AmPm:
    case Tok::ElapsedH:
    case Tok::ElapsedM:
    case Tok::ElapsedS:
      return true;
    default:
      return false;
  }
}

void add_literal(Section& s, StringView text) {
  if (!s.tokens.empty() && s.tokens.back().type == Tok::Literal) {
    s.tokens.back().text += text;
    return;
  }
  Token t;
  t.type = Tok::Literal;
  t.text = String(text);
  s.tokens.push_back(std::move(t));
}

void add(Section& s, Tok type, int n = 0, String text = {}) {
  Token t;
  t.type = type;
  t.n = n;
  t.text = std::move(text);
  s.tokens.push_back(std::move(t));
}

std::optional<Condition> parse_condition(StringView inner) {
  Condition c;
  size_t i = 0;
  if (starts_ci(inner, 0, u"<="))
    c.cmp = Condition::Cmp::Le, i = 2;
  else if (starts_ci(inner, 0, u">="))
    c.cmp = Condition::Cmp::Ge, i = 2;
  else if (starts_ci(inner, 0, u"<>"))
    c.cmp = Condition::Cmp::Ne, i = 2;
  else if (inner[0] == u'<')
    c.cmp = Condition::Cmp::Lt, i = 1;
  else if (inner[0] == u'>')
    c.cmp = Condition::Cmp::Gt, i = 1;
  else if (inner[0] == u'=')
    c.cmp = Condition::Cmp::Eq, i = 1;
  else
    return std::nullopt;
  std::string num = to_utf8(inner.substr(i));
  char* end = nullptr;
  c.value = std::strtod(num.c_str(), &end);
  if (num.empty() || end != num.c_str() + num.size()) return std::nullopt;
  return c;
}

Section parse_section(StringView code, StringView s) {
  Section out;
  size_t i = 0, n = s.size();
  while (i < n) {
    char16_t c = s[i];
    char16_t lc = lower(c);
    if (c == u'"') {
      size_t close = s.find(u'"', i + 1);
      if (close == StringView::npos) refuse(code, "unterminated quoted text");
      add_literal(out, s.substr(i + 1, close - i - 1));
      i = close + 1;
    } else if (c == u'\\') {
      if (i + 1 >= n) refuse(code, "nothing after \\");
      add_literal(out, s.substr(i + 1, 1));
      i += 2;
    } else if (c == u'_') {
      // Room the width of the next character: a cell's text shows it as one blank.
      if (i + 1 >= n) refuse(code, "nothing after _");
      add_literal(out, u" ");
      i += 2;
    } else if (c == u'*') {
      // Repeating a character to fill the column has no place in a cell's text.
      if (i + 1 >= n) refuse(code, "nothing after *");
      i += 2;
    } else if (c == u'[') {
      size_t close = s.find(u']', i + 1);
      if (close == StringView::npos) refuse(code, "unterminated [");
      StringView inner = s.substr(i + 1, close - i - 1);
      i = close + 1;
      if (inner.empty()) refuse(code, "empty []");
      char16_t f = lower(inner[0]);
      bool same = true;
      for (char16_t ch : inner) same = same && lower(ch) == f;
      if (same && (f == u'h' || f == u'm' || f == u's')) {
        add(out,
            f == u'h'   ? Tok::ElapsedH
            : f == u'm' ? Tok::ElapsedM
                        : Tok::ElapsedS,
            static_cast<int>(inner.size()));
        out.has_elapsed = true;
      } else if (inner[0] == u'$') {
        // [$€-407]: a currency symbol and a locale; [$-409]: a locale alone.
        StringView sym = inner.substr(1);
        size_t dash = sym.find(u'-');
        if (dash != StringView::npos) sym = sym.substr(0, dash);
        if (!sym.empty()) add_literal(out, sym);
      } else if (inner[0] == u'<' || inner[0] == u'>' || inner[0] == u'=') {
        auto cond = parse_condition(inner);
        if (!cond) refuse(code, "bad condition [" + to_utf8(inner) + "]");
        out.condition = cond;
      } else if (is_colour(inner)) {
        // colours change how the cell looks, not its text
      } else if (starts_ci(inner, 0, u"dbnum") || starts_ci(inner, 0, u"natnum") ||
                 inner[0] == u'~') {
        // numeral systems and calendars of other locales: shown in Western digits here
      } else {
        refuse(code, "unknown [" + to_utf8(inner) + "]");
      }
    } else if (c == u'0') {
      add(out, Tok::Zero);
      out.has_digits = true;
      ++i;
    } else if (c == u'#') {
      add(out, Tok::Hash);
      out.has_digits = true;
      ++i;
    } else if (c == u'?') {
      add(out, Tok::Question);
      out.has_digits = true;
      ++i;
    } else if (c == u'.') {
      // Fractional seconds: "ss.00".
      bool after_seconds = false;
      for (auto it = out.tokens.rbegin(); it != out.tokens.rend(); ++it) {
        if (it->type == Tok::Literal) break;
        after_seconds = it->type == Tok::Second || it->type == Tok::ElapsedS;
        break;
      }
      if (after_seconds && i + 1 < n && s[i + 1] == u'0') {
        size_t j = i + 1;
        while (j < n && s[j] == u'0') ++j;
        add(out, Tok::SubSecond, static_cast<int>(std::min<size_t>(j - i - 1, 3)));
        i = j;
      } else {
        add(out, Tok::Point);
        ++i;
      }
    } else if (c == u',') {
      add(out, Tok::Comma);
      ++i;
    } else if (c == u'%') {
      add(out, Tok::Percent);
      out.has_percent = true;
      ++i;
    } else if ((c == u'E' || c == u'e') && i + 1 < n && (s[i + 1] == u'+' || s[i + 1] == u'-')) {
      add(out, Tok::Exponent, s[i + 1] == u'+' ? 1 : 0, String(1, c));
      out.has_exponent = true;
      i += 2;
    } else if (c == u'/') {
      add(out, Tok::Slash);
      ++i;
    } else if (c == u'@') {
      add(out, Tok::At);
      out.has_text = true;
      ++i;
    } else if (starts_ci(s, i, u"general")) {
      add(out, Tok::General);
      out.has_general = true;
      i += 7;
    } else if (starts_ci(s, i, u"am/pm")) {
      add(out, Tok::AmPm, 0, String(s.substr(i, 5)));
      out.has_ampm = true;
      i += 5;
    } else if (starts_ci(s, i, u"a/p")) {
      add(out, Tok::AmPm, 0, String(s.substr(i, 3)));
      out.has_ampm = true;
      i += 3;
    } else if (lc == u'y' || lc == u'm' || lc == u'd' || lc == u'h' || lc == u's' || lc == u'e') {
      size_t j = i;
      while (j < n && lower(s[j]) == lc) ++j;
      int len = static_cast<int>(j - i);
      Tok t = lc == u'y' || lc == u'e' ? Tok::Year
              : lc == u'm'             ? Tok::Month
              : lc == u'd'             ? Tok::Day
              : lc == u'h'             ? Tok::Hour
                                       : Tok::Second;
      if (lc == u'e') len = 4;  // the era year shows as the full year in this locale
      add(out, t, len);
      i = j;
    } else if (lc == u'b' && i + 1 < n && (s[i + 1] == u'1' || s[i + 1] == u'2')) {
      i += 2;  // calendar switches of other locales
    } else if (lc == u'g' || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')) {
      refuse(code, "unexpected '" + to_utf8(s.substr(i, 1)) + "'");
    } else {
      add_literal(out, s.substr(i, 1));
      ++i;
    }
  }

  // "m" means minutes right after hours or right before seconds.
  for (size_t k = 0; k < out.tokens.size(); ++k) {
    if (out.tokens[k].type != Tok::Month) continue;
    Tok prev = Tok::Literal, next = Tok::Literal;
    for (size_t j = k; j-- > 0;) {
      if (is_datetime_token(out.tokens[j].type)) {
        prev = out.tokens[j].type;
        break;
      }
    }
    for (size_t j = k + 1; j < out.tokens.size(); ++j) {
      if (is_datetime_token(out.tokens[j].type)) {
        next = out.tokens[j].type;
        break;
      }
    }
    // ... and, as the application reads "s:m", right after seconds.
    if (prev == Tok::Hour || prev == Tok::ElapsedH || prev == Tok::Second ||
        prev == Tok::ElapsedS || next == Tok::Second || next == Tok::ElapsedS)
      out.tokens[k].type = Tok::Minute;
  }
  for (const Token& t : out.tokens) {
    if (t.type == Tok::Year || t.type == Tok::Month || t.type == Tok::Day) out.has_date = true;
    if (t.type == Tok::Hour || t.type == Tok::Minute || t.type == Tok::Second ||
        t.type == Tok::AmPm || t.type == Tok::SubSecond)
      out.has_time = true;
  }
  bool datetime = out.has_date || out.has_time || out.has_elapsed;
  if (datetime) {
    // In dates a slash, a comma or a point is a separator, and digits are literal.
    for (Token& t : out.tokens) {
      if (t.type == Tok::Slash)
        t = Token{Tok::Literal, 0, u"/"};
      else if (t.type == Tok::Comma)
        t = Token{Tok::Literal, 0, u","};
      else if (t.type == Tok::Point)
        t = Token{Tok::Literal, 0, u"."};
      else if (t.type == Tok::Percent)
        t = Token{Tok::Literal, 0, u"%"};
      else if (t.type == Tok::Zero)
        t = Token{Tok::Literal, 0, u"0"};
    }
    out.has_digits = out.has_percent = out.has_exponent = false;
  } else {
    // A slash with placeholders before it and placeholders (or a fixed denominator) after
    // it is a fraction bar, even with literal text around it ("# ?=/=?"); elsewhere it is
    // text.
    for (size_t k = 0; k < out.tokens.size(); ++k) {
      if (out.tokens[k].type != Tok::Slash) continue;
      bool before = false, after = false;
      for (size_t j = 0; j < k; ++j) before = before || is_digit_token(out.tokens[j].type);
      for (size_t j = k + 1; j < out.tokens.size(); ++j)
        after = after || is_digit_token(out.tokens[j].type);
      if (k + 1 < out.tokens.size() && out.tokens[k + 1].type == Tok::Literal &&
          !out.tokens[k + 1].text.empty() && out.tokens[k + 1].text[0] >= u'1' &&
          out.tokens[k + 1].text[0] <= u'9')
        after = true;
      if (before && after && !out.has_fraction && !out.has_exponent) {
        out.has_fraction = true;
      } else {
        out.tokens[k] = Token{Tok::Literal, 0, u"/"};
      }
    }
    // Merge literals split by the rewrite above.
  }
  std::vector<Token> merged;
  for (Token& t : out.tokens) {
    if (t.type == Tok::Literal && !merged.empty() && merged.back().type == Tok::Literal)
      merged.back().text += t.text;
    else
      merged.push_back(std::move(t));
  }
  out.tokens = std::move(merged);
  return out;
}

}  // namespace

bool Condition::test(double v) const {
  switch (cmp) {
    case Cmp::Lt:
      return v < value;
    case Cmp::Le:
      return v <= value;
    case Cmp::Gt:
      return v > value;
    case Cmp::Ge:
      return v >= value;
    case Cmp::Eq:
      return v == value;
    case Cmp::Ne:
      return v != value;
  }
  return false;
}

Code parse_code(StringView code) {
  Code out;
  size_t start = 0, i = 0;
  bool quoted = false, bracket = false;
  for (; i <= code.size(); ++i) {
    if (i == code.size() || (!quoted && !bracket && code[i] == u';')) {
      out.sections.push_back(parse_section(code, code.substr(start, i - start)));
      start = i + 1;
      if (out.sections.size() > 4) refuse(code, "more than four sections");
      continue;
    }
    char16_t c = code[i];
    if (c == u'\\' && !quoted) {
      ++i;
    } else if (c == u'"') {
      quoted = !quoted;
    } else if (!quoted && c == u'[') {
      bracket = true;
    } else if (!quoted && c == u']') {
      bracket = false;
    }
  }
  if (quoted) refuse(code, "unterminated quoted text");
  return out;
}

}  // namespace qz::engine::numfmt
