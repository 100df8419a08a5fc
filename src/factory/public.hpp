// The factory: the one class that knows every other, so it sits above all layers.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// The factory and session entry. Every `New...` call returns a fresh object; all of them
/// share the process's one session.
class iXLLibPublic final : public _iXLLibPublic {
 public:
  String type_name() const override { return u"iXLLibPublic"; }
  std::shared_ptr<_iXLLibPublic> NewPublic(String& vName) override;
  std::shared_ptr<_iXLLibPublic> NewQuazel(String& vName) override;
  void InitXL(const host::ApplicationPtr& vApp) override;
  std::shared_ptr<_iAutoColor> NewAutoColor() override;
  std::shared_ptr<_iChartXL> NewChartXL() override;
  std::shared_ptr<_iXLLibConst> NewConst() override;
  std::shared_ptr<_iControl> NewControl() override;
  std::shared_ptr<_iDisplay> NewDisplay() override;
  std::shared_ptr<_iFormula> NewFormula() override;
  std::shared_ptr<_iMenu> NewMenu() override;
  std::shared_ptr<_iXLLibProduct> NewProduct(const String& vQZProductCodeName,
                                             const Variant& vRepresentsProduct,
                                             const Variant& vFriendlyName) override;
  void RemoveProduct(const String& vQZProductCodeName) override;
  std::shared_ptr<_iRange> NewRange() override;
  std::shared_ptr<_iUndoRedo> NewUndoRedo() override;
  std::shared_ptr<_iWorkbook> NewWorkbook() override;
  std::shared_ptr<_iWorksheet> NewWorksheet() override;

 private:
  // Whether InitXL has been called on this factory object (NewProduct needs it).
  bool initialised_ = false;
};

/// Installs the makers of the session's service objects and runs the module entry; every
/// creation of a creatable class goes through it first.
void enter_library();

}  // namespace qz
