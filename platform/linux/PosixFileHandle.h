#pragma once

#include "platform/Files.h"
#include "platform/linux/Descriptor.h"

namespace kv {

/// A file that is open for writing.
///
/// Threads    one at a time.
/// Errors     as for FileHandle. What has no place to move to (a FIFO) refuses seekToEnd().
class PosixFileHandle final : public FileHandle {
 public:
  explicit PosixFileHandle(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

  void seekToEnd() override;
  void write(std::string_view bytes) override;
  std::uint64_t offset() const override { return offset_; }
  bool cutBackTo(std::uint64_t sizeBytes) override;
  /// What keeps nothing on a disk (a device, a FIFO) has nothing to wait for.
  void synchronize() override;
  int descriptor() const override { return descriptor_.number(); }

 private:
  long writeSome(std::string_view bytes);

  Descriptor descriptor_;
  std::uint64_t offset_ = 0;
  /// False for what has no places: a FIFO, a terminal.
  bool hasPlaces_ = true;
};

}  // namespace kv
