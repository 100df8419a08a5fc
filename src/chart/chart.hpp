// Chart addressing, naming, lookup and pictures.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Chart addressing, naming, lookup and pictures.
class iChartXL final : public _iChartXL {
 public:
  String type_name() const override { return u"iChartXL"; }
  void ChartActivate(const host::ChartPtr& vChart) override;
  String ChartAddrSheetLevel(const host::ChartPtr& vChart) override;
  String ChartAddrNoBang(const host::ChartPtr& vChart) override;
  String ChartNameFriendly(const host::ChartPtr& vChart) override;
  String ChartNameNoBang(const host::ChartPtr& vChart) override;
  bool IsEmbedded(const host::ChartPtr& vChart) override;
  String ChartNameSheetLevel(const host::ChartPtr& vChart) override;
  bool RenameChart(const host::ChartPtr& vChart, const String& vNameOnly) override;
  bool ChartObjExists(const host::WorkbookPtr& vWkb, const String& vName) override;
  bool ChartExists(const host::WorkbookPtr& vWkb, const String& vName) override;
  host::ChartPtr RefChart(const host::WorkbookPtr& vWkb, const String& vSheetLevelAddr) override;
  host::ChartPtr ChartFromAddr(const host::ApplicationPtr& vXL, const String& vWkbName,
                               const String& vSheetLevelAddr) override;
  ObjectPtr AllCharts(const host::WorkbookPtr& vWkb) override;
  bool TakeChartPicture(const host::ChartPtr& vChart) override;
};

}  // namespace qz
