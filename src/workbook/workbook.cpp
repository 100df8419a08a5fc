#include "workbook/workbook.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

host::WorkbookPtr iWorkbook::OpenWkbFromUser(const String&, const String&, bool) { return {}; }  // STUB
bool iWorkbook::IsOpen(const host::WorkbookPtr&, const String&) { return {}; }  // STUB
String iWorkbook::GetWkbCodeName(const host::WorkbookPtr&) { return {}; }  // STUB
int32_t iWorkbook::ColorIndexFromColor(int32_t, const host::WorkbookPtr&) { return {}; }  // STUB
bool iWorkbook::InAddInCollection(const String&) { return {}; }  // STUB
String iWorkbook::GetTitle(const String&) { return {}; }  // STUB
bool iWorkbook::InstallAddIn(const String&) { return {}; }  // STUB
bool iWorkbook::ExcelIsReady() { return {}; }  // STUB
String iWorkbook::StripWkbName(const String&, String*) { return {}; }  // STUB
bool iWorkbook::WkbIsHidden(const host::WorkbookPtr&) { return {}; }  // STUB
host::WorkbookPtr iWorkbook::GetWkb(const host::ApplicationPtr&, const String&, const String&, bool, bool*, bool*, String*, int32_t*, bool*, bool*, bool*, const Variant&) { return {}; }  // STUB
void iWorkbook::RestoreDefaultTemplate(const String&) {}  // STUB
String iWorkbook::SyncTemplate(const String&, const String&) { return {}; }  // STUB
Variant iWorkbook::WkbCustomNumFormats(const host::WorkbookPtr&) { return {}; }  // STUB
bool iWorkbook::SetWksCount(const host::WorkbookPtr&, int32_t) { return {}; }  // STUB

}  // namespace qz
