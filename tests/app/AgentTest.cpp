#include <gmock/gmock.h>

#include "platform/PropertyListWriter.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/app/AgentProcess.h"
#include "tests/app/HostWorld.h"
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

struct AgentTest : testing::Test {
  AgentFolders folders_;
};

TEST_F(AgentTest, StartsABackupThatIsDueInAnyLocale) {
  writeFile(folders_.root / ("home/" + std::string(ScheduleDocuments::kFirst)),
            writePropertyList(PropertyList::Array{Task("Größe").daily("00:00").onceADay()},
                              PropertyListEncoding::kXml));
  folders_.writeScript(R"(
      application.delegate = {
        applicationDidFinishLaunching() { new KVTimer().ScheduleTimer(); application.terminate(); },
        reloadMenuNow(list) { console.log('dates', list[0].schopts.datePick instanceof Date); },
        checkIfDiskExists_fromSchedule(path, one) { console.log('disk', path, one); return true; },
        checkRunningBackupStatus() { return 0; }, checkBackupStatus() { return 0; },
        backupNow(set) { console.log('backup of', set, 0.5, '100%s \x1b[31m'); }
      };)");
  AgentProcess agent(folders_, {"/usr/bin/env", "LC_ALL=C"});
  EXPECT_EQ(agent.exitStatus(), 0);
  EXPECT_THAT(agent.errors(),
              AllOf(HasSubstr("dates true\n"), HasSubstr("disk /disk/Größe 1\n"),
                    HasSubstr("backup of Größe 0.5 100%s  [31m\n"), Not(HasSubstr("UTF-8"))));
}

TEST_F(AgentTest, EndsCleanlyOnASignalEvenOneThatItsParentBlocked) {
  folders_.writeScript(kPlainScript);
  const QStringList wrappers[] = {{}, {"/usr/bin/env", "--block-signal=TERM"}};
  for (const int number : {SIGINT, SIGTERM}) {
    AgentProcess agent(folders_, wrappers[number == SIGTERM ? 1 : 0]);
    ASSERT_TRUE(agent.waitFor("launched"));
    agent.signal(number);
    EXPECT_EQ(agent.exitStatus(), 0);
    EXPECT_THAT(agent.errors(), HasSubstr("host.js:3: ending"));
  }
}

TEST_F(AgentTest, IsStartedAnewUnderItsNameWithTheEnvironmentOfItsUser) {
  folders_.writeScript(R"(
      application.delegate = {
        applicationDidFinishLaunching() {
          console.log("allocator:", system.environment("GLIBC_TUNABLES"));
        },
      };)");
  const struct {
    QStringList wrapper;
    const char* allocator;
  } kCases[] = {
      {{"/usr/bin/env", "-u", "GLIBC_TUNABLES"}, "allocator: undefined\n"},
      {{"/usr/bin/env", "GLIBC_TUNABLES=glibc.malloc.perturb=7"},
       "allocator: glibc.malloc.perturb=7\n"},
  };
  for (const auto& one : kCases) {
    AgentProcess agent(folders_, one.wrapper);
    EXPECT_TRUE(agent.waitFor(one.allocator)) << agent.errors();
    EXPECT_EQ(readFile("/proc/" + std::to_string(agent.pid()) + "/comm"), "KVScheduler\n");
  }
}

TEST_F(AgentTest, AScriptEndsTheAgentWithItsFirstStatus) {
  // A variable of the same name must not cut the program off its delegate.
  const std::string delegate = R"(var application = application || 5;
      application.delegate = { applicationWillTerminate() { console.log('end'); },
                               applicationDidFinishLaunching() { )";
  const std::pair<std::string, const char*> kCases[] = {
      {delegate + "} }; application.terminate(3); application = null;", ""},
      {delegate + "application.terminate(3); application.terminate(4) } };", ": end\n"},
      {"new KVTimer().ScheduleTimer(); system.after(0.01, () => application.terminate(3));",
       "no host script has set"},
  };
  for (const auto& [script, says] : kCases) {
    folders_.writeScript(script);
    AgentProcess agent(folders_);
    EXPECT_EQ(agent.exitStatus(), 3) << script;
    const std::string errors = agent.errors();
    EXPECT_THAT(errors, HasSubstr(says));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), *says == '\0' ? 0 : 1) << errors;
  }
}

TEST_F(AgentTest, LosesNothingThatWasLoggedHoweverItEnds) {
  const std::pair<std::string, int> kEndings[] = {
      {"} };", 0},  // by a signal
      {"application.terminate(2); } };", 2},
      {"} }; log(); throw new Error('no');", 1},
  };
  for (const auto& [ending, status] : kEndings) {
    AgentFolders folders;
    folders.writeScript(R"(function log() { for (let i = 0; i < 5000; ++i) DDLog.info('x'); }
        const file = new DDFileLogger(); file.setLogFormatter(null); DDLog.addLogger(file);
        application.delegate = {
          applicationWillTerminate() { log(); },
          applicationDidFinishLaunching() { console.log('launched'); )" +
                        ending);
    AgentProcess agent(folders);
    if (status == 0) {
      ASSERT_TRUE(agent.waitFor("launched"));
      agent.signal(SIGTERM);
    }
    EXPECT_EQ(agent.exitStatus(), status);
    EXPECT_EQ(folders.logged().size(), 10'000u) << ending;
  }
}

TEST_F(AgentTest, LogsItsEventsOnceInItsFileAndOnATerminal) {
  const QStringList onATerminal = {
      "/usr/bin/env", "python3", "-c",
      "import os, pty, sys; os.dup2(2, 1); sys.exit(pty.spawn(sys.argv[1:]) >> 8)"};
  for (const auto& wrapper : {QStringList(), onATerminal}) {
    AgentFolders folders;
    folders.writeScript(defaultHost());
    writeFile(folders.root / "bundle/Info.plist", readFile(KV_DEFAULT_PLIST));
    writeFile(folders.root / "bundle/Scripts/later.js", "system.after(0, application.terminate);");
    AgentProcess agent(folders, wrapper);
    EXPECT_EQ(agent.exitStatus(), 0);
    EXPECT_THAT(readFile(folders.root / "home/Library/Logs/KVScheduler/KVScheduler.txt"),
                testing::ContainsRegex("..:..:.. > scheduling 0 set.*\n..:..:.. > stopped\n"));
    const std::string shown = agent.errors();
    const auto line = shown.find("] scheduling 0 set(s) ");
    EXPECT_EQ(line != std::string::npos, !wrapper.isEmpty()) << shown;
    EXPECT_EQ(shown.rfind("scheduling"), line == std::string::npos ? line : line + 2) << shown;
  }
}

TEST_F(AgentTest, ACompletionRunsInTheEventLoop) {
  folders_.writeScript(
      "new DDFileLogger().rollLogFileWithCompletionBlock("
      "() => application.terminate(4)); application.delegate = {};");
  EXPECT_EQ(AgentProcess(folders_).exitStatus(), 4);
}

TEST_F(AgentTest, GoesOnWhenItsLogCannotBeWritten) {
  folders_.writeScript(defaultHost());
  writeFile(folders_.root / "home/Library", "in the way");
  AgentProcess agent(folders_);
  EXPECT_TRUE(agent.waitFor("warning: no log can be written in ")) << agent.errors();
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
}

TEST_F(AgentTest, RunsOncePerUser) {
  folders_.writeScript(kPlainScript);
  AgentProcess first(folders_);
  ASSERT_TRUE(first.waitFor("launched"));
  AgentProcess second(folders_);
  EXPECT_EQ(second.exitStatus(), 1);
  EXPECT_THAT(second.errors(), AllOf(HasSubstr("already running"),
                                     HasSubstr("process " + std::to_string(first.pid()))));
  first.signal(SIGKILL);
  first.exitStatus();
  EXPECT_TRUE(AgentProcess(folders_).waitFor("launched")) << "a crash must not lock anybody out";
}

TEST_F(AgentTest, RunsTheScriptsInTheByteOrderOfTheirNames) {
  for (const char* name : {"b.js", "Z.js", "ä.js", "10.js", ".a.js", "a.js~", "zz.js"}) {
    writeFile(folders_.root / ("bundle/Scripts/" + std::string(name)),
              "\xEF\xBB\xBF var names = (this.names || '') + ' " + std::string(name) + "';");
  }
  writeFile(folders_.root / "bundle/Info.plist",
            writePropertyList(PropertyList::Dictionary{{"CFBundleIdentifier", "com.example"}},
                              PropertyListEncoding::kXml));
  writeFile(folders_.root / "bundle/Scripts/ü.js",
            "console.log(application.bundle.identifier + names); application.terminate();");
  AgentProcess agent(folders_);
  EXPECT_EQ(agent.exitStatus(), 0);
  EXPECT_THAT(agent.errors(), HasSubstr("ü.js:1: com.example 10.js Z.js b.js zz.js ä.js\n"));
}

TEST_F(AgentTest, ABundleThatCannotBeLoadedEndsTheStartWithOneLine) {
  const std::tuple<std::string, const char*, const char*> kCases[] = {
      {"Scripts/readme.txt", "", "/bundle/Scripts: holds no host script (*.js)"},
      {"Scripts/a.js", "\nlet a = ;\n", "/bundle/Scripts/a.js:2: SyntaxError"},
      {"Scripts/a.js", "function f() {\n system.after(1) }\nf()", "/a.js:2: TypeError: after ta"},
      {"Scripts/a.js", "application.delegate = 5", "TypeError: application.delegate must be an"},
      {"Info.plist", "nonsense", "/bundle/Info.plist: is no property list"},
  };
  for (const auto& [file, text, message] : kCases) {
    AgentFolders folders;
    writeFile(folders.root / ("bundle/" + file), text);
    if (file == "Info.plist") folders.writeScript(kPlainScript);
    AgentProcess agent(folders);
    EXPECT_EQ(agent.exitStatus(), 1);
    const std::string errors = agent.errors();
    EXPECT_THAT(errors, AllOf(HasSubstr(folders.root / "bundle"), HasSubstr(message)));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
  }
}

}  // namespace
}  // namespace kv::test
