// The engine's workbook model: what a workbook holds, kept close to the way the workbook file
// format keeps it, so that a file layer can fill it from a package and write it back without
// losing anything.
//
// Shape of the model:
//  - Book: sheets in tab order, the style table, the shared-string pool, defined names, custom
//    document properties, windows, the colour palette and theme, the 1904 flag.
//  - Sheet: a worksheet or a chart sheet. A worksheet has a sparse cell store, row and column
//    properties, hyperlinks, chart objects (by name), merged areas and its selection.
//  - Styles are append-only tables: fonts, fills, borders and number formats referred to by
//    index or id, and cell formats (xf records) combining them. An index, once handed out, keeps
//    its meaning; a new combination is appended (or found again through a dedupe map).
//  - Change tracking (Changes) says which parts of a workbook differ from what was loaded, so a
//    saver rewrites only those.
//  - Formula cells loaded from a file keep the text and attributes they were read with
//    (FileFormula) until they change; parsing is lazy.
//  - `file_state` slots on Book and Sheet hold whatever a file layer keeps between load and save.
//
// Everything here is plain data plus the few operations that keep its invariants (cell store
// ordering, style dedupe, string interning). What a user does to cells (entries, formats,
// recalculation) is in book.hpp; the host objects are in host_objects.hpp.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/calc/calc.hpp"
#include "qzxl/variant.hpp"

namespace qz::engine {

using calc::CellRef;
using calc::Rect;
using calc::SheetId;

/// Last row and column, 0-based.
inline constexpr int32_t kLastRow = calc::kMaxRows - 1;
inline constexpr int32_t kLastCol = calc::kMaxCols - 1;

// ---------------------------------------------------------------------------------------------
// Colours

/// A colour as a workbook file stores it. `resolve` (Book::rgb) turns it into an RGB value.
struct Color {
  enum class Kind : uint8_t {
    Auto,     ///< the automatic colour (window text for fonts); also "not set"
    Rgb,      ///< `argb` holds 0xAARRGGBB
    Theme,    ///< `index` is a theme slot as files number them (0 light 1, 1 dark 1, ...)
    Indexed,  ///< `index` is a legacy palette index: 0-7 fixed, 8-63 the workbook palette
              ///< (Workbook.Colors 1..56), 64 system foreground, 65 system background
  };
  Kind kind = Kind::Auto;
  uint32_t argb = 0;
  int32_t index = 0;
  double tint = 0;  ///< -1..1, darkens or lightens theme and other colours

  static Color rgb(int32_t bgr_long);  ///< from an automation colour (R + 256 G + 65536 B)
  static Color automatic() { return {}; }
  friend bool operator==(const Color&, const Color&) = default;
};

// ---------------------------------------------------------------------------------------------
// Styles

enum class Underline : uint8_t { None, Single, Double, SingleAccounting, DoubleAccounting };
enum class VertAlign : uint8_t { Baseline, Superscript, Subscript };

/// A font record (a cell's font, or a rich-text run's own font).
struct FontRec {
  String name = u"Calibri";
  double size = 11;
  bool bold = false;
  bool italic = false;
  bool strike = false;
  bool outline = false;
  bool shadow = false;
  bool condense = false;
  bool extend = false;
  Underline underline = Underline::None;
  VertAlign vert_align = VertAlign::Baseline;
  Color color;
  int32_t family = 0;    ///< 0 = not written
  int32_t charset = -1;  ///< -1 = not written
  String scheme;         ///< "minor", "major" or "" (none)
  friend bool operator==(const FontRec&, const FontRec&) = default;
};

/// A fill record. Pattern fills only; gradient fills read from a file keep their index and
/// are written back by the file layer from what it retained.
struct FillRec {
  String pattern = u"none";  ///< "none", "solid", "gray125", ...
  Color fg;
  Color bg;
  bool gradient = false;  ///< a gradient fill the model does not describe
  friend bool operator==(const FillRec&, const FillRec&) = default;
};

struct BorderSide {
  String style;  ///< "" none, "thin", "medium", "double", ...
  Color color;
  friend bool operator==(const BorderSide&, const BorderSide&) = default;
};

struct BorderRec {
  BorderSide left, right, top, bottom, diagonal;
  bool diagonal_up = false;
  bool diagonal_down = false;
  friend bool operator==(const BorderRec&, const BorderRec&) = default;
};

/// Horizontal alignment with the application's numbers (`xl::HAlign...`).
enum class HAlign : uint8_t {
  General,
  Left,
  Center,
  Right,
  Fill,
  Justify,
  CenterContinuous,
  Distributed
};

struct Alignment {
  HAlign horizontal = HAlign::General;
  String vertical;  ///< "" (bottom), "top", "center", "justify", "distributed"
  bool wrap = false;
  bool shrink = false;
  int32_t indent = 0;
  int32_t rotation = 0;
  friend bool operator==(const Alignment&, const Alignment&) = default;
};

/// A cell format (an xf record): what a cell's style index points at.
struct Xf {
  uint32_t font = 0;
  uint32_t fill = 0;
  uint32_t border = 0;
  uint32_t numfmt = 0;  ///< number format id: built-in (0..163) or custom (164..)
  uint32_t xf_id = 0;   ///< the named cell style it is based on
  Alignment align;
  bool locked = true;
  bool hidden = false;
  /// The entry began with an apostrophe: the application keeps that on the format, and
  /// `PrefixCharacter` reports "'".
  bool quote_prefix = false;
  /// Which apply* flags a file wrote (bit 0 numfmt, 1 font, 2 fill, 3 border, 4 alignment,
  /// 5 protection); kept for writing back.
  uint8_t apply = 0;
  /// For an xf the engine appended: the xf it was derived from (so a writer can copy what the
  /// model does not describe); -1 for loaded ones.
  int32_t derived_from = -1;
  bool operator==(const Xf& o) const {
    // derived_from is provenance, not part of the format.
    return font == o.font && fill == o.fill && border == o.border && numfmt == o.numfmt &&
           xf_id == o.xf_id && align == o.align && locked == o.locked && hidden == o.hidden &&
           quote_prefix == o.quote_prefix && apply == o.apply;
  }
};

/// The style tables of a workbook. Append-only: indices and ids never change meaning. A new
/// workbook starts with the records every workbook has (font 0, fills "none" and "gray125",
/// an empty border, xf 0).
class StyleTable {
 public:
  StyleTable();

  std::vector<FontRec> fonts;
  std::vector<FillRec> fills;
  std::vector<BorderRec> borders;
  std::vector<Xf> xfs;
  /// Custom number formats by id (164 and up, or loaded ids that override nothing built in).
  std::map<uint32_t, String> numfmts;

  /// Clears everything, for a loader that fills the tables from a file (no default records).
  void clear();

  /// The index of an equal record, appending one when there is none.
  uint32_t font_index(const FontRec& f);
  uint32_t fill_index(const FillRec& f);
  uint32_t border_index(const BorderRec& b);
  uint32_t xf_index(const Xf& x);
  /// The id of a number format code: built-in id, existing custom id, or a new custom id.
  uint32_t numfmt_id(StringView code);
  /// The code of a number format id ("General" for unknown ids).
  String numfmt_code(uint32_t id) const;

  const Xf& xf(uint32_t index) const { return xfs[index < xfs.size() ? index : 0]; }
  const FontRec& font(uint32_t index) const { return fonts[index < fonts.size() ? index : 0]; }
  const FillRec& fill(uint32_t index) const { return fills[index < fills.size() ? index : 0]; }

  /// Set whenever a record is appended or the palette changes (the styles part must be
  /// rewritten).
  bool changed = false;

 private:
  template <class T>
  uint32_t find_or_add(std::vector<T>& table, std::unordered_multimap<size_t, uint32_t>& index,
                       size_t& indexed_upto, const T& rec, size_t hash);
  std::unordered_multimap<size_t, uint32_t> font_map_, fill_map_, border_map_, xf_map_;
  size_t indexed_fonts_ = 0, indexed_fills_ = 0, indexed_borders_ = 0, indexed_xfs_ = 0;
};

// ---------------------------------------------------------------------------------------------
// Shared strings

/// A rich-text run: from `start` (UTF-16 units) to the next run's start. A run without a font
/// shows in the cell's font.
struct Run {
  uint32_t start = 0;
  std::optional<FontRec> font;
  friend bool operator==(const Run&, const Run&) = default;
};

/// The workbook's texts, interned: a cell holds an index into this pool. Plain texts are kept
/// in one buffer and deduplicated; rich texts (with runs) are entries of their own. Entries
/// are appended, never renumbered, so a file's shared-string indices can be kept as they are.
class StringPool {
 public:
  /// The index of a plain text, adding it when new.
  uint32_t intern(StringView text);
  /// Adds a text with runs (always a new entry; `runs` empty means plain).
  uint32_t add_rich(StringView text, std::vector<Run> runs);
  /// Appends an entry as a file lists it, without deduplication (a loader keeps the file's
  /// numbering this way).
  uint32_t append(StringView text, std::vector<Run> runs = {});

  StringView text(uint32_t index) const;
  /// The runs of an entry (empty for plain text).
  const std::vector<Run>& runs(uint32_t index) const;
  size_t size() const { return starts_.size(); }
  size_t memory_bytes() const;

  /// Set when an entry was appended after loading.
  bool changed = false;

 private:
  // Texts live in fixed blocks, each preceded by its length, so that growing the pool never
  // copies it and no block is more than one text short of full.
  static constexpr uint32_t kBlock = 1u << 16;
  void grow_table();
  std::vector<std::unique_ptr<char16_t[]>> blocks_;
  uint32_t fill_ = kBlock;                     // units used in the last block
  std::vector<uint32_t> starts_;               // block << 16 | position of the length unit
  std::unordered_map<uint32_t, String> long_;  // texts too long for a block
  std::vector<uint32_t> table_;                // open addressing: index + 1, 0 = free
  size_t table_used_ = 0;
  std::unordered_map<uint32_t, std::vector<Run>> runs_;
};

// ---------------------------------------------------------------------------------------------
// Cells

enum class CellKind : uint8_t {
  Blank,    ///< no value; kept because it has a format
  Number,   ///< `num`
  Text,     ///< `index` into the StringPool
  Boolean,  ///< `num` 0 or 1
  Error,    ///< `num` the error code (2007 #DIV/0!, ...)
  Formula,  ///< `index` into the sheet's formula table
};

/// One stored cell: 16 bytes, so that a million numbers stay well under 40 bytes each.
struct Cell {
  int32_t row = 0;
  uint32_t bits = 0;  // low 4 bits: kind; the rest: the xf index
  union {
    double num;
    uint32_t index;
  };
  Cell() : num(0) {}

  CellKind kind() const { return static_cast<CellKind>(bits & 15u); }
  uint32_t style() const { return bits >> 4; }
  void set_kind(CellKind k) { bits = (bits & ~15u) | static_cast<uint32_t>(k); }
  void set_style(uint32_t xf) { bits = (bits & 15u) | (xf << 4); }
  /// Has a value or a formula (what Ctrl+arrow and `Value` see as non-empty).
  bool has_content() const { return kind() != CellKind::Blank; }
};
static_assert(sizeof(Cell) == 16);

/// How a formula was written in the file it came from; kept so that an unchanged formula is
/// written back exactly as read. A loaded workbook holds one per formula cell, often millions,
/// so the record is small: the text stays in the file's UTF-8 (formulas are nearly always
/// short ASCII, which fits inside the string itself) and is widened only when someone reads or
/// parses it; what only some formulas carry sits behind one pointer.
struct FileFormula {
  /// The <f> element's t attribute.
  enum class Type : uint8_t {
    None,       ///< no t attribute
    Normal,     ///< t="normal"
    Shared,     ///< t="shared"
    Array,      ///< t="array"
    DataTable,  ///< t="dataTable"
    Other,      ///< another value, kept in `rare->type`
  };
  /// What few formulas have.
  struct Rare {
    String type;  ///< the t attribute when `Type::Other`
    String ref;   ///< the ref attribute (shared master, array, data table)
    /// Other attributes of <f> as name/value pairs (aca, ca, dt2D, ...).
    std::vector<std::pair<String, String>> attrs;
    /// Attributes of the <c> element the model does not describe (cm, vm, ph).
    std::vector<std::pair<String, String>> cell_attrs;
  };

  std::string text;  ///< the <f> text as read (UTF-8, without "="); "" for a shared child
  Type type = Type::None;
  int32_t shared_index = -1;
  std::unique_ptr<Rare> rare;  ///< nullptr when there is nothing rare

  /// `rare`, made when absent (for a loader).
  Rare& more() {
    if (!rare) rare = std::make_unique<Rare>();
    return *rare;
  }
  /// The ref attribute; "" when absent.
  const String& ref() const;
  /// The t attribute as the file wrote it; "" when absent.
  String type_text() const;
  /// Sets `type` (and `rare->type` for values without a name here) from a t attribute.
  void set_type(std::string_view t);
  /// The text, widened.
  String text16() const;
};

/// A formula cell's state.
struct FormulaCell {
  CellRef at;                         ///< where it is (kept in step with structural changes)
  calc::FormulaPtr parsed;            ///< nullptr until parsed (formulas from files parse lazily)
  calc::Value value;                  ///< the last calculated (or loaded) value
  std::unique_ptr<FileFormula> file;  ///< as read from a file; dropped when the formula changes
  /// For a shared-formula child read from a file: the master's position (its parsed formula
  /// is shared, since references are stored relative).
  std::optional<CellRef> shared_master;
  bool array = false;  ///< an array formula (entered over `array_ref`)
  Rect array_ref;
  bool dirty = false;        ///< needs recalculation
  bool in_progress = false;  ///< on the evaluation path (circular references see it)
  bool is_volatile = false;
  bool live = false;  ///< slot in use
};

/// A sparse cell store for one worksheet: per column, sorted chunks of cells.
class CellStore {
 public:
  const Cell* find(int32_t row, int32_t col) const;
  Cell* find(int32_t row, int32_t col);
  /// The cell, created Blank with style `style` when absent.
  Cell& get_or_create(int32_t row, int32_t col, uint32_t style = 0);
  void erase(int32_t row, int32_t col);

  /// Visits the stored cells of `area` row by row, left to right. Stops when `visit` returns
  /// false.
  void for_each(const Rect& area,
                const std::function<bool(int32_t row, int32_t col, const Cell&)>& visit) const;
  /// The same walk over the whole store for visitors called once per stored cell (writing a
  /// sheet out): `visit(row, col, cell)` is called directly, without a std::function, and
  /// narrow or dense sheets merge their columns by a scan per row instead of through a heap.
  /// Never stops early.
  template <class Visit>
  void for_each_cell(Visit&& visit) const;
  /// Mutable visit (same order); the visitor may change the cell but not add or erase cells.
  void for_each_mut(const Rect& area,
                    const std::function<void(int32_t row, int32_t col, Cell&)>& visit);
  /// Stored cells of one column between rows r1 and r2, top down.
  void for_each_in_column(int32_t col, int32_t r1, int32_t r2,
                          const std::function<bool(int32_t row, const Cell&)>& visit) const;
  /// Number of stored cells inside `area`.
  size_t count_in(const Rect& area) const;

  /// The nearest row in `col` after (`down`) or before `row` whose cell has content.
  std::optional<int32_t> next_content_in_column(int32_t col, int32_t row, bool down) const;

  size_t size() const { return size_; }
  /// The bottom-right corner of all stored cells; nothing when empty.
  std::optional<Rect> extent() const;
  /// Columns that may hold cells: 0 .. column_span()-1.
  int32_t column_span() const { return static_cast<int32_t>(cols_.size()); }

  /// Shifts cells for inserted or deleted rows/columns; deleted cells are handed to
  /// `removed` first (so their formula slots can be freed).
  void insert_rows(int32_t at, int32_t count);
  void delete_rows(int32_t at, int32_t count, const std::function<void(const Cell&)>& removed);
  void insert_cols(int32_t at, int32_t count);
  void delete_cols(int32_t at, int32_t count, const std::function<void(const Cell&)>& removed);
  void clear();

  size_t memory_bytes() const;

 private:
  using Chunk = std::vector<Cell>;
  struct Column {
    std::vector<Chunk> chunks;
  };
  static constexpr size_t kChunk = 512;
  /// Up to this many used columns (or more, when the cells fill most of their rows) a
  /// row-order walk scans every column's cursor per row; the scan costs one comparison per
  /// column and row, which beats a heap's reordering per cell until rows hold few of the
  /// columns.
  static constexpr size_t kMergeByScan = 64;
  static Cell* find_in(Column& c, int32_t row);
  std::vector<Column> cols_;
  size_t size_ = 0;
};

template <class Visit>
void CellStore::for_each_cell(Visit&& visit) const {
  struct Cursor {
    int32_t col;
    const Chunk* chunk;  // the chunk `at` is in
    const Chunk* last;   // the column's last chunk
    const Cell* at;
  };
  std::vector<Cursor> cur;
  for (size_t col = 0; col < cols_.size(); ++col) {
    const auto& chunks = cols_[col].chunks;
    if (!chunks.empty())
      cur.push_back(
          {static_cast<int32_t>(col), &chunks.front(), &chunks.back(), chunks.front().data()});
  }
  // The scan costs a step per cursor and row; beyond kMergeByScan columns it is used only when
  // rows hold a good share of the columns (a wide block of data), and a heap merges sparse
  // ones.
  int32_t first = kLastRow, last = 0;
  for (const Cursor& c : cur) {
    first = std::min(first, c.at->row);
    last = std::max(last, c.last->back().row);
  }
  const uint64_t scan_steps =
      static_cast<uint64_t>(cur.size()) * (cur.empty() ? 0 : last - first + 1);
  if (cur.size() > kMergeByScan && scan_steps > 4 * static_cast<uint64_t>(size_)) {
    for_each(Rect{0, 0, kLastRow, kLastCol}, [&](int32_t r, int32_t c, const Cell& cell) {
      visit(r, c, cell);
      return true;
    });
    return;
  }
  // Cursors stay in column order; each pass visits the cells of the lowest row left and finds
  // the next lowest row on the way. Empty chunks do not occur (erasing drops them).
  constexpr int32_t kDone = kLastRow + 1;
  int32_t row = kDone;
  for (const Cursor& c : cur) row = std::min(row, c.at->row);
  while (row != kDone) {
    int32_t next = kDone;
    for (Cursor& c : cur) {
      if (c.at == nullptr) continue;
      if (c.at->row == row) {
        visit(row, c.col, *c.at);
        if (++c.at == c.chunk->data() + c.chunk->size()) {
          if (c.chunk == c.last) {
            c.at = nullptr;
            continue;
          }
          ++c.chunk;
          c.at = c.chunk->data();
        }
      }
      next = std::min(next, c.at->row);
    }
    row = next;
  }
}

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

class Book;

/// A worksheet or chart sheet.
class Sheet {
 public:
  Sheet(Book* book, SheetId id, String name, SheetKind kind)
      : book(book), id(id), name(std::move(name)), kind(kind) {}

  Book* book;  ///< the owning workbook (nullptr once the sheet was deleted)
  SheetId id;  ///< stable identity (calc::SheetId)
  String name;
  SheetKind kind;
  int32_t visibility = -1;  ///< xl::SheetVisible / SheetHidden / SheetVeryHidden
  String code_name;

  CellStore cells;
  std::vector<FormulaCell> formulas;  ///< indexed by Cell::index of Formula cells
  std::vector<uint32_t> free_formulas;
  std::map<int32_t, LineInfo> rows;
  std::map<int32_t, LineInfo> cols;
  double default_row_height = 15;
  double default_col_width = 8.43;

  std::vector<HyperlinkRec> hyperlinks;
  std::vector<ChartObjectRec> chart_objects;
  std::vector<Rect> merged;
  Selection selection;
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

// ---------------------------------------------------------------------------------------------
// Workbook parts

/// A defined name.
struct DefinedName {
  String name;                     ///< without sheet qualifier
  SheetId scope = calc::kNoSheet;  ///< the sheet of a sheet-level name
  bool hidden = false;
  String comment;
  String formula;           ///< what it refers to, A1 text without "="
  calc::FormulaPtr parsed;  ///< parsed `formula` relative to A1; nullptr when the text
                            ///< does not parse (kept as text)
  /// Attributes the model does not describe (function, vbProcedure, shortcutKey, ...).
  std::vector<std::pair<String, String>> attrs;
};

/// A custom document property. `type` is the automation type (1 number, 2 Boolean, 3 date,
/// 4 text, 5 float).
struct CustomProperty {
  String name;
  int32_t type = 4;
  Variant value;
  /// The file's value element name (vt:lpwstr, vt:i4, vt:filetime, ...), for writing back.
  String file_type;
};

struct WindowRec {
  bool visible = true;
  /// Attributes of the workbook view the model does not describe.
  std::vector<std::pair<String, String>> attrs;
};

/// The workbook's changes besides its sheets'.
struct BookChanges {
  bool workbook = false;  ///< sheets added/removed/renamed/reordered, names, windows, 1904
  bool props = false;     ///< custom document properties
  // Styles and shared strings carry their own `changed` flags.
};

/// The default 56-colour palette (Workbook.Colors 1..56), as automation colours.
const std::array<int32_t, 56>& default_palette();

/// Theme colours in the order a theme lists them: dk1, lt1, dk2, lt2, accent1..6, hlink,
/// folHlink (as 0xRRGGBB).
using ThemePalette = std::array<uint32_t, 12>;
const ThemePalette& default_theme();

}  // namespace qz::engine
