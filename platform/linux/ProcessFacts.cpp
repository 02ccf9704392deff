#include "platform/ProcessFacts.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <memory>
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

struct FreeSet {
  void operator()(cpu_set_t* set) const { CPU_FREE(set); }
};

unsigned usableProcessors() {
  // A machine with more processors than the set can tell refuses it: try larger ones.
  constexpr unsigned kLargest = 1U << 16;
  for (unsigned capacity = CPU_SETSIZE; capacity <= kLargest; capacity *= 2) {
    const std::unique_ptr<cpu_set_t, FreeSet> set(CPU_ALLOC(capacity));
    const std::size_t sizeBytes = CPU_ALLOC_SIZE(capacity);
    if (::sched_getaffinity(0, sizeBytes, set.get()) == 0) {
      return static_cast<unsigned>(std::max(CPU_COUNT_S(sizeBytes, set.get()), 1));
    }
  }
  return 1;
}

}  // namespace

ProcessFacts ProcessFacts::current() {
  ProcessFacts facts;
  facts.name = executableName();
  facts.pid = ::getpid();
  facts.processors = usableProcessors();
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
