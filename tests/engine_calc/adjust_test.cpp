// Formulas following their cells when rows or columns are inserted or deleted.
#include <gtest/gtest.h>

#include "calc_fixture.hpp"

namespace qz::engine::calc::test {
namespace {

/// The formula `text` in cell `at` after the change, rendered where the cell went.
std::string after(TestBook& book, std::u16string_view text, std::string_view at, StructuralChange c,
                  SheetId home = 0) {
  CellRef from = cell(at), to = from;
  if (c.sheet == home) {
    int32_t& i = c.rows ? to.row : to.col;
    if (c.count > 0 && i >= c.at) i += c.count;
    if (c.count < 0 && i >= c.at - c.count) i += c.count;
  }
  auto f = parse(text, Notation::A1, from, home, book);
  auto g = adjust(f, from, to, home, c);
  return to_utf8(render(*g, Notation::A1, to, home, book));
}

StructuralChange rows(int32_t at_row1, int32_t count, SheetId sheet = 0) {
  return StructuralChange{sheet, true, at_row1 - 1, count};
}
StructuralChange cols(int32_t at_col0, int32_t count, SheetId sheet = 0) {
  return StructuralChange{sheet, false, at_col0, count};
}

TEST(InsertRows, ReferencesBelowMoveDownRangesAcrossGrow) {
  TestBook book;
  // Three rows inserted before row 5.
  auto c = rows(5, 3);
  EXPECT_EQ(after(book, u"A4+A5+$A$5+A$9", "Z1", c), "A4+A8+$A$8+A$12");
  EXPECT_EQ(after(book, u"SUM(A1:A10)", "Z1", c), "SUM(A1:A13)");  // inserted inside: grows
  EXPECT_EQ(after(book, u"SUM(A5:A10)", "Z1", c), "SUM(A8:A13)");  // at its first row: moves
  EXPECT_EQ(after(book, u"SUM(A1:A4)", "Z1", c), "SUM(A1:A4)");    // just above: stays
  EXPECT_EQ(after(book, u"SUM(A:A)+SUM(4:6)", "Z1", c), "SUM(A:A)+SUM(4:9)");
  // The formula itself moves; its relative references still point at the same cells.
  EXPECT_EQ(after(book, u"A1+A6", "B6", c), "A1+A9");
  EXPECT_EQ(after(book, u"B5", "B6", c), "B8");
}

TEST(DeleteRows, ReferencesIntoTheGapAreLostRangesShrink) {
  TestBook book;
  // Rows 5 to 7 deleted.
  auto c = rows(5, -3);
  EXPECT_EQ(after(book, u"A4+A5+A8+$A$10", "Z1", c), "A4+#REF!+A5+$A$7");
  EXPECT_EQ(after(book, u"SUM(A1:A10)", "Z1", c), "SUM(A1:A7)");
  EXPECT_EQ(after(book, u"SUM(A6:A10)", "Z1", c), "SUM(A5:A7)");
  EXPECT_EQ(after(book, u"SUM(A1:A6)", "Z1", c), "SUM(A1:A4)");
  EXPECT_EQ(after(book, u"SUM(A5:B7)", "Z1", c), "SUM(#REF!)");
  EXPECT_EQ(after(book, u"SUM(5:7)+SUM(C:C)", "Z1", c), "SUM(#REF!)+SUM(C:C)");
  EXPECT_EQ(after(book, u"Sheet1!A6", "Z1", c), "Sheet1!#REF!");
  EXPECT_EQ(after(book, u"A1+A20", "B20", c), "A1+A17");
}

TEST(InsertAndDeleteColumns, MirrorRows) {
  TestBook book;
  EXPECT_EQ(after(book, u"SUM(A1:D1)+E2+$C$3", "A10", cols(2, 2)), "SUM(A1:F1)+G2+$E$3");
  EXPECT_EQ(after(book, u"SUM(A:D)+SUM(1:1)", "A10", cols(1, 1)), "SUM(A:E)+SUM(1:1)");
  EXPECT_EQ(after(book, u"SUM(A1:D1)+B2+E2", "A10", cols(1, -2)), "SUM(A1:B1)+#REF!+C2");
}

TEST(Adjust, OtherSheetsAndOtherBooksStay) {
  TestBook book;
  SheetId s2 = book.id("Sheet2");
  // Rows inserted on Sheet2 move only references to Sheet2.
  EXPECT_EQ(after(book, u"A5+Sheet2!A5", "Z1", rows(5, 1, s2)), "A5+Sheet2!A6");
  EXPECT_EQ(after(book, u"[1]Sheet2!A5+'C:\\x\\[B.xlsx]S'!A5", "Z1", rows(1, 1)),
            "[1]Sheet2!A5+'C:\\x\\[B.xlsx]S'!A5");
  // A formula on Sheet2 referring to its own sheet follows Sheet2's rows.
  EXPECT_EQ(after(book, u"A5+Sheet1!A5", "Z1", rows(5, 1, s2), s2), "A6+Sheet1!A5");
}

TEST(Adjust, ThreeDimensionalAndMixedReferences) {
  TestBook book;
  // A 3-D reference follows a change on a sheet it starts or ends on.
  EXPECT_EQ(after(book, u"SUM(Sheet1:Sheet3!A5)", "Z1", rows(2, 1, book.id("Sheet3"))),
            "SUM(Sheet1:Sheet3!A6)");
  // Mixed references move by their absolute parts' cells too.
  EXPECT_EQ(after(book, u"$A5+A$5+SUM($A$1:A5)", "Z9", rows(3, 2)), "$A7+A$7+SUM($A$1:A7)");
  // Whole rows ignore inserted columns; whole columns ignore inserted rows.
  EXPECT_EQ(after(book, u"SUM(2:3)+SUM(B:B)", "Z9", cols(0, 1)), "SUM(2:3)+SUM(C:C)");
  // Deleting the formula's own rows is not asked of adjust; deleting rows above it moves it.
  EXPECT_EQ(after(book, u"A1+A2+A3", "B3", rows(1, -1)), "#REF!+A1+A2");
}

TEST(Adjust, NothingChangedGivesTheSameFormula) {
  TestBook book;
  auto f = parse(u"SUM(A1:A4)", Notation::A1, cell("B1"), 0, book);
  EXPECT_EQ(adjust(f, cell("B1"), cell("B1"), 0, rows(10, 5)), f);
  EXPECT_EQ(adjust(f, cell("B1"), cell("B1"), 0, rows(3, 0)), f);
  EXPECT_NE(adjust(f, cell("B1"), cell("B1"), 0, rows(3, 1)), f);
  // The original is never modified.
  EXPECT_EQ(to_utf8(render(*f, Notation::A1, cell("B1"), 0, book)), "SUM(A1:A4)");
}

TEST(Adjust, InsertingPastTheLastRowLosesWhatFallsOff) {
  TestBook book;
  auto c = rows(kMaxRows - 1, 2);
  EXPECT_EQ(after(book, u"A1048575+A1048576", "A1", c), "#REF!+#REF!");
  EXPECT_EQ(after(book, u"SUM(A1048570:A1048576)", "A1", c), "SUM(A1048570:A1048576)");
}

}  // namespace
}  // namespace qz::engine::calc::test
