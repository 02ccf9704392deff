#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl trace`: what the scheduler wrote about its decisions, by tick and by set.
void addTraceCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
