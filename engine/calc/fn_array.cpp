// Functions that build or reshape arrays: SEQUENCE, RANDARRAY, the stacks (HSTACK, VSTACK),
// flattening (TOCOL, TOROW), wrapping (WRAPROWS, WRAPCOLS) and the cuts and choices (TAKE,
// DROP, EXPAND, CHOOSEROWS, CHOOSECOLS). Their results are arrays; where a cell shows one,
// it shows the top-left value.
#include <algorithm>
#include <cmath>
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

}  // namespace

void add_array_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"CHOOSECOLS", 2, -1, f_choose_lines<false>},
                        {u"CHOOSEROWS", 2, -1, f_choose_lines<true>},
                        {u"DROP", 2, 3, f_take_drop<false>},
                        {u"EXPAND", 2, 4, f_expand},
                        {u"HSTACK", 1, -1, f_stack<true>},
                        {u"RANDARRAY", 0, 5, f_randarray, whole_args, true},
                        {u"SEQUENCE", 1, 4, f_sequence},
                        {u"TAKE", 2, 3, f_take_drop<true>},
                        {u"TOCOL", 1, 3, f_flatten<true>},
                        {u"TOROW", 1, 3, f_flatten<false>},
                        {u"VSTACK", 1, -1, f_stack<false>},
                        {u"WRAPCOLS", 2, 3, f_wrap<false>},
                        {u"WRAPROWS", 2, 3, f_wrap<true>},
                    });
}

}  // namespace qz::engine::calc
