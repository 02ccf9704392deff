#include "platform/linux/PosixFiles.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

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

}  // namespace
}  // namespace kv::test
