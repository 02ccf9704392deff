#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl list`: every set as the scheduler reads it, in the order in which it judges them.
void addListCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
