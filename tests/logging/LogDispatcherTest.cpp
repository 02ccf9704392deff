#include "logging/LogDispatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "logging/LogLevel.h"
#include "tests/support/Gate.h"
#include "tests/support/RecordingLogger.h"

namespace kv {
namespace {

using test::Event;
using test::Gate;
using test::RecordingLogger;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr bool kSync = false;
constexpr bool kAsync = true;

/// A dispatcher of its own, on one processor or on several.
class Dispatching : public testing::TestWithParam<unsigned> {
 protected:
  static LogDispatcher::Environment environment(std::int64_t bound = 1000) {
    LogDispatcher::Environment made;
    made.processors = GetParam();
    made.bound = bound;
    return made;
  }
  void say(bool asynchronous, std::string_view text, std::uint64_t flag = LogFlag::kInfo,
           std::uint64_t level = LogLevel::kAll) {
    LogRecord& record = dispatcher.beginRecord();
    record.setText(text);
    record.setKind(level, flag, 0, nullptr);
    dispatcher.queueRecord(record, asynchronous);
  }
  std::shared_ptr<RecordingLogger> add(std::shared_ptr<RecordingLogger> logger) {
    dispatcher.addLogger_withLevel(logger, LogLevel::kAll);
    return logger;
  }

  LogDispatcher dispatcher{environment()};
};

INSTANTIATE_TEST_SUITE_P(Processors, Dispatching, testing::Values(1, 4));

TEST_P(Dispatching, AFlagInCommonWithTheRegisteredLevelAloneDecides) {
  constexpr std::uint64_t kFree = std::uint64_t{1} << 63;
  struct Case {
    std::uint64_t registered, flag, messageLevel;
    bool arrives;
  };
  for (const Case& c :
       {Case{LogLevel::kAll, LogFlag::kError, 0, true}, Case{LogLevel::kAll, kFree, 0, true},
        Case{LogLevel::kAll, 0, LogLevel::kAll, false},
        Case{LogLevel::kOff, LogFlag::kError, LogLevel::kAll, false},
        Case{LogLevel::kWarning, LogFlag::kWarning, LogLevel::kOff, true},
        Case{LogLevel::kWarning, LogFlag::kInfo, LogLevel::kAll, false},
        Case{kFree, kFree | LogFlag::kInfo, 0, true}}) {
    const auto logger = std::make_shared<RecordingLogger>();
    dispatcher.addLogger_withLevel(logger, c.registered);
    say(kSync, "x", c.flag, c.messageLevel);
    logger->loggerQueue()->sync([] {});
    EXPECT_EQ(logger->record(), c.arrives ? "added as recording x" : "added as recording")
        << c.registered << " " << c.flag;
    dispatcher.removeAllLoggers();
  }
}

TEST_P(Dispatching, RegistrationsAreCountedOneByOneInTheirOrder) {
  const auto logger = std::make_shared<RecordingLogger>();
  const auto other = std::make_shared<RecordingLogger>();
  dispatcher.addLogger_withLevel(nullptr, LogLevel::kAll);
  dispatcher.removeLogger(nullptr);
  dispatcher.removeLogger(logger);  // never added
  add(logger);
  add(other);
  add(logger);
  EXPECT_THAT(dispatcher.allLoggers(), ElementsAre(logger, other, logger));
  say(kSync, "twice");
  dispatcher.removeLogger(logger);
  EXPECT_THAT(dispatcher.allLoggers(), ElementsAre(other, logger));
  say(kSync, "once");
  dispatcher.removeAllLoggers();
  EXPECT_THAT(dispatcher.allLoggers(), IsEmpty());
  say(kSync, "never");
  logger->loggerQueue()->sync([] {});
  EXPECT_EQ(logger->record(),
            "added as recording added as recording twice twice removed as recording once "
            "removed as recording");
}

TEST_P(Dispatching, ALoggerWithoutAQueueGetsOneOfItsName) {
  class Bare final : public DDLogger {
   public:
    void logMessage(const DDLogMessage&) override { label = SerialQueue::currentLabel(); }
    std::string loggerName() const override { return "bare logger"; }
    std::string label;
  };
  const auto logger = std::make_shared<Bare>();
  dispatcher.addLogger_withLevel(logger, LogLevel::kAll);
  say(kSync, "x");
  EXPECT_EQ(logger->label, "bare logger");
}

TEST_P(Dispatching, ASyncCallReturnsWhenAllLoggersHaveIt) {
  const auto first = add(std::make_shared<RecordingLogger>());
  const auto second = add(std::make_shared<RecordingLogger>());
  for (int number = 0; number < 50; ++number) {
    say(kAsync, "a");
    say(kSync, "s");
    ASSERT_EQ(first->texts().size(), 2u * static_cast<unsigned>(number) + 3);
    ASSERT_EQ(first->texts(), second->texts());
    ASSERT_EQ(first->texts().back(), "s");
  }
}

TEST_P(Dispatching, EachMessageIsDoneBeforeTheNextBegins) {
  std::array<std::atomic<int>, 3> done{};
  std::atomic<int> tooEarly{0};
  for (auto& mine : done) {
    add(std::make_shared<RecordingLogger>([&](const DDLogMessage&) {
      const int before = mine;
      for (const auto& others : done) tooEarly += others < before;
      ++mine;
    }));
  }
  for (int number = 0; number < 1000; ++number) say(kAsync, "x");
  dispatcher.flushLog();
  for (const auto& count : done) EXPECT_EQ(count, 1000);
  EXPECT_EQ(tooEarly, 0);
}

TEST_P(Dispatching, AllLoggersSeeTheSameOrderAndEachThreadsOwn) {
  constexpr int kThreads = 4;
  constexpr int kEach = 2000;
  const auto first = add(std::make_shared<RecordingLogger>());
  const auto second = add(std::make_shared<RecordingLogger>());
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int number = 0; number < kEach; ++number) {
        say(number % 64 != 0, std::to_string(thread) + ":" + std::to_string(number));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  dispatcher.flushLog();
  EXPECT_EQ(first->texts(), second->texts());
  std::vector<int> next(kThreads, 0);
  for (const std::string& text : first->texts()) {
    const auto colon = text.find(':');
    if (colon == std::string::npos) continue;
    const int thread = std::stoi(text);
    ASSERT_EQ(std::stoi(text.substr(colon + 1)), next[static_cast<std::size_t>(thread)]++) << text;
  }
  EXPECT_THAT(next, ElementsAre(kEach, kEach, kEach, kEach));
}

TEST_P(Dispatching, WhoFindsNoPlaceWaitsForTheFirstDelivery) {
  LogDispatcher small(environment(2));
  Event firstBegan, first, secondBegan, second;
  int number = 0;
  const auto logger = std::make_shared<RecordingLogger>([&](const DDLogMessage&) {
    ++number;
    if (number > 2) return;
    (number == 1 ? firstBegan : secondBegan).happen();
    (number == 1 ? first : second).await();
  });
  small.addLogger_withLevel(logger, LogLevel::kAll);
  const auto put = [&] {
    LogRecord& record = small.beginRecord();
    record.setText("x");
    record.setKind(0, LogFlag::kInfo, 0, nullptr);
    small.queueRecord(record, kAsync);
  };
  put();
  put();
  firstBegan.await();
  Event through;
  std::thread third([&] {
    put();
    through.happen();
  });
  EXPECT_FALSE(through.hasHappened());
  first.happen();
  secondBegan.await();
  through.await();  // while the second message is not delivered yet
  second.happen();
  third.join();
  small.flushLog();
  EXPECT_EQ(number, 3);
}

TEST_P(Dispatching, WorkOnALoggersQueueStaysBetweenTheMessages) {
  std::vector<std::string> order;
  const auto note = [&order](const DDLogMessage& m) { order.emplace_back(m.text()); };
  const auto logger = add(std::make_shared<RecordingLogger>(note));
  const auto other = add(std::make_shared<RecordingLogger>());
  Gate gate(*dispatcher.loggingQueue());
  say(kAsync, "before");
  dispatcher.loggingQueue()->async(
      [&] { logger->loggerQueue()->async([&] { order.push_back("work"); }); });
  say(kAsync, "after");
  gate.open();
  dispatcher.flushLog();
  EXPECT_THAT(order, ElementsAre("before", "work", "after"));
}

TEST_P(Dispatching, FlushesRunInParallelWhateverTheProcessors) {
  Event first, second;
  const auto one = add(std::make_shared<RecordingLogger>());
  const auto two = add(std::make_shared<RecordingLogger>());
  const auto meet = [](Event& mine, Event& others) {
    mine.happen();
    others.await();
  };
  one->onFlush = [&] { meet(first, second); };
  two->onFlush = [&] { meet(second, first); };
  dispatcher.flushLog();
  EXPECT_EQ(one->texts().back(), "flushed");
  EXPECT_EQ(two->texts().back(), "flushed");
}

TEST_P(Dispatching, AKeptMessageStaysAsItWas) {
  std::vector<std::shared_ptr<const DDLogMessage>> kept;
  std::vector<LogText> texts;
  add(std::make_shared<RecordingLogger>([&](const DDLogMessage& message) {
    const int number = std::stoi(std::string(message.text()));
    if (number % 3 == 0) kept.push_back(message.shared_from_this());
    if (number % 3 == 1) texts.push_back(message.message());
  }));
  for (int number = 0; number < 3000; ++number) say(kAsync, std::to_string(number));
  dispatcher.flushLog();
  ASSERT_EQ(kept.size(), 1000u);
  for (std::size_t index = 0; index < kept.size(); ++index) {
    ASSERT_EQ(kept[index]->text(), std::to_string(index * 3));
    ASSERT_EQ(*texts[index], std::to_string(index * 3 + 1));
  }
  EXPECT_EQ(kept[7]->message(), kept[7]->message()) << "one object for all calls";
}

TEST(ParallelDispatching, LoggersThatWaitForEachOtherWithinOneMessageBothFinish) {
  LogDispatcher::Environment environment;
  environment.processors = 2;
  LogDispatcher dispatcher(environment);
  for (int round = 0; round < 3; ++round) {
    Event first, second, third;
    const auto add = [&](Event& mine, Event& others) {
      const auto logger = std::make_shared<RecordingLogger>([&](const DDLogMessage&) {
        mine.happen();
        others.await();
      });
      dispatcher.addLogger_withLevel(logger, LogLevel::kAll);
    };
    add(first, third);
    add(second, first);
    add(third, second);
    LogRecord& record = dispatcher.beginRecord();
    record.setKind(0, LogFlag::kInfo, 0, nullptr);
    dispatcher.queueRecord(record, kSync);
    EXPECT_TRUE(first.hasHappened() && second.hasHappened() && third.hasHappened());
    dispatcher.removeAllLoggers();
  }
}

}  // namespace
}  // namespace kv
