// Functions that build or reshape arrays: SEQUENCE, RANDARRAY, the stacks (HSTACK, VSTACK),
// flattening (TOCOL, TOROW), wrapping (WRAPROWS, WRAPCOLS), the cuts and choices (TAKE,
// DROP, EXPAND, CHOOSEROWS, CHOOSECOLS) and the selections (FILTER, SORT, SORTBY, UNIQUE).
// Their results are arrays; where a cell shows one, it shows the top-left value.
#include <algorithm>
#include <cmath>
#include <optional>
#include <random>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

/// Arrays larger than this are refused rather than built.
constexpr double kMaxCells = 1e7;

Operand result(Matrix m) {
  if (m.cells.size() == 1) return Operand(m.cells[0]);
  return Operand::arr(std::move(m));
}

/// A dimension argument: truncated; 0 makes an empty array (#CALC!), a negative #VALUE!.
int32_t dimension(Args& a, size_t i, int32_t fallback) {
  if (i >= a.size() || a.missing(i)) return fallback;
  double d = integer(a, i);
  if (d < 0) raise(cell_error::value);
  if (d == 0) raise(kErrorCalc);
  if (d > kMaxRows) raise(cell_error::num);
  return static_cast<int32_t>(d);
}

Operand f_sequence(Args& a) {
  int32_t rows = dimension(a, 0, 1), cols = dimension(a, 1, 1);
  double start = number_or(a, 2, 1), step = number_or(a, 3, 1);
  if (static_cast<double>(rows) * cols > kMaxCells) return error(cell_error::num);
  Matrix m(rows, cols);
  for (size_t k = 0; k < m.cells.size(); ++k)
    m.cells[k] = Value::num(start + step * static_cast<double>(k));
  return result(std::move(m));
}

Operand f_randarray(Args& a) {
  static std::mt19937_64 rng{std::random_device{}()};
  int32_t rows = dimension(a, 0, 1), cols = dimension(a, 1, 1);
  double lo = number_or(a, 2, 0), hi = number_or(a, 3, 1);
  bool whole = a.size() > 4 && !a.missing(4) && boolean(a, 4);
  if (lo > hi) return error(cell_error::value);
  if (static_cast<double>(rows) * cols > kMaxCells) return error(cell_error::num);
  if (whole) {
    lo = std::ceil(lo);
    hi = std::floor(hi);
    if (lo > hi) return error(cell_error::value);
  }
  Matrix m(rows, cols);
  for (Value& v : m.cells) {
    if (whole) {
      std::uniform_int_distribution<int64_t> d(static_cast<int64_t>(lo), static_cast<int64_t>(hi));
      v = Value::num(static_cast<double>(d(rng)));
    } else {
      std::uniform_real_distribution<double> d(lo, hi);
      v = Value::num(lo == hi ? lo : d(rng));
    }
  }
  return result(std::move(m));
}

Matrix block(Args& a, size_t i) {
  return a.ev().matrix(a.get(i));
}

template <bool Horizontal>
Operand f_stack(Args& a) {
  std::vector<Matrix> parts;
  int32_t along = 0, across = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) raise(cell_error::value);
    parts.push_back(block(a, i));
    along += Horizontal ? parts.back().cols : parts.back().rows;
    across = std::max(across, Horizontal ? parts.back().rows : parts.back().cols);
  }
  Matrix m = Horizontal ? Matrix(across, along) : Matrix(along, across);
  for (Value& v : m.cells) v = Value::error(cell_error::na);
  int32_t at = 0;
  for (const Matrix& p : parts) {
    for (int32_t r = 0; r < p.rows; ++r)
      for (int32_t c = 0; c < p.cols; ++c)
        (Horizontal ? m.at(r, at + c) : m.at(at + r, c)) = p.at(r, c);
    at += Horizontal ? p.cols : p.rows;
  }
  return result(std::move(m));
}

template <bool Column>
Operand f_flatten(Args& a) {
  Matrix m = block(a, 0);
  double ignore = a.size() > 1 && !a.missing(1) ? integer(a, 1) : 0;
  bool by_column = a.size() > 2 && !a.missing(2) && boolean(a, 2);
  if (ignore < 0 || ignore > 3) return error(cell_error::value);
  bool skip_blank = ignore == 1 || ignore == 3, skip_error = ignore == 2 || ignore == 3;
  std::vector<Value> out;
  int32_t outer = by_column ? m.cols : m.rows, inner = by_column ? m.rows : m.cols;
  for (int32_t i = 0; i < outer; ++i)
    for (int32_t j = 0; j < inner; ++j) {
      const Value& v = by_column ? m.at(j, i) : m.at(i, j);
      if ((skip_blank && v.kind == Value::Kind::Empty) || (skip_error && v.is_error())) continue;
      out.push_back(v);
    }
  if (out.empty()) return error(kErrorCalc);
  int32_t n = static_cast<int32_t>(out.size());
  Matrix r = Column ? Matrix(n, 1) : Matrix(1, n);
  r.cells = std::move(out);
  return result(std::move(r));
}

template <bool Rows>
Operand f_wrap(Args& a) {
  Matrix m = block(a, 0);
  if (m.rows != 1 && m.cols != 1) return error(cell_error::value);
  double count = integer(a, 1);
  if (count < 1) return error(cell_error::num);
  Value pad = a.size() > 2 && !a.missing(2) ? scalar(a, 2) : Value::error(cell_error::na);
  int32_t n = static_cast<int32_t>(m.cells.size());
  int32_t w = static_cast<int32_t>(std::min<double>(count, n));
  int32_t other = (n + w - 1) / w;
  Matrix r = Rows ? Matrix(other, w) : Matrix(w, other);
  for (int32_t k = 0; k < other * w; ++k) {
    int32_t major = k / w, minor = k % w;
    (Rows ? r.at(major, minor) : r.at(minor, major)) = k < n ? m.cells[k] : pad;
  }
  return result(std::move(r));
}

/// The rows (or columns) TAKE keeps or DROP leaves: `count` from the start, or from the end
/// when negative.
std::pair<int32_t, int32_t> span(double count, int32_t size, bool take) {
  double n = std::min(std::fabs(count), static_cast<double>(size));
  int32_t k = static_cast<int32_t>(n);
  if (take) return count >= 0 ? std::make_pair(0, k) : std::make_pair(size - k, size);
  return count >= 0 ? std::make_pair(k, size) : std::make_pair(0, size - k);
}

template <bool Take>
Operand f_take_drop(Args& a) {
  Matrix m = block(a, 0);
  auto rows = std::make_pair(0, m.rows), cols = std::make_pair(0, m.cols);
  if (a.size() > 1 && !a.missing(1)) {
    double r = integer(a, 1);
    if (Take && r == 0) return error(kErrorCalc);
    rows = span(r, m.rows, Take);
  }
  if (a.size() > 2 && !a.missing(2)) {
    double c = integer(a, 2);
    if (Take && c == 0) return error(kErrorCalc);
    cols = span(c, m.cols, Take);
  }
  if (rows.second <= rows.first || cols.second <= cols.first) return error(kErrorCalc);
  Matrix r(rows.second - rows.first, cols.second - cols.first);
  for (int32_t i = 0; i < r.rows; ++i)
    for (int32_t j = 0; j < r.cols; ++j) r.at(i, j) = m.at(rows.first + i, cols.first + j);
  return result(std::move(r));
}

Operand f_expand(Args& a) {
  Matrix m = block(a, 0);
  double rows = a.size() > 1 && !a.missing(1) ? integer(a, 1) : m.rows;
  double cols = a.size() > 2 && !a.missing(2) ? integer(a, 2) : m.cols;
  Value pad = a.size() > 3 && !a.missing(3) ? scalar(a, 3) : Value::error(cell_error::na);
  if (rows < m.rows || cols < m.cols) return error(cell_error::value);
  if (rows * cols > kMaxCells) return error(cell_error::num);
  Matrix r(static_cast<int32_t>(rows), static_cast<int32_t>(cols));
  for (int32_t i = 0; i < r.rows; ++i)
    for (int32_t j = 0; j < r.cols; ++j) r.at(i, j) = i < m.rows && j < m.cols ? m.at(i, j) : pad;
  return result(std::move(r));
}

/// The rows (or columns) of `m` at the given 0-based positions, in that order.
Matrix pick_lines(const Matrix& m, const std::vector<int32_t>& lines, bool rows) {
  const int32_t n = static_cast<int32_t>(lines.size());
  Matrix r = rows ? Matrix(n, m.cols) : Matrix(m.rows, n);
  for (int32_t k = 0; k < n; ++k)
    for (int32_t j = 0; j < (rows ? m.cols : m.rows); ++j)
      (rows ? r.at(k, j) : r.at(j, k)) = rows ? m.at(lines[k], j) : m.at(j, lines[k]);
  return r;
}

template <bool Rows>
Operand f_choose_lines(Args& a) {
  Matrix m = block(a, 0);
  int32_t size = Rows ? m.rows : m.cols;
  std::vector<int32_t> picks;
  for (size_t i = 1; i < a.size(); ++i) {
    if (a.missing(i)) return error(cell_error::value);
    a.ev().for_each(a.get(i), [&](const Value& v, bool) {
      double k = std::trunc(Evaluator::to_number(v));
      if (k == 0 || std::fabs(k) > size) raise(cell_error::value);
      picks.push_back(k > 0 ? static_cast<int32_t>(k) - 1 : size + static_cast<int32_t>(k));
    });
  }
  return result(pick_lines(m, picks, Rows));
}

/// The block a FILTER, SORT or UNIQUE works on, read array-wise even in a plain cell formula:
/// those functions always see their arguments whole.
Matrix whole_block(Args& a, size_t i) {
  return a.ev().matrix(a.get_array(i));
}

/// Whether a FILTER condition keeps its line: numbers and Booleans by truth, an empty cell
/// as false; an error is the result, and text cannot say.
bool keeps(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Error:
      raise(v.error_code());
    case Value::Kind::Text:
      raise(cell_error::value);
    case Value::Kind::Empty:
      return false;
    default:
      return v.number != 0;
  }
}

Operand f_filter(Args& a) {
  Matrix m = whole_block(a, 0), include = whole_block(a, 1);
  // One condition per row (a column as tall as the block) or per column (a row as wide).
  bool by_rows = include.cols == 1 && include.rows == m.rows;
  bool by_cols = !by_rows && include.rows == 1 && include.cols == m.cols;
  if (!by_rows && !by_cols) return error(cell_error::value);
  std::vector<int32_t> kept;
  for (int32_t k = 0; k < (by_rows ? m.rows : m.cols); ++k)
    if (keeps(include.cells[static_cast<size_t>(k)])) kept.push_back(k);
  if (kept.empty()) {
    if (a.size() > 2 && !a.missing(2)) return a.get(2);
    return error(kErrorCalc);
  }
  return result(pick_lines(m, kept, by_rows));
}

/// Sorting order: numbers, text (without regard to case), FALSE before TRUE, errors; empty
/// cells go last whichever way the sort runs.
int sort_compare(const Value& x, const Value& y, bool descending) {
  using K = Value::Kind;
  bool xe = x.kind == K::Empty, ye = y.kind == K::Empty;
  if (xe || ye) return xe == ye ? 0 : xe ? 1 : -1;
  int c;
  if (x.is_error() || y.is_error())
    c = x.is_error() == y.is_error() ? 0 : x.is_error() ? 1 : -1;
  else
    c = compare_values(x, y);
  return descending ? -c : c;
}

/// A sort key: one line of values, read along the lines being sorted, and its direction.
struct SortKey {
  std::vector<Value> values;
  bool descending = false;
};

/// The lines of `m` (rows, or columns when `by_col`) in the order the keys give; ties keep
/// their order.
Matrix sorted(const Matrix& m, const std::vector<SortKey>& keys, bool by_col) {
  int32_t lines = by_col ? m.cols : m.rows;
  std::vector<int32_t> order(static_cast<size_t>(lines));
  for (int32_t k = 0; k < lines; ++k) order[k] = k;
  std::stable_sort(order.begin(), order.end(), [&](int32_t p, int32_t q) {
    for (const SortKey& key : keys)
      if (int c = sort_compare(key.values[p], key.values[q], key.descending)) return c < 0;
    return false;
  });
  Matrix r(m.rows, m.cols);
  for (int32_t k = 0; k < lines; ++k)
    for (int32_t j = 0; j < (by_col ? m.rows : m.cols); ++j)
      (by_col ? r.at(j, k) : r.at(k, j)) = by_col ? m.at(j, order[k]) : m.at(order[k], j);
  return r;
}

/// A direction argument: 1 ascending, -1 descending, anything else #VALUE!.
bool descending(const Value& v) {
  double d = Evaluator::to_number(v);
  if (d != 1 && d != -1) raise(cell_error::value);
  return d == -1;
}

Operand f_sort(Args& a) {
  Matrix m = whole_block(a, 0);
  bool by_col = a.size() > 3 && !a.missing(3) && boolean(a, 3);
  int32_t lines = by_col ? m.cols : m.rows, across = by_col ? m.rows : m.cols;
  std::vector<Value> indexes{Value::num(1)}, orders{Value::num(1)};
  if (a.size() > 1 && !a.missing(1)) indexes = whole_block(a, 1).cells;
  if (a.size() > 2 && !a.missing(2)) orders = whole_block(a, 2).cells;
  // Several indexes sort by each in turn, each with its own direction (or the one given).
  if (orders.size() != 1 && orders.size() != indexes.size()) return error(cell_error::value);
  std::vector<SortKey> keys;
  for (size_t i = 0; i < indexes.size(); ++i) {
    double k = std::trunc(Evaluator::to_number(indexes[i]));
    if (k < 1 || k > across) return error(cell_error::value);
    SortKey key;
    key.descending = descending(orders[orders.size() == 1 ? 0 : i]);
    for (int32_t l = 0; l < lines; ++l)
      key.values.push_back(by_col ? m.at(static_cast<int32_t>(k) - 1, l)
                                  : m.at(l, static_cast<int32_t>(k) - 1));
    keys.push_back(std::move(key));
  }
  return result(sorted(m, keys, by_col));
}

Operand f_sortby(Args& a) {
  Matrix m = whole_block(a, 0);
  if (a.size() < 2) return error(cell_error::value);
  std::vector<SortKey> keys;
  std::optional<bool> by_col;
  for (size_t i = 1; i < a.size(); i += 2) {
    if (a.missing(i)) return error(cell_error::value);
    Matrix by = whole_block(a, i);
    // Each key is one column as tall as the block (sorting rows) or one row as wide
    // (sorting columns), and all keys sort the same way.
    bool rows = by.cols == 1 && by.rows == m.rows;
    bool cols = !rows && by.rows == 1 && by.cols == m.cols;
    if (!rows && !cols) return error(cell_error::value);
    if (m.rows == 1 && m.cols == 1) rows = true;
    if (by_col && *by_col != cols) return error(cell_error::value);
    by_col = cols;
    SortKey key;
    key.values = std::move(by.cells);
    if (i + 1 < a.size() && !a.missing(i + 1)) key.descending = descending(scalar(a, i + 1));
    keys.push_back(std::move(key));
  }
  return result(sorted(m, keys, *by_col));
}

Operand f_unique(Args& a) {
  Matrix m = whole_block(a, 0);
  bool by_col = a.size() > 1 && !a.missing(1) && boolean(a, 1);
  bool exactly_once = a.size() > 2 && !a.missing(2) && boolean(a, 2);
  int32_t lines = by_col ? m.cols : m.rows, across = by_col ? m.rows : m.cols;
  auto at = [&](int32_t line, int32_t j) -> const Value& {
    return by_col ? m.at(j, line) : m.at(line, j);
  };
  // Lines are equal when every value is, text without regard to case; an empty cell matches
  // only another empty cell.
  auto same = [&](int32_t p, int32_t q) {
    for (int32_t j = 0; j < across; ++j) {
      const Value &x = at(p, j), &y = at(q, j);
      if (x.kind != y.kind) return false;
      if (x.is_error() ? x.error_code() != y.error_code() : compare_values(x, y) != 0) return false;
    }
    return true;
  };
  std::vector<int32_t> firsts, counts;
  for (int32_t l = 0; l < lines; ++l) {
    size_t k = 0;
    while (k < firsts.size() && !same(firsts[k], l)) ++k;
    if (k == firsts.size()) {
      firsts.push_back(l);
      counts.push_back(0);
    }
    ++counts[k];
  }
  std::vector<int32_t> kept;
  for (size_t k = 0; k < firsts.size(); ++k)
    if (!exactly_once || counts[k] == 1) kept.push_back(firsts[k]);
  if (kept.empty()) return error(kErrorCalc);
  int32_t n = static_cast<int32_t>(kept.size());
  Matrix r = by_col ? Matrix(across, n) : Matrix(n, across);
  for (int32_t k = 0; k < n; ++k)
    for (int32_t j = 0; j < across; ++j) (by_col ? r.at(j, k) : r.at(k, j)) = at(kept[k], j);
  return result(std::move(r));
}

/// "A1#" as files write it: the block the anchor spilled into.
Operand f_anchorarray(Args& a) {
  const Operand& anchor = a.get(0);
  if (!anchor.is_ref() || anchor.areas.size() != 1 || !anchor.areas[0].single())
    return error(cell_error::ref);
  const Area& at = anchor.areas[0];
  if (auto block = a.ev().ctx().spill_area(at.sheet, CellRef{at.rect.row1, at.rect.col1}))
    return Operand::ref({Area{at.sheet, *block}});
  return anchor;
}

/// "@x" as files write it: one value, by implicit intersection for a range and the first
/// value of an array.
Operand f_single(Args& a) {
  return a.ev().scalar(a.get(0));
}

}  // namespace

void add_array_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"ANCHORARRAY", 1, 1, f_anchorarray},
                        {u"CHOOSECOLS", 2, -1, f_choose_lines<false>},
                        {u"CHOOSEROWS", 2, -1, f_choose_lines<true>},
                        {u"DROP", 2, 3, f_take_drop<false>},
                        {u"EXPAND", 2, 4, f_expand},
                        {u"FILTER", 2, 3, f_filter},
                        {u"HSTACK", 1, -1, f_stack<true>},
                        {u"RANDARRAY", 0, 5, f_randarray, whole_args, true},
                        {u"SEQUENCE", 1, 4, f_sequence},
                        {u"SINGLE", 1, 1, f_single},
                        {u"SORT", 1, 4, f_sort},
                        {u"SORTBY", 2, -1, f_sortby},
                        {u"TAKE", 2, 3, f_take_drop<true>},
                        {u"TOCOL", 1, 3, f_flatten<true>},
                        {u"TOROW", 1, 3, f_flatten<false>},
                        {u"UNIQUE", 1, 3, f_unique},
                        {u"VSTACK", 1, -1, f_stack<false>},
                        {u"WRAPCOLS", 2, 3, f_wrap<false>},
                        {u"WRAPROWS", 2, 3, f_wrap<true>},
                    });
}

}  // namespace qz::engine::calc
