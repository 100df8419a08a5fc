#include "com/src/host_adapter.hpp"

#include <initializer_list>
#include <limits>

#include "com/src/disp_object.hpp"
#include "com/src/object_dispatch.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

namespace {

using namespace qz::host;

// The host object a result stands for: Nothing (or no object at all) is nullptr; an object
// of the wrong kind is wrapped again as the kind the member promises.
template <class T>
std::shared_ptr<T> as_host(const Variant& v) {
  if (!v.is_object() || !v.object()) return nullptr;
  if (auto t = std::dynamic_pointer_cast<T>(v.object())) return t;
  if (IDispatch* d = foreign_dispatch(v.object().get())) return adapt<T>(d);
  throw Error(err::type_mismatch, "Type mismatch: unexpected object");
}

// An optional object argument: left out when not given.
Variant opt(const ObjectPtr& o) {
  return o ? Variant(o) : Variant::missing();
}

// The late-bound calls every adapter makes, by the application's member names.
template <class H>
class Adapter : public Foreign<H> {
 public:
  using Foreign<H>::Foreign;

 protected:
  template <class... A>
  Variant get(StringView name, A&&... a) {
    Variant args[] = {Variant(), Variant(std::forward<A>(a))...};
    return this->late().invoke(name, Invoke::Get, std::span<Variant>(args).subspan(1));
  }
  template <class... A>
  Variant call(StringView name, A&&... a) {
    Variant args[] = {Variant(), Variant(std::forward<A>(a))...};
    return this->late().invoke(name, Invoke::Method, std::span<Variant>(args).subspan(1));
  }
  Variant call_named(StringView name, std::initializer_list<NamedArg> named) {
    return this->late().invoke(name, Invoke::Method, {}, false,
                               std::span<const NamedArg>(named.begin(), named.size()));
  }
  void put(StringView name, Variant value) {
    Variant args[1] = {std::move(value)};
    this->late().invoke(name, Invoke::Put, args);
  }
  String text(StringView name) { return to_string(get(name)); }
  int32_t number(StringView name) { return to_long(get(name)); }
  bool flag(StringView name) { return to_bool(get(name)); }
  template <class T>
  std::shared_ptr<T> object(StringView name) {
    return as_host<T>(get(name));
  }
  // `Count` of a collection, and its `Item(index)`.
  int32_t count_items() { return number(u"Count"); }
  template <class T>
  std::shared_ptr<T> item_of(const Variant& index) {
    return as_host<T>(get(u"Item", index));
  }
};

class DApplication final : public Adapter<Application> {
 public:
  using Adapter::Adapter;
  String name() override { return text(u"Name"); }
  WorkbooksPtr workbooks() override { return object<Workbooks>(u"Workbooks"); }
  WorkbookPtr active_workbook() override { return object<Workbook>(u"ActiveWorkbook"); }
  ObjectPtr active_sheet() override { return object<Object>(u"ActiveSheet"); }
  RangePtr active_cell() override { return object<Range>(u"ActiveCell"); }
  ObjectPtr selection() override { return object<Object>(u"Selection"); }
  RangePtr range(const Variant& cell1, const Variant& cell2) override {
    return as_host<Range>(get(u"Range", cell1, cell2));
  }
  RangePtr union_(const RangePtr& a, const RangePtr& b) override {
    return as_host<Range>(call(u"Union", a, b));
  }
  RangePtr intersect(const RangePtr& a, const RangePtr& b) override {
    return as_host<Range>(call(u"Intersect", a, b));
  }
  int32_t calculation() override { return number(u"Calculation"); }
  void set_calculation(int32_t mode) override { put(u"Calculation", mode); }
  bool calculate_before_save() override { return flag(u"CalculateBeforeSave"); }
  void set_calculate_before_save(bool on) override { put(u"CalculateBeforeSave", on); }
  bool display_alerts() override { return flag(u"DisplayAlerts"); }
  void set_display_alerts(bool on) override { put(u"DisplayAlerts", on); }
  bool screen_updating() override { return flag(u"ScreenUpdating"); }
  void set_screen_updating(bool on) override { put(u"ScreenUpdating", on); }
  void calculate() override { call(u"Calculate"); }
  void volatile_(bool is_volatile) override { call(u"Volatile", is_volatile); }
  WorksheetFunctionPtr worksheet_function() override {
    return object<WorksheetFunction>(u"WorksheetFunction");
  }
  void undo() override { call(u"Undo"); }
  void on_undo(const String& text, const String& procedure) override {
    call(u"OnUndo", text, procedure);
  }
  void on_repeat(const String& text, const String& procedure) override {
    call(u"OnRepeat", text, procedure);
  }
  String on_entry() override { return text(u"OnEntry"); }
  void set_on_entry(const String& procedure) override { put(u"OnEntry", procedure); }
  void on_time(const Variant& earliest_time, const String& procedure, const Variant& latest_time,
               const Variant& schedule) override {
    call(u"OnTime", earliest_time, procedure, latest_time, schedule);
  }
  Variant run(const String& macro, std::span<Variant> args) override {
    std::vector<Variant> all{Variant(macro)};
    all.insert(all.end(), args.begin(), args.end());
    return late().invoke(u"Run", Invoke::Method, all);
  }
  void send_keys(const String& keys, bool wait) override { call(u"SendKeys", keys, wait); }
  DialogPtr dialogs(int32_t id) override { return as_host<Dialog>(get(u"Dialogs", id)); }
  CommandBarsPtr command_bars() override { return object<CommandBars>(u"CommandBars"); }
  AddInsPtr add_ins() override { return object<AddIns>(u"AddIns"); }
  String alt_startup_path() override { return text(u"AltStartupPath"); }
  void set_alt_startup_path(const String& path) override { put(u"AltStartupPath", path); }
  String startup_path() override { return text(u"StartupPath"); }
  String path() override { return text(u"Path"); }
  void quit() override { call(u"Quit"); }
};

class DWorkbooks final : public Adapter<Workbooks> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  WorkbookPtr item(const Variant& index) override { return item_of<Workbook>(index); }
  WorkbookPtr add(const Variant& template_) override {
    return as_host<Workbook>(call(u"Add", template_));
  }
  WorkbookPtr open(const OpenArgs& a) override {
    return as_host<Workbook>(
        call_named(u"Open", {{u"Filename", 0, Variant(a.filename)},
                             {u"UpdateLinks", 1, a.update_links},
                             {u"ReadOnly", 2, a.read_only},
                             {u"Format", 3, a.format},
                             {u"Password", 4, a.password},
                             {u"WriteResPassword", 5, a.write_res_password},
                             {u"IgnoreReadOnlyRecommended", 6, a.ignore_read_only_recommended},
                             {u"Origin", 7, a.origin},
                             {u"Delimiter", 8, a.delimiter},
                             {u"Editable", 9, a.editable},
                             {u"Notify", 10, a.notify},
                             {u"Converter", 11, a.converter},
                             {u"AddToMru", 12, a.add_to_mru}}));
  }
};

class DWorkbook final : public Adapter<Workbook> {
 public:
  using Adapter::Adapter;
  ApplicationPtr application() override { return object<Application>(u"Application"); }
  String name() override { return text(u"Name"); }
  String path() override { return text(u"Path"); }
  String full_name() override { return text(u"FullName"); }
  String code_name() override { return text(u"CodeName"); }
  bool read_only() override { return flag(u"ReadOnly"); }
  bool saved() override { return flag(u"Saved"); }
  void set_saved(bool saved) override { put(u"Saved", saved); }
  bool date1904() override { return flag(u"Date1904"); }
  void activate() override { call(u"Activate"); }
  void close(const Variant& save_changes, const Variant& filename) override {
    call(u"Close", save_changes, filename);
  }
  void save() override { call(u"Save"); }
  void save_as(const String& filename) override { call(u"SaveAs", filename); }
  WindowsPtr windows() override { return object<Windows>(u"Windows"); }
  SheetsPtr sheets() override { return object<Sheets>(u"Sheets"); }
  WorksheetsPtr worksheets() override { return object<Worksheets>(u"Worksheets"); }
  ChartsPtr charts() override { return object<Charts>(u"Charts"); }
  NamesPtr names() override { return object<Names>(u"Names"); }
  int32_t colors(int32_t index) override { return to_long(get(u"Colors", index)); }
  void set_colors(int32_t index, int32_t color) override {
    Variant args[2] = {index, color};
    late().invoke(u"Colors", Invoke::Put, args);
  }
  DocumentPropertiesPtr custom_document_properties() override {
    return object<DocumentProperties>(u"CustomDocumentProperties");
  }
};

class DWindows final : public Adapter<Windows> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  WindowPtr item(const Variant& index) override { return item_of<Window>(index); }
};

class DWindow final : public Adapter<Window> {
 public:
  using Adapter::Adapter;
  bool visible() override { return flag(u"Visible"); }
  void set_visible(bool visible) override { put(u"Visible", visible); }
  String caption() override { return text(u"Caption"); }
};

class DSheets final : public Adapter<Sheets> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  ObjectPtr item(const Variant& index) override { return item_of<Object>(index); }
};

class DWorksheets final : public Adapter<Worksheets> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  WorksheetPtr item(const Variant& index) override { return item_of<Worksheet>(index); }
  WorksheetPtr add(const Variant& before, const Variant& after) override {
    return as_host<Worksheet>(call_named(u"Add", {{u"Before", 0, before}, {u"After", 1, after}}));
  }
};

class DWorksheet final : public Adapter<Worksheet> {
 public:
  using Adapter::Adapter;
  ApplicationPtr application() override { return object<Application>(u"Application"); }
  WorkbookPtr parent() override { return object<Workbook>(u"Parent"); }
  String name() override { return text(u"Name"); }
  void set_name(const String& name) override { put(u"Name", name); }
  String code_name() override { return text(u"CodeName"); }
  int32_t index() override { return number(u"Index"); }
  int32_t type() override { return number(u"Type"); }
  int32_t visible() override { return number(u"Visible"); }
  void set_visible(int32_t visibility) override { put(u"Visible", visibility); }
  NamesPtr names() override { return object<Names>(u"Names"); }
  RangePtr range(const Variant& cell1, const Variant& cell2) override {
    return as_host<Range>(get(u"Range", cell1, cell2));
  }
  RangePtr cells() override { return object<Range>(u"Cells"); }
  RangePtr cell(int32_t row, int32_t column) override {
    // Item of the sheet's cells: the form every host resolves, with or without default
    // members.
    return as_host<Range>(late_item(object<Range>(u"Cells"), row, column));
  }
  RangePtr rows() override { return object<Range>(u"Rows"); }
  RangePtr columns() override { return object<Range>(u"Columns"); }
  RangePtr used_range() override { return object<Range>(u"UsedRange"); }
  void activate() override { call(u"Activate"); }
  void select() override { call(u"Select"); }
  void delete_() override { call(u"Delete"); }
  ChartObjectsPtr chart_objects() override { return as_host<ChartObjects>(call(u"ChartObjects")); }
  HyperlinksPtr hyperlinks() override { return object<Hyperlinks>(u"Hyperlinks"); }

 private:
  static Variant late_item(const RangePtr& cells, int32_t row, int32_t column) {
    Variant args[2] = {row, column};
    return require_object(cells)->invoke(u"Item", Invoke::Get, args);
  }
  static const RangePtr& require_object(const RangePtr& r) {
    if (!r) throw Error(err::object_required, "Object required");
    return r;
  }
};

class DCharts final : public Adapter<Charts> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  ChartPtr item(const Variant& index) override { return item_of<Chart>(index); }
};

class DChart final : public Adapter<Chart> {
 public:
  using Adapter::Adapter;
  ApplicationPtr application() override { return object<Application>(u"Application"); }
  ObjectPtr parent() override { return object<Object>(u"Parent"); }
  String name() override { return text(u"Name"); }
  void set_name(const String& name) override { put(u"Name", name); }
  int32_t type() override { return number(u"Type"); }
  void activate() override { call(u"Activate"); }
  void copy_picture(int32_t appearance, int32_t format, int32_t size) override {
    call(u"CopyPicture", appearance, format, size);
  }
};

class DChartObjects final : public Adapter<ChartObjects> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  ChartObjectPtr item(const Variant& index) override { return item_of<ChartObject>(index); }
};

class DChartObject final : public Adapter<ChartObject> {
 public:
  using Adapter::Adapter;
  WorksheetPtr parent() override { return object<Worksheet>(u"Parent"); }
  String name() override { return text(u"Name"); }
  void set_name(const String& name) override { put(u"Name", name); }
  ChartPtr chart() override { return object<Chart>(u"Chart"); }
  void activate() override { call(u"Activate"); }
};

class DRange final : public Adapter<Range> {
 public:
  using Adapter::Adapter;
  ApplicationPtr application() override { return object<Application>(u"Application"); }
  WorksheetPtr worksheet() override { return object<Worksheet>(u"Worksheet"); }
  Variant value() override { return get(u"Value"); }
  void set_value(const Variant& value) override { late().put_rows(u"Value", value); }
  String text() override { return Adapter::text(u"Text"); }
  String formula() override { return Adapter::text(u"Formula"); }
  void set_formula(const String& text) override { put(u"Formula", text); }
  String formula_r1c1() override { return Adapter::text(u"FormulaR1C1"); }
  void set_formula_r1c1(const String& text) override { put(u"FormulaR1C1", text); }
  bool has_formula() override { return flag(u"HasFormula"); }
  String prefix_character() override { return Adapter::text(u"PrefixCharacter"); }
  Variant number_format() override { return get(u"NumberFormat"); }
  void set_number_format(const String& format) override { put(u"NumberFormat", format); }
  Variant horizontal_alignment() override { return get(u"HorizontalAlignment"); }
  void set_horizontal_alignment(const Variant& alignment) override {
    put(u"HorizontalAlignment", alignment);
  }
  FontPtr font() override { return object<Font>(u"Font"); }
  InteriorPtr interior() override { return object<Interior>(u"Interior"); }
  CharactersPtr characters(const Variant& start, const Variant& length) override {
    return as_host<Characters>(get(u"Characters", start, length));
  }
  RangePtr cells() override { return object<Range>(u"Cells"); }
  RangePtr cell(int32_t row, int32_t column) override {
    return as_host<Range>(get(u"Item", row, column));
  }
  RangePtr item(int64_t index) override {
    Variant i = index <= std::numeric_limits<int32_t>::max() ? Variant(int32_t(index))
                                                             : Variant(double(index));
    return as_host<Range>(get(u"Item", i));
  }
  int64_t count() override {
    // Whole sheets have more cells than a Long counts; newer hosts answer CountLarge.
    if (late().has(u"CountLarge")) return static_cast<int64_t>(to_double(get(u"CountLarge")));
    return static_cast<int64_t>(to_double(get(u"Count")));
  }
  void for_each_cell(const std::function<bool(const RangePtr&)>& visit) override {
    for (const Variant& cell : late().items())
      if (!visit(as_host<Range>(cell))) return;
  }
  AreasPtr areas() override { return object<Areas>(u"Areas"); }
  RangePtr range(const Variant& cell1, const Variant& cell2) override {
    return as_host<Range>(get(u"Range", cell1, cell2));
  }
  RangePtr offset(int32_t rows, int32_t columns) override {
    return as_host<Range>(get(u"Offset", rows, columns));
  }
  RangePtr resize(int32_t rows, int32_t columns) override {
    return as_host<Range>(get(u"Resize", rows, columns));
  }
  RangePtr end(int32_t direction) override { return as_host<Range>(get(u"End", direction)); }
  int32_t row() override { return number(u"Row"); }
  int32_t column() override { return number(u"Column"); }
  RangePtr rows() override { return object<Range>(u"Rows"); }
  RangePtr columns() override { return object<Range>(u"Columns"); }
  RangePtr entire_row() override { return object<Range>(u"EntireRow"); }
  RangePtr entire_column() override { return object<Range>(u"EntireColumn"); }
  Variant hidden() override { return get(u"Hidden"); }
  void set_hidden(bool hidden) override { put(u"Hidden", hidden); }
  Variant row_height() override { return get(u"RowHeight"); }
  void set_row_height(double points) override { put(u"RowHeight", points); }
  Variant column_width() override { return get(u"ColumnWidth"); }
  void set_column_width(double characters) override { put(u"ColumnWidth", characters); }
  Variant outline_level() override { return get(u"OutlineLevel"); }
  void set_outline_level(int32_t level) override { put(u"OutlineLevel", level); }
  String address(bool row_absolute, bool column_absolute, int32_t reference_style, bool external,
                 const RangePtr& relative_to) override {
    return to_string(call(u"Address", row_absolute, column_absolute, reference_style, external,
                          opt(relative_to)));
  }
  NamePtr name() override {
    // The application raises when no name refers to exactly this range.
    try {
      return object<Name>(u"Name");
    } catch (const Error&) {
      return nullptr;
    }
  }
  HyperlinksPtr hyperlinks() override { return object<Hyperlinks>(u"Hyperlinks"); }
  void select() override { call(u"Select"); }
  void activate() override { call(u"Activate"); }
  void copy(const RangePtr& destination) override { call(u"Copy", opt(destination)); }
  void copy_picture(int32_t appearance, int32_t format) override {
    call(u"CopyPicture", appearance, format);
  }
  void clear_contents() override { call(u"ClearContents"); }
  void clear() override { call(u"Clear"); }
  void insert(const Variant& shift) override { call(u"Insert", shift); }
  void delete_(const Variant& shift) override { call(u"Delete", shift); }
};

class DAreas final : public Adapter<Areas> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  RangePtr item(int32_t index) override { return item_of<Range>(index); }
};

class DFont final : public Adapter<Font> {
 public:
  using Adapter::Adapter;
  Variant name() override { return get(u"Name"); }
  void set_name(const Variant& v) override { put(u"Name", v); }
  Variant font_style() override { return get(u"FontStyle"); }
  void set_font_style(const Variant& v) override { put(u"FontStyle", v); }
  Variant size() override { return get(u"Size"); }
  void set_size(const Variant& v) override { put(u"Size", v); }
  Variant underline() override { return get(u"Underline"); }
  void set_underline(const Variant& v) override { put(u"Underline", v); }
  Variant color() override { return get(u"Color"); }
  void set_color(const Variant& v) override { put(u"Color", v); }
  Variant color_index() override { return get(u"ColorIndex"); }
  void set_color_index(const Variant& v) override { put(u"ColorIndex", v); }
  Variant bold() override { return get(u"Bold"); }
  void set_bold(const Variant& v) override { put(u"Bold", v); }
  Variant italic() override { return get(u"Italic"); }
  void set_italic(const Variant& v) override { put(u"Italic", v); }
  Variant superscript() override { return get(u"Superscript"); }
  void set_superscript(const Variant& v) override { put(u"Superscript", v); }
  Variant subscript() override { return get(u"Subscript"); }
  void set_subscript(const Variant& v) override { put(u"Subscript", v); }
  Variant strikethrough() override { return get(u"Strikethrough"); }
  void set_strikethrough(const Variant& v) override { put(u"Strikethrough", v); }
};

class DInterior final : public Adapter<Interior> {
 public:
  using Adapter::Adapter;
  Variant color() override { return get(u"Color"); }
  void set_color(const Variant& v) override { put(u"Color", v); }
  Variant color_index() override { return get(u"ColorIndex"); }
  void set_color_index(const Variant& v) override { put(u"ColorIndex", v); }
};

class DCharacters final : public Adapter<Characters> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  String text() override { return Adapter::text(u"Text"); }
  FontPtr font() override { return object<Font>(u"Font"); }
};

class DNames final : public Adapter<Names> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  NamePtr item(const Variant& index) override { return item_of<Name>(index); }
  NamePtr add(const NameAddArgs& a) override {
    return as_host<Name>(call_named(u"Add", {{u"Name", 0, a.name},
                                             {u"RefersTo", 1, a.refers_to},
                                             {u"Visible", 2, a.visible},
                                             {u"MacroType", 3, a.macro_type},
                                             {u"ShortcutKey", 4, a.shortcut_key},
                                             {u"Category", 5, a.category},
                                             {u"NameLocal", 6, a.name_local},
                                             {u"RefersToLocal", 7, a.refers_to_local},
                                             {u"CategoryLocal", 8, a.category_local},
                                             {u"RefersToR1C1", 9, a.refers_to_r1c1},
                                             {u"RefersToR1C1Local", 10, a.refers_to_r1c1_local}}));
  }
};

class DName final : public Adapter<Name> {
 public:
  using Adapter::Adapter;
  String name() override { return text(u"Name"); }
  void set_name(const String& name) override { put(u"Name", name); }
  int32_t index() override { return number(u"Index"); }
  bool visible() override { return flag(u"Visible"); }
  void set_visible(bool visible) override { put(u"Visible", visible); }
  String refers_to() override { return text(u"RefersTo"); }
  void set_refers_to(const Variant& refers_to) override { put(u"RefersTo", refers_to); }
  String refers_to_r1c1() override { return text(u"RefersToR1C1"); }
  RangePtr refers_to_range() override { return object<Range>(u"RefersToRange"); }
  ObjectPtr parent() override { return object<Object>(u"Parent"); }
  void delete_() override { call(u"Delete"); }
};

class DHyperlinks final : public Adapter<Hyperlinks> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  HyperlinkPtr item(int32_t index) override { return item_of<Hyperlink>(index); }
  HyperlinkPtr add(const RangePtr& anchor, const String& address, const Variant& sub_address,
                   const Variant& screen_tip, const Variant& text_to_display) override {
    return as_host<Hyperlink>(call_named(u"Add", {{u"Anchor", 0, Variant(anchor)},
                                                  {u"Address", 1, Variant(address)},
                                                  {u"SubAddress", 2, sub_address},
                                                  {u"ScreenTip", 3, screen_tip},
                                                  {u"TextToDisplay", 4, text_to_display}}));
  }
};

class DHyperlink final : public Adapter<Hyperlink> {
 public:
  using Adapter::Adapter;
  String address() override { return text(u"Address"); }
  String sub_address() override { return text(u"SubAddress"); }
  RangePtr range() override { return object<Range>(u"Range"); }
  void delete_() override { call(u"Delete"); }
};

class DWorksheetFunction final : public Adapter<WorksheetFunction> {
 public:
  using Adapter::Adapter;
  bool is_text(const Variant& arg) override { return to_bool(call(u"IsText", arg)); }
  bool is_logical(const Variant& arg) override { return to_bool(call(u"IsLogical", arg)); }
  bool is_error(const Variant& arg) override { return to_bool(call(u"IsError", arg)); }
};

class DAddIns final : public Adapter<AddIns> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  AddInPtr item(const Variant& index) override { return item_of<AddIn>(index); }
  AddInPtr add(const String& filename, const Variant& copy_file) override {
    return as_host<AddIn>(call(u"Add", filename, copy_file));
  }
};

class DAddIn final : public Adapter<AddIn> {
 public:
  using Adapter::Adapter;
  String name() override { return text(u"Name"); }
  String title() override { return text(u"Title"); }
  String full_name() override { return text(u"FullName"); }
  bool installed() override { return flag(u"Installed"); }
  void set_installed(bool installed) override { put(u"Installed", installed); }
};

class DDialog final : public Adapter<Dialog> {
 public:
  using Adapter::Adapter;
  bool show(std::span<Variant> args) override {
    return to_bool(late().invoke(u"Show", Invoke::Method, args));
  }
};

NamedArg find_arg(StringView name, int position, const Variant& v) {
  return {name, position, v};
}

class DCommandBars final : public Adapter<CommandBars> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  CommandBarPtr item(const Variant& index) override { return item_of<CommandBar>(index); }
  CommandBarControlPtr find_control(const FindControlArgs& a) override {
    return as_host<CommandBarControl>(call_named(
        u"FindControl",
        {find_arg(u"Type", 0, a.type), find_arg(u"Id", 1, a.id), find_arg(u"Tag", 2, a.tag),
         find_arg(u"Visible", 3, a.visible), find_arg(u"Recursive", 4, a.recursive)}));
  }
  CommandBarPtr add(const BarAddArgs& a) override {
    return as_host<CommandBar>(call_named(u"Add", {{u"Name", 0, a.name},
                                                   {u"Position", 1, a.position},
                                                   {u"MenuBar", 2, a.menu_bar},
                                                   {u"Temporary", 3, a.temporary}}));
  }
};

class DCommandBar final : public Adapter<CommandBar> {
 public:
  using Adapter::Adapter;
  String name() override { return text(u"Name"); }
  int32_t index() override { return number(u"Index"); }
  int32_t type() override { return number(u"Type"); }
  bool visible() override { return flag(u"Visible"); }
  void set_visible(bool visible) override { put(u"Visible", visible); }
  CommandBarControlsPtr controls() override { return object<CommandBarControls>(u"Controls"); }
  CommandBarControlPtr find_control(const FindControlArgs& a) override {
    return as_host<CommandBarControl>(call_named(
        u"FindControl",
        {find_arg(u"Type", 0, a.type), find_arg(u"Id", 1, a.id), find_arg(u"Tag", 2, a.tag),
         find_arg(u"Visible", 3, a.visible), find_arg(u"Recursive", 4, a.recursive)}));
  }
  void delete_() override { call(u"Delete"); }
};

class DCommandBarControls final : public Adapter<CommandBarControls> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  CommandBarControlPtr item(const Variant& index) override {
    return item_of<CommandBarControl>(index);
  }
  CommandBarControlPtr add(const ControlAddArgs& a) override {
    return as_host<CommandBarControl>(call_named(u"Add", {{u"Type", 0, a.type},
                                                          {u"Id", 1, a.id},
                                                          {u"Parameter", 2, a.parameter},
                                                          {u"Before", 3, a.before},
                                                          {u"Temporary", 4, a.temporary}}));
  }
};

class DCommandBarControl final : public Adapter<CommandBarControl> {
 public:
  using Adapter::Adapter;
  int32_t id() override { return number(u"Id"); }
  int32_t type() override { return number(u"Type"); }
  String caption() override { return text(u"Caption"); }
  void set_caption(const String& caption) override { put(u"Caption", caption); }
  String on_action() override { return text(u"OnAction"); }
  void set_on_action(const String& macro) override { put(u"OnAction", macro); }
  bool begin_group() override { return flag(u"BeginGroup"); }
  void set_begin_group(bool begin) override { put(u"BeginGroup", begin); }
  int32_t face_id() override { return number(u"FaceId"); }
  void set_face_id(int32_t face) override { put(u"FaceId", face); }
  String shortcut_text() override { return text(u"ShortcutText"); }
  void set_shortcut_text(const String& text) override { put(u"ShortcutText", text); }
  String tag() override { return text(u"Tag"); }
  void set_tag(const String& tag) override { put(u"Tag", tag); }
  int32_t state() override { return number(u"State"); }
  void set_state(int32_t state) override { put(u"State", state); }
  bool enabled() override { return flag(u"Enabled"); }
  void set_enabled(bool enabled) override { put(u"Enabled", enabled); }
  bool visible() override { return flag(u"Visible"); }
  void set_visible(bool visible) override { put(u"Visible", visible); }
  int32_t index() override { return number(u"Index"); }
  ObjectPtr parent() override { return object<Object>(u"Parent"); }
  CommandBarControlsPtr controls() override { return object<CommandBarControls>(u"Controls"); }
  void execute() override { call(u"Execute"); }
  void delete_(const Variant& temporary) override { call(u"Delete", temporary); }
};

class DDocumentProperties final : public Adapter<DocumentProperties> {
 public:
  using Adapter::Adapter;
  int32_t count() override { return count_items(); }
  DocumentPropertyPtr item(const Variant& index) override {
    return item_of<DocumentProperty>(index);
  }
  DocumentPropertyPtr add(const String& name, bool link_to_content, int32_t type,
                          const Variant& value) override {
    return as_host<DocumentProperty>(call(u"Add", name, link_to_content, type, value));
  }
};

class DDocumentProperty final : public Adapter<DocumentProperty> {
 public:
  using Adapter::Adapter;
  String name() override { return text(u"Name"); }
  Variant value() override { return get(u"Value"); }
  void set_value(const Variant& value) override { put(u"Value", value); }
  int32_t type() override { return number(u"Type"); }
  void delete_() override { call(u"Delete"); }
};

// Which adapter stands for which host class.
template <class H>
struct AdapterOf;
#define QZ_ADAPTER(H, D) \
  template <>            \
  struct AdapterOf<H> {  \
    using type = D;      \
  };
QZ_ADAPTER(Application, DApplication)
QZ_ADAPTER(Workbooks, DWorkbooks)
QZ_ADAPTER(Workbook, DWorkbook)
QZ_ADAPTER(Windows, DWindows)
QZ_ADAPTER(Window, DWindow)
QZ_ADAPTER(Sheets, DSheets)
QZ_ADAPTER(Worksheets, DWorksheets)
QZ_ADAPTER(Worksheet, DWorksheet)
QZ_ADAPTER(Charts, DCharts)
QZ_ADAPTER(Chart, DChart)
QZ_ADAPTER(ChartObjects, DChartObjects)
QZ_ADAPTER(ChartObject, DChartObject)
QZ_ADAPTER(Range, DRange)
QZ_ADAPTER(Areas, DAreas)
QZ_ADAPTER(Font, DFont)
QZ_ADAPTER(Interior, DInterior)
QZ_ADAPTER(Characters, DCharacters)
QZ_ADAPTER(Names, DNames)
QZ_ADAPTER(Name, DName)
QZ_ADAPTER(Hyperlinks, DHyperlinks)
QZ_ADAPTER(Hyperlink, DHyperlink)
QZ_ADAPTER(WorksheetFunction, DWorksheetFunction)
QZ_ADAPTER(AddIns, DAddIns)
QZ_ADAPTER(AddIn, DAddIn)
QZ_ADAPTER(Dialog, DDialog)
QZ_ADAPTER(CommandBars, DCommandBars)
QZ_ADAPTER(CommandBar, DCommandBar)
QZ_ADAPTER(CommandBarControls, DCommandBarControls)
QZ_ADAPTER(CommandBarControl, DCommandBarControl)
QZ_ADAPTER(DocumentProperties, DDocumentProperties)
QZ_ADAPTER(DocumentProperty, DDocumentProperty)
#undef QZ_ADAPTER

template <class H>
ObjectPtr make(IDispatch* d) {
  return std::make_shared<typename AdapterOf<H>::type>(ComPtr<IDispatch>(d));
}

}  // namespace

template <class H>
std::shared_ptr<H> adapt(IDispatch* dispatch) {
  if (!dispatch) return nullptr;
  if (auto own = object_behind(dispatch))
    if (auto h = std::dynamic_pointer_cast<H>(own)) return h;
  if constexpr (std::is_same_v<H, Object>) {
    return adapt_any(dispatch);
  } else {
    return std::static_pointer_cast<H>(make<H>(dispatch));
  }
}

ObjectPtr adapt_any(IDispatch* dispatch) {
  if (!dispatch) return nullptr;
  if (auto own = object_behind(dispatch)) return own;
  static const std::pair<const char16_t*, ObjectPtr (*)(IDispatch*)> by_name[] = {
      {u"Application", make<Application>},
      {u"Workbooks", make<Workbooks>},
      {u"Workbook", make<Workbook>},
      {u"Windows", make<Windows>},
      {u"Window", make<Window>},
      {u"Sheets", make<Sheets>},
      {u"Worksheets", make<Worksheets>},
      {u"Worksheet", make<Worksheet>},
      {u"Charts", make<Charts>},
      {u"Chart", make<Chart>},
      {u"ChartObjects", make<ChartObjects>},
      {u"ChartObject", make<ChartObject>},
      {u"Range", make<Range>},
      {u"Areas", make<Areas>},
      {u"Font", make<Font>},
      {u"Interior", make<Interior>},
      {u"Characters", make<Characters>},
      {u"Names", make<Names>},
      {u"Name", make<Name>},
      {u"Hyperlinks", make<Hyperlinks>},
      {u"Hyperlink", make<Hyperlink>},
      {u"WorksheetFunction", make<WorksheetFunction>},
      {u"AddIns", make<AddIns>},
      {u"AddIn", make<AddIn>},
      {u"Dialog", make<Dialog>},
      {u"CommandBars", make<CommandBars>},
      {u"CommandBar", make<CommandBar>},
      {u"CommandBarControls", make<CommandBarControls>},
      {u"CommandBarControl", make<CommandBarControl>},
      {u"CommandBarButton", make<CommandBarControl>},
      {u"CommandBarPopup", make<CommandBarControl>},
      {u"CommandBarComboBox", make<CommandBarControl>},
      {u"DocumentProperties", make<DocumentProperties>},
      {u"DocumentProperty", make<DocumentProperty>},
  };
  const String type = LateBound(ComPtr<IDispatch>(dispatch)).type_name();
  for (const auto& [name, maker] : by_name)
    if (same_member(type, name)) return maker(dispatch);
  return std::make_shared<DispObject>(ComPtr<IDispatch>(dispatch));
}

#define QZ_INSTANTIATE(H) template std::shared_ptr<H> adapt<H>(IDispatch*);
QZ_INSTANTIATE(Object)
QZ_INSTANTIATE(Application)
QZ_INSTANTIATE(Workbooks)
QZ_INSTANTIATE(Workbook)
QZ_INSTANTIATE(Windows)
QZ_INSTANTIATE(Window)
QZ_INSTANTIATE(Sheets)
QZ_INSTANTIATE(Worksheets)
QZ_INSTANTIATE(Worksheet)
QZ_INSTANTIATE(Charts)
QZ_INSTANTIATE(Chart)
QZ_INSTANTIATE(ChartObjects)
QZ_INSTANTIATE(ChartObject)
QZ_INSTANTIATE(Range)
QZ_INSTANTIATE(Areas)
QZ_INSTANTIATE(Font)
QZ_INSTANTIATE(Interior)
QZ_INSTANTIATE(Characters)
QZ_INSTANTIATE(Names)
QZ_INSTANTIATE(Name)
QZ_INSTANTIATE(Hyperlinks)
QZ_INSTANTIATE(Hyperlink)
QZ_INSTANTIATE(WorksheetFunction)
QZ_INSTANTIATE(AddIns)
QZ_INSTANTIATE(AddIn)
QZ_INSTANTIATE(Dialog)
QZ_INSTANTIATE(CommandBars)
QZ_INSTANTIATE(CommandBar)
QZ_INSTANTIATE(CommandBarControls)
QZ_INSTANTIATE(CommandBarControl)
QZ_INSTANTIATE(DocumentProperties)
QZ_INSTANTIATE(DocumentProperty)
#undef QZ_INSTANTIATE

}  // namespace qz::com
