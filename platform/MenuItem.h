#pragma once

#include <cstdint>

namespace kv {

/// A menu item of the host, as far as the scheduler needs one: its check mark.
///
/// Threads    main thread only.
/// Ownership  the host's; whoever keeps one shares it.
class MenuItem {
 public:
  virtual ~MenuItem() = default;
  /// 1 when checked, 0 when not.
  virtual std::int32_t state() const = 0;
  virtual void setState(std::int32_t state) = 0;
};

}  // namespace kv
