#include "autocolor/autocolor.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

void iAutoColor::AutoColorCell(const host::RangePtr&, bool, bool) {}  // STUB
void iAutoColor::UpdateCtrlEnter(bool, const Variant&) {}  // STUB
void iAutoColor::RunAutoColor() {}  // STUB
void iAutoColor::AutoColorRangeOnEntry(const host::RangePtr&) {}  // STUB
void iAutoColor::AutoColorRange(const host::RangePtr&, const String&, bool*) {}  // STUB
void iAutoColor::AutoColorSheet(const host::WorksheetPtr&, bool) {}  // STUB
void iAutoColor::AutoColorWorkbook(const host::WorkbookPtr&) {}  // STUB
bool iAutoColor::AutoColorOn() { return {}; }  // STUB
bool iAutoColor::SetAutoColorOn(const Variant&) { return {}; }  // STUB
bool iAutoColor::AutoColorHyperlinks() { return {}; }  // STUB
bool iAutoColor::SetAutoColorHyperlinks(const Variant&) { return {}; }  // STUB
bool iAutoColor::AutoColorText() { return {}; }  // STUB
bool iAutoColor::SetAutoColorText(const Variant&) { return {}; }  // STUB
bool iAutoColor::AutoColorDates() { return {}; }  // STUB
bool iAutoColor::SetAutoColorDates(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::InputColor() { return {}; }  // STUB
int32_t iAutoColor::SetInputColor(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::PartialInputColor() { return {}; }  // STUB
int32_t iAutoColor::SetPartialInputColor(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::FormulaColor() { return {}; }  // STUB
int32_t iAutoColor::SetFormulaColor(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::WksLinkColor() { return {}; }  // STUB
int32_t iAutoColor::SetWksLinkColor(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::WkbLinkColor() { return {}; }  // STUB
int32_t iAutoColor::SetWkbLinkColor(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::HyperlinkColor() { return {}; }  // STUB
int32_t iAutoColor::SetHyperlinkColor(const Variant&) { return {}; }  // STUB
int32_t iAutoColor::DummyNumberColor() { return {}; }  // STUB
int32_t iAutoColor::SetDummyNumberColor(const Variant&) { return {}; }  // STUB
bool iAutoColor::ToggleAutoColor() { return {}; }  // STUB
String iAutoColor::NoAutoColorSmartCycleName() { return {}; }  // STUB
host::CommandBarControlPtr iAutoColor::CreateAutoColorMenuBtn(const Variant&, const Variant&, const Variant&, const Variant&) { return {}; }  // STUB
host::CommandBarControlPtr iAutoColor::CreateAutoColorSelectionMenuBtn(const Variant&, const Variant&, const Variant&, const Variant&) { return {}; }  // STUB
host::CommandBarControlPtr iAutoColor::CreateAutoColorSheetMenuBtn(const Variant&, const Variant&, const Variant&, const Variant&) { return {}; }  // STUB
host::CommandBarControlPtr iAutoColor::CreateAutoColorWkbMenuBtn(const Variant&, const Variant&, const Variant&, const Variant&) { return {}; }  // STUB
void iAutoColor::DeleteAutoColorMenuBtns() {}  // STUB
void iAutoColor::DeleteAutoColorSelectionMenuBtns() {}  // STUB
void iAutoColor::DeleteAutoColorSheetMenuBtns() {}  // STUB
void iAutoColor::DeleteAutoColorWkbMenuBtns() {}  // STUB
void iAutoColor::ClearFormatMenu() {}  // STUB
void iAutoColor::UpdateAutoColorMenuBtns(const Variant&) {}  // STUB

}  // namespace qz
