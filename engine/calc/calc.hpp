// The engine's formula language: parsing, rendering, structural adjustment and evaluation of
// cell formulas, and the dependency graph that keeps recalculation to the dirty cells.
//
// This part knows nothing of how the engine stores cells: it reads them through EvalContext
// and names sheets through SheetResolver, both implemented by the engine's workbook.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "qzxl/variant.hpp"

namespace qz::engine::calc {

/// Stable identity of a sheet inside a workbook (survives renames and moves); -1 = none.
using SheetId = int32_t;
inline constexpr SheetId kNoSheet = -1;

inline constexpr int32_t kMaxRows = 1048576;
inline constexpr int32_t kMaxCols = 16384;

/// A cell position, 0-based.
struct CellRef {
  int32_t row = 0;
  int32_t col = 0;
  friend bool operator==(const CellRef&, const CellRef&) = default;
};

/// A rectangle of cells, 0-based and inclusive.
struct Rect {
  int32_t row1 = 0, col1 = 0, row2 = 0, col2 = 0;
  friend bool operator==(const Rect&, const Rect&) = default;
  bool contains(CellRef c) const {
    return c.row >= row1 && c.row <= row2 && c.col >= col1 && c.col <= col2;
  }
};

/// A calculated value. Errors use the cell error codes of qzxl/variant.hpp (2007 #DIV/0!...).
struct Value {
  enum class Kind : uint8_t { Empty, Number, Text, Boolean, Error } kind = Kind::Empty;
  double number = 0;  // Number; Boolean as 0/1; Error code
  String text;        // Text

  static Value empty() { return {}; }
  static Value num(double d) { return {Kind::Number, d, {}}; }
  static Value str(String s) { return {Kind::Text, 0, std::move(s)}; }
  static Value boolean(bool b) { return {Kind::Boolean, b ? 1.0 : 0.0, {}}; }
  static Value error(int32_t code) { return {Kind::Error, static_cast<double>(code), {}}; }
  bool is_error() const { return kind == Kind::Error; }
  int32_t error_code() const { return static_cast<int32_t>(number); }
  friend bool operator==(const Value&, const Value&) = default;
};

/// The text of a cell error ("#DIV/0!") and back.
StringView error_text(int32_t code);
std::optional<int32_t> error_from_text(StringView text);

/// Names the sheets of the workbook a formula lives in.
class SheetResolver {
 public:
  virtual ~SheetResolver() = default;
  /// The sheet of that name (compared without regard to case), if any.
  virtual std::optional<SheetId> sheet_id(StringView name) const = 0;
  /// The sheet's current name.
  virtual String sheet_name(SheetId id) const = 0;
  /// The sheets from `first` to `last` in workbook order, both included, for 3-D
  /// references such as Sheet1:Sheet3!A1. A workbook that does not answer (the default)
  /// makes such references evaluate to #REF!.
  virtual std::vector<SheetId> sheets_between(SheetId first, SheetId last) const { return {}; }
  /// Every sheet in workbook order, for SHEET and SHEETS. A workbook that does not answer
  /// (the default) makes them evaluate to #N/A.
  virtual std::vector<SheetId> sheet_order() const { return {}; }
};

enum class Notation : uint8_t { A1, R1C1 };

/// A parsed formula. Immutable; share it freely. References are stored relative to the
/// formula's cell where they are relative, so rendering the same formula at another cell is
/// what copying it there means.
class Formula;
using FormulaPtr = std::shared_ptr<const Formula>;

/// Parses formula text (without the leading "="). References to sheets that do not exist
/// raise qz::Error; references to other workbooks ("[Book.xlsx]Sheet1!A1", "'C:\x\[B.xlsx]S'!A1",
/// "[1]Sheet1!A1") are kept as written and evaluate to #REF!. Unknown function names parse
/// (they evaluate to #NAME?). Errors name the position: "formula: unexpected ')' at 7".
FormulaPtr parse(StringView text, Notation notation, CellRef origin, SheetId home,
                 const SheetResolver& sheets);

/// Keeps one copy of each distinct parsed formula. A formula filled down a column has a
/// different text in every cell but, with relative references stored as offsets, the same
/// parse; a large model holds few distinct formulas among its many formula cells, so cells
/// that share one cost a pointer each. Formulas are immutable: a cell edited later gets a
/// formula of its own and the others keep theirs.
class FormulaCache {
 public:
  FormulaCache();
  ~FormulaCache();
  FormulaCache(FormulaCache&&) noexcept;
  FormulaCache& operator=(FormulaCache&&) noexcept;

  /// The cached formula equal to `f`, or `f` itself, cached from now on.
  FormulaPtr intern(FormulaPtr f);
  /// `parse`, then `intern`, but parsing into a buffer the cache keeps: a formula already
  /// cached costs no allocation at all, and a new one is stored without spare capacity.
  FormulaPtr parse(StringView text, Notation notation, CellRef origin, SheetId home,
                   const SheetResolver& sheets);
  void clear();
  /// Distinct formulas held.
  size_t size() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Renders a formula (without "=") as the application writes it: function names and
/// references upper-case, blanks kept where they were typed, sheet names quoted when they
/// need it. `home` is the sheet the formula is on (references to it carry no sheet name
/// unless they were written with one).
String render(const Formula& f, Notation notation, CellRef origin, SheetId home,
              const SheetResolver& sheets);
/// Spells a structured reference as it is to be written (see `render_structured`).
using StructuredSpelling = std::function<String(StringView)>;
/// Renders in A1 notation as files hold formulas: each structured reference spelled by
/// `structured` (qualified by its table, where a formula typed in a table may leave it out),
/// newer functions with their prefixes, "@x" as _xlfn.SINGLE(x) and "A1#" as
/// _xlfn.ANCHORARRAY(A1).
String render(const Formula& f, CellRef origin, SheetId home, const SheetResolver& sheets,
              const StructuredSpelling& structured);

/// Rows or columns inserted (count > 0) or deleted (count < 0) at `at` on `sheet`.
struct StructuralChange {
  SheetId sheet = kNoSheet;
  bool rows = true;
  int32_t at = 0;
  int32_t count = 0;
};

/// The formula after rows or columns were inserted or deleted; references into deleted
/// cells become #REF!. `origin` is the formula's cell before the change, `new_origin` after.
/// Returns `f` itself when nothing changed.
FormulaPtr adjust(const FormulaPtr& f, CellRef origin, CellRef new_origin, SheetId home,
                  const StructuralChange& change);

/// A table renamed, or some of its columns renamed or deleted, as the formulas that name it
/// see it.
struct TableChange {
  String name;      ///< the table's name before the change
  String new_name;  ///< its name after (the same when only columns change)
  SheetId sheet = kNoSheet;
  Rect ref;  ///< where the table is, for references inside it that leave its name out
  /// Old column names to new ones; an empty new name for a column deleted.
  std::vector<std::pair<String, String>> columns;
};

/// The formula at `origin` on `sheet` after a table changed: structured references and the
/// table's name alone follow a new name; a renamed column is spelled anew; a reference to a
/// deleted column becomes #REF!. Returns `f` itself when nothing changed.
FormulaPtr adjust_table(const FormulaPtr& f, CellRef origin, SheetId sheet,
                        const TableChange& change);

/// Whether the formula calls a volatile function (NOW, TODAY, RAND, RANDBETWEEN, OFFSET,
/// INDIRECT, CELL, INFO).
bool is_volatile(const Formula& f);

/// A defined name as evaluation sees it.
struct NameDefinition {
  FormulaPtr formula;  ///< what the name refers to, parsed relative to A1 of `home`
  SheetId home = kNoSheet;
};

/// What CELL reads about a cell besides its value.
struct CellFacts {
  String number_format = u"General";  ///< the number format code
  double column_width = 8.43;         ///< in characters of the default font
  bool locked = true;
  /// The horizontal alignment: 'l' left, 'r' right, 'c' centred, 'f' fill, 0 general.
  char16_t alignment = 0;
};

/// The workbook as CELL("filename") and INFO see it.
struct WorkbookFacts {
  String folder;  ///< the folder of the file, without a trailing separator; empty if unsaved
  String name;    ///< the file name ("Book1.xlsx")
  bool manual_calculation = false;
};

/// A table (a list object) as structured references see it.
struct TableDefinition {
  String name;
  SheetId sheet = kNoSheet;
  Rect range;                   ///< the whole table, its header and totals rows included
  int32_t header_rows = 1;      ///< 0 or 1
  int32_t totals_rows = 0;      ///< 0 or 1
  std::vector<String> columns;  ///< the column names, left to right
  /// The rows between the header and the totals; empty (row1 > row2) when there are none.
  Rect data() const {
    return Rect{range.row1 + header_rows, range.col1, range.row2 - totals_rows, range.col2};
  }
};

/// What a structured reference ("Table1[[#Headers],[Qty]:[Price]]", "[@Amount]") names,
/// read from its text: which table (empty: the one the formula sits in), which rows and
/// which columns.
struct StructuredRef {
  String table;
  bool all = false, headers = false, data = false, totals = false, this_row = false;
  String first_column, last_column;  ///< both empty: every column
};
/// Reads a structured reference as written; nothing when it is malformed.
std::optional<StructuredRef> read_structured(StringView text);
/// The cells a structured reference names at `origin` (`this_row` takes its row), or the
/// error it evaluates to (#REF! for unknown columns and absent rows, #VALUE! for a row
/// outside the table).
std::variant<Rect, int32_t> resolve_structured(const StructuredRef& ref, const TableDefinition& t,
                                               CellRef origin);
/// The reference as files hold it: qualified by its table, "@" spelled "[#This Row]",
/// columns bracketed where they need it ("Table1[[#This Row],[Qty]]").
String render_structured(const StructuredRef& ref);

/// What evaluation reads. Implemented by the engine's workbook.
class EvalContext {
 public:
  virtual ~EvalContext() = default;
  /// The value of a cell, calculating it first if it is dirty. A cell on the evaluation path
  /// (a circular reference) answers its last value.
  virtual Value cell_value(SheetId sheet, CellRef cell) = 0;
  /// Visits the non-empty cells of a rectangle row by row (sparse: empty cells are skipped).
  virtual void for_each_value(SheetId sheet, const Rect& area,
                              const std::function<void(CellRef, const Value&)>& visit) = 0;
  /// The bottom-right corner of the used cells of a sheet, bounding whole-column and
  /// whole-row references.
  virtual CellRef used_extent(SheetId sheet) = 0;
  /// A defined name visible from `scope` (sheet-level first, then workbook-level).
  virtual std::optional<NameDefinition> name(StringView text, SheetId scope) = 0;
  virtual const SheetResolver& sheets() = 0;
  virtual bool date1904() = 0;
  /// The current date-time as a serial (a seam, so tests can fix it).
  virtual double now() = 0;
  /// The formula of a cell, if it holds one. SUBTOTAL uses it to leave out the other
  /// SUBTOTALs in its ranges; a context that does not answer (the default) counts them.
  virtual FormulaPtr formula_at(SheetId sheet, CellRef cell) { return nullptr; }
  /// Whether a row is hidden. SUBTOTAL(101..111) and AGGREGATE leave hidden rows out when
  /// asked; a context that does not answer (the default) hides nothing.
  virtual bool row_hidden(SheetId sheet, int32_t row) { return false; }
  /// A cell's format, width, alignment and protection, for CELL. A context that does not
  /// answer (the default) makes the answers that need them #N/A.
  virtual std::optional<CellFacts> cell_facts(SheetId sheet, CellRef cell) { return std::nullopt; }
  /// The workbook's file and calculation mode, for CELL and INFO; the default does not
  /// answer.
  virtual std::optional<WorkbookFacts> workbook_facts() { return std::nullopt; }
  /// A cell of another workbook, by the reference's prefix as written ("[1]Rates",
  /// "'[Book2.xlsx]Sheet 1'", "'C:\x\[B.xlsx]S'"): read from that workbook when it is open,
  /// else the value the link last kept. A context that does not know it (the default) answers
  /// nothing, and the reference is #REF!.
  virtual std::optional<Value> external_value(StringView prefix, CellRef cell) {
    return std::nullopt;
  }
  /// A table by name (without regard to case); a context that does not answer (the default)
  /// makes structured references #REF!.
  virtual std::optional<TableDefinition> table(StringView name) { return std::nullopt; }
  /// The block a formula at `cell` spills into, for "A1#"; a context that does not answer
  /// (the default) lets the anchor stand for itself.
  virtual std::optional<Rect> spill_area(SheetId sheet, CellRef cell) { return std::nullopt; }
  /// The table whose range holds a cell, for structured references that name no table.
  virtual std::optional<TableDefinition> table_at(SheetId sheet, CellRef cell) {
    return std::nullopt;
  }
};

/// Evaluates a formula at `origin` on `sheet`. A result that is a reference yields the
/// referenced cell's value; a multi-cell reference yields the cell in the formula's own row
/// or column (implicit intersection, #VALUE! when there is none), and an array its top-left
/// value, as a cell shows them. An empty result is 0.
Value evaluate(const Formula& f, CellRef origin, SheetId sheet, EvalContext& ctx);

/// Evaluates an array formula entered over `rows` x `cols` cells with its top-left cell at
/// `origin`: references inside work element by element. Returns rows x cols values, row by
/// row; a result of one row or column repeats across the block, and positions beyond the
/// result hold #N/A.
std::vector<Value> evaluate_array(const Formula& f, CellRef origin, SheetId sheet, EvalContext& ctx,
                                  int32_t rows = 1, int32_t cols = 1);

/// The whole result of a formula that spills from `origin`: as many rows and columns as the
/// result has (a single value is one by one), row by row, empty results as 0.
struct Spill {
  int32_t rows = 1, cols = 1;
  std::vector<Value> values;
};
Spill evaluate_spill(const Formula& f, CellRef origin, SheetId sheet, EvalContext& ctx);

/// The cells a formula reads, for the dependency graph. Names are reported by text (their
/// own references are the workbook's to expand). A 3-D reference reads every sheet between
/// its two ends, which only `sheets` knows; without it only the two end sheets are listed.
struct References {
  std::vector<std::pair<SheetId, Rect>> ranges;
  std::vector<String> names;
  /// The tables structured references name ("" for the table the formula sits in).
  std::vector<String> tables;
  bool is_volatile = false;
};
References references(const Formula& f, CellRef origin, SheetId sheet,
                      const SheetResolver* sheets = nullptr);

/// The functions evaluation knows, upper-case, sorted.
std::vector<String> function_names();

/// Whether a function's value cannot be computed from what a file holds: it needs a
/// connection, a server or code outside the workbook (RTD, WEBSERVICE, CALL, the cube
/// functions, ...). Such a function evaluates to the error the application gives without
/// its source. False for names that are no function.
bool function_not_computable(StringView name);

/// The name of a function as files write it: newer functions carry the "_xlfn." prefix
/// ("_xlfn.XLOOKUP"). Names that are no function come back as given.
String function_file_name(StringView name);

/// Which cells depend on which: formula cells register the rectangles they read; a change
/// to any cell yields the formula cells to recalculate. Range references are indexed so
/// that a sheet of many SUM(A1:A100000)-like formulas does not cost cells × ranges.
class DependencyGraph {
 public:
  DependencyGraph();
  ~DependencyGraph();
  DependencyGraph(DependencyGraph&&) noexcept;
  DependencyGraph& operator=(DependencyGraph&&) noexcept;

  /// Records (replacing earlier ones) what the formula cell reads.
  void set(SheetId sheet, CellRef cell, const std::vector<std::pair<SheetId, Rect>>& reads);
  void remove(SheetId sheet, CellRef cell);
  void clear();
  /// Every formula cell that depends, directly or through other formula cells, on any of
  /// `changed`; each once.
  std::vector<std::pair<SheetId, CellRef>> dependents(
      const std::vector<std::pair<SheetId, CellRef>>& changed) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qz::engine::calc
