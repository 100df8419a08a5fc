#include "range/range.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

QZCellType iRange::CellType(const host::RangePtr&) { return {}; }  // STUB
bool iRange::IsInput(const host::RangePtr&) { return {}; }  // STUB
host::RangePtr iRange::QZSelection() { return {}; }  // STUB
host::RangePtr iRange::NextLeft(const host::RangePtr&) { return {}; }  // STUB
host::RangePtr iRange::NextRight(const host::RangePtr&) { return {}; }  // STUB
host::RangePtr iRange::NextUp(const host::RangePtr&) { return {}; }  // STUB
host::RangePtr iRange::NextDown(const host::RangePtr&) { return {}; }  // STUB
host::RangePtr iRange::LastCellInRange(const host::RangePtr&, bool*) { return {}; }  // STUB
host::RangePtr iRange::FromHereLeft(const host::RangePtr&, bool) { return {}; }  // STUB
host::RangePtr iRange::FromHereRight(const host::RangePtr&, bool) { return {}; }  // STUB
host::RangePtr iRange::FromHereUp(const host::RangePtr&, bool) { return {}; }  // STUB
host::RangePtr iRange::FromHereDown(const host::RangePtr&, bool) { return {}; }  // STUB
String iRange::SplitRange(const String&, std::vector<String>&, int32_t*, bool) { return {}; }  // STUB
String iRange::MergeRanges(const String&, int32_t*) { return {}; }  // STUB
host::RangePtr iRange::RefRange(const host::WorkbookPtr&, const String&) { return {}; }  // STUB
host::RangePtr iRange::RangeFromAddr(const host::ApplicationPtr&, const String&, const String&) { return {}; }  // STUB
void iRange::RangeActivate(const host::RangePtr&) {}  // STUB
String iRange::RangeNameFriendly(const host::NamePtr&, const String&) { return {}; }  // STUB
host::RangePtr iRange::AdjustedRange(const host::RangePtr&) { return {}; }  // STUB
String iRange::FindQZTag(const host::RangePtr&, const String&, int32_t, const String&, int32_t, bool) { return {}; }  // STUB
String iRange::FindSpecificQZTag(const host::RangePtr&, const String&, int32_t, const String&, int32_t) { return {}; }  // STUB
String iRange::SrchForQZTag(const host::RangePtr&, const String&, int32_t, const String&, int32_t) { return {}; }  // STUB
String iRange::SrchForQZCellTag(const host::RangePtr&, const String&, int32_t, const String&, int32_t) { return {}; }  // STUB
bool iRange::AssignRangeTag(const host::RangePtr&, String&, String&, const String&, bool*) { return {}; }  // STUB
host::RangePtr iRange::RangeFromLandmark(const host::WorkbookPtr&, const String&, const String&, const Variant&) { return {}; }  // STUB
void iRange::EraseNamesInRange(const host::RangePtr&) {}  // STUB
Variant iRange::ExtractChrFontNames(const host::RangePtr&) { return {}; }  // STUB
Variant iRange::ExtractChrFontStyles(const host::RangePtr&) { return {}; }  // STUB
Variant iRange::ExtractChrFontSizes(const host::RangePtr&) { return {}; }  // STUB
Variant iRange::ExtractChrUnderlines(const host::RangePtr&) { return {}; }  // STUB
Variant iRange::ExtractChrColorIndices(const host::RangePtr&) { return {}; }  // STUB
Variant iRange::ExtractChrScripts(const host::RangePtr&) { return {}; }  // STUB
Variant iRange::ExtractChrStrikethroughs(const host::RangePtr&) { return {}; }  // STUB
void iRange::InfuseChrFontNames(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::InfuseChrFontStyles(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::InfuseChrFontSizes(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::InfuseChrUnderlines(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::InfuseChrColorIndices(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::InfuseChrScripts(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::InfuseChrStrikethroughs(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::ExtractChrProperties(const host::RangePtr&, Variant*, Variant*, Variant*, Variant*, Variant*, Variant*, Variant*) {}  // STUB
void iRange::InfuseChrProperties(const host::RangePtr&, const Variant&, const Variant&, const Variant&, const Variant&, const Variant&, const Variant&, const Variant&) {}  // STUB
void iRange::TransferFormat(const host::RangePtr&, const host::RangePtr&) {}  // STUB
void iRange::CopyRowColAttrs(const host::RangePtr&, const host::RangePtr&) {}  // STUB
host::RangePtr iRange::PasteRange(const host::RangePtr&, const host::RangePtr&) { return {}; }  // STUB
void iRange::CopyNoFmlas(const host::RangePtr&, const host::RangePtr&, bool, bool) {}  // STUB
bool iRange::CopyRangeToBmpFile(const host::RangePtr&, const String&) { return {}; }  // STUB
bool iRange::TakeRangePicture(const host::RangePtr&) { return {}; }  // STUB
void iRange::RestoreOSBorders(const host::RangePtr&, const Variant&) {}  // STUB
void iRange::RemoveSelOSBorders(const host::RangePtr&, bool, bool, bool, bool) {}  // STUB
Variant iRange::CommonOSBorders(const host::RangePtr&) { return {}; }  // STUB
void iRange::MakeBlackFonts(const host::RangePtr&) {}  // STUB
bool iRange::ExportRangeToFile(const host::RangePtr&, const String&) { return {}; }  // STUB

}  // namespace qz
