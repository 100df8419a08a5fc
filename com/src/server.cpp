#include "com/src/server.hpp"

#include <mutex>
#include <unordered_map>

#include "com/src/object_dispatch.hpp"

namespace qz::com {

namespace {

struct LiveServers {
  std::mutex mutex;
  std::unordered_map<const Object*, ServerBase*> by_object;
};
LiveServers& live() {
  static LiveServers l;
  return l;
}

struct TypeInfos {
  std::mutex mutex;
  ComPtr<ITypeLib> library;
  std::vector<std::pair<GUID, std::pair<ComPtr<ITypeInfo>, ComPtr<ITypeInfo>>>> by_iid;
  ComPtr<IRecordInfo> piece;
};
TypeInfos& infos() {
  static TypeInfos t;
  return t;
}

[[noreturn]] void no_type_library(HRESULT hr) {
  throw Error(err::host_failure, "The type library of QZXLLib cannot be loaded (" +
                                     std::to_string(static_cast<unsigned long>(hr)) + ")");
}

ITypeLib* library_locked() {
  auto& t = infos();
  if (!t.library) {
    wchar_t path[MAX_PATH * 2];
    DWORD n = GetModuleFileNameW(g_instance, path, MAX_PATH * 2);
    if (n == 0 || n >= MAX_PATH * 2) no_type_library(HRESULT_FROM_WIN32(GetLastError()));
    HRESULT hr = LoadTypeLibEx(path, REGKIND_NONE, t.library.put());
    if (FAILED(hr)) no_type_library(hr);
  }
  return t.library.get();
}

std::pair<ITypeInfo*, ITypeInfo*> infos_of(REFIID iid) {
  auto& t = infos();
  std::lock_guard lock(t.mutex);
  for (auto& [g, pair] : t.by_iid)
    if (IsEqualGUID(g, iid)) return {pair.first.get(), pair.second.get()};
  ComPtr<ITypeInfo> dispatch;
  HRESULT hr = library_locked()->GetTypeInfoOfGuid(iid, dispatch.put());
  if (FAILED(hr)) no_type_library(hr);
  // A dual interface's description is its dispatch view; the vtable view, which the typed
  // Invoke needs for the members' slots, is its "implemented type" -1.
  ComPtr<ITypeInfo> vtable = dispatch;
  HREFTYPE href = 0;
  if (SUCCEEDED(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &href))) {
    ComPtr<ITypeInfo> v;
    if (SUCCEEDED(dispatch->GetRefTypeInfo(href, v.put()))) vtable = v;
  }
  t.by_iid.push_back({iid, {dispatch, vtable}});
  return {dispatch.get(), vtable.get()};
}

}  // namespace

ITypeLib* server_type_library() {
  std::lock_guard lock(infos().mutex);
  return library_locked();
}

ITypeInfo* server_dispatch_info(REFIID iid) {
  return infos_of(iid).first;
}
ITypeInfo* server_vtable_info(REFIID iid) {
  return infos_of(iid).second;
}

IRecordInfo* piece_record_info() {
  auto& t = infos();
  std::lock_guard lock(t.mutex);
  if (!t.piece) {
    ComPtr<ITypeInfo> record;
    HRESULT hr = library_locked()->GetTypeInfoOfGuid(kRecordFmlaPiece, record.put());
    if (SUCCEEDED(hr)) hr = GetRecordInfoFromTypeInfo(record.get(), t.piece.put());
    if (FAILED(hr)) no_type_library(hr);
  }
  return t.piece.get();
}

IDispatch* ServerBase::find_live(const Object* object) {
  std::lock_guard lock(live().mutex);
  auto it = live().by_object.find(object);
  if (it == live().by_object.end() || !it->second->try_add_ref()) return nullptr;
  return it->second->as_dispatch();
}

void ServerBase::register_live(const Object* object) {
  std::lock_guard lock(live().mutex);
  live().by_object[object] = this;
}

void ServerBase::unregister_live(const Object* object) {
  std::lock_guard lock(live().mutex);
  auto it = live().by_object.find(object);
  if (it != live().by_object.end() && it->second == this) live().by_object.erase(it);
}

ObjectPtr server_object(IDispatch* dispatch) {
  if (!dispatch) return nullptr;
  auto* base = own_object<ServerBase>(dispatch, kServerTag);
  return base ? base->library_object() : nullptr;
}

}  // namespace qz::com
