#include "factory/public.hpp"

#include "autocolor/autocolor.hpp"
#include "chart/chart.hpp"
#include "control/control.hpp"
#include "formula/formula.hpp"
#include "frame/consts.hpp"
#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "menu/menu.hpp"
#include "menu/product.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/qzxl.hpp"
#include "range/range.hpp"
#include "undo/undo_redo.hpp"
#include "workbook/display.hpp"
#include "workbook/workbook.hpp"
#include "workbook/worksheet.hpp"

namespace qz {

void enter_library() {
  static const bool installed = [] {
    frame::install_service_makers({
        [] { return std::make_shared<iControl>(); },
        [] { return std::make_shared<iFormula>(); },
        [] { return std::make_shared<iMenu>(); },
        [] { return std::make_shared<iRange>(); },
        [] { return std::make_shared<iUndoRedo>(); },
        [] { return std::make_shared<iWorkbook>(); },
        [] { return std::make_shared<iWorksheet>(); },
    });
    return true;
  }();
  (void)installed;
  frame::module_entry();
}

iXLLibPublicPtr create_iXLLibPublic() {
  enter_library();
  return std::make_shared<iXLLibPublic>();
}

iChartXLPtr create_iChartXL() {
  enter_library();
  return std::make_shared<iChartXL>();
}

std::shared_ptr<_iXLLibPublic> iXLLibPublic::NewPublic(String&) {
  if (!frame::session().LibLoaded) step([] { frame::LoadVBLib(); });
  return std::static_pointer_cast<_iXLLibPublic>(shared_from_this());
}

std::shared_ptr<_iXLLibPublic> iXLLibPublic::NewQuazel(String&) {
  return std::static_pointer_cast<_iXLLibPublic>(shared_from_this());
}

void iXLLibPublic::InitXL(const host::ApplicationPtr& vApp) {
  auto& s = frame::session();
  s.XLSession = std::make_shared<cXL>();
  s.XLSession->Init(vApp);
  s.XLApp = vApp;
  initialised_ = true;
}

std::shared_ptr<_iAutoColor> iXLLibPublic::NewAutoColor() {
  return std::make_shared<iAutoColor>();
}
std::shared_ptr<_iChartXL> iXLLibPublic::NewChartXL() {
  return std::make_shared<iChartXL>();
}
std::shared_ptr<_iXLLibConst> iXLLibPublic::NewConst() {
  return std::make_shared<iXLLibConst>();
}
std::shared_ptr<_iControl> iXLLibPublic::NewControl() {
  return std::make_shared<iControl>();
}
std::shared_ptr<_iDisplay> iXLLibPublic::NewDisplay() {
  return std::make_shared<iDisplay>();
}
std::shared_ptr<_iFormula> iXLLibPublic::NewFormula() {
  return std::make_shared<iFormula>();
}
std::shared_ptr<_iMenu> iXLLibPublic::NewMenu() {
  return std::make_shared<iMenu>();
}
std::shared_ptr<_iRange> iXLLibPublic::NewRange() {
  return std::make_shared<iRange>();
}
std::shared_ptr<_iUndoRedo> iXLLibPublic::NewUndoRedo() {
  return std::make_shared<iUndoRedo>();
}
std::shared_ptr<_iWorkbook> iXLLibPublic::NewWorkbook() {
  return std::make_shared<iWorkbook>();
}
std::shared_ptr<_iWorksheet> iXLLibPublic::NewWorksheet() {
  return std::make_shared<iWorksheet>();
}

std::shared_ptr<_iXLLibProduct> iXLLibPublic::NewProduct(const String& vQZProductCodeName,
                                                         const Variant& vRepresentsProduct,
                                                         const Variant& vFriendlyName) {
  if (!initialised_) return nullptr;
  auto product = std::make_shared<iXLLibProduct>();
  step([&] { product->put_CodeName(vQZProductCodeName, vRepresentsProduct); });
  step(
      [&] { product->put_Name(vFriendlyName.is_missing() ? String() : to_string(vFriendlyName)); });
  return product;
}

void iXLLibPublic::RemoveProduct(const String& vQZProductCodeName) {
  step([&] {
    auto& s = frame::session();
    if (!s.Products) return;
    if (auto product = s.Products->find(vQZProductCodeName)) product->Terminate();
  });
}

}  // namespace qz
