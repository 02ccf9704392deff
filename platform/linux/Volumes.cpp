#include "platform/linux/Volumes.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

namespace kv {
namespace {

namespace fs = std::filesystem;

/// Folders that exist to have volumes mounted in or on them.
constexpr std::array<std::string_view, 4> kRemovableRoots = {"/media", "/run/media", "/mnt",
                                                             "/Volumes"};

/// True when `path` is `folder` or lies below it.
bool isWithin(std::string_view path, std::string_view folder) {
  if (folder == "/") return !path.empty() && path.front() == '/';
  return path.substr(0, folder.size()) == folder &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

bool isOctal(char character) {
  return character >= '0' && character <= '7';
}

/// Both tables write blanks, tabs, line feeds and backslashes as a backslash and three octal
/// digits.
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
        isOctal(field[i + 2]) && isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

std::vector<std::string> fieldsOf(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> fields;
  for (std::string field; stream >> field;) fields.push_back(field);
  return fields;
}

/// The mount points of a table of the form of /proc/self/mountinfo. An automatic mount point that
/// nobody has entered yet is no volume.
std::vector<std::string> mountedPaths(std::istream& table) {
  std::vector<std::string> paths;
  for (std::string line; std::getline(table, line);) {
    const std::vector<std::string> fields = fieldsOf(line);
    const auto separator = std::find(fields.begin(), fields.end(), "-");
    if (fields.size() < 5 || separator == fields.end() || separator + 1 == fields.end()) continue;
    if (*(separator + 1) != "autofs") paths.push_back(unescaped(fields[4]));
  }
  return paths;
}

/// The mount points of a table of the form of /etc/fstab.
std::vector<std::string> configuredPaths(std::istream& table) {
  std::vector<std::string> paths;
  for (std::string line; std::getline(table, line);) {
    const std::vector<std::string> fields = fieldsOf(line);
    // Swap space names no folder.
    if (fields.size() < 3 || fields[0].front() == '#' || fields[1].front() != '/') continue;
    paths.push_back(unescaped(fields[1]));
  }
  return paths;
}

std::string longestHolding(const std::string& path, const std::vector<std::string>& folders) {
  std::string longest = "/";
  for (const std::string& folder : folders) {
    if (folder.size() > longest.size() && isWithin(path, folder)) longest = folder;
  }
  return longest;
}

bool isMounted(const std::string& path, const MountTable& table) {
  const std::string volume = mountPointOf(path, table);
  for (const std::string_view root : kRemovableRoots) {
    if (isWithin(path, root) && !isWithin(volume, root)) return false;
  }
  return isWithin(volume, longestHolding(path, table.configured));
}

}  // namespace

MountTable MountTable::read() {
  std::ifstream mounted("/proc/self/mountinfo");
  std::ifstream configured("/etc/fstab");
  return {mountedPaths(mounted), configuredPaths(configured)};
}

std::string mountPointOf(const std::string& path, const MountTable& table) {
  return longestHolding(path, table.mounted);
}

DestinationState destinationState(const std::string& path, const MountTable& table) {
  std::error_code error;
  const fs::path resolved = fs::canonical(path, error);
  if (error) return DestinationState::kMissing;
  if (!fs::is_directory(resolved, error)) return DestinationState::kNotAFolder;
  return isMounted(resolved.string(), table) ? DestinationState::kPresent
                                             : DestinationState::kNotMounted;
}

}  // namespace kv
