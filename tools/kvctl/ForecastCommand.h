#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl forecast [SET]`: what the scheduler will start and when, found by letting it run through
/// the days to come on a clock of its own.
void addForecastCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
