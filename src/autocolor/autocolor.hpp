// AutoColor: colour-coding cells by what they hold.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <vector>

#include "qzxl/interfaces.hpp"

namespace qz {

namespace autocolor {
class Knobs;
class NameLinks;

/// What the rules made of one cell: the rule that gave its colour, or why it was left alone.
enum class Outcome {
  Input,         ///< a constant, or a formula of typed-in values only
  PartialInput,  ///< a formula mixing references with typed-in values
  Formula,       ///< references only, none leading out of the sheet
  SheetLink,     ///< refers to another sheet
  WorkbookLink,  ///< refers to another workbook
  NamedLink,     ///< refers to another sheet through a defined name
  Hyperlink,     ///< carries a hyperlink
  SkippedText,   ///< text, left alone while text is not coloured
  SkippedDate,   ///< a date or time, left alone while dates are not coloured
  Vetoed,        ///< a client product kept the cell's colour
};
inline constexpr int kOutcomes = 10;

/// Told of every cell `AutoColorCell` and the range runs decide, before its colour is set,
/// so that a program reporting on a run counts what the rules did without repeating them.
class Observer {
 public:
  virtual ~Observer() = default;
  /// `colour` is the colour about to be set; nothing for a cell left as it is.
  virtual void decided(const host::RangePtr& cell, Outcome outcome,
                       std::optional<int32_t> colour) = 0;
  /// Whether `decided` needs the cell as a Range. When not, a run that reads cells in bulk
  /// calls `decided_colour` instead and makes no Range for the observer.
  virtual bool needs_cells() const { return true; }
  /// `colour_before` is the cell's `Font.Color` before the run set it.
  virtual void decided_colour(const Variant& colour_before, Outcome outcome,
                              std::optional<int32_t> colour) {
    (void)colour_before, (void)outcome, (void)colour;
  }
};
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

  /// Installs an observer of the cells this object decides (nullptr: none). Not part of the
  /// automation interface; the observer must outlive the runs it watches.
  void set_observer(autocolor::Observer* observer) { observer_ = observer; }

 private:
  // The rules of one cell; `names` is a run's matcher (nullptr: walk the names directly).
  void color_cell(const host::RangePtr& cell, bool do_undo, bool do_names, autocolor::Knobs& knobs,
                  autocolor::NameLinks* names);
  // A run without names over a host that reads cells in bulk; false when it cannot be had
  // (and then nothing was done). `visited` is told each cell's position in the range.
  bool color_scanned(const host::RangePtr& range, autocolor::Knobs& knobs,
                     const std::function<void(int64_t)>& visited);
  // The four kinds of menu button, each with the buttons this object made: on-entry,
  // selection, sheet, workbook.
  enum ButtonKind { kOnEntry, kSelection, kSheet, kWorkbook };
  host::CommandBarControlPtr create_button(ButtonKind kind, const Variant& vPopup,
                                           const Variant& vBeginGroup, const Variant& vBefore,
                                           const Variant& vFaceID);
  void delete_buttons(ButtonKind kind);
  std::array<std::vector<host::CommandBarControlPtr>, 4> buttons_;
  autocolor::Observer* observer_ = nullptr;
};

}  // namespace qz
