// The calculation check that the file layer runs over real workbooks: it must count
// agreement exactly, name disagreements, and skip what cannot be compared.
#include <gtest/gtest.h>

#include "calc_fixture.hpp"
#include "engine/calc/check.hpp"

namespace qz::engine::calc::test {
namespace {

CheckCell value(SheetId sheet, std::string_view at, Value v) {
  CheckCell c;
  c.sheet = sheet;
  c.cell = cell(at);
  c.cached = std::move(v);
  return c;
}
CheckCell formula(SheetId sheet, std::string_view at, std::u16string_view text, Value cached) {
  CheckCell c = value(sheet, at, std::move(cached));
  c.formula = String(text);
  return c;
}

CheckWorkbook small_book() {
  CheckWorkbook b;
  b.label = "book.xlsx";
  b.sheets = {u"Data", u"Sums"};
  b.cells = {
      value(0, "A1", N(1)),
      value(0, "A2", N(2)),
      value(0, "A3", N(3)),
      formula(0, "A4", u"SUM(A1:A3)", N(6)),
      formula(1, "A1", u"Data!A4*2", N(12)),        // reads another formula's cached value
      formula(1, "A2", u"Total/2", N(3)),           // through a defined name
      formula(1, "A3", u"A1+0.0000000001", N(12)),  // within nine significant digits
      formula(1, "A4", u"UPPER(\"x\")", S(u"X")),
  };
  b.names = {{u"Total", kNoSheet, u"Data!$A$4"}};
  return b;
}

TEST(CalculationCheck, CountsAgreementWhenValuesMatch) {
  CheckReport r = check_cached_values(small_book());
  EXPECT_EQ(r.formulas, 5u);
  EXPECT_EQ(r.checked, 5u);
  EXPECT_EQ(r.agreed, 5u);
  EXPECT_TRUE(r.disagreements.empty());
  EXPECT_EQ(r.agreement(), 1.0);
}

TEST(CalculationCheck, NamesEachDisagreement) {
  CheckWorkbook b = small_book();
  b.cells[4].cached = N(13);
  b.cells[7].cached = S(u"x");  // text compares exactly
  CheckReport r = check_cached_values(b);
  // Sums!A3 reads the cached 13 of Sums!A1, as every formula reads its inputs' cached
  // values, so it disagrees with its own cached 12 as well.
  EXPECT_EQ(r.agreed, 2u);
  ASSERT_EQ(r.disagreements.size(), 3u);
  EXPECT_EQ(r.disagreements[0], "book.xlsx!Sums!A1: =Data!A4*2 -> A1 12, file has 13");
  EXPECT_EQ(r.disagreements[1],
            "book.xlsx!Sums!A3: =A1+0.0000000001 -> A3 13.0000000001, file has 12");
  EXPECT_EQ(r.disagreements[2], "book.xlsx!Sums!A4: =UPPER(\"x\") -> A4 \"X\", file has \"x\"");
  EXPECT_EQ(check_cached_values(b, 1).disagreements.size(), 1u);  // the report is bounded
}

TEST(CalculationCheck, SkipsWhatCannotBeComparedWithTheReason) {
  CheckWorkbook b = small_book();
  b.cells.push_back(formula(0, "B1", u"NOW()", N(45000)));
  b.cells.push_back(formula(0, "B2", u"[1]Sheet1!A1", N(5)));
  // Table1 over Data!D1:D3 ("Amount", 2, 3): its references are checked like any other.
  b.tables.push_back(TableDefinition{u"Table1", 0, Rect{0, 3, 2, 3}, 1, 0, {u"Amount"}});
  b.cells.push_back(value(0, "D2", N(2)));
  b.cells.push_back(value(0, "D3", N(3)));
  b.cells.push_back(formula(0, "B3", u"SUM(Table1[Amount])", N(5)));
  b.cells.push_back(formula(0, "B4", u"MYMACRO(1)", N(5)));
  b.cells.push_back(formula(0, "B5", u"SUM(1,", N(5)));
  CheckCell no_value = formula(0, "B6", u"1+1", Value::empty());
  no_value.has_cached = false;
  b.cells.push_back(no_value);
  CheckCell table = value(0, "B7", N(5));
  table.data_table = true;
  b.cells.push_back(table);
  b.names.push_back({u"Sales", kNoSheet, u"SUM(Table1[Amount])"});
  b.cells.push_back(formula(0, "B8", u"Sales", N(5)));
  CheckReport r = check_cached_values(b);
  EXPECT_EQ(r.formulas, 13u);
  EXPECT_EQ(r.checked, 7u);
  EXPECT_EQ(r.agreed, 7u);
  EXPECT_EQ(r.categories["structured reference"], std::make_pair(size_t{2}, size_t{2}));
  EXPECT_EQ(r.skipped["volatile"], 1u);
  EXPECT_EQ(r.skipped["other workbook"], 1u);
  EXPECT_EQ(r.skipped["unknown function"], 1u);
  EXPECT_EQ(r.skipped["does not parse"], 1u);
  EXPECT_EQ(r.skipped["no cached value"], 1u);
  EXPECT_EQ(r.skipped["data table"], 1u);
}

TEST(CalculationCheck, ArrayFormulasCompareEveryCellOfTheirBlock) {
  CheckWorkbook b;
  b.label = "a.xlsx";
  b.sheets = {u"S"};
  b.cells = {value(0, "A1", N(1)), value(0, "A2", N(2)), value(0, "B2", N(40))};
  CheckCell f = formula(0, "B1", u"A1:A2*20", N(20));
  f.array = true;
  f.array_range = Rect{0, 1, 1, 1};
  b.cells.push_back(f);
  EXPECT_EQ(check_cached_values(b).agreed, 1u);
  b.cells[2].cached = N(41);
  CheckReport r = check_cached_values(b);
  EXPECT_EQ(r.agreed, 0u);
  EXPECT_EQ(r.disagreements.at(0), "a.xlsx!S!B1: =A1:A2*20 -> B2 40, file has 41");
}

TEST(CalculationCheck, ReportsAddUp) {
  CheckReport total;
  CheckReport one = check_cached_values(small_book());
  total.add(one);
  total.add(one);
  EXPECT_EQ(total.checked, 10u);
  EXPECT_EQ(total.agreed, 10u);
  EXPECT_EQ(CheckReport{}.agreement(), 1.0);
}

}  // namespace
}  // namespace qz::engine::calc::test
