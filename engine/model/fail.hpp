// How the model refuses an operation: a qz::Error that the host objects pass on to their
// client. For the model's own translation units only.
#pragma once

#include <string>

#include "qzxl/error.hpp"

namespace qz::engine {

[[noreturn]] inline void fail(const std::string& message) {
  throw Error(err::host_failure, message);
}

}  // namespace qz::engine
