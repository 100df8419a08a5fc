#include "com/src/late.hpp"

#include <dispex.h>

#include "com/src/convert.hpp"
#include "com/src/errors.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

namespace {

// IDispatchEx's identifier; the cross toolchain's import libraries do not carry it.
constexpr GUID kIIDDispatchEx = {
    0xA6EF9860, 0xC720, 0x11D0, {0x93, 0x37, 0x00, 0xA0, 0xC9, 0x0D, 0xCA, 0xA9}};

// The arguments of one call, in the order IDispatch::Invoke takes them (last first), kept
// alive and cleared together.
class CallArgs {
 public:
  explicit CallArgs(size_t n) : values_(n), refs_(n) {
    for (auto& v : values_) VariantInit(&v);
    for (auto& v : refs_) VariantInit(&v);
  }
  CallArgs(const CallArgs&) = delete;
  CallArgs& operator=(const CallArgs&) = delete;
  ~CallArgs() {
    for (auto& v : values_) VariantClear(&v);
  }
  VARIANT& value(size_t i) { return values_[i]; }
  // The slot Invoke reads: the value itself, or a reference to it.
  VARIANT* slots(bool by_ref) {
    if (!by_ref) return values_.data();
    for (size_t i = 0; i < values_.size(); ++i) {
      refs_[i].vt = VT_BYREF | VT_VARIANT;
      refs_[i].pvarVal = &values_[i];
    }
    return refs_.data();
  }

 private:
  std::vector<VARIANT> values_;
  std::vector<VARIANT> refs_;
};

void clear_excepinfo(EXCEPINFO& e) {
  SysFreeString(e.bstrSource);
  SysFreeString(e.bstrDescription);
  SysFreeString(e.bstrHelpFile);
  e = EXCEPINFO{};
}

}  // namespace

bool LateBound::resolve(StringView name, Resolved& out) {
  for (const auto& [n, r] : ids_) {
    if (same_member(n, name)) {
      out = r;
      return true;
    }
  }
  if (!target_) throw Error(err::object_required, "Object required");
  String text(name);
  LPOLESTR names[1] = {reinterpret_cast<LPOLESTR>(text.data())};
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = target_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  Resolved r{id, false};
  if (FAILED(hr)) {
    // Script objects resolve names only through IDispatchEx.
    auto ex = target_.as<IDispatchEx>(kIIDDispatchEx);
    if (!ex) return false;
    Bstr b;
    *b.put() = to_bstr(name);
    if (FAILED(ex->GetDispID(b.get(), fdexNameCaseInsensitive, &id))) return false;
    r = Resolved{id, true};
  }
  ids_.emplace_back(std::move(text), r);
  out = r;
  return true;
}

bool LateBound::has(StringView name) {
  Resolved r{};
  return resolve(name, r);
}

Variant LateBound::invoke(StringView name, Invoke kind, std::span<Variant> args, bool write_back,
                          std::span<const NamedArg> named) {
  return call(name, kind, args, write_back, named, false);
}

void LateBound::put_rows(StringView name, const Variant& rows) {
  Variant args[1] = {rows};
  call(name, Invoke::Put, args, false, {}, true);
}

std::vector<Variant> LateBound::items() {
  if (!target_) throw Error(err::object_required, "Object required");
  DISPPARAMS none{};
  VariantHolder result;
  EXCEPINFO excep{};
  HRESULT hr =
      target_->Invoke(DISPID_NEWENUM, IID_NULL, LOCALE_USER_DEFAULT,
                      DISPATCH_METHOD | DISPATCH_PROPERTYGET, &none, &result, &excep, nullptr);
  if (FAILED(hr)) {
    Error e = error_from_hresult(hr, &excep, "_NewEnum");
    clear_excepinfo(excep);
    throw e;
  }
  ComPtr<IEnumVARIANT> items;
  if (result.vt == VT_UNKNOWN || result.vt == VT_DISPATCH) {
    if (result.punkVal)
      result.punkVal->QueryInterface(IID_IEnumVARIANT, reinterpret_cast<void**>(items.put()));
  }
  if (!items) throw Error(err::not_supported, "Object is no collection");
  std::vector<Variant> out;
  for (;;) {
    VariantHolder item;
    ULONG fetched = 0;
    if (items->Next(1, &item, &fetched) != S_OK || fetched == 0) break;
    out.push_back(from_variant(item));
  }
  return out;
}

Variant LateBound::call(StringView name, Invoke kind, std::span<Variant> args, bool write_back,
                        std::span<const NamedArg> named, bool rows_as_blocks) {
  Resolved member{};
  if (!resolve(name, member))
    throw Error(err::not_supported,
                "Object doesn't support this property or method: " + to_utf8(name));

  const bool put = kind == Invoke::Put || kind == Invoke::PutRef;
  // Trailing arguments left out are not passed at all; inner ones travel as "missing".
  size_t positional = args.size();
  if (!put)
    while (positional > 0 && args[positional - 1].is_missing()) --positional;

  // Named arguments: resolve their names with the member's; when the object cannot, place
  // them at their positions instead.
  std::vector<DISPID> named_ids;
  std::vector<Variant> placed(args.begin(), args.begin() + positional);
  std::vector<const NamedArg*> by_name;
  if (!named.empty()) {
    std::vector<String> texts{String(name)};
    for (const auto& n : named) texts.emplace_back(n.name);
    std::vector<LPOLESTR> ptrs;
    for (auto& t : texts) ptrs.push_back(reinterpret_cast<LPOLESTR>(t.data()));
    std::vector<DISPID> ids(ptrs.size(), DISPID_UNKNOWN);
    const bool resolved = !member.ex && SUCCEEDED(target_->GetIDsOfNames(
                                            IID_NULL, ptrs.data(), static_cast<UINT>(ptrs.size()),
                                            LOCALE_USER_DEFAULT, ids.data()));
    for (size_t i = 0; i < named.size(); ++i) {
      if (named[i].value.is_missing()) continue;
      if (resolved) {
        by_name.push_back(&named[i]);
        named_ids.push_back(ids[i + 1]);
      } else {
        auto at = static_cast<size_t>(named[i].position);
        if (placed.size() <= at) placed.resize(at + 1, Variant::missing());
        placed[at] = named[i].value;
      }
    }
  }

  // Invoke's order: named arguments first, then the positional ones last to first. A
  // property's assigned value (the last element of `args`) is the named argument
  // DISPID_PROPERTYPUT.
  if (put && placed.empty()) throw Error(err::wrong_arguments, "Wrong number of arguments");
  const size_t n_pos = put ? placed.size() - 1 : placed.size();
  std::vector<DISPID> named_list;
  CallArgs argv(placed.size() + by_name.size());
  size_t slot = 0;
  if (put) {
    if (rows_as_blocks)
      to_variant_2d(placed.back(), &argv.value(slot++));
    else
      to_variant(placed.back(), &argv.value(slot++));
    named_list.push_back(DISPID_PROPERTYPUT);
  }
  for (size_t i = 0; i < by_name.size(); ++i) {
    to_variant(by_name[i]->value, &argv.value(slot++));
    named_list.push_back(named_ids[i]);
  }
  const size_t first_positional = slot;
  for (size_t k = 0; k < n_pos; ++k) to_variant(placed[n_pos - 1 - k], &argv.value(slot + k));
  DISPPARAMS params{};
  const bool by_ref = write_back && !put;
  params.rgvarg = argv.slots(by_ref);
  params.cArgs = static_cast<UINT>(slot + n_pos);
  params.rgdispidNamedArgs = named_list.empty() ? nullptr : named_list.data();
  params.cNamedArgs = static_cast<UINT>(named_list.size());

  WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET;
  if (kind == Invoke::Put) flags = DISPATCH_PROPERTYPUT;
  if (kind == Invoke::PutRef) flags = DISPATCH_PROPERTYPUTREF;

  VariantHolder result;
  EXCEPINFO excep{};
  UINT arg_err = 0;
  HRESULT hr;
  if (member.ex) {
    auto ex = target_.as<IDispatchEx>(kIIDDispatchEx);
    hr = ex ? ex->InvokeEx(member.id, LOCALE_USER_DEFAULT, flags, &params, put ? nullptr : &result,
                           &excep, nullptr)
            : E_NOINTERFACE;
  } else {
    hr = target_->Invoke(member.id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                         put ? nullptr : &result, &excep, &arg_err);
  }
  if (hr == DISP_E_MEMBERNOTFOUND && kind == Invoke::PutRef) {
    // Objects that take every assignment as a plain put.
    return call(name, Invoke::Put, args, write_back, named, rows_as_blocks);
  }
  if (FAILED(hr)) {
    Error e = error_from_hresult(hr, &excep, to_utf8(name));
    clear_excepinfo(excep);
    throw e;
  }
  clear_excepinfo(excep);
  if (by_ref) {
    for (size_t k = 0; k < n_pos; ++k) {
      size_t src = n_pos - 1 - k;
      if (src < positional) args[src] = from_variant(argv.value(first_positional + k));
    }
  }
  return put ? Variant() : from_variant(result);
}

String LateBound::type_name() const {
  if (!target_) return String();
  ComPtr<ITypeInfo> info;
  if (FAILED(target_->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.put())) || !info) return String();
  Bstr name;
  if (FAILED(info->GetDocumentation(MEMBERID_NIL, name.put(), nullptr, nullptr, nullptr)))
    return String();
  String s = from_bstr(name.get());
  // The application's coclasses answer with their dispinterfaces ("_Worksheet").
  if (!s.empty() && s[0] == u'_') s.erase(0, 1);
  return s;
}

}  // namespace qz::com
