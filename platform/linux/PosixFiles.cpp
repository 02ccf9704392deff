#include "platform/linux/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/linux/Descriptor.h"
#include "platform/linux/LargeFile.h"
#include "platform/linux/PosixFileHandle.h"
#include "platform/linux/SystemClock.h"

namespace kv {
namespace {

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

/// Whether the open file is the one that stands at `path`.
bool standsAt(const std::string& path, int descriptor) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(descriptor, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool clearNonBlocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags >= 0 && ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

FileAttributes::Type typeOf(mode_t mode) {
  if (S_ISREG(mode)) return FileAttributes::Type::kRegular;
  if (S_ISDIR(mode)) return FileAttributes::Type::kFolder;
  if (S_ISLNK(mode)) return FileAttributes::Type::kLink;
  return FileAttributes::Type::kOther;
}

Date dateOf(const struct statx_timestamp& time) {
  return dateFrom({time.tv_sec, static_cast<double>(time.tv_nsec)});
}

FileResult::Kind kindOf(int error) {
  if (error == 0) return FileResult::Kind::kDone;
  const bool isAbsent = error == ENOENT || error == ENOTDIR;
  return isAbsent ? FileResult::Kind::kAbsent : FileResult::Kind::kRefused;
}

FileResult resultOf(int error) {
  return {kindOf(error), error == 0 ? std::string() : std::strerror(error)};
}

FileResult attributeResultOf(ssize_t status) {
  if (status >= 0) return {};
  const int error = errno;
  const bool isAbsent = error == ENODATA;
  return {isAbsent ? FileResult::Kind::kAbsent : FileResult::Kind::kRefused, std::strerror(error)};
}

/// Programs may choose names in one namespace only.
std::string userAttribute(const std::string& name) {
  return "user." + name;
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
  // It may have been a second name of another file, taken away since: then one name is left, but
  // not this one. While it is being taken away the count is ahead of the name; to make a file of
  // that name (in vain, since it is there) waits for the end of that.
  createEmpty(path);
  if (!standsAt(path, file.number()) || !isOwnPlainFile(file.number())) return nullptr;
  return std::make_unique<PosixFileHandle>(std::move(file));
}

std::unique_ptr<FileHandle> PosixFiles::openForAppending(const std::string& path) {
  Descriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat facts {};
  if (!file.isOpen() || ::fstat(file.number(), &facts) != 0) return nullptr;
  // A reader that does not read must not stop the writer; everything else takes its time.
  if (!S_ISFIFO(facts.st_mode) && !clearNonBlocking(file.number())) return nullptr;
  return std::make_unique<PosixFileHandle>(std::move(file));
}

bool PosixFiles::createEmpty(const std::string& path) {
  constexpr mode_t kDefaultMode = 0666;  // less the user's mask
  const Descriptor file(::open(
      path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, kDefaultMode));
  return file.isOpen();
}

bool PosixFiles::exists(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0;
}

std::optional<FileAttributes> PosixFiles::attributes(const std::string& path) {
  struct statx facts {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
              &facts) != 0) {
    return std::nullopt;
  }
  FileAttributes attributes;
  attributes.type = typeOf(facts.stx_mode);
  attributes.sizeBytes = facts.stx_size;
  attributes.modificationDate = dateOf(facts.stx_mtime);
  attributes.creationDate = (facts.stx_mask & STATX_BTIME) != 0
                                ? dateOf(facts.stx_btime)
                                : std::min(attributes.modificationDate, dateOf(facts.stx_ctime));
  attributes.permissions = facts.stx_mode & 07777U;
  attributes.owner = facts.stx_uid;
  attributes.inode = facts.stx_ino;
  attributes.links = facts.stx_nlink;
  return attributes;
}

std::vector<std::string> PosixFiles::list(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), &::closedir);
  if (!open) return {};
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(open.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  return errno == 0 ? std::move(names) : std::vector<std::string>();
}

FileResult PosixFiles::createFolders(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error) return {};
  return {FileResult::Kind::kRefused, error.message()};
}

FileResult PosixFiles::remove(const std::string& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) != 0) return resultOf(errno);
  constexpr off_t kLargeBytes = 64 * 1024;
  if (S_ISREG(facts.st_mode) && facts.st_nlink == 1 && facts.st_size >= kLargeBytes) {
    return resultOf(removeLargeFile(path));
  }
  std::error_code error;
  std::filesystem::remove_all(path, error);
  return resultOf(error.value());
}

FileResult PosixFiles::move(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return {};
  if (errno != EINVAL && errno != ENOSYS) return resultOf(errno);
  // This file system cannot look and rename in one step.
  struct stat facts {};
  if (::lstat(to.c_str(), &facts) == 0) return resultOf(EEXIST);
  return resultOf(::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno);
}

FileResult PosixFiles::findExtendedAttribute(const std::string& path, const std::string& name) {
  return attributeResultOf(::getxattr(path.c_str(), userAttribute(name).c_str(), nullptr, 0));
}

FileResult PosixFiles::addExtendedAttribute(const std::string& path, const std::string& name) {
  return attributeResultOf(::setxattr(path.c_str(), userAttribute(name).c_str(), "", 0, 0));
}

FileResult PosixFiles::removeExtendedAttribute(const std::string& path, const std::string& name) {
  return attributeResultOf(::removexattr(path.c_str(), userAttribute(name).c_str()));
}

}  // namespace kv
