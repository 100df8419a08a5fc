#include "com/src/host_adapter.hpp"

#include <initializer_list>
#include <limits>

#include "com/src/disp_object.hpp"
#include "com/src/object_dispatch.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

namespace {

using namespace qz::host;

// The host object a result stands for: Nothing (or no object at all) is nullptr; an object
// of the wrong kind is wrapped again as the kind the member promises.
template <class T>
std::shared_ptr<T> as_host(const Variant& v) {
  if (!v.is_object() || !v.object()) return nullptr;
  if (auto t = std::dynamic_pointer_cast<T>(v.object())) return t;
  if (IDispatch* d = foreign_dispatch(v.object().get())) return adapt<T>(d);
  throw Error(err::type_mismatch, "Type mismatch: unexpected object");
}

// An optional object argument: left out when not given.
Variant opt_arg(const ObjectPtr& o) {
  return o ? Variant(o) : Variant::missing();
}

// A value as an argument of a late-bound call; a count beyond a Long goes as a Double.
template <class T>
Variant to_arg(const T& v) {
  return Variant(v);
}
Variant to_arg(int64_t i) {
  return i >= std::numeric_limits<int32_t>::min() && i <= std::numeric_limits<int32_t>::max()
             ? Variant(static_cast<int32_t>(i))
             : Variant(static_cast<double>(i));
}

// The late-bound calls every adapter makes, by the application's member names.
template <class H>
class Adapter : public Foreign<H> {
 public:
  using Foreign<H>::Foreign;

 protected:
  template <class... A>
  Variant late_get(StringView name, A... a) {
    Variant args[] = {Variant(), std::move(a)...};
    return this->late().invoke(name, Invoke::Get, std::span<Variant>(args).subspan(1));
  }
  template <class... A>
  Variant late_call(StringView name, A... a) {
    Variant args[] = {Variant(), std::move(a)...};
    return this->late().invoke(name, Invoke::Method, std::span<Variant>(args).subspan(1));
  }
  // A property assignment; the value comes last, after any index.
  template <class... A>
  void late_put(StringView name, A... a) {
    Variant args[] = {std::move(a)...};
    this->late().invoke(name, Invoke::Put, args);
  }
  Variant late_named(StringView name, std::initializer_list<NamedArg> named) {
    return this->late().invoke(name, Invoke::Method, {}, false,
                               std::span<const NamedArg>(named.begin(), named.size()));
  }
  // The leading arguments, then all of `rest`.
  Variant late_all(StringView name, std::initializer_list<Variant> lead, std::span<Variant> rest) {
    std::vector<Variant> all(lead);
    all.insert(all.end(), rest.begin(), rest.end());
    return this->late().invoke(name, Invoke::Method, all);
  }
};

#include "com/generated/host_adapters.hpp"

void DRange::set_value(const Variant& value) {
  late().put_rows(u"Value", value);
}

int64_t DRange::count() {
  // Whole sheets have more cells than a Long counts; newer hosts answer CountLarge.
  if (late().has(u"CountLarge")) return static_cast<int64_t>(to_double(late_get(u"CountLarge")));
  return static_cast<int64_t>(to_double(late_get(u"Count")));
}

void DRange::for_each_cell(const std::function<bool(const RangePtr&)>& visit) {
  for (const Variant& cell : late().items())
    if (!visit(as_host<Range>(cell))) return;
}

NamePtr DRange::name() {
  // The application raises when no name refers to exactly this range.
  try {
    return as_host<Name>(late_get(u"Name"));
  } catch (const Error&) {
    return nullptr;
  }
}

RangePtr DWorksheet::cell(int32_t row, int32_t column) {
  // Item of the sheet's cells: the form every host resolves, with or without default
  // members.
  RangePtr cells = this->cells();
  if (!cells) throw Error(err::object_required, "Object required");
  Variant args[2] = {row, column};
  return as_host<Range>(cells->invoke(u"Item", Invoke::Get, args));
}

template <class H>
ObjectPtr make(IDispatch* d) {
  return std::make_shared<typename AdapterOf<H>::type>(ComPtr<IDispatch>(d));
}

}  // namespace

template <class H>
std::shared_ptr<H> adapt(IDispatch* dispatch) {
  if (!dispatch) return nullptr;
  if (auto own = object_behind(dispatch))
    if (auto h = std::dynamic_pointer_cast<H>(own)) return h;
  if constexpr (std::is_same_v<H, Object>) {
    return adapt_any(dispatch);
  } else {
    return std::static_pointer_cast<H>(make<H>(dispatch));
  }
}

ObjectPtr adapt_any(IDispatch* dispatch) {
  if (!dispatch) return nullptr;
  if (auto own = object_behind(dispatch)) return own;
#define QZ_BY_NAME(H) {u## #H, make<H>},
  static const std::pair<const char16_t*, ObjectPtr (*)(IDispatch*)> by_name[] = {
      QZ_HOST_CLASSES(QZ_BY_NAME)
      // The application names a control by its kind.
      {u"CommandBarButton", make<CommandBarControl>},
      {u"CommandBarPopup", make<CommandBarControl>},
      {u"CommandBarComboBox", make<CommandBarControl>},
  };
#undef QZ_BY_NAME
  const String type = LateBound(ComPtr<IDispatch>(dispatch)).type_name();
  for (const auto& [name, maker] : by_name)
    if (same_member(type, name)) return maker(dispatch);
  return std::make_shared<DispObject>(ComPtr<IDispatch>(dispatch));
}

#define QZ_INSTANTIATE(H) template std::shared_ptr<H> adapt<H>(IDispatch*);
QZ_INSTANTIATE(Object)
QZ_HOST_CLASSES(QZ_INSTANTIATE)
#undef QZ_INSTANTIATE

}  // namespace qz::com
