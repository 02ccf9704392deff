#include "logging/DDFileLogger.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "logging/DDLog.h"
#include "logging/DDLogFileFormatterDefault.h"
#include "logging/DDLogFileManagerDefault.h"
#include "logging/FormatterSch.h"
#include "logging/RolledFileCloser.h"
#include "platform/DateFormatter.h"
#include "platform/MainQueue.h"
#include "platform/PlatformError.h"
#include "tests/support/Fakes.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/Gate.h"
#include "tests/support/NumberingManager.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// Timers that fire when the test says so.
class FakeTimers final : public TimerSources {
 public:
  std::unique_ptr<TimerSource> fireOnce(Seconds delay, std::shared_ptr<SerialQueue> queue,
                                        std::function<void()> handler) override {
    delays.push_back(delay.count());
    ++pending;
    fire = [queue, handler] { queue->sync(handler); };
    return std::make_unique<Source>(*this);
  }
  std::vector<double> delays;
  int pending = 0;
  std::function<void()> fire;

 private:
  struct Source final : TimerSource {
    explicit Source(FakeTimers& owner) : timers(owner) {}
    ~Source() override { --timers.pending; }
    FakeTimers& timers;
  };
};

class PlainFormatter final : public DDLogFormatter {
 public:
  LogText formatLogMessage(const DDLogMessage& message) override { return answer(message); }
  std::function<LogText(const DDLogMessage&)> answer;
};

class DDFileLoggerTest : public ::testing::Test {
 protected:
  DDFileLoggerTest() {
    clock->present = systemClock()->now();
    makeLogger();
  }
  ~DDFileLoggerTest() override {
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    if (logger != nullptr) logger->loggerQueue()->sync([] {});
  }

  void makeLogger() {
    DDFileLogger::Environment environment;
    environment.clock = clock;
    environment.files = files;
    environment.timers = timers;
    environment.systemLog = systemLog;
    logger = std::make_shared<DDFileLogger>(manager, environment);
    logger->setLogFormatter(nullptr);
    DDLog::addLogger(logger);
  }
  void say(std::string_view text, bool asynchronous = false) {
    DDLog::log(asynchronous, {.message = makeLogText(text), .flag = 1});
  }
  /// Logs lines so that they wait while the first is delivered: a backlog.
  void sayAsBacklog(const std::vector<std::string>& texts) {
    Gate gate(*DDLog::loggingQueue());
    for (const auto& text : texts) say(text, true);
    letTheLoggerRest();
    gate.open();
    DDLog::flushLog();
  }
  /// Until its worker is done with what came before: else it would get the lines one by one.
  void letTheLoggerRest() {
    QueueState& queue = logger->loggerQueue()->state();
    while (!queue.tryOwn()) std::this_thread::yield();
    queue.release();
  }
  DDLogFileManagerDefault::Environment managerEnvironment() {
    DDLogFileManagerDefault::Environment environment;
    environment.clock = clock;
    return environment;
  }
  std::string file(int number) { return folder / fmt::format("logs/Sample {}.log", number); }

  TemporaryFolder folder;
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  std::shared_ptr<FaultyFiles> files = std::make_shared<FaultyFiles>();
  std::shared_ptr<FakeTimers> timers = std::make_shared<FakeTimers>();
  std::shared_ptr<RecordingSystemLog> systemLog = std::make_shared<RecordingSystemLog>();
  std::shared_ptr<NumberingManager> manager =
      std::make_shared<NumberingManager>(folder / "logs", managerEnvironment());
  std::shared_ptr<DDFileLogger> logger;
};

// The count of failures is the process's own: this must come first.
TEST_F(DDFileLoggerTest, TheFirstTenFailuresAreReported) {
  files->failAfter = [](int) { return 0; };
  for (int line = 0; line < 12; ++line) say("lost");
  EXPECT_EQ(logger->lostLines(), 12u);
  ASSERT_EQ(systemLog->lines.size(), 11u);
  EXPECT_EQ(systemLog->lines[0], "DDFileLogger.logMessage: write 1 failed");
  EXPECT_EQ(systemLog->lines[9], "DDFileLogger.logMessage: write 10 failed");
  EXPECT_EQ(systemLog->lines[10],
            "DDFileLogger.logMessage: Too many exceptions -- will not log any more of them.");
  files->failAfter = [](int) { return std::nullopt; };
  say("back");
  EXPECT_EQ(readFile(file(1)), "back\n");
}

TEST(RolledFileCloserTest, TakesSeveralFilesAndTellsEachFailureOnce) {
  TemporaryFolder folder;
  FaultyFiles files;
  Event diskGoesOn;
  files.onSynchronize = [&](int file) {
    if (file == 1) diskGoesOn.await();
    if (file == 2 || file == 4) throw PlatformError(fmt::format("no room for {}", file));
  };
  RolledFileCloser closer;
  EXPECT_THAT(closer.finish(), IsEmpty()) << "there was nothing to finish";
  const std::string path = folder / "one";
  writeFile(path, "");
  int taken = 0;
  for (; !closer.isFull(); ++taken) closer.close(files.openForAppending(path));
  EXPECT_EQ(taken, RolledFileCloser::kMostOnTheirWay);

  diskGoesOn.happen();
  std::vector<std::string> failures;
  for (const auto& failure : closer.finish()) {
    try {
      std::rethrow_exception(failure);
    } catch (const PlatformError& error) {
      failures.emplace_back(error.what());
    }
  }
  EXPECT_THAT(failures, ElementsAre("no room for 2", "no room for 4"));
  EXPECT_FALSE(closer.isFull());
  closer.close(files.openForAppending(path));
  EXPECT_THAT(closer.finish(), IsEmpty());
  EXPECT_EQ(files.synchronizations, taken + 1);
}

TEST_F(DDFileLoggerTest, EndsEachLineOnceUnlessAFormatterMadeItAndMayNot) {
  const auto own = [](const DDLogMessage& message) { return message.message(); };
  const auto equal = [](const DDLogMessage& message) { return makeLogText(message.text()); };
  const auto none = [](const DDLogMessage&) { return LogText(); };
  struct Case {
    std::function<LogText(const DDLogMessage&)> formatter;
    bool appends;
    const char* text;
    const char* written;
  };
  for (const Case& c :
       {Case{nullptr, true, "a", "a\n"}, Case{nullptr, false, "a", "a\n"},
        Case{nullptr, true, "a\n", "a\n"}, Case{nullptr, true, "", "\n"},
        Case{own, false, "a", "a\n"}, Case{equal, false, "a", "a"}, Case{equal, true, "a", "a\n"},
        Case{equal, false, "", ""}, Case{none, true, "a", ""}}) {
    const std::string before = readFile(file(1));
    std::shared_ptr<PlainFormatter> formatter;
    if (c.formatter) {
      formatter = std::make_shared<PlainFormatter>();
      formatter->answer = c.formatter;
    }
    logger->setLogFormatter(formatter);
    logger->setAutomaticallyAppendNewlineForCustomFormatters(c.appends);
    say(c.text);
    EXPECT_EQ(readFile(file(1)).substr(before.size()), c.written) << c.text << c.appends;
  }
  DDLog::log(false, {.message = nullptr, .flag = 1});
  EXPECT_EQ(logger->lostLines(), 0u);
}

TEST_F(DDFileLoggerTest, RollsBehindTheVeryLineThatReachesTheSize) {
  logger->setMaximumFileSize(100);
  EXPECT_EQ(logger->maximumFileSize(), 100u);
  for (const bool groups : {true, false}) {
    logger->setGroupsBacklogWrites(groups);
    manager->rolled.clear();
    const int first = manager->number + 1;
    files->writes = 0;
    std::vector<std::string> texts;
    for (int line = 0; line < 35; ++line) texts.push_back(fmt::format("line {:04}", line));
    sayAsBacklog(texts);
    for (int index = 0; index < 4; ++index) {
      std::string expected;
      for (int line = 10 * index; line < std::min(35, 10 * index + 10); ++line) {
        expected += texts[static_cast<std::size_t>(line)] + "\n";
      }
      EXPECT_EQ(readFile(file(first + index)), expected);
      EXPECT_EQ(DDLogFileInfo(file(first + index)).isArchived(), index < 3);
    }
    EXPECT_THAT(manager->rolled, ElementsAre(file(first), file(first + 1), file(first + 2)));
    EXPECT_EQ(files->writes < 35, groups) << files->writes;
    logger->rollLogFile();
    DDLog::flushLog();
  }
}

TEST_F(DDFileLoggerTest, ABacklogDoesNotWaitForTheDiskAndAFlushDoes) {
  logger->setMaximumFileSize(4);
  // The disk is done with the first file when the second one has its line, and no earlier.
  Event secondIsWritten;
  files->failAfter = [&](int write) -> std::optional<std::size_t> {
    if (write == 2) secondIsWritten.happen();
    return std::nullopt;
  };
  files->onSynchronize = [&](int file) {
    if (file == 1) secondIsWritten.await();
  };
  sayAsBacklog({"one", "two", "three"});
  EXPECT_EQ(files->synchronizations, 3);
  EXPECT_THAT(manager->rolled, ElementsAre(file(1), file(2), file(3)));
}

TEST_F(DDFileLoggerTest, LinesAreWrittenBeforeAnythingElseRunsAsTheLogger) {
  std::string seen;
  Gate gate(*DDLog::loggingQueue());
  say("one", true);
  say("two", true);
  DDLog::loggingQueue()->async(
      [&] { logger->loggerQueue()->async([&] { seen = readFile(file(1)); }); });
  say("three", true);
  gate.open();
  DDLog::flushLog();
  EXPECT_EQ(seen, "one\ntwo\n");
  EXPECT_EQ(readFile(file(1)), "one\ntwo\nthree\n");
}

TEST_F(DDFileLoggerTest, OnlyLinesWhoseWriteFailedAreLost) {
  struct Case {
    const char* why;
    std::vector<std::pair<int, std::size_t>> failures;  // write, bytes that still get in
    const char* written;
    std::uint64_t lost;
  };
  // The first line opens the file; the other five come as one group, which is the second write.
  for (const Case& c :
       {Case{"nothing of the group gets in", {{2, 0}}, "0\n11\n222\n3\n4\n5\n", 0},
        Case{"the group breaks within a line", {{2, 5}}, "0\n11\n222\n3\n4\n5\n", 0},
        Case{"a line of the replay fails", {{2, 3}, {4, 1}}, "0\n11\n222\n4\n5\n", 1},
        Case{"the very first fails", {{1, 1}}, "11\n222\n3\n4\n5\n", 1},
        Case{"the device is full", {{2, 4}, {3, 2}, {4, 0}, {5, 0}, {6, 1}}, "0\n11\n", 4}}) {
    files->writes = 0;
    files->failAfter = [&c](int write) -> std::optional<std::size_t> {
      for (const auto& [number, bytes] : c.failures) {
        if (number == write) return bytes;
      }
      return std::nullopt;
    };
    const std::uint64_t lostBefore = logger->lostLines();
    const int number = manager->number + 1;
    sayAsBacklog({"0", "11", "222", "3", "4", "5"});
    EXPECT_EQ(readFile(file(number)), c.written) << c.why;
    EXPECT_EQ(logger->lostLines() - lostBefore, c.lost) << c.why;
    logger->rollLogFile();
    DDLog::flushLog();
    logger->loggerQueue()->sync([] {});
  }
}

TEST_F(DDFileLoggerTest, AFileThatCannotBeOpenedIsTriedAnewWithEachMessage) {
  std::filesystem::create_directories(file(1));  // a folder stands where the file is to be
  const auto record = [this] {
    std::shared_ptr<DDLogFileInfo> present;
    logger->loggerQueue()->sync([&] { present = logger->currentLogFileInfo(); });
    return present;
  };
  say("nowhere");
  const auto kept = record();
  say("nowhere");
  EXPECT_EQ(record(), kept);
  EXPECT_EQ(logger->lostLines(), 2u);
  EXPECT_THAT(systemLog->lines, IsEmpty());
  EXPECT_EQ(timers->pending, 0);
  std::filesystem::remove(file(1));
  writeFile(file(1), "");
  say("here");
  EXPECT_EQ(readFile(file(1)), "here\n");
}

TEST_F(DDFileLoggerTest, ReusesTheNewestFileUnlessItIsDoneWith) {
  struct Case {
    const char* why;
    bool isArchived;
    bool doNotReuse;
    std::uint64_t maximumSize;
    double frequency;
    bool isReused;
    bool becomesArchived;
  };
  for (const Case& c : {Case{"it can go on", false, false, 100, 1000, true, false},
                        Case{"archived before", true, false, 100, 1000, false, true},
                        Case{"as large as allowed", false, false, 4, 1000, false, true},
                        Case{"one byte is left", false, false, 5, 1000, true, true},
                        Case{"no limit of size", false, false, 0, 1000, true, false},
                        Case{"too old", false, false, 100, 50, false, true},
                        Case{"no limit of age", false, false, 100, 0, true, false},
                        Case{"unwanted", false, true, 100, 1000, false, false},
                        Case{"unwanted and too large", false, true, 4, 1000, false, true}}) {
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    logger->loggerQueue()->sync([] {});
    std::filesystem::remove_all(folder / "logs");
    manager->archived.clear();
    manager->number = 1;
    writeFile(file(1), "old\n");
    DDLogFileInfo(file(1)).setIsArchived(c.isArchived);
    clock->present = systemClock()->now() + Seconds(100);
    makeLogger();
    logger->setMaximumFileSize(c.maximumSize);
    logger->setRollingFrequency(c.frequency);
    logger->setDoNotReuseLogFiles(c.doNotReuse);
    logger->loggerQueue()->sync([] {});
    say("new");
    EXPECT_EQ(readFile(file(1)), c.isReused ? "old\nnew\n" : "old\n") << c.why;
    EXPECT_EQ(DDLogFileInfo(file(1)).isArchived(), c.becomesArchived) << c.why;
    EXPECT_EQ(manager->archived.size(), c.becomesArchived && !c.isArchived && !c.isReused ? 1u : 0u)
        << c.why;
  }
}

TEST_F(DDFileLoggerTest, RollsWhenTheFileIsOldEnough) {
  logger->setRollingFrequency(1000);
  EXPECT_EQ(logger->rollingFrequency(), 1000);
  EXPECT_THAT(timers->delays, IsEmpty()) << "nothing is open yet";
  say("young");
  const Date created = *DDLogFileInfo(file(1)).creationDate();
  ASSERT_EQ(timers->delays.size(), 1u);
  EXPECT_NEAR(timers->delays[0], 1000, 60);

  clock->present = created + Seconds(999);
  timers->fire();  // the clock was set back meanwhile: look again later
  EXPECT_NEAR(timers->delays.back(), 1, 0.01);
  EXPECT_THAT(manager->rolled, IsEmpty());

  clock->present = created + Seconds(1000);
  timers->fire();
  EXPECT_THAT(manager->rolled, ElementsAre(file(1)));
  EXPECT_EQ(timers->pending, 0);
  say("next");
  EXPECT_EQ(readFile(file(2)), "next\n");

  logger->setRollingFrequency(0);
  logger->rollingFrequency();
  EXPECT_EQ(timers->pending, 0) << "the timer is cancelled";
  clock->present = created + Seconds(1e9);
  logger->setRollingFrequency(0.5);
  logger->rollingFrequency();
  EXPECT_EQ(manager->rolled.size(), 2u) << "a new limit counts at once";
}

TEST_F(DDFileLoggerTest, RollsOnDemandAndTellsTheMainQueue) {
  int told = 0;
  logger->rollLogFileWithCompletionBlock([&] { ++told; });
  DDLog::flushLog();
  logger->loggerQueue()->sync([] {});
  EXPECT_EQ(told, 0);
  MainQueue::drain();
  EXPECT_EQ(told, 1);
  EXPECT_THAT(manager->rolled, IsEmpty()) << "there was nothing to roll";

  say("first");
  std::string current;
  manager->onRoll = [&] { current = logger->currentLogFileInfo()->filePath(); };
  logger->loggerQueue()->sync([&] { logger->rollLogFileWithCompletionBlock([&] { ++told; }); });
  EXPECT_EQ(current, file(1)) << "the manager is told while the record is held";
  manager->onRoll = nullptr;
  MainQueue::drain();
  EXPECT_EQ(told, 2);
  EXPECT_EQ(files->synchronizations, 1);
  EXPECT_THAT(manager->rolled, ElementsAre(file(1)));

  say("second");
  DDLog::removeLogger(logger);
  DDLog::flushLog();
  logger->loggerQueue()->sync([] {});
  EXPECT_THAT(manager->rolled, ElementsAre(file(1), file(2)));
}

TEST_F(DDFileLoggerTest, NoLineIsMissingWhenTheFileIsMovedAway) {
  const std::string moved = folder / "moved";
  say("before");
  std::filesystem::rename(file(1), moved);
  int line = 0;
  while (!std::filesystem::exists(file(2))) say(fmt::format("{}", line++));
  std::string expected = "before\n";
  for (int written = 0; written < line; ++written) expected += fmt::format("{}\n", written);
  EXPECT_EQ(readFile(moved) + readFile(file(2)), expected);
  EXPECT_TRUE(DDLogFileInfo(file(1)).isArchived() || !std::filesystem::exists(file(1)));
}

class CountingFormatter final : public DDLogFormatter {
 public:
  LogText formatLogMessage(const DDLogMessage&) override { return nullptr; }
  void didAddToLogger(DDLogger&) override { ++added; }
  void willRemoveFromLogger(DDLogger&) override { ++removed; }
  int added = 0;
  int removed = 0;
};

TEST_F(DDFileLoggerTest, FormattersLearnWhoseTheyAreOnce) {
  const auto first = std::make_shared<CountingFormatter>();
  const auto second = std::make_shared<CountingFormatter>();
  logger->setLogFormatter(first);
  EXPECT_EQ(logger->logFormatter(), first);
  logger->setLogFormatter(first);
  logger->setLogFormatter(second);
  logger->setLogFormatter(nullptr);
  EXPECT_EQ(logger->logFormatter(), nullptr);
  EXPECT_EQ(first->added, 1);
  EXPECT_EQ(first->removed, 1);
  EXPECT_EQ(second->added + second->removed, 2);
  EXPECT_FALSE(logger->isOnInternalLoggerQueue());
  DDLog::loggingQueue()->sync([this] {
    EXPECT_TRUE(logger->isOnGlobalLoggingQueue());
    EXPECT_FALSE(logger->isOnInternalLoggerQueue());
    logger->loggerQueue()->sync([this] {
      EXPECT_FALSE(logger->isOnGlobalLoggingQueue());
      EXPECT_TRUE(logger->isOnInternalLoggerQueue());
    });
  });
}

TEST(Formatters, RenderTheUsersTimeAndNeverFormatTheText) {
  const ScopedEnvironment zone("TZ", "UTC");
  const Date date = Date::fromUnixSeconds(1709647629.042);  // 2024-03-05 14:07:09.042
  const auto render = [](DDLogFormatter& formatter, const char* text, Date when) {
    const DDLogMessage message({.message = makeLogText(text), .timestamp = when});
    return *formatter.formatLogMessage(message);
  };
  FormatterSch compact;
  DDLogFileFormatterDefault full;
  EXPECT_EQ(render(compact, "%", date), "14:07:09 > %");
  EXPECT_EQ(render(full, "{}", date), "2024/03/05 14:07:09:042  {}");
  EXPECT_EQ(render(full, "", date + Seconds(0.9575)), "2024/03/05 14:07:09:999  ");
  EXPECT_EQ(render(full, "x", date + Seconds(0.9585)), "2024/03/05 14:07:10:000  x");
  const auto years = std::make_shared<DateFormatter>("yyyy", DateLocale::fromName("C"));
  DDLogFileFormatterDefault own(years);
  EXPECT_EQ(render(own, "x", date), "2024  x");
  const LogText kept = full.formatLogMessage(DDLogMessage({.message = makeLogText("kept")}));
  render(full, "another", date);
  EXPECT_TRUE(kept->ends_with("kept")) << "a line that somebody keeps is not used again";
}

}  // namespace
}  // namespace kv::test
