#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl check`: problems that a user cannot see, what they mean and what to do.
void addCheckCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
