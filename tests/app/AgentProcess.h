#pragma once

#include <signal.h>

#include <QDeadlineTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace kv::test {

/// A user's world on disk: a home, a runtime folder and a bundle with one script.
struct AgentFolders {
  AgentFolders() {
    for (const char* folder : {"home", "runtime"}) std::filesystem::create_directory(root / folder);
  }
  void writeScript(const std::string& text) { writeFile(root / "bundle/Scripts/host.js", text); }

  /// The files in the agent's log folder, one after the other.
  std::string logged() const {
    std::string text;
    std::error_code none;
    const std::string folder = root / "home/Library/Logs/KVScheduler";
    for (const auto& file : std::filesystem::directory_iterator(folder, none)) {
      text += readFile(file.path());
    }
    return text;
  }

  TemporaryFolder root;
};

/// The real program, running in such a world.
class AgentProcess {
 public:
  /// `wrapper` is a command that runs the one behind it.
  explicit AgentProcess(const AgentFolders& folders, QStringList wrapper = {}) {
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", QString::fromStdString(folders.root / "home"));
    environment.insert("XDG_RUNTIME_DIR", QString::fromStdString(folders.root / "runtime"));
    environment.remove("XDG_STATE_HOME");
    environment.remove("XDG_CONFIG_HOME");
    // Not on the desktop of whoever runs the tests.
    for (const char* desktop : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"}) {
      environment.remove(desktop);
    }
    process_.setProcessEnvironment(environment);
    wrapper << KV_AGENT << "--bundle" << QString::fromStdString(folders.root / "bundle");
    process_.start(wrapper.takeFirst(), wrapper);
    process_.waitForStarted(kPatienceMilliseconds);
  }
  ~AgentProcess() {
    process_.kill();
    exitStatus();
  }

  /// Waits until standard error holds `text`; false when the agent ends or half a minute passes.
  bool waitFor(const std::string& text) {
    const QDeadlineTimer limit(kPatienceMilliseconds);
    process_.setReadChannel(QProcess::StandardError);
    while (errors().find(text) == std::string::npos &&
           process_.waitForReadyRead(static_cast<int>(limit.remainingTime()))) {
    }
    return errors().find(text) != std::string::npos;
  }

  void signal(int number) const { ::kill(pid(), number); }

  /// Waits for the end and yields the exit status; -1 when a signal ended it or it does not end.
  int exitStatus() {
    process_.waitForFinished(kPatienceMilliseconds);
    const bool running = process_.state() != QProcess::NotRunning;
    return running || process_.exitStatus() != QProcess::NormalExit ? -1 : process_.exitCode();
  }

  int pid() const { return static_cast<int>(process_.processId()); }
  std::string errors() { return errors_ += process_.readAllStandardError().toStdString(); }

 private:
  static constexpr int kPatienceMilliseconds = 30'000;
  QProcess process_;
  std::string errors_;
};

}  // namespace kv::test
