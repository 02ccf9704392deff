#include "tools/kvbackup/CopyPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "platform/linux/UserPaths.h"
#include "platform/linux/Volumes.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

/// True when `path` is `folder` or lies below it.
bool isWithin(const std::string& path, const std::string& folder) {
  const fs::path inner(path);
  const fs::path outer(folder);
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

/// `path` with the links of those of its folders that are there resolved.
std::string withoutLinks(const std::string& path) {
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(path, error);
  return error ? path : resolved.string();
}

std::string below(const std::string& folder, const std::string& rest) {
  return (folder == "/" ? "" : folder) + "/" + rest;
}

[[noreturn]] void refuse(ExitStatus status, const std::string& reason) {
  throw Refusal(status, reason);
}

DestinationState stateOf(const std::string& path) {
  // Looking at the folder first has a volume that is mounted on demand appear in the table.
  std::error_code error;
  const fs::directory_iterator first(path, error);
  return destinationState(path, MountTable::read());
}

void checkDestination(const std::string& path) {
  const std::string text = shown(path);
  if (path.empty() || path.front() != '/') {
    refuse(ExitStatus::kDestinationMissing, "the set has no destination");
  }
  switch (stateOf(path)) {
    case DestinationState::kPresent:
      return;
    case DestinationState::kMissing:
      refuse(ExitStatus::kDestinationMissing, fmt::format("the destination {} is missing", text));
    case DestinationState::kNotAFolder:
      refuse(ExitStatus::kDestinationMissing,
             fmt::format("the destination {} is not a folder", text));
    case DestinationState::kNotMounted:
      refuse(ExitStatus::kDestinationNotMounted,
             fmt::format("the volume of the destination {} is not mounted", text));
  }
}

/// An empty mount point must not pass for the source: mirroring it would empty the backup.
void checkSource(const std::string& path) {
  if (path.empty() || path.front() != '/') {
    refuse(ExitStatus::kSourceMissing,
           fmt::format("the source \"{}\" is no absolute path", shown(path)));
  }
  const DestinationState state = stateOf(path);
  if (state == DestinationState::kPresent) return;
  refuse(ExitStatus::kSourceMissing,
         fmt::format("the source {} is {}", shown(path),
                     state == DestinationState::kMissing      ? "missing"
                     : state == DestinationState::kNotAFolder ? "not a folder"
                                                              : "not mounted"));
}

void checkSourcesApart(const std::vector<std::string>& sources) {
  for (auto one = sources.begin(); one != sources.end(); ++one) {
    for (auto other = sources.begin(); other != sources.end(); ++other) {
      if (one == other || !isWithin(*other, *one)) continue;
      refuse(ExitStatus::kDestinationOverlaps,
             fmt::format("the source {} lies inside the source {}", shown(*other), shown(*one)));
    }
  }
}

/// Where a source goes below DESTINATION/NAME: under its last name, or under its whole path when
/// another source has that name too (and for "/", which has none).
std::string placeOf(const std::string& source, const std::vector<std::string>& sources) {
  const auto lastName = [](const std::string& path) { return fs::path(path).filename(); };
  const auto sharing = std::count_if(sources.begin(), sources.end(), [&](const auto& other) {
    return lastName(other) == lastName(source);
  });
  return sharing == 1 && lastName(source) != "" ? "/" + lastName(source).string() : source;
}

/// Makes the folder and makes sure that it is where its path says: through a link the deletions
/// of a mirror could reach anything.
void makeTarget(const std::string& target) {
  if (!makeFolders(target)) {
    refuse(ExitStatus::kCopyFailed,
           fmt::format("cannot make {}: {}", shown(target), std::strerror(errno)));
  }
  if (withoutLinks(target) != target) {
    refuse(ExitStatus::kCopyFailed, fmt::format("{} is reached through a link", shown(target)));
  }
}

}  // namespace

CopyPlan CopyPlan::make(const std::string& name, const std::vector<std::string>& sources,
                        const std::string& destination) {
  checkDestination(destination);
  CopyPlan plan;
  plan.folder = below(withoutLinks(destination), name);
  std::vector<std::string> folders;
  for (const std::string& source : sources) {
    checkSource(source);
    folders.push_back(absolutePath(source));
  }
  for (const std::string& folder : folders) {
    plan.steps.push_back({folder, plan.folder + placeOf(folder, folders)});
  }
  checkApart(folders, destination);
  for (const Step& step : plan.steps) makeTarget(step.target);
  return plan;
}

void CopyPlan::checkApart(const std::vector<std::string>& sources, const std::string& destination) {
  checkSourcesApart(sources);
  const std::string target = withoutLinks(destination);
  for (const std::string& source : sources) {
    const std::string origin = withoutLinks(source);
    if (isWithin(target, origin)) {
      refuse(ExitStatus::kDestinationOverlaps,
             fmt::format("the destination {} lies inside the source {}", shown(destination),
                         shown(source)));
    }
    if (isWithin(origin, target)) {
      refuse(ExitStatus::kDestinationOverlaps,
             fmt::format("the source {} lies inside the destination {}", shown(source),
                         shown(destination)));
    }
  }
}

std::string CopyPlan::absolutePath(const std::string& path) {
  if (path.empty()) refuse(ExitStatus::kUsage, "a folder is named by an empty path");
  if (!isPlainText(path)) {
    refuse(ExitStatus::kUsage,
           fmt::format("the path {} holds control characters or is not UTF-8", shown(path)));
  }
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  if (error) refuse(ExitStatus::kUsage, fmt::format("the path {} leads nowhere", shown(path)));
  // ".." after a link is not where the text says, so the file system has to say.
  const bool goesUp = std::find(absolute.begin(), absolute.end(), "..") != absolute.end();
  std::string text =
      goesUp ? withoutLinks(absolute.string()) : absolute.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace kv
