// Workbook services: opening and state, name housekeeping, add-ins, templates.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Workbook services: opening and state, name housekeeping, add-ins, templates.
class iWorkbook final : public _iWorkbook {
 public:
  String type_name() const override { return u"iWorkbook"; }
  host::WorkbookPtr OpenWkbFromUser(const String& vDefFileName, const String& vDefFilePath,
                                    bool vPromptOnOpen) override;
  bool IsOpen(const host::WorkbookPtr& vWkb, const String& vWkbName) override;
  String GetWkbCodeName(const host::WorkbookPtr& vWkb) override;
  void ShowNames(const host::WorkbookPtr& vWkb, bool bOnlyQZNames, const String& vBQZTag) override;
  void HideNames(const host::WorkbookPtr& vWkb, bool bOnlyQZNames, const String& vBQZTag) override;
  void DeleteNames(const host::WorkbookPtr& vWkb, bool bOnlyQZNames,
                   const String& vBQZTag) override;
  void CleanUpNames(const host::WorkbookPtr& vWkb) override;
  int32_t ColorIndexFromColor(int32_t vColor, const host::WorkbookPtr& vWkb) override;
  bool InAddInCollection(const String& vAddInName) override;
  String GetTitle(const String& vAddInName) override;
  bool InstallAddIn(const String& vFullName) override;
  bool ExcelIsReady() override;
  String StripWkbName(const String& vString, String* rWkbName) override;
  bool WkbIsHidden(const host::WorkbookPtr& vWkb) override;
  host::WorkbookPtr GetWkb(const host::ApplicationPtr& vApp, const String& vWkbName,
                           const String& vPath, bool vReadOnly, bool* rOpened, bool* rConflict,
                           String* rBlankName, int32_t* rXLCalc, bool* rXLAlerts, bool* rXLSaveCalc,
                           bool* rChangedCalcs, const Variant& vEditable) override;
  void RestoreDefaultTemplate(const String& vFileName) override;
  String SyncTemplate(const String& vFromXLTPath, const String& vFromXLTName) override;
  Variant WkbCustomNumFormats(const host::WorkbookPtr& vWkb) override;
  bool SetWksCount(const host::WorkbookPtr& vWkb, int32_t vWksCount) override;
};

}  // namespace qz
