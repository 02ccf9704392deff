#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "platform/PlatformError.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/UserPaths.h"
#include "platform/linux/Volumes.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;

TEST(Volumes, FindTheMountPointByWholeComponents) {
  const MountTable table{{"/", "/mnt/disk", "/mnt/disk/inner"}, {}};
  EXPECT_EQ(mountPointOf("/mnt/disk/inner/x", table), "/mnt/disk/inner");
  EXPECT_EQ(mountPointOf("/mnt/disk", table), "/mnt/disk");
  EXPECT_EQ(mountPointOf("/mnt/diskette", table), "/");
  EXPECT_EQ(mountPointOf("/mnt/disk", {}), "/");
}

TEST(Volumes, JudgeADestinationByWhatBelongsAtIt) {
  TemporaryFolder folder;
  fs::create_directories(folder / "disk/backups");
  fs::create_directory_symlink(folder / "disk/backups", folder / "link");
  writeFile(folder / "file", "");
  const std::string disk = folder / "disk";
  const MountTable mounted{{"/", disk}, {"/", disk}};
  const MountTable unmounted{{"/"}, {"/", disk}};
  EXPECT_EQ(destinationState(folder / "link", mounted), DestinationState::kPresent);
  EXPECT_EQ(destinationState(folder / "link", unmounted), DestinationState::kNotMounted);
  EXPECT_EQ(destinationState(disk, unmounted), DestinationState::kNotMounted);
  EXPECT_EQ(destinationState(folder.path().string(), unmounted), DestinationState::kPresent);
  EXPECT_EQ(destinationState(folder / "disk/none", mounted), DestinationState::kMissing);
  EXPECT_EQ(destinationState(folder / "file", mounted), DestinationState::kNotAFolder);
  // A folder for removable volumes is none itself.
  if (!fs::is_directory("/mnt")) GTEST_SKIP() << "this machine has no /mnt";
  EXPECT_EQ(destinationState("/mnt", {{"/"}, {}}), DestinationState::kNotMounted);
  EXPECT_EQ(destinationState("/mnt", {{"/", "/mnt"}, {}}), DestinationState::kPresent);
}

TEST(Volumes, AreReadFromTheSystem) {
  EXPECT_THAT(MountTable::read().mounted, testing::Contains("/proc"));
}

TEST(FileLock, ExcludesOthersAndTellsWhoHoldsIt) {
  TemporaryFolder folder;
  const std::string path = folder / "lock";
  EXPECT_EQ(FileLock::note(path), "");
  auto lock = FileLock::tryAcquire(path, "first");
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(FileLock::tryAcquire(path, "second"), nullptr);
  EXPECT_EQ(FileLock::note(path), "first");
  lock.reset();
  lock = FileLock::acquire(path, "2");
  EXPECT_EQ(FileLock::note(path), "2");
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST(FileLock, RefusesWhatItCouldSpoil) {
  TemporaryFolder folder;
  writeFile(folder / "precious", "text");
  fs::create_symlink("precious", folder / "link");
  fs::create_hard_link(folder / "precious", folder / "second name");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const char* name : {"link", "second name", "fifo", "missing/lock"}) {
    EXPECT_THROW(FileLock::tryAcquire(folder / name, "note"), PlatformError) << name;
  }
  EXPECT_EQ(readFile(folder / "precious"), "text");
}

TEST(ProcessTable, FindsProgramsAndScriptsThatRun) {
  TemporaryFolder folder;
  const std::string script = folder / "my script";
  const std::string begun = folder / "begun";
  ASSERT_EQ(::mkfifo(begun.c_str(), 0600), 0);
  writeFile(script, "#!/bin/sh -u\necho > '" + begun + "'\nread line\nexit 0\n");
  fs::permissions(script, fs::perms::owner_all);
  fs::create_symlink("my script", folder / "link");
  const std::string command = "echo $$ > '" + (folder / "pid") + "'; exec '" + script + "'";
  FILE* process = ::popen(command.c_str(), "w");
  ASSERT_NE(process, nullptr);
  readFile(begun);  // waits until the script runs
  const std::vector<RunningProcess> found = processesRunning(folder / "link");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(std::to_string(found[0].pid) + "\n", readFile(folder / "pid"));
  EXPECT_THAT(found[0].arguments, testing::ElementsAre("/bin/sh", "-u", script));
  ::pclose(process);
  EXPECT_THAT(processesRunning(script), testing::IsEmpty());

  const auto self = processesRunning("/proc/self/exe");
  ASSERT_FALSE(self.empty());
  EXPECT_THAT(self, testing::Contains(testing::Field(&RunningProcess::pid, ::getpid())));
}

TEST(UserPaths, FollowTheEnvironmentWhereItIsAbsolute) {
  TemporaryFolder folder;
  const ScopedEnvironment home("HOME", "/home/ann");
  ScopedEnvironment state("XDG_STATE_HOME", nullptr);
  ScopedEnvironment runtime("XDG_RUNTIME_DIR", nullptr);
  EXPECT_EQ(homeFolder(), "/home/ann");
  EXPECT_EQ(historyFile(), "/home/ann/.local/state/KVScheduler/history.jsonl");
  EXPECT_EQ(runtimeFolder(), "/home/ann/.local/state/KVScheduler");
  state.set("relative");
  EXPECT_EQ(stateFolder(), "/home/ann/.local/state/KVScheduler");
  state.set("/state");
  EXPECT_EQ(stateFolder(), "/state/KVScheduler");
  runtime.set((folder / "missing").c_str());
  EXPECT_EQ(runtimeFolder(), "/state/KVScheduler");
  runtime.set(folder.path().c_str());
  EXPECT_EQ(runtimeFolder(), folder.path().string());
  const ScopedEnvironment none("HOME", "relative");
  EXPECT_EQ(homeFolder().front(), '/');
}

TEST(UserPaths, MakeFoldersForThisUserOnly) {
  TemporaryFolder folder;
  EXPECT_TRUE(makeFolders(folder / "a/b"));
  EXPECT_TRUE(makeFolders(folder / "a/b/"));
  EXPECT_EQ(fs::status(folder / "a").permissions(), fs::perms::owner_all);
  writeFile(folder / "file", "");
  EXPECT_FALSE(makeFolders(folder / "file"));
  EXPECT_FALSE(makeFolders(folder / "file/x"));
}

}  // namespace
}  // namespace kv::test
