#include "tools/kvctl/ListCommand.h"

#include <fmt/format.h>

#include "scheduler/FieldReaders.h"
#include "scheduler/NextRun.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

/// What the gate of the set's pass says: switched off, held, or let through.
const char* gateOf(const TaskRecord& task) {
  if (!task.isScheduled()) return "off";
  if (!task.isInterval() && !task.mayRun()) return "held";
  return "on";
}

Tone toneOf(std::string_view gate) {
  return gate == "on" ? Tone::kGood : Tone::kDim;
}

std::string dueText(const std::optional<Date>& next, Date now) {
  if (!next) return "never";
  return *next <= now ? "now" : dayStamp(*next);
}

std::string ranOnDay(const TaskRecord& task) {
  const std::string day = task.isInterval() ? "" : storedDay(task.option("dayOfMonth"));
  return day.empty() || day == "0" ? "-" : shown(day);
}

Json objectOf(const SetEntry& entry, const Sets& sets, const std::optional<Date>& next) {
  const BackupSet set(*entry.record);
  const TaskRecord& task = set.task();
  Json object = {{"index", entry.index},
                 {"set", entry.name},
                 {"document", sets.documents()[entry.document].path},
                 {"gate", gateOf(task)},
                 {"type", TaskRecord::typeName(task.type())},
                 {"schedule", set.scheduleText()}};
  if (task.isInterval()) {
    object["every"] = integerValue(task.option(task.type() == kHourly ? "sethours" : "setmins"));
    object["unit"] = task.type() == kHourly ? "hours" : "minutes";
    object["nextDueDate"] = instantJson(task.nextDue());
  } else {
    const auto time = set.timeOfDay();
    object["time"] = time ? Json(localStamp(*time).substr(sizeof("2026-11-21"))) : Json(nullptr);
    object["onceADay"] = task.isOnceADay();
    object["weekdays"] = set.weekdays();
    object["lastRunDay"] = storedDay(task.option("dayOfMonth"));
  }
  object["destination"] = set.destination().value_or("");
  object["next"] = instantJson(next);
  return object;
}

int list(const Context& context) {
  settleZone();
  const Sets sets(context);
  const DatePatterns patterns(context.locale);
  const Date now = context.clock->now();
  Json array = Json::array();
  Table table({"SET", "GATE", "SCHEDULE", "RAN ON DAY", "DUE", "DESTINATION", "DOCUMENT"});
  for (const SetEntry& entry : sets.all()) {
    const auto next = nextDue(*entry.record, now, patterns);
    if (context.asJson) {
      array.push_back(objectOf(entry, sets, next));
      continue;
    }
    const BackupSet set(*entry.record);
    const char* const gate = gateOf(set.task());
    const std::string& path = sets.documents()[entry.document].path;
    table.add({entry.shownName(),
               {gate, toneOf(gate)},
               set.scheduleText(),
               ranOnDay(set.task()),
               dueText(next, now),
               shown(set.destination().value_or("(none)")),
               {path.substr(path.rfind('/') + 1), Tone::kDim}});
  }
  if (context.asJson) {
    printJson(array);
  } else if (sets.all().empty()) {
    print("There are no backup sets.\n");
  } else {
    print(table.text(context.style));
  }
  sets.refuseUnreadable();
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

void addListCommand(CLI::App& app, Selection& selection) {
  CLI::App* const command =
      app.add_subcommand("list", "Every set as the scheduler reads it, in its order");
  command->callback([&selection] { selection.run = list; });
}

}  // namespace kv::kvctl
