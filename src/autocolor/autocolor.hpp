// AutoColor: colour-coding cells by what they hold.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "qzxl/interfaces.hpp"

namespace qz {

namespace autocolor {
class Knobs;
class NameLinks;
}  // namespace autocolor

/// AutoColor: colour-coding cells by what they hold. The settings live in the user's
/// settings store, not in the object; the object keeps only the menu buttons it made.
class iAutoColor final : public _iAutoColor {
 public:
  String type_name() const override { return u"iAutoColor"; }
  void AutoColorCell(const host::RangePtr& vCell, bool vDoUndo, bool vDoNames) override;
  void UpdateCtrlEnter(bool vCtrlEnter, const Variant& vCtrlShiftEnter) override;
  void RunAutoColor() override;
  void AutoColorRangeOnEntry(const host::RangePtr& vRange) override;
  void AutoColorRange(const host::RangePtr& vRange, const String& vName, bool* rDoNames) override;
  void AutoColorSheet(const host::WorksheetPtr& vWks, bool vShowMsg) override;
  void AutoColorWorkbook(const host::WorkbookPtr& vWkb) override;
  bool AutoColorOn() override;
  bool SetAutoColorOn(const Variant& vAutoColorOn) override;
  bool AutoColorHyperlinks() override;
  bool SetAutoColorHyperlinks(const Variant& vAutoColorHyperlinks) override;
  bool AutoColorText() override;
  bool SetAutoColorText(const Variant& vAutoColorText) override;
  bool AutoColorDates() override;
  bool SetAutoColorDates(const Variant& vAutoColorDates) override;
  int32_t InputColor() override;
  int32_t SetInputColor(const Variant& vInputColor) override;
  int32_t PartialInputColor() override;
  int32_t SetPartialInputColor(const Variant& vPartialInputColor) override;
  int32_t FormulaColor() override;
  int32_t SetFormulaColor(const Variant& vFormulaColor) override;
  int32_t WksLinkColor() override;
  int32_t SetWksLinkColor(const Variant& vWksLinkColor) override;
  int32_t WkbLinkColor() override;
  int32_t SetWkbLinkColor(const Variant& vWkbLinkColor) override;
  int32_t HyperlinkColor() override;
  int32_t SetHyperlinkColor(const Variant& vHyperlinkColor) override;
  int32_t DummyNumberColor() override;
  int32_t SetDummyNumberColor(const Variant& vDummyNumberColor) override;
  bool ToggleAutoColor() override;
  String NoAutoColorSmartCycleName() override;
  host::CommandBarControlPtr CreateAutoColorMenuBtn(const Variant& vPopup,
                                                    const Variant& vBeginGroup,
                                                    const Variant& vBefore,
                                                    const Variant& vFaceID) override;
  host::CommandBarControlPtr CreateAutoColorSelectionMenuBtn(const Variant& vPopup,
                                                             const Variant& vBeginGroup,
                                                             const Variant& vBefore,
                                                             const Variant& vFaceID) override;
  host::CommandBarControlPtr CreateAutoColorSheetMenuBtn(const Variant& vPopup,
                                                         const Variant& vBeginGroup,
                                                         const Variant& vBefore,
                                                         const Variant& vFaceID) override;
  host::CommandBarControlPtr CreateAutoColorWkbMenuBtn(const Variant& vPopup,
                                                       const Variant& vBeginGroup,
                                                       const Variant& vBefore,
                                                       const Variant& vFaceID) override;
  void DeleteAutoColorMenuBtns() override;
  void DeleteAutoColorSelectionMenuBtns() override;
  void DeleteAutoColorSheetMenuBtns() override;
  void DeleteAutoColorWkbMenuBtns() override;
  void ClearFormatMenu() override;
  void UpdateAutoColorMenuBtns(const Variant& vAutoColorOn) override;

 private:
  // The rules of one cell; `names` is a run's matcher (nullptr: walk the names directly).
  void color_cell(const host::RangePtr& cell, bool do_undo, bool do_names, autocolor::Knobs& knobs,
                  autocolor::NameLinks* names);
  // The four kinds of menu button, each with the buttons this object made: on-entry,
  // selection, sheet, workbook.
  enum ButtonKind { kOnEntry, kSelection, kSheet, kWorkbook };
  host::CommandBarControlPtr create_button(ButtonKind kind, const Variant& vPopup,
                                           const Variant& vBeginGroup, const Variant& vBefore,
                                           const Variant& vFaceID);
  void delete_buttons(ButtonKind kind);
  std::array<std::vector<host::CommandBarControlPtr>, 4> buttons_;
};

}  // namespace qz
