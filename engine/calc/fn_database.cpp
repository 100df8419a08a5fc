// The database functions (DSUM, DCOUNT, DGET, ...): a list with labels in its first row,
// a field named by label or position, and a criteria block whose rows are alternatives and
// whose cells within a row must all hold.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "engine/calc/fn_util.hpp"
#include "engine/numfmt/numfmt.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

/// One condition of the criteria block: a column of the list and what its value must meet,
/// or a computed condition (a formula under a label that names no column), evaluated for
/// each record as if written next to that record.
struct Condition {
  int32_t column = -1;
  std::optional<Criterion> test;
  FormulaPtr computed;
  SheetId sheet = kNoSheet;
  CellRef at;
};

String label_of(const Value& v) {
  if (v.kind == Value::Kind::Error) return String();
  return Evaluator::to_text(v);
}

/// A criterion cell as the database functions read it: plain text means "begins with",
/// the comparison prefixes and wildcards work as in SUMIF.
Criterion condition_of(const Value& v) {
  if (v.kind != Value::Kind::Text) return Criterion(v);
  StringView s = v.text;
  if (!s.empty() && (s[0] == u'<' || s[0] == u'>' || s[0] == u'=')) return Criterion(v);
  auto e = numfmt::parse_entry(s, false);
  if (e.type != numfmt::Entry::Type::Text) return Criterion(v);
  return Criterion(Value::str(String(s) + u"*"));
}

struct Database {
  Grid list;
  int32_t records;  // rows under the labels
};

int32_t field_column(Args& a, const Grid& list) {
  Value f = scalar(a, 1);
  if (f.is_error()) raise(f.error_code());
  if (f.kind == Value::Kind::Number || f.kind == Value::Kind::Boolean) {
    double k = std::trunc(f.number);
    if (k < 1 || k > list.cols()) raise(cell_error::value);
    return static_cast<int32_t>(k) - 1;
  }
  String name = Evaluator::to_text(f);
  for (int32_t c = 0; c < list.cols(); ++c)
    if (text_equal(label_of(list.at(0, c)), name)) return c;
  raise(cell_error::value);
}

/// The criteria rows, each a list of conditions that must all hold.
std::vector<std::vector<Condition>> criteria_of(Args& a, const Grid& list) {
  const Operand& o = a.get(2);
  Grid crit(a.ev(), o);
  if (crit.rows() < 2) raise(cell_error::value);
  std::vector<std::vector<Condition>> rows;
  for (int32_t r = 1; r < std::max<int32_t>(crit.used_rows(), 2); ++r) {
    std::vector<Condition> row;
    for (int32_t c = 0; c < crit.cols(); ++c) {
      Value cell = crit.at(r, c);
      if (cell.kind == Value::Kind::Empty || (cell.kind == Value::Kind::Text && cell.text.empty()))
        continue;
      Condition cond;
      String label = label_of(crit.at(0, c));
      for (int32_t k = 0; k < list.cols() && !label.empty(); ++k)
        if (text_equal(label_of(list.at(0, k)), label)) cond.column = k;
      if (cond.column < 0 && crit.is_ref()) {
        cond.sheet = crit.area().sheet;
        cond.at = CellRef{crit.area().rect.row1 + r, crit.area().rect.col1 + c};
        cond.computed = a.ev().ctx().formula_at(cond.sheet, cond.at);
      }
      if (cond.column < 0 && !cond.computed) {
        // A condition under an unknown label excludes every record.
        cond.test = Criterion(Value::error(cell_error::na));
        cond.column = -2;
      } else if (cond.column >= 0) {
        cond.test = condition_of(cell);
      }
      row.push_back(std::move(cond));
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

/// Visits the value of the field in each record that meets the criteria.
template <class F>
void each_selected(Args& a, F&& visit, bool need_field = true) {
  Grid list(a.ev(), a.get(0));
  if (list.rows() < 1) raise(cell_error::value);
  int32_t field = need_field && !a.missing(1) ? field_column(a, list) : -1;
  auto rows = criteria_of(a, list);
  for (int32_t r = 1; r < list.used_rows(); ++r) {
    bool selected = false;
    for (const auto& row : rows) {
      bool all = true;
      for (const Condition& c : row) {
        if (c.column == -2) {
          all = false;
        } else if (c.computed) {
          Value v =
              evaluate(*c.computed, CellRef{c.at.row + r - 1, c.at.col}, c.sheet, a.ev().ctx());
          all =
              v.kind != Value::Kind::Error && v.kind != Value::Kind::Text && Evaluator::to_bool(v);
        } else {
          all = c.test->matches(list.at(r, c.column));
        }
        if (!all) break;
      }
      if (all) {
        selected = true;
        break;
      }
    }
    if (selected) visit(field >= 0 ? list.at(r, field) : Value::boolean(true));
  }
}

std::vector<double> selected_numbers(Args& a) {
  std::vector<double> xs;
  each_selected(a, [&](const Value& v) {
    if (v.kind == Value::Kind::Number) xs.push_back(v.number);
  });
  return xs;
}

Operand f_dsum(Args& a) {
  std::vector<double> xs = selected_numbers(a);
  return num(std::accumulate(xs.begin(), xs.end(), 0.0));
}
Operand f_daverage(Args& a) {
  std::vector<double> xs = selected_numbers(a);
  if (xs.empty()) return error(cell_error::div0);
  return num(std::accumulate(xs.begin(), xs.end(), 0.0) / static_cast<double>(xs.size()));
}
Operand f_dcount(Args& a) {
  double n = 0;
  bool all = a.missing(1);
  each_selected(a, [&](const Value& v) { n += all || v.kind == Value::Kind::Number; });
  return num(n);
}
Operand f_dcounta(Args& a) {
  double n = 0;
  bool all = a.missing(1);
  each_selected(a, [&](const Value& v) { n += all || v.kind != Value::Kind::Empty; });
  return num(n);
}
template <bool Max>
Operand f_dminmax(Args& a) {
  std::vector<double> xs = selected_numbers(a);
  if (xs.empty()) return num(0);
  return num(Max ? *std::max_element(xs.begin(), xs.end())
                 : *std::min_element(xs.begin(), xs.end()));
}
Operand f_dproduct(Args& a) {
  std::vector<double> xs = selected_numbers(a);
  if (xs.empty()) return num(0);
  double p = 1;
  for (double x : xs) p *= x;
  return num(p);
}
template <bool Sample, bool Root>
Operand f_dvar(Args& a) {
  std::vector<double> xs = selected_numbers(a);
  double n = static_cast<double>(xs.size());
  if (n < (Sample ? 2 : 1)) return error(cell_error::div0);
  double mean = std::accumulate(xs.begin(), xs.end(), 0.0) / n, ss = 0;
  for (double x : xs) ss += (x - mean) * (x - mean);
  double v = ss / (Sample ? n - 1 : n);
  return num(Root ? std::sqrt(v) : v);
}
Operand f_dget(Args& a) {
  std::vector<Value> found;
  each_selected(a, [&](const Value& v) { found.push_back(v); });
  if (found.empty()) return error(cell_error::value);
  if (found.size() > 1) return error(cell_error::num);
  return found[0];
}

}  // namespace

void add_database_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"DAVERAGE", 3, 3, f_daverage},
                        {u"DCOUNT", 3, 3, f_dcount},
                        {u"DCOUNTA", 3, 3, f_dcounta},
                        {u"DGET", 3, 3, f_dget},
                        {u"DMAX", 3, 3, f_dminmax<true>},
                        {u"DMIN", 3, 3, f_dminmax<false>},
                        {u"DPRODUCT", 3, 3, f_dproduct},
                        {u"DSTDEV", 3, 3, f_dvar<true, true>},
                        {u"DSTDEVP", 3, 3, f_dvar<false, true>},
                        {u"DSUM", 3, 3, f_dsum},
                        {u"DVAR", 3, 3, f_dvar<true, false>},
                        {u"DVARP", 3, 3, f_dvar<false, false>},
                    });
}

}  // namespace qz::engine::calc
