// Functions that build or reshape arrays: SEQUENCE, RANDARRAY, the stacks (HSTACK, VSTACK),
// flattening (TOCOL, TOROW), wrapping (WRAPROWS, WRAPCOLS) and the cuts and choices (TAKE,
// DROP, EXPAND, CHOOSEROWS, CHOOSECOLS), and the ones that pick and order lines (SORT, SORTBY,
// FILTER, UNIQUE). Their results are arrays; where a cell shows one, it shows the top-left value.
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
  int32_t n = static_cast<int32_t>(picks.size());
  Matrix r = Rows ? Matrix(n, m.cols) : Matrix(m.rows, n);
  for (int32_t k = 0; k < n; ++k)
    for (int32_t j = 0; j < (Rows ? m.cols : m.rows); ++j)
      (Rows ? r.at(k, j) : r.at(j, k)) = Rows ? m.at(picks[k], j) : m.at(j, picks[k]);
  return result(std::move(r));
}

/// An argument evaluated array-wise: these functions read whole ranges and comparisons
/// (FILTER(A1:A9, B1:B9 > 2)) even in a formula that is not an array formula.
Matrix whole(Args& a, size_t i) {
  return a.ev().matrix(a.get_array(i));
}

/// Lines (rows, or columns when `by_col`) of a matrix, as the sorting and picking functions
/// move them.
struct Lines {
  const Matrix& m;
  bool by_col;
  int32_t count() const { return by_col ? m.cols : m.rows; }
  int32_t width() const { return by_col ? m.rows : m.cols; }
  const Value& at(int32_t line, int32_t k) const { return by_col ? m.at(k, line) : m.at(line, k); }
  /// A new matrix made of the chosen lines in order.
  Matrix pick(const std::vector<int32_t>& chosen) const {
    int32_t n = static_cast<int32_t>(chosen.size());
    Matrix r = by_col ? Matrix(width(), n) : Matrix(n, width());
    for (int32_t i = 0; i < n; ++i)
      for (int32_t k = 0; k < width(); ++k) (by_col ? r.at(k, i) : r.at(i, k)) = at(chosen[i], k);
    return r;
  }
};

/// The order the sorting functions put values in: numbers, text, Booleans, errors, and
/// empty cells last whichever the direction.
int sort_rank(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Number:
      return 0;
    case Value::Kind::Text:
      return 1;
    case Value::Kind::Boolean:
      return 2;
    case Value::Kind::Error:
      return 3;
    case Value::Kind::Empty:
      return 4;
  }
  return 4;
}

/// <0, 0, >0 as `a` sorts before, with or after `b` in the direction `order` (1 or -1).
int sort_compare(const Value& a, const Value& b, int order) {
  int ra = sort_rank(a), rb = sort_rank(b);
  if (ra == 4 || rb == 4) return ra - rb;
  if (ra != rb) return (ra - rb) * order;
  if (ra == 3) return 0;
  return compare_values(a, b) * order;
}

/// A sort direction argument: 1 ascending, -1 descending, anything else #VALUE!.
int sort_order(const Value& v) {
  double d = Evaluator::to_number(v);
  if (d != 1 && d != -1) raise(cell_error::value);
  return static_cast<int>(d);
}

/// The values of an argument in reading order, for SORT's list of keys and directions.
std::vector<Value> values_of(Args& a, size_t i) {
  std::vector<Value> out;
  a.ev().for_each(a.get(i), [&](const Value& v, bool) { out.push_back(v); });
  return out;
}

Operand f_sort(Args& a) {
  Matrix m = whole(a, 0);
  bool by_col = a.size() > 3 && !a.missing(3) && boolean(a, 3);
  Lines lines{m, by_col};
  std::vector<Value> index = a.size() > 1 && !a.missing(1) ? values_of(a, 1) : std::vector<Value>{};
  std::vector<Value> order = a.size() > 2 && !a.missing(2) ? values_of(a, 2) : std::vector<Value>{};
  if (index.empty()) index.push_back(Value::num(1));
  // One direction serves every key; otherwise there must be one per key.
  if (!order.empty() && order.size() != 1 && order.size() != index.size())
    return error(cell_error::value);
  std::vector<std::pair<int32_t, int>> keys;
  for (size_t k = 0; k < index.size(); ++k) {
    if (index[k].is_error()) return error(index[k].error_code());
    double at = std::trunc(Evaluator::to_number(index[k]));
    if (at < 1 || at > lines.width()) return error(cell_error::value);
    int dir = order.empty() ? 1 : sort_order(order[order.size() == 1 ? 0 : k]);
    keys.emplace_back(static_cast<int32_t>(at) - 1, dir);
  }
  std::vector<int32_t> chosen(static_cast<size_t>(lines.count()));
  for (int32_t i = 0; i < lines.count(); ++i) chosen[i] = i;
  std::stable_sort(chosen.begin(), chosen.end(), [&](int32_t x, int32_t y) {
    for (const auto& [at, dir] : keys) {
      int c = sort_compare(lines.at(x, at), lines.at(y, at), dir);
      if (c != 0) return c < 0;
    }
    return false;
  });
  return result(lines.pick(chosen));
}

Operand f_sortby(Args& a) {
  Matrix m = whole(a, 0);
  if (a.size() < 2) return error(cell_error::value);
  struct Key {
    Matrix by;
    int dir;
  };
  std::vector<Key> keys;
  std::optional<bool> by_col;
  for (size_t i = 1; i < a.size(); i += 2) {
    if (a.missing(i)) return error(cell_error::value);
    Matrix by = whole(a, i);
    // A key is one column as tall as the array (sorting rows) or one row as wide (columns).
    bool col = by.rows == 1 && by.cols == m.cols && !(by.cols == 1 && m.rows == 1);
    if (!col && !(by.cols == 1 && by.rows == m.rows)) return error(cell_error::value);
    if (by_col && *by_col != col) return error(cell_error::value);
    by_col = col;
    int dir = i + 1 < a.size() && !a.missing(i + 1) ? sort_order(scalar(a, i + 1)) : 1;
    keys.push_back({std::move(by), dir});
  }
  Lines lines{m, *by_col};
  std::vector<int32_t> chosen(static_cast<size_t>(lines.count()));
  for (int32_t i = 0; i < lines.count(); ++i) chosen[i] = i;
  std::stable_sort(chosen.begin(), chosen.end(), [&](int32_t x, int32_t y) {
    for (const Key& k : keys) {
      int c = sort_compare(k.by.cells[x], k.by.cells[y], k.dir);
      if (c != 0) return c < 0;
    }
    return false;
  });
  return result(lines.pick(chosen));
}

Operand f_filter(Args& a) {
  Matrix m = whole(a, 0);
  Matrix include = whole(a, 1);
  // The include array is one column as tall as the array (keeping rows) or one row as wide.
  // A single value filters only a single row or column, never one column of many rows.
  bool by_rows = include.cols == 1 && include.rows == m.rows;
  bool by_col =
      !by_rows && include.rows == 1 && include.cols == m.cols && (m.cols > 1 || m.rows == 1);
  if (!by_rows && !by_col) return error(cell_error::value);
  Lines lines{m, by_col};
  std::vector<int32_t> chosen;
  for (int32_t i = 0; i < lines.count(); ++i) {
    const Value& v = include.cells[i];
    if (v.is_error()) return error(v.error_code());
    if (v.kind == Value::Kind::Text) return error(cell_error::value);
    if (v.kind != Value::Kind::Empty && v.number != 0) chosen.push_back(i);
  }
  if (chosen.empty()) {
    if (a.size() > 2 && !a.missing(2)) return Operand(a.get(2));
    return error(kErrorCalc);
  }
  return result(lines.pick(chosen));
}

Operand f_unique(Args& a) {
  Matrix m = whole(a, 0);
  bool by_col = a.size() > 1 && !a.missing(1) && boolean(a, 1);
  bool exactly_once = a.size() > 2 && !a.missing(2) && boolean(a, 2);
  Lines lines{m, by_col};
  auto same = [&](int32_t x, int32_t y) {
    for (int32_t k = 0; k < lines.width(); ++k) {
      const Value &p = lines.at(x, k), &q = lines.at(y, k);
      if (p.kind != q.kind) return false;
      if (p.is_error() ? p.error_code() != q.error_code() : compare_values(p, q) != 0) return false;
    }
    return true;
  };
  // firsts: the first line of each distinct value; counts: how many lines carry it.
  std::vector<int32_t> firsts, counts;
  for (int32_t i = 0; i < lines.count(); ++i) {
    size_t k = 0;
    while (k < firsts.size() && !same(firsts[k], i)) ++k;
    if (k == firsts.size()) {
      firsts.push_back(i);
      counts.push_back(0);
    }
    ++counts[k];
  }
  std::vector<int32_t> chosen;
  for (size_t k = 0; k < firsts.size(); ++k)
    if (!exactly_once || counts[k] == 1) chosen.push_back(firsts[k]);
  if (chosen.empty()) return error(kErrorCalc);
  return result(lines.pick(chosen));
}

}  // namespace

void add_array_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"CHOOSECOLS", 2, -1, f_choose_lines<false>},
                        {u"CHOOSEROWS", 2, -1, f_choose_lines<true>},
                        {u"DROP", 2, 3, f_take_drop<false>},
                        {u"EXPAND", 2, 4, f_expand},
                        {u"FILTER", 2, 3, f_filter},
                        {u"HSTACK", 1, -1, f_stack<true>},
                        {u"RANDARRAY", 0, 5, f_randarray, whole_args, true},
                        {u"SEQUENCE", 1, 4, f_sequence},
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
