#include "engine/model/address.hpp"

#include <algorithm>

#include "qzxl/convert.hpp"

namespace qz::engine {

namespace {

bool is_letter(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}
bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

// One end of an area: "$A$1", "A1", "A", "$1". Sets what it found.
struct End {
  std::optional<int32_t> row, col;
};

std::optional<End> parse_end(StringView s) {
  End e;
  size_t i = 0;
  if (i < s.size() && s[i] == u'$') ++i;
  size_t letters = i;
  int64_t col = 0;
  while (i < s.size() && is_letter(s[i])) {
    col = col * 26 + ((s[i] | 0x20) - u'a' + 1);
    if (col > calc::kMaxCols) return std::nullopt;
    ++i;
  }
  bool need_digits = false;
  if (i > letters) {
    e.col = static_cast<int32_t>(col - 1);
    if (i < s.size() && s[i] == u'$') {
      ++i;
      need_digits = true;
    }
  } else {
    need_digits = true;  // "$5" or "5": a row end
  }
  size_t digits = i;
  int64_t row = 0;
  while (i < s.size() && is_digit(s[i])) {
    row = row * 10 + (s[i] - u'0');
    if (row > calc::kMaxRows) return std::nullopt;
    ++i;
  }
  if (i > digits) {
    if (row == 0) return std::nullopt;
    e.row = static_cast<int32_t>(row - 1);
  } else if (need_digits) {
    return std::nullopt;
  }
  if (i != s.size()) return std::nullopt;
  return e;
}

}  // namespace

std::optional<Rect> parse_area(StringView text) {
  StringView t = trim(text);
  if (t.empty()) return std::nullopt;
  size_t colon = t.find(u':');
  if (colon == StringView::npos) {
    auto e = parse_end(t);
    if (!e || !e->row || !e->col) return std::nullopt;
    return Rect{*e->row, *e->col, *e->row, *e->col};
  }
  auto a = parse_end(t.substr(0, colon));
  auto b = parse_end(t.substr(colon + 1));
  if (!a || !b) return std::nullopt;
  bool a_cell = a->row && a->col, b_cell = b->row && b->col;
  if (a_cell && b_cell)
    return span(Rect{*a->row, *a->col, *a->row, *a->col}, Rect{*b->row, *b->col, *b->row, *b->col});
  if (!a->row && !b->row && a->col && b->col)  // A:C
    return Rect{0, std::min(*a->col, *b->col), kLastRow, std::max(*a->col, *b->col)};
  if (!a->col && !b->col && a->row && b->row)  // 2:5
    return Rect{std::min(*a->row, *b->row), 0, std::max(*a->row, *b->row), kLastCol};
  return std::nullopt;
}

QualifiedText split_qualifier(StringView text) {
  QualifiedText q;
  StringView t = trim(text);
  String qual;
  size_t i = 0;
  if (!t.empty() && t[0] == u'\'') {
    // Quoted qualifier: '' stands for one apostrophe.
    i = 1;
    bool closed = false;
    while (i < t.size()) {
      if (t[i] == u'\'') {
        if (i + 1 < t.size() && t[i + 1] == u'\'') {
          qual += u'\'';
          i += 2;
          continue;
        }
        closed = true;
        ++i;
        break;
      }
      qual += t[i++];
    }
    if (!closed) throw Error(err::host_failure, "reference has an unterminated quote");
    if (i >= t.size() || t[i] != u'!') {
      throw Error(err::host_failure, "a quoted sheet name must be followed by '!'");
    }
    q.rest = String(t.substr(i + 1));
  } else {
    size_t bang = t.rfind(u'!');
    if (bang == StringView::npos) {
      q.rest = String(t);
      return q;
    }
    qual = String(t.substr(0, bang));
    q.rest = String(t.substr(bang + 1));
  }
  if (!qual.empty() && qual[0] == u'[') {
    size_t close = qual.find(u']');
    if (close == String::npos) throw Error(err::host_failure, "reference has an unclosed '['");
    q.workbook = qual.substr(1, close - 1);
    qual = qual.substr(close + 1);
  } else if (size_t open = qual.find(u'['); open != String::npos) {
    // A path before the bracket ("C:\x\[B.xlsx]S"): the workbook is what the brackets hold.
    size_t close = qual.find(u']', open);
    if (close == String::npos) throw Error(err::host_failure, "reference has an unclosed '['");
    q.workbook = qual.substr(open + 1, close - open - 1);
    qual = qual.substr(close + 1);
  }
  q.sheet = qual;
  return q;
}

std::vector<String> split_union(StringView text) {
  std::vector<String> out;
  String cur;
  bool quoted = false;
  int depth = 0;
  for (char16_t c : text) {
    if (c == u'\'') quoted = !quoted;
    if (!quoted && c == u'[') ++depth;
    if (!quoted && c == u']') --depth;
    if (c == u',' && !quoted && depth == 0) {
      out.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  out.push_back(cur);
  return out;
}

bool sheet_needs_quotes(StringView name) {
  if (name.empty() || is_digit(name[0])) return true;
  for (char16_t c : name) {
    if (is_letter(c) || is_digit(c) || c == u'_' || c == u'.' || c >= 0x80) continue;
    return true;
  }
  // Names that read as a cell reference would be taken for one.
  if (parse_area(name)) return true;
  String up = to_upper(name);
  if (up == u"R" || up == u"C") return true;
  size_t i = 0;
  if (i < up.size() && up[i] == u'R') {
    ++i;
    while (i < up.size() && is_digit(up[i])) ++i;
    if (i == up.size()) return true;
    if (up[i] == u'C') {
      ++i;
      while (i < up.size() && is_digit(up[i])) ++i;
      if (i == up.size()) return true;
    }
  } else if (!up.empty() && up[0] == u'C') {
    i = 1;
    while (i < up.size() && is_digit(up[i])) ++i;
    if (i == up.size()) return true;
  }
  return up == u"TRUE" || up == u"FALSE";
}

String sheet_prefix(StringView name) {
  if (!sheet_needs_quotes(name)) return String(name) + u"!";
  String s = u"'";
  for (char16_t c : name) {
    if (c == u'\'') s += u'\'';
    s += c;
  }
  return s + u"'!";
}

namespace {
String num(int64_t v) {
  return u16(std::to_string(v));
}
String col_part(int32_t c, bool abs) {
  return (abs ? u"$" : u"") + column_letters(c);
}
String row_part(int32_t r, bool abs) {
  return (abs ? u"$" : u"") + num(r + 1);
}
}  // namespace

String area_a1(const Rect& r, bool row_abs, bool col_abs) {
  if (whole_columns(r) && !whole_rows(r))
    return col_part(r.col1, col_abs) + u":" + col_part(r.col2, col_abs);
  if (whole_rows(r)) return row_part(r.row1, row_abs) + u":" + row_part(r.row2, row_abs);
  String a = col_part(r.col1, col_abs) + row_part(r.row1, row_abs);
  if (r.row1 == r.row2 && r.col1 == r.col2) return a;
  return a + u":" + col_part(r.col2, col_abs) + row_part(r.row2, row_abs);
}

namespace {
String r1c1_part(char16_t letter, int32_t v, bool abs, int32_t base) {
  String s(1, letter);
  if (abs) return s + num(v + 1);
  if (v != base) s += u"[" + num(static_cast<int64_t>(v) - base) + u"]";
  return s;
}
}  // namespace

String area_r1c1(const Rect& r, bool row_abs, bool col_abs, CellRef base) {
  auto rp = [&](int32_t v) { return r1c1_part(u'R', v, row_abs, base.row); };
  auto cp = [&](int32_t v) { return r1c1_part(u'C', v, col_abs, base.col); };
  if (whole_columns(r) && !whole_rows(r))
    return r.col1 == r.col2 ? cp(r.col1) : cp(r.col1) + u":" + cp(r.col2);
  if (whole_rows(r)) return r.row1 == r.row2 ? rp(r.row1) : rp(r.row1) + u":" + rp(r.row2);
  String a = rp(r.row1) + cp(r.col1);
  if (r.row1 == r.row2 && r.col1 == r.col2) return a;
  return a + u":" + rp(r.row2) + cp(r.col2);
}

std::optional<Rect> intersection(const Rect& a, const Rect& b) {
  Rect r{std::max(a.row1, b.row1), std::max(a.col1, b.col1), std::min(a.row2, b.row2),
         std::min(a.col2, b.col2)};
  if (r.row1 > r.row2 || r.col1 > r.col2) return std::nullopt;
  return r;
}

void join_areas(std::vector<Rect>& areas) {
  auto inside = [](const Rect& in, const Rect& out) {
    return in.row1 >= out.row1 && in.row2 <= out.row2 && in.col1 >= out.col1 && in.col2 <= out.col2;
  };
  auto joinable = [](const Rect& a, const Rect& b) {
    if (a.col1 == b.col1 && a.col2 == b.col2) return a.row1 <= b.row2 + 1 && b.row1 <= a.row2 + 1;
    if (a.row1 == b.row1 && a.row2 == b.row2) return a.col1 <= b.col2 + 1 && b.col1 <= a.col2 + 1;
    return false;
  };
  bool again = true;
  while (again) {
    again = false;
    for (size_t i = 0; i < areas.size() && !again; ++i)
      for (size_t j = i + 1; j < areas.size() && !again; ++j) {
        if (inside(areas[j], areas[i]) || joinable(areas[i], areas[j])) {
          areas[i] = span(areas[i], areas[j]);
        } else if (inside(areas[i], areas[j])) {
          areas[i] = areas[j];
        } else {
          continue;
        }
        areas.erase(areas.begin() + static_cast<long>(j));
        again = true;
      }
  }
}

}  // namespace qz::engine
