#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"
#include "vocab/atomic_file.hpp"

#ifndef _WIN32
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

namespace qz::vblib {

namespace fs = std::filesystem;

namespace {

fs::path config_dir() {
  if (const char* d = std::getenv("QZXL_CONFIG_DIR"); d && *d) return fs::path(d);
  if (const char* x = std::getenv("XDG_CONFIG_HOME"); x && *x) return fs::path(x) / "qzxl";
  if (const char* h = std::getenv("HOME"); h && *h) return fs::path(h) / ".config" / "qzxl";
  return fs::path(".qzxl");
}

// An INI file of sections and `name=value` lines, UTF-8. Section and value names are
// compared without regard to case, as the registry compares them on Windows, so that a
// setting reads back the same whichever store holds it. Everything is kept on one line per
// value: line breaks and backslashes are escaped everywhere, and in names also the
// characters that would read as INI syntax ("=", "[", "]", ";", "#").
struct TextLess {
  bool operator()(const String& a, const String& b) const { return compare_text(a, b) < 0; }
};
using Values = std::map<String, String, TextLess>;
using Sections = std::map<String, Values, TextLess>;

String unescape(std::string_view s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 1 < s.size()) {
      char c = s[++i];
      out.push_back(c == 'n' ? '\n' : c == 'r' ? '\r' : c);
    } else {
      out.push_back(s[i]);
    }
  }
  return from_utf8(out);
}

std::string escape(const String& s, bool name) {
  std::string out;
  for (char c : to_utf8(s)) {
    if (c == '\\')
      out += "\\\\";
    else if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (name && (c == '=' || c == '[' || c == ']' || c == ';' || c == '#'))
      out += '\\', out += c;
    else
      out.push_back(c);
  }
  return out;
}

// Position of the first "=" that is not escaped, or npos.
size_t find_separator(const std::string& line) {
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\')
      ++i;
    else if (line[i] == '=')
      return i;
  }
  return std::string::npos;
}

Sections parse(std::istream& in) {
  Sections out;
  String section;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line[0] == '[' && line.back() == ']') {
      section = unescape(std::string_view(line).substr(1, line.size() - 2));
      continue;
    }
    size_t eq = find_separator(line);
    if (eq == std::string::npos) continue;
    out[section][unescape(std::string_view(line).substr(0, eq))] =
        unescape(std::string_view(line).substr(eq + 1));
  }
  return out;
}

// Holds an exclusive lock on the settings folder's lock file while alive, so that two
// processes changing settings at once do not lose each other's writes.
class FileLock {
 public:
  explicit FileLock(const fs::path& file) {
#ifndef _WIN32
    fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
#else
    (void)file;
#endif
  }
  ~FileLock() {
#ifndef _WIN32
    if (fd_ >= 0) {
      ::flock(fd_, LOCK_UN);
      ::close(fd_);
    }
#endif
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int fd_ = -1;
};

class FileBackend final : public SettingsBackend {
 public:
  std::optional<String> read(const String& section, const String& name) override {
    auto all = load();
    auto s = all.find(section);
    if (s == all.end()) return std::nullopt;
    auto v = s->second.find(name);
    if (v == s->second.end()) return std::nullopt;
    return v->second;
  }

  void write(const String& section, const String& name, const String& value) override {
    modify([&](Sections& all) {
      // A name already stored keeps its first spelling; only the value changes.
      Values& values = all[section];
      if (auto it = values.find(name); it != values.end())
        it->second = value;
      else
        values.emplace(name, value);
    });
  }

  void remove(const String& section, const String& name) override {
    modify([&](Sections& all) {
      auto s = all.find(section);
      if (s != all.end()) s->second.erase(name);
    });
  }

  std::vector<String> names(const String& section) override {
    std::vector<String> out;
    auto all = load();
    if (auto s = all.find(section); s != all.end())
      for (const auto& [k, v] : s->second) out.push_back(k);
    return out;
  }

 private:
  static fs::path file() { return config_dir() / "settings.ini"; }

  static Sections load() {
    std::ifstream in(file(), std::ios::binary);
    if (!in) return {};
    return parse(in);
  }

  template <class F>
  static void modify(F&& change) {
    fs::path dir = config_dir();
    std::error_code ec;
    fs::create_directories(dir, ec);
    FileLock lock(dir / "settings.lock");
    Sections all = load();
    change(all);
    std::ostringstream out;
    for (const auto& [section, values] : all) {
      if (values.empty()) continue;
      out << '[' << escape(section, true) << "]\n";
      for (const auto& [k, v] : values) out << escape(k, true) << '=' << escape(v, false) << '\n';
    }
    // Replaced whole, so a reader never sees half a file.
    AtomicFile f(file());
    if (!f.ok()) throw Error(err::host_failure, "cannot write settings in " + dir.string());
    if (!f.write(out.str()) || !f.commit())
      throw Error(err::host_failure, "cannot replace " + file().string());
  }
};

}  // namespace

std::shared_ptr<SettingsBackend> file_settings_backend() {
  return std::make_shared<FileBackend>();
}

std::shared_ptr<SettingsBackend>& settings_backend() {
  static std::shared_ptr<SettingsBackend> backend = file_settings_backend();
  return backend;
}

Settings::Settings(String section, std::shared_ptr<SettingsBackend> backend)
    : section_(std::move(section)), backend_(std::move(backend)) {}

namespace {
void check_hive(int32_t hive) {
  if (hive != kHkeyCurrentUser)
    throw Error(err::invalid_call, "settings are kept for the current user only");
}
}  // namespace

String Settings::read(int32_t hive, const String& name) {
  check_hive(hive);
  return backend_->read(section_, name).value_or(String());
}

void Settings::write(int32_t hive, const String& name, const String& value) {
  check_hive(hive);
  backend_->write(section_, name, value);
}

void Settings::remove(int32_t hive, const String& name) {
  check_hive(hive);
  backend_->remove(section_, name);
}

}  // namespace qz::vblib
