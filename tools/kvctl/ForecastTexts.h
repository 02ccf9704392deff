#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "app/Host.h"
#include "tools/kvctl/Forecast.h"

namespace kv::kvctl {

/// The words of a forecast. Names in them are harmless to a terminal.
///
/// Threads    any, one at a time.

/// The names of all sets as people see them.
std::vector<std::string> namesIn(const TaskList& sets);

/// "Docs, Mail and 3 more".
std::string joinedNames(const std::vector<std::string>& names,
                        const std::vector<std::size_t>& which);

/// "daily 09:30", "every 15 min".
std::string ruleText(const PropertyList& record);

/// What made the run late, as "waited behind Docs"; empty when nothing did.
std::string delayText(const ForecastRun& run, const std::vector<std::string>& names);

/// Why a set did not run, as a clause: "its destination was away".
std::string reasonText(SkipReason reason);
std::string skipText(const ForecastSkip& skip, const std::vector<std::string>& names);

/// What the forecast supposes, as one sentence.
std::string assumptionText(const ForecastPlan& plan);

/// "09:30", local.
std::string clockText(Date date);

}  // namespace kv::kvctl
