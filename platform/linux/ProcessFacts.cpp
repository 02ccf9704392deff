#include "platform/ProcessFacts.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <mutex>
#include <string_view>
#include <utility>

namespace kv {
namespace {

struct MainBundle {
  std::mutex mutex;
  std::optional<std::string> identifier;
};

/// Never destroyed: the last lines of a program may ask for it.
MainBundle& mainBundle() {
  static auto& bundle = *new MainBundle;
  return bundle;
}

/// The executable's path as the system knows it; empty where there is no /proc.
std::string executablePath() {
  std::string path(PATH_MAX, '\0');
  const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
  path.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  // The system's mark for a file that was replaced or removed while it runs.
  constexpr std::string_view kDeleted = " (deleted)";
  if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
  return path;
}

std::string executableName() {
  const std::string path = executablePath();
  std::string name = path.substr(path.rfind('/') + 1);
  if (name.empty()) std::getline(std::ifstream("/proc/self/comm"), name);
  return name;
}

}  // namespace

ProcessFacts ProcessFacts::current() {
  ProcessFacts facts;
  facts.name = executableName();
  facts.pid = ::getpid();
  facts.processors = static_cast<unsigned>(std::max(1L, ::sysconf(_SC_NPROCESSORS_CONF)));
  MainBundle& bundle = mainBundle();
  std::lock_guard lock(bundle.mutex);
  facts.bundleIdentifier = bundle.identifier;
  return facts;
}

void setMainBundleIdentifier(std::optional<std::string> identifier) {
  MainBundle& bundle = mainBundle();
  std::lock_guard lock(bundle.mutex);
  bundle.identifier = std::move(identifier);
}

}  // namespace kv
