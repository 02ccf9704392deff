#include "app/SystemKit.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/app/ScriptWorld.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv::test {
namespace {

TEST(SystemKit, KnowsTheMachine) {
  ScriptWorld world;
  const ScopedEnvironment set("KV_TEST_SET", "größe"), unset("KV_TEST_UNSET", nullptr);
  const std::string own = QCoreApplication::applicationFilePath().toStdString();
  world.script("var folder = '" + world.home.path().string() + "', own = '" + own + "';");
  writeFile(world.home / "log", "one\ntwo\nthree");
  ASSERT_EQ(mkfifo((world.home / "fifo").c_str(), 0600), 0);
  const std::pair<std::string, std::string> kCases[] = {
      {"environment('KV_TEST_SET')", "größe"},
      {"environment('KV_TEST_UNSET')", "undefined"},
      {"exists(folder)", "true"},
      {"exists(folder + '/gone')", "false"},
      {"mountPoint('/proc/self')", "/proc"},
      {"destinationPresent(folder)", "true"},
      {"destinationPresent(own)", "false"},
      // The tests may run several at a time.
      {"processesRunning(own).some(one => one.pid === " + std::to_string(getpid()) + ")", "true"},
      // Whole lines from the end.
      {"readTail(folder + '/log', 13)", "one\ntwo\nthree"},
      {"readTail(folder + '/log', 12)", "two\nthree"},
      {"readTail(folder + '/fifo', 10)", "undefined"},
      {"readTail('/dev/zero', 10)", "undefined"},
  };
  for (const auto& [expression, value] : kCases) {
    EXPECT_EQ(world.show("system." + expression), value) << expression;
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
  EXPECT_THAT(world.log(), testing::ElementsAre("/bundle/host.js:4: system.after: Error: no"));
}

}  // namespace
}  // namespace kv::test
