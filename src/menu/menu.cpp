// Built-in menus and buttons are found by their Office control ids, never by caption, so the
// same code finds them in every language of the application.
#include "menu/menu.hpp"

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz {

namespace {

namespace mso = host::mso;

host::Application& xl() {
  return *require(frame::session().XLApp);
}

host::CommandBarsPtr bars() {
  return require(xl().command_bars());
}

// A menu popup on the chosen bar only (top-level controls; the other arguments left out).
host::CommandBarControlPtr menu_on(iMenu& menu, bool chart, int32_t id) {
  return value_or(host::CommandBarControlPtr(), [&] {
    host::FindControlArgs args;
    args.id = Variant(id);
    return require(menu.ActiveBar(chart))->find_control(args);
  });
}

// A button anywhere on any bar.
host::CommandBarControlPtr button_anywhere(int32_t id) {
  return value_or(host::CommandBarControlPtr(), [&] {
    host::FindControlArgs args;
    args.id = Variant(id);
    return bars()->find_control(args);
  });
}

// The container a new control goes into: a bar or a popup handed over as a Variant.
host::CommandBarControlsPtr controls_of(const Variant& holder) {
  if (auto bar = holder.as<host::CommandBar>()) return bar->controls();
  if (auto popup = holder.as<host::CommandBarControl>()) return popup->controls();
  throw Error(err::not_supported, "Object doesn't support this property or method: Controls");
}

// `Controls.Add` with the type and temporary flag, and `Before` only when it names a place.
host::CommandBarControlPtr add_control(const Variant& holder, int32_t type, const Variant& before,
                                       bool temp) {
  host::ControlAddArgs args;
  args.type = Variant(type);
  args.temporary = Variant(temp);
  if (!before.is_missing() && to_long(before) >= 1) args.before = Variant(to_long(before));
  return require(controls_of(holder))->add(args);
}

// A `Before` that is no number is left out, and the control goes at the end.
Variant usable_before(const Variant& before) {
  if (before.is_missing()) return before;
  return value_or(Variant::missing(), [&] {
    to_long(before);
    return before;
  });
}

}  // namespace

host::CommandBarPtr iMenu::MainMenuBar() {
  return value_or(host::CommandBarPtr(), [] { return bars()->item(Variant(int32_t{1})); });
}

host::CommandBarPtr iMenu::ChartMenuBar() {
  return value_or(host::CommandBarPtr(), [] { return bars()->item(Variant(int32_t{2})); });
}

host::CommandBarPtr iMenu::ActiveBar(bool vChart) {
  return vChart ? ChartMenuBar() : MainMenuBar();
}

host::CommandBarControlPtr iMenu::FileMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdFile);
}
host::CommandBarControlPtr iMenu::EditMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdEdit);
}
host::CommandBarControlPtr iMenu::ViewMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdView);
}
host::CommandBarControlPtr iMenu::InsertMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdInsert);
}
host::CommandBarControlPtr iMenu::FormatMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdFormat);
}
host::CommandBarControlPtr iMenu::ToolsMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdTools);
}
host::CommandBarControlPtr iMenu::DataMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdData);
}
host::CommandBarControlPtr iMenu::WindowMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdWindow);
}
host::CommandBarControlPtr iMenu::HelpMenu(bool vChart) {
  return menu_on(*this, vChart, mso::IdHelp);
}

// The three buttons live on several bars (a menu and a toolbar); any copy will do, so the
// search covers every bar and the bar choice does not matter.
host::CommandBarControlPtr iMenu::FileNewButton(bool) {
  return button_anywhere(mso::IdFileNew);
}
host::CommandBarControlPtr iMenu::UndoButton(bool) {
  return button_anywhere(mso::IdUndo);
}
host::CommandBarControlPtr iMenu::RedoButton(bool) {
  return button_anywhere(mso::IdRedo);
}

host::CommandBarControlPtr iMenu::CreatePopup(const Variant& vPopup, const Variant& vCaption,
                                              const Variant& vBeginGroup, const Variant& vBefore,
                                              const Variant& vOnAction, bool vTemp,
                                              const Variant& vTag) {
  last_created_.reset();
  if (!vPopup.is_object() || vPopup.is_nothing()) return nullptr;
  // Always a new popup: one of the same caption is not reused; callers remove old ones.
  host::CommandBarControlPtr popup;
  const Variant before = usable_before(vBefore);
  if (!step([&] { popup = add_control(vPopup, mso::ControlPopup, before, vTemp); })) return nullptr;
  if (!popup) return nullptr;
  if (!vCaption.is_missing()) step([&] { popup->set_caption(to_string(vCaption)); });
  if (!vBeginGroup.is_missing()) step([&] { popup->set_begin_group(to_bool(vBeginGroup)); });
  if (!vOnAction.is_missing()) step([&] { popup->set_on_action(to_string(vOnAction)); });
  if (!vTag.is_missing()) step([&] { popup->set_tag(to_string(vTag)); });
  last_created_ = popup;
  return popup;
}

host::CommandBarControlPtr iMenu::CreateBtn(const Variant& vCaption, const Variant& vOnAction,
                                            const Variant& vPopup, const Variant& vBeginGroup,
                                            const Variant& vBefore, const Variant& vFaceID,
                                            bool vTemp, const Variant& vShortcutText,
                                            const Variant& vTag) {
  last_created_.reset();
  if (!vPopup.is_object() || vPopup.is_nothing()) return nullptr;
  host::CommandBarControlPtr button;
  const Variant before = usable_before(vBefore);
  if (!step([&] { button = add_control(vPopup, mso::ControlButton, before, vTemp); }))
    return nullptr;
  if (!button) return nullptr;
  if (!vCaption.is_missing()) step([&] { button->set_caption(to_string(vCaption)); });
  if (!vOnAction.is_missing()) step([&] { button->set_on_action(to_string(vOnAction)); });
  if (!vBeginGroup.is_missing()) step([&] { button->set_begin_group(to_bool(vBeginGroup)); });
  if (!vFaceID.is_missing()) step([&] { button->set_face_id(to_long(vFaceID)); });
  if (!vShortcutText.is_missing())
    step([&] { button->set_shortcut_text(to_string(vShortcutText)); });
  if (!vTag.is_missing()) step([&] { button->set_tag(to_string(vTag)); });
  last_created_ = button;
  return button;
}

host::CommandBarPtr iMenu::CreateToolbar(const Variant& vName, const Variant& vPosition, bool vTemp,
                                         bool vVisible) {
  host::CommandBarPtr bar;
  step([&] {
    host::BarAddArgs args;
    args.name = vName;
    args.position = vPosition;
    args.temporary = Variant(vTemp);
    bar = bars()->add(args);
  });
  if (bar) step([&] { bar->set_visible(vVisible); });
  return bar;
}

}  // namespace qz
