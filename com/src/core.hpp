// Small COM building blocks shared by the server and the test host: an owning interface
// pointer, owning BSTR and VARIANT holders, and the module's count of live objects that
// DllCanUnloadNow reports.
#pragma once

#include <oaidl.h>
#include <windows.h>

#include <atomic>
#include <utility>

namespace qz::com {

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
    if (p_) p_->Release();
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

/// The DLL's own instance handle (set by DllMain).
inline HINSTANCE g_instance = nullptr;

}  // namespace qz::com
