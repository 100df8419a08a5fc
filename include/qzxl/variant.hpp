// The automation runtime's value type, as the library's interface uses it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "qzxl/error.hpp"

namespace qz {

/// Text as the automation runtime keeps it: UTF-16 code units. Positions and lengths
/// everywhere in the library count these units, never bytes or code points.
using String = std::u16string;
using StringView = std::u16string_view;

class Object;
/// An automation object reference; an empty pointer is Nothing.
using ObjectPtr = std::shared_ptr<Object>;

/// A date in the automation encoding: days since 30 December 1899, the fraction being the
/// time of day.
struct Date {
  double serial = 0;
  friend bool operator==(const Date&, const Date&) = default;
};

/// An error value (CVErr). Cell errors use the spreadsheet's codes: 2000 #NULL!, 2007
/// #DIV/0!, 2015 #VALUE!, 2023 #REF!, 2029 #NAME?, 2036 #NUM!, 2042 #N/A.
struct ErrorCode {
  int32_t code = 0;
  friend bool operator==(const ErrorCode&, const ErrorCode&) = default;
};

/// Cell error codes.
namespace cell_error {
inline constexpr int32_t null = 2000;
inline constexpr int32_t div0 = 2007;
inline constexpr int32_t value = 2015;
inline constexpr int32_t ref = 2023;
inline constexpr int32_t name = 2029;
inline constexpr int32_t num = 2036;
inline constexpr int32_t na = 2042;
}  // namespace cell_error

class Variant;

/// A one-dimensional array with a lower bound, as the runtime's arrays are. Snapshot and
/// piece arrays handed to clients are 1-based.
struct Array {
  int32_t lower = 0;
  std::vector<Variant> items;

  Array() = default;
  Array(int32_t lower_bound, std::vector<Variant> values);
  /// `UBound`: lower + count - 1 (lower - 1 when empty).
  int32_t upper() const noexcept { return lower + static_cast<int32_t>(items.size()) - 1; }
  /// Element by runtime index; raises error 9 outside the bounds.
  Variant& at(int32_t index);
  const Variant& at(int32_t index) const;
  friend bool operator==(const Array&, const Array&);
};

/// A runtime Variant: Empty, Null, Missing (an optional argument left out), Boolean, Integer
/// (16-bit), Long (32-bit), Double, Date, String, Object, Error or Array. Copies are deep for
/// arrays and shallow for objects, as in the runtime.
class Variant {
 public:
  enum class Type : uint8_t {
    Empty,
    Null,
    Missing,
    Boolean,
    Integer,
    Long,
    Double,
    Date,
    String,
    Object,
    Error,
    Array
  };

  Variant() noexcept = default;
  Variant(bool b) : v_(b) {}
  Variant(int16_t i) : v_(i) {}
  Variant(int32_t i) : v_(i) {}
  Variant(double d) : v_(d) {}
  Variant(Date d) : v_(d) {}
  Variant(String s) : v_(std::move(s)) {}
  Variant(StringView s) : v_(String(s)) {}
  Variant(const char16_t* s) : v_(String(s)) {}
  Variant(ObjectPtr o) : v_(std::move(o)) {}
  // The formatter would run the requires-clause into the constructor's line.
  // clang-format off
  template <class T>
    requires std::is_base_of_v<Object, T>
  Variant(std::shared_ptr<T> o) : v_(ObjectPtr(std::move(o))) {}
  // clang-format on
  Variant(ErrorCode e) : v_(e) {}
  Variant(Array a);
  // Narrow strings would silently become Booleans; spell them as u"..." instead.
  Variant(const char*) = delete;

  Variant(const Variant& other);
  Variant(Variant&&) noexcept = default;
  Variant& operator=(const Variant& other);
  Variant& operator=(Variant&&) noexcept = default;
  ~Variant();

  static Variant null() { return Variant(NullTag{}); }
  static Variant missing() { return Variant(MissingTag{}); }

  Type type() const noexcept { return static_cast<Type>(v_.index()); }
  bool is_empty() const noexcept { return type() == Type::Empty; }
  bool is_null() const noexcept { return type() == Type::Null; }
  bool is_missing() const noexcept { return type() == Type::Missing; }
  bool is_bool() const noexcept { return type() == Type::Boolean; }
  bool is_string() const noexcept { return type() == Type::String; }
  bool is_object() const noexcept { return type() == Type::Object; }
  bool is_error() const noexcept { return type() == Type::Error; }
  bool is_array() const noexcept { return type() == Type::Array; }
  bool is_date() const noexcept { return type() == Type::Date; }
  /// Integer, Long or Double.
  bool is_number() const noexcept;
  /// Nothing: an Object variant holding no object.
  bool is_nothing() const noexcept { return is_object() && !std::get<ObjectPtr>(v_); }

  // Exact accessors: the variant must hold that type (error 13 otherwise). Conversions
  // with the runtime's rules are in convert.hpp.
  bool boolean() const;
  int16_t integer() const;
  int32_t long_value() const;
  double dbl() const;
  Date date() const;
  const String& str() const;
  const ObjectPtr& object() const;
  ErrorCode error() const;
  const Array& array() const;
  Array& array();

  /// The object cast to a host or library type; empty when it is another kind or Nothing.
  template <class T>
  std::shared_ptr<T> as() const {
    if (!is_object()) return nullptr;
    return std::dynamic_pointer_cast<T>(std::get<ObjectPtr>(v_));
  }

  friend bool operator==(const Variant& a, const Variant& b);

 private:
  struct NullTag {
    friend bool operator==(NullTag, NullTag) { return true; }
  };
  struct MissingTag {
    friend bool operator==(MissingTag, MissingTag) { return true; }
  };
  struct ArrayBox {
    std::unique_ptr<Array> p;
  };
  explicit Variant(NullTag t) : v_(t) {}
  explicit Variant(MissingTag t) : v_(t) {}

  std::variant<std::monostate, NullTag, MissingTag, bool, int16_t, int32_t, double, Date, String,
               ObjectPtr, ErrorCode, ArrayBox>
      v_;
};

/// Builds a 1-based array of Variants, the shape of snapshots handed to clients.
Array one_based(std::vector<Variant> values);

/// The runtime's `TypeName` of a value ("Empty", "Null", "Boolean", "Long", "String", the
/// object's own type name...). Used in diagnostics and by tests.
String type_name(const Variant& v);

}  // namespace qz
