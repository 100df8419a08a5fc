// A workbook and what a user does to it: entries, values, formats, names, recalculation and
// structural changes. The host objects (engine/host/) are thin views over these operations; a
// file layer fills a Book through the loading members and the model's data.
//
// Shape of the model, which stays close to the way the workbook file format keeps a workbook,
// so that a file layer can fill it from a package and write it back without losing anything:
//  - Book: sheets in tab order, the style tables (styles.hpp), the shared-string pool
//    (strings.hpp), defined names (names.hpp), custom document properties, windows, the colour
//    palette and theme, the 1904 flag.
//  - Sheet (sheet.hpp): a worksheet or a chart sheet. A worksheet has a sparse cell store
//    (cells.hpp), row and column properties, hyperlinks, chart objects (by name), merged areas
//    and its selection.
//  - Change tracking (Changes, BookChanges) says which parts of a workbook differ from what was
//    loaded, so a saver rewrites only those.
//  - Formula cells loaded from a file keep the text and attributes they were read with
//    (FileFormula) until they change; parsing is lazy.
//  - `file_state` slots on Book and Sheet hold whatever a file layer keeps between load and save.
//
// The members are implemented by topic: book.cpp (identity, sheets, loading), values.cpp
// (reading and writing cells), styles.cpp (formats and colours), names.cpp, recalc.cpp
// (calculation) and structure.cpp (rows, columns and sheets inserted, deleted, renamed; copies).
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "engine/model/cells.hpp"
#include "engine/model/names.hpp"
#include "engine/model/sheet.hpp"
#include "engine/model/strings.hpp"
#include "engine/model/styles.hpp"

namespace qz::engine {

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

/// How the file asks to be calculated (its calcPr): iteratively, for circular references.
struct CalcSettings {
  bool iterate = false;
  int32_t iterate_count = 100;   ///< passes at most
  double iterate_delta = 0.001;  ///< stop once no value changes by more
};

/// What a full recalculation met.
struct CalcOutcome {
  /// Formula cells met again while being calculated, each once, in the order met.
  std::vector<std::pair<SheetId, CellRef>> circular;
  int32_t passes = 1;     ///< more than one when calculating iteratively
  bool converged = true;  ///< false when the passes ran out before the values settled
};

class Book;
using BookPtr = std::shared_ptr<Book>;

/// Another workbook that formulas refer to, with the values they last read from it.
struct ExternalLink {
  String target;               ///< the file as the link names it ("market.xlsx", "C:\x\B.xlsx")
  std::vector<String> sheets;  ///< its sheets, as the link lists them
  /// The values the link keeps, by sheet (as `sheets`) and cell.
  std::vector<std::map<std::pair<int32_t, int32_t>, calc::Value>> values;
  /// Read from the file: its part is written back as it was.
  bool from_file = false;
  /// The file name without its folder ("market.xlsx").
  String file_name() const;
};

/// A workbook.
class Book : public calc::SheetResolver, public std::enable_shared_from_this<Book> {
 public:
  explicit Book(String name);
  ~Book() override;

  // --- identity and state -------------------------------------------------------------------
  String name;  ///< "Book1", "Budget.xlsx"
  String path;  ///< folder, "" for a new workbook
  bool date1904 = false;
  bool read_only = false;
  bool saved = true;  ///< no unsaved changes
  String code_name;   ///< the VBA project's workbook module name, "" without a project
  bool has_vba = false;

  std::vector<std::shared_ptr<Sheet>> sheets;  ///< tab order
  int32_t active_sheet = 0;                    ///< index into `sheets`
  StyleTable styles;
  StringPool strings;
  std::vector<CustomProperty> props;
  std::vector<WindowRec> windows{WindowRec{}};
  std::array<int32_t, 56> palette;
  ThemePalette theme;
  BookChanges changed;
  /// Whatever the file layer keeps for this workbook between load and save.
  std::shared_ptr<void> file_state;

  /// Follows Application.Calculation: in automatic mode an edit recalculates its dependents.
  bool auto_calc = true;
  /// The clock NOW() and TODAY() read, as a cell serial (a seam for tests).
  std::function<double()> clock;

  // --- sheets --------------------------------------------------------------------------------
  /// Adds a sheet at `position` (0-based; -1 = at the end). Names must be valid and free,
  /// unless `check` is false (a loader taking a file's names as they are).
  Sheet& add_sheet(String sheet_name, SheetKind kind = SheetKind::Worksheet, int32_t position = -1,
                   bool check = true);
  Sheet* sheet(SheetId id) const;
  Sheet* sheet_by_name(StringView sheet_name) const;
  int32_t sheet_position(SheetId id) const;
  /// "Sheet4" / "Chart2": the first free default name.
  String next_sheet_name(SheetKind kind) const;
  /// Raises qz::Error when `candidate` is not a valid, free sheet name (ignoring `self`).
  void check_sheet_name(StringView candidate, SheetId self = calc::kNoSheet) const;
  void rename_sheet(Sheet& s, StringView new_name);
  void delete_sheet(SheetId id);
  /// A reader has added all of a file's sheets: what a formula parses to is settled from here.
  void sheets_read() { layout_as_read_ = true; }
  /// True from `sheets_read` for as long as no sheet has been added, removed or renamed, no
  /// row, column or cell has moved and no table or name has changed. Every parse a formula
  /// keeps was then made from its file text, at the cell it is in, under the sheets there are
  /// now: rendering it writes what parsing that text now and rendering would.
  bool layout_as_read() const { return layout_as_read_; }

  // --- tables --------------------------------------------------------------------------------
  /// The table of that name (without regard to case) and its sheet; nothing when absent.
  std::optional<std::pair<Sheet*, TableRec*>> find_table(StringView table_name);
  /// Renames a table; every formula and defined name that refers to it follows. Raises for
  /// an unknown table, an invalid name or one another table or defined name has.
  void rename_table(StringView table_name, StringView new_name);
  /// Renames column `column` (0-based) of a table, its header cell with it; formulas that
  /// name the column follow. Raises for an unknown table or column, an empty name or one
  /// another column of the table has.
  void rename_table_column(StringView table_name, int32_t column, StringView new_name);

  // calc::SheetResolver
  std::optional<SheetId> sheet_id(StringView sheet_name) const override;
  String sheet_name(SheetId id) const override;
  std::vector<SheetId> sheets_between(SheetId first, SheetId last) const override;
  std::vector<SheetId> sheet_order() const override;

  // --- links to other workbooks -------------------------------------------------------------
  /// In the order the file numbers them ([1] is links[0]).
  std::vector<ExternalLink> links;
  /// Another open workbook by file name, or nullptr; the application holding the workbooks
  /// sets it, so that links read open workbooks' current values.
  std::function<std::shared_ptr<Book>(StringView file_name)> find_open_book;
  /// The link and sheet a reference prefix names ("[1]Rates", "'[market.xlsx]Rates'",
  /// "'C:\x\[B.xlsx]S'"); a workbook not linked yet gets a new link when `add`.
  std::optional<std::pair<size_t, String>> link_of(StringView prefix, bool add);
  /// A linked cell's value: from the open workbook, else the value the link keeps.
  std::optional<calc::Value> external_value(StringView prefix, CellRef cell);
  /// The formula with references a file numbers by link ("[1]Rates") naming the workbook
  /// instead ("[market.xlsx]Rates"), as `Range.Formula` shows them; `f` itself when it has none.
  calc::FormulaPtr with_link_names(const calc::FormulaPtr& f) const;

  // --- names ---------------------------------------------------------------------------------
  /// The defined names, in the order they were added; changed only through the members below.
  const NameTable& names() const { return names_; }
  /// Index of the name of that text at exactly that scope.
  std::optional<size_t> find_name(StringView text, SheetId scope) const;
  /// The name as a formula sees it from `from`: sheet-level first, then workbook-level.
  const DefinedName* resolve_name(StringView text, SheetId from) const;
  /// Indices of the names in enumeration order: by the text without sheet qualifier, code
  /// unit by code unit (so "Total" and "_bqz.x" come before "total"); for equal texts the
  /// workbook-level name first, then sheet-level ones in tab order. `scope` filters to one
  /// sheet's names.
  std::vector<size_t> sorted_names(std::optional<SheetId> scope = std::nullopt) const;
  /// Adds or redefines a name; `formula` is A1 text without "=". Raises for invalid names.
  size_t define_name(StringView text, SheetId scope, StringView formula, bool hidden);
  /// Renames the name at `index`; raises for an invalid text or one its scope already has.
  void rename_name(size_t index, StringView text);
  void set_name_hidden(size_t index, bool hidden);
  void delete_name(size_t index);
  /// Puts the sheet's filter buttons over `area` (nullopt removes them), with the hidden
  /// sheet-level name the application keeps for a filtered list.
  void set_auto_filter(Sheet& s, std::optional<Rect> area);
  /// "Sheet1!Total" for sheet-level names, "Total" otherwise.
  String qualified_name(const DefinedName& n) const;
  /// Raises qz::Error unless `text` is a valid defined-name text.
  static void check_name_text(StringView text);

  // --- colours -------------------------------------------------------------------------------
  /// The automation colour (R + 256 G + 65536 B) of a file colour; `automatic` is what Auto
  /// stands for in that place.
  int32_t rgb(const Color& c, int32_t automatic = 0) const;
  /// The palette index 1..56 nearest `rgb` (the lowest index among equals).
  int32_t nearest_color_index(int32_t rgb) const;

  // --- reading cells -------------------------------------------------------------------------
  /// The value a cell holds (a formula's last value).
  calc::Value value(const Sheet& s, int32_t row, int32_t col) const;
  /// The value, text, Boolean or error of a stored cell as calc sees it.
  calc::Value cell_value(const Sheet& s, const Cell& c) const;
  /// The number-format code the cell shows with.
  String format_code(const Sheet& s, int32_t row, int32_t col) const;
  /// `Range.Value` of one cell: a Date for date/time formats.
  Variant value_variant(const Sheet& s, int32_t row, int32_t col) const;
  /// Which cell formats show numbers as dates, remembered as asked: a reader of many cells
  /// meets few formats, and telling one costs its code copied and classified.
  class DatedFormats {
   public:
    bool operator()(const StyleTable& styles, uint32_t xf);

   private:
    std::vector<int8_t> known_;  // by xf: 0 not asked, 1 dates, 2 not
  };
  /// `value_variant` of a stored cell; `dated` (optional) remembers formats across calls.
  Variant cell_variant(const Sheet& s, const Cell& c, DatedFormats* dated = nullptr) const;
  /// `Range.Text` of one cell.
  String text(const Sheet& s, int32_t row, int32_t col) const;
  /// `Range.Formula` / `FormulaR1C1` of one cell ("" when empty).
  String formula_text(Sheet& s, int32_t row, int32_t col, calc::Notation notation);
  bool has_formula(const Sheet& s, int32_t row, int32_t col) const;
  /// The whole cell's font (rich runs aside).
  const FontRec& cell_font(const Sheet& s, int32_t row, int32_t col) const;

  // --- writing cells (each records the change; call `commit` after an operation) ------------
  /// Enters text as a person types it: "=..." a formula (A1 or R1C1 by `notation`), else a
  /// constant by the entry rules (numbers, dates, percent, Booleans, errors, "'" text).
  void enter(Sheet& s, int32_t row, int32_t col, StringView typed,
             calc::Notation notation = calc::Notation::A1);
  /// Stores a value as `Range.Value = v` does (strings go through the entry rules).
  void set_value(Sheet& s, int32_t row, int32_t col, const Variant& v);
  void set_constant(Sheet& s, int32_t row, int32_t col, const calc::Value& v);
  /// Stores a formula (text without "=").
  void set_formula(Sheet& s, int32_t row, int32_t col, StringView text, calc::Notation notation);
  /// Stores an already parsed formula (copies, fills).
  void set_parsed_formula(Sheet& s, int32_t row, int32_t col, calc::FormulaPtr f);
  void clear_contents(Sheet& s, const Rect& area);
  /// Contents and formats.
  void clear_all(Sheet& s, const Rect& area);
  /// Replaces the text entry of a text cell, keeping `runs` (rich text).
  void set_rich_text(Sheet& s, int32_t row, int32_t col, StringView text, std::vector<Run> runs);

  /// Changes the format of every cell in `area` through `change` (memoised per distinct xf).
  /// Whole rows and columns change their line style rather than creating every cell.
  void restyle(Sheet& s, const Rect& area, const std::function<Xf(const Xf&)>& change);
  /// Sets the font colour of one cell's format (rich-text runs aside), as `restyle` with that
  /// change does; the format each format becomes in each colour is remembered, as fonts are.
  void recolor_cell(Sheet& s, int32_t row, int32_t col, const Color& color);
  /// The same for a stored cell the caller has at hand (of a worksheet).
  void recolor_cell(Sheet& s, Cell& c, const Color& color);
  /// The index of font `font` with its colour set to `color`, found or added once and then
  /// remembered: colouring cells asks for the same few recoloured fonts over and over, and
  /// the style tables only grow, so a remembered index stays right.
  uint32_t font_with_color(uint32_t font, const Color& color);
  /// The distinct xf indices the cells of `area` show (capped: stops after 2 distinct).
  std::vector<uint32_t> styles_in(const Sheet& s, const Rect& area, size_t cap = 2) const;

  /// Recalculates after edits: dependents of the changed cells in automatic mode.
  void commit();
  /// Recalculates: dirty and volatile cells, or every formula when `all`.
  void calculate(bool all);
  /// Parses a formula cell if it has not been parsed (formulas from files parse lazily).
  const calc::Formula* ensure_parsed(Sheet& s, FormulaCell& f);
  /// The parse of a formula cell for reading it: the kept one when there is one, otherwise a
  /// fresh parse the cell does not keep. Null when the text does not parse.
  calc::FormulaPtr parsed_for_reading(Sheet& s, const FormulaCell& f);
  /// Number of formula evaluations so far (for measuring what a recalculation touched).
  uint64_t evaluations() const { return evaluations_; }

  /// The file's calculation settings (read by a file layer).
  CalcSettings calc_settings;
  /// Whether evaluation marks the formulas whose value may differ from the application's
  /// for reasons outside the calculation (FormulaCell::uncertain); costs a little time.
  bool trace_uncertain = false;
  /// Formulas that read another workbook keep their loaded values instead of #REF!: the
  /// file's own record of that workbook is all there is to go by without it.
  bool keep_linked_values = false;
  /// Told now and then during `recalculate_all` how many formulas are done of how many.
  std::function<void(uint64_t done, uint64_t total)> progress;
  /// Recalculates every formula, iterating over circular references when `calc_settings`
  /// asks for it, and says which cells were met in a circle.
  CalcOutcome recalculate_all();
  /// Why a formula cell is uncertain by itself ("volatile", "other workbook", ...); nothing
  /// when it is certain or only reads uncertain cells.
  const char* uncertain_reason(Sheet& s, FormulaCell& f);

  // --- structure -----------------------------------------------------------------------------
  /// Inserts (count > 0) or deletes (count < 0) whole rows or columns at `at`: cells, line
  /// properties, formulas everywhere, names, hyperlinks and merged areas follow their cells.
  void shift(Sheet& s, bool rows, int32_t at, int32_t count);
  /// Insert/Delete of part of a row or column with a shift direction, which the engine does
  /// not do: raises error 438 (not supported) and changes nothing; whole rows and columns go
  /// through shift().
  void shift_cells(Sheet& s, const Rect& area, bool down_or_up, bool insert);
  /// Copies values, formulas (relative references moved) and formats of `from` on `src` to
  /// `dst` with top-left `to`; a destination larger than the source repeats it.
  void copy(Sheet& src, const Rect& from, Sheet& dst, const Rect& to);

  // --- loading (for a file layer) ------------------------------------------------------------
  /// Stores a formula cell as read from a file: text (or a shared child's index), its cached
  /// value and xf. Parsing waits until it is needed.
  void load_formula(Sheet& s, int32_t row, int32_t col, std::unique_ptr<FileFormula> file,
                    const calc::Value& cached, uint32_t style);
  /// What loading one sheet's formulas leaves for the workbook to take over. Kept apart from
  /// the workbook so that a file layer can load several sheets at once, each on its own
  /// thread, and hand the results over in sheet order (`sheet_loaded`).
  struct SheetLoad {
    std::vector<uint32_t> uncached;  ///< formula slots without a kept value, in load order
    bool array_blocks = false;       ///< an array formula entered over more than one cell
  };
  /// `load_formula` touching nothing but `s` and `load`: safe beside loads of other sheets.
  void load_formula(Sheet& s, SheetLoad& load, int32_t row, int32_t col,
                    std::unique_ptr<FileFormula> file, const calc::Value& cached, uint32_t style);
  /// Takes over what loading the formulas of `s` left in `load` (call in sheet order).
  void sheet_loaded(const Sheet& s, SheetLoad& load);
  /// The workbook's copy of a formula parsed elsewhere (a file layer parsing ahead, with a
  /// cache of its own): equal formulas share one copy, as when parsed here.
  calc::FormulaPtr share_parse(calc::FormulaPtr parsed);
  /// Gives formula `slot` of `s` a parse of its text made ahead (touching nothing but `s`),
  /// as `ensure_parsed` would have parsed it.
  void set_parse(Sheet& s, uint32_t slot, calc::FormulaPtr shared);
  /// Marks everything as it was loaded: no changes, saved.
  void loaded();
  /// Calculates the formulas the file kept no value for (some writers leave that to the
  /// application opening the file), so no formula reads as empty; formulas with a kept value,
  /// volatile ones included, keep it.
  void calculate_uncached();
  /// True when anything changed since loading (or since `loaded`).
  bool any_change() const;

  /// Something every formula may depend on changed (a name was renamed...): the dependency
  /// graph is rebuilt and every formula recalculates (now, in automatic mode).
  void invalidate_graph();
  /// A name of that text was added, redefined, renamed or deleted: its users recalculate.
  void name_changed(StringView text);
  /// Adds a name as a file defines it (no recalculation; `formula` is parsed if it can be).
  void load_name(DefinedName name);
  void note_cell_change(Sheet& s, int32_t row, int32_t col);

 private:
  friend class CalcContext;
  // A new formula, a changed cell or a new format makes a workbook unsaved.
  void touch(Sheet& s) {
    s.changed.cells = true;
    saved = false;
  }
  Cell& writable_cell(Sheet& s, int32_t row, int32_t col);
  void drop_formula(Sheet& s, Cell& c);
  void rebuild_graph();
  void register_formula(Sheet& s, FormulaCell& f);
  std::vector<std::pair<SheetId, Rect>> reads_of(Sheet& s, FormulaCell& f,
                                                 std::vector<String>* names_used = nullptr);
  void evaluate_cell(Sheet& s, FormulaCell& f);
  /// Rewrites every formula and defined name after a table changed; the caller recalculates.
  void table_changed(const calc::TableChange& change);
  /// The result an array formula gives a cell of its block other than its own; nothing when
  /// the cell lies in no such block or the block has no fresh result.
  std::optional<calc::Value> array_result(Sheet& s, CellRef at);
  /// Fits the block of a formula that spills to its fresh result (#SPILL! when the cells it
  /// needs are taken) and returns the values of the block, row by row.
  std::vector<calc::Value> spill(Sheet& s, size_t index, calc::Spill result);
  /// Stores the fresh results of array formulas in the other cells of their blocks; false
  /// when none changed.
  bool store_array_results();
  /// Marks the formulas that read the changed cells (and the volatile ones) dirty.
  void dirty_dependents();
  void recalc_dirty();
  void recalc_dirty_once();
  /// Every formula is dirty (structure or names changed); recalculated now in automatic mode.
  void recalc_everything();
  String constant_formula(const Sheet& s, const Cell& c, int32_t row, int32_t col) const;

  NameTable names_;
  SheetId next_sheet_id_ = 0;
  calc::DependencyGraph graph_;
  bool graph_valid_ = false;
  // The formulas of the workbook's cells, one copy of each distinct one.
  calc::FormulaCache formula_cache_;
  bool array_blocks_ = false;  // some array formula is entered over more than one cell
  bool layout_as_read_ = false;
  std::vector<std::pair<SheetId, CellRef>> pending_;  // changed cells since the last commit
  std::vector<std::pair<SheetId, uint32_t>> dirty_;   // formula slots to recalculate
  std::vector<std::pair<SheetId, uint32_t>> volatile_;
  std::vector<std::pair<SheetId, uint32_t>> uncached_;  // loaded formulas without a value
  // Formula slots by the (upper-case) names they use, so a name's change reaches its users.
  std::unordered_map<String, std::vector<std::pair<SheetId, uint32_t>>> name_users_;
  uint64_t evaluations_ = 0;
  int32_t eval_depth_ = 0;
  bool reads_uncertain_ = false;  // the formula being evaluated read an uncertain cell
  std::vector<std::pair<SheetId, CellRef>> circular_;
  double largest_change_ = 0;  // between a formula's old and new value, over a pass
  std::optional<std::pair<SheetId, uint32_t>> deferred_;
  // What a font or a format (`from`) becomes in a colour, for the few that colouring asks
  // about over and over. The style tables only grow, so an answer stays right until a
  // loader starts them over (they shrink), which clears the memo.
  class RecolorMemo {
   public:
    std::optional<uint32_t> find(uint32_t from, const Color& color, size_t table_size);
    void remember(uint32_t from, const Color& color, uint32_t result, size_t table_size);

   private:
    struct Entry {
      uint32_t from;
      Color color;
      uint32_t result;
    };
    std::vector<Entry> seen_;
    size_t last_ = 0;  // the entry found last: runs of cells ask the same again
    size_t size_ = 0;  // the table's size when an answer was last remembered
  };
  RecolorMemo recolored_fonts_;  // font, colour -> font
  RecolorMemo recolored_xfs_;    // xf, colour -> xf
  // The xf index `old` becomes with its font in `color`.
  uint32_t recolored_xf(uint32_t old, const Color& color);
  // The xf index of `x`, made from `old`: found or added, a new one noting its origin.
  uint32_t derived_xf(uint32_t old, const Xf& x);
  // Sets one cell's format to `next(its format)`, making the cell when needed.
  void restyle_one(Sheet& s, int32_t row, int32_t col,
                   const std::function<uint32_t(uint32_t)>& next);
};

}  // namespace qz::engine
