#include <gmock/gmock.h>

#include <array>
#include <vector>

#include "logging/DDLog.h"
#include "platform/MainQueue.h"
#include "tests/app/ScriptWorld.h"
#include "tests/support/RecordingLogger.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

/// Scripts that log into a folder of their own; the loggers go with the test.
struct LoggingWorld : ScriptWorld {
  LoggingWorld() {
    script("var folder = '" + home.path().string() + R"(/logs';
        var manager = new DDLogFileManagerDefault(folder), file = new DDFileLogger(manager);
        var lines = () => { DDLog.flushLog(); return manager.sortedLogFilePaths().map(
            path => system.readTail(path, 1e6)).join('---'); };)");
  }
  /// Asking a file logger for its size waits until it has rolled its file.
  ~LoggingWorld() { script("DDLog.removeAllLoggers(); file.maximumFileSize();"); }
};

TEST(ScriptLogging, WritesWhatALoggersLevelLetsThrough) {
  LoggingWorld world;
  world.script(R"(file.setLogFormatter(new FormatterSch());
      DDLog.addLogger_withLevel(file, DDLog.LevelWarning | 1 << 9);
      DDLog.error('an error, 100%'); DDLog.warn({a: [1]}); DDLog.info('no'); DDLog.verbose('no');
      const cycle = []; cycle.push(cycle); DDLog.error(cycle); DDLog.error(undefined);
      DDLog.log(true, {message: 'own flag', flag: 1 << 9, level: -1, context: -7, tag: 'x'});
      DDLog.log(false, {message: 'all flags', flag: DDLog.LevelAll});
      DDLog.log(false, {message: 'info by default'});)");
  std::string text = world.show("lines().replace(/..:..:.. > /g, '> ')");
  EXPECT_EQ(text,
            "> an error, 100%\n> {\"a\":[1]}\n> [object Array]\n> undefined\n> own flag\n"
            "> all flags\n");
}

TEST(ScriptLogging, FillsTheMessage) {
  LoggingWorld world;
  std::vector<DDLogMessage> messages;
  DDLog::addLogger(std::make_shared<RecordingLogger>(
      [&](const DDLogMessage& message) { messages.push_back(message); }));
  world.script(R"(function work() {
        DDLog.log(true, {message: 'a', level: 5, flag: 2, context: -7, tag: 'x' + 'y'});
      }
      work();
      DDLog.log(false, {message: 'b', tag: 'xy'}); DDLog.error('c');)");
  EXPECT_EQ(world.show("DDLog.allLoggers().length"), "0") << "the script has added none";
  DDLog::removeAllLoggers();
  ASSERT_EQ(messages.size(), 3u);
  const DDLogMessage& a = messages[0];
  const DDLogMessage& b = messages[1];
  EXPECT_EQ(a.file(), "/bundle/host.js");
  EXPECT_EQ(a.fileName(), "host");
  EXPECT_EQ(a.function(), "work");
  EXPECT_THAT((std::array{a.line(), b.line()}), ElementsAre(2u, 5u));
  EXPECT_EQ(b.function(), "");
  EXPECT_THAT((std::array{a.level(), a.flag()}), ElementsAre(5u, LogFlag::kWarning));
  EXPECT_EQ(a.context(), -7);
  EXPECT_THAT((std::array{b.level(), b.flag()}), ElementsAre(LogLevel::kAll, LogFlag::kInfo));
  EXPECT_EQ(a.tag(), b.tag());
  EXPECT_NE(a.tag(), nullptr);
  EXPECT_EQ(messages[2].tag(), nullptr);
  EXPECT_EQ(messages[2].flag(), LogFlag::kError);
}

TEST(ScriptLogging, OneFormatterServesLoggersThatRunInParallel) {
  LoggingWorld world;
  world.script(R"(const other = new DDFileLogger(new DDLogFileManagerDefault(folder + '2'));
      const sch = new FormatterSch();
      for (const one of [file, other]) { one.setLogFormatter(sch); DDLog.addLogger(one); }
      for (let i = 0; i < 2000; ++i) DDLog.info('line');
      other.maximumFileSize();)");
  EXPECT_EQ(world.show("lines().match(/^\\d\\d:\\d\\d:\\d\\d > line$/gm).length"), "2000");
}

TEST(ScriptLogging, KeepsTheScriptsOwnObjects) {
  LoggingWorld world;
  world.script(R"(var terminal = DDTTYLogger.sharedInstance(), sch = new FormatterSch();
      DDLog.addLogger(file); DDLog.addLogger(terminal); DDLog.addLogger(file);
      var names = () => DDLog.allLoggers().map(one => one === file ? 'file' : one === terminal);)");
  world.collectGarbage();
  EXPECT_EQ(world.show("names()"), "file,true,file");
  EXPECT_EQ(world.show("DDLog.removeLogger(file); DDLog.removeLogger(file); names()"), "true");
  EXPECT_EQ(world.show("DDLog.removeAllLoggers(); names()"), "");
  EXPECT_EQ(world.show("DDTTYLogger.sharedInstance() === terminal"), "true");
  EXPECT_EQ(world.show("file.logFileManager() === manager"), "true");
  EXPECT_EQ(world.show("file.logFormatter() instanceof DDLogFileFormatterDefault"), "true");
  EXPECT_EQ(world.show("file.setLogFormatter(sch); file.logFormatter() === sch"), "true");
  EXPECT_EQ(world.show("file.setLogFormatter(null); file.logFormatter()"), "null");
}

TEST(ScriptLogging, ReadsBackWhatWasSet) {
  const std::tuple<std::string, std::string, const char*> kCases[] = {
      {"file", "MaximumFileSize", "9007199254740991"},
      {"file", "RollingFrequency", "-1.5"},
      {"file", "DoNotReuseLogFiles", "true"},
      {"file", "GroupsBacklogWrites", "false"},
      {"file", "AutomaticallyAppendNewlineForCustomFormatters", "false"},
      {"manager", "MaximumNumberOfLogFiles", "3"},
      {"manager", "LogFilesDiskQuota", "0"},
      {"terminal", "ColorsEnabled", "true"},
      {"terminal", "AutomaticallyAppendNewlineForCustomFormatters", "true"},
  };
  LoggingWorld world;
  world.script("var terminal = DDTTYLogger.sharedInstance();");
  for (const auto& [object, property, value] : kCases) {
    std::string getter = property;
    getter[0] = static_cast<char>(std::tolower(getter[0]));
    EXPECT_EQ(
        world.show(object + ".set" + property + "(" + value + "); " + object + "." + getter + "()"),
        value)
        << property;
  }
}

const char* const kBadCalls[] = {
    "DDLog.addLogger(null)",
    "DDLog.addLogger({})",
    "DDLog.addLogger(new FormatterSch())",
    "DDLog.addLogger(new KVTimer())",
    "DDLog.addLogger_withLevel(file)",
    "DDLog.addLogger_withLevel(file, NaN)",
    "DDLog.addLogger_withLevel(file, -2)",
    "DDLog.addLogger_withLevel(file, 1e300)",
    "DDLog.removeLogger('file')",
    "DDLog.log({message: 'x'})",
    "DDLog.log(true)",
    "DDLog.log(true, 'x')",
    "DDLog.log(true, {})",
    "DDLog.log(true, {message: 'x', flag: 0.5})",
    "DDLog.log(true, {message: 'x', level: '1'})",
    "DDLog.log(true, {message: 'x', context: Infinity})",
    "DDLog.log(true, {message: 'x', tag: {}})",
    "DDLog.levelForClassWithName()",
    "DDLog.setLevel_forClassWithName(1, null)",
    "new DDFileLogger({})",
    "new DDFileLogger(folder)",
    "new DDTTYLogger()",
    "new DDLogFileManagerDefault(5)",
    "new DDLogFileManagerDefault('')",
    "new DDLogFileManagerDefault('a\\0b')",
    "manager.setMaximumNumberOfLogFiles(-1)",
    "manager.setLogFilesDiskQuota(1.5)",
    "manager.isLogFile()",
    "file.setLogFormatter(file)",
    "file.setLogFormatter({formatLogMessage() {}})",
    "file.setMaximumFileSize(-1)",
    "file.setMaximumFileSize()",
    "file.setMaximumFileSize(NaN)",
    "file.setRollingFrequency(Infinity)",
    "file.setRollingFrequency('1')",
    "file.setDoNotReuseLogFiles(1)",
    "file.rollLogFileWithCompletionBlock(5)",
    "file.maximumFileSize.call(terminal)",
    "file.setLogFormatter.call({}, null)",
    "terminal.setColorsEnabled()",
    "terminal.setForegroundColor_backgroundColor_forFlag([1, 2], null, 1)",
    "terminal.setForegroundColor_backgroundColor_forFlag([1, 2, 256], null, 1)",
    "terminal.setForegroundColor_backgroundColor_forFlag([, , ,], null, 1)",
    "terminal.setForegroundColor_backgroundColor_forFlag('red', null, 1)",
    "terminal.setForegroundColor_backgroundColor_forFlag(null, null)",
    "terminal.setForegroundColor_backgroundColor_forFlag_context(null, null, 1, 0.5)",
    "terminal.setForegroundColor_backgroundColor_forTag(null, null, {})",
    "terminal.clearColorsForTag()",
    "terminal.clearAllColors.call(file)",
    "terminal.clearColorsForFlag.call(cycle, 1)",
    "terminal.setForegroundColor_backgroundColor_forFlag.call(cycle, null, null, 1)",
};

TEST(ScriptLogging, RefusesWhatItCannotUse) {
  LoggingWorld world;
  world.script("var terminal = DDTTYLogger.sharedInstance(), cycle = []; cycle.push(cycle);");
  for (const char* expression : kBadCalls) {
    EXPECT_THAT(world.show(expression), MatchesRegex("TypeError: .*(must|is |are|has|no ).*"))
        << expression;
  }
  EXPECT_EQ(world.show("DDLog.allLoggers().length + lines()"), "0");
}

TEST(ScriptLogging, ColoursByFlagAndByTheTextOfATag) {
  LoggingWorld world;
  world.script(R"(var terminal = DDTTYLogger.sharedInstance();
      terminal.setColorsEnabled(true);
      terminal.setForegroundColor_backgroundColor_forFlag([255, 0, 0], null, DDLog.FlagError);
      terminal.setForegroundColor_backgroundColor_forFlag_context(null, [0, 0, 255], -1, -3);
      terminal.setForegroundColor_backgroundColor_forTag([0, 255, 0], undefined, 'a' + 'b');
      for (let i = 0; i < 200; ++i) DDLog.log(true, {message: 'm', tag: 'unused ' + i});
      terminal.setLogFormatter(new FormatterSch()); DDLog.addLogger(terminal);)");
  testing::internal::CaptureStderr();
  world.script(R"(DDLog.log(false, {message: 'by tag', tag: ['a', 'b'].join('')});
      DDLog.error('by flag'); terminal.clearColorsForTag('ab');
      DDLog.log(false, {message: 'plain', tag: 'ab'}); terminal.clearAllColors();)");
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_THAT(written, MatchesRegex("\x1B.38;5;46m[0-9:]+ > by tag\n\x1B.0m"
                                    "\x1B.38;5;196m[0-9:]+ > by flag\n\x1B.0m"
                                    "[0-9:]+ > plain\n"));
}

TEST(ScriptLogging, CallsBackOnTheMainQueueWhenTheFileIsRolled) {
  LoggingWorld world;
  world.script(R"(var called = [];
      DDLog.addLogger(file); DDLog.info('first');
      (() => file.rollLogFileWithCompletionBlock(() => called.push('rolled')))();
      file.rollLogFileWithCompletionBlock(() => { throw new Error('no'); });
      file.rollLogFileWithCompletionBlock(null); file.rollLogFile();
      DDLog.flushLog();)");
  world.collectGarbage();
  EXPECT_EQ(world.show("called.length"), "0");
  MainQueue::drain();
  EXPECT_EQ(world.show("called.join()"), "rolled");
  EXPECT_THAT(world.log(), ElementsAre("/bundle/host.js:4: rollLogFileWithCompletionBlock: "
                                       "Error: no"));
}

TEST(ScriptLogging, ACompletionThatComesAfterTheEngineIsForgotten) {
  {
    LoggingWorld world;
    world.script("file.rollLogFileWithCompletionBlock(() => { throw 'late'; });");
  }
  EXPECT_EQ(MainQueue::drain(), 1u);
}

}  // namespace
}  // namespace kv::test
