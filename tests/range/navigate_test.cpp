// Navigation against the engine.
#include "library_fixture.hpp"

namespace qz::test {
namespace {

using Navigate = LibraryTest;

TEST_F(Navigate, NextFindsTheNearestFilledCellOrNothing) {
  for (const char* a : {"C3", "C7", "F3"}) put(a, "x");
  EXPECT_EQ(addr(ranges->NextDown(r("C3"))), "C7");
  EXPECT_EQ(addr(ranges->NextUp(r("C7"))), "C3");
  EXPECT_EQ(addr(ranges->NextLeft(r("F3"))), "C3");
  // A filled neighbour is the answer even from an empty cell.
  EXPECT_EQ(addr(ranges->NextRight(r("B3"))), "C3");
  EXPECT_EQ(addr(ranges->NextRight(r("F3"))), "(nothing)");
  EXPECT_EQ(addr(ranges->NextLeft(r("A5"))), "(nothing)");  // the sheet's edge
  put("A6", "x");                                           // on another row: no neighbour
  EXPECT_EQ(addr(ranges->NextLeft(r("B5"))), "(nothing)");
  EXPECT_EQ(addr(ranges->NextUp(r("D1"))), "(nothing)");

  // The neighbour itself, next to the sheet's edge and in front of a further filled cell.
  for (const char* a : {"D1", "A9", "C8", "G3"}) put(a, "x");
  EXPECT_EQ(addr(ranges->NextUp(r("D2"))), "D1");
  EXPECT_EQ(addr(ranges->NextLeft(r("B9"))), "A9");
  EXPECT_EQ(addr(ranges->NextDown(r("C6"))), "C7");
  EXPECT_EQ(addr(ranges->NextRight(r("E3"))), "F3");
}

TEST_F(Navigate, LastCellInRangeKeepsTheEarlierAreaOnATie) {
  bool by_row = true;
  EXPECT_EQ(addr(ranges->LastCellInRange(r("A1:B2,D1:D2"), &by_row)), "B2");
  by_row = false;
  EXPECT_EQ(addr(ranges->LastCellInRange(r("A1:B2,D1:D2"), &by_row)), "D2");
  EXPECT_EQ(addr(ranges->LastCellInRange(r("A1:B2,A5"), nullptr)), "A5");
}

TEST_F(Navigate, FromHereStripsReachTheSheetsEdges) {
  EXPECT_EQ(addr(ranges->FromHereLeft(r("C5"), false)), "A5:C5");
  EXPECT_EQ(addr(ranges->FromHereLeft(r("A5"), false)), "A5");
  EXPECT_EQ(addr(ranges->FromHereLeft(r("A5"), true)), "(nothing)");
  EXPECT_EQ(addr(ranges->FromHereUp(r("C5:D9"), true)), "C1:C4");
  EXPECT_EQ(addr(ranges->FromHereRight(r("C5"), true)), "D5:XFD5");
  EXPECT_EQ(addr(ranges->FromHereDown(r("C5"), false)), "C5:C1048576");
  EXPECT_EQ(addr(ranges->FromHereDown(r("A1048576"), true)), "(nothing)");
}

TEST_F(Navigate, QZSelectionIsTheSelectionsUsedPart) {
  put("B2", "1");
  put("D4", "1");
  r("C3:F9")->select();
  EXPECT_EQ(addr(ranges->QZSelection()), "C3:D4");
  r("H1:H2")->select();
  EXPECT_EQ(addr(ranges->QZSelection()), "(nothing)");
}

}  // namespace
}  // namespace qz::test
