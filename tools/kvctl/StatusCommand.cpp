#include "tools/kvctl/StatusCommand.h"

#include <fmt/format.h>

#include <utility>

#include "scheduler/FieldReaders.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

/// The words of the agent's decisions for people.
std::string decisionText(const std::string& outcome) {
  static constexpr std::pair<const char*, const char*> kTexts[] = {
      {"switched-off", "not scheduled"},
      {"held", "held back"},
      {"no-rule", "unknown type: never started"},
      {"not-due", "not due"},
      {"no-volume", "due, but its volume was missing or it rested after a failure"},
      {"backup-running", "due, but a backup ran or scheduling was paused"},
      {"another-first", "due, but another set was started first"},
      {"launched", "started"},
      {"asked", "started by the open application"},
  };
  for (const auto& [word, text] : kTexts) {
    if (outcome == word) return text;
  }
  return outcome.empty() ? "not reached, or not due" : shown(outcome);
}

std::string since(const std::optional<Date>& begin) {
  return begin ? " since " + dayStamp(*begin) : "";
}

class Lines {
 public:
  explicit Lines(const Style& style) : style_(style) {}
  void add(const char* label, const std::string& value, Tone tone = Tone::kPlain) {
    text_ +=
        style_.paint(fmt::format("{:<11}", label), Tone::kDim) + style_.paint(value, tone) + "\n";
  }
  void addText(const std::string& text) { text_ += text; }
  std::string take() { return std::move(text_); }

 private:
  const Style& style_;
  std::string text_;
};

std::string agentText(const AgentState& state) {
  if (!state.isRunning) {
    return "not running: no backup is started by schedule (start it with KVScheduler)";
  }
  std::string facts = fmt::format("process {}", state.processId.value_or(0));
  if (!state.version.empty()) facts += ", version " + shown(state.version);
  return "running" + since(state.startedAt) + " (" + facts + ")";
}

std::string pauseText(const AgentState& state) {
  if (!state.isPaused) return state.isRunning ? "on" : "not paused";
  return "paused until " + (state.pausedUntil ? dayStamp(*state.pausedUntil) : "it is resumed") +
         (state.isRunning ? "" : ", if the agent is started before that");
}

std::string backupText(const AgentState& state) {
  if (!state.isBackupRunning) return "none is running";
  const std::string set = state.runningSet.empty() ? "one" : shown(state.runningSet);
  return set + " is running" + since(state.runningSince);
}

/// Of a run that is not in the history the documents keep the day's number.
std::string recordedDayText(std::size_t index, const Sets& sets) {
  if (index >= sets.all().size()) return "none known";
  const TaskRecord task(*sets.all()[index].record);
  const std::string day = task.isInterval() ? "" : storedDay(task.option("dayOfMonth"));
  return day.empty() || day == "0" ? "none known" : "on day " + shown(day) + " of a month";
}

std::string lastRunText(const AgentState::Set& set, const Sets& sets) {
  if (!set.lastRun) return recordedDayText(set.index, sets);
  return dayStamp(*set.lastRun) +
         (set.lastResult == "ok" ? "" : " (" + shown(set.lastResult) + ")");
}

std::string nextText(const AgentState::Set& set, Date now) {
  if (!set.next) return "never";
  return *set.next <= now ? "due now" : dayStamp(*set.next);
}

std::string setsText(const AgentState& state, const Context& context, const Sets& sets) {
  if (state.sets.empty()) return "There are no backup sets.\n";
  std::vector<std::string> headings = {"SET", "LAST RUN", "NEXT", "STATE"};
  const bool hasDecisions = state.lastTick.has_value();
  if (hasDecisions) headings.emplace_back("LAST DECISION");
  Table table(headings);
  const Date now = context.clock->now();
  for (const AgentState::Set& set : state.sets) {
    const bool isGood = set.lastResult.empty() || set.lastResult == "ok";
    const std::string name =
        set.name.empty() ? fmt::format("set {} (no name)", set.index + 1) : shown(set.name);
    std::vector<Table::Cell> row = {name,
                                    {lastRunText(set, sets), isGood ? Tone::kPlain : Tone::kBad},
                                    nextText(set, now),
                                    shown(set.state)};
    if (hasDecisions) row.emplace_back(decisionText(set.lastDecision));
    table.add(std::move(row));
  }
  return table.text(context.style);
}

std::string presence(const Context& context, const std::string& path) {
  return shown(path) + (context.files->exists(path) ? "" : " (not there)");
}

std::string documentText(const ScheduleDocument& document) {
  switch (document.state) {
    case ScheduleDocument::State::kMissing:
      return shown(document.path) + " (not there)";
    case ScheduleDocument::State::kUnreadable:
      return shown(document.path) + " (cannot be read; kvctl check tells more)";
    case ScheduleDocument::State::kRead:
      break;
  }
  return shown(document.path);
}

void addPaths(Lines& lines, const AgentState& state, const Context& context, const Sets& sets) {
  const char* label = "Documents";
  for (const ScheduleDocument& document : sets.documents()) {
    lines.add(std::exchange(label, ""), documentText(document));
  }
  lines.add("Log", presence(context, state.logFile));
  lines.add("Trace", presence(context, state.traceFile));
  lines.add("History", presence(context, context.historyFile));
  lines.add("Settings", presence(context, context.settingsFolder + "/settings.json"));
}

Json setJson(const AgentState::Set& set) {
  const auto textOrNull = [](const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
  };
  return {{"index", set.index},
          {"set", set.name},
          {"state", set.state},
          {"lastRun", instantJson(set.lastRun)},
          {"lastResult", textOrNull(set.lastResult)},
          {"next", instantJson(set.next)},
          {"lastDecision", textOrNull(set.lastDecision)},
          {"lastLaunch", instantJson(set.lastLaunch)},
          {"futileStarts", set.futileStarts}};
}

Json pathsJson(const AgentState& state, const Context& context, const Sets& sets) {
  Json documents = Json::array();
  for (const ScheduleDocument& document : sets.documents()) documents.push_back(document.path);
  return {
      {"home", context.homeFolder},     {"documents", std::move(documents)},
      {"log", state.logFile},           {"trace", state.traceFile},
      {"history", context.historyFile}, {"settings", context.settingsFolder + "/settings.json"}};
}

int status(const Context& context) {
  const Sets sets(context);
  const AgentState state = readAgentState(context, sets);
  if (context.asJson) {
    printJson(statusJson(state, context, sets));
  } else {
    print(statusText(state, context, sets));
  }
  return static_cast<int>(state.isRunning ? ExitStatus::kDone : ExitStatus::kNotRunning);
}

}  // namespace

std::string statusText(const AgentState& state, const Context& context, const Sets& sets) {
  Lines lines(context.style);
  lines.add("Agent", agentText(state), state.isRunning ? Tone::kGood : Tone::kBad);
  if (state.isRunning && !state.hasAnswered && context.isAboutNow) {
    lines.add("", "It does not answer" +
                      (state.problem.empty() ? "" : " (" + shown(state.problem) + ")") +
                      "; what follows is from the files.");
  }
  lines.add("Schedule", pauseText(state), state.isPaused ? Tone::kWarning : Tone::kPlain);
  lines.add("Backup", backupText(state));
  if (state.lastTick) lines.add("Last look", dayStamp(*state.lastTick));
  if (state.isTracing) lines.add("Tracing", *state.isTracing ? "on" : "off");
  lines.addText("\n" + setsText(state, context, sets) + "\n");
  addPaths(lines, state, context, sets);
  return lines.take();
}

Json statusJson(const AgentState& state, const Context& context, const Sets& sets) {
  Json all = {{"agent",
               {{"running", state.isRunning},
                {"answers", state.hasAnswered},
                {"processId", state.processId ? Json(*state.processId) : Json(nullptr)},
                {"since", instantJson(state.startedAt)},
                {"version", state.version.empty() ? Json(nullptr) : Json(state.version)},
                {"tracing", state.isTracing ? Json(*state.isTracing) : Json(nullptr)},
                {"lastTick", instantJson(state.lastTick)}}},
              {"paused", state.isPaused},
              {"pausedUntil", instantJson(state.pausedUntil)},
              {"backup",
               {{"running", state.isBackupRunning},
                {"set", state.runningSet.empty() ? Json(nullptr) : Json(state.runningSet)},
                {"since", instantJson(state.runningSince)}}},
              {"sets", Json::array()},
              {"paths", pathsJson(state, context, sets)}};
  for (const AgentState::Set& set : state.sets) all["sets"].push_back(setJson(set));
  return all;
}

void addStatusCommand(CLI::App& app, Selection& selection) {
  CLI::App* const command =
      app.add_subcommand("status", "Whether the agent runs, what it does, and where its files are");
  command->callback([&selection] { selection.run = status; });
}

}  // namespace kv::kvctl
