#include "scheduler/IntervalOrder.h"

#include <fmt/format.h>

#include <algorithm>

#include "scheduler/TaskRecord.h"

namespace kv {
namespace {

/// What differs between the two passes over the list.
struct Pass {
  ScheduleType type;
  bool onlyScheduled;
  const char* addedLabel;
};
constexpr Pass kMinutePass{kMinutes, true, "adding set to min list: "};
constexpr Pass kHourPass{kHourly, false, "adding set to hour list: "};

std::optional<std::string> rendered(const DateFormatter& format, const std::optional<Date>& date) {
  return date ? format.string(*date) : std::nullopt;
}

void traceCandidate(const TaskRecord& record, Date now, const DatePatterns& patterns,
                    Trace& trace) {
  if (!trace.isTracing()) return;
  trace.logString("---------------------------------");
  trace.logString_varstr("Sorted task: ",
                         fmt::format("{} type:{}", record.shownSet().value_or("(null)"),
                                     TaskRecord::typeName(record.type())));
  trace.logString_varstr("sortArray stored date = ",
                         rendered(patterns.monthToSecond, record.nextDue()));
  trace.logString_varstr("sortArray todays date = ", rendered(patterns.monthToSecond, now));
}

/// The tasks of one type, the least overdue first; each beats all before it.
std::vector<const PropertyList*> risingOverdueTasks(const Pass& pass, const TaskList& list,
                                                    Date now, const DatePatterns& patterns,
                                                    Trace& trace) {
  std::vector<const PropertyList*> rising;
  Seconds longest{0};
  for (const PropertyList& entry : list) {
    const TaskRecord record(entry);
    if (record.type() != pass.type || (pass.onlyScheduled && !record.isScheduled())) continue;
    traceCandidate(record, now, patterns, trace);
    const auto due = record.nextDue();
    if (!due || !(now - *due > longest)) continue;
    longest = now - *due;
    trace.logString_varstr(pass.addedLabel, record.shownSet());
    rising.push_back(&entry);
  }
  return rising;
}

}  // namespace

std::vector<const PropertyList*> overdueIntervalTasks(const TaskList& list, Date now,
                                                      const DatePatterns& patterns, Trace& trace) {
  auto tasks = risingOverdueTasks(kMinutePass, list, now, patterns, trace);
  if (tasks.empty()) tasks = risingOverdueTasks(kHourPass, list, now, patterns, trace);
  std::reverse(tasks.begin(), tasks.end());
  return tasks;
}

}  // namespace kv
