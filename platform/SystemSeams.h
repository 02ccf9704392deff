#pragma once

#include <memory>

#include "platform/Clock.h"
#include "platform/FileWatch.h"
#include "platform/Files.h"
#include "platform/SystemLog.h"

namespace kv {

/// The system's own implementations of the seams, for a library that is not handed any. One object
/// each for the process, never destroyed, so that they serve the very last line of a program.
///
/// Threads    any.
/// Each operating system's folder implements them.
std::shared_ptr<Clock> systemClock();
/// For who asks so often that the price counts: at most some microseconds behind systemClock(), and
/// a millisecond late in showing that the clock was set.
std::shared_ptr<Clock> quickClock();
std::shared_ptr<Files> systemFiles();
std::shared_ptr<FileWatcher> systemFileWatcher();
/// syslog under the process's name, and standard error.
std::shared_ptr<SystemLog> processSystemLog();

/// The folder in which a user's programs keep what is theirs, "~/Library" with the tilde expanded;
/// empty when the user has no home.
std::string userLibraryFolder();
/// TMPDIR or the system's default.
std::string temporaryFolder();

}  // namespace kv
