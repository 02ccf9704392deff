#pragma once

#include <string>
#include <vector>

namespace kv {

/// Which folders a run mirrors where.
///
/// Each source has a folder of its own below DESTINATION/NAME: under its last name, or under its
/// whole path when several sources have the same one, so that they stay apart.
///
/// Errors     Refusal, with the status of the rule that is broken.
struct CopyPlan {
  struct Step {
    std::string source;
    std::string target;
  };

  /// DESTINATION/NAME
  std::string folder;
  std::vector<Step> steps;

  /// Checks that all folders are there, on their volumes and apart, and makes the target folders,
  /// none of which may be reached through a link.
  static CopyPlan make(const std::string& name, const std::vector<std::string>& sources,
                       const std::string& destination);

  /// The rules that need no volume: no source twice or inside another, destination and sources not
  /// in one another, links resolved as far as the folders are there.
  static void checkApart(const std::vector<std::string>& sources, const std::string& destination);

  /// The absolute path of a folder that a user named, without a slash at its end. Throws Refusal
  /// (kUsage) for what a document cannot hold.
  static std::string absolutePath(const std::string& path);
};

}  // namespace kv
