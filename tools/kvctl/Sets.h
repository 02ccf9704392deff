#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "app/Host.h"
#include "platform/PropertyList.h"
#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// One backup set of the joined list.
struct SetEntry {
  /// Place in the joined list, from 0.
  std::size_t index = 0;
  /// The document it stands in: 0 or 1.
  std::size_t document = 0;
  const PropertyList* record = nullptr;
  /// As it stands; empty when it has none that is a text.
  std::string name;

  /// For people: "Docs", or "set 3 (no name)".
  std::string shownName() const;
};

/// The schedule documents as they stand, and the sets in them in the order in which the scheduler
/// takes them.
///
/// Threads    any, one at a time.
/// Ownership  the entries point into the documents, which it owns.
/// Errors     find() throws Refusal (kUnknownSet); see refuseUnreadable().
class Sets {
 public:
  explicit Sets(const Context& context);
  Sets(const Sets&) = delete;
  Sets& operator=(const Sets&) = delete;

  const DocumentStore::Documents& documents() const { return documents_; }
  const std::vector<SetEntry>& all() const { return entries_; }
  /// All of that name; all there are when no name is given.
  std::vector<SetEntry> find(const std::optional<std::string>& name) const;
  /// The joined list, as the scheduler is handed it.
  const TaskList& list() const { return list_; }
  /// The documents that exist and cannot be read as a list of sets.
  std::vector<std::string> unreadable() const;
  /// Throws Refusal (kUnreadable) when there is one: after all that could be told has been.
  void refuseUnreadable() const;

 private:
  DocumentStore::Documents documents_;
  TaskList list_;
  std::vector<SetEntry> entries_;
};

/// "Mon 2026-11-23 09:30", local.
std::string dayStamp(Date date);

/// The weekday on which `date` falls locally: 0 is Sunday.
std::size_t weekdayOf(Date date);
/// "Sunday" for 0.
const char* weekdayWord(std::size_t day);

/// How long `span` is, in words: "5 min", "2 h 30 min", "3 days".
std::string spanText(Seconds span);

/// The instant for programs: "2026-11-21T08:30:00Z"; null when there is none.
Json instantJson(const std::optional<Date>& date);

}  // namespace kv::kvctl
