// Names for values (LET), functions made in a formula (LAMBDA) and the functions that apply
// them: MAP, REDUCE, SCAN, BYROW, BYCOL, MAKEARRAY, and ISOMITTED for the parameters a call
// left out.
#include <cmath>

#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

Operand f_let(Args& a) {
  size_t n = a.size();
  if (n < 3 || n % 2 == 0) return error(cell_error::value);
  Evaluator& ev = a.ev();
  Scope s = ev.scope();
  for (size_t k = 0; k + 1 < n; k += 2) {
    const Node& name = a.node(k);
    if (name.kind != NodeKind::Name || name.ref != kNoRef) return error(cell_error::value);
    // Each value sees the names bound before it.
    Operand value = ev.eval_in(s, a.formula(), a.node_index(k + 1));
    s = std::make_shared<Binding>(
        Binding{Evaluator::binding_name(a.formula().text(name.str)), std::move(value), false, s});
  }
  return ev.eval_in(s, a.formula(), a.node_index(n - 1));
}

Operand f_lambda(Args& a) {
  std::vector<uint32_t> nodes;
  for (size_t k = 0; k < a.size(); ++k) nodes.push_back(a.node_index(k));
  return a.ev().make_lambda(a.formula(), nodes);
}

Operand f_isomitted(Args& a) {
  const Node& n = a.node(0);
  if (n.kind != NodeKind::Name || n.ref != kNoRef) return boolean(false);
  const Binding* b = a.ev().bound(a.formula().text(n.str));
  return boolean(b && b->omitted);
}

/// The function argument of MAP and friends.
const Lambda& function_arg(Args& a, size_t i) {
  const Operand& o = a.get(i);
  if (o.is_value() && o.value.is_error()) raise(o.value.error_code());
  if (!o.is_lambda()) raise(cell_error::value);
  return *o.lambda;
}

/// One value a function gave back for one place of an array: a single value, or #CALC!
/// for an array (an array of arrays cannot be shown).
Value one_value(Evaluator& ev, const Operand& o) {
  if (o.is_array())
    return o.array->cells.size() == 1 ? o.array->cells[0] : Value::error(kErrorCalc);
  if (o.is_ref() && !(o.areas.size() == 1 && o.areas[0].single())) return Value::error(kErrorCalc);
  return ev.scalar(o);
}

Operand result(Matrix m) {
  if (m.cells.size() == 1) return Operand(m.cells[0]);
  return Operand::arr(std::move(m));
}

Operand f_map(Args& a) {
  if (a.size() < 2) return error(cell_error::value);
  Evaluator& ev = a.ev();
  const Lambda& fn = function_arg(a, a.size() - 1);
  std::vector<Matrix> arrays;
  int32_t rows = 1, cols = 1;
  for (size_t i = 0; i + 1 < a.size(); ++i) {
    arrays.push_back(ev.matrix(a.get(i)));
    rows = std::max(rows, arrays.back().rows);
    cols = std::max(cols, arrays.back().cols);
  }
  Matrix out(rows, cols);
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c) {
      std::vector<Operand> args;
      bool inside = true;
      for (const Matrix& m : arrays) {
        int32_t rr = m.rows == 1 ? 0 : r, cc = m.cols == 1 ? 0 : c;
        if (rr >= m.rows || cc >= m.cols) inside = false;
        args.emplace_back(inside ? m.at(rr, cc) : Value::empty());
      }
      out.at(r, c) =
          inside ? one_value(ev, ev.invoke(fn, std::move(args))) : Value::error(cell_error::na);
    }
  return result(std::move(out));
}

/// REDUCE and SCAN: the accumulator through every value of the array in row order.
Operand fold(Args& a, bool keep_steps) {
  Evaluator& ev = a.ev();
  Operand acc = a.missing(0) ? Operand(Value::empty()) : a.get(0);
  Matrix m = ev.matrix(a.get(1));
  const Lambda& fn = function_arg(a, 2);
  Matrix steps(m.rows, m.cols);
  for (size_t k = 0; k < m.cells.size(); ++k) {
    acc = ev.invoke(fn, {acc, Operand(m.cells[k])});
    if (keep_steps) steps.cells[k] = one_value(ev, acc);
  }
  if (keep_steps) return result(std::move(steps));
  return acc;
}
Operand f_reduce(Args& a) {
  return fold(a, false);
}
Operand f_scan(Args& a) {
  return fold(a, true);
}

/// BYROW and BYCOL: the function of each row (or column), given as a reference when the
/// array is one, so that functions of ranges see a range.
template <bool Rows>
Operand f_by_line(Args& a) {
  Evaluator& ev = a.ev();
  const Operand& src = a.get(0);
  const Lambda& fn = function_arg(a, 1);
  bool by_ref = src.is_ref() && src.areas.size() == 1;
  Matrix m;
  int32_t lines;
  if (by_ref) {
    lines = Rows ? src.areas[0].rows() : src.areas[0].cols();
  } else {
    m = ev.matrix(src);
    lines = Rows ? m.rows : m.cols;
  }
  Matrix out = Rows ? Matrix(lines, 1) : Matrix(1, lines);
  for (int32_t k = 0; k < lines; ++k) {
    Operand line;
    if (by_ref) {
      Area ar = src.areas[0];
      if (Rows)
        ar.rect.row1 = ar.rect.row2 = ar.rect.row1 + k;
      else
        ar.rect.col1 = ar.rect.col2 = ar.rect.col1 + k;
      line = Operand::ref({ar});
    } else {
      Matrix l = Rows ? Matrix(1, m.cols) : Matrix(m.rows, 1);
      for (size_t j = 0; j < l.cells.size(); ++j)
        l.cells[j] = Rows ? m.at(k, static_cast<int32_t>(j)) : m.at(static_cast<int32_t>(j), k);
      line = Operand::arr(std::move(l));
    }
    out.cells[k] = one_value(ev, ev.invoke(fn, {line}));
  }
  return result(std::move(out));
}

Operand f_makearray(Args& a) {
  double rows = integer(a, 0), cols = integer(a, 1);
  if (rows < 1 || cols < 1) return error(cell_error::value);
  if (rows * cols > 1e7) return error(cell_error::num);
  const Lambda& fn = function_arg(a, 2);
  Matrix out(static_cast<int32_t>(rows), static_cast<int32_t>(cols));
  for (int32_t r = 0; r < out.rows; ++r)
    for (int32_t c = 0; c < out.cols; ++c)
      out.at(r, c) = one_value(
          a.ev(), a.ev().invoke(fn, {Operand(Value::num(r + 1)), Operand(Value::num(c + 1))}));
  return result(std::move(out));
}

}  // namespace

void add_lambda_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"BYCOL", 2, 2, f_by_line<false>},
                        {u"BYROW", 2, 2, f_by_line<true>},
                        {u"ISOMITTED", 1, 1, f_isomitted},
                        {u"LAMBDA", 1, 254, f_lambda},
                        {u"LET", 3, 253, f_let},
                        {u"MAKEARRAY", 3, 3, f_makearray},
                        {u"MAP", 2, 254, f_map},
                        {u"REDUCE", 3, 3, f_reduce},
                        {u"SCAN", 3, 3, f_scan},
                    });
}

}  // namespace qz::engine::calc
