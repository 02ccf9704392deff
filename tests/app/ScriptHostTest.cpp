#include "app/ScriptHost.h"

#include <gmock/gmock.h>

#include <map>

#include "tests/app/ScriptWorld.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// Calls each operation of the host, by its name; what it answers, as text.
const std::map<std::string, std::string (*)(Host&)> kOperations = {
    {"reloadMenuNow", [](Host& host) { return host.reloadMenuNow({}), std::string("-"); }},
    {"checkRunningBackupStatus",
     [](Host& host) {
       const auto answer = host.checkRunningBackupStatus();
       return answer ? answer->description() : "nothing";
     }},
    {"checkBackupStatus",
     [](Host& host) {
       const auto answer = host.checkBackupStatus();
       return answer ? answer->description() : "nothing";
     }},
    {"checkIfDiskExists_fromSchedule",
     [](Host& host) {
       return std::string(host.checkIfDiskExists_fromSchedule(nullptr, 1) ? "present" : "missing");
     }},
    {"backupNow", [](Host& host) { return host.backupNow(nullptr), std::string("-"); }},
    {"backupNowViaScript",
     [](Host& host) { return host.backupNowViaScript(nullptr), std::string("-"); }},
};

TEST(ScriptHost, AFailingOperationAnswersNothingAndTheLogSaysWhere) {
  struct {
    const char* what;
    const char* body;  ///< in line 3 of the script; empty for no such operation
    const char* logged;
  } const kCases[] = {
      {"missing", "", "/bundle/host.js:2: *: the delegate has no such operation"},
      {"not a function", "*: 5,", "/bundle/host.js:2: *: the delegate has no such operation"},
      {"throws an Error", "*() { throw new Error('no'); }", "/bundle/host.js:3: *: Error: no"},
      {"throws a string", "*() { throw 'no'; }", "/bundle/host.js:2: *: threw no"},
      {"throws nothing", "*() { throw undefined; }", "/bundle/host.js:2: *: threw undefined"},
      {"throws what cannot be shown",
       "*() { throw {toString() { throw 1; }, toJSON() { throw 2; }} }",
       "/bundle/host.js:2: *: threw (a value that cannot be shown)"},
      {"answers an Error", "*() { return new Error('oh'); }", "/bundle/host.js:3: *: Error: oh"},
      {"fails inside the engine", "*() { return null.length; }",
       "/bundle/host.js:3: *: TypeError: Cannot read property 'length' of null"},
      {"calls itself for ever", "*() { return this.*(); }",
       // The engine knows no line of a function that it could not even enter.
       "/bundle/host.js:1: *: RangeError: Maximum call stack size exceeded."},
      {"is a getter that throws", "get *() { throw new Error('no'); }",
       "/bundle/host.js:3: *: Error: no"},
  };
  const auto named = [](std::string text, const std::string& name) {
    for (auto at = text.find('*'); at != std::string::npos; at = text.find('*')) {
      text.replace(at, 1, name);
    }
    return text;
  };
  for (const auto& [name, call] : kOperations) {
    for (const auto& failing : kCases) {
      SCOPED_TRACE(name + " " + failing.what);
      ScriptWorld world;
      world.script("\napplication.delegate = {\n" + named(failing.body, name) + "\n};");
      const std::string answer = call(*world.application->delegate());
      EXPECT_THAT(answer, testing::AnyOf("-", "nothing", "missing"));
      EXPECT_THAT(world.log(), ElementsAre(named(failing.logged, name)));
    }
  }
}

TEST(ScriptHost, AFaultIsLoggedAgainOnlyAfterAnotherOutcome) {
  ScriptWorld world;
  world.script(R"(var fault = 'a';
      application.delegate = { checkBackupStatus() { if (fault) throw fault; return 1; } };)");
  const auto host = world.application->delegate();
  for (const char* fault : {"a", "a", "b", "b", "a", "", "a", "a"}) {
    world.show("fault = '" + std::string(fault) + "'");
    host->checkBackupStatus();
  }
  const std::string prefix = "/bundle/host.js:2: checkBackupStatus: threw ";
  EXPECT_THAT(world.log(), ElementsAre(prefix + "a", prefix + "b", prefix + "a", prefix + "a"));
}

TEST(ScriptHost, AnswersReadAsJavaScriptMeansThem) {
  struct {
    const char* answer;
    const char* status;
    bool present;
  } const kCases[] = {
      {"true", "1", true},   {"false", "0", false},        {"0", "0", false},
      {"2", "2", true},      {"0.5", "0.5", true},         {"''", "", false},
      {"'0'", "0", true},    {"null", "nothing", false},   {"undefined", "nothing", false},
      {"NaN", "nan", false}, {"new Number(3)", "3", true}, {"() => 1", "nothing", true},
  };
  for (const auto& answered : kCases) {
    SCOPED_TRACE(answered.answer);
    ScriptWorld world;
    world.script("function answer() { return " + std::string(answered.answer) + R"( }
        application.delegate = { checkBackupStatus: answer, checkRunningBackupStatus: answer,
                                 checkIfDiskExists_fromSchedule: answer };)");
    const auto host = world.application->delegate();
    EXPECT_EQ(kOperations.at("checkBackupStatus")(*host), answered.status);
    EXPECT_EQ(kOperations.at("checkRunningBackupStatus")(*host), answered.status);
    EXPECT_EQ(host->checkIfDiskExists_fromSchedule(nullptr, 1), answered.present);
    EXPECT_THAT(world.log(), IsEmpty());
  }
}

TEST(ScriptHost, PassesWhatTheSchedulerPasses) {
  ScriptWorld world;
  world.script(R"(var got = [];
      application.delegate = {
        reloadMenuNow(list) { got.push(JSON.stringify(list)); list.length = 0; },
        checkIfDiskExists_fromSchedule(path, one) { got.push(path + ' ' + one); },
        backupNow(set) { got.push('now ' + set, this === application.delegate); },
        backupNowViaScript(set) { got.push('script ' + set); }
      };)");
  const auto host = world.application->delegate();
  const PropertyList name("Größe \"1\"");
  host->reloadMenuNow({PropertyList::Dictionary{{"backupset", name}}, 5});
  host->checkIfDiskExists_fromSchedule(&name, 1);
  host->checkIfDiskExists_fromSchedule(nullptr, 1);
  host->backupNow(&name);
  host->backupNowViaScript(nullptr);
  EXPECT_EQ(world.show("got.join('\\n')"),
            "[{\"backupset\":\"Größe \\\"1\\\"\"},5]\nGröße \"1\" 1\nnull 1\nnow Größe \"1\"\n"
            "true\nscript null");
}

TEST(ScriptHost, IsAbsentWithoutADelegateObject) {
  for (const char* delegate : {"undefined", "null", "5", "'text'", "true"}) {
    ScriptWorld world;
    world.script("application.delegate = " + std::string(delegate));
    EXPECT_EQ(world.application->delegate(), nullptr) << delegate;
    world.script("new KVTimer().ScheduleTimer()");  // goes on without a host
    EXPECT_THAT(world.log(), IsEmpty());
  }
}

TEST(ScriptHost, ATickKeepsTheDelegateThatItBeganWith) {
  ScriptWorld world;
  world.clock->present = localDate("2024-03-05 10:00");
  world.writeDocument({Task("Docs").daily("09:30").lastRun(4)});
  world.script(R"(var calls = [];
      function delegateNamed(name) {
        return {
          reloadMenuNow() { calls.push(name + ' reload'); application.delegate = second; },
          checkIfDiskExists_fromSchedule() { calls.push(name + ' disk'); return true; },
          checkRunningBackupStatus() { calls.push(name + ' running'); return 0; },
          checkBackupStatus() { calls.push(name + ' open'); return 0; },
          backupNow(set) { calls.push(name + ' backup ' + set); }
        };
      }
      const second = delegateNamed('second');
      const timer = new KVTimer();
      application.delegate = delegateNamed('first');
      timer.ScheduleTimer();)");
  // The launch is an operation of its own and fetches the delegate anew.
  EXPECT_EQ(world.show("calls.join(', ')"),
            "first reload, first disk, first disk, first running, first open, second backup Docs");
}

TEST(ScriptHost, CallsBackAndForthEnd) {
  ScriptWorld world;
  world.script(R"(var made = 0;
      application.delegate = { reloadMenuNow() { ++made; new KVTimer(); } };
      new KVTimer();)");
  EXPECT_EQ(world.show("made"), std::to_string(ScriptEngine::kDeepestCalls));
  EXPECT_THAT(world.log(), ElementsAre(testing::HasSubstr("reloadMenuNow: the program and the")));
}

TEST(ScriptHost, ALifecycleOperationMayBeMissingButNotFail) {
  ScriptWorld world;
  world.script("application.delegate = {}");
  world.application->finishLaunching();
  world.application->willTerminate();
  EXPECT_THAT(world.log(), IsEmpty());
  world.script("application.delegate = { applicationDidFinishLaunching() { oops() } }");
  world.application->finishLaunching();
  EXPECT_THAT(world.log(),
              ElementsAre(StartsWith("/bundle/host.js:1: applicationDidFinishLaunching: Refer")));
}

}  // namespace
}  // namespace kv::test
