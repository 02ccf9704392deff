#include "logging/DDLogFileManagerDefault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <future>
#include <thread>

#include "tests/support/Fakes.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using ::testing::UnorderedElementsAre;

constexpr double kMay = 1714568820;  // 2024-05-01 13:07:00 UTC

/// Real files that were made in the minute that their names tell.
class FilesDatedByName final : public ForwardingFiles {
 public:
  explicit FilesDatedByName(std::shared_ptr<SerialQueue> queue) : queue_(std::move(queue)) {}
  std::optional<FileAttributes> attributes(Path path) override {
    auto facts = real_.attributes(path);
    constexpr std::size_t kStampAndExtension = 20;
    const auto stamp = path.substr(path.size() - kStampAndExtension, 16);
    const auto date = DDLogFileManagerDefault::logFileDateFormatter().date(stamp);
    if (facts && date) facts->creationDate = *date;
    return facts;
  }
  FileResult remove(Path path) override {
    removedElsewhere = removedElsewhere || !queue_->isCurrent();
    return real_.remove(path);
  }
  bool removedElsewhere = false;

 private:
  const std::shared_ptr<SerialQueue> queue_;
};

class DDLogFileManagerDefaultTest : public ::testing::Test {
 protected:
  using Manager = DDLogFileManagerDefault;

  Manager::Environment application(std::optional<std::string> bundle, std::string process) {
    return {.files = files,
            .clock = clock,
            .systemLog = systemLog,
            .processFacts = {.name = std::move(process), .bundleIdentifier = std::move(bundle)},
            .applicationName = std::make_shared<ApplicationName>(),
            .loggingQueue = queue,
            .userLibraryFolder = folder / "Library",
            .temporaryFolder = folder / "tmp"};
  }
  std::shared_ptr<Manager> sample() {
    return std::make_shared<Manager>(folder / "logs", application(std::nullopt, "Sample"));
  }

  static std::string nameOf(int minute) {
    return "Sample 2024-05-01 13-0" + std::to_string(minute) + ".log";
  }
  std::string pathOf(int minute) { return folder / ("logs/" + nameOf(minute)); }
  void makeFiles(const std::vector<std::size_t>& sizesNewestFirst) {
    int minute = 9;
    for (const auto size : sizesNewestFirst) writeFile(pathOf(minute--), std::string(size, 'x'));
  }
  std::vector<std::string> filesLeft() {
    queue->sync([] {});
    return files->list(folder / "logs");
  }

  TemporaryFolder folder;
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("logging");
  std::shared_ptr<FilesDatedByName> files = std::make_shared<FilesDatedByName>(queue);
  std::shared_ptr<FakeClock> clock = [] {
    auto made = std::make_shared<FakeClock>();
    made->present = Date::fromUnixSeconds(kMay);
    return made;
  }();
  std::shared_ptr<RecordingSystemLog> systemLog = std::make_shared<RecordingSystemLog>();
};

TEST_F(DDLogFileManagerDefaultTest, BeginsWithItsDefaults) {
  ScopedEnvironment home("HOME", "/home/someone");
  const Manager manager;
  EXPECT_EQ(manager.maximumNumberOfLogFiles(), 5u);
  EXPECT_EQ(manager.logFilesDiskQuota(), 20'971'520u);
  EXPECT_EQ(manager.defaultLogsDirectory(), "/home/someone/Library/Logs/logging_files_test");
  EXPECT_EQ(manager.applicationName(), "logging_files_test");
}

TEST_F(DDLogFileManagerDefaultTest, MakesItsFolderWhenItIsWanted) {
  auto environment = application("com.example.Sample", "sample");
  Manager manager(std::nullopt, environment);
  EXPECT_FALSE(files->exists(folder / "Library"));
  EXPECT_EQ(manager.logsDirectory(), folder / "Library/Logs/sample");
  EXPECT_TRUE(files->exists(folder / "Library/Logs/sample"));
  environment.userLibraryFolder.clear();
  EXPECT_EQ(Manager(std::nullopt, environment).defaultLogsDirectory(), folder / "tmp/Logs/sample");
  EXPECT_THAT(systemLog->lines, IsEmpty());
}

TEST_F(DDLogFileManagerDefaultTest, GoesOnWithoutAFolder) {
  writeFile(folder / "file", "");
  Manager manager(folder / "file/logs", application(std::nullopt, "Sample"));
  EXPECT_THAT(manager.unsortedLogFilePaths(), IsEmpty());
  EXPECT_EQ(manager.createNewLogFile(), folder / "file/logs/Sample 2024-05-01 13-07.log");
  const auto line = "DDFileLogManagerDefault: Error creating logsDirectory: Not a directory";
  EXPECT_THAT(systemLog->lines, ElementsAre(line, line));
}

struct NameCase {
  std::optional<std::string> bundle;
  const char* process;
  const char* file;
};

TEST_F(DDLogFileManagerDefaultTest, NamesFilesAfterTheApplication) {
  ScopedEnvironment zone("TZ", kBerlin);
  const NameCase cases[] = {
      {"com.kelvara.Kelvara", "Kelvara", "kelvara.log"},
      {"com.kelvara.KVScheduler", "KVScheduler", "KVScheduler.txt"},
      {"com.kelvara.kvscheduler", "x", "com.kelvara.kvscheduler 2024-05-01 13-07.log"},
      {std::nullopt, "Sample", "Sample 2024-05-01 13-07.log"},
      {std::nullopt, "com.kelvara.KVScheduler", "KVScheduler.txt"},
      {std::nullopt, "", " 2024-05-01 13-07.log"},
  };
  for (const auto& c : cases) {
    Manager manager(folder / "logs", application(c.bundle, c.process));
    EXPECT_EQ(manager.newLogFileName(), c.file);
    const bool isFixed = std::string_view(c.file).find(' ') == std::string_view::npos;
    EXPECT_EQ(manager.isLogFile(c.file), !isFixed) << c.file;
  }
}

TEST_F(DDLogFileManagerDefaultTest, SettlesTheApplicationsNameOnce) {
  const auto first = application(std::nullopt, "First");
  auto second = application("com.example.Second", "Second");
  second.applicationName = first.applicationName;
  EXPECT_EQ(Manager("/", first).applicationName(), "First");
  EXPECT_EQ(Manager("/", second).applicationName(), "First");
}

TEST_F(DDLogFileManagerDefaultTest, TellsLogFilesByTheirNames) {
  const std::pair<const char*, bool> cases[] = {
      {"Sample 2024-05-01 13-07.log", true},
      {"Sample 2024-05-01 13-07 2.log", true},
      {"Sample+ 2024-05-01 13-07.log", true},
      {"Sample 2024-05-01 13-07 2 3.log", false},
      {"Sample 2024-05-01  13-07.log", false},
      {"Sample  2024-05-01 13-07.log", false},
      {"Sample 2024-13-45 99-99.log", false},
      {"Sample 2024-05-01 24-00.log", false},
      {"Sample 2024-5-1 13-7 padded.log", false},
      {"Sample 2024-05-01.13-07.log", false},
      {"Sample 2024-05-01 13-07.txt", false},
      {"Sample 2024-05-01 13-07", false},
      {"sample 2024-05-01 13-07.log", false},
      {"Sample Pro 2024-05-01 13-07.log", false},
      {"Sample.log", false},
      {"Sample", false},
      {".log", false},
      {"", false},
  };
  const auto manager = sample();
  for (const auto& [name, is] : cases) EXPECT_EQ(manager->isLogFile(name), is) << name;
  Manager overlapping("/", application(std::nullopt, "a.log"));
  EXPECT_FALSE(overlapping.isLogFile("a.log"));
}

TEST_F(DDLogFileManagerDefaultTest, ListsTheNewestFirst) {
  const auto manager = sample();
  for (const int minute : {4, 8, 2, 6}) writeFile(pathOf(minute), "");
  writeFile(folder / "logs/Sample.log", "");
  writeFile(folder / "logs/notes.txt", "");
  EXPECT_THAT(manager->unsortedLogFilePaths(),
              UnorderedElementsAre(pathOf(2), pathOf(4), pathOf(6), pathOf(8)));
  EXPECT_THAT(manager->unsortedLogFileNames(),
              UnorderedElementsAre(nameOf(2), nameOf(4), nameOf(6), nameOf(8)));
  EXPECT_THAT(manager->sortedLogFilePaths(),
              ElementsAre(pathOf(8), pathOf(6), pathOf(4), pathOf(2)));
  EXPECT_THAT(manager->sortedLogFileNames(),
              ElementsAre(nameOf(8), nameOf(6), nameOf(4), nameOf(2)));
}

TEST_F(DDLogFileManagerDefaultTest, KeepsWritingToAFileThatIsThere) {
  const auto manager =
      std::make_shared<Manager>(folder / "logs", application("com.kelvara.KVScheduler", "x"));
  const auto path = manager->createNewLogFile();
  EXPECT_EQ(path, folder / "logs/KVScheduler.txt");
  EXPECT_EQ(files->attributes(path)->sizeBytes, 0u);
  writeFile(path, "a line\n");
  EXPECT_EQ(manager->createNewLogFile(), path);
  EXPECT_EQ(readFile(path), "a line\n");
  EXPECT_THAT(manager->sortedLogFilePaths(), IsEmpty());
  manager->setLogFilesDiskQuota(1);
  manager->setMaximumNumberOfLogFiles(1);
  EXPECT_THAT(filesLeft(), ElementsAre("KVScheduler.txt"));
}

struct LimitCase {
  const char* why;
  std::vector<std::size_t> sizesNewestFirst;
  std::uint64_t quota;
  std::uint64_t number;
  bool newestArchived;
  std::size_t kept;
};

TEST_F(DDLogFileManagerDefaultTest, DeletesTheOldestBeyondTheLimits) {
  const LimitCase cases[] = {
      {"no limits", {60, 50, 10}, 0, 0, true, 3},
      {"the second file passes the quota", {60, 50, 10}, 100, 0, false, 1},
      {"the quota is just kept", {60, 40, 10}, 100, 0, false, 2},
      {"the quota is never passed", {60, 50, 10}, 120, 0, false, 3},
      {"two files at most", {1, 1, 1, 1}, 0, 2, false, 2},
      {"more files allowed than there are", {1, 1}, 0, 3, false, 2},
      {"the number is the stricter limit", {60, 50, 10}, 115, 1, false, 1},
      {"the quota is the stricter limit", {60, 50, 10}, 100, 2, false, 1},
      {"the newest alone is too large, and in use", {200, 1, 1}, 100, 0, false, 1},
      {"the newest alone is too large, and archived", {200, 1, 1}, 100, 0, true, 0},
      {"the first limit to be kept counts files that go", {10, 200, 1}, 100, 5, false, 1},
  };
  for (const auto& c : cases) {
    files->remove(folder / "logs");
    makeFiles(c.sizesNewestFirst);
    const auto manager = sample();
    manager->sortedLogFileInfos().front()->setIsArchived(c.newestArchived);
    std::promise<void> bothSet;
    queue->async([&] { bothSet.get_future().wait(); });
    manager->setLogFilesDiskQuota(c.quota);
    manager->setMaximumNumberOfLogFiles(c.number);
    bothSet.set_value();
    std::vector<std::string> expected;
    for (std::size_t index = 0; index < c.kept; ++index) {
      expected.push_back(nameOf(9 - int(index)));
    }
    EXPECT_THAT(filesLeft(), ::testing::UnorderedElementsAreArray(expected)) << c.why;
  }
}

TEST_F(DDLogFileManagerDefaultTest, DeletesOnTheLoggingQueueAndOnlyWhenALimitChanges) {
  auto manager = sample();
  makeFiles({1, 1, 1, 1, 1, 1, 1});
  manager->setMaximumNumberOfLogFiles(5);
  manager->setLogFilesDiskQuota(20'971'520);
  manager->createNewLogFile();
  EXPECT_EQ(filesLeft().size(), 7u);

  std::promise<void> gone;
  queue->async([&] { gone.get_future().wait(); });
  manager->setMaximumNumberOfLogFiles(3);
  manager.reset();
  gone.set_value();
  EXPECT_EQ(filesLeft().size(), 3u) << "waiting work holds its manager";
  EXPECT_FALSE(files->removedElsewhere);
}

TEST_F(DDLogFileManagerDefaultTest, HasAFormatterPerThread) {
  const auto* mine = &Manager::logFileDateFormatter();
  EXPECT_EQ(&Manager::logFileDateFormatter(), mine);
  std::thread([&] { EXPECT_NE(&Manager::logFileDateFormatter(), mine); }).join();
}

/// Made before the thread's formatter, and so gone after it.
struct LastOfAThread {
  ~LastOfAThread() {
    const auto text =
        DDLogFileManagerDefault::logFileDateFormatter().string(Date::fromUnixSeconds(kMay));
    std::fprintf(stderr, "%s\n", text->c_str());
  }
};

TEST(DDLogFileManagerDefaultDeathTest, NamesFilesUntilTheVeryEndOfTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto leave = [] {
    static thread_local LastOfAThread last;
    static_cast<void>(&last);
    DDLogFileManagerDefault::logFileDateFormatter();
    std::exit(0);
  };
  EXPECT_EXIT(leave(), ::testing::ExitedWithCode(0), StrEq("2024-05-01 13-07\n"));
}

}  // namespace
}  // namespace kv::test
