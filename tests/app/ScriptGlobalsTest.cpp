#include <gmock/gmock.h>

#include "tests/app/ScriptWorld.h"
#include "tests/support/ScopedEnvironment.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(Console, WritesToTheSystemLog) {
  ScriptWorld world;
  world.script(R"(console.log('text', 1.5, true, null, undefined, {a: [1]});
      console.debug('two\nlines');
      console.warn(new Error('oops'));
      const cycle = {}, a = []; cycle.self = cycle; console.error(cycle);
      a.push(a); console.log(a);
      console.log(new Proxy({}, {get() { throw 'no'; }}));)");
  EXPECT_THAT(world.log(),
              ElementsAre("/bundle/host.js:1: text 1.5 true null undefined {\"a\":[1]}",
                          "/bundle/host.js:2: two", "/bundle/host.js:2: lines",
                          "/bundle/host.js:3: warning: Error: oops",
                          "/bundle/host.js:4: error: [object Object]",
                          "/bundle/host.js:5: [object Array]", "/bundle/host.js:6: [object]"));
}

TEST(KVTimer, HasTheOperationsAndFieldsOfTheScheduler) {
  ScriptWorld world;
  world.clock->present = Date::fromUnixSeconds(1709631000.5);
  world.script(R"(var timer = new KVTimer(), asked = [];
      application.delegate = { backupNowViaScript(set) { asked.push(set); } };
      timer.launchKelvaraScriptWithSet(); timer.launchKelvaraScriptWithSet({a: [1]});)");
  EXPECT_EQ(world.show("JSON.stringify([timer.indexNum, timer.ndt, timer.getType(-1), asked])"),
            R"([null,"2024-03-05T09:30:00.500Z","Daily?",[null,{"a":[1]}]])");
  EXPECT_EQ(world.show("timer.stopTimer(); timer.timer"), "false");
  world.script("timer.runTimer(); timer.runTimer();");  // the first one runs on
  EXPECT_EQ(world.runLoop->validTimers(), 2u);
  EXPECT_THAT(world.show("timer.dbugMenu = 5"), HasSubstr("TypeError"));
  EXPECT_THAT(world.show("timer.runTimer.call({})"), HasSubstr("this is no KVTimer"));
}

TEST(KVTimer, TakesAnyObjectWithAStateForTheMenuItem) {
  const std::pair<std::string, const char*> kCases[] = {
      {"Object.assign(new NSMenuItem('Debug'), {state: 1})", "true"},
      {"{state: '1'}", "true"},
      {"{state: 2}", "false"},
      {"{get state() { throw 'no'; }}", "false"},
      {"null", "false"},
  };
  for (const auto& [item, traces] : kCases) {
    ScriptWorld world;
    world.script("var timer = new KVTimer(), item = (" + item +
                 "); timer.dbugMenu = item; timer.ScheduleTimer();");
    EXPECT_EQ(world.show("timer.dbugMenu === item"), "true") << item;
    EXPECT_EQ(world.show("timer.debugStarted"), traces) << item;
  }
}

TEST(KVTimer, HoldsAMenuItemAndSwitchesItOff) {
  ScriptWorld world;
  world.script("var timer = new KVTimer(); timer.dbugMenu = {state: 1, mine: 'yes'};");
  world.collectGarbage();
  world.runLoop->advance(Seconds(57));
  EXPECT_EQ(world.show("timer.dbugMenu.mine + timer.debugStarted"), "yestrue");
  world.script("timer.logString(); timer.logString_varstr('a ', null);");
  EXPECT_THAT(readFile(world.home / "trace.txt"), testing::EndsWith(" [Timer] a (null)\n"));
  world.clock->present = world.clock->present + Seconds(10001);  // traced for too long
  EXPECT_EQ(world.show("timer.ScheduleTimer(); timer.dbugMenu.state + ' ' + timer.debugStarted"),
            "0 false");
}

TEST(KVTimer, GivesAScriptItsOwnRecordsBack) {
  ScriptWorld world;
  world.clock->present = Date::fromUnixSeconds(1000);
  world.script(R"(
      const minutes = (name, due) => ({backupset: name, destinationPath: {name},
          schopts: {scheduleIt: 1, dayWeekOrHour: 3, minhourdate: new Date(due * 1000)}});
      var list = [null, minutes('a', 900), 5, minutes('b', 700), minutes('c', 800), {}];
      list[3].self = list;
      var timer = new KVTimer(), sorted = timer.sortArrayForNextBackup(list);
      var path = set => timer.getDestPathFromArray_Set(list, set);)");
  EXPECT_EQ(world.show("sorted.map(record => list.indexOf(record)).join()"), "3,1");
  EXPECT_EQ(world.show("(path('b') === list[3].destinationPath) + path('x') + path(null)"),
            "truenonenone");
  EXPECT_THAT(world.show("timer.sortArrayForNextBackup([{get a() { throw 'no' }}])"),
              HasSubstr("a member cannot be read"));
}

TEST(KVTimer, TellsWhenASetIsDueNext) {
  ScriptWorld world;
  const ScopedEnvironment zone("TZ", kBerlin);
  world.clock->present = Date::fromUnixSeconds(1709631000.5);  // 2024-03-05 10:30 in Berlin
  world.script(R"(
      var timer = new KVTimer(), due = options => timer.nextDue({schopts: options});
      var at = text => new Date(text), daily = {scheduleIt: 1, dayWeekOrHour: 0, dayOfMonth: 5,
                                                datePick: at('2019-01-15T08:15:00Z')};
      var often = {scheduleIt: 1, dayWeekOrHour: 3,
                   minhourdate: at('2024-03-05T12:00:00.123Z')};)");
  const std::pair<const char*, const char*> kCases[] = {
      {"due(daily).toISOString()", "2024-03-06T08:15:00.000Z"},
      {"due(often).toISOString()", "2024-03-05T12:00:00.123Z"},
      {"often.minhourdate = at('2024-03-05'), +due(often) === 1709631000500", "true"},
      {"due(Object.assign({runState: false}, daily))", "null"},
      {"timer.isTakingPart({schopts: daily})", "true"},
      {"timer.isTakingPart({schopts: {}})", "false"},
      {"timer.nextDue() + ' ' + timer.nextDue('text') + timer.isTakingPart()", "null nullfalse"},
  };
  for (const auto& [expression, value] : kCases) {
    EXPECT_EQ(world.show(expression), value) << expression;
  }
}

TEST(KVTimer, RunsOnWhenTheScriptHasDroppedIt) {
  ScriptWorld world;
  world.script(R"(var reloads = 0;
      application.delegate = { reloadMenuNow() { ++reloads; } };
      (() => { new KVTimer().dbugMenu = {state: 0}; new KVTimer(); })();)");
  world.collectGarbage();
  world.runLoop->advance(Seconds(57 * 3));
  EXPECT_EQ(world.show("reloads"), "8");  // two at creation, two at each tick
}

TEST(KVTimer, AnswersWhenOthersHaveBeenCollected) {
  ScriptWorld world;
  world.script("var kept = new KVTimer();");
  for (int dropped = 0; dropped < 5; ++dropped) {
    world.script("new KVTimer().stopTimer();");
    world.collectGarbage();
    EXPECT_EQ(world.show("kept.getType(0) + kept.timer"), "Dailytrue");
  }
}

}  // namespace
}  // namespace kv::test
