// Stand-ins for the host's objects in tests that need no workbook engine: every member
// raises error 438, as a late-bound call of a member the object lacks would, so a test
// notices at once when the code under test reaches further into the host than it expects.
// A test derives from the ones it needs and overrides only the members it plays along with.
#pragma once

#include <string>

#include "host/host.hpp"

namespace qz::test {

/// Raises the error a host object gives for a member it does not support.
[[noreturn]] inline void unsupported(const char* member) {
  throw Error(err::not_supported, std::string("not supported by this test's host: ") + member);
}

namespace fakes {
using namespace qz::host;  // the host's types, unqualified, inside this namespace only

/// A host Application whose every member raises "not supported"; derive and override what a
/// test needs.
class UnsupportedApplication : public host::Application {
 public:
  String name() override { unsupported("Application.name"); }
  WorkbooksPtr workbooks() override { unsupported("Application.workbooks"); }
  WorkbookPtr active_workbook() override { unsupported("Application.active_workbook"); }
  ObjectPtr active_sheet() override { unsupported("Application.active_sheet"); }
  RangePtr active_cell() override { unsupported("Application.active_cell"); }
  ObjectPtr selection() override { unsupported("Application.selection"); }
  RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) override {
    unsupported("Application.range");
  }
  RangePtr union_(const RangePtr& a, const RangePtr& b) override {
    unsupported("Application.union_");
  }
  RangePtr intersect(const RangePtr& a, const RangePtr& b) override {
    unsupported("Application.intersect");
  }
  int32_t calculation() override { unsupported("Application.calculation"); }
  void set_calculation(int32_t mode) override { unsupported("Application.set_calculation"); }
  bool calculate_before_save() override { unsupported("Application.calculate_before_save"); }
  void set_calculate_before_save(bool on) override {
    unsupported("Application.set_calculate_before_save");
  }
  bool display_alerts() override { unsupported("Application.display_alerts"); }
  void set_display_alerts(bool on) override { unsupported("Application.set_display_alerts"); }
  bool screen_updating() override { unsupported("Application.screen_updating"); }
  void set_screen_updating(bool on) override { unsupported("Application.set_screen_updating"); }
  void calculate() override { unsupported("Application.calculate"); }
  void volatile_(bool is_volatile = true) override { unsupported("Application.volatile_"); }
  WorksheetFunctionPtr worksheet_function() override {
    unsupported("Application.worksheet_function");
  }
  void undo() override { unsupported("Application.undo"); }
  void on_undo(const String& text, const String& procedure) override {
    unsupported("Application.on_undo");
  }
  void on_repeat(const String& text, const String& procedure) override {
    unsupported("Application.on_repeat");
  }
  String on_entry() override { unsupported("Application.on_entry"); }
  void set_on_entry(const String& procedure) override { unsupported("Application.set_on_entry"); }
  void on_time(const Variant& earliest_time, const String& procedure,
               const Variant& latest_time = Variant::missing(),
               const Variant& schedule = Variant::missing()) override {
    unsupported("Application.on_time");
  }
  Variant run(const String& macro, std::span<Variant> args = {}) override {
    unsupported("Application.run");
  }
  void send_keys(const String& keys, bool wait = false) override {
    unsupported("Application.send_keys");
  }
  DialogPtr dialogs(int32_t id) override { unsupported("Application.dialogs"); }
  CommandBarsPtr command_bars() override { unsupported("Application.command_bars"); }
  AddInsPtr add_ins() override { unsupported("Application.add_ins"); }
  String alt_startup_path() override { unsupported("Application.alt_startup_path"); }
  void set_alt_startup_path(const String& path) override {
    unsupported("Application.set_alt_startup_path");
  }
  String startup_path() override { unsupported("Application.startup_path"); }
  String path() override { unsupported("Application.path"); }
  void quit() override { unsupported("Application.quit"); }
};

/// A host Application that hands every member on to another one; a test derives from it to
/// watch or change what the library asks of a real application.
class ForwardingApplication : public host::Application {
 public:
  explicit ForwardingApplication(ApplicationPtr inner) : inner(std::move(inner)) {}
  String name() override { return inner->name(); }
  WorkbooksPtr workbooks() override { return inner->workbooks(); }
  WorkbookPtr active_workbook() override { return inner->active_workbook(); }
  ObjectPtr active_sheet() override { return inner->active_sheet(); }
  RangePtr active_cell() override { return inner->active_cell(); }
  ObjectPtr selection() override { return inner->selection(); }
  RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) override {
    return inner->range(cell1, cell2);
  }
  RangePtr union_(const RangePtr& a, const RangePtr& b) override { return inner->union_(a, b); }
  RangePtr intersect(const RangePtr& a, const RangePtr& b) override {
    return inner->intersect(a, b);
  }
  int32_t calculation() override { return inner->calculation(); }
  void set_calculation(int32_t mode) override { inner->set_calculation(mode); }
  bool calculate_before_save() override { return inner->calculate_before_save(); }
  void set_calculate_before_save(bool on) override { inner->set_calculate_before_save(on); }
  bool display_alerts() override { return inner->display_alerts(); }
  void set_display_alerts(bool on) override { inner->set_display_alerts(on); }
  bool screen_updating() override { return inner->screen_updating(); }
  void set_screen_updating(bool on) override { inner->set_screen_updating(on); }
  void calculate() override { inner->calculate(); }
  void volatile_(bool is_volatile = true) override { inner->volatile_(is_volatile); }
  WorksheetFunctionPtr worksheet_function() override { return inner->worksheet_function(); }
  void undo() override { inner->undo(); }
  void on_undo(const String& text, const String& procedure) override {
    inner->on_undo(text, procedure);
  }
  void on_repeat(const String& text, const String& procedure) override {
    inner->on_repeat(text, procedure);
  }
  String on_entry() override { return inner->on_entry(); }
  void set_on_entry(const String& procedure) override { inner->set_on_entry(procedure); }
  void on_time(const Variant& earliest_time, const String& procedure,
               const Variant& latest_time = Variant::missing(),
               const Variant& schedule = Variant::missing()) override {
    inner->on_time(earliest_time, procedure, latest_time, schedule);
  }
  Variant run(const String& macro, std::span<Variant> args = {}) override {
    return inner->run(macro, args);
  }
  void send_keys(const String& keys, bool wait = false) override { inner->send_keys(keys, wait); }
  DialogPtr dialogs(int32_t id) override { return inner->dialogs(id); }
  CommandBarsPtr command_bars() override { return inner->command_bars(); }
  AddInsPtr add_ins() override { return inner->add_ins(); }
  String alt_startup_path() override { return inner->alt_startup_path(); }
  void set_alt_startup_path(const String& path) override { inner->set_alt_startup_path(path); }
  String startup_path() override { return inner->startup_path(); }
  String path() override { return inner->path(); }
  void quit() override { inner->quit(); }

  ApplicationPtr inner;
};

/// A host Workbook whose every member raises "not supported"; derive and override what a
/// test needs.
class UnsupportedWorkbook : public host::Workbook {
 public:
  ApplicationPtr application() override { unsupported("Workbook.application"); }
  String name() override { unsupported("Workbook.name"); }
  String path() override { unsupported("Workbook.path"); }
  String full_name() override { unsupported("Workbook.full_name"); }
  String code_name() override { unsupported("Workbook.code_name"); }
  bool read_only() override { unsupported("Workbook.read_only"); }
  bool saved() override { unsupported("Workbook.saved"); }
  void set_saved(bool saved) override { unsupported("Workbook.set_saved"); }
  bool date1904() override { unsupported("Workbook.date1904"); }
  void activate() override { unsupported("Workbook.activate"); }
  void close(const Variant& save_changes = Variant::missing(),
             const Variant& filename = Variant::missing()) override {
    unsupported("Workbook.close");
  }
  void save() override { unsupported("Workbook.save"); }
  void save_as(const String& filename) override { unsupported("Workbook.save_as"); }
  WindowsPtr windows() override { unsupported("Workbook.windows"); }
  SheetsPtr sheets() override { unsupported("Workbook.sheets"); }
  WorksheetsPtr worksheets() override { unsupported("Workbook.worksheets"); }
  ChartsPtr charts() override { unsupported("Workbook.charts"); }
  NamesPtr names() override { unsupported("Workbook.names"); }
  int32_t colors(int32_t index) override { unsupported("Workbook.colors"); }
  void set_colors(int32_t index, int32_t color) override { unsupported("Workbook.set_colors"); }
  DocumentPropertiesPtr custom_document_properties() override {
    unsupported("Workbook.custom_document_properties");
  }
};

/// A host Worksheet whose every member raises "not supported"; derive and override what a
/// test needs.
class UnsupportedWorksheet : public host::Worksheet {
 public:
  ApplicationPtr application() override { unsupported("Worksheet.application"); }
  WorkbookPtr parent() override { unsupported("Worksheet.parent"); }
  String name() override { unsupported("Worksheet.name"); }
  void set_name(const String& name) override { unsupported("Worksheet.set_name"); }
  String code_name() override { unsupported("Worksheet.code_name"); }
  int32_t index() override { unsupported("Worksheet.index"); }
  int32_t type() override { unsupported("Worksheet.type"); }
  int32_t visible() override { unsupported("Worksheet.visible"); }
  void set_visible(int32_t visibility) override { unsupported("Worksheet.set_visible"); }
  NamesPtr names() override { unsupported("Worksheet.names"); }
  RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) override {
    unsupported("Worksheet.range");
  }
  RangePtr cells() override { unsupported("Worksheet.cells"); }
  RangePtr cell(int32_t row, int32_t column) override { unsupported("Worksheet.cell"); }
  RangePtr rows() override { unsupported("Worksheet.rows"); }
  RangePtr columns() override { unsupported("Worksheet.columns"); }
  RangePtr used_range() override { unsupported("Worksheet.used_range"); }
  void activate() override { unsupported("Worksheet.activate"); }
  void select() override { unsupported("Worksheet.select"); }
  void delete_() override { unsupported("Worksheet.delete_"); }
  ChartObjectsPtr chart_objects() override { unsupported("Worksheet.chart_objects"); }
  HyperlinksPtr hyperlinks() override { unsupported("Worksheet.hyperlinks"); }
  bool auto_filter_mode() override { unsupported("Worksheet.auto_filter_mode"); }
  void set_auto_filter_mode(bool) override { unsupported("Worksheet.set_auto_filter_mode"); }
  AutoFilterPtr auto_filter() override { unsupported("Worksheet.auto_filter"); }
};

/// A host Range whose every member raises "not supported"; derive and override what a
/// test needs.
class UnsupportedRange : public host::Range {
 public:
  ApplicationPtr application() override { unsupported("Range.application"); }
  WorksheetPtr worksheet() override { unsupported("Range.worksheet"); }
  Variant value() override { unsupported("Range.value"); }
  void set_value(const Variant& value) override { unsupported("Range.set_value"); }
  String text() override { unsupported("Range.text"); }
  String formula() override { unsupported("Range.formula"); }
  void set_formula(const String& text) override { unsupported("Range.set_formula"); }
  String formula_r1c1() override { unsupported("Range.formula_r1c1"); }
  void set_formula_r1c1(const String& text) override { unsupported("Range.set_formula_r1c1"); }
  bool has_formula() override { unsupported("Range.has_formula"); }
  String prefix_character() override { unsupported("Range.prefix_character"); }
  Variant number_format() override { unsupported("Range.number_format"); }
  void set_number_format(const String& format) override { unsupported("Range.set_number_format"); }
  Variant horizontal_alignment() override { unsupported("Range.horizontal_alignment"); }
  void set_horizontal_alignment(const Variant& alignment) override {
    unsupported("Range.set_horizontal_alignment");
  }
  FontPtr font() override { unsupported("Range.font"); }
  InteriorPtr interior() override { unsupported("Range.interior"); }
  BordersPtr borders() override { unsupported("Range.borders"); }
  CharactersPtr characters(const Variant& start = Variant::missing(),
                           const Variant& length = Variant::missing()) override {
    unsupported("Range.characters");
  }
  RangePtr cells() override { unsupported("Range.cells"); }
  RangePtr cell(int32_t row, int32_t column) override { unsupported("Range.cell"); }
  RangePtr item(int64_t index) override { unsupported("Range.item"); }
  int64_t count() override { unsupported("Range.count"); }
  void for_each_cell(const std::function<bool(const RangePtr& cell)>& visit) override {
    unsupported("Range.for_each_cell");
  }
  AreasPtr areas() override { unsupported("Range.areas"); }
  RangePtr range(const Variant& cell1, const Variant& cell2 = Variant::missing()) override {
    unsupported("Range.range");
  }
  RangePtr offset(int32_t rows, int32_t columns) override { unsupported("Range.offset"); }
  RangePtr resize(int32_t rows, int32_t columns) override { unsupported("Range.resize"); }
  RangePtr end(int32_t direction) override { unsupported("Range.end"); }
  int32_t row() override { unsupported("Range.row"); }
  int32_t column() override { unsupported("Range.column"); }
  RangePtr rows() override { unsupported("Range.rows"); }
  RangePtr columns() override { unsupported("Range.columns"); }
  RangePtr entire_row() override { unsupported("Range.entire_row"); }
  RangePtr entire_column() override { unsupported("Range.entire_column"); }
  Variant hidden() override { unsupported("Range.hidden"); }
  void set_hidden(bool hidden) override { unsupported("Range.set_hidden"); }
  Variant row_height() override { unsupported("Range.row_height"); }
  void set_row_height(double points) override { unsupported("Range.set_row_height"); }
  Variant column_width() override { unsupported("Range.column_width"); }
  void set_column_width(double characters) override { unsupported("Range.set_column_width"); }
  Variant outline_level() override { unsupported("Range.outline_level"); }
  void set_outline_level(int32_t level) override { unsupported("Range.set_outline_level"); }
  String address(bool row_absolute = true, bool column_absolute = true,
                 int32_t reference_style = xl::A1, bool external = false,
                 const RangePtr& relative_to = nullptr) override {
    unsupported("Range.address");
  }
  NamePtr name() override { unsupported("Range.name"); }
  HyperlinksPtr hyperlinks() override { unsupported("Range.hyperlinks"); }
  void select() override { unsupported("Range.select"); }
  void activate() override { unsupported("Range.activate"); }
  void copy(const RangePtr& destination = nullptr) override { unsupported("Range.copy"); }
  void copy_picture(int32_t appearance, int32_t format) override {
    unsupported("Range.copy_picture");
  }
  void clear_contents() override { unsupported("Range.clear_contents"); }
  void clear() override { unsupported("Range.clear"); }
  void insert(const Variant& shift = Variant::missing()) override { unsupported("Range.insert"); }
  void delete_(const Variant& shift = Variant::missing()) override { unsupported("Range.delete_"); }
  Variant auto_filter(const Variant&, const Variant&, const Variant&, const Variant&,
                      const Variant&) override {
    unsupported("Range.auto_filter");
  }
};

/// A host Names collection whose every member raises "not supported"; derive and override
/// what a test needs.
class UnsupportedNames : public host::Names {
 public:
  int32_t count() override { unsupported("Names.count"); }
  NamePtr item(const Variant& index) override { unsupported("Names.item"); }
  NamePtr add(const NameAddArgs& args) override { unsupported("Names.add"); }
};

/// A host Name whose every member raises "not supported"; derive and override what a test
/// needs.
class UnsupportedName : public host::Name {
 public:
  String name() override { unsupported("Name.name"); }
  void set_name(const String& name) override { unsupported("Name.set_name"); }
  int32_t index() override { unsupported("Name.index"); }
  bool visible() override { unsupported("Name.visible"); }
  void set_visible(bool visible) override { unsupported("Name.set_visible"); }
  String refers_to() override { unsupported("Name.refers_to"); }
  void set_refers_to(const Variant& refers_to) override { unsupported("Name.set_refers_to"); }
  String refers_to_r1c1() override { unsupported("Name.refers_to_r1c1"); }
  RangePtr refers_to_range() override { unsupported("Name.refers_to_range"); }
  ObjectPtr parent() override { unsupported("Name.parent"); }
  void delete_() override { unsupported("Name.delete_"); }
};

/// A host Chart whose every member raises "not supported"; derive and override what a test
/// needs.
class UnsupportedChart : public host::Chart {
 public:
  ApplicationPtr application() override { unsupported("Chart.application"); }
  ObjectPtr parent() override { unsupported("Chart.parent"); }
  String name() override { unsupported("Chart.name"); }
  void set_name(const String& name) override { unsupported("Chart.set_name"); }
  int32_t type() override { unsupported("Chart.type"); }
  void activate() override { unsupported("Chart.activate"); }
  void copy_picture(int32_t appearance, int32_t format, int32_t size) override {
    unsupported("Chart.copy_picture");
  }
};

}  // namespace fakes

using fakes::ForwardingApplication;
using fakes::UnsupportedApplication;
using fakes::UnsupportedChart;
using fakes::UnsupportedName;
using fakes::UnsupportedNames;
using fakes::UnsupportedRange;
using fakes::UnsupportedWorkbook;
using fakes::UnsupportedWorksheet;

}  // namespace qz::test
