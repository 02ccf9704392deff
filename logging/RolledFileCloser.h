#pragma once

#include <exception>
#include <memory>
#include <vector>

#include "platform/Files.h"
#include "platform/SerialQueue.h"

namespace kv {

/// Brings rolled files to the disk and closes them while the next ones are being written: the disk
/// takes a millisecond or more for each, in which a backlog grows to its bound. It takes now less,
/// now more, which evens out when several files may be on their way.
///
/// Threads    one at a time; the files are flushed, one after the other, on a thread of the
///            closer's own, which begins with the first.
/// Ownership  of the files that are handed over. finish() before the destructor, which waits for
///            nothing.
class RolledFileCloser {
 public:
  static constexpr int kMostOnTheirWay = 8;

  /// Time for finish(), before another file is handed over: so many take room in the system's
  /// memory, and would be lost with the power.
  bool isFull() const { return taken_ >= kMostOnTheirWay; }
  void close(std::unique_ptr<FileHandle> file);
  /// Returns when no file is on its way, with what flushing failed with since the last time.
  std::vector<std::exception_ptr> finish();

 private:
  std::shared_ptr<SerialQueue> queue_;
  /// Files since finish().
  int taken_ = 0;
  /// Touched by work of the queue, and when there is none.
  std::vector<std::exception_ptr> failures_;
};

}  // namespace kv
