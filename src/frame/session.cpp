#include "frame/session.hpp"

#include "frame/resume.hpp"
#include "qzxl/convert.hpp"

namespace qz {

bool diQZVBLib::Create() {
  // The sibling's own handler: the first failure ends the load with False.
  try {
    iPublic = vblib::load_public();
    if (!iPublic) return false;
    iConst = iPublic->const_service();
    if (!iConst) return false;
    iDocProp = iPublic->docprop_service();
    iFile = iPublic->file_service();
    iGUID = iPublic->guid_service();
    iHotKeys = iPublic->hotkeys_service();
    iScreen = iPublic->screen_service();
    iSort = iPublic->sort_service();
    iString = iPublic->string_service();
    iWinAPI = iPublic->winapi_service();
    return true;
  } catch (...) {
    return false;
  }
}

namespace frame {

const char16_t kLoadFailureMessage[] =
    u"Unable to load the QZ VB Library from the QZ Excel Library.  Please contact technical "
    u"support.";

iXLLibProductPtr ProductCollection::find(StringView code) const {
  for (const auto& [key, product] : items_)
    if (equals_text(key, code)) return product;
  return nullptr;
}

void ProductCollection::add(const String& code, iXLLibProductPtr product) {
  // A collection refuses a duplicate key; callers remove the old entry first.
  if (contains(code)) throw Error(err::invalid_call, "a product with this code name exists");
  items_.emplace_back(code, std::move(product));
}

void ProductCollection::remove(StringView code) {
  for (auto it = items_.begin(); it != items_.end(); ++it) {
    if (equals_text(it->first, code)) {
      items_.erase(it);
      return;
    }
  }
  throw Error(err::subscript, "no product with this code name");
}

namespace {
ServiceMakers& makers() {
  static ServiceMakers m;
  return m;
}
bool& module_entered() {
  static bool entered = false;
  return entered;
}
}  // namespace

Session& session() {
  static Session s;
  return s;
}

void install_service_makers(ServiceMakers m) {
  makers() = std::move(m);
}

void module_entry() {
  if (module_entered()) return;
  module_entered() = true;
  step([] { LoadVBLib(); });
}

bool LoadVBLib() {
  Session& s = session();
  s.VBLib = std::make_shared<diQZVBLib>();
  if (!s.VBLib->Create()) {
    step([] {
      auto ui = host::environment().ui;
      if (ui) ui->msg_box(kLoadFailureMessage, msgbox::Critical, kMsgBoxTitle);
    });
    s.LibLoaded = false;
    return false;
  }
  const ServiceMakers& m = makers();
  s.Products = std::make_shared<ProductCollection>();
  step([&] { s.LibControl = m.control ? m.control() : nullptr; });
  step([&] { s.LibFormula = m.formula ? m.formula() : nullptr; });
  step([&] { s.LibMenu = m.menu ? m.menu() : nullptr; });
  step([&] { s.LibRange = m.range ? m.range() : nullptr; });
  step([&] { s.LibUndoRedo = m.undo_redo ? m.undo_redo() : nullptr; });
  step([&] { s.LibWorkbook = m.workbook ? m.workbook() : nullptr; });
  step([&] { s.LibWorksheet = m.worksheet ? m.worksheet() : nullptr; });
  s.UndoStack = std::make_shared<UnitStack>();
  s.RedoStack = std::make_shared<UnitStack>();
  step([&] { s.AutoColorSettings = s.VBLib->iPublic->settings(u"AutoColor"); });
  s.LibLoaded = true;
  return true;
}

void ReleaseGlobals() {
  Session& s = session();
  s.Products.reset();
  s.AutoColorSettings.reset();
  s.XLSession.reset();
  s.XLApp.reset();
  s.VBLib.reset();
  s.LibControl.reset();
  s.LibFormula.reset();
  s.LibMenu.reset();
  s.LibRange.reset();
  s.LibUndoRedo.reset();
  s.LibWorkbook.reset();
  s.LibWorksheet.reset();
  s.UndoStack.reset();
  s.RedoStack.reset();
  s.LibLoaded = false;
}

bool is_qz_caption(StringView caption) {
  constexpr StringView mark = u" (QZ)";
  return caption.size() >= mark.size() && caption.substr(caption.size() - mark.size()) == mark;
}

String UndoBtnCaption() {
  return value_or(String(),
                  [] { return require(require(session().LibMenu)->UndoButton())->caption(); });
}

String RedoBtnCaption() {
  return value_or(String(),
                  [] { return require(require(session().LibMenu)->RedoButton())->caption(); });
}

void ResetXLUndoRedo() {
  Session& s = session();
  step([&] { require(s.LibUndoRedo)->ClearUndoStack(); });
  step([&] { require(s.LibUndoRedo)->ClearRedoStack(); });
  if (is_qz_caption(UndoBtnCaption())) step([&] { require(s.XLApp)->on_undo(u"", u""); });
  if (is_qz_caption(RedoBtnCaption())) step([&] { require(s.XLApp)->on_repeat(u"", u""); });
}

host::ApplicationPtr GetXLApp(bool& started) {
  Session& s = session();
  if (s.XLApp) return s.XLApp;
  auto platform = host::environment().platform;
  if (!platform) return nullptr;
  host::ApplicationPtr app;
  step([&] { app = platform->running_application(u"Excel.Application"); });
  if (app) return app;
  intptr_t foreground = 0;
  step([&] { foreground = platform->foreground_window(); });
  started = true;
  bool launched = value_or(false, [&] { return platform->start_process(u"Excel"); });
  if (launched) {
    // Only a wait that ran out of time means the application is not there yet; a wait that
    // failed (the process cannot be waited on) says nothing about it, so the foreground is
    // handed back and the application looked for all the same.
    bool timed_out = false;
    step([&] { timed_out = !platform->wait_for_input_idle(60000); });
    if (!timed_out) {
      step([&] { require(require(s.VBLib)->iWinAPI)->bring_to_front(foreground); });
      step([&] { app = platform->running_application(u"Excel.Application"); });
    }
  }
  return app;
}

int32_t GetXLMainWindow() {
  return value_or(int32_t{0}, [] {
    auto platform = host::environment().platform;
    return platform ? static_cast<int32_t>(platform->find_window("XLMAIN", nullptr)) : 0;
  });
}

void reset_session_for_tests() {
  ReleaseGlobals();
  Session& s = session();
  s.CtrlEnterPressed = false;
  s.CtrlShiftEnterPressed = false;
  module_entered() = false;
}

}  // namespace frame
}  // namespace qz
