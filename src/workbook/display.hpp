// Listings of a client's keys, macros and hot keys in a worksheet.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Listings of a client's keys, macros and hot keys in a worksheet.
class iDisplay final : public _iDisplay {
 public:
  String type_name() const override { return u"iDisplay"; }
  void DisplayKeyArray(const Variant& vKeyArray, const host::WorksheetPtr& vWks, const String& vTopLabel) override;
  void DisplayMacroArray(const Variant& vMacroArray, const host::WorksheetPtr& vWks, const String& vTopLabel) override;
  void DisplayHotKeyArray(const Variant& vHotKeyArray, const host::WorksheetPtr& vWks, const String& vTopLabel) override;
};

}  // namespace qz
