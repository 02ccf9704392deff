#pragma once

#include <fmt/format.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/PlatformError.h"
#include "tests/support/ForwardingFiles.h"

namespace kv::test {

/// Files of a single handle, whose writes fail when the test says so, after some bytes.
class FaultyFiles final : public ForwardingFiles {
 public:
  std::unique_ptr<FileHandle> openForAppending(Path path) override {
    auto handle = real_.openForAppending(path);
    if (handle == nullptr) return nullptr;
    return std::make_unique<Handle>(*this, std::move(handle));
  }

  /// Of the write of this number, counted from 1, the bytes that still get into the file; nothing
  /// for a write that succeeds.
  std::function<std::optional<std::size_t>(int)> failAfter = [](int) { return std::nullopt; };
  /// Called with the number of the file that goes to the disk, counted from 1.
  std::function<void(int)> onSynchronize = [](int) {};
  int writes = 0;
  int synchronizations = 0;

 private:
  class Handle final : public ForwardingFileHandle {
   public:
    Handle(FaultyFiles& files, std::unique_ptr<FileHandle> real)
        : ForwardingFileHandle(std::move(real)), files_(files) {}
    void write(std::string_view bytes) override {
      const auto failure = files_.failAfter(++files_.writes);
      real_->write(bytes.substr(0, failure.value_or(bytes.size())));
      if (failure) throw PlatformError(fmt::format("write {} failed", files_.writes));
    }
    void synchronize() override { files_.onSynchronize(++files_.synchronizations); }

   private:
    FaultyFiles& files_;
  };
};

}  // namespace kv::test
