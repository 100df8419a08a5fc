// Logic and information: IF and its relatives, AND/OR/XOR, CHOOSE, SWITCH and the
// IS-functions.
#include "engine/calc/fn_util.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

/// A branch's result: a missing branch ("IF(A1,,2)") is 0, an empty cell stays itself.
Operand branch(Args& a, size_t i) {
  if (a.missing(i)) return num(0);
  return a.get(i);
}

/// IF over an array condition (array formulas, SUMPRODUCT arguments): element by element.
Operand if_array(Args& a, const Operand& cond) {
  Evaluator& ev = a.ev();
  Matrix mc = ev.matrix(cond);
  auto side = [&](size_t i) -> Matrix {
    if (i >= a.size()) {
      Matrix m(1, 1);
      m.cells[0] = Value::boolean(false);
      return m;
    }
    if (a.missing(i)) {
      Matrix m(1, 1);
      m.cells[0] = Value::num(0);
      return m;
    }
    return ev.matrix(a.get(i));
  };
  Matrix t = side(1), f = side(2);
  int32_t rows = std::max({mc.rows, t.rows, f.rows}), cols = std::max({mc.cols, t.cols, f.cols});
  Matrix out(rows, cols);
  auto pick = [](const Matrix& m, int32_t r, int32_t c, bool& ok) -> Value {
    int32_t rr = m.rows == 1 ? 0 : r, cc = m.cols == 1 ? 0 : c;
    ok = rr < m.rows && cc < m.cols;
    return ok ? m.at(rr, cc) : Value();
  };
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c) {
      bool ok;
      Value v = pick(mc, r, c, ok);
      if (!ok) {
        out.at(r, c) = Value::error(cell_error::na);
        continue;
      }
      if (v.is_error()) {
        out.at(r, c) = v;
        continue;
      }
      bool truth;
      try {
        truth = Evaluator::to_bool(v);
      } catch (const EvalError& e) {
        out.at(r, c) = Value::error(e.code);
        continue;
      }
      Value chosen = pick(truth ? t : f, r, c, ok);
      out.at(r, c) = ok ? chosen : Value::error(cell_error::na);
    }
  return Operand::arr(std::move(out));
}

Operand f_if(Args& a) {
  const Operand& cond = a.get(0);
  bool multi = cond.is_array() || (a.ev().array_mode() && cond.is_ref() &&
                                   !(cond.areas.size() == 1 && cond.areas[0].single()));
  if (multi) return if_array(a, cond);
  Value v = a.ev().scalar(cond);
  if (v.is_error()) return v;
  bool truth = Evaluator::to_bool(v);
  if (truth) return branch(a, 1);
  if (a.size() < 3) return boolean(false);
  return branch(a, 2);
}

Operand f_ifs(Args& a) {
  if (a.size() % 2 != 0) return error(cell_error::value);
  for (size_t i = 0; i + 1 < a.size(); i += 2) {
    Value v = scalar(a, i);
    if (v.is_error()) return v;
    if (Evaluator::to_bool(v)) return branch(a, i + 1);
  }
  return error(cell_error::na);
}

/// AND/OR/XOR read Booleans and numbers; text in ranges is skipped, typed text that is not
/// TRUE/FALSE is #VALUE!; with nothing to read the result is #VALUE!.
template <class F>
bool each_truth(Args& a, F&& f) {
  bool any = false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) continue;
    const Operand& o = a.get(i);
    if (o.is_value()) {
      if (o.value.kind == Value::Kind::Empty) continue;
      f(Evaluator::to_bool(o.value));
      any = true;
      continue;
    }
    a.ev().for_each(o, [&](const Value& v, bool) {
      if (v.is_error()) raise(v.error_code());
      if (v.kind == Value::Kind::Number || v.kind == Value::Kind::Boolean) {
        f(v.number != 0);
        any = true;
      }
    });
  }
  return any;
}

Operand f_and(Args& a) {
  bool r = true;
  if (!each_truth(a, [&](bool b) { r = r && b; })) return error(cell_error::value);
  return boolean(r);
}
Operand f_or(Args& a) {
  bool r = false;
  if (!each_truth(a, [&](bool b) { r = r || b; })) return error(cell_error::value);
  return boolean(r);
}
Operand f_xor(Args& a) {
  bool r = false;
  if (!each_truth(a, [&](bool b) { r = r != b; })) return error(cell_error::value);
  return boolean(r);
}
Operand f_not(Args& a) {
  return boolean(!boolean(a, 0));
}
Operand f_true(Args&) {
  return boolean(true);
}
Operand f_false(Args&) {
  return boolean(false);
}

Operand f_iferror(Args& a) {
  const Operand& o = a.get(0);
  if (o.is_array()) {
    Matrix m = *o.array;
    Value alt = a.missing(1) ? Value::num(0) : scalar(a, 1);
    for (Value& v : m.cells)
      if (v.is_error()) v = alt;
    return Operand::arr(std::move(m));
  }
  Value v = a.ev().scalar(o);
  if (v.is_error()) return branch(a, 1);
  return o.is_ref() ? o : Operand(v);
}
Operand f_ifna(Args& a) {
  const Operand& o = a.get(0);
  Value v = a.ev().scalar(o);
  if (v.is_error() && v.error_code() == cell_error::na) return branch(a, 1);
  return o.is_ref() ? o : Operand(v);
}

Operand f_choose(Args& a) {
  double k = std::trunc(number(a, 0));
  if (k < 1 || k >= static_cast<double>(a.size())) return error(cell_error::value);
  return branch(a, static_cast<size_t>(k));
}

Operand f_switch(Args& a) {
  Value subject = scalar(a, 0);
  if (subject.is_error()) return subject;
  size_t i = 1;
  for (; i + 1 < a.size(); i += 2) {
    Value v = scalar(a, i);
    if (v.is_error()) return v;
    if (v.kind == subject.kind && compare_values(v, subject) == 0) return branch(a, i + 1);
  }
  if (i < a.size()) return branch(a, i);  // the default
  return error(cell_error::na);
}

// ---- IS-functions ---------------------------------------------------------------------------

/// The value an IS-function looks at: a reference's (intersected) cell, without raising.
Value inspected(Args& a) {
  const Operand& o = a.get(0);
  return a.ev().scalar(o);
}

Operand f_isblank(Args& a) {
  return boolean(inspected(a).kind == Value::Kind::Empty);
}
Operand f_iserror(Args& a) {
  return boolean(inspected(a).is_error());
}
Operand f_iserr(Args& a) {
  Value v = inspected(a);
  return boolean(v.is_error() && v.error_code() != cell_error::na);
}
Operand f_isna(Args& a) {
  Value v = inspected(a);
  return boolean(v.is_error() && v.error_code() == cell_error::na);
}
Operand f_isnumber(Args& a) {
  return boolean(inspected(a).kind == Value::Kind::Number);
}
Operand f_istext(Args& a) {
  return boolean(inspected(a).kind == Value::Kind::Text);
}
Operand f_isnontext(Args& a) {
  return boolean(inspected(a).kind != Value::Kind::Text);
}
Operand f_islogical(Args& a) {
  return boolean(inspected(a).kind == Value::Kind::Boolean);
}
Operand f_isref(Args& a) {
  return boolean(a.get(0).is_ref());
}
Operand parity(Args& a, bool even) {
  Value v = inspected(a);
  if (v.is_error()) return v;
  if (v.kind == Value::Kind::Boolean) return error(cell_error::value);
  double x = std::trunc(Evaluator::to_number(v));
  bool is_even = std::fmod(std::fabs(x), 2) == 0;
  return boolean(even ? is_even : !is_even);
}
Operand f_iseven(Args& a) {
  return parity(a, true);
}
Operand f_isodd(Args& a) {
  return parity(a, false);
}
Operand f_na(Args&) {
  return error(cell_error::na);
}
Operand f_error_type(Args& a) {
  Value v = inspected(a);
  if (!v.is_error()) return error(cell_error::na);
  switch (v.error_code()) {
    case cell_error::null:
      return num(1);
    case cell_error::div0:
      return num(2);
    case cell_error::value:
      return num(3);
    case cell_error::ref:
      return num(4);
    case cell_error::name:
      return num(5);
    case cell_error::num:
      return num(6);
    case cell_error::na:
      return num(7);
    case 2043:
      return num(8);
    case 2045:
      return num(9);
    case 2046:
      return num(10);
    case 2047:
      return num(11);
    case 2048:
      return num(12);
    case 2049:
      return num(13);
    case 2050:
      return num(14);
    default:
      return error(cell_error::na);
  }
}
Operand f_type(Args& a) {
  const Operand& o = a.get(0);
  if (o.is_array() || (o.is_ref() && !(o.areas.size() == 1 && o.areas[0].single()))) return num(64);
  Value v = a.ev().scalar(o);
  switch (v.kind) {
    case Value::Kind::Number:
    case Value::Kind::Empty:
      return num(1);
    case Value::Kind::Text:
      return num(2);
    case Value::Kind::Boolean:
      return num(4);
    case Value::Kind::Error:
      return num(16);
  }
  return num(1);
}

/// The formula of the first cell of a reference, if it holds one.
FormulaPtr formula_of(Args& a, SheetId& sheet, CellRef& cell) {
  const Operand& o = a.get(0);
  if (!o.is_ref() || o.areas.empty()) raise(cell_error::value);
  sheet = o.areas[0].sheet;
  cell = CellRef{o.areas[0].rect.row1, o.areas[0].rect.col1};
  return a.ev().ctx().formula_at(sheet, cell);
}
Operand f_isformula(Args& a) {
  SheetId sheet;
  CellRef cell;
  return boolean(formula_of(a, sheet, cell) != nullptr);
}
Operand f_formulatext(Args& a) {
  SheetId sheet;
  CellRef cell;
  FormulaPtr f = formula_of(a, sheet, cell);
  if (!f) return error(cell_error::na);
  return text(u"=" + render(*f, Notation::A1, cell, sheet, a.ev().ctx().sheets()));
}

}  // namespace

void add_logic_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"AND", 1, -1, f_and},
                        {u"CHOOSE", 2, -1, f_choose, each_arg_0},
                        {u"ERROR.TYPE", 1, 1, f_error_type, each_arg},
                        {u"FALSE", 0, 0, f_false},
                        {u"IF", 1, 3, f_if},
                        {u"IFERROR", 2, 2, f_iferror, each_arg},
                        {u"IFNA", 2, 2, f_ifna, each_arg},
                        {u"IFS", 2, -1, f_ifs},
                        {u"ISBLANK", 1, 1, f_isblank, each_arg},
                        {u"FORMULATEXT", 1, 1, f_formulatext},
                        {u"ISFORMULA", 1, 1, f_isformula},
                        {u"ISERR", 1, 1, f_iserr, each_arg},
                        {u"ISERROR", 1, 1, f_iserror, each_arg},
                        {u"ISEVEN", 1, 1, f_iseven, each_arg},
                        {u"ISLOGICAL", 1, 1, f_islogical, each_arg},
                        {u"ISNA", 1, 1, f_isna, each_arg},
                        {u"ISNONTEXT", 1, 1, f_isnontext, each_arg},
                        {u"ISNUMBER", 1, 1, f_isnumber, each_arg},
                        {u"ISODD", 1, 1, f_isodd, each_arg},
                        {u"ISREF", 1, 1, f_isref},
                        {u"ISTEXT", 1, 1, f_istext, each_arg},
                        {u"NA", 0, 0, f_na},
                        {u"NOT", 1, 1, f_not, each_arg},
                        {u"OR", 1, -1, f_or},
                        {u"SWITCH", 3, -1, f_switch},
                        {u"TRUE", 0, 0, f_true},
                        {u"TYPE", 1, 1, f_type},
                        {u"XOR", 1, -1, f_xor},
                    });
}

}  // namespace qz::engine::calc
