#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Date.h"
#include "scheduler/LocalMoment.h"
#include "tools/kvbackup/History.h"
#include "tools/kvctl/Context.h"
#include "tools/kvctl/Problem.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {

/// What `check` looks at: the sets, what the host says of them and what has become of their runs.
///
/// Threads    one.
/// Ownership  borrows the context and the sets, which must outlive it.
class CheckSubject {
 public:
  /// What the host would answer; empty when it could not be asked.
  struct HostFacts {
    /// The backup application: "Kelvara+", "kvbackup", or empty.
    std::string application = {};
    /// By place in the joined list: the destination is there, and the set does not rest.
    std::vector<bool> mayStart = {};
    /// By name: how often the running agent has started the set without a run being recorded.
    std::map<std::string, std::int64_t> futileStarts = {};
  };

  CheckSubject(const Context& context, const Sets& sets, HostFacts host);

  const Context& context() const { return context_; }
  const Sets& sets() const { return sets_; }
  Date now() const { return now_; }
  const DatePatterns& patterns() const { return patterns_; }
  const std::string& documentOf(const SetEntry& set) const {
    return sets_.documents()[set.document].path;
  }

  /// Kelvara+ keeps the sources elsewhere and writes no history.
  bool isRunByKvbackup() const { return host_.application == "kvbackup"; }
  bool mayStart(const SetEntry& set) const;

  /// The first set of the same name. An application is started with a name, so this is the one that
  /// it backs up and whose record it moves. Null for a set without a name.
  const SetEntry* startedInsteadOf(const SetEntry& set) const;
  bool isReachable(const SetEntry& set) const;

  /// The set's latest run, where kvbackup is the application.
  const History::LastRun* lastRun(const SetEntry& set) const;
  /// Whether its latest run is certainly not in its record, though it copied everything.
  bool hasUnrecordedRun(const SetEntry& set) const;
  /// As the running agent has counted; 0 when it has nothing to complain of.
  std::int64_t futileStarts(const SetEntry& set) const;

  /// The problem with what all of a set's problems have.
  static Problem problem(const char* code, Problem::Severity severity);
  Problem problem(const char* code, Problem::Severity severity, const SetEntry& set) const;

  /// Says how to `change` the set ("Choose a destination"), with the command "kvbackup VERB SET
  /// `arguments`" where that works.
  void setRemedy(Problem& problem, const std::string& change, const char* verb,
                 const std::string& arguments) const;

 private:
  const Context& context_;
  const Sets& sets_;
  const HostFacts host_;
  const Date now_;
  const DatePatterns patterns_;
  std::map<std::string, const SetEntry*> firstOfName_;
  std::map<std::string, History::LastRun> lastRuns_;
  /// When each document was last written; nothing when that cannot be told.
  std::array<std::optional<Date>, 2> writtenAt_;
};

/// `text` as one word of a shell's command line.
std::string shellWord(const std::string& text);

}  // namespace kv::kvctl
