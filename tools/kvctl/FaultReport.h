#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/Rehearsal.h"
#include "platform/Date.h"
#include "platform/DateFormatter.h"
#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvctl/FaultReportZone.h"
#include "tools/kvctl/Output.h"

namespace kv::kvctl {

/// One tick with all that its decisions depend on: the documents, what the host answered, the
/// instant, the zone and the locale. Whoever has it can let the scheduler decide again.
///
/// Threads    a plain value.
/// Ownership  holds copies of everything.
/// Errors     parse() throws Refusal (kUnreadable) for anything that is no report of this version
///            within the limits, whatever the bytes, in time and memory linear in the limits.
struct FaultReport {
  static constexpr int kVersion = 1;
  static constexpr std::size_t kMostBytes = 64u << 20;
  /// JSON within JSON: documents may be 512 values deep.
  static constexpr std::size_t kDeepest = 512 + 8;
  static constexpr std::size_t kMostValues = 2'000'000;

  struct Document {
    std::string name;
    ScheduleDocument::State state = ScheduleDocument::State::kMissing;
    TaskList records;
  };
  struct Line {
    std::string text;
    /// Written by the host while it was asked, not by the scheduler.
    bool isHosts = false;
  };

  /// The program that recorded it.
  std::string program;
  Date at;
  ReportZone zone;
  DateLocale locale;
  bool isRedacted = false;
  std::array<Document, 2> documents;
  std::vector<HostAnswer> answers;
  std::vector<Judgement> judgements;
  std::vector<Line> trace;

  static FaultReport parse(std::string_view text);
  Json json() const;
  /// As it is written to a file. Throws Refusal when parse() would not take it back.
  std::string text() const;

  /// The records of both documents, as the scheduler is handed them.
  TaskList list() const;
};

/// Words for a judgement: "set 3 (Docs): not-due". `list` holds the judged set.
std::string judgementText(const Judgement& judgement, const TaskList& list);

}  // namespace kv::kvctl
