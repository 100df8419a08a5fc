// The library's error convention in one place: a public method is a sequence of steps, and a
// step that fails (the host refuses a call, a value does not convert, a lookup finds nothing)
// is skipped while the method goes on. Each step that can fail is wrapped here, so method
// bodies read like their algorithms and no exception ever reaches a client.
#pragma once

#include <atomic>
#include <exception>
#include <type_traits>
#include <utility>

#include "qzxl/error.hpp"

namespace qz {

namespace detail {
/// Counts skipped steps; tests read it to see that a failure was absorbed where expected.
inline std::atomic<long> skipped_steps{0};
}  // namespace detail

/// Runs one step; a failure skips it. Returns whether the step completed.
template <class F>
bool step(F&& f) noexcept {
  try {
    std::forward<F>(f)();
    return true;
  } catch (...) {
    detail::skipped_steps.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
}

/// Evaluates one step that yields a value; a failure yields `fallback` (the default a
/// skipped assignment leaves behind).
template <class T, class F>
T value_or(T fallback, F&& f) noexcept {
  try {
    return std::forward<F>(f)();
  } catch (...) {
    detail::skipped_steps.fetch_add(1, std::memory_order_relaxed);
    return fallback;
  }
}

/// Evaluates one step into `target`; on failure `target` keeps what it held, as an
/// assignment skipped under the convention would.
template <class T, class F>
bool assign(T& target, F&& f) noexcept {
  try {
    target = std::forward<F>(f)();
    return true;
  } catch (...) {
    detail::skipped_steps.fetch_add(1, std::memory_order_relaxed);
    return false;
  }
}

/// The object itself; raises error 424 for Nothing, as the runtime does when a member is
/// called on an unset reference, so that the surrounding step is skipped instead of the
/// process crashing.
template <class P>
const P& require(const P& object) {
  if (!object) throw Error(err::object_required, "Object required");
  return object;
}

/// Steps skipped so far in this process.
inline long skipped_step_count() noexcept {
  return detail::skipped_steps.load(std::memory_order_relaxed);
}

}  // namespace qz
