#include "chart/chart.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

void iChartXL::ChartActivate(const host::ChartPtr&) {}  // STUB
String iChartXL::ChartAddrSheetLevel(const host::ChartPtr&) { return {}; }  // STUB
String iChartXL::ChartAddrNoBang(const host::ChartPtr&) { return {}; }  // STUB
String iChartXL::ChartNameFriendly(const host::ChartPtr&) { return {}; }  // STUB
String iChartXL::ChartNameNoBang(const host::ChartPtr&) { return {}; }  // STUB
bool iChartXL::IsEmbedded(const host::ChartPtr&) { return {}; }  // STUB
String iChartXL::ChartNameSheetLevel(const host::ChartPtr&) { return {}; }  // STUB
bool iChartXL::RenameChart(const host::ChartPtr&, const String&) { return {}; }  // STUB
bool iChartXL::ChartObjExists(const host::WorkbookPtr&, const String&) { return {}; }  // STUB
bool iChartXL::ChartExists(const host::WorkbookPtr&, const String&) { return {}; }  // STUB
host::ChartPtr iChartXL::RefChart(const host::WorkbookPtr&, const String&) { return {}; }  // STUB
host::ChartPtr iChartXL::ChartFromAddr(const host::ApplicationPtr&, const String&, const String&) { return {}; }  // STUB
ObjectPtr iChartXL::AllCharts(const host::WorkbookPtr&) { return {}; }  // STUB
bool iChartXL::TakeChartPicture(const host::ChartPtr&) { return {}; }  // STUB

}  // namespace qz
