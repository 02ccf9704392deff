#include "launcher/UtilsSch.h"

#include <gmock/gmock.h>

#include <mutex>

#include "tests/support/Fakes.h"
#include "tests/support/RecordingLauncher.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv::test {
namespace {

using testing::ElementsAreArray;

using ArgumentList = UtilsSch::ArgumentList;

struct RecordingLog final : SystemLog {
  void write(std::string_view text) override {
    const std::lock_guard lock(mutex);
    lines.emplace_back(text);
  }
  std::mutex mutex;
  std::vector<std::string> lines;
};

using Operation = std::string (*)(const UtilsSch::Environment&, ArgumentList);

struct LaunchCase {
  const char* why;
  Operation operation;
  ArgumentList list;
  std::vector<std::string> started;
  std::vector<std::string> logged;
};

TEST(UtilsSch, ReadsItsArgumentsByPosition) {
  const std::string args = "KVScheduler > Utils Args = ";
  const std::string problem = "SCH Utils Problem Running Task: ";
  const LaunchCase cases[] = {
      {"alone", UtilsSch::runAppAlone, {"/app", "a", "b"}, {"/app (no arguments)"}, {}},
      {"alone, empty", UtilsSch::runAppAlone, {}, {}, {}},
      {"alone, missing program", UtilsSch::runAppAlone, {"/missing"}, {}, {}},
      {"app",
       UtilsSch::runApp,
       {"/app", "a", "b", "c"},
       {"/app [a] [b]"},
       {args + "(/app, a, b, c)"}},
      {"app, empty", UtilsSch::runApp, {}, {}, {args + "()", "SCH Utils No arguments"}},
      {"app, short",
       UtilsSch::runApp,
       {"/app", "a"},
       {},
       {args + "(/app, a)", problem + "no element 2 in an argument list of 2"}},
      {"app, missing program",
       UtilsSch::runApp,
       {"/missing", "a", "b"},
       {},
       {args + "(/missing, a, b)", problem + "no such program"}},
      {"script", UtilsSch::runScript, {"/app", "Qm3x7P", "Docs"}, {"/app [Qm3x7P] [Docs]"}, {}},
      {"script, other token",
       UtilsSch::runScript,
       {"/app", "4R82T6", "-x", "y"},
       {"/app [4R82T6] [-x]"},
       {}},
      {"script, unknown token",
       UtilsSch::runScript,
       {"/app", "qm3X7p"},
       {"/app (no arguments)"},
       {}},
      {"script, no token", UtilsSch::runScript, {"/app"}, {}, {}},
      {"script, no value", UtilsSch::runScript, {"/app", "4R82T6"}, {}, {}},
      {"script, empty", UtilsSch::runScript, {}, {}, {}},
      {"script, missing program", UtilsSch::runScript, {"/missing", "x"}, {}, {}},
  };
  for (const auto& c : cases) {
    const auto launcher = std::make_shared<RecordingLauncher>();
    const auto log = std::make_shared<RecordingLog>();
    UtilsSch::Environment environment{launcher, std::make_shared<BackgroundQueue>(1), log,
                                      std::make_shared<FakeClock>()};
    const auto queue = std::weak_ptr(environment.queue);
    EXPECT_EQ(c.operation(environment, c.list),
              c.operation == UtilsSch::runScript ? "end SCH block" : "SCH end block running app.")
        << c.why;
    environment.queue.reset();  // runs what was handed off
    EXPECT_TRUE(queue.expired());
    EXPECT_THAT(launcher->started, ElementsAreArray(c.started)) << c.why;
    EXPECT_THAT(log->lines, ElementsAreArray(c.logged)) << c.why;
  }
}

TEST(UtilsSch, TellsTheTimeOfDay) {
  ScopedEnvironment zone("TZ", "UTC0");
  const auto clock = std::make_shared<FakeClock>();
  clock->present = Date::fromUnixSeconds(9 * 3600 + 5 * 60 + 7);
  EXPECT_EQ(UtilsSch::getTmSTring({nullptr, nullptr, nullptr, clock}), "09:05:07");
}

}  // namespace
}  // namespace kv::test
