#include "tools/kvctl/AgentState.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <utility>

#include "app/AgentService.h"
#include "platform/SessionBusAddress.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/UserPaths.h"
#include "platform/sdbus/BusClient.h"
#include "scheduler/NextRun.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/History.h"
#include "tools/kvctl/Pause.h"

namespace kv::kvctl {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

// ---- What the agent says -----------------------------------------------------------------------

template <class T>
const T* member(const Dictionary& object, const char* name) {
  const PropertyList* const found = object.find(name);
  return found == nullptr ? nullptr : found->as<T>();
}

std::string text(const Dictionary& object, const char* name) {
  const auto* const found = member<std::string>(object, name);
  return found == nullptr ? std::string() : *found;
}

bool truth(const Dictionary& object, const char* name) {
  const auto* const found = member<bool>(object, name);
  return found != nullptr && *found;
}

std::int64_t integer(const Dictionary& object, const char* name) {
  const auto* const found = member<std::int64_t>(object, name);
  return found == nullptr ? 0 : *found;
}

/// An instant, which is 0 on the bus where there is none.
std::optional<Date> instant(const Dictionary& object, const char* name) {
  const std::int64_t seconds = integer(object, name);
  if (seconds == 0) return std::nullopt;
  return Date::fromUnixSeconds(static_cast<double>(seconds));
}

AgentState::Set setFrom(const Dictionary& told) {
  AgentState::Set set;
  set.index = static_cast<std::size_t>(std::max<std::int64_t>(integer(told, "index"), 0));
  set.name = text(told, "name");
  set.state = text(told, "state");
  set.next = instant(told, "next");
  set.lastLaunch = instant(told, "lastLaunch");
  set.futileStarts = integer(told, "futileStarts");
  const auto good = instant(told, "lastGood");
  const auto failed = instant(told, "lastFailed");
  set.lastRun = good && failed ? std::max(good, failed) : good ? good : failed;
  if (set.lastRun) set.lastResult = set.lastRun == good ? "ok" : "failed";
  return set;
}

/// The elements of an array that are dictionaries.
std::vector<const Dictionary*> dictionaries(const Dictionary& object, const char* name) {
  std::vector<const Dictionary*> found;
  if (const auto* const array = member<Array>(object, name)) {
    for (const PropertyList& element : *array) {
      if (const auto* dictionary = element.as<Dictionary>()) found.push_back(dictionary);
    }
  }
  return found;
}

bool isSameFolder(const std::string& one, const std::string& other) {
  std::error_code error;
  return one == other || std::filesystem::equivalent(one, other, error);
}

// ---- What the files say ------------------------------------------------------------------------

/// The agent whose lock this is, if it runs and serves this home.
void readLock(AgentState& state, const Context& context) {
  const std::string path = agentLockFile();
  const std::string note = FileLock::note(path);
  const int id = std::atoi(note.c_str());
  const auto process = id > 0 ? ownProcess(id) : std::nullopt;
  state.isRunning = process && process->name == "KVScheduler" &&
                    (process->home.empty() || isSameFolder(process->home, context.homeFolder));
  if (!state.isRunning) return;
  state.processId = id;
  // The agent writes its id there when it starts.
  if (const auto file = context.files->attributes(path)) state.startedAt = file->modificationDate;
}

/// A backup that certainly runs: kvbackup with one of the commands that copy.
void readProcesses(AgentState& state, const Context& context) {
  static constexpr std::array<std::string_view, 3> kCopying = {"run", "Qm3x7P", "4R82T6"};
  const std::string program = context.programFolder + "/kvbackup";
  for (const RunningProcess& process : ProcessTable().running(program)) {
    const auto& arguments = process.arguments;
    if (arguments.size() < 2 || !std::count(kCopying.begin(), kCopying.end(), arguments[1])) {
      continue;
    }
    const auto set = std::find_if(arguments.begin() + 2, arguments.end(),
                                  [](const std::string& one) { return one != "--"; });
    state.isBackupRunning = true;
    state.runningSet = set == arguments.end() ? "" : *set;
  }
}

std::string stateText(const SetEntry& entry) {
  const BackupSet set(*entry.record);
  const std::string gate = set.stateText();
  if (!set.task().isScheduled() && !set.isHeld()) return "not scheduled";
  return gate == "on" ? set.scheduleText() : set.scheduleText() + ", " + gate;
}

void readSets(AgentState& state, const Context& context, const Sets& sets) {
  const auto runs = History(context.historyFile).lastRuns();
  const DatePatterns patterns(context.locale);
  for (const SetEntry& entry : sets.all()) {
    AgentState::Set set;
    set.index = entry.index;
    set.name = entry.name;
    set.state = stateText(entry);
    set.next = nextDue(*entry.record, context.clock->now(), patterns);
    if (const auto run = runs.find(entry.name); run != runs.end()) {
      set.lastRun = run->second.end;
      set.lastResult = run->second.result;
    }
    state.sets.push_back(std::move(set));
  }
}

}  // namespace

std::string noAgentRemark(const Context& context) {
  if (!context.isAboutNow) return "";
  AgentState state;
  readLock(state, context);
  return state.isRunning
             ? ""
             : "\nNo agent is running: nothing is started until one is (KVScheduler).\n";
}

bool askAgent(AgentState& state, const Context& context) {
  const BusQuery query{AgentService::kName, AgentService::kPath, AgentService::kInterface};
  const auto answer = query.allProperties(sessionBusAddress(), state.problem);
  if (!answer || !isSameFolder(text(*answer, "Home"), context.homeFolder)) return false;
  addAnswer(state, *answer);
  return true;
}

void addAnswer(AgentState& state, const Dictionary& answer) {
  state.isRunning = state.hasAnswered = true;
  state.processId = static_cast<int>(integer(answer, "ProcessId"));
  state.startedAt = instant(answer, "StartedAt");
  state.version = text(answer, "Version");
  state.isTracing = truth(answer, "Tracing");
  state.isPaused = truth(answer, "Paused");
  state.pausedUntil = instant(answer, "PausedUntil");
  state.isBackupRunning = truth(answer, "Running");
  state.runningSet = text(answer, "RunningSet");
  state.runningSince = instant(answer, "RunningSince");
  state.lastTick = instant(answer, "LastTick");
  state.traceFile = text(answer, "TracePath");
  if (const std::string log = text(answer, "LogPath"); !log.empty()) state.logFile = log;
  for (const Dictionary* set : dictionaries(answer, "Sets")) state.sets.push_back(setFrom(*set));
  std::map<std::int64_t, std::string> decisions;
  for (const Dictionary* decision : dictionaries(answer, "LastDecisions")) {
    decisions[integer(*decision, "index")] = text(*decision, "outcome");
  }
  for (AgentState::Set& set : state.sets) {
    set.lastDecision = decisions[static_cast<std::int64_t>(set.index)];
  }
}

AgentState readAgentState(const Context& context, const Sets& sets) {
  AgentState state;
  state.traceFile = context.traceFile;
  state.logFile = context.homeFolder == "/"
                      ? context.stateFolder + "/logs/KVScheduler.txt"
                      : context.homeFolder + "/Library/Logs/KVScheduler/KVScheduler.txt";
  if (context.isAboutNow && askAgent(state, context)) return state;
  readLock(state, context);
  const auto pause = readPause(context);
  state.isPaused = pause.has_value();
  if (pause) state.pausedUntil = pause->until;
  if (context.isAboutNow) readProcesses(state, context);
  readSets(state, context, sets);
  return state;
}

}  // namespace kv::kvctl
