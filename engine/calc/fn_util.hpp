// Helpers the function families share: argument conversion and the rules by which
// aggregates read their arguments. Internal to the calc component.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "engine/calc/eval.hpp"

namespace qz::engine::calc::fn {

inline double number(Args& a, size_t i) {
  return a.ev().number(a.get(i));
}
inline double number_or(Args& a, size_t i, double fallback) {
  return a.missing(i) ? fallback : number(a, i);
}
inline String text(Args& a, size_t i) {
  return a.ev().text(a.get(i));
}
inline bool boolean(Args& a, size_t i) {
  return a.ev().boolean(a.get(i));
}
inline bool boolean_or(Args& a, size_t i, bool fallback) {
  return a.missing(i) ? fallback : boolean(a, i);
}
/// A whole-number argument, truncated toward zero as the application does.
inline double integer(Args& a, size_t i) {
  return std::trunc(number(a, i));
}
inline Value scalar(Args& a, size_t i) {
  return a.ev().scalar(a.get(i));
}

/// How an aggregate reads a value that came straight from an argument (not a range):
/// numbers and Booleans count, text must read as a number, errors propagate.
inline double direct_number(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Number:
      return v.number;
    case Value::Kind::Boolean:
      return v.number;
    case Value::Kind::Empty:
      return 0;
    case Value::Kind::Error:
      raise(v.error_code());
    case Value::Kind::Text:
      return Evaluator::to_number(v);
  }
  return 0;
}

/// The numbers of argument i as SUM, AVERAGE, MIN and friends read them: from ranges and
/// arrays only numbers (text, Booleans and empty cells are skipped); typed directly,
/// Booleans and number-like text count too. Errors anywhere propagate.
template <class F>
void each_number(Args& a, size_t i, F&& f) {
  if (a.missing(i)) {
    f(0.0);
    return;
  }
  const Operand& o = a.get(i);
  if (o.is_value()) {
    f(direct_number(o.value));
    return;
  }
  a.ev().for_each(o, [&](const Value& v, bool) {
    if (v.kind == Value::Kind::Number)
      f(v.number);
    else if (v.kind == Value::Kind::Error)
      raise(v.error_code());
  });
}

template <class F>
void each_number_all(Args& a, F&& f) {
  for (size_t i = 0; i < a.size(); ++i) each_number(a, i, f);
}

inline std::vector<double> numbers_of(Args& a, size_t from = 0, size_t to = SIZE_MAX) {
  std::vector<double> out;
  for (size_t i = from; i < a.size() && i < to; ++i)
    each_number(a, i, [&](double d) { out.push_back(d); });
  return out;
}

/// A rectangular view of an operand for positional functions (INDEX, lookups, criteria):
/// references are read cell by cell on demand, clipped to the sheet's used cells.
class Grid {
 public:
  Grid(Evaluator& ev, const Operand& o) : ev_(ev) {
    if (o.is_ref()) {
      if (o.areas.size() != 1) raise(cell_error::value);
      area_ = o.areas[0];
      rows_ = area_.rows();
      cols_ = area_.cols();
      // Whole columns and rows read only as far as the used cells.
      auto c = ev.clip(area_);
      used_rows_ = c ? c->rect.row2 - area_.rect.row1 + 1 : 0;
      used_cols_ = c ? c->rect.col2 - area_.rect.col1 + 1 : 0;
      is_ref_ = true;
    } else if (o.is_array()) {
      m_ = o.array;
      rows_ = used_rows_ = m_->rows;
      cols_ = used_cols_ = m_->cols;
    } else {
      auto m = std::make_shared<Matrix>(1, 1);
      m->cells[0] = o.value;
      m_ = m;
      rows_ = cols_ = used_rows_ = used_cols_ = 1;
    }
  }
  int32_t rows() const { return rows_; }
  int32_t cols() const { return cols_; }
  /// Rows and columns that can hold anything (the rest of a whole column is empty).
  int32_t used_rows() const { return used_rows_; }
  int32_t used_cols() const { return used_cols_; }
  bool is_ref() const { return is_ref_; }
  const Area& area() const { return area_; }
  Value at(int32_t r, int32_t c) const {
    if (is_ref_) {
      if (r >= used_rows_ || c >= used_cols_) return Value::empty();
      return ev_.cell(area_.sheet, area_.rect.row1 + r, area_.rect.col1 + c);
    }
    return m_->at(r, c);
  }
  /// Value by position along a one-row or one-column vector.
  Value linear(int32_t k) const { return rows_ == 1 ? at(0, k) : at(k, 0); }
  int32_t length() const { return rows_ == 1 ? cols_ : rows_; }
  int32_t used_length() const { return rows_ == 1 ? used_cols_ : used_rows_; }

 private:
  Evaluator& ev_;
  Area area_;
  MatrixPtr m_;
  int32_t rows_ = 0, cols_ = 0, used_rows_ = 0, used_cols_ = 0;
  bool is_ref_ = false;
};

/// Visits the positions of a criteria range that match (for SUMIF/COUNTIF/... families).
/// Empty positions are visited only when the criterion matches an empty cell.
template <class F>
void each_match(Evaluator& ev, const Operand& range, const Criterion& c, F&& visit) {
  Grid g(ev, range);
  if (range.is_ref() && !c.matches_empty()) {
    const Area& a = g.area();
    auto clipped = ev.clip(a);
    if (!clipped) return;
    ev.ctx().for_each_value(a.sheet, clipped->rect, [&](CellRef cr, const Value& v) {
      if (c.matches(v)) visit(cr.row - a.rect.row1, cr.col - a.rect.col1);
    });
    return;
  }
  for (int32_t r = 0; r < g.rows(); ++r)
    for (int32_t col = 0; col < g.cols(); ++col) {
      if (r >= g.used_rows() || col >= g.used_cols()) {
        // Beyond the used cells everything is empty, and the criterion matches empty.
        visit(r, col);
        continue;
      }
      if (c.matches(g.at(r, col))) visit(r, col);
    }
}

/// Reads the value at (r, c) of a range the same shape as the criteria range, anchored at
/// its top-left cell as the application does for SUMIF's third argument.
inline Value at_offset(Evaluator& ev, const Operand& o, int32_t r, int32_t c) {
  if (o.is_ref()) {
    if (o.areas.size() != 1) raise(cell_error::value);
    const Area& a = o.areas[0];
    int32_t row = a.rect.row1 + r, col = a.rect.col1 + c;
    if (row >= kMaxRows || col >= kMaxCols) return Value::empty();
    return ev.cell(a.sheet, row, col);
  }
  if (o.is_array()) {
    if (r < o.array->rows && c < o.array->cols) return o.array->at(r, c);
    return Value::empty();
  }
  return r == 0 && c == 0 ? o.value : Value::empty();
}

/// Shared by SUMIFS, AVERAGEIFS, COUNTIFS, MINIFS, MAXIFS: visits the positions where every
/// (range, criterion) pair matches. Pairs start at argument `first`; a range before them
/// (the one summed, averaged or searched) must have the criteria ranges' shape too, or the
/// call is #VALUE! (unlike SUMIF, whose sum range is stretched from its top-left cell).
template <class F>
void each_multi_match(Args& a, size_t first, F&& visit) {
  Evaluator& ev = a.ev();
  if ((a.size() - first) % 2 != 0 || a.size() - first < 2) raise(cell_error::value);
  std::vector<const Operand*> ranges;
  std::vector<Criterion> crits;
  for (size_t i = first; i + 1 < a.size(); i += 2) {
    ranges.push_back(&a.get(i));
    crits.emplace_back(scalar(a, i + 1));
  }
  Grid g0(ev, *ranges[0]);
  for (size_t k = 0; k < first; ++k) {
    Grid gk(ev, a.get(k));
    if (gk.rows() != g0.rows() || gk.cols() != g0.cols()) raise(cell_error::value);
  }
  for (size_t k = 1; k < ranges.size(); ++k) {
    Grid gk(ev, *ranges[k]);
    if (gk.rows() != g0.rows() || gk.cols() != g0.cols()) raise(cell_error::value);
  }
  each_match(ev, *ranges[0], crits[0], [&](int32_t r, int32_t c) {
    for (size_t k = 1; k < ranges.size(); ++k)
      if (!crits[k].matches(at_offset(ev, *ranges[k], r, c))) return;
    visit(r, c);
  });
}

/// The p-th percentile of `xs`, interpolated between neighbours: over the whole range
/// (PERCENTILE, QUARTILE, AGGREGATE 16/17) or excluding the ends (the .EXC variants).
inline Operand percentile(std::vector<double> xs, double p, bool exclusive) {
  if (xs.empty()) return error(cell_error::num);
  std::sort(xs.begin(), xs.end());
  double n = static_cast<double>(xs.size());
  double h;
  if (exclusive) {
    if (p <= 0 || p >= 1) return error(cell_error::num);
    h = p * (n + 1) - 1;
    if (h < 0 || h > n - 1) return error(cell_error::num);
  } else {
    if (p < 0 || p > 1) return error(cell_error::num);
    h = p * (n - 1);
  }
  size_t lo = static_cast<size_t>(std::floor(h));
  double frac = h - std::floor(h);
  if (lo + 1 >= xs.size()) return num(xs[lo]);
  return num(xs[lo] + frac * (xs[lo + 1] - xs[lo]));
}

}  // namespace qz::engine::calc::fn
