// The COM layer's own checks, run under Wine: the conversions between automation values and
// VARIANTs, by-reference stores, error mapping, the generic automation object and late
// binding in one process, and QZXLLib.dll itself through IDispatch, through its vtables and
// through its type library.
//
//   qzxl_com_selftest.exe <path of QZXLLib.dll> <path of QZXLTestHost.dll>
//
// Prints one line per failed check and the summary line "PASS n/n" (or "FAIL k/n").
#include <windows.h>

#include <oaidl.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "com/generated/qzxllib_itf.hpp"
#include "com/src/convert.hpp"
#include "com/src/core.hpp"
#include "com/src/disp_object.hpp"
#include "com/src/errors.hpp"
#include "com/src/late.hpp"
#include "com/src/object_dispatch.hpp"
#include "com/src/registry_settings.hpp"
#include "com/src/user_locale.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {
namespace {

int g_checks = 0;
int g_failures = 0;
const char* g_group = "";

void check(bool ok, const std::string& what, int line) {
  ++g_checks;
  if (ok) return;
  ++g_failures;
  std::printf("FAILED [%s] line %d: %s\n", g_group, line, what.c_str());
}
#define CHECK(cond) check((cond), #cond, __LINE__)

// Runs `f`, expecting qz::Error with `code`.
bool raises(int32_t code, const std::function<void()>& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.code() == code;
  } catch (...) {
    return false;
  }
  return false;
}

VARIANT make(VARTYPE vt) {
  VARIANT v;
  VariantInit(&v);
  v.vt = vt;
  return v;
}

// ---- VARIANT to Variant ------------------------------------------------------------------

void variants_in() {
  g_group = "VARIANT to Variant";
  VARIANT v = make(VT_EMPTY);
  CHECK(from_variant(v).is_empty());
  v = make(VT_NULL);
  CHECK(from_variant(v).is_null());
  v = make(VT_I1);
  v.cVal = -5;
  CHECK(from_variant(v) == Variant(int16_t(-5)));
  v = make(VT_UI1);
  v.bVal = 200;
  CHECK(from_variant(v) == Variant(int16_t(200)));
  v = make(VT_UI2);
  v.uiVal = 60000;
  CHECK(from_variant(v) == Variant(int32_t(60000)));
  v = make(VT_UI4);
  v.ulVal = 4000000000u;
  CHECK(from_variant(v) == Variant(4000000000.0));
  v = make(VT_I8);
  v.llVal = -(1LL << 40);
  CHECK(from_variant(v) == Variant(-1099511627776.0));
  v = make(VT_R4);
  v.fltVal = 1.5f;
  CHECK(from_variant(v) == Variant(1.5));
  v = make(VT_CY);
  v.cyVal.int64 = 12345;  // 1.2345 in units of 1/10000
  CHECK(from_variant(v) == Variant(1.2345));
  VARIANT d = make(VT_DECIMAL);
  VarDecFromR8(2.5, &d.decVal);
  d.vt = VT_DECIMAL;
  CHECK(from_variant(d) == Variant(2.5));
  v = make(VT_DATE);
  v.date = 46340.5;
  CHECK(from_variant(v) == Variant(Date{46340.5}));
  v = make(VT_BOOL);
  v.boolVal = VARIANT_TRUE;
  CHECK(from_variant(v) == Variant(true));

  // Text keeps embedded NULs; a null BSTR is the empty string.
  VariantHolder text;
  text.vt = VT_BSTR;
  text.bstrVal = SysAllocStringLen(L"a\0b", 3);
  CHECK(from_variant(text).str().size() == 3);
  v = make(VT_BSTR);
  v.bstrVal = nullptr;
  CHECK(from_variant(v) == Variant(u""));

  // Errors: "missing", cell errors by their runtime codes, anything else as it is.
  v = make(VT_ERROR);
  v.scode = DISP_E_PARAMNOTFOUND;
  CHECK(from_variant(v).is_missing());
  v.scode = static_cast<SCODE>(0x800A07D7);
  CHECK(from_variant(v) == Variant(ErrorCode{cell_error::div0}));
  v.scode = E_FAIL;
  CHECK(from_variant(v) == Variant(ErrorCode{static_cast<int32_t>(E_FAIL)}));
  v = make(VT_DISPATCH);
  v.pdispVal = nullptr;
  CHECK(from_variant(v).is_nothing());

  // References are read through, one level of VARIANT deep.
  LONG n = 77;
  v = make(VT_BYREF | VT_I4);
  v.plVal = &n;
  CHECK(from_variant(v) == Variant(int32_t(77)));
  VARIANT inner = make(VT_I4);
  inner.lVal = 5;
  v = make(VT_BYREF | VT_VARIANT);
  v.pvarVal = &inner;
  CHECK(from_variant(v) == Variant(int32_t(5)));
  v = make(VT_BYREF | VT_I4);
  v.plVal = nullptr;
  CHECK(raises(err::type_mismatch, [&] { from_variant(v); }));
  v = make(VT_CLSID);
  CHECK(raises(err::type_mismatch, [&] { from_variant(v); }));
}

void arrays_in() {
  g_group = "arrays in";
  // A 0-based array of Longs keeps its bound.
  SAFEARRAYBOUND b{3, 0};
  VariantHolder longs;
  longs.vt = VT_ARRAY | VT_I4;
  longs.parray = SafeArrayCreate(VT_I4, 1, &b);
  for (LONG i = 0; i < 3; ++i) {
    LONG value = 10 * i;
    SafeArrayPutElement(longs.parray, &i, &value);
  }
  Variant a = from_variant(longs);
  CHECK(a.is_array() && a.array().lower == 0 && a.array().items.size() == 3);
  CHECK(a.array().at(2) == Variant(int32_t(20)));
  // Empty arrays keep their lower bound too.
  SAFEARRAYBOUND none{0, 1};
  VariantHolder empty;
  empty.vt = VT_ARRAY | VT_VARIANT;
  empty.parray = SafeArrayCreate(VT_VARIANT, 1, &none);
  a = from_variant(empty);
  CHECK(a.array().lower == 1 && a.array().items.empty() && a.array().upper() == 0);
  // Two dimensions are (row, column): rows of values, each 1-based.
  SAFEARRAYBOUND grid[2] = {{2, 1}, {3, 1}};
  VariantHolder block;
  block.vt = VT_ARRAY | VT_VARIANT;
  block.parray = SafeArrayCreate(VT_VARIANT, 2, grid);
  for (LONG r = 1; r <= 2; ++r)
    for (LONG c = 1; c <= 3; ++c) {
      LONG idx[2] = {r, c};
      VARIANT cell = make(VT_I4);
      cell.lVal = 10 * r + c;
      SafeArrayPutElement(block.parray, idx, &cell);
    }
  a = from_variant(block);
  CHECK(a.array().items.size() == 2);
  CHECK(a.array().at(2).array().items.size() == 3);
  CHECK(a.array().at(2).array().at(3) == Variant(int32_t(23)));
  CHECK(a.array().at(1).array().at(2) == Variant(int32_t(12)));
  // An array by reference.
  VARIANT ref = make(VT_BYREF | VT_ARRAY | VT_I4);
  ref.pparray = &longs.parray;
  CHECK(from_variant(ref).array().items.size() == 3);
  // Three dimensions have no Variant form.
  SAFEARRAYBOUND cube[3] = {{1, 0}, {1, 0}, {1, 0}};
  VariantHolder three;
  three.vt = VT_ARRAY | VT_VARIANT;
  three.parray = SafeArrayCreate(VT_VARIANT, 3, cube);
  CHECK(raises(err::type_mismatch, [&] { from_variant(three); }));
}

// ---- Variant to VARIANT ------------------------------------------------------------------

void variants_out() {
  g_group = "Variant to VARIANT";
  VariantHolder v;
  to_variant(Variant::missing(), &v);
  CHECK(is_missing(v));
  v.clear();
  to_variant(Variant(ErrorCode{cell_error::na}), &v);
  CHECK(v.vt == VT_ERROR && static_cast<uint32_t>(v.scode) == 0x800A07FAu);
  v.clear();
  to_variant(Variant(int16_t(7)), &v);
  CHECK(v.vt == VT_I2 && v.iVal == 7);
  v.clear();
  to_variant(Variant(true), &v);
  CHECK(v.vt == VT_BOOL && v.boolVal == VARIANT_TRUE);
  v.clear();
  to_variant(Variant(Date{1.25}), &v);
  CHECK(v.vt == VT_DATE && v.date == 1.25);
  v.clear();
  to_variant(Variant(ObjectPtr()), &v);
  CHECK(v.vt == VT_DISPATCH && v.pdispVal == nullptr);
  v.clear();
  to_variant(Variant::null(), &v);
  CHECK(v.vt == VT_NULL);

  // Arrays keep their lower bound; nested arrays stay nested.
  Array inner(1, {Variant(u"x"), Variant(2.5)});
  Array outer(0, {Variant(int32_t(1)), Variant(inner), Variant::null()});
  v.clear();
  to_variant(Variant(outer), &v);
  LONG lo = -1;
  SafeArrayGetLBound(v.parray, 1, &lo);
  CHECK(v.vt == (VT_ARRAY | VT_VARIANT) && lo == 0);
  CHECK(from_variant(v) == Variant(outer));

  // Rows of values become a block; ragged rows are padded with Empty.
  Array rows(1, {Variant(Array(1, {Variant(int32_t(1)), Variant(int32_t(2))})),
                 Variant(Array(1, {Variant(int32_t(3))}))});
  v.clear();
  to_variant_2d(Variant(rows), &v);
  CHECK(SafeArrayGetDim(v.parray) == 2);
  LONG idx[2] = {2, 2};
  VariantHolder cell;
  SafeArrayGetElement(v.parray, idx, &cell);
  CHECK(cell.vt == VT_EMPTY);
  idx[1] = 1;
  cell.clear();
  SafeArrayGetElement(v.parray, idx, &cell);
  CHECK(cell.vt == VT_I4 && cell.lVal == 3);
  // What is not rows converts as usual.
  v.clear();
  to_variant_2d(Variant(int32_t(4)), &v);
  CHECK(v.vt == VT_I4);
  v.clear();
  to_variant_2d(Variant(outer), &v);
  CHECK(SafeArrayGetDim(v.parray) == 1);
}

// ---- By-reference stores -------------------------------------------------------------------

void by_reference() {
  g_group = "by-reference stores";
  LONG n = 0;
  VARIANT ref = make(VT_BYREF | VT_I4);
  ref.plVal = &n;
  store_by_ref(ref, Variant(u"12"));
  CHECK(n == 12);
  CHECK(raises(err::type_mismatch, [&] { store_by_ref(ref, Variant(u"twelve")); }));
  CHECK(n == 12);

  BSTR text = SysAllocString(L"old");
  ref = make(VT_BYREF | VT_BSTR);
  ref.pbstrVal = &text;
  store_by_ref(ref, Variant(int32_t(42)));
  CHECK(from_bstr(text) == u"42");
  SysFreeString(text);

  VARIANT_BOOL flag = VARIANT_FALSE;
  ref = make(VT_BYREF | VT_BOOL);
  ref.pboolVal = &flag;
  store_by_ref(ref, Variant(int32_t(1)));
  CHECK(flag == VARIANT_TRUE);

  VariantHolder target;
  ref = make(VT_BYREF | VT_VARIANT);
  ref.pvarVal = &target;
  store_by_ref(ref, Variant(Array(1, {Variant(u"a")})));
  CHECK(target.vt == (VT_ARRAY | VT_VARIANT));

  // An array reference takes only an array of its own kind.
  SAFEARRAY* strings = make_string_array({u"a"});
  ref = make(VT_BYREF | VT_ARRAY | VT_BSTR);
  ref.pparray = &strings;
  CHECK(raises(err::type_mismatch, [&] { store_by_ref(ref, Variant(Array(1, {}))); }));
  SafeArrayDestroy(strings);
  ref = make(VT_I4);
  CHECK(raises(err::type_mismatch, [&] { store_by_ref(ref, Variant(int32_t(1))); }));
}

// ---- Arrays of texts and of pieces ---------------------------------------------------------

void typed_arrays(IRecordInfo* record) {
  g_group = "arrays of texts and pieces";
  SAFEARRAY* a = make_string_array({u"one", u"two"});
  LONG lo = 0, hi = 0;
  SafeArrayGetLBound(a, 1, &lo);
  SafeArrayGetUBound(a, 1, &hi);
  CHECK(lo == 1 && hi == 2);
  CHECK(read_string_array(a) == (std::vector<String>{u"one", u"two"}));
  SafeArrayDestroy(a);
  a = make_string_array({});
  SafeArrayGetLBound(a, 1, &lo);
  SafeArrayGetUBound(a, 1, &hi);
  CHECK(lo == 1 && hi == 0);
  SafeArrayDestroy(a);
  // Any array of values reads as texts.
  VariantHolder numbers;
  to_variant(Variant(Array(0, {Variant(1.5), Variant(true)})), &numbers);
  CHECK(read_string_array(numbers.parray) == (std::vector<String>{u"1.5", u"True"}));

  FmlaPieces pieces{{u"=", 1, true, false, false, false, false, false},
                    {u"SUM", 2, false, true, false, false, false, false},
                    {u"\"a b\"", 6, false, false, false, false, false, true}};
  a = make_piece_array(pieces, record);
  SafeArrayGetLBound(a, 1, &lo);
  CHECK(lo == 1);
  CHECK(read_piece_array(a) == pieces);
  // Read as a Variant, each record is the array of its fields.
  VARIANT v = make(VT_ARRAY | VT_RECORD);
  v.parray = a;
  Variant seen = from_variant(v);
  CHECK(seen.array().items.size() == 3);
  CHECK(seen.array().at(2).array().items.size() == 8);
  CHECK(seen.array().at(2).array().at(1) == Variant(u"SUM"));
  CHECK(seen.array().at(3).array().at(8) == Variant(true));
  // Reading did not take the records' strings away.
  CHECK(read_piece_array(a) == pieces);
  SafeArrayDestroy(a);
  // Anything that is not an array of our records gives no pieces.
  a = make_string_array({u"="});
  CHECK(read_piece_array(a).empty());
  SafeArrayDestroy(a);
  CHECK(read_piece_array(nullptr).empty());
}

// ---- Errors --------------------------------------------------------------------------------

// A deferred fill-in must carry the platform's calling convention, which a
// lambda cannot name on 32-bit Windows.
HRESULT __stdcall fill_type_mismatch(EXCEPINFO* info) {
  info->scode = static_cast<SCODE>(0x800A000D);
  return S_OK;
}

void errors() {
  g_group = "errors";
  CHECK(error_from_hresult(DISP_E_MEMBERNOTFOUND, nullptr, "X").code() == err::not_supported);
  CHECK(error_from_hresult(DISP_E_UNKNOWNNAME, nullptr, "X").code() == err::not_supported);
  CHECK(error_from_hresult(DISP_E_TYPEMISMATCH, nullptr, "X").code() == err::type_mismatch);
  CHECK(error_from_hresult(DISP_E_BADPARAMCOUNT, nullptr, "X").code() == err::wrong_arguments);
  CHECK(error_from_hresult(DISP_E_OVERFLOW, nullptr, "X").code() == err::overflow);
  CHECK(error_from_hresult(E_FAIL, nullptr, "X").code() == err::host_failure);
  CHECK(error_from_hresult(static_cast<HRESULT>(0x800A01A8), nullptr, "X").code() ==
        err::object_required);

  EXCEPINFO e{};
  e.scode = static_cast<SCODE>(0x800A0009);
  e.bstrDescription = SysAllocString(L"Subscript out of range");
  Error x = error_from_hresult(DISP_E_EXCEPTION, &e, "Item");
  CHECK(x.code() == err::subscript && x.message() == "Subscript out of range");
  SysFreeString(e.bstrDescription);
  e = EXCEPINFO{};
  e.wCode = 1004;
  CHECK(error_from_hresult(DISP_E_EXCEPTION, &e, "Open").code() == err::host_failure);
  // A server that fills its exception in later is asked to.
  e = EXCEPINFO{};
  e.pfnDeferredFillIn = fill_type_mismatch;
  CHECK(error_from_hresult(DISP_E_EXCEPTION, &e, "Late").code() == err::type_mismatch);

  // The boundary: exceptions become HRESULTs, a qz::Error also the thread's error information.
  HRESULT hr = guard([] { throw Error(err::type_mismatch, "no number"); });
  CHECK(hr == static_cast<HRESULT>(0x800A000D));
  CHECK(take_error_info() == "no number");
  CHECK(guard([] { throw std::bad_alloc(); }) == E_OUTOFMEMORY);
  CHECK(guard([] { throw std::runtime_error("odd"); }) == E_FAIL);
  CHECK(guard([] { throw 7; }) == E_UNEXPECTED);
  CHECK(guard([] {}) == S_OK);

  fill_excepinfo(&e, hresult_from_error_code(438), "nope");
  CHECK(e.wCode == 0 && static_cast<uint32_t>(e.scode) == 0x800A01B6u);
  CHECK(from_bstr(e.bstrDescription) == u"nope");
  SysFreeString(e.bstrSource);
  SysFreeString(e.bstrDescription);
}

// ---- The settings store -------------------------------------------------------------------

void regional_settings() {
  g_group = "the user's regional settings";
  // Whatever the user's locale, the readers are the runtime's parsers for it.
  const Locale user = user_locale();
  CHECK(user.number_reader && user.date_reader);
  CHECK(!user.name.empty());
  const Locale old = set_locale(user);
  CHECK(parse_number(u" 12 ") == 12.0);
  CHECK(!parse_number(u"twelve"));
  CHECK(parse_date(u"2026-11-14") == 46340.0);
  // The radix forms stay the runtime's typed whole numbers, which VarR8FromStr does not
  // give: it reads &HFFFF as 65535, refuses &HFFFFFFFF as too large and &10 (octal) outright.
  double plain = 0;
  wchar_t hex[] = L"&HFFFF";
  CHECK(SUCCEEDED(VarR8FromStr(hex, LOCALE_USER_DEFAULT, 0, &plain)) && plain == 65535);
  CHECK(parse_number(u"&HFFFF") == -1.0);
  CHECK(parse_number(u" &HFFFFFFFF ") == -1.0);
  CHECK(parse_number(u"&10") == 8.0);
  CHECK(is_numeric(Variant(u"&H7FFF")));
  // Whole numbers still round on the digits as written.
  CHECK(to_long(Variant(u"2.5")) == 2 && to_long(Variant(u"3.5")) == 4);
  set_locale(old);
}

void settings() {
  g_group = "settings in the registry";
  const String section = u"SelfTest";
  auto store = registry_settings_backend();
  for (const String& name : store->names(section)) store->remove(section, name);
  CHECK(!store->read(section, u"InputColor").has_value());
  store->write(section, u"InputColor", u"16711680");
  store->write(section, u"AutoColorOn", u"True");
  store->write(section, u"Empty", u"");
  store->write(section, u"Label", u"Übersicht \u20ac");
  store->write(section, u"Long", String(5000, u'x'));
  // A store made afterwards (another object, another process) reads what was written.
  auto other = registry_settings_backend();
  CHECK(other->read(section, u"InputColor") == std::optional<String>(u"16711680"));
  CHECK(other->read(section, u"inputcolor") == std::optional<String>(u"16711680"));
  CHECK(other->read(section, u"Empty") == std::optional<String>(u""));
  CHECK(other->read(section, u"Label") == std::optional<String>(u"Übersicht \u20ac"));
  CHECK(other->read(section, u"Long")->size() == 5000);
  CHECK(other->names(section) ==
        (std::vector<String>{u"AutoColorOn", u"Empty", u"InputColor", u"Label", u"Long"}));
  // Sections are apart; a section never written has no names.
  CHECK(!other->read(u"SelfTestOther", u"InputColor").has_value());
  CHECK(other->names(u"SelfTestNever").empty());
  store->write(section, u"InputColor", u"255");
  CHECK(other->read(section, u"InputColor") == std::optional<String>(u"255"));
  store->remove(section, u"InputColor");
  CHECK(!other->read(section, u"InputColor").has_value());
  store->remove(section, u"InputColor");  // removing what is not there is no error
  store->remove(u"SelfTestNever", u"Anything");
  // Where it lives, for tools and people.
  HKEY key = nullptr;
  CHECK(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Quazel\\QZXLLib\\SelfTest", 0, KEY_READ,
                      &key) == ERROR_SUCCESS);
  if (key) RegCloseKey(key);
  for (const String& name : store->names(section)) store->remove(section, name);
  CHECK(store->names(section).empty());
}

// ---- The generic automation object and late binding, in one process ----------------------

// Members: Add(First, Second), Swap(ref) sets its argument to "swapped", Value get/put,
// Count (of what Add received last).
class Recorder final : public Object {
 public:
  String type_name() const override { return u"Recorder"; }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    if (same_member(name, u"Add")) {
      last_count = static_cast<int32_t>(args.size());
      double sum = 0;
      for (const Variant& a : args)
        if (!a.is_missing()) sum += to_double(a);
      return Variant(sum);
    }
    if (same_member(name, u"Swap")) {
      if (!args.empty()) args[0] = Variant(u"swapped");
      return Variant();
    }
    if (same_member(name, u"Value")) {
      if (kind == Invoke::Put) {
        value = args.back();
        return Variant();
      }
      return value;
    }
    if (same_member(name, u"Count")) return Variant(last_count);
    return Object::invoke(name, kind, args);
  }
  bool has_member(StringView name) const override {
    for (const char16_t* m : {u"Add", u"Swap", u"Value", u"Count"})
      if (same_member(name, m)) return true;
    return false;
  }
  Variant value;
  int32_t last_count = -1;
};

void late_binding(IDispatch* foreign) {
  g_group = "late binding";
  auto recorder = std::make_shared<Recorder>();
  auto d = ComPtr<IDispatch>::adopt(dispatch_for(recorder));
  LateBound late(d);

  Variant two[2] = {Variant(int32_t(2)), Variant(3.5)};
  CHECK(late.invoke(u"add", Invoke::Method, two) == Variant(5.5));
  // Trailing arguments left out are not passed.
  Variant gap[3] = {Variant(int32_t(1)), Variant::missing(), Variant::missing()};
  late.invoke(u"Add", Invoke::Method, gap);
  CHECK(recorder->last_count == 1);
  // Inner ones are passed as "missing".
  Variant inner[3] = {Variant(int32_t(1)), Variant::missing(), Variant(int32_t(2))};
  CHECK(late.invoke(u"Add", Invoke::Method, inner) == Variant(3.0));
  CHECK(recorder->last_count == 3);

  // Named arguments land at their parameter positions.
  object_members().param_index = [](const ObjectPtr&, StringView, StringView param) {
    return same_member(param, u"First") ? 0 : same_member(param, u"Second") ? 1 : -1;
  };
  NamedArg second[1] = {{u"Second", 1, Variant(int32_t(4))}};
  CHECK(late.invoke(u"Add", Invoke::Method, {}, false, second) == Variant(4.0));
  CHECK(recorder->last_count == 2);
  // A name the object does not know is placed at its position instead, as for objects that
  // resolve no argument names at all.
  NamedArg unknown[1] = {{u"Third", 2, Variant(int32_t(4))}};
  CHECK(late.invoke(u"Add", Invoke::Method, {}, false, unknown) == Variant(4.0));
  CHECK(recorder->last_count == 3);

  // By-reference write-back, puts and gets.
  Variant ref[1] = {Variant(u"original")};
  late.invoke(u"Swap", Invoke::Method, ref, true);
  CHECK(ref[0] == Variant(u"swapped"));
  Variant plain[1] = {Variant(u"original")};
  late.invoke(u"Swap", Invoke::Method, plain, false);
  CHECK(plain[0] == Variant(u"original"));
  Variant assigned[1] = {Variant(u"kept")};
  late.invoke(u"Value", Invoke::Put, assigned);
  CHECK(recorder->value == Variant(u"kept"));
  CHECK(late.invoke(u"Value", Invoke::Get, {}) == Variant(u"kept"));
  CHECK(raises(err::not_supported, [&] { late.invoke(u"Missing", Invoke::Get, {}); }));
  CHECK(late.has(u"COUNT") && !late.has(u"Nothing"));
  CHECK(late.type_name() == u"Recorder");

  // One wrapper per object while it lives; the object behind it comes back out.
  auto again = ComPtr<IDispatch>::adopt(dispatch_for(recorder));
  CHECK(again.get() == d.get());
  CHECK(object_behind(d.get()) == recorder);
  // Another module's objects are never taken for this module's.
  CHECK(object_behind(foreign) == nullptr);

  // For Each over what the module says an object's items are.
  object_members().items = [](const ObjectPtr&) {
    return std::vector<Variant>{Variant(int32_t(1)), Variant(int32_t(2)), Variant(int32_t(3))};
  };
  DISPPARAMS none{};
  VariantHolder result;
  CHECK(SUCCEEDED(d->Invoke(DISPID_NEWENUM, IID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                            &none, &result, nullptr, nullptr)));
  ComPtr<IEnumVARIANT> items;
  if (result.vt == VT_UNKNOWN && result.punkVal)
    result.punkVal->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(items.put()));
  CHECK(items.get() != nullptr);
  if (items) {
    VARIANT got[4];
    ULONG fetched = 0;
    CHECK(items->Next(4, got, &fetched) == S_FALSE && fetched == 3);
    CHECK(got[2].vt == VT_I4 && got[2].lVal == 3);
    CHECK(items->Reset() == S_OK && items->Skip(2) == S_OK);
    ComPtr<IEnumVARIANT> copy;
    CHECK(SUCCEEDED(items->Clone(copy.put())));
    VariantHolder last;
    CHECK(copy->Next(1, &last, &fetched) == S_OK && last.lVal == 3);
  }
  CHECK(late.items().size() == 3);
}

// ---- QZXLLib.dll ---------------------------------------------------------------------------

using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);

DISPID id_of(IDispatch* d, const wchar_t* name) {
  LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  d->GetIDsOfNames(IID_NULL, names, 1, 0, &id);
  return id;
}

// Invoke with arguments given first to last.
HRESULT call(IDispatch* d, const wchar_t* name, std::vector<VARIANT> args, VARIANT* result,
             WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET, UINT* arg_err = nullptr) {
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS p{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  EXCEPINFO e{};
  HRESULT hr = d->Invoke(id_of(d, name), IID_NULL, 0, flags, &p, result, &e, arg_err);
  SysFreeString(e.bstrSource);
  SysFreeString(e.bstrDescription);
  SysFreeString(e.bstrHelpFile);
  return hr;
}

VARIANT bstr(const wchar_t* s) {
  VARIANT v = make(VT_BSTR);
  v.bstrVal = SysAllocString(s);
  return v;
}

// A DLL's export as the function type it really has. GetProcAddress gives every export one
// generic type; passing through void(*)() tells the compiler the cast is deliberate.
template <class Function>
Function export_of(HMODULE module, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

// An application of the embedded engine, from the test host DLL.
ComPtr<IDispatch> engine_application(const wchar_t* dll) {
  constexpr GUID kClsidEngine = {
      0xCD6B2A48, 0x42AB, 0x4E4D, {0xA7, 0x16, 0x03, 0xE2, 0x96, 0x96, 0x8E, 0xB7}};
  HMODULE module = LoadLibraryW(dll);
  auto get_class = module ? export_of<GetClassObject>(module, "DllGetClassObject") : nullptr;
  ComPtr<IClassFactory> factory;
  ComPtr<IDispatch> engine;
  if (!get_class ||
      FAILED(get_class(kClsidEngine, IID_IClassFactory, reinterpret_cast<void**>(factory.put()))) ||
      FAILED(
          factory->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(engine.put()))))
    return nullptr;
  LateBound late(engine);
  Variant app = late.invoke(u"NewApplication", Invoke::Method, {});
  late::call(late::get(app.object(), u"Workbooks").object(), u"Add");
  return ComPtr<IDispatch>(foreign_dispatch(app.object().get()));
}

void server(const wchar_t* dll, const wchar_t* host_dll) {
  g_group = "QZXLLib.dll";
  HMODULE module = LoadLibraryW(dll);
  CHECK(module != nullptr);
  if (!module) return;
  auto get_class = export_of<GetClassObject>(module, "DllGetClassObject");
  auto can_unload = export_of<HRESULT(STDAPICALLTYPE*)()>(module, "DllCanUnloadNow");
  CHECK(get_class && can_unload);
  if (!get_class || !can_unload) return;

  ComPtr<IClassFactory> factory;
  CHECK(get_class(GUID{}, IID_IClassFactory, reinterpret_cast<void**>(factory.put())) ==
        CLASS_E_CLASSNOTAVAILABLE);
  CHECK(SUCCEEDED(get_class(itf::kCLSIDiXLLibPublic, IID_IClassFactory,
                            reinterpret_cast<void**>(factory.put()))));
  ComPtr<IDispatch> lib;
  CHECK(SUCCEEDED(
      factory->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(lib.put()))));
  CHECK(factory->CreateInstance(lib.get(), IID_IUnknown, nullptr) == E_POINTER);
  if (!lib) return;
  CHECK(id_of(lib.get(), L"NoSuchMember") == DISPID_UNKNOWN);
  // The library drives an application of the test host: another module whose automation
  // objects answer the same private identifiers as this one's.
  ComPtr<IDispatch> app = engine_application(host_dll);
  CHECK(app.get() != nullptr);
  VARIANT app_arg = make(VT_DISPATCH);
  app_arg.pdispVal = app.get();
  VariantHolder nothing;
  CHECK(SUCCEEDED(call(lib.get(), L"InitXL", {app_arg}, &nothing)));
  CHECK(object_behind(app.get()) == nullptr);
  auto support = lib.as<ISupportErrorInfo>(IID_ISupportErrorInfo);
  CHECK(support && support->InterfaceSupportsErrorInfo(itf::kIID_iXLLibPublic) == S_OK);

  // Read-only properties through IDispatch, as a get and as a method call.
  VariantHolder constants;
  CHECK(SUCCEEDED(call(lib.get(), L"NewConst", {}, &constants)));
  VariantHolder plum;
  CHECK(SUCCEEDED(call(constants.pdispVal, L"qzPlum", {}, &plum, DISPATCH_PROPERTYGET)));
  CHECK(plum.vt == VT_I4 && plum.lVal == 6697881);
  VariantHolder put_arg;
  put_arg.vt = VT_I4;
  DISPID put_id = DISPID_PROPERTYPUT;
  DISPPARAMS put{&put_arg, &put_id, 1, 1};
  CHECK(constants.pdispVal->Invoke(id_of(constants.pdispVal, L"qzPlum"), IID_NULL, 0,
                                   DISPATCH_PROPERTYPUT, &put, nullptr, nullptr,
                                   nullptr) == DISP_E_MEMBERNOTFOUND);

  VariantHolder range;
  CHECK(SUCCEEDED(call(lib.get(), L"NewRange", {}, &range)));
  IDispatch* r = range.pdispVal;
  // A Variant variable by reference gets a Variant array; a typed Long by reference is
  // used in place.
  VariantHolder pieces;
  LONG adj = -1;
  VARIANT pieces_ref = make(VT_BYREF | VT_VARIANT);
  pieces_ref.pvarVal = &pieces;
  VARIANT adj_ref = make(VT_BYREF | VT_I4);
  adj_ref.plVal = &adj;
  VariantHolder merged;
  CHECK(SUCCEEDED(call(r, L"SplitRange", {bstr(L"A1:A2"), pieces_ref, adj_ref}, &merged)));
  CHECK(merged.vt == VT_BSTR && from_bstr(merged.bstrVal) == u"A1,A2");
  CHECK(adj == 0);
  CHECK(pieces.vt == (VT_ARRAY | VT_VARIANT));
  Variant got = from_variant(pieces);
  CHECK(got.array().lower == 1 && got.array().items.size() == 2);
  // A typed array by reference stays typed.
  SAFEARRAY* texts = nullptr;
  VARIANT texts_ref = make(VT_BYREF | VT_ARRAY | VT_BSTR);
  texts_ref.pparray = &texts;
  merged.clear();
  CHECK(SUCCEEDED(call(r, L"SplitRange", {bstr(L"B1:C1"), texts_ref}, &merged)));
  CHECK(read_string_array(texts) == (std::vector<String>{u"B1", u"C1"}));
  SafeArrayDestroy(texts);

  // Refusals at the boundary, before the library is called.
  VariantHolder none;
  UINT bad = 99;
  CHECK(call(r, L"SplitRange", {}, &none) == DISP_E_PARAMNOTOPTIONAL);
  CHECK(call(lib.get(), L"NewRange", {bstr(L"x")}, &none) == DISP_E_BADPARAMCOUNT);
  VariantHolder formula;
  CHECK(SUCCEEDED(call(lib.get(), L"NewFormula", {}, &formula)));
  CHECK(call(formula.pdispVal, L"AdjustR1C1Fmla", {bstr(L"=RC"), bstr(L"down")}, &none,
             DISPATCH_METHOD, &bad) == DISP_E_TYPEMISMATCH);
  CHECK(bad == 0);  // the second of two arguments, counted from the last
  // Defaults of optional arguments come from the type library.
  none.clear();
  CHECK(SUCCEEDED(call(formula.pdispVal, L"AdjustR1C1Fmla", {bstr(L"=R[1]C")}, &none)));
  CHECK(from_bstr(none.bstrVal) == u"=R[1]C");
  // Named arguments by their parameter names.
  LPOLESTR names[2] = {const_cast<LPOLESTR>(L"AdjustR1C1Fmla"), const_cast<LPOLESTR>(L"vColAdj")};
  DISPID ids[2] = {0, 0};
  CHECK(SUCCEEDED(formula.pdispVal->GetIDsOfNames(IID_NULL, names, 2, 0, ids)));
  CHECK(ids[1] == 2);
  VARIANT args[2] = {make(VT_I4), bstr(L"=RC")};
  args[0].lVal = 3;
  DISPPARAMS named{args, &ids[1], 2, 1};
  none.clear();
  CHECK(SUCCEEDED(formula.pdispVal->Invoke(ids[0], IID_NULL, 0, DISPATCH_METHOD, &named, &none,
                                           nullptr, nullptr)));
  CHECK(from_bstr(none.bstrVal) == u"=RC[3]");
  SysFreeString(args[1].bstrVal);

  // Early binding: the vtable slots are the type library's.
  auto early = constants.pdispVal;
  ComPtr<itf::_iXLLibConst> c;
  CHECK(SUCCEEDED(early->QueryInterface(itf::kIID_iXLLibConst, reinterpret_cast<void**>(c.put()))));
  LONG value = 0;
  CHECK(c && SUCCEEDED(c->get_qzOrange(&value)) && value == 26367);
  CHECK(c && c->get_qzOrange(nullptr) == E_POINTER);
  ComPtr<itf::_iRange> early_range;
  r->QueryInterface(itf::kIID_iRange, reinterpret_cast<void**>(early_range.put()));
  CHECK(early_range.get() != nullptr);
  if (early_range) {
    SAFEARRAY* parts = nullptr;
    BSTR result = nullptr;
    BSTR address = SysAllocString(L"Sheet1!D4:D5");
    CHECK(SUCCEEDED(early_range->SplitRange(address, &parts, nullptr, VARIANT_TRUE, &result)));
    CHECK(from_bstr(result) == u"D4,D5");
    CHECK(read_string_array(parts) == (std::vector<String>{u"D4", u"D5"}));
    SysFreeString(address);
    SysFreeString(result);
    SafeArrayDestroy(parts);
  }

  // The type library: slots in declaration order after IDispatch's, records as laid out here.
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(module, path, MAX_PATH);
  ComPtr<ITypeLib> library;
  CHECK(SUCCEEDED(LoadTypeLibEx(path, REGKIND_NONE, library.put())));
  if (library) {
    const std::pair<GUID, int> interfaces[] = {
        {itf::kIID_iXLLibPublic, itf::kSlots_iXLLibPublic},
        {itf::kIID_iChartXL, itf::kSlots_iChartXL},
        {itf::kIID_iWorkbook, itf::kSlots_iWorkbook},
        {itf::kIID_iWorksheet, itf::kSlots_iWorksheet},
        {itf::kIID_iControl, itf::kSlots_iControl},
        {itf::kIID_iRange, itf::kSlots_iRange},
        {itf::kIID_iFormula, itf::kSlots_iFormula},
        {itf::kIID_iXLLibConst, itf::kSlots_iXLLibConst},
        {itf::kIID_iMenu, itf::kSlots_iMenu},
        {itf::kIID_iXLLibProduct, itf::kSlots_iXLLibProduct},
        {itf::kIID_iDisplay, itf::kSlots_iDisplay},
        {itf::kIID_iAutoColor, itf::kSlots_iAutoColor},
        {itf::kIID_iUndoRedo, itf::kSlots_iUndoRedo},
    };
    for (const auto& [iid, slots] : interfaces) {
      ComPtr<ITypeInfo> dispatch, vtable;
      HREFTYPE href = 0;
      bool ok = SUCCEEDED(library->GetTypeInfoOfGuid(iid, dispatch.put())) &&
                SUCCEEDED(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &href)) &&
                SUCCEEDED(dispatch->GetRefTypeInfo(href, vtable.put()));
      CHECK(ok);
      if (!ok) continue;
      TYPEATTR* attr = nullptr;
      vtable->GetTypeAttr(&attr);
      CHECK(attr->cFuncs == slots);
      CHECK((attr->wTypeFlags & TYPEFLAG_FDUAL) != 0);
      for (UINT i = 0; i < attr->cFuncs; ++i) {
        FUNCDESC* fd = nullptr;
        vtable->GetFuncDesc(i, &fd);
        CHECK(fd->oVft == static_cast<SHORT>((7 + i) * sizeof(void*)));
        vtable->ReleaseFuncDesc(fd);
      }
      vtable->ReleaseTypeAttr(attr);
    }
    ComPtr<ITypeInfo> piece;
    CHECK(SUCCEEDED(library->GetTypeInfoOfGuid(kRecordFmlaPiece, piece.put())));
    ComPtr<IRecordInfo> record;
    if (piece) GetRecordInfoFromTypeInfo(piece.get(), record.put());
    ULONG size = 0;
    CHECK(record && SUCCEEDED(record->GetSize(&size)) && size == sizeof(FmlaPieceRecord));
    Bstr help;
    library->GetDocumentation(-1, nullptr, help.put(), nullptr, nullptr);
    CHECK(from_bstr(help.get()) == u"Quazel 1.1 Excel Library");
    if (record) typed_arrays(record.get());
    g_group = "QZXLLib.dll";
  }

  // Identity: an object handed out twice is one COM object; the factory's NewPublic is itself.
  VariantHolder self;
  VariantHolder name;
  name.vt = VT_BSTR;
  name.bstrVal = SysAllocString(L"client");
  VARIANT name_ref = make(VT_BYREF | VT_VARIANT);
  name_ref.pvarVal = &name;
  CHECK(SUCCEEDED(call(lib.get(), L"NewPublic", {name_ref}, &self)));
  CHECK(self.pdispVal == lib.get());
  CHECK(from_bstr(name.bstrVal) == u"client");

  // A generic automation object of the DLL (the ordered collection of AllCharts) answers the
  // same private identifier as this program's own, and must still not be taken for one.
  VariantHolder charts, all;
  CHECK(SUCCEEDED(call(lib.get(), L"NewChartXL", {}, &charts)));
  VARIANT no_book = make(VT_DISPATCH);
  no_book.pdispVal = nullptr;
  CHECK(SUCCEEDED(call(charts.pdispVal, L"AllCharts", {no_book}, &all)));
  CHECK(all.vt == VT_DISPATCH && all.pdispVal != nullptr);
  late_binding(all.vt == VT_DISPATCH && all.pdispVal ? all.pdispVal : lib.get());
  g_group = "QZXLLib.dll";
  all.clear();
  charts.clear();

  // Everything released: the DLL may unload.
  CHECK(can_unload() == S_FALSE);
  self.clear();
  constants.clear();
  range.clear();
  formula.clear();
  c = nullptr;
  early_range = nullptr;
  support = nullptr;
  lib = nullptr;
  factory = nullptr;
  CHECK(can_unload() == S_OK);
  app = nullptr;
}

}  // namespace
}  // namespace qz::com

int wmain(int argc, wchar_t** argv) {
  using namespace qz::com;
  if (argc != 3) {
    std::printf("usage: qzxl_com_selftest <QZXLLib.dll> <QZXLTestHost.dll>\n");
    return 2;
  }
  CoInitialize(nullptr);
  object_bridge().import_object = [](IDispatch* d) -> qz::ObjectPtr {
    if (auto own = object_behind(d)) return own;
    return std::make_shared<DispObject>(ComPtr<IDispatch>(d));
  };
  object_bridge().export_object = [](const qz::ObjectPtr& o) -> IDispatch* {
    if (IDispatch* d = foreign_dispatch(o.get())) {
      d->AddRef();
      return d;
    }
    return dispatch_for(o);
  };
  variants_in();
  arrays_in();
  variants_out();
  by_reference();
  errors();
  regional_settings();
  settings();
  server(argv[1], argv[2]);
  if (g_failures == 0)
    std::printf("PASS %d/%d\n", g_checks, g_checks);
  else
    std::printf("FAIL %d/%d\n", g_checks - g_failures, g_checks);
  CoUninitialize();
  return g_failures == 0 ? 0 : 1;
}
