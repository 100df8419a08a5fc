#include "com/src/convert.hpp"

#include <new>

#include "com/generated/qzxllib_itf.hpp"
#include "com/src/core.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

namespace qz::com {

namespace {

[[noreturn]] void mismatch(const char* what) {
  throw Error(err::type_mismatch, std::string("Type mismatch: ") + what);
}

// Locks an array's data for the lifetime of the guard.
class ArrayData {
 public:
  explicit ArrayData(SAFEARRAY* a) : a_(a) {
    if (FAILED(SafeArrayAccessData(a_, &data_))) mismatch("array is locked");
  }
  ArrayData(const ArrayData&) = delete;
  ArrayData& operator=(const ArrayData&) = delete;
  ~ArrayData() { SafeArrayUnaccessData(a_); }
  char* at(size_t index) const { return static_cast<char*>(data_) + index * a_->cbElements; }

 private:
  SAFEARRAY* a_;
  void* data_ = nullptr;
};

VARTYPE element_type(SAFEARRAY* a) {
  VARTYPE vt = VT_EMPTY;
  if (FAILED(SafeArrayGetVartype(a, &vt))) mismatch("array of unknown type");
  return vt;
}

// One element read through a by-reference VARIANT, so that the scalar rules apply to it.
Variant element_value(VARTYPE vt, void* p) {
  if (vt == VT_VARIANT) return from_variant(*static_cast<VARIANT*>(p));
  VARIANT ref;
  VariantInit(&ref);
  ref.vt = static_cast<VARTYPE>(VT_BYREF | vt);
  ref.byref = p;
  return from_variant(ref);
}

Variant record_value(IRecordInfo* info, void* data) {
  // Asked without an array, the count comes back; some systems cap it at the count passed.
  ULONG count = 0xFFFF;
  if (!info || !data || FAILED(info->GetFieldNames(&count, nullptr))) mismatch("record");
  std::vector<BSTR> names(count);
  if (FAILED(info->GetFieldNames(&count, names.data()))) mismatch("record");
  std::vector<Variant> fields;
  for (BSTR name : names) {
    // A reference into the record, read through: the copying accessor is not to be trusted
    // everywhere to copy the record's strings.
    VARIANT field;
    VariantInit(&field);
    void* array_data = nullptr;
    HRESULT hr = info->GetFieldNoCopy(data, name, &field, &array_data);
    SysFreeString(name);
    fields.push_back(SUCCEEDED(hr) ? from_variant(field) : Variant());
  }
  return Variant(Array(1, std::move(fields)));
}

Variant array_value(SAFEARRAY* a) {
  if (!a) return Variant(Array(1, {}));
  const UINT dims = SafeArrayGetDim(a);
  const VARTYPE vt = element_type(a);
  ComPtr<IRecordInfo> record;
  if (vt == VT_RECORD) SafeArrayGetRecordInfo(a, record.put());
  auto value_at = [&](void* p) {
    return vt == VT_RECORD ? record_value(record.get(), p) : element_value(vt, p);
  };
  if (dims == 1) {
    LONG lo = 0, hi = -1;
    SafeArrayGetLBound(a, 1, &lo);
    SafeArrayGetUBound(a, 1, &hi);
    std::vector<Variant> items;
    if (hi >= lo) {
      ArrayData data(a);
      for (LONG i = 0; i <= hi - lo; ++i) items.push_back(value_at(data.at(i)));
    }
    return Variant(Array(lo, std::move(items)));
  }
  if (dims == 2) {
    // Rows first, as the application numbers a block's values: (row, column).
    LONG rlo = 0, rhi = -1, clo = 0, chi = -1;
    SafeArrayGetLBound(a, 1, &rlo);
    SafeArrayGetUBound(a, 1, &rhi);
    SafeArrayGetLBound(a, 2, &clo);
    SafeArrayGetUBound(a, 2, &chi);
    std::vector<Variant> rows;
    for (LONG r = rlo; r <= rhi; ++r) {
      std::vector<Variant> row;
      for (LONG c = clo; c <= chi; ++c) {
        LONG idx[2] = {r, c};
        void* p = nullptr;
        if (FAILED(SafeArrayPtrOfIndex(a, idx, &p))) mismatch("array element");
        row.push_back(value_at(p));
      }
      rows.emplace_back(Array(1, std::move(row)));
    }
    return Variant(Array(1, std::move(rows)));
  }
  mismatch("array of more than two dimensions");
}

SAFEARRAY* create_array(VARTYPE vt, LONG lower, size_t count) {
  SAFEARRAYBOUND bound{static_cast<ULONG>(count), lower};
  SAFEARRAY* a = SafeArrayCreate(vt, 1, &bound);
  if (!a) throw std::bad_alloc();
  return a;
}

// Destroys an array that is being filled when filling it fails.
struct ArrayOwner {
  SAFEARRAY* a;
  ~ArrayOwner() {
    if (a) SafeArrayDestroy(a);
  }
  SAFEARRAY* release() { return std::exchange(a, nullptr); }
};

}  // namespace

String from_bstr(BSTR b) {
  if (!b) return String();
  return String(reinterpret_cast<const char16_t*>(b), SysStringLen(b));
}

BSTR to_bstr(StringView s) {
  BSTR b =
      SysAllocStringLen(reinterpret_cast<const OLECHAR*>(s.data()), static_cast<UINT>(s.size()));
  if (!b) throw std::bad_alloc();
  return b;
}

ObjectBridge& object_bridge() {
  static ObjectBridge bridge;
  return bridge;
}

int32_t error_code_from_scode(SCODE sc) noexcept {
  const auto u = static_cast<uint32_t>(sc);
  if ((u & 0xFFFF0000u) == 0x800A0000u) return static_cast<int32_t>(u & 0xFFFFu);
  return static_cast<int32_t>(sc);
}

SCODE scode_from_error_code(int32_t code) noexcept {
  if (code >= 0 && code <= 0xFFFF) return static_cast<SCODE>(0x800A0000u | uint32_t(code));
  return static_cast<SCODE>(code);
}

bool is_missing(const VARIANT& v) noexcept {
  return v.vt == VT_ERROR && v.scode == DISP_E_PARAMNOTFOUND;
}

void set_missing(VARIANT* v) noexcept {
  VariantInit(v);
  v->vt = VT_ERROR;
  v->scode = DISP_E_PARAMNOTFOUND;
}

Variant from_variant(const VARIANT& v) {
  const bool ref = (v.vt & VT_BYREF) != 0;
  const VARTYPE vt = static_cast<VARTYPE>(v.vt & ~VT_BYREF);
  if (ref && !v.byref) mismatch("null reference");
  if (vt & VT_ARRAY) return array_value(ref ? *v.pparray : v.parray);
  // Reads the value itself, or what a by-reference VARIANT points at.
  auto val = [&](auto VARIANT::*direct, auto VARIANT::*indirect) {
    return ref ? *(v.*indirect) : v.*direct;
  };
  switch (vt) {
    case VT_EMPTY:
      return Variant();
    case VT_NULL:
      return Variant::null();
    case VT_VARIANT:
      // A reference to a Variant that is itself a reference is not allowed, and could point
      // back at itself.
      if (!ref || v.pvarVal->vt == (VT_BYREF | VT_VARIANT)) mismatch("VARIANT inside VARIANT");
      return from_variant(*v.pvarVal);
    case VT_I1:
      return Variant(static_cast<int16_t>(val(&VARIANT::cVal, &VARIANT::pcVal)));
    case VT_UI1:
      return Variant(static_cast<int16_t>(val(&VARIANT::bVal, &VARIANT::pbVal)));
    case VT_I2:
      return Variant(static_cast<int16_t>(val(&VARIANT::iVal, &VARIANT::piVal)));
    case VT_UI2:
      return Variant(static_cast<int32_t>(val(&VARIANT::uiVal, &VARIANT::puiVal)));
    case VT_I4:
      return Variant(static_cast<int32_t>(val(&VARIANT::lVal, &VARIANT::plVal)));
    case VT_INT:
      return Variant(static_cast<int32_t>(val(&VARIANT::intVal, &VARIANT::pintVal)));
    case VT_UI4:
      return Variant(static_cast<double>(val(&VARIANT::ulVal, &VARIANT::pulVal)));
    case VT_UINT:
      return Variant(static_cast<double>(val(&VARIANT::uintVal, &VARIANT::puintVal)));
    case VT_I8:
      return Variant(static_cast<double>(val(&VARIANT::llVal, &VARIANT::pllVal)));
    case VT_UI8:
      return Variant(static_cast<double>(val(&VARIANT::ullVal, &VARIANT::pullVal)));
    case VT_R4:
      return Variant(static_cast<double>(val(&VARIANT::fltVal, &VARIANT::pfltVal)));
    case VT_R8:
      return Variant(val(&VARIANT::dblVal, &VARIANT::pdblVal));
    case VT_CY: {
      double d = 0;
      VarR8FromCy(val(&VARIANT::cyVal, &VARIANT::pcyVal), &d);
      return Variant(d);
    }
    case VT_DECIMAL: {
      double d = 0;
      VarR8FromDec(ref ? v.pdecVal : const_cast<DECIMAL*>(&v.decVal), &d);
      return Variant(d);
    }
    case VT_DATE:
      return Variant(Date{val(&VARIANT::date, &VARIANT::pdate)});
    case VT_BOOL:
      return Variant(val(&VARIANT::boolVal, &VARIANT::pboolVal) != VARIANT_FALSE);
    case VT_BSTR:
      return Variant(from_bstr(val(&VARIANT::bstrVal, &VARIANT::pbstrVal)));
    case VT_ERROR: {
      const SCODE sc = val(&VARIANT::scode, &VARIANT::pscode);
      if (sc == DISP_E_PARAMNOTFOUND) return Variant::missing();
      return Variant(ErrorCode{error_code_from_scode(sc)});
    }
    case VT_DISPATCH: {
      IDispatch* d = val(&VARIANT::pdispVal, &VARIANT::ppdispVal);
      if (!d) return Variant(ObjectPtr());
      return Variant(object_bridge().import_object(d));
    }
    case VT_UNKNOWN: {
      IUnknown* u = val(&VARIANT::punkVal, &VARIANT::ppunkVal);
      if (!u) return Variant(ObjectPtr());
      ComPtr<IDispatch> d;
      if (FAILED(u->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(d.put()))))
        mismatch("object without automation");
      return Variant(object_bridge().import_object(d.get()));
    }
    case VT_RECORD:
      if (ref) mismatch("record by reference");
      return record_value(v.pRecInfo, v.pvRecord);
    default:
      mismatch("unsupported VARIANT type");
  }
}

void to_variant(const Variant& v, VARIANT* out) {
  VariantInit(out);
  switch (v.type()) {
    case Variant::Type::Empty:
      return;
    case Variant::Type::Null:
      out->vt = VT_NULL;
      return;
    case Variant::Type::Missing:
      set_missing(out);
      return;
    case Variant::Type::Boolean:
      out->vt = VT_BOOL;
      out->boolVal = v.boolean() ? VARIANT_TRUE : VARIANT_FALSE;
      return;
    case Variant::Type::Integer:
      out->vt = VT_I2;
      out->iVal = v.integer();
      return;
    case Variant::Type::Long:
      out->vt = VT_I4;
      out->lVal = v.long_value();
      return;
    case Variant::Type::Double:
      out->vt = VT_R8;
      out->dblVal = v.dbl();
      return;
    case Variant::Type::Date:
      out->vt = VT_DATE;
      out->date = v.date().serial;
      return;
    case Variant::Type::String:
      out->bstrVal = to_bstr(v.str());
      out->vt = VT_BSTR;
      return;
    case Variant::Type::Object:
      out->pdispVal = v.object() ? object_bridge().export_object(v.object()) : nullptr;
      out->vt = VT_DISPATCH;
      return;
    case Variant::Type::Error:
      out->vt = VT_ERROR;
      out->scode = scode_from_error_code(v.error().code);
      return;
    case Variant::Type::Array: {
      const Array& a = v.array();
      ArrayOwner owner{create_array(VT_VARIANT, a.lower, a.items.size())};
      {
        ArrayData data(owner.a);
        for (size_t i = 0; i < a.items.size(); ++i)
          to_variant(a.items[i], reinterpret_cast<VARIANT*>(data.at(i)));
      }
      out->parray = owner.release();
      out->vt = VT_ARRAY | VT_VARIANT;
      return;
    }
  }
}

void store_by_ref(const VARIANT& ref, const Variant& value) {
  const auto target = static_cast<VARTYPE>(ref.vt & ~VT_BYREF);
  if (!(ref.vt & VT_BYREF) || !ref.byref) mismatch("no reference");
  if (target == VT_VARIANT) {
    VariantHolder fresh;
    to_variant(value, &fresh);
    VariantClear(ref.pvarVal);
    *ref.pvarVal = fresh;
    fresh.vt = VT_EMPTY;
    return;
  }
  VariantHolder fresh, typed;
  to_variant(value, &fresh);
  if (target & VT_ARRAY) {
    if (fresh.vt != target) mismatch("array of another type");
    if (*ref.pparray) SafeArrayDestroy(*ref.pparray);
    *ref.pparray = fresh.parray;
    fresh.vt = VT_EMPTY;
    return;
  }
  if (FAILED(VariantChangeType(&typed, &fresh, 0, target))) mismatch("by-reference value");
  switch (target) {
    case VT_BSTR:
      SysFreeString(*ref.pbstrVal);
      *ref.pbstrVal = typed.bstrVal;
      break;
    case VT_DISPATCH:
    case VT_UNKNOWN:
      if (*ref.ppunkVal) (*ref.ppunkVal)->Release();
      *ref.ppunkVal = typed.punkVal;
      break;
    case VT_I1:
      *ref.pcVal = typed.cVal;
      return;
    case VT_UI1:
      *ref.pbVal = typed.bVal;
      return;
    case VT_I2:
      *ref.piVal = typed.iVal;
      return;
    case VT_UI2:
      *ref.puiVal = typed.uiVal;
      return;
    case VT_I4:
      *ref.plVal = typed.lVal;
      return;
    case VT_UI4:
      *ref.pulVal = typed.ulVal;
      return;
    case VT_INT:
      *ref.pintVal = typed.intVal;
      return;
    case VT_UINT:
      *ref.puintVal = typed.uintVal;
      return;
    case VT_I8:
      *ref.pllVal = typed.llVal;
      return;
    case VT_UI8:
      *ref.pullVal = typed.ullVal;
      return;
    case VT_R4:
      *ref.pfltVal = typed.fltVal;
      return;
    case VT_R8:
      *ref.pdblVal = typed.dblVal;
      return;
    case VT_DATE:
      *ref.pdate = typed.date;
      return;
    case VT_CY:
      *ref.pcyVal = typed.cyVal;
      return;
    case VT_BOOL:
      *ref.pboolVal = typed.boolVal;
      return;
    case VT_ERROR:
      *ref.pscode = typed.scode;
      return;
    case VT_DECIMAL:
      *ref.pdecVal = typed.decVal;
      return;
    default:
      mismatch("by-reference type");
  }
  // The reference took over the BSTR or interface.
  typed.vt = VT_EMPTY;
}

void to_variant_2d(const Variant& rows, VARIANT* out) {
  VariantInit(out);
  if (!rows.is_array() || rows.array().items.empty()) return to_variant(rows, out);
  const Array& r = rows.array();
  size_t width = 0;
  for (const Variant& row : r.items) {
    if (!row.is_array()) return to_variant(rows, out);
    width = std::max(width, row.array().items.size());
  }
  SAFEARRAYBOUND bounds[2] = {{static_cast<ULONG>(r.items.size()), 1},
                              {static_cast<ULONG>(width), 1}};
  ArrayOwner owner{SafeArrayCreate(VT_VARIANT, 2, bounds)};
  if (!owner.a) throw std::bad_alloc();
  for (size_t i = 0; i < r.items.size(); ++i) {
    const auto& cells = r.items[i].array().items;
    for (size_t j = 0; j < cells.size(); ++j) {
      LONG idx[2] = {static_cast<LONG>(i + 1), static_cast<LONG>(j + 1)};
      VariantHolder cell;
      to_variant(cells[j], &cell);
      if (FAILED(SafeArrayPutElement(owner.a, idx, &cell))) throw std::bad_alloc();
    }
  }
  out->parray = owner.release();
  out->vt = VT_ARRAY | VT_VARIANT;
}

SAFEARRAY* make_string_array(const std::vector<String>& items) {
  ArrayOwner owner{create_array(VT_BSTR, 1, items.size())};
  if (!items.empty()) {
    ArrayData data(owner.a);
    for (size_t i = 0; i < items.size(); ++i)
      *reinterpret_cast<BSTR*>(data.at(i)) = to_bstr(items[i]);
  }
  return owner.release();
}

std::vector<String> read_string_array(SAFEARRAY* array) {
  std::vector<String> out;
  if (!array) return out;
  Variant v = array_value(array);
  for (const Variant& item : v.array().items) out.push_back(qz::to_string(item));
  return out;
}

SAFEARRAY* make_piece_array(const FmlaPieces& pieces, IRecordInfo* record) {
  SAFEARRAYBOUND bound{static_cast<ULONG>(pieces.size()), 1};
  ArrayOwner owner{SafeArrayCreateEx(VT_RECORD, 1, &bound, record)};
  if (!owner.a) throw std::bad_alloc();
  if (!pieces.empty()) {
    ArrayData data(owner.a);
    for (size_t i = 0; i < pieces.size(); ++i) {
      const FmlaPiece& p = pieces[i];
      auto* r = reinterpret_cast<FmlaPieceRecord*>(data.at(i));
      r->ThePiece = to_bstr(p.ThePiece);
      r->StartPos = p.StartPos;
      r->IsOperator = p.IsOperator ? VARIANT_TRUE : VARIANT_FALSE;
      r->IsFunction = p.IsFunction ? VARIANT_TRUE : VARIANT_FALSE;
      r->IsRange = p.IsRange ? VARIANT_TRUE : VARIANT_FALSE;
      r->IsObjectKey = p.IsObjectKey ? VARIANT_TRUE : VARIANT_FALSE;
      r->IsValue = p.IsValue ? VARIANT_TRUE : VARIANT_FALSE;
      r->IsSimpleText = p.IsSimpleText ? VARIANT_TRUE : VARIANT_FALSE;
    }
  }
  return owner.release();
}

FmlaPieces read_piece_array(SAFEARRAY* array) {
  FmlaPieces out;
  if (!array || SafeArrayGetDim(array) != 1 || element_type(array) != VT_RECORD ||
      array->cbElements != sizeof(FmlaPieceRecord))
    return out;
  // Only our own record has this layout; any other record is no list of pieces.
  ComPtr<IRecordInfo> record;
  GUID guid{};
  if (FAILED(SafeArrayGetRecordInfo(array, record.put())) || !record ||
      FAILED(record->GetGuid(&guid)) || !IsEqualGUID(guid, kRecordFmlaPiece))
    return out;
  LONG lo = 0, hi = -1;
  SafeArrayGetLBound(array, 1, &lo);
  SafeArrayGetUBound(array, 1, &hi);
  if (hi < lo) return out;
  ArrayData data(array);
  for (LONG i = 0; i <= hi - lo; ++i) {
    const auto* r = reinterpret_cast<const FmlaPieceRecord*>(data.at(i));
    out.push_back(FmlaPiece{from_bstr(r->ThePiece), r->StartPos, r->IsOperator != 0,
                            r->IsFunction != 0, r->IsRange != 0, r->IsObjectKey != 0,
                            r->IsValue != 0, r->IsSimpleText != 0});
  }
  return out;
}

}  // namespace qz::com
