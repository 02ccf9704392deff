#include "scheduler/TraceFile.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "platform/PlatformError.h"
#include "tests/support/ForwardingFiles.h"
#include "tests/support/World.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

TEST(TraceFile, AppendsBehindWhateverIsThere) {
  TemporaryFolder folder;
  const auto path = folder / "trace.txt";
  TraceFile trace(std::make_shared<PosixFiles>(), path);
  EXPECT_TRUE(trace.append("first ☃\n"));
  EXPECT_EQ(readFile(path), "first ☃\n");
  writeFile(path, "another program's text without an end");
  EXPECT_TRUE(trace.append("|second\n"));
  EXPECT_EQ(readFile(path), "another program's text without an end|second\n");
}

TEST(TraceFile, LineWritersShapeTheirLines) {
  World world;
  world.start();
  auto& timer = *world.timer;
  timer.logString("dropped while tracing is off");
  EXPECT_FALSE(std::filesystem::exists(world.traceFile));
  world.tickAt("2024-03-05 09:05:07");
  std::filesystem::remove(world.traceFile);
  timer.logString("text");
  timer.logString_varstr("label: ", "value");
  timer.logString_varstr("label: ", std::nullopt);
  timer.logString_varstr(std::nullopt, "value");
  timer.logString_varflt("float ", 1.5f);
  timer.logString_varnt("count ", -3);
  EXPECT_EQ(readFile(world.traceFile),
            "09:05:07 [Timer] text\n"
            "09:05:07 [Timer] label: value\n"
            "09:05:07 [Timer] label: (null)\n"
            "09:05:07 [Timer] (null)value\n"
            "09:05:07 [Timer] float 1.500000\n"
            "09:05:07  count -3\n");
}

TEST(TraceFile, IsNotWrittenThroughWhatOthersMayHavePlanted) {
  TemporaryFolder folder;
  const auto victim = folder / "victim";
  writeFile(victim, "precious");
  const auto link = folder / "link";
  std::filesystem::create_symlink(victim, link);
  const auto dangling = folder / "dangling";
  std::filesystem::create_symlink(folder / "nothing", dangling);
  const auto hardLink = folder / "hard";
  std::filesystem::create_hard_link(victim, hardLink);
  const auto fifo = folder / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto inFolder = folder / "a/b";

  for (const auto& path : {link, dangling, hardLink, fifo, inFolder, folder.path().string()}) {
    EXPECT_FALSE(TraceFile(std::make_shared<PosixFiles>(), path).append("text\n")) << path;
  }
  EXPECT_EQ(readFile(victim), "precious");
  EXPECT_FALSE(std::filesystem::exists(folder / "nothing"));
}

/// Real files of which one step is refused.
class FailingFiles final : public ForwardingFiles {
 public:
  explicit FailingFiles(const char* step) : step_(step) {}

  std::unique_ptr<FileHandle> openOwnForWriting(const std::string& path) override {
    if (step_ == "open") return nullptr;
    auto handle = real_.openOwnForWriting(path);
    return handle ? std::make_unique<Handle>(std::move(handle), step_) : nullptr;
  }
  bool createEmpty(const std::string& path) override {
    return step_ != "create" && real_.createEmpty(path);
  }

 private:
  struct Handle final : ForwardingFileHandle {
    Handle(std::unique_ptr<FileHandle> handle, std::string refused)
        : ForwardingFileHandle(std::move(handle)), step(std::move(refused)) {}
    void seekToEnd() override {
      if (step == "seek") throw PlatformError("cannot seek");
      real_->seekToEnd();
    }
    void write(std::string_view bytes) override {
      if (step == "write") throw PlatformError("cannot write");
      real_->write(bytes);
    }
    std::string step;
  };
  std::string step_;
};

TEST(TraceFile, LosesALineButNeverATick) {
  for (const char* step : {"open", "create", "seek", "write"}) {
    World world;
    world.files = std::make_shared<FailingFiles>(step);
    world.setFirst(PropertyList::Array{Task("Docs").daily("00:00").lastRun("4")});
    world.start();
    world.tickAt("2024-03-05 09:00");
    EXPECT_FALSE(world.timer->append("text\n")) << step;
    EXPECT_EQ(readFile(world.traceFile), "") << step;
    EXPECT_THAT(world.host->launched, ElementsAre("Docs")) << step;
  }
}

}  // namespace
}  // namespace kv::test
