#include "workbook/display.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

void iDisplay::DisplayKeyArray(const Variant&, const host::WorksheetPtr&, const String&) {}  // STUB
void iDisplay::DisplayMacroArray(const Variant&, const host::WorksheetPtr&, const String&) {}  // STUB
void iDisplay::DisplayHotKeyArray(const Variant&, const host::WorksheetPtr&, const String&) {}  // STUB

}  // namespace qz
