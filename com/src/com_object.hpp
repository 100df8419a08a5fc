// The IUnknown every COM object of both DLLs is built on: a reference count that several
// threads may touch, the module's count of live objects that DllCanUnloadNow reports, and
// QueryInterface over the interfaces the object names.
#pragma once

#include <oaidl.h>

#include <atomic>
#include <tuple>

#include "com/src/core.hpp"

namespace qz::com {

/// Base of an object implementing the COM interfaces `Itfs` (the first one is its IUnknown).
/// It starts with one reference, which its creator owns.
template <class... Itfs>
class ComObject : public Itfs... {
 public:
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (tag_ && IsEqualIID(iid, *tag_)) {
      // Identity answers carry no reference.
      *out = &identity_;
      return S_OK;
    }
    void* found = IsEqualIID(iid, IID_IUnknown) ? static_cast<First*>(this) : find_interface(iid);
    if (!found) return E_NOINTERFACE;
    AddRef();
    *out = found;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }

  /// A new reference, unless the last one is already being released: for tables of live
  /// objects, where one thread may find an object another thread is letting go of.
  bool try_add_ref() noexcept {
    ULONG n = refs_.load();
    while (n != 0)
      if (refs_.compare_exchange_weak(n, n + 1)) return true;
    return false;
  }

 protected:
  using First = std::tuple_element_t<0, std::tuple<Itfs...>>;

  ComObject() noexcept { module_add_ref(); }
  virtual ~ComObject() { module_release(); }

  /// The interface `iid` names, besides IUnknown; null for one the object does not have.
  virtual void* find_interface(REFIID iid) noexcept = 0;

  /// Answers `tag` with an identity naming this module and `self`, so that the module can
  /// tell its own objects behind an interface pointer (own_object).
  void answer_identity(const GUID& tag, void* self) noexcept {
    tag_ = &tag;
    identity_.self = self;
  }

 private:
  std::atomic<ULONG> refs_{1};
  const GUID* tag_ = nullptr;
  OwnIdentity identity_{&g_module_marker, nullptr};
};

}  // namespace qz::com
