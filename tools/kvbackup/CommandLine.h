#pragma once

#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/Files.h"

namespace kv {

/// What the program uses of the world.
struct CommandLineEnvironment {
  const Clock& clock;
  Files& files;
  std::string homeFolder;
  std::string stateFolder;
  std::string historyFile;
};

/// Carries out one command and yields the exit status. `arguments` come without the program's
/// name.
///
/// The two tokens that the launcher starts the backup application with ("Qm3x7P" and "4R82T6",
/// followed by the name of a set) are understood as `run`, whatever the name looks like.
///
/// Errors     none leave: each is one line on standard error and a status (see ExitStatus).
int runCommandLine(const std::vector<std::string>& arguments,
                   const CommandLineEnvironment& environment);

}  // namespace kv
