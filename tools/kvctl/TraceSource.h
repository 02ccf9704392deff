#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/Descriptor.h"

namespace kv::kvctl {

/// The trace file as it stands in a folder that everybody may write to: opened for reading only,
/// never blocking, and never through a link. Another user's file is only read, so it is shown, but
/// remarks() says whose it is.
///
/// Closed ──open()──► Open ──close()──► Closed
///
/// Threads    any, one at a time.
/// Errors     read() throws Refusal when the system cannot read on.
class TraceSource {
 public:
  explicit TraceSource(std::string path) : path_(std::move(path)) {}

  /// Opens what stands at the path now. Nothing when that went well, else why not, as a line.
  std::optional<std::string> open();
  void close() { file_.reset(); }
  bool isOpen() const { return file_.has_value(); }
  int descriptor() const { return file_->number(); }

  /// What is odd about the open file.
  std::vector<std::string> remarks() const;
  /// Nothing stands at the path.
  bool isMissing() const;
  /// The path leads to another file than the open one, or to none.
  bool isReplaced() const;
  /// The open file is shorter than what has been read of it.
  bool isCutShort() const;

  /// The next bytes, valid until the next call; empty when there are none for now.
  std::string_view read();
  void moveTo(off_t offset) { offset_ = offset; }
  /// Where the next bytes come from.
  off_t offset() const { return offset_; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::optional<Descriptor> file_;
  off_t offset_ = 0;
  std::string buffer_;
};

}  // namespace kv::kvctl
