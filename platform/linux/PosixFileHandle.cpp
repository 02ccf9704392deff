#include "platform/linux/PosixFileHandle.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/PlatformError.h"

namespace kv {
namespace {

[[noreturn]] void refuse(const char* step, int error) {
  throw PlatformError(std::string("cannot ") + step + ": " + std::strerror(error));
}

}  // namespace

void PosixFileHandle::seekToEnd() {
  const off_t end = ::lseek(descriptor_.number(), 0, SEEK_END);
  if (end < 0) refuse("seek", errno);
  offset_ = static_cast<std::uint64_t>(end);
}

/// Names the place, which spares the system the lock on the one that it keeps for the descriptor.
/// A file that was opened for appending takes the bytes at its end all the same.
long PosixFileHandle::writeSome(std::string_view bytes) {
  if (hasPlaces_) {
    const ssize_t written =
        ::pwrite(descriptor_.number(), bytes.data(), bytes.size(), static_cast<off_t>(offset_));
    hasPlaces_ = written >= 0 || errno != ESPIPE;
    if (hasPlaces_) return written;
  }
  return ::write(descriptor_.number(), bytes.data(), bytes.size());
}

void PosixFileHandle::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = writeSome(bytes);
    if (written < 0 && errno == EINTR) continue;
    // Some systems' volumes answer 0 when they are full: trying again would never end.
    if (written <= 0) refuse("write", written < 0 ? errno : ENOSPC);
    offset_ += static_cast<std::uint64_t>(written);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool PosixFileHandle::cutBackTo(std::uint64_t sizeBytes) {
  struct stat facts {};
  if (sizeBytes > offset_ || ::fstat(descriptor_.number(), &facts) != 0) return false;
  // Bytes behind our own are somebody else's: cutting would take them, too.
  if (!S_ISREG(facts.st_mode) || static_cast<std::uint64_t>(facts.st_size) != offset_) return false;
  const auto size = static_cast<off_t>(sizeBytes);
  if (::ftruncate(descriptor_.number(), size) != 0) return false;
  offset_ = sizeBytes;
  return true;
}

void PosixFileHandle::synchronize() {
  while (::fdatasync(descriptor_.number()) != 0) {
    if (errno == EINTR) continue;
    if (errno == EINVAL || errno == EROFS || errno == ENOSYS) return;
    refuse("synchronize", errno);
  }
}

}  // namespace kv
