// The calculation check: recalculating the formulas of a workbook read from a file must give
// the values the file has cached (which the application computed when it saved). Each
// formula is evaluated against the cached values of the cells it reads, so one wrong function
// shows once instead of spreading through a model.
//
// Whoever reads files fills a CheckWorkbook and calls check_cached_values; the report says
// how many formulas agreed and shows the first disagreements.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "engine/calc/calc.hpp"

namespace qz::engine::calc {

/// A cell as a file holds it.
struct CheckCell {
  SheetId sheet = 0;  ///< index into CheckWorkbook::sheets
  CellRef cell;
  Value cached;             ///< the cached value (Empty when the file holds none)
  bool has_cached = true;   ///< false: a formula cell without a cached value
  String formula;           ///< A1 text without "=", empty for constants
  bool array = false;       ///< an array formula entered over `array_range`
  Rect array_range;         ///< its block, `cell` being the top-left corner
  bool data_table = false;  ///< a cell of a what-if data table: not checked
};

struct CheckName {
  String name;
  SheetId scope = kNoSheet;  ///< the sheet of a sheet-level name
  String formula;            ///< A1 text without "="
};

struct CheckWorkbook {
  std::string label;           ///< for reports (the file name)
  std::vector<String> sheets;  ///< sheet names in workbook order
  std::vector<CheckCell> cells;
  std::vector<CheckName> names;
  std::vector<std::pair<SheetId, int32_t>> hidden_rows;  ///< (sheet, 0-based row)
  bool date1904 = false;
};

struct CheckReport {
  size_t formulas = 0;  ///< formula cells seen
  size_t checked = 0;   ///< formula cells whose functions are all known
  size_t agreed = 0;    ///< of those, the ones that recalculate to the cached value
  /// Why formulas were not checked ("unknown function", "volatile", "external link", ...).
  std::map<std::string, size_t> skipped;
  /// The first disagreements: "file!Sheet!A1: =formula -> calculated, file has cached".
  std::vector<std::string> disagreements;

  double agreement() const { return checked ? static_cast<double>(agreed) / checked : 1.0; }
  void add(const CheckReport& other, size_t max_reports = 200);
};

/// Recalculates every formula cell of `book` against the cached values of its inputs and
/// compares with the cell's own cached value (numbers to nine significant digits, text
/// exactly, Booleans and errors by kind). Formulas that call volatile functions (NOW, RAND,
/// ...), functions outside function_names() or not computable from a file, other workbooks,
/// structured references or data tables are counted as skipped, with the reason.
CheckReport check_cached_values(const CheckWorkbook& book, size_t max_reports = 50);

}  // namespace qz::engine::calc
