#include "platform/SystemSeams.h"

#include <cstdlib>

#include "platform/linux/InotifyFileWatcher.h"
#include "platform/linux/PosixFiles.h"
#include "platform/linux/ProcessSystemLog.h"
#include "platform/linux/QuickClock.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/UserPaths.h"

namespace kv {
namespace {

/// The process's only T, which outlives everything that may use it at exit.
template <class T>
const std::shared_ptr<T>& onlyOne() {
  static const auto& object = *new std::shared_ptr<T>(std::make_shared<T>());
  return object;
}

}  // namespace

std::shared_ptr<Clock> systemClock() {
  return onlyOne<SystemClock>();
}

std::shared_ptr<Clock> quickClock() {
  return onlyOne<QuickClock>();
}

std::shared_ptr<Files> systemFiles() {
  return onlyOne<PosixFiles>();
}

std::shared_ptr<FileWatcher> systemFileWatcher() {
  return onlyOne<InotifyFileWatcher>();
}

std::shared_ptr<SystemLog> processSystemLog() {
  return onlyOne<ProcessSystemLog>();
}

std::string userLibraryFolder() {
  const std::string home = homeFolder();
  // "/" stands for a user without a home, and nobody's files belong there.
  return home == "/" ? std::string() : home + "/Library";
}

std::string temporaryFolder() {
  const char* folder = std::getenv("TMPDIR");
  return folder != nullptr && folder[0] == '/' ? folder : "/tmp";
}

}  // namespace kv
