// The application's add-ins list, its number-format dialog and the keystrokes a macro sends it.
#include <algorithm>
#include <filesystem>

#include "engine/host/engine.hpp"
#include "engine/host/objects.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

String native_path(const String& path) {
#if defined(_WIN32)
  return path;
#else
  String out = path;
  std::replace(out.begin(), out.end(), u'\\', u'/');
  return out;
#endif
}

namespace {

namespace fs = std::filesystem;

fs::path fs_path(const String& path) {
#if defined(_WIN32)
  return fs::path(std::wstring(path.begin(), path.end()));
#else
  return fs::path(to_utf8(path));
#endif
}

String file_part(const String& full_name) {
  size_t slash = full_name.find_last_of(u"/\\");
  return slash == String::npos ? full_name : full_name.substr(slash + 1);
}

// ---------------------------------------------------------------------------------------------
// Add-ins

// An add-in is known by its full file name, which the list never holds twice.
class EAddIn final : public host::AddIn {
 public:
  EAddIn(std::shared_ptr<AppState> app, String full_name)
      : app_(std::move(app)), full_name_(std::move(full_name)) {}
  String name() override { return file_part(rec().full_name); }
  String title() override { return rec().title; }
  String full_name() override { return rec().full_name; }
  bool installed() override { return rec().installed; }
  void set_installed(bool installed) override {
    AddInRec& r = rec();
    if (installed && !fs::is_regular_file(fs_path(r.full_name)))
      fail("unable to set the Installed property: \"" + to_utf8(r.full_name) +
           "\" cannot be found");
    r.installed = installed;
  }

 private:
  AddInRec& rec() {
    for (auto& r : app_->add_ins)
      if (equals_text(r.full_name, full_name_)) return r;
    fail("the add-in \"" + to_utf8(full_name_) + "\" is no longer in the list");
  }
  std::shared_ptr<AppState> app_;
  String full_name_;
};

class EAddIns final : public host::AddIns {
 public:
  explicit EAddIns(std::shared_ptr<AppState> app) : app_(std::move(app)) {}
  int32_t count() override { return static_cast<int32_t>(app_->add_ins.size()); }
  host::AddInPtr item(const Variant& index) override {
    if (index.is_string()) {
      // By title, as the add-ins dialog lists them, or by file name.
      for (auto& r : app_->add_ins)
        if (equals_text(r.title, index.str()) || equals_text(file_part(r.full_name), index.str()))
          return std::make_shared<EAddIn>(app_, r.full_name);
      not_found("AddIns(\"" + to_utf8(index.str()) + "\")");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > count()) not_found("AddIns(" + std::to_string(i) + ")");
    return std::make_shared<EAddIn>(app_, app_->add_ins[static_cast<size_t>(i - 1)].full_name);
  }
  host::AddInPtr add(const String& filename, const Variant&) override {
    String path = native_path(filename);
    if (path.empty() || !fs::is_regular_file(fs_path(path)))
      fail("Add method of AddIns class failed: \"" + to_utf8(filename) + "\" cannot be found");
    for (auto& r : app_->add_ins)
      if (equals_text(r.full_name, path)) return std::make_shared<EAddIn>(app_, r.full_name);
    // The list shows the add-in's Title document property; an add-in without one (or one
    // that cannot be read) shows its file name without the extension.
    String title;
    if (const FileFormat* f = file_format_for(path); f && f->title) {
      try {
        title = f->title(path);
      } catch (const Error&) {
      }
    }
    if (title.empty()) {
      title = file_part(path);
      if (size_t dot = title.rfind(u'.'); dot != String::npos && dot > 0) title.erase(dot);
    }
    app_->add_ins.push_back(AddInRec{path, title, false});
    return std::make_shared<EAddIn>(app_, path);
  }

 private:
  std::shared_ptr<AppState> app_;
};

// ---------------------------------------------------------------------------------------------
// Keystrokes

// One keystroke in the notation of SendKeys: "{TAB 3}", "{DOWN}", "~" (Enter), "+{TAB}".
struct Key {
  String name;  // upper case: "TAB", "DOWN", "ENTER", or the character typed
  int32_t repeat = 1;
  bool shift = false;
};

std::vector<Key> parse_keys(StringView keys) {
  std::vector<Key> out;
  bool shift = false;
  for (size_t i = 0; i < keys.size(); ++i) {
    char16_t c = keys[i];
    if (c == u'+') {
      shift = true;
      continue;
    }
    if (c == u'^' || c == u'%') continue;  // Ctrl and Alt change nothing in this dialog
    Key k;
    k.shift = shift;
    shift = false;
    if (c == u'~') {
      k.name = u"ENTER";
    } else if (c == u'{') {
      // "{}}" and "{{}" are the braces themselves.
      size_t close = keys.find(u'}', i + 2);
      if (close == StringView::npos) break;
      StringView body = keys.substr(i + 1, close - i - 1);
      i = close;
      size_t space = body.find(u' ');
      k.name = to_upper(body.substr(0, space));
      if (space != StringView::npos) {
        auto n = parse_number(body.substr(space + 1));
        if (n && *n >= 0) k.repeat = static_cast<int32_t>(*n);
      }
    } else {
      k.name = to_upper(StringView(&keys[i], 1));
    }
    out.push_back(std::move(k));
  }
  return out;
}

// ---------------------------------------------------------------------------------------------
// The number-format dialog (Dialogs(42))

// The formats the dialog lists for a workbook: the built-in ones in id order, then the
// workbook's own, each once, in the text a cell reports for it.
std::vector<String> format_list(const Book& book) {
  std::vector<String> out;
  auto add = [&](String code) {
    if (std::find(out.begin(), out.end(), code) == out.end()) out.push_back(std::move(code));
  };
  for (int32_t id = 0; id < 164; ++id)
    if (numfmt::builtin_code(id)) add(book.styles.numfmt_code(static_cast<uint32_t>(id)));
  for (const auto& [id, code] : book.styles.numfmts) add(code);
  return out;
}

// The dialog's controls in tab order; focus starts on the category list, and three tabs
// reach the list of formats.
enum Control : int32_t { kCategories, kTypeBox, kDeleteButton, kFormats, kOk, kCancel, kControls };

class ENumberFormatDialog final : public host::Dialog {
 public:
  explicit ENumberFormatDialog(std::shared_ptr<AppState> app) : app_(std::move(app)) {}

  bool show(std::span<Variant> args) override {
    if (!app_->active) fail("Show method of Dialog class failed: no workbook is open");
    auto selection = app_->application()->selection();
    auto cells = std::dynamic_pointer_cast<host::Range>(selection);
    if (!cells) fail("Show method of Dialog class failed: no cells are selected");
    std::vector<String> list = format_list(*app_->active);

    String start;
    if (!args.empty() && !args[0].is_missing()) {
      start = to_string(args[0]);
    } else {
      Variant current = cells->number_format();
      start = current.is_null() ? String(u"General") : to_string(current);
    }
    size_t pos = 0;
    if (auto it = std::find(list.begin(), list.end(), start); it != list.end())
      pos = static_cast<size_t>(it - list.begin());

    // The dialog reads what was sent before it opened; without keys nobody answers it, and
    // it closes as cancelled.
    String keys;
    keys.swap(app_->pending_keys);
    int32_t focus = kCategories;
    for (const Key& k : parse_keys(keys)) {
      if (k.name == u"TAB") {
        int32_t step = (k.shift ? -k.repeat : k.repeat) % kControls;
        focus = ((focus + step) % kControls + kControls) % kControls;
      } else if (focus == kFormats && k.name == u"DOWN") {
        pos = std::min(pos + static_cast<size_t>(k.repeat), list.size() - 1);
      } else if (focus == kFormats && k.name == u"UP") {
        pos = pos > static_cast<size_t>(k.repeat) ? pos - static_cast<size_t>(k.repeat) : 0;
      } else if (focus == kFormats && k.name == u"HOME") {
        pos = 0;
      } else if (focus == kFormats && k.name == u"END") {
        pos = list.size() - 1;
      } else if (k.name == u"ENTER") {
        if (focus == kCancel) return false;
        cells->set_number_format(list[pos]);
        return true;
      } else if (k.name == u"ESC" || k.name == u"ESCAPE") {
        return false;
      }
    }
    return false;
  }

 private:
  std::shared_ptr<AppState> app_;
};

}  // namespace

host::AddInsPtr make_add_ins(const std::shared_ptr<AppState>& app) {
  return std::make_shared<EAddIns>(app);
}

host::DialogPtr make_dialog(const std::shared_ptr<AppState>& app, int32_t id) {
  if (id == host::xl::DialogFormatNumber) return std::make_shared<ENumberFormatDialog>(app);
  throw Error(err::not_supported,
              "Dialogs(" + std::to_string(id) + ") is not available in this host");
}

}  // namespace qz::engine::detail
