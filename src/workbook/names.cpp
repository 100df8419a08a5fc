// Name housekeeping of iWorkbook and iWorksheet: showing, hiding and deleting the library's
// tagged names in bulk, and removing dead names.
#include "host/host.hpp"
#include "workbook/workbook.hpp"
#include "workbook/worksheet.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

void iWorkbook::ShowNames(const host::WorkbookPtr&, bool, const String&) {}  // STUB
void iWorkbook::HideNames(const host::WorkbookPtr&, bool, const String&) {}  // STUB
void iWorkbook::DeleteNames(const host::WorkbookPtr&, bool, const String&) {}  // STUB
void iWorkbook::CleanUpNames(const host::WorkbookPtr&) {}  // STUB

void iWorksheet::ShowWksNames(const host::WorksheetPtr&, bool, const String&) {}  // STUB
void iWorksheet::HideWksNames(const host::WorksheetPtr&, bool, const String&) {}  // STUB
void iWorksheet::DeleteWksNames(const host::WorksheetPtr&, bool, const String&) {}  // STUB

}  // namespace qz
