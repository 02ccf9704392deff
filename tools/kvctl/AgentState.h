#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Date.h"
#include "platform/PropertyList.h"
#include "tools/kvctl/Context.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {

/// What is known of the agent of this home: from itself, where it runs and answers on the session
/// bus, else from its lock and the files.
///
/// Threads    main thread only.
/// Errors     none: what cannot be learnt is absent.
struct AgentState {
  struct Set {
    std::size_t index = 0;
    std::string name;
    /// In words: the agent's own, else the set's schedule and gate.
    std::string state;
    std::optional<Date> lastRun;
    /// "ok", "failed" or "interrupted"; empty without a last run.
    std::string lastResult;
    std::optional<Date> next;
    /// As docs/dbus.md lists them; empty when the last tick said nothing, or that is not known.
    std::string lastDecision;
    std::optional<Date> lastLaunch;
    /// How often the agent started it without a run being recorded; 0 while that is no worry.
    std::int64_t futileStarts = 0;
  };

  bool isRunning = false;
  /// It runs and has said itself what stands here.
  bool hasAnswered = false;
  /// Why it has not, where that is odd.
  std::string problem;
  std::optional<int> processId;
  std::optional<Date> startedAt;
  std::string version;
  std::optional<bool> isTracing;
  bool isPaused = false;
  /// Absent for a pause without an end.
  std::optional<Date> pausedUntil;
  bool isBackupRunning = false;
  std::string runningSet;
  std::optional<Date> runningSince;
  std::optional<Date> lastTick;
  std::vector<Set> sets;
  std::string logFile;
  std::string traceFile;
};

/// Asks the agent, for two seconds at the longest, or looks at the files; writes nothing.
AgentState readAgentState(const Context& context, const Sets& sets);

/// What to say below an answer about this moment when no agent of this home runs, by its lock;
/// empty else.
std::string noAgentRemark(const Context& context);

/// What the agent says itself; false when it does not run or serves another home.
bool askAgent(AgentState& state, const Context& context);

/// As the agent's own answer has it; for readAgentState() and tests.
void addAnswer(AgentState& state, const PropertyList::Dictionary& answer);

}  // namespace kv::kvctl
