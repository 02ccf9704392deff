#pragma once

#include "platform/FileWatch.h"

namespace kv {

/// Watches by inotify. All watches share one inotify instance and one thread, which are made with
/// the first watch and end with the last; the thread sleeps until something happens.
///
/// The very file that is open is watched, whatever stands at its path by then. It counts as gone
///   - when it is moved, even if it has come back since;
///   - when its last name is removed, or its path names another file or none, each looked at when
///     its attributes change (the link count is one of them) and once at the beginning.
/// A change of a folder above it is not noticed.
///
/// Threads    any.
/// Ownership  its watches may outlive it. One of a process that has forked does nothing in the
///            child, which shares the inotify instance and must leave it to the parent.
/// Errors     see FileWatch; inotify demands that the file may be read.
class InotifyFileWatcher final : public FileWatcher {
 public:
  InotifyFileWatcher();
  ~InotifyFileWatcher() override;

  std::unique_ptr<FileWatch> watch(const std::string& path, int descriptor,
                                   std::shared_ptr<SerialQueue> queue,
                                   std::function<void()> handler) override;

 private:
  class Watches;
  class Watch;
  const std::shared_ptr<Watches> watches_;
};

}  // namespace kv
