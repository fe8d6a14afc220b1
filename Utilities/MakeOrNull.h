#pragma once

#include <memory>
#include <new>
#include <utility>

namespace ombrix {

// A new T, or null when the machine has no memory for it, so that the caller can say so in its own
// words before it gives up.
template <class T, class... Arguments>
[[nodiscard]] std::unique_ptr<T> makeOrNull(Arguments&&... arguments) noexcept {
  try {
    return std::make_unique<T>(std::forward<Arguments>(arguments)...);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace ombrix
