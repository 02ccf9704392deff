#include "platform/linux/FileLock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/PlatformError.h"

namespace kv {
namespace {

constexpr std::size_t kLongestNote = 4096;

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw PlatformError(fmt::format("the lock file {} cannot be used: {}", path, reason));
}

/// Whether the open file still stands at `path`; a cleaner may have removed it before we locked it.
bool standsAt(const std::string& path, const struct stat& opened) {
  struct stat named {};
  return ::lstat(path.c_str(), &named) == 0 && named.st_dev == opened.st_dev &&
         named.st_ino == opened.st_ino;
}

/// Locks the descriptor; false when another process holds the lock and `operation` does not wait.
bool lock(int descriptor, int operation, const std::string& path) {
  while (::flock(descriptor, operation) != 0) {
    if (errno == EWOULDBLOCK) return false;
    if (errno != EINTR) refuse(path, std::strerror(errno));
  }
  return true;
}

/// A note is a courtesy to whoever waits: on a full disk the lock holds without it.
void writeNote(int descriptor, const std::string& note) {
  if (::ftruncate(descriptor, 0) != 0) return;
  [[maybe_unused]] const ssize_t written =
      ::pwrite(descriptor, note.data(), std::min(note.size(), kLongestNote), 0);
}

}  // namespace

std::unique_ptr<FileLock> FileLock::open(const std::string& path, const std::string& note,
                                         int operation) {
  for (;;) {
    const int descriptor =
        ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (descriptor < 0) refuse(path, std::strerror(errno));
    std::unique_ptr<FileLock> held(new FileLock(descriptor));
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) refuse(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode)) refuse(path, "it is not a plain file");
    if (status.st_uid != ::geteuid()) refuse(path, "it belongs to another user");
    if (status.st_nlink > 1) refuse(path, "it has a second name");
    if (!lock(descriptor, operation, path)) return nullptr;
    if (!standsAt(path, status)) continue;
    writeNote(descriptor, note);
    return held;
  }
}

std::unique_ptr<FileLock> FileLock::tryAcquire(const std::string& path, const std::string& note) {
  return open(path, note, LOCK_EX | LOCK_NB);
}

std::unique_ptr<FileLock> FileLock::acquire(const std::string& path, const std::string& note) {
  return open(path, note, LOCK_EX);
}

std::string FileLock::note(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return {};
  std::array<char, kLongestNote> buffer{};
  const ssize_t length = ::read(descriptor, buffer.data(), buffer.size());
  ::close(descriptor);
  return length > 0 ? std::string(buffer.data(), static_cast<std::size_t>(length)) : std::string();
}

FileLock::~FileLock() {
  ::close(descriptor_);
}

}  // namespace kv
