#include "app/ScriptHost.h"

#include <gmock/gmock.h>

#include "tests/app/ScriptWorld.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Each operation of the host; true when it answers something.
const std::pair<std::string, bool (*)(Host&)> kOperations[] = {
    {"reloadMenuNow", [](Host& host) { return host.reloadMenuNow({}), false; }},
    {"checkRunningBackupStatus",
     [](Host& host) { return host.checkRunningBackupStatus().has_value(); }},
    {"checkBackupStatus", [](Host& host) { return host.checkBackupStatus().has_value(); }},
    {"checkIfDiskExists_fromSchedule",
     [](Host& host) { return host.checkIfDiskExists_fromSchedule(nullptr, 1); }},
    {"backupNow", [](Host& host) { return host.backupNow(nullptr), false; }},
    {"backupNowViaScript", [](Host& host) { return host.backupNowViaScript(nullptr), false; }},
};

TEST(ScriptHost, AFailingOperationAnswersNothingAndTheLogSaysWhere) {
  // Line 3 of the script, and what is logged; * stands for the operation.
  const std::pair<const char*, const char*> kCases[] = {
      {"", "/bundle/host.js:2: *: the delegate has no such operation"},
      {"*: 5,", "/bundle/host.js:2: *: the delegate has no such operation"},
      {"*() { throw new Error('no'); }", "/bundle/host.js:3: *: Error: no"},
      {"*() { throw undefined; }", "/bundle/host.js:2: *: threw undefined"},
      {"*() { throw {toString() { throw 1; }, toJSON() { throw 2; }} }",
       "/bundle/host.js:2: *: threw [object Object]"},
      {"*() { return new Error('oh'); }", "/bundle/host.js:3: *: Error: oh"},
      // The engine knows no line of a function that it could not even enter.
      {"*() { return this.*(); }",
       "/bundle/host.js:1: *: RangeError: Maximum call stack size exceeded."},
      {"get *() { throw new Error('no'); }", "/bundle/host.js:3: *: Error: no"},
  };
  for (const auto& [name, call] : kOperations) {
    const auto named = [&operation = name](std::string text) {
      for (auto at = text.find('*'); at != std::string::npos; at = text.find('*')) {
        text.replace(at, 1, operation);
      }
      return text;
    };
    for (const auto& [body, logged] : kCases) {
      ScriptWorld world;
      world.script("\napplication.delegate = {\n" + named(body) + "\n};");
      EXPECT_FALSE(call(*world.application->delegate())) << name << body;
      EXPECT_FALSE(call(*world.application->delegate()));  // what lasts is logged once
      EXPECT_THAT(world.log(), ElementsAre(named(logged)));
    }
  }
}

TEST(ScriptHost, AnswersReadAsJavaScriptMeansThem) {
  const std::tuple<std::string, const char*, bool> kCases[] = {
      {"true", "1", true},          {"0", "0", false},       {"0.5", "0.5", true},
      {"'0'", "0", true},           {"NaN", "nan", false},   {"''", "", false},
      {"undefined", "none", false}, {"null", "none", false},
  };
  for (const auto& [answer, status, present] : kCases) {
    ScriptWorld world;
    world.script("application.delegate = { checkIfDiskExists_fromSchedule: () => (" + answer +
                 "), checkBackupStatus: () => (" + answer + ") };");
    const auto host = world.application->delegate();
    EXPECT_EQ(host->checkBackupStatus().value_or("none").description(), status);
    EXPECT_EQ(host->checkIfDiskExists_fromSchedule(nullptr, 1), present) << answer;
    EXPECT_THAT(world.log(), IsEmpty());
  }
}

TEST(ScriptHost, AnObjectIsNoAnswer) {
  for (const std::string answer :
       {"Promise.resolve(false)", "new Boolean(false)", "[]", "() => 1"}) {
    ScriptWorld world;
    world.script("application.delegate = { checkIfDiskExists_fromSchedule: () => (" + answer +
                 "), checkRunningBackupStatus: () => (" + answer + ") };");
    const auto host = world.application->delegate();
    for (int time = 0; time < 2; ++time) {
      EXPECT_FALSE(host->checkIfDiskExists_fromSchedule(nullptr, 1)) << answer;
      EXPECT_FALSE(host->checkRunningBackupStatus()) << answer;
    }
    EXPECT_THAT(world.log(), ElementsAre(HasSubstr("checkIfDiskExists_fromSchedule: answered an"),
                                         HasSubstr("checkRunningBackupStatus: answered an")));
  }
}

TEST(ScriptHost, ATickKeepsTheDelegateThatItBeganWith) {
  ScriptWorld world;
  world.clock->present = localDate("2024-03-05 10:00");
  world.writeDocument({Task("Docs").daily("09:30").lastRun(4)});
  world.script(R"(var calls = [];
      const delegateNamed = (name, next) => ({
        reloadMenuNow() { calls.push(name + ' reload'); application.delegate = next; },
        checkIfDiskExists_fromSchedule(path) { calls.push(name + path); return true; },
        checkRunningBackupStatus() { calls.push(name + ' running'); return 0; },
        checkBackupStatus() { calls.push(name + ' open'); return 0; },
        backupNow(set) { calls.push(name + ' backup ' + set, this === application.delegate); }
      });
      const timer = new KVTimer();
      application.delegate = delegateNamed('first', delegateNamed('second'));
      timer.ScheduleTimer();)");
  // The launch is an operation of its own and fetches the delegate anew.
  EXPECT_EQ(world.show("calls.join()"),
            "first reload,first/disk/Docs,first/disk/Docs,first running,first open,"
            "second backup Docs,true");
}

TEST(ScriptHost, CallsBackAndForthEnd) {
  ScriptWorld world;
  world.script(R"(var made = 0;
      application.delegate = { reloadMenuNow() { ++made; new KVTimer(); } };
      new KVTimer();)");
  EXPECT_EQ(world.show("made"), std::to_string(ScriptEngine::kDeepestCalls));
  EXPECT_THAT(world.log(), ElementsAre(HasSubstr("reloadMenuNow: the program and the")));
}

}  // namespace
}  // namespace kv::test
