// The entry points of an in-process server, the same for both DLLs: each tells what it serves
// in kDllClasses (com/src/module.cpp for QZXLLib.dll, the test host for QZXLTestHost.dll).
#include <windows.h>

#include <olectl.h>

#include "com/src/core.hpp"
#include "com/src/errors.hpp"
#include "com/src/module_support.hpp"

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
  const ClassEntry* entry = nullptr;
  for (const ClassEntry& c : kDllClasses.classes)
    if (IsEqualCLSID(clsid, c.clsid)) entry = &c;
  if (!entry) return CLASS_E_CLASSNOTAVAILABLE;
  IClassFactory* factory = nullptr;
  HRESULT hr = guard([&] { factory = make_class_factory(entry->create); });
  if (FAILED(hr)) return hr;
  hr = factory->QueryInterface(iid, out);
  factory->Release();
  return hr;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow() {
  return module_can_unload() ? S_OK : S_FALSE;
}

extern "C" HRESULT STDAPICALLTYPE DllRegisterServer() {
  HRESULT hr = register_classes(kDllClasses.classes, kDllClasses.libid, kDllClasses.lib_version);
  if (FAILED(hr) || !kDllClasses.register_more) return hr;
  return kDllClasses.register_more(true);
}

extern "C" HRESULT STDAPICALLTYPE DllUnregisterServer() {
  HRESULT classes = unregister_classes(kDllClasses.classes);
  if (kDllClasses.register_more) {
    HRESULT more = kDllClasses.register_more(false);
    if (FAILED(more)) return more;
  }
  return classes;
}
