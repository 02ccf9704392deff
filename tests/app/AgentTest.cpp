#include <gmock/gmock.h>
#include <signal.h>

#include "platform/PropertyListWriter.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/app/AgentProcess.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// Announces itself and its end.
constexpr char kPlainScript[] = R"(application.delegate = {
  applicationDidFinishLaunching() { console.log('launched'); },
  applicationWillTerminate() { console.log('ending'); }
};)";

class AgentTest : public testing::Test {
 protected:
  AgentFolders folders_;
};

TEST_F(AgentTest, StartsABackupThatIsDue) {
  writeFile(folders_.root / ("home/" + std::string(ScheduleDocuments::kFirst)),
            writePropertyList(PropertyList::Array{Task("Docs").daily("00:00").onceADay()},
                              PropertyListEncoding::kXml));
  folders_.writeScript(R"(
      let timer;
      application.delegate = {
        applicationDidFinishLaunching() {
          timer = new KVTimer();
          timer.ScheduleTimer();
          application.terminate(0);
        },
        reloadMenuNow(list) {
          console.log('menu of', list.length, list[0].schopts.datePick instanceof Date);
        },
        checkIfDiskExists_fromSchedule(path, one) { console.log('disk', path, one); return true; },
        checkRunningBackupStatus() { return 0; },
        checkBackupStatus() { return 0; },
        backupNow(set) { console.log('backup of', set); }
      };)");
  AgentProcess agent(folders_);
  agent.start();
  EXPECT_EQ(agent.exitStatus(), 0);
  EXPECT_THAT(agent.errors(), AllOf(HasSubstr("menu of 1 true"), HasSubstr("disk /disk/Docs 1"),
                                    HasSubstr("backup of Docs")));
}

TEST_F(AgentTest, EndsCleanlyOnASignal) {
  folders_.writeScript(kPlainScript);
  for (const int number : {SIGTERM, SIGINT}) {
    AgentProcess agent(folders_);
    agent.start();
    ASSERT_TRUE(agent.waitFor("launched"));
    agent.signal(number);
    EXPECT_EQ(agent.exitStatus(), 0);
    EXPECT_THAT(agent.errors(), HasSubstr("host.js:3: ending"));
  }
}

TEST_F(AgentTest, ASecondSignalEndsAScriptThatHangs) {
  folders_.writeScript(R"(application.delegate = {
      applicationDidFinishLaunching() { console.log('hanging'); for (;;) {} } };)");
  AgentProcess agent(folders_);
  agent.start();
  ASSERT_TRUE(agent.waitFor("hanging"));
  EXPECT_EQ(agent.exitStatusAfterSignals(SIGTERM), -SIGTERM);
}

TEST_F(AgentTest, ABlockedSignalOfTheParentEndsItAllTheSame) {
  folders_.writeScript(kPlainScript);
  AgentProcess agent(folders_);
  agent.start({"/usr/bin/env", "--block-signal=TERM"});
  ASSERT_TRUE(agent.waitFor("launched"));
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
}

TEST_F(AgentTest, AScriptEndsTheAgentWithItsStatus) {
  struct {
    const char* script;
    bool tellsTheEnd;
  } const kCases[] = {
      {"application.terminate(3);", false},
      {"applicationDidFinishLaunching() { application.terminate(3); }", true},
      {"applicationDidFinishLaunching() { system.after(0.01, () => application.terminate(3)); }",
       true},
  };
  for (const auto& one : kCases) {
    SCOPED_TRACE(one.script);
    const std::string script = one.script;
    const bool atOnce = script.starts_with("application.");
    folders_.writeScript(
        "application.delegate = { applicationWillTerminate() { console.log('end'); }, " +
        (atOnce ? "}; " + script : script + "};"));
    AgentProcess agent(folders_);
    agent.start();
    EXPECT_EQ(agent.exitStatus(), 3);
    EXPECT_EQ(agent.errors().find(": end") != std::string::npos, one.tellsTheEnd);
  }
}

TEST_F(AgentTest, RunsWithoutADelegateAndSaysSo) {
  folders_.writeScript("system.after(0.01, () => console.log('still here'));");
  AgentProcess agent(folders_);
  agent.start();
  EXPECT_TRUE(agent.waitFor("still here"));
  EXPECT_THAT(agent.errors(), HasSubstr("bundle: warning: no host script has set"));
}

TEST_F(AgentTest, RunsOncePerUser) {
  folders_.writeScript(kPlainScript);
  AgentProcess first(folders_);
  first.start();
  ASSERT_TRUE(first.waitFor("launched"));
  AgentProcess second(folders_);
  second.start();
  EXPECT_EQ(second.exitStatus(), 1);
  EXPECT_THAT(second.errors(), AllOf(HasSubstr("already running"),
                                     HasSubstr("process " + std::to_string(first.pid()))));
  AgentFolders otherUser;
  otherUser.writeScript(kPlainScript);
  AgentProcess third(otherUser);
  third.start();
  EXPECT_TRUE(third.waitFor("launched"));
  first.signal(SIGKILL);
  first.exitStatus();
  AgentProcess fourth(folders_);
  fourth.start();
  EXPECT_TRUE(fourth.waitFor("launched"));
}

TEST_F(AgentTest, ABundleThatCannotBeLoadedEndsTheStart) {
  struct {
    const char* file;
    const char* text;
    std::string message;
  } const kCases[] = {
      {"Scripts/host.js", "\nlet a = ;\n", "host.js:2: SyntaxError"},
      {"Scripts/host.js", "\n\nthrow 'words'", "host.js:3: threw words"},
      {"Info.plist", "nonsense", "Info.plist: is no property list"},
  };
  for (const auto& one : kCases) {
    AgentFolders folders;
    folders.writeScript(kPlainScript);
    writeFile(folders.root / ("bundle/" + std::string(one.file)), one.text);
    AgentProcess agent(folders);
    agent.start();
    EXPECT_EQ(agent.exitStatus(), 1);
    const std::string errors = agent.errors();
    EXPECT_THAT(errors, HasSubstr(folders.root / "bundle"));
    EXPECT_THAT(errors, HasSubstr(one.message));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
  }
}

TEST_F(AgentTest, KnowsItsOptions) {
  struct {
    std::vector<std::string> arguments;
    bool succeeds;
    const char* output;
    const char* errors;
  } const kCases[] = {
      {{"--help"}, true, "--bundle DIR", ""},
      {{"--version"}, true, "KVScheduler ", ""},
      {{"--nonsense"}, false, "", "--nonsense"},
      {{"--bundle"}, false, "", "--bundle"},
      {{"stray"}, false, "", "stray"},
      {{"--bundle", "/no/such/folder"}, false, "", "no bundle at \"/no/such/folder\""},
  };
  for (const auto& one : kCases) {
    SCOPED_TRACE(testing::PrintToString(one.arguments));
    AgentProcess agent(folders_);
    agent.startWith(one.arguments);
    EXPECT_EQ(agent.exitStatus() == 0, one.succeeds);
    EXPECT_THAT(agent.output(), HasSubstr(one.output));
    EXPECT_THAT(agent.errors(), HasSubstr(one.errors));
  }
}

TEST_F(AgentTest, NoOrdinaryLocaleDisturbsIt) {
  folders_.writeScript("console.log('größe', (1.5).toString()); application.terminate();");
  for (const char* locale : {"LC_ALL=C", "LC_ALL=POSIX", "LC_ALL=de_DE.ISO-8859-1"}) {
    AgentProcess agent(folders_);
    agent.start({"/usr/bin/env", locale});
    EXPECT_EQ(agent.exitStatus(), 0);
    EXPECT_THAT(agent.errors(), AllOf(HasSubstr("größe 1.5"), Not(HasSubstr("UTF-8"))));
  }
}

}  // namespace
}  // namespace kv::test
