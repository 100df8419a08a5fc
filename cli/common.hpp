// What the qzxl commands share: one-line failures, a library session over the embedded
// engine, opening and saving workbooks safely, the terminal's answers to the library's
// questions and its progress bar, colours as people write them, and aligned tables.
#pragma once

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/environment.hpp"
#include "host/host.hpp"
#include "qzxl/qzxl.hpp"

namespace qzcli {

namespace fs = std::filesystem;

/// The tool's version, printed by `--version` on every command.
inline constexpr const char* kVersion = "qzxl 1.1.0";

/// Exit statuses: findings that a check was asked to fail on, and input the tool refuses.
inline constexpr int kExitFindings = 1;
inline constexpr int kExitBadInput = 2;

/// A problem the person must fix: one line, no trace, a non-zero exit status.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message, int status = kExitBadInput)
      : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

/// A command: its parser and what runs once the arguments are parsed.
struct Command {
  CLI::App* app = nullptr;
  std::function<int()> run;
};

/// Adds a subcommand with `--version` of its own.
CLI::App* add_command(CLI::App& parent, const std::string& name, const std::string& about);

// --- the user's regional settings ---------------------------------------------------------

/// Adds `--locale NAME` to a command that reads or classifies values: numbers, dates and
/// amounts are then read (and cells shown) as the application does in that locale.
void add_locale_option(CLI::App* cmd);

/// Switches the library's conversions to the user's locale before a command runs: the one
/// `--locale` named, else the one the environment names (LC_ALL, LC_NUMERIC, LC_MONETARY,
/// LC_TIME, LANG). A `--locale` the locale data does not know is a Failure.
void use_locale();

// --- the person at the terminal ------------------------------------------------------------

/// How the library's questions are answered and whether progress is shown.
struct Interaction {
  /// The answer to "search for links to named cells?" (Yes or No).
  int32_t names_answer = qz::msgbox::Yes;
  /// Progress on standard error (only when it is a terminal).
  bool progress = true;
  /// Cells done so far, for the rate shown beside the percentage.
  std::function<int64_t()> cells_done;
};

/// The terminal behind the library's UI seam: every question gets its first button (OK,
/// Yes), except the names question, which gets `Interaction::names_answer`; runs draw a
/// progress bar on standard error once the command has taken about a second.
class TerminalUi final : public qz::host::Ui {
 public:
  explicit TerminalUi(Interaction interaction);
  int32_t msg_box(const qz::String& prompt, int32_t style, const qz::String& title) override;
  qz::String get_open_filename(const qz::host::FileDialogArgs& args) override;
  std::unique_ptr<qz::host::Progress> start_progress(int32_t back_color,
                                                     int32_t fore_color) override;
  /// The questions asked so far (their first line), for the summary.
  const std::vector<std::string>& questions() const { return questions_; }

 private:
  Interaction interaction_;
  std::chrono::steady_clock::time_point started_;
  std::vector<std::string> questions_;
};

// --- workbooks ---------------------------------------------------------------------------------

/// A library session as a client add-in holds one: the factory created, InitXL given an
/// engine application that opens and saves .xlsx/.xlsm packages.
class Session {
 public:
  explicit Session(std::shared_ptr<qz::host::Ui> ui = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Opens a workbook; a missing file, a folder or a file that is no workbook package is a
  /// Failure naming it.
  qz::host::WorkbookPtr open(const fs::path& in);
  /// Saves to `out` through the application (written beside it and renamed into place);
  /// the file at `out` is untouched when that fails.
  void save(const qz::host::WorkbookPtr& book, const fs::path& out);

  qz::iXLLibPublicPtr lib;
  qz::host::ApplicationPtr app;
};

/// Checks that `in` names a file that can be a workbook package, so that a wrong input is
/// reported as such before anything about the output is.
void check_input(const fs::path& in);

/// Checks an output name before any work is done: `out` may be `in` only when the person
/// named it so; its extension must keep the package's kind (.xlsm stays .xlsm); its folder
/// must exist.
void check_output(const fs::path& in, const fs::path& out);

/// The worksheet of that name (compared as the application compares sheet names), or a
/// Failure listing the sheets there are.
qz::host::WorksheetPtr find_sheet(const qz::host::WorkbookPtr& book, const std::string& name);

/// "Sheet!A1:B9" (or "'My Sheet'!A1:B9") as a range of `book`; a Failure for an unknown sheet
/// or an address that does not read.
qz::host::RangePtr find_range(const qz::host::WorkbookPtr& book, const std::string& text);

/// The worksheets of a workbook, in tab order.
std::vector<qz::host::WorksheetPtr> worksheets(const qz::host::WorkbookPtr& book);

// --- colours -----------------------------------------------------------------------------------

/// "#RRGGBB" (or "RRGGBB") as the application's colour number (red + 256 green + 65536
/// blue); a plain decimal is taken as that number. Nothing when the text is neither.
std::optional<int32_t> parse_colour(const std::string& text);
/// The application's colour number as "#RRGGBB".
std::string format_colour(int32_t colour);

// --- output ------------------------------------------------------------------------------------

/// A table for the terminal: columns padded to their widest cell; numeric columns to the
/// right.
class Table {
 public:
  explicit Table(std::vector<std::string> header, std::vector<bool> right_aligned = {});
  void add(std::vector<std::string> row);
  bool empty() const { return rows_.empty(); }
  /// Prints with `indent` blanks before each line.
  void print(std::FILE* to, int indent = 0) const;

 private:
  std::vector<std::string> header_;
  std::vector<bool> right_;
  std::vector<std::vector<std::string>> rows_;
};

/// A whole number with thousands separators ("1,234,567").
std::string grouped(int64_t n);

/// UTF-8 of a library string, control characters shown escaped so that tables stay aligned.
std::string printable(const qz::String& s);

/// A cell's address with its sheet, as a reviewer looks it up: "Income!B7".
std::string cell_address(const qz::host::RangePtr& cell);

// --- defined names -----------------------------------------------------------------------------

/// The prefix of the library's tags ("_bqz." identifier ".eqz").
inline constexpr char16_t kTagStart[] = u"_bqz.";

/// One defined name as the tool reports it.
struct NameRow {
  std::string text;    ///< with its sheet for a sheet-level name ("Data!Rate")
  std::string scope;   ///< "(workbook)" or the sheet's name
  std::string refers;  ///< "=Sheet1!$A$1"
  bool visible = true;
  bool tag = false;   ///< carries the library's tag prefix (compared as the library does)
  bool dead = false;  ///< refers to #REF! or into another file: what CleanUpNames removes
};

/// Every name of a workbook (workbook-level and sheet-level), in the collection's order.
std::vector<NameRow> list_names(const qz::host::WorkbookPtr& book);

}  // namespace qzcli
