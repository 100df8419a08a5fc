// The automation object: what a Variant's Object holds, and what late binding reaches.
#pragma once

#include <memory>
#include <span>

#include "qzxl/variant.hpp"

namespace qz {

/// How a member is reached through late binding.
enum class Invoke : uint8_t { Method, Get, Put, PutRef };

/// Base of every automation object the library hands out or receives: host objects
/// (ranges, workbooks, command bars), the library's own public classes, and client objects
/// the library calls back late-bound (a product's `UndoRedoIF`, form controls).
class Object : public std::enable_shared_from_this<Object> {
 public:
  virtual ~Object() = default;

  /// The runtime's `TypeName` of this object ("Range", "Workbook", "ChartObject", ...).
  virtual String type_name() const = 0;

  /// Late-bound call of member `name` (compared without regard to case, as the runtime
  /// does). Arguments are positional; a by-reference argument is written back into its
  /// element of `args`. Raises error 438 when the object has no such member.
  virtual Variant invoke(StringView name, Invoke kind, std::span<Variant> args);

  /// Whether `name` names a member (so callers can tell an absent member from a failing
  /// one without raising).
  virtual bool has_member(StringView name) const;
};

/// Late-bound helpers for objects the library knows only by their members' names.
namespace late {
/// obj.name (property get), raising error 424 for Nothing.
Variant get(const ObjectPtr& obj, StringView name);
/// obj.name = value.
void put(const ObjectPtr& obj, StringView name, Variant value);
/// obj.name(args...) as a method; by-reference results are written back into `args`.
Variant call(const ObjectPtr& obj, StringView name, std::span<Variant> args = {});
}  // namespace late

/// Compares member names as the runtime does: ASCII letters without regard to case.
bool same_member(StringView a, StringView b) noexcept;

}  // namespace qz
