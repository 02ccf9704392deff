#pragma once

#include <exception>
#include <memory>

#include "platform/Files.h"
#include "platform/SerialQueue.h"

namespace kv {

/// Brings a rolled file to the disk and closes it while the next one is being written: the disk
/// takes a millisecond or more for that, in which a backlog grows to its bound.
///
/// Threads    one at a time; the file is flushed on a thread of the closer's own, which begins with
///            the first file.
/// Ownership  of the files that are handed over. finish() before the destructor, which waits for
///            nothing.
class RolledFileCloser {
 public:
  /// Takes a file. At most one is on its way: no other may have been taken since finish().
  void close(std::unique_ptr<FileHandle> file);
  /// Returns when no file is on its way; throws what flushing the last one failed with, once.
  void finish();

 private:
  std::shared_ptr<SerialQueue> queue_;
  std::exception_ptr failure_;
};

}  // namespace kv
