// The entry points of QZXLLib.dll: the class objects of the two creatable classes, unloading,
// and registration of the classes and the type library. They hold none of the library's
// logic; the first object created sets up the Windows services and the session.
#include <windows.h>

#include <olectl.h>

#include <mutex>

#include "com/src/module_support.hpp"
#include "com/src/object_dispatch.hpp"
#include "com/src/registry_settings.hpp"
#include "com/src/server.hpp"
#include "com/src/user_locale.hpp"
#include "com/src/windows_services.hpp"
#include "host/environment.hpp"
#include "qzxl/qzxl.hpp"
#include "vblib/vblib.hpp"

namespace qz::com {
namespace {

constexpr ClassEntry kClasses[] = {
    {itf::kCLSIDiXLLibPublic, L"QZXLLib.iXLLibPublic", L"iXLLibPublic"},
    {itf::kCLSIDiChartXL, L"QZXLLib.iChartXL", L"iChartXL"},
};

template <class Lib>
IDispatch* server_if(const ObjectPtr& o) {
  auto p = std::dynamic_pointer_cast<Lib>(o);
  return p ? make_server(p) : nullptr;
}
template <class... Libs>
IDispatch* server_of_any(const ObjectPtr& o) {
  IDispatch* d = nullptr;
  ((d = d ? d : server_if<Libs>(o)), ...);
  return d;
}

// A library object handed to a client: the original IDispatch of a host or client object,
// its own interface's server for one of the thirteen public classes, a generic automation
// object otherwise (the ordered collection of AllCharts).
IDispatch* export_library_object(const ObjectPtr& o) {
  if (IDispatch* d = foreign_dispatch(o.get())) {
    d->AddRef();
    return d;
  }
  IDispatch* d = server_of_any<_iXLLibPublic, _iChartXL, _iWorkbook, _iWorksheet, _iControl,
                               _iRange, _iFormula, _iXLLibConst, _iMenu, _iXLLibProduct, _iDisplay,
                               _iAutoColor, _iUndoRedo>(o);
  return d ? d : dispatch_for(o);
}

// A client's or the application's object: one of our own servers or wrappers is unwrapped,
// anything else stands in as a host object by its type name.
ObjectPtr import_foreign_object(IDispatch* d) {
  if (auto own = server_object(d)) return own;
  return adapt_any(d);
}

// Everything the library needs from Windows, installed once before the first object; the
// user's regional settings are read again whenever a client starts with a new top-level
// object, so that a session follows settings changed since the last one.
void enter_module() {
  set_locale(user_locale());
  static std::once_flag once;
  std::call_once(once, [] {
    object_bridge().import_object = import_foreign_object;
    object_bridge().export_object = export_library_object;
    vblib::settings_backend() = registry_settings_backend();
    host::environment().ui = windows_ui();
    host::environment().platform = windows_platform();
  });
}

template <class Lib>
HRESULT create_server(std::shared_ptr<Lib> object, REFIID iid, void** out) {
  auto* server = make_server(std::move(object));
  if (!server) return E_OUTOFMEMORY;
  HRESULT hr = server->QueryInterface(iid, out);
  server->Release();
  return hr;
}

}  // namespace
}  // namespace qz::com

using namespace qz::com;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_instance = instance;
    DisableThreadLibraryCalls(instance);
  }
  // The session's objects are destroyed after this; at process exit they must not call into
  // modules that may already be unloaded.
  if (reason == DLL_PROCESS_DETACH && reserved) g_process_ending = true;
  return TRUE;
}

extern "C" HRESULT STDAPICALLTYPE DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  Creator create;
  if (IsEqualCLSID(clsid, itf::kCLSIDiXLLibPublic)) {
    create = [](REFIID i, void** o) {
      enter_module();
      return create_server(qz::create_iXLLibPublic(), i, o);
    };
  } else if (IsEqualCLSID(clsid, itf::kCLSIDiChartXL)) {
    create = [](REFIID i, void** o) {
      enter_module();
      return create_server(qz::create_iChartXL(), i, o);
    };
  } else {
    return CLASS_E_CLASSNOTAVAILABLE;
  }
  return guard([&] {
    IClassFactory* factory = make_class_factory(std::move(create));
    HRESULT hr = factory->QueryInterface(iid, out);
    factory->Release();
    if (FAILED(hr)) throw qz::Error(qz::err::invalid_call, "No such class object interface");
  });
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() {
  return module_can_unload() ? S_OK : S_FALSE;
}

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
  HRESULT hr = register_classes(kClasses, &kLibId, L"1.1");
  if (FAILED(hr)) return hr;
  ComPtr<ITypeLib> library;
  const std::wstring path = module_path();
  hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.put());
  if (SUCCEEDED(hr))
    hr = RegisterTypeLib(library.get(), const_cast<OLECHAR*>(path.c_str()), nullptr);
  return FAILED(hr) ? SELFREG_E_TYPELIB : S_OK;
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
#ifdef _WIN64
  const SYSKIND sys = SYS_WIN64;
#else
  const SYSKIND sys = SYS_WIN32;
#endif
  HRESULT classes = unregister_classes(kClasses);
  HRESULT lib = UnRegisterTypeLib(kLibId, kLibMajor, kLibMinor, 0, sys);
  if (FAILED(lib) && lib != TYPE_E_REGISTRYACCESS && lib != TYPE_E_CANTLOADLIBRARY &&
      lib != TYPE_E_LIBNOTREGISTERED)
    return SELFREG_E_TYPELIB;
  return classes;
}
