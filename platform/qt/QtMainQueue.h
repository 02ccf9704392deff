#pragma once

#include <memory>

namespace kv {

/// Has Qt's event loop run what is put on the MainQueue, for as long as the object lives. What is
/// still waiting at its end stays where it is.
///
/// Threads    made and gone on the thread of the application object, which must outlive it; one
///            object in a process at a time, since the main queue is the process's.
/// Errors     an exception that leaves the work ends the program.
class QtMainQueue {
 public:
  QtMainQueue();
  ~QtMainQueue();
  QtMainQueue(const QtMainQueue&) = delete;
  QtMainQueue& operator=(const QtMainQueue&) = delete;

 private:
  struct Target;
  std::shared_ptr<Target> target_;
};

}  // namespace kv
