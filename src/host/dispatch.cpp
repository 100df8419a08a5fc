#include "host/dispatch.hpp"

#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz::host {

namespace {

[[noreturn]] void wrong_arguments(StringView member) {
  throw Error(err::wrong_arguments,
              "Wrong number of arguments or invalid property assignment: " + to_utf8(member));
}

// The arguments of one late-bound call.
class Args {
 public:
  Args(StringView member, Invoke kind, std::span<Variant> args)
      : member_(member), kind_(kind), args_(args) {}

  bool put() const { return kind_ == Invoke::Put || kind_ == Invoke::PutRef; }
  // Arguments besides an assigned value.
  size_t count() const { return put() ? args_.size() - 1 : args_.size(); }
  bool given(size_t i) const { return i < count() && !args_[i].is_missing(); }
  const Variant& at(size_t i) const {
    static const Variant missing = Variant::missing();
    return i < count() ? args_[i] : missing;
  }
  const Variant& value() const {
    if (!put() || args_.empty()) wrong_arguments(member_);
    return args_.back();
  }
  void at_most(size_t n) const {
    if (count() > n) wrong_arguments(member_);
  }
  // A property that takes no assignment and no index.
  void get_only() const {
    if (put()) wrong_arguments(member_);
    at_most(0);
  }
  template <class T>
  T as(size_t i) const;
  template <class T>
  T as_or(size_t i, T fallback) const {
    return given(i) ? as<T>(i) : fallback;
  }
  StringView member() const { return member_; }

 private:
  StringView member_;
  Invoke kind_;
  std::span<Variant> args_;
};

template <class T>
struct is_shared_ptr : std::false_type {};
template <class T>
struct is_shared_ptr<std::shared_ptr<T>> : std::true_type {
  using element = T;
};

template <class T>
T convert(const Variant& v) {
  if constexpr (std::is_same_v<T, Variant>) {
    return v;
  } else if constexpr (std::is_same_v<T, bool>) {
    return to_bool(v);
  } else if constexpr (std::is_same_v<T, int16_t>) {
    return to_integer(v);
  } else if constexpr (std::is_same_v<T, int32_t>) {
    return to_long(v);
  } else if constexpr (std::is_same_v<T, int64_t>) {
    return static_cast<int64_t>(to_double(v));
  } else if constexpr (std::is_same_v<T, double>) {
    return to_double(v);
  } else if constexpr (std::is_same_v<T, String>) {
    return to_string(v);
  } else {
    static_assert(is_shared_ptr<T>::value, "no conversion for this argument type");
    using E = typename is_shared_ptr<T>::element;
    if (v.is_missing() || v.is_empty() || v.is_nothing()) return nullptr;
    if (!v.is_object()) throw Error(err::type_mismatch, "Type mismatch: object expected");
    auto p = std::dynamic_pointer_cast<E>(v.object());
    if (!p) throw Error(err::type_mismatch, "Type mismatch: " + to_utf8(type_name(v)));
    return p;
  }
}

template <class T>
T Args::as(size_t i) const {
  if constexpr (std::is_same_v<T, Variant>) {
    return at(i);
  } else if constexpr (is_shared_ptr<T>::value) {
    return convert<T>(at(i));
  } else {
    if (!given(i)) throw Error(err::wrong_arguments, "Argument not optional: " + to_utf8(member_));
    return convert<T>(at(i));
  }
}

Variant wrap(Variant v) {
  return v;
}
Variant wrap(const String& s) {
  return Variant(s);
}
Variant wrap(bool b) {
  return Variant(b);
}
Variant wrap(int32_t i) {
  return Variant(i);
}
Variant wrap(int64_t i) {
  if (i >= std::numeric_limits<int32_t>::min() && i <= std::numeric_limits<int32_t>::max())
    return Variant(static_cast<int32_t>(i));
  return Variant(static_cast<double>(i));
}
template <class T>
requires std::is_base_of_v<Object, T> Variant wrap(const std::shared_ptr<T>& p) {
  return Variant(ObjectPtr(p));
}

// What a member-function pointer is made of.
template <class M>
struct member_traits;
template <class C, class R, class... P>
struct member_traits<R (C::*)(P...)> {
  using cls = C;
  using ret = R;
  using params = std::tuple<std::decay_t<P>...>;
};

template <auto G>
using class_of = typename member_traits<decltype(G)>::cls;

// A read-only property.
template <auto G>
Variant get(class_of<G>& o, Args& a) {
  a.get_only();
  return wrap((o.*G)());
}

// A read-write property.
template <auto G, auto S>
Variant prop(class_of<G>& o, Args& a) {
  if (a.put()) {
    a.at_most(0);
    using P = std::tuple_element_t<0, typename member_traits<decltype(S)>::params>;
    (o.*S)(convert<P>(a.value()));
    return Variant();
  }
  a.get_only();
  return wrap((o.*G)());
}

// A method whose arguments are all given, except Variants, which may be Missing.
template <auto F>
Variant method(class_of<F>& o, Args& a) {
  using T = member_traits<decltype(F)>;
  using P = typename T::params;
  constexpr size_t n = std::tuple_size_v<P>;
  if (a.put()) wrong_arguments(a.member());
  a.at_most(n);
  return [&]<size_t... I>(std::index_sequence<I...>) {
    if constexpr (std::is_void_v<typename T::ret>) {
      (o.*F)(a.as<std::tuple_element_t<I, P>>(I)...);
      return Variant();
    } else {
      return wrap((o.*F)(a.as<std::tuple_element_t<I, P>>(I)...));
    }
  }
  (std::make_index_sequence<n>{});
}

// A collection's `Item(index)`, also its default member.
template <class C>
Variant item(C& c, Args& a) {
  if (a.put()) wrong_arguments(a.member());
  a.at_most(1);
  using P = std::tuple_element_t<0, typename member_traits<decltype(&C::item)>::params>;
  return wrap(c.item(a.as<P>(0)));
}

// A property that returns a collection, with an optional index for one of its items
// ("Worksheets(2)").
template <auto G>
Variant collection(class_of<G>& o, Args& a) {
  if (a.put()) wrong_arguments(a.member());
  a.at_most(1);
  auto c = (o.*G)();
  if (!a.given(0)) return wrap(c);
  if (!c) throw Error(err::object_required, "Object required");
  using C = typename std::decay_t<decltype(c)>::element_type;
  using P = std::tuple_element_t<0, typename member_traits<decltype(&C::item)>::params>;
  return wrap(c->item(a.as<P>(0)));
}

template <class T>
struct Member {
  using Call = Variant (*)(T&, Args&);
  Member(const char16_t* n, Call c, std::vector<const char16_t*> p = {})
      : name(n), call(c), params(std::move(p)) {}
  const char16_t* name;
  Call call;
  std::vector<const char16_t*> params;
};

template <class T>
using Table = std::vector<Member<T>>;

// ---- Members the tables name rather than generate ------------------------------------------

// `Cells`, `Cells(i)` and `Cells(row, column)` of a sheet or a range.
template <class T>
Variant cells_of(T& o, Args& a) {
  if (a.put()) wrong_arguments(a.member());
  a.at_most(2);
  if (a.given(1)) return wrap(o.cell(a.as<int32_t>(0), a.as<int32_t>(1)));
  auto all = o.cells();
  if (!a.given(0)) return wrap(all);
  if (!all) throw Error(err::object_required, "Object required");
  return wrap(all->item(static_cast<int64_t>(a.as<double>(0))));
}

// `Range.Item(i)` and `Range.Item(row, column)`.
Variant range_item(Range& o, Args& a) {
  a.at_most(2);
  if (a.put()) wrong_arguments(a.member());
  if (a.given(1)) return wrap(o.cell(a.as<int32_t>(0), a.as<int32_t>(1)));
  return wrap(o.item(static_cast<int64_t>(a.as<double>(0))));
}

// A range's default member: with an index, the cell; without, the value.
Variant range_default(Range& o, Args& a) {
  if (a.count() == 0) {
    if (a.put()) {
      o.set_value(a.value());
      return Variant();
    }
    return o.value();
  }
  a.at_most(2);
  if (a.given(1)) return wrap(o.cell(a.as<int32_t>(0), a.as<int32_t>(1)));
  return wrap(o.item(static_cast<int64_t>(a.as<double>(0))));
}

// `Range.Resize`: a size left out keeps the range's own.
Variant range_resize(Range& o, Args& a) {
  a.at_most(2);
  int32_t rows = a.given(0) ? a.as<int32_t>(0) : static_cast<int32_t>(o.rows()->count());
  int32_t cols = a.given(1) ? a.as<int32_t>(1) : static_cast<int32_t>(o.columns()->count());
  return wrap(o.resize(rows, cols));
}

// `Range.Name`: the application raises rather than answer Nothing.
Variant range_name(Range& o, Args& a) {
  a.get_only();
  auto n = o.name();
  if (!n) throw Error(err::host_failure, "No name refers to this range");
  return wrap(n);
}

// The items of a collection with Count and Item(1..Count).
template <class C>
std::vector<Variant> numbered_items(C& c) {
  std::vector<Variant> out;
  const auto n = c.count();
  for (decltype(c.count()) i = 1; i <= n; ++i) {
    using P = std::tuple_element_t<0, typename member_traits<decltype(&C::item)>::params>;
    out.push_back(wrap(c.item(P(i))));
  }
  return out;
}

// ---- The host classes' members, by the application's names ------------------------------

#include "host/generated/dispatch_tables.hpp"

template <class T>
const Member<T>* find(const Table<T>& table, StringView name) {
  for (const auto& m : table)
    if (same_member(m.name, name)) return &m;
  return nullptr;
}

}  // namespace

Variant invoke_member(const ObjectPtr& object, StringView name, Invoke kind,
                      std::span<Variant> args) {
  if (!object) throw Error(err::object_required, "Object required");
  Variant result;
  bool found = false;
  const bool host = with_table(*object, [&](auto& o, const auto& table) {
    if (const auto* m = find(table, name)) {
      Args a(name, kind, args);
      result = m->call(o, a);
      found = true;
    }
  });
  if (!host) return object->invoke(name, kind, args);
  if (!found)
    throw Error(err::not_supported,
                "Object doesn't support this property or method: " + to_utf8(name));
  return result;
}

bool has_member(const ObjectPtr& object, StringView name) {
  if (!object) return false;
  bool found = false;
  const bool host =
      with_table(*object, [&](auto&, const auto& table) { found = find(table, name) != nullptr; });
  return host ? found : object->has_member(name);
}

int param_index(const ObjectPtr& object, StringView name, StringView param) {
  int index = -1;
  if (!object) return index;
  with_table(*object, [&](auto&, const auto& table) {
    if (const auto* m = find(table, name))
      for (size_t i = 0; i < m->params.size(); ++i)
        if (same_member(m->params[i], param)) index = static_cast<int>(i);
  });
  return index;
}

std::vector<Variant> items_of(const ObjectPtr& object) {
  if (!object) throw Error(err::object_required, "Object required");
  std::vector<Variant> out;
  if (auto r = std::dynamic_pointer_cast<Range>(object)) {
    r->for_each_cell([&](const RangePtr& cell) {
      out.emplace_back(ObjectPtr(cell));
      return true;
    });
    return out;
  }
  if (collection_items(*object, out)) return out;
  throw Error(err::not_supported, "Object doesn't support this property or method: _NewEnum");
}

}  // namespace qz::host
