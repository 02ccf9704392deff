#include "app/SystemKit.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/UserPaths.h"
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

TEST(SystemKit, ReplacesTextsAndReadsThemBack) {
  ScriptWorld world;
  const auto folder = world.home.path();
  writeFile(folder / "large", std::string(SystemKit::kLongestText + 1, 'x'));
  writeFile(folder / "kept", "old");
  std::filesystem::permissions(folder / "kept", std::filesystem::perms(0640));
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  world.script("var at = name => '" + folder.string() + "/' + name;");
  const std::pair<std::string, std::string> kCases[] = {
      {"writeText(at('new/deep/file'), 'größe\\n\\u0000')", "true"},
      {"readText(at('new/deep/file')) === 'größe\\n\\u0000'", "true"},
      {"writeText(at('kept'), '')", "true"},
      {"readText(at('kept')) === ''", "true"},
      {"readText(at('none'))", "null"},
      {"readText(at('large'))", "null"},
      {"readText(at('fifo'))", "null"},
      {"readText(at('new'))", "null"},
      {"writeText(at('fifo'), 'text')", "false"},
      {"writeText(at('new'), 'text')", "false"},
      {"writeText(at('kept/file'), 'text')", "false"},
      {"writeText('/proc/no/such', 'text')", "false"},
      {"writeText(at('cut\\u0000off'), 'text')", "false"},
      {"writeText('', 'text')", "false"},
  };
  for (const auto& [expression, value] : kCases) {
    EXPECT_EQ(world.show("system." + expression), value) << expression;
  }
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(folder / "new").permissions(), perms(0700));
  EXPECT_EQ(std::filesystem::status(folder / "new/deep/file").permissions(), perms(0600));
  EXPECT_EQ(std::filesystem::status(folder / "kept").permissions(), perms(0640));
  const std::filesystem::directory_iterator left(folder);
  EXPECT_EQ(std::distance(begin(left), end(left)), 4) << "a temporary file has stayed";
}

TEST(SystemKit, OpensFilesByTheDesktopOfThatMoment) {
  ScriptWorld world;
  const std::string program = world.home / "bin/xdg-open";
  writeFile(program, "");
  std::filesystem::create_directory(world.home / "-x y");
  const auto here = std::filesystem::current_path();
  std::filesystem::current_path(world.home.path());
  const ScopedEnvironment path("PATH", (world.home / "bin").c_str());
  EXPECT_EQ(world.show("system.open('-x y')"), "false") << "no program, but a file of that name";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  EXPECT_EQ(world.show("system.open('-x y')"), "true");
  EXPECT_EQ(world.show("system.open('gone') || system.open('')"), "false");
  world.launcher->missing = program;
  EXPECT_EQ(world.show("system.open('-x y')"), "false");
  std::filesystem::current_path(here);
  EXPECT_THAT(world.launcher->started,
              testing::ElementsAre(program + " [" + (world.home / "-x y") + "]"));
}

TEST(SystemKit, TellsTheUser) {
  ScriptWorld world;
  world.script(R"(system.notify('one'); system.notify('two', 'größe', 0);
      for (const urgency of [-1, 1, 2, 9, NaN, null]) system.notify(urgency, null, urgency);)");
  EXPECT_THAT(
      world.notifier->shown,
      testing::ElementsAre("1 kvscheduler: one: ", "0 kvscheduler: two: größe",
                           "0 kvscheduler: -1: ", "1 kvscheduler: 1: ", "2 kvscheduler: 2: ",
                           "2 kvscheduler: 9: ", "1 kvscheduler: NaN: ", "1 kvscheduler: : "));
}

TEST(UserPaths, KeepSettingsWhereTheEnvironmentSays) {
  const ScopedEnvironment home("HOME", "/someone");
  const std::pair<const char*, const char*> kCases[] = {
      {"/config", "/config/KVScheduler"},
      {nullptr, "/someone/.config/KVScheduler"},
      {"", "/someone/.config/KVScheduler"},
      {"relative", "/someone/.config/KVScheduler"},
  };
  for (const auto& [value, folder] : kCases) {
    const ScopedEnvironment config("XDG_CONFIG_HOME", value);
    EXPECT_EQ(settingsFolder(), folder);
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
