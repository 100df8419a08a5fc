// Late binding over the host model: any host object's members reached by the application's
// member names ("Workbooks", "Range", "Font", "Names.Add" with Name:=, RefersTo:= ...), as a
// macro reaches them. Written once over the abstract host interfaces, so every host (the
// embedded engine, a test fake) can be driven by name: an automation client, a script, a
// command line. The tables of members are generated from src/host/host_model.txt, so the
// names and argument positions are the ones the COM adapters use.
#pragma once

#include <span>
#include <vector>

#include "qzxl/object.hpp"

namespace qz::host {

/// Calls member `name` of `object`: a host object's member by the application's name, any
/// other object through its own Object::invoke. Arguments are positional (Missing for one
/// left out); a property put takes the assigned value as the last argument. A member that
/// is a collection's default takes an index ("Worksheets(2)", "Cells(1, 2)"); "_Default" is
/// the object's default member. Raises error 438 for an unknown member, 450 for arguments
/// the member does not take, and whatever the host raises.
Variant invoke_member(const ObjectPtr& object, StringView name, Invoke kind,
                      std::span<Variant> args);

/// Whether `object` has member `name`.
bool has_member(const ObjectPtr& object, StringView name);

/// The 0-based position of the named argument `param` of member `name` ("Add", "RefersTo"
/// -> 1), or -1 when the member has no such argument.
int param_index(const ObjectPtr& object, StringView name, StringView param);

/// What `For Each` visits: the cells of a range, the items of a collection. Raises error 438
/// for an object that is neither.
std::vector<Variant> items_of(const ObjectPtr& object);

}  // namespace qz::host
