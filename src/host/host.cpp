#include "host/host.hpp"

#include "host/environment.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/types.hpp"

#include <cstdlib>

namespace qz::host {

String CommandBarControl::type_name() const {
  // The runtime names the control by its kind; the type is asked of the object itself.
  return const_cast<CommandBarControl*>(this)->type() == mso::ControlPopup ? u"CommandBarPopup"
                                                                           : u"CommandBarButton";
}

namespace {

class HeadlessProgress final : public Progress {
 public:
  void show(const String&, int32_t) override {}
};

// Without a person to ask, a message box takes its first button (OK, Yes, Abort, Retry), the
// answer that lets a run go on; dialogs are cancelled.
class HeadlessUi final : public Ui {
 public:
  int32_t msg_box(const String&, int32_t style, const String&) override {
    switch (style & 7) {
      case msgbox::YesNoCancel:
      case msgbox::YesNo:
        return msgbox::Yes;
      case msgbox::AbortRetryIgnore:
        return msgbox::Abort;
      case msgbox::RetryCancel:
        return msgbox::Retry;
      default:
        return msgbox::OK;
    }
  }
  String get_open_filename(const FileDialogArgs&) override { return String(); }
  std::unique_ptr<Progress> start_progress(int32_t, int32_t) override {
    return std::make_unique<HeadlessProgress>();
  }
};

class HeadlessPlatform final : public Platform {
 public:
  intptr_t find_window(const char*, const char*) override { return 0; }
  intptr_t foreground_window() override { return 0; }
  bool set_foreground_window(intptr_t) override { return false; }
  ApplicationPtr running_application(const String&) override { return nullptr; }
  bool start_process(const String&) override { return false; }
  bool wait_for_input_idle(int32_t) override { return false; }
  bool save_clipboard_bitmap(const String&) override { return false; }
  String app_data_folder() override;
};

String HeadlessPlatform::app_data_folder() {
  // The per-user data folder of a Linux desktop.
  if (const char* x = std::getenv("XDG_DATA_HOME"); x && *x) return from_utf8(x);
  if (const char* h = std::getenv("HOME"); h && *h) return from_utf8(h) + u"/.local/share";
  return u".";
}

}  // namespace

std::shared_ptr<Ui> headless_ui() {
  return std::make_shared<HeadlessUi>();
}
std::shared_ptr<Platform> headless_platform() {
  return std::make_shared<HeadlessPlatform>();
}

Environment& environment() {
  static Environment env{headless_ui(), headless_platform()};
  return env;
}

void reset_environment() {
  environment().ui = headless_ui();
  environment().platform = headless_platform();
}

}  // namespace qz::host
