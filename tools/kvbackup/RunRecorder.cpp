#include "tools/kvbackup/RunRecorder.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

#include "scheduler/FieldReaders.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"

namespace kv {
namespace {

constexpr std::int64_t kHourSeconds = 3600;
constexpr std::int64_t kYearSeconds = 366 * 24 * kHourSeconds;

/// Some three thousand years: dates farther from the reference are nobody's schedule.
constexpr double kFarthestSeconds = 1e11;

PropertyList dayLike(const PropertyList* stored, int day) {
  const bool isNumber = stored != nullptr &&
                        (stored->as<std::int64_t>() != nullptr ||
                         stored->as<std::uint64_t>() != nullptr || stored->as<double>() != nullptr);
  return isNumber ? PropertyList(day) : PropertyList(std::to_string(day));
}

}  // namespace

void recordRun(PropertyList::Dictionary& record, Date startedAt, Date now) {
  PropertyList::Dictionary& options = BackupSet::options(record);
  options.set("dayOfMonth", dayLike(options.find("dayOfMonth"), localDayOfMonth(startedAt)));
  const PropertyList whole(record);
  const BackupSet set(whole);
  if (!set.isInterval() || set.isHeld()) return;
  options.set("minhourdate", nextOnGrid(set.task().nextDue(), intervalOf(whole), startedAt, now));
}

Seconds intervalOf(const PropertyList& record) {
  const TaskRecord task(record);
  const bool isHourly = task.type() == kHourly;
  const std::int64_t unit = isHourly ? kHourSeconds : 60;
  const std::int64_t count = integerValue(task.option(isHourly ? "sethours" : "setmins"));
  if (count <= 0) return Seconds(static_cast<double>(kHourSeconds));
  return Seconds(static_cast<double>(std::min(count, kYearSeconds / unit) * unit));
}

Date nextOnGrid(std::optional<Date> stored, Seconds step, Date startedAt, Date now) {
  const bool isGrid =
      stored.has_value() && std::fabs(stored->sinceReference.count()) <= kFarthestSeconds;
  const Date origin = isGrid ? *stored : wholeMinute(startedAt);
  if (origin > now) return origin;
  const Date reached = origin + step * std::floor((now - origin) / step);
  return reached > now ? reached : reached + step;
}

}  // namespace kv
