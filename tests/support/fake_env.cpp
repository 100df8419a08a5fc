#include "fake_env.hpp"

#include <cstdlib>

#include "frame/session.hpp"
#include "qzxl/types.hpp"
#include "vblib/vblib.hpp"

namespace qz::test {

namespace {

class RecordedProgress final : public host::Progress {
 public:
  explicit RecordedProgress(ScriptedUi& ui) : ui_(ui) {}
  void show(const String& text, int32_t percent) override {
    ui_.progress_shown.emplace_back(text, percent);
  }

 private:
  ScriptedUi& ui_;
};

int32_t first_button(int32_t style) {
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

}  // namespace

int32_t ScriptedUi::msg_box(const String& prompt, int32_t style, const String& title) {
  messages.push_back({prompt, style, title});
  if (answers.empty()) return first_button(style);
  int32_t answer = answers.front();
  answers.pop_front();
  return answer;
}

String ScriptedUi::get_open_filename(const host::FileDialogArgs& args) {
  file_dialogs.push_back(args);
  if (file_answers.empty()) return String();
  String answer = file_answers.front();
  file_answers.pop_front();
  return answer;
}

std::unique_ptr<host::Progress> ScriptedUi::start_progress(int32_t back_color, int32_t fore_color) {
  progress_starts.emplace_back(back_color, fore_color);
  return std::make_unique<RecordedProgress>(*this);
}

intptr_t FakePlatform::find_window(const char* class_name, const char*) {
  auto it = windows.find(class_name ? class_name : "");
  return it == windows.end() ? 0 : it->second;
}

bool FakePlatform::set_foreground_window(intptr_t window) {
  brought_to_front.push_back(window);
  foreground = window;
  return true;
}

host::ApplicationPtr FakePlatform::running_application(const String& prog_id) {
  return prog_id == u"Excel.Application" ? running : nullptr;
}

bool FakePlatform::start_process(const String& command_line) {
  started.push_back(command_line);
  if (can_start && after_start) running = after_start;
  return can_start;
}

bool FakePlatform::wait_for_input_idle(int32_t milliseconds) {
  waits.push_back(milliseconds);
  if (wait_fails) throw Error(err::host_failure, "the wait failed");
  return becomes_idle;
}

SessionScope::SessionScope() {
  if (const char* d = std::getenv("QZXL_CONFIG_DIR")) {
    had_config_dir_ = true;
    old_config_dir_ = d;
  }
  ::setenv("QZXL_CONFIG_DIR", settings_dir_.path().c_str(), 1);
  vblib::set_load_failure(false);
  frame::reset_session_for_tests();
  host::environment().ui = ui;
  host::environment().platform = platform;
}

SessionScope::~SessionScope() {
  frame::reset_session_for_tests();
  vblib::set_load_failure(false);
  host::reset_environment();
  if (had_config_dir_)
    ::setenv("QZXL_CONFIG_DIR", old_config_dir_.c_str(), 1);
  else
    ::unsetenv("QZXL_CONFIG_DIR");
}

}  // namespace qz::test
