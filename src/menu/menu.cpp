#include "menu/menu.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

host::CommandBarPtr iMenu::MainMenuBar() { return {}; }  // STUB
host::CommandBarPtr iMenu::ChartMenuBar() { return {}; }  // STUB
host::CommandBarPtr iMenu::ActiveBar(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::FileMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::EditMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::ViewMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::InsertMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::FormatMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::ToolsMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::DataMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::WindowMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::HelpMenu(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::FileNewButton(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::UndoButton(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::RedoButton(bool) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::CreatePopup(const Variant&, const Variant&, const Variant&, const Variant&, const Variant&, bool, const Variant&) { return {}; }  // STUB
host::CommandBarControlPtr iMenu::CreateBtn(const Variant&, const Variant&, const Variant&, const Variant&, const Variant&, const Variant&, bool, const Variant&, const Variant&) { return {}; }  // STUB
host::CommandBarPtr iMenu::CreateToolbar(const Variant&, const Variant&, bool, bool) { return {}; }  // STUB

}  // namespace qz
