#include "platform/qt/QtProcessLauncher.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <thread>
#include <vector>

#include "platform/PlatformError.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

TEST(QtProcessLauncher, SaysWhyAProgramCannotBeStarted) {
  TemporaryFolder folder;
  writeFile(folder / "not executable", "");
  writeFile(folder / "no program", "plain text");
  chmod((folder / "no program").c_str(), 0755);
  struct {
    std::string path;
    const char* reason;
  } const kCases[] = {
      {folder / "missing", "No such file or directory"},
      {folder / "not executable", "Permission denied"},
      {folder / "no program", "Exec format error"},
      {folder.path().string(), "Permission denied"},
      {"sh", "the path is not absolute"},
      {"", "the path is not absolute"},
  };
  QtProcessLauncher launcher;
  for (const auto& one : kCases) {
    try {
      launcher.start(one.path, std::nullopt);
      ADD_FAILURE() << "started: " << one.path;
    } catch (const PlatformError& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr("\"" + one.path + "\""));
      EXPECT_THAT(error.what(), testing::HasSubstr(one.reason));
    }
  }
}

TEST(QtProcessLauncher, ServesSeveralThreads) {
  TemporaryFolder folder;
  QtProcessLauncher launcher;
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) {
    threads.emplace_back([&launcher, file = folder / std::to_string(index)] {
      launcher.start("/usr/bin/touch", std::vector<std::string>{file});
      EXPECT_THROW(launcher.start(file + "/none", std::nullopt), PlatformError);
    });
  }
  for (auto& thread : threads) thread.join();
  const auto files = [&] {
    return std::distance(std::filesystem::directory_iterator(folder.path()), {});
  };
  while (files() < 8) std::this_thread::yield();  // or until the time-out of the test
  EXPECT_EQ(files(), 8);
}

}  // namespace
}  // namespace kv::test
