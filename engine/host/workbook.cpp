// Workbook, sheets, charts, hyperlinks, windows and document properties (names are in names.cpp).
#include <algorithm>
#include <cstdint>
#include <functional>

#include "engine/host/objects.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

namespace {

namespace xl = host::xl;
using host::RangePtr;

template <class T>
std::shared_ptr<T> cached(AppState& app, const void* key) {
  auto it = app.wrappers.find(key);
  if (it == app.wrappers.end()) return nullptr;
  return std::dynamic_pointer_cast<T>(it->second.lock());
}

// ---------------------------------------------------------------------------------------------
// Windows

class EWindow final : public host::Window {
 public:
  EWindow(BookPtr book, size_t index) : book_(std::move(book)), index_(index) {}
  bool visible() override { return rec().visible; }
  void set_visible(bool visible) override {
    rec().visible = visible;
    book_->changed.workbook = true;
  }
  String caption() override { return book_->name; }

 private:
  WindowRec& rec() {
    if (index_ >= book_->windows.size()) fail("the window has been closed");
    return book_->windows[index_];
  }
  BookPtr book_;
  size_t index_;
};

class EWindows final : public host::Windows {
 public:
  explicit EWindows(BookPtr book) : book_(std::move(book)) {}
  int32_t count() override { return static_cast<int32_t>(book_->windows.size()); }
  host::WindowPtr item(const Variant& index) override {
    int32_t i;
    if (index.is_string()) {
      i = equals_text(index.str(), book_->name) ? 1 : 0;
    } else {
      i = to_long(index);
    }
    if (i < 1 || i > count()) not_found("Windows(" + to_utf8(to_string(index)) + ")");
    return std::make_shared<EWindow>(book_, static_cast<size_t>(i - 1));
  }

 private:
  BookPtr book_;
};

// ---------------------------------------------------------------------------------------------
// Document properties

class EDocumentProperty final : public host::DocumentProperty {
 public:
  EDocumentProperty(BookPtr book, String name) : book_(std::move(book)), name_(std::move(name)) {}
  String name() override { return rec().name; }
  Variant value() override { return rec().value; }
  void set_value(const Variant& value) override {
    CustomProperty& p = rec();
    p.value = convert(value, p.type);
    book_->changed.props = true;
    book_->saved = false;
  }
  int32_t type() override { return rec().type; }
  void delete_() override {
    auto& props = book_->props;
    props.erase(std::remove_if(props.begin(), props.end(),
                               [&](const CustomProperty& p) { return equals_text(p.name, name_); }),
                props.end());
    book_->changed.props = true;
    book_->saved = false;
  }

  static Variant convert(const Variant& v, int32_t type) {
    switch (type) {
      case 1:
        return Variant(to_long(v));
      case 2:
        return Variant(to_bool(v));
      case 3:
        return Variant(to_date(v));
      case 5:
        return Variant(to_double(v));
      default:
        return Variant(to_string(v));
    }
  }

 private:
  CustomProperty& rec() {
    for (auto& p : book_->props)
      if (equals_text(p.name, name_)) return p;
    fail("the document property \"" + to_utf8(name_) + "\" has been deleted");
  }
  BookPtr book_;
  String name_;
};

class EDocumentProperties final : public host::DocumentProperties {
 public:
  explicit EDocumentProperties(BookPtr book) : book_(std::move(book)) {}
  int32_t count() override { return static_cast<int32_t>(book_->props.size()); }
  host::DocumentPropertyPtr item(const Variant& index) override {
    if (index.is_string()) {
      for (auto& p : book_->props)
        if (equals_text(p.name, index.str()))
          return std::make_shared<EDocumentProperty>(book_, p.name);
      fail("there is no document property \"" + to_utf8(index.str()) + "\"");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > count()) fail("there is no document property " + std::to_string(i));
    return std::make_shared<EDocumentProperty>(book_,
                                               book_->props[static_cast<size_t>(i - 1)].name);
  }
  host::DocumentPropertyPtr add(const String& name, bool link_to_content, int32_t type,
                                const Variant& value) override {
    if (name.empty() || name.size() > 255)
      fail("a document property needs a name of 1 to 255 characters");
    if (link_to_content) fail("linked document properties are not supported");
    if (type < 1 || type > 5) fail("unknown document property type " + std::to_string(type));
    for (auto& p : book_->props)
      if (equals_text(p.name, name))
        fail("a document property named \"" + to_utf8(name) + "\" exists");
    CustomProperty p;
    p.name = name;
    p.type = type;
    p.value = EDocumentProperty::convert(value, type);
    book_->props.push_back(std::move(p));
    book_->changed.props = true;
    book_->saved = false;
    return std::make_shared<EDocumentProperty>(book_, name);
  }

 private:
  BookPtr book_;
};

// ---------------------------------------------------------------------------------------------
// Hyperlinks

class EHyperlink final : public host::Hyperlink {
 public:
  EHyperlink(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
             size_t index)
      : app_(std::move(app)), book_(std::move(book)), sheet_(std::move(sheet)), index_(index) {}
  String address() override { return rec().address; }
  String sub_address() override { return rec().sub_address; }
  RangePtr range() override { return app_->range(book_, sheet_, {rec().ref}); }
  void delete_() override {
    Sheet& s = live(sheet_);
    rec();
    s.hyperlinks.erase(s.hyperlinks.begin() + static_cast<long>(index_));
    s.changed.cells = true;
    book_->saved = false;
  }

 private:
  HyperlinkRec& rec() {
    Sheet& s = live(sheet_);
    if (index_ >= s.hyperlinks.size()) fail("the hyperlink has been deleted");
    return s.hyperlinks[index_];
  }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  size_t index_;
};

class EHyperlinks final : public host::Hyperlinks {
 public:
  EHyperlinks(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
              std::optional<std::vector<Rect>> within)
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        within_(std::move(within)) {}

  int32_t count() override { return static_cast<int32_t>(indices().size()); }
  host::HyperlinkPtr item(int32_t index) override {
    auto idx = indices();
    if (index < 1 || index > static_cast<int32_t>(idx.size()))
      not_found("Hyperlinks(" + std::to_string(index) + ")");
    return std::make_shared<EHyperlink>(app_, book_, sheet_, idx[static_cast<size_t>(index - 1)]);
  }
  host::HyperlinkPtr add(const RangePtr& anchor, const String& address, const Variant& sub_address,
                         const Variant& screen_tip, const Variant& text_to_display) override {
    auto m = range_of(anchor);
    if (!m || m->sheet != sheet_) fail("Hyperlinks.Add: the anchor must be a range of this sheet");
    Sheet& s = live(sheet_);
    HyperlinkRec h;
    h.ref = m->areas[0];
    h.address = address;
    if (!sub_address.is_missing()) h.sub_address = to_string(sub_address);
    if (!screen_tip.is_missing()) h.screen_tip = to_string(screen_tip);
    if (!text_to_display.is_missing()) h.display = to_string(text_to_display);
    // A new link replaces links on the same cells.
    s.hyperlinks.erase(std::remove_if(s.hyperlinks.begin(), s.hyperlinks.end(),
                                      [&](const HyperlinkRec& o) { return o.ref == h.ref; }),
                       s.hyperlinks.end());
    String shown = !h.display.empty() ? h.display : !address.empty() ? address : h.sub_address;
    const Cell* c = s.cells.find(h.ref.row1, h.ref.col1);
    if (!text_to_display.is_missing() || !c || !c->has_content())
      book_->set_constant(s, h.ref.row1, h.ref.col1, calc::Value::str(shown));
    s.hyperlinks.push_back(std::move(h));
    s.changed.cells = true;
    book_->saved = false;
    book_->commit();
    return std::make_shared<EHyperlink>(app_, book_, sheet_, s.hyperlinks.size() - 1);
  }

 private:
  std::vector<size_t> indices() {
    Sheet& s = live(sheet_);
    std::vector<size_t> out;
    for (size_t i = 0; i < s.hyperlinks.size(); ++i) {
      bool in = !within_;
      if (within_)
        for (const Rect& a : *within_)
          if (intersection(a, s.hyperlinks[i].ref)) in = true;
      if (in) out.push_back(i);
    }
    return out;
  }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  std::optional<std::vector<Rect>> within_;
};

// ---------------------------------------------------------------------------------------------
// Charts

class EChart;

// A chart object is found again by the identity its file gave it, so that a handle follows a
// rename made through another handle; one without (made by the engine) by its name.
ChartObjectRec& find_chart_object(Sheet& s, const String& key, const String& name) {
  for (auto& c : s.chart_objects)
    if (key.empty() ? c.name == name : c.file_key == key) return c;
  fail("the chart object \"" + to_utf8(name) + "\" has been deleted");
}

class EChartObject final : public host::ChartObject {
 public:
  EChartObject(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
               String name, String key)
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        name_(std::move(name)),
        key_(std::move(key)) {}
  host::WorksheetPtr parent() override { return app_->worksheet(book_, sheet_); }
  String name() override { return rec().name; }
  void set_name(const String& name) override {
    if (name.empty()) fail("a chart object needs a name");
    rec().name = name;
    name_ = name;
    live(sheet_).changed.sheet = true;
    book_->saved = false;
  }
  host::ChartPtr chart() override {
    return make_embedded_chart(app_, book_, sheet_, rec().name, key_);
  }
  void activate() override {
    app_->activate_sheet(book_, live(sheet_));
    app_->selected_object = chart();
  }

 private:
  ChartObjectRec& rec() { return find_chart_object(live(sheet_), key_, name_); }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  String name_;
  String key_;
};

class EChartObjects final : public host::ChartObjects {
 public:
  EChartObjects(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet)
      : app_(std::move(app)), book_(std::move(book)), sheet_(std::move(sheet)) {}
  int32_t count() override { return static_cast<int32_t>(live(sheet_).chart_objects.size()); }
  host::ChartObjectPtr item(const Variant& index) override {
    Sheet& s = live(sheet_);
    if (index.is_string()) {
      for (auto& c : s.chart_objects)
        if (equals_text(c.name, index.str()))
          return std::make_shared<EChartObject>(app_, book_, sheet_, c.name, c.file_key);
      not_found("ChartObjects(\"" + to_utf8(index.str()) + "\")");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > count()) not_found("ChartObjects(" + std::to_string(i) + ")");
    const ChartObjectRec& c = s.chart_objects[static_cast<size_t>(i - 1)];
    return std::make_shared<EChartObject>(app_, book_, sheet_, c.name, c.file_key);
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
};

// A chart sheet, or the chart inside a chart object (`object` names it).
class EChart final : public host::Chart {
 public:
  EChart(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
         std::optional<String> object, String key = String())
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        object_(std::move(object)),
        key_(std::move(key)) {}
  host::ApplicationPtr application() override { return app_->application(); }
  ObjectPtr parent() override {
    if (object_) return std::make_shared<EChartObject>(app_, book_, sheet_, object(), key_);
    return app_->workbook(book_);
  }
  String name() override {
    Sheet& s = live(sheet_);
    if (object_) return s.name + u" " + object();
    return s.name;
  }
  void set_name(const String& name) override {
    Sheet& s = live(sheet_);
    if (object_) {
      // An embedded chart's name is its sheet's and its object's.
      String prefix = s.name + u" ";
      String obj = name.rfind(prefix, 0) == 0 ? name.substr(prefix.size()) : name;
      std::make_shared<EChartObject>(app_, book_, sheet_, object(), key_)->set_name(obj);
      object_ = obj;
      return;
    }
    book_->rename_sheet(s, name);
  }
  int32_t type() override { return xl::Chart; }
  void activate() override {
    Sheet& s = live(sheet_);
    app_->activate_sheet(book_, s);
    if (object_) app_->selected_object = shared_from_this();
  }
  void copy_picture(int32_t, int32_t, int32_t) override {
    throw Error(err::not_supported, "CopyPicture: this host draws no pictures");
  }
  const std::shared_ptr<Sheet>& sheet() const { return sheet_; }

 private:
  // The chart object's name now, which a rename through another handle may have changed.
  String object() {
    object_ = find_chart_object(live(sheet_), key_, *object_).name;
    return *object_;
  }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  std::optional<String> object_;
  String key_;
};

// ---------------------------------------------------------------------------------------------
// Sheets

class ESheets final : public host::Sheets {
 public:
  ESheets(std::shared_ptr<AppState> app, BookPtr book)
      : app_(std::move(app)), book_(std::move(book)) {}
  int32_t count() override { return static_cast<int32_t>(book_->sheets.size()); }
  ObjectPtr item(const Variant& index) override {
    if (index.is_string()) {
      for (auto& s : book_->sheets)
        if (equals_text(s->name, index.str())) return app_->sheet_object(book_, s);
      not_found("Sheets(\"" + to_utf8(index.str()) + "\")");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > count()) not_found("Sheets(" + std::to_string(i) + ")");
    return app_->sheet_object(book_, book_->sheets[static_cast<size_t>(i - 1)]);
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
};

std::vector<std::shared_ptr<Sheet>> of_kind(const Book& b, SheetKind kind) {
  std::vector<std::shared_ptr<Sheet>> out;
  for (auto& s : b.sheets)
    if (s->kind == kind) out.push_back(s);
  return out;
}

std::shared_ptr<Sheet> pick(const Book& b, SheetKind kind, const Variant& index, const char* what) {
  auto list = of_kind(b, kind);
  if (index.is_string()) {
    for (auto& s : list)
      if (equals_text(s->name, index.str())) return s;
    not_found(std::string(what) + "(\"" + to_utf8(index.str()) + "\")");
  }
  int32_t i = to_long(index);
  if (i < 1 || i > static_cast<int32_t>(list.size()))
    not_found(std::string(what) + "(" + std::to_string(i) + ")");
  return list[static_cast<size_t>(i - 1)];
}

class EWorksheets final : public host::Worksheets {
 public:
  EWorksheets(std::shared_ptr<AppState> app, BookPtr book)
      : app_(std::move(app)), book_(std::move(book)) {}
  int32_t count() override {
    return static_cast<int32_t>(of_kind(*book_, SheetKind::Worksheet).size());
  }
  host::WorksheetPtr item(const Variant& index) override {
    return app_->worksheet(book_, pick(*book_, SheetKind::Worksheet, index, "Worksheets"));
  }
  host::WorksheetPtr add(const Variant& before, const Variant& after) override {
    int32_t pos;
    auto position_of = [&](const Variant& v) {
      Sheet* s = nullptr;
      if (auto w = v.as<host::Worksheet>()) s = sheet_of(w).get();
      if (auto c = v.as<EChart>()) s = c->sheet().get();
      if (!s || s->book != book_.get())
        fail("Worksheets.Add: Before/After must be a sheet of this workbook");
      return book_->sheet_position(s->id);
    };
    if (!before.is_missing())
      pos = position_of(before);
    else if (!after.is_missing())
      pos = position_of(after) + 1;
    else
      pos = book_->active_sheet;
    Sheet& s =
        book_->add_sheet(book_->next_sheet_name(SheetKind::Worksheet), SheetKind::Worksheet, pos);
    std::shared_ptr<Sheet> sp;
    for (auto& x : book_->sheets)
      if (x.get() == &s) sp = x;
    app_->activate_sheet(book_, s);
    return app_->worksheet(book_, sp);
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
};

class ECharts final : public host::Charts {
 public:
  ECharts(std::shared_ptr<AppState> app, BookPtr book)
      : app_(std::move(app)), book_(std::move(book)) {}
  int32_t count() override {
    return static_cast<int32_t>(of_kind(*book_, SheetKind::Chart).size());
  }
  host::ChartPtr item(const Variant& index) override {
    return app_->chart_sheet(book_, pick(*book_, SheetKind::Chart, index, "Charts"));
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
};

class EWorksheet final : public host::Worksheet {
 public:
  EWorksheet(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet)
      : app_(std::move(app)), book_(std::move(book)), sheet_(std::move(sheet)) {}

  const std::shared_ptr<Sheet>& sheet() const { return sheet_; }

  host::ApplicationPtr application() override { return app_->application(); }
  host::WorkbookPtr parent() override { return app_->workbook(book_); }
  String name() override { return s().name; }
  void set_name(const String& name) override { book_->rename_sheet(s(), name); }
  String code_name() override { return s().code_name; }
  int32_t index() override { return book_->sheet_position(s().id) + 1; }
  int32_t type() override { return xl::Worksheet; }
  int32_t visible() override { return s().visibility; }
  void set_visible(int32_t visibility) override {
    Sheet& me = s();
    if (visibility == 1) visibility = xl::SheetVisible;  // True as an Integer
    if (visibility != xl::SheetVisible && visibility != xl::SheetHidden &&
        visibility != xl::SheetVeryHidden)
      fail("unable to set the Visible property: " + std::to_string(visibility));
    if (visibility != xl::SheetVisible && me.visibility == xl::SheetVisible) {
      int visible = 0;
      for (auto& x : book_->sheets)
        if (x->visibility == xl::SheetVisible) ++visible;
      if (visible <= 1)
        fail("unable to set the Visible property: a workbook must keep one visible sheet");
    }
    me.visibility = visibility;
    me.changed.sheet = true;
    book_->changed.workbook = true;
    book_->saved = false;
    if (visibility != xl::SheetVisible &&
        book_->sheets[static_cast<size_t>(book_->active_sheet)].get() == &me)
      for (size_t i = 0; i < book_->sheets.size(); ++i)
        if (book_->sheets[i]->visibility == xl::SheetVisible) {
          book_->active_sheet = static_cast<int32_t>(i);
          break;
        }
  }
  host::NamesPtr names() override { return make_names(app_, book_, s().id); }
  RangePtr range(const Variant& cell1, const Variant& cell2) override {
    auto one = [&](const Variant& v) -> Resolved {
      if (auto r = v.as<host::Range>()) {
        auto m = range_of(r);
        if (!m || m->sheet != sheet_) fail("Range: the cells must be on this sheet");
        return Resolved{book_, m->sheet, m->areas};
      }
      if (!v.is_string()) throw Error(err::type_mismatch, "Range needs an address or a Range");
      return resolve(*app_, book_, sheet_, v.str());
    };
    s();
    Resolved a = one(cell1);
    if (cell2.is_missing()) return app_->range(a.book, a.sheet, a.areas);
    Resolved b = one(cell2);
    if (a.sheet != b.sheet) fail("Range: both corners must be on one sheet");
    return app_->range(a.book, a.sheet, {span(a.areas[0], b.areas[0])});
  }
  RangePtr cells() override {
    s();
    return app_->range(book_, sheet_, {Rect{0, 0, kLastRow, kLastCol}});
  }
  RangePtr cell(int32_t row, int32_t column) override {
    s();
    if (row < 1 || row > calc::kMaxRows || column < 1 || column > calc::kMaxCols)
      fail("Cells(" + std::to_string(row) + ", " + std::to_string(column) +
           ") lies outside the sheet");
    return app_->range(book_, sheet_, {Rect{row - 1, column - 1, row - 1, column - 1}});
  }
  RangePtr rows() override {
    s();
    return app_->range(book_, sheet_, {Rect{0, 0, kLastRow, kLastCol}}, RangeMode::Rows);
  }
  RangePtr columns() override {
    s();
    return app_->range(book_, sheet_, {Rect{0, 0, kLastRow, kLastCol}}, RangeMode::Columns);
  }
  RangePtr used_range() override {
    Sheet& me = s();
    std::optional<Rect> used = me.cells.extent();
    // Rows and columns with formats of their own belong to the used range as well.
    auto widen = [&](int32_t r1, int32_t c1, int32_t r2, int32_t c2) {
      Rect r{r1, c1, r2, c2};
      used = used ? span(*used, r) : r;
    };
    for (auto& [r, li] : me.rows)
      if (li.has_style) widen(r, 0, r, 0);
    for (auto& [c, li] : me.cols)
      if (li.has_style) widen(0, c, 0, c);
    return app_->range(book_, sheet_, {used.value_or(Rect{})});
  }
  void activate() override { app_->activate_sheet(book_, s()); }
  void select() override { app_->activate_sheet(book_, s()); }
  void delete_() override {
    book_->delete_sheet(s().id);
    if (app_->active == book_) app_->selected_object.reset();
  }
  host::ChartObjectsPtr chart_objects() override {
    s();
    return std::make_shared<EChartObjects>(app_, book_, sheet_);
  }
  host::HyperlinksPtr hyperlinks() override {
    return make_hyperlinks(app_, book_, sheet_, std::nullopt);
  }

 private:
  Sheet& s() { return live(sheet_); }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
};

// ---------------------------------------------------------------------------------------------
// Workbook

String join_path(const String& folder, const String& name) {
  if (folder.empty()) return name;
#if defined(_WIN32)
  return folder + u"\\" + name;
#else
  return folder + u"/" + name;
#endif
}

class EWorkbook final : public host::Workbook {
 public:
  EWorkbook(std::shared_ptr<AppState> app, BookPtr book)
      : app_(std::move(app)), book_(std::move(book)) {}
  const BookPtr& book() const { return book_; }

  host::ApplicationPtr application() override { return app_->application(); }
  String name() override { return book_->name; }
  String path() override { return book_->path; }
  String full_name() override { return join_path(book_->path, book_->name); }
  String code_name() override { return book_->code_name; }
  bool read_only() override { return book_->read_only; }
  bool saved() override { return book_->saved; }
  void set_saved(bool saved) override { book_->saved = saved; }
  bool date1904() override { return book_->date1904; }
  void activate() override {
    open();
    app_->active = book_;
    app_->selected_object.reset();
  }
  void close(const Variant& save_changes, const Variant& filename) override {
    open();
    if (!save_changes.is_missing() && to_bool(save_changes)) {
      if (!filename.is_missing())
        save_as(to_string(filename));
      else
        save();
    }
    app_->close_book(book_.get());
  }
  void save() override {
    open();
    if (book_->path.empty()) fail("Save: the workbook has never been saved; use SaveAs");
    write(join_path(book_->path, book_->name));
  }
  void save_as(const String& filename) override {
    open();
    if (filename.empty()) fail("SaveAs: no file name");
    for (auto& other : app_->books)
      if (other != book_ && equals_text(join_path(other->path, other->name), filename))
        fail("SaveAs: a workbook of that name is open");
    write(filename);
    size_t slash = filename.find_last_of(u"/\\");
    book_->name = slash == String::npos ? filename : filename.substr(slash + 1);
    book_->path = slash == String::npos ? String() : filename.substr(0, slash);
  }
  host::WindowsPtr windows() override { return std::make_shared<EWindows>(book_); }
  host::SheetsPtr sheets() override { return std::make_shared<ESheets>(app_, book_); }
  host::WorksheetsPtr worksheets() override { return std::make_shared<EWorksheets>(app_, book_); }
  host::ChartsPtr charts() override { return std::make_shared<ECharts>(app_, book_); }
  host::NamesPtr names() override { return make_names(app_, book_, std::nullopt); }
  int32_t colors(int32_t index) override {
    if (index < 1 || index > 56) not_found("Colors(" + std::to_string(index) + ")");
    return book_->palette[static_cast<size_t>(index - 1)];
  }
  void set_colors(int32_t index, int32_t color) override {
    if (index < 1 || index > 56) not_found("Colors(" + std::to_string(index) + ")");
    book_->palette[static_cast<size_t>(index - 1)] = color & 0xFFFFFF;
    book_->styles.changed = true;
    book_->saved = false;
  }
  host::DocumentPropertiesPtr custom_document_properties() override {
    return std::make_shared<EDocumentProperties>(book_);
  }

 private:
  void open() {
    for (auto& b : app_->books)
      if (b == book_) return;
    fail("the workbook has been closed");
  }
  void write(const String& path) {
    const FileFormat* f = file_format_for(path);
    if (!f || !f->save) fail("cannot save \"" + to_utf8(path) + "\": unknown file format");
    if (app_->calculate_before_save && !app_->automatic()) book_->calculate(true);
    f->save(*book_, path);
    book_->loaded();
  }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Wrapper identity

namespace {
// Keeps a wrapper for its model object; entries whose wrapper is gone are dropped now and
// then, so a long session that opens and closes many workbooks does not collect them.
void remember(AppState& app, const void* key, const ObjectPtr& w) {
  if (app.wrappers.size() >= 256 && app.wrappers.size() % 256 == 0)
    std::erase_if(app.wrappers, [](const auto& e) { return e.second.expired(); });
  app.wrappers[key] = w;
}
}  // namespace

host::WorkbookPtr AppState::workbook(const BookPtr& book) {
  if (auto w = cached<EWorkbook>(*this, book.get())) return w;
  auto w = std::make_shared<EWorkbook>(shared_from_this(), book);
  remember(*this, book.get(), w);
  return w;
}

host::WorksheetPtr AppState::worksheet(const BookPtr& book, const std::shared_ptr<Sheet>& sheet) {
  if (!sheet || sheet->kind != SheetKind::Worksheet) fail("not a worksheet");
  if (auto w = cached<EWorksheet>(*this, sheet.get())) return w;
  auto w = std::make_shared<EWorksheet>(shared_from_this(), book, sheet);
  remember(*this, sheet.get(), w);
  return w;
}

host::ChartPtr AppState::chart_sheet(const BookPtr& book, const std::shared_ptr<Sheet>& sheet) {
  if (auto w = cached<EChart>(*this, sheet.get())) return w;
  auto w = std::make_shared<EChart>(shared_from_this(), book, sheet, std::nullopt);
  remember(*this, sheet.get(), w);
  return w;
}

ObjectPtr AppState::sheet_object(const BookPtr& book, const std::shared_ptr<Sheet>& sheet) {
  if (sheet->kind == SheetKind::Chart) return chart_sheet(book, sheet);
  return worksheet(book, sheet);
}

host::HyperlinksPtr make_hyperlinks(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                    const std::shared_ptr<Sheet>& sheet,
                                    std::optional<std::vector<Rect>> within) {
  return std::make_shared<EHyperlinks>(app, book, sheet, std::move(within));
}

host::ChartPtr make_embedded_chart(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                   const std::shared_ptr<Sheet>& sheet, const String& name,
                                   const String& key) {
  return std::make_shared<EChart>(app, book, sheet, name, key);
}

}  // namespace qz::engine::detail

namespace qz::engine {

BookPtr book_of(const host::WorkbookPtr& workbook) {
  auto w = std::dynamic_pointer_cast<detail::EWorkbook>(workbook);
  return w ? w->book() : nullptr;
}

std::shared_ptr<Sheet> sheet_of(const host::WorksheetPtr& worksheet) {
  auto w = std::dynamic_pointer_cast<detail::EWorksheet>(worksheet);
  return w ? w->sheet() : nullptr;
}

}  // namespace qz::engine
