#include "tools/kvbackup/SetList.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <vector>

#include "platform/LocalTime.h"
#include "scheduler/FieldReaders.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

constexpr std::size_t kColumns = 5;
using Row = std::array<std::string, kColumns>;

const History::LastRun* lastRunOf(const BackupSet& set, const SetList::LastRuns& lastRuns) {
  const auto found = lastRuns.find(set.name().value_or(""));
  return found == lastRuns.end() ? nullptr : &found->second;
}

Row rowOf(const BackupSet& set, const History::LastRun* lastRun) {
  return {shown(set.name().value_or("(no name)")), set.stateText(), set.scheduleText(),
          lastRun == nullptr ? "never" : localStamp(lastRun->end) + " " + shown(lastRun->result),
          shown(set.destination().value_or("(none)"))};
}

nlohmann::ordered_json scheduleOf(const BackupSet& set) {
  const TaskRecord& task = set.task();
  nlohmann::ordered_json schedule = {{"type", task.type()}, {"text", set.scheduleText()}};
  if (task.type() == kHourly || task.type() == kMinutes) {
    const bool isHourly = task.type() == kHourly;
    schedule[isHourly ? "hours" : "minutes"] =
        integerValue(task.option(isHourly ? "sethours" : "setmins"));
    if (const auto next = task.nextDue()) schedule["nextDue"] = utcStamp(*next);
    return schedule;
  }
  if (const auto time = set.timeOfDay()) schedule["time"] = localTimeOfDay(*time).substr(0, 5);
  if (task.type() == kWeekly) schedule["weekdays"] = set.weekdays();
  schedule["onceADay"] = task.isOnceADay();
  schedule["lastRunDay"] = storedDay(task.option("dayOfMonth"));
  return schedule;
}

nlohmann::ordered_json objectOf(const BackupSet& set, const std::string& document,
                                const History::LastRun* lastRun) {
  nlohmann::ordered_json object = {{"set", set.name().value_or("")},
                                   {"document", document},
                                   {"state", set.stateText()},
                                   {"schedule", scheduleOf(set)},
                                   {"destination", set.destination().value_or("")},
                                   {"sources", set.sources().value_or(std::vector<std::string>())}};
  if (lastRun != nullptr) {
    object["lastRun"] = {{"end", utcStamp(lastRun->end)}, {"result", lastRun->result}};
  }
  return object;
}

}  // namespace

std::string SetList::table(const DocumentStore::Documents& documents, const LastRuns& lastRuns) {
  std::vector<Row> rows = {{"NAME", "STATE", "SCHEDULE", "LAST RUN", "DESTINATION"}};
  for (const ScheduleDocument& document : documents) {
    for (const PropertyList& record : document.records) {
      const BackupSet set(record);
      rows.push_back(rowOf(set, lastRunOf(set, lastRuns)));
    }
  }
  if (rows.size() == 1)
    return "No backup sets yet; \"kvbackup add --help\" tells how to make one.\n";
  std::array<std::size_t, kColumns> widths{};
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < kColumns; ++column) {
      widths[column] = std::max(widths[column], characterCount(row[column]));
    }
  }
  std::string text;
  for (const Row& row : rows) {
    for (std::size_t column = 0; column + 1 < kColumns; ++column) {
      text += row[column] + std::string(widths[column] - characterCount(row[column]) + 2, ' ');
    }
    text += row.back() + "\n";
  }
  return text;
}

std::string SetList::json(const DocumentStore::Documents& documents, const LastRuns& lastRuns) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const ScheduleDocument& document : documents) {
    for (const PropertyList& record : document.records) {
      const BackupSet set(record);
      list.push_back(objectOf(set, document.path, lastRunOf(set, lastRuns)));
    }
  }
  return list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace kv
