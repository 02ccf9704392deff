#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "platform/DateFormatter.h"
#include "platform/PropertyList.h"

namespace kv::test {

/// The instant at which local clocks show `text`, as "2024-03-05 09:29" or with seconds.
inline Date localDate(const std::string& text) {
  const std::string full = text.size() == 16 ? text + ":00" : text;
  const DateFormatter format("yyyy-MM-dd HH:mm:ss", DateLocale::fromName("C"));
  const auto date = format.date(full);
  if (!date) throw std::invalid_argument("no such local time: " + text);
  return *date;
}

/// A task record in the making: `Task("Docs").daily("09:30").lastRun(4)`.
class Task {
 public:
  explicit Task(const char* set) {
    fields_.set("backupset", set);
    fields_.set("destinationPath", std::string("/disk/") + set);
    option("scheduleIt", 1);
    option("runState", 1);
  }

  Task& option(const char* key, PropertyList value) {
    options_.set(key, std::move(value));
    return *this;
  }
  Task& without(const char* key) {
    options_.erase(key);
    return *this;
  }
  Task& field(const char* key, PropertyList value) {
    fields_.set(key, std::move(value));
    return *this;
  }
  Task& withoutField(const char* key) {
    hidden_ = key;
    return *this;
  }

  Task& daily(const char* timeOfDay) { return typed(0).picked(timeOfDay); }
  Task& weekly(const char* timeOfDay) { return typed(1).picked(timeOfDay); }
  Task& hourly(const char* nextDue) { return typed(2).due(nextDue).option("sethours", 2); }
  Task& minutes(const char* nextDue) { return typed(3).due(nextDue).option("setmins", 15); }
  Task& on(int day) { return option(("day" + std::to_string(day)).c_str(), 1); }
  Task& onceADay() { return option("afterSleep", 1); }
  Task& lastRun(PropertyList day) { return option("dayOfMonth", std::move(day)); }
  Task& off() { return option("scheduleIt", 0); }

  operator PropertyList() const {
    auto fields = fields_;
    fields.set("schopts", options_);
    if (!hidden_.empty()) fields.erase(hidden_);
    return fields;
  }

 private:
  Task& typed(int type) { return option("dayWeekOrHour", type); }
  Task& picked(const char* timeOfDay) {
    // Only the time of day of the stored date counts; its day is any.
    return option("datePick", localDate("2019-01-15 " + std::string(timeOfDay)));
  }
  Task& due(const char* nextDue) { return option("minhourdate", localDate(nextDue)); }

  PropertyList::Dictionary fields_;
  PropertyList::Dictionary options_;
  std::string hidden_;
};

}  // namespace kv::test
