#include <gmock/gmock.h>

#include "tests/app/ScriptWorld.h"
#include "tests/support/Task.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(SchedulerObject, HasTheOperationsAndFieldsOfTheScheduler) {
  ScriptWorld world;
  world.clock->present = Date::fromUnixSeconds(1709631000.5);
  world.writeDocument({Task("Docs").daily("09:30")});
  world.script(R"(var timer = new KVTimer();)");
  EXPECT_EQ(world.runLoop->validTimers(), 1u);
  EXPECT_EQ(world.show(R"(JSON.stringify([
      timer instanceof KVTimer, timer.timer, timer.indexNum, timer.ndt, timer.debugStarted,
      timer.dbugMenu, timer.getType(0), timer.getType(3), timer.getType(-1), timer.getType()]))"),
            "[true,true,null,\"2024-03-05T09:30:00.500Z\",false,null,\"Daily\",\"Minute\","
            "\"Daily?\",\"Daily\"]");
  world.script("timer.ScheduleTimer(); timer.stopTimer();");
  EXPECT_EQ(world.show("timer.indexNum + timer.timer"), "0false");
  world.script("timer.runTimer(); timer.runTimer();");
  EXPECT_EQ(world.runLoop->validTimers(), 2u);
}

TEST(SchedulerObject, FieldsOfTheSchedulerAreReadOnlyButTheMenuItem) {
  ScriptWorld world;
  world.script(R"(var timer = new KVTimer();
      for (const name of ['timer', 'indexNum', 'ndt', 'debugStarted']) timer[name] = 'mine';)");
  EXPECT_EQ(world.show("timer.timer === true && timer.indexNum === null && !timer.debugStarted"),
            "true");
  EXPECT_THAT(world.show("try { timer.dbugMenu = 5 } catch (error) { String(error) }"),
              HasSubstr("TypeError"));
  EXPECT_THAT(world.show("try { timer.runTimer.call({}) } catch (error) { String(error) }"),
              HasSubstr("this is no KVTimer"));
}

TEST(SchedulerObject, AnyObjectWithAStateServesAsTheMenuItem) {
  struct {
    const char* item;
    bool traces;
  } const kCases[] = {
      {"new NSMenuItem('Debug')", false},
      {"{state: 1}", true},
      {"{state: true}", true},
      {"{state: '1'}", true},
      {"{state: 2}", false},
      {"{}", false},
      {"{get state() { throw 'no'; }}", false},
      {"Object.assign(new NSMenuItem('Debug'), {state: 1})", true},
      {"Object.assign(() => 0, {state: 1})", true},
      {"null", false},
      {"undefined", false},
  };
  for (const auto& one : kCases) {
    SCOPED_TRACE(one.item);
    ScriptWorld world;
    world.script("var timer = new KVTimer(), item = (" + std::string(one.item) +
                 "); timer.dbugMenu = item; timer.ScheduleTimer();");
    EXPECT_EQ(world.show("timer.dbugMenu === (item === undefined ? null : item)"), "true");
    EXPECT_EQ(world.show("timer.debugStarted"), one.traces ? "true" : "false");
  }
}

TEST(SchedulerObject, TracingThatTakesTooLongSwitchesTheMenuItemOff) {
  ScriptWorld world;
  world.script("var timer = new KVTimer(); timer.dbugMenu = {state: 1}; timer.ScheduleTimer();");
  world.clock->present = world.clock->present + Seconds(10001);
  world.script("timer.ScheduleTimer()");
  EXPECT_EQ(world.show("timer.dbugMenu.state + ' ' + timer.debugStarted"), "0 false");
}

TEST(SchedulerObject, LineWritersTakeWhateverAScriptPasses) {
  ScriptWorld world;
  world.script(R"(var timer = new KVTimer();
      timer.logString('not traced');
      timer.dbugMenu = {state: 1};
      timer.ScheduleTimer();)");
  writeFile(world.home / "trace.txt", "");
  world.script(R"(timer.logString('text'); timer.logString(); timer.logString(5);
      timer.logString_varstr('a ', null); timer.logString_varstr('a ', 'b');
      timer.logString_varnt('n ', 7.9); timer.logString_varnt('n ', Math.pow(2, 32) + 1);
      timer.logString_varflt('f ', 1.5); timer.append('as it stands');)");
  std::string lines = readFile(world.home / "trace.txt");
  std::string texts;  // without the time of day
  for (std::size_t at = 0; at < lines.size(); at = lines.find('\n', at) + 1) {
    if (lines.find('\n', at) == std::string::npos) {
      texts += lines.substr(at);
      break;
    }
    texts += lines.substr(at + 8, lines.find('\n', at) - at - 8) + "\n";
  }
  EXPECT_EQ(texts,
            " [Timer] text\n [Timer] (null)\n [Timer] 5\n [Timer] a (null)\n [Timer] a b\n"
            "  n 7\n  n 1\n [Timer] f 1.500000\nas it stands");
}

TEST(SchedulerObject, SortedRecordsAreTheScriptsOwnObjects) {
  ScriptWorld world;
  world.clock->present = Date::fromUnixSeconds(1000);
  world.script(R"(
      const minutes = (name, due) => ({backupset: name, extra: {name},
          schopts: {scheduleIt: 1, dayWeekOrHour: 3, minhourdate: new Date(due * 1000)}});
      var list = [null, minutes('a', 900), 5, minutes('b', 700), minutes('c', 800), {}];
      list[3].self = list;
      var sorted = new KVTimer().sortArrayForNextBackup(list);)");
  EXPECT_EQ(world.show("sorted.length + ' ' + (sorted[0] === list[3] && sorted[1] === list[1])"),
            "2 true");
  for (const char* noList : {"[]", "null", "undefined", "'text'", "{}"}) {
    EXPECT_EQ(
        world.show("new KVTimer().sortArrayForNextBackup(" + std::string(noList) + ").length"),
        "0");
  }
  EXPECT_THAT(world.show("try { new KVTimer().sortArrayForNextBackup([{get a() { throw 'no' }}]) }"
                         "catch (error) { String(error) }"),
              HasSubstr("a member cannot be read"));
}

TEST(SchedulerObject, DestinationsAreGivenBackAsTheyStand) {
  ScriptWorld world;
  world.script(R"(var timer = new KVTimer(), where = {odd: 1};
      var list = [null, {backupset: 'a', destinationPath: '/a'}, {backupset: 'a'},
                  {backupset: 'b'}, {backupset: 'c', destinationPath: where}, {backupset: 5}];
      var path = set => timer.getDestPathFromArray_Set(list, set);)");
  EXPECT_EQ(world.show("JSON.stringify([path('a'), path('b'), path('x'), path(null), path('')])"),
            R"(["/a",null,"none","none","none"])");
  EXPECT_EQ(world.show("path('c') === where"), "true");
  EXPECT_EQ(world.show("timer.getDestPathFromArray_Set(null, 'a')"), "none");
}

TEST(SchedulerObject, LaunchesGoToTheDelegateOfTheMoment) {
  ScriptWorld world;
  world.script(R"(var timer = new KVTimer(), asked = [];
      application.delegate = { backupNow(set) { asked.push(set); },
                               backupNowViaScript(set) { asked.push('script', set); } };
      timer.launchKelvaraWithSet('Docs'); timer.launchKelvaraWithSet();
      timer.launchKelvaraScriptWithSet({a: [1]});)");
  EXPECT_EQ(world.show("JSON.stringify(asked)"), R"(["Docs",null,"script",{"a":[1]}])");
}

TEST(SchedulerObject, ATimerRunsOnWhenTheScriptHasDroppedIt) {
  ScriptWorld world;
  world.script(R"(var reloads = 0;
      application.delegate = { reloadMenuNow() { ++reloads; } };
      (() => { new KVTimer().dbugMenu = {state: 0}; new KVTimer(); })();)");
  world.collectGarbage();
  world.runLoop->advance(Seconds(57 * 3));
  EXPECT_EQ(world.show("reloads"), "8");  // two at creation, two at each tick
  EXPECT_THAT(world.log(), IsEmpty());
}

TEST(SchedulerObject, AMenuItemThatOnlyTheTimerHoldsStays) {
  ScriptWorld world;
  world.script("var timer = new KVTimer(); timer.dbugMenu = {state: 1, mine: 'yes'};");
  world.collectGarbage();
  world.runLoop->advance(Seconds(57));
  EXPECT_EQ(world.show("timer.dbugMenu.mine + timer.debugStarted"), "yestrue");
}

}  // namespace
}  // namespace kv::test
