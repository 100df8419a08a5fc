// IDispatch::Invoke for the server's dual interfaces, driven by the type library.
//
// The system's own ITypeInfo::Invoke refuses what script hosts commonly pass: a variable by
// reference as VT_BYREF|VT_VARIANT where the member declares BSTR*, long* or an array of
// records. Here every argument is coerced to the declared type, by-reference arguments get a
// typed temporary that is written back into the caller's variable afterwards, optional
// arguments left out become "missing" (or a null pointer for a typed by-reference one, which
// the server reads as "not supplied"), and the vtable member is then called directly.
#pragma once

#include <oaidl.h>

namespace qz::com {

/// IDispatch::GetIDsOfNames over the same description: member names without regard to case;
/// named arguments get their 0-based place in the parameter list.
HRESULT typed_ids_of_names(ITypeInfo* info, LPOLESTR* names, UINT count, DISPID* ids);

/// Calls member `id` of `self` (an interface described by `info`) as IDispatch::Invoke does.
HRESULT typed_invoke(IDispatch* self, ITypeInfo* info, DISPID id, WORD flags, DISPPARAMS* params,
                     VARIANT* result, EXCEPINFO* excep, UINT* arg_err);

}  // namespace qz::com
