#pragma once

#include <QProcess>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace kv::test {

/// A user's world on disk: a home, a runtime folder and a bundle with one script.
class AgentFolders {
 public:
  AgentFolders();
  void writeScript(const std::string& text) { writeFile(root / "bundle/Scripts/host.js", text); }

  TemporaryFolder root;
};

/// The real program, running in such a world.
class AgentProcess {
 public:
  explicit AgentProcess(const AgentFolders& folders) : folders_(folders) {}
  ~AgentProcess();

  /// Starts the agent with the folders' bundle; `wrapper` is a command that runs the one behind it.
  void start(const std::vector<std::string>& wrapper = {});
  /// Starts the agent with these arguments alone.
  void startWith(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& wrapper = {});

  /// Waits until standard error holds `text`; false when the agent ends or half a minute passes.
  bool waitFor(const std::string& text);
  /// Waits for the end and yields the exit status, or the negative number of the signal that ended
  /// it; nothing when it does not end.
  std::optional<int> exitStatus();
  /// Sends the signal again and again until the agent ends, as exitStatus() tells.
  std::optional<int> exitStatusAfterSignals(int number);
  void signal(int number) const;
  int pid() const { return static_cast<int>(process_.processId()); }
  std::string errors();
  std::string output() { return process_.readAllStandardOutput().toStdString(); }

 private:
  const AgentFolders& folders_;
  QProcess process_;
  std::string errors_;
};

}  // namespace kv::test
