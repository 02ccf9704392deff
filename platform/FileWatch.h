#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/SerialQueue.h"

namespace kv {

/// Tells when a file that is open is deleted or moved away from its path.
///
/// The last name of a file counts: of two hard links the first may be removed unnoticed by the
/// system, and is noticed here all the same, since what is watched is the path.
///
/// Threads    made and dropped on any thread; the handler runs as `queue`, at most once.
/// Ownership  dropping the watch ends it: the handler does not begin after that, when it is
///            dropped by work that runs as `queue`.
/// Errors     a path that cannot be watched is watched by nobody; isWatching() is false then.
class FileWatch {
 public:
  virtual ~FileWatch() = default;
  virtual bool isWatching() const = 0;
};

/// Makes watches; the system's folder implements it.
class FileWatcher {
 public:
  virtual ~FileWatcher() = default;
  virtual std::unique_ptr<FileWatch> watch(const std::string& path, int descriptor,
                                           std::shared_ptr<SerialQueue> queue,
                                           std::function<void()> handler) = 0;
};

}  // namespace kv
