// What the library shows a person (message boxes, file dialogs, progress) and the operating
// system services it needs (windows, processes, the clipboard, folders). Both are seams: the
// Windows server puts the system's own behind them, the command-line tool a terminal, and
// tests a script that answers.
#pragma once

#include <cstdint>
#include <memory>

#include "qzxl/host_fwd.hpp"
#include "qzxl/variant.hpp"

namespace qz::host {

/// Arguments of the open-file dialog.
struct FileDialogArgs {
  String default_name;
  String default_folder;
  /// Description and pattern pairs, NUL-separated ("Excel Files (*.XLS)\0*.xls").
  String filter;
  String default_extension;
  String title;
  bool must_exist = true;
};

/// A progress display for one run.
class Progress {
 public:
  virtual ~Progress() = default;
  /// Shows `text` and a whole percentage (0..100).
  virtual void show(const String& text, int32_t percent) = 0;
};

/// What the library shows a person.
class Ui {
 public:
  virtual ~Ui() = default;
  /// A message box: `style` is the runtime's MsgBox buttons + icon value; the result is the
  /// button chosen (`qz::msgbox::OK`, `Cancel`, `Yes`, `No`, ...).
  virtual int32_t msg_box(const String& prompt, int32_t style, const String& title) = 0;
  /// The open-file dialog; "" when the person cancels.
  virtual String get_open_filename(const FileDialogArgs& args) = 0;
  /// Starts a progress display (the library passes its colours; a host may ignore them).
  virtual std::unique_ptr<Progress> start_progress(int32_t back_color, int32_t fore_color) = 0;
};

/// Operating-system services.
class Platform {
 public:
  virtual ~Platform() = default;
  /// `FindWindowA(class, title)`; 0 when there is no such window.
  virtual intptr_t find_window(const char* class_name, const char* title) = 0;
  virtual intptr_t foreground_window() = 0;
  virtual bool set_foreground_window(intptr_t window) = 0;
  /// The running application registered under `prog_id` ("Excel.Application"), or nullptr.
  virtual ApplicationPtr running_application(const String& prog_id) = 0;
  /// Starts a process (`CreateProcessA`); false when it could not be started.
  virtual bool start_process(const String& command_line) = 0;
  /// Waits until the started process is idle; false when the wait timed out. Raises when
  /// the wait itself fails.
  virtual bool wait_for_input_idle(int32_t milliseconds) = 0;
  /// Saves the bitmap on the clipboard to `file` and empties and closes the clipboard.
  /// False when the clipboard holds no bitmap.
  virtual bool save_clipboard_bitmap(const String& file) = 0;
  /// The per-user application-data folder.
  virtual String app_data_folder() = 0;
};

/// The process-wide seams. Defaults: a headless Ui that answers every message box with its
/// first button and cancels dialogs, and a Platform without windows (handles 0).
struct Environment {
  std::shared_ptr<Ui> ui;
  std::shared_ptr<Platform> platform;
};

Environment& environment();
/// Restores the headless defaults.
void reset_environment();

std::shared_ptr<Ui> headless_ui();
std::shared_ptr<Platform> headless_platform();

}  // namespace qz::host
