// The sibling general-purpose services the library relies on: a settings store, string
// operations, identifiers, document properties, files, progress, numbered messages and an
// ordered collection. We provide them natively; nothing is loaded from a separate file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/environment.hpp"
#include "qzxl/host_fwd.hpp"
#include "qzxl/object.hpp"
#include "qzxl/variant.hpp"

namespace qz::vblib {

/// The hive every settings read and write names.
inline constexpr int32_t kHkeyCurrentUser = static_cast<int32_t>(0x80000001u);

/// Where settings live: a file under the user's configuration directory on Linux, the
/// registry under HKEY_CURRENT_USER on Windows. Values are text, keyed by section and name.
class SettingsBackend {
 public:
  virtual ~SettingsBackend() = default;
  /// The stored text, or nothing when the value was never written (or was removed).
  virtual std::optional<String> read(const String& section, const String& name) = 0;
  virtual void write(const String& section, const String& name, const String& value) = 0;
  virtual void remove(const String& section, const String& name) = 0;
  /// Every value name of a section, sorted.
  virtual std::vector<String> names(const String& section) = 0;
};

/// The file-backed store: `$QZXL_CONFIG_DIR/settings.ini`, else
/// `$XDG_CONFIG_HOME/qzxl/settings.ini`, else `~/.config/qzxl/settings.ini`. Every write is
/// read-modify-write under a lock and lands atomically, so processes share it safely.
std::shared_ptr<SettingsBackend> file_settings_backend();
/// The backend new stores use; replaceable (the Windows server installs the registry one).
std::shared_ptr<SettingsBackend>& settings_backend();

/// A store opened for one section ("AutoColor").
class Settings : public Object {
 public:
  Settings(String section, std::shared_ptr<SettingsBackend> backend);
  String type_name() const override { return u"Settings"; }
  const String& section() const { return section_; }
  /// The stored text; "" when never written. `hive` must be kHkeyCurrentUser.
  String read(int32_t hive, const String& name);
  void write(int32_t hive, const String& name, const String& value);
  void remove(int32_t hive, const String& name);

 private:
  String section_;
  std::shared_ptr<SettingsBackend> backend_;
};

/// Text services.
class Strings : public Object {
 public:
  String type_name() const override { return u"iString"; }
  /// Splits a qualified reference at its last sheet qualifier: returns the part after it and
  /// sets `qualifier` to the bare sheet name (`bare` True: no apostrophes, no "!") or to the
  /// qualifier exactly as written ("'My Sheet'!"); "" when there is none.
  static String qualifier_split(StringView text, bool bare, String& qualifier);
  /// Splits at `delimiter` (limit -1 = no limit; compare 1 = text, 0 = binary).
  static std::vector<String> split(StringView text, StringView delimiter, int32_t limit = -1,
                                   int32_t compare = 1);
  /// Replaces occurrences of `find` from position `start` (1-based), `count` times (-1 = all).
  static String replace(StringView text, StringView find, StringView with, int32_t start = 1,
                        int32_t count = -1, int32_t compare = 1);
  /// Position (1-based) of `sought` in `text` from `start`, ignoring stretches between
  /// `quote` characters (a doubled quote inside a quoted stretch stays inside it); 0 if absent.
  static int32_t instr_outside_quotes(int32_t start, StringView text, StringView sought,
                                      char16_t quote = u'"');
  /// Removes a sheet qualifier from a reference: "Sheet1!A1" -> "A1", "'My Sheet'!x" -> "x";
  /// `sheet` receives the sheet name (without apostrophes when `clean`).
  static String strip_wks_name(StringView text, String* sheet, bool clean);
  /// Removes a workbook qualifier: "[Book1.xls]Sheet1!A1" -> "Sheet1!A1",
  /// "'C:\dir\[Book1.xls]Sheet1'!A1" -> "Sheet1!A1"; `book` receives "Book1.xls".
  static String strip_wkb_name(StringView text, String* book, bool clean);
  /// Cuts `count` characters off the end.
  static String cut_end(StringView text, int32_t count);
  /// Splits a multi-line text box's text into its entries (lines; CR, LF or CRLF; blank
  /// lines dropped; blanks around entries trimmed).
  static std::vector<String> parse_textbox(StringView text);
  /// Splits a full file name into file name and folder (without the trailing separator).
  static void split_full_name(StringView full_name, String& file_name, String& folder);
  /// Joins a folder and a file name with exactly one separator.
  static String join_path(StringView folder, StringView file_name);
  /// Numbered message texts (4, 2002, 2004 to 2007, 5030); "" for an unknown number.
  static String message(int32_t number);
};

/// Unique identifiers.
class Guid : public Object {
 public:
  String type_name() const override { return u"iGUID"; }
  /// A new identifier: 32 upper-case hexadecimal digits, valid inside a defined name.
  static String new_guid();
};

/// Workbook document properties, through the host.
class DocProps : public Object {
 public:
  String type_name() const override { return u"iDocProp"; }
  /// Prepares a custom property for writing: removes an older one of that name.
  static bool prepare(const host::WorkbookPtr& wkb, const String& name);
  /// Writes a text custom property (adding it when it does not exist).
  static bool set_text(const host::WorkbookPtr& wkb, const String& name, const String& value);
  /// Reads a custom property as text; "" when there is none.
  static String get_text(const host::WorkbookPtr& wkb, const String& name);
};

/// File services.
class Files : public Object {
 public:
  String type_name() const override { return u"iFile"; }
  static bool exists(const String& path);
  static bool folder_exists(const String& path);
  /// True when the file exists and cannot be written: marked read-only, or not writable by
  /// this user.
  static bool is_read_only(const String& path);
  /// A folder name without trailing separator (a bare root keeps its own: "C:\\", "/"), with
  /// repeated separators folded and "." and ".." resolved textually; Windows paths keep
  /// backslashes. "" stays "".
  static String normalise_folder(const String& path);
  /// The per-user application-data folder (through the platform seam).
  static String app_data_folder();
  static bool copy(const String& from, const String& to, bool overwrite = true);
  /// Deletes a file; a missing file is no error.
  static bool remove(const String& path);
  /// The file-choice dialog (through the UI seam); "" when cancelled.
  static String choose_file(const host::FileDialogArgs& args);
};

/// The progress indicator of one run (through the UI seam).
class ProgressIndicator {
 public:
  /// `start(nullptr, nullptr, 10, 0.005, 16777215, 8388608)` in the library's terms.
  void start(const ObjectPtr& form, const ObjectPtr& label, int32_t steps, double min_interval,
             int32_t back_color, int32_t fore_color);
  void show(const String& text, int32_t percent);

 private:
  std::unique_ptr<host::Progress> progress_;
};

/// Screen services.
class Screen : public Object {
 public:
  String type_name() const override { return u"iScreen"; }
  std::unique_ptr<ProgressIndicator> new_progress() const;
};

/// An ordered collection of automation values, optionally keyed.
class Collection : public Object {
 public:
  String type_name() const override { return u"Collection"; }
  int32_t count() const { return static_cast<int32_t>(items_.size()); }
  /// 1-based; raises error 9 outside.
  const Variant& item(int32_t index) const;
  /// Adds at the end; a key already in use (compared without regard to case) raises 5.
  void add(Variant value, const String& key = u"");
  /// Removes by 1-based position or by key.
  void remove(const Variant& index);
  /// Late-bound members Count, Item(i or key), Add(v, key), Remove(i or key).
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override;
  bool has_member(StringView name) const override;

 private:
  std::vector<std::pair<String, Variant>> items_;
};

/// Sorting and collections.
class Sort : public Object {
 public:
  String type_name() const override { return u"iSort"; }
  std::shared_ptr<Collection> new_collection() const { return std::make_shared<Collection>(); }
};

/// Window services.
class WinApi : public Object {
 public:
  String type_name() const override { return u"iWinAPI"; }
  bool bring_to_front(intptr_t window) const;
};

/// Constants of the sibling library (its first service object).
class Const : public Object {
 public:
  String type_name() const override { return u"iConst"; }
};

/// Hot-key services (kept for the wrapper's shape; the library calls none of them).
class HotKeys : public Object {
 public:
  String type_name() const override { return u"iHotKeys"; }
};

/// The sibling library's public object: it hands out the service objects and settings
/// stores.
class Public : public Object {
 public:
  String type_name() const override { return u"iPublic"; }
  std::shared_ptr<Const> const_service();
  std::shared_ptr<DocProps> docprop_service();
  std::shared_ptr<Files> file_service();
  std::shared_ptr<Guid> guid_service();
  std::shared_ptr<HotKeys> hotkeys_service();
  std::shared_ptr<Screen> screen_service();
  std::shared_ptr<Sort> sort_service();
  std::shared_ptr<Strings> string_service();
  std::shared_ptr<WinApi> winapi_service();
  /// A settings store for a section, on the current backend.
  std::shared_ptr<Settings> settings(const String& section);
};

/// Creates the sibling library's public object; nullptr when it cannot be loaded (the test
/// seam below makes it so).
std::shared_ptr<Public> load_public();

/// Test seam: while set, `load_public` fails (as when the sibling library is missing).
void set_load_failure(bool fail);

}  // namespace qz::vblib
