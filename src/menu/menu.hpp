// Command bars: built-in menus and buttons by control id, new popups, buttons, toolbars.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Command bars: built-in menus and buttons by control id, new popups, buttons, toolbars.
class iMenu final : public _iMenu {
 public:
  String type_name() const override { return u"iMenu"; }
  host::CommandBarPtr MainMenuBar() override;
  host::CommandBarPtr ChartMenuBar() override;
  host::CommandBarPtr ActiveBar(bool vChart) override;
  host::CommandBarControlPtr FileMenu(bool vChart) override;
  host::CommandBarControlPtr EditMenu(bool vChart) override;
  host::CommandBarControlPtr ViewMenu(bool vChart) override;
  host::CommandBarControlPtr InsertMenu(bool vChart) override;
  host::CommandBarControlPtr FormatMenu(bool vChart) override;
  host::CommandBarControlPtr ToolsMenu(bool vChart) override;
  host::CommandBarControlPtr DataMenu(bool vChart) override;
  host::CommandBarControlPtr WindowMenu(bool vChart) override;
  host::CommandBarControlPtr HelpMenu(bool vChart) override;
  host::CommandBarControlPtr FileNewButton(bool vChart) override;
  host::CommandBarControlPtr UndoButton(bool vChart) override;
  host::CommandBarControlPtr RedoButton(bool vChart) override;
  host::CommandBarControlPtr CreatePopup(const Variant& vPopup, const Variant& vCaption,
                                         const Variant& vBeginGroup, const Variant& vBefore,
                                         const Variant& vOnAction, bool vTemp,
                                         const Variant& vTag) override;
  host::CommandBarControlPtr CreateBtn(const Variant& vCaption, const Variant& vOnAction,
                                       const Variant& vPopup, const Variant& vBeginGroup,
                                       const Variant& vBefore, const Variant& vFaceID, bool vTemp,
                                       const Variant& vShortcutText, const Variant& vTag) override;
  host::CommandBarPtr CreateToolbar(const Variant& vName, const Variant& vPosition, bool vTemp,
                                    bool vVisible) override;

 private:
  // The control the last create operation made (Nothing while it runs or when it failed).
  host::CommandBarControlPtr last_created_;
};

}  // namespace qz
