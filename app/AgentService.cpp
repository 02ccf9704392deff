#include "app/AgentService.h"

#include <utility>
#include <vector>

namespace kv {
namespace {

using Array = PropertyList::Array;
using Dictionary = PropertyList::Dictionary;

const std::vector<BusService::Property>& properties() {
  static const auto& all = *new std::vector<BusService::Property>{
      {"Version", "s"},   {"ProcessId", "u"},  {"StartedAt", "x"},
      {"Home", "s"},      {"Documents", "as"}, {"TracePath", "s"},
      {"Bundle", "s"},    {"Tracing", "b"},    {"Application", "s"},
      {"LogPath", "s"},   {"Paused", "b"},     {"PausedUntil", "x"},
      {"Running", "b"},   {"RunningSet", "s"}, {"RunningSince", "x"},
      {"Sets", "aa{sv}"}, {"LastTick", "x"},   {"LastDecisions", "aa{sv}"},
  };
  return all;
}

/// A member of what the host says, where it has the type that it should have.
template <class T>
const T* member(const Dictionary* object, const char* name) {
  const PropertyList* const found = object == nullptr ? nullptr : object->find(name);
  return found == nullptr ? nullptr : found->as<T>();
}

template <class T>
void copy(Dictionary& to, const char* name, const Dictionary* from, const char* source, T absent) {
  const T* const found = member<T>(from, source);
  to.set(name, found == nullptr ? PropertyList(std::move(absent)) : PropertyList(*found));
}

/// What stands for no time on the bus.
constexpr Date kNever = Date::fromUnixSeconds(0);

void addHostState(Dictionary& values, const Dictionary& state) {
  const auto* const pause = member<Dictionary>(&state, "pause");
  const auto* const run = member<Dictionary>(&state, "run");
  copy(values, "Application", &state, "application", std::string());
  copy(values, "LogPath", &state, "log", std::string());
  values.set("Paused", pause != nullptr);
  copy(values, "PausedUntil", pause, "until", kNever);
  values.set("Running", run != nullptr);
  copy(values, "RunningSet", run, "set", std::string());
  copy(values, "RunningSince", run, "since", kNever);
}

/// The sets as the host has them; without a host that tells, their names alone.
Array setsOf(const Dictionary* state, const std::vector<DecisionRecord::Entry>& entries) {
  if (const auto* const told = member<Array>(state, "sets")) return *told;
  Array sets;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    sets.push_back(
        Dictionary{{"index", static_cast<std::int64_t>(index)}, {"name", entries[index].name}});
  }
  return sets;
}

/// Adds to each set when this agent launched it last.
void addLaunches(Array& sets, const DecisionRecord& decisions) {
  const auto& entries = decisions.entries();
  for (PropertyList& element : sets) {
    auto* const set = element.as<Dictionary>();
    const auto* const index = member<std::int64_t>(set, "index");
    if (index == nullptr || *index < 0 || *index >= static_cast<std::int64_t>(entries.size())) {
      continue;
    }
    const auto launch = decisions.lastLaunch(entries[static_cast<std::size_t>(*index)].name);
    if (launch) set->set("lastLaunch", *launch);
  }
}

Array decisionsOf(const std::vector<DecisionRecord::Entry>& entries) {
  Array decisions;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    const auto& outcome = entries[index].outcome;
    decisions.push_back(Dictionary{{"index", static_cast<std::int64_t>(index)},
                                   {"name", entries[index].name},
                                   {"outcome", outcome ? wordFor(*outcome) : ""}});
  }
  return decisions;
}

}  // namespace

AgentService::AgentService(Environment environment)
    : environment_(std::move(environment)),
      service_(
          {.service = kName, .path = kPath, .interface = kInterface, .properties = properties()},
          {.watcher = environment_.watcher,
           .systemLog = environment_.systemLog,
           .values = [this] { return values(); },
           .address = environment_.address}) {}

void AgentService::attend() {
  service_.attend();
  if (environment_.decisions->takeChanged()) service_.noteChange();
}

Dictionary AgentService::values() const {
  Dictionary values = environment_.facts;
  const DecisionRecord& decisions = *environment_.decisions;
  const auto described = environment_.describeState();
  const auto* const state = described ? described->as<Dictionary>() : nullptr;
  values.set("Tracing", environment_.isTracing());
  if (state != nullptr) addHostState(values, *state);
  Array sets = setsOf(state, decisions.entries());
  addLaunches(sets, decisions);
  values.set("Sets", std::move(sets));
  values.set("LastTick", decisions.lastTick().value_or(kNever));
  values.set("LastDecisions", decisionsOf(decisions.entries()));
  return values;
}

}  // namespace kv
