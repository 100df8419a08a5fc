#include "control/control.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

int32_t iControl::NextControlTop(const ObjectPtr&, bool, int32_t, int32_t, int32_t) { return {}; }  // STUB
int32_t iControl::NextControlLeft(const ObjectPtr&, bool, int16_t, int32_t) { return {}; }  // STUB
void iControl::DeleteControls(const ObjectPtr&) {}  // STUB
host::RangePtr iControl::RefEditRange(const ObjectPtr&, const host::WorksheetPtr&, const Variant&, host::WorkbookPtr*, const String&) { return {}; }  // STUB
bool iControl::IsValidNumber(const ObjectPtr&, const String&, int32_t, bool, const ObjectPtr&, int32_t, const String&) { return {}; }  // STUB
void iControl::ParseTextbox(const String&, std::vector<String>&) {}  // STUB
void iControl::SetLockedText(const ObjectPtr&, const String&, int32_t) {}  // STUB

}  // namespace qz
