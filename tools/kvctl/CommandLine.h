#pragma once

#include <string>
#include <vector>

namespace kv::kvctl {

/// Carries out one command and yields the exit status. `arguments` come without the program's
/// name.
///
/// The options --home, --zone and --locale become the process's environment before anything else
/// looks at it.
///
/// Threads    main thread, before any other exists.
/// Errors     none leave: each is one line on standard error and a status (see ExitStatus).
int runCommandLine(const std::vector<std::string>& arguments);

}  // namespace kv::kvctl
