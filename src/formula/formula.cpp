#include "formula/formula.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

void iFormula::ParseCellFormula(String&, FmlaPieces&, bool, bool) {}  // STUB
void iFormula::ParseCellFormulaR1C1(String&, FmlaPieces&, bool, bool) {}  // STUB
String iFormula::MergeRangesInSumFormula(const String&) { return {}; }  // STUB
String iFormula::AdjustR1C1Fmla(const String&, int32_t, int32_t) { return {}; }  // STUB

}  // namespace qz
