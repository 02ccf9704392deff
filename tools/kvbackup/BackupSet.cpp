#include "tools/kvbackup/BackupSet.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "platform/LocalTime.h"
#include "scheduler/FieldReaders.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

/// Leaves room for what is put before and after a name that becomes a file's.
constexpr std::size_t kLongestName = 200;

const char* nameFault(const std::string& name) {
  if (name.empty()) return "it is empty";
  if (name.size() > kLongestName) return "it is longer than 200 bytes";
  if (!isPlainText(name)) return "it holds control characters or is not UTF-8";
  if (name.find('/') != std::string::npos) return "it holds a \"/\"";
  if (name == "." || name == "..") return "it means another folder";
  return nullptr;
}

}  // namespace

std::optional<std::string> BackupSet::text(const PropertyList* value) {
  const auto* text = value == nullptr ? nullptr : value->as<PropertyList::String>();
  return text == nullptr ? std::nullopt : std::optional(*text);
}

std::optional<std::vector<std::string>> BackupSet::sources() const {
  const auto* record = entry_.as<PropertyList::Dictionary>();
  const auto* value = record == nullptr ? nullptr : record->find("sourcePaths");
  const auto* list = value == nullptr ? nullptr : value->as<PropertyList::Array>();
  if (list == nullptr || list->empty()) return std::nullopt;
  std::vector<std::string> sources;
  for (const PropertyList& element : *list) {
    const auto* path = element.as<PropertyList::String>();
    if (path == nullptr) return std::nullopt;
    sources.push_back(*path);
  }
  return sources;
}

std::optional<Date> BackupSet::timeOfDay() const {
  return dateValue(task_.option("datePick"));
}

std::vector<std::string> BackupSet::weekdays() const {
  std::vector<std::string> names;
  for (std::size_t day = 0; day < 7; ++day) {
    if (task_.isWeekdaySelected(static_cast<int>(day) + 1)) names.emplace_back(weekdayName(day));
  }
  return names;
}

std::string BackupSet::scheduleText() const {
  const std::int64_t type = task_.type();
  if (isInterval()) {
    const bool isHourly = type == kHourly;
    const auto next = task_.nextDue();
    return fmt::format("every {} {}{}",
                       integerValue(task_.option(isHourly ? "sethours" : "setmins")),
                       isHourly ? "h" : "min", next ? ", due " + localStamp(*next) : "");
  }
  if (type != kDaily && type != kWeekly) return fmt::format("unknown type {}", type);
  const auto date = timeOfDay();
  const std::string time = task_.isOnceADay() ? "once a day"
                           : date             ? localTimeOfDay(*date).substr(0, 5)
                                              : "00:00";
  if (type == kWeekly) return fmt::format("{} {}", fmt::join(weekdays(), ","), time);
  return task_.isOnceADay() ? time : "daily " + time;
}

std::string BackupSet::stateText() const {
  if (isHeld()) return "held";
  return task_.isScheduled() ? "on" : "off";
}

bool BackupSet::isHeld() const {
  return !task_.mayRun() && !(isInterval() && task_.isScheduled());
}

PropertyList::Dictionary BackupSet::fresh(const std::string& name,
                                          const std::vector<std::string>& sources,
                                          const std::string& destination, const Schedule& schedule,
                                          Date now) {
  PropertyList::Dictionary options;
  schedule.writeTo(options, now);
  options.set("runState", true);
  // No day of a month: whatever today is, the set has not yet run on it.
  options.set("dayOfMonth", "0");
  PropertyList::Dictionary record;
  record.set("backupset", name);
  record.set("destinationPath", destination);
  setSources(record, sources);
  record.set("schopts", std::move(options));
  return record;
}

void BackupSet::hold(PropertyList::Dictionary& record) {
  PropertyList::Dictionary& schedule = options(record);
  schedule.set("runState", false);
  if (!BackupSet(PropertyList(record)).isInterval()) return;
  schedule.set("scheduleIt", 0);  // "runState" alone does not stop it
  schedule.erase("minhourdate");
}

void BackupSet::release(PropertyList::Dictionary& record, Date now) {
  PropertyList::Dictionary& schedule = options(record);
  schedule.set("runState", true);
  schedule.set("scheduleIt", 1);
  const PropertyList whole(record);
  const BackupSet set(whole);
  if (set.isInterval() && !set.task().nextDue()) schedule.set("minhourdate", wholeMinute(now));
}

void BackupSet::setSources(PropertyList::Dictionary& record,
                           const std::vector<std::string>& sources) {
  record.set("sourcePaths", PropertyList::Array(sources.begin(), sources.end()));
}

PropertyList::Dictionary& BackupSet::options(PropertyList::Dictionary& record) {
  if (record.find("schopts") == nullptr) record.set("schopts", PropertyList::Dictionary());
  auto* options = record.find("schopts")->as<PropertyList::Dictionary>();
  if (options == nullptr) {
    throw Refusal(ExitStatus::kDocumentUnreadable, "the set's schedule options are no dictionary");
  }
  return *options;
}

void BackupSet::checkName(const std::string& name) {
  if (const char* fault = nameFault(name)) {
    throw Refusal(ExitStatus::kBadName, fmt::format("\"{}\" cannot be a set's name: {}",
                                                    firstCharacters(shown(name), 60), fault));
  }
}

}  // namespace kv
