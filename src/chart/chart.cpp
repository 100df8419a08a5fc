#include "chart/chart.hpp"

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz {

namespace {

// A chart is either a chart sheet, whose parent is its workbook, or embedded, whose parent is
// the chart object on a worksheet. The parent's type name tells them apart.
host::ChartObjectPtr chart_object_of(const host::ChartPtr& chart) {
  return value_or(host::ChartObjectPtr(), [&] {
    return std::dynamic_pointer_cast<host::ChartObject>(require(chart)->parent());
  });
}

bool is_chart_sheet(const host::ChartPtr& chart) {
  return value_or(false, [&] { return require(chart)->parent()->type_name() == u"Workbook"; });
}

template <class F>
bool succeeds(F&& f) {
  return step(std::forward<F>(f));
}

}  // namespace

void iChartXL::ChartActivate(const host::ChartPtr& vChart) {
  if (!vChart) return;
  if (is_chart_sheet(vChart)) {
    step([&] { require(std::dynamic_pointer_cast<host::Workbook>(vChart->parent()))->activate(); });
    step([&] { vChart->activate(); });
    return;
  }
  host::ChartObjectPtr object = chart_object_of(vChart);
  if (!object) return;
  host::WorksheetPtr sheet = value_or(host::WorksheetPtr(), [&] { return object->parent(); });
  step([&] { require(sheet)->parent()->activate(); });
  step([&] { require(sheet)->activate(); });
  step([&] { object->activate(); });
}

String iChartXL::ChartAddrSheetLevel(const host::ChartPtr& vChart) {
  if (is_chart_sheet(vChart)) return value_or(String(), [&] { return vChart->name(); });
  if (host::ChartObjectPtr object = chart_object_of(vChart))
    return value_or(String(), [&] { return object->parent()->name() + u"!" + object->name(); });
  return String();
}

String iChartXL::ChartAddrNoBang(const host::ChartPtr& vChart) {
  // Taken from the objects rather than cut out of the address, so that a "!" inside a sheet's
  // or chart object's own name cannot mislead it.
  if (is_chart_sheet(vChart)) return value_or(String(), [&] { return vChart->name(); });
  if (host::ChartObjectPtr object = chart_object_of(vChart))
    return value_or(String(), [&] { return object->name(); });
  return String();
}

String iChartXL::ChartNameFriendly(const host::ChartPtr& vChart) {
  if (is_chart_sheet(vChart)) return value_or(String(), [&] { return vChart->name(); });
  if (host::ChartObjectPtr object = chart_object_of(vChart))
    return value_or(String(),
                    [&] { return object->name() + u" (" + object->parent()->name() + u")"; });
  return String();
}

String iChartXL::ChartNameNoBang(const host::ChartPtr& vChart) {
  return ChartAddrNoBang(vChart);
}

bool iChartXL::IsEmbedded(const host::ChartPtr& vChart) {
  return value_or(false, [&] { return require(vChart)->parent()->type_name() == u"ChartObject"; });
}

String iChartXL::ChartNameSheetLevel(const host::ChartPtr& vChart) {
  return ChartAddrSheetLevel(vChart);
}

bool iChartXL::RenameChart(const host::ChartPtr& vChart, const String& vNameOnly) {
  if (!vChart) return false;
  // Chart objects' names are unique across the workbook, not only on their sheet: a name any
  // chart object already has (this one's own included) is refused.
  if (is_chart_sheet(vChart)) {
    auto wkb = value_or(host::WorkbookPtr(), [&] {
      return std::dynamic_pointer_cast<host::Workbook>(vChart->parent());
    });
    if (!wkb || ChartExists(wkb, vNameOnly)) return false;
    step([&] { vChart->set_name(vNameOnly); });
    return ChartNameNoBang(vChart) == vNameOnly;
  }
  host::ChartObjectPtr object = chart_object_of(vChart);
  if (!object) return false;
  auto wkb = value_or(host::WorkbookPtr(), [&] { return object->parent()->parent(); });
  if (!wkb || ChartObjExists(wkb, vNameOnly)) return false;
  step([&] { object->set_name(vNameOnly); });
  return ChartNameNoBang(vChart) == vNameOnly;
}

bool iChartXL::ChartObjExists(const host::WorkbookPtr& vWkb, const String& vName) {
  int32_t count = value_or(int32_t{0}, [&] { return require(vWkb)->worksheets()->count(); });
  for (int32_t i = 1; i <= count; ++i) {
    if (succeeds([&] {
          require(vWkb->worksheets()->item(Variant(i))->chart_objects()->item(Variant(vName)));
        }))
      return true;
  }
  return false;
}

bool iChartXL::ChartExists(const host::WorkbookPtr& vWkb, const String& vName) {
  return succeeds([&] { require(require(vWkb)->charts()->item(Variant(vName))); });
}

host::ChartPtr iChartXL::RefChart(const host::WorkbookPtr& vWkb, const String& vSheetLevelAddr) {
  if (!vWkb) return nullptr;
  host::ApplicationPtr xl = value_or(host::ApplicationPtr(), [&] { return vWkb->application(); });
  String name = value_or(String(), [&] { return vWkb->name(); });
  return ChartFromAddr(xl, name, vSheetLevelAddr);
}

host::ChartPtr iChartXL::ChartFromAddr(const host::ApplicationPtr& vXL, const String& vWkbName,
                                       const String& vSheetLevelAddr) {
  host::WorkbookPtr wkb = value_or(
      host::WorkbookPtr(), [&] { return require(vXL)->workbooks()->item(Variant(vWkbName)); });
  if (!wkb) return nullptr;
  if (vSheetLevelAddr.find(u'!') == String::npos)
    return value_or(host::ChartPtr(),
                    [&] { return wkb->charts()->item(Variant(vSheetLevelAddr)); });
  // Split at the last "!" first, as the sibling string service does; when a name itself holds
  // a "!", an earlier split point may be the one that finds the chart.
  for (size_t bang = vSheetLevelAddr.rfind(u'!'); bang != String::npos;
       bang = bang == 0 ? String::npos : vSheetLevelAddr.rfind(u'!', bang - 1)) {
    String sheet = vSheetLevelAddr.substr(0, bang);
    String object = vSheetLevelAddr.substr(bang + 1);
    host::ChartPtr chart = value_or(host::ChartPtr(), [&] {
      return wkb->worksheets()
          ->item(Variant(sheet))
          ->chart_objects()
          ->item(Variant(object))
          ->chart();
    });
    if (chart) return chart;
  }
  return nullptr;
}

ObjectPtr iChartXL::AllCharts(const host::WorkbookPtr& vWkb) {
  std::shared_ptr<vblib::Collection> all;
  step([&] { all = require(require(frame::session().VBLib)->iSort)->new_collection(); });
  if (!all) return nullptr;
  int32_t sheets = value_or(int32_t{0}, [&] { return require(vWkb)->charts()->count(); });
  for (int32_t i = 1; i <= sheets; ++i)
    step([&] { all->add(Variant(vWkb->charts()->item(Variant(i)))); });
  int32_t worksheets = value_or(int32_t{0}, [&] { return require(vWkb)->worksheets()->count(); });
  for (int32_t w = 1; w <= worksheets; ++w) {
    host::ChartObjectsPtr objects = value_or(host::ChartObjectsPtr(), [&] {
      return vWkb->worksheets()->item(Variant(w))->chart_objects();
    });
    int32_t count = value_or(int32_t{0}, [&] { return require(objects)->count(); });
    for (int32_t i = 1; i <= count; ++i)
      step([&] { all->add(Variant(objects->item(Variant(i))->chart())); });
  }
  return all;
}

bool iChartXL::TakeChartPicture(const host::ChartPtr& vChart) {
  // As the application shows it on screen, as a picture, at its printed size; the first
  // failure ends it with False.
  return succeeds([&] {
    require(vChart)->copy_picture(host::xl::Screen, host::xl::Picture, host::xl::Printer);
  });
}

}  // namespace qz
