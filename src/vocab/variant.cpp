#include "qzxl/variant.hpp"

#include "qzxl/convert.hpp"
#include "qzxl/object.hpp"

namespace qz {

Array::Array(int32_t lower_bound, std::vector<Variant> values)
    : lower(lower_bound), items(std::move(values)) {}

Variant& Array::at(int32_t index) {
  if (index < lower || index > upper()) throw Error(err::subscript, "Subscript out of range");
  return items[static_cast<size_t>(index - lower)];
}

const Variant& Array::at(int32_t index) const {
  if (index < lower || index > upper()) throw Error(err::subscript, "Subscript out of range");
  return items[static_cast<size_t>(index - lower)];
}

bool operator==(const Array& a, const Array& b) {
  return a.lower == b.lower && a.items == b.items;
}

Variant::Variant(Array a) : v_(ArrayBox{std::make_unique<Array>(std::move(a))}) {}

Variant::Variant(const Variant& other) {
  // Arrays are values in the runtime: a copy owns its own elements.
  std::visit(
      [this](const auto& x) {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, ArrayBox>)
          v_ = ArrayBox{std::make_unique<Array>(*x.p)};
        else
          v_ = x;
      },
      other.v_);
}

Variant& Variant::operator=(const Variant& other) {
  if (this != &other) {
    Variant copy(other);
    *this = std::move(copy);
  }
  return *this;
}

Variant::~Variant() = default;

bool Variant::is_number() const noexcept {
  auto t = type();
  return t == Type::Integer || t == Type::Long || t == Type::Double;
}

namespace {
[[noreturn]] void mismatch() {
  throw Error(err::type_mismatch, "Type mismatch");
}
}  // namespace

bool Variant::boolean() const {
  if (auto p = std::get_if<bool>(&v_)) return *p;
  mismatch();
}
int16_t Variant::integer() const {
  if (auto p = std::get_if<int16_t>(&v_)) return *p;
  mismatch();
}
int32_t Variant::long_value() const {
  if (auto p = std::get_if<int32_t>(&v_)) return *p;
  mismatch();
}
double Variant::dbl() const {
  if (auto p = std::get_if<double>(&v_)) return *p;
  mismatch();
}
Date Variant::date() const {
  if (auto p = std::get_if<Date>(&v_)) return *p;
  mismatch();
}
const String& Variant::str() const {
  if (auto p = std::get_if<String>(&v_)) return *p;
  mismatch();
}
const ObjectPtr& Variant::object() const {
  if (auto p = std::get_if<ObjectPtr>(&v_)) return *p;
  throw Error(err::object_required, "Object required");
}
ErrorCode Variant::error() const {
  if (auto p = std::get_if<ErrorCode>(&v_)) return *p;
  mismatch();
}
const Array& Variant::array() const {
  if (auto p = std::get_if<ArrayBox>(&v_)) return *p->p;
  mismatch();
}
Array& Variant::array() {
  if (auto p = std::get_if<ArrayBox>(&v_)) return *p->p;
  mismatch();
}

bool operator==(const Variant& a, const Variant& b) {
  if (a.type() != b.type()) return false;
  switch (a.type()) {
    case Variant::Type::Empty:
    case Variant::Type::Null:
    case Variant::Type::Missing:
      return true;
    case Variant::Type::Boolean:
      return a.boolean() == b.boolean();
    case Variant::Type::Integer:
      return a.integer() == b.integer();
    case Variant::Type::Long:
      return a.long_value() == b.long_value();
    case Variant::Type::Double:
      return a.dbl() == b.dbl();
    case Variant::Type::Date:
      return a.date() == b.date();
    case Variant::Type::String:
      return a.str() == b.str();
    case Variant::Type::Object:
      return a.object() == b.object();
    case Variant::Type::Error:
      return a.error() == b.error();
    case Variant::Type::Array:
      return a.array() == b.array();
  }
  return false;
}

Array one_based(std::vector<Variant> values) {
  return Array(1, std::move(values));
}

String type_name(const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
      return u"Empty";
    case Variant::Type::Null:
      return u"Null";
    case Variant::Type::Missing:
      return u"Error";
    case Variant::Type::Boolean:
      return u"Boolean";
    case Variant::Type::Integer:
      return u"Integer";
    case Variant::Type::Long:
      return u"Long";
    case Variant::Type::Double:
      return u"Double";
    case Variant::Type::Date:
      return u"Date";
    case Variant::Type::String:
      return u"String";
    case Variant::Type::Object:
      return v.object() ? v.object()->type_name() : String(u"Nothing");
    case Variant::Type::Error:
      return u"Error";
    case Variant::Type::Array:
      return u"Variant()";
  }
  return u"Unknown";
}

}  // namespace qz
