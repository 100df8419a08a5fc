// The application, workbooks, sheets, charts, windows, document properties and the file-format
// hook.
#include <filesystem>
#include <fstream>

#include "engine_fixture.hpp"
#include "support/test_support.hpp"

namespace qz::engine::test {
namespace {

using Workbooks = EngineTest;
namespace xl = host::xl;

int32_t code_of(const std::function<void()>& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.code();
  }
  return 0;
}

TEST_F(Workbooks, AddCountAndLookupByName) {
  auto second = app->workbooks()->add();
  EXPECT_EQ(to_utf8(second->name()), "Book2");
  EXPECT_EQ(app->workbooks()->count(), 2);
  EXPECT_EQ(app->workbooks()->item(V("book1")), wb);  // the same object, any case
  EXPECT_EQ(app->workbooks()->item(V(2)), second);
  EXPECT_EQ(app->active_workbook(), second);
  EXPECT_EQ(code_of([&] { app->workbooks()->item(V("Nope")); }), err::subscript);
  EXPECT_EQ(code_of([&] { app->workbooks()->item(V(3)); }), err::subscript);
  second->close();
  EXPECT_EQ(app->workbooks()->count(), 1);
  EXPECT_EQ(app->active_workbook(), wb);
  EXPECT_EQ(app->workbooks()->add()->name(), u"Book3");  // numbers are not reused
  EXPECT_EQ(wb->code_name(), u"");
  EXPECT_TRUE(wb->saved());
  put("A1", "1");
  EXPECT_FALSE(wb->saved());
}

TEST_F(Workbooks, SheetsAreAddedBeforeTheActiveOneAndNamedByRules) {
  auto s2 = wb->worksheets()->add();
  EXPECT_EQ(to_utf8(s2->name()), "Sheet2");
  EXPECT_EQ(s2->index(), 1);  // before the active sheet
  EXPECT_EQ(ws->index(), 2);
  auto s3 = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  EXPECT_EQ(s3->index(), 3);
  EXPECT_EQ(wb->worksheets()->item(V("SHEET3")), s3);
  for (const char* bad : {"", "a:b", "x/y", "q?", "s*", "[x]", "'quoted", "History", "sheet2",
                          "0123456789012345678901234567890x"})
    EXPECT_THROW(s3->set_name(u16(bad)), Error) << bad;
  s3->set_name(u"Budget 2026");
  EXPECT_EQ(to_utf8(wb->sheets()->count() == 3 ? s3->name() : u""), "Budget 2026");
  EXPECT_EQ(std::dynamic_pointer_cast<host::Worksheet>(wb->sheets()->item(V(3))), s3);
}

TEST_F(Workbooks, AWorkbookKeepsOneVisibleSheet) {
  EXPECT_THROW(ws->set_visible(xl::SheetHidden), Error);
  EXPECT_THROW(ws->delete_(), Error);
  auto s2 = wb->worksheets()->add();
  ws->set_visible(xl::SheetVeryHidden);
  EXPECT_EQ(ws->visible(), xl::SheetVeryHidden);
  EXPECT_THROW(s2->delete_(), Error);
  ws->set_visible(xl::SheetVisible);
  s2->range(V("A1"))->set_formula(u"=Sheet1!A1+1");
  ws->delete_();
  EXPECT_EQ(wb->worksheets()->count(), 1);
  EXPECT_EQ(s2->range(V("A1"))->value().error().code, cell_error::ref);
  EXPECT_THROW(ws->name(), Error);  // a deleted sheet answers no more
}

TEST_F(Workbooks, ChartSheetsAndChartObjects) {
  Sheet& cs = book().add_sheet(u"Chart1", SheetKind::Chart);
  (void)cs;
  sheet().chart_objects.push_back({u"Chart 1", u""});
  EXPECT_EQ(wb->sheets()->count(), 2);
  EXPECT_EQ(wb->worksheets()->count(), 1);
  EXPECT_EQ(wb->charts()->count(), 1);
  auto chart_sheet = wb->charts()->item(V(1));
  EXPECT_EQ(to_utf8(chart_sheet->name()), "Chart1");
  EXPECT_EQ(wb->sheets()->item(V("chart1"))->type_name(), u"Chart");
  chart_sheet->activate();
  EXPECT_EQ(app->active_cell(), nullptr);
  EXPECT_EQ(app->active_sheet(), ObjectPtr(chart_sheet));
  ws->activate();
  auto obj = ws->chart_objects()->item(V("chart 1"));
  EXPECT_EQ(to_utf8(obj->chart()->name()), "Sheet1 Chart 1");
  obj->activate();
  EXPECT_EQ(app->selection()->type_name(), u"Chart");
  obj->set_name(u"Sales");
  EXPECT_EQ(to_utf8(ws->chart_objects()->item(V(1))->name()), "Sales");
  EXPECT_THROW(ws->chart_objects()->item(V(2)), Error);
  // The selected chart stays selected without a handle, and keeps nothing of the
  // application alive once nobody else holds it.
  obj->activate();
  obj.reset();
  EXPECT_EQ(to_utf8(std::dynamic_pointer_cast<host::Chart>(app->selection())->name()),
            "Sheet1 Sales");
  std::weak_ptr<Book> held = book_of(wb);
  app.reset(), wb.reset(), ws.reset(), chart_sheet.reset();
  EXPECT_TRUE(held.expired());
}

TEST_F(Workbooks, DocumentPropertiesAndWindows) {
  auto props = wb->custom_document_properties();
  props->add(u"Dirty", false, 4, V("true"));
  props->add(u"Count", false, 1, Variant(3.0));
  EXPECT_EQ(props->count(), 2);
  EXPECT_EQ(props->item(V("dirty"))->value(), V("true"));
  EXPECT_EQ(props->item(V("Count"))->value(), Variant(int32_t{3}));
  EXPECT_THROW(props->add(u"DIRTY", false, 4, V("x")), Error);
  props->item(V("Dirty"))->delete_();
  EXPECT_EQ(props->count(), 1);
  EXPECT_THROW(props->item(V("Dirty")), Error);
  EXPECT_TRUE(book().changed.props);
  EXPECT_EQ(wb->windows()->count(), 1);
  wb->windows()->item(V(1))->set_visible(false);
  EXPECT_FALSE(wb->windows()->item(V(1))->visible());
}

TEST_F(Workbooks, HyperlinksBelongToTheirCells) {
  auto links = ws->hyperlinks();
  links->add(r("B2"), u"https://example.org/a", V("Sheet1!A1"), V("tip"), V("Click"));
  EXPECT_EQ(to_utf8(value("B2").str()), "Click");
  EXPECT_EQ(links->count(), 1);
  EXPECT_EQ(r("A1:B2")->hyperlinks()->count(), 1);
  EXPECT_EQ(r("C3")->hyperlinks()->count(), 0);
  auto h = r("B2")->hyperlinks()->item(1);
  EXPECT_EQ(to_utf8(h->address()), "https://example.org/a");
  EXPECT_EQ(to_utf8(h->sub_address()), "Sheet1!A1");
  EXPECT_EQ(addr(h->range()), "B2");
  // A second link on the same cell replaces the first.
  links->add(r("B2"), u"https://example.org/b");
  EXPECT_EQ(links->count(), 1);
  EXPECT_EQ(to_utf8(links->item(1)->address()), "https://example.org/b");
  EXPECT_EQ(to_utf8(value("B2").str()), "Click");  // a filled cell keeps its text
  links->add(r("C5"), u"", V("Sheet1!Z9"));
  EXPECT_EQ(to_utf8(value("C5").str()), "Sheet1!Z9");  // an empty cell shows where it goes
  links->item(1)->delete_();
  EXPECT_EQ(links->count(), 1);
  EXPECT_THROW(links->item(2), Error);
  auto other = wb->worksheets()->add();
  EXPECT_THROW(links->add(other->range(V("A1")), u"x"), Error);
}

TEST_F(Workbooks, WhatTheHostCannotDoIsRefusedCleanly) {
  EXPECT_EQ(code_of([&] { r("A1")->copy_picture(1, 2); }), err::not_supported);
  auto empty = create_application();
  EXPECT_EQ(empty->active_workbook(), nullptr);
  EXPECT_EQ(empty->active_sheet(), nullptr);
  EXPECT_THROW(empty->range(V("A1")), Error);
  EXPECT_THROW(empty->set_calculation(xl::CalculationManual), Error);
}

TEST_F(Workbooks, FileFormatHookOpensAndSaves) {
  // A toy format: the first line of the file goes into A1.
  FileFormat toy;
  toy.extensions = {u"qzt"};
  toy.open = [](const String& path, const host::OpenArgs&) {
    std::ifstream in(to_utf8(path));
    if (!in) throw Error(err::file_not_found, "cannot read " + to_utf8(path));
    std::string line;
    std::getline(in, line);
    auto b = std::make_shared<Book>(u"x");
    Sheet& s = b->add_sheet(u"Data");
    b->set_constant(s, 0, 0, calc::Value::str(from_utf8(line)));
    return b;
  };
  toy.save = [](Book& b, const String& path) {
    std::ofstream out(to_utf8(path));
    out << to_utf8(b.text(*b.sheets[0], 0, 0)) << "\n";
  };
  register_file_format(toy);
  qz::test::TempDir dir;
  std::ofstream(dir / "in.qzt") << "hello\n";
  host::OpenArgs args;
  args.filename = from_utf8((dir / "in.qzt").string());
  auto opened = app->workbooks()->open(args);
  EXPECT_EQ(to_utf8(opened->name()), "in.qzt");
  EXPECT_EQ(to_utf8(opened->path()), dir.path().string());
  EXPECT_TRUE(opened->saved());
  EXPECT_EQ(app->range(V("A1"))->value(), V("hello"));
  EXPECT_EQ(app->workbooks()->open(args), opened);  // already open: the same workbook
  app->range(V("A1"))->set_formula(u"changed");
  opened->save_as(from_utf8((dir / "out.qzt").string()));
  EXPECT_EQ(to_utf8(opened->name()), "out.qzt");
  EXPECT_TRUE(opened->saved());
  std::ifstream back(dir / "out.qzt");
  std::string line;
  std::getline(back, line);
  EXPECT_EQ(line, "changed");
  args.filename = u"missing.unknownext";
  EXPECT_THROW(app->workbooks()->open(args), Error);
  EXPECT_THROW(wb->save(), Error);  // never saved: needs SaveAs
}

}  // namespace
}  // namespace qz::engine::test
