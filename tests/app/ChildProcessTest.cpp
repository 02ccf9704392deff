#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <map>
#include <sstream>

#include "tests/app/AgentProcess.h"

namespace kv::test {
namespace {

using testing::IsEmpty;

/// What a program finds that the agent has started, as it wrote it: "name value" lines.
class ChildProcessTest : public testing::Test {
 protected:
  /// Starts an agent whose script starts `command` by a shell, and waits until that has run.
  void runChild(const std::string& command, const std::vector<std::string>& wrapper) {
    writeFile(folders_.root / "child.sh",
              "exec >'" + folders_.root / "facts.new" + "'\n" + command + "\nexec >&2\nmv '" +
                  folders_.root / "facts.new" + "' '" + folders_.root / "facts" +
                  "'\necho child has run >&2\n");
    folders_.writeScript("UtilsSch.runApp(['/bin/sh', '" + folders_.root / "child.sh" +
                         "', 'größe  \"two\"']); console.log('started');");
    agent_.start(wrapper);
    ASSERT_TRUE(agent_.waitFor("child has run")) << agent_.errors();
  }

  std::map<std::string, std::string> facts() {
    std::map<std::string, std::string> result;
    std::istringstream lines(readFile(folders_.root / "facts"));
    for (std::string name, value; lines >> name && std::getline(lines >> std::ws, value);) {
      result[name] = value;
    }
    return result;
  }

  AgentFolders folders_;
  AgentProcess agent_{folders_};
};

/// The processes whose parent is `pid`.
std::vector<std::string> childrenOf(int pid) {
  std::vector<std::string> children;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string status = readFile(entry.path() / "status");
    if (status.find("\nPPid:\t" + std::to_string(pid) + "\n") != std::string::npos) {
      children.push_back(status);
    }
  }
  return children;
}

TEST_F(ChildProcessTest, InheritsTheStreamsAndNothingElse) {
  // The shell's own descriptor for reading the script is 10 or above.
  runChild(R"(for name in /proc/$$/fd/*; do
        number=${name##*/}
        [ "$number" -gt 2 ] && [ "$number" -lt 10 ] && [ -e "$name" ] && extra="$extra $number"
      done
      echo "extra none$extra"
      echo "argument $1"
      echo "folder $PWD"
      echo "variable $KV_TEST"
      sed -n 's/^SigBlk:/blocked/p; s/^SigIgn:/ignored/p' /proc/self/status
      awk '{print "nice " $19}' /proc/$$/stat)",
           {"/bin/sh", "-c",
            "cd /usr; exec 7</dev/null 8>&2; exec env KV_TEST=inherited --block-signal=USR1 \"$@\"",
            "sh"});
  const auto found = facts();
  EXPECT_EQ(found.at("extra"), "none");
  EXPECT_EQ(found.at("argument"), "größe  \"two\"");
  EXPECT_EQ(found.at("folder"), "/usr");
  EXPECT_EQ(found.at("variable"), "inherited");
  EXPECT_EQ(found.at("blocked"), "0000000000000000");
  EXPECT_EQ(std::stoull(found.at("ignored"), nullptr, 16) & (1u << (SIGPIPE - 1)), 0u);
  EXPECT_EQ(found.at("nice"), "0");
}

TEST_F(ChildProcessTest, StandardStreamsAreOpenEvenWhenTheAgentsWereClosed) {
  runChild("readlink /proc/$$/fd/0 | sed 's/^/input /'",
           {"/bin/sh", "-c", "exec \"$@\" <&-", "sh"});
  EXPECT_EQ(facts().at("input"), "/dev/null");
}

TEST_F(ChildProcessTest, IsNobodysChildAndOutlivesTheAgent) {
  const std::string fifo = folders_.root / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  runChild("(read line <'" + fifo + "'; echo \"$line back\" >'" + fifo + "') >/dev/null 2>&1 &",
           {});
  EXPECT_THAT(childrenOf(agent_.pid()), IsEmpty());
  agent_.signal(SIGTERM);
  EXPECT_EQ(agent_.exitStatus(), 0);
  std::ofstream(fifo) << "there and\n";
  EXPECT_EQ(readFile(fifo), "there and back\n");
}

TEST_F(ChildProcessTest, AFailedStartIsLoggedByRunAppAlone) {
  folders_.writeScript(R"(
      UtilsSch.runAppAlone(['/no/such/silent']); UtilsSch.runScript(['/no/such/silent']);
      UtilsSch.runApp(['/no/such/program', 'a', 'b']); UtilsSch.runApp([]);
      application.delegate = {})");
  agent_.start();
  EXPECT_TRUE(agent_.waitFor("SCH Utils No arguments"));
  EXPECT_TRUE(agent_.waitFor("SCH Utils Problem Running Task: "));
  agent_.signal(SIGTERM);
  EXPECT_EQ(agent_.exitStatus(), 0);
  EXPECT_THAT(agent_.errors(), testing::Not(testing::HasSubstr("/no/such/silent")));
  EXPECT_THAT(agent_.errors(), testing::HasSubstr("\"/no/such/program\": "));
}

}  // namespace
}  // namespace kv::test
