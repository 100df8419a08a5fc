#include "host/dispatch.hpp"

#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz::host {

namespace {

[[noreturn]] void wrong_arguments(StringView member) {
  throw Error(err::wrong_arguments,
              "Wrong number of arguments or invalid property assignment: " + to_utf8(member));
}

// The arguments of one late-bound call.
class Args {
 public:
  Args(StringView member, Invoke kind, std::span<Variant> args)
      : member_(member), kind_(kind), args_(args) {}

  bool put() const { return kind_ == Invoke::Put || kind_ == Invoke::PutRef; }
  // Arguments besides an assigned value.
  size_t count() const { return put() ? args_.size() - 1 : args_.size(); }
  bool given(size_t i) const { return i < count() && !args_[i].is_missing(); }
  const Variant& at(size_t i) const {
    static const Variant missing = Variant::missing();
    return i < count() ? args_[i] : missing;
  }
  const Variant& value() const {
    if (!put() || args_.empty()) wrong_arguments(member_);
    return args_.back();
  }
  void at_most(size_t n) const {
    if (count() > n) wrong_arguments(member_);
  }
  // A property that takes no assignment and no index.
  void get_only() const {
    if (put()) wrong_arguments(member_);
    at_most(0);
  }
  template <class T>
  T as(size_t i) const;
  template <class T>
  T as_or(size_t i, T fallback) const {
    return given(i) ? as<T>(i) : fallback;
  }
  StringView member() const { return member_; }

 private:
  StringView member_;
  Invoke kind_;
  std::span<Variant> args_;
};

template <class T>
struct is_shared_ptr : std::false_type {};
template <class T>
struct is_shared_ptr<std::shared_ptr<T>> : std::true_type {
  using element = T;
};

template <class T>
T convert(const Variant& v) {
  if constexpr (std::is_same_v<T, Variant>) {
    return v;
  } else if constexpr (std::is_same_v<T, bool>) {
    return to_bool(v);
  } else if constexpr (std::is_same_v<T, int16_t>) {
    return to_integer(v);
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return to_long(v);
  } else if constexpr (std::is_same_v<T, int64_t>) {
    return static_cast<int64_t>(to_double(v));
  } else if constexpr (std::is_same_v<T, double>) {
    return to_double(v);
  } else if constexpr (std::is_same_v<T, String>) {
    return to_string(v);
  } else {
    static_assert(is_shared_ptr<T>::value, "no conversion for this argument type");
    using E = typename is_shared_ptr<T>::element;
    if (v.is_missing() || v.is_empty() || v.is_nothing()) return nullptr;
    if (!v.is_object()) throw Error(err::type_mismatch, "Type mismatch: object expected");
    auto p = std::dynamic_pointer_cast<E>(v.object());
    if (!p) throw Error(err::type_mismatch, "Type mismatch: " + to_utf8(type_name(v)));
    return p;
  }
}

template <class T>
T Args::as(size_t i) const {
  if constexpr (std::is_same_v<T, Variant>) {
    return at(i);
  } else if constexpr (is_shared_ptr<T>::value) {
    return convert<T>(at(i));
  } else {
    if (!given(i)) throw Error(err::wrong_arguments, "Argument not optional: " + to_utf8(member_));
    return convert<T>(at(i));
  }
}

Variant wrap(Variant v) {
  return v;
}
Variant wrap(const String& s) {
  return Variant(s);
}
Variant wrap(bool b) {
  return Variant(b);
}
Variant wrap(int32_t i) {
  return Variant(i);
}
Variant wrap(int64_t i) {
  if (i >= std::numeric_limits<int32_t>::min() && i <= std::numeric_limits<int32_t>::max())
    return Variant(static_cast<int32_t>(i));
  return Variant(static_cast<double>(i));
}
template <class T>
requires std::is_base_of_v<Object, T> Variant wrap(const std::shared_ptr<T>& p) {
  return Variant(ObjectPtr(p));
}

// What a member-function pointer is made of.
template <class M>
struct member_traits;
template <class C, class R, class... P>
struct member_traits<R (C::*)(P...)> {
  using cls = C;
  using ret = R;
  using params = std::tuple<std::decay_t<P>...>;
};

template <auto G>
using class_of = typename member_traits<decltype(G)>::cls;

// A read-only property.
template <auto G>
Variant get(class_of<G>& o, Args& a) {
  a.get_only();
  return wrap((o.*G)());
}

// A read-write property.
template <auto G, auto S>
Variant prop(class_of<G>& o, Args& a) {
  if (a.put()) {
    a.at_most(0);
    using P = std::tuple_element_t<0, typename member_traits<decltype(S)>::params>;
    (o.*S)(convert<P>(a.value()));
    return Variant();
  }
  a.get_only();
  return wrap((o.*G)());
}

// A method whose arguments are all given, except Variants, which may be Missing.
template <auto F>
Variant method(class_of<F>& o, Args& a) {
  using T = member_traits<decltype(F)>;
  using P = typename T::params;
  constexpr size_t n = std::tuple_size_v<P>;
  if (a.put()) wrong_arguments(a.member());
  a.at_most(n);
  return [&]<size_t... I>(std::index_sequence<I...>) {
    if constexpr (std::is_void_v<typename T::ret>) {
      (o.*F)(a.as<std::tuple_element_t<I, P>>(I)...);
      return Variant();
    } else {
      return wrap((o.*F)(a.as<std::tuple_element_t<I, P>>(I)...));
    }
  }
  (std::make_index_sequence<n>{});
}

// A collection's `Item(index)`, also its default member.
template <class C>
Variant item(C& c, Args& a) {
  if (a.put()) wrong_arguments(a.member());
  a.at_most(1);
  using P = std::tuple_element_t<0, typename member_traits<decltype(&C::item)>::params>;
  return wrap(c.item(a.as<P>(0)));
}

// A property that returns a collection, with an optional index for one of its items
// ("Worksheets(2)").
template <auto G>
Variant collection(class_of<G>& o, Args& a) {
  if (a.put()) wrong_arguments(a.member());
  a.at_most(1);
  auto c = (o.*G)();
  if (!a.given(0)) return wrap(c);
  if (!c) throw Error(err::object_required, "Object required");
  using C = typename std::decay_t<decltype(c)>::element_type;
  using P = std::tuple_element_t<0, typename member_traits<decltype(&C::item)>::params>;
  return wrap(c->item(a.as<P>(0)));
}

template <class T>
struct Member {
  using Call = Variant (*)(T&, Args&);
  Member(const char16_t* n, Call c, std::vector<const char16_t*> p = {})
      : name(n), call(c), params(std::move(p)) {}
  const char16_t* name;
  Call call;
  std::vector<const char16_t*> params;
};

template <class T>
using Table = std::vector<Member<T>>;

// ---- The host classes' members, by the application's names ------------------------------

const Table<Application>& application_members() {
  static const Table<Application> t = {
      {u"Name", get<&Application::name>},
      {u"Workbooks", collection<&Application::workbooks>},
      {u"ActiveWorkbook", get<&Application::active_workbook>},
      {u"ActiveSheet", get<&Application::active_sheet>},
      {u"ActiveCell", get<&Application::active_cell>},
      {u"Selection", get<&Application::selection>},
      {u"Range", method<&Application::range>, {u"Cell1", u"Cell2"}},
      {u"Union", method<&Application::union_>, {u"Arg1", u"Arg2"}},
      {u"Intersect", method<&Application::intersect>, {u"Arg1", u"Arg2"}},
      {u"Calculation", prop<&Application::calculation, &Application::set_calculation>},
      {u"CalculateBeforeSave",
       prop<&Application::calculate_before_save, &Application::set_calculate_before_save>},
      {u"DisplayAlerts", prop<&Application::display_alerts, &Application::set_display_alerts>},
      {u"ScreenUpdating", prop<&Application::screen_updating, &Application::set_screen_updating>},
      {u"Calculate", method<&Application::calculate>},
      {u"Volatile",
       [](Application& o, Args& a) {
         a.at_most(1);
         o.volatile_(a.as_or<bool>(0, true));
         return Variant();
       }},
      {u"WorksheetFunction", get<&Application::worksheet_function>},
      {u"Undo", method<&Application::undo>},
      {u"OnUndo", method<&Application::on_undo>, {u"Text", u"Procedure"}},
      {u"OnRepeat", method<&Application::on_repeat>, {u"Text", u"Procedure"}},
      {u"OnEntry", prop<&Application::on_entry, &Application::set_on_entry>},
      {u"OnTime",
       method<&Application::on_time>,
       {u"EarliestTime", u"Procedure", u"LatestTime", u"Schedule"}},
      {u"Run",
       [](Application& o, Args& a) {
         std::vector<Variant> rest;
         for (size_t i = 1; i < a.count(); ++i) rest.push_back(a.at(i));
         return o.run(a.as<String>(0), rest);
       },
       {u"Macro"}},
      {u"SendKeys",
       [](Application& o, Args& a) {
         a.at_most(2);
         o.send_keys(a.as<String>(0), a.as_or<bool>(1, false));
         return Variant();
       },
       {u"Keys", u"Wait"}},
      {u"Dialogs", method<&Application::dialogs>},
      {u"CommandBars", collection<&Application::command_bars>},
      {u"AddIns", collection<&Application::add_ins>},
      {u"AltStartupPath", prop<&Application::alt_startup_path, &Application::set_alt_startup_path>},
      {u"StartupPath", get<&Application::startup_path>},
      {u"Path", get<&Application::path>},
      {u"Quit", method<&Application::quit>},
  };
  return t;
}

const Table<Workbooks>& workbooks_members() {
  static const Table<Workbooks> t = {
      {u"Count", get<&Workbooks::count>},
      {u"Item", item<Workbooks>, {u"Index"}},
      {u"_Default", item<Workbooks>},
      {u"Add", method<&Workbooks::add>, {u"Template"}},
      {u"Open",
       [](Workbooks& o, Args& a) {
         a.at_most(13);
         OpenArgs x;
         x.filename = a.as<String>(0);
         x.update_links = a.at(1);
         x.read_only = a.at(2);
         x.format = a.at(3);
         x.password = a.at(4);
         x.write_res_password = a.at(5);
         x.ignore_read_only_recommended = a.at(6);
         x.origin = a.at(7);
         x.delimiter = a.at(8);
         x.editable = a.at(9);
         x.notify = a.at(10);
         x.converter = a.at(11);
         x.add_to_mru = a.at(12);
         return wrap(o.open(x));
       },
       {u"Filename", u"UpdateLinks", u"ReadOnly", u"Format", u"Password", u"WriteResPassword",
        u"IgnoreReadOnlyRecommended", u"Origin", u"Delimiter", u"Editable", u"Notify", u"Converter",
        u"AddToMru"}},
  };
  return t;
}

const Table<Workbook>& workbook_members() {
  static const Table<Workbook> t = {
      {u"Application", get<&Workbook::application>},
      {u"Parent", get<&Workbook::application>},
      {u"Name", get<&Workbook::name>},
      {u"Path", get<&Workbook::path>},
      {u"FullName", get<&Workbook::full_name>},
      {u"CodeName", get<&Workbook::code_name>},
      {u"ReadOnly", get<&Workbook::read_only>},
      {u"Saved", prop<&Workbook::saved, &Workbook::set_saved>},
      {u"Date1904", get<&Workbook::date1904>},
      {u"Activate", method<&Workbook::activate>},
      {u"Close", method<&Workbook::close>, {u"SaveChanges", u"Filename"}},
      {u"Save", method<&Workbook::save>},
      {u"SaveAs", method<&Workbook::save_as>, {u"Filename"}},
      {u"Windows", collection<&Workbook::windows>},
      {u"Sheets", collection<&Workbook::sheets>},
      {u"Worksheets", collection<&Workbook::worksheets>},
      {u"Charts", collection<&Workbook::charts>},
      {u"Names", collection<&Workbook::names>},
      {u"Colors",
       [](Workbook& o, Args& a) {
         a.at_most(1);
         if (a.put()) {
           o.set_colors(a.as<int32_t>(0), convert<int32_t>(a.value()));
           return Variant();
         }
         return wrap(o.colors(a.as<int32_t>(0)));
       },
       {u"Index"}},
      {u"CustomDocumentProperties", collection<&Workbook::custom_document_properties>},
  };
  return t;
}

const Table<Windows>& windows_members() {
  static const Table<Windows> t = {
      {u"Count", get<&Windows::count>},
      {u"Item", item<Windows>, {u"Index"}},
      {u"_Default", item<Windows>},
  };
  return t;
}

const Table<Window>& window_members() {
  static const Table<Window> t = {
      {u"Visible", prop<&Window::visible, &Window::set_visible>},
      {u"Caption", get<&Window::caption>},
  };
  return t;
}

const Table<Sheets>& sheets_members() {
  static const Table<Sheets> t = {
      {u"Count", get<&Sheets::count>},
      {u"Item", item<Sheets>, {u"Index"}},
      {u"_Default", item<Sheets>},
  };
  return t;
}

const Table<Worksheets>& worksheets_members() {
  static const Table<Worksheets> t = {
      {u"Count", get<&Worksheets::count>},
      {u"Item", item<Worksheets>, {u"Index"}},
      {u"_Default", item<Worksheets>},
      {u"Add", method<&Worksheets::add>, {u"Before", u"After"}},
  };
  return t;
}

// `Cells`, `Cells(i)` and `Cells(row, column)` of a sheet or a range.
template <class T>
Variant cells_of(T& o, Args& a) {
  if (a.put()) wrong_arguments(a.member());
  a.at_most(2);
  if (a.given(1)) return wrap(o.cell(a.as<int32_t>(0), a.as<int32_t>(1)));
  auto all = o.cells();
  if (!a.given(0)) return wrap(all);
  if (!all) throw Error(err::object_required, "Object required");
  return wrap(all->item(static_cast<int64_t>(a.as<double>(0))));
}

const Table<Worksheet>& worksheet_members() {
  static const Table<Worksheet> t = {
      {u"Application", get<&Worksheet::application>},
      {u"Parent", get<&Worksheet::parent>},
      {u"Name", prop<&Worksheet::name, &Worksheet::set_name>},
      {u"CodeName", get<&Worksheet::code_name>},
      {u"Index", get<&Worksheet::index>},
      {u"Type", get<&Worksheet::type>},
      {u"Visible", prop<&Worksheet::visible, &Worksheet::set_visible>},
      {u"Names", collection<&Worksheet::names>},
      {u"Range", method<&Worksheet::range>, {u"Cell1", u"Cell2"}},
      {u"Cells", cells_of<Worksheet>},
      {u"Rows", get<&Worksheet::rows>},
      {u"Columns", get<&Worksheet::columns>},
      {u"UsedRange", get<&Worksheet::used_range>},
      {u"Activate", method<&Worksheet::activate>},
      {u"Select", method<&Worksheet::select>},
      {u"Delete", method<&Worksheet::delete_>},
      {u"ChartObjects", collection<&Worksheet::chart_objects>},
      {u"Hyperlinks", collection<&Worksheet::hyperlinks>},
  };
  return t;
}

const Table<Charts>& charts_members() {
  static const Table<Charts> t = {
      {u"Count", get<&Charts::count>},
      {u"Item", item<Charts>, {u"Index"}},
      {u"_Default", item<Charts>},
  };
  return t;
}

const Table<Chart>& chart_members() {
  static const Table<Chart> t = {
      {u"Application", get<&Chart::application>},
      {u"Parent", get<&Chart::parent>},
      {u"Name", prop<&Chart::name, &Chart::set_name>},
      {u"Type", get<&Chart::type>},
      {u"Activate", method<&Chart::activate>},
      {u"CopyPicture", method<&Chart::copy_picture>, {u"Appearance", u"Format", u"Size"}},
  };
  return t;
}

const Table<ChartObjects>& chart_objects_members() {
  static const Table<ChartObjects> t = {
      {u"Count", get<&ChartObjects::count>},
      {u"Item", item<ChartObjects>, {u"Index"}},
      {u"_Default", item<ChartObjects>},
  };
  return t;
}

const Table<ChartObject>& chart_object_members() {
  static const Table<ChartObject> t = {
      {u"Parent", get<&ChartObject::parent>},
      {u"Name", prop<&ChartObject::name, &ChartObject::set_name>},
      {u"Chart", get<&ChartObject::chart>},
      {u"Activate", method<&ChartObject::activate>},
  };
  return t;
}

const Table<Range>& range_members() {
  static const Table<Range> t = {
      {u"Application", get<&Range::application>},
      {u"Worksheet", get<&Range::worksheet>},
      {u"Parent", get<&Range::worksheet>},
      {u"Value", prop<&Range::value, &Range::set_value>},
      {u"Text", get<&Range::text>},
      {u"Formula", prop<&Range::formula, &Range::set_formula>},
      {u"FormulaR1C1", prop<&Range::formula_r1c1, &Range::set_formula_r1c1>},
      {u"HasFormula", get<&Range::has_formula>},
      {u"PrefixCharacter", get<&Range::prefix_character>},
      {u"NumberFormat", prop<&Range::number_format, &Range::set_number_format>},
      {u"HorizontalAlignment",
       prop<&Range::horizontal_alignment, &Range::set_horizontal_alignment>},
      {u"Font", get<&Range::font>},
      {u"Interior", get<&Range::interior>},
      {u"Characters", method<&Range::characters>, {u"Start", u"Length"}},
      {u"Cells", cells_of<Range>},
      {u"Item",
       [](Range& o, Args& a) {
         a.at_most(2);
         if (a.put()) wrong_arguments(a.member());
         if (a.given(1)) return wrap(o.cell(a.as<int32_t>(0), a.as<int32_t>(1)));
         return wrap(o.item(static_cast<int64_t>(a.as<double>(0))));
       },
       {u"RowIndex", u"ColumnIndex"}},
      {u"_Default",
       [](Range& o, Args& a) {
         // With an index, the cell; without, the value.
         if (a.count() == 0) {
           if (a.put()) {
             o.set_value(a.value());
             return Variant();
           }
           return o.value();
         }
         a.at_most(2);
         if (a.given(1)) return wrap(o.cell(a.as<int32_t>(0), a.as<int32_t>(1)));
         return wrap(o.item(static_cast<int64_t>(a.as<double>(0))));
       }},
      {u"Count", get<&Range::count>},
      {u"Areas", collection<&Range::areas>},
      {u"Range", method<&Range::range>, {u"Cell1", u"Cell2"}},
      {u"Offset",
       [](Range& o, Args& a) {
         a.at_most(2);
         return wrap(o.offset(a.as_or<int32_t>(0, 0), a.as_or<int32_t>(1, 0)));
       },
       {u"RowOffset", u"ColumnOffset"}},
      {u"Resize",
       [](Range& o, Args& a) {
         a.at_most(2);
         // A size left out keeps the range's own.
         int32_t rows = a.given(0) ? a.as<int32_t>(0) : static_cast<int32_t>(o.rows()->count());
         int32_t cols = a.given(1) ? a.as<int32_t>(1) : static_cast<int32_t>(o.columns()->count());
         return wrap(o.resize(rows, cols));
       },
       {u"RowSize", u"ColumnSize"}},
      {u"End", method<&Range::end>, {u"Direction"}},
      {u"Row", get<&Range::row>},
      {u"Column", get<&Range::column>},
      {u"Rows", get<&Range::rows>},
      {u"Columns", get<&Range::columns>},
      {u"EntireRow", get<&Range::entire_row>},
      {u"EntireColumn", get<&Range::entire_column>},
      {u"Hidden", prop<&Range::hidden, &Range::set_hidden>},
      {u"RowHeight", prop<&Range::row_height, &Range::set_row_height>},
      {u"ColumnWidth", prop<&Range::column_width, &Range::set_column_width>},
      {u"OutlineLevel", prop<&Range::outline_level, &Range::set_outline_level>},
      {u"Address",
       [](Range& o, Args& a) {
         a.at_most(5);
         return wrap(o.address(a.as_or<bool>(0, true), a.as_or<bool>(1, true),
                               a.as_or<int32_t>(2, xl::A1), a.as_or<bool>(3, false),
                               a.as<RangePtr>(4)));
       },
       {u"RowAbsolute", u"ColumnAbsolute", u"ReferenceStyle", u"External", u"RelativeTo"}},
      {u"Name",
       [](Range& o, Args& a) {
         a.get_only();
         auto n = o.name();
         // The application raises rather than answer Nothing.
         if (!n) throw Error(err::host_failure, "No name refers to this range");
         return wrap(n);
       }},
      {u"Hyperlinks", collection<&Range::hyperlinks>},
      {u"Select", method<&Range::select>},
      {u"Activate", method<&Range::activate>},
      {u"Copy", method<&Range::copy>, {u"Destination"}},
      {u"CopyPicture", method<&Range::copy_picture>, {u"Appearance", u"Format"}},
      {u"ClearContents", method<&Range::clear_contents>},
      {u"Clear", method<&Range::clear>},
      {u"Insert", method<&Range::insert>, {u"Shift"}},
      {u"Delete", method<&Range::delete_>, {u"Shift"}},
  };
  return t;
}

const Table<Areas>& areas_members() {
  static const Table<Areas> t = {
      {u"Count", get<&Areas::count>},
      {u"Item", item<Areas>, {u"Index"}},
      {u"_Default", item<Areas>},
  };
  return t;
}

const Table<Font>& font_members() {
  static const Table<Font> t = {
      {u"Name", prop<&Font::name, &Font::set_name>},
      {u"FontStyle", prop<&Font::font_style, &Font::set_font_style>},
      {u"Size", prop<&Font::size, &Font::set_size>},
      {u"Underline", prop<&Font::underline, &Font::set_underline>},
      {u"Color", prop<&Font::color, &Font::set_color>},
      {u"ColorIndex", prop<&Font::color_index, &Font::set_color_index>},
      {u"Bold", prop<&Font::bold, &Font::set_bold>},
      {u"Italic", prop<&Font::italic, &Font::set_italic>},
      {u"Superscript", prop<&Font::superscript, &Font::set_superscript>},
      {u"Subscript", prop<&Font::subscript, &Font::set_subscript>},
      {u"Strikethrough", prop<&Font::strikethrough, &Font::set_strikethrough>},
  };
  return t;
}

const Table<Interior>& interior_members() {
  static const Table<Interior> t = {
      {u"Color", prop<&Interior::color, &Interior::set_color>},
      {u"ColorIndex", prop<&Interior::color_index, &Interior::set_color_index>},
  };
  return t;
}

const Table<Characters>& characters_members() {
  static const Table<Characters> t = {
      {u"Count", get<&Characters::count>},
      {u"Text", get<&Characters::text>},
      {u"Font", get<&Characters::font>},
  };
  return t;
}

const Table<Names>& names_members() {
  static const Table<Names> t = {
      {u"Count", get<&Names::count>},
      {u"Item", item<Names>, {u"Index"}},
      {u"_Default", item<Names>},
      {u"Add",
       [](Names& o, Args& a) {
         a.at_most(11);
         NameAddArgs x;
         x.name = a.at(0);
         x.refers_to = a.at(1);
         x.visible = a.at(2);
         x.macro_type = a.at(3);
         x.shortcut_key = a.at(4);
         x.category = a.at(5);
         x.name_local = a.at(6);
         x.refers_to_local = a.at(7);
         x.category_local = a.at(8);
         x.refers_to_r1c1 = a.at(9);
         x.refers_to_r1c1_local = a.at(10);
         return wrap(o.add(x));
       },
       {u"Name", u"RefersTo", u"Visible", u"MacroType", u"ShortcutKey", u"Category", u"NameLocal",
        u"RefersToLocal", u"CategoryLocal", u"RefersToR1C1", u"RefersToR1C1Local"}},
  };
  return t;
}

const Table<Name>& name_members() {
  static const Table<Name> t = {
      {u"Name", prop<&Name::name, &Name::set_name>},
      {u"Index", get<&Name::index>},
      {u"Visible", prop<&Name::visible, &Name::set_visible>},
      {u"RefersTo", prop<&Name::refers_to, &Name::set_refers_to>},
      {u"RefersToR1C1", get<&Name::refers_to_r1c1>},
      {u"RefersToRange", get<&Name::refers_to_range>},
      {u"Parent", get<&Name::parent>},
      {u"Delete", method<&Name::delete_>},
  };
  return t;
}

const Table<Hyperlinks>& hyperlinks_members() {
  static const Table<Hyperlinks> t = {
      {u"Count", get<&Hyperlinks::count>},
      {u"Item", item<Hyperlinks>, {u"Index"}},
      {u"_Default", item<Hyperlinks>},
      {u"Add",
       method<&Hyperlinks::add>,
       {u"Anchor", u"Address", u"SubAddress", u"ScreenTip", u"TextToDisplay"}},
  };
  return t;
}

const Table<Hyperlink>& hyperlink_members() {
  static const Table<Hyperlink> t = {
      {u"Address", get<&Hyperlink::address>},
      {u"SubAddress", get<&Hyperlink::sub_address>},
      {u"Range", get<&Hyperlink::range>},
      {u"Delete", method<&Hyperlink::delete_>},
  };
  return t;
}

const Table<WorksheetFunction>& worksheet_function_members() {
  static const Table<WorksheetFunction> t = {
      {u"IsText", method<&WorksheetFunction::is_text>},
      {u"IsLogical", method<&WorksheetFunction::is_logical>},
      {u"IsError", method<&WorksheetFunction::is_error>},
  };
  return t;
}

const Table<AddIns>& add_ins_members() {
  static const Table<AddIns> t = {
      {u"Count", get<&AddIns::count>},
      {u"Item", item<AddIns>, {u"Index"}},
      {u"_Default", item<AddIns>},
      {u"Add", method<&AddIns::add>, {u"Filename", u"CopyFile"}},
  };
  return t;
}

const Table<AddIn>& add_in_members() {
  static const Table<AddIn> t = {
      {u"Name", get<&AddIn::name>},
      {u"Title", get<&AddIn::title>},
      {u"FullName", get<&AddIn::full_name>},
      {u"Installed", prop<&AddIn::installed, &AddIn::set_installed>},
  };
  return t;
}

const Table<Dialog>& dialog_members() {
  static const Table<Dialog> t = {
      {u"Show",
       [](Dialog& o, Args& a) {
         std::vector<Variant> all;
         for (size_t i = 0; i < a.count(); ++i) all.push_back(a.at(i));
         return wrap(o.show(all));
       }},
  };
  return t;
}

FindControlArgs find_args(const Args& a) {
  a.at_most(5);
  FindControlArgs x;
  x.type = a.at(0);
  x.id = a.at(1);
  x.tag = a.at(2);
  x.visible = a.at(3);
  x.recursive = a.at(4);
  return x;
}

const Table<CommandBars>& command_bars_members() {
  static const Table<CommandBars> t = {
      {u"Count", get<&CommandBars::count>},
      {u"Item", item<CommandBars>, {u"Index"}},
      {u"_Default", item<CommandBars>},
      {u"FindControl",
       [](CommandBars& o, Args& a) { return wrap(o.find_control(find_args(a))); },
       {u"Type", u"Id", u"Tag", u"Visible", u"Recursive"}},
      {u"Add",
       [](CommandBars& o, Args& a) {
         a.at_most(4);
         BarAddArgs x;
         x.name = a.at(0);
         x.position = a.at(1);
         x.menu_bar = a.at(2);
         x.temporary = a.at(3);
         return wrap(o.add(x));
       },
       {u"Name", u"Position", u"MenuBar", u"Temporary"}},
  };
  return t;
}

const Table<CommandBar>& command_bar_members() {
  static const Table<CommandBar> t = {
      {u"Name", get<&CommandBar::name>},
      {u"Index", get<&CommandBar::index>},
      {u"Type", get<&CommandBar::type>},
      {u"Visible", prop<&CommandBar::visible, &CommandBar::set_visible>},
      {u"Controls", collection<&CommandBar::controls>},
      {u"FindControl",
       [](CommandBar& o, Args& a) { return wrap(o.find_control(find_args(a))); },
       {u"Type", u"Id", u"Tag", u"Visible", u"Recursive"}},
      {u"Delete", method<&CommandBar::delete_>},
  };
  return t;
}

const Table<CommandBarControls>& command_bar_controls_members() {
  static const Table<CommandBarControls> t = {
      {u"Count", get<&CommandBarControls::count>},
      {u"Item", item<CommandBarControls>, {u"Index"}},
      {u"_Default", item<CommandBarControls>},
      {u"Add",
       [](CommandBarControls& o, Args& a) {
         a.at_most(5);
         ControlAddArgs x;
         x.type = a.at(0);
         x.id = a.at(1);
         x.parameter = a.at(2);
         x.before = a.at(3);
         x.temporary = a.at(4);
         return wrap(o.add(x));
       },
       {u"Type", u"Id", u"Parameter", u"Before", u"Temporary"}},
  };
  return t;
}

const Table<CommandBarControl>& command_bar_control_members() {
  using C = CommandBarControl;
  static const Table<C> t = {
      {u"Id", get<&C::id>},
      {u"Type", get<&C::type>},
      {u"Caption", prop<&C::caption, &C::set_caption>},
      {u"OnAction", prop<&C::on_action, &C::set_on_action>},
      {u"BeginGroup", prop<&C::begin_group, &C::set_begin_group>},
      {u"FaceId", prop<&C::face_id, &C::set_face_id>},
      {u"ShortcutText", prop<&C::shortcut_text, &C::set_shortcut_text>},
      {u"Tag", prop<&C::tag, &C::set_tag>},
      {u"State", prop<&C::state, &C::set_state>},
      {u"Enabled", prop<&C::enabled, &C::set_enabled>},
      {u"Visible", prop<&C::visible, &C::set_visible>},
      {u"Index", get<&C::index>},
      {u"Parent", get<&C::parent>},
      {u"Controls", collection<&C::controls>},
      {u"Execute", method<&C::execute>},
      {u"Delete", method<&C::delete_>, {u"Temporary"}},
  };
  return t;
}

const Table<DocumentProperties>& document_properties_members() {
  static const Table<DocumentProperties> t = {
      {u"Count", get<&DocumentProperties::count>},
      {u"Item", item<DocumentProperties>, {u"Index"}},
      {u"_Default", item<DocumentProperties>},
      {u"Add", method<&DocumentProperties::add>, {u"Name", u"LinkToContent", u"Type", u"Value"}},
  };
  return t;
}

const Table<DocumentProperty>& document_property_members() {
  static const Table<DocumentProperty> t = {
      {u"Name", get<&DocumentProperty::name>},
      {u"Value", prop<&DocumentProperty::value, &DocumentProperty::set_value>},
      {u"_Default", prop<&DocumentProperty::value, &DocumentProperty::set_value>},
      {u"Type", get<&DocumentProperty::type>},
      {u"Delete", method<&DocumentProperty::delete_>},
  };
  return t;
}

template <class T>
const Member<T>* find(const Table<T>& table, StringView name) {
  for (const auto& m : table)
    if (same_member(m.name, name)) return &m;
  return nullptr;
}

// Applies `f(object, table)` for the host class of `o`; false when `o` is no host object.
template <class F>
bool with_table(Object& o, F&& f) {
  // Most specific first where classes could be confused; each host class is distinct.
#define QZ_TRY(Type, table)                \
  if (auto* p = dynamic_cast<Type*>(&o)) { \
    f(*p, table());                        \
    return true;                           \
  }
  QZ_TRY(Range, range_members)
  QZ_TRY(Font, font_members)
  QZ_TRY(Interior, interior_members)
  QZ_TRY(Characters, characters_members)
  QZ_TRY(Worksheet, worksheet_members)
  QZ_TRY(Workbook, workbook_members)
  QZ_TRY(Application, application_members)
  QZ_TRY(Workbooks, workbooks_members)
  QZ_TRY(Worksheets, worksheets_members)
  QZ_TRY(Sheets, sheets_members)
  QZ_TRY(Charts, charts_members)
  QZ_TRY(Chart, chart_members)
  QZ_TRY(ChartObjects, chart_objects_members)
  QZ_TRY(ChartObject, chart_object_members)
  QZ_TRY(Windows, windows_members)
  QZ_TRY(Window, window_members)
  QZ_TRY(Areas, areas_members)
  QZ_TRY(Names, names_members)
  QZ_TRY(Name, name_members)
  QZ_TRY(Hyperlinks, hyperlinks_members)
  QZ_TRY(Hyperlink, hyperlink_members)
  QZ_TRY(WorksheetFunction, worksheet_function_members)
  QZ_TRY(AddIns, add_ins_members)
  QZ_TRY(AddIn, add_in_members)
  QZ_TRY(Dialog, dialog_members)
  QZ_TRY(CommandBars, command_bars_members)
  QZ_TRY(CommandBar, command_bar_members)
  QZ_TRY(CommandBarControls, command_bar_controls_members)
  QZ_TRY(CommandBarControl, command_bar_control_members)
  QZ_TRY(DocumentProperties, document_properties_members)
  QZ_TRY(DocumentProperty, document_property_members)
#undef QZ_TRY
  return false;
}

// The items of a collection with Count and Item(1..Count).
template <class C>
std::vector<Variant> numbered_items(C& c) {
  std::vector<Variant> out;
  const auto n = c.count();
  for (decltype(c.count()) i = 1; i <= n; ++i) {
    using P = std::tuple_element_t<0, typename member_traits<decltype(&C::item)>::params>;
    out.push_back(wrap(c.item(P(i))));
  }
  return out;
}

}  // namespace

Variant invoke_member(const ObjectPtr& object, StringView name, Invoke kind,
                      std::span<Variant> args) {
  if (!object) throw Error(err::object_required, "Object required");
  Variant result;
  bool found = false;
  const bool host = with_table(*object, [&](auto& o, const auto& table) {
    if (const auto* m = find(table, name)) {
      Args a(name, kind, args);
      result = m->call(o, a);
      found = true;
    }
  });
  if (!host) return object->invoke(name, kind, args);
  if (!found)
    throw Error(err::not_supported,
                "Object doesn't support this property or method: " + to_utf8(name));
  return result;
}

bool has_member(const ObjectPtr& object, StringView name) {
  if (!object) return false;
  bool found = false;
  const bool host =
      with_table(*object, [&](auto&, const auto& table) { found = find(table, name) != nullptr; });
  return host ? found : object->has_member(name);
}

int param_index(const ObjectPtr& object, StringView name, StringView param) {
  int index = -1;
  if (!object) return index;
  with_table(*object, [&](auto&, const auto& table) {
    if (const auto* m = find(table, name))
      for (size_t i = 0; i < m->params.size(); ++i)
        if (same_member(m->params[i], param)) index = static_cast<int>(i);
  });
  return index;
}

std::vector<Variant> items_of(const ObjectPtr& object) {
  if (!object) throw Error(err::object_required, "Object required");
  std::vector<Variant> out;
  if (auto r = std::dynamic_pointer_cast<Range>(object)) {
    r->for_each_cell([&](const RangePtr& cell) {
      out.emplace_back(ObjectPtr(cell));
      return true;
    });
    return out;
  }
#define QZ_ITEMS(Type) \
  if (auto* c = dynamic_cast<Type*>(object.get())) return numbered_items(*c);
  QZ_ITEMS(Workbooks)
  QZ_ITEMS(Sheets)
  QZ_ITEMS(Worksheets)
  QZ_ITEMS(Charts)
  QZ_ITEMS(ChartObjects)
  QZ_ITEMS(Windows)
  QZ_ITEMS(Areas)
  QZ_ITEMS(Names)
  QZ_ITEMS(Hyperlinks)
  QZ_ITEMS(AddIns)
  QZ_ITEMS(CommandBars)
  QZ_ITEMS(CommandBarControls)
  QZ_ITEMS(DocumentProperties)
#undef QZ_ITEMS
  throw Error(err::not_supported, "Object doesn't support this property or method: _NewEnum");
}

}  // namespace qz::host
