#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <thread>

#include "logging/FormatterSch.h"
#include "logging/Log.h"
#include "tests/support/Gate.h"
#include "tests/support/RecordingLogger.h"

static constinit kv::LogLevelVariable gFileLevel(kv::LogLevel::kAll);
#undef KV_LOG_LEVEL
#define KV_LOG_LEVEL gFileLevel

namespace kv::test {
namespace {

using ::testing::ElementsAre;

class DDLogTest : public ::testing::Test {
 protected:
  DDLogTest() {
    logger = std::make_shared<RecordingLogger>(
        [this](const DDLogMessage& message) { last = std::make_shared<DDLogMessage>(message); });
    DDLog::addLogger(logger);
  }
  ~DDLogTest() override {
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    logger->loggerQueue()->sync([] {});
    gFileLevel = LogLevel::kAll;
  }
  std::shared_ptr<RecordingLogger> logger;
  std::shared_ptr<DDLogMessage> last;
};

TEST_F(DDLogTest, MacrosTakeDownTheirPlaceAndWaitForErrorsOnly) {
  gFileLevel = LogLevel::kVerbose;
  const std::uint64_t line = __LINE__ + 1;
  LOG_ERROR("{} and {:>3}", std::string("text"), 7);  // delivered at return
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(*last->message(), "text and   7");
  EXPECT_EQ(last->line(), line);
  EXPECT_EQ(last->fileName(), "DDLogTest");
  EXPECT_EQ(last->file(), __FILE__);
  EXPECT_EQ(last->function(), "TestBody");
  EXPECT_EQ(last->flag(), LogFlag::kError);
  EXPECT_EQ(last->level(), LogLevel::kVerbose);
  EXPECT_EQ(last->context() + last->options(), 0);
  EXPECT_EQ(last->tag(), nullptr);

  LOG_WARN("w");
  LOG_INFO("i");
  LOG_DEBUG("d {}", 1);
  LOG_VERBOSE("{{}}");
  DDLog::flushLog();
  EXPECT_EQ(last->flag(), LogFlag::kVerbose);
  EXPECT_EQ(logger->record(), "added as recording text and   7 w i d 1 {} flushed");
}

TEST_F(DDLogTest, MacrosMakeTheTextsThatFmtMakes) {
#define EXPECT_LOGGED(...) \
  LOG_ERROR(__VA_ARGS__);  \
  EXPECT_EQ(*last->message(), fmt::format(__VA_ARGS__))

  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
  const std::string longText(10'000, 'x');
  const std::string withZero("a\0b", 3);
  EXPECT_LOGGED("{}", longText);
  EXPECT_LOGGED("{}{}{}", kLeast, kMost, std::numeric_limits<std::int8_t>::min());
  EXPECT_LOGGED("");
  EXPECT_LOGGED("{}{}", false, true);
  EXPECT_LOGGED("{}{{}}{}", 'c', std::string_view());
  EXPECT_LOGGED("{{{}}}}}{{{{}}{}", 1, 2);
  EXPECT_LOGGED("more arguments than fields: {}", 1, 2);
  EXPECT_LOGGED("{}", withZero);
  EXPECT_LOGGED("{0}{0}{0}", longText);
  EXPECT_LOGGED("{:>300}|{:.3f}", 1, 2.0);
  EXPECT_LOGGED("{} {}", 0.1, "literal");
  for (std::uint64_t power = 1; power <= kMost / 10; power *= 10) {
    const auto number = static_cast<std::int64_t>(power);
    EXPECT_LOGGED("{}{}{}", power - 1, power, power + 1);
    EXPECT_LOGGED("{}{}{}", -number - 1, -number, 1 - number);
  }
#undef EXPECT_LOGGED
}

TEST_F(DDLogTest, ASuppressedCallEvaluatesNothing) {
  int evaluated = 0;
  gFileLevel = LogLevel::kWarning;
  LOG_INFO("{}", ++evaluated);
  LOG_VERBOSE("{}", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  LOG_WARN("{}", ++evaluated);
  EXPECT_EQ(evaluated, 1);
}

TEST_F(DDLogTest, OtherWaysToLog) {
  const LogText text = makeLogText("finished");
  const LogTag tag = std::make_shared<int>(5);
  const auto message = std::make_shared<DDLogMessage>(
      DDLogMessage::Fields{.message = text, .flag = 1, .options = 9});
  DDLog::log(false, {.message = text, .flag = 2, .context = -1, .file = "a/b.c", .tag = tag});
  EXPECT_EQ(last->message(), text) << "the caller's own object";
  EXPECT_EQ(last->tag(), tag);
  EXPECT_EQ(last->fileName(), "b");
  DDLog::log_message(true, message);
  DDLog::flushLog();
  EXPECT_EQ(last->options(), 9);
  DDLog::log(false, {.flag = 4, .file = nullptr, .function = nullptr, .line = 3}, "{}-{}", 1, 2);
  EXPECT_EQ(last->file(), "(null)");
  EXPECT_EQ(last->function(), "(null)");
  EXPECT_EQ(*last->message(), "1-2");
  DDLog::log_args(false, {.flag = 4}, "{} {}", fmt::make_format_args("one"));
  EXPECT_THAT(*last->message(), ::testing::EndsWith("{} {}")) << "one argument is missing";

  const auto before = logger->texts().size();
  const char* const noFormat = nullptr;
  DDLog::log_args(false, {.flag = 4}, noFormat, fmt::make_format_args());
  DDLog::log_message(false, nullptr);
  EXPECT_EQ(logger->texts().size(), before);
}

TEST_F(DDLogTest, AProgramThatIsToldOfItsEndFlushesAndGoesOnLogging) {
  DDLog::applicationWillTerminate();
  Gate gate(*DDLog::loggingQueue());
  LOG_INFO("later");  // returns, although nobody delivers it
  EXPECT_EQ(logger->record(), "added as recording flushed");
  gate.open();
  DDLog::flushLog();
  EXPECT_EQ(logger->record(), "added as recording flushed later flushed");
}

TEST_F(DDLogTest, ALoggersQueueIsWhatWasStoredNullToo) {
  const auto queueless = std::make_shared<RecordingLogger>();
  queueless->setLoggerQueue(nullptr);
  EXPECT_EQ(queueless->loggerQueue(), nullptr);
  queueless->setLogFormatter(std::make_shared<FormatterSch>());
  EXPECT_NE(queueless->logFormatter(), nullptr);
  DDLog::addLogger(queueless);
  LOG_ERROR("x");
  EXPECT_THAT(queueless->record(), testing::MatchesRegex("added as recording .* > x"));
}

TEST_F(DDLogTest, ALoggerReceivesWhatIsLoggedAfterItsAddition) {
  EXPECT_THAT(DDLog::allLoggers(), ElementsAre(logger));
  const auto other = std::make_shared<RecordingLogger>();
  DDLog::addLogger_withLevel(other, LogLevel::kError);
  EXPECT_THAT(DDLog::allLoggers(), ElementsAre(logger, other));
  LOG_WARN("not for the other");
  LOG_ERROR("for both");
  EXPECT_EQ(other->record(), "added as recording for both");
}

struct Complete {
  static std::uint64_t ddLogLevel() { return level; }
  static void ddSetLogLevel(std::uint64_t value) { level = value; }
  static inline std::uint64_t level = LogLevel::kInfo;
};
struct ReadOnly {
  static std::uint64_t ddLogLevel() { return LogLevel::kError; }
};
struct Without {};

TEST(LogClasses, LevelsAreReachedByClassAndByName) {
  DDLog::registerClass<Without>("Without");
  DDLog::registerClass<Complete>("Complete");
  DDLog::registerClass<ReadOnly>("ReadOnly");
  EXPECT_TRUE(DDLog::isRegisteredClass<Complete>());
  EXPECT_FALSE(DDLog::isRegisteredClass<ReadOnly>());
  EXPECT_FALSE(DDLog::isRegisteredClass<Without>());
  EXPECT_THAT(DDLog::registeredClassNames(), ElementsAre("Complete"));
  DDLog::setLevel_forClassWithName(LogLevel::kDebug, "Complete");
  EXPECT_EQ(DDLog::levelForClass<Complete>(), LogLevel::kDebug);
  DDLog::setLevel_forClass<Complete>(LogLevel::kOff);
  EXPECT_EQ(DDLog::levelForClassWithName("Complete"), LogLevel::kOff);
  for (const char* name : {"ReadOnly", "Without", "Unknown", ""}) {
    DDLog::setLevel_forClassWithName(LogLevel::kOff, name);
    EXPECT_EQ(DDLog::levelForClassWithName(name), LogLevel::kAll) << name;
  }
  EXPECT_EQ(DDLog::levelForClass<ReadOnly>(), LogLevel::kAll);
}

}  // namespace
}  // namespace kv::test
