// Late-bound calls into an IDispatch by member name, as a macro calls an object it knows
// only at run time: the application's objects handed to InitXL, a client's UndoRedoIF, form
// controls.
#pragma once

#include <oaidl.h>

#include <span>
#include <utility>
#include <vector>

#include "com/src/core.hpp"
#include "qzxl/object.hpp"

namespace qz::com {

/// A named argument (`Name:=value`). `position` is the argument's place in the member's
/// parameter list, used when the object cannot resolve argument names (script objects).
struct NamedArg {
  StringView name;
  int position;
  Variant value;
};

/// Calls members of one IDispatch by name. Names are resolved once and remembered.
class LateBound {
 public:
  LateBound() = default;
  explicit LateBound(ComPtr<IDispatch> target) : target_(std::move(target)) {}

  IDispatch* target() const noexcept { return target_.get(); }

  /// Calls `name`; `args` are positional (C++ order, Missing ones are left out). With
  /// `write_back` every argument is passed by reference and what the member leaves in it
  /// is written back into `args`. Named arguments follow the positional ones. Raises
  /// qz::Error with the runtime's number when the call fails.
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args, bool write_back = false,
                 std::span<const NamedArg> named = {});

  /// Assigns a block's values: rows of values (an array of arrays) travel as the
  /// two-dimensional array the application takes.
  void put_rows(StringView name, const Variant& rows);

  /// The items `For Each` visits (the object's _NewEnum).
  std::vector<Variant> items();

  /// Whether the object has a member of that name.
  bool has(StringView name);

  /// The type name the object's type information gives ("Range", "Worksheet" for
  /// "_Worksheet"); "" when it has none.
  String type_name() const;

 private:
  struct Resolved {
    DISPID id;
    bool ex;  // resolved through IDispatchEx (script objects)
  };
  bool resolve(StringView name, Resolved& out);
  Variant call(StringView name, Invoke kind, std::span<Variant> args, bool write_back,
               std::span<const NamedArg> named, bool rows_as_blocks);

  ComPtr<IDispatch> target_;
  std::vector<std::pair<String, Resolved>> ids_;
};

}  // namespace qz::com
