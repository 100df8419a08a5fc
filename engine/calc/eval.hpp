// The evaluator's working types, shared by the evaluator and the function families.
// Internal to the calc component.
#pragma once

#include <cmath>
#include <memory>
#include <optional>
#include <vector>

#include "engine/calc/formula.hpp"

namespace qz::engine::calc {

/// A rectangle on a sheet.
struct Area {
  SheetId sheet = kNoSheet;
  Rect rect;
  int32_t rows() const { return rect.row2 - rect.row1 + 1; }
  int32_t cols() const { return rect.col2 - rect.col1 + 1; }
  bool single() const { return rect.row1 == rect.row2 && rect.col1 == rect.col2; }
};

/// A rectangular block of values (an array constant or the result of an array operation).
struct Matrix {
  int32_t rows = 0, cols = 0;
  std::vector<Value> cells;
  Matrix() = default;
  Matrix(int32_t r, int32_t c) : rows(r), cols(c), cells(static_cast<size_t>(r) * c) {}
  Value& at(int32_t r, int32_t c) { return cells[static_cast<size_t>(r) * cols + c]; }
  const Value& at(int32_t r, int32_t c) const { return cells[static_cast<size_t>(r) * cols + c]; }
};
using MatrixPtr = std::shared_ptr<const Matrix>;

struct Lambda;

/// What an expression yields: a value, a reference (one or more areas), an array, or a
/// function made by LAMBDA.
struct Operand {
  enum class Kind : uint8_t { Value, Ref, Array, Lambda } kind = Kind::Value;
  Value value;
  std::vector<Area> areas;
  MatrixPtr array;
  std::shared_ptr<const Lambda> lambda;

  Operand() = default;
  Operand(Value v) : value(std::move(v)) {}
  static Operand ref(std::vector<Area> a) {
    Operand o;
    o.kind = Kind::Ref;
    o.areas = std::move(a);
    return o;
  }
  static Operand arr(Matrix m) {
    Operand o;
    o.kind = Kind::Array;
    o.array = std::make_shared<const Matrix>(std::move(m));
    return o;
  }
  static Operand function(std::shared_ptr<const Lambda> l) {
    Operand o;
    o.kind = Kind::Lambda;
    o.lambda = std::move(l);
    return o;
  }
  bool is_ref() const { return kind == Kind::Ref; }
  bool is_lambda() const { return kind == Kind::Lambda; }
  bool is_array() const { return kind == Kind::Array; }
  bool is_value() const { return kind == Kind::Value; }
};

/// A name bound by LET or by a LAMBDA's parameter; scopes chain outward.
struct Binding {
  String name;  ///< upper-case, without the "_xlpm." prefix files write
  Operand value;
  bool omitted = false;  ///< a LAMBDA parameter the call left out
  std::shared_ptr<const Binding> outer;
};
using Scope = std::shared_ptr<const Binding>;

/// A LAMBDA as a value: its parameters, its body and the scope it was made in; or a
/// built-in function passed by name ("_xleta.SUM").
struct Lambda {
  const Formula* formula = nullptr;
  std::vector<String> params;
  uint32_t body = 0;
  Scope scope;
  SheetId sheet = kNoSheet;  ///< the sheet unqualified references in the body mean
  int32_t builtin = -1;      ///< the built-in function, when it is one
};

/// The newer error values beyond those of qzxl/variant.hpp.
inline constexpr int32_t kErrorGettingData = 2043;  ///< #GETTING_DATA
inline constexpr int32_t kErrorConnect = 2046;      ///< #CONNECT!
inline constexpr int32_t kErrorBlocked = 2047;      ///< #BLOCKED!
inline constexpr int32_t kErrorCalc = 2050;         ///< #CALC!

/// An error value travelling up through a function; caught where the function was called.
struct EvalError {
  int32_t code;
};
[[noreturn]] inline void raise(int32_t code) {
  throw EvalError{code};
}

class Evaluator;

/// The arguments of a call, evaluated on first use (so IF, IFERROR and CHOOSE evaluate only
/// the branch they take).
class Args {
 public:
  Args(Evaluator& ev, const Formula& f, std::vector<uint32_t> nodes)
      : ev_(ev), f_(f), nodes_(std::move(nodes)), cache_(nodes_.size()) {}
  size_t size() const { return nodes_.size(); }
  /// Whether argument i was left out or left empty ("F(1,,2)").
  bool missing(size_t i) const;
  /// Argument i as it evaluates (a reference stays a reference).
  const Operand& get(size_t i);
  /// Replaces argument i by a value already computed (element-wise application).
  void set(size_t i, Operand o) { cache_[i] = std::move(o); }
  /// The formula node of argument i, for functions that read their arguments as written
  /// (LET and LAMBDA take names).
  const Node& node(size_t i) const { return f_.nodes[nodes_[i]]; }
  uint32_t node_index(size_t i) const { return nodes_[i]; }
  const Formula& formula() const { return f_; }
  /// Argument i with references and operators evaluated array-wise, as functions whose
  /// arguments are arrays (SUMPRODUCT) see them.
  Operand get_array(size_t i);
  Evaluator& ev() { return ev_; }

 private:
  Evaluator& ev_;
  const Formula& f_;
  std::vector<uint32_t> nodes_;
  std::vector<std::optional<Operand>> cache_;
};

using FunctionImpl = Operand (*)(Args&);

struct FunctionInfo {
  const char16_t* name;
  int min_args;
  int max_args;  // -1: up to 255
  FunctionImpl impl;
  /// Arguments that take one value (bit i for argument i; bit 31 for 31 and on). An array
  /// there (or a range, in an array formula) makes the function apply element by element,
  /// so SUMPRODUCT(--ISNUMBER(A1:A9)) and SUM(LEN({"a","bb"})) work.
  uint32_t scalar_args = 0;
  bool is_volatile = false;
  /// Needs a connection, a server or outside code: see function_not_computable().
  bool not_computable = false;
  /// Arguments (bits as in scalar_args) where a Boolean is #VALUE! instead of 1 or 0: the
  /// functions that came from the analysis add-in check their arguments' types themselves.
  uint32_t refused_booleans = 0;
};

/// Masks for FunctionInfo::scalar_args, named by the arguments (counted from 0) that take
/// one value each.
inline constexpr uint32_t whole_args = 0;                      // every argument as given
inline constexpr uint32_t each_arg = 0xFFFFFFFFu;              // every argument
inline constexpr uint32_t each_arg_0 = 1u;                     // the lookup value
inline constexpr uint32_t each_arg_1 = 2u;                     // a criterion after its range
inline constexpr uint32_t each_arg_0_1 = 3u;                   // the two dates of a span
inline constexpr uint32_t each_arg_1_2 = 6u;                   // INDEX's row and column
inline constexpr uint32_t each_odd_arg = 0x2AAAAAAAu;          // criteria of range/criterion pairs
inline constexpr uint32_t each_even_arg_from_2 = 0x15555554u;  // criteria after a result range

/// Each family adds its functions to the table.
void add_math_functions(std::vector<FunctionInfo>& table);
void add_stat_functions(std::vector<FunctionInfo>& table);
void add_logic_functions(std::vector<FunctionInfo>& table);
void add_text_functions(std::vector<FunctionInfo>& table);
void add_date_functions(std::vector<FunctionInfo>& table);
void add_lookup_functions(std::vector<FunctionInfo>& table);
void add_finance_functions(std::vector<FunctionInfo>& table);
void add_distribution_functions(std::vector<FunctionInfo>& table);
void add_engineering_functions(std::vector<FunctionInfo>& table);
void add_database_functions(std::vector<FunctionInfo>& table);
void add_securities_functions(std::vector<FunctionInfo>& table);
void add_matrix_functions(std::vector<FunctionInfo>& table);
void add_text_split_functions(std::vector<FunctionInfo>& table);
void add_text_locale_functions(std::vector<FunctionInfo>& table);
void add_info_functions(std::vector<FunctionInfo>& table);
void add_array_functions(std::vector<FunctionInfo>& table);
void add_lambda_functions(std::vector<FunctionInfo>& table);
void add_regex_functions(std::vector<FunctionInfo>& table);
void add_group_functions(std::vector<FunctionInfo>& table);
void add_ets_functions(std::vector<FunctionInfo>& table);

class Evaluator {
 public:
  Evaluator(EvalContext& ctx, CellRef origin, SheetId sheet, bool array_mode)
      : ctx_(ctx), origin_(origin), sheet_(sheet), default_sheet_(sheet), array_mode_(array_mode) {}

  /// Evaluates node `i` of `f` (f's relative references are relative to origin()).
  Operand eval(const Formula& f, uint32_t i);
  Operand eval_array_mode(const Formula& f, uint32_t i);

  EvalContext& ctx() { return ctx_; }
  CellRef origin() const { return origin_; }
  SheetId sheet() const { return sheet_; }
  bool array_mode() const { return array_mode_; }
  bool date1904() { return ctx_.date1904(); }

  // ---- conversions (raise EvalError for errors) ---------------------------------------

  /// The value of a single cell.
  Value cell(SheetId sheet, int32_t row, int32_t col) {
    return ctx_.cell_value(sheet, CellRef{row, col});
  }
  /// An area clipped to the sheet's used cells (whole columns and rows stop at the last used
  /// row or column); an empty optional when nothing of it is used.
  std::optional<Area> clip(const Area& a);
  /// One value from an operand, as a cell formula sees a range: the single cell, or the cell
  /// of the range in the formula's own row or column (implicit intersection), or #VALUE!.
  Value scalar(const Operand& o);
  /// The operand as a block of values (references read cell by cell, clipped to used cells
  /// but keeping the reference's own top-left corner).
  Matrix matrix(const Operand& o);
  /// Visits every value of an operand in row order: areas sparse (non-empty cells only),
  /// arrays and scalars in full. `from_ref` tells the visitor whether the value came from a
  /// reference, where text and Booleans are skipped by the aggregate functions.
  template <class F>
  void for_each(const Operand& o, F&& visit);

  static double to_number(const Value& v);  ///< coercion for arithmetic; raises #VALUE!
  static String to_text(const Value& v);    ///< coercion for text functions
  static bool to_bool(const Value& v);      ///< coercion for logic; raises #VALUE!
  double number(const Operand& o) { return to_number(scalar(o)); }
  String text(const Operand& o) { return to_text(scalar(o)); }
  bool boolean(const Operand& o) { return to_bool(scalar(o)); }
  Value value_or_raise(const Operand& o) {
    Value v = scalar(o);
    if (v.is_error()) raise(v.error_code());
    return v;
  }

  /// Reads text as a number the way arithmetic does ("1,000", "5%", "$3", "1/2/2020").
  std::optional<double> text_to_number(StringView s);

  /// Evaluates a defined name.
  Operand name(const Formula& f, const Node& n);
  /// Resolves a reference of formula f to areas; #REF! when it is off the grid or external.
  Operand reference(const Formula& f, const RefInfo& r);
  /// A reference into another workbook: its values, as the context knows them.
  Operand external(const Formula& f, const RefInfo& r);

  int name_depth = 0;

  // ---- names bound by LET and LAMBDA ----------------------------------------------------

  /// The name as a binding knows it: upper-case, without the "_xlpm." prefix.
  static String binding_name(StringView text);
  /// The binding of a name where evaluation stands, if it has one.
  const Binding* bound(StringView text) const;
  const Scope& scope() const { return scope_; }
  /// Evaluates node `i` of `f` with `s` as the scope of bound names.
  Operand eval_in(const Scope& s, const Formula& f, uint32_t i);
  /// Makes a LAMBDA of the parameter names and the body at `nodes` of `f` (the body last),
  /// closing over the current scope.
  Operand make_lambda(const Formula& f, const std::vector<uint32_t>& nodes);
  /// Calls a function value with arguments already evaluated; fewer arguments than
  /// parameters leave the rest omitted (ISOMITTED), more are #VALUE!.
  Operand invoke(const Lambda& l, std::vector<Operand> args, std::vector<bool> omitted = {});

 private:
  EvalContext& ctx_;
  CellRef origin_;
  SheetId sheet_;
  SheetId default_sheet_;  // the sheet of unqualified references (a name's own sheet)
  bool array_mode_;

  Operand call(const Formula& f, uint32_t i);
  bool lift(const FunctionInfo& info, Args& args, Operand& out);
  Operand run(const FunctionInfo& info, Args& args);
  Operand unary(const Formula& f, const Node& n, uint32_t child);
  Operand binary(const Formula& f, const Node& n, uint32_t lhs, uint32_t rhs);
  Operand apply(Op op, const Operand& a, const Operand& b);
  Operand reference_op(Op op, const Operand& a, const Operand& b);
  Operand array_constant(const Formula& f, uint32_t i);
  Operand call_by_name(const Formula& f, uint32_t i);
  Operand invoke_node(const Formula& f, uint32_t i, const Operand& callee, uint32_t first_arg);

  Scope scope_;
  std::vector<FormulaPtr> keep_alive_;  // the formulas of names whose LAMBDAs are in use
  int invoke_depth_ = 0;
};

template <class F>
void Evaluator::for_each(const Operand& o, F&& visit) {
  if (o.is_value()) {
    visit(o.value, false);
  } else if (o.is_array()) {
    for (const Value& v : o.array->cells) visit(v, false);
  } else if (o.is_lambda()) {
    visit(Value::error(kErrorCalc), false);
  } else {
    for (const Area& a : o.areas) {
      auto c = clip(a);
      if (!c) continue;
      ctx_.for_each_value(c->sheet, c->rect, [&](CellRef, const Value& v) { visit(v, true); });
    }
  }
}

// ---- helpers shared by the families ----------------------------------------------------

/// The cells a structured reference names where the evaluator stands, or its error.
Operand structured_reference(Evaluator& ev, StringView text);

/// Compares two values as the comparison operators do: numbers < text < Booleans; text
/// without regard to case; empty as 0, "" or FALSE. Returns <0, 0, >0.
int compare_values(const Value& a, const Value& b);
/// Text as numbers show in text functions and concatenation (up to 15 significant digits).
String number_to_text(double d);
/// Case-insensitive text equality (ASCII and Latin-1 letters).
bool text_equal(StringView a, StringView b);
String upper_text(StringView s);
String lower_text(StringView s);

/// A criterion of SUMIF/COUNTIF and friends ("> 5", "apple*", "<>", 3).
class Criterion {
 public:
  explicit Criterion(const Value& c);
  bool matches(const Value& v) const;
  bool matches_empty() const;

 private:
  enum class Cmp : uint8_t { Eq, Ne, Lt, Le, Gt, Ge } cmp_ = Cmp::Eq;
  Value operand_;
  bool wildcard_ = false;
  bool empty_operand_ = false;
  std::optional<double> number_;
};
/// Wildcard match: * any run, ? any one character, ~ escapes; case-insensitive.
bool wildcard_match(StringView pattern, StringView text);

/// Rounds to `digits` decimals, half away from zero, with the application's tolerance for
/// values a hair below the half (2.675 rounds to 2.68).
double round_half_away(double x, int digits);

/// Numbers the application treats as equal (15 significant digits).
bool numbers_equal(double a, double b);

/// Whether a number is integral after the application's tolerance.
inline double truncate_toward_zero(double x) {
  return std::trunc(x);
}

inline Operand num(double d) {
  if (!std::isfinite(d)) return Value::error(cell_error::num);
  return Value::num(d);
}
inline Operand boolean(bool b) {
  return Value::boolean(b);
}
inline Operand text(String s) {
  return Value::str(std::move(s));
}
inline Operand error(int32_t code) {
  return Value::error(code);
}

}  // namespace qz::engine::calc
