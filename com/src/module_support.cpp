#include "com/src/module_support.hpp"

#include <windows.h>

#include <olectl.h>

#include "com/src/com_object.hpp"
#include "com/src/errors.hpp"

namespace qz::com {

namespace {

class ClassFactory final : public ComObject<IClassFactory> {
 public:
  explicit ClassFactory(Creator create) : create_(std::move(create)) {}

  void* find_interface(REFIID iid) noexcept override {
    return IsEqualIID(iid, IID_IClassFactory) ? static_cast<IClassFactory*>(this) : nullptr;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    HRESULT result = E_UNEXPECTED;
    HRESULT hr = guard([&] { result = create_(iid, out); });
    return FAILED(hr) ? hr : result;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock)
      module_add_ref();
    else
      module_release();
    return S_OK;
  }

 private:
  Creator create_;
};

LONG set_value(HKEY key, const wchar_t* name, const std::wstring& value) {
  return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                        static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

// Creates HKCR\<path> and sets its default value (and optionally one named value).
LONG write_key(const std::wstring& path, const std::wstring& value, const wchar_t* name = nullptr,
               const std::wstring& named_value = {}) {
  HKEY key = nullptr;
  LONG rc = RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                            &key, nullptr);
  if (rc != ERROR_SUCCESS) return rc;
  rc = set_value(key, nullptr, value);
  if (rc == ERROR_SUCCESS && name) rc = set_value(key, name, named_value);
  RegCloseKey(key);
  return rc;
}

}  // namespace

IClassFactory* make_class_factory(Creator create) {
  return new ClassFactory(std::move(create));
}

std::wstring module_path() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD n = GetModuleFileNameW(g_instance, path.data(), static_cast<DWORD>(path.size()));
    if (n == 0) return {};
    if (n < path.size()) {
      path.resize(n);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

std::wstring guid_text(const GUID& guid) {
  wchar_t text[40] = {};
  StringFromGUID2(guid, text, 40);
  return text;
}

HRESULT register_classes(std::span<const ClassEntry> classes, const GUID* libid,
                         const wchar_t* lib_version) {
  const std::wstring path = module_path();
  if (path.empty()) return SELFREG_E_CLASS;
  for (const ClassEntry& c : classes) {
    const std::wstring clsid = L"CLSID\\" + guid_text(c.clsid);
    LONG rc = write_key(clsid, c.description);
    if (rc == ERROR_SUCCESS)
      rc = write_key(clsid + L"\\InprocServer32", path, L"ThreadingModel", L"Apartment");
    if (rc == ERROR_SUCCESS) rc = write_key(clsid + L"\\ProgID", c.prog_id);
    if (rc == ERROR_SUCCESS && libid) rc = write_key(clsid + L"\\TypeLib", guid_text(*libid));
    if (rc == ERROR_SUCCESS && lib_version) rc = write_key(clsid + L"\\Version", lib_version);
    if (rc == ERROR_SUCCESS) rc = write_key(c.prog_id, c.description);
    if (rc == ERROR_SUCCESS)
      rc = write_key(std::wstring(c.prog_id) + L"\\CLSID", guid_text(c.clsid));
    if (rc != ERROR_SUCCESS) return SELFREG_E_CLASS;
  }
  return S_OK;
}

HRESULT unregister_classes(std::span<const ClassEntry> classes) {
  HRESULT result = S_OK;
  for (const ClassEntry& c : classes) {
    for (const std::wstring& key : {L"CLSID\\" + guid_text(c.clsid), std::wstring(c.prog_id)}) {
      LONG rc = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
      if (rc == ERROR_SUCCESS) rc = RegDeleteKeyW(HKEY_CLASSES_ROOT, key.c_str());
      if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) result = SELFREG_E_CLASS;
    }
  }
  return result;
}

}  // namespace qz::com
