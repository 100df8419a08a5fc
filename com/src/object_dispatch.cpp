#include "com/src/object_dispatch.hpp"

#include <mutex>
#include <unordered_map>

#include "com/src/com_object.hpp"
#include "com/src/convert.hpp"
#include "com/src/errors.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

namespace {

// Identifies the wrappers; QueryInterface for it yields their OwnIdentity.
constexpr GUID kObjectDispatchTag = {
    0xBC98DBD4, 0x2AF7, 0x4850, {0x99, 0x26, 0xFF, 0x69, 0x74, 0xAA, 0x4F, 0x4E}};

// Member names get DISPIDs from one table for the module, so that a name has the same id on
// every object (clients may cache ids per type).
class NameTable {
 public:
  DISPID id_of(StringView name) {
    std::lock_guard lock(mutex_);
    for (size_t i = 0; i < names_.size(); ++i)
      if (same_member(names_[i], name)) return static_cast<DISPID>(i + 1);
    names_.emplace_back(name);
    return static_cast<DISPID>(names_.size());
  }
  bool name_of(DISPID id, String& out) {
    std::lock_guard lock(mutex_);
    if (id < 1 || static_cast<size_t>(id) > names_.size()) return false;
    out = names_[static_cast<size_t>(id - 1)];
    return true;
  }

 private:
  std::mutex mutex_;
  std::vector<String> names_;
};

NameTable& names() {
  static NameTable table;
  return table;
}

class ObjectDispatch;

// Live wrappers by object, for identity.
struct Registry {
  std::mutex mutex;
  std::unordered_map<const Object*, ObjectDispatch*> live;
};
Registry& registry() {
  static Registry r;
  return r;
}

class NameTypeInfo final : public ComObject<ITypeInfo> {
 public:
  explicit NameTypeInfo(String name) : name_(std::move(name)) {}

  void* find_interface(REFIID iid) noexcept override {
    return IsEqualIID(iid, IID_ITypeInfo) ? static_cast<ITypeInfo*>(this) : nullptr;
  }
  HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** out) override {
    if (!out) return E_POINTER;
    auto* a = new (std::nothrow) TYPEATTR{};
    if (!a) return E_OUTOFMEMORY;
    a->typekind = TKIND_DISPATCH;
    a->memidConstructor = MEMBERID_NIL;
    a->memidDestructor = MEMBERID_NIL;
    a->cbSizeVft = 7 * sizeof(void*);
    a->wTypeFlags = TYPEFLAG_FDISPATCHABLE;
    *out = a;
    return S_OK;
  }
  void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* a) override { delete a; }
  HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID id, BSTR* name, BSTR* doc, DWORD* help,
                                             BSTR* file) override {
    if (id != MEMBERID_NIL) return TYPE_E_ELEMENTNOTFOUND;
    if (name)
      *name = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(name_.data()),
                                static_cast<UINT>(name_.size()));
    if (doc) *doc = nullptr;
    if (help) *help = 0;
    if (file) *file = nullptr;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeComp(ITypeComp**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT, FUNCDESC**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetVarDesc(UINT, VARDESC**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetNames(MEMBERID, BSTR*, UINT, UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT, HREFTYPE*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT, INT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR*, UINT, MEMBERID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Invoke(PVOID, MEMBERID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDllEntry(MEMBERID, INVOKEKIND, BSTR*, BSTR*, WORD*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddressOfMember(MEMBERID, INVOKEKIND, PVOID*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, PVOID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetMops(MEMBERID, BSTR*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib**, UINT*) override { return E_NOTIMPL; }
  void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC*) override {}
  void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC*) override {}

 private:
  String name_;
};

// `For Each` over a snapshot of the object's items.
class ItemEnum final : public ComObject<IEnumVARIANT> {
 public:
  explicit ItemEnum(std::vector<Variant> items) : items_(std::move(items)) {}

  void* find_interface(REFIID iid) noexcept override {
    return IsEqualIID(iid, IID_IEnumVARIANT) ? static_cast<IEnumVARIANT*>(this) : nullptr;
  }
  HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* out, ULONG* fetched) override {
    if (!out) return E_POINTER;
    ULONG n = 0;
    HRESULT hr = guard([&] {
      for (; n < count && pos_ < items_.size(); ++n, ++pos_) to_variant(items_[pos_], &out[n]);
    });
    if (fetched) *fetched = n;
    if (FAILED(hr)) return hr;
    return n == count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    pos_ = std::min(items_.size(), pos_ + static_cast<size_t>(count));
    return pos_ < items_.size() ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    pos_ = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** out) override {
    if (!out) return E_POINTER;
    auto* e = new (std::nothrow) ItemEnum(items_);
    if (!e) return E_OUTOFMEMORY;
    e->pos_ = pos_;
    *out = e;
    return S_OK;
  }

 private:
  std::vector<Variant> items_;
  size_t pos_ = 0;
};

class ObjectDispatch final : public ComObject<IDispatch> {
 public:
  explicit ObjectDispatch(ObjectPtr object) : object_(std::move(object)) {
    answer_identity(kObjectDispatchTag, this);
  }
  ~ObjectDispatch() override {
    std::lock_guard lock(registry().mutex);
    auto it = registry().live.find(object_.get());
    if (it != registry().live.end() && it->second == this) registry().live.erase(it);
  }
  const ObjectPtr& object() const { return object_; }

  void* find_interface(REFIID iid) noexcept override {
    return IsEqualIID(iid, IID_IDispatch) ? static_cast<IDispatch*>(this) : nullptr;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    return guard([&] { *out = make_name_type_info(object_->type_name()); });
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names_in, UINT count, LCID,
                                          DISPID* ids) override {
    if (!names_in || !ids || count == 0) return E_INVALIDARG;
    HRESULT result = S_OK;
    HRESULT hr = guard([&] {
      String member(reinterpret_cast<const char16_t*>(names_in[0]));
      if (!object_members().has(object_, member)) {
        ids[0] = DISPID_UNKNOWN;
        result = DISP_E_UNKNOWNNAME;
      } else {
        ids[0] = names().id_of(member);
      }
      for (UINT i = 1; i < count; ++i) {
        String param(reinterpret_cast<const char16_t*>(names_in[i]));
        int pos = object_members().param_index(object_, member, param);
        ids[i] = pos >= 0 ? pos : DISPID_UNKNOWN;
        if (pos < 0) result = DISP_E_UNKNOWNNAME;
      }
    });
    return FAILED(hr) ? hr : result;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* excep, UINT* arg_err) override;

 private:
  Variant call(const String& name, qz::Invoke kind, std::vector<Variant>& args);

  ObjectPtr object_;
};

Variant ObjectDispatch::call(const String& name, qz::Invoke kind, std::vector<Variant>& args) {
  auto& members = object_members();
  try {
    return members.invoke(object_, name, kind, args);
  } catch (const Error& e) {
    // `x.Items(2)` on a member that takes no index means the default member of what it
    // returns, as the application's objects resolve it.
    if (e.code() != err::wrong_arguments || args.empty() || kind == Invoke::Put ||
        kind == Invoke::PutRef)
      throw;
  }
  Variant whole = members.invoke(object_, name, kind, {});
  if (!whole.is_object() || !whole.object()) throw Error(err::object_required, "Object required");
  return members.invoke(whole.object(), u"_Default", kind, args);
}

HRESULT ObjectDispatch::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                               VARIANT* result, EXCEPINFO* excep, UINT* arg_err) {
  static const DISPPARAMS no_params{};
  if (!params) params = const_cast<DISPPARAMS*>(&no_params);
  if (result) VariantInit(result);
  try {
    if (id == DISPID_NEWENUM) {
      auto* e = new ItemEnum(object_members().items(object_));
      if (result) {
        result->vt = VT_UNKNOWN;
        result->punkVal = e;
      } else {
        e->Release();
      }
      return S_OK;
    }
    String name;
    if (id == DISPID_VALUE)
      name = u"_Default";
    else if (!names().name_of(id, name))
      return DISP_E_MEMBERNOTFOUND;

    qz::Invoke kind = qz::Invoke::Get;
    if (flags & DISPATCH_PROPERTYPUTREF)
      kind = Invoke::PutRef;
    else if (flags & DISPATCH_PROPERTYPUT)
      kind = Invoke::Put;
    else if (flags & DISPATCH_METHOD)
      kind = Invoke::Method;

    // Positional arguments come last to first after the named ones; named ones land at
    // their parameter positions; an assigned value goes last.
    const UINT n_named = params->cNamedArgs;
    const UINT n_pos = params->cArgs - n_named;
    std::vector<Variant> args(n_pos);
    for (UINT k = 0; k < n_pos; ++k) {
      const VARIANT& v = params->rgvarg[params->cArgs - 1 - k];
      try {
        args[k] = from_variant(v);
      } catch (...) {
        if (arg_err) *arg_err = params->cArgs - 1 - k;
        return DISP_E_TYPEMISMATCH;
      }
    }
    Variant assigned;
    bool has_assigned = false;
    for (UINT i = 0; i < n_named; ++i) {
      DISPID pos = params->rgdispidNamedArgs[i];
      Variant value = from_variant(params->rgvarg[i]);
      if (pos == DISPID_PROPERTYPUT) {
        assigned = std::move(value);
        has_assigned = true;
        continue;
      }
      if (pos < 0) return DISP_E_PARAMNOTFOUND;
      if (args.size() <= static_cast<size_t>(pos)) args.resize(pos + 1, Variant::missing());
      args[static_cast<size_t>(pos)] = std::move(value);
    }
    if (has_assigned) args.push_back(std::move(assigned));
    const std::vector<Variant> before(args.begin(), args.begin() + n_pos);

    Variant value = call(name, kind, args);

    // By-reference arguments get what the member left in them.
    for (UINT k = 0; k < n_pos && k < args.size(); ++k) {
      VARIANT& v = params->rgvarg[params->cArgs - 1 - k];
      if (!(v.vt & VT_BYREF) || args[k] == before[k]) continue;
      store_by_ref(v, args[k]);
    }
    if (result) {
      auto& members = object_members();
      if (members.rows_as_block && members.rows_as_block(object_, name))
        to_variant_2d(value, result);
      else
        to_variant(value, result);
    }
    return S_OK;
  } catch (const Error& e) {
    if (e.code() == err::not_supported) return DISP_E_MEMBERNOTFOUND;
    fill_excepinfo(excep, hresult_from_error_code(e.code()), e.message());
    return DISP_E_EXCEPTION;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception& e) {
    fill_excepinfo(excep, E_FAIL, e.what());
    return DISP_E_EXCEPTION;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

}  // namespace

ObjectMembers& object_members() {
  static ObjectMembers members{
      [](const ObjectPtr& o, StringView name, Invoke kind, std::span<Variant> args) {
        return o->invoke(name, kind, args);
      },
      [](const ObjectPtr& o, StringView name) { return o->has_member(name); },
      [](const ObjectPtr&, StringView, StringView) { return -1; },
      [](const ObjectPtr&) -> std::vector<Variant> {
        throw Error(err::not_supported, "Object doesn't support this property or method");
      },
      nullptr,
  };
  return members;
}

IDispatch* dispatch_for(const ObjectPtr& object) {
  std::lock_guard lock(registry().mutex);
  auto it = registry().live.find(object.get());
  if (it != registry().live.end() && it->second->try_add_ref()) return it->second;
  auto* d = new ObjectDispatch(object);
  registry().live[object.get()] = d;
  return d;
}

ObjectPtr object_behind(IDispatch* dispatch) {
  if (!dispatch) return nullptr;
  auto* own = own_object<ObjectDispatch>(dispatch, kObjectDispatchTag);
  return own ? own->object() : nullptr;
}

ITypeInfo* make_name_type_info(const String& name) {
  return new NameTypeInfo(name);
}

}  // namespace qz::com
