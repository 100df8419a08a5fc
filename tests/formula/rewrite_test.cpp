// Formula rewriting: moving R1C1 references and merging SUM arguments.
#include <gtest/gtest.h>

#include "formula/formula.hpp"
#include "formula/rewrite.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"
#include "range/library_fixture.hpp"

namespace qz {
namespace {

std::string adjust(const char* f, int32_t dr, int32_t dc) {
  return to_utf8(iFormula().AdjustR1C1Fmla(u16(f), dr, dc));
}

TEST(AdjustR1C1Fmla, MovesRelativeReferencesAndDropsZeroOffsets) {
  EXPECT_EQ(adjust("=R[1]C[-1]", 1, 1), "=R[2]C");
  EXPECT_EQ(adjust("=R[1]C[-1]", -1, 0), "=RC[-1]");
  EXPECT_EQ(adjust("=RC", 2, 3), "=R[2]C[3]");
  // Absolute rows and columns stay where they are.
  EXPECT_EQ(adjust("=R1C1", 4, 4), "=R1C1");
  EXPECT_EQ(adjust("=R2C[1]+R[1]C3", 1, 1), "=R2C[2]+R[2]C3");
}

TEST(AdjustR1C1Fmla, OnlyAFinalBareColumnTakesTheColumnOffset) {
  EXPECT_EQ(adjust("=RC:RC", 0, 1), "=RC:RC[1]");
  // Rows have no such restriction: every bare "RC" row moves.
  EXPECT_EQ(adjust("=RC:RC", 1, 0), "=R[1]C:R[1]C");
  EXPECT_EQ(adjust("=SUM(R[-2]C:R[-1]C)", 0, 2), "=SUM(R[-2]C:R[-1]C[2])");
}

TEST(AdjustR1C1Fmla, KeepsSheetPrefixesAndDropsBlanks) {
  EXPECT_EQ(adjust("='My RC'!R[1]C+Data!RC[1]", 1, 1), "='My RC'!R[2]C[1]+Data!R[1]C[2]");
  EXPECT_EQ(adjust("= R[1]C + 1", 1, 0), "=R[2]C+1");
  // Texts, numbers and function names pass through; "R" and "C" in other references do not
  // escape the rule, since every reference piece is adjusted letter by letter.
  EXPECT_EQ(adjust("=IF(RC>0,\"RC\",ROUND(RC,2))", 1, 0), "=IF(R[1]C>0,\"RC\",ROUND(R[1]C,2))");
  EXPECT_EQ(adjust("=SOURCE*2", 1, 0), "=SOUR[1]CE*2");
  EXPECT_EQ(adjust("12", 1, 1), "12");
}

TEST(AdjustR1C1Fmla, AnOffsetThatIsNoNumberKeepsThePreviousOne) {
  EXPECT_EQ(adjust("=R[]C", 1, 0), "=RC");
  EXPECT_EQ(adjust("=R[2]C[]", 1, 1), "=R[3]C[3]");
  EXPECT_EQ(adjust("=R[]C[x]", 0, 0), "=R[]C[x]");  // no offsets: nothing is read
}

TEST(AdjustR1C1Fmla, AnOffsetBeyondSixteenBitsKeepsThePreviousOne) {
  // The first sum overflows with nothing before it, so the offset stays 0 and vanishes.
  EXPECT_EQ(to_utf8(formula::adjust_r1c1_ref(u"R[32767]C", 1, 0)), "RC");
  // Here the row's new offset (5) stands in for the column's failed one.
  EXPECT_EQ(to_utf8(formula::adjust_r1c1_ref(u"R[4]C[32767]", 1, 1)), "R[5]C[5]");
  EXPECT_EQ(to_utf8(formula::adjust_r1c1_ref(u"R[-32767]C", -1, 0)), "R[-32768]C");
}

TEST(MergeRangesInSumFormula, LeavesFormulasWithoutAnUpperCaseSumAlone) {
  iFormula f;
  EXPECT_EQ(f.MergeRangesInSumFormula(u"=A1+A2+A3"), u"=A1+A2+A3");
  EXPECT_EQ(f.MergeRangesInSumFormula(u"=sum(A1,A2)"), u"=sum(A1,A2)");
  EXPECT_EQ(f.MergeRangesInSumFormula(u"SUM(A1,A2)"), u"SUM(A1,A2)");
}

class MergeSums : public test::LibraryTest {
 protected:
  std::string merge(const char* f) { return to_utf8(iFormula().MergeRangesInSumFormula(u16(f))); }
};

TEST_F(MergeSums, MergesTheArgumentsOfEachSum) {
  wb->worksheets()->add()->set_name(u"Data");
  EXPECT_EQ(merge("=SUM(A1,A2,A3)"), "=SUM(A1:A3)");
  EXPECT_EQ(merge("=SUM(A1,A2)+SUM(B1,B2)/2"), "=SUM(A1:A2)+SUM(B1:B2)/2");
  EXPECT_EQ(merge("=SUM(Data!A1,Data!A2)"), "=SUM(Data!A1:A2)");
  // Already merged: nothing changes.
  EXPECT_EQ(merge("=SUM(A1:A3)"), "=SUM(A1:A3)");
  // Every occurrence of the argument text is replaced, wherever it stands.
  EXPECT_EQ(merge("=SUM(A1,A2)*SUM(A1,A2)"), "=SUM(A1:A2)*SUM(A1:A2)");
}

TEST_F(MergeSums, ASumThatCannotBeMergedKeepsItsArgumentsAndTheNextOnesAreMerged) {
  // The first ")" ends the arguments, here "A1,MAX(A2,A3": no union can be made of them.
  EXPECT_EQ(merge("=SUM(A1,MAX(A2,A3),A4)+SUM(C1,C2)"), "=SUM(A1,MAX(A2,A3),A4)+SUM(C1:C2)");
  EXPECT_EQ(merge("=SUM(A1,A2)+SUM(1,2)+SUM(B1,B2)"), "=SUM(A1:A2)+SUM(1,2)+SUM(B1:B2)");
  EXPECT_EQ(merge("=SUM(A1,-A2)+SUM(B1,+B2)"), "=SUM(A1,-A2)+SUM(B1:B2)");
  // A SUM inside a SUM starts the arguments again, and the first ")" closes both.
  EXPECT_EQ(merge("=SUM(A1,SUM(B1,B2),C3)"), "=SUM(A1,SUM(B1:B2),C3)");
  // Without the session's services the first SUM ends the rewrite, and nothing changes.
  frame::session().LibRange = nullptr;
  EXPECT_EQ(merge("=SUM(A1,A2)"), "=SUM(A1,A2)");
}

}  // namespace
}  // namespace qz
