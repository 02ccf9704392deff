#include "platform/linux/PosixFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/PlatformError.h"
#include "platform/linux/SystemClock.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Kind = FileResult::Kind;

TEST(PosixFiles, ReadsWholeRegularFilesOnly) {
  TemporaryFolder folder;
  PosixFiles files;
  writeFile(folder / "file", "0123456789");
  std::filesystem::create_symlink("file", folder / "link");
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);

  EXPECT_EQ(files.read(folder / "file", 10), "0123456789");
  EXPECT_EQ(files.read(folder / "link", 10), "0123456789");
  EXPECT_EQ(files.read(folder / "file", 9), std::nullopt);  // over the limit
  for (const auto& path : {folder / "missing", folder / "fifo", folder.path().string(),
                           std::string("/dev/zero"), std::string("/proc/self/maps")}) {
    EXPECT_EQ(files.read(path, 1 << 20), std::nullopt) << path;
  }
}

TEST(PosixFiles, NeverMixesTwoVersionsOfAFile) {
  TemporaryFolder folder;
  PosixFiles files;
  const auto path = folder / "file";
  const std::string a(200'000, 'a');
  const std::string b(300'000, 'b');
  writeFile(path, a);
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    for (bool turn = false; !stop; turn = !turn) {
      writeFile(folder / "next", turn ? a : b);
      std::filesystem::rename(folder / "next", path);
      writeFile(path, turn ? b : a);  // in place, which no reader can see whole at all times
    }
  });
  int whole = 0;
  for (int i = 0; i < 300; ++i) {
    const auto content = files.read(path, 1 << 20);
    if (!content || content->empty()) continue;
    ++whole;
    EXPECT_EQ(content->find_first_not_of(content->front()), std::string::npos);
  }
  stop = true;
  writer.join();
  writeFile(path, a);
  EXPECT_EQ(files.read(path, 1 << 20), a);
  RecordProperty("whole", whole);
}

TEST(PosixFiles, AppendsBehindWhateverOthersWrite) {
  TemporaryFolder folder;
  PosixFiles files;
  const auto path = folder / "file";
  writeFile(path, "old\n");
  std::filesystem::create_symlink("file", folder / "link");
  const auto one = files.openForAppending(path);
  const auto other = files.openForAppending(folder / "link");
  ASSERT_TRUE(one && other);
  EXPECT_EQ(one->offset(), 0u);
  one->seekToEnd();
  EXPECT_EQ(one->offset(), 4u);
  one->write("one\n");
  EXPECT_EQ(one->offset(), 8u);
  other->write("other\n");
  EXPECT_FALSE(one->cutBackTo(4)) << "it would take the other's line";
  one->write("two\n");
  EXPECT_EQ(readFile(path), "old\none\nother\ntwo\n");
  one->seekToEnd();
  EXPECT_FALSE(one->cutBackTo(100)) << "it would grow";
  EXPECT_TRUE(one->cutBackTo(4));
  EXPECT_EQ(one->offset(), 4u);
  one->write("new\n");
  one->synchronize();
  EXPECT_EQ(readFile(path), "old\nnew\n");
}

TEST(PosixFiles, OpensNothingThatWouldBlockOrCannotBeWritten) {
  TemporaryFolder folder;
  PosixFiles files;
  ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  (folder / "socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
  const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  for (const auto& path : {folder / "missing", folder / "fifo", folder / "socket",
                           folder.path().string(), folder / "missing/file"}) {
    EXPECT_EQ(files.openForAppending(path), nullptr) << path;
  }
  ::close(server);
}

/// Files may not grow beyond so many bytes while it lives.
class SizeLimit {
 public:
  explicit SizeLimit(rlim_t bytes) {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~SizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, SIG_DFL);
  }

 private:
  rlimit before_{};
};

TEST(PosixFiles, CountsWhatWasWrittenBeforeAFailure) {
  TemporaryFolder folder;
  PosixFiles files;
  writeFile(folder / "file", "0123");
  const auto handle = files.openForAppending(folder / "file");
  handle->seekToEnd();
  {
    SizeLimit limit(10);
    EXPECT_THROW(handle->write("a line of text\n"), PlatformError);
  }
  EXPECT_EQ(handle->offset(), 10u);
  EXPECT_TRUE(handle->cutBackTo(4));
  EXPECT_EQ(readFile(folder / "file"), "0123");

  const auto full = files.openForAppending("/dev/full");
  ASSERT_TRUE(full);
  EXPECT_THROW(full->write("x"), PlatformError);
  EXPECT_EQ(full->offset(), 0u);
  EXPECT_FALSE(full->cutBackTo(0));
  EXPECT_NO_THROW(full->synchronize());
}

TEST(PosixFiles, TellsWhatAFileIs) {
  TemporaryFolder folder;
  PosixFiles files;
  const auto path = folder / "file";
  constexpr Seconds kSlack(1);  // files are dated by a clock of coarse steps
  const Date before = SystemClock().now() + -kSlack;
  writeFile(path, "12345");
  const Date after = SystemClock().now() + kSlack;
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  const timespec times[] = {{1000000000, 0}, {1000000000, 500000000}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  std::filesystem::create_hard_link(path, folder / "name");
  std::filesystem::create_symlink("file", folder / "link");

  const auto facts = files.attributes(path);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->type, FileAttributes::Type::kRegular);
  EXPECT_EQ(facts->sizeBytes, 5u);
  EXPECT_EQ(facts->permissions, 0640u);
  EXPECT_EQ(facts->links, 2u);
  EXPECT_EQ(facts->owner, ::geteuid());
  EXPECT_EQ(facts->inode, files.attributes(folder / "name")->inode);
  EXPECT_EQ(facts->modificationDate, Date::fromUnixSeconds(1000000000.5));
  EXPECT_GT(facts->creationDate, before);
  EXPECT_LT(facts->creationDate, after);
  EXPECT_EQ(files.attributes(folder / "link")->type, FileAttributes::Type::kLink);
  EXPECT_EQ(files.attributes(folder.path().string())->type, FileAttributes::Type::kFolder);
  EXPECT_EQ(files.attributes("/dev/null")->type, FileAttributes::Type::kOther);
  EXPECT_FALSE(files.attributes(folder / "missing"));
}

TEST(PosixFiles, MakesListsMovesAndRemoves) {
  TemporaryFolder folder;
  PosixFiles files;
  const auto top = folder / "top";
  EXPECT_TRUE(files.createFolders(top + "/a/b").isDone());
  EXPECT_TRUE(files.createFolders(top + "/a/b").isDone());
  writeFile(top + "/file", "text");
  writeFile(folder / "precious", "kept");
  std::filesystem::create_symlink(folder / "precious", top + "/link");
  std::filesystem::create_symlink("nowhere", top + "/dangling");
  EXPECT_THAT(files.list(top), UnorderedElementsAre("a", "file", "link", "dangling"));
  EXPECT_THAT(files.list(top + "/file"), IsEmpty());
  EXPECT_TRUE(files.exists(top + "/link"));
  EXPECT_FALSE(files.exists(top + "/dangling"));
  const auto refused = files.createFolders(top + "/file/c");
  EXPECT_EQ(refused.kind, Kind::kRefused);
  EXPECT_EQ(refused.reason, "Not a directory");

  EXPECT_EQ(files.move(top + "/missing", top + "/new").kind, Kind::kAbsent);
  EXPECT_EQ(files.move(top + "/file", top + "/link").reason, "File exists");
  EXPECT_EQ(files.move(top + "/file", top + "/dangling").kind, Kind::kRefused);
  EXPECT_TRUE(files.move(top + "/file", top + "/a/moved").isDone());
  EXPECT_EQ(readFile(top + "/a/moved"), "text");

  EXPECT_TRUE(files.remove(top).isDone());
  EXPECT_EQ(files.remove(top).kind, Kind::kAbsent);
  EXPECT_EQ(readFile(folder / "precious"), "kept");
}

TEST(PosixFiles, GivesBackWhatRemovedFilesTook) {
  TemporaryFolder folder;
  PosixFiles files;
  const std::string megabyte(1 << 20, 'x');
  const auto openFiles = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto openBefore = openFiles();
  // More than are given back behind the caller's back.
  for (int number = 0; number < 40; ++number) {
    const std::string path = folder / std::to_string(number);
    writeFile(path, megabyte);
    EXPECT_TRUE(files.remove(path).isDone());
    EXPECT_FALSE(std::filesystem::exists(path));
  }
  while (openFiles() > openBefore) std::this_thread::yield();

  writeFile(folder / "shared", megabyte);
  std::filesystem::create_hard_link(folder / "shared", folder / "other name");
  EXPECT_TRUE(files.remove(folder / "shared").isDone());
  EXPECT_EQ(readFile(folder / "other name"), megabyte);
}

TEST(PosixFiles, MarksFilesByAttributesOfTheUser) {
  TemporaryFolder folder;
  PosixFiles files;
  const auto path = folder / "file";
  const auto link = folder / "link";
  writeFile(path, "");
  std::filesystem::create_symlink("file", link);
  EXPECT_EQ(files.findExtendedAttribute(path, "mark").kind, Kind::kAbsent);
  EXPECT_EQ(files.removeExtendedAttribute(path, "mark").kind, Kind::kAbsent);
  for (int time = 0; time < 2; ++time) {
    EXPECT_TRUE(files.addExtendedAttribute(link, "mark").isDone()) << "it may be there already";
  }
  EXPECT_EQ(::getxattr(path.c_str(), "user.mark", nullptr, 0), 0);
  EXPECT_TRUE(files.findExtendedAttribute(path, "mark").isDone());
  EXPECT_TRUE(files.removeExtendedAttribute(link, "mark").isDone());
  EXPECT_EQ(files.findExtendedAttribute(path, "mark").kind, Kind::kAbsent);
  for (const auto& result : {files.findExtendedAttribute(folder / "missing", "mark"),
                             files.addExtendedAttribute(folder / "missing", "mark"),
                             files.removeExtendedAttribute(folder / "missing", "mark")}) {
    EXPECT_EQ(result.kind, Kind::kRefused);
    EXPECT_EQ(result.reason, "No such file or directory");
  }
}

}  // namespace
}  // namespace kv::test
