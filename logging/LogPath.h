#pragma once

#include <string>
#include <string_view>

namespace kv {

/// Texts of paths; nothing here looks at the file system.

/// What stands behind the last slash, slashes at the end left out; "/" for the root.
inline std::string_view lastPathComponent(std::string_view path) {
  const auto end = path.find_last_not_of('/');
  if (end == std::string_view::npos) return path.substr(0, 1);
  path = path.substr(0, end + 1);
  return path.substr(path.rfind('/') + 1);
}

/// What stands before the last component; empty for a bare name.
inline std::string_view folderOfPath(std::string_view path) {
  path = path.substr(0, path.find_last_not_of('/') + 1);
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  const auto end = path.find_last_not_of('/', slash);
  return path.substr(0, end == std::string_view::npos ? 1 : end + 1);
}

/// `name` within `folder`.
inline std::string joinedPath(std::string_view folder, std::string_view name) {
  std::string path(folder);
  if (!path.empty() && path.back() != '/') path += '/';
  return path.append(name);
}

}  // namespace kv
