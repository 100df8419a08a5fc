// Objects of another component seen as qz::Objects: every member call becomes a late-bound
// IDispatch call. The host adapter builds the application's objects on this; client objects
// (a product's UndoRedoIF, form controls) are plain DispObjects.
#pragma once

#include "com/src/late.hpp"

namespace qz::com {

/// What every stand-in for a foreign IDispatch carries; lets the boundary hand the original
/// IDispatch back instead of wrapping the stand-in again.
class DispCore {
 public:
  explicit DispCore(ComPtr<IDispatch> target) : late_(std::move(target)) {}
  virtual ~DispCore() = default;
  IDispatch* dispatch() const noexcept { return late_.target(); }
  LateBound& late() const noexcept { return late_; }
  /// The foreign object's own type name, asked once.
  const String& foreign_type_name() const;

 private:
  mutable LateBound late_;
  mutable String type_name_;
  mutable bool type_name_known_ = false;
};

/// A qz::Object (or host class `Base`) whose late-bound members are the foreign object's.
template <class Base>
class Foreign : public Base, public DispCore {
 public:
  explicit Foreign(ComPtr<IDispatch> target) : DispCore(std::move(target)) {}
  String type_name() const override {
    const String& n = foreign_type_name();
    return n.empty() ? Base::type_name() : n;
  }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    return late().invoke(name, kind, args, /*write_back=*/true);
  }
  bool has_member(StringView name) const override { return late().has(name); }
};

/// An object known only by its members.
class PlainObject : public Object {
 public:
  String type_name() const override { return u"Object"; }
};
using DispObject = Foreign<PlainObject>;

/// The foreign IDispatch behind an object, or null when it stands for none.
inline IDispatch* foreign_dispatch(const Object* o) {
  auto* core = dynamic_cast<const DispCore*>(o);
  return core ? core->dispatch() : nullptr;
}

}  // namespace qz::com
