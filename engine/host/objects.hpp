// The engine's host objects, shared between the files that implement them. Host objects are
// thin views: each holds the application state and the model object it shows, and asks the
// model for everything.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "engine/host/engine.hpp"
#include "engine/model/address.hpp"

namespace qz::engine::detail {

enum class RangeMode : uint8_t { Cells, Rows, Columns };

[[noreturn]] void fail(const std::string& message);
[[noreturn]] void not_found(const std::string& what);
/// The sheet a host object shows; raises once the sheet has been deleted.
Sheet& live(const std::shared_ptr<Sheet>& sheet);
/// The column width, in the application's units (widths of the digit "0" in the workbook's
/// normal font), that shows `text` in `font` whole, as AutoFit sets it.
double fitted_width(StringView text, const FontRec& font, const FontRec& normal);

struct Interaction;  // command bars, undo of an entry, macros (interaction.hpp)

/// An add-in the application knows (`Application.AddIns`), installed or not.
struct AddInRec {
  String full_name;
  String title;
  bool installed = false;
};

/// What the application holds: its workbooks and settings. Host objects share it.
struct AppState : std::enable_shared_from_this<AppState> {
  std::vector<BookPtr> books;
  BookPtr active;
  int32_t calculation = host::xl::CalculationAutomatic;
  bool calculate_before_save = true;
  bool display_alerts = true;
  bool screen_updating = true;
  int64_t volatile_calls = 0;
  String alt_startup_path;
  int32_t next_book = 1;
  ApplicationOptions options;
  /// A chart object selected instead of cells (Chart.Activate, ChartObject.Activate). Kept
  /// as what identifies it, not as a host object: host objects hold this state, and the state
  /// holding one of them would keep both alive for ever.
  struct SelectedChart {
    BookPtr book;
    std::shared_ptr<Sheet> sheet;
    String name;
    String key;
  };
  std::optional<SelectedChart> selected_object;
  std::weak_ptr<host::Application> app;
  /// One host object per model object, while anyone holds it (so `Is` comparisons hold).
  std::map<const void*, std::weak_ptr<Object>> wrappers;
  /// The add-ins list, in the order they were added.
  std::vector<AddInRec> add_ins;
  /// Keystrokes sent with `SendKeys` that no dialog has read yet.
  String pending_keys;
  /// Command bars, the application's own undo, OnUndo/OnRepeat/OnEntry/OnTime and the
  /// client macros it runs; made on first use.
  std::shared_ptr<Interaction> interaction;

  host::ApplicationPtr application();
  host::WorkbookPtr workbook(const BookPtr& book);
  host::WorksheetPtr worksheet(const BookPtr& book, const std::shared_ptr<Sheet>& sheet);
  host::ChartPtr chart_sheet(const BookPtr& book, const std::shared_ptr<Sheet>& sheet);
  /// A Worksheet or a Chart for a sheet.
  ObjectPtr sheet_object(const BookPtr& book, const std::shared_ptr<Sheet>& sheet);
  host::RangePtr range(const BookPtr& book, const std::shared_ptr<Sheet>& sheet,
                       std::vector<Rect> areas, RangeMode mode = RangeMode::Cells);

  /// Adds a book, makes it active, and sets its calculation mode to the application's.
  void open_book(const BookPtr& book);
  void close_book(const Book* book);
  BookPtr find_book(StringView name) const;
  /// The active sheet of the active workbook, if any.
  std::shared_ptr<Sheet> active_sheet() const;
  void activate_sheet(const BookPtr& book, const Sheet& sheet);
  bool automatic() const { return calculation != host::xl::CalculationManual; }
};

/// The state behind an engine Application (nullptr for another host's).
std::shared_ptr<AppState> state_of(const host::ApplicationPtr& app);

/// Resolves reference text ("A1", "Sheet2!A1:B2", "'My S'!A1,B2", "Total", "[B.xlsx]S!A1")
/// against a default sheet; `base` offsets unqualified addresses (Range.Range is relative).
struct Resolved {
  BookPtr book;
  std::shared_ptr<Sheet> sheet;
  std::vector<Rect> areas;
};
Resolved resolve(AppState& app, const BookPtr& book, const std::shared_ptr<Sheet>& sheet,
                 StringView text, CellRef base = {});
/// The areas a defined name refers to, when it refers to cells of one sheet.
std::optional<Resolved> name_areas(const BookPtr& book, const DefinedName& name);
/// "Sheet1!$A$1:$B$2,Sheet1!$C$3" for a name's RefersTo.
String reference_text(const Sheet& sheet, const std::vector<Rect>& areas);

host::NamesPtr make_names(const std::shared_ptr<AppState>& app, const BookPtr& book,
                          std::optional<SheetId> scope);
/// The Name of the book's name at `index` (`Book::names`).
host::NamePtr make_name(const std::shared_ptr<AppState>& app, const BookPtr& book, size_t index);
host::HyperlinksPtr make_hyperlinks(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                    const std::shared_ptr<Sheet>& sheet,
                                    std::optional<std::vector<Rect>> within);
/// The chart of a chart object; `key` is the object's file identity ("" to find it by name).
host::ChartPtr make_embedded_chart(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                   const std::shared_ptr<Sheet>& sheet, const String& name,
                                   const String& key = String());
host::AddInsPtr make_add_ins(const std::shared_ptr<AppState>& app);
/// `Application.Dialogs(id)`; raises for dialogs the engine does not have.
host::DialogPtr make_dialog(const std::shared_ptr<AppState>& app, int32_t id);
/// A file name as the file system takes it: on Windows as given; elsewhere "\" is a
/// separator too, since the library writes folder & "\" & name as the application expects.
String native_path(const String& path);
/// `Cells(1, 1).Value` of an engine range, read without making the one-cell range; nothing
/// for any other object.
std::optional<Variant> first_cell_value(const Object& object);
/// The kind of that value, read in place (no text copied out); nothing when `object` is not
/// one of the engine's ranges.
std::optional<calc::Value::Kind> first_cell_kind(const Object& object);
host::FontPtr make_font(const std::shared_ptr<AppState>& app, const BookPtr& book,
                        const std::shared_ptr<Sheet>& sheet, std::vector<Rect> areas,
                        std::optional<std::pair<int32_t, int32_t>> chars = std::nullopt);
host::InteriorPtr make_interior(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                const std::shared_ptr<Sheet>& sheet, std::vector<Rect> areas);
host::BordersPtr make_borders(const BookPtr& book, const std::shared_ptr<Sheet>& sheet,
                              std::vector<Rect> areas);
/// The sheet's AutoFilter, or nullptr when it has none.
host::AutoFilterPtr make_auto_filter(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                     const std::shared_ptr<Sheet>& sheet);
/// `Range.AutoFilter` over `area`: buttons on (a single cell stands for the list around it) or,
/// without a field, off when the sheet has them. Criteria are refused.
Variant auto_filter(const BookPtr& book, const std::shared_ptr<Sheet>& sheet, Rect area,
                    const Variant& field, const Variant& criteria1, const Variant& op,
                    const Variant& criteria2);
/// `Characters(start, length)` of the cell at `at`: `start` counts from 0, `length` -1 means to
/// the end of the text.
host::CharactersPtr make_characters(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                    const std::shared_ptr<Sheet>& sheet, CellRef at, int32_t start,
                                    int32_t length);

}  // namespace qz::engine::detail
