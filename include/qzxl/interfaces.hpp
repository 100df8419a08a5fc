// The public automation interface: the dual interfaces of the thirteen public classes, with
// their members in slot order. The classes themselves (`iRange` implements `_iRange`, ...)
// live in the library's layers; clients obtain them from the factory `iXLLibPublic`.
//
// Mapping of automation types: String is UTF-16; Booleans are bool (True = -1 at the COM
// boundary); Long is int32_t; optional arguments without a default are Variants that may be
// Missing; optional objects are empty pointers; by-reference results are references, or
// pointers that may be null when the argument is optional. Arrays handed to clients are
// 1-based at the boundary; in C++ they are vectors (element 0 is element 1) or 1-based
// qz::Array values inside Variants.
//
// No member ever throws: a failing step inside a member is skipped, and what could not be
// computed keeps its default (Nothing, "", 0, False).
#pragma once

#include <memory>
#include <vector>

#include "qzxl/host_fwd.hpp"
#include "qzxl/object.hpp"
#include "qzxl/types.hpp"
#include "qzxl/variant.hpp"

namespace qz {

class _iXLLibPublic;
class _iChartXL;
class _iWorkbook;
class _iWorksheet;
class _iControl;
class _iRange;
class _iFormula;
class _iXLLibConst;
class _iMenu;
class _iXLLibProduct;
class _iDisplay;
class _iAutoColor;
class _iUndoRedo;

/// The factory and session entry.
class _iXLLibPublic : public Object {
 public:
  /// Loads the sibling services if an earlier attempt failed; returns this object.
  virtual std::shared_ptr<_iXLLibPublic> NewPublic(String& vName) = 0;
  /// Returns this object.
  virtual std::shared_ptr<_iXLLibPublic> NewQuazel(String& vName) = 0;
  /// Hands the library the application it serves; a later call replaces it.
  virtual void InitXL(const host::ApplicationPtr& vApp) = 0;
  virtual std::shared_ptr<_iAutoColor> NewAutoColor() = 0;
  virtual std::shared_ptr<_iChartXL> NewChartXL() = 0;
  virtual std::shared_ptr<_iXLLibConst> NewConst() = 0;
  virtual std::shared_ptr<_iControl> NewControl() = 0;
  virtual std::shared_ptr<_iDisplay> NewDisplay() = 0;
  virtual std::shared_ptr<_iFormula> NewFormula() = 0;
  virtual std::shared_ptr<_iMenu> NewMenu() = 0;
  /// A new product with that code name; registered when `vRepresentsProduct` is True.
  /// Nothing when `InitXL` has not been called.
  virtual std::shared_ptr<_iXLLibProduct> NewProduct(
      const String& vQZProductCodeName, const Variant& vRepresentsProduct = Variant::missing(),
      const Variant& vFriendlyName = Variant::missing()) = 0;
  /// Terminates the registered product of that code name; an unknown one does nothing.
  virtual void RemoveProduct(const String& vQZProductCodeName) = 0;
  virtual std::shared_ptr<_iRange> NewRange() = 0;
  virtual std::shared_ptr<_iUndoRedo> NewUndoRedo() = 0;
  virtual std::shared_ptr<_iWorkbook> NewWorkbook() = 0;
  virtual std::shared_ptr<_iWorksheet> NewWorksheet() = 0;
};

/// Chart addressing and pictures.
class _iChartXL : public Object {
 public:
  virtual void ChartActivate(const host::ChartPtr& vChart) = 0;
  virtual String ChartAddrSheetLevel(const host::ChartPtr& vChart) = 0;
  virtual String ChartAddrNoBang(const host::ChartPtr& vChart) = 0;
  virtual String ChartNameFriendly(const host::ChartPtr& vChart) = 0;
  virtual String ChartNameNoBang(const host::ChartPtr& vChart) = 0;
  virtual bool IsEmbedded(const host::ChartPtr& vChart) = 0;
  virtual String ChartNameSheetLevel(const host::ChartPtr& vChart) = 0;
  virtual bool RenameChart(const host::ChartPtr& vChart, const String& vNameOnly) = 0;
  virtual bool ChartObjExists(const host::WorkbookPtr& vWkb, const String& vName) = 0;
  virtual bool ChartExists(const host::WorkbookPtr& vWkb, const String& vName) = 0;
  virtual host::ChartPtr RefChart(const host::WorkbookPtr& vWkb, const String& vSheetLevelAddr) = 0;
  virtual host::ChartPtr ChartFromAddr(const host::ApplicationPtr& vXL, const String& vWkbName,
                                       const String& vSheetLevelAddr) = 0;
  /// An ordered collection (of the sibling services) of every chart of the workbook.
  virtual ObjectPtr AllCharts(const host::WorkbookPtr& vWkb) = 0;
  virtual bool TakeChartPicture(const host::ChartPtr& vChart) = 0;
};

/// Workbook services: opening and state, name housekeeping, add-ins and templates.
class _iWorkbook : public Object {
 public:
  virtual host::WorkbookPtr OpenWkbFromUser(const String& vDefFileName = u"",
                                            const String& vDefFilePath = u"",
                                            bool vPromptOnOpen = true) = 0;
  virtual bool IsOpen(const host::WorkbookPtr& vWkb = nullptr, const String& vWkbName = u"") = 0;
  virtual String GetWkbCodeName(const host::WorkbookPtr& vWkb) = 0;
  virtual void ShowNames(const host::WorkbookPtr& vWkb = nullptr, bool bOnlyQZNames = true,
                         const String& vBQZTag = u"_bqz.") = 0;
  virtual void HideNames(const host::WorkbookPtr& vWkb = nullptr, bool bOnlyQZNames = true,
                         const String& vBQZTag = u"_bqz.") = 0;
  virtual void DeleteNames(const host::WorkbookPtr& vWkb = nullptr, bool bOnlyQZNames = true,
                           const String& vBQZTag = u"_bqz.") = 0;
  virtual void CleanUpNames(const host::WorkbookPtr& vWkb = nullptr) = 0;
  virtual int32_t ColorIndexFromColor(int32_t vColor, const host::WorkbookPtr& vWkb = nullptr) = 0;
  virtual bool InAddInCollection(const String& vAddInName) = 0;
  virtual String GetTitle(const String& vAddInName) = 0;
  virtual bool InstallAddIn(const String& vFullName) = 0;
  virtual bool ExcelIsReady() = 0;
  virtual String StripWkbName(const String& vString, String* rWkbName = nullptr) = 0;
  virtual bool WkbIsHidden(const host::WorkbookPtr& vWkb) = 0;
  virtual host::WorkbookPtr GetWkb(const host::ApplicationPtr& vApp, const String& vWkbName,
                                   const String& vPath, bool vReadOnly, bool* rOpened = nullptr,
                                   bool* rConflict = nullptr, String* rBlankName = nullptr,
                                   int32_t* rXLCalc = nullptr, bool* rXLAlerts = nullptr,
                                   bool* rXLSaveCalc = nullptr, bool* rChangedCalcs = nullptr,
                                   const Variant& vEditable = Variant::missing()) = 0;
  virtual void RestoreDefaultTemplate(const String& vFileName) = 0;
  virtual String SyncTemplate(const String& vFromXLTPath, const String& vFromXLTName) = 0;
  virtual Variant WkbCustomNumFormats(const host::WorkbookPtr& vWkb = nullptr) = 0;
  virtual bool SetWksCount(const host::WorkbookPtr& vWkb = nullptr, int32_t vWksCount = 3) = 0;
};

/// Worksheet identity and per-sheet services.
class _iWorksheet : public Object {
 public:
  virtual host::RangePtr QZUsedRange(const host::WorksheetPtr& vWks = nullptr) = 0;
  virtual void NameWorksheet(const host::WorksheetPtr& vWks, const String& vName) = 0;
  virtual void ShowWksNames(const host::WorksheetPtr& vWks = nullptr, bool bOnlyQZNames = true,
                            const String& vBQZTag = u"_bqz.") = 0;
  virtual void HideWksNames(const host::WorksheetPtr& vWks = nullptr, bool bOnlyQZNames = true,
                            const String& vBQZTag = u"_bqz.") = 0;
  virtual void DeleteWksNames(const host::WorksheetPtr& vWks = nullptr, bool bOnlyQZNames = true,
                              const String& vBQZTag = u"_bqz.") = 0;
  virtual String StripWksName(const String& vString, String* rWksName = nullptr,
                              bool bCleanWksName = false) = 0;
  virtual host::WorksheetPtr WksFromLandmark(const host::WorkbookPtr& vWkb,
                                             const String& vWksLandmark,
                                             const Variant& vWksName = Variant::missing()) = 0;
  virtual String AssignQZWksName(const host::WorksheetPtr& vWks, const String& vDirtyTagName) = 0;
};

/// Form-control layout and validation; controls are reached late-bound.
class _iControl : public Object {
 public:
  virtual int32_t NextControlTop(const ObjectPtr& vFormOrFrame, bool bSameLevel = false,
                                 int32_t vXSpace = 4, int32_t vLabelAdjust = 0,
                                 int32_t vTopMargin = 10) = 0;
  virtual int32_t NextControlLeft(const ObjectPtr& vFormOrFrame, bool bSameLevel = false,
                                  int16_t vXSpace = 4, int32_t vLeftMargin = 8) = 0;
  virtual void DeleteControls(const ObjectPtr& vFormOrFrame) = 0;
  virtual host::RangePtr RefEditRange(const ObjectPtr& vRefEdit,
                                      const host::WorksheetPtr& vWks = nullptr,
                                      const Variant& bSimpleAbort = Variant::missing(),
                                      host::WorkbookPtr* vWkb = nullptr,
                                      const String& vMsgBoxCaption = u"Quazel") = 0;
  virtual bool IsValidNumber(const ObjectPtr& vTextbox, const String& vNumName = u"",
                             int32_t vUpperLimit = 0, bool vAllowNegative = false,
                             const ObjectPtr& vMultiPage = nullptr, int32_t vPage = 0,
                             const String& vMsgBoxCaption = u"Quazel") = 0;
  virtual void ParseTextbox(const String& vTextboxString, std::vector<String>& rEntries) = 0;
  virtual void SetLockedText(const ObjectPtr& vTextbox, const String& vText,
                             int32_t vBackColor = -2147483633) = 0;
};

/// Cell and range services.
class _iRange : public Object {
 public:
  // Cell classification.
  virtual QZCellType CellType(const host::RangePtr& vRange) = 0;
  virtual bool IsInput(const host::RangePtr& vCell) = 0;
  // Navigation and selection.
  virtual host::RangePtr QZSelection() = 0;
  virtual host::RangePtr NextLeft(const host::RangePtr& vCell) = 0;
  virtual host::RangePtr NextRight(const host::RangePtr& vCell) = 0;
  virtual host::RangePtr NextUp(const host::RangePtr& vCell) = 0;
  virtual host::RangePtr NextDown(const host::RangePtr& vCell) = 0;
  /// `bByRow` is by reference and optional (null = True).
  virtual host::RangePtr LastCellInRange(const host::RangePtr& vRange, bool* bByRow = nullptr) = 0;
  virtual host::RangePtr FromHereLeft(const host::RangePtr& vCell, bool bExcludeMe = false) = 0;
  virtual host::RangePtr FromHereRight(const host::RangePtr& vCell, bool bExcludeMe = false) = 0;
  virtual host::RangePtr FromHereUp(const host::RangePtr& vCell, bool bExcludeMe = false) = 0;
  virtual host::RangePtr FromHereDown(const host::RangePtr& vCell, bool bExcludeMe = false) = 0;
  // Addresses and references.
  virtual String SplitRange(const String& vRangeString, std::vector<String>& rPieces,
                            int32_t* rLenAdjustment = nullptr, bool vExclSheetName = false) = 0;
  virtual String MergeRanges(const String& vSequenceString, int32_t* rLenAdjustment = nullptr) = 0;
  virtual host::RangePtr RefRange(const host::WorkbookPtr& vWkb, const String& vSheetLevelAddr) = 0;
  virtual host::RangePtr RangeFromAddr(const host::ApplicationPtr& vXL, const String& vWkbName,
                                       const String& vSheetLevelAddr) = 0;
  virtual void RangeActivate(const host::RangePtr& vRange) = 0;
  virtual String RangeNameFriendly(const host::NamePtr& vXLName = nullptr,
                                   const String& vFullName = u"") = 0;
  virtual host::RangePtr AdjustedRange(const host::RangePtr& vOrig) = 0;
  // Tags and landmarks.
  virtual String FindQZTag(const host::RangePtr& vCell, const String& vStart = u"_bqz.",
                           int32_t vStartLen = 5, const String& vEnd = u".eqz", int32_t vEndLen = 4,
                           bool vLookForRangeNames = false) = 0;
  virtual String FindSpecificQZTag(const host::RangePtr& vCell, const String& vStart = u"_bqz.",
                                   int32_t vStartLen = 5, const String& vEnd = u".eqz",
                                   int32_t vEndLen = 4) = 0;
  virtual String SrchForQZTag(const host::RangePtr& vCell, const String& vStart = u"_bqz.",
                              int32_t vStartLen = 5, const String& vEnd = u".eqz",
                              int32_t vEndLen = 4) = 0;
  virtual String SrchForQZCellTag(const host::RangePtr& vCell, const String& vStart = u"_bqz.",
                                  int32_t vStartLen = 5, const String& vEnd = u".eqz",
                                  int32_t vEndLen = 4) = 0;
  virtual bool AssignRangeTag(const host::RangePtr& vRange, String& rQZWksName, String& rLandmark,
                              const String& vDirtyTagName, bool* rDidCreate = nullptr) = 0;
  virtual host::RangePtr RangeFromLandmark(const host::WorkbookPtr& vWkb, const String& vLandmark,
                                           const String& vQZWksName,
                                           const Variant& vWksName = Variant::missing()) = 0;
  virtual void EraseNamesInRange(const host::RangePtr& vRange = nullptr) = 0;
  // Character runs.
  virtual Variant ExtractChrFontNames(const host::RangePtr& vCell) = 0;
  virtual Variant ExtractChrFontStyles(const host::RangePtr& vCell) = 0;
  virtual Variant ExtractChrFontSizes(const host::RangePtr& vCell) = 0;
  virtual Variant ExtractChrUnderlines(const host::RangePtr& vCell) = 0;
  virtual Variant ExtractChrColorIndices(const host::RangePtr& vCell) = 0;
  virtual Variant ExtractChrScripts(const host::RangePtr& vCell) = 0;
  virtual Variant ExtractChrStrikethroughs(const host::RangePtr& vCell) = 0;
  virtual void InfuseChrFontNames(const host::RangePtr& vCell, const Variant& vChrFontNames) = 0;
  virtual void InfuseChrFontStyles(const host::RangePtr& vCell, const Variant& vChrFontStyles) = 0;
  virtual void InfuseChrFontSizes(const host::RangePtr& vCell, const Variant& vChrFontSizes) = 0;
  virtual void InfuseChrUnderlines(const host::RangePtr& vCell, const Variant& vChrUnderlines) = 0;
  virtual void InfuseChrColorIndices(const host::RangePtr& vCell,
                                     const Variant& vChrColorIndices) = 0;
  virtual void InfuseChrScripts(const host::RangePtr& vCell, const Variant& vChrScripts) = 0;
  virtual void InfuseChrStrikethroughs(const host::RangePtr& vCell,
                                       const Variant& vChrStrikethroughs) = 0;
  virtual void ExtractChrProperties(const host::RangePtr& vCell, Variant* rChrFontNames = nullptr,
                                    Variant* rChrFontStyles = nullptr,
                                    Variant* rChrFontSizes = nullptr,
                                    Variant* rChrUnderlines = nullptr,
                                    Variant* rChrColorIndices = nullptr,
                                    Variant* rChrScripts = nullptr,
                                    Variant* rChrStrikethroughs = nullptr) = 0;
  virtual void InfuseChrProperties(const host::RangePtr& vCell,
                                   const Variant& vChrFontNames = Variant::missing(),
                                   const Variant& vChrFontStyles = Variant::missing(),
                                   const Variant& vChrFontSizes = Variant::missing(),
                                   const Variant& vChrUnderlines = Variant::missing(),
                                   const Variant& vChrColorIndices = Variant::missing(),
                                   const Variant& vChrScripts = Variant::missing(),
                                   const Variant& vChrStrikethroughs = Variant::missing()) = 0;
  // Copying and pictures.
  virtual void TransferFormat(const host::RangePtr& vCopyToCell,
                              const host::RangePtr& vCopyFromCell) = 0;
  virtual void CopyRowColAttrs(const host::RangePtr& vFrom, const host::RangePtr& vTo) = 0;
  virtual host::RangePtr PasteRange(const host::RangePtr& vTopLeft,
                                    const host::RangePtr& vCopyRange) = 0;
  virtual void CopyNoFmlas(const host::RangePtr& vFrom, const host::RangePtr& vTo, bool vBlackFonts,
                           bool vRemoveOSBorder) = 0;
  virtual bool CopyRangeToBmpFile(const host::RangePtr& vRange, const String& vFileFullName) = 0;
  virtual bool TakeRangePicture(const host::RangePtr& vRange) = 0;
  virtual void RestoreOSBorders(const host::RangePtr& vRange, const Variant& vBorders) = 0;
  virtual void RemoveSelOSBorders(const host::RangePtr& vRange, bool vClearLeft, bool vClearTop,
                                  bool vClearRight, bool vClearBottom) = 0;
  virtual Variant CommonOSBorders(const host::RangePtr& vRange) = 0;
  virtual void MakeBlackFonts(const host::RangePtr& vRange) = 0;
  virtual bool ExportRangeToFile(const host::RangePtr& vRange, const String& vFileFullName) = 0;
};

/// The formula tokenizer and formula rewriting.
class _iFormula : public Object {
 public:
  virtual void ParseCellFormula(String& rFormula, FmlaPieces& rPieces, bool bTrimPieces = true,
                                bool bReplaceRangesInFormula = true) = 0;
  virtual void ParseCellFormulaR1C1(String& rFormula, FmlaPieces& rPieces, bool bTrimPieces = true,
                                    bool bReplaceRangesInFormula = true) = 0;
  virtual String MergeRangesInSumFormula(const String& vFormula) = 0;
  virtual String AdjustR1C1Fmla(const String& vFmla, int32_t vRowAdj = 0, int32_t vColAdj = 0) = 0;
};

/// Read-only constants.
class _iXLLibConst : public Object {
 public:
  virtual int32_t qzCellUnknown() = 0;
  virtual int32_t qzCellEmpty() = 0;
  virtual int32_t qzCellText() = 0;
  virtual int32_t qzCellBool() = 0;
  virtual int32_t qzCellErr() = 0;
  virtual int32_t qzCellDate() = 0;
  virtual int32_t qzCellDateTime() = 0;
  virtual int32_t qzCellTime() = 0;
  virtual int32_t qzCellNumeric() = 0;
  virtual int32_t qzDarkGreen() = 0;
  virtual int32_t qzPlum() = 0;
  virtual int32_t qzOrange() = 0;
  virtual bool qzDefaultAutoColorOn() = 0;
  virtual bool qzDefaultAutoColorHyperlinks() = 0;
  virtual bool qzDefaultAutoColorText() = 0;
  virtual bool qzDefaultAutoColorDates() = 0;
  virtual int32_t qzDefaultInputColor() = 0;
  virtual int32_t qzDefaultPartialInputColor() = 0;
  virtual int32_t qzDefaultFormulaColor() = 0;
  virtual int32_t qzDefaultWksLinkColor() = 0;
  virtual int32_t qzDefaultWkbLinkColor() = 0;
  virtual int32_t qzDefaultHyperLinkColor() = 0;
  virtual int32_t qzDefaultDummyNumberColor() = 0;
  virtual int32_t MainExcelWindowHandle() = 0;
};

/// Command bars: built-in menus and buttons by control id; new popups, buttons, toolbars.
class _iMenu : public Object {
 public:
  virtual host::CommandBarPtr MainMenuBar() = 0;
  virtual host::CommandBarPtr ChartMenuBar() = 0;
  virtual host::CommandBarPtr ActiveBar(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr FileMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr EditMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr ViewMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr InsertMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr FormatMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr ToolsMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr DataMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr WindowMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr HelpMenu(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr FileNewButton(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr UndoButton(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr RedoButton(bool vChart = false) = 0;
  virtual host::CommandBarControlPtr CreatePopup(const Variant& vPopup,
                                                 const Variant& vCaption = Variant::missing(),
                                                 const Variant& vBeginGroup = Variant::missing(),
                                                 const Variant& vBefore = Variant::missing(),
                                                 const Variant& vOnAction = Variant::missing(),
                                                 bool vTemp = true,
                                                 const Variant& vTag = Variant::missing()) = 0;
  virtual host::CommandBarControlPtr CreateBtn(
      const Variant& vCaption = Variant::missing(), const Variant& vOnAction = Variant::missing(),
      const Variant& vPopup = Variant::missing(), const Variant& vBeginGroup = Variant::missing(),
      const Variant& vBefore = Variant::missing(), const Variant& vFaceID = Variant::missing(),
      bool vTemp = true, const Variant& vShortcutText = Variant::missing(),
      const Variant& vTag = Variant::missing()) = 0;
  virtual host::CommandBarPtr CreateToolbar(const Variant& vName = Variant::missing(),
                                            const Variant& vPosition = Variant::missing(),
                                            bool vTemp = true, bool vVisible = true) = 0;
};

/// One registered client product.
class _iXLLibProduct : public Object {
 public:
  virtual ObjectPtr UndoRedoIF() = 0;
  virtual void putref_UndoRedoIF(const ObjectPtr& vUndoRedoIF) = 0;
  virtual void Terminate() = 0;
  virtual void put_CodeName(const String& vCodeName,
                            const Variant& vRepresentsProduct = Variant::missing()) = 0;
  virtual String CodeName(const Variant& vRepresentsProduct = Variant::missing()) = 0;
  virtual void put_Name(const String& vName) = 0;
  virtual String Name() = 0;
  virtual host::CommandBarControlPtr CreateProductMenu(
      const Variant& vCaption = Variant::missing(), bool vTemporary = true,
      const Variant& vForChart = Variant::missing()) = 0;
  virtual host::CommandBarControlPtr ProductMenu(const Variant& vForChart = Variant::missing()) = 0;
};

/// Listings of a client's keys, macros and hot keys in a worksheet.
class _iDisplay : public Object {
 public:
  virtual void DisplayKeyArray(const Variant& vKeyArray, const host::WorksheetPtr& vWks = nullptr,
                               const String& vTopLabel = u"Quazel") = 0;
  virtual void DisplayMacroArray(const Variant& vMacroArray,
                                 const host::WorksheetPtr& vWks = nullptr,
                                 const String& vTopLabel = u"Quazel") = 0;
  virtual void DisplayHotKeyArray(const Variant& vHotKeyArray,
                                  const host::WorksheetPtr& vWks = nullptr,
                                  const String& vTopLabel = u"Quazel") = 0;
};

/// AutoColor: rules, runs, settings and menu buttons.
class _iAutoColor : public Object {
 public:
  // Rules.
  virtual void AutoColorCell(const host::RangePtr& vCell, bool vDoUndo = true,
                             bool vDoNames = true) = 0;
  // Runs.
  virtual void UpdateCtrlEnter(bool vCtrlEnter = true,
                               const Variant& vCtrlShiftEnter = Variant::missing()) = 0;
  virtual void RunAutoColor() = 0;
  virtual void AutoColorRangeOnEntry(const host::RangePtr& vRange) = 0;
  virtual void AutoColorRange(const host::RangePtr& vRange = nullptr, const String& vName = u"",
                              bool* rDoNames = nullptr) = 0;
  virtual void AutoColorSheet(const host::WorksheetPtr& vWks = nullptr, bool vShowMsg = true) = 0;
  virtual void AutoColorWorkbook(const host::WorkbookPtr& vWkb = nullptr) = 0;
  // Settings.
  virtual bool AutoColorOn() = 0;
  virtual bool SetAutoColorOn(const Variant& vAutoColorOn = Variant::missing()) = 0;
  virtual bool AutoColorHyperlinks() = 0;
  virtual bool SetAutoColorHyperlinks(const Variant& vAutoColorHyperlinks = Variant::missing()) = 0;
  virtual bool AutoColorText() = 0;
  virtual bool SetAutoColorText(const Variant& vAutoColorText = Variant::missing()) = 0;
  virtual bool AutoColorDates() = 0;
  virtual bool SetAutoColorDates(const Variant& vAutoColorDates = Variant::missing()) = 0;
  virtual int32_t InputColor() = 0;
  virtual int32_t SetInputColor(const Variant& vInputColor = Variant::missing()) = 0;
  virtual int32_t PartialInputColor() = 0;
  virtual int32_t SetPartialInputColor(const Variant& vPartialInputColor = Variant::missing()) = 0;
  virtual int32_t FormulaColor() = 0;
  virtual int32_t SetFormulaColor(const Variant& vFormulaColor = Variant::missing()) = 0;
  virtual int32_t WksLinkColor() = 0;
  virtual int32_t SetWksLinkColor(const Variant& vWksLinkColor = Variant::missing()) = 0;
  virtual int32_t WkbLinkColor() = 0;
  virtual int32_t SetWkbLinkColor(const Variant& vWkbLinkColor = Variant::missing()) = 0;
  virtual int32_t HyperlinkColor() = 0;
  virtual int32_t SetHyperlinkColor(const Variant& vHyperlinkColor = Variant::missing()) = 0;
  virtual int32_t DummyNumberColor() = 0;
  virtual int32_t SetDummyNumberColor(const Variant& vDummyNumberColor = Variant::missing()) = 0;
  virtual bool ToggleAutoColor() = 0;
  virtual String NoAutoColorSmartCycleName() = 0;
  // Menu buttons.
  virtual host::CommandBarControlPtr CreateAutoColorMenuBtn(
      const Variant& vPopup, const Variant& vBeginGroup = Variant::missing(),
      const Variant& vBefore = Variant::missing(), const Variant& vFaceID = Variant::missing()) = 0;
  virtual host::CommandBarControlPtr CreateAutoColorSelectionMenuBtn(
      const Variant& vPopup, const Variant& vBeginGroup = Variant::missing(),
      const Variant& vBefore = Variant::missing(), const Variant& vFaceID = Variant::missing()) = 0;
  virtual host::CommandBarControlPtr CreateAutoColorSheetMenuBtn(
      const Variant& vPopup, const Variant& vBeginGroup = Variant::missing(),
      const Variant& vBefore = Variant::missing(), const Variant& vFaceID = Variant::missing()) = 0;
  virtual host::CommandBarControlPtr CreateAutoColorWkbMenuBtn(
      const Variant& vPopup, const Variant& vBeginGroup = Variant::missing(),
      const Variant& vBefore = Variant::missing(), const Variant& vFaceID = Variant::missing()) = 0;
  virtual void DeleteAutoColorMenuBtns() = 0;
  virtual void DeleteAutoColorSelectionMenuBtns() = 0;
  virtual void DeleteAutoColorSheetMenuBtns() = 0;
  virtual void DeleteAutoColorWkbMenuBtns() = 0;
  virtual void ClearFormatMenu() = 0;
  virtual void UpdateAutoColorMenuBtns(const Variant& vAutoColorOn = Variant::missing()) = 0;
};

/// The undo/redo manager; every instance shares the session's two stacks.
class _iUndoRedo : public Object {
 public:
  virtual void Subscribe(const String& vQZProductCodeName, const ObjectPtr& vUndoRedoIF) = 0;
  virtual void SetCustomUndo(const String& vQZClientAppName, const String& vUndoFunctionName,
                             const String& vRedoFunctionName,
                             const String& vUndoRedoDisplayName) = 0;
  virtual void CaptureGenericUndo(const host::RangePtr& vGenericRange,
                                  const String& vUndoRedoDisplayName) = 0;
  virtual void SetGenericUndo() = 0;
  virtual void SetQZUndo() = 0;
  virtual void ClearStacks() = 0;
  virtual void ClearUndoStack() = 0;
  virtual void ClearRedoStack() = 0;
  virtual void QZUndo() = 0;
  virtual void QZRedo() = 0;
};

using iXLLibPublicPtr = std::shared_ptr<_iXLLibPublic>;
using iChartXLPtr = std::shared_ptr<_iChartXL>;
using iWorkbookPtr = std::shared_ptr<_iWorkbook>;
using iWorksheetPtr = std::shared_ptr<_iWorksheet>;
using iControlPtr = std::shared_ptr<_iControl>;
using iRangePtr = std::shared_ptr<_iRange>;
using iFormulaPtr = std::shared_ptr<_iFormula>;
using iXLLibConstPtr = std::shared_ptr<_iXLLibConst>;
using iMenuPtr = std::shared_ptr<_iMenu>;
using iXLLibProductPtr = std::shared_ptr<_iXLLibProduct>;
using iDisplayPtr = std::shared_ptr<_iDisplay>;
using iAutoColorPtr = std::shared_ptr<_iAutoColor>;
using iUndoRedoPtr = std::shared_ptr<_iUndoRedo>;

}  // namespace qz
