// The public constants.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Read-only constants: the cell kinds, three named colours, the AutoColor defaults and the
/// application's main window.
class iXLLibConst final : public _iXLLibConst {
 public:
  String type_name() const override { return u"iXLLibConst"; }
  int32_t qzCellUnknown() override { return CellUnknown; }
  int32_t qzCellEmpty() override { return CellEmpty; }
  int32_t qzCellText() override { return CellText; }
  int32_t qzCellBool() override { return CellBool; }
  int32_t qzCellErr() override { return CellErr; }
  int32_t qzCellDate() override { return CellDate; }
  int32_t qzCellDateTime() override { return CellDateTime; }
  int32_t qzCellTime() override { return CellTime; }
  int32_t qzCellNumeric() override { return CellNumeric; }
  int32_t qzDarkGreen() override { return consts::qzDarkGreen; }
  int32_t qzPlum() override { return consts::qzPlum; }
  int32_t qzOrange() override { return consts::qzOrange; }
  bool qzDefaultAutoColorOn() override { return consts::qzDefaultAutoColorOn; }
  bool qzDefaultAutoColorHyperlinks() override { return consts::qzDefaultAutoColorHyperlinks; }
  bool qzDefaultAutoColorText() override { return consts::qzDefaultAutoColorText; }
  bool qzDefaultAutoColorDates() override { return consts::qzDefaultAutoColorDates; }
  int32_t qzDefaultInputColor() override { return consts::qzDefaultInputColor; }
  int32_t qzDefaultPartialInputColor() override { return consts::qzDefaultPartialInputColor; }
  int32_t qzDefaultFormulaColor() override { return consts::qzDefaultFormulaColor; }
  int32_t qzDefaultWksLinkColor() override { return consts::qzDefaultWksLinkColor; }
  int32_t qzDefaultWkbLinkColor() override { return consts::qzDefaultWkbLinkColor; }
  int32_t qzDefaultHyperLinkColor() override { return consts::qzDefaultHyperLinkColor; }
  int32_t qzDefaultDummyNumberColor() override { return consts::qzDefaultDummyNumberColor; }
  /// The first top-level window of class "XLMAIN", whichever instance owns it; 0 when
  /// there is none (always so without the real application).
  int32_t MainExcelWindowHandle() override;
};

}  // namespace qz
