#include "scheduler/KVTimer.h"

#include <fmt/format.h>

#include <utility>

#include "platform/LocalTime.h"
#include "scheduler/FieldReaders.h"
#include "scheduler/IntervalOrder.h"
#include "scheduler/NextRun.h"
#include "scheduler/Rules.h"
#include "scheduler/ScheduleDocuments.h"

namespace kv {
namespace {

constexpr int kOn = 1;
constexpr int kOff = 0;
/// Stands between the time of day and the text of a trace line.
constexpr std::string_view kTagged = " [Timer] ";

std::string_view shown(OptionalText text) {
  return text.value_or("(null)");
}

std::string shownTask(const TaskRecord& record) {
  return fmt::format("{} type:{}", shown(record.shownSet()), TaskRecord::typeName(record.type()));
}

/// What the list of scheduled sets shows behind name and type. Hour tasks show nothing.
std::string summaryDetail(const TaskRecord& record, const DateFormatter& timeOfDay) {
  switch (record.type()) {
    case kDaily: {
      const auto picked = dateValue(record.option("datePick"));
      return std::string(shown(picked ? timeOfDay.string(*picked) : std::nullopt));
    }
    case kMinutes:
      return std::string(shown(shownValue(record.option("setmins"))));
    default:
      return "";
  }
}

void traceRunState(const TaskRecord& record, Trace& trace) {
  const auto* runState = record.option("runState");
  const auto number = integerValue(runState);
  if (number == 0) trace.logString_varstr("runState == 0 : ", record.shownSet());
  if (number == 1) trace.logString_varstr("runState == 1 : ", record.shownSet());
  if (runState == nullptr) trace.logString_varstr("runState = nil : ", record.shownSet());
}

Outcome outcomeOf(LaunchVerdict verdict) {
  switch (verdict) {
    case LaunchVerdict::kNoVolume:
      return Outcome::kNoVolume;
    case LaunchVerdict::kBackupRunning:
      return Outcome::kBackupRunning;
    case LaunchVerdict::kAlreadyLaunched:
      return Outcome::kAnotherFirst;
    case LaunchVerdict::kLaunchApplication:
      return Outcome::kLaunched;
    case LaunchVerdict::kAskOpenApplication:
      return Outcome::kAsked;
  }
  return Outcome::kNotDue;
}

/// Gives a variable a value for as long as the object lives.
template <class T>
class Temporarily {
 public:
  Temporarily(T& variable, T value) : variable_(variable), before_(variable) { variable = value; }
  ~Temporarily() { variable_ = before_; }
  Temporarily(const Temporarily&) = delete;
  Temporarily& operator=(const Temporarily&) = delete;

 private:
  T& variable_;
  const T before_;
};

}  // namespace

/// What one tick works on; nothing of it is kept.
struct KVTimer::Tick {
  std::shared_ptr<Host> host;
  std::shared_ptr<const TaskList> list;
  LocalMoment moment;
  bool launched = false;
};

KVTimer::KVTimer(Environment environment)
    : environment_(std::move(environment)),
      traceFile_(environment_.files, environment_.traceFile),
      patterns_(environment_.locale),
      ndt_(environment_.clock->now()) {}

std::shared_ptr<KVTimer> KVTimer::create(Environment environment) {
  std::shared_ptr<KVTimer> timer(new KVTimer(std::move(environment)));
  timer->runTimer();
  return timer;
}

void KVTimer::runTimer() {
  const auto host = environment_.host();
  logString("Run Timer now pre");
  const auto list = readList();
  logString("Run Timer now arrays done pre");
  if (host) host->reloadMenuNow(*list);
  logString("Run Timer now final");
  timer_ = environment_.runLoop->scheduleRepeatingTimer(
      kTickInterval, [self = shared_from_this()] { self->ScheduleTimer(); });
}

void KVTimer::stopTimer() {
  logString("Stopping Scheduling Timer");
  if (timer_) timer_->invalidate();
}

void KVTimer::ScheduleTimer() {
  if (isTicking_) return;
  const auto self = shared_from_this();  // the host may let go of this object meanwhile
  const Temporarily ticking(isTicking_, true);

  const auto host = environment_.host();
  beginTick();
  switchTracing();
  const auto list = readList();
  if (host) host->reloadMenuNow(*list);
  Tick tick{host, list, LocalMoment(environment_.clock->now(), patterns_)};
  writeSummary(*list);
  const auto& observer = environment_.observer;
  if (observer) observer->tickBegan(tick.moment.now(), *list);
  if (!runMainPass(tick)) runIntervalPass(tick);
  if (observer) observer->tickEnded();
}

std::shared_ptr<const TaskList> KVTimer::readList() const {
  if (environment_.readList) return environment_.readList();
  return std::make_shared<TaskList>(
      ScheduleDocuments::load(*environment_.files, environment_.homeFolder));
}

void KVTimer::beginTick() {
  if (!isTracing()) return;
  logString(std::string(65, '*'));
  logString_varstr("Timer fired: ", patterns_.banner.string(environment_.clock->now()));
}

void KVTimer::switchTracing() {
  const auto item = dbugMenu;  // reading its state may make the host set another one
  const auto state = item ? item->state() : kOff;
  logString_varstr("Debug state = ", fmt::format("{}", state));
  if (state != kOn) {
    debugStarted_ = false;
    return;
  }
  if (!debugStarted_) {
    logString("debugStarted = NO");  // reaches no file: the flag is still off
    debugStarted_ = true;
    ndt_ = environment_.clock->now();
    return;
  }
  logString("debugStarted = YES");
  const Seconds elapsed = environment_.clock->now() - ndt_;
  logString_varstr("debug time = ", fmt::format("{:f}", elapsed.count()));
  if (elapsed > kLongestTracing) {
    logString("debug interval past > now cancelling");
    debugStarted_ = false;
    ndt_ = environment_.clock->now();
    item->setState(kOff);
  }
}

void KVTimer::writeSummary(const TaskList& list) {
  if (!isTracing()) return;
  for (const PropertyList& entry : list) {
    const TaskRecord record(entry);
    // A missing "runState" reads 0, so it is not listed, though it may run.
    if (integerValue(record.option("runState")) != 1 || !record.isScheduled()) continue;
    logString_varstr("plist list:", fmt::format("{} {}", shownTask(record),
                                                summaryDetail(record, patterns_.timeOfDay)));
  }
}

bool KVTimer::runMainPass(Tick& tick) {
  for (std::size_t index = 0; index < tick.list->size(); ++index) {
    if (judgeTask(tick, index)) return true;
  }
  return tick.launched;
}

bool KVTimer::judgeTask(Tick& tick, std::size_t index) {
  indexNum_ = std::to_string(index);
  const PropertyList& entry = (*tick.list)[index];
  const TaskRecord record(entry);
  const Temporarily judged(judgedSet_, record.set());
  // The host learns of every task in this way; its answer plays no part here.
  if (tick.host) tick.host->checkIfDiskExists_fromSchedule(record.destinationPath(), 1);
  const auto set = isTracing() ? record.shownSet() : std::nullopt;
  logString_varstr("Checking ************** : ", set);
  if (isTracing()) traceRunState(record, *this);
  if (!passesMainGate(record)) {
    logString_varstr("NO go: ", set);
    if (!record.isInterval()) {
      tell(entry, record.isScheduled() ? Outcome::kHeld : Outcome::kSwitchedOff);
    }
    return false;
  }
  logString_varstr("YES it's a GO >> ", set);
  logString("Task is on and now checking timestamp...");
  if (isTracing()) {
    logString_varstr("Processing ", fmt::format("{} task:{}", index, shownTask(record)));
  }
  const auto site = judgeByType(record, tick.moment, *this);
  if (site) return launch(tick, *site, entry);
  if (!record.isInterval()) tell(entry, hasRule(record) ? Outcome::kNotDue : Outcome::kNoRule);
  return false;
}

void KVTimer::tell(const PropertyList& entry, Outcome outcome) {
  if (environment_.observer) environment_.observer->judged(entry, outcome);
}

void KVTimer::traceIntervalTask(const std::optional<Date>& due, Date now) {
  if (!isTracing()) return;
  const auto& format = patterns_.monthToSecond;
  logString("Minutes or hours proceeding");
  logString_varstr("stored date = ", due ? format.string(*due) : std::nullopt);
  logString_varstr("todays date = ", format.string(now));
}

bool KVTimer::runIntervalPass(Tick& tick) {
  const auto entries = sortArrayForNextBackup(*tick.list);
  logString_varstr("sorted array count: ", fmt::format("{}", entries.size()));
  for (const PropertyList* entry : entries) {
    logString("Sorted minutes or hours post loop");
    const TaskRecord record(*entry);
    const Temporarily judged(judgedSet_, record.set());
    if (!record.isInterval()) continue;
    if (!passesIntervalGate(record)) {
      tell(*entry, Outcome::kSwitchedOff);
      continue;
    }
    const auto due = record.nextDue();
    traceIntervalTask(due, tick.moment.now());
    if (!due || *due > tick.moment.now()) continue;
    if (launch(tick, CallSite::kInterval, *entry)) return true;
  }
  return false;
}

bool KVTimer::launch(Tick& tick, CallSite site, const PropertyList& entry) {
  const TaskRecord record(entry);
  const auto outcome = outcomeOf(decideLaunch(site, record, tick.launched, tick.host.get(), *this));
  tell(entry, outcome);
  if (!isLaunch(outcome)) return false;
  if (outcome == Outcome::kLaunched) launchKelvaraWithSet(record.set());
  if (outcome == Outcome::kAsked) launchKelvaraScriptWithSet(record.set());
  tick.launched = true;
  return true;
}

std::string KVTimer::getType(std::int32_t type) {
  return TaskRecord::typeName(type);
}

std::optional<PropertyList> KVTimer::getDestPathFromArray_Set(const TaskList& list,
                                                              const std::string* set) {
  for (const PropertyList& entry : list) {
    const TaskRecord record(entry);
    const auto* name = record.set() ? record.set()->as<PropertyList::String>() : nullptr;
    if (set == nullptr || name == nullptr || *name != *set) continue;
    if (record.destinationPath() == nullptr) return std::nullopt;
    return *record.destinationPath();
  }
  return PropertyList("none");
}

std::vector<const PropertyList*> KVTimer::sortArrayForNextBackup(const TaskList& list) {
  return overdueIntervalTasks(list, environment_.clock->now(), patterns_, *this);
}

std::optional<Date> KVTimer::nextDue(const PropertyList& record) const {
  return kv::nextDue(record, environment_.clock->now(), patterns_);
}

void KVTimer::launchKelvaraWithSet(const PropertyList* set) {
  logString_varstr("Launching now set: ", shownValue(set));
  if (const auto host = environment_.host()) host->backupNow(set);
}

void KVTimer::launchKelvaraScriptWithSet(const PropertyList* set) {
  logString_varstr("Launching now via applescript set: ", shownValue(set));
  if (const auto host = environment_.host()) host->backupNowViaScript(set);
}

bool KVTimer::append(std::string_view text) {
  return traceFile_.append(text);
}

void KVTimer::writeLine(std::string_view separator, std::string_view text, std::string_view value) {
  append(
      fmt::format("{}{}{}{}\n", localTimeOfDay(environment_.clock->now()), separator, text, value));
}

void KVTimer::logString(OptionalText text) {
  if (debugStarted_) writeLine(kTagged, shown(text), "");
}

void KVTimer::logString_varstr(OptionalText text, OptionalText value) {
  if (debugStarted_) writeLine(kTagged, shown(text), shown(value));
}

void KVTimer::logString_varflt(OptionalText text, float value) {
  if (debugStarted_) writeLine(kTagged, shown(text), fmt::format("{:f}", double{value}));
}

void KVTimer::logString_varnt(OptionalText text, std::int32_t value) {
  if (debugStarted_) writeLine("  ", shown(text), fmt::format("{}", value));
}

}  // namespace kv
