// What both DLLs need to be in-process servers: a class factory, the registry entries of
// their classes, and what each DLL tells the shared entry points.
#pragma once

#include <oaidl.h>

#include <functional>
#include <span>
#include <string>

namespace qz::com {

/// Makes a new object of a class and asks it for an interface.
using Creator = std::function<HRESULT(REFIID iid, void** out)>;

/// A class factory (reference count 1) for one class.
IClassFactory* make_class_factory(Creator create);

/// One creatable class: how the registry knows it and how an object of it is made.
struct ClassEntry {
  GUID clsid;
  const wchar_t* prog_id;      // "QZXLLib.iXLLibPublic"
  const wchar_t* description;  // shown by registry tools
  HRESULT (*create)(REFIID iid, void** out);
};

/// What one DLL serves; each DLL defines its own (com/src/module.cpp, the test host), and
/// the entry points every in-process server exports (dll_entry.cpp) answer from it.
struct DllClasses {
  std::span<const ClassEntry> classes;
  /// The type library the classes name in the registry, or null.
  const GUID* libid;
  const wchar_t* lib_version;
  /// Registers (true) or removes (false) what the DLL carries besides its classes, after
  /// them; null for nothing more.
  HRESULT (*register_more)(bool install);
};
extern const DllClasses kDllClasses;

/// The full path of this DLL.
std::wstring module_path();
/// "{XXXXXXXX-...}".
std::wstring guid_text(const GUID& guid);

/// Writes the classes (CLSID with InprocServer32, ThreadingModel Apartment, ProgID, and the
/// type library when `libid` is given) under HKEY_CLASSES_ROOT: the machine-wide
/// registration every client sees.
HRESULT register_classes(std::span<const ClassEntry> classes, const GUID* libid,
                         const wchar_t* lib_version);
/// Removes what register_classes wrote; a class that is not registered is no error.
HRESULT unregister_classes(std::span<const ClassEntry> classes);

}  // namespace qz::com
