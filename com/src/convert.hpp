// Conversions between the library's automation values (qz::String, qz::Variant, arrays,
// FmlaPiece) and their COM forms (BSTR, VARIANT, SAFEARRAY).
//
// Arrays handed to clients are 1-based SAFEARRAYs. Objects cross through the module's object
// bridge: each DLL decides how a foreign IDispatch becomes a qz::Object and back.
#pragma once

#include <oaidl.h>

#include <functional>
#include <vector>

#include "qzxl/types.hpp"
#include "qzxl/variant.hpp"

namespace qz::com {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "BSTR text is UTF-16");

/// BSTR text as a String (a null BSTR is the empty string).
String from_bstr(BSTR b);
/// A new BSTR; raises std::bad_alloc when the system has no memory for it.
BSTR to_bstr(StringView s);
/// The String's text as the system's wide-character string.
inline const wchar_t* wide(const String& s) {
  return reinterpret_cast<const wchar_t*>(s.c_str());
}

/// How objects cross the boundary in this module.
struct ObjectBridge {
  /// Wraps a client's or host's IDispatch (never null) as a qz::Object.
  std::function<ObjectPtr(IDispatch*)> import_object;
  /// A new reference to an IDispatch for a qz::Object (never null).
  std::function<IDispatch*(const ObjectPtr&)> export_object;
};
ObjectBridge& object_bridge();

/// The error value of an automation error: cell errors travel as CVErr values
/// (0x800A0000 | code); any other SCODE is kept as it is.
int32_t error_code_from_scode(SCODE sc) noexcept;
SCODE scode_from_error_code(int32_t code) noexcept;

/// VT_ERROR with DISP_E_PARAMNOTFOUND: an optional argument left out.
bool is_missing(const VARIANT& v) noexcept;
void set_missing(VARIANT* v) noexcept;

/// A VARIANT as a Variant. By-reference VARIANTs are read through; one-dimensional arrays
/// keep their lower bound; a two-dimensional array becomes rows of values, each a 1-based
/// array (as a range's values are read); a record becomes a 1-based array of its fields.
/// Raises error 13 for types the runtime has no Variant for.
Variant from_variant(const VARIANT& v);
/// A Variant into `out` (which holds nothing that needs clearing). Arrays become
/// one-dimensional arrays of VARIANTs with the same lower bound.
void to_variant(const Variant& v, VARIANT* out);

/// Stores `value` where the by-reference VARIANT `ref` points, converted to the type it
/// refers to (what a member leaves in a variable passed to it by reference). Raises error 13
/// when the value does not convert.
void store_by_ref(const VARIANT& ref, const Variant& value);

/// Rows of values (an array of arrays) as a two-dimensional 1-based array, the form the
/// application takes for a block's values; anything else converts as `to_variant` does.
void to_variant_2d(const Variant& rows, VARIANT* out);

/// A 1-based array of BSTRs, and the Strings of any array of texts or Variants.
SAFEARRAY* make_string_array(const std::vector<String>& items);
std::vector<String> read_string_array(SAFEARRAY* array);

/// A 1-based array of FmlaPiece records (the record description is borrowed).
SAFEARRAY* make_piece_array(const FmlaPieces& pieces, IRecordInfo* record);
/// The pieces of an array of FmlaPiece records (empty for a null array).
FmlaPieces read_piece_array(SAFEARRAY* array);

}  // namespace qz::com
