#include "tools/simulation/DailyWindow.h"

#include <cmath>

#include "platform/LocalTime.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Schedule.h"

namespace kv {
namespace {

constexpr double kMinutesPerDay = 24 * 60;

int localMinuteOfDay(Date moment) {
  const Seconds offset = localOffsetFromUtc(moment).value_or(Seconds(0));
  const double minutes = std::floor((moment.unixSeconds() + offset.count()) / 60.0);
  return static_cast<int>(minutes - std::floor(minutes / kMinutesPerDay) * kMinutesPerDay);
}

Date nextTimeOfDay(Date moment, int minuteOfDay) {
  constexpr Seconds kStep{12 * 3600.0};
  constexpr int kSteps = 20;  // some days more than any clock change can hide
  Date probe = moment;
  for (int step = 0; step < kSteps; ++step, probe = probe + kStep) {
    const Date found = dateWithTimeOfDay(probe, minuteOfDay);
    if (found > moment) return found;
  }
  return probe;
}

}  // namespace

std::optional<DailyWindow> DailyWindow::parse(std::string_view text) {
  const auto dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto from = parseTimeOfDay(text.substr(0, dash));
  const auto until = parseTimeOfDay(text.substr(dash + 1));
  if (!from || !until || *from == *until) return std::nullopt;
  return DailyWindow{*from, *until};
}

bool DailyWindow::contains(Date moment) const {
  const int minute = localMinuteOfDay(moment);
  if (from <= until) return minute >= from && minute < until;
  return minute >= from || minute < until;
}

Date DailyWindow::nextBegin(Date moment) const {
  return nextTimeOfDay(moment, from);
}

Date DailyWindow::nextEnd(Date moment) const {
  return nextTimeOfDay(moment, until);
}

}  // namespace kv
