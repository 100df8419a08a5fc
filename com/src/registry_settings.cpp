#include "com/src/registry_settings.hpp"

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

namespace qz::com {

namespace {

const wchar_t kSettingsRoot[] = L"Software\\Quazel\\QZXLLib\\";

std::wstring wstr(const String& s) {
  return std::wstring(s.begin(), s.end());
}
String ustr(const wchar_t* s, size_t n) {
  return String(s, s + n);
}

[[noreturn]] void registry_failure(const char* what, LONG rc) {
  throw Error(err::host_failure, std::string("Settings store: cannot ") + what + " (error " +
                                     std::to_string(rc) + ")");
}

class RegistrySettings final : public vblib::SettingsBackend {
 public:
  std::optional<String> read(const String& section, const String& name) override {
    const std::wstring key = kSettingsRoot + wstr(section);
    const std::wstring value = wstr(name);
    DWORD bytes = 0;
    LONG rc = RegGetValueW(HKEY_CURRENT_USER, key.c_str(), value.c_str(), RRF_RT_REG_SZ, nullptr,
                           nullptr, &bytes);
    if (rc == ERROR_FILE_NOT_FOUND) return std::nullopt;
    if (rc != ERROR_SUCCESS) registry_failure("read", rc);
    std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1, L'\0');
    bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    rc = RegGetValueW(HKEY_CURRENT_USER, key.c_str(), value.c_str(), RRF_RT_REG_SZ, nullptr,
                      buffer.data(), &bytes);
    if (rc == ERROR_FILE_NOT_FOUND) return std::nullopt;
    if (rc != ERROR_SUCCESS) registry_failure("read", rc);
    return ustr(buffer.data(), wcsnlen(buffer.data(), buffer.size()));
  }

  void write(const String& section, const String& name, const String& value) override {
    const std::wstring key = kSettingsRoot + wstr(section);
    HKEY h = nullptr;
    LONG rc = RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                              &h, nullptr);
    if (rc != ERROR_SUCCESS) registry_failure("write", rc);
    const std::wstring n = wstr(name), v = wstr(value);
    rc = RegSetValueExW(h, n.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(v.c_str()),
                        static_cast<DWORD>((v.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(h);
    if (rc != ERROR_SUCCESS) registry_failure("write", rc);
  }

  void remove(const String& section, const String& name) override {
    const std::wstring key = kSettingsRoot + wstr(section);
    HKEY h = nullptr;
    LONG rc = RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_SET_VALUE, &h);
    if (rc == ERROR_FILE_NOT_FOUND) return;
    if (rc != ERROR_SUCCESS) registry_failure("remove", rc);
    rc = RegDeleteValueW(h, wstr(name).c_str());
    RegCloseKey(h);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) registry_failure("remove", rc);
  }

  std::vector<String> names(const String& section) override {
    const std::wstring key = kSettingsRoot + wstr(section);
    std::vector<String> out;
    HKEY h = nullptr;
    LONG rc = RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_QUERY_VALUE, &h);
    if (rc == ERROR_FILE_NOT_FOUND) return out;
    if (rc != ERROR_SUCCESS) registry_failure("list", rc);
    wchar_t name[16384];
    for (DWORD i = 0;; ++i) {
      DWORD len = 16384;
      rc = RegEnumValueW(h, i, name, &len, nullptr, nullptr, nullptr, nullptr);
      if (rc != ERROR_SUCCESS) break;
      out.push_back(ustr(name, len));
    }
    RegCloseKey(h);
    std::sort(out.begin(), out.end());
    return out;
  }
};

}  // namespace

std::shared_ptr<vblib::SettingsBackend> registry_settings_backend() {
  return std::make_shared<RegistrySettings>();
}

}  // namespace qz::com
