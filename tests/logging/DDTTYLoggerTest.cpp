#include "logging/DDTTYLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <thread>
#include <tuple>
#include <vector>

#include "logging/LogLevel.h"
#include "tests/support/CountedAllocations.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::ElementsAre;

constexpr std::int64_t kAny = DDTTYLogger::kAnyContext;
constexpr Date kMoment = Date::fromUnixSeconds(1709644029);  // 14:07:09 in Berlin
constexpr LogColor kRed = {1, 0, 0};
constexpr LogColor kGreen = {0, 1, 0};
constexpr LogColor kBlue = {0, 0, 1};
constexpr LogColor kWhite = {1, 1, 1};

class RecordingOutput : public GatheredOutput {
 public:
  void write(std::span<const std::string_view> pieces) override {
    auto& line = lines.emplace_back();
    for (const auto piece : pieces) line += piece;
  }
  std::vector<std::string> lines;
};

class FunctionFormatter : public DDLogFormatter {
 public:
  using Function = std::function<LogText(const DDLogMessage&)>;
  explicit FunctionFormatter(Function function) : function_(std::move(function)) {}
  LogText formatLogMessage(const DDLogMessage& message) override { return function_(message); }

 private:
  Function function_;
};

/// A logger of a process "KVScheduler" with number 512, whose terminal takes any colour by its
/// components, so that lines show which colour was chosen.
class DDTTYLoggerTest : public testing::Test {
 protected:
  /// What one message is written as; empty when nothing is written.
  std::string line(const DDLogMessage::Fields& fields) {
    const DDLogMessage message(fields);
    threadID_ = message.threadID();
    logger_->colorsEnabled();  // returns when all that was asked before has been done
    output_->lines.clear();
    logger_->loggerQueue()->sync([&] { logger_->logMessage(message); });
    EXPECT_LE(output_->lines.size(), 1u);
    return output_->lines.empty() ? "" : output_->lines.front();
  }

  /// The colour of a line, as the console is told it, and whether it ends with a reset: "1,2,3".
  std::string colorOf(std::uint64_t flag, std::int64_t context, const LogTag& tag = nullptr) {
    const auto text =
        line({.message = makeLogText("x"), .flag = flag, .context = context, .tag = tag});
    if (text.find('\x1b') == std::string::npos) return "none";
    EXPECT_TRUE(text.starts_with("\x1b[fg") && text.ends_with("\n\x1b[;")) << text;
    return text.substr(4, text.find(';') - 4);
  }

  const ScopedEnvironment zone_{"TZ", kBerlin};
  const std::shared_ptr<RecordingOutput> output_ = std::make_shared<RecordingOutput>();
  const std::shared_ptr<DDTTYLogger> logger_ =
      DDTTYLogger::create({.output = output_,
                           .processName = "KVScheduler",
                           .pid = 512,
                           .terminal = TerminalColors{.kind = TerminalColors::Kind::kXcode}});
  std::string threadID_;
};

TEST_F(DDTTYLoggerTest, ShowsTheLocalTimeOfEachMessage) {
  const struct {
    Date timestamp;
    const char* time;
  } kCases[] = {
      {localDate("2024-03-05 14:07"), "14:07-"},
      {localDate("2024-03-05 14:07") + Seconds(59.999), "14:07-"},
      {localDate("2024-03-05 14:07") + Seconds(60), "14:08-"},
      {localDate("2024-03-05 00:00"), "00:00-"},
      {localDate("2024-03-05 00:00") + Seconds(-1), "23:59-"},
      {localDate("2024-03-31 01:59") + Seconds(60), "03:00-"},
      {localDate("1961-12-31 00:30"), "00:30-"},
      {Date::fromUnixSeconds(1e300), ""},
      {Date::fromUnixSeconds(std::numeric_limits<double>::quiet_NaN()), ""},
      {kMoment, "14:07-"},
  };
  for (const auto& [timestamp, time] : kCases) {
    const auto text = line({.message = makeLogText("text"), .timestamp = timestamp});
    EXPECT_EQ(text, time + (" KVScheduler[512:" + threadID_) + "] text\n");
  }
  const ScopedEnvironment elsewhere("TZ", "IST-5:30");
  const auto next = line({.message = makeLogText("text"), .timestamp = kMoment + Seconds(1)});
  EXPECT_EQ(next.substr(0, 6), "18:37-");
}

TEST_F(DDTTYLoggerTest, WritesOneLinePerMessage) {
  const std::string large(100'000, 'x');
  const auto same = [](const DDLogMessage& message) { return message.message(); };
  const auto equal = [](const DDLogMessage& message) { return makeLogText(*message.message()); };
  const auto fixed = [](const DDLogMessage&) { return makeLogText("made anew"); };
  const auto none = [](const DDLogMessage&) { return LogText(); };
  const std::string kHead = "HEAD";
  const struct {
    const char* why;
    LogText text;
    FunctionFormatter::Function formatter;
    bool appendNewline;
    std::string expected;
  } kCases[] = {
      {"no formatter", makeLogText("100% sure %s"), {}, true, kHead + "100% sure %s\n"},
      {"no newline is for formatters only", makeLogText("a"), {}, false, kHead + "a\n"},
      {"a line end of its own", makeLogText("a\n"), {}, true, kHead + "a\n\n"},
      {"empty", makeLogText(""), {}, true, kHead + "\n"},
      {"large", makeLogText(large), {}, true, kHead + large + "\n"},
      {"no text", nullptr, {}, true, ""},
      {"the same object", makeLogText("a"), same, false, kHead + "a\n"},
      {"an equal text of its own", makeLogText("a"), equal, true, "a\n"},
      {"made anew", makeLogText("a"), fixed, true, "made anew\n"},
      {"made anew without line end", makeLogText("a"), fixed, false, "made anew"},
      {"made from no text", nullptr, fixed, true, "made anew\n"},
      {"not to be written", makeLogText("a"), none, true, ""},
      {"no text and none made", nullptr, same, true, ""},
  };
  EXPECT_TRUE(logger_->automaticallyAppendNewlineForCustomFormatters());
  for (const auto& [why, text, formatter, appendNewline, expected] : kCases) {
    logger_->setLogFormatter(formatter ? std::make_shared<FunctionFormatter>(formatter) : nullptr);
    logger_->setAutomaticallyAppendNewlineForCustomFormatters(appendNewline);
    const auto written = line({.message = text, .timestamp = kMoment});
    const std::string head = "14:07- KVScheduler[512:" + threadID_ + "] ";
    const bool hasHead = expected.starts_with(kHead);
    EXPECT_EQ(written, hasHead ? head + expected.substr(kHead.size()) : expected) << why;
  }
}

TEST_F(DDTTYLoggerTest, PutsTheCodesAroundTheWholeLine) {
  const TerminalColors kSmall = {TerminalColors::Kind::kAnsi, &TerminalPalette::colors16()};
  const TerminalColors kLarge = {TerminalColors::Kind::kAnsi, &TerminalPalette::colors256()};
  const struct {
    TerminalColors terminal;
    bool custom;
    const char* before;
    const char* after;
  } kCases[] = {
      {kSmall, false, "\x1b[1;31m\x1b[44m14:07- <UnnamedApp>[-1:", "] text\n\x1b[0m"},
      {kLarge, true, "\x1b[38;5;196m\x1b[48;5;20mmade anew", "\n\x1b[0m"},
      {{}, false, "14:07- <UnnamedApp>[-1:", "] text\n"},
  };
  for (const auto& [terminal, custom, before, after] : kCases) {
    const auto output = std::make_shared<RecordingOutput>();
    const auto logger =
        DDTTYLogger::create({.output = output, .processName = "", .pid = -1, .terminal = terminal});
    if (custom) {
      logger->setLogFormatter(std::make_shared<FunctionFormatter>(
          [](const DDLogMessage&) { return makeLogText("made anew"); }));
    }
    logger->setForegroundColor_backgroundColor_forFlag(kRed, LogColor::fromBytes(73, 46, 225), 1);
    logger->setColorsEnabled(true);
    EXPECT_TRUE(logger->colorsEnabled());
    const DDLogMessage message(
        {.message = makeLogText("text"), .flag = LogFlag::kError, .timestamp = kMoment});
    logger->loggerQueue()->sync([&] { logger->logMessage(message); });
    const std::string thread = custom ? "" : std::string(message.threadID());
    EXPECT_THAT(output->lines, ElementsAre(before + thread + after));
  }
}

TEST_F(DDTTYLoggerTest, ChoosesTheProfile) {
  const LogTag tagged = std::make_shared<int>(1);
  const LogTag untagged = std::make_shared<int>(1);
  logger_->setForegroundColor_backgroundColor_forFlag(kRed, {}, 1);
  logger_->setForegroundColor_backgroundColor_forFlag_context(kGreen, {}, 1, 7);
  logger_->setForegroundColor_backgroundColor_forFlag(kBlue, {}, 1 | 4);
  logger_->setForegroundColor_backgroundColor_forFlag_context(kWhite, {}, 3, 7);
  logger_->setForegroundColor_backgroundColor_forTag(LogColor{0, 1, 1}, {}, tagged);
  logger_->setForegroundColor_backgroundColor_forTag(kWhite, {}, nullptr);
  EXPECT_FALSE(logger_->colorsEnabled());
  EXPECT_EQ(colorOf(1, 0), "none");
  EXPECT_EQ(colorOf(1, 0, tagged), "none");
  logger_->setColorsEnabled(true);
  const struct {
    const char* why;
    std::uint64_t flag;
    std::int64_t context;
    LogTag tag;
    const char* color;
  } kCases[] = {
      {"the last one for any context", 1, 0, nullptr, "0,0,255"},
      {"the first one for the very context", 1, 7, nullptr, "0,255,0"},
      {"the first one that is for any context, when that is the message's", 1, kAny, nullptr,
       "255,0,0"},
      {"a bit of the mask", 4, 7, nullptr, "0,0,255"},
      {"a message with several bits", 2 | 8, 7, nullptr, "255,255,255"},
      {"another context", 2, 0, nullptr, "none"},
      {"another flag", 8, 7, nullptr, "none"},
      {"no flag", 0, 7, nullptr, "none"},
      {"the tag before the flag", 1, 7, tagged, "0,255,255"},
      {"the tag whatever the flag", 0, 0, tagged, "0,255,255"},
      {"a tag without colours", 1, 7, untagged, "0,255,0"},
  };
  for (const auto& [why, flag, context, tag, color] : kCases) {
    EXPECT_EQ(colorOf(flag, context, tag), color) << why;
  }
}

TEST_F(DDTTYLoggerTest, ReplacesAndClearsProfiles) {
  const LogTag tag = std::make_shared<int>(1);
  logger_->setForegroundColor_backgroundColor_forFlag(kRed, {}, 1);
  logger_->setForegroundColor_backgroundColor_forFlag(kBlue, {}, 3);
  logger_->setColorsEnabled(true);
  // Replaced where it stands, it does not become the last one.
  logger_->setForegroundColor_backgroundColor_forFlag(kGreen, {}, 1);
  EXPECT_EQ(colorOf(1, 0), "0,0,255");

  logger_->clearColorsForFlag(3);  // context 0, for which nothing was set
  EXPECT_EQ(colorOf(1, 0), "0,0,255");
  logger_->clearColorsForFlag_context(2, kAny);  // not the mask that was set
  EXPECT_EQ(colorOf(1, 0), "0,0,255");
  logger_->clearColorsForFlag_context(3, kAny);
  EXPECT_EQ(colorOf(1, 0), "0,255,0");
  logger_->setForegroundColor_backgroundColor_forFlag_context(kWhite, {}, 1, 0);
  EXPECT_EQ(colorOf(1, 0), "255,255,255");
  logger_->clearColorsForFlag(1);
  EXPECT_EQ(colorOf(1, 0), "0,255,0");

  logger_->setForegroundColor_backgroundColor_forTag(kRed, {}, tag);
  logger_->setForegroundColor_backgroundColor_forTag(kWhite, {}, tag);
  EXPECT_EQ(colorOf(1, 0, tag), "255,255,255");
  logger_->clearColorsForAllFlags();
  EXPECT_EQ(colorOf(1, 0), "none");
  EXPECT_EQ(colorOf(1, 0, tag), "255,255,255");
  logger_->clearColorsForTag(tag);
  EXPECT_EQ(colorOf(1, 0, tag), "none");

  logger_->setForegroundColor_backgroundColor_forFlag(kRed, {}, 1);
  logger_->setForegroundColor_backgroundColor_forTag(kWhite, {}, tag);
  logger_->clearColorsForAllTags();
  EXPECT_EQ(colorOf(1, 0, tag), "255,0,0");
  logger_->setForegroundColor_backgroundColor_forTag(kWhite, {}, tag);
  logger_->clearAllColors();
  EXPECT_EQ(colorOf(1, 0, tag), "none");
}

TEST_F(DDTTYLoggerTest, LoadsTheDefaultColorsWhenTheSwitchIsSetAndNoFlagHasOne) {
  logger_->setColorsEnabled(false);
  EXPECT_EQ(colorOf(1, 5), "none");
  logger_->clearColorsForFlag_context(1, kAny);  // was loaded although colours are off
  logger_->setColorsEnabled(true);               // the warning's colour is there: nothing is loaded
  EXPECT_EQ(colorOf(1, 5), "none");
  EXPECT_EQ(colorOf(2, 5), "204,121,32");
  logger_->clearAllColors();
  logger_->setColorsEnabled(true);
  EXPECT_EQ(colorOf(1, 5), "214,57,30");
  EXPECT_EQ(colorOf(4, 5), "none");
}

TEST_F(DDTTYLoggerTest, ChangesColorsAtOnceOnItsOwnQueueAndInTurnFromElsewhere) {
  logger_->setColorsEnabled(true);
  logger_->setLogFormatter(std::make_shared<FunctionFormatter>([this](const DDLogMessage& message) {
    logger_->setForegroundColor_backgroundColor_forFlag(kBlue, {}, 1);
    logger_->setColorsEnabled(false);  // in turn, wherever it is called
    std::thread([this] {
      logger_->setForegroundColor_backgroundColor_forFlag(kGreen, {}, 1);
    }).join();
    return message.message();
  }));
  EXPECT_EQ(colorOf(1, 0), "0,0,255");
  logger_->setLogFormatter(nullptr);
  EXPECT_EQ(colorOf(1, 0), "none");
  logger_->setColorsEnabled(true);
  EXPECT_EQ(colorOf(1, 0), "0,255,0");
}

TEST_F(DDTTYLoggerTest, NeedsNoMemoryForALine) {
  const auto logger = DDTTYLogger::create(
      {.output = outputToDescriptor(-1),
       .processName = std::string(100, 'n'),
       .terminal = TerminalColors::fromEnvironment([](const char*) { return "256color"; })});
  logger->setColorsEnabled(true);
  logger->colorsEnabled();
  const LogText text = makeLogText(std::string(4095, 'x'));
  const DDLogMessage first({.message = text, .flag = 1, .timestamp = kMoment});
  const DDLogMessage next({.message = text, .flag = 1, .timestamp = kMoment + Seconds(86400)});
  logger->loggerQueue()->sync([&] {
    const std::size_t before = allocationsOfThisThread();
    logger->logMessage(first);
    logger->logMessage(next);
    EXPECT_EQ(allocationsOfThisThread() - before, 0u);
  });
}

// The shared instance and what is settled with it stay for good, so they are looked at in a process
// of their own.
TEST(DDTTYLoggerDeathTest, TheSharedInstanceIsTheOnlyOneAndWritesToStandardError) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const auto useSharedInstance = [] {
    const ScopedEnvironment xcode("XcodeColors", nullptr);
    const ScopedEnvironment terminal("TERM", "xterm-256color");
    if (DDTTYLogger::create() == nullptr) std::_Exit(1);
    if (DDTTYLogger::codeIndexForColor(kRed) != 0) std::_Exit(2);
    const auto logger = DDTTYLogger::sharedInstance();
    if (DDTTYLogger::sharedInstance() != logger) std::_Exit(3);
    if (DDTTYLogger::create() != nullptr) std::_Exit(4);
    DDTTYLogger::initialize_colors_16();  // too late
    if (DDTTYLogger::codeIndexForColor(kRed) != 196 - 16) std::_Exit(5);
    if (logger->loggerName() != "kelvara.logging.ttyLogger") std::_Exit(6);
    if (logger->loggerQueue()->label() != "kelvara.logging.ttyLogger") std::_Exit(7);
    logger->setForegroundColor_backgroundColor_forFlag(kRed, {}, 1);
    logger->setColorsEnabled(true);
    logger->colorsEnabled();
    const DDLogMessage message({.message = makeLogText("text"), .flag = 1});
    logger->loggerQueue()->sync([&] { logger->logMessage(message); });
    std::_Exit(0);
  };
  EXPECT_EXIT(useSharedInstance(), testing::ExitedWithCode(0),
              "^\x1b\\[38;5;196m[0-9]{2}:[0-9]{2}- logging_termina[a-z_]*"
              "\\[[0-9]+:[0-9a-f]{1,8}\\] text\n\x1b\\[0m$");
}

TEST(DDTTYLogger, ReadsTheComponentsOfAColor) {
  double red = 0, green = 0, blue = 0;
  DDTTYLogger::getRed_green_blue_fromColor(&red, &green, &blue, {0.25, 0.5, 0.75});
  EXPECT_EQ(std::tuple(red, green, blue), std::tuple(0.25, 0.5, 0.75));
  DDTTYLogger::getRed_green_blue_fromColor(nullptr, &green, nullptr, kGreen);
  EXPECT_EQ(std::tuple(red, green, blue), std::tuple(0.25, 1.0, 0.75));
}

}  // namespace
}  // namespace kv::test
