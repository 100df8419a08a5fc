#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>

#include "host/host.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

#ifndef _WIN32
#include <unistd.h>
#endif

namespace qz::vblib {

namespace fs = std::filesystem;

namespace {
std::atomic<bool> g_load_failure{false};

fs::path to_path(const String& s) {
#ifdef _WIN32
  return fs::path(std::wstring(s.begin(), s.end()));
#else
  // Callers join folders and names with "\" as on Windows; here it separates folders too.
  String native = s;
  std::replace(native.begin(), native.end(), u'\\', u'/');
  return fs::path(to_utf8(native));
#endif
}
}  // namespace

String Guid::new_guid() {
  // One generator per thread, seeded from the system; reseeded in a forked child, which
  // would otherwise repeat its parent's identifiers.
  struct Generator {
    std::mt19937_64 rng;
    long pid = -1;
  };
  static thread_local Generator gen;
#ifndef _WIN32
  long pid = static_cast<long>(::getpid());
#else
  long pid = 0;
#endif
  if (gen.pid != pid) {
    std::random_device rd;
    std::seed_seq seq{rd(), rd(), rd(), rd(), rd(), rd(), rd(), rd()};
    gen.rng.seed(seq);
    gen.pid = pid;
  }
  static const char16_t hex[] = u"0123456789ABCDEF";
  String out;
  out.reserve(32);
  for (int half = 0; half < 2; ++half) {
    uint64_t v = gen.rng();
    for (int i = 0; i < 16; ++i, v >>= 4) out.push_back(hex[v & 0xF]);
  }
  return out;
}

bool DocProps::prepare(const host::WorkbookPtr& wkb, const String& name) {
  if (!wkb) return false;
  auto props = wkb->custom_document_properties();
  try {
    props->item(name)->delete_();
  } catch (const Error&) {
    // No older property of that name: nothing to remove.
  }
  return true;
}

bool DocProps::set_text(const host::WorkbookPtr& wkb, const String& name, const String& value) {
  if (!wkb) return false;
  auto props = wkb->custom_document_properties();
  try {
    props->item(name)->set_value(value);
  } catch (const Error&) {
    props->add(name, false, 4, value);
  }
  return true;
}

String DocProps::get_text(const host::WorkbookPtr& wkb, const String& name) {
  if (!wkb) return String();
  try {
    return to_string(wkb->custom_document_properties()->item(name)->value());
  } catch (const Error&) {
    return String();
  }
}

bool Files::exists(const String& path) {
  std::error_code ec;
  return !path.empty() && fs::is_regular_file(to_path(path), ec);
}

bool Files::folder_exists(const String& path) {
  std::error_code ec;
  return !path.empty() && fs::is_directory(to_path(path), ec);
}

bool Files::is_read_only(const String& path) {
  std::error_code ec;
  auto st = fs::status(to_path(path), ec);
  if (ec || !fs::exists(st)) return false;
  // The file's own read-only mark (no write permission for its owner) counts even for a
  // user who could write it anyway, as the read-only attribute does on Windows.
  if ((st.permissions() & fs::perms::owner_write) == fs::perms::none) return true;
#ifndef _WIN32
  return ::access(to_path(path).c_str(), W_OK) != 0;
#else
  return false;
#endif
}

String Files::normalise_folder(const String& path) {
  if (path.empty()) return path;
  // Windows paths keep their backslashes; anything else uses "/".
  const bool windows = path.find(u'\\') != String::npos || (path.size() >= 2 && path[1] == u':');
  const char16_t sep = windows ? u'\\' : u'/';
  auto is_sep = [](char16_t c) { return c == u'\\' || c == u'/'; };

  // The root that ".." cannot climb above: "C:\", "\\server\share\", "/", or none.
  String root;
  size_t i = 0;
  if (path.size() >= 2 && path[1] == u':') {
    root = path.substr(0, 2);
    i = 2;
    if (i < path.size() && is_sep(path[i])) root.push_back(sep), ++i;
  } else if (path.size() >= 2 && is_sep(path[0]) && is_sep(path[1])) {
    root.assign(2, sep);
    i = 2;
    for (int parts = 0; parts < 2 && i < path.size(); ++parts) {
      size_t end = i;
      while (end < path.size() && !is_sep(path[end])) ++end;
      root += path.substr(i, end - i);
      root.push_back(sep);
      i = end < path.size() ? end + 1 : end;
    }
  } else if (is_sep(path[0])) {
    root.push_back(sep);
    i = 1;
  }

  std::vector<String> parts;
  while (i < path.size()) {
    size_t end = i;
    while (end < path.size() && !is_sep(path[end])) ++end;
    String part = path.substr(i, end - i);
    i = end + 1;
    if (part.empty() || part == u".") continue;
    if (part == u"..") {
      if (!parts.empty() && parts.back() != u"..")
        parts.pop_back();
      else if (root.empty())
        parts.push_back(part);  // a relative path keeps climbing
      continue;
    }
    parts.push_back(std::move(part));
  }
  String out = root;
  for (size_t k = 0; k < parts.size(); ++k) {
    if (k > 0) out.push_back(sep);
    out += parts[k];
  }
  // A bare drive or file-system root keeps its separator ("C:\", "/"), a share does not;
  // a relative path that resolves to nothing is the current folder.
  if (parts.empty() && root.size() > 2 && is_sep(root[0]) && is_sep(root[1])) out.pop_back();
  if (out.empty()) return String(u".");
  return out;
}

String Files::app_data_folder() {
  auto platform = host::environment().platform;
  return platform ? platform->app_data_folder() : String();
}

bool Files::copy(const String& from, const String& to, bool overwrite) {
  std::error_code ec;
  fs::copy_file(to_path(from), to_path(to),
                overwrite ? fs::copy_options::overwrite_existing : fs::copy_options::none, ec);
  return !ec;
}

bool Files::remove(const String& path) {
  std::error_code ec;
  fs::remove(to_path(path), ec);
  return !ec;
}

String Files::choose_file(const host::FileDialogArgs& args) {
  auto ui = host::environment().ui;
  return ui ? ui->get_open_filename(args) : String();
}

void ProgressIndicator::start(const ObjectPtr&, const ObjectPtr&, int32_t, double,
                              int32_t back_color, int32_t fore_color) {
  auto ui = host::environment().ui;
  if (ui) progress_ = ui->start_progress(back_color, fore_color);
}

void ProgressIndicator::show(const String& text, int32_t percent) {
  if (progress_) progress_->show(text, percent);
}

std::unique_ptr<ProgressIndicator> Screen::new_progress() const {
  return std::make_unique<ProgressIndicator>();
}

const Variant& Collection::item(int32_t index) const {
  if (index < 1 || index > count()) throw Error(err::subscript, "Subscript out of range");
  return items_[static_cast<size_t>(index - 1)].second;
}

void Collection::add(Variant value, const String& key) {
  if (!key.empty())
    for (const auto& [k, v] : items_)
      if (equals_text(k, key)) throw Error(err::invalid_call, "This key is already associated");
  items_.emplace_back(key, std::move(value));
}

Variant Collection::invoke(StringView name, Invoke kind, std::span<Variant> args) {
  if (same_member(name, u"Count")) return count();
  if (same_member(name, u"Item") && !args.empty()) {
    if (args[0].is_string()) {
      for (const auto& [k, v] : items_)
        if (equals_text(k, args[0].str())) return v;
      throw Error(err::invalid_call, "Invalid procedure call or argument");
    }
    return item(to_long(args[0]));
  }
  if (same_member(name, u"Remove") && kind == Invoke::Method && !args.empty()) {
    remove(args[0]);
    return Variant();
  }
  if (same_member(name, u"Add") && kind == Invoke::Method && !args.empty()) {
    add(args[0], args.size() > 1 && !args[1].is_missing() ? to_string(args[1]) : String());
    return Variant();
  }
  return Object::invoke(name, kind, args);
}

void Collection::remove(const Variant& index) {
  if (index.is_string()) {
    for (auto it = items_.begin(); it != items_.end(); ++it) {
      if (equals_text(it->first, index.str())) {
        items_.erase(it);
        return;
      }
    }
    throw Error(err::invalid_call, "Invalid procedure call or argument");
  }
  int32_t i = to_long(index);
  if (i < 1 || i > count()) throw Error(err::subscript, "Subscript out of range");
  items_.erase(items_.begin() + (i - 1));
}

bool Collection::has_member(StringView name) const {
  return same_member(name, u"Count") || same_member(name, u"Item") || same_member(name, u"Add") ||
         same_member(name, u"Remove");
}

bool WinApi::bring_to_front(intptr_t window) const {
  auto platform = host::environment().platform;
  return platform && platform->set_foreground_window(window);
}

std::shared_ptr<Const> Public::const_service() {
  return std::make_shared<Const>();
}
std::shared_ptr<DocProps> Public::docprop_service() {
  return std::make_shared<DocProps>();
}
std::shared_ptr<Files> Public::file_service() {
  return std::make_shared<Files>();
}
std::shared_ptr<Guid> Public::guid_service() {
  return std::make_shared<Guid>();
}
std::shared_ptr<HotKeys> Public::hotkeys_service() {
  return std::make_shared<HotKeys>();
}
std::shared_ptr<Screen> Public::screen_service() {
  return std::make_shared<Screen>();
}
std::shared_ptr<Sort> Public::sort_service() {
  return std::make_shared<Sort>();
}
std::shared_ptr<Strings> Public::string_service() {
  return std::make_shared<Strings>();
}
std::shared_ptr<WinApi> Public::winapi_service() {
  return std::make_shared<WinApi>();
}

std::shared_ptr<Settings> Public::settings(const String& section) {
  return std::make_shared<Settings>(section, settings_backend());
}

std::shared_ptr<Public> load_public() {
  if (g_load_failure.load()) return nullptr;
  return std::make_shared<Public>();
}

void set_load_failure(bool fail) {
  g_load_failure.store(fail);
}

}  // namespace qz::vblib
