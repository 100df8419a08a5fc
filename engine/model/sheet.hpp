// A worksheet or chart sheet: its cells and formula table, row and column properties,
// hyperlinks, chart objects, merged areas, selection, and which of its parts changed since
// loading.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/model/cells.hpp"

namespace qz::engine {

// ---------------------------------------------------------------------------------------------
// Rows and columns

/// Properties of one row or one column. `size` < 0 means the sheet's default.
struct LineInfo {
  double size = -1;  ///< row height in points, column width in characters
  bool hidden = false;
  uint8_t outline_level = 0;
  bool collapsed = false;
  bool has_style = false;
  uint32_t style = 0;  ///< xf index for cells of the line without a stored cell
  bool custom_size = false;
  /// Attributes the model does not describe (thickTop, ph, ...), for writing back.
  std::vector<std::pair<String, String>> attrs;
  bool is_default() const {
    return size < 0 && !hidden && outline_level == 0 && !collapsed && !has_style && attrs.empty();
  }
};

// ---------------------------------------------------------------------------------------------
// Sheet parts

struct HyperlinkRec {
  Rect ref;
  String address;      ///< external target (URL, file); "" for a link inside the workbook
  String sub_address;  ///< location inside the target ("Sheet2!A1")
  String screen_tip;
  String display;
  String rel_id;  ///< the relationship id a file used, for writing back
};

struct ChartObjectRec {
  String name;
  /// Opaque identity the file layer uses to find the drawing anchor again.
  String file_key;
};

/// A sheet's selection and active cell.
struct Selection {
  std::vector<Rect> areas{Rect{}};
  CellRef active;
};

/// Which parts of a sheet or workbook differ from what was loaded.
struct Changes {
  bool cells = false;   ///< values, formulas, cell formats, hyperlinks, merged areas
  bool layout = false;  ///< row and column properties
  bool sheet = false;   ///< name, visibility, selection, chart objects
  void all() { cells = layout = sheet = true; }
  bool any() const { return cells || layout || sheet; }
};

enum class SheetKind : uint8_t { Worksheet, Chart };

/// A sheet's visibility, with the application's numbers (xl::SheetVisible, SheetHidden,
/// SheetVeryHidden).
inline constexpr int32_t kSheetVisible = -1;
inline constexpr int32_t kSheetHidden = 0;
inline constexpr int32_t kSheetVeryHidden = 2;

class Book;

/// A table (a list object): a named block of columns under a header row, with an optional
/// totals row.
struct TableRec {
  String name;  ///< the name formulas use (the file's display name)
  Rect ref;     ///< the whole table, header and totals rows included
  int32_t header_rows = 1;
  int32_t totals_rows = 0;
  std::vector<String> columns;  ///< column names, left to right
  std::string part;             ///< the package part it was read from
  bool changed = false;         ///< the part must be brought up to date from the model
};

/// A worksheet or chart sheet.
class Sheet {
 public:
  Sheet(Book* book, SheetId id, String name, SheetKind kind)
      : book(book), id(id), name(std::move(name)), kind(kind) {}

  Book* book;  ///< the owning workbook (nullptr once the sheet was deleted)
  SheetId id;  ///< stable identity (calc::SheetId)
  String name;
  SheetKind kind;
  int32_t visibility = kSheetVisible;  ///< kSheetVisible, kSheetHidden or kSheetVeryHidden
  String code_name;

  CellStore cells;
  std::vector<FormulaCell> formulas;  ///< indexed by Cell::index of Formula cells
  std::vector<uint32_t> free_formulas;
  std::map<int32_t, LineInfo> rows;
  std::map<int32_t, LineInfo> cols;
  double default_row_height = 15;
  double default_col_width = 8.43;

  std::vector<HyperlinkRec> hyperlinks;
  std::vector<TableRec> tables;
  std::vector<ChartObjectRec> chart_objects;
  std::vector<Rect> merged;
  /// The list the sheet shows filter buttons over (its header row included), if any.
  std::optional<Rect> auto_filter;
  Selection selection;
  /// The latest results of array formulas entered over more than one cell, by formula slot,
  /// row by row over the block: what the other cells of the block show until the results are
  /// stored in them once calculation is over.
  std::map<uint32_t, std::vector<calc::Value>> array_results;
  /// The formula slots of array formulas entered over more than one cell, and of those that
  /// spill.
  std::vector<uint32_t> array_blocks;
  /// Cells a spilled result no longer covers since it shrank or moved; emptied once the
  /// calculation is over.
  std::vector<Rect> vacated;
  /// Shared-formula masters by shared index, while loading (a child names only the index).
  std::unordered_map<int32_t, CellRef> shared_masters;

  Changes changed;
  /// Whatever the file layer keeps for this sheet between load and save.
  std::shared_ptr<void> file_state;

  /// The xf a cell shows: its own, else its row's, else its column's, else 0.
  uint32_t style_at(int32_t row, int32_t col) const;
  /// A new formula slot (reusing freed ones).
  uint32_t new_formula();
  void free_formula(uint32_t index);
  FormulaCell& formula(const Cell& c) { return formulas[c.index]; }
  const FormulaCell& formula(const Cell& c) const { return formulas[c.index]; }
  bool deleted() const { return book == nullptr; }
};

}  // namespace qz::engine
