#include "workbook/worksheet.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

host::RangePtr iWorksheet::QZUsedRange(const host::WorksheetPtr&) { return {}; }  // STUB
void iWorksheet::NameWorksheet(const host::WorksheetPtr&, const String&) {}  // STUB
String iWorksheet::StripWksName(const String&, String*, bool) { return {}; }  // STUB
host::WorksheetPtr iWorksheet::WksFromLandmark(const host::WorkbookPtr&, const String&, const Variant&) { return {}; }  // STUB
String iWorksheet::AssignQZWksName(const host::WorksheetPtr&, const String&) { return {}; }  // STUB

}  // namespace qz
