// Small COM building blocks shared by the server and the test host: an owning interface
// pointer, owning BSTR and VARIANT holders, and the module's count of live objects that
// DllCanUnloadNow reports.
#pragma once

#include <oaidl.h>
#include <windows.h>

#include <atomic>
#include <utility>

namespace qz::com {

/// Set when the process is ending: other modules may already be gone, so references into them
/// are left unreleased rather than called.
inline bool g_process_ending = false;

/// An owning interface pointer (AddRef on copy, Release on destruction).
template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  /// Takes a new reference to `p`.
  explicit ComPtr(T* p) noexcept : p_(p) {
    if (p_) p_->AddRef();
  }
  ComPtr(const ComPtr& o) noexcept : ComPtr(o.p_) {}
  ComPtr(ComPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  ComPtr& operator=(ComPtr o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }
  ~ComPtr() {
    if (p_ && !g_process_ending) p_->Release();
  }

  /// Adopts a reference the caller already owns (a fresh object, an out parameter).
  static ComPtr adopt(T* p) noexcept {
    ComPtr r;
    r.p_ = p;
    return r;
  }
  /// Hands the reference to the caller.
  T* detach() noexcept { return std::exchange(p_, nullptr); }
  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  /// For out parameters: releases what is held and returns the slot.
  T** put() noexcept {
    if (p_) p_->Release();
    p_ = nullptr;
    return &p_;
  }
  /// QueryInterface into another pointer type; empty when the object refuses.
  template <class U>
  ComPtr<U> as(REFIID iid) const noexcept {
    ComPtr<U> r;
    if (p_) p_->QueryInterface(iid, reinterpret_cast<void**>(r.put()));
    return r;
  }

 private:
  T* p_ = nullptr;
};

/// An owning BSTR.
class Bstr {
 public:
  Bstr() noexcept = default;
  explicit Bstr(const wchar_t* s) : b_(SysAllocString(s)) {}
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  ~Bstr() { SysFreeString(b_); }
  BSTR get() const noexcept { return b_; }
  BSTR* put() noexcept {
    SysFreeString(b_);
    b_ = nullptr;
    return &b_;
  }
  BSTR detach() noexcept { return std::exchange(b_, nullptr); }

 private:
  BSTR b_ = nullptr;
};

/// An owning VARIANT, cleared on destruction.
struct VariantHolder : VARIANT {
  VariantHolder() noexcept { VariantInit(this); }
  VariantHolder(const VariantHolder&) = delete;
  VariantHolder& operator=(const VariantHolder&) = delete;
  ~VariantHolder() { VariantClear(this); }
  void clear() noexcept { VariantClear(this); }
};

/// The module's live objects and server locks; DllCanUnloadNow answers from them.
inline std::atomic<long> g_module_refs{0};
inline void module_add_ref() noexcept {
  g_module_refs.fetch_add(1);
}
inline void module_release() noexcept {
  g_module_refs.fetch_sub(1);
}
inline bool module_can_unload() noexcept {
  return g_module_refs.load() == 0;
}

/// What this module's own objects answer to a private QueryInterface identifier: the module
/// they belong to and themselves (no reference is added). Two DLLs built from the same sources
/// answer the same identifier, so the module is compared before the object is trusted.
struct OwnIdentity {
  const void* module;
  void* self;
};
/// One per DLL: its address tells the modules apart.
inline const char g_module_marker = 0;

/// The module's own object of type T behind `unknown`, or null for another module's.
template <class T>
T* own_object(IUnknown* unknown, REFIID tag) noexcept {
  OwnIdentity* id = nullptr;
  if (!unknown || FAILED(unknown->QueryInterface(tag, reinterpret_cast<void**>(&id))) || !id ||
      id->module != &g_module_marker)
    return nullptr;
  return static_cast<T*>(id->self);
}

/// The DLL's own instance handle (set by DllMain).
inline HINSTANCE g_instance = nullptr;

}  // namespace qz::com
