#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kvctl/Output.h"

namespace kv::kvctl {

/// One line of the trace, and what it begins. The views point into the line that was taken.
struct TraceLine {
  /// "09:31:07"; empty for a line that the scheduler's line writers did not make.
  std::string_view time;
  /// What follows time and tag; the whole line where there is no time.
  std::string_view text;
  Tone tone = Tone::kPlain;
  bool beginsTick = false;
  bool beginsGroup = false;
  /// Part of the heading that most ticks begin with.
  bool isHeading = false;
};

/// The part of a tick in which a group of lines was written.
enum class TracePass {
  kNone,      ///< lines about no set
  kMain,      ///< every set's gate, and the daily and weekly rules
  kOrder,     ///< the search for overdue interval sets
  kInterval,  ///< the overdue interval sets, as they are tried
};

/// Tells which tick, and which set, each line of the trace belongs to.
///
/// A tick begins with its heading. One during which tracing was switched on has none: there it
/// shows in a line that no running tick can bring any more. The lines of a tried interval set do
/// not begin with its name, which follows from the order in which the sets were found overdue.
///
/// A line that it does not know belongs to the group before it: a host may write there, and a
/// name may hold a line end.
///
/// Threads    any, one at a time.
/// Errors     none: any bytes are a line. What it remembers stays bounded, but for one name.
class TraceReader {
 public:
  /// `line` comes without its end.
  TraceLine take(std::string_view line);

  // Of the line taken last.
  TracePass pass() const { return pass_; }
  /// As the trace shows it, up to its first line end; nothing when the group is about no set.
  const std::optional<std::string>& set() const { return set_; }
  /// What the heading says of the time: "2024/03/05 10:00:57". Empty before it, and without one.
  const std::string& fired() const { return fired_; }

 private:
  /// How far a tick has come.
  enum class Stage { kNew, kSummary, kMain, kOrder, kInterval };

  void classify(TraceLine& line);
  void beginTick(TraceLine& line);
  void beginGroup(TraceLine& line, Stage stage, TracePass pass, std::optional<std::string> set);
  void remember(std::string_view set);
  std::optional<std::string> nextTried();

  Stage stage_ = Stage::kNew;
  TracePass pass_ = TracePass::kNone;
  std::optional<std::string> set_;
  std::string fired_;
  bool hasTick_ = false;
  bool hasLaunched_ = false;
  bool afterStars_ = false;
  /// The overdue sets in the order found; the last is tried first.
  std::vector<std::string> overdue_;
};

}  // namespace kv::kvctl
