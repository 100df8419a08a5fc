// Reading and writing formula text: precedence, references of every form, notations,
// copying, and the messages for text that is not a formula.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

#include "calc_fixture.hpp"
#include "engine/calc/as_written.hpp"

namespace qz::engine::calc::test {
namespace {

/// Parses at `at` and renders back there.
std::string round(TestBook& book, std::u16string_view text, std::string_view at = "C3",
                  Notation n = Notation::A1) {
  CellRef c = cell(at);
  return to_utf8(render(*parse(text, n, c, 0, book), n, c, 0, book));
}

/// Parses in one notation and renders in the other.
std::string convert(TestBook& book, std::u16string_view text, Notation from,
                    std::string_view at = "C3") {
  CellRef c = cell(at);
  Notation to = from == Notation::A1 ? Notation::R1C1 : Notation::A1;
  return to_utf8(render(*parse(text, from, c, 0, book), to, c, 0, book));
}

std::string parse_error(TestBook& book, std::u16string_view text) {
  try {
    parse(text, Notation::A1, CellRef{0, 0}, 0, book);
  } catch (const Error& e) {
    return e.message();
  }
  return "(parsed)";
}

TEST(Precedence, FollowsTheApplicationsOrder) {
  TestBook book;
  EXPECT_EQ(book.eval(u"1+2*3"), N(7));
  EXPECT_EQ(book.eval(u"(1+2)*3"), N(9));
  EXPECT_EQ(book.eval(u"-2^2"), N(4));    // negation before power
  EXPECT_EQ(book.eval(u"2^3^2"), N(64));  // power associates left
  EXPECT_EQ(book.eval(u"1-2-3"), N(-4));
  EXPECT_EQ(book.eval(u"8/4/2"), N(1));
  EXPECT_EQ(book.eval(u"50%*2"), N(1));
  EXPECT_EQ(book.eval(u"2^50%"), N(std::pow(2, 0.5)));  // percent before power
  EXPECT_EQ(book.eval(u"\"a\"&1+2"), S(u"a3"));         // arithmetic before joining
  EXPECT_EQ(book.eval(u"\"3\"=1+2&\"\""), B(true));     // joining before comparing
  EXPECT_EQ(book.eval(u"1+1=2"), B(true));
  EXPECT_EQ(book.eval(u"2=2=TRUE"), B(true));
  EXPECT_EQ(book.eval(u"--\"4\""), N(4));
}

TEST(Rendering, NormalisesCaseAndKeepsWhatWasTyped) {
  TestBook book;
  EXPECT_EQ(round(book, u"sum(a1:b2)+if(true,1.50,\"x\"\"y\")"),
            "SUM(A1:B2)+IF(TRUE,1.50,\"x\"\"y\")");
  EXPECT_EQ(round(book, u" SUM( A1 , B2 )  "), " SUM( A1 , B2 )  ");
  EXPECT_EQ(round(book, u"1 + 2\n* 3"), "1 + 2\n* 3");
  EXPECT_EQ(round(book, u"IF(A1,,2)"), "IF(A1,,2)");
  EXPECT_EQ(round(book, u"NOW( )"), "NOW( )");
  EXPECT_EQ(round(book, u"1e3+.5"), "1E3+.5");
  EXPECT_EQ(round(book, u"007+0.0001+0.00001+0.10+2.5+0+0.0+123456789012345+1234567890123456"),
            "007+0.0001+0.00001+0.10+2.5+0+0.0+123456789012345+1234567890123456");
  EXPECT_EQ(round(book, u"#n/a+#DIV/0!"), "#N/A+#DIV/0!");
  EXPECT_EQ(round(book, u"{1,-2.5;\"a\",TRUE}"), "{1,-2.5;\"a\",TRUE}");
  EXPECT_EQ(round(book, u"-A1%"), "-A1%");
  // Functions the application knows are upper-cased; others keep their spelling.
  EXPECT_EQ(round(book, u"MyMacro(1)+_xlfn.xlookup(1,A:A,B:B)"),
            "MyMacro(1)+_xlfn.XLOOKUP(1,A:A,B:B)");
  EXPECT_EQ(round(book, u"_xlfn._xlws.SORT(A1:A3)"), "_xlfn._xlws.SORT(A1:A3)");
  // Files spell newer functions with their prefixes, and "@" and "#" as functions.
  auto f = parse(u"filter(A1:A3,A1:A3>1)+@B1:B3+SUM(C1#)+XLOOKUP(1,A:A,B:B)+ABS(1)", Notation::A1,
                 CellRef{}, 0, book);
  EXPECT_EQ(to_utf8(render(*f, CellRef{}, 0, book, [](StringView s) { return String(s); })),
            "_xlfn._xlws.FILTER(A1:A3,A1:A3>1)+_xlfn.SINGLE(B1:B3)+SUM(_xlfn.ANCHORARRAY(C1))+"
            "_xlfn.XLOOKUP(1,A:A,B:B)+ABS(1)");
}

// Numbers in formulas are worth exactly what the general decimal conversion makes of them,
// however many digits they have and wherever the point is.
TEST(Numbers, ReadAsTheGeneralConversionReadsThem) {
  TestBook book;
  std::mt19937_64 rng(5);
  for (int k = 0; k < 3000; ++k) {
    std::string digits = std::to_string(rng() % 10000000000000000000ull);
    digits = digits.substr(0, 1 + rng() % std::min<size_t>(digits.size(), 17));
    const size_t point = rng() % (digits.size() + 2);
    if (point <= digits.size()) digits.insert(point, ".");
    if (digits == ".") continue;
    const std::string text = digits + (k % 10 == 0 ? "e-3" : "");
    EXPECT_EQ(book.eval(from_utf8(text)), N(std::strtod(text.c_str(), nullptr))) << text;
  }
}

TEST(Rendering, TextTakenAsWrittenIsWhatRenderingGivesBack) {
  TestBook book;
  // What the engine spells as written: taken without parsing, and rendering agrees.
  for (const char* text :
       {"B5+C5", "B5*1.05", "Sheet2!C5", "Rate_0*B5", "SUM(B5:D5)", "$A$1&\"x\"\"y\"",
        "_xlfn.XLOOKUP(1,A1:A3,B1:B3)", "IF(A1,,2)%", "-TRUE+.50", "Sheet2!$B$2:XFD1048576",
        "LOG10(A1)", "A1.B", "_xlpm.x", "NOW()"}) {
    EXPECT_TRUE(renders_as_written(text, book)) << text;
    EXPECT_EQ(round(book, u16(text)), text);
  }
  // What rendering respells (case, leading zeros, quotes, whole lines, exponents, blanks,
  // links, sheet ranges) or the check cannot tell: left to the parser.
  for (const char* text :
       {"b5",      "A05",     "sheet2!A1", "'Sheet2'!A1", "A:A",        "1:3",
        "true",    "1e3",     "SUM( A1)",  "sum(A1)",     "[1]Data!B1", "Sheet1:Sheet3!A1",
        "XFE1:A1", "A1:Name", "#REF!",     "{1}",         "A1#",        "@A1",
        "Name:A1", "\"open",  "A1:",       "Z1!A1"}) {
    EXPECT_FALSE(renders_as_written(text, book)) << text;
  }
}

TEST(Rendering, BlanksBetweenReferencesIntersect) {
  TestBook book;
  book.set("B2", 7);
  EXPECT_EQ(round(book, u"A1:C3 B2:D4"), "A1:C3 B2:D4");
  EXPECT_EQ(book.eval(u"SUM(A1:C3 B2:D2)"), N(7));
  EXPECT_EQ(book.eval(u"A1:A3 C1:C3"), E(cell_error::null));
  // Blanks before an operator or a separator are only blanks.
  EXPECT_EQ(book.eval(u"B2 +1"), N(8));
  EXPECT_EQ(book.eval(u"SUM(B2 ,1)"), N(8));
}

TEST(References, EveryFormReadsAndWritesBack) {
  TestBook book({"Sheet1", "My Sheet", "Sheet3", "2019", "A1", "R2C3", "Data"});
  for (const char16_t* text : {u"$A$1+A$1+$A1",
                               u"SUM(A:A)",
                               u"SUM($A:B)",
                               u"SUM(1:1)",
                               u"SUM($2:$5)",
                               u"SUM(A1:B2)",
                               u"'My Sheet'!A1",
                               u"SUM(Sheet1:Sheet3!B2)",
                               u"SUM('Sheet1:My Sheet'!A:A)",
                               u"'2019'!B1",
                               u"'A1'!B1",
                               u"'R2C3'!A1",
                               u"Data!XFD1048576",
                               u"[1]Sheet1!A1",
                               u"[Book.xlsx]Sheet1!$A$1",
                               u"'C:\\x\\[B.xlsx]S'!A1",
                               u"[Book.xlsx]'A sheet'!B2",
                               u"[1]!Rate",
                               u"#REF!A1",
                               u"Sheet1!#REF!",
                               u"Data!Rate",
                               u"Table1[Amount]",
                               u"Table1[[#Headers],[Amount]]",
                               u"[@Amount]*2",
                               u"SUM(Table1[[Q1]:[Q4]])",
                               u"Sheet1!A1:B2",
                               u"A1:INDEX(B:B,3)",
                               u"(A1,B2:C3)",
                               u"LOG10(A1)",
                               u"RC+1",
                               u"Net.Profit_2"}) {
    EXPECT_EQ(round(book, text), to_utf8(text));
  }
  EXPECT_EQ(round(book, u"'my sheet'!a1+data!b2"), "'My Sheet'!A1+Data!B2");
  EXPECT_EQ(round(book, u"'Data'!A1"), "'Data'!A1");  // quotes written stay
}

TEST(References, FollowRenamedAndDeletedSheets) {
  TestBook book({"Sheet1", "Costs"});
  CellRef at{0, 0};
  auto f = parse(u"Costs!A1*2", Notation::A1, at, 0, book);
  book.rename(1, "Cost Centre");
  EXPECT_EQ(to_utf8(render(*f, Notation::A1, at, 0, book)), "'Cost Centre'!A1*2");
  book.rename(1, "");  // the resolver no longer knows the sheet
  EXPECT_EQ(to_utf8(render(*f, Notation::A1, at, 0, book)), "#REF!A1*2");
}

TEST(Notations, R1C1AndA1ConvertBothWays) {
  TestBook book;
  EXPECT_EQ(convert(book, u"A1+$B$2+C$3+$D4+C3", Notation::A1), "R[-2]C[-2]+R2C2+R3C+R[1]C4+RC");
  EXPECT_EQ(convert(book, u"SUM(A:A)+SUM(C:D)+SUM(3:3)+SUM($1:$2)", Notation::A1),
            "SUM(C[-2])+SUM(C:C[1])+SUM(R)+SUM(R1:R2)");
  EXPECT_EQ(convert(book, u"R[-2]C[-2]+R2C2+RC+R[1]C4", Notation::R1C1), "A1+$B$2+C3+$D4");
  EXPECT_EQ(convert(book, u"SUM(R1C1:R[2]C[2])+SUM(C)+SUM(R2)", Notation::R1C1),
            "SUM($A$1:E5)+SUM(C:C)+SUM($2:$2)");
  EXPECT_EQ(convert(book, u"Sheet2!R1C1+rc[1]", Notation::R1C1), "Sheet2!$A$1+D3");
  // In R1C1 an A1-looking word is a name, and a name is not a reference.
  EXPECT_EQ(round(book, u"A1+Rate+ROUND(RC,2)", "C3", Notation::R1C1), "A1+Rate+ROUND(RC,2)");
}

TEST(Notations, R1C1FormsAtTheEdgesOfTheSheet) {
  TestBook book({"Sheet1", "Bob's", "Q1 2026"});
  // Relative offsets reach every cell from where the formula is.
  EXPECT_EQ(convert(book, u"R[-1048575]C[-16383]", Notation::R1C1, "XFD1048576"), "A1");
  EXPECT_EQ(convert(book, u"R1048576C16384", Notation::R1C1, "A1"), "$XFD$1048576");
  EXPECT_EQ(convert(book, u"R[1]:R[2]", Notation::R1C1, "B2"), "3:4");
  EXPECT_EQ(convert(book, u"C[-1]:C", Notation::R1C1, "B2"), "A:B");
  EXPECT_EQ(convert(book, u"A:A", Notation::A1, "B2"), "C[-1]");
  // An offset that leaves the sheet from where the formula is has no cell.
  EXPECT_EQ(convert(book, u"R[-2]C+1", Notation::R1C1, "A1"), "#REF!+1");
  EXPECT_EQ(book.eval(u"INDIRECT(\"R[-2]C\",FALSE)", "A1"), E(cell_error::ref));
  // Sheet names keep their quotes in either notation.
  EXPECT_EQ(convert(book, u"'Bob''s'!R1C1+'Q1 2026'!RC", Notation::R1C1, "B2"),
            "'Bob''s'!$A$1+'Q1 2026'!B2");
  EXPECT_EQ(convert(book, u"SUM('Sheet1:Q1 2026'!B2)", Notation::A1, "B2"),
            "SUM('Sheet1:Q1 2026'!RC)");
}

TEST(Rendering, ArraysNamesAndBlanksInsideThem) {
  TestBook book;
  EXPECT_EQ(round(book, u"{ 1 , 2 ; 3 , 4 }"), "{ 1 , 2 ; 3 , 4 }");
  EXPECT_EQ(round(book, u"{\"a\"\"b\";#N/A;FALSE}"), "{\"a\"\"b\";#N/A;FALSE}");
  EXPECT_EQ(round(book, u"SUM( ( A1 , B2 ) )"), "SUM( ( A1 , B2 ) )");
  EXPECT_EQ(round(book, u"Profit_2026 * tax.rate"), "Profit_2026 * tax.rate");
  EXPECT_EQ(round(book, u"--A1"), "--A1");
  EXPECT_EQ(round(book, u"+-+A1"), "+-+A1");
  EXPECT_EQ(round(book, u"A1#+1"), "A1#+1");
  EXPECT_EQ(round(book, u"1E+300*10"), "1E+300*10");
  EXPECT_EQ(round(book, u"0.5=.5"), "0.5=.5");
}

TEST(Copying, RelativeReferencesMoveAndAbsoluteOnesStay) {
  TestBook book;
  auto f = parse(u"A1+$A$1+A$1+$A1+SUM(A:A)", Notation::A1, cell("B2"), 0, book);
  EXPECT_EQ(to_utf8(render(*f, Notation::A1, cell("D5"), 0, book)), "C4+$A$1+C$1+$A4+SUM(C:C)");
  // Carried off the sheet, a reference is lost.
  EXPECT_EQ(to_utf8(render(*f, Notation::A1, cell("A1"), 0, book)),
            "#REF!+$A$1+#REF!+#REF!+SUM(#REF!)");
}

TEST(ParseErrors, NameTheProblemAndItsPosition) {
  TestBook book;
  EXPECT_EQ(parse_error(book, u"SUM(1,2"), "formula: unexpected end at 8");
  EXPECT_EQ(parse_error(book, u"1+)"), "formula: unexpected ')' at 3");
  EXPECT_EQ(parse_error(book, u"\"abc"), "formula: unterminated text at 1");
  EXPECT_EQ(parse_error(book, u"Nowhere!A1"), "formula: unknown sheet 'Nowhere' at 1");
  EXPECT_EQ(parse_error(book, u"{1,2;3}"), "formula: array rows of different lengths at 7");
  EXPECT_EQ(parse_error(book, u"{1,A1}"),
            "formula: array constants hold only numbers, text, TRUE/FALSE and errors at 4");
  EXPECT_EQ(parse_error(book, u""), "formula: empty formula at 1");
  EXPECT_EQ(parse_error(book, u"1 2.3.4"), "formula: malformed number at 3");
  EXPECT_EQ(parse_error(book, u"'Sheet1'A1"),
            "formula: expected '!' after a quoted sheet name at 9");
  EXPECT_EQ(parse_error(book, u"Sheet1!SUM(1)"),
            "formula: a function cannot carry a sheet name at 11");
  EXPECT_EQ(parse_error(book, std::u16string(300, u'(') + u"1" + std::u16string(300, u')')),
            "formula: formula nested too deeply at 201");
}

TEST(Volatility, MarksFormulasThatChangeOnEveryCalculation) {
  TestBook book;
  auto v = [&](const char16_t* t) { return is_volatile(*parse(t, Notation::A1, {}, 0, book)); };
  EXPECT_TRUE(v(u"NOW()+1"));
  EXPECT_TRUE(v(u"IF(A1,RAND(),0)"));
  EXPECT_TRUE(v(u"SUM(OFFSET(A1,1,1,2,2))"));
  EXPECT_TRUE(v(u"INDIRECT(\"A1\")"));
  EXPECT_TRUE(v(u"CELL(\"width\",A1)"));
  EXPECT_FALSE(v(u"SUM(A1:A9)+TODAY_RATE"));
}

TEST(References, ListWhatAFormulaReads) {
  TestBook book;
  auto f =
      parse(u"SUM(A1:B2)+Sheet2!C3+Rate+[1]Ext!A1+SUM(D:D)", Notation::A1, cell("E5"), 0, book);
  References r = references(*f, cell("E5"), 0);
  ASSERT_EQ(r.ranges.size(), 3u);
  EXPECT_EQ(r.ranges[0], (std::pair<SheetId, Rect>{0, Rect{0, 0, 1, 1}}));
  EXPECT_EQ(r.ranges[1], (std::pair<SheetId, Rect>{1, Rect{2, 2, 2, 2}}));
  EXPECT_EQ(r.ranges[2], (std::pair<SheetId, Rect>{0, Rect{0, 3, kMaxRows - 1, 3}}));
  EXPECT_EQ(r.names, std::vector<String>{u"Rate"});
  EXPECT_FALSE(r.is_volatile);
}

TEST(References, AThreeDReferenceReadsEverySheetBetweenItsEnds) {
  TestBook book({"Jan", "Feb", "Mar", "Apr"});
  auto f = parse(u"SUM(Mar:Jan!B2)", Notation::A1, cell("A1"), 3, book);
  // Editing Feb must recalculate the sum, so it is listed although the text never names it.
  References r = references(*f, cell("A1"), 3, &book);
  std::vector<std::pair<SheetId, Rect>> want = {
      {0, Rect{1, 1, 1, 1}}, {1, Rect{1, 1, 1, 1}}, {2, Rect{1, 1, 1, 1}}};
  EXPECT_EQ(r.ranges, want);
  // Without the workbook's tab order only the ends are known.
  EXPECT_EQ(references(*f, cell("A1"), 3).ranges.size(), 2u);
}

}  // namespace
}  // namespace qz::engine::calc::test
