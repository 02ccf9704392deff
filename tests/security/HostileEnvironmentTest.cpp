#include <gmock/gmock.h>

#include "platform/PropertyListWriter.h"
#include "platform/linux/UserPaths.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/app/AgentProcess.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::StartsWith;

/// One tick with a set that is always due; what was started is written to a file.
constexpr char kOneTick[] = R"(let started = '';
  application.delegate = {
    applicationDidFinishLaunching() {
      const timer = new KVTimer();
      timer.dbugMenu = {state: 0};
      timer.ScheduleTimer();
      console.log('ticked');
      system.writeText(application.bundle.path + '/started', started);
      application.terminate(0);
    },
    checkIfDiskExists_fromSchedule() { return true; },
    backupNow(set) { started += set; }
  };)";

struct HostileEnvironment : testing::Test {
  HostileEnvironment() {
    writeFile(folders_.root / ("home/" + std::string(ScheduleDocuments::kFirst)),
              writePropertyList(PropertyList::Array{Task("Docs").daily("00:00").onceADay()},
                                PropertyListEncoding::kXml));
    folders_.writeScript(kOneTick);
  }
  std::string started() const { return readFile(folders_.root / "bundle/started"); }
  AgentFolders folders_;
};

TEST_F(HostileEnvironment, KeepsNoBackupFromBeingStarted) {
  const QString large = QString(100'000, 'x');
  const QString kCases[] = {
      "TZ=:/etc/passwd",
      "TZ=:/",
      "TZ=\x1b[31m\n%s",
      "TZ=A99999999999999999999B,M99.99.99",
      "TZ=" + large,
      "LC_ALL=" + large,
      "LC_ALL=../../x@calendar=chinese;numbers=arab",
      "LC_ALL=fa_IR.UTF-8",
      "TERM=\x1b[31m%n" + large,
      "XDG_RUNTIME_DIR=runtime",
      "XDG_RUNTIME_DIR=/no/such",
      "XDG_STATE_HOME=state",
      "XDG_CONFIG_HOME=../config",
      "QT_PLUGIN_PATH=/no/such",
      "QT_FATAL_WARNINGS=1",
      "QT_MESSAGE_PATTERN=%{",
      "QML_IMPORT_PATH=" + large,
      "DBUS_SESSION_BUS_ADDRESS=\x1b;;unix:path=,,=;unixexec:path=/no/such",
      "DBUS_SESSION_BUS_ADDRESS=unix:path=/" + large,
  };
  for (const QString& setting : kCases) {
    std::filesystem::remove(folders_.root / "bundle/started");
    AgentProcess agent(
        folders_, {"/usr/bin/env", "--chdir=" + QString(folders_.root.path().c_str()), setting});
    EXPECT_EQ(agent.exitStatus(), 0) << setting.left(80).toStdString() << agent.errors();
    EXPECT_EQ(started(), "Docs") << setting.left(80).toStdString() << agent.errors();
  }
}

TEST_F(HostileEnvironment, AHomeIsAnAbsolutePathOrTheOneOfThePasswordDatabase) {
  for (const char* home : {static_cast<const char*>(nullptr), "", "relative", "~", "\n/x"}) {
    const ScopedEnvironment variable("HOME", home);
    EXPECT_THAT(homeFolder(), StartsWith("/")) << (home != nullptr ? home : "unset");
  }
  for (const char* home : {"ho\nme \x1b[31m", "no/such"}) {
    const QString variable = "HOME=" + QString::fromStdString(folders_.root / home);
    AgentProcess agent(folders_, {"/usr/bin/env", "XDG_RUNTIME_DIR=", variable});
    EXPECT_EQ(agent.exitStatus(), 0) << agent.errors();
    EXPECT_THAT(agent.errors(), testing::HasSubstr("ticked\n"));
  }
}

/// A program that changes what the one behind it inherits.
const QStringList kInheritances[] = {
    {"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"},
    {"/bin/sh", "-c", "exec \"$@\" 0</dev/full 1>/dev/full 2>/dev/full", "sh"},
    {"python3", "-c",
     "import os, sys; [os.dup2(0, 3 + i) for i in range(400)]; "
     "os.execv(sys.argv[1], sys.argv[1:])"},
    {"/usr/bin/env", "--ignore-signal"},
    {"/usr/bin/env", "--block-signal"},
    // Nobody reads what it says.
    {"python3", "-c",
     "import os, sys; r, w = os.pipe(); os.close(r); os.dup2(w, 1); "
     "os.dup2(w, 2); os.execv(sys.argv[1], sys.argv[1:])"},
};

TEST_F(HostileEnvironment, InheritedDescriptorsAndSignalsDoNoHarm) {
  for (const QStringList& wrapper : kInheritances) {
    SCOPED_TRACE(wrapper.join(' ').toStdString());
    std::filesystem::remove(folders_.root / "bundle/started");
    AgentProcess agent(folders_, wrapper);
    const int pid = agent.pid();
    EXPECT_EQ(agent.exitStatus(), 0) << agent.errors();
    EXPECT_EQ(started(), "Docs");
    // What the program says must not land in a file that took the place of a closed stream.
    EXPECT_EQ(readFile(folders_.root / "runtime/KVScheduler.lock"), std::to_string(pid));
  }
}

TEST_F(HostileEnvironment, EndsOnASignalThatItsParentIgnored) {
  folders_.writeScript(
      "application.delegate = { applicationDidFinishLaunching() {"
      " console.log('launched'); } };");
  AgentProcess agent(folders_, {"/usr/bin/env", "--ignore-signal=TERM"});
  ASSERT_TRUE(agent.waitFor("launched"));
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
}

}  // namespace
}  // namespace kv::test
