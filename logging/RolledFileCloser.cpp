#include "logging/RolledFileCloser.h"

#include <utility>

namespace kv {

void RolledFileCloser::close(std::unique_ptr<FileHandle> file) {
  if (queue_ == nullptr) queue_ = std::make_shared<SerialQueue>("kelvara.logging.rolledFile");
  queue_->async([this, file = std::shared_ptr<FileHandle>(std::move(file))]() mutable {
    try {
      file->synchronize();
    } catch (...) {
      failure_ = std::current_exception();
    }
    file.reset();
  });
}

void RolledFileCloser::finish() {
  if (queue_ == nullptr) return;
  queue_->sync([] {});
  if (const auto failure = std::exchange(failure_, nullptr)) std::rethrow_exception(failure);
}

}  // namespace kv
