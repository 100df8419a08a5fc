// Any qz::Object as an automation object: names resolve to DISPIDs, Invoke becomes the
// object's late-bound member call, `For Each` walks the object's items. The server hands out
// the library's non-interface objects this way (the ordered collection of AllCharts); the
// test host hands out the whole embedded engine.
#pragma once

#include <oaidl.h>

#include <functional>
#include <vector>

#include "qzxl/object.hpp"

namespace qz::com {

/// How a module reaches the members of the objects it hands out.
struct ObjectMembers {
  /// Calls a member; by-reference results are written into `args`. Raises qz::Error.
  std::function<Variant(const ObjectPtr&, StringView, Invoke, std::span<Variant>)> invoke;
  /// Whether the member exists.
  std::function<bool(const ObjectPtr&, StringView)> has;
  /// The 0-based position of a member's named argument, or -1.
  std::function<int(const ObjectPtr&, StringView member, StringView param)> param_index;
  /// The items `For Each` visits; raises error 438 when the object is no collection.
  std::function<std::vector<Variant>(const ObjectPtr&)> items;
  /// Whether a member's result, when it is rows of values, goes out as a two-dimensional
  /// array (a range's values, as the application hands them out).
  std::function<bool(const ObjectPtr&, StringView)> rows_as_block;
};

/// The module's rules; the defaults call Object::invoke and Object::has_member and know no
/// argument names and no collections.
ObjectMembers& object_members();

/// An IDispatch (new reference) for `object`. The same object yields the same IDispatch
/// while a client holds it, so that identity tests (`Is`) hold.
IDispatch* dispatch_for(const ObjectPtr& object);

/// The object behind one of this module's IDispatch wrappers, or nullptr for any other.
ObjectPtr object_behind(IDispatch* dispatch);

/// A minimal type description that only names the type: what `TypeName` asks of an object.
ITypeInfo* make_name_type_info(const String& name);

}  // namespace qz::com
