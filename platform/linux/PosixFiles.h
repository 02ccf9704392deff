#pragma once

#include "platform/Files.h"

namespace kv {

/// Files by POSIX calls. Every descriptor is closed on exec. Threads: any.
class PosixFiles final : public Files {
 public:
  std::optional<std::string> read(const std::string& path, std::size_t limitBytes) override;
  std::unique_ptr<FileHandle> openOwnForWriting(const std::string& path) override;
  bool createEmpty(const std::string& path) override;
};

}  // namespace kv
