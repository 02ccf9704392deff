#include "tools/kvctl/TraceSource.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

constexpr std::size_t kPiece = 256u << 10;

std::string reasonOf(const std::string& path, int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return fmt::format(
          "{}: there is no trace yet. Switch \"Debug Tracing\" on in the agent's menu, or start "
          "the agent with KVSCHEDULER_DEBUG=1",
          path);
    case ELOOP:
      return fmt::format(
          "{}: a symbolic link, and the agent writes through none. Remove it, or "
          "name the file that it leads to (--file)",
          path);
    default:
      return fmt::format("{}: cannot be read: {}", path, std::strerror(error));
  }
}

}  // namespace

std::optional<std::string> TraceSource::open() {
  close();
  offset_ = 0;
  Descriptor file(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen()) return reasonOf(path_, errno);
  struct stat facts {};
  if (::fstat(file.number(), &facts) != 0) return reasonOf(path_, errno);
  if (!S_ISREG(facts.st_mode)) {
    return fmt::format("{}: no plain file, so the agent writes no trace there. Remove it", path_);
  }
  file_.emplace(std::move(file));
  return std::nullopt;
}

std::vector<std::string> TraceSource::remarks() const {
  struct stat facts {};
  if (::fstat(descriptor(), &facts) != 0) return {};
  std::vector<std::string> remarks;
  if (facts.st_uid != ::geteuid()) {
    remarks.push_back(fmt::format("{}: belongs to user {}: the lines are not of an agent of yours",
                                  path_, facts.st_uid));
  }
  if (facts.st_nlink > 1) {
    remarks.push_back(fmt::format(
        "{}: has another name too, and the agent writes to no such file. Remove it", path_));
  }
  return remarks;
}

bool TraceSource::isMissing() const {
  struct stat named {};
  return ::lstat(path_.c_str(), &named) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool TraceSource::isReplaced() const {
  struct stat named {};
  struct stat open {};
  if (::lstat(path_.c_str(), &named) != 0 || ::fstat(descriptor(), &open) != 0) return true;
  return named.st_dev != open.st_dev || named.st_ino != open.st_ino;
}

bool TraceSource::isCutShort() const {
  struct stat facts {};
  return ::fstat(descriptor(), &facts) == 0 && facts.st_size < offset_;
}

std::string_view TraceSource::read() {
  buffer_.resize(kPiece);
  ssize_t count = 0;
  do {
    count = ::pread(descriptor(), buffer_.data(), buffer_.size(), offset_);
  } while (count < 0 && errno == EINTR);
  if (count < 0) throw Refusal(ExitStatus::kUnreadable, reasonOf(path_, errno));
  offset_ += count;
  return std::string_view(buffer_).substr(0, static_cast<std::size_t>(count));
}

}  // namespace kv::kvctl
