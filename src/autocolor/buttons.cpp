// AutoColor's four menu buttons and the on-entry hook. The on-entry button is a check
// button: pressed while AutoColor is on, when the application runs the client's
// "mDOM.RunAutoColor" after every entry.
#include "autocolor/internal.hpp"
#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"

namespace qz {

namespace {

host::Application& xl() {
  return *require(frame::session().XLApp);
}

void hook_entries(bool on) {
  step([&] { xl().set_on_entry(on ? autocolor::kOnEntryMacro : u""); });
}

int32_t button_state(bool on) {
  return on ? host::mso::ButtonDown : host::mso::ButtonUp;
}

}  // namespace

host::CommandBarControlPtr iAutoColor::create_button(ButtonKind kind, const Variant& vPopup,
                                                     const Variant& vBeginGroup,
                                                     const Variant& vBefore,
                                                     const Variant& vFaceID) {
  std::optional<int32_t> state;
  if (kind == kOnEntry) {
    const bool on = AutoColorOn();
    hook_entries(on);
    state = button_state(on);
  }
  host::CommandBarControlPtr button;
  step([&] {
    button = require(frame::session().LibMenu)
                 ->CreateBtn(Variant(autocolor::kButtonCaptions[kind]),
                             Variant(autocolor::kButtonMacros[kind]), vPopup, vBeginGroup, vBefore,
                             vFaceID);
  });
  buttons_[kind].push_back(button);
  if (state) step([&] { require(button)->set_state(*state); });
  return button;
}

host::CommandBarControlPtr iAutoColor::CreateAutoColorMenuBtn(const Variant& vPopup,
                                                              const Variant& vBeginGroup,
                                                              const Variant& vBefore,
                                                              const Variant& vFaceID) {
  return create_button(kOnEntry, vPopup, vBeginGroup, vBefore, vFaceID);
}
host::CommandBarControlPtr iAutoColor::CreateAutoColorSelectionMenuBtn(const Variant& vPopup,
                                                                       const Variant& vBeginGroup,
                                                                       const Variant& vBefore,
                                                                       const Variant& vFaceID) {
  return create_button(kSelection, vPopup, vBeginGroup, vBefore, vFaceID);
}
host::CommandBarControlPtr iAutoColor::CreateAutoColorSheetMenuBtn(const Variant& vPopup,
                                                                   const Variant& vBeginGroup,
                                                                   const Variant& vBefore,
                                                                   const Variant& vFaceID) {
  return create_button(kSheet, vPopup, vBeginGroup, vBefore, vFaceID);
}
host::CommandBarControlPtr iAutoColor::CreateAutoColorWkbMenuBtn(const Variant& vPopup,
                                                                 const Variant& vBeginGroup,
                                                                 const Variant& vBefore,
                                                                 const Variant& vFaceID) {
  return create_button(kWorkbook, vPopup, vBeginGroup, vBefore, vFaceID);
}

void iAutoColor::delete_buttons(ButtonKind kind) {
  // A button that is gone already (deleted by hand, or by ClearFormatMenu) is skipped.
  for (const auto& button : buttons_[kind]) step([&] { require(button)->delete_(); });
  buttons_[kind].clear();
}

void iAutoColor::DeleteAutoColorMenuBtns() {
  delete_buttons(kOnEntry);
}
void iAutoColor::DeleteAutoColorSelectionMenuBtns() {
  delete_buttons(kSelection);
}
void iAutoColor::DeleteAutoColorSheetMenuBtns() {
  delete_buttons(kSheet);
}
void iAutoColor::DeleteAutoColorWkbMenuBtns() {
  delete_buttons(kWorkbook);
}

void iAutoColor::ClearFormatMenu() {
  host::CommandBarControlsPtr controls;
  if (!step([&] {
        controls =
            require(require(require(frame::session().LibMenu)->FormatMenu(false))->controls());
      }))
    return;
  const int32_t count = value_or(int32_t{0}, [&] { return controls->count(); });
  // From the last to the first, so the positions still to visit stay valid while deleting.
  for (int32_t i = count; i >= 1; --i) {
    step([&] {
      host::CommandBarControlPtr c = require(controls->item(Variant(i)));
      const String caption = c->caption();
      for (const char16_t* ours : autocolor::kButtonCaptions)
        if (caption == ours) {
          c->delete_();
          break;
        }
    });
  }
}

void iAutoColor::UpdateAutoColorMenuBtns(const Variant& vAutoColorOn) {
  const bool on = vAutoColorOn.is_missing()
                      ? AutoColorOn()
                      : value_or(false, [&] { return to_bool(vAutoColorOn); });
  for (const auto& button : buttons_[kOnEntry])
    step([&] { require(button)->set_state(button_state(on)); });
  hook_entries(on);
}

}  // namespace qz
