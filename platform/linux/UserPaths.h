#pragma once

#include <string>

namespace kv {

/// The home folder: HOME where it is an absolute path, else the one of the password database.
std::string homeFolder();

/// Where this program keeps what it remembers: $XDG_STATE_HOME/KVScheduler, by default
/// ~/.local/state/KVScheduler.
std::string stateFolder();

/// Where the user keeps settings for this program: $XDG_CONFIG_HOME/KVScheduler, by default
/// ~/.config/KVScheduler.
std::string settingsFolder();

/// $XDG_RUNTIME_DIR where it is an absolute path of a folder of this user, else stateFolder().
std::string runtimeFolder();

/// What the agent locks while it runs; it holds the agent's process id: runtimeFolder()/
/// KVScheduler.lock.
std::string agentLockFile();

/// The backup runner's records of its runs: stateFolder()/history.jsonl.
std::string historyFile();

/// The folder of the running program.
std::string programFolder();

/// Makes the folder and those above it, for this user only (0700). False when it is not there
/// afterwards.
bool makeFolders(const std::string& path);

}  // namespace kv
