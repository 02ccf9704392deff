#include "platform/linux/FileTail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace kv {
namespace {

/// The bytes from `offset` on, at most `length`; fewer when the file ends before.
std::optional<std::string> readFrom(int descriptor, off_t offset, std::size_t length) {
  std::string bytes(length, '\0');
  std::size_t filled = 0;
  while (filled < length) {
    const ssize_t got = pread(descriptor, bytes.data() + filled, length - filled,
                              offset + static_cast<off_t>(filled));
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  bytes.resize(filled);
  return bytes;
}

std::optional<std::string> readLastLines(int descriptor, std::size_t maxBytes) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size <= maxBytes) return readFrom(descriptor, 0, size);
  // One byte more: when it is a line feed, the first line that fits is whole.
  const std::size_t length = maxBytes + 1;
  auto bytes = readFrom(descriptor, static_cast<off_t>(size - length), length);
  if (bytes) {
    const std::size_t lineFeed = bytes->find('\n');
    bytes->erase(0, lineFeed == std::string::npos ? bytes->size() : lineFeed + 1);
  }
  return bytes;
}

}  // namespace

std::optional<std::string> readTail(const std::string& path, std::size_t maxBytes) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  auto lines = readLastLines(descriptor, maxBytes);
  close(descriptor);
  return lines;
}

}  // namespace kv
