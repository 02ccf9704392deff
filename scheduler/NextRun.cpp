#include "scheduler/NextRun.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "platform/LocalTime.h"
#include "scheduler/NoTrace.h"
#include "scheduler/Rules.h"

namespace kv {
namespace {

/// A selected weekday comes once in seven days, and of two in a row at most one bears the number of
/// the stored day; a third week is for the zones that have skipped a day.
constexpr int kDaysAhead = 22;
constexpr std::int64_t kSecondsPerDay = 86400;

Date dateOf(std::int64_t unixSeconds) {
  return Date::fromUnixSeconds(static_cast<double>(unixSeconds));
}

std::optional<std::int64_t> offsetAt(std::int64_t unixSeconds) {
  const auto offset = localOffsetFromUtc(dateOf(unixSeconds));
  if (!offset) return std::nullopt;
  return static_cast<std::int64_t>(offset->count());
}

/// The first second of the new offset, when the one of `old` does not hold at `changed` any more.
std::int64_t changeOfOffset(std::int64_t old, std::int64_t changed) {
  const auto offset = offsetAt(old);
  while (changed - old > 1) {
    const std::int64_t middle = old + (changed - old) / 2;
    (offsetAt(middle) == offset ? old : changed) = middle;
  }
  return changed;
}

/// Adds the moment between `from` and `end` at which local clocks show the time of day. Between two
/// changes of the clocks local time runs as UTC does.
void addTimeOfDay(std::vector<std::int64_t>& moments, std::int64_t from, std::int64_t end,
                  std::int64_t offset, std::int64_t secondOfDay) {
  const std::int64_t wait = (secondOfDay - from - offset) % kSecondsPerDay;
  const std::int64_t moment = from + (wait < 0 ? wait + kSecondsPerDay : wait);
  if (moment < end) moments.push_back(moment);
}

/// The moments of the 24 hours after `from` at which a set may become due, in order. Its rule looks
/// at the local date and at whether a time of day has been reached, so its answer changes at
/// midnight, at that time, and where the clocks are changed; which may skip one of the former, or
/// show it twice. There are none beyond what a calendar can hold.
std::vector<std::int64_t> turnsAfter(std::int64_t from, std::int64_t secondOfDay) {
  const std::int64_t end = from + kSecondsPerDay;
  const auto before = offsetAt(from);
  const auto after = offsetAt(end);
  std::vector<std::int64_t> moments;
  if (!before || !after) return moments;
  const std::int64_t change = *before == *after ? end : changeOfOffset(from, end);
  for (const std::int64_t second : {std::int64_t{0}, secondOfDay}) {
    addTimeOfDay(moments, from, change, *before, second);
    addTimeOfDay(moments, change, end, *after, second);
  }
  if (*before != *after) moments.push_back(change);
  std::sort(moments.begin(), moments.end());
  return moments;
}

std::optional<Date> nextDueByDays(const TaskRecord& record, Date now,
                                  const DatePatterns& patterns) {
  NoTrace noTrace;
  LocalMoment present(now, patterns);
  if (judgeByType(record, present, noTrace)) return now;
  const auto isDue = [&](Date date) {
    LocalMoment moment = present.at(date);
    return judgeByType(record, moment, noTrace).has_value();
  };
  if (!localOffsetFromUtc(now)) return std::nullopt;
  const std::int64_t picked = pickedTimeOfDay(record);
  const std::int64_t secondOfDay = (picked / 100 * 60 + picked % 100) * 60;
  const auto start = static_cast<std::int64_t>(std::floor(now.unixSeconds()));
  for (int day = 0; day < kDaysAhead; ++day) {
    for (const std::int64_t moment : turnsAfter(start + day * kSecondsPerDay, secondOfDay)) {
      if (isDue(dateOf(moment))) return dateOf(moment);
    }
  }
  return std::nullopt;
}

}  // namespace

bool isTakingPart(const PropertyList& entry) {
  const TaskRecord record(entry);
  if (record.isInterval()) return passesIntervalGate(record);
  return passesMainGate(record) && hasRule(record);
}

std::optional<Date> nextDue(const PropertyList& entry, Date now, const DatePatterns& patterns) {
  if (!isTakingPart(entry)) return std::nullopt;
  const TaskRecord record(entry);
  if (!record.isInterval()) return nextDueByDays(record, now, patterns);
  const auto due = record.nextDue();
  if (!due) return std::nullopt;
  return std::max(*due, now);
}

}  // namespace kv
