#include <gmock/gmock.h>

#include "platform/PropertyListWriter.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/app/AgentProcess.h"
#include "tests/app/PrivateBus.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Pause.h"
#include "tools/kvctl/StatusCommand.h"

namespace kv::kvctl {
namespace {

using test::AgentFolders;
using test::AgentProcess;
using test::localDate;
using test::PrivateBus;
using test::ScopedEnvironment;
using test::Task;
using testing::HasSubstr;
using Dictionary = PropertyList::Dictionary;

TEST(Status, KnowsAPauseAsTheAgentDoes) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const Date now = localDate("2024-03-05 09:00");
  const struct {
    const char* text;
    bool isPaused;
    const char* until;
  } kCases[] = {
      {R"({"until": null})", true, ""},
      {R"({"until": "2024-03-05T20:00:00.000Z"})", true, "2024-03-05 20:00"},
      {R"({"until": "2024-03-05T08:00:00Z"})", false, ""},
      {R"({"until": "2024-03-05T20:00:00Z", "since": "2024-03-05T19:00:00Z"})", false, ""},
      {R"({"until": "2099-01-01T00:00:00Z", "since": "2024-03-05T08:00:00Z"})", false, ""},
      {R"({"until": 5})", false, ""},
      {"{}", false, ""},
      {"{\"unt", false, ""},
  };
  for (const auto& one : kCases) {
    const auto pause = pauseIn(one.text, now);
    EXPECT_EQ(pause.has_value(), one.isPaused) << one.text;
    EXPECT_EQ(pause.value_or(Pause{}).until,
              *one.until ? std::optional(localDate(one.until)) : std::nullopt)
        << one.text;
  }
}

TEST(Status, ShowsWhatTheAgentSaysHarmlessly) {
  AgentState state;
  addAnswer(state,
            Dictionary{{"ProcessId", 7},
                       {"Running", true},
                       {"RunningSet", "D\x1b[2Jocs"},
                       {"LastTick", 1700000000},
                       {"Sets", PropertyList::Array{"odd", Dictionary{{"index", 3},
                                                                      {"name", "a\nb"},
                                                                      {"state", 5},
                                                                      {"lastGood", 1600000000},
                                                                      {"lastFailed", 1500000000},
                                                                      {"next", -1}}}},
                       {"LastDecisions",
                        PropertyList::Array{Dictionary{{"index", 3}, {"outcome", "no-volume"}}}}});
  ASSERT_EQ(state.sets.size(), 1u);
  EXPECT_EQ(state.sets[0].lastResult, "ok");
  test::TemporaryFolder home;
  const ScopedEnvironment zone("TZ", "UTC0"), environment("HOME", home.path().c_str());
  Context context;
  context.clock = std::make_shared<StandingClock>(Date());
  context.files = std::make_shared<PosixFiles>();
  context.homeFolder = home.path().string();
  const std::string text = statusText(state, context, Sets(context));
  EXPECT_THAT(text, HasSubstr("D?[2Jocs is running\n"));
  EXPECT_THAT(text, HasSubstr("a?b  Sun 2020-09-13 12:26  due now"));
  EXPECT_THAT(text, HasSubstr("due, but its volume was missing"));
}

/// What `kvctl status --json` says of a world, and its exit status.
std::pair<Json, int> statusOf(const AgentFolders& folders) {
  const std::string home = folders.root / "home", runtime = folders.root / "runtime";
  const ScopedEnvironment environment[] = {{"HOME", home.c_str()},
                                           {"XDG_RUNTIME_DIR", runtime.c_str()},
                                           {"XDG_STATE_HOME", nullptr},
                                           {"DBUS_SESSION_BUS_ADDRESS", nullptr}};
  QProcess kvctl;
  kvctl.start(KVCTL_PROGRAM, {"status", "--json"});
  kvctl.waitForFinished();
  return {Json::parse(kvctl.readAllStandardOutput().toStdString(), nullptr, false),
          kvctl.exitCode()};
}

TEST(Status, FindsTheAgentWithAndWithoutABusAndSaysWhenThereIsNone) {
  AgentFolders folders;
  std::filesystem::permissions(folders.root / "runtime", std::filesystem::perms::owner_all);
  test::writeFile(
      folders.root / ("home/" + std::string(ScheduleDocuments::kSecond)),
      writePropertyList(PropertyList::Array{Task("Docs").off()}, PropertyListEncoding::kXml));
  folders.writeScript(
      "application.delegate = { applicationDidFinishLaunching() {"
      "  new KVTimer().ScheduleTimer(); console.log('launched'); } };");
  std::optional<PrivateBus> bus(folders.root / "runtime");
  AgentProcess agent(folders);
  ASSERT_TRUE(agent.waitFor("launched"));
  Json found;
  for (const QDeadlineTimer limit(30'000); !limit.hasExpired();) {
    found = statusOf(folders).first;
    if (found["agent"]["answers"] == true) break;
  }
  EXPECT_EQ(found["agent"]["processId"], agent.pid());
  EXPECT_EQ(found["sets"][0]["lastDecision"], "switched-off") << found.dump();
  bus.reset();
  const auto [silent, running] = statusOf(folders);
  EXPECT_EQ(running, 0);
  EXPECT_EQ(silent["agent"]["answers"], false);
  EXPECT_EQ(silent["agent"]["processId"], agent.pid());
  EXPECT_EQ(silent["sets"][0]["state"], "not scheduled");
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
  const auto [none, stopped] = statusOf(folders);
  EXPECT_EQ(stopped, static_cast<int>(ExitStatus::kNotRunning));
  EXPECT_EQ(none["agent"]["running"], false);
}

}  // namespace
}  // namespace kv::kvctl
