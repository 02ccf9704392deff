#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/app/ScriptWorld.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"

namespace kv::test {

/// The parts of the default host script, one after the other.
inline std::string defaultHost() {
  std::vector<std::filesystem::path> paths;
  for (const auto& file : std::filesystem::directory_iterator(KV_DEFAULT_SCRIPTS)) {
    if (file.path().extension() == ".js") paths.push_back(file.path());
  }
  std::sort(paths.begin(), paths.end());
  std::string text;
  for (const auto& path : paths) text += readFile(path);
  return text;
}

/// What the host script sees of the machine, under the hand of the test.
constexpr const char* kFakeMachine = R"(
  var fake = {installed: ['/p/kvbackup'], processes: [], history: [], started: [], now: 0,
              polls: [], debug: undefined, present: {}, looks: 0,
              files: {}, others: {}, isDiskFull: false, notices: [], opened: [], icon: []};
  Date.now = () => fake.now;
  system = {
    programFolder: '/p', historyFile: '/h', stateFolder: '/s', settingsFolder: '/c',
    homeFolder: '/home/ann',
    exists: path => fake.installed.indexOf(path) >= 0 || path in fake.files,
    processesRunning() {
      ++fake.looks;
      return fake.processes.map((line, i) => ({pid: i, arguments: line.split(' ')}));
    },
    readTail: () => fake.history.join('\n'),
    whoElseMayChange: path => fake.others[path],
    destinationPresent: path => path !== '/disk/Gone' || fake.present[path] === true,
    environment: name => name === 'KVSCHEDULER_DEBUG' ? fake.debug : undefined,
    after: (seconds, action) => fake.polls.push(action),
    readText: path => path in fake.files ? fake.files[path] : null,
    writeText(path, text) {
      if (!fake.isDiskFull) fake.files[path] = text;
      return !fake.isDiskFull;
    },
    notify: (summary, body) => fake.notices.push(summary + ' | ' + body),
    open(path) { fake.opened.push(path); return true; }
  };
  UtilsSch = {runScript: list => { fake.started.push(list.join(' ')); return ''; }};
  TAV_StatusItemController = class {
    createStatusItemWithMenu() { fake.icon.push('shown'); fake.menu = this.menu; }
    updateAnimation(mode) { fake.icon.push(mode); }
    releaseStatusItem() { fake.icon.push('gone'); }
  };
  function ran(set, result, end, message) {
    fake.history.push(JSON.stringify(
        {set: set, result: result, end: new Date(end).toISOString(), message: message || ''}));
  }
  function poll() { fake.polls.splice(0).forEach(action => action()); }
)";

/// The default host script on a fake machine, in UTC, from 2024-03-05 09:00 (a Tuesday) on.
struct HostWorld : ScriptWorld {
  /// `before` changes the fake machine before the host script is loaded.
  explicit HostWorld(const TaskList& sets, const std::string& before = "") {
    writeDocument(sets);
    script(kFakeMachine);
    setTime("2024-03-05 09:00:00");
    script(before);
    script(defaultHost());
    application->finishLaunching();
  }
  /// Asking a file logger for its size waits until it has rolled its file.
  ~HostWorld() {
    value("var file = DDLog.allLoggers()[0]; DDLog.removeAllLoggers(); file.maximumFileSize()");
  }

  void setTime(const std::string& time) {
    clock->present = localDate(time);
    value("fake.now = " + std::to_string(clock->present.unixSeconds() * 1000));
  }
  /// A tick at this time, which comes after what happened on the machine meanwhile.
  std::string tickAt(const std::string& time, const std::string& meanwhile = "") {
    setTime(time);
    value(meanwhile);
    value("fake.started = []");
    runLoop->advance(KVTimer::kTickInterval);
    return show("fake.started.join()");
  }
  std::string at(const char* time) {
    return std::to_string(localDate(std::string("2024-03-05 ") + time).unixSeconds() * 1000);
  }

  /// What the host script has told of itself.
  std::string events() {
    value("DDLog.flushLog()");
    std::string text;
    for (const auto& file : std::filesystem::recursive_directory_iterator(home / "Library/Logs")) {
      if (file.is_regular_file()) text += readFile(file.path());
    }
    return text;
  }

  ScopedEnvironment zone{"TZ", "UTC0"};
  ScopedEnvironment logsHome{"HOME", home.path().c_str()};
};

}  // namespace kv::test
