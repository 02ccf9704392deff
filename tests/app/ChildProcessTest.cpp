#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <thread>

#include "tests/app/AgentProcess.h"

namespace kv::test {
namespace {

/// True when the process `pid` has children, zombies included.
bool hasChildren(int pid) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string status = readFile(entry.path() / "status");
    if (status.find("\nPPid:\t" + std::to_string(pid) + "\n") != std::string::npos) return true;
  }
  return false;
}

struct ChildProcessTest : testing::Test {
  /// Has the agent start `commands` by a shell, which says when it has run.
  void writeChild(const std::string& commands) {
    const std::string script = folders_.root / "child.sh";
    writeFile(script, commands + "\necho child has run >&2\n");
    folders_.writeScript("UtilsSch.runApp(['/bin/sh', '" + script + "', 'größe  \"two\"']);");
  }
  AgentFolders folders_;
};

TEST_F(ChildProcessTest, InheritsTheStreamsAndNothingElse) {
  // The shell's own descriptor for reading the script is 10 or above.
  writeChild(R"sh(for name in /proc/$$/fd/?; do [ -e "$name" ] && list="$list ${name##*/}"; done
      { echo "descriptors$list, input $(readlink /proc/$$/fd/0)"
        echo "argument $1, folder $PWD, variable $KV_TEST"
        sed -n 's/^SigBlk:/blocked/p; s/^SigIgn:/ignored/p' /proc/self/status
        awk '{print "nice " $19}' /proc/$$/stat
      } >"$HOME/facts")sh");
  AgentProcess agent(folders_, {"/bin/sh", "-c",
                                "cd /usr; exec 7</dev/null 8>&2 <&-; "
                                "exec env KV_TEST=inherited --block-signal=USR1 \"$@\"",
                                "sh"});
  ASSERT_TRUE(agent.waitFor("child has run")) << agent.errors();
  EXPECT_EQ(readFile(folders_.root / "home/facts"),
            "descriptors 0 1 2, input /dev/null\n"
            "argument größe  \"two\", folder /usr, variable inherited\n"
            "blocked\t0000000000000000\nignored\t0000000000000000\n"
            "nice " +
                std::to_string(getpriority(PRIO_PROCESS, 0)) + "\n");
}

TEST_F(ChildProcessTest, IsNobodysChildAndOutlivesTheAgent) {
  const std::string fifo = folders_.root / "home/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  writeChild("cd; (read line <fifo; echo \"$line back\" >fifo) >/dev/null 2>&1 &");
  AgentProcess agent(folders_);
  ASSERT_TRUE(agent.waitFor("child has run")) << agent.errors();
  // What started it ends at once and is waited for; a zombie would stay until the time-out.
  while (hasChildren(agent.pid())) std::this_thread::yield();
  agent.signal(SIGTERM);
  EXPECT_EQ(agent.exitStatus(), 0);
  std::ofstream(fifo) << "there and\n";
  EXPECT_EQ(readFile(fifo), "there and back\n");
}

TEST_F(ChildProcessTest, AFailedStartIsLoggedWithItsReasonByRunAppAlone) {
  folders_.writeScript(R"(
      UtilsSch.runAppAlone(['/no/such/silent']); UtilsSch.runScript(['/no/such/silent', 'a', 'b']);
      for (const path of ['/no/such', '/usr', 'sh']) UtilsSch.runApp([path, 'a', 'b']);)");
  AgentProcess agent(folders_);
  for (const char* reason :
       {"\"/no/such\": execv: No such file or directory", "\"/usr\": execv: Permission denied",
        "\"sh\": the path is not absolute"}) {
    EXPECT_TRUE(
        agent.waitFor("SCH Utils Problem Running Task: cannot start " + std::string(reason)));
  }
  EXPECT_EQ(agent.errors().find("/no/such/silent"), std::string::npos) << agent.errors();
}

}  // namespace
}  // namespace kv::test
