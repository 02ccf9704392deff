#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Files.h"

namespace kv {

/// The folder that makes the program an agent for somebody: Info.plist, Scripts/*.js, images.
///
/// Threads    a plain value.
/// Errors     load() throws StartupError.
struct Bundle {
  struct Script {
    /// Absolute, for messages.
    std::string path;
    /// UTF-8, without a byte order mark.
    std::string text;
  };

  /// Absolute path of the folder, without a slash at its end.
  std::string path;
  /// CFBundleIdentifier of Info.plist; absent when the file or the key is missing.
  std::optional<std::string> identifier;
  /// The host scripts in the byte order of their names; at least one.
  std::vector<Script> scripts;

  /// Whose work a bundle may be. That of the installation is as good as the program beside it; in
  /// any other place what runs with the user's rights must be the user's, or root's, to change.
  enum class Origin { kInstalled, kElsewhere };

  /// Reads the bundle in the folder at `path`. A missing Info.plist is no error; one that is no
  /// dictionary is, and so is a folder without scripts.
  static Bundle load(Files& files, const std::string& path, Origin origin);
};

}  // namespace kv
