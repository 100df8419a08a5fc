// The host object model: the spreadsheet application's objects as the library drives them.
//
// Everything the library does to a workbook it does through these interfaces. Two hosts
// implement them: the embedded workbook engine (engine/, the default on every machine) and,
// on Windows, an adapter over the real application's IDispatch objects (com/).
//
// Conventions of every member:
//  - A call the host refuses raises qz::Error (code and one-line message); the library runs
//    such calls through qz::step, so a failure skips one step and nothing more.
//  - Object results are never Nothing where the real application would raise instead;
//    members documented "or nullptr" return an empty pointer rather than raise.
//  - Properties that can be mixed over a range (font members, Hidden) return Variants that
//    are Null when the cells or characters differ.
//  - Enumeration values are the application's numbers (see the constants below).
//  - Optional arguments are Variants that may be Missing; named arguments come as structs.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "qzxl/host_fwd.hpp"
#include "qzxl/object.hpp"
#include "qzxl/variant.hpp"

namespace qz::host {

/// The application's enumeration values that the library uses.
namespace xl {
inline constexpr int32_t ToLeft = -4159;
inline constexpr int32_t ToRight = -4161;
inline constexpr int32_t Up = -4162;
inline constexpr int32_t Down = -4121;
inline constexpr int32_t CalculationManual = -4135;
inline constexpr int32_t CalculationAutomatic = -4105;
inline constexpr int32_t CalculationSemiautomatic = 2;
inline constexpr int32_t Worksheet = -4167;
inline constexpr int32_t Chart = -4109;
inline constexpr int32_t A1 = 1;
inline constexpr int32_t R1C1 = -4150;
inline constexpr int32_t Screen = 1;
inline constexpr int32_t Printer = 2;
inline constexpr int32_t Bitmap = 2;
inline constexpr int32_t Picture = -4147;
inline constexpr int32_t ColorIndexAutomatic = -4105;
inline constexpr int32_t ColorIndexNone = -4142;
inline constexpr int32_t UnderlineStyleNone = -4142;
inline constexpr int32_t UnderlineStyleSingle = 2;
inline constexpr int32_t UnderlineStyleDouble = -4119;
inline constexpr int32_t UnderlineStyleSingleAccounting = 4;
inline constexpr int32_t UnderlineStyleDoubleAccounting = 5;
inline constexpr int32_t HAlignGeneral = 1;
inline constexpr int32_t HAlignLeft = -4131;
inline constexpr int32_t HAlignCenter = -4108;
inline constexpr int32_t HAlignRight = -4152;
inline constexpr int32_t ShiftDown = -4121;
inline constexpr int32_t ShiftToRight = -4161;
inline constexpr int32_t ShiftUp = -4162;
inline constexpr int32_t ShiftToLeft = -4159;
inline constexpr int32_t SheetVisible = -1;
inline constexpr int32_t SheetHidden = 0;
inline constexpr int32_t SheetVeryHidden = 2;
inline constexpr int32_t DialogFormatNumber = 42;
}  // namespace xl

/// Office command-bar enumeration values.
namespace mso {
inline constexpr int32_t ControlButton = 1;
inline constexpr int32_t ControlPopup = 10;
inline constexpr int32_t ButtonUp = 0;
inline constexpr int32_t ButtonDown = -1;
inline constexpr int32_t BarTop = 1;
inline constexpr int32_t BarFloating = 4;
inline constexpr int32_t BarTypeNormal = 0;
inline constexpr int32_t BarTypeMenuBar = 1;
inline constexpr int32_t BarTypePopup = 2;
inline constexpr int32_t IdFile = 30002;
inline constexpr int32_t IdEdit = 30003;
inline constexpr int32_t IdView = 30004;
inline constexpr int32_t IdInsert = 30005;
inline constexpr int32_t IdFormat = 30006;
inline constexpr int32_t IdTools = 30007;
inline constexpr int32_t IdWindow = 30009;
inline constexpr int32_t IdHelp = 30010;
inline constexpr int32_t IdData = 30011;
inline constexpr int32_t IdFileNew = 18;
inline constexpr int32_t IdUndo = 128;
inline constexpr int32_t IdRedo = 129;
}  // namespace mso

/// Named arguments of `Workbooks.Open`; Missing ones are left out of the call.
struct OpenArgs {
  String filename;
  Variant update_links = Variant::missing();
  Variant read_only = Variant::missing();
  Variant format = Variant::missing();
  Variant password = Variant::missing();
  Variant write_res_password = Variant::missing();
  Variant ignore_read_only_recommended = Variant::missing();
  Variant origin = Variant::missing();
  Variant delimiter = Variant::missing();
  Variant editable = Variant::missing();
  Variant notify = Variant::missing();
  Variant converter = Variant::missing();
  Variant add_to_mru = Variant::missing();
};

/// Named arguments of `Names.Add`. `refers_to` is a formula text ("=Sheet1!$A$1") or a Range.
struct NameAddArgs {
  Variant name = Variant::missing();
  Variant refers_to = Variant::missing();
  Variant visible = Variant::missing();
  Variant macro_type = Variant::missing();
  Variant shortcut_key = Variant::missing();
  Variant category = Variant::missing();
  Variant name_local = Variant::missing();
  Variant refers_to_local = Variant::missing();
  Variant category_local = Variant::missing();
  Variant refers_to_r1c1 = Variant::missing();
  Variant refers_to_r1c1_local = Variant::missing();
};

/// Named arguments of `CommandBarControls.Add`.
struct ControlAddArgs {
  Variant type = Variant::missing();
  Variant id = Variant::missing();
  Variant parameter = Variant::missing();
  Variant before = Variant::missing();
  Variant temporary = Variant::missing();
};

/// Named arguments of `CommandBars.Add`.
struct BarAddArgs {
  Variant name = Variant::missing();
  Variant position = Variant::missing();
  Variant menu_bar = Variant::missing();
  Variant temporary = Variant::missing();
};

/// Named arguments of `CommandBars.FindControl` / `CommandBar.FindControl`.
struct FindControlArgs {
  Variant type = Variant::missing();
  Variant id = Variant::missing();
  Variant tag = Variant::missing();
  Variant visible = Variant::missing();
  Variant recursive = Variant::missing();
};

/// The application.
class Application : public Object {
 public:
  String type_name() const override { return u"Application"; }

  virtual String name() = 0;
  virtual WorkbooksPtr workbooks() = 0;
  /// The active workbook, or nullptr when no workbook is open.
  virtual WorkbookPtr active_workbook() = 0;
  /// The active sheet: a Worksheet or a Chart; nullptr when no workbook is open.
  virtual ObjectPtr active_sheet() = 0;
  /// The active cell, or nullptr when the active sheet is no worksheet.
  virtual RangePtr active_cell() = 0;
  /// The selection: usually a Range; a Chart or another object when one is selected.
  virtual ObjectPtr selection() = 0;
  /// `Application.Range(cell1, cell2)`: an address or name on the active sheet, or qualified
  /// ("Sheet2!A1", "'[Book1.xlsx]Data'!B2"); `cell1`/`cell2` may also be Ranges.
  virtual RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) = 0;
  /// `Application.Union`; raises when the ranges are on different sheets.
  virtual RangePtr union_(const RangePtr& a, const RangePtr& b) = 0;
  /// `Application.Intersect`; nullptr when the ranges do not overlap.
  virtual RangePtr intersect(const RangePtr& a, const RangePtr& b) = 0;

  virtual int32_t calculation() = 0;
  virtual void set_calculation(int32_t mode) = 0;
  virtual bool calculate_before_save() = 0;
  virtual void set_calculate_before_save(bool on) = 0;
  virtual bool display_alerts() = 0;
  virtual void set_display_alerts(bool on) = 0;
  virtual bool screen_updating() = 0;
  virtual void set_screen_updating(bool on) = 0;
  /// Recalculates all open workbooks (dirty cells in automatic mode; all in manual).
  virtual void calculate() = 0;
  /// `Application.Volatile`: marks the calling worksheet function volatile.
  virtual void volatile_(bool is_volatile = true) = 0;
  virtual WorksheetFunctionPtr worksheet_function() = 0;

  /// `Application.Undo`: takes back the user's last entry (or runs the library's undo
  /// procedure when Undo is pointed at one).
  virtual void undo() = 0;
  /// `Application.OnUndo(text, procedure)`: captions Undo and points it at a macro; empty
  /// texts give the command back to the application.
  virtual void on_undo(const String& text, const String& procedure) = 0;
  /// `Application.OnRepeat(text, procedure)`, the same for Redo/Repeat.
  virtual void on_repeat(const String& text, const String& procedure) = 0;
  virtual String on_entry() = 0;
  virtual void set_on_entry(const String& procedure) = 0;
  /// `Application.OnTime(EarliestTime, Procedure, LatestTime, Schedule)`.
  virtual void on_time(const Variant& earliest_time, const String& procedure,
                       const Variant& latest_time = Variant::missing(),
                       const Variant& schedule = Variant::missing()) = 0;
  /// `Application.Run(macro, args...)`.
  virtual Variant run(const String& macro, std::span<Variant> args = {}) = 0;
  /// `Application.SendKeys(keys, wait)`.
  virtual void send_keys(const String& keys, bool wait = false) = 0;
  /// `Application.Dialogs(id)`.
  virtual DialogPtr dialogs(int32_t id) = 0;

  virtual CommandBarsPtr command_bars() = 0;
  virtual AddInsPtr add_ins() = 0;
  /// Folder properties: the alternate startup folder, the startup folder and the
  /// application's own program folder ("" when the host has none).
  virtual String alt_startup_path() = 0;
  virtual void set_alt_startup_path(const String& path) = 0;
  virtual String startup_path() = 0;
  virtual String path() = 0;
  virtual void quit() = 0;
};

class Workbooks : public Object {
 public:
  String type_name() const override { return u"Workbooks"; }
  virtual int32_t count() = 0;
  /// By 1-based index or by name (the workbook's `Name`, compared without regard to case);
  /// raises error 9 when there is none.
  virtual WorkbookPtr item(const Variant& index) = 0;
  /// A new workbook (from a template file when one is given).
  virtual WorkbookPtr add(const Variant& template_ = Variant::missing()) = 0;
  virtual WorkbookPtr open(const OpenArgs& args) = 0;
};

class Workbook : public Object {
 public:
  String type_name() const override { return u"Workbook"; }
  virtual ApplicationPtr application() = 0;
  virtual String name() = 0;
  /// Folder the workbook was loaded from or saved to; "" for a new workbook.
  virtual String path() = 0;
  virtual String full_name() = 0;
  /// The code name of the workbook's module; "" for a workbook without a VBA project.
  virtual String code_name() = 0;
  virtual bool read_only() = 0;
  virtual bool saved() = 0;
  virtual void set_saved(bool saved) = 0;
  /// Whether the workbook uses the 1904 date system.
  virtual bool date1904() = 0;
  virtual void activate() = 0;
  virtual void close(const Variant& save_changes = Variant::missing(),
                     const Variant& filename = Variant::missing()) = 0;
  virtual void save() = 0;
  virtual void save_as(const String& filename) = 0;
  virtual WindowsPtr windows() = 0;
  /// Worksheets and chart sheets together, in tab order.
  virtual SheetsPtr sheets() = 0;
  virtual WorksheetsPtr worksheets() = 0;
  virtual ChartsPtr charts() = 0;
  /// All names of the workbook: workbook-level ones and the sheet-level ones of every sheet.
  virtual NamesPtr names() = 0;
  /// `Workbook.Colors(index)`, the palette, index 1..56.
  virtual int32_t colors(int32_t index) = 0;
  virtual void set_colors(int32_t index, int32_t color) = 0;
  virtual DocumentPropertiesPtr custom_document_properties() = 0;
};

class Windows : public Object {
 public:
  String type_name() const override { return u"Windows"; }
  virtual int32_t count() = 0;
  virtual WindowPtr item(const Variant& index) = 0;
};

class Window : public Object {
 public:
  String type_name() const override { return u"Window"; }
  virtual bool visible() = 0;
  virtual void set_visible(bool visible) = 0;
  virtual String caption() = 0;
};

/// Worksheets and chart sheets in tab order.
class Sheets : public Object {
 public:
  String type_name() const override { return u"Sheets"; }
  virtual int32_t count() = 0;
  /// A Worksheet or a Chart, by 1-based index or name; raises error 9 when there is none.
  virtual ObjectPtr item(const Variant& index) = 0;
};

class Worksheets : public Object {
 public:
  String type_name() const override { return u"Sheets"; }
  virtual int32_t count() = 0;
  /// By 1-based index or by name (compared without regard to case); raises error 9.
  virtual WorksheetPtr item(const Variant& index) = 0;
  /// A new worksheet, before `before` or after `after` (before the active sheet when both
  /// are Missing).
  virtual WorksheetPtr add(const Variant& before = Variant::missing(),
                           const Variant& after = Variant::missing()) = 0;
};

class Worksheet : public Object {
 public:
  String type_name() const override { return u"Worksheet"; }
  virtual ApplicationPtr application() = 0;
  virtual WorkbookPtr parent() = 0;
  virtual String name() = 0;
  /// Renames the sheet; raises when the name is taken, too long, empty or has : \ / ? * [ ].
  virtual void set_name(const String& name) = 0;
  virtual String code_name() = 0;
  /// 1-based position among all sheets.
  virtual int32_t index() = 0;
  /// `xl::Worksheet` (-4167).
  virtual int32_t type() = 0;
  virtual int32_t visible() = 0;
  virtual void set_visible(int32_t visibility) = 0;
  /// The names local to this sheet.
  virtual NamesPtr names() = 0;
  /// `Worksheet.Range(cell1, cell2)`: an address or name, or the block spanned by two
  /// Ranges or addresses.
  virtual RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) = 0;
  /// `Worksheet.Cells`: all cells of the sheet.
  virtual RangePtr cells() = 0;
  /// `Worksheet.Cells(row, column)`.
  virtual RangePtr cell(int32_t row, int32_t column) = 0;
  /// All rows / all columns of the sheet, seen as collections of rows / columns.
  virtual RangePtr rows() = 0;
  virtual RangePtr columns() = 0;
  /// The used range: the smallest block holding every cell with a value or a format; A1 on
  /// an empty sheet.
  virtual RangePtr used_range() = 0;
  virtual void activate() = 0;
  virtual void select() = 0;
  virtual void delete_() = 0;
  virtual ChartObjectsPtr chart_objects() = 0;
  virtual HyperlinksPtr hyperlinks() = 0;
};

class Charts : public Object {
 public:
  String type_name() const override { return u"Sheets"; }
  virtual int32_t count() = 0;
  virtual ChartPtr item(const Variant& index) = 0;
};

class Chart : public Object {
 public:
  String type_name() const override { return u"Chart"; }
  virtual ApplicationPtr application() = 0;
  /// The chart sheet's workbook, or the chart object holding an embedded chart.
  virtual ObjectPtr parent() = 0;
  virtual String name() = 0;
  virtual void set_name(const String& name) = 0;
  virtual int32_t type() = 0;
  virtual void activate() = 0;
  virtual void copy_picture(int32_t appearance, int32_t format, int32_t size) = 0;
};

class ChartObjects : public Object {
 public:
  String type_name() const override { return u"ChartObjects"; }
  virtual int32_t count() = 0;
  virtual ChartObjectPtr item(const Variant& index) = 0;
};

class ChartObject : public Object {
 public:
  String type_name() const override { return u"ChartObject"; }
  virtual WorksheetPtr parent() = 0;
  virtual String name() = 0;
  virtual void set_name(const String& name) = 0;
  virtual ChartPtr chart() = 0;
  virtual void activate() = 0;
};

/// A range of cells: one or more rectangular areas of one worksheet. A Range obtained
/// through `rows()` or `columns()` is a collection of rows or columns: its `count()` counts
/// them and `item(i)` is the i-th row or column.
class Range : public Object {
 public:
  String type_name() const override { return u"Range"; }
  virtual ApplicationPtr application() = 0;
  virtual WorksheetPtr worksheet() = 0;

  /// The value of the top-left cell: Empty, Double, String, Boolean, Error, or a Date when
  /// the cell's number format is a date or time format. For a multi-cell range, a 1-based
  /// Array of rows, each a 1-based Array of values.
  virtual Variant value() = 0;
  /// Sets every cell (a single value), or the cells from a rows-of-values array.
  virtual void set_value(const Variant& value) = 0;
  /// The top-left cell's value as displayed with its number format ("###" never appears:
  /// the host has no column width limit for it).
  virtual String text() = 0;
  /// The formula as typed (A1 notation), or the constant as it would be typed; "" for an
  /// empty cell. Mixed over a range: the top-left cell's.
  virtual String formula() = 0;
  /// Enters `text` in every cell by the application's entry rules ("=" formula, numbers,
  /// dates, percent, TRUE/FALSE, errors, leading apostrophe for text).
  virtual void set_formula(const String& text) = 0;
  virtual String formula_r1c1() = 0;
  virtual void set_formula_r1c1(const String& text) = 0;
  virtual bool has_formula() = 0;
  /// "'" for a constant forced to text by a leading apostrophe, otherwise "".
  virtual String prefix_character() = 0;
  /// Null when the cells differ.
  virtual Variant number_format() = 0;
  virtual void set_number_format(const String& format) = 0;
  virtual Variant horizontal_alignment() = 0;
  virtual void set_horizontal_alignment(const Variant& alignment) = 0;
  virtual FontPtr font() = 0;
  virtual InteriorPtr interior() = 0;
  /// `Characters(Start, Length)` of the top-left cell's text (1-based; Missing = all).
  virtual CharactersPtr characters(const Variant& start = Variant::missing(),
                                   const Variant& length = Variant::missing()) = 0;

  /// `Cells`: the same cells, as a collection of cells.
  virtual RangePtr cells() = 0;
  /// `Cells(row, column)`, relative to the top-left cell (1-based; may lie outside).
  virtual RangePtr cell(int32_t row, int32_t column) = 0;
  /// `Item(i)` / `Cells(i)`: the application's indexing, row by row over the first area's
  /// width, continuing below the area when i passes its end. For a rows or columns
  /// collection, the i-th row or column.
  virtual RangePtr item(int64_t index) = 0;
  /// `Count`: cells (or rows, columns for such collections) over all areas.
  virtual int64_t count() = 0;
  /// `For Each` over the cells: area by area, row by row. Stops when `visit` returns false.
  virtual void for_each_cell(const std::function<bool(const RangePtr& cell)>& visit) = 0;
  virtual AreasPtr areas() = 0;
  /// `Range(cell1, cell2)` relative to this range's top-left cell.
  virtual RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) = 0;
  virtual RangePtr offset(int32_t rows, int32_t columns) = 0;
  virtual RangePtr resize(int32_t rows, int32_t columns) = 0;
  /// `End(direction)` from the top-left cell, as Ctrl+arrow moves.
  virtual RangePtr end(int32_t direction) = 0;

  virtual int32_t row() = 0;
  virtual int32_t column() = 0;
  virtual RangePtr rows() = 0;
  virtual RangePtr columns() = 0;
  virtual RangePtr entire_row() = 0;
  virtual RangePtr entire_column() = 0;
  /// Hidden state of whole rows or columns (of an `entire_row`, `rows`, ...); Null when
  /// mixed.
  virtual Variant hidden() = 0;
  virtual void set_hidden(bool hidden) = 0;
  virtual Variant row_height() = 0;
  virtual void set_row_height(double points) = 0;
  virtual Variant column_width() = 0;
  virtual void set_column_width(double characters) = 0;
  virtual Variant outline_level() = 0;
  virtual void set_outline_level(int32_t level) = 0;

  /// `Address(RowAbsolute, ColumnAbsolute, ReferenceStyle, External, RelativeTo)`: areas
  /// joined by ","; `external` adds the workbook and sheet ("[Book1.xlsx]Sheet1!$A$1").
  virtual String address(bool row_absolute = true, bool column_absolute = true,
                         int32_t reference_style = xl::A1, bool external = false,
                         const RangePtr& relative_to = nullptr) = 0;
  /// The defined name whose reference is exactly this range, or nullptr.
  virtual NamePtr name() = 0;
  virtual HyperlinksPtr hyperlinks() = 0;

  virtual void select() = 0;
  virtual void activate() = 0;
  /// Copies everything (values, formulas with relative references moved, formats) to
  /// `destination`; to the host's clipboard when it is nullptr.
  virtual void copy(const RangePtr& destination = nullptr) = 0;
  virtual void copy_picture(int32_t appearance, int32_t format) = 0;
  virtual void clear_contents() = 0;
  virtual void clear() = 0;
  /// Inserts cells (or whole rows/columns for entire rows/columns), shifting as asked.
  virtual void insert(const Variant& shift = Variant::missing()) = 0;
  virtual void delete_(const Variant& shift = Variant::missing()) = 0;
};

class Areas : public Object {
 public:
  String type_name() const override { return u"Areas"; }
  virtual int32_t count() = 0;
  virtual RangePtr item(int32_t index) = 0;
};

/// Font members; getters answer Null when the cells or characters differ.
class Font : public Object {
 public:
  String type_name() const override { return u"Font"; }
  virtual Variant name() = 0;
  virtual void set_name(const Variant& v) = 0;
  virtual Variant font_style() = 0;
  virtual void set_font_style(const Variant& v) = 0;
  virtual Variant size() = 0;
  virtual void set_size(const Variant& v) = 0;
  virtual Variant underline() = 0;
  virtual void set_underline(const Variant& v) = 0;
  virtual Variant color() = 0;
  virtual void set_color(const Variant& v) = 0;
  /// Palette index 1..56 nearest the colour; `xl::ColorIndexAutomatic` for the automatic
  /// colour.
  virtual Variant color_index() = 0;
  virtual void set_color_index(const Variant& v) = 0;
  virtual Variant bold() = 0;
  virtual void set_bold(const Variant& v) = 0;
  virtual Variant italic() = 0;
  virtual void set_italic(const Variant& v) = 0;
  virtual Variant superscript() = 0;
  virtual void set_superscript(const Variant& v) = 0;
  virtual Variant subscript() = 0;
  virtual void set_subscript(const Variant& v) = 0;
  virtual Variant strikethrough() = 0;
  virtual void set_strikethrough(const Variant& v) = 0;
};

class Interior : public Object {
 public:
  String type_name() const override { return u"Interior"; }
  virtual Variant color() = 0;
  virtual void set_color(const Variant& v) = 0;
  /// `xl::ColorIndexNone` when there is no fill.
  virtual Variant color_index() = 0;
  virtual void set_color_index(const Variant& v) = 0;
};

class Characters : public Object {
 public:
  String type_name() const override { return u"Characters"; }
  virtual int32_t count() = 0;
  virtual String text() = 0;
  virtual FontPtr font() = 0;
};

/// A collection of defined names, enumerated in the host's sorted order.
class Names : public Object {
 public:
  String type_name() const override { return u"Names"; }
  virtual int32_t count() = 0;
  /// By 1-based index or by name text ("Total", "Sheet1!Total"); raises error 1004 when
  /// there is none.
  virtual NamePtr item(const Variant& index) = 0;
  virtual NamePtr add(const NameAddArgs& args) = 0;
};

class Name : public Object {
 public:
  String type_name() const override { return u"Name"; }
  /// The name's text; sheet-level names carry their sheet ("Sheet1!Total").
  virtual String name() = 0;
  virtual void set_name(const String& name) = 0;
  virtual int32_t index() = 0;
  virtual bool visible() = 0;
  virtual void set_visible(bool visible) = 0;
  /// "=Sheet1!$A$1:$B$2", "=#REF!", "=0.05", "=[Other.xlsx]Sheet1!$A$1".
  virtual String refers_to() = 0;
  virtual void set_refers_to(const Variant& refers_to) = 0;
  virtual String refers_to_r1c1() = 0;
  /// The range referred to; raises when the name refers to no range.
  virtual RangePtr refers_to_range() = 0;
  /// The Workbook or Worksheet the name belongs to.
  virtual ObjectPtr parent() = 0;
  virtual void delete_() = 0;
};

class Hyperlinks : public Object {
 public:
  String type_name() const override { return u"Hyperlinks"; }
  virtual int32_t count() = 0;
  virtual HyperlinkPtr item(int32_t index) = 0;
  virtual HyperlinkPtr add(const RangePtr& anchor, const String& address,
                           const Variant& sub_address = Variant::missing(),
                           const Variant& screen_tip = Variant::missing(),
                           const Variant& text_to_display = Variant::missing()) = 0;
};

class Hyperlink : public Object {
 public:
  String type_name() const override { return u"Hyperlink"; }
  virtual String address() = 0;
  virtual String sub_address() = 0;
  virtual RangePtr range() = 0;
  virtual void delete_() = 0;
};

/// The worksheet functions the library asks of a cell.
class WorksheetFunction : public Object {
 public:
  String type_name() const override { return u"WorksheetFunction"; }
  virtual bool is_text(const Variant& arg) = 0;
  virtual bool is_logical(const Variant& arg) = 0;
  virtual bool is_error(const Variant& arg) = 0;
};

class AddIns : public Object {
 public:
  String type_name() const override { return u"AddIns"; }
  virtual int32_t count() = 0;
  virtual AddInPtr item(const Variant& index) = 0;
  virtual AddInPtr add(const String& filename, const Variant& copy_file = Variant::missing()) = 0;
};

class AddIn : public Object {
 public:
  String type_name() const override { return u"AddIn"; }
  virtual String name() = 0;
  virtual String title() = 0;
  virtual String full_name() = 0;
  virtual bool installed() = 0;
  virtual void set_installed(bool installed) = 0;
};

class Dialog : public Object {
 public:
  String type_name() const override { return u"Dialog"; }
  /// Shows the built-in dialog; True when the user confirmed it.
  virtual bool show(std::span<Variant> args = {}) = 0;
};

class CommandBars : public Object {
 public:
  String type_name() const override { return u"CommandBars"; }
  virtual int32_t count() = 0;
  /// By 1-based index (1 the worksheet menu bar, 2 the chart menu bar) or by name.
  virtual CommandBarPtr item(const Variant& index) = 0;
  /// The first control on any bar matching the arguments, or nullptr.
  virtual CommandBarControlPtr find_control(const FindControlArgs& args) = 0;
  virtual CommandBarPtr add(const BarAddArgs& args) = 0;
};

class CommandBar : public Object {
 public:
  String type_name() const override { return u"CommandBar"; }
  virtual String name() = 0;
  virtual int32_t index() = 0;
  virtual int32_t type() = 0;
  virtual bool visible() = 0;
  virtual void set_visible(bool visible) = 0;
  virtual CommandBarControlsPtr controls() = 0;
  /// The first control on this bar matching the arguments, or nullptr.
  virtual CommandBarControlPtr find_control(const FindControlArgs& args) = 0;
  virtual void delete_() = 0;
};

class CommandBarControls : public Object {
 public:
  String type_name() const override { return u"CommandBarControls"; }
  virtual int32_t count() = 0;
  /// By 1-based index or caption.
  virtual CommandBarControlPtr item(const Variant& index) = 0;
  virtual CommandBarControlPtr add(const ControlAddArgs& args) = 0;
};

/// A command-bar control: a button (`mso::ControlButton`) or a popup (`mso::ControlPopup`,
/// which has `controls()`).
class CommandBarControl : public Object {
 public:
  String type_name() const override;
  virtual int32_t id() = 0;
  virtual int32_t type() = 0;
  virtual String caption() = 0;
  virtual void set_caption(const String& caption) = 0;
  virtual String on_action() = 0;
  virtual void set_on_action(const String& macro) = 0;
  virtual bool begin_group() = 0;
  virtual void set_begin_group(bool begin) = 0;
  virtual int32_t face_id() = 0;
  virtual void set_face_id(int32_t face) = 0;
  virtual String shortcut_text() = 0;
  virtual void set_shortcut_text(const String& text) = 0;
  virtual String tag() = 0;
  virtual void set_tag(const String& tag) = 0;
  virtual int32_t state() = 0;
  virtual void set_state(int32_t state) = 0;
  virtual bool enabled() = 0;
  virtual void set_enabled(bool enabled) = 0;
  virtual bool visible() = 0;
  virtual void set_visible(bool visible) = 0;
  /// 1-based position among its siblings.
  virtual int32_t index() = 0;
  /// The bar or popup holding the control.
  virtual ObjectPtr parent() = 0;
  /// The controls of a popup; raises for a button.
  virtual CommandBarControlsPtr controls() = 0;
  virtual void execute() = 0;
  virtual void delete_(const Variant& temporary = Variant::missing()) = 0;
};

class DocumentProperties : public Object {
 public:
  String type_name() const override { return u"DocumentProperties"; }
  virtual int32_t count() = 0;
  /// By 1-based index or name; raises when there is none.
  virtual DocumentPropertyPtr item(const Variant& index) = 0;
  /// Adds a custom property (`type` 4 = text, 1 = number, 2 = Boolean, 3 = date, 5 = float).
  virtual DocumentPropertyPtr add(const String& name, bool link_to_content, int32_t type,
                                  const Variant& value) = 0;
};

class DocumentProperty : public Object {
 public:
  String type_name() const override { return u"DocumentProperty"; }
  virtual String name() = 0;
  virtual Variant value() = 0;
  virtual void set_value(const Variant& value) = 0;
  virtual int32_t type() = 0;
  virtual void delete_() = 0;
};

}  // namespace qz::host
