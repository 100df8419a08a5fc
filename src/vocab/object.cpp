#include "qzxl/object.hpp"

#include "qzxl/convert.hpp"

namespace qz {

Variant Object::invoke(StringView name, Invoke, std::span<Variant>) {
  throw Error(err::not_supported,
              "Object doesn't support this property or method: " + to_utf8(name));
}

bool Object::has_member(StringView) const {
  return false;
}

bool same_member(StringView a, StringView b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'a' && x <= u'z') x = static_cast<char16_t>(x - 32);
    if (y >= u'a' && y <= u'z') y = static_cast<char16_t>(y - 32);
    if (x != y) return false;
  }
  return true;
}

namespace late {

namespace {
const ObjectPtr& require(const ObjectPtr& obj) {
  if (!obj) throw Error(err::object_required, "Object required");
  return obj;
}
}  // namespace

Variant get(const ObjectPtr& obj, StringView name) {
  return require(obj)->invoke(name, Invoke::Get, {});
}

void put(const ObjectPtr& obj, StringView name, Variant value) {
  Variant args[1] = {std::move(value)};
  require(obj)->invoke(name, Invoke::Put, args);
}

Variant call(const ObjectPtr& obj, StringView name, std::span<Variant> args) {
  return require(obj)->invoke(name, Invoke::Method, args);
}

}  // namespace late
}  // namespace qz
