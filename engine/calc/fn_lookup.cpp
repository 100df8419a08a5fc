// Lookups and references: VLOOKUP, HLOOKUP, LOOKUP, MATCH, XLOOKUP, INDEX, OFFSET,
// INDIRECT, ROW/COLUMN and friends.
#include <algorithm>
#include <cmath>

#include "engine/calc/fn_util.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

/// Lookups compare like with like: a number finds numbers, text finds text (without regard
/// to case), a Boolean finds Booleans.
bool same_kind(const Value& a, const Value& b) {
  return a.kind == b.kind && a.kind != Value::Kind::Empty && a.kind != Value::Kind::Error;
}

bool exact_match(const Value& key, const Value& v, bool wildcards) {
  if (!same_kind(key, v)) return false;
  if (key.kind == Value::Kind::Text) {
    if (wildcards && key.text.find_first_of(u"*?~") != String::npos)
      return wildcard_match(key.text, v.text);
    return text_equal(key.text, v.text);
  }
  return compare_values(key, v) == 0;
}

/// First position of `key` in a vector, or -1.
int32_t find_exact(const Grid& g, int32_t n, const Value& key, bool wildcards,
                   bool reverse = false) {
  int32_t used = std::min(n, g.used_length());
  for (int32_t k = 0; k < used; ++k) {
    int32_t i = reverse ? used - 1 - k : k;
    if (exact_match(key, g.linear(i), wildcards)) return i;
  }
  return -1;
}

/// Binary search for the last position whose value is <= key (ascending data), the way the
/// application searches sorted ranges: positions holding another kind of value are stepped
/// over. Returns -1 when every value is greater.
int32_t find_sorted(const Grid& g, int32_t n, const Value& key, bool descending = false) {
  int32_t lo = 0, hi = std::min(n, g.used_length()) - 1, found = -1;
  while (lo <= hi) {
    int32_t mid = lo + (hi - lo) / 2;
    int32_t probe = mid;
    Value v = g.linear(probe);
    // Step left over values of another kind.
    while (probe >= lo && !same_kind(key, v)) {
      if (--probe >= lo) v = g.linear(probe);
    }
    if (probe < lo) {
      lo = mid + 1;
      continue;
    }
    int c = compare_values(v, key);
    bool ok = descending ? c >= 0 : c <= 0;
    if (c == 0) {
      // An exact hit ends the search, at the last of a run of equal values.
      int32_t last = std::min(n, g.used_length()) - 1;
      while (probe < last) {
        Value next = g.linear(probe + 1);
        if (!same_kind(key, next) || compare_values(next, key) != 0) break;
        ++probe;
      }
      return probe;
    }
    if (ok) {
      found = probe;
      lo = mid + 1;
    } else {
      hi = probe - 1;
    }
  }
  return found;
}

Value lookup_key(Args& a, size_t i) {
  Value key = scalar(a, i);
  if (key.is_error()) raise(key.error_code());
  if (key.kind == Value::Kind::Empty) key = Value::num(0);
  return key;
}

/// The value of the cell at (r, c) of a table argument, keeping references as references
/// so that a lookup's result can feed a function that wants a cell.
Operand cell_of(Args& a, const Operand& table, int32_t r, int32_t c) {
  if (table.is_ref()) {
    const Area& ar = table.areas[0];
    return Operand::ref({Area{
        ar.sheet, Rect{ar.rect.row1 + r, ar.rect.col1 + c, ar.rect.row1 + r, ar.rect.col1 + c}}});
  }
  Grid g(a.ev(), table);
  return g.at(r, c);
}

Operand vh_lookup(Args& a, bool vertical) {
  Value key = lookup_key(a, 0);
  const Operand& table = a.get(1);
  if (table.is_value()) return error(cell_error::na);
  Grid g(a.ev(), table);
  double index = std::trunc(number(a, 2));
  bool approximate = a.missing(3) ? (a.size() > 3 ? false : true) : boolean(a, 3);
  if (index < 1) return error(cell_error::value);
  if (index > (vertical ? g.cols() : g.rows())) return error(cell_error::ref);
  // The search runs along the first column (or row): view it as a vector.
  Operand first;
  if (table.is_ref()) {
    Area ar = table.areas[0];
    if (vertical)
      ar.rect.col2 = ar.rect.col1;
    else
      ar.rect.row2 = ar.rect.row1;
    first = Operand::ref({ar});
  } else {
    const Matrix& m = *table.array;
    Matrix v(vertical ? m.rows : 1, vertical ? 1 : m.cols);
    for (int32_t k = 0; k < (vertical ? m.rows : m.cols); ++k)
      v.cells[k] = vertical ? m.at(k, 0) : m.at(0, k);
    first = Operand::arr(std::move(v));
  }
  Grid gf(a.ev(), first);
  int32_t n = vertical ? g.rows() : g.cols();
  int32_t pos = approximate ? find_sorted(gf, n, key) : find_exact(gf, n, key, true);
  if (pos < 0) return error(cell_error::na);
  int32_t k = static_cast<int32_t>(index) - 1;
  return vertical ? cell_of(a, table, pos, k) : cell_of(a, table, k, pos);
}
Operand f_vlookup(Args& a) {
  return vh_lookup(a, true);
}
Operand f_hlookup(Args& a) {
  return vh_lookup(a, false);
}

Operand f_match(Args& a) {
  Value key = lookup_key(a, 0);
  const Operand& where = a.get(1);
  Grid g(a.ev(), where);
  if (g.rows() != 1 && g.cols() != 1) return error(cell_error::na);
  double type = a.missing(2) ? 1 : std::trunc(number(a, 2));
  int32_t n = g.length();
  int32_t pos;
  if (type == 0)
    pos = find_exact(g, n, key, true);
  else if (type > 0)
    pos = find_sorted(g, n, key);
  else
    pos = find_sorted(g, n, key, true);
  if (pos < 0) return error(cell_error::na);
  return num(pos + 1);
}

Operand f_lookup(Args& a) {
  Value key = lookup_key(a, 0);
  const Operand& where = a.get(1);
  Grid g(a.ev(), where);
  if (a.size() >= 3) {
    Grid result(a.ev(), a.get(2));
    int32_t pos = find_sorted(g, g.length(), key);
    if (pos < 0) return error(cell_error::na);
    if (pos >= result.length()) return error(cell_error::na);
    if (a.get(2).is_ref()) {
      const Operand& r = a.get(2);
      return result.rows() == 1 ? cell_of(a, r, 0, pos) : cell_of(a, r, pos, 0);
    }
    return result.linear(pos);
  }
  // Array form: search the first row or column (whichever the shape favours), answer from
  // the last.
  bool by_rows = g.cols() > g.rows();
  Operand first;
  int32_t n = by_rows ? g.cols() : g.rows();
  Matrix v(by_rows ? 1 : n, by_rows ? n : 1);
  for (int32_t k = 0; k < n; ++k) v.cells[k] = by_rows ? g.at(0, k) : g.at(k, 0);
  first = Operand::arr(std::move(v));
  Grid gf(a.ev(), first);
  int32_t pos = find_sorted(gf, n, key);
  if (pos < 0) return error(cell_error::na);
  return by_rows ? cell_of(a, where, g.rows() - 1, pos) : cell_of(a, where, pos, g.cols() - 1);
}

Operand f_xlookup(Args& a) {
  Value key = lookup_key(a, 0);
  const Operand& where = a.get(1);
  const Operand& result = a.get(2);
  Grid g(a.ev(), where);
  if (g.rows() != 1 && g.cols() != 1) return error(cell_error::value);
  Grid gr(a.ev(), result);
  bool vertical = g.cols() == 1 && g.rows() > 1;
  if (vertical ? gr.rows() != g.rows() : gr.cols() != g.cols()) return error(cell_error::value);
  int mode = a.missing(4) ? 0 : static_cast<int>(std::trunc(number(a, 4)));
  int search = a.missing(5) ? 1 : static_cast<int>(std::trunc(number(a, 5)));
  int32_t n = g.length();
  int32_t pos = -1;
  if (search == 2 || search == -2) {
    pos = find_sorted(g, n, key, search == -2);
    if (pos >= 0 && mode == 0 && compare_values(g.linear(pos), key) != 0) pos = -1;
    if (mode == 1 && (pos < 0 || compare_values(g.linear(pos), key) != 0)) {
      pos = pos + 1 < n ? pos + 1 : -1;
    }
  } else {
    pos = find_exact(g, n, key, mode == 2, search == -1);
    if (pos < 0 && (mode == -1 || mode == 1)) {
      // The next smaller (or larger) value.
      int32_t best = -1;
      for (int32_t k = 0; k < std::min(n, g.used_length()); ++k) {
        Value v = g.linear(k);
        if (!same_kind(key, v)) continue;
        int c = compare_values(v, key);
        if ((mode == -1 && c < 0) || (mode == 1 && c > 0)) {
          if (best < 0)
            best = k;
          else {
            int cb = compare_values(v, g.linear(best));
            if ((mode == -1 && cb > 0) || (mode == 1 && cb < 0)) best = k;
          }
        }
      }
      pos = best;
    }
  }
  if (pos < 0) {
    if (!a.missing(3) && a.size() > 3) return a.get(3);
    return error(cell_error::na);
  }
  if (result.is_ref()) {
    Area ar = result.areas[0];
    if (vertical)
      ar.rect.row1 = ar.rect.row2 = ar.rect.row1 + pos;
    else
      ar.rect.col1 = ar.rect.col2 = ar.rect.col1 + pos;
    return Operand::ref({ar});
  }
  if (vertical) {
    Matrix m(1, gr.cols());
    for (int32_t c = 0; c < gr.cols(); ++c) m.at(0, c) = gr.at(pos, c);
    return m.cells.size() == 1 ? Operand(m.cells[0]) : Operand::arr(std::move(m));
  }
  Matrix m(gr.rows(), 1);
  for (int32_t r = 0; r < gr.rows(); ++r) m.at(r, 0) = gr.at(r, pos);
  return m.cells.size() == 1 ? Operand(m.cells[0]) : Operand::arr(std::move(m));
}

Operand f_xmatch(Args& a) {
  Value key = lookup_key(a, 0);
  Grid g(a.ev(), a.get(1));
  if (g.rows() != 1 && g.cols() != 1) return error(cell_error::value);
  int mode = a.missing(2) ? 0 : static_cast<int>(std::trunc(number(a, 2)));
  int search = a.missing(3) ? 1 : static_cast<int>(std::trunc(number(a, 3)));
  int32_t n = g.length();
  int32_t pos = find_exact(g, n, key, mode == 2, search == -1);
  if (pos < 0 && (mode == -1 || mode == 1)) {
    int32_t best = -1;
    for (int32_t k = 0; k < std::min(n, g.used_length()); ++k) {
      Value v = g.linear(k);
      if (!same_kind(key, v)) continue;
      int c = compare_values(v, key);
      if ((mode == -1 && c < 0) || (mode == 1 && c > 0)) {
        if (best < 0)
          best = k;
        else {
          int cb = compare_values(v, g.linear(best));
          if ((mode == -1 && cb > 0) || (mode == 1 && cb < 0)) best = k;
        }
      }
    }
    pos = best;
  }
  if (pos < 0) return error(cell_error::na);
  return num(pos + 1);
}

Operand f_index(Args& a) {
  const Operand& src = a.get(0);
  double row = a.missing(1) ? 0 : std::trunc(number(a, 1));
  double col = a.size() > 2 && !a.missing(2) ? std::trunc(number(a, 2)) : 0;
  double area = a.size() > 3 && !a.missing(3) ? std::trunc(number(a, 3)) : 1;
  if (row < 0 || col < 0 || area < 1) return error(cell_error::value);
  if (src.is_ref()) {
    if (area > static_cast<double>(src.areas.size())) return error(cell_error::ref);
    Area ar = src.areas[static_cast<size_t>(area) - 1];
    int32_t rows = ar.rows(), cols = ar.cols();
    // One index into a single row or column picks along it.
    if (a.size() == 2 || (a.size() >= 3 && a.missing(2) && false)) {
      if (rows == 1 && cols > 1) {
        col = row;
        row = 0;
        if (col == 0) return Operand::ref({ar});
      }
    }
    if (row > rows || col > cols) return error(cell_error::ref);
    Rect r = ar.rect;
    if (row > 0) r.row1 = r.row2 = ar.rect.row1 + static_cast<int32_t>(row) - 1;
    if (col > 0) r.col1 = r.col2 = ar.rect.col1 + static_cast<int32_t>(col) - 1;
    if (row == 0 && col == 0 && !(rows == 1 && cols == 1)) return Operand::ref({ar});
    return Operand::ref({Area{ar.sheet, r}});
  }
  Matrix m = a.ev().matrix(src);
  if (a.size() == 2 && m.rows == 1) {
    col = row;
    row = m.cols == 1 ? 1 : 0;
    if (m.cols == 1 && col > 1) return error(cell_error::ref);
  }
  if (row > m.rows || col > m.cols) return error(cell_error::ref);
  if (row > 0 && col > 0) return m.at(static_cast<int32_t>(row) - 1, static_cast<int32_t>(col) - 1);
  if (row > 0) {
    if (m.cols == 1) return m.at(static_cast<int32_t>(row) - 1, 0);
    Matrix out(1, m.cols);
    for (int32_t c = 0; c < m.cols; ++c) out.at(0, c) = m.at(static_cast<int32_t>(row) - 1, c);
    return Operand::arr(std::move(out));
  }
  if (col > 0) {
    if (m.rows == 1) return m.at(0, static_cast<int32_t>(col) - 1);
    Matrix out(m.rows, 1);
    for (int32_t r = 0; r < m.rows; ++r) out.at(r, 0) = m.at(r, static_cast<int32_t>(col) - 1);
    return Operand::arr(std::move(out));
  }
  return Operand::arr(std::move(m));
}

Operand f_offset(Args& a) {
  const Operand& base = a.get(0);
  if (!base.is_ref()) return error(cell_error::value);
  if (base.areas.size() != 1) return error(cell_error::value);
  const Area& ar = base.areas[0];
  double dr = std::trunc(number(a, 1)), dc = std::trunc(number(a, 2));
  double h = a.size() > 3 && !a.missing(3) ? std::trunc(number(a, 3)) : ar.rows();
  double w = a.size() > 4 && !a.missing(4) ? std::trunc(number(a, 4)) : ar.cols();
  if (h == 0 || w == 0) return error(cell_error::ref);
  double r1 = ar.rect.row1 + dr, c1 = ar.rect.col1 + dc;
  // A negative height or width extends up or left.
  double r2 = h > 0 ? r1 + h - 1 : r1, c2 = w > 0 ? c1 + w - 1 : c1;
  if (h < 0) r1 = r1 + h + 1;
  if (w < 0) c1 = c1 + w + 1;
  if (r1 < 0 || c1 < 0 || r2 >= kMaxRows || c2 >= kMaxCols) return error(cell_error::ref);
  return Operand::ref({Area{ar.sheet, Rect{static_cast<int32_t>(r1), static_cast<int32_t>(c1),
                                           static_cast<int32_t>(r2), static_cast<int32_t>(c2)}}});
}

Operand f_indirect(Args& a) {
  String ref = text(a, 0);
  bool a1 = boolean_or(a, 1, true);
  Evaluator& ev = a.ev();
  if (ref.empty()) return error(cell_error::ref);
  FormulaPtr f;
  try {
    f = parse(ref, a1 ? Notation::A1 : Notation::R1C1, ev.origin(), ev.sheet(), ev.ctx().sheets());
  } catch (const Error&) {
    return error(cell_error::ref);
  }
  // Only a reference (or a name of one, or a range of references) is acceptable.
  const Node& root = f->nodes[f->root()];
  bool ok = root.kind == NodeKind::Ref || root.kind == NodeKind::Name ||
            (root.kind == NodeKind::Binary && root.op == Op::Range);
  if (!ok) return error(cell_error::ref);
  Operand o = ev.eval(*f, f->root());
  if (!o.is_ref()) return error(cell_error::ref);
  return o;
}

Operand f_row(Args& a) {
  if (a.size() == 0 || a.missing(0)) return num(a.ev().origin().row + 1);
  const Operand& o = a.get(0);
  if (!o.is_ref()) return error(cell_error::value);
  const Area& ar = o.areas[0];
  if (a.ev().array_mode() && ar.rows() > 1) {
    Matrix m(ar.rows(), 1);
    for (int32_t r = 0; r < ar.rows(); ++r) m.at(r, 0) = Value::num(ar.rect.row1 + r + 1);
    return Operand::arr(std::move(m));
  }
  return num(ar.rect.row1 + 1);
}
Operand f_column(Args& a) {
  if (a.size() == 0 || a.missing(0)) return num(a.ev().origin().col + 1);
  const Operand& o = a.get(0);
  if (!o.is_ref()) return error(cell_error::value);
  const Area& ar = o.areas[0];
  if (a.ev().array_mode() && ar.cols() > 1) {
    Matrix m(1, ar.cols());
    for (int32_t c = 0; c < ar.cols(); ++c) m.at(0, c) = Value::num(ar.rect.col1 + c + 1);
    return Operand::arr(std::move(m));
  }
  return num(ar.rect.col1 + 1);
}
Operand f_rows(Args& a) {
  const Operand& o = a.get(0);
  if (o.is_ref()) {
    if (o.areas.size() != 1) return error(cell_error::ref);
    return num(o.areas[0].rows());
  }
  if (o.is_array()) return num(o.array->rows);
  return num(1);
}
Operand f_columns(Args& a) {
  const Operand& o = a.get(0);
  if (o.is_ref()) {
    if (o.areas.size() != 1) return error(cell_error::ref);
    return num(o.areas[0].cols());
  }
  if (o.is_array()) return num(o.array->cols);
  return num(1);
}
Operand f_areas(Args& a) {
  const Operand& o = a.get(0);
  if (!o.is_ref()) return error(cell_error::value);
  return num(static_cast<double>(o.areas.size()));
}

Operand f_address(Args& a) {
  double row = std::trunc(number(a, 0)), col = std::trunc(number(a, 1));
  int abs = a.size() > 2 && !a.missing(2) ? static_cast<int>(std::trunc(number(a, 2))) : 1;
  bool a1 = a.size() > 3 && !a.missing(3) ? boolean(a, 3) : true;
  if (abs < 1 || abs > 4) return error(cell_error::value);
  if (row < 1 || col < 1 || row > kMaxRows || col > kMaxCols) return error(cell_error::value);
  bool row_abs = abs == 1 || abs == 2, col_abs = abs == 1 || abs == 3;
  String out;
  auto num_text = [](double v) { return u16(std::to_string(static_cast<int64_t>(v))); };
  if (a1) {
    if (col_abs) out += u'$';
    out += column_letters(static_cast<int32_t>(col) - 1);
    if (row_abs) out += u'$';
    out += num_text(row);
  } else {
    out += u'R';
    out += row_abs ? num_text(row) : u"[" + num_text(row) + u"]";
    out += u'C';
    out += col_abs ? num_text(col) : u"[" + num_text(col) + u"]";
  }
  if (a.size() > 4 && !a.missing(4)) {
    String sheet = text(a, 4);
    if (!sheet.empty()) {
      // A book-qualified "[Book1]Sheet1" is written as given.
      size_t close = sheet.find(u']');
      StringView bare = sheet[0] == u'[' && close != String::npos
                            ? StringView(sheet).substr(close + 1)
                            : StringView(sheet);
      if (sheet_name_needs_quotes(bare)) {
        String q = u"'";
        for (char16_t c : sheet) {
          if (c == u'\'') q += u'\'';
          q += c;
        }
        sheet = q + u"'";
      }
      out = sheet + u"!" + out;
    }
  }
  return Value::str(out);
}

Operand f_transpose(Args& a) {
  Matrix m = a.ev().matrix(a.get_array(0));
  Matrix t(m.cols, m.rows);
  for (int32_t r = 0; r < m.rows; ++r)
    for (int32_t c = 0; c < m.cols; ++c) t.at(c, r) = m.at(r, c);
  return Operand::arr(std::move(t));
}

}  // namespace

void add_lookup_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"ADDRESS", 2, 5, f_address, each_arg},
                        {u"AREAS", 1, 1, f_areas},
                        {u"COLUMN", 0, 1, f_column},
                        {u"COLUMNS", 1, 1, f_columns},
                        {u"HLOOKUP", 3, 4, f_hlookup, each_arg_0},
                        {u"INDEX", 2, 4, f_index, each_arg_1_2},
                        {u"INDIRECT", 1, 2, f_indirect, whole_args, true},
                        {u"LOOKUP", 2, 3, f_lookup},
                        {u"MATCH", 2, 3, f_match, each_arg_0},
                        {u"OFFSET", 3, 5, f_offset, whole_args, true},
                        {u"ROW", 0, 1, f_row},
                        {u"ROWS", 1, 1, f_rows},
                        {u"TRANSPOSE", 1, 1, f_transpose},
                        {u"VLOOKUP", 3, 4, f_vlookup, each_arg_0},
                        {u"XLOOKUP", 3, 6, f_xlookup, each_arg_0},
                        {u"XMATCH", 2, 4, f_xmatch, each_arg_0},
                    });
}

}  // namespace qz::engine::calc
