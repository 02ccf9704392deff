#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl record`: what the next tick decides, with all that it depends on, as a report.
void addRecordCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
