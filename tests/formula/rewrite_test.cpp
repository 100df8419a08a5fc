// Formula rewriting: moving R1C1 references and merging SUM arguments.
#include <gtest/gtest.h>

#include <fstream>

#include "formula/formula.hpp"
#include "formula/rewrite.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"
#include "range/library_fixture.hpp"

namespace qz {
namespace {

// The cases are in golden/rewrite_cases.txt, one a line.
class Rewrite : public test::LibraryTest {};

TEST_F(Rewrite, CasesFile) {
  wb->worksheets()->add()->set_name(u"Data");
  ws->activate();
  std::ifstream cases(std::string(QZXL_FORMULA_GOLDEN_DIR) + "/rewrite_cases.txt");
  ASSERT_TRUE(cases);
  int n = 0;
  for (std::string line; std::getline(cases, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> f;
    for (size_t at = 0, bar; at != std::string::npos; at = bar == line.npos ? bar : bar + 3) {
      bar = line.find(" | ", at);
      f.push_back(line.substr(at, bar == line.npos ? bar : bar - at));
    }
    String got;
    if (f[0] == "merge") got = iFormula().MergeRangesInSumFormula(u16(f[1]));
    if (f[0] == "adjust")
      got = iFormula().AdjustR1C1Fmla(u16(f[1]), std::stoi(f[2]), std::stoi(f[3]));
    if (f[0] == "ref") got = formula::adjust_r1c1_ref(u16(f[1]), std::stoi(f[2]), std::stoi(f[3]));
    EXPECT_EQ(to_utf8(got), f.back()) << line;
    ++n;
  }
  EXPECT_GT(n, 30);
  // Without the session's services the first SUM ends the rewrite, and nothing changes.
  frame::session().LibRange = nullptr;
  EXPECT_EQ(iFormula().MergeRangesInSumFormula(u"=SUM(A1,A2)"), u"=SUM(A1,A2)");
}

TEST_F(Rewrite, AfterTheLastProductLeftNothingIsMergedOrSplit) {
  lib->NewProduct(u"Leaving", Variant(true));
  lib->RemoveProduct(u"Leaving");
  EXPECT_EQ(iFormula().MergeRangesInSumFormula(u"=SUM(A1,A2)"), u"=SUM(A1,A2)");
  String formula = u"=SUM(A1:A3)";
  FmlaPieces pieces;
  iFormula().ParseCellFormula(formula, pieces, true, true);
  // The range cannot be expanded without the services: it drops out, its piece stays.
  EXPECT_EQ(formula, u"=SUM()");
  EXPECT_EQ(pieces.at(3).ThePiece, u"A1:A3");
}

}  // namespace
}  // namespace qz
