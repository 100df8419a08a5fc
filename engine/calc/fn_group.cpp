// Summaries of a table by its fields: GROUPBY and PIVOTBY, PERCENTOF (the share a part has
// of a whole, which they also take as their function), and TRIMRANGE, which cuts the empty
// rows and columns off the edges of a range.
#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <optional>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

Operand result(Matrix m) {
  if (m.cells.size() == 1) return Operand(m.cells[0]);
  return Operand::arr(std::move(m));
}

// ---- PERCENTOF ----------------------------------------------------------------------------

double total(Args& a, size_t i) {
  double s = 0;
  each_number(a, i, [&](double d) { s += d; });
  return s;
}

Operand f_percentof(Args& a) {
  double part = total(a, 0), whole = total(a, 1);
  if (whole == 0) return error(cell_error::div0);
  return num(part / whole);
}

// ---- TRIMRANGE ---------------------------------------------------------------------------

/// Which ends to trim: 0 none, 1 the leading, 2 the trailing, 3 both (the default).
int ends(Args& a, size_t i) {
  if (i >= a.size() || a.missing(i)) return 3;
  double d = integer(a, i);
  if (d < 0 || d > 3) raise(cell_error::value);
  return static_cast<int>(d);
}

Operand f_trimrange(Args& a) {
  int rows = ends(a, 1), cols = ends(a, 2);
  const Operand& o = a.get(0);
  Evaluator& ev = a.ev();
  // The bounds of what is not empty, in the block's own coordinates.
  int32_t r1 = INT32_MAX, r2 = -1, c1 = INT32_MAX, c2 = -1;
  auto see = [&](int32_t r, int32_t c) {
    r1 = std::min(r1, r), r2 = std::max(r2, r), c1 = std::min(c1, c), c2 = std::max(c2, c);
  };
  int32_t height, width;
  Matrix m;
  if (o.is_ref()) {
    if (o.areas.size() != 1) return error(cell_error::value);
    const Area& ar = o.areas[0];
    height = ar.rows(), width = ar.cols();
    if (auto c = ev.clip(ar))
      ev.ctx().for_each_value(c->sheet, c->rect, [&](CellRef at, const Value& v) {
        if (v.kind != Value::Kind::Empty) see(at.row - ar.rect.row1, at.col - ar.rect.col1);
      });
  } else {
    m = ev.matrix(o);
    height = m.rows, width = m.cols;
    for (int32_t r = 0; r < m.rows; ++r)
      for (int32_t c = 0; c < m.cols; ++c)
        if (m.at(r, c).kind != Value::Kind::Empty) see(r, c);
  }
  // Nothing at all is left: there is no reference (or array) of no cells.
  if (r2 < 0) return error(o.is_ref() ? cell_error::ref : kErrorCalc);
  int32_t top = rows & 1 ? r1 : 0, bottom = rows & 2 ? r2 : height - 1;
  int32_t left = cols & 1 ? c1 : 0, right = cols & 2 ? c2 : width - 1;
  if (o.is_ref()) {
    Area ar = o.areas[0];
    int32_t row0 = ar.rect.row1, col0 = ar.rect.col1;
    ar.rect.row1 = row0 + top, ar.rect.row2 = row0 + bottom;
    ar.rect.col1 = col0 + left, ar.rect.col2 = col0 + right;
    return Operand::ref({ar});
  }
  Matrix r(bottom - top + 1, right - left + 1);
  for (int32_t i = 0; i < r.rows; ++i)
    for (int32_t j = 0; j < r.cols; ++j) r.at(i, j) = m.at(top + i, left + j);
  return result(std::move(r));
}

// ---- GROUPBY and PIVOTBY -------------------------------------------------------------------

/// Orders keys as a sort does: numbers, text without regard to case, Booleans, errors;
/// empty last.
int key_compare(const Value& x, const Value& y) {
  using K = Value::Kind;
  bool xe = x.kind == K::Empty, ye = y.kind == K::Empty;
  if (xe || ye) return xe == ye ? 0 : xe ? 1 : -1;
  if (x.is_error() || y.is_error()) {
    if (x.is_error() != y.is_error()) return x.is_error() ? 1 : -1;
    return x.error_code() - y.error_code();
  }
  return compare_values(x, y);
}

using Key = std::vector<Value>;
struct KeyLess {
  bool operator()(const Key& a, const Key& b) const {
    for (size_t k = 0; k < a.size(); ++k)
      if (int c = key_compare(a[k], b[k])) return c < 0;
    return false;
  }
};

/// One line of the summary: a group (its full key), a subtotal (the first `level` parts of
/// the key) or the grand total (level 0), with the source rows it gathers.
struct Line {
  Key key;
  size_t level = 0;
  std::vector<int32_t> rows;
};

/// How the headers are read and shown.
struct HeaderMode {
  bool has = false, show = false;
};

HeaderMode header_mode(Args& a, size_t i, const Matrix& values, bool many_levels) {
  HeaderMode h;
  if (i >= a.size() || a.missing(i)) {
    // Automatic: a text above a number reads as a header; shown for several levels.
    h.has = values.rows > 1 && values.at(0, 0).kind == Value::Kind::Text &&
            values.at(1, 0).kind == Value::Kind::Number;
    h.show = h.has && many_levels;
    return h;
  }
  double d = integer(a, i);
  if (d < 0 || d > 3) raise(cell_error::value);
  h.has = d == 1 || d == 3;
  h.show = d == 2 || d == 3;
  return h;
}

/// The depth of totals: 0 none, 1 the grand total, 2 with subtotals; negative puts them
/// above what they total. Missing means as many as there are levels for.
int total_depth(Args& a, size_t i) {
  if (i >= a.size() || a.missing(i)) return 2;
  double d = integer(a, i);
  if (std::fabs(d) > 64) raise(cell_error::value);
  return static_cast<int>(d);
}

/// The lines of one axis: the groups of `keys` over the rows that count, ordered by
/// `order` (column numbers counted from 1, negative descending; beyond the keys they ask
/// `measure` for the group's value), with subtotals and the grand total as `depth` asks.
std::vector<Line> lines(const Matrix& keys, const std::vector<int32_t>& rows, int depth,
                        const std::vector<double>& order, bool hierarchy,
                        const std::function<Value(const std::vector<int32_t>&, int)>& measure) {
  size_t width = static_cast<size_t>(keys.cols);
  std::map<Key, std::vector<int32_t>, KeyLess> groups;
  for (int32_t r : rows) {
    Key k(width);
    for (size_t c = 0; c < width; ++c) k[c] = keys.at(r, static_cast<int32_t>(c));
    groups[k].push_back(r);
  }
  std::vector<Line> leaves;
  for (auto& [k, rs] : groups) leaves.push_back({k, width, rs});
  if (!order.empty()) {
    std::vector<std::vector<Value>> by(leaves.size());
    for (size_t l = 0; l < leaves.size(); ++l)
      for (double o : order) {
        int col = static_cast<int>(std::fabs(o));
        by[l].push_back(col <= static_cast<int>(width) ? leaves[l].key[col - 1]
                                                       : measure(leaves[l].rows, col - 1 - width));
      }
    std::vector<size_t> idx(leaves.size());
    for (size_t l = 0; l < idx.size(); ++l) idx[l] = l;
    std::stable_sort(idx.begin(), idx.end(), [&](size_t p, size_t q) {
      for (size_t k = 0; k < order.size(); ++k)
        if (int c = key_compare(by[p][k], by[q][k])) return order[k] < 0 ? c > 0 : c < 0;
      return false;
    });
    std::vector<Line> sorted;
    for (size_t l : idx) sorted.push_back(std::move(leaves[l]));
    leaves = std::move(sorted);
  }
  // Subtotals of each level above the groups, when the keys form a hierarchy: the groups
  // gather under their parents in the order the parents first appear.
  std::vector<Line> out;
  bool subtotals = std::abs(depth) >= 2 && hierarchy && width > 1;
  bool above = depth < 0;
  std::function<void(std::vector<Line>, size_t)> nest = [&](std::vector<Line> ls, size_t level) {
    if (level + 1 >= width || !subtotals) {
      for (Line& l : ls) out.push_back(std::move(l));
      return;
    }
    std::vector<Key> parents;
    std::map<Key, std::vector<Line>, KeyLess> children;
    for (Line& l : ls) {
      Key p(l.key.begin(), l.key.begin() + static_cast<std::ptrdiff_t>(level + 1));
      if (!children.count(p)) parents.push_back(p);
      children[p].push_back(std::move(l));
    }
    for (const Key& p : parents) {
      Line sub;
      sub.key = p;
      sub.key.resize(width, Value::str(u""));
      sub.level = level + 1;
      for (const Line& c : children[p])
        sub.rows.insert(sub.rows.end(), c.rows.begin(), c.rows.end());
      std::sort(sub.rows.begin(), sub.rows.end());
      if (above) out.push_back(sub);
      nest(std::move(children[p]), level + 1);
      if (!above) out.push_back(sub);
    }
  };
  nest(std::move(leaves), 0);
  if (depth != 0) {
    Line grand;
    grand.key.resize(width, Value::str(u""));
    grand.key[0] = Value::str(u"Total");
    grand.level = 0;
    grand.rows = rows;
    if (above)
      out.insert(out.begin(), std::move(grand));
    else
      out.push_back(std::move(grand));
  }
  return out;
}

/// Sort order argument: column numbers, negative for descending; 0 or past the columns
/// is #VALUE!.
std::vector<double> sort_order(Args& a, size_t i, int columns) {
  std::vector<double> out;
  if (i >= a.size() || a.missing(i)) return out;
  for (const Value& v : a.ev().matrix(a.get_array(i)).cells) {
    double d = std::trunc(Evaluator::to_number(v));
    if (d == 0 || std::fabs(d) > columns) raise(cell_error::value);
    out.push_back(d);
  }
  return out;
}

/// The function that sums up a group: a LAMBDA or a built-in passed by name. Functions of
/// two arguments (PERCENTOF) get the group's values and all the values of the column.
class Summary {
 public:
  Summary(Args& a, size_t i) : ev_(a.ev()) {
    const Operand& o = a.get(i);
    const Node& n = a.node(i);
    // A function's name typed alone (files write "_xleta.SUM") is the function, when no
    // name of the workbook has it.
    bool undefined = o.is_value() && o.value.is_error() && o.value.error_code() == cell_error::name;
    int32_t id = undefined && n.kind == NodeKind::Name && n.ref == kNoRef
                     ? find_function(upper_text(a.formula().text(n.str)))
                     : -1;
    if (o.is_lambda()) {
      fn_ = o.lambda;
    } else if (id >= 0) {
      auto l = std::make_shared<Lambda>();
      l->builtin = id;
      fn_ = std::move(l);
    } else {
      if (o.is_value() && o.value.is_error()) raise(o.value.error_code());
      raise(cell_error::value);
    }
    pair_ =
        fn_->builtin >= 0 ? fn_->builtin == find_function(u"PERCENTOF") : fn_->params.size() == 2;
  }
  Value of(const Matrix& values, int32_t col, const std::vector<int32_t>& rows,
           const std::vector<int32_t>& all) const {
    auto column = [&](const std::vector<int32_t>& rs) {
      Matrix m(static_cast<int32_t>(rs.size()), 1);
      for (size_t k = 0; k < rs.size(); ++k) m.cells[k] = values.at(rs[k], col);
      return Operand::arr(std::move(m));
    };
    std::vector<Operand> args{column(rows)};
    if (pair_) args.push_back(column(all));
    Operand o = ev_.invoke(*fn_, std::move(args));
    if (o.is_array())
      return o.array->cells.size() == 1 ? o.array->cells[0] : Value::error(kErrorCalc);
    if (o.is_lambda()) return Value::error(kErrorCalc);
    return ev_.scalar(o);
  }

 private:
  Evaluator& ev_;
  std::shared_ptr<const Lambda> fn_;
  bool pair_ = false;
};

/// The rows that count: all of them, or those the filter keeps (one value per row).
std::vector<int32_t> kept_rows(Args& a, size_t i, int32_t first, int32_t count) {
  std::vector<int32_t> rows;
  Matrix keep;
  bool filtered = i < a.size() && !a.missing(i);
  if (filtered) {
    keep = a.ev().matrix(a.get_array(i));
    if (keep.cols != 1 || keep.rows != first + count) raise(cell_error::value);
  }
  for (int32_t r = 0; r < count; ++r) {
    if (filtered) {
      const Value& v = keep.at(first + r, 0);
      if (v.is_error()) raise(v.error_code());
      if (v.kind == Value::Kind::Text) raise(cell_error::value);
      if (v.kind == Value::Kind::Empty || v.number == 0) continue;
    }
    rows.push_back(r);
  }
  return rows;
}

/// A block without its first `skip` rows.
Matrix body(const Matrix& m, int32_t skip) {
  Matrix r(m.rows - skip, m.cols);
  std::copy(m.cells.begin() + static_cast<std::ptrdiff_t>(skip) * m.cols, m.cells.end(),
            r.cells.begin());
  return r;
}

std::vector<Value> header_names(const Matrix& m, bool has, const char16_t* generated) {
  std::vector<Value> out;
  for (int32_t c = 0; c < m.cols; ++c)
    out.push_back(has ? m.at(0, c) : Value::str(String(generated) + u" " + number_to_text(c + 1)));
  return out;
}

/// A key as the summary shows it: an empty cell stays blank.
Value shown(const Value& v) {
  return v.kind == Value::Kind::Empty ? Value::str(u"") : v;
}

Operand f_groupby(Args& a) {
  Evaluator& ev = a.ev();
  Matrix fields = ev.matrix(a.get_array(0)), values = ev.matrix(a.get_array(1));
  if (fields.rows != values.rows) return error(cell_error::value);
  Summary fn(a, 2);
  HeaderMode h = header_mode(a, 3, values, fields.cols > 1);
  int depth = total_depth(a, 4);
  bool hierarchy = a.size() <= 7 || a.missing(7) || integer(a, 7) == 0;
  int32_t skip = h.has ? 1 : 0;
  if (fields.rows <= skip) return error(kErrorCalc);
  std::vector<Value> names = header_names(fields, h.has, u"Row Field");
  for (const Value& v : header_names(values, h.has, u"Value")) names.push_back(v);
  std::vector<double> order = sort_order(a, 5, fields.cols + values.cols);
  Matrix keys = body(fields, skip), data = body(values, skip);
  std::vector<int32_t> rows = kept_rows(a, 6, skip, keys.rows);
  if (rows.empty()) return error(kErrorCalc);
  auto measure = [&](const std::vector<int32_t>& rs, int col) {
    return fn.of(data, col, rs, rows);
  };
  std::vector<Line> ls = lines(keys, rows, depth, order, hierarchy, measure);
  int32_t top = h.show ? 1 : 0;
  Matrix out(top + static_cast<int32_t>(ls.size()), keys.cols + data.cols);
  if (h.show)
    for (int32_t c = 0; c < out.cols; ++c) out.at(0, c) = names[c];
  for (size_t l = 0; l < ls.size(); ++l) {
    int32_t r = top + static_cast<int32_t>(l);
    for (int32_t c = 0; c < keys.cols; ++c) out.at(r, c) = shown(ls[l].key[c]);
    for (int32_t c = 0; c < data.cols; ++c)
      out.at(r, keys.cols + c) = fn.of(data, c, ls[l].rows, rows);
  }
  return result(std::move(out));
}

/// The rows both lines gather (both sorted).
std::vector<int32_t> common(const std::vector<int32_t>& x, const std::vector<int32_t>& y) {
  std::vector<int32_t> out;
  std::set_intersection(x.begin(), x.end(), y.begin(), y.end(), std::back_inserter(out));
  return out;
}

Operand f_pivotby(Args& a) {
  Evaluator& ev = a.ev();
  Matrix rf = ev.matrix(a.get_array(0)), cf = ev.matrix(a.get_array(1));
  Matrix values = ev.matrix(a.get_array(2));
  if (rf.rows != values.rows || cf.rows != values.rows) return error(cell_error::value);
  Summary fn(a, 3);
  HeaderMode h = header_mode(a, 4, values, rf.cols > 1 || cf.cols > 1);
  int row_depth = total_depth(a, 5), col_depth = total_depth(a, 7);
  int32_t skip = h.has ? 1 : 0;
  if (rf.rows <= skip) return error(kErrorCalc);
  std::vector<double> row_order = sort_order(a, 6, rf.cols + 1);
  std::vector<double> col_order = sort_order(a, 8, cf.cols + 1);
  Matrix rkeys = body(rf, skip), ckeys = body(cf, skip), data = body(values, skip);
  std::vector<int32_t> rows = kept_rows(a, 9, skip, rkeys.rows);
  if (rows.empty()) return error(kErrorCalc);
  // Sorting by the value column orders lines by their total over the other axis.
  auto measure = [&](const std::vector<int32_t>& rs, int) { return fn.of(data, 0, rs, rows); };
  std::vector<Line> down = lines(rkeys, rows, row_depth, row_order, true, measure);
  std::vector<Line> across = lines(ckeys, rows, col_depth, col_order, true, measure);
  // Above the body: a row per column field, then the value names when there are several;
  // left of it a column per row field.
  int32_t vcols = data.cols;
  int32_t head = ckeys.cols + (vcols > 1 ? 1 : 0) + (h.show ? 1 : 0);
  int32_t left = rkeys.cols;
  Matrix out(head + static_cast<int32_t>(down.size()),
             left + static_cast<int32_t>(across.size()) * vcols);
  // The places nothing is shown in are empty text, as blank as a spill can be.
  for (Value& v : out.cells) v = Value::str(u"");
  std::vector<Value> rnames = header_names(rf, h.has, u"Row Field");
  std::vector<Value> cnames = header_names(cf, h.has, u"Col Field");
  std::vector<Value> vnames = header_names(values, h.has, u"Value");
  int32_t key_row0 = h.show ? 1 : 0;
  if (h.show) {
    for (int32_t c = 0; c < cf.cols && c < out.cols; ++c) out.at(0, left + c) = cnames[c];
    for (int32_t c = 0; c < left; ++c) out.at(head - 1, c) = rnames[c];
  }
  for (size_t j = 0; j < across.size(); ++j) {
    int32_t col = left + static_cast<int32_t>(j) * vcols;
    for (int32_t k = 0; k < ckeys.cols; ++k) out.at(key_row0 + k, col) = shown(across[j].key[k]);
    if (vcols > 1)
      for (int32_t v = 0; v < vcols; ++v) out.at(key_row0 + ckeys.cols, col + v) = vnames[v];
  }
  for (size_t i = 0; i < down.size(); ++i) {
    int32_t r = head + static_cast<int32_t>(i);
    for (int32_t k = 0; k < left; ++k) out.at(r, k) = shown(down[i].key[k]);
    for (size_t j = 0; j < across.size(); ++j) {
      std::vector<int32_t> both = common(down[i].rows, across[j].rows);
      // A crossing with no rows stays empty.
      if (both.empty()) continue;
      for (int32_t v = 0; v < vcols; ++v)
        out.at(r, left + static_cast<int32_t>(j) * vcols + v) = fn.of(data, v, both, rows);
    }
  }
  return result(std::move(out));
}

}  // namespace

void add_group_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"GROUPBY", 3, 8, f_groupby},
                        {u"PERCENTOF", 2, 2, f_percentof},
                        {u"PIVOTBY", 4, 11, f_pivotby},
                        {u"TRIMRANGE", 1, 3, f_trimrange},
                    });
}

}  // namespace qz::engine::calc
