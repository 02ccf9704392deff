#include "tools/kvctl/Sets.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstdint>

#include "platform/DateFormatter.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

constexpr std::array kDayWords = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};

}  // namespace

std::string SetEntry::shownName() const {
  return name.empty() ? fmt::format("set {} (no name)", index + 1) : shown(name);
}

Sets::Sets(const Context& context)
    : documents_(DocumentStore(*context.files, context.homeFolder).read()) {
  for (const ScheduleDocument& document : documents_) {
    list_.insert(list_.end(), document.records.begin(), document.records.end());
  }
  std::size_t index = 0;
  for (std::size_t document = 0; document < documents_.size(); ++document) {
    for (std::size_t count = documents_[document].records.size(); count > 0; --count, ++index) {
      const PropertyList& record = list_[index];
      entries_.push_back({.index = index,
                          .document = document,
                          .record = &record,
                          .name = BackupSet(record).name().value_or("")});
    }
  }
}

std::vector<SetEntry> Sets::find(const std::optional<std::string>& name) const {
  if (!name) return entries_;
  std::vector<SetEntry> found;
  for (const SetEntry& entry : entries_) {
    if (entry.name == *name) found.push_back(entry);
  }
  if (found.empty()) {
    throw Refusal(ExitStatus::kUnknownSet,
                  fmt::format("no backup set is called \"{}\" (kvctl list shows all)", *name));
  }
  return found;
}

std::vector<std::string> Sets::unreadable() const {
  std::vector<std::string> paths;
  for (const ScheduleDocument& document : documents_) {
    if (document.state == ScheduleDocument::State::kUnreadable) paths.push_back(document.path);
  }
  return paths;
}

void Sets::refuseUnreadable() const {
  for (const std::string& path : unreadable()) {
    throw Refusal(ExitStatus::kUnreadable,
                  fmt::format("{} cannot be read as a list of backup sets; the scheduler sees none "
                              "of those in it",
                              path));
  }
}

std::size_t weekdayOf(Date date) {
  static const DateFormatter format("e", DateLocale::fromName("en_US"));
  const auto number = format.string(date).value_or("1");
  return static_cast<std::size_t>(number.front() - '1') % kDayWords.size();
}

const char* weekdayWord(std::size_t day) {
  return kDayWords.at(day);
}

std::string dayStamp(Date date) {
  static const DateFormatter weekday("EEE", DateLocale::fromName("C"));
  return weekday.string(date).value_or("?") + " " + localStamp(date);
}

std::string spanText(Seconds span) {
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 60 * kMinute;
  constexpr std::int64_t kDay = 24 * kHour;
  const auto seconds = static_cast<std::int64_t>(std::fabs(span.count()));
  const auto two = [](std::int64_t large, const char* unit, std::int64_t small,
                      const char* smallUnit) {
    return small == 0 ? fmt::format("{} {}", large, unit)
                      : fmt::format("{} {} {} {}", large, unit, small, smallUnit);
  };
  if (seconds < kMinute) return fmt::format("{} s", seconds);
  if (seconds < kHour) return fmt::format("{} min", seconds / kMinute);
  if (seconds < 2 * kDay) return two(seconds / kHour, "h", seconds % kHour / kMinute, "min");
  return two(seconds / kDay, "days", seconds % kDay / kHour, "h");
}

Json instantJson(const std::optional<Date>& date) {
  return date ? Json(utcStamp(*date)) : Json(nullptr);
}

}  // namespace kv::kvctl
