#include "scheduler/ScheduleDocuments.h"

#include <iterator>
#include <utility>

#include "platform/PropertyListReader.h"

namespace kv {

TaskList ScheduleDocuments::load(Files& files, const std::string& homeFolder) {
  TaskList list = loadOne(files, homeFolder + "/" + kFirst);
  TaskList second = loadOne(files, homeFolder + "/" + kSecond);
  list.insert(list.end(), std::make_move_iterator(second.begin()),
              std::make_move_iterator(second.end()));
  return list;
}

TaskList ScheduleDocuments::loadOne(Files& files, const std::string& path) {
  const PropertyListLimits limits;
  const auto bytes = files.read(path, limits.fileBytes);
  if (!bytes) return {};
  auto document = readPropertyList(*bytes, limits);
  auto* records = document ? document->as<PropertyList::Array>() : nullptr;
  return records == nullptr ? TaskList() : std::move(*records);
}

}  // namespace kv
