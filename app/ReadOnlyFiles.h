#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Files.h"

namespace kv {

/// The disk as it is, on which nothing can be written.
///
/// Threads    as the files that it stands before; `written` one at a time.
/// Errors     what would change something is refused, except for folders, which nobody misses.
class ReadOnlyFiles final : public Files {
 public:
  explicit ReadOnlyFiles(std::shared_ptr<Files> files) : files_(std::move(files)) {}

  std::optional<std::string> read(const std::string& path, std::size_t limitBytes) override {
    return files_->read(path, limitBytes);
  }
  std::unique_ptr<FileHandle> openOwnForWriting(const std::string&) override {
    return std::make_unique<Handle>(written);
  }
  std::unique_ptr<FileHandle> openForAppending(const std::string&) override { return nullptr; }
  bool createEmpty(const std::string&) override { return false; }
  bool exists(const std::string& path) override { return files_->exists(path); }
  std::optional<FileAttributes> attributes(const std::string& path) override {
    return files_->attributes(path);
  }
  std::vector<std::string> list(const std::string& folder) override { return files_->list(folder); }
  FileResult createFolders(const std::string&) override { return {}; }
  FileResult remove(const std::string&) override { return refused(); }
  FileResult move(const std::string&, const std::string&) override { return refused(); }
  FileResult findExtendedAttribute(const std::string& path, const std::string& name) override {
    return files_->findExtendedAttribute(path, name);
  }
  FileResult addExtendedAttribute(const std::string&, const std::string&) override {
    return refused();
  }
  FileResult removeExtendedAttribute(const std::string&, const std::string&) override {
    return refused();
  }

  /// What was written to files of the program's own, such as the trace.
  std::string written;

 private:
  class Handle final : public FileHandle {
   public:
    explicit Handle(std::string& text) : text_(text) {}
    void seekToEnd() override {}
    void write(std::string_view bytes) override { text_ += bytes; }
    std::uint64_t offset() const override { return text_.size(); }
    bool cutBackTo(std::uint64_t) override { return false; }
    void synchronize() override {}
    int descriptor() const override { return -1; }

   private:
    std::string& text_;
  };

  static FileResult refused() {
    return {.kind = FileResult::Kind::kRefused, .reason = "this is a rehearsal"};
  }

  const std::shared_ptr<Files> files_;
};

}  // namespace kv
