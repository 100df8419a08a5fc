// Cell and range services: classification, navigation, addresses, tags, character runs, copying.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Cell and range services: classification, navigation, addresses, tags, character runs, copying.
class iRange final : public _iRange {
 public:
  String type_name() const override { return u"iRange"; }
  QZCellType CellType(const host::RangePtr& vRange) override;
  bool IsInput(const host::RangePtr& vCell) override;
  host::RangePtr QZSelection() override;
  host::RangePtr NextLeft(const host::RangePtr& vCell) override;
  host::RangePtr NextRight(const host::RangePtr& vCell) override;
  host::RangePtr NextUp(const host::RangePtr& vCell) override;
  host::RangePtr NextDown(const host::RangePtr& vCell) override;
  host::RangePtr LastCellInRange(const host::RangePtr& vRange, bool* bByRow) override;
  host::RangePtr FromHereLeft(const host::RangePtr& vCell, bool bExcludeMe) override;
  host::RangePtr FromHereRight(const host::RangePtr& vCell, bool bExcludeMe) override;
  host::RangePtr FromHereUp(const host::RangePtr& vCell, bool bExcludeMe) override;
  host::RangePtr FromHereDown(const host::RangePtr& vCell, bool bExcludeMe) override;
  String SplitRange(const String& vRangeString, std::vector<String>& rPieces,
                    int32_t* rLenAdjustment, bool vExclSheetName) override;
  String MergeRanges(const String& vSequenceString, int32_t* rLenAdjustment) override;
  host::RangePtr RefRange(const host::WorkbookPtr& vWkb, const String& vSheetLevelAddr) override;
  host::RangePtr RangeFromAddr(const host::ApplicationPtr& vXL, const String& vWkbName,
                               const String& vSheetLevelAddr) override;
  void RangeActivate(const host::RangePtr& vRange) override;
  String RangeNameFriendly(const host::NamePtr& vXLName, const String& vFullName) override;
  host::RangePtr AdjustedRange(const host::RangePtr& vOrig) override;
  String FindQZTag(const host::RangePtr& vCell, const String& vStart, int32_t vStartLen,
                   const String& vEnd, int32_t vEndLen, bool vLookForRangeNames) override;
  String FindSpecificQZTag(const host::RangePtr& vCell, const String& vStart, int32_t vStartLen,
                           const String& vEnd, int32_t vEndLen) override;
  String SrchForQZTag(const host::RangePtr& vCell, const String& vStart, int32_t vStartLen,
                      const String& vEnd, int32_t vEndLen) override;
  String SrchForQZCellTag(const host::RangePtr& vCell, const String& vStart, int32_t vStartLen,
                          const String& vEnd, int32_t vEndLen) override;
  bool AssignRangeTag(const host::RangePtr& vRange, String& rQZWksName, String& rLandmark,
                      const String& vDirtyTagName, bool* rDidCreate) override;
  host::RangePtr RangeFromLandmark(const host::WorkbookPtr& vWkb, const String& vLandmark,
                                   const String& vQZWksName, const Variant& vWksName) override;
  void EraseNamesInRange(const host::RangePtr& vRange) override;
  Variant ExtractChrFontNames(const host::RangePtr& vCell) override;
  Variant ExtractChrFontStyles(const host::RangePtr& vCell) override;
  Variant ExtractChrFontSizes(const host::RangePtr& vCell) override;
  Variant ExtractChrUnderlines(const host::RangePtr& vCell) override;
  Variant ExtractChrColorIndices(const host::RangePtr& vCell) override;
  Variant ExtractChrScripts(const host::RangePtr& vCell) override;
  Variant ExtractChrStrikethroughs(const host::RangePtr& vCell) override;
  void InfuseChrFontNames(const host::RangePtr& vCell, const Variant& vChrFontNames) override;
  void InfuseChrFontStyles(const host::RangePtr& vCell, const Variant& vChrFontStyles) override;
  void InfuseChrFontSizes(const host::RangePtr& vCell, const Variant& vChrFontSizes) override;
  void InfuseChrUnderlines(const host::RangePtr& vCell, const Variant& vChrUnderlines) override;
  void InfuseChrColorIndices(const host::RangePtr& vCell, const Variant& vChrColorIndices) override;
  void InfuseChrScripts(const host::RangePtr& vCell, const Variant& vChrScripts) override;
  void InfuseChrStrikethroughs(const host::RangePtr& vCell,
                               const Variant& vChrStrikethroughs) override;
  void ExtractChrProperties(const host::RangePtr& vCell, Variant* rChrFontNames,
                            Variant* rChrFontStyles, Variant* rChrFontSizes,
                            Variant* rChrUnderlines, Variant* rChrColorIndices,
                            Variant* rChrScripts, Variant* rChrStrikethroughs) override;
  void InfuseChrProperties(const host::RangePtr& vCell, const Variant& vChrFontNames,
                           const Variant& vChrFontStyles, const Variant& vChrFontSizes,
                           const Variant& vChrUnderlines, const Variant& vChrColorIndices,
                           const Variant& vChrScripts, const Variant& vChrStrikethroughs) override;
  void TransferFormat(const host::RangePtr& vCopyToCell,
                      const host::RangePtr& vCopyFromCell) override;
  void CopyRowColAttrs(const host::RangePtr& vFrom, const host::RangePtr& vTo) override;
  host::RangePtr PasteRange(const host::RangePtr& vTopLeft,
                            const host::RangePtr& vCopyRange) override;
  void CopyNoFmlas(const host::RangePtr& vFrom, const host::RangePtr& vTo, bool vBlackFonts,
                   bool vRemoveOSBorder) override;
  bool CopyRangeToBmpFile(const host::RangePtr& vRange, const String& vFileFullName) override;
  bool TakeRangePicture(const host::RangePtr& vRange) override;
  void RestoreOSBorders(const host::RangePtr& vRange, const Variant& vBorders) override;
  void RemoveSelOSBorders(const host::RangePtr& vRange, bool vClearLeft, bool vClearTop,
                          bool vClearRight, bool vClearBottom) override;
  Variant CommonOSBorders(const host::RangePtr& vRange) override;
  void MakeBlackFonts(const host::RangePtr& vRange) override;
  bool ExportRangeToFile(const host::RangePtr& vRange, const String& vFileFullName) override;
};

}  // namespace qz
