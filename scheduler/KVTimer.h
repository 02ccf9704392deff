#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/Host.h"
#include "platform/Clock.h"
#include "platform/Date.h"
#include "platform/DateFormatter.h"
#include "platform/Files.h"
#include "platform/MenuItem.h"
#include "platform/RunLoop.h"
#include "scheduler/LaunchSequence.h"
#include "scheduler/LocalMoment.h"
#include "scheduler/TaskRecord.h"
#include "scheduler/TickObserver.h"
#include "scheduler/Trace.h"
#include "scheduler/TraceFile.h"

namespace kv {

/// The scheduler: rereads the schedule documents and judges every task once per tick.
///
/// Threads    main thread only, timer callbacks included; nothing is locked.
/// Ownership  the host owns it and a running timer holds it too: it dies when both let go.
/// Units      seconds and wall-clock dates; times of day are integers (930 is 09:30).
/// Errors     none reach the caller: an unreadable document only shortens the task list, and a
///            trace line that cannot be written is lost.
///
/// Tracing is off ──tick finds dbugMenu on──► on ──tick finds it off, or 10000 s have passed──► off
///
/// Off  debugStarted() is false; no line writer touches the trace file.
/// On   every line of the tick reaches the file. It changes no decision.
class KVTimer final : public std::enable_shared_from_this<KVTimer>, public Trace {
 public:
  /// What the scheduler uses of the world. Members without a default must be set.
  struct Environment {
    /// The application's delegate at this moment; null when there is none.
    std::function<std::shared_ptr<Host>()> host;
    std::shared_ptr<const Clock> clock;
    std::shared_ptr<RunLoop> runLoop;
    std::shared_ptr<Files> files;
    DateLocale locale;
    std::string homeFolder;
    std::string traceFile = "/tmp/KVScheduler.txt";
    /// Reads the joined task list; without one both documents of the home are read.
    std::function<std::shared_ptr<const TaskList>()> readList = nullptr;
    /// Null when nobody wants to know.
    std::shared_ptr<TickObserver> observer = nullptr;
  };

  /// The time between two ticks.
  static constexpr Seconds kTickInterval{57.0};
  /// Tracing switches itself off at the first tick later than this after it was noticed.
  static constexpr Seconds kLongestTracing{10000.0};

  /// The new scheduler, whose documents have been read, whose host has been handed the task list
  /// and whose timer runs. The first tick comes one interval later.
  static std::shared_ptr<KVTimer> create(Environment environment);

  /// Reads the documents, hands the list to the host and starts a repeating timer. A timer that
  /// runs already keeps running and can no longer be stopped: stopTimer() knows the latest only.
  void runTimer();
  void stopTimer();

  /// One tick: rereads the documents, judges every task, starts at most one backup. A call from
  /// within a tick (by the host) does nothing: ticks never overlap.
  void ScheduleTimer();

  /// "Daily", "Weekly", "Hour", "Minute", or "Daily?" for a number that is none of 0 to 3.
  static std::string getType(std::int32_t type);

  /// The destination of the first record whose name is `set`: its value as it stands (null when
  /// the record has none), or the string "none" when no record matches. A null `set` never does.
  static std::optional<PropertyList> getDestPathFromArray_Set(const TaskList& list,
                                                              const std::string* set);

  /// The overdue interval tasks in the order in which they are to be tried, as pointers into
  /// `list`. See IntervalOrder.h for what it leaves out.
  std::vector<const PropertyList*> sortArrayForNextBackup(const TaskList& list);

  /// When the set of `record` is due next; now, when it is due. See NextRun.h.
  std::optional<Date> nextDue(const PropertyList& record) const;

  void launchKelvaraWithSet(const PropertyList* set);
  void launchKelvaraScriptWithSet(const PropertyList* set);

  /// Appends `text` to the trace file as it stands, whether tracing is on or not. False when it
  /// could not be written.
  bool append(std::string_view text);

  // The line writers do nothing while tracing is off. An absent text or value shows as "(null)".
  void logString(OptionalText text) override;
  void logString_varstr(OptionalText text, OptionalText value) override;
  void logString_varnt(OptionalText text, std::int32_t value);
  void logString_varflt(OptionalText text, float value);
  bool isTracing() const override { return debugStarted_; }

  /// The latest timer, stopped or not; null before the first one.
  const std::shared_ptr<RepeatingTimer>& timer() const { return timer_; }
  /// The index in the joined list of the task judged last, as decimal text; absent before.
  const std::optional<std::string>& indexNum() const { return indexNum_; }
  /// The name of the set that is being judged at this moment, as it stands in its record; null
  /// outside a tick and for a record without one. The host, which is asked about a path only, can
  /// tell by it which set asks.
  const PropertyList* judgedSet() const { return judgedSet_; }
  /// When tracing was last noticed as on, or cancelled; at first the time of creation.
  Date ndt() const { return ndt_; }
  bool debugStarted() const { return debugStarted_; }

  /// The host's debug menu item; null until the host sets it.
  std::shared_ptr<MenuItem> dbugMenu;

 private:
  explicit KVTimer(Environment environment);
  struct Tick;

  std::shared_ptr<const TaskList> readList() const;
  void beginTick();
  void switchTracing();
  void writeSummary(const TaskList& list);
  /// The passes return true when they launched a set, which ends the tick.
  bool runMainPass(Tick& tick);
  bool judgeTask(Tick& tick, std::size_t index);
  bool runIntervalPass(Tick& tick);
  void traceIntervalTask(const std::optional<Date>& due, Date now);
  bool launch(Tick& tick, CallSite site, const PropertyList& entry);
  void tell(const PropertyList& entry, Outcome outcome);

  void writeLine(std::string_view separator, std::string_view text, std::string_view value);

  const Environment environment_;
  TraceFile traceFile_;
  const DatePatterns patterns_;
  std::shared_ptr<RepeatingTimer> timer_;
  std::optional<std::string> indexNum_;
  const PropertyList* judgedSet_ = nullptr;  // into the list of the running tick
  Date ndt_;
  bool debugStarted_ = false;
  bool isTicking_ = false;
};

}  // namespace kv
