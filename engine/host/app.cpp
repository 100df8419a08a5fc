// The Application and its Workbooks collection, reference resolution and the file-format hook.
#include <algorithm>
#include <mutex>

#include "engine/host/interaction.hpp"
#include "engine/host/objects.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

namespace {
std::vector<FileFormat>& formats() {
  static std::vector<FileFormat> f;
  return f;
}
std::mutex& formats_mutex() {
  static std::mutex m;
  return m;
}
String extension_of(const String& path) {
  size_t dot = path.rfind(u'.');
  size_t slash = path.find_last_of(u"/\\");
  if (dot == String::npos || (slash != String::npos && dot < slash)) return String();
  return to_lower(StringView(path).substr(dot + 1));
}
}  // namespace

void register_file_format(FileFormat format) {
  std::lock_guard<std::mutex> lock(formats_mutex());
  formats().push_back(std::move(format));
}

namespace {
std::mutex& picture_mutex() {
  static std::mutex m;
  return m;
}
PictureMaker& registered_picture_maker() {
  static PictureMaker maker;
  return maker;
}
}  // namespace

void register_picture_maker(PictureMaker maker) {
  std::lock_guard<std::mutex> lock(picture_mutex());
  registered_picture_maker() = std::move(maker);
}

PictureMaker picture_maker() {
  std::lock_guard<std::mutex> lock(picture_mutex());
  return registered_picture_maker();
}

const FileFormat* file_format_for(const String& path) {
  std::lock_guard<std::mutex> lock(formats_mutex());
  String ext = extension_of(path);
  for (auto it = formats().rbegin(); it != formats().rend(); ++it)
    for (const String& e : it->extensions)
      if (e == ext) return &*it;
  return nullptr;
}

}  // namespace qz::engine

namespace qz::engine::detail {

void fail(const std::string& message) {
  throw Error(err::host_failure, message);
}
void not_found(const std::string& what) {
  throw Error(err::subscript, "Subscript out of range: " + what);
}

Sheet& live(const std::shared_ptr<Sheet>& sheet) {
  if (!sheet || sheet->deleted()) fail("the sheet has been deleted");
  return *sheet;
}

// ---------------------------------------------------------------------------------------------
// Application state

void AppState::open_book(const BookPtr& book) {
  book->auto_calc = automatic();
  if (options.clock) book->clock = options.clock;
  // Links to other workbooks read the open ones' current values.
  std::weak_ptr<AppState> self = weak_from_this();
  book->find_open_book = [self](StringView file_name) -> BookPtr {
    auto app = self.lock();
    if (!app) return nullptr;
    for (const auto& b : app->books)
      if (equals_text(b->name, file_name)) return b;
    return nullptr;
  };
  books.push_back(book);
  active = book;
  selected_object.reset();
}

void AppState::close_book(const Book* book) {
  books.erase(
      std::remove_if(books.begin(), books.end(), [&](const BookPtr& b) { return b.get() == book; }),
      books.end());
  if (active.get() == book) active = books.empty() ? nullptr : books.back();
  selected_object.reset();
}

BookPtr AppState::find_book(StringView name) const {
  for (const auto& b : books)
    if (equals_text(b->name, name)) return b;
  // A name given without its extension finds a saved workbook too.
  for (const auto& b : books) {
    size_t dot = b->name.rfind(u'.');
    if (dot != String::npos && equals_text(StringView(b->name).substr(0, dot), name)) return b;
  }
  return nullptr;
}

std::shared_ptr<Sheet> AppState::active_sheet() const {
  if (!active || active->sheets.empty()) return nullptr;
  int32_t i =
      std::clamp<int32_t>(active->active_sheet, 0, static_cast<int32_t>(active->sheets.size()) - 1);
  return active->sheets[static_cast<size_t>(i)];
}

void AppState::activate_sheet(const BookPtr& book, const Sheet& sheet) {
  int32_t pos = book->sheet_position(sheet.id);
  if (pos < 0) fail("the sheet has been deleted");
  if (sheet.visibility != host::xl::SheetVisible)
    fail("Activate method failed: the sheet is hidden");
  book->active_sheet = pos;
  active = book;
  selected_object.reset();
}

// ---------------------------------------------------------------------------------------------
// References as text

String reference_text(const Sheet& sheet, const std::vector<Rect>& areas) {
  String prefix = sheet_prefix(sheet.name), out;
  for (size_t i = 0; i < areas.size(); ++i) {
    if (i) out += u",";
    out += prefix + area_a1(areas[i], true, true);
  }
  return out;
}

std::optional<Resolved> name_areas(const BookPtr& book, const DefinedName& name) {
  StringView body = name.formula;
  if (!body.empty() && body[0] == u'=') body.remove_prefix(1);
  Resolved out;
  out.book = book;
  try {
    for (const String& piece : split_union(body)) {
      QualifiedText q = split_qualifier(piece);
      if (!q.workbook.empty()) return std::nullopt;
      std::shared_ptr<Sheet> s;
      if (!q.sheet.empty()) {
        for (auto& sh : book->sheets)
          if (equals_text(sh->name, q.sheet)) s = sh;
      } else if (name.scope != calc::kNoSheet) {
        for (auto& sh : book->sheets)
          if (sh->id == name.scope) s = sh;
      }
      if (!s) return std::nullopt;
      auto area = parse_area(q.rest);
      if (!area) return std::nullopt;
      if (out.sheet && out.sheet != s) return std::nullopt;
      out.sheet = s;
      out.areas.push_back(*area);
    }
  } catch (const Error&) {
    return std::nullopt;
  }
  if (!out.sheet || out.areas.empty()) return std::nullopt;
  return out;
}

Resolved resolve(AppState& app, const BookPtr& book, const std::shared_ptr<Sheet>& sheet,
                 StringView text, CellRef base) {
  auto bad = [&]() -> Resolved {
    fail("Method 'Range' failed: \"" + to_utf8(text) + "\" is not a valid address or name");
  };
  if (trim(text).empty()) bad();
  Resolved out;
  for (const String& piece : split_union(text)) {
    QualifiedText q = split_qualifier(piece);
    BookPtr b = book;
    if (!q.workbook.empty()) {
      b = app.find_book(q.workbook);
      if (!b)
        fail("Method 'Range' failed: the workbook \"" + to_utf8(q.workbook) + "\" is not open");
    }
    std::shared_ptr<Sheet> s = q.workbook.empty() ? sheet : nullptr;
    if (!q.sheet.empty()) {
      s = nullptr;
      for (auto& sh : b->sheets)
        if (equals_text(sh->name, q.sheet)) s = sh;
      if (!s) fail("Method 'Range' failed: there is no sheet \"" + to_utf8(q.sheet) + "\"");
    }
    std::optional<Resolved> part;
    if (auto area = parse_area(q.rest)) {
      if (!s) bad();
      Rect r = *area;
      // Range.Range addresses count from the range's own top-left cell.
      bool cols = whole_columns(r), rows = whole_rows(r);
      int64_t r1 = r.row1 + (cols ? 0 : base.row), r2 = r.row2 + (cols ? 0 : base.row);
      int64_t c1 = r.col1 + (rows ? 0 : base.col), c2 = r.col2 + (rows ? 0 : base.col);
      if (r2 > kLastRow || c2 > kLastCol) fail("Method 'Range' failed: the range leaves the sheet");
      part = Resolved{b,
                      s,
                      {Rect{static_cast<int32_t>(r1), static_cast<int32_t>(c1),
                            static_cast<int32_t>(r2), static_cast<int32_t>(c2)}}};
    } else {
      String nm(trim(q.rest));
      SheetId scope = s ? s->id : calc::kNoSheet;
      const DefinedName* n = nullptr;
      if (!q.sheet.empty()) {
        if (auto i = b->find_name(nm, scope)) n = &b->names()[*i];
      } else {
        n = b->resolve_name(nm, scope);
      }
      if (!n) bad();
      part = name_areas(b, *n);
      if (!part) fail("Method 'Range' failed: the name \"" + to_utf8(nm) + "\" refers to no cells");
    }
    if (out.sheet && out.sheet != part->sheet)
      fail("Method 'Range' failed: the areas of a range must be on one sheet");
    out.book = part->book;
    out.sheet = part->sheet;
    out.areas.insert(out.areas.end(), part->areas.begin(), part->areas.end());
  }
  return out;
}

namespace {

namespace xl = host::xl;

// ---------------------------------------------------------------------------------------------
// Workbooks

class EWorkbooks final : public host::Workbooks {
 public:
  explicit EWorkbooks(std::shared_ptr<AppState> app) : app_(std::move(app)) {}
  int32_t count() override { return static_cast<int32_t>(app_->books.size()); }
  host::WorkbookPtr item(const Variant& index) override {
    if (index.is_string()) {
      if (auto b = app_->find_book(index.str())) return app_->workbook(b);
      not_found("Workbooks(\"" + to_utf8(index.str()) + "\")");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > count()) not_found("Workbooks(" + std::to_string(i) + ")");
    return app_->workbook(app_->books[static_cast<size_t>(i - 1)]);
  }
  host::WorkbookPtr add(const Variant& template_) override {
    if (!template_.is_missing() && template_.is_string()) {
      const FileFormat* f = file_format_for(template_.str());
      if (!f) fail("Workbooks.Add: no file format for \"" + to_utf8(template_.str()) + "\"");
      host::OpenArgs args;
      args.filename = native_path(template_.str());
      BookPtr b = f->open(args.filename, args);
      b->name = next_name();
      b->path.clear();
      b->saved = true;
      app_->open_book(b);
      return app_->workbook(b);
    }
    auto b = std::make_shared<Book>(next_name());
    if (!template_.is_missing() && to_long(template_) == xl::Chart)
      b->add_sheet(u"Chart1", SheetKind::Chart);
    else
      b->add_sheet(u"Sheet1");
    b->changed = BookChanges{};
    b->saved = true;
    app_->open_book(b);
    return app_->workbook(b);
  }
  host::WorkbookPtr open(const host::OpenArgs& args) override {
    String path = native_path(args.filename);
    if (path.empty()) fail("Workbooks.Open: no file name");
    size_t slash = path.find_last_of(u"/\\");
    String name = slash == String::npos ? path : path.substr(slash + 1);
    String folder = slash == String::npos ? String() : path.substr(0, slash);
    if (auto open = app_->find_book(name); open && equals_text(open->name, name)) {
      // The application hands back a workbook that is already open.
      app_->active = open;
      return app_->workbook(open);
    }
    const FileFormat* f = file_format_for(path);
    if (!f) fail("Workbooks.Open: cannot open \"" + to_utf8(path) + "\": unknown file format");
    BookPtr b = f->open(path, args);
    if (!b) fail("Workbooks.Open: cannot open \"" + to_utf8(path) + "\"");
    b->name = name;
    b->path = folder;
    if (!args.read_only.is_missing() && to_bool(args.read_only)) b->read_only = true;
    // A template opens as a new, unsaved workbook made from it ("Plan1" from Plan.xltx)
    // unless Editable asks for the template itself.
    const size_t dot = name.rfind(u'.');
    const String ext = dot == String::npos ? String() : to_lower(StringView(name).substr(dot));
    const bool template_file = ext == u".xltx" || ext == u".xltm";
    if (template_file && (args.editable.is_missing() || !to_bool(args.editable))) {
      String stem = name.substr(0, dot);
      int32_t n = 1;
      while (app_->find_book(stem + u16(std::to_string(n)))) ++n;
      b->name = stem + u16(std::to_string(n));
      b->path.clear();
      b->read_only = false;
    }
    // UpdateLinks needs nothing here: the engine never reaches into other files, so the values
    // a file keeps for other workbooks' cells stay as they were stored, as with UpdateLinks 0.
    // Formulas stored without a value are calculated, as the application does on opening.
    b->calculate_uncached();
    b->loaded();
    app_->open_book(b);
    return app_->workbook(b);
  }

 private:
  String next_name() {
    for (;; ++app_->next_book) {
      String n = u"Book" + u16(std::to_string(app_->next_book));
      if (!app_->find_book(n)) {
        ++app_->next_book;
        return n;
      }
    }
  }
  std::shared_ptr<AppState> app_;
};

class EWorksheetFunction final : public host::WorksheetFunction {
 public:
  bool is_text(const Variant& arg) override { return is(arg, calc::Value::Kind::Text); }
  bool is_logical(const Variant& arg) override { return is(arg, calc::Value::Kind::Boolean); }
  bool is_error(const Variant& arg) override { return is(arg, calc::Value::Kind::Error); }

 private:
  // Classifying a cell asks all three of the same cell: a range of the engine's answers from
  // the kind of its first cell's value, without making the value.
  static bool is(const Variant& arg, calc::Value::Kind kind) {
    if (arg.is_object() && arg.object())
      if (auto k = first_cell_kind(*arg.object())) return *k == kind;
    const Variant v = value(arg);
    switch (kind) {
      case calc::Value::Kind::Text:
        return v.is_string();
      case calc::Value::Kind::Boolean:
        return v.is_bool();
      default:
        return v.is_error();
    }
  }
  // A range argument stands for its first cell's value.
  static Variant value(const Variant& arg) {
    std::optional<Variant> v;
    if (arg.is_object() && arg.object()) v = first_cell_value(*arg.object());
    if (!v) {
      auto r = arg.as<host::Range>();
      if (!r) return arg;
      v = r->cell(1, 1)->value();
    }
    if (v->is_date()) return Variant(v->date().serial);
    return std::move(*v);
  }
};

class EApplication final : public host::Application {
 public:
  explicit EApplication(std::shared_ptr<AppState> app) : app_(std::move(app)) {}
  const std::shared_ptr<AppState>& state() const { return app_; }

  String name() override { return u"QZXL Workbook Engine"; }
  host::WorkbooksPtr workbooks() override { return std::make_shared<EWorkbooks>(app_); }
  host::WorkbookPtr active_workbook() override {
    return app_->active ? app_->workbook(app_->active) : nullptr;
  }
  ObjectPtr active_sheet() override {
    auto s = app_->active_sheet();
    return s ? app_->sheet_object(app_->active, s) : nullptr;
  }
  host::RangePtr active_cell() override {
    auto s = app_->active_sheet();
    if (!s || s->kind != SheetKind::Worksheet) return nullptr;
    CellRef a = s->selection.active;
    return app_->range(app_->active, s, {Rect{a.row, a.col, a.row, a.col}});
  }
  ObjectPtr selection() override {
    if (const auto& chart = app_->selected_object)
      return make_embedded_chart(app_, chart->book, chart->sheet, chart->name, chart->key);
    auto s = app_->active_sheet();
    if (!s) return nullptr;
    if (s->kind != SheetKind::Worksheet) return app_->sheet_object(app_->active, s);
    return app_->range(app_->active, s, s->selection.areas);
  }
  host::RangePtr range(const Variant& cell1, const Variant& cell2) override {
    auto s = app_->active_sheet();
    auto one = [&](const Variant& v) -> Resolved {
      if (auto r = v.as<host::Range>()) {
        auto m = range_of(r);
        if (!m) fail("Range: not a range of this application");
        return Resolved{book_of(r->worksheet()->parent()), m->sheet, m->areas};
      }
      if (!v.is_string()) throw Error(err::type_mismatch, "Range needs an address or a Range");
      if (!app_->active) fail("Method 'Range' failed: no workbook is open");
      return resolve(*app_, app_->active, s && s->kind == SheetKind::Worksheet ? s : nullptr,
                     v.str());
    };
    Resolved a = one(cell1);
    if (cell2.is_missing()) return app_->range(a.book, a.sheet, a.areas);
    Resolved b = one(cell2);
    if (a.sheet != b.sheet) fail("Range: both corners must be on one sheet");
    return app_->range(a.book, a.sheet, {span(a.areas[0], b.areas[0])});
  }
  host::RangePtr union_(const host::RangePtr& a, const host::RangePtr& b) override {
    auto ma = range_of(a), mb = range_of(b);
    if (!ma || !mb) throw Error(err::object_required, "Union needs two ranges");
    if (ma->sheet != mb->sheet) fail("Method 'Union' failed: the ranges are on different sheets");
    std::vector<Rect> areas = ma->areas;
    areas.insert(areas.end(), mb->areas.begin(), mb->areas.end());
    join_areas(areas);
    return app_->range(book_of(a->worksheet()->parent()), ma->sheet, std::move(areas));
  }
  host::RangePtr intersect(const host::RangePtr& a, const host::RangePtr& b) override {
    auto ma = range_of(a), mb = range_of(b);
    if (!ma || !mb) throw Error(err::object_required, "Intersect needs two ranges");
    if (ma->sheet != mb->sheet)
      fail("Method 'Intersect' failed: the ranges are on different sheets");
    std::vector<Rect> out;
    for (const Rect& x : ma->areas)
      for (const Rect& y : mb->areas)
        if (auto r = intersection(x, y)) out.push_back(*r);
    if (out.empty()) return nullptr;
    return app_->range(book_of(a->worksheet()->parent()), ma->sheet, std::move(out));
  }

  int32_t calculation() override { return app_->calculation; }
  void set_calculation(int32_t mode) override {
    if (mode != xl::CalculationAutomatic && mode != xl::CalculationManual &&
        mode != xl::CalculationSemiautomatic)
      fail("unable to set the Calculation property: " + std::to_string(mode));
    if (app_->books.empty()) fail("unable to set the Calculation property: no workbook is open");
    app_->calculation = mode;
    for (auto& b : app_->books) {
      b->auto_calc = app_->automatic();
      // Going back to automatic brings every workbook up to date.
      if (b->auto_calc) b->calculate(false);
    }
  }
  bool calculate_before_save() override { return app_->calculate_before_save; }
  void set_calculate_before_save(bool on) override { app_->calculate_before_save = on; }
  bool display_alerts() override { return app_->display_alerts; }
  void set_display_alerts(bool on) override { app_->display_alerts = on; }
  bool screen_updating() override { return app_->screen_updating; }
  void set_screen_updating(bool on) override { app_->screen_updating = on; }
  void calculate() override {
    for (auto& b : app_->books) b->calculate(!app_->automatic());
  }
  void volatile_(bool) override { ++app_->volatile_calls; }
  host::WorksheetFunctionPtr worksheet_function() override {
    // It keeps no state, so one serves every call (the library asks for it per cell).
    if (!worksheet_function_) worksheet_function_ = std::make_shared<EWorksheetFunction>();
    return worksheet_function_;
  }

  void undo() override { application_undo(*app_); }
  void on_undo(const String& text, const String& procedure) override {
    application_on_undo(*app_, text, procedure);
  }
  void on_repeat(const String& text, const String& procedure) override {
    application_on_repeat(*app_, text, procedure);
  }
  String on_entry() override { return interaction(*app_).on_entry; }
  void set_on_entry(const String& procedure) override { interaction(*app_).on_entry = procedure; }
  void on_time(const Variant& earliest, const String& procedure, const Variant& latest,
               const Variant& schedule) override {
    application_on_time(*app_, earliest, procedure, latest, schedule);
  }
  Variant run(const String& macro, std::span<Variant> args) override {
    return application_run(*app_, macro, args);
  }
  // Keys wait for the next dialog shown, which reads them as a person's keystrokes.
  void send_keys(const String& keys, bool) override { app_->pending_keys += keys; }
  host::DialogPtr dialogs(int32_t id) override { return make_dialog(app_, id); }
  host::CommandBarsPtr command_bars() override { return make_command_bars(app_); }
  host::AddInsPtr add_ins() override { return make_add_ins(app_); }

  String alt_startup_path() override { return app_->alt_startup_path; }
  void set_alt_startup_path(const String& path) override { app_->alt_startup_path = path; }
  String startup_path() override { return String(); }
  String path() override { return app_->options.program_folder; }
  void quit() override {
    app_->books.clear();
    app_->active.reset();
    app_->selected_object.reset();
  }

 private:
  std::shared_ptr<AppState> app_;
  host::WorksheetFunctionPtr worksheet_function_;
};

}  // namespace

std::shared_ptr<AppState> state_of(const host::ApplicationPtr& app) {
  auto a = std::dynamic_pointer_cast<EApplication>(app);
  return a ? a->state() : nullptr;
}

host::ApplicationPtr AppState::application() {
  if (auto a = app.lock()) return a;
  auto a = std::make_shared<EApplication>(shared_from_this());
  app = a;
  return a;
}

}  // namespace qz::engine::detail

namespace qz::engine {

host::ApplicationPtr create_application(ApplicationOptions options) {
  auto state = std::make_shared<detail::AppState>();
  state->options = std::move(options);
  return state->application();
}

host::WorkbookPtr adopt(const host::ApplicationPtr& app, BookPtr book) {
  auto a = std::dynamic_pointer_cast<detail::EApplication>(app);
  if (!a || !book) throw Error(err::invalid_call, "adopt: not an engine application or book");
  a->state()->open_book(book);
  return a->state()->workbook(book);
}

}  // namespace qz::engine
