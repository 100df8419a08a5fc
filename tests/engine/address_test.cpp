// Address text: areas, qualifiers, quoting of sheet names, and how a union's areas join.
#include <gtest/gtest.h>

#include "engine/model/address.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {
namespace {

std::string a1(const std::optional<Rect>& r) {
  return r ? to_utf8(area_a1(*r, false, false)) : std::string("(none)");
}

TEST(AddressText, AreasReadInEveryFormTheApplicationAccepts) {
  struct Case {
    const char* text;
    const char* area;
  } cases[] = {{"A1", "A1"},       {"$a$1", "A1"},        {"xfd1048576", "XFD1048576"},
               {"B3:A1", "A1:B3"}, {"$B$2:C$3", "B2:C3"}, {"C:A", "A:C"},
               {"$D:$D", "D:D"},   {"7:5", "5:7"},        {"$1:$1048576", "1:1048576"},
               {"AA10", "AA10"},   {"A1:A1", "A1"}};
  for (const auto& c : cases) EXPECT_EQ(a1(parse_area(u16(c.text))), c.area) << c.text;
  for (const char* bad : {"", "A", "1", "A0", "XFE1", "A1048577", "A$", "$", "A1:", ":A1", "A1:B",
                          "1:B", "A1B2", "A-1", "A1 B2", "R1C1"})
    EXPECT_FALSE(parse_area(u16(bad))) << bad;
}

TEST(AddressText, WritingAreasInBothNotations) {
  Rect cell{4, 2, 4, 2};  // C5
  EXPECT_EQ(to_utf8(area_a1(cell, true, true)), "$C$5");
  EXPECT_EQ(to_utf8(area_a1(cell, true, false)), "C$5");
  EXPECT_EQ(to_utf8(area_r1c1(cell, true, true, {})), "R5C3");
  EXPECT_EQ(to_utf8(area_r1c1(cell, false, false, CellRef{6, 0})), "R[-2]C[2]");
  EXPECT_EQ(to_utf8(area_r1c1(cell, false, true, CellRef{4, 0})), "RC3");
  Rect cols{0, 1, kLastRow, 3};
  EXPECT_EQ(to_utf8(area_a1(cols, true, true)), "$B:$D");
  EXPECT_EQ(to_utf8(area_r1c1(cols, true, true, {})), "C2:C4");
  Rect rows{9, 0, 9, kLastCol};
  EXPECT_EQ(to_utf8(area_a1(rows, false, false)), "10:10");
  EXPECT_EQ(to_utf8(area_r1c1(rows, false, false, CellRef{8, 0})), "R[1]");
  EXPECT_EQ(to_utf8(column_letters(0)), "A");
  EXPECT_EQ(to_utf8(column_letters(25)), "Z");
  EXPECT_EQ(to_utf8(column_letters(26)), "AA");
  EXPECT_EQ(to_utf8(column_letters(kLastCol)), "XFD");
}

TEST(AddressText, QualifiersSplitWithQuotesBooksAndPaths) {
  auto q = split_qualifier(u"'It''s here'!B2");
  EXPECT_EQ(to_utf8(q.sheet), "It's here");
  EXPECT_EQ(to_utf8(q.rest), "B2");
  q = split_qualifier(u"[Book 1.xlsx]Data!Total");
  EXPECT_EQ(to_utf8(q.workbook), "Book 1.xlsx");
  EXPECT_EQ(to_utf8(q.sheet), "Data");
  EXPECT_EQ(to_utf8(q.rest), "Total");
  q = split_qualifier(u"'C:\\Models\\[Plan.xlsx]Q1 Sales'!A1:B2");
  EXPECT_EQ(to_utf8(q.workbook), "Plan.xlsx");
  EXPECT_EQ(to_utf8(q.sheet), "Q1 Sales");
  q = split_qualifier(u"A1");
  EXPECT_TRUE(q.sheet.empty());
  EXPECT_EQ(to_utf8(q.rest), "A1");
  EXPECT_THROW(split_qualifier(u"'Open!A1"), Error);
  EXPECT_THROW(split_qualifier(u"'Sheet'A1"), Error);
  EXPECT_THROW(split_qualifier(u"[Book.xlsx Sheet!A1"), Error);
  auto parts = split_union(u"A1,'x,y'!B2,[a,b]S!C3");
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_EQ(to_utf8(parts[1]), "'x,y'!B2");
}

TEST(AddressText, SheetNamesQuotedWhenTheyWouldBeMisread) {
  for (const char* plain : {"Sheet1", "Data_2024", "Q1.Plan", "Übersicht", "RC2X"})
    EXPECT_FALSE(sheet_needs_quotes(u16(plain))) << plain;
  for (const char* quoted :
       {"My Sheet", "2024", "A1", "ab12", "R", "C", "R2C3", "R5", "C12", "a-b", "x(1)", "TRUE", ""})
    EXPECT_TRUE(sheet_needs_quotes(u16(quoted))) << quoted;
  EXPECT_EQ(to_utf8(sheet_prefix(u"It's")), "'It''s'!");
  EXPECT_EQ(to_utf8(sheet_prefix(u"Data")), "Data!");
}

TEST(AddressText, UnionJoinsEdgesNotOverlaps) {
  auto join = [](std::vector<Rect> areas) {
    join_areas(areas);
    std::string out;
    for (const Rect& r : areas) out += (out.empty() ? "" : ",") + to_utf8(area_a1(r, false, false));
    return out;
  };
  // A1 B1 / A2 B2 in any order close into one block.
  EXPECT_EQ(join({{0, 0, 0, 0}, {1, 1, 1, 1}, {0, 1, 0, 1}, {1, 0, 1, 0}}), "A1:B2");
  // Side by side blocks of equal height join; unequal ones do not.
  EXPECT_EQ(join({{0, 0, 2, 1}, {0, 2, 2, 2}}), "A1:C3");
  EXPECT_EQ(join({{0, 0, 2, 1}, {0, 2, 1, 2}}), "A1:B3,C1:C2");
  // Overlapping blocks of the same columns join; crossing ones stay as written.
  EXPECT_EQ(join({{0, 0, 4, 0}, {3, 0, 9, 0}}), "A1:A10");
  EXPECT_EQ(join({{0, 0, 1, 1}, {1, 1, 2, 2}}), "A1:B2,B2:C3");
  // A gap keeps areas apart; a contained area disappears whatever its position.
  EXPECT_EQ(join({{0, 0, 0, 0}, {2, 0, 2, 0}}), "A1,A3");
  EXPECT_EQ(join({{1, 1, 1, 1}, {0, 0, 5, 5}, {9, 9, 9, 9}}), "A1:F6,J10");
  // Whole columns join into wider whole columns.
  EXPECT_EQ(join({{0, 0, kLastRow, 0}, {0, 1, kLastRow, 1}}), "A:B");
}

}  // namespace
}  // namespace qz::engine
