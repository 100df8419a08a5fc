// Worksheet identity, safe renaming and per-sheet name housekeeping.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Worksheet identity, safe renaming and per-sheet name housekeeping.
class iWorksheet final : public _iWorksheet {
 public:
  String type_name() const override { return u"iWorksheet"; }
  host::RangePtr QZUsedRange(const host::WorksheetPtr& vWks) override;
  void NameWorksheet(const host::WorksheetPtr& vWks, const String& vName) override;
  void ShowWksNames(const host::WorksheetPtr& vWks, bool bOnlyQZNames,
                    const String& vBQZTag) override;
  void HideWksNames(const host::WorksheetPtr& vWks, bool bOnlyQZNames,
                    const String& vBQZTag) override;
  void DeleteWksNames(const host::WorksheetPtr& vWks, bool bOnlyQZNames,
                      const String& vBQZTag) override;
  String StripWksName(const String& vString, String* rWksName, bool bCleanWksName) override;
  host::WorksheetPtr WksFromLandmark(const host::WorkbookPtr& vWkb, const String& vWksLandmark,
                                     const Variant& vWksName) override;
  String AssignQZWksName(const host::WorksheetPtr& vWks, const String& vDirtyTagName) override;
};

}  // namespace qz
