#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QJSValue>
#include <memory>
#include <string>
#include <vector>

#include "app/Application.h"
#include "platform/BackgroundQueue.h"
#include "platform/ProcessLauncher.h"
#include "platform/PropertyListWriter.h"
#include "platform/SystemLog.h"
#include "platform/linux/PosixFiles.h"
#include "scheduler/ScheduleDocuments.h"
#include "tests/support/Fakes.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {

class RecordingSystemLog final : public SystemLog {
 public:
  void write(std::string_view text) override { lines.emplace_back(text); }
  std::vector<std::string> lines;
};

class RecordingLauncher final : public ProcessLauncher {
 public:
  void start(const std::string& executable,
             const std::optional<std::vector<std::string>>& arguments) override {
    std::string line = executable;
    for (const auto& argument : arguments.value_or(std::vector<std::string>())) {
      line += "|" + argument;
    }
    started.push_back(line);
  }
  std::vector<std::string> started;
};

/// An application whose scripts are given as text, whose time passes at command, and whose
/// documents lie in a temporary home.
class ScriptWorld {
 public:
  ScriptWorld()
      : application(std::make_unique<Application>(environment(), Bundle{"/bundle", {}, {}})) {}
  ~ScriptWorld() { runLoop->invalidateAll(); }

  /// Runs a host script named host.js. `text` begins in its line 1.
  void script(const std::string& text) { application->scripts().run({"/bundle/host.js", text}); }

  /// The value of an expression, as text.
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
  std::shared_ptr<RecordingLauncher> launcher = std::make_shared<RecordingLauncher>();
  std::shared_ptr<BackgroundQueue> queue = std::make_shared<BackgroundQueue>(1);
  int quits = 0;
  std::unique_ptr<Application> application;

 private:
  Application::Environment environment() {
    Application::Environment result;
    result.scheduler.clock = clock;
    result.scheduler.runLoop = runLoop;
    result.scheduler.files = std::make_shared<PosixFiles>();
    result.scheduler.locale = DateLocale::fromName("C");
    result.scheduler.homeFolder = home.path().string();
    result.scheduler.traceFile = home / "trace.txt";
    result.launcher = {launcher, queue, systemLog, clock};
    result.system = {clock, runLoop, "/program", "/home/someone", "/state", "/state/history"};
    result.systemLog = systemLog;
    result.quit = [this] { ++quits; };
    return result;
  }
};

}  // namespace kv::test
