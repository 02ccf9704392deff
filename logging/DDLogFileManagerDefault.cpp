#include "logging/DDLogFileManagerDefault.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "logging/LogPath.h"
#include "platform/NumericDateFormat.h"

namespace kv {
namespace {

constexpr std::string_view kBackupApplication = "com.kelvara.Kelvara";
constexpr std::string_view kAgent = "com.kelvara.KVScheduler";
constexpr std::string_view kExtension = ".log";
constexpr std::string_view kDateFormat = "yyyy-MM-dd HH-mm";
/// A blank and a date as kDateFormat renders it.
constexpr std::size_t kShortestMiddle = 17;

std::vector<std::string_view> splitAtBlanks(std::string_view text) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const auto blank = text.find(' ');
    pieces.push_back(text.substr(0, blank));
    if (blank == std::string_view::npos) return pieces;
    text.remove_prefix(blank + 1);
  }
}

/// The first record that the limits do not let live, records being sorted with the newest first;
/// their number when all may stay.
std::size_t firstToDelete(const std::vector<std::shared_ptr<DDLogFileInfo>>& infos,
                          std::uint64_t quotaBytes, std::uint64_t mostFiles) {
  std::size_t first = infos.size();
  std::uint64_t totalBytes = 0;
  for (std::size_t index = 0; quotaBytes != 0 && index < infos.size(); ++index) {
    totalBytes += infos[index]->fileSize();
    if (totalBytes > quotaBytes) {
      first = index;
      break;
    }
  }
  if (mostFiles != 0) first = static_cast<std::size_t>(std::min<std::uint64_t>(first, mostFiles));
  // Somebody is writing to the newest file as long as it is not archived.
  const bool sparesNewest = first == 0 && !infos.empty() && !infos.front()->isArchived();
  return sparesNewest ? 1 : first;
}

/// One per thread. What runs at the exit of the process may roll a file when this thread's objects
/// have gone: it gets a formatter that is never destroyed.
struct ThreadsFormatter {
  ~ThreadsFormatter();
  std::unique_ptr<const DateFormat> formatter;
};
constinit thread_local const DateFormat* tFormatter = nullptr;
constinit thread_local bool tHasEnded = false;

ThreadsFormatter::~ThreadsFormatter() {
  tFormatter = nullptr;
  tHasEnded = true;
}

}  // namespace

DDLogFileManagerDefault::DDLogFileManagerDefault(std::optional<std::string> logsDirectory)
    : DDLogFileManagerDefault(std::move(logsDirectory), Environment()) {}

DDLogFileManagerDefault::DDLogFileManagerDefault(std::optional<std::string> logsDirectory,
                                                 Environment environment)
    : environment_(std::move(environment)),
      logsDirectory_(logsDirectory ? *std::move(logsDirectory) : defaultLogsDirectory()) {}

void DDLogFileManagerDefault::setMaximumNumberOfLogFiles(std::uint64_t number) {
  change(maximumNumberOfLogFiles_, number);
}

void DDLogFileManagerDefault::setLogFilesDiskQuota(std::uint64_t sizeBytes) {
  change(logFilesDiskQuota_, sizeBytes);
}

void DDLogFileManagerDefault::change(std::atomic<std::uint64_t>& limit, std::uint64_t value) {
  if (limit.exchange(value) == value) return;
  if (auto self = weak_from_this().lock()) {
    environment_.loggingQueue->async([self = std::move(self)] { self->deleteOldLogFiles(); });
  }
}

std::string DDLogFileManagerDefault::defaultLogsDirectory() const {
  const auto& base = environment_.userLibraryFolder.empty() ? environment_.temporaryFolder
                                                            : environment_.userLibraryFolder;
  return joinedPath(joinedPath(base, "Logs"), environment_.processFacts.name);
}

std::string DDLogFileManagerDefault::logsDirectory() {
  Files& files = *environment_.files;
  if (!files.exists(logsDirectory_)) {
    const auto made = files.createFolders(logsDirectory_);
    if (!made.isDone()) {
      environment_.systemLog->write(
          fmt::format("DDFileLogManagerDefault: Error creating logsDirectory: {}", made.reason));
    }
  }
  return logsDirectory_;
}

const std::string& DDLogFileManagerDefault::applicationName() const {
  return environment_.applicationName->settledFrom(environment_.processFacts);
}

const DateFormat& DDLogFileManagerDefault::logFileDateFormatter() {
  if (tFormatter != nullptr) return *tFormatter;
  auto* made = new NumericDateFormat(kDateFormat, DateZone::kUtc);
  if (!tHasEnded) {
    thread_local ThreadsFormatter threads;
    threads.formatter.reset(made);
  }
  tFormatter = made;
  // The analyser takes the thread's object for one of this call.
  return *made;  // NOLINT(clang-analyzer-cplusplus.NewDelete)
}

std::string DDLogFileManagerDefault::newLogFileName() {
  const auto& name = applicationName();
  if (name == kBackupApplication) return "kelvara.log";
  if (name == kAgent) return "KVScheduler.txt";
  const auto date = logFileDateFormatter().string(environment_.clock->now());
  return name + " " + date.value_or("") + std::string(kExtension);
}

bool DDLogFileManagerDefault::isLogFile(std::string_view fileName) {
  const auto& name = applicationName();
  if (!fileName.starts_with(name) || !fileName.ends_with(kExtension)) return false;
  if (fileName.size() < name.size() + kShortestMiddle + kExtension.size()) return false;
  fileName.remove_prefix(name.size());
  fileName.remove_suffix(kExtension.size());
  const auto pieces = splitAtBlanks(fileName);
  if (pieces.size() != 3 && pieces.size() != 4) return false;
  return logFileDateFormatter().date(fmt::format("{} {}", pieces[1], pieces[2])).has_value();
}

std::string DDLogFileManagerDefault::createNewLogFile() {
  const std::string name = newLogFileName();
  std::string path = joinedPath(logsDirectory(), name);
  if (!environment_.files->exists(path)) environment_.files->createEmpty(path);
  return path;
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFilePaths() {
  const std::string folder = logsDirectory();
  std::vector<std::string> paths;
  for (const auto& name : environment_.files->list(folder)) {
    if (isLogFile(name)) paths.push_back(joinedPath(folder, name));
  }
  return paths;
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFileNames() {
  auto names = unsortedLogFilePaths();
  for (auto& name : names) name = std::string(lastPathComponent(name));
  return names;
}

std::vector<std::shared_ptr<DDLogFileInfo>> DDLogFileManagerDefault::unsortedLogFileInfos() {
  const DDLogFileInfo::Environment world{environment_.files, environment_.clock,
                                         environment_.systemLog};
  std::vector<std::shared_ptr<DDLogFileInfo>> infos;
  for (auto& path : unsortedLogFilePaths()) {
    infos.push_back(std::make_shared<DDLogFileInfo>(std::move(path), world));
  }
  return infos;
}

std::vector<std::shared_ptr<DDLogFileInfo>> DDLogFileManagerDefault::sortedLogFileInfos() {
  auto infos = unsortedLogFileInfos();
  std::sort(infos.begin(), infos.end(), [](const auto& one, const auto& other) {
    return one->reverseCompareByCreationDate(*other) < 0;
  });
  return infos;
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFilePaths() {
  std::vector<std::string> paths;
  for (const auto& info : sortedLogFileInfos()) paths.push_back(info->filePath());
  return paths;
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFileNames() {
  std::vector<std::string> names;
  for (const auto& info : sortedLogFileInfos()) names.push_back(info->fileName());
  return names;
}

void DDLogFileManagerDefault::deleteOldLogFiles() {
  const auto infos = sortedLogFileInfos();
  for (auto index = firstToDelete(infos, logFilesDiskQuota_, maximumNumberOfLogFiles_);
       index < infos.size(); ++index) {
    environment_.files->remove(infos[index]->filePath());
  }
}

}  // namespace kv
