#pragma once

#include <array>
#include <string>

#include "platform/PropertyList.h"

namespace kv::kvctl {

/// From Sunday on.
using Weekdays = std::array<bool, 7>;

/// The weekdays that a record has chosen.
Weekdays chosenWeekdays(const PropertyList& record);

/// The options with which kvbackup gives a set the schedule that the record has: "--every 15m".
/// What the record lacks (a time, an interval) is an example.
std::string scheduleArguments(const PropertyList& record);

/// The same for a weekly record, on other days.
std::string weeklyArguments(const PropertyList& record, const Weekdays& days);

}  // namespace kv::kvctl
