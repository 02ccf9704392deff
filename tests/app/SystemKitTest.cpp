#include "app/SystemKit.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/app/ScriptWorld.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv::test {
namespace {

using testing::ElementsAre;

TEST(SystemKit, KnowsPathsAndEnvironment) {
  ScriptWorld world;
  const ScopedEnvironment set("KV_TEST_SET", "größe"), unset("KV_TEST_UNSET", nullptr);
  EXPECT_EQ(world.show("system.environment('KV_TEST_SET')"), "größe");
  EXPECT_EQ(world.show("typeof system.environment('KV_TEST_UNSET')"), "undefined");
  EXPECT_EQ(world.show("[system.programFolder, system.homeFolder, system.stateFolder,"
                       " system.historyFile].join()"),
            "/program,/home/someone,/state,/state/history");
  EXPECT_EQ(world.show("[system.exists('/'), system.exists('/no/such'), system.exists(''),"
                       " system.mountPoint('/proc/self')].join()"),
            "true,false,false,/proc");
}

TEST(SystemKit, ADestinationIsAFolderThatIsThere) {
  ScriptWorld world;
  writeFile(world.home / "file", "");
  const std::string folder = world.home.path().string();
  EXPECT_EQ(world.show("[system.destinationPresent('" + folder + "'), system.destinationPresent('" +
                       folder + "/file'), system.destinationPresent('" + folder +
                       "/gone'), system.destinationPresent('/media/nobody/disk')].join()"),
            "true,false,false,false");
}

TEST(SystemKit, FindsRunningProcesses) {
  ScriptWorld world;
  const QString own = QCoreApplication::applicationFilePath();
  EXPECT_EQ(world.show("system.processesRunning('" + own.toStdString() +
                       "').some(process => process.pid === " + std::to_string(getpid()) +
                       " && process.arguments.length > 0)"),
            "true");
  EXPECT_EQ(world.show("system.processesRunning('/no/such').length"), "0");
}

TEST(SystemKit, ReadsTheLastWholeLines) {
  ScriptWorld world;
  const std::string path = world.home / "log";
  writeFile(path, "one\ntwo\nthree");
  struct {
    const char* maxBytes;
    const char* text;
  } const kCases[] = {
      {"100", "one\ntwo\nthree"},
      {"13", "one\ntwo\nthree"},
      {"12", "two\nthree"},
      {"9", "two\nthree"},
      {"8", "three"},
      {"5", "three"},
      {"4", ""},
      {"0", ""},
      {"-1", ""},
      {"NaN", ""},
      {"1e99", "one\ntwo\nthree"},
  };
  for (const auto& one : kCases) {
    EXPECT_EQ(world.show("system.readTail('" + path + "', " + one.maxBytes + ")"), one.text)
        << one.maxBytes;
  }
  const std::string fifo = world.home / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& none :
       {world.home / "none", fifo, std::string("/dev/zero"), world.home.path().string()}) {
    EXPECT_EQ(world.show("typeof system.readTail('" + none + "', 10)"), "undefined") << none;
  }
}

TEST(SystemKit, CallsAfterATimeOnce) {
  ScriptWorld world;
  world.script(R"(var calls = [];
      system.after(2, () => calls.push('two'));
      system.after(1, () => { calls.push('one'); system.after(1.5, () => calls.push('late')); });
      system.after(NaN, () => { throw new Error('no'); });)");
  world.collectGarbage();
  world.runLoop->advance(Seconds(1));
  EXPECT_EQ(world.show("calls.join()"), "one");
  world.runLoop->advance(Seconds(10));
  EXPECT_EQ(world.show("calls.join()"), "one,two,late");
  EXPECT_EQ(world.runLoop->validTimers(), 0u);
  EXPECT_THAT(world.log(), ElementsAre("/bundle/host.js:4: system.after: Error: no"));
}

}  // namespace
}  // namespace kv::test
