#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl replay`: lets the scheduler decide again what a report recorded, and compares.
void addReplayCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
