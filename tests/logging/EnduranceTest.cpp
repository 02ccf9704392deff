#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "tests/support/NumberedLines.h"
#include "tests/support/NumberingManager.h"
#include "tests/support/RecordingSystemLog.h"

namespace kv::test {
namespace {

constexpr std::string_view kProducers = "abcdefgh";
constexpr std::uint64_t kRollingSize = 1024 * 1024;

/// KV_ENDURANCE_LINES, or as many as take some seconds.
std::uint64_t linesInAll() {
  const char* const wanted = std::getenv("KV_ENDURANCE_LINES");
  if (wanted != nullptr) return std::strtoull(wanted, nullptr, 10);
  return kIsSanitized ? 300'000 : 10'000'000;
}

std::optional<int> numberOf(const std::filesystem::path& path) {
  int number = 0;
  const std::string name = path.filename();
  constexpr std::string_view kPrefix = "Sample ";
  if (!name.starts_with(kPrefix)) return std::nullopt;
  std::from_chars(name.data() + kPrefix.size(), name.data() + name.size(), number);
  return number;
}

using Files = std::map<int, std::filesystem::path>;

Files filesIn(const std::filesystem::path& folder) {
  Files files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (const auto number = numberOf(entry.path())) files.emplace(*number, entry.path());
  }
  return files;
}

/// A folder on the disk of the build, which is removed with its object.
class BuildFolder {
 public:
  BuildFolder() {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(logs);
    std::filesystem::create_directories(away);
  }
  ~BuildFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  BuildFolder(const BuildFolder&) = delete;
  BuildFolder& operator=(const BuildFolder&) = delete;

 private:
  const std::filesystem::path path_ = KV_ENDURANCE_FOLDER;

 public:
  const std::filesystem::path logs = path_ / "logs";
  const std::filesystem::path away = path_ / "away";
};

/// Takes the file that is being written away from the logger again and again: moves it, or gives
/// it another name elsewhere and deletes the first. Every third file is left alone.
class Thief {
 public:
  explicit Thief(const BuildFolder& folder) : folder_(folder), thread_([this] { work(); }) {}
  /// The number of the files taken.
  int stop() {
    isStopped_ = true;
    thread_.join();
    return taken_;
  }

 private:
  void work() {
    int last = 0;
    while (!isStopped_) {
      std::this_thread::yield();
      const Files files = filesIn(folder_.logs);
      if (files.empty() || files.rbegin()->first <= last) continue;
      const auto& [number, path] = *files.rbegin();
      last = number;
      if (number % 3 != 0) take(number, path);
    }
  }

  void take(int number, const std::filesystem::path& path) {
    // Some go as soon as they are made, perhaps before they are opened; the others grow first.
    const bool isAtOnce = number % 8 == 1;
    std::error_code error;
    const auto size = std::uniform_int_distribution<std::uint64_t>(1, kRollingSize)(random_);
    while (!isAtOnce && !isStopped_ && std::filesystem::file_size(path, error) < size) {
      std::this_thread::yield();
    }
    const auto target = folder_.away / path.filename();
    if (number % 2 == 0) {
      std::filesystem::rename(path, target, error);
    } else {
      std::filesystem::create_hard_link(path, target, error);
      if (!error) std::filesystem::remove(path, error);
    }
    if (!error) ++taken_;
  }

  const BuildFolder& folder_;
  std::minstd_rand random_{7};
  int taken_ = 0;
  std::atomic<bool> isStopped_{false};
  std::thread thread_;
};

TEST(Endurance, EveryLineIsInOneFileThoughFilesAreTakenAway) {
  const BuildFolder folder;
  const auto progress = std::make_unique<Progress>();
  const std::uint64_t linesEach = linesInAll() / kProducers.size();
  DDFileLogger::Environment environment;
  // A file that was taken away cannot be marked archived, which is reported each time.
  environment.systemLog = std::make_shared<RecordingSystemLog>();
  DDLogFileManagerDefault::Environment managers;
  managers.systemLog = environment.systemLog;
  const auto manager = std::make_shared<NumberingManager>(folder.logs, managers);
  const auto logger = std::make_shared<DDFileLogger>(manager, environment);
  logger->setLogFormatter(nullptr);
  logger->setMaximumFileSize(kRollingSize);
  DDLog::addLogger(logger);
  Thief thief(folder);

  std::vector<std::thread> threads;
  for (const char producer : kProducers) {
    threads.emplace_back([&progress, producer, linesEach] {
      for (std::uint64_t line = 0; line < linesEach; ++line) sayNext(*progress, producer);
    });
  }
  for (auto& thread : threads) thread.join();
  DDLog::flushLog();
  const int taken = thief.stop();
  DDLog::removeAllLoggers();
  DDLog::flushLog();
  logger->loggerQueue()->sync([] {});

  Files files = filesIn(folder.away);
  for (auto& [number, path] : filesIn(folder.logs)) {
    EXPECT_TRUE(files.emplace(number, path).second) << path << " has two places";
  }
  NumberedLines lines;
  for (const auto& [number, path] : files) lines.read(path);
  EXPECT_EQ(lines.fault(), "");
  EXPECT_EQ(lines.unfinished(), "");
  for (const char producer : kProducers) {
    EXPECT_EQ(lines.count(producer), linesEach) << producer;
    EXPECT_EQ(lines.gaps(producer), 0u) << producer;
  }
  EXPECT_EQ(logger->lostLines(), 0u);
  EXPECT_GT(taken, kIsSanitized ? 3 : 20);
  RecordProperty("files", static_cast<int>(files.size()));
  RecordProperty("taken", taken);
}

}  // namespace
}  // namespace kv::test
