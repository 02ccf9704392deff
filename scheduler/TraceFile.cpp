#include "scheduler/TraceFile.h"

#include <utility>

#include "platform/PlatformError.h"

namespace kv {

TraceFile::TraceFile(std::shared_ptr<Files> files, std::string path)
    : files_(std::move(files)), path_(std::move(path)) {}

std::unique_ptr<FileHandle> TraceFile::open() {
  if (auto handle = files_->openOwnForWriting(path_)) return handle;
  // Whether the file could be made shows in the second attempt.
  files_->createEmpty(path_);
  return files_->openOwnForWriting(path_);
}

bool TraceFile::append(std::string_view text) {
  const auto handle = open();
  if (!handle) return false;
  try {
    handle->seekToEnd();
    handle->write(text);
  } catch (const PlatformError&) {
    return false;
  }
  return true;
}

}  // namespace kv
