#include "com/src/typed_invoke.hpp"

#include <memory>
#include <mutex>
#include <vector>

#include "com/src/convert.hpp"
#include "com/src/core.hpp"
#include "com/src/errors.hpp"
#include "qzxl/object.hpp"

namespace qz::com {

namespace {

// A parameter's type as the call needs it: the value type and whether the member takes a
// pointer to it.
struct ParamType {
  VARTYPE vt = VT_EMPTY;
  bool by_ref = false;
};

ParamType resolve(ITypeInfo* info, const TYPEDESC& desc) {
  int pointers = 0;
  const TYPEDESC* t = &desc;
  while (t->vt == VT_PTR) {
    ++pointers;
    t = t->lptdesc;
  }
  ParamType p;
  p.vt = t->vt;
  if (t->vt == VT_SAFEARRAY) {
    ParamType element = resolve(info, *t->lptdesc);
    p.vt = static_cast<VARTYPE>(VT_ARRAY | element.vt);
  } else if (t->vt == VT_USERDEFINED) {
    ComPtr<ITypeInfo> ref;
    TYPEATTR* attr = nullptr;
    if (FAILED(info->GetRefTypeInfo(t->hreftype, ref.put())) || FAILED(ref->GetTypeAttr(&attr)))
      throw Error(err::type_mismatch, "Undescribed parameter type");
    switch (attr->typekind) {
      case TKIND_ENUM:
        p.vt = VT_I4;
        break;
      case TKIND_RECORD:
        p.vt = VT_RECORD;
        break;
      case TKIND_ALIAS: {
        ParamType aliased = resolve(ref.get(), attr->tdescAlias);
        p.vt = aliased.vt;
        pointers += aliased.by_ref ? 1 : 0;
        break;
      }
      default:
        // An interface: the pointer to it is the value.
        p.vt = VT_DISPATCH;
        --pointers;
        break;
    }
    ref->ReleaseTypeAttr(attr);
  }
  p.by_ref = pointers > 0;
  return p;
}

// A member as calls need it: its description and its parameters' types, worked out once per
// interface and kept for the life of the process (the descriptions live as long as the type
// library, which the server never releases).
struct Member {
  FUNCDESC* fd;
  std::vector<ParamType> params;
  // The member's name, then its parameters' names.
  std::vector<String> names;
};

const std::vector<Member>& members_of(ITypeInfo* info) {
  struct Described {
    ComPtr<ITypeInfo> info;
    std::vector<Member> members;
  };
  static std::mutex mutex;
  static std::vector<std::unique_ptr<Described>> all;
  std::lock_guard lock(mutex);
  for (const auto& d : all)
    if (d->info.get() == info) return d->members;
  auto d = std::make_unique<Described>();
  d->info = ComPtr<ITypeInfo>(info);
  TYPEATTR* attr = nullptr;
  if (SUCCEEDED(info->GetTypeAttr(&attr))) {
    const WORD funcs = attr->cFuncs;
    info->ReleaseTypeAttr(attr);
    for (UINT i = 0; i < funcs; ++i) {
      FUNCDESC* fd = nullptr;
      if (FAILED(info->GetFuncDesc(i, &fd))) continue;
      Member m{fd, {}, {}};
      for (SHORT k = 0; k < fd->cParams; ++k)
        m.params.push_back(resolve(info, fd->lprgelemdescParam[k].tdesc));
      std::vector<BSTR> names(static_cast<size_t>(fd->cParams) + 1, nullptr);
      UINT got = 0;
      if (SUCCEEDED(info->GetNames(fd->memid, names.data(), static_cast<UINT>(names.size()), &got)))
        for (UINT k = 0; k < got; ++k) m.names.push_back(from_bstr(names[k]));
      for (BSTR b : names) SysFreeString(b);
      d->members.push_back(std::move(m));
    }
  }
  all.push_back(std::move(d));
  return all.back()->members;
}

const Member* find_member(ITypeInfo* info, DISPID id, WORD flags) {
  // Preference: the accessor the caller asked for; a property put may be served by putref
  // and the reverse; a call that may be a method or a get takes either.
  auto rank = [&](INVOKEKIND k) -> int {
    if (flags & DISPATCH_PROPERTYPUTREF)
      return k == INVOKE_PROPERTYPUTREF ? 2 : (k == INVOKE_PROPERTYPUT ? 1 : 0);
    if (flags & DISPATCH_PROPERTYPUT)
      return k == INVOKE_PROPERTYPUT ? 2 : (k == INVOKE_PROPERTYPUTREF ? 1 : 0);
    if ((flags & DISPATCH_METHOD) && k == INVOKE_FUNC) return 2;
    if ((flags & DISPATCH_PROPERTYGET) && k == INVOKE_PROPERTYGET) return 2;
    return 0;
  };
  const Member* best = nullptr;
  int best_rank = 0;
  for (const Member& m : members_of(info)) {
    int r = m.fd->memid == id ? rank(m.fd->invkind) : 0;
    if (r > best_rank) {
      best = &m;
      best_rank = r;
    }
  }
  return best;
}

// The address where a VARIANT of that type keeps its value: what a typed pointer parameter
// receives.
void* value_address(VARIANT& v, VARTYPE vt) {
  if (vt == VT_VARIANT) return &v;
  if (vt == VT_DECIMAL) return &v.decVal;
  return &v.lVal;
}

// Makes `out` (empty) a value of type `vt` from `in` (which may be a reference).
HRESULT coerce(VARIANT* out, const VARIANT& in, VARTYPE vt) {
  VariantHolder plain;
  HRESULT hr = VariantCopyInd(&plain, const_cast<VARIANT*>(&in));
  if (FAILED(hr)) return hr;
  if (vt == VT_VARIANT) {
    *out = plain;
    plain.vt = VT_EMPTY;
    return S_OK;
  }
  if (vt & VT_ARRAY) {
    if (plain.vt == vt) {
      *out = plain;
      plain.vt = VT_EMPTY;
      return S_OK;
    }
    // Array parameters are by reference and filled by the member: what a Variant variable
    // held before matters only when it is an array of texts; anything else (Empty, a value,
    // an array of records a script cannot build) starts as no array.
    out->vt = vt;
    out->parray = nullptr;
    if (vt == (VT_ARRAY | VT_BSTR) && (plain.vt & VT_ARRAY))
      return guard([&] { out->parray = make_string_array(read_string_array(plain.parray)); });
    return S_OK;
  }
  if (vt == VT_DISPATCH) {
    out->vt = VT_DISPATCH;
    out->pdispVal = nullptr;
    if (plain.vt == VT_DISPATCH) {
      out->pdispVal = plain.pdispVal;
      plain.vt = VT_EMPTY;
      return S_OK;
    }
    if (plain.vt == VT_UNKNOWN) {
      if (!plain.punkVal) return S_OK;
      return plain.punkVal->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&out->pdispVal));
    }
    if (plain.vt == VT_EMPTY || is_missing(plain)) return S_OK;
    return DISP_E_TYPEMISMATCH;
  }
  return VariantChangeType(out, &plain, 0, vt);
}

// Everything one call owns, released together.
struct CallState {
  explicit CallState(size_t n) : slots(n), locals(n), types(n), pointers(n, nullptr) {
    for (auto& v : slots) VariantInit(&v);
    for (auto& v : locals) VariantInit(&v);
  }
  ~CallState() {
    for (auto& v : slots)
      if (!(v.vt & VT_BYREF)) VariantClear(&v);
    for (auto& v : locals) VariantClear(&v);
  }
  std::vector<VARIANT> slots;   // what the member receives
  std::vector<VARIANT> locals;  // typed temporaries behind by-reference parameters
  std::vector<VARTYPE> types;
  std::vector<VARIANT*> pointers;
  // Written back after the call: (the caller's variable, the typed temporary).
  std::vector<std::pair<VARIANT*, size_t>> write_variant;      // caller's VARIANT becomes local
  std::vector<std::pair<const VARIANT*, size_t>> write_typed;  // typed reference gets local
};

}  // namespace

HRESULT typed_ids_of_names(ITypeInfo* info, LPOLESTR* names, UINT count, DISPID* ids) {
  if (!names || !ids || count == 0) return E_INVALIDARG;
  const std::vector<Member>* members = nullptr;
  try {
    members = &members_of(info);
  } catch (...) {
    return E_UNEXPECTED;
  }
  for (UINT i = 0; i < count; ++i) ids[i] = DISPID_UNKNOWN;
  const StringView wanted(reinterpret_cast<const char16_t*>(names[0]));
  for (const Member& m : *members) {
    if (m.names.empty() || !same_member(m.names[0], wanted)) continue;
    ids[0] = m.fd->memid;
    // Named arguments are numbered by their place in the parameter list.
    for (UINT i = 1; i < count; ++i) {
      const StringView arg(reinterpret_cast<const char16_t*>(names[i]));
      for (size_t k = 1; k < m.names.size(); ++k)
        if (same_member(m.names[k], arg)) ids[i] = static_cast<DISPID>(k - 1);
    }
    break;
  }
  for (UINT i = 0; i < count; ++i)
    if (ids[i] == DISPID_UNKNOWN) return DISP_E_UNKNOWNNAME;
  return S_OK;
}

HRESULT typed_invoke(IDispatch* self, ITypeInfo* info, DISPID id, WORD flags, DISPPARAMS* params,
                     VARIANT* result, EXCEPINFO* excep, UINT* arg_err) {
  static const DISPPARAMS no_params{};
  if (!params) params = const_cast<DISPPARAMS*>(&no_params);
  if ((params->cArgs && !params->rgvarg) || params->cNamedArgs > params->cArgs ||
      (params->cNamedArgs && !params->rgdispidNamedArgs))
    return E_INVALIDARG;
  if (result) VariantInit(result);
  const Member* member = nullptr;
  try {
    member = find_member(info, id, flags);
  } catch (...) {
    return E_UNEXPECTED;
  }
  if (!member) return DISP_E_MEMBERNOTFOUND;
  const FUNCDESC* fd = member->fd;

  const bool put = fd->invkind == INVOKE_PROPERTYPUT || fd->invkind == INVOKE_PROPERTYPUTREF;
  const auto n = static_cast<size_t>(fd->cParams);
  CallState st(n);

  // Which of the caller's arguments feeds each parameter.
  std::vector<VARIANT*> actual(n, nullptr);
  std::vector<UINT> actual_index(n, 0);
  const UINT n_named = params->cNamedArgs;
  const UINT n_pos = params->cArgs - n_named;
  size_t n_in = n;
  int retval = -1;
  for (size_t i = 0; i < n; ++i)
    if (fd->lprgelemdescParam[i].paramdesc.wParamFlags & PARAMFLAG_FRETVAL) {
      retval = static_cast<int>(i);
      n_in = i;
      break;
    }
  const size_t n_plain = put ? n_in - 1 : n_in;  // parameters before a put's value
  if (n_pos > n_plain) return DISP_E_BADPARAMCOUNT;
  for (UINT k = 0; k < n_pos; ++k) {
    actual[k] = &params->rgvarg[params->cArgs - 1 - k];
    actual_index[k] = params->cArgs - 1 - k;
  }
  for (UINT j = 0; j < n_named; ++j) {
    DISPID pos = params->rgdispidNamedArgs[j];
    size_t at = pos == DISPID_PROPERTYPUT && put ? n_in - 1 : static_cast<size_t>(pos);
    if (pos < 0 && !(pos == DISPID_PROPERTYPUT && put)) return DISP_E_PARAMNOTFOUND;
    if (at >= n_in) return DISP_E_PARAMNOTFOUND;
    actual[at] = &params->rgvarg[j];
    actual_index[at] = j;
  }
  if (put && !actual[n_in - 1]) return DISP_E_PARAMNOTOPTIONAL;

  try {
    for (size_t i = 0; i < n; ++i) {
      const ELEMDESC& ed = fd->lprgelemdescParam[i];
      const USHORT pflags = ed.paramdesc.wParamFlags;
      const ParamType pt = member->params[i];
      VARIANT& slot = st.slots[i];
      VARIANT& local = st.locals[i];
      st.pointers[i] = &slot;

      if (static_cast<int>(i) == retval) {
        local.vt = pt.vt == VT_VARIANT ? VARTYPE{VT_EMPTY} : pt.vt;
        slot.vt = static_cast<VARTYPE>(VT_BYREF | pt.vt);
        slot.byref = value_address(local, pt.vt);
        st.types[i] = slot.vt;
        continue;
      }

      VARIANT* a = actual[i];
      // A by-reference Variant that holds "missing" is missing too.
      const VARIANT* seen = a;
      if (seen && seen->vt == (VT_BYREF | VT_VARIANT) && seen->pvarVal) seen = seen->pvarVal;
      const bool missing = !a || is_missing(*seen);
      if (missing && !(pflags & PARAMFLAG_FOPT) && !(pflags & PARAMFLAG_FHASDEFAULT)) {
        if (arg_err) *arg_err = static_cast<UINT>(i);
        return DISP_E_PARAMNOTOPTIONAL;
      }

      if (!pt.by_ref) {
        st.types[i] = pt.vt;
        HRESULT hr = S_OK;
        if (missing) {
          if ((pflags & PARAMFLAG_FHASDEFAULT) && ed.paramdesc.pparamdescex)
            hr = coerce(&slot, ed.paramdesc.pparamdescex->varDefaultValue, pt.vt);
          else if (pt.vt == VT_VARIANT)
            set_missing(&slot);
          else
            hr = coerce(&slot, VARIANT{}, pt.vt);
        } else {
          hr = coerce(&slot, *a, pt.vt);
        }
        if (FAILED(hr)) {
          if (arg_err) *arg_err = actual_index[i];
          return DISP_E_TYPEMISMATCH;
        }
        continue;
      }

      // By reference.
      st.types[i] = static_cast<VARTYPE>(VT_BYREF | pt.vt);
      slot.vt = st.types[i];
      if (missing) {
        // Not supplied: the server sees a null pointer.
        slot.byref = nullptr;
        continue;
      }
      if (a->vt == (VT_BYREF | pt.vt)) {
        slot.byref = a->byref;
        continue;
      }
      VARIANT* inner = a->vt == (VT_BYREF | VT_VARIANT) ? a->pvarVal : nullptr;
      if (inner && pt.vt == VT_VARIANT) {
        slot.byref = inner;
        continue;
      }
      if (inner && inner->vt == pt.vt) {
        // The script's variable already holds that type: the member works on it in place.
        slot.byref = value_address(*inner, pt.vt);
        continue;
      }
      HRESULT hr = coerce(&local, inner ? *inner : *a, pt.vt);
      if (FAILED(hr)) {
        if (arg_err) *arg_err = actual_index[i];
        return DISP_E_TYPEMISMATCH;
      }
      local.vt = pt.vt;
      slot.byref = value_address(local, pt.vt);
      if (inner)
        st.write_variant.emplace_back(inner, i);
      else if (a->vt & VT_BYREF)
        st.write_typed.emplace_back(a, i);
    }

    VARIANT ret;
    VariantInit(&ret);
    HRESULT hr = DispCallFunc(self, fd->oVft, fd->callconv, VT_ERROR, static_cast<UINT>(n),
                              st.types.data(), st.pointers.data(), &ret);
    if (FAILED(hr)) return hr;
    hr = ret.scode;
    if (FAILED(hr)) {
      std::string text = take_error_info();
      fill_excepinfo(excep, hr, text.empty() ? "Automation error" : text);
      return DISP_E_EXCEPTION;
    }
    // What the member left in the temporaries goes back into the caller's variables.
    for (auto& [target, i] : st.write_variant) {
      VARIANT& local = st.locals[i];
      VariantClear(target);
      if ((local.vt & VT_ARRAY) && local.vt != (VT_ARRAY | VT_VARIANT) &&
          local.vt != (VT_ARRAY | VT_RECORD)) {
        // A Variant variable gets an array of Variants: script hosts read no other kind.
        to_variant(from_variant(local), target);
      } else {
        *target = local;
        local.vt = VT_EMPTY;
      }
    }
    for (auto& [target, i] : st.write_typed) store_by_ref(*target, from_variant(st.locals[i]));
    if (retval >= 0 && result) {
      *result = st.locals[static_cast<size_t>(retval)];
      st.locals[static_cast<size_t>(retval)].vt = VT_EMPTY;
    }
    return S_OK;
  } catch (const Error& e) {
    fill_excepinfo(excep, hresult_from_error_code(e.code()), e.message());
    return DISP_E_EXCEPTION;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

}  // namespace qz::com
