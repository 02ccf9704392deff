#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>

#include "platform/Files.h"
#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"

namespace kv {

/// One schedule document as it was read.
struct ScheduleDocument {
  enum class State {
    kMissing,     ///< no such file; it can be made
    kRead,        ///< a list of records
    kUnreadable,  ///< something is there that must not be overwritten
  };

  std::string path;
  State state = State::kMissing;
  PropertyListEncoding encoding = PropertyListEncoding::kXml;
  PropertyList::Array records;
};

/// The two schedule documents, read and edited.
///
/// A set is the first record of its name, first document before second. An edit takes the lock
/// that lies beside the documents, reads them again, changes one record and replaces one document;
/// every other record, key and value, and the encoding, stays.
///
/// Threads    any; processes exclude each other by the lock.
/// Errors     Refusal: kUnknownSet, kDuplicateName, kDocumentUnreadable, kDocumentNotWritten. A
///            document that exists and cannot be read as a list is never written.
class DocumentStore {
 public:
  using Documents = std::array<ScheduleDocument, 2>;
  using Change = std::function<void(PropertyList::Dictionary& record)>;

  DocumentStore(Files& files, std::string homeFolder);

  Documents read() const;

  /// The record of the set as it stands now.
  PropertyList find(const std::string& name) const;

  /// Appends a set, whose name must be new, to the second document, which is made when missing.
  void add(const std::string& name, PropertyList::Dictionary record);

  /// Has `change` edit the record; when it throws, nothing is written.
  void edit(const std::string& name, const Change& change);

  void remove(const std::string& name);

 private:
  struct Place {
    std::size_t document;
    std::size_t record;
  };

  ScheduleDocument readOne(const char* pathInHome) const;
  static Place locate(const Documents& documents, const std::string& name);
  std::string folder() const;
  void editLocked(const std::string& note, const std::function<void(Documents&)>& work);
  void save(const ScheduleDocument& document) const;

  Files& files_;
  const std::string homeFolder_;
};

}  // namespace kv
