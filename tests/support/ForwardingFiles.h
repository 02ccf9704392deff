#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/linux/PosixFiles.h"

namespace kv::test {

/// A real handle, for tests that change one step of it.
class ForwardingFileHandle : public FileHandle {
 public:
  explicit ForwardingFileHandle(std::unique_ptr<FileHandle> real) : real_(std::move(real)) {}
  void seekToEnd() override { real_->seekToEnd(); }
  void write(std::string_view bytes) override { real_->write(bytes); }
  std::uint64_t offset() const override { return real_->offset(); }
  bool cutBackTo(std::uint64_t sizeBytes) override { return real_->cutBackTo(sizeBytes); }
  void synchronize() override { real_->synchronize(); }
  int descriptor() const override { return real_->descriptor(); }

 protected:
  const std::unique_ptr<FileHandle> real_;
};

/// Real files, for tests that change one step.
class ForwardingFiles : public Files {
 public:
  using Path = const std::string&;
  std::optional<std::string> read(Path path, std::size_t limitBytes) override {
    return real_.read(path, limitBytes);
  }
  std::unique_ptr<FileHandle> openOwnForWriting(Path path) override {
    return real_.openOwnForWriting(path);
  }
  std::unique_ptr<FileHandle> openForAppending(Path path) override {
    return real_.openForAppending(path);
  }
  bool createEmpty(Path path) override { return real_.createEmpty(path); }
  bool exists(Path path) override { return real_.exists(path); }
  std::optional<FileAttributes> attributes(Path path) override { return real_.attributes(path); }
  std::vector<std::string> list(Path folder) override { return real_.list(folder); }
  FileResult createFolders(Path path) override { return real_.createFolders(path); }
  FileResult remove(Path path) override { return real_.remove(path); }
  FileResult move(Path from, Path to) override { return real_.move(from, to); }
  FileResult findExtendedAttribute(Path path, const std::string& name) override {
    return real_.findExtendedAttribute(path, name);
  }
  FileResult addExtendedAttribute(Path path, const std::string& name) override {
    return real_.addExtendedAttribute(path, name);
  }
  FileResult removeExtendedAttribute(Path path, const std::string& name) override {
    return real_.removeExtendedAttribute(path, name);
  }

 protected:
  PosixFiles real_;
};

}  // namespace kv::test
