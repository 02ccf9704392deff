#pragma once

#include "platform/Files.h"

namespace kv {

/// Files by POSIX calls and Linux's extended attributes, which a program's own names reach in the
/// "user." namespace. Every descriptor is closed on exec. Threads: any.
class PosixFiles final : public Files {
 public:
  std::optional<std::string> read(const std::string& path, std::size_t limitBytes) override;
  std::unique_ptr<FileHandle> openOwnForWriting(const std::string& path) override;
  std::unique_ptr<FileHandle> openForAppending(const std::string& path) override;
  bool createEmpty(const std::string& path) override;
  bool exists(const std::string& path) override;
  std::optional<FileAttributes> attributes(const std::string& path) override;
  std::vector<std::string> list(const std::string& folder) override;
  FileResult createFolders(const std::string& path) override;
  FileResult remove(const std::string& path) override;
  FileResult move(const std::string& from, const std::string& to) override;
  FileResult findExtendedAttribute(const std::string& path, const std::string& name) override;
  FileResult addExtendedAttribute(const std::string& path, const std::string& name) override;
  FileResult removeExtendedAttribute(const std::string& path, const std::string& name) override;
};

}  // namespace kv
