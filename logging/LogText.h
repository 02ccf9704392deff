#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

namespace kv {

/// The text of a message or of a formatted line, possibly none.
///
/// A text is an object: which one it is matters, since a formatter that hands a message's own text
/// back is told apart from one that made an equal text of its own.
///
/// Ownership  shared; a message's text may live inside the message and then keeps it alive.
using LogText = std::shared_ptr<const std::string>;

/// True when nobody but the caller holds `object` any more. What former holders did with it comes
/// before what the caller does next.
template <class Object>
bool isSoleHolder(const std::shared_ptr<Object>& object) {
  if (object.use_count() > 1) return false;
#if defined(__SANITIZE_THREAD__)
  // The sanitizer knows no fences: a step on the count itself says the same to it.
  [[maybe_unused]] const auto probe = object;
#else
  std::atomic_thread_fence(std::memory_order_acquire);
#endif
  return true;
}

inline LogText makeLogText(std::string_view text) {
  return std::make_shared<const std::string>(text);
}

}  // namespace kv
