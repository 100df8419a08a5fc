// Evaluation: coercions, comparisons, errors, references and their operators, names,
// implicit intersection and array formulas.
#include <gtest/gtest.h>

#include "calc_fixture.hpp"

namespace qz::engine::calc::test {
namespace {

TEST(Coercion, TextBooleansAndEmptyInArithmetic) {
  TestBook book;
  book.set("A1", u"12");
  book.set_bool("A2", true);
  book.set("A3", u"abc");
  EXPECT_EQ(book.eval(u"A1*2"), N(24));  // number-like text counts
  EXPECT_EQ(book.eval(u"\"1,000\"+1"), N(1001));
  EXPECT_EQ(book.eval(u"\"5%\"*10"), N(0.5));
  EXPECT_EQ(book.eval(u"\"$3\"+0"), N(3));
  EXPECT_EQ(book.eval(u"\"1/2/2026\"+0"), N(46024));  // a date read as its serial
  EXPECT_EQ(book.eval(u"A2+1"), N(2));
  EXPECT_EQ(book.eval(u"A9+1"), N(1));  // an empty cell is 0
  EXPECT_EQ(book.eval(u"A3+1"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"\"TRUE\"+0"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"A9&\"x\""), S(u"x"));  // and "" when joined
  EXPECT_EQ(book.eval(u"1/3&\"\""), S(u"0.333333333333333"));
  EXPECT_EQ(book.eval(u"TRUE&1"), S(u"TRUE1"));
  EXPECT_EQ(book.eval(u"A9"), N(0));  // a formula never shows nothing
}

TEST(Coercion, AggregatesSkipTextInRangesButNotTypedArguments) {
  TestBook book;
  book.set("A1", 1);
  book.set("A2", u"2");
  book.set_bool("A3", true);
  book.set("A4", 4);
  EXPECT_EQ(book.eval(u"SUM(A1:A4)"), N(5));             // "2" and TRUE in the range: skipped
  EXPECT_EQ(book.eval(u"SUM(A1:A4,\"2\",TRUE)"), N(8));  // typed: counted
  EXPECT_EQ(book.eval(u"SUM(A1:A4,\"x\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"COUNT(A1:A4)"), N(2));
  EXPECT_EQ(book.eval(u"COUNT(A1:A4,\"3\",\"x\",TRUE)"), N(4));
  EXPECT_EQ(book.eval(u"COUNTA(A1:A9)"), N(4));
  EXPECT_EQ(book.eval(u"AVERAGE(A1:A4)"), N(2.5));
  EXPECT_EQ(book.eval(u"AVERAGEA(A1:A4)"), N(1.5));  // text 0, TRUE 1
  EXPECT_EQ(book.eval(u"MAX(A5:A9)"), N(0));
  EXPECT_EQ(book.eval(u"SUMPRODUCT(A1:A4,A1:A4)"), N(17));  // non-numbers as 0
}

TEST(Comparison, NumbersBeforeTextBeforeBooleansTextWithoutCase) {
  TestBook book;
  EXPECT_EQ(book.eval(u"\"abc\"=\"ABC\""), B(true));
  EXPECT_EQ(book.eval(u"\"a\"<\"B\""), B(true));
  EXPECT_EQ(book.eval(u"\"ab\"<\"abc\""), B(true));
  EXPECT_EQ(book.eval(u"1<\"0\""), B(true));      // any number before any text
  EXPECT_EQ(book.eval(u"\"z\"<FALSE"), B(true));  // any text before any Boolean
  EXPECT_EQ(book.eval(u"TRUE>FALSE"), B(true));
  EXPECT_EQ(book.eval(u"A9=0"), B(true));  // empty is 0, "" and FALSE alike
  EXPECT_EQ(book.eval(u"A9=\"\""), B(true));
  EXPECT_EQ(book.eval(u"A9=FALSE"), B(true));
  EXPECT_EQ(book.eval(u"0.1+0.2=0.3"), B(true));  // equal to fifteen digits
  EXPECT_EQ(book.eval(u"1<>1"), B(false));
}

TEST(Errors, PropagateLeftFirstAndStopAtTheirCatchers) {
  TestBook book;
  book.set("A1", Value::error(cell_error::na));
  EXPECT_EQ(book.eval(u"1/0"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"A1+1/0"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"1/0+A1"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"SUM(1,A1)"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"IFERROR(A1,\"none\")"), S(u"none"));
  EXPECT_EQ(book.eval(u"IFNA(1/0,2)"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"ISERROR(A1)"), B(true));
  EXPECT_EQ(book.eval(u"NoSuchFunction(1)"), E(cell_error::name));
  EXPECT_EQ(book.eval(u"UndefinedName+1"), E(cell_error::name));
  EXPECT_EQ(book.eval(u"(-8)^(1/3)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"0^0"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"10^400"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"[1]Sheet1!A1"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"Table1[Amount]"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"#REF!A1"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"SUM(1,2"
                      u",3)+IF(TRUE,,1)"),
            N(6));  // a missing argument is 0
}

TEST(References, OperatorsAcrossAreasAndSheets) {
  TestBook book;
  for (int r = 1; r <= 4; ++r)
    for (int c = 0; c < 4; ++c)
      book.set(std::string(1, char('A' + c)) + std::to_string(r), r * 10 + c);
  book.set("A1", 100, book.id("Sheet2"));
  book.set("A1", 1000, book.id("Sheet3"));
  EXPECT_EQ(book.eval(u"SUM(A1:B2)"), N(10 + 11 + 20 + 21));
  EXPECT_EQ(book.eval(u"SUM(B2:A1)"), N(62));  // corners in either order
  EXPECT_EQ(book.eval(u"SUM((A1,D4))"), N(10 + 43));
  EXPECT_EQ(book.eval(u"SUM(A1:D4 B2:C3)"), N(21 + 22 + 31 + 32));
  EXPECT_EQ(book.eval(u"SUM(A1:B1:B3)"), N(10 + 11 + 20 + 21 + 30 + 31));
  EXPECT_EQ(book.eval(u"SUM(A:A)"), N(100));
  EXPECT_EQ(book.eval(u"SUM(2:2)"), N(20 + 21 + 22 + 23));
  EXPECT_EQ(book.eval(u"Sheet2!A1+A1"), N(110));
  EXPECT_EQ(book.eval(u"SUM(Sheet1:Sheet3!A1)"), N(1110));
  EXPECT_EQ(book.eval(u"AREAS((A1,B2,C3))"), N(3));
  EXPECT_EQ(book.eval(u"A1:A3+1"), E(cell_error::value));  // Z100 meets no row of A1:A3
  EXPECT_EQ(book.eval(u"A1:A3+1", "C2"), N(21));           // the cell in the formula's row
  EXPECT_EQ(book.eval(u"A2:D2*2", "C9"), N(44));           // ... or column
  EXPECT_EQ(book.eval(u"@A1:A3", "C3"), N(30));
}

TEST(Coercion, NumbersJoinedAsTextUseFifteenDigits) {
  TestBook book;
  EXPECT_EQ(book.eval(u"\"\"&1E+15"), S(u"1E+15"));
  EXPECT_EQ(book.eval(u"\"\"&123456789012345"), S(u"123456789012345"));
  EXPECT_EQ(book.eval(u"\"\"&1234567890123456789"), S(u"1.23456789012346E+18"));
  EXPECT_EQ(book.eval(u"\"\"&-0.000001"), S(u"-0.000001"));
  EXPECT_EQ(book.eval(u"\"\"&1E-10"), S(u"1E-10"));
  EXPECT_EQ(book.eval(u"\"\"&(0.1+0.2)"), S(u"0.3"));
  EXPECT_EQ(book.eval(u"\"\"&2/3"), S(u"0.666666666666667"));
  EXPECT_EQ(book.eval(u"\"\"&-1.5E+300"), S(u"-1.5E+300"));
}

TEST(Arrays, FunctionsOfSingleValuesApplyToEachElement) {
  TestBook book;
  book.set("A1", 1.25);
  book.set("A2", u"x");
  book.set("A3", 2.35);
  EXPECT_EQ(book.eval(u"SUM(ROUND({1.25,2.35},1))"), N(3.7));
  EXPECT_EQ(book.eval(u"SUMPRODUCT(ISNUMBER(A1:A3)*1)"), N(2));
  EXPECT_EQ(book.eval(u"SUMPRODUCT(IF(ISNUMBER(A1:A3),A1:A3,0))"), N(3.6));
  EXPECT_EQ(book.eval(u"SUMPRODUCT(LEN(A1:A3))"), N(9));
  EXPECT_EQ(book.eval(u"SUMPRODUCT(IFERROR(A1:A3*2,100))"), N(107.2));
  EXPECT_EQ(book.eval(u"INDEX(LEFT({\"abc\",\"de\"},1),1,2)"), S(u"d"));
  EXPECT_EQ(book.eval(u"SUM({1,2}+{10;20})"), N(66));              // a row against a column
  EXPECT_EQ(book.eval(u"SUM({1,2,3}*{1,2})"), E(cell_error::na));  // past the shorter array
}

TEST(Names, WorkbookAndSheetScopesRelativeAndConstant) {
  TestBook book;
  book.set("A1", 5);
  book.set("B1", 7);
  book.set("A1", 50, book.id("Sheet2"));
  book.define(u"Rate", u"0.2");
  book.define(u"Base", u"Sheet1!$A$1");
  book.define(u"Base", u"Sheet2!$A$1", book.id("Sheet2"));
  book.define(u"Both", u"Sheet1!$A$1:$B$1");
  book.define(u"Left", u"Sheet1!A1");  // relative: the cell in column A of the caller's row
  EXPECT_EQ(book.eval(u"Base*Rate"), N(1));
  EXPECT_EQ(book.eval(u"base*rate"), N(1));
  EXPECT_EQ(book.eval(u"Base", "Z1", book.id("Sheet2")), N(50));  // the sheet's own name wins
  EXPECT_EQ(book.eval(u"Sheet2!Base"), N(50));
  EXPECT_EQ(book.eval(u"SUM(Both)"), N(12));
  EXPECT_EQ(book.eval(u"Left", "B1"), N(7));
}

TEST(ArrayFormulas, WorkElementByElement) {
  TestBook book;
  for (int r = 1; r <= 4; ++r) {
    book.set("A" + std::to_string(r), r);
    book.set("B" + std::to_string(r), r % 2 ? u"odd" : u"even");
  }
  auto arr = [&](std::u16string_view text, int rows = 1, int cols = 1) {
    auto f = parse(text, Notation::A1, cell("D1"), 0, book);
    return evaluate_array(*f, cell("D1"), 0, book, rows, cols);
  };
  EXPECT_EQ(arr(u"SUM(A1:A4*(B1:B4=\"odd\"))"), std::vector<Value>{N(4)});
  EXPECT_EQ(arr(u"SUM(IF(A1:A4>1,A1:A4))"), std::vector<Value>{N(9)});
  EXPECT_EQ(arr(u"A1:A3*10", 3), (std::vector<Value>{N(10), N(20), N(30)}));
  EXPECT_EQ(arr(u"A1:A2*10", 3), (std::vector<Value>{N(10), N(20), E(cell_error::na)}));
  EXPECT_EQ(arr(u"{1,2}*{10;20}", 2, 2), (std::vector<Value>{N(10), N(20), N(20), N(40)}));
  EXPECT_EQ(arr(u"7", 2), (std::vector<Value>{N(7), N(7)}));
  EXPECT_EQ(arr(u"SUM(LEN(B1:B4))"), std::vector<Value>{N(14)});
  // Outside an array formula SUMPRODUCT still reads its arguments as arrays, and array
  // constants always apply element by element.
  EXPECT_EQ(book.eval(u"SUMPRODUCT((B1:B4=\"even\")*A1:A4)"), N(6));
  EXPECT_EQ(book.eval(u"SUMPRODUCT(--ISNUMBER(A1:B4))"), N(4));
  EXPECT_EQ(book.eval(u"SUM({1,2,3}*2)"), N(12));
  EXPECT_EQ(book.eval(u"SUM(LEN({\"a\",\"bb\"}))"), N(3));
  EXPECT_EQ(book.eval(u"INDEX({1,2;3,4},2,1)"), N(3));
  EXPECT_EQ(book.eval(u"SUMPRODUCT((A1:A4>2)*(A1:A4))"), N(7));
  EXPECT_EQ(arr(u"SUM(A1:A4*A1:A4)"), std::vector<Value>{N(30)});
  EXPECT_EQ(arr(u"MIN(IF(A1:A4>1,A1:A4))"), std::vector<Value>{N(2)});
  EXPECT_EQ(arr(u"MAX(IF(B1:B4=\"odd\",A1:A4))"), std::vector<Value>{N(3)});
  // The same in a plain cell: where a single value is expected, a range gives the cell in
  // the formula's row, or #VALUE! when it has none; a function that takes a range (SUM, or
  // IF's branch handing one on) still gets all of it.
  EXPECT_EQ(book.eval(u"ABS(A1:A4)", "D3"), N(3));
  EXPECT_EQ(book.eval(u"ABS(A1:A4)", "D9"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SUM(A1:A4*2)", "D2"), N(4));
  EXPECT_EQ(book.eval(u"SUM(A1:A4*2)", "D9"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SUM(IF(A1:A4>1,A1:A4))", "D1"), N(0));
  EXPECT_EQ(book.eval(u"SUM(IF(A1:A4>1,A1:A4))", "D3"), N(10));
  EXPECT_EQ(book.eval(u"MAX(IF(B1:B4=\"odd\",A1:A4))", "D2"), N(0));
  EXPECT_EQ(book.eval(u"SUM(A1:A4)", "D9"), N(10));
}

TEST(StructuredReferences, EverySpecifierNamesItsCellsOfTheTable) {
  // Sales on B2:E8: a header row, five data rows, a totals row.
  TestBook book;
  book.tables.push_back(TableDefinition{
      u"Sales", 0, Rect{1, 1, 7, 4}, 1, 1, {u"Item", u"Qty", u"Unit Price", u"Net [EUR]"}});
  const char16_t* heads[] = {u"Item", u"Qty", u"Unit Price", u"Net [EUR]"};
  for (int c = 0; c < 4; ++c) book.set(a1(CellRef{1, 1 + c}), heads[c]);
  for (int r = 0; r < 5; ++r) {
    book.set(a1(CellRef{2 + r, 1}), r % 2 ? u"pear" : u"fig");
    book.set(a1(CellRef{2 + r, 2}), r + 1);
    book.set(a1(CellRef{2 + r, 3}), 10 * (r + 1));
    book.formula(a1(CellRef{2 + r, 4}), u"[@Qty]*Sales[[#This Row],[Unit Price]]");
  }
  book.formula("C8", u"SUBTOTAL(109,[Qty])");
  book.set("B8", u"Total");
  EXPECT_EQ(book.eval(u"SUM(Sales[Qty])"), N(15));
  EXPECT_EQ(book.eval(u"Sales[[#Totals],[Qty]]"), N(15));
  EXPECT_EQ(book.eval(u"SUM(Sales[Net '[EUR']])"), N(550));
  EXPECT_EQ(book.eval(u"SUM(Sales[[Qty]:[Unit Price]])"), N(165));
  EXPECT_EQ(book.eval(u"COUNTA(Sales[#All])"), N(26));
  EXPECT_EQ(book.eval(u"ROWS(Sales[[#Headers],[#Data]])"), N(6));
  EXPECT_EQ(book.eval(u"ROWS(Sales[[#Data],[#Totals]])"), N(6));
  EXPECT_EQ(book.eval(u"INDEX(Sales[#Headers],1,3)"), Value::str(u"Unit Price"));
  EXPECT_EQ(book.eval(u"SUM(Sales)"), N(15 + 150 + 550));  // the name alone: the data
  EXPECT_EQ(book.eval(u"COUNTIF(sales[ITEM],\"fig\")"), N(3));
  // A single-cell formula beside the table takes the column's cell in its own row.
  EXPECT_EQ(book.eval(u"Sales[Unit Price]", "H4"), N(20));
  EXPECT_EQ(book.eval(u"Sales[Unit Price]", "H12"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"Sales[@Qty]", "H5"), N(3));
  EXPECT_EQ(book.eval(u"Sales[@Qty]", "H9"), E(cell_error::value));  // outside its rows
  EXPECT_EQ(book.eval(u"Sales[Nope]"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"[@Qty]"), E(cell_error::ref));  // in no table
  EXPECT_EQ(book.eval(u"Sales[[#Headers],[#Totals]]"), E(cell_error::ref));

  // Files hold the qualified form, columns bracketed where they need it.
  auto file_form = [](std::u16string_view text) {
    auto r = read_structured(text);
    if (!r) return std::string("(malformed)");
    if (r->table.empty()) r->table = u"Sales";
    return to_utf8(render_structured(*r));
  };
  EXPECT_EQ(file_form(u"[@Qty]"), "Sales[[#This Row],[Qty]]");
  EXPECT_EQ(file_form(u"Sales[@[Unit Price]]"), "Sales[[#This Row],[Unit Price]]");
  EXPECT_EQ(file_form(u"Sales[Unit Price]"), "Sales[Unit Price]");
  EXPECT_EQ(file_form(u"Sales[Net '[EUR']]"), "Sales[[Net '[EUR']]]");
  EXPECT_EQ(file_form(u"Sales[ [#Headers] , [Qty]:[Net '[EUR']] ]"),
            "Sales[[#Headers],[Qty]:[Net '[EUR']]]");
  EXPECT_EQ(file_form(u"Sales[#all]"), "Sales[#All]");
  EXPECT_EQ(file_form(u"Sales[[#Data],[Qty],[Item]]"), "(malformed)");
}

TEST(Evaluation, LongChainsOfOperatorsNeedNoDeepStack) {
  TestBook book;
  std::u16string text = u"0";
  for (int i = 0; i < 4000; ++i) text += u"+1";
  EXPECT_EQ(book.eval(text), N(4000));
  std::u16string joined = u"\"\"";
  for (int i = 0; i < 2000; ++i) joined += u"&\"ab\"";
  EXPECT_EQ(book.eval(joined).text.size(), 4000u);
}

TEST(Recalculation, ChainsAndCircles) {
  TestBook book;
  book.set("A1", 2);
  book.formula("A2", u"A1*3");
  book.formula("A3", u"A2+A1");
  EXPECT_EQ(book.cell_value(0, cell("A3")), N(8));
  book.formula("B1", u"B2+1");
  book.formula("B2", u"B1+1");  // a circle answers the last value, never loops
  Value v = book.cell_value(0, cell("B1"));
  EXPECT_EQ(v.kind, Value::Kind::Number);
}

}  // namespace
}  // namespace qz::engine::calc::test
