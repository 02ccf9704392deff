#pragma once

#include <memory>
#include <string>

namespace kv {

/// An exclusive lock that other processes of this user see, held from acquire() until it dies (or
/// the process does, however it ends).
///
/// Threads    any; the lock belongs to the object, not to the thread.
/// Ownership  the file stays when the lock is released; its content tells who held it last.
/// Errors     PlatformError when the file cannot be opened safely (a link, another user's file).
class FileLock {
 public:
  /// Takes the lock and writes `note` into the file, or returns null when somebody holds it.
  static std::unique_ptr<FileLock> tryAcquire(const std::string& path, const std::string& note);

  /// As tryAcquire, but waits until the lock is free.
  static std::unique_ptr<FileLock> acquire(const std::string& path, const std::string& note);

  /// The note of the present holder, or of the last one; empty when there was none.
  static std::string note(const std::string& path);

  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  explicit FileLock(int descriptor) : descriptor_(descriptor) {}
  static std::unique_ptr<FileLock> open(const std::string& path, const std::string& note,
                                        int operation);
  int descriptor_;
};

}  // namespace kv
