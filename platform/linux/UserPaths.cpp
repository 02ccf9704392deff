#include "platform/linux/UserPaths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

namespace kv {
namespace {

/// The variable's value when it is an absolute path, as the rules for these variables demand.
std::string absolutePathFrom(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string homeFromPasswordDatabase() {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  return found != nullptr && entry.pw_dir != nullptr && entry.pw_dir[0] == '/' ? entry.pw_dir : "/";
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isOwnFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::geteuid();
}

}  // namespace

std::string homeFolder() {
  const std::string home = absolutePathFrom("HOME");
  return home.empty() ? homeFromPasswordDatabase() : home;
}

std::string stateFolder() {
  const std::string base = absolutePathFrom("XDG_STATE_HOME");
  return (base.empty() ? homeFolder() + "/.local/state" : base) + "/KVScheduler";
}

std::string settingsFolder() {
  const std::string base = absolutePathFrom("XDG_CONFIG_HOME");
  return (base.empty() ? homeFolder() + "/.config" : base) + "/KVScheduler";
}

std::string runtimeFolder() {
  const std::string runtime = absolutePathFrom("XDG_RUNTIME_DIR");
  return isOwnFolder(runtime) ? runtime : stateFolder();
}

std::string agentLockFile() {
  return runtimeFolder() + "/KVScheduler.lock";
}

std::string historyFile() {
  return stateFolder() + "/history.jsonl";
}

std::string programFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

bool makeFolders(const std::string& path) {
  for (std::size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    const std::string folder = path.substr(0, end);
    if (::mkdir(folder.c_str(), 0700) == 0) continue;
    // Only what stands there counts: a folder on a read-only volume is refused and there.
    const int error = errno;
    if (isFolder(folder)) continue;
    errno = error;  // the caller may want to say why
    return false;
  }
  return true;
}

}  // namespace kv
