#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QJSValue>
#include <memory>
#include <string>
#include <vector>

#include "app/Application.h"
#include "platform/PropertyListWriter.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/support/Fakes.h"
#include "tests/support/RecordingLauncher.h"
#include "tests/support/RecordingNotifier.h"
#include "tests/support/RecordingStatusBar.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {

/// An application whose scripts are given as text, whose time passes at command, and whose
/// documents lie in a temporary home. It starts no programs.
class ScriptWorld {
 public:
  ScriptWorld() {
    Application::Environment environment;
    environment.scheduler = {.host = nullptr,  // the application's
                             .clock = clock,
                             .runLoop = runLoop,
                             .files = std::make_shared<PosixFiles>(),
                             .locale = DateLocale::fromName("C"),
                             .homeFolder = home.path().string(),
                             .traceFile = home / "trace.txt"};
    environment.system = {.clock = clock,
                          .runLoop = runLoop,
                          .programFolder = "/program",
                          .homeFolder = "/home/someone",
                          .stateFolder = "/state",
                          .historyFile = "/state/history",
                          .settingsFolder = "/settings",
                          .launcher = launcher,
                          .notifier = notifier};
    environment.statusItem = {.statusBar = statusBar, .runLoop = runLoop};
    environment.systemLog = systemLog;
    application = std::make_unique<Application>(std::move(environment), Bundle{"/bundle", {}, {}});
  }
  ~ScriptWorld() { runLoop->invalidateAll(); }

  /// Runs a host script named host.js. `text` begins in its line 1.
  void script(const std::string& text) { application->scripts().run({"/bundle/host.js", text}); }

  /// The value of an expression, as text; what it throws, if it does.
  std::string show(const std::string& expression) {
    return value(expression).toString().toStdString();
  }
  QJSValue value(const std::string& expression) {
    return application->scripts().engine().evaluate(QString::fromStdString(expression));
  }

  void writeDocument(const TaskList& list) {
    writeFile(home / ScheduleDocuments::kFirst,
              writePropertyList(PropertyList(list), PropertyListEncoding::kBinary));
  }

  /// Lets the garbage collector delete what scripts have dropped.
  void collectGarbage() {
    application->scripts().engine().collectGarbage();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }

  std::vector<std::string>& log() { return systemLog->lines; }

  TemporaryFolder home;
  std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
  std::shared_ptr<FakeRunLoop> runLoop = std::make_shared<FakeRunLoop>();
  std::shared_ptr<RecordingSystemLog> systemLog = std::make_shared<RecordingSystemLog>();
  std::shared_ptr<RecordingStatusBar> statusBar = std::make_shared<RecordingStatusBar>();
  std::shared_ptr<RecordingLauncher> launcher = std::make_shared<RecordingLauncher>();
  std::shared_ptr<RecordingNotifier> notifier = std::make_shared<RecordingNotifier>();
  std::unique_ptr<Application> application;
};

}  // namespace kv::test
