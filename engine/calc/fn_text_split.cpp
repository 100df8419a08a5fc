// Text cut at delimiters (TEXTBEFORE, TEXTAFTER, TEXTSPLIT) and values shown as text
// (VALUETOTEXT, ARRAYTOTEXT).
#include <algorithm>
#include <cmath>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

/// The delimiters of an argument: one text or every element of an array or range.
std::vector<String> delimiters(Args& a, size_t i) {
  std::vector<String> out;
  if (i >= a.size() || a.missing(i)) return out;
  const Operand& o = a.get(i);
  if (o.is_value()) {
    out.push_back(Evaluator::to_text(o.value));
    return out;
  }
  Matrix m = a.ev().matrix(o);
  for (const Value& v : m.cells) out.push_back(Evaluator::to_text(v));
  return out;
}

bool ignore_case_arg(Args& a, size_t i) {
  if (i >= a.size() || a.missing(i)) return false;
  double mode = integer(a, i);
  if (mode != 0 && mode != 1) raise(cell_error::value);
  return mode == 1;
}

/// The first delimiter found at or after `from` (by position, then the longest): its
/// position and length.
bool find_delimiter(StringView s, const std::vector<String>& delims, size_t from, bool fold,
                    size_t& at, size_t& len) {
  bool found = false;
  for (const String& d : delims) {
    size_t p = StringView::npos;
    if (fold) {
      for (size_t k = from; k + d.size() <= s.size(); ++k)
        if (text_equal(s.substr(k, d.size()), d)) {
          p = k;
          break;
        }
    } else {
      p = s.find(d, from);
    }
    if (p == StringView::npos) continue;
    if (!found || p < at || (p == at && d.size() > len)) {
      at = p;
      len = d.size();
      found = true;
    }
  }
  return found;
}
/// The last delimiter that ends at or before `until`.
bool find_delimiter_back(StringView s, const std::vector<String>& delims, size_t until, bool fold,
                         size_t& at, size_t& len) {
  bool found = false;
  for (const String& d : delims) {
    if (d.size() > until) continue;
    for (size_t k = until - d.size() + 1; k-- > 0;) {
      bool hit = fold ? text_equal(s.substr(k, d.size()), d) : s.substr(k, d.size()) == d;
      if (!hit) continue;
      if (!found || k > at || (k == at && d.size() > len)) {
        at = k;
        len = d.size();
        found = true;
      }
      break;
    }
  }
  return found;
}

/// TEXTBEFORE and TEXTAFTER: the text before or after the n-th delimiter (counted from the
/// end when n is negative).
Operand text_around(Args& a, bool before) {
  String s = text(a, 0);
  std::vector<String> delims = delimiters(a, 1);
  double n = a.missing(2) ? 1 : integer(a, 2);
  bool fold = ignore_case_arg(a, 3);
  bool match_end = a.size() > 4 && !a.missing(4) && integer(a, 4) != 0;
  if (delims.empty()) delims.push_back(String());
  if (n == 0 || std::fabs(n) > static_cast<double>(s.size()) + (s.empty() ? 1 : 0))
    return error(cell_error::value);
  auto not_found = [&]() -> Operand {
    if (a.size() > 5 && !a.missing(5)) return a.get(5);
    return error(cell_error::na);
  };
  size_t at = 0, len = 0;
  if (n > 0) {
    size_t from = 0;
    for (int k = 0; k < n; ++k) {
      if (!find_delimiter(s, delims, from, fold, at, len)) {
        if (match_end && k == n - 1) {
          at = s.size();
          len = 0;
          break;
        }
        return not_found();
      }
      from = at + (len > 0 ? len : 1);
    }
  } else {
    size_t until = s.size();
    for (int k = 0; k < -n; ++k) {
      if (!find_delimiter_back(s, delims, until, fold, at, len)) {
        if (match_end && k == -n - 1) {
          at = 0;
          len = 0;
          break;
        }
        return not_found();
      }
      until = at;
    }
  }
  return text(before ? s.substr(0, at) : s.substr(at + len));
}
Operand f_textbefore(Args& a) {
  return text_around(a, true);
}
Operand f_textafter(Args& a) {
  return text_around(a, false);
}

std::vector<String> split(StringView s, const std::vector<String>& delims, bool fold,
                          bool ignore_empty) {
  std::vector<String> parts;
  bool any = false;
  for (const String& d : delims) any = any || !d.empty();
  if (!any) {
    parts.emplace_back(s);
    return parts;
  }
  std::vector<String> real;
  for (const String& d : delims)
    if (!d.empty()) real.push_back(d);
  size_t from = 0, at = 0, len = 0;
  while (find_delimiter(s, real, from, fold, at, len)) {
    parts.emplace_back(s.substr(from, at - from));
    from = at + len;
  }
  parts.emplace_back(s.substr(from));
  if (ignore_empty)
    parts.erase(
        std::remove_if(parts.begin(), parts.end(), [](const String& p) { return p.empty(); }),
        parts.end());
  return parts;
}

Operand f_textsplit(Args& a) {
  String s = text(a, 0);
  std::vector<String> cols = delimiters(a, 1), rows = delimiters(a, 2);
  bool ignore_empty = a.size() > 3 && !a.missing(3) && boolean(a, 3);
  bool fold = ignore_case_arg(a, 4);
  Value pad = a.size() > 5 && !a.missing(5) ? scalar(a, 5) : Value::error(cell_error::na);
  bool has_cols = std::any_of(cols.begin(), cols.end(), [](const String& d) { return !d.empty(); });
  bool has_rows = std::any_of(rows.begin(), rows.end(), [](const String& d) { return !d.empty(); });
  if (!has_cols && !has_rows) return error(cell_error::value);
  std::vector<std::vector<String>> grid;
  size_t width = 0;
  for (const String& line : split(s, rows, fold, ignore_empty)) {
    grid.push_back(split(line, cols, fold, ignore_empty));
    width = std::max(width, grid.back().size());
  }
  if (grid.empty() || width == 0) return error(kErrorCalc);
  Matrix m(static_cast<int32_t>(grid.size()), static_cast<int32_t>(width));
  for (size_t r = 0; r < grid.size(); ++r)
    for (size_t c = 0; c < width; ++c)
      m.at(static_cast<int32_t>(r), static_cast<int32_t>(c)) =
          c < grid[r].size() ? Value::str(grid[r][c]) : pad;
  return m.cells.size() == 1 ? Operand(m.cells[0]) : Operand::arr(std::move(m));
}

// ---- values as text -------------------------------------------------------------------------

/// A value as VALUETOTEXT and ARRAYTOTEXT show it; strict quotes text so that it reads back
/// as a constant.
String shown_as_text(const Value& v, bool strict) {
  switch (v.kind) {
    case Value::Kind::Text: {
      if (!strict) return v.text;
      String q = u"\"";
      for (char16_t c : v.text) {
        if (c == u'"') q += u'"';
        q += c;
      }
      return q + u"\"";
    }
    case Value::Kind::Error:
      return String(error_text(v.error_code()));
    default:
      return Evaluator::to_text(v);
  }
}

bool strict_arg(Args& a, size_t i) {
  if (a.missing(i)) return false;
  double f = integer(a, i);
  if (f != 0 && f != 1) raise(cell_error::value);
  return f == 1;
}

Operand f_valuetotext(Args& a) {
  Value v = scalar(a, 0);
  return text(shown_as_text(v, strict_arg(a, 1)));
}

Operand f_arraytotext(Args& a) {
  Matrix m = a.ev().matrix(a.get(0));
  bool strict = strict_arg(a, 1);
  String out = strict ? u"{" : u"";
  for (int32_t r = 0; r < m.rows; ++r)
    for (int32_t c = 0; c < m.cols; ++c) {
      if (r > 0 || c > 0) out += strict ? (c == 0 ? u";" : u",") : u", ";
      out += shown_as_text(m.at(r, c), strict);
    }
  if (strict) out += u"}";
  return text(out);
}

}  // namespace

void add_text_split_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"ARRAYTOTEXT", 1, 2, f_arraytotext},
                        {u"TEXTAFTER", 2, 6, f_textafter, each_arg_0},
                        {u"TEXTBEFORE", 2, 6, f_textbefore, each_arg_0},
                        {u"TEXTSPLIT", 2, 6, f_textsplit},
                        {u"VALUETOTEXT", 1, 2, f_valuetotext, each_arg},
                    });
}

}  // namespace qz::engine::calc
