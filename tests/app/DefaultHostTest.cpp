#include <gmock/gmock.h>

#include "tests/app/ScriptWorld.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// What the host script sees of the machine, under the hand of the test.
constexpr const char* kFakeMachine = R"(
  var fake = {installed: ['/p/kvbackup'], processes: [], history: [], started: [], now: 0,
              polls: [], debug: undefined};
  Date.now = () => fake.now;
  system = {
    programFolder: '/p', historyFile: '/h',
    exists: path => fake.installed.indexOf(path) >= 0,
    processesRunning: () => fake.processes.map((line, i) => ({pid: i, arguments: line.split(' ')})),
    readTail: () => fake.history.join('\n'),
    destinationPresent: path => path !== '/disk/Gone',
    environment: name => name === 'KVSCHEDULER_DEBUG' ? fake.debug : undefined,
    after: (seconds, action) => fake.polls.push(action)
  };
  UtilsSch = {runScript: list => { fake.started.push(list.join(' ')); return ''; }};
  function ran(set, result, end) {
    fake.history.push(JSON.stringify({set: set, result: result, end: new Date(end).toISOString()}));
  }
)";

/// The default host script on a fake machine, in UTC, from 2024-03-05 09:00 on.
struct HostWorld : ScriptWorld {
  /// `before` changes the fake machine before the host script is loaded.
  explicit HostWorld(const TaskList& sets, const std::string& before = "") {
    writeDocument(sets);
    setTime("2024-03-05 09:00:00");
    script(kFakeMachine);
    script(before);
    script(readFile(KV_DEFAULT_HOST));
    application->finishLaunching();
  }
  /// Asking a file logger for its size waits until it has rolled its file.
  ~HostWorld() {
    value("var file = DDLog.allLoggers()[0]; DDLog.removeAllLoggers(); file.maximumFileSize()");
  }

  void setTime(const std::string& time) {
    clock->present = localDate(time);
    now = clock->present.unixSeconds() * 1000;
  }
  /// A tick at this time, which comes after what happened on the machine meanwhile.
  std::string tickAt(const std::string& time, const std::string& meanwhile = "") {
    setTime(time);
    value("fake.now = " + std::to_string(now));
    value(meanwhile);
    value("fake.started = []");
    runLoop->advance(KVTimer::kTickInterval);
    return show("fake.started.join()");
  }
  std::string at(const char* time) {
    return std::to_string(localDate(std::string("2024-03-05 ") + time).unixSeconds() * 1000);
  }

  /// What the host script has told of itself.
  std::string events() {
    value("DDLog.flushLog()");
    std::string text;
    for (const auto& file : std::filesystem::directory_iterator(home / "Library/Logs/app_tests")) {
      text += readFile(file.path());
    }
    return text;
  }

  ScopedEnvironment zone{"TZ", "UTC0"};
  ScopedEnvironment logsHome{"HOME", home.path().c_str()};
  double now = 0;
};

const std::string kStartA = "/p/kvbackup Qm3x7P A";
const std::string kStartB = "/p/kvbackup Qm3x7P B";

Task dueDaily(const char* set) {
  return Task(set).daily("00:00").lastRun("4");
}

TEST(DefaultHost, StartsOneSetAfterTheOther) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld world({dueDaily("A"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), kStartA);
  // Not to be seen yet, then running.
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:30"), "");
  EXPECT_EQ(world.tickAt("2024-03-05 09:02:00", "fake.processes = ['kvbackup Qm3x7P A']"), "");
  // Ended so shortly before the tick that its documents may not know of it.
  world.writeDocument({dueDaily("A"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:03:00",
                         "fake.processes = []; ran('A', 'ok', " + world.at("09:02:57") + ")"),
            "");
  world.writeDocument({dueDaily("A").lastRun("5"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:04:00", "fake.processes = ['kvbackup list --json']"),
            kStartB);
  EXPECT_THAT(world.events(), HasSubstr(" > A: backup done\n"));
  // A run that somebody else began counts too.
  EXPECT_EQ(world.tickAt("2024-03-05 09:05:00", "fake.processes = ['kvbackup run A']"), "");
}

TEST(DefaultHost, LetsASetRestAfterFailedRuns) {
  struct {
    int failures;
    const char* stillResting;  ///< the last failure ended at 10:00:00
    const char* rested;
  } const kCases[] = {{1, "10:04:59", "10:05:01"}, {2, "10:09:59", "10:10:01"},
                      {3, "10:19:59", "10:20:01"}, {6, "12:39:59", "12:40:01"},
                      {7, "13:59:59", "14:00:01"}, {20, "13:59:59", "14:00:01"}};
  ScopedEnvironment zone("TZ", "UTC0");
  for (const auto& c : kCases) {
    HostWorld world({dueDaily("A")});
    world.value("ran('A', 'failed', " + world.at("07:00:00") + ")");
    world.value("ran('A', 'ok', " + world.at("08:00:00") + ")");
    for (int i = 0; i < c.failures; ++i) {
      world.value("ran('A', 'interrupted', " + world.at("10:00:00") + ")");
    }
    world.value("fake.history.push('{\"set\": \"A\", cut short')");
    const std::string day = "2024-03-05 ";
    EXPECT_EQ(world.tickAt(day + c.stillResting), "") << c.failures;
    EXPECT_EQ(world.tickAt(day + c.rested), kStartA) << c.failures;
  }
}

TEST(DefaultHost, HoldsNobodyElseUpWithARestingSet) {
  ScopedEnvironment zone("TZ", "UTC0");
  const auto overdue = [](const char* set, const char* due) {
    return Task(set).minutes(due).field("destinationPath", "/disk/Shared");
  };
  // The more overdue one stands first in the interval pass, and rests.
  HostWorld world({overdue("B", "2024-03-05 08:00"), overdue("A", "2024-03-05 07:00")},
                  "ran('A', 'failed', Date.UTC(2024, 2, 5, 9, 0, 30))");
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), kStartB);
  EXPECT_THAT(world.events(), HasSubstr("A: failed, next try at 09:05\n"));
}

TEST(DefaultHost, GivesUpOnAProgramThatNeverAppears) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld world({dueDaily("A"), dueDaily("Gone"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), kStartA);
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:57"), kStartB);  // A rests, Gone has no volume
  EXPECT_THAT(world.events(), HasSubstr("A: kvbackup did not start\n"));
}

TEST(DefaultHost, AsksKelvaraWhereItIsInstalled) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld world({dueDaily("A"), dueDaily("B")}, "fake.installed.push('/usr/bin/Kelvara+')");
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), "/usr/bin/Kelvara+ Qm3x7P A");
  // It stays open, so only the moved record tells that the run has ended.
  EXPECT_EQ(world.tickAt("2024-03-05 09:02:00", "fake.processes = ['Kelvara+']"), "");
  world.writeDocument({dueDaily("A").lastRun("5"), dueDaily("B")});
  EXPECT_EQ(world.tickAt("2024-03-05 09:03:00"), "/usr/bin/Kelvara+ 4R82T6 B");
}

TEST(DefaultHost, TracesFromTheStartWhenAsked) {
  ScopedEnvironment zone("TZ", "UTC0");
  HostWorld quiet({});
  quiet.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(readFile(quiet.home / "trace.txt"), "");
  HostWorld tracing({}, "fake.debug = '1'");
  tracing.tickAt("2024-03-05 09:01:00");
  EXPECT_EQ(readFile(tracing.home / "trace.txt"), "09:01:00 [Timer] sorted array count: 0\n");
}

}  // namespace
}  // namespace kv::test
