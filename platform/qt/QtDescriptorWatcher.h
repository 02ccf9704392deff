#pragma once

#include "platform/DescriptorWatcher.h"

namespace kv {

/// Watches descriptors on Qt's event loop of the thread that asks.
///
/// Threads    the thread of the application object.
/// Ownership  as DescriptorWatcher.
class QtDescriptorWatcher final : public DescriptorWatcher {
 public:
  std::unique_ptr<Watch> watch(int descriptor, std::function<void()> ready) override;
};

}  // namespace kv
