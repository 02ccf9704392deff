#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/kvctl/Sets.h"

namespace kv::kvctl {

/// Something that keeps a set from being backed up as its user believes it is.
struct Problem {
  enum class Severity {
    kError,    ///< something is not backed up
    kWarning,  ///< a backup comes late, too often or on another day
    kNotice,   ///< no backup suffers
  };

  /// A word for programs that stays the same: "missing-destination".
  std::string code = {};
  Severity severity = Severity::kError;
  /// Nothing for a problem that is no single set's.
  std::optional<SetEntry> set = std::nullopt;
  /// The path of the document or file; empty when it is none's.
  std::string file = {};
  /// What is wrong, what it means and what to do, each in a sentence or two. Made of texts that
  /// are harmless already.
  std::string what = {};
  std::string meaning = {};
  std::string remedy = {};
  /// A command line for a shell that does it; empty when there is none.
  std::string command = {};
  /// Sets that are the reason.
  std::vector<std::string> by = {};
};

using Problems = std::vector<Problem>;

}  // namespace kv::kvctl
