#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

#include "platform/PlatformError.h"
#include "platform/linux/Descriptor.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/OthersRights.h"
#include "platform/linux/PosixFiles.h"
#include "platform/linux/ProcessTable.h"
#include "scheduler/TraceFile.h"
#include "tests/app/AgentProcess.h"
#include "tests/app/HostWorld.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr unsigned kSomebody = 54321;  // has no entry in the password database

/// Others get their files from root, and only root's group is certainly without other members.
bool isRoot() {
  return ::geteuid() == 0;
}

void giveAway(const std::string& path, uid_t owner, gid_t group) {
  ASSERT_EQ(::lchown(path.c_str(), owner, group), 0);
}

TEST(OtherUsers, MayChangeWhatTheirRightsAllow) {
  struct {
    mode_t mode;
    bool isTheirs;
    bool isTheirGroups;
    const char* answer;
  } const kCases[] = {
      {0644, false, false, nullptr},
      {0664, false, false, nullptr},  // with a umask of 002, and a group of the user's own
      {0646, false, false, "may be changed by everybody"},
      {0644, false, true, nullptr},
      {0664, false, true, "may be changed by the group 54321"},
      {0400, true, false, "belongs to the user 54321"},
  };
  TemporaryFolder folder;
  const std::string path = folder / "file";
  EXPECT_EQ(whoElseMayChange(path), std::nullopt) << "nothing is there";
  for (const auto& c : kCases) {
    if (!isRoot() && (c.isTheirs || c.isTheirGroups || (c.mode & S_IWGRP) != 0)) continue;
    fs::remove(path);
    writeFile(path, "");
    if (isRoot()) giveAway(path, c.isTheirs ? kSomebody : 0, c.isTheirGroups ? kSomebody : 0);
    ASSERT_EQ(::chmod(path.c_str(), c.mode), 0);
    fs::create_symlink(path, folder / "link");
    for (const std::string& name : {path, folder / "link"}) {
      EXPECT_EQ(whoElseMayChange(name),
                c.answer ? std::optional<std::string>(c.answer) : std::nullopt)
          << std::oct << c.mode;
    }
    fs::remove(folder / "link");
  }
}

TEST(OtherUsers, FilesInTheTracesOrTheLocksPlaceAreLeftAlone) {
  if (!isRoot()) GTEST_SKIP() << "only root can give a file to another user";
  TemporaryFolder folder;
  const std::string path = folder / "theirs";
  writeFile(path, "text");
  giveAway(path, kSomebody, kSomebody);
  ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
  EXPECT_FALSE(TraceFile(std::make_shared<PosixFiles>(), path).append("line\n"));
  EXPECT_THROW(FileLock::tryAcquire(path, "note"), PlatformError);
  EXPECT_EQ(readFile(path), "text");
}

TEST(OtherUsers, NoSwapOfTheTraceMakesItWriteElsewhere) {
  TemporaryFolder folder;
  const std::string victim = folder / "victim";
  writeFile(victim, "precious");
  const std::string path = folder / "trace";
  TraceFile trace(std::make_shared<PosixFiles>(), path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const Descriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_FALSE(trace.append("to a pipe with a reader\n"));

  std::atomic<bool> isDone = false;
  std::thread attacker([&] {
    for (int round = 0; !isDone; ++round) {
      const std::string next = folder / "next";
      if (round % 4 == 0) writeFile(next, "");
      if (round % 4 == 1) fs::create_symlink(victim, next);
      if (round % 4 == 2) fs::create_hard_link(victim, next);
      if (round % 4 == 3) ::mkfifo(next.c_str(), 0600);
      fs::rename(next, path);
    }
  });
  int written = 0;
  for (int line = 0; line < 100'000 && (line < 2'000 || written < 100); ++line) {
    written += trace.append("line\n");
  }
  isDone = true;
  attacker.join();
  EXPECT_GE(written, 100) << "the attack did not meet a single line";
  EXPECT_EQ(readFile(victim), "precious");
}

TEST(OtherUsers, RunProgramsThatAreNotOurs) {
  if (!isRoot()) GTEST_SKIP() << "only root can be another user";
  for (const uid_t user : {uid_t{0}, uid_t{kSomebody}}) {
    int started[2];
    int input[2];
    ASSERT_EQ(::pipe2(started, O_CLOEXEC) + ::pipe2(input, O_CLOEXEC), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(input[0], 0);
      if (::setresuid(user, user, user) == 0) ::execl("/bin/cat", "cat", nullptr);
      ::_exit(1);
    }
    ::close(started[1]);
    char none = 0;
    EXPECT_EQ(::read(started[0], &none, 1), 0);  // the program runs: its copy of the pipe is closed
    const auto found = ProcessTable().running("/bin/cat");
    const bool isFound = std::any_of(found.begin(), found.end(),
                                     [pid](const auto& process) { return process.pid == pid; });
    EXPECT_EQ(isFound, user == 0);
    for (const int end : {started[0], input[0], input[1]}) ::close(end);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);  // its input has ended
    EXPECT_EQ(status, 0);
  }
}

/// What is wrong with a bundle: its place, its mode, and whether it is another user's.
struct BundleCase {
  const char* path;
  mode_t mode;
  bool isTheirs;
  const char* fault;
};
const BundleCase kBundleCases[] = {
    {"", 0777, false, "may be changed by everybody"},
    {"/Scripts", 01777, false, "may be changed by everybody"},
    {"/Scripts/host.js", 0666, false, "may be changed by everybody"},
    {"/Info.plist", 0646, false, "may be changed by everybody"},
    {"/Scripts/host.js", 0444, true, "belongs to the user 54321"},
    {"", 0755, true, "belongs to the user 54321"},
    {"/Scripts", 0775, false, nullptr},
};

TEST(OtherUsers, ABundleThatTheyMayChangeIsNotRun) {
  for (const BundleCase& c : kBundleCases) {
    if (!isRoot() && (c.isTheirs || c.fault == nullptr)) continue;
    AgentFolders folders;
    folders.writeScript("console.log('runs'); application.terminate(0);");
    writeFile(folders.root / "bundle/Info.plist", "<plist><dict/></plist>");
    const std::string path = (folders.root / "bundle") + c.path;
    ASSERT_EQ(::chmod(path.c_str(), c.mode), 0);
    if (c.isTheirs) giveAway(path, kSomebody, kSomebody);
    AgentProcess agent(folders);
    EXPECT_EQ(agent.exitStatus(), c.fault == nullptr ? 0 : 1) << path;
    const std::string said = agent.errors();
    EXPECT_THAT(said, HasSubstr(c.fault == nullptr ? "runs" : path + ": " + c.fault)) << path;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  }
}

TEST(OtherUsers, DocumentsThatTheyMayChangeAreReadWithAWarning) {
  const std::string path = "/home/ann/Library/Application Support/Kelvara/kelvara.plist";
  HostWorld world({Task("Docs").daily("00:00").lastRun("4")},
                  "fake.others['" + path + "'] = 'may be changed by everybody'");
  EXPECT_EQ(world.tickAt("2024-03-05 09:01:00"), "/p/kvbackup Qm3x7P Docs");
  world.tickAt("2024-03-05 09:02:00", "fake.others = {}");
  const std::string log = world.events();
  const std::string warning = path + " may be changed by everybody; nobody but you should";
  EXPECT_THAT(log, HasSubstr(warning));
  EXPECT_EQ(log.find(warning), log.rfind(warning)) << "told once";
  EXPECT_THAT(log, HasSubstr(path + ": nobody else may change it any more"));
}

TEST(OtherUsers, FindNoLogOfAUserWithoutAHomeInATemporaryFolder) {
  TemporaryFolder state;
  HostWorld world({},
                  "system.homeFolder = '/'; system.stateFolder = '" + state.path().string() + "'");
  world.value("DDLog.flushLog()");
  EXPECT_EQ(world.show("host.log.path().startsWith('" + (state / "logs/") + "')"), "true");
}

}  // namespace
}  // namespace kv::test
