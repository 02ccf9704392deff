#pragma once

#include <string>
#include <vector>

#include "tools/kvctl/FaultReport.h"

namespace kv::kvctl {

/// What the production scheduler makes of a report.
struct ReplayResult {
  std::vector<Judgement> judgements;
  /// The lines of the trace, those of the host left out.
  std::vector<std::string> trace;
  /// Questions to the host that stand in the report at no fitting place, and answers in it that
  /// nobody asked for.
  std::vector<std::string> oddQuestions;
};

/// Lets the scheduler decide once more: on the documents of the report, at its instant, in its zone
/// and locale, with its answers of the host. Nothing is started or written.
///
/// Threads    main thread only: the zone is the process's meanwhile.
/// Errors     Refusal when the zone cannot be set, or nothing is known of the locale.
ReplayResult replay(const FaultReport& report);

/// Marks the lines of the trace that the scheduler did not write itself. False when that cannot be
/// told, since the scheduler's own lines are not all there.
bool markHostLines(std::vector<FaultReport::Line>& trace,
                   const std::vector<std::string>& schedulerLines);

}  // namespace kv::kvctl
