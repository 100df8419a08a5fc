// The one error type of the library, its hosts and its conversions.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace qz {

/// Run-time error numbers, as the automation runtime numbers them, so that a caller that
/// reports an error shows the number a macro writer would recognise.
namespace err {
inline constexpr int32_t invalid_call = 5;  ///< invalid procedure call or argument
inline constexpr int32_t overflow = 6;      ///< value out of the target type's range
inline constexpr int32_t out_of_memory = 7;
inline constexpr int32_t subscript = 9;       ///< index or key not in a collection or array
inline constexpr int32_t type_mismatch = 13;  ///< a value that does not convert
inline constexpr int32_t invalid_null = 94;   ///< Null where a value is needed
inline constexpr int32_t file_not_found = 53;
inline constexpr int32_t object_required = 424;  ///< Nothing where an object is needed
inline constexpr int32_t not_supported = 438;    ///< member the object does not have
inline constexpr int32_t wrong_arguments = 450;  ///< wrong number of arguments
inline constexpr int32_t host_failure = 1004;    ///< the host refused an operation
}  // namespace err

/// A failing host call, conversion or collection lookup. Carries a code (see `err`) and a
/// one-line message. Library methods never let it reach their clients: each step that can
/// raise it is run through `qz::step`, which skips the step.
class Error : public std::exception {
 public:
  Error(int32_t code, std::string message) : code_(code), message_(std::move(message)) {}
  int32_t code() const noexcept { return code_; }
  const std::string& message() const noexcept { return message_; }
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  int32_t code_;
  std::string message_;
};

}  // namespace qz
