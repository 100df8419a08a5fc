// The host object model over the real application's IDispatch objects: every member of
// src/host/host.hpp becomes a late-bound call by the application's member name, with the
// named arguments the application documents (Names.Add(Name:=, RefersTo:=, Visible:=),
// Workbooks.Open(..., UpdateLinks:=, ReadOnly:=, Editable:=), Controls.Add(Type:=, Before:=,
// Temporary:=) ...). Refusals come back as qz::Error with the application's error number.
// The adapter classes are generated from src/host/host_model.txt (com/generated/
// host_adapters.hpp); host_adapter.cpp holds the calls they share and the few members that
// need more than one plain call.
#pragma once

#include <oaidl.h>

#include <memory>

#include "host/host.hpp"

namespace qz::com {

/// The host object of type `H` standing for `dispatch` (nullptr for a null dispatch). An
/// object of this module's own is unwrapped instead.
template <class H>
std::shared_ptr<H> adapt(IDispatch* dispatch);

/// The host object for `dispatch` by the type name it reports (Range, Worksheet, Chart ...);
/// a plain late-bound object when the name is none of the host's.
ObjectPtr adapt_any(IDispatch* dispatch);

}  // namespace qz::com
