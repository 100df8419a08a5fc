// A scripted person and operating system for tests: the UI seam records every message box,
// dialog and progress display and answers from queues; the platform seam reports the windows,
// processes and folders a test sets up. `SessionScope` gives a test a process-fresh library.
#pragma once

#include <deque>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/environment.hpp"
#include "test_support.hpp"

namespace qz::test {

/// One message box as the library showed it.
struct ShownMessage {
  String prompt;
  int32_t style = 0;
  String title;
};

/// The UI seam, played by a script.
class ScriptedUi : public host::Ui {
 public:
  /// Message boxes shown so far, oldest first.
  std::vector<ShownMessage> messages;
  /// Buttons to answer with, in order; when empty, the first button of the box (OK, Yes,
  /// Abort, Retry), as a person pressing Enter would.
  std::deque<int32_t> answers;
  /// File names to answer the open-file dialog with; when empty, the dialog is cancelled.
  std::deque<String> file_answers;
  std::vector<host::FileDialogArgs> file_dialogs;
  /// Colours each progress display was started with, and every (text, percent) shown.
  std::vector<std::pair<int32_t, int32_t>> progress_starts;
  std::vector<std::pair<String, int32_t>> progress_shown;

  int32_t msg_box(const String& prompt, int32_t style, const String& title) override;
  String get_open_filename(const host::FileDialogArgs& args) override;
  std::unique_ptr<host::Progress> start_progress(int32_t back_color, int32_t fore_color) override;
};

/// The platform seam with what a test sets up; by default a machine without the application.
class FakePlatform : public host::Platform {
 public:
  /// Top-level windows by class name.
  std::map<std::string, intptr_t> windows;
  intptr_t foreground = 0;
  /// Windows brought to the front, in order.
  std::vector<intptr_t> brought_to_front;
  /// What `running_application` answers; `after_start` replaces it once a process started.
  host::ApplicationPtr running;
  host::ApplicationPtr after_start;
  bool can_start = false;
  bool becomes_idle = true;
  /// The wait itself fails (raises) rather than timing out.
  bool wait_fails = false;
  std::vector<String> started;
  std::vector<int32_t> waits;
  String app_data = u"/home/someone/.local/share";

  intptr_t find_window(const char* class_name, const char* title) override;
  intptr_t foreground_window() override { return foreground; }
  bool set_foreground_window(intptr_t window) override;
  host::ApplicationPtr running_application(const String& prog_id) override;
  bool start_process(const String& command_line) override;
  bool wait_for_input_idle(int32_t milliseconds) override;
  bool save_clipboard_bitmap(const String& file) override { return false; }
  String app_data_folder() override { return app_data; }
};

/// A process-fresh library for one test: the session is forgotten, the sibling services load
/// again, the UI and platform seams are the given fakes, and settings go to a private
/// folder. Everything is put back when the scope ends.
class SessionScope {
 public:
  SessionScope();
  ~SessionScope();
  SessionScope(const SessionScope&) = delete;
  SessionScope& operator=(const SessionScope&) = delete;

  std::shared_ptr<ScriptedUi> ui = std::make_shared<ScriptedUi>();
  std::shared_ptr<FakePlatform> platform = std::make_shared<FakePlatform>();
  /// The folder that holds this test's settings file.
  const std::filesystem::path& settings_dir() const { return settings_dir_.path(); }

 private:
  TempDir settings_dir_;
  std::string old_config_dir_;
  bool had_config_dir_ = false;
};

}  // namespace qz::test
