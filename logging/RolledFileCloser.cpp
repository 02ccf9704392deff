#include "logging/RolledFileCloser.h"

#include <utility>

namespace kv {

void RolledFileCloser::close(std::unique_ptr<FileHandle> file) {
  if (queue_ == nullptr) queue_ = std::make_shared<SerialQueue>("kelvara.logging.rolledFile");
  ++taken_;
  queue_->async([this, file = std::shared_ptr<FileHandle>(std::move(file))]() mutable {
    try {
      file->synchronize();
    } catch (...) {
      failures_.push_back(std::current_exception());
    }
    file.reset();
  });
}

std::vector<std::exception_ptr> RolledFileCloser::finish() {
  if (queue_ == nullptr) return {};
  queue_->sync([] {});
  taken_ = 0;
  return std::exchange(failures_, {});
}

}  // namespace kv
