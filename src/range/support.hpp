// Small helpers shared by the iRange sources.
#pragma once

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"

namespace qz::range_support {

/// The session's application; raises error 424 when the library has none yet.
inline host::Application& xl() {
  return *require(frame::session().XLApp);
}

/// Whether a cell's value is Empty (never written, or cleared). A value that cannot be read
/// counts as empty, so the caller treats the cell as one with nothing to offer.
inline bool is_empty_cell(const host::RangePtr& cell) {
  return value_or(true, [&] { return require(cell)->value().is_empty(); });
}

/// The first `n` characters of `s` (all of it when shorter), as the runtime's Left.
inline StringView left(StringView s, int32_t n) {
  return s.substr(0, n < 0 ? 0 : static_cast<size_t>(n));
}

/// The last `n` characters of `s` (all of it when shorter), as the runtime's Right.
inline StringView right(StringView s, int32_t n) {
  const size_t k = n < 0 ? 0 : static_cast<size_t>(n);
  return k >= s.size() ? s : s.substr(s.size() - k);
}

}  // namespace qz::range_support
