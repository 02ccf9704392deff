#include "tools/kvbackup/DocumentStore.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "platform/PlatformError.h"
#include "platform/PropertyListWriter.h"
#include "platform/linux/DurableFile.h"
#include "platform/linux/FileLock.h"
#include "platform/linux/UserPaths.h"
#include "scheduler/ScheduleDocuments.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

using State = ScheduleDocument::State;

/// A name that leads nowhere (a dangling link) or to something we may not see is not missing.
bool isMissing(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

std::optional<std::size_t> indexOf(const PropertyList::Array& records, const std::string& name) {
  for (std::size_t index = 0; index < records.size(); ++index) {
    if (BackupSet(records[index]).name() == name) return index;
  }
  return std::nullopt;
}

void refuseUnreadable(const DocumentStore::Documents& documents) {
  for (const ScheduleDocument& document : documents) {
    if (document.state != State::kUnreadable) continue;
    throw Refusal(ExitStatus::kDocumentUnreadable,
                  fmt::format("{} cannot be read as a list of backup sets; it is left as it is",
                              shown(document.path)));
  }
}

}  // namespace

DocumentStore::DocumentStore(Files& files, std::string homeFolder)
    : files_(files), homeFolder_(std::move(homeFolder)) {}

ScheduleDocument DocumentStore::readOne(const char* pathInHome) const {
  ScheduleDocument document;
  document.path = homeFolder_ + "/" + pathInHome;
  if (isMissing(document.path)) return document;
  document.state = State::kUnreadable;
  const PropertyListLimits limits;
  const auto bytes = files_.read(document.path, limits.fileBytes);
  if (!bytes) return document;
  auto root = readPropertyList(*bytes, limits);
  auto* records = root ? root->as<PropertyList::Array>() : nullptr;
  if (records == nullptr) return document;
  document.state = State::kRead;
  document.encoding = propertyListEncoding(*bytes);
  document.records = std::move(*records);
  return document;
}

DocumentStore::Documents DocumentStore::read() const {
  return {readOne(ScheduleDocuments::kFirst), readOne(ScheduleDocuments::kSecond)};
}

DocumentStore::Place DocumentStore::locate(const Documents& documents, const std::string& name) {
  for (std::size_t index = 0; index < documents.size(); ++index) {
    if (const auto record = indexOf(documents[index].records, name)) return {index, *record};
  }
  // A set that is not found may stand in the document that cannot be read.
  refuseUnreadable(documents);
  throw Refusal(ExitStatus::kUnknownSet, fmt::format("there is no backup set \"{}\"", shown(name)));
}

PropertyList DocumentStore::find(const std::string& name) const {
  const Documents documents = read();
  const Place place = locate(documents, name);
  return documents[place.document].records[place.record];
}

void DocumentStore::add(const std::string& name, PropertyList::Dictionary record) {
  if (!makeFolders(folder())) {
    throw Refusal(ExitStatus::kDocumentNotWritten, fmt::format("cannot make {}", folder()));
  }
  editLocked("add " + name, [&](Documents& documents) {
    refuseUnreadable(documents);
    for (const ScheduleDocument& document : documents) {
      if (!indexOf(document.records, name)) continue;
      throw Refusal(ExitStatus::kDuplicateName,
                    fmt::format("there is a backup set \"{}\" already", name));
    }
    documents.back().records.emplace_back(std::move(record));
    save(documents.back());
  });
}

void DocumentStore::edit(const std::string& name, const Change& change) {
  find(name);  // an unknown set needs neither the folder nor the lock
  editLocked("edit " + name, [&](Documents& documents) {
    const Place place = locate(documents, name);
    ScheduleDocument& document = documents[place.document];
    // Only dictionaries have names, so what was located is one.
    change(*document.records[place.record].as<PropertyList::Dictionary>());
    save(document);
  });
}

void DocumentStore::remove(const std::string& name) {
  find(name);
  editLocked("remove " + name, [&](Documents& documents) {
    const Place place = locate(documents, name);
    auto& records = documents[place.document].records;
    records.erase(records.begin() + static_cast<std::ptrdiff_t>(place.record));
    save(documents[place.document]);
  });
}

std::string DocumentStore::folder() const {
  const std::string path = homeFolder_ + "/" + ScheduleDocuments::kSecond;
  return path.substr(0, path.find_last_of('/'));
}

void DocumentStore::editLocked(const std::string& note,
                               const std::function<void(Documents&)>& work) {
  try {
    const auto lock = FileLock::acquire(folder() + "/.kvbackup.lock", note);
    Documents documents = read();
    work(documents);
  } catch (const PlatformError& error) {
    throw Refusal(ExitStatus::kDocumentNotWritten, error.what());
  }
}

void DocumentStore::save(const ScheduleDocument& document) const {
  replaceFileDurably(document.path, writePropertyList(document.records, document.encoding));
}

}  // namespace kv
