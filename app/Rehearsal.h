#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Host.h"
#include "platform/Clock.h"
#include "platform/Date.h"
#include "platform/DateFormatter.h"
#include "platform/Files.h"
#include "platform/PropertyList.h"
#include "scheduler/TickObserver.h"

namespace kv {

/// One question of the scheduler to its host, and the answer.
struct HostAnswer {
  enum class Question { kDestinationPresent, kBackupRunning, kApplicationOpen };
  Question question = Question::kDestinationPresent;
  /// The path that was asked for, as it stands in the record; absent when it has none.
  std::optional<PropertyList> subject = std::nullopt;
  /// Absent when the host answered nothing.
  std::optional<PropertyList> answer = std::nullopt;
};

/// What a tick said of one set, by its place in the joined list.
struct Judgement {
  std::size_t index = 0;
  Outcome outcome = Outcome::kNotDue;
};

/// A tick of the agent as it would be at a given moment: the production scheduler on the documents
/// as they stand, with the production host script answering from the machine as it is. Nothing of
/// it leaves the process: no backup is started, no file, log or notification is written.
///
/// Threads    the thread of the application object, which must exist; one rehearsal at a time.
/// Errors     run() throws StartupError when the scripts cannot be loaded. What they report
///            otherwise stands in the remarks.
class Rehearsal {
 public:
  struct Environment {
    std::shared_ptr<const Clock> clock;
    std::shared_ptr<Files> files;
    DateLocale locale;
    std::string homeFolder;
    std::string programFolder;
    std::string stateFolder;
    std::string historyFile;
    std::string settingsFolder;
    /// The folder with the host's scripts.
    std::string bundle;
    bool isInstalledBundle = true;
    /// The joined list; null for that of the documents.
    std::shared_ptr<const TaskList> list = nullptr;
  };

  struct Result {
    Date at;
    /// The joined list that the tick worked on.
    TaskList list;
    /// In the order in which they were made; a set may have none (see TickObserver).
    std::vector<Judgement> judgements;
    /// In the order in which they were asked for.
    std::vector<HostAnswer> answers;
    /// The lines that tracing would write, each without its line end.
    std::vector<std::string> trace;
    /// What the host would answer for each set, whether a tick comes to ask or not: its destination
    /// is there, and nothing makes the host keep the set back.
    std::vector<bool> mayStart;
    bool isBackupRunning = false;
    bool isApplicationOpen = false;
    /// What the host tells of itself before the tick; nothing when it tells nothing.
    std::optional<PropertyList> hostState;
    /// What the scripts had to say to the system log.
    std::vector<std::string> remarks;
    /// False when the script has made no scheduler: then there is no tick.
    bool hasScheduler = false;
  };

  static Result run(const Environment& environment);
};

}  // namespace kv
