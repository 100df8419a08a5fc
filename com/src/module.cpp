// What QZXLLib.dll serves: the two creatable classes and the type library, for the entry
// points of dll_entry.cpp. None of the library's logic is here; the first object created
// sets up the Windows services and the session.
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

HRESULT create_public(REFIID iid, void** out) {
  enter_module();
  return create_server(qz::create_iXLLibPublic(), iid, out);
}

HRESULT create_chart(REFIID iid, void** out) {
  enter_module();
  return create_server(qz::create_iChartXL(), iid, out);
}

constexpr ClassEntry kClasses[] = {
    {itf::kCLSIDiXLLibPublic, L"QZXLLib.iXLLibPublic", L"iXLLibPublic", create_public},
    {itf::kCLSIDiChartXL, L"QZXLLib.iChartXL", L"iChartXL", create_chart},
};

// The type library, registered after the classes and removed after them.
HRESULT register_type_library(bool install) {
  if (install) {
    ComPtr<ITypeLib> library;
    const std::wstring path = module_path();
    HRESULT hr = LoadTypeLibEx(path.c_str(), REGKIND_NONE, library.put());
    if (SUCCEEDED(hr))
      hr = RegisterTypeLib(library.get(), const_cast<OLECHAR*>(path.c_str()), nullptr);
    return FAILED(hr) ? SELFREG_E_TYPELIB : S_OK;
  }
#ifdef _WIN64
  const SYSKIND sys = SYS_WIN64;
#else
  const SYSKIND sys = SYS_WIN32;
#endif
  HRESULT lib = UnRegisterTypeLib(kLibId, kLibMajor, kLibMinor, 0, sys);
  if (FAILED(lib) && lib != TYPE_E_REGISTRYACCESS && lib != TYPE_E_CANTLOADLIBRARY &&
      lib != TYPE_E_LIBNOTREGISTERED)
    return SELFREG_E_TYPELIB;
  return S_OK;
}

}  // namespace

const DllClasses kDllClasses{kClasses, &kLibId, L"1.1", register_type_library};

}  // namespace qz::com
