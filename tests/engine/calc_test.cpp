// Formulas in cells: entry and rendering, results including errors, names and other sheets,
// automatic and manual calculation, loaded values, volatile functions, long chains and cycles.
#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using Calc = EngineTest;
namespace xl = host::xl;

double num(const Variant& v) {
  return v.is_number() ? v.dbl() : -99999;
}

TEST_F(Calc, FormulasAreWrittenBackAsTheApplicationWritesThem) {
  put("A4", "=sum(a1:a3)");
  EXPECT_EQ(formula("A4"), "=SUM(A1:A3)");
  EXPECT_EQ(to_utf8(r("A4")->formula_r1c1()), "=SUM(R[-3]C:R[-1]C)");
  r("B2")->set_formula_r1c1(u"=R[-1]C*2+R1C1");
  EXPECT_EQ(formula("B2"), "=B1*2+$A$1");
  // One formula over a block: relative references follow each cell.
  r("C1:C3")->set_formula(u"=A1*2");
  EXPECT_EQ(formula("C3"), "=A3*2");
  EXPECT_TRUE(r("C1:C3")->has_formula());
  EXPECT_FALSE(r("B2:C3")->has_formula());
  // A leading sign starts a formula too.
  put("D1", "-A1");
  EXPECT_EQ(formula("D1"), "=-A1");
}

TEST_F(Calc, ResultsIncludingErrorsNamesAndOtherSheets) {
  put("A1", "10");
  put("A2", "0");
  put("B1", "=A1*2+1");
  EXPECT_EQ(num(value("B1")), 21);
  put("B2", "=A1/A2");
  ASSERT_TRUE(value("B2").is_error());
  EXPECT_EQ(value("B2").error().code, cell_error::div0);
  EXPECT_EQ(text("B2"), "#DIV/0!");
  put("B3", "=B2+1");  // errors travel
  EXPECT_EQ(value("B3").error().code, cell_error::div0);
  put("B4", "=NOSUCHFUNCTION(1)");
  EXPECT_EQ(value("B4").error().code, cell_error::name);
  put("B5", "=Rate*A1");
  EXPECT_EQ(value("B5").error().code, cell_error::name);
  host::NameAddArgs args;
  args.name = V("Rate");
  args.refers_to = V("=0.5");
  wb->names()->add(args);
  EXPECT_EQ(num(value("B5")), 5);  // the new name recalculates its users

  auto other = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  other->set_name(u"Data Sheet");
  other->range(V("C3"))->set_formula(u"7");
  put("B6", "='Data Sheet'!C3*A1");
  EXPECT_EQ(num(value("B6")), 70);
  other->range(V("C3"))->set_formula(u"8");
  EXPECT_EQ(num(value("B6")), 80);
  put("B7", "=IF(A1>5,\"big\",\"small\")&\"!\"");
  EXPECT_EQ(to_utf8(value("B7").str()), "big!");
  put("B8", "=A9");  // an empty cell reads as zero
  EXPECT_EQ(num(value("B8")), 0);
}

TEST_F(Calc, ANameChangeRecalculatesOnlyItsUsers) {
  for (int r = 1; r <= 100; ++r) ws->cell(r, 1)->set_formula_r1c1(u"=ROW()*2");
  put("B1", "=Growth*10");
  put("B2", "=B1+1");
  EXPECT_EQ(value("B1").error().code, cell_error::name);
  host::NameAddArgs args;
  args.name = V("Growth");
  args.refers_to = V("=Sheet1!$C$1");
  uint64_t before = book().evaluations();
  auto growth = wb->names()->add(args);
  EXPECT_EQ(book().evaluations() - before, 2u);  // B1 and its dependent B2
  EXPECT_EQ(num(value("B2")), 1);
  put("C1", "3");  // the name's cell now feeds B1
  EXPECT_EQ(num(value("B2")), 31);
  growth->set_refers_to(V("=7"));
  EXPECT_EQ(num(value("B2")), 71);
  growth->delete_();
  EXPECT_EQ(value("B2").error().code, cell_error::name);
}

TEST_F(Calc, AutomaticModeRecalculatesOnlyDependents) {
  // 200 independent chains of five cells; changing one input touches its chain only.
  for (int c = 1; c <= 200; ++c) {
    ws->cell(1, c)->set_formula(u"1");
    for (int r = 2; r <= 5; ++r) ws->cell(r, c)->set_formula_r1c1(u"=R[-1]C+1");
  }
  EXPECT_EQ(num(ws->cell(5, 7)->value()), 5);
  uint64_t before = book().evaluations();
  ws->cell(1, 7)->set_formula(u"100");
  EXPECT_EQ(num(ws->cell(5, 7)->value()), 104);
  EXPECT_EQ(num(ws->cell(5, 8)->value()), 5);
  EXPECT_EQ(book().evaluations() - before, 4u);
}

TEST_F(Calc, ManualModeKeepsOldValuesUntilCalculate) {
  put("A1", "1");
  put("B1", "=A1*10");
  app->set_calculation(xl::CalculationManual);
  EXPECT_EQ(app->calculation(), xl::CalculationManual);
  put("A1", "2");
  EXPECT_EQ(num(value("B1")), 10);
  put("C1", "=A1+1");  // a new formula waits too
  app->calculate();
  EXPECT_EQ(num(value("B1")), 20);
  EXPECT_EQ(num(value("C1")), 3);
  put("A1", "3");
  app->set_calculation(xl::CalculationAutomatic);  // back to automatic: brought up to date
  EXPECT_EQ(num(value("B1")), 30);
  EXPECT_THROW(app->set_calculation(99), Error);
}

TEST_F(Calc, LoadedValuesStandUntilRecalculated) {
  Book& b = book();
  auto file = std::make_unique<FileFormula>();
  file->text = "1+1";
  b.load_formula(sheet(), 0, 0, std::move(file), calc::Value::num(42), 0);
  auto child = std::make_unique<FileFormula>();
  child->text = "A1*2";
  b.load_formula(sheet(), 1, 0, std::move(child), calc::Value::num(84), 0);
  b.loaded();
  EXPECT_EQ(num(value("A1")), 42);
  EXPECT_EQ(formula("A2"), "=A1*2");
  EXPECT_EQ(num(value("A2")), 84);
  EXPECT_FALSE(b.any_change());
  app->calculate();  // automatic mode: only what is dirty, and nothing is
  EXPECT_EQ(num(value("A1")), 42);
  b.calculate(true);
  EXPECT_EQ(num(value("A1")), 2);
  EXPECT_EQ(num(value("A2")), 4);
}

TEST_F(Calc, SharedFormulaChildrenTakeTheMastersFormula) {
  Book& b = book();
  auto master = std::make_unique<FileFormula>();
  master->text = "A1*10";
  master->type = FileFormula::Type::Shared;
  master->more().ref = u"B1:B3";
  master->shared_index = 0;
  b.load_formula(sheet(), 0, 1, std::move(master), calc::Value::num(0), 0);
  for (int r = 1; r < 3; ++r) {
    auto child = std::make_unique<FileFormula>();
    child->type = FileFormula::Type::Shared;
    child->shared_index = 0;
    b.load_formula(sheet(), r, 1, std::move(child), calc::Value::num(0), 0);
  }
  b.loaded();
  EXPECT_EQ(formula("B3"), "=A3*10");
  put("A3", "4");
  EXPECT_EQ(num(value("B3")), 40);
  // Changing the master leaves the children their own formulas.
  put("B1", "=5");
  EXPECT_EQ(formula("B2"), "=A2*10");
  EXPECT_EQ(sheet().formula(*sheet().cells.find(1, 1)).file, nullptr);
}

TEST_F(Calc, CopiesOfAFormulaShareOneParseUntilEditedApart) {
  Book& b = book();
  for (int r = 0; r < 7; ++r) put(("A" + std::to_string(r + 1)).c_str(), "1");
  // Filled-down copies, and look-alikes that differ in what a save must keep: blanks, the
  // spelling of a number, an absolute part.
  const char* texts[] = {"A1*2", "A2*2", "A3 * 2", "A4*2.50", "A5*2.500", "$A$1*2", "$A$1*2"};
  for (int r = 0; r < 7; ++r) {
    auto file = std::make_unique<FileFormula>();
    file->text = texts[r];
    b.load_formula(sheet(), r, 1, std::move(file), calc::Value::num(0), 0);
  }
  b.loaded();
  b.calculate(true);
  auto parsed = [&](int r) { return sheet().formula(*sheet().cells.find(r, 1)).parsed.get(); };
  EXPECT_EQ(parsed(0), parsed(1));
  EXPECT_EQ(parsed(5), parsed(6));
  EXPECT_NE(parsed(1), parsed(2));
  EXPECT_NE(parsed(3), parsed(4));
  EXPECT_NE(parsed(5), parsed(0));
  EXPECT_EQ(formula("B3"), "=A3 * 2");
  EXPECT_EQ(formula("B4"), "=A4*2.50");
  EXPECT_EQ(formula("B7"), "=$A$1*2");
  // Editing one copy leaves the others their formula, and edits after a full recalculation
  // reach every dependent.
  put("B2", "=A2*3");
  EXPECT_EQ(formula("B1"), "=A1*2");
  put("A1", "5");
  put("A2", "7");
  EXPECT_EQ(num(value("B1")), 10);
  EXPECT_EQ(num(value("B2")), 21);
  EXPECT_EQ(num(value("B6")), 10);
  EXPECT_EQ(num(value("B7")), 10);
  EXPECT_EQ(formula("B5"), "=A5*2.500");
}

TEST_F(Calc, ArrayFormulasFillTheirBlockAndMoveWithIt) {
  Book& b = book();
  for (int r = 0; r < 3; ++r) {
    b.set_constant(sheet(), r, 0, calc::Value::num(r + 1));         // A1:A3 1, 2, 3
    b.set_constant(sheet(), r, 1, calc::Value::num(10 * (r + 1)));  // B1:B3 10, 20, 30
  }
  auto array = [&](int32_t row, int32_t col, const char* text, const char16_t* ref) {
    auto file = std::make_unique<FileFormula>();
    file->text = text;
    file->set_type("array");
    file->more().ref = ref;
    b.load_formula(sheet(), row, col, std::move(file), calc::Value::num(0), 0);
  };
  array(0, 2, "A1:A3*B1:B3", u"C1:C3");  // the other cells of the block hold plain values
  b.set_constant(sheet(), 1, 2, calc::Value::num(0));
  b.set_constant(sheet(), 2, 2, calc::Value::num(0));
  array(0, 3, "SUM(IF(A1:A3>1,B1:B3))", u"D1");
  array(0, 4, "MIN(IF(A1:A3<>\"\",A1:A3*-1))", u"E1");
  put("F1", "=C3+1");  // reads a cell of the block
  put("G1", "=SUM(C1:C3)");
  b.loaded();
  b.calculate(true);
  EXPECT_EQ(num(value("C2")), 40);
  EXPECT_EQ(num(value("C3")), 90);
  EXPECT_EQ(num(value("D1")), 50);
  EXPECT_EQ(num(value("E1")), -3);
  EXPECT_EQ(num(value("F1")), 91);
  EXPECT_EQ(num(value("G1")), 140);
  put("A3", "4");  // the block and what reads it follow
  EXPECT_EQ(num(value("C3")), 120);
  EXPECT_EQ(num(value("F1")), 121);
  EXPECT_EQ(num(value("G1")), 170);
  EXPECT_EQ(num(value("D1")), 50);
  // A row inserted inside the block grows it; one above moves it.
  ws->range(V("2:2"))->insert();
  FormulaCell& master = sheet().formula(*sheet().cells.find(0, 2));
  EXPECT_EQ(master.array_ref, (Rect{0, 2, 3, 2}));
  ws->range(V("1:1"))->insert();
  FormulaCell& moved = sheet().formula(*sheet().cells.find(1, 2));
  EXPECT_EQ(moved.array_ref, (Rect{1, 2, 4, 2}));
}

TEST_F(Calc, VolatileFormulasFollowTheClock) {
  put("A1", "=NOW()");
  EXPECT_NEAR(num(value("A1")), 46340 + 9.5 / 24, 1e-9);
  put("A2", "=TODAY()+1");
  EXPECT_EQ(num(value("A2")), 46341);
  // A 1904 workbook counts the same day 1462 lower; its Value is the same date.
  book().date1904 = true;
  put("A3", "=TODAY()");
  r("A3")->set_number_format(u"m/d/yyyy");
  EXPECT_EQ(text("A3"), "11/14/2026");
  EXPECT_DOUBLE_EQ(value("A3").date().serial, 46340);
  app->volatile_();
}

TEST_F(Calc, LongChainsAndCyclesFinish) {
  app->set_calculation(xl::CalculationManual);
  const int n = 20000;
  ws->cell(1, 1)->set_formula(u"1");
  ws->range(Variant(ObjectPtr(ws->cell(2, 1))), Variant(ObjectPtr(ws->cell(n, 1))))
      ->set_formula_r1c1(u"=R[-1]C+1");
  app->calculate();
  EXPECT_EQ(num(ws->cell(n, 1)->value()), n);
  app->set_calculation(xl::CalculationAutomatic);
  ws->cell(1, 1)->set_formula(u"2");
  EXPECT_EQ(num(ws->cell(n, 1)->value()), n + 1);
  // A circular reference answers without hanging.
  put("C1", "=D1+1");
  put("D1", "=C1+1");
  EXPECT_TRUE(value("C1").is_number());
}

TEST_F(Calc, WorksheetFunctionTestsCells) {
  put("A1", "text");
  put("A2", "TRUE");
  put("A3", "#REF!");
  put("A4", "12");
  auto wf = app->worksheet_function();
  EXPECT_TRUE(wf->is_text(Variant(ObjectPtr(r("A1")))));
  EXPECT_FALSE(wf->is_text(Variant(ObjectPtr(r("A4")))));
  EXPECT_TRUE(wf->is_logical(Variant(ObjectPtr(r("A2")))));
  EXPECT_TRUE(wf->is_error(Variant(ObjectPtr(r("A3")))));
  EXPECT_FALSE(wf->is_error(Variant(ObjectPtr(r("A5")))));
  EXPECT_TRUE(wf->is_text(V("x")));
  // A larger range stands for its first cell, of any shape and on any sheet.
  EXPECT_TRUE(wf->is_text(Variant(ObjectPtr(r("A1:B4")))));
  EXPECT_TRUE(wf->is_logical(Variant(ObjectPtr(ws->range(V("A2:A4,C1"))))));
  EXPECT_FALSE(wf->is_text(Variant(ObjectPtr(ws->range(V("4:4"))))));
  EXPECT_TRUE(wf->is_error(Variant(ObjectPtr(r("A3")->entire_row()))));
  // A formula's cell is what its value is; a date is a number.
  put("B1", "=\"a\"&\"b\"");
  put("B2", "=1>0");
  put("B3", "=1/0");
  put("B4", "1/2/2024");
  EXPECT_TRUE(wf->is_text(Variant(ObjectPtr(r("B1")))));
  EXPECT_FALSE(wf->is_logical(Variant(ObjectPtr(r("B1")))));
  EXPECT_TRUE(wf->is_logical(Variant(ObjectPtr(r("B2")))));
  EXPECT_TRUE(wf->is_error(Variant(ObjectPtr(r("B3")))));
  EXPECT_FALSE(wf->is_text(Variant(ObjectPtr(r("B3")))));
  for (auto test : {&host::WorksheetFunction::is_text, &host::WorksheetFunction::is_logical,
                    &host::WorksheetFunction::is_error})
    EXPECT_FALSE(((*wf).*test)(Variant(ObjectPtr(r("B4")))));
}

}  // namespace
}  // namespace qz::engine::test
