#include "formula/formula.hpp"

#include "formula/tokenizer.hpp"
#include "frame/resume.hpp"

namespace qz {

void iFormula::ParseCellFormula(String& rFormula, FmlaPieces& rPieces, bool bTrimPieces,
                                bool bReplaceRangesInFormula) {
  formula::ParseMode mode;
  mode.trim = bTrimPieces;
  mode.keep_ranges = !bReplaceRangesInFormula;
  step([&] { formula::parse_formula(rFormula, rPieces, mode); });
}

void iFormula::ParseCellFormulaR1C1(String& rFormula, FmlaPieces& rPieces, bool bTrimPieces,
                                    bool bReplaceRangesInFormula) {
  formula::ParseMode mode;
  mode.r1c1 = true;
  mode.trim = bTrimPieces;
  mode.keep_ranges = !bReplaceRangesInFormula;
  step([&] { formula::parse_formula(rFormula, rPieces, mode); });
}

}  // namespace qz
