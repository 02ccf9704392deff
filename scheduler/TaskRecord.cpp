#include "scheduler/TaskRecord.h"

#include <array>

#include "scheduler/FieldReaders.h"

namespace kv {

TaskRecord::TaskRecord(const PropertyList& entry) {
  const auto* fields = entry.as<PropertyList::Dictionary>();
  if (fields == nullptr) return;
  set_ = fields->find("backupset");
  destinationPath_ = fields->find("destinationPath");
  if (const auto* options = fields->find("schopts")) {
    options_ = options->as<PropertyList::Dictionary>();
  }
}

const PropertyList* TaskRecord::option(std::string_view key) const {
  return options_ == nullptr ? nullptr : options_->find(key);
}

std::optional<std::string> TaskRecord::shownSet() const {
  return shownValue(set_);
}

bool TaskRecord::isScheduled() const {
  return integerValue(option("scheduleIt")) == 1;
}

std::int64_t TaskRecord::type() const {
  return integerValue(option("dayWeekOrHour"));
}

bool TaskRecord::mayRun() const {
  const auto* runState = option("runState");
  return runState == nullptr || truthValue(runState);
}

bool TaskRecord::isOnceADay() const {
  return integerValue(option("afterSleep")) == 1;
}

bool TaskRecord::isWeekdaySelected(int day) const {
  static constexpr std::array kKeys = {"day1", "day2", "day3", "day4", "day5", "day6", "day7"};
  return integerValue(option(kKeys.at(static_cast<std::size_t>(day - 1)))) == 1;
}

std::optional<Date> TaskRecord::nextDue() const {
  return dateValue(option("minhourdate"));
}

const char* TaskRecord::typeName(std::int64_t type) {
  static constexpr std::array kNames = {"Daily", "Weekly", "Hour", "Minute"};
  // One unsigned comparison: negative numbers are as unknown as large ones.
  const auto index = static_cast<std::uint64_t>(type);
  return index < kNames.size() ? kNames[static_cast<std::size_t>(index)] : "Daily?";
}

}  // namespace kv
