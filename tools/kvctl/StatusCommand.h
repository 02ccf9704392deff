#pragma once

#include <CLI/CLI.hpp>

#include "tools/kvctl/AgentState.h"
#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// `kvctl status`: whether the agent runs, what it does at the moment, and where its files are.
void addStatusCommand(CLI::App& app, Selection& selection);

/// The output for people, and that for programs.
std::string statusText(const AgentState& state, const Context& context, const Sets& sets);
Json statusJson(const AgentState& state, const Context& context, const Sets& sets);

}  // namespace kv::kvctl
