#include "platform/linux/PosixFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/PlatformError.h"

namespace kv {
namespace {

/// Owns a descriptor.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  int number() const { return number_; }
  bool isOpen() const { return number_ >= 0; }

 private:
  int number_;
};

[[noreturn]] void refuse(const char* step) {
  throw PlatformError(std::string("cannot ") + step + ": " + std::strerror(errno));
}

class PosixFileHandle final : public FileHandle {
 public:
  explicit PosixFileHandle(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  void seekToEnd() override {
    if (::lseek(descriptor_.number(), 0, SEEK_END) < 0) refuse("seek");
  }

  void write(std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t written = ::write(descriptor_.number(), bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) refuse("write");
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
  }

 private:
  Descriptor descriptor_;
};

bool sameContent(const struct stat& before, const struct stat& after) {
  return before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
         before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
}

/// Reads up to `limit` bytes; nothing when reading fails.
std::optional<std::string> readUpTo(int descriptor, std::size_t limit) {
  std::string bytes(limit, '\0');
  std::size_t length = 0;
  while (length < limit) {
    const ssize_t count = ::read(descriptor, bytes.data() + length, limit - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  bytes.resize(length);
  return bytes;
}

enum class ReadResult { kRead, kChanged, kRefused };

ReadResult readOnce(const std::string& path, std::size_t limitBytes, std::string& content) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat before {};
  if (!file.isOpen() || ::fstat(file.number(), &before) != 0) return ReadResult::kRefused;
  if (!S_ISREG(before.st_mode)) return ReadResult::kRefused;
  const auto size = static_cast<std::size_t>(before.st_size);
  if (size > limitBytes) return ReadResult::kRefused;

  auto bytes = readUpTo(file.number(), size + 1);  // one more tells whether it has grown
  struct stat after {};
  if (!bytes || ::fstat(file.number(), &after) != 0) return ReadResult::kRefused;
  if (bytes->size() != size || !sameContent(before, after)) return ReadResult::kChanged;
  content = std::move(*bytes);
  return ReadResult::kRead;
}

bool isOwnPlainFile(int descriptor) {
  struct stat facts {};
  return ::fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode) &&
         facts.st_uid == ::geteuid() && facts.st_nlink == 1;
}

}  // namespace

std::optional<std::string> PosixFiles::read(const std::string& path, std::size_t limitBytes) {
  constexpr int kAttempts = 3;
  std::string content;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const auto result = readOnce(path, limitBytes, content);
    if (result == ReadResult::kRead) return content;
    if (result == ReadResult::kRefused) return std::nullopt;
  }
  return std::nullopt;
}

std::unique_ptr<FileHandle> PosixFiles::openOwnForWriting(const std::string& path) {
  Descriptor file(::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen() || !isOwnPlainFile(file.number())) return nullptr;
  return std::make_unique<PosixFileHandle>(std::move(file));
}

bool PosixFiles::createEmpty(const std::string& path) {
  constexpr mode_t kDefaultMode = 0666;  // less the user's mask
  const Descriptor file(::open(
      path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, kDefaultMode));
  return file.isOpen();
}

}  // namespace kv
