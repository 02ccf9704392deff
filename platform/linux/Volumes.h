#pragma once

#include <string>
#include <vector>

namespace kv {

/// The mount table of this process and of the boot configuration, as lists of absolute paths.
struct MountTable {
  /// What is mounted now; automatic mount points that nobody has entered yet are left out.
  std::vector<std::string> mounted;
  /// What /etc/fstab mounts on demand or at boot.
  std::vector<std::string> configured;

  /// Reads /proc/self/mountinfo and /etc/fstab; what cannot be read contributes nothing.
  static MountTable read();
};

/// The mount point that holds the absolute path `path`: the longest one that is a prefix of it by
/// whole components; "/" when there is no other.
std::string mountPointOf(const std::string& path, const MountTable& table);

/// Why a backup destination cannot be used, or that it can.
enum class DestinationState {
  kPresent,
  kMissing,     ///< nothing there
  kNotAFolder,  ///< something else than a folder is there
  kNotMounted,  ///< the folder is there, but the volume that belongs at it is not mounted
};

/// Judges the folder at the absolute path `path`, links resolved. A path below a folder for
/// removable volumes (/media, /run/media, /mnt, /Volumes) counts only while a volume is mounted at
/// that folder or between it and the path; a path below a mount point of /etc/fstab counts only
/// while that one is mounted.
DestinationState destinationState(const std::string& path, const MountTable& table);

}  // namespace kv
