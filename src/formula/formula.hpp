// The formula tokenizer and formula rewriting.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// The formula tokenizer and formula rewriting.
class iFormula final : public _iFormula {
 public:
  String type_name() const override { return u"iFormula"; }
  void ParseCellFormula(String& rFormula, FmlaPieces& rPieces, bool bTrimPieces,
                        bool bReplaceRangesInFormula) override;
  void ParseCellFormulaR1C1(String& rFormula, FmlaPieces& rPieces, bool bTrimPieces,
                            bool bReplaceRangesInFormula) override;
  String MergeRangesInSumFormula(const String& vFormula) override;
  String AdjustR1C1Fmla(const String& vFmla, int32_t vRowAdj, int32_t vColAdj) override;
};

}  // namespace qz
