#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Rehearsal.h"
#include "platform/Date.h"
#include "scheduler/LocalMoment.h"
#include "tools/kvctl/Context.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {

/// Why a set is started by the next tick, or is not.
struct Explanation {
  enum class Verdict { kStarts, kWaits, kNotDue, kNever };

  SetEntry set = {};
  Verdict verdict = Verdict::kNotDue;
  /// The verdict in one sentence.
  std::string sentence = {};
  /// Whether the set takes part at all, and why not.
  std::string gate = {};
  /// "daily 09:30".
  std::string rule = {};
  /// What the rule compares, in the trace's own words: "stored  day = 21".
  std::vector<std::string> values = {};
  /// By its rule or date alone, whatever the host and the other sets do.
  bool isDue = false;
  /// The host's answer for the set's destination.
  bool mayStart = false;
  /// Of a set that is due: those that are started before it, in their order.
  std::vector<std::string> before = {};
  std::optional<Date> next = std::nullopt;
};

/// Explains what the next tick does, by a rehearsal of it and the production rules.
///
/// Threads    main thread; a Qt application object must exist.
/// Ownership  the explanations point into the explainer's sets.
/// Errors     the constructor throws StartupError when the host's scripts cannot be loaded, and
///            Refusal (kUnreadable) when the documents do not hold still.
class Explainer {
 public:
  explicit Explainer(const Context& context);
  Explainer(const Explainer&) = delete;
  Explainer& operator=(const Explainer&) = delete;

  const Sets& sets() const { return *sets_; }
  const Rehearsal::Result& rehearsal() const { return rehearsal_; }
  Date now() const { return now_; }

  Explanation explain(const SetEntry& set);

 private:
  struct Case;

  void noteOrder();
  bool mayStart(std::size_t index) const;
  std::vector<std::string> setsBefore(const SetEntry& set) const;
  void explainDay(Case& one);
  void explainInterval(Case& one);
  std::optional<std::string> whyDayRuleSaysNo(Case& one);
  void explainOutcome(Case& one, Outcome outcome);
  std::string whyNotThere(const Case& one) const;
  std::string runningText() const;
  std::string nextText(const Case& one, const char* lead) const;
  std::vector<std::string> hidingSets(const Case& one);
  bool isAnyMinuteSetOverdue() const;
  const SetEntry* launchedSet() const;
  std::optional<Outcome> outcomeOf(const SetEntry& set) const;
  std::optional<PropertyList> hostFact(const char* key) const;
  std::optional<PropertyList> hostFactOf(const SetEntry& set, const char* key) const;

  const Date now_;
  const std::string localeName_;
  const DatePatterns patterns_;
  std::unique_ptr<Sets> sets_;
  Rehearsal::Result rehearsal_;
  LocalMoment moment_;
  /// Daily and weekly sets that are due and may start, and the overdue intervals; as the scheduler
  /// takes them, by their places in the list.
  std::vector<std::size_t> startableDaySets_;
  std::vector<std::size_t> intervalOrder_;
};

/// The environment of a rehearsal for what the command line asks about.
Rehearsal::Environment rehearsalEnvironment(const Context& context);

/// Whether a date bears an "on".
enum class DayWord { kOn, kBare };

/// "today at 09:30", "on Mon 2026-11-23 at 09:30", as seen from `now`.
std::string momentText(Date date, Date now, DayWord word = DayWord::kOn);

}  // namespace kv::kvctl
