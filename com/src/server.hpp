// The COM server of one library object: IUnknown and IDispatch over the type library, and
// the argument and result conversions the generated members use.
//
// Every member runs its body through `run`: out parameters start at their defaults
// (Nothing, "", 0, False), an exception becomes an HRESULT with error information, and a
// result already produced is released again so that nothing leaks on failure.
#pragma once

#include <atomic>
#include <memory>
#include <type_traits>

#include "com/generated/qzxllib_servers.hpp"
#include "com/src/com_object.hpp"
#include "com/src/convert.hpp"
#include "com/src/core.hpp"
#include "com/src/disp_object.hpp"
#include "com/src/errors.hpp"
#include "com/src/host_adapter.hpp"
#include "com/src/typed_invoke.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

/// The server's type library, loaded from this DLL's own resource on first use.
ITypeLib* server_type_library();
/// The description of one of the server's interfaces: its IDispatch view and its vtable view
/// (borrowed; raises qz::Error when the library lacks it).
ITypeInfo* server_dispatch_info(REFIID iid);
ITypeInfo* server_vtable_info(REFIID iid);
/// The FmlaPiece record's description (borrowed).
IRecordInfo* piece_record_info();

/// What every server has, whatever its interface: the library object and the table of live
/// servers that keeps one server per object.
class ServerBase {
 public:
  virtual ~ServerBase() = default;
  virtual IDispatch* as_dispatch() noexcept = 0;
  virtual ObjectPtr library_object() const = 0;
  /// A new reference, unless the server is already being released.
  virtual bool try_add_ref() noexcept = 0;

 protected:
  /// The live server of `object` with a new reference, or null.
  static IDispatch* find_live(const Object* object);
  void register_live(const Object* object);
  void unregister_live(const Object* object);
};

/// Identifies the servers of this module in QueryInterface.
inline constexpr GUID kServerTag = {
    0x5D1E0C3A, 0x6B2F, 0x4F0E, {0x9C, 0x41, 0x2A, 0x7E, 0x13, 0xB8, 0x60, 0x95}};

/// The library object behind one of this module's servers, or nullptr.
ObjectPtr server_object(IDispatch* dispatch);

/// The server of interface `Itf` over library interface `Lib`; `Derived` is the generated
/// class holding the members.
template <class Derived, class Itf, class Lib>
class Server : public ComObject<Itf, ISupportErrorInfo>, public ServerBase {
 public:
  /// The server of `object` (the existing one while a client holds it); null for Nothing.
  static Itf* create(std::shared_ptr<Lib> object) {
    if (!object) return nullptr;
    if (IDispatch* live = find_live(object.get())) return static_cast<Itf*>(live);
    return new Derived(std::move(object));
  }

  explicit Server(std::shared_ptr<Lib> object) : impl_(std::move(object)) {
    this->answer_identity(kServerTag, static_cast<ServerBase*>(this));
    register_live(impl_.get());
  }
  ~Server() override { unregister_live(impl_.get()); }

  void* find_interface(REFIID iid) noexcept override {
    if (IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, itf_of<Lib>::iid))
      return static_cast<Itf*>(this);
    if (IsEqualIID(iid, IID_ISupportErrorInfo)) return static_cast<ISupportErrorInfo*>(this);
    return nullptr;
  }
  bool try_add_ref() noexcept override { return ComObject<Itf, ISupportErrorInfo>::try_add_ref(); }

  // ISupportErrorInfo
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override {
    return IsEqualIID(iid, itf_of<Lib>::iid) ? S_OK : S_FALSE;
  }

  // IDispatch
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    return guard([&] {
      *out = server_dispatch_info(itf_of<Lib>::iid);
      (*out)->AddRef();
    });
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    ITypeInfo* info = nullptr;
    HRESULT hr = guard([&] { info = server_vtable_info(itf_of<Lib>::iid); });
    if (FAILED(hr)) return hr;
    return typed_ids_of_names(info, names, count, ids);
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* excep, UINT* arg_err) override {
    ITypeInfo* info = nullptr;
    HRESULT hr = guard([&] { info = server_vtable_info(itf_of<Lib>::iid); });
    if (FAILED(hr)) return hr;
    return typed_invoke(static_cast<Itf*>(this), info, id, flags, params, result, excep, arg_err);
  }

  IDispatch* as_dispatch() noexcept override { return static_cast<Itf*>(this); }
  ObjectPtr library_object() const override { return impl_; }

 protected:
  Lib& impl() { return *impl_; }

 private:
  std::shared_ptr<Lib> impl_;
};

// ---- Arguments --------------------------------------------------------------------------

inline String in_string(BSTR b) {
  return from_bstr(b);
}
inline bool in_bool(VARIANT_BOOL b) {
  return b != VARIANT_FALSE;
}
inline Variant in_variant(const VARIANT& v) {
  return from_variant(v);
}
inline ObjectPtr in_object(IDispatch* d) {
  return d ? object_bridge().import_object(d) : nullptr;
}
template <class H>
std::shared_ptr<H> in_host(IDispatch* d) {
  return adapt<H>(d);
}

/// A required String passed by reference: read in, written back on commit.
class RefString {
 public:
  explicit RefString(BSTR* p) : p_(p), value(p ? from_bstr(*p) : String()) {}
  void commit() {
    if (!p_) return;
    BSTR fresh = to_bstr(value);
    SysFreeString(*p_);
    *p_ = fresh;
  }

 private:
  BSTR* p_;

 public:
  String value;
};

namespace detail {
inline void read_wire(BSTR w, String& v) {
  v = from_bstr(w);
}
inline void write_wire(BSTR* w, const String& v) {
  BSTR fresh = to_bstr(v);
  SysFreeString(*w);
  *w = fresh;
}
inline void read_wire(VARIANT_BOOL w, bool& v) {
  v = w != VARIANT_FALSE;
}
inline void write_wire(VARIANT_BOOL* w, bool v) {
  *w = v ? VARIANT_TRUE : VARIANT_FALSE;
}
inline void read_wire(LONG w, int32_t& v) {
  v = w;
}
inline void write_wire(LONG* w, int32_t v) {
  *w = v;
}
}  // namespace detail

/// An optional typed argument passed by reference: a null pointer means "not supplied",
/// and the library then sees a null pointer too.
template <class T, class Wire>
class OptRef {
 public:
  explicit OptRef(Wire* p) : p_(p) {
    if (p_) detail::read_wire(*p_, value_);
  }
  T* ptr() { return p_ ? &value_ : nullptr; }
  void commit() {
    if (p_) detail::write_wire(p_, value_);
  }

 private:
  Wire* p_;
  T value_{};
};

/// An optional Variant passed by reference; "missing" counts as not supplied.
class OptRefVariant {
 public:
  explicit OptRefVariant(VARIANT* p) : p_(p && !is_missing(*p) ? p : nullptr) {
    if (p_) value_ = from_variant(*p_);
  }
  Variant* ptr() { return p_ ? &value_ : nullptr; }
  void commit() {
    if (!p_) return;
    if (p_->vt & VT_BYREF) return store_by_ref(*p_, value_);
    VariantHolder fresh;
    to_variant(value_, &fresh);
    VariantClear(p_);
    *p_ = fresh;
    fresh.vt = VT_EMPTY;
  }

 private:
  VARIANT* p_;
  Variant value_;
};

/// An optional host object passed by reference.
template <class H>
class OptRefHost {
 public:
  explicit OptRefHost(IDispatch** p) : p_(p) {
    if (p_) value_ = adapt<H>(*p_);
  }
  std::shared_ptr<H>* ptr() { return p_ ? &value_ : nullptr; }
  void commit() {
    if (!p_) return;
    IDispatch* fresh = value_ ? object_bridge().export_object(value_) : nullptr;
    if (*p_) (*p_)->Release();
    *p_ = fresh;
  }

 private:
  IDispatch** p_;
  std::shared_ptr<H> value_;
};

/// An array of Strings passed by reference (1-based when written back).
class RefStrings {
 public:
  explicit RefStrings(SAFEARRAY** p) : p_(p) {
    if (p_ && *p_) value = read_string_array(*p_);
  }
  void commit() {
    if (!p_) return;
    SAFEARRAY* fresh = make_string_array(value);
    if (*p_) SafeArrayDestroy(*p_);
    *p_ = fresh;
  }

 private:
  SAFEARRAY** p_;

 public:
  std::vector<String> value;
};

/// An array of FmlaPiece records passed by reference (1-based when written back).
class RefPieces {
 public:
  explicit RefPieces(SAFEARRAY** p) : p_(p) {
    if (p_ && *p_) value = read_piece_array(*p_);
  }
  void commit() {
    if (!p_) return;
    SAFEARRAY* fresh = make_piece_array(value, piece_record_info());
    if (*p_) SafeArrayDestroy(*p_);
    *p_ = fresh;
  }

 private:
  SAFEARRAY** p_;

 public:
  FmlaPieces value;
};

// ---- Results ----------------------------------------------------------------------------

inline void init_out(BSTR* r) {
  *r = nullptr;
}
inline void init_out(VARIANT_BOOL* r) {
  *r = VARIANT_FALSE;
}
inline void init_out(LONG* r) {
  *r = 0;
}
inline void init_out(VARIANT* r) {
  VariantInit(r);
}
template <class I>
void init_out(I** r) {
  *r = nullptr;
}

inline void clear_out(BSTR* r) {
  SysFreeString(*r);
  *r = nullptr;
}
inline void clear_out(VARIANT_BOOL* r) {
  *r = VARIANT_FALSE;
}
inline void clear_out(LONG* r) {
  *r = 0;
}
inline void clear_out(VARIANT* r) {
  VariantClear(r);
}
template <class I>
void clear_out(I** r) {
  if (*r) (*r)->Release();
  *r = nullptr;
}

inline void set_result(BSTR* r, const String& v) {
  *r = to_bstr(v);
}
inline void set_result(VARIANT_BOOL* r, bool v) {
  *r = v ? VARIANT_TRUE : VARIANT_FALSE;
}
inline void set_result(LONG* r, int32_t v) {
  *r = v;
}
inline void set_result(LONG* r, QZCellType v) {
  *r = static_cast<LONG>(v);
}
inline void set_result(VARIANT* r, const Variant& v) {
  to_variant(v, r);
}
// An array of texts as a 1-based String array; anything else as `set_result` gives it.
inline void set_strings_result(VARIANT* r, const Variant& v) {
  if (!v.is_array() || v.array().lower != 1) return to_variant(v, r);
  std::vector<String> items;
  for (const Variant& item : v.array().items) items.push_back(qz::to_string(item));
  r->parray = make_string_array(items);
  r->vt = VT_ARRAY | VT_BSTR;
}
template <class T>
requires std::is_base_of_v<Object, T>
void set_result(IDispatch** r, const std::shared_ptr<T>& v) {
  *r = v ? object_bridge().export_object(v) : nullptr;
}
template <class Lib>
void set_result(typename itf_of<Lib>::type** r, const std::shared_ptr<Lib>& v) {
  *r = v ? make_server(v) : nullptr;
}

/// Runs a member's body: results start at their defaults and no exception escapes.
template <class Out, class F>
HRESULT run(Out* ret, F&& body) noexcept {
  if constexpr (!std::is_void_v<Out>) {
    if (!ret) return E_POINTER;
    init_out(ret);
  }
  HRESULT hr = guard(std::forward<F>(body));
  if constexpr (!std::is_void_v<Out>) {
    if (FAILED(hr)) clear_out(ret);
  }
  return hr;
}
template <class F>
HRESULT run(std::nullptr_t, F&& body) noexcept {
  return guard(std::forward<F>(body));
}

}  // namespace qz::com
