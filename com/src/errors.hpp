// The boundary: no C++ exception crosses into a COM caller, and errors coming back from COM
// calls become qz::Error, the one error type of the library and its hosts.
#pragma once

#include <oaidl.h>

#include <string>

#include "qzxl/error.hpp"
#include "qzxl/variant.hpp"

namespace qz::com {

/// The HRESULT an automation error number travels as (0x800A0000 | number), the form a
/// macro writer's error handler reads back as that number.
HRESULT hresult_from_error_code(int32_t code) noexcept;

/// The HRESULT of the exception being handled (call only inside a catch block); a qz::Error
/// also becomes the thread's error information, so that clients see its message.
HRESULT hresult_from_current_exception() noexcept;

/// Runs `f`; an exception becomes an HRESULT instead of crossing the boundary.
template <class F>
HRESULT guard(F&& f) noexcept {
  try {
    f();
    return S_OK;
  } catch (...) {
    return hresult_from_current_exception();
  }
}

/// The qz::Error for a failed COM call (`info` may be null): the runtime's error numbers for
/// the dispatch errors (438 for an unknown member, 13 for a type mismatch ...), the number
/// and text an automation exception carries, 1004 for anything else the host refused.
Error error_from_hresult(HRESULT hr, const EXCEPINFO* info, std::string_view member);

/// Fills `info` (when given) for an automation exception from `hr` and `message`.
void fill_excepinfo(EXCEPINFO* info, HRESULT hr, const std::string& message);

/// Sets the thread's error information to `message`, as ISupportErrorInfo servers do.
void set_error_info(const std::string& message) noexcept;

/// Takes the thread's error information, if any (its description as UTF-8).
std::string take_error_info();

}  // namespace qz::com
