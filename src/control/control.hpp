// Form-control layout and validation.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Form-control layout and validation.
class iControl final : public _iControl {
 public:
  String type_name() const override { return u"iControl"; }
  int32_t NextControlTop(const ObjectPtr& vFormOrFrame, bool bSameLevel, int32_t vXSpace, int32_t vLabelAdjust, int32_t vTopMargin) override;
  int32_t NextControlLeft(const ObjectPtr& vFormOrFrame, bool bSameLevel, int16_t vXSpace, int32_t vLeftMargin) override;
  void DeleteControls(const ObjectPtr& vFormOrFrame) override;
  host::RangePtr RefEditRange(const ObjectPtr& vRefEdit, const host::WorksheetPtr& vWks, const Variant& bSimpleAbort, host::WorkbookPtr* vWkb, const String& vMsgBoxCaption) override;
  bool IsValidNumber(const ObjectPtr& vTextbox, const String& vNumName, int32_t vUpperLimit, bool vAllowNegative, const ObjectPtr& vMultiPage, int32_t vPage, const String& vMsgBoxCaption) override;
  void ParseTextbox(const String& vTextboxString, std::vector<String>& rEntries) override;
  void SetLockedText(const ObjectPtr& vTextbox, const String& vText, int32_t vBackColor) override;
};

}  // namespace qz
