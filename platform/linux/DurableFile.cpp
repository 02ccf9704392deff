#include "platform/linux/DurableFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "platform/PlatformError.h"

namespace kv {
namespace {

[[noreturn]] void refuse(const char* step, const std::string& path, int error) {
  throw PlatformError(fmt::format("cannot {} {}: {}", step, path, std::strerror(error)));
}

std::string withoutLinks(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  if (!error) return real.string();
  if (error != std::errc::no_such_file_or_directory) refuse("resolve", path, error.value());
  return path;
}

/// A file that goes away again unless it is put in its place.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& target)
      : target_(target),
        path_(target + ".XXXXXX"),
        descriptor_(::mkostemp(path_.data(), O_CLOEXEC)) {
    if (descriptor_ < 0) refuse("make a temporary file beside", target_, errno);
  }
  ~TemporaryFile() {
    ::close(descriptor_);
    if (!isPlaced_) ::unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// mkostemp made it 0600, which is what a new file is to have.
  void copyOwnerAndPermissions() {
    struct stat old {};
    if (::stat(target_.c_str(), &old) != 0) {
      if (errno == ENOENT) return;
      refuse("look at", target_, errno);
    }
    // A device would be gone for everybody.
    if (!S_ISREG(old.st_mode)) refuse("replace", target_, S_ISDIR(old.st_mode) ? EISDIR : EINVAL);
    // Only the superuser may give files away; the content matters more. The permissions come
    // second, because a change of the owner clears some of them.
    const bool isGroupKept = ::fchown(descriptor_, static_cast<uid_t>(-1), old.st_gid) == 0;
    [[maybe_unused]] const int owner = ::fchown(descriptor_, old.st_uid, static_cast<gid_t>(-1));
    // A group that could not be kept must not hand its rights to another one.
    const mode_t mode = old.st_mode & (isGroupKept ? 07777u : 07707u);
    if (::fchmod(descriptor_, mode) != 0) refuse("set the permissions of", path_, errno);
  }

  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) refuse("write", path_, errno);
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    if (::fsync(descriptor_) != 0) refuse("write", path_, errno);
  }

  void place() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) refuse("replace", target_, errno);
    isPlaced_ = true;
  }

 private:
  const std::string target_;
  std::string path_;
  const int descriptor_;
  bool isPlaced_ = false;
};

void synchroniseFolderOf(const std::string& path) {
  const std::string folder = path.substr(0, path.find_last_of('/') + 1);
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) refuse("open", folder, errno);
  const int result = ::fsync(descriptor);
  const int error = errno;
  ::close(descriptor);
  // Some network file systems have no such operation for folders.
  if (result != 0 && error != EINVAL && error != ENOTSUP) refuse("synchronise", folder, error);
}

}  // namespace

void replaceFileDurably(const std::string& path, std::string_view bytes) {
  const std::string target = withoutLinks(path);
  TemporaryFile file(target);
  file.copyOwnerAndPermissions();
  file.write(bytes);
  file.place();
  synchroniseFolderOf(target);
}

}  // namespace kv
