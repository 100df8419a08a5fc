// What both DLLs need to be in-process servers: a class factory and the registry entries
// of their classes.
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

/// One creatable class as the registry knows it.
struct ClassEntry {
  GUID clsid;
  const wchar_t* prog_id;      // "QZXLLib.iXLLibPublic"
  const wchar_t* description;  // shown by registry tools
};

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
