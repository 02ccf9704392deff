#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl why [SET]`: what the next tick does with each set, and why.
void addWhyCommand(CLI::App& app, Selection& selection);

}  // namespace kv::kvctl
