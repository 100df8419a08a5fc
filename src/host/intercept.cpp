#include "host/intercept.hpp"

#include <limits>
#include <utility>
#include <vector>

#include "qzxl/convert.hpp"

namespace qz::host {

namespace {

using HookPtr = std::shared_ptr<const HostHook>;

// What every wrapper is besides its host class: the hook, and the object it wraps.
class Interceptor {
 public:
  virtual ~Interceptor() = default;
  virtual ObjectPtr inner_object() const = 0;

 protected:
  explicit Interceptor(HookPtr hook) : hook_(std::move(hook)) {}
  void on_call(StringView member, Invoke kind, std::span<const Variant> args,
               std::span<const StringView> names) const {
    if (*hook_) (*hook_)(HostCall{member, kind, args, names});
  }
  HookPtr hook_;
};

// Arguments on their way in: wrappers give way to the objects they wrap, so that the host
// finds its own objects (it tells them apart by their classes).
template <class T>
std::shared_ptr<T> in(const std::shared_ptr<T>& p) {
  if (auto* i = dynamic_cast<const Interceptor*>(p.get()))
    return std::dynamic_pointer_cast<T>(i->inner_object());
  return p;
}

Variant in(const Variant& v) {
  if (v.is_object()) return Variant(in(v.object()));
  if (!v.is_array()) return v;
  Variant copy = v;
  for (Variant& item : copy.array().items) item = in(item);
  return copy;
}

std::vector<Variant> in(std::span<Variant> args) {
  std::vector<Variant> out;
  out.reserve(args.size());
  for (const Variant& a : args) out.push_back(in(a));
  return out;
}

ObjectPtr wrap(const ObjectPtr& inner, const HookPtr& hook);

// Results on their way out: host objects come wrapped, inside arrays too.
Variant wrap(const Variant& v, const HookPtr& hook) {
  if (v.is_object()) return Variant(wrap(v.object(), hook));
  if (!v.is_array()) return v;
  Variant copy = v;
  for (Variant& item : copy.array().items) item = wrap(item, hook);
  return copy;
}

// What a member left in its by-reference arguments, back to the caller's.
void write_back(std::span<Variant> to, const std::vector<Variant>& from, const HookPtr& hook) {
  for (size_t i = 0; i < to.size() && i < from.size(); ++i) to[i] = wrap(from[i], hook);
}

// A 64-bit count as the runtime passes it: a Long when it fits.
Variant wide(int64_t i) {
  if (i >= std::numeric_limits<int32_t>::min() && i <= std::numeric_limits<int32_t>::max())
    return Variant(static_cast<int32_t>(i));
  return Variant(static_cast<double>(i));
}

#include "host/generated/intercept_wrappers.hpp"

// A value as a macro would write it.
String shown(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
      return u"Empty";
    case Variant::Type::Null:
      return u"Null";
    case Variant::Type::Boolean:
      return v.boolean() ? u"True" : u"False";
    case Variant::Type::String: {
      String out = u"\"";
      for (char16_t c : v.str()) {
        if (c == u'"') out += u'"';
        out += c;
      }
      return out + u"\"";
    }
    case Variant::Type::Object:
      return v.object() ? u"<" + v.object()->type_name() + u">" : String(u"Nothing");
    case Variant::Type::Array: {
      String out = u"Array(";
      for (size_t i = 0; i < v.array().items.size(); ++i)
        out += (i ? u", " : u"") + shown(v.array().items[i]);
      return out + u")";
    }
    case Variant::Type::Error:
      return u"CVErr(" + to_string(Variant(v.error().code)) + u")";
    default:
      return to_string(v);
  }
}

}  // namespace

ApplicationPtr intercept(const ApplicationPtr& app, HostHook hook) {
  return wrap(app, std::make_shared<const HostHook>(std::move(hook)));
}

ObjectPtr unwrap(const ObjectPtr& object) {
  return in(object);
}

String describe(const HostCall& call) {
  String out(call.member);
  const size_t given =
      call.kind == Invoke::Put && !call.args.empty() ? call.args.size() - 1 : call.args.size();
  String list;
  for (size_t i = 0; i < given; ++i) {
    if (call.args[i].is_missing()) continue;
    if (!list.empty()) list += u", ";
    if (i < call.names.size() && !call.names[i].empty()) {
      list += call.names[i];
      list += u":=";
    }
    list += shown(call.args[i]);
  }
  if (!list.empty()) out += u"(" + list + u")";
  if (call.kind == Invoke::Put && !call.args.empty()) out += u" = " + shown(call.args.back());
  return out;
}

}  // namespace qz::host
