#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/Files.h"

namespace kv {

/// The plain-text file that the scheduler's decisions are appended to.
///
/// Threads    main thread only; other processes may append in between.
/// Ownership  no descriptor is kept between calls. The file is never truncated or deleted.
/// Errors     a failed append loses its text and returns false; nothing is reported.
class TraceFile {
 public:
  TraceFile(std::shared_ptr<Files> files, std::string path);

  /// Appends the UTF-8 text as it stands, making the file first when it is missing.
  bool append(std::string_view text);

 private:
  std::unique_ptr<FileHandle> open();

  std::shared_ptr<Files> files_;
  std::string path_;
};

}  // namespace kv
