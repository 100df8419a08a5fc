// A host that watches another: every object it hands out wraps the other host's object of
// the same class, and every member call first goes to a hook, then to the wrapped object.
// The hook sees the member by the application's name and its arguments, and may refuse the
// call by raising qz::Error, as a host refuses one. Tests use it to record what the library
// asks of a host and to make chosen host calls fail.
#pragma once

#include <functional>
#include <span>

#include "host/host.hpp"

namespace qz::host {

/// One member call, as the hook sees it.
struct HostCall {
  /// The member qualified by its class, by the application's names ("Range.Formula").
  StringView member;
  /// Get for a property read (also a collection's item), Put for an assignment, Method.
  Invoke kind;
  /// The arguments in the application's order, Missing where left out; an assignment's
  /// value comes last. A struct of named arguments comes as its fields.
  std::span<const Variant> args;
  /// The application's names of the arguments, as far as they have one ("" or none after).
  std::span<const StringView> names;
};

/// Called before every member call of a wrapped object; raising qz::Error refuses the call.
using HostHook = std::function<void(const HostCall&)>;

/// `app` seen through `hook`: the application and everything reached from it are wrappers.
/// Objects handed to the wrappers (a Range as an argument) reach `app` unwrapped.
ApplicationPtr intercept(const ApplicationPtr& app, HostHook hook);

/// The host object behind a wrapper; any other object as it is.
ObjectPtr unwrap(const ObjectPtr& object);

/// A call as a line of a macro: `Range.Formula = "=1"`, `Names.Add(Name:="Total",
/// RefersTo:="=1")`, `Workbooks.Item(2)`. Missing arguments are left out; objects show as
/// their type names in angle brackets.
String describe(const HostCall& call);

}  // namespace qz::host
