#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

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
  /// through a symbolic link at its end. Null otherwise.
  virtual std::unique_ptr<FileHandle> openOwnForWriting(const std::string& path) = 0;

  /// Makes an empty file with the default permissions. False when anything stands at `path`
  /// already (a dangling link too) or it cannot be made.
  virtual bool createEmpty(const std::string& path) = 0;
};

}  // namespace kv
