#pragma once

#include <functional>
#include <memory>

namespace kv {

/// Tells when descriptors can be read or written, from the event loop.
///
/// Threads    the thread of the event loop.
/// Ownership  the descriptor stays the caller's and must stay open while it is watched.
/// Errors     none.
class DescriptorWatcher {
 public:
  /// Watches until it is dropped, which its own callback may do.
  class Watch {
   public:
    virtual ~Watch() = default;
    /// What is waited for from now on; at first nothing is. What is wanted and already there is
    /// told at the next turn of the loop.
    virtual void setWanted(bool reading, bool writing) = 0;
  };

  virtual ~DescriptorWatcher() = default;
  virtual std::unique_ptr<Watch> watch(int descriptor, std::function<void()> ready) = 0;
};

}  // namespace kv
