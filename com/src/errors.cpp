#include "com/src/errors.hpp"

#include <new>

#include "com/src/convert.hpp"
#include "com/src/core.hpp"
#include "qzxl/convert.hpp"

namespace qz::com {

HRESULT hresult_from_error_code(int32_t code) noexcept {
  return static_cast<HRESULT>(scode_from_error_code(code));
}

void set_error_info(const std::string& message) noexcept {
  try {
    ComPtr<ICreateErrorInfo> create;
    if (FAILED(CreateErrorInfo(create.put()))) return;
    String text = from_utf8(message);
    create->SetDescription(const_cast<LPOLESTR>(wide(text)));
    create->SetSource(const_cast<LPOLESTR>(L"QZXLLib"));
    auto info = create.as<IErrorInfo>(IID_IErrorInfo);
    SetErrorInfo(0, info.get());
  } catch (...) {
  }
}

std::string take_error_info() {
  ComPtr<IErrorInfo> info;
  if (GetErrorInfo(0, info.put()) != S_OK || !info) return {};
  Bstr text;
  if (FAILED(info->GetDescription(text.put()))) return {};
  return to_utf8(from_bstr(text.get()));
}

HRESULT hresult_from_current_exception() noexcept {
  try {
    throw;
  } catch (const Error& e) {
    set_error_info(e.message());
    return hresult_from_error_code(e.code());
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception& e) {
    set_error_info(e.what());
    return E_FAIL;
  } catch (...) {
    return E_UNEXPECTED;
  }
}

Error error_from_hresult(HRESULT hr, const EXCEPINFO* info, std::string_view member) {
  const std::string name(member);
  switch (hr) {
    case DISP_E_MEMBERNOTFOUND:
    case DISP_E_UNKNOWNNAME:
      return Error(err::not_supported, "Object doesn't support this property or method: " + name);
    case DISP_E_TYPEMISMATCH:
      return Error(err::type_mismatch, "Type mismatch in " + name);
    case DISP_E_BADPARAMCOUNT:
    case DISP_E_PARAMNOTOPTIONAL:
      return Error(err::wrong_arguments, "Wrong number of arguments: " + name);
    case DISP_E_OVERFLOW:
      return Error(err::overflow, "Overflow in " + name);
    case E_INVALIDARG:
      return Error(err::invalid_call, "Invalid procedure call or argument: " + name);
    case E_OUTOFMEMORY:
      throw std::bad_alloc();
    default:
      break;
  }
  if (hr == DISP_E_EXCEPTION && info) {
    // Deferred filling: the server asks to be called back for the details.
    EXCEPINFO filled = *info;
    if (filled.pfnDeferredFillIn) filled.pfnDeferredFillIn(&filled);
    std::string text =
        filled.bstrDescription ? to_utf8(from_bstr(filled.bstrDescription)) : name + " failed";
    int32_t code = filled.wCode
                       ? filled.wCode
                       : (filled.scode ? error_code_from_scode(filled.scode) : err::host_failure);
    if (code < 0) code = err::host_failure;
    return Error(code, text);
  }
  const auto u = static_cast<uint32_t>(hr);
  if ((u & 0xFFFF0000u) == 0x800A0000u) {
    std::string text = take_error_info();
    return Error(static_cast<int32_t>(u & 0xFFFFu), text.empty() ? name + " failed" : text);
  }
  std::string text = take_error_info();
  return Error(err::host_failure, text.empty() ? name + " failed" : text);
}

void fill_excepinfo(EXCEPINFO* info, HRESULT hr, const std::string& message) {
  if (!info) return;
  *info = EXCEPINFO{};
  info->bstrSource = SysAllocString(L"QZXLLib");
  String text = from_utf8(message);
  info->bstrDescription = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                                            static_cast<UINT>(text.size()));
  // The number travels in scode (0x800A0000 | number for the runtime's errors), which every
  // script host reads; wCode stays 0 as the two are exclusive.
  info->scode = hr;
}

}  // namespace qz::com
