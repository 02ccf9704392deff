#include "tools/kvctl/StarvationProblems.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "scheduler/IntervalOrder.h"
#include "scheduler/NextRun.h"
#include "scheduler/NoTrace.h"
#include "scheduler/Rules.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/RunRecorder.h"

namespace kv::kvctl {
namespace {

using Severity = Problem::Severity;
using Entries = std::vector<const SetEntry*>;

/// The sets that are due now, run in the order of the rules until nothing more can be started.
class Queue {
 public:
  explicit Queue(const CheckSubject& subject) : subject_(subject) {
    for (const SetEntry& set : subject.sets().all()) {
      const TaskRecord task(*set.record);
      if (task.isInterval()) {
        // Also those that are switched off: the order of hour sets counts them.
        if (!isOverdueAlone(*set.record)) continue;
        records_.push_back(*set.record);
        waiting_.push_back(&set);
      } else if (isDueByDays(set)) {
        dueByDays_.push_back(&set);
      }
    }
    runDays();
    if (endless_ == nullptr) runIntervals();
  }

  /// The set that is started over and over; null when there is none.
  const SetEntry* endless() const { return endless_; }
  /// The sets that are due, could be started and are never reached.
  Entries starved() const {
    Entries starved;
    // Where the endless one is the second of a name, the first is backed up in its stead.
    const SetEntry* const served =
        endless_ == nullptr ? nullptr : subject_.startedInsteadOf(*endless_);
    for (const SetEntry* set : starvedByDays_) {
      if (set != served) starved.push_back(set);
    }
    for (const SetEntry* set : waiting_) {
      const bool isTried = std::find(tried_.begin(), tried_.end(), set) != tried_.end();
      if (set != endless_ && set != served && canRun(*set) && !isTried) starved.push_back(set);
    }
    return starved;
  }
  /// Those that are tried in vain before the starved set comes to be looked at.
  Entries hiding(const SetEntry& starved) const {
    Entries hiding;
    for (const SetEntry* set : tried_) {
      if (hides(*set, starved)) hiding.push_back(set);
    }
    return hiding;
  }

 private:
  std::vector<const PropertyList*> order(const TaskList& list) const {
    NoTrace noTrace;
    return overdueIntervalTasks(list, subject_.now(), subject_.patterns(), noTrace);
  }

  bool isOverdueAlone(const PropertyList& record) const { return !order({record}).empty(); }

  bool isDueByDays(const SetEntry& set) const {
    const TaskRecord task(*set.record);
    if (!passesMainGate(task)) return false;
    NoTrace noTrace;
    LocalMoment moment(subject_.now(), subject_.patterns());
    return judgeByType(task, moment, noTrace).has_value();
  }

  bool canRun(const SetEntry& set) const {
    return isTakingPart(*set.record) && subject_.mayStart(set);
  }

  /// A start of it backs up another set or none, or leaves no trace in the record.
  bool isNeverRecorded(const SetEntry& set) const {
    return !subject_.isReachable(set) || subject_.hasUnrecordedRun(set) ||
           subject_.futileStarts(set) > 0;
  }

  void runDays() {
    for (const SetEntry* set : dueByDays_) {
      if (!canRun(*set)) continue;
      if (endless_ != nullptr) {
        starvedByDays_.push_back(set);
      } else if (isNeverRecorded(*set)) {
        endless_ = set;
      }
    }
  }

  void runIntervals() {
    while (endless_ == nullptr && runNext()) {
    }
    if (endless_ != nullptr) tried_.clear();
  }

  /// Runs what comes first in the order and can be started; false when there is nothing.
  bool runNext() {
    tried_.clear();
    for (const PropertyList* record : order(records_)) {
      const auto place = record - records_.data();
      const SetEntry* const set = waiting_[static_cast<std::size_t>(place)];
      if (!canRun(*set)) {
        tried_.push_back(set);
        continue;
      }
      if (isNeverRecorded(*set)) {
        endless_ = set;
        return false;
      }
      records_.erase(records_.begin() + place);
      waiting_.erase(waiting_.begin() + place);
      return true;
    }
    return false;
  }

  /// By the order itself: with the two of them alone, only one is looked at.
  bool hides(const SetEntry& one, const SetEntry& other) const {
    const bool isFirst = one.index < other.index;
    const TaskList pair = {isFirst ? *one.record : *other.record,
                           isFirst ? *other.record : *one.record};
    const PropertyList* const looked = &pair[isFirst ? 1 : 0];
    const auto both = order(pair);
    return std::find(both.begin(), both.end(), looked) == both.end();
  }

  const CheckSubject& subject_;
  Entries dueByDays_;
  /// The overdue interval sets that have not run, and their records in the same order.
  Entries waiting_;
  TaskList records_;
  /// Of these, those that are looked at and cannot be started.
  Entries tried_;
  Entries starvedByDays_;
  const SetEntry* endless_ = nullptr;
};

std::vector<std::string> shownNames(const Entries& sets) {
  std::vector<std::string> names;
  for (const SetEntry* set : sets) names.push_back(set->shownName());
  return names;
}

std::string listed(const Entries& sets) {
  return fmt::format("{}", fmt::join(shownNames(sets), ", "));
}

Problem starved(const CheckSubject& subject, const SetEntry& set, const Entries& by) {
  Problem problem = subject.problem("starved", Severity::kError, set);
  for (const SetEntry* one : by) {
    problem.by.push_back(one->name.empty() ? one->shownName() : one->name);
  }
  return problem;
}

Problem starvedByEndless(const CheckSubject& subject, const SetEntry& set, const SetEntry& by) {
  Problem problem = starved(subject, set, {&by});
  problem.what = fmt::format("{} is due and is not started: {} comes first, again and again.",
                             set.shownName(), by.shownName());
  problem.meaning = fmt::format(
      "A round starts one set. No run ends {}'s being due, so it is the one in every round.",
      by.shownName());
  problem.remedy = fmt::format("Mend {}, whose own problem stands in this list.", by.shownName());
  return problem;
}

/// Why a set that is due is not started.
std::string whyStuck(const CheckSubject& subject, const SetEntry& set) {
  const BackupSet backup(*set.record);
  if (!isTakingPart(*set.record)) {
    return fmt::format("{} is switched off and still has its next-due date", set.shownName());
  }
  const std::string destination = backup.destination().value_or("");
  if (destination.empty()) return fmt::format("{} has no destination", set.shownName());
  const History::LastRun* const run = subject.lastRun(set);
  const bool hasFailed = run != nullptr && run->result != "ok";
  return fmt::format("{} cannot be started (its destination {} is not there{})", set.shownName(),
                     shown(destination), hasFailed ? ", or it rests after a failed run" : "");
}

Problem starvedByStuck(const CheckSubject& subject, const SetEntry& set, const Entries& by) {
  Problem problem = starved(subject, set, by);
  problem.severity = Severity::kWarning;
  std::vector<std::string> reasons;
  for (const SetEntry* one : by) reasons.push_back(whyStuck(subject, *one));
  problem.what =
      fmt::format("{} is due and is not looked at: {}.", set.shownName(), fmt::join(reasons, "; "));
  const bool isOtherKind = TaskRecord(*by.front()->record).type() != TaskRecord(*set.record).type();
  problem.meaning = fmt::format(
      "{} {} waits as long as that lasts.",
      isOtherKind ? "Hour sets wait while a minute set is overdue, even one that cannot start."
                  : "A set that is less overdue than one above it in the list waits for that one.",
      set.shownName());
  Problem first = subject.problem("", Severity::kNotice, *by.front());
  subject.setRemedy(first,
                    fmt::format("Make {}'s destination available, or hold it until it is",
                                by.front()->shownName()),
                    "hold", "");
  problem.remedy = first.remedy;
  problem.command = first.command;
  return problem;
}

// ---- Minute sets that are always busy ---------------------------------------------------------

struct BusySet {
  const SetEntry* set;
  Seconds interval;
  Seconds duration;
};

/// The minute sets of which, by their last runs, one is overdue whenever another ends: for each of
/// them the others together take at least as long as its interval. Then the one whose run is the
/// longest ago is always overdue.
std::vector<BusySet> busyMinuteSets(const CheckSubject& subject) {
  std::vector<BusySet> busy;
  for (const SetEntry& set : subject.sets().all()) {
    const History::LastRun* const run = subject.lastRun(set);
    const bool isMinutes = TaskRecord(*set.record).type() == kMinutes;
    if (!isMinutes || !isTakingPart(*set.record) || !subject.mayStart(set) || run == nullptr) {
      continue;
    }
    if (run->result == "ok") busy.push_back({&set, intervalOf(*set.record), run->end - run->start});
  }
  for (std::size_t before = busy.size() + 1; busy.size() < before;) {
    before = busy.size();
    Seconds total{0};
    for (const BusySet& one : busy) total += one.duration;
    std::erase_if(busy,
                  [total](const BusySet& one) { return total - one.duration < one.interval; });
  }
  return busy;
}

void addStarvedByBusy(const CheckSubject& subject, Problems& problems) {
  const auto busy = busyMinuteSets(subject);
  if (busy.empty()) return;
  Entries by;
  Seconds total{0};
  for (const BusySet& one : busy) {
    by.push_back(one.set);
    total += one.duration;
  }
  for (const SetEntry& set : subject.sets().all()) {
    if (TaskRecord(*set.record).type() != kHourly || !isTakingPart(*set.record)) continue;
    Problem problem = starved(subject, set, by);
    problem.what =
        fmt::format("{} is never started: {} are always busy.", set.shownName(), listed(by));
    problem.meaning = fmt::format(
        "Their last runs took {} together, longer than their intervals allow: whenever one ends, "
        "another is overdue. Hour sets have a turn only when no minute set is overdue.",
        spanText(total));
    Problem first = subject.problem("", Severity::kNotice, *by.front());
    subject.setRemedy(first, "Give the minute sets longer intervals", "edit", "--every 4h");
    problem.remedy = first.remedy;
    problem.command = first.command;
    problems.push_back(std::move(problem));
  }
}

}  // namespace

void addStarvationProblems(const CheckSubject& subject, Problems& problems) {
  const Queue queue(subject);
  for (const SetEntry* set : queue.starved()) {
    if (queue.endless() != nullptr) {
      problems.push_back(starvedByEndless(subject, *set, *queue.endless()));
    } else if (const Entries hiding = queue.hiding(*set); !hiding.empty()) {
      problems.push_back(starvedByStuck(subject, *set, hiding));
    }
  }
  addStarvedByBusy(subject, problems);
}

}  // namespace kv::kvctl
