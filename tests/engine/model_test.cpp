// What a file layer relies on: change tracking per part, loaded formulas kept as read until they
// change, loaded names, and sheet renames reaching formulas and names.
#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using Model = EngineTest;

std::unique_ptr<FileFormula> file_formula(const char* text) {
  auto f = std::make_unique<FileFormula>();
  f->text = text;
  return f;
}

TEST_F(Model, EachKindOfEditMarksItsOwnPart) {
  auto second = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  Book& b = book();
  b.loaded();
  EXPECT_FALSE(b.any_change());
  EXPECT_TRUE(wb->saved());

  put("A1", "5");  // a number: the sheet's cells only
  EXPECT_TRUE(sheet().changed.cells);
  EXPECT_FALSE(sheet().changed.layout);
  EXPECT_FALSE(sheet_of(second)->changed.any());
  EXPECT_FALSE(b.strings.changed);
  EXPECT_FALSE(b.styles.changed);
  EXPECT_FALSE(wb->saved());

  b.loaded();
  put("A2", "a new text");
  EXPECT_TRUE(b.strings.changed);
  b.loaded();
  r("A3")->font()->set_italic(Variant(true));
  EXPECT_TRUE(b.styles.changed);
  EXPECT_TRUE(sheet().changed.cells);
  b.loaded();
  r("A1")->entire_row()->set_hidden(true);
  EXPECT_TRUE(sheet().changed.layout);
  EXPECT_FALSE(sheet().changed.cells);
  b.loaded();
  host::NameAddArgs args;
  args.name = V("N");
  args.refers_to = V("=1");
  wb->names()->add(args);
  EXPECT_TRUE(b.changed.workbook);
  EXPECT_FALSE(sheet().changed.any());
  b.loaded();
  wb->custom_document_properties()->add(u"P", false, 4, V("v"));
  EXPECT_TRUE(b.changed.props);
  EXPECT_FALSE(b.changed.workbook);
  b.loaded();
  wb->set_colors(3, 0x010203);
  EXPECT_TRUE(b.styles.changed);
  b.loaded();
  second->set_name(u"Renamed");
  EXPECT_TRUE(b.changed.workbook);
  EXPECT_TRUE(sheet_of(second)->changed.sheet);
}

TEST_F(Model, RecalculationMarksOnlySheetsWhoseValuesMoved) {
  auto second = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  put("A1", "1");
  second->range(V("A1"))->set_formula(u"=Sheet1!A1*2");
  second->range(V("A2"))->set_formula(u"=5");
  book().loaded();
  put("B1", "9");  // nothing reads B1
  EXPECT_FALSE(sheet_of(second)->changed.cells);
  put("A1", "2");
  EXPECT_TRUE(sheet_of(second)->changed.cells);
}

TEST_F(Model, LoadedFormulasKeepTheirFileFormUntilChanged) {
  Book& b = book();
  Sheet& s = sheet();
  auto arr = file_formula("A1:A2*2");
  arr->type = FileFormula::Type::Array;
  arr->more().ref = u"C1:C2";
  b.load_formula(s, 0, 2, std::move(arr), calc::Value::num(0), 0);
  b.load_formula(s, 0, 3, file_formula("_xlfn.NOSUCH(1)"), calc::Value::str(u"kept"), 0);
  b.load_formula(s, 0, 4, file_formula("SUM(("), calc::Value::num(7), 0);
  b.loaded();
  EXPECT_EQ(value("D1"), V("kept"));
  const FormulaCell& a = s.formula(*s.cells.find(0, 2));
  EXPECT_TRUE(a.array);
  EXPECT_EQ(a.array_ref, (Rect{0, 2, 1, 2}));
  ASSERT_NE(a.file, nullptr);
  EXPECT_EQ(a.file->text, "A1:A2*2");
  // A formula that does not parse keeps its value and its text.
  EXPECT_EQ(value("E1"), Variant(7.0));
  EXPECT_EQ(formula("E1"), "=SUM((");
  b.calculate(true);
  EXPECT_EQ(value("E1"), Variant(7.0));
  EXPECT_NE(s.formula(*s.cells.find(0, 4)).file, nullptr);
  // Rows inserted above: the sheet is rewritten, formulas from what they now are.
  ws->range(V("1:1"))->insert();
  EXPECT_EQ(s.formula(*s.cells.find(1, 2)).file, nullptr);
  EXPECT_EQ(formula("C2"), "=A2:A3*2");
}

TEST_F(Model, LoadedNamesParseWhenTheyCanAndStayTextWhenNot) {
  Book& b = book();
  DefinedName good;
  good.name = u"Good";
  good.formula = u"Sheet1!$B$2";
  b.load_name(good);
  DefinedName odd;
  odd.name = u"Odd";
  odd.formula = u"Sheet1!$B$2:";
  odd.hidden = true;
  b.load_name(odd);
  b.loaded();
  EXPECT_EQ(to_utf8(wb->names()->item(V("Odd"))->refers_to()), "=Sheet1!$B$2:");
  EXPECT_FALSE(wb->names()->item(V("Odd"))->visible());
  put("A1", "=Good*2");
  put("B2", "4");
  EXPECT_EQ(value("A1"), Variant(8.0));
  EXPECT_FALSE(b.changed.workbook);
}

TEST_F(Model, RenamingASheetReachesFormulasNamesAndFileText) {
  auto second = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  Book& b = book();
  Sheet& s2 = *sheet_of(second);
  b.load_formula(s2, 0, 0, file_formula("Sheet1!A1+1"), calc::Value::num(1), 0);
  b.load_formula(s2, 1, 0, file_formula("A1+1"), calc::Value::num(2), 0);
  DefinedName n;
  n.name = u"Where";
  n.formula = u"Sheet1!$C$3";
  b.load_name(n);
  b.loaded();
  ws->set_name(u"Inputs 2026");
  EXPECT_EQ(to_utf8(second->range(V("A1"))->formula()), "='Inputs 2026'!A1+1");
  EXPECT_EQ(s2.formula(*s2.cells.find(0, 0)).file, nullptr);
  EXPECT_NE(s2.formula(*s2.cells.find(1, 0)).file, nullptr);  // does not name the sheet
  EXPECT_EQ(to_utf8(wb->names()->item(V("Where"))->refers_to()), "='Inputs 2026'!$C$3");
  EXPECT_EQ(addr(wb->names()->item(V("Where"))->refers_to_range()), "C3");
}

}  // namespace
}  // namespace qz::engine::test
