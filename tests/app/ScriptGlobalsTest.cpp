#include <gmock/gmock.h>

#include <future>

#include "app/StartupError.h"
#include "tests/app/ScriptWorld.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ScriptGlobals, AScriptFindsOutWhatThereIs) {
  ScriptWorld world;
  EXPECT_EQ(world.show(R"([typeof application, typeof KVTimer, typeof NSMenu, typeof NSMenuItem,
      typeof UtilsSch.runApp, typeof console.log, typeof system.exists, typeof system.noSuchThing,
      typeof NoSuchClass].join())"),
            "object,function,function,function,function,function,function,undefined,undefined");
  EXPECT_EQ(world.show("application.bundle.path + application.bundle.identifier"), "/bundlenull");
}

TEST(ScriptGlobals, TheProgramKeepsItsApplicationObject) {
  ScriptWorld world;
  world.script("var application = application || 5; application.delegate = {};");
  world.script("application = null;");
  EXPECT_NE(world.application->delegate(), nullptr);
}

TEST(ScriptGlobals, AScriptThatCannotBeLoadedSaysWhere) {
  struct {
    const char* text;
    const char* message;
  } const kCases[] = {
      {"\n\nlet a = ;", "/bundle/host.js:3: SyntaxError: Expected token `numeric literal'"},
      {"\nthrow 'words'", "/bundle/host.js:2: threw words"},
      {"\n\nfunction f() {\n throw new Error('deep') }\nf()", "/bundle/host.js:4: Error: deep"},
      {"\nnoSuchFunction()", "/bundle/host.js:2: ReferenceError: noSuchFunction is not defined"},
      {"\nKVTimer()",
       "/bundle/host.js:2: TypeError: Cannot call a class constructor without |new|"},
      {"\nsystem.after(1)", "/bundle/host.js:2: TypeError: after takes a function"},
  };
  for (const auto& one : kCases) {
    ScriptWorld world;
    try {
      world.script(one.text);
      ADD_FAILURE() << "loaded: " << one.text;
    } catch (const StartupError& error) {
      EXPECT_STREQ(error.what(), one.message);
    }
  }
  ScriptWorld world;
  EXPECT_NO_THROW(world.script("new Error('only a value')"));
}

TEST(ScriptGlobals, TheConsoleWritesToTheSystemLog) {
  ScriptWorld world;
  world.script(R"(console.log('text', 1.5, true, null, undefined, {a: [1]}, () => 1);
      console.info(); console.debug('two\nlines');
      console.warn(new Error('oops'));
      const cycle = {}; cycle.self = cycle; console.error('cycle', cycle);)");
  EXPECT_THAT(world.log(),
              ElementsAre("/bundle/host.js:1: text 1.5 true null undefined {\"a\":[1]} "
                          "function() { [native code] }",
                          "/bundle/host.js:2: ", "/bundle/host.js:2: two",
                          "/bundle/host.js:2: lines", "/bundle/host.js:3: warning: Error: oops",
                          "/bundle/host.js:4: error: cycle [object Object]"));
}

TEST(ScriptGlobals, MenusHoldItems) {
  ScriptWorld world;
  world.script(R"(var menu = new NSMenu('Sets'), sub = new NSMenu();
      var first = new NSMenuItem('First', () => 'done'), line = NSMenuItem.separatorItem();
      menu.addItem(first); menu.addItem(line); menu.insertItem(new NSMenuItem('Zero'), 0);
      first.submenu = sub;)");
  EXPECT_EQ(world.show("menu.items.map(item => item.title).join() + menu.numberOfItems"),
            "Zero,First,3");
  EXPECT_EQ(world.show("[first.action(), first.state, first.enabled, line.separator, line.enabled,"
                       " first.menu === menu, menu.itemWithTitle('Zero') === menu.items[0],"
                       " menu.itemWithTitle('none'), new NSMenuItem().action].join()"),
            "done,0,true,true,false,true,true,,");
  world.script("first.state = 5; sub.addItem(first); menu.removeItem(first);");
  EXPECT_EQ(world.show("first.state + menu.items.length + sub.items[0].title"), "3First");
  world.script("menu.removeAllItems()");
  EXPECT_EQ(world.show("menu.items.length + ' ' + line.menu"), "0 null");
  EXPECT_THAT(world.show("try { menu.addItem({title: 'x'}) } catch (error) { String(error) }"),
              testing::HasSubstr("TypeError"));
}

TEST(ScriptGlobals, UtilsSchStartsPrograms) {
  ScriptWorld world;
  EXPECT_EQ(world.show("UtilsSch.runAppAlone(['/a', 'ignored'])"), "SCH end block running app.");
  EXPECT_EQ(world.show("UtilsSch.runApp(['/b', 1.5, true, 'ignored'])"),
            "SCH end block running app.");
  EXPECT_EQ(world.show("UtilsSch.runScript(['/c', '4R82T6', 'größe'])"), "end SCH block");
  EXPECT_EQ(world.show("UtilsSch.runScript('/not a list') + UtilsSch.runAppAlone()"),
            "end SCH blockSCH end block running app.");
  EXPECT_EQ(world.show("UtilsSch.getTmSTring().length"), "8");
  std::promise<void> drained;  // the queue has one thread: what was added before has run
  world.queue->async([&] { drained.set_value(); });
  drained.get_future().wait();
  EXPECT_THAT(world.launcher->started, ElementsAre("/a", "/b|1.5|true", "/c|4R82T6|größe"));
}

TEST(ScriptGlobals, TerminateTakesTheFirstStatus) {
  ScriptWorld world;
  EXPECT_EQ(world.application->exitStatus(), std::nullopt);
  world.script("application.terminate(3); application.terminate(4);");
  EXPECT_EQ(world.application->exitStatus(), 3);
  EXPECT_EQ(world.quits, 1);
  ScriptWorld other;
  other.script("application.terminate()");
  EXPECT_EQ(other.application->exitStatus(), 0);
}

TEST(ScriptGlobals, TheEndIsToldOnceAndOnlyAfterTheBeginning) {
  ScriptWorld world;
  world.script(R"(var told = '';
      application.delegate = { applicationDidFinishLaunching() { told += 'begin '; },
                               applicationWillTerminate() { told += 'end '; } };)");
  world.application->willTerminate();
  EXPECT_EQ(world.show("told"), "");
  world.application->finishLaunching();
  world.application->willTerminate();
  world.application->willTerminate();
  EXPECT_EQ(world.show("told"), "begin end ");
}

}  // namespace
}  // namespace kv::test
