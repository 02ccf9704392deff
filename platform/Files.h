#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Date.h"

namespace kv {

/// A file that is open for writing.
///
/// Threads    one at a time.
/// Ownership  closes its descriptor when it dies.
/// Errors     every step that the system refuses throws PlatformError.
class FileHandle {
 public:
  virtual ~FileHandle() = default;
  virtual void seekToEnd() = 0;
  /// Writes all bytes or throws; what was written before the failure stays in the file.
  virtual void write(std::string_view bytes) = 0;
  /// Where the next byte goes, as far as this handle has moved and written; in bytes from the
  /// beginning. Asks nothing of the system.
  virtual std::uint64_t offset() const = 0;
  /// Cuts the file back to `sizeBytes` and moves there, unless it has grown beyond `offset()` by
  /// somebody else's writes. False when it was left as it is.
  virtual bool cutBackTo(std::uint64_t sizeBytes) = 0;
  /// Returns when what was written is on the disk.
  virtual void synchronize() = 0;
  /// The descriptor, for a watch; owned by the handle. -1 for a handle that has none.
  virtual int descriptor() const = 0;
};

/// What the file system knows of a file.
struct FileAttributes {
  enum class Type { kRegular, kFolder, kLink, kOther };
  Type type = Type::kOther;
  std::uint64_t sizeBytes = 0;
  /// The earliest of the other times where the file system keeps none.
  Date creationDate;
  Date modificationDate;
  std::uint32_t permissions = 0;
  std::uint32_t owner = 0;
  std::uint64_t inode = 0;
  std::uint64_t links = 0;
};

/// How a step on the file system ended: well, because there was nothing to act on, or refused for
/// a reason that is text for a log.
struct FileResult {
  enum class Kind { kDone, kAbsent, kRefused };
  Kind kind = Kind::kDone;
  std::string reason;
  bool isDone() const { return kind == Kind::kDone; }
};

/// The file system, as far as the program's own files are concerned.
///
/// Threads    any.
/// Errors     absence and refusal are results here, not exceptions.
class Files {
 public:
  virtual ~Files() = default;

  /// The whole content of a regular file of at most `limitBytes`, as it stood at one moment: a
  /// file that is changed in place while it is read is read again, and given up when it does not
  /// hold still. Links are followed. Anything else (a folder, a FIFO, a device, a larger file)
  /// yields nothing, at once and without blocking.
  virtual std::optional<std::string> read(const std::string& path, std::size_t limitBytes) = 0;

  /// Opens an existing file for writing, without truncating it, when it is safe to write to in a
  /// folder that others can write to: a regular file of this user with one name, not reached
  /// through a symbolic link at its end, and still there. Null otherwise; then an empty file may
  /// stand where one was taken away meanwhile.
  virtual std::unique_ptr<FileHandle> openOwnForWriting(const std::string& path) = 0;

  /// Opens an existing file for writing at its end, wherever that is at the moment of each write,
  /// so that several writers never overwrite each other. Links are followed. A folder, a socket, a
  /// FIFO without a reader and what the system refuses yield null, at once and without blocking.
  virtual std::unique_ptr<FileHandle> openForAppending(const std::string& path) = 0;

  /// Makes an empty file with the default permissions. False when anything stands at `path`
  /// already (a dangling link too) or it cannot be made.
  virtual bool createEmpty(const std::string& path) = 0;

  /// True when anything stands at `path`; links are followed.
  virtual bool exists(const std::string& path) = 0;

  /// Links are not followed. Nothing for a path where nothing stands or that cannot be looked at.
  virtual std::optional<FileAttributes> attributes(const std::string& path) = 0;

  /// The names in a folder, "." and ".." left out, in the order in which the system returns them;
  /// nothing for what cannot be listed.
  virtual std::vector<std::string> list(const std::string& folder) = 0;

  /// Makes a folder and those above it.
  virtual FileResult createFolders(const std::string& path) = 0;

  /// Removes a file, or a folder with all that it holds. Links are not followed. A large file's
  /// place on the disk may become free a moment after its name.
  virtual FileResult remove(const std::string& path) = 0;

  /// Moves within a file system. Refused when something stands at `to`.
  virtual FileResult move(const std::string& from, const std::string& to) = 0;

  /// Extended attributes, by names that the program chooses; the system's name for one may differ.
  /// Links are followed. `kAbsent` when the file is there and has no such attribute.
  virtual FileResult findExtendedAttribute(const std::string& path, const std::string& name) = 0;
  /// Adds or replaces it with an empty value.
  virtual FileResult addExtendedAttribute(const std::string& path, const std::string& name) = 0;
  virtual FileResult removeExtendedAttribute(const std::string& path, const std::string& name) = 0;
};

}  // namespace kv
