#include "platform/linux/InotifyFileWatcher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "platform/linux/PosixFiles.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

namespace fs = std::filesystem;

/// A file "log" that is open for writing, and a queue for the handlers of its watches.
class InotifyFileWatcherTest : public ::testing::Test {
 protected:
  std::unique_ptr<FileWatch> watchLog() { return watchLog(told); }
  std::unique_ptr<FileWatch> watchLog(std::atomic<int>& count) {
    auto watch = watcher.watch(path, handle->descriptor(), queue, [&count] { ++count; });
    EXPECT_TRUE(watch->isWatching());
    return watch;
  }

  /// Returns when all that happened to files before has been seen: events come in order.
  void letWatcherSeeAll() {
    const auto file = folder / "sentinel";
    writeFile(file, "");
    const auto open = files.openForAppending(file);
    std::promise<void> seen;
    const auto watch = watcher.watch(file, open->descriptor(), std::make_shared<SerialQueue>(),
                                     [&] { seen.set_value(); });
    fs::remove(file);
    ASSERT_EQ(seen.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  }

  /// How often the handlers were called for what happened so far.
  int toldSoFar() {
    letWatcherSeeAll();
    queue->sync([] {});
    return told;
  }

  static std::string makeFile(const std::string& path) {
    writeFile(path, "text\n");
    return path;
  }

  TemporaryFolder folder;
  PosixFiles files;
  const std::string path = makeFile(folder / "log");
  std::unique_ptr<FileHandle> handle = files.openForAppending(path);
  InotifyFileWatcher watcher;
  std::atomic<int> told = 0;
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("watched");
};

TEST_F(InotifyFileWatcherTest, TellsOnceHoweverTheFileGoes) {
  using Step = std::function<void()>;
  const std::pair<const char*, Step> ways[] = {
      {"deleted", [&] { fs::remove(path); }},
      {"moved away", [&] { fs::rename(path, folder / "else"); }},
      {"moved over", [&] { fs::rename(makeFile(folder / "new"), path); }},
      {"moved away and made anew",
       [&] {
         fs::rename(path, folder / "else");
         makeFile(path);
       }},
      {"moved away and back",
       [&] {
         fs::rename(path, folder / "else");
         fs::rename(folder / "else", path);
       }},
      {"deleted, another name left",
       [&] {
         fs::create_hard_link(path, folder / "else");
         fs::remove(path);
       }},
      {"moved, then deleted",
       [&] {
         fs::rename(path, folder / "else");
         fs::remove(folder / "else");
       }},
  };
  for (const auto& [way, step] : ways) {
    fs::remove(folder / "else");
    makeFile(path);
    handle = files.openForAppending(path);
    told = 0;
    const auto watch = watchLog();
    step();
    EXPECT_EQ(toldSoFar(), 1) << way;
  }
}

TEST_F(InotifyFileWatcherTest, TakesNoOtherChangeForIt) {
  const auto watch = watchLog();
  handle->write("more\n");
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  EXPECT_TRUE(files.addExtendedAttribute(path, "mark").isDone());
  fs::create_hard_link(path, folder / "name");
  fs::remove(folder / "name");
  fs::remove(makeFile(folder / "neighbour"));
  EXPECT_EQ(toldSoFar(), 0);
  fs::remove(path);
  EXPECT_EQ(toldSoFar(), 1);
}

TEST_F(InotifyFileWatcherTest, NoticesAFileThatWentBeforeItsWatch) {
  fs::remove(path);
  makeFile(path);
  const auto watch = watchLog();
  EXPECT_EQ(toldSoFar(), 1);
}

TEST_F(InotifyFileWatcherTest, SaysNothingAfterItsEndOnTheQueue) {
  auto watch = watchLog();
  std::promise<void> gone;
  queue->async([&] {
    gone.get_future().wait();
    watch.reset();
  });
  fs::remove(path);
  letWatcherSeeAll();
  gone.set_value();
  EXPECT_EQ(toldSoFar(), 0);
}

TEST_F(InotifyFileWatcherTest, MayEndWithinItsOwnHandler) {
  std::unique_ptr<FileWatch> watch;
  queue->sync([&] {
    watch = watcher.watch(path, handle->descriptor(), queue, [&] {
      watch.reset();
      ++told;
    });
  });
  fs::remove(path);
  EXPECT_EQ(toldSoFar(), 1);
  EXPECT_EQ(watch, nullptr);
}

TEST_F(InotifyFileWatcherTest, ServesSeveralWatchesOfOneFile) {
  std::atomic<int> others = 0;
  std::atomic<int> ended = 0;
  const auto watch = watchLog();
  auto passing = watchLog(ended);
  const auto other = watchLog(others);
  passing.reset();
  fs::remove(path);
  EXPECT_EQ(toldSoFar(), 1);
  EXPECT_EQ(others, 1);
  EXPECT_EQ(ended, 0);
}

TEST_F(InotifyFileWatcherTest, WatchesTheOpenFileNotAnotherOfItsNumber) {
  const auto watch = watchLog();
  const int number = handle->descriptor();
  handle.reset();
  handle = files.openForAppending(makeFile(folder / "next"));
  ASSERT_EQ(handle->descriptor(), number);
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  EXPECT_EQ(toldSoFar(), 0);
}

TEST_F(InotifyFileWatcherTest, WatchesNothingWithoutADescriptor) {
  const auto watch = watcher.watch(path, -1, queue, [&] { ++told; });
  EXPECT_FALSE(watch->isWatching());
  fs::remove(path);
  EXPECT_EQ(toldSoFar(), 0);
}

bool hasWatchingThread() {
  for (const auto& task : fs::directory_iterator("/proc/self/task")) {
    if (readFile(task.path() / "comm") == "file-watch\n") return true;
  }
  return false;
}

bool watchingThreadComesToBe(bool there) {
  for (int looks = 0; looks < 100'000; ++looks) {
    if (hasWatchingThread() == there) return true;
    std::this_thread::yield();
  }
  return false;
}

TEST_F(InotifyFileWatcherTest, ItsThreadEndsWithIt) {
  {
    InotifyFileWatcher own;
    const auto watch = own.watch(path, handle->descriptor(), queue, [] {});
    EXPECT_TRUE(watchingThreadComesToBe(true));
  }
  EXPECT_TRUE(watchingThreadComesToBe(false));
}

TEST_F(InotifyFileWatcherTest, IsLeftAloneByAForkedChild) {
  auto watch = watchLog();
  letWatcherSeeAll();
  const pid_t child = ::fork();
  if (child == 0) {
    watch.reset();
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  fs::remove(path);
  EXPECT_EQ(toldSoFar(), 1);
}

}  // namespace
}  // namespace kv::test
