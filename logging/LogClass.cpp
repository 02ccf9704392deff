#include "logging/LogClass.h"

#include <algorithm>
#include <iterator>
#include <mutex>

namespace kv {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<LogClass> classes;
};

Registry& registry() {
  static Registry& registry = *new Registry;
  return registry;
}

auto findIn(std::vector<LogClass>& classes, std::string_view name) {
  return std::find_if(classes.begin(), classes.end(),
                      [name](const LogClass& type) { return type.name == name; });
}

}  // namespace

void LogClasses::add(const LogClass& type) {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  const auto found = findIn(known.classes, type.name);
  if (found == known.classes.end()) {
    known.classes.push_back(type);
  } else {
    *found = type;
  }
}

std::vector<LogClass> LogClasses::registered() {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  std::vector<LogClass> complete;
  std::copy_if(known.classes.begin(), known.classes.end(), std::back_inserter(complete),
               [](const LogClass& type) { return type.isComplete(); });
  return complete;
}

LogClass LogClasses::find(std::string_view name) {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  const auto found = findIn(known.classes, name);
  return found == known.classes.end() ? LogClass() : *found;
}

}  // namespace kv
