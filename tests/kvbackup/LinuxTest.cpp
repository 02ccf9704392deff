#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

#include "platform/PlatformError.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/Volumes.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;

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
  EXPECT_EQ(destinationState(folder.path().string(), unmounted), DestinationState::kPresent);
  EXPECT_EQ(destinationState(folder / "disk/none", mounted), DestinationState::kMissing);
  EXPECT_EQ(destinationState(folder / "file", mounted), DestinationState::kNotAFolder);
  EXPECT_EQ(mountPointOf(folder / "diskette", mounted), "/") << "whole components only";
  EXPECT_THAT(MountTable::read().mounted, testing::Contains("/proc"));
}

TEST(FileLock, ExcludesOthersAndTellsWhoHoldsIt) {
  TemporaryFolder folder;
  const std::string path = folder / "lock";
  auto lock = FileLock::tryAcquire(path, "first");
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(FileLock::tryAcquire(path, "second"), nullptr);
  EXPECT_EQ(FileLock::note(path), "first");
  lock.reset();
  EXPECT_NE(FileLock::tryAcquire(path, "2"), nullptr);
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
  ProcessTable table;
  writeFile(script, "no script yet");
  EXPECT_THAT(table.running(script), testing::IsEmpty());
  writeFile(script, "#!/bin/sh -u\necho > '" + begun + "'\nread line\nexit 0\n");
  fs::permissions(script, fs::perms::owner_all);
  fs::create_symlink("my script", folder / "link");
  const std::string command = "echo $$ > '" + (folder / "pid") + "'; exec '" + script + "'";
  FILE* process = ::popen(command.c_str(), "w");
  ASSERT_NE(process, nullptr);
  readFile(begun);  // waits until the script runs
  const std::vector<RunningProcess> found = table.running(folder / "link");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(std::to_string(found[0].pid) + "\n", readFile(folder / "pid"));
  EXPECT_THAT(found[0].arguments, testing::ElementsAre("/bin/sh", "-u", script));
  ::pclose(process);
  EXPECT_THAT(table.running(script), testing::IsEmpty());
}

}  // namespace
}  // namespace kv::test
