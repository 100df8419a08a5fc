// Form-control layout and validation.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Serves the dialog forms of client products: where the next control goes on a form built
/// at run time, removing a container's controls, validating whole-number entries with a
/// message to the person, read-only text boxes, splitting a multi-line text box into
/// entries, and reading a reference-edit box as a range. Form objects are reached late-bound.
class iControl final : public _iControl {
 public:
  String type_name() const override { return u"iControl"; }
  /// The Top for the next control: `vTopMargin` in an empty container, else below the last
  /// control (`Top` + `Height` + `vXSpace`), or level with it when `bSameLevel`; plus four
  /// times `vLabelAdjust` either way. 0 for Nothing or a container without controls.
  int32_t NextControlTop(const ObjectPtr& vFormOrFrame, bool bSameLevel, int32_t vXSpace,
                         int32_t vLabelAdjust, int32_t vTopMargin) override;
  /// The Left for the next control: right of the last one when `bSameLevel`; for a new row
  /// the margin, plus `vXSpace` unless that is the default 4.
  int32_t NextControlLeft(const ObjectPtr& vFormOrFrame, bool bSameLevel, int16_t vXSpace,
                          int32_t vLeftMargin) override;
  /// Removes every control of the form or frame.
  void DeleteControls(const ObjectPtr& vFormOrFrame) override;
  /// The range the box's text names, or Nothing (see the checks in control.cpp).
  host::RangePtr RefEditRange(const ObjectPtr& vRefEdit, const host::WorksheetPtr& vWks,
                              const Variant& bSimpleAbort, host::WorkbookPtr* vWkb,
                              const String& vMsgBoxCaption) override;
  /// Whether the box holds a whole number within the limits; with `vNumName` given, a refused
  /// entry is explained in a message and selected for retyping.
  bool IsValidNumber(const ObjectPtr& vTextbox, const String& vNumName, int32_t vUpperLimit,
                     bool vAllowNegative, const ObjectPtr& vMultiPage, int32_t vPage,
                     const String& vMsgBoxCaption) override;
  /// The entries of a multi-line text box's text, one per non-blank line.
  void ParseTextbox(const String& vTextboxString, std::vector<String>& rEntries) override;
  /// Shows `vText` in the box and makes it a read-only display with `vBackColor`.
  void SetLockedText(const ObjectPtr& vTextbox, const String& vText, int32_t vBackColor) override;
};

}  // namespace qz
