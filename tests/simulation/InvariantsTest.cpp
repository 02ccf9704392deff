#include <gtest/gtest.h>
#include <time.h>

#include <array>
#include <cmath>
#include <random>

#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Task.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/simulation/Simulation.h"

namespace kv::test {
namespace {

tm localParts(Date date) {
  const auto seconds = static_cast<time_t>(std::floor(date.unixSeconds()));
  tm parts{};
  tzset();
  localtime_r(&seconds, &parts);
  return parts;
}

int minuteOfDay(const tm& parts) {
  return parts.tm_hour * 60 + parts.tm_min;
}

struct Locale {
  const char* name;
  int firstWeekday;  ///< 0 is Sunday
};

/// A set as it was planned, and what the oracle knows of it.
struct Planned {
  std::string name;
  std::string destination;
  int type = 0;
  Date picked;
  bool isOnceADay = false;
  bool isOn = true;
  bool isHeld = false;
  std::array<bool, 7> weekdays{};

  // Of the stretch of time in which the local clock shows one date and no run ends:
  int lastRunDay = 0;  ///< before it
  bool hadItsChance = false;
  int launches = 0;

  bool hasRule() const { return type == kDaily || type == kWeekly; }
  /// Weekdays bear the numbers of the locale's week, save that no day has Tuesday's where weeks
  /// start on Monday; elsewhere they are those of a week that starts on Sunday.
  bool isOnWeekday(int weekday, int firstWeekday) const {
    if (type == kDaily) return true;
    if (firstWeekday == 1) return weekday != 2 && weekdays.at(static_cast<std::size_t>(weekday));
    return weekdays.at(static_cast<std::size_t>((weekday - firstWeekday + 7) % 7));
  }
  bool isDue(const tm& now, int firstWeekday) const {
    return isOn && !isHeld && isOnWeekday(now.tm_wday, firstWeekday) &&
           (isOnceADay || minuteOfDay(now) >= minuteOfDay(localParts(picked)));
  }
};

/// Watches a simulation and keeps the first thing that must not happen.
class Oracle final : public SimulationObserver {
 public:
  Oracle(std::vector<Planned> itsSets, int firstWeekday)
      : sets(std::move(itsSets)), firstWeekday_(firstWeekday) {}

  SimulatedApplication* application = nullptr;
  std::vector<Planned> sets;
  std::string fault;
  int daysWithARun = 0;
  int intervalRuns = 0;

  void tickBegan(Date now, const TaskList& list) override {
    now_ = now;
    list_ = &list;
    wasRunning_ = application->run().has_value();
    launched_.reset();
    const tm parts = localParts(now);
    if (parts.tm_mday != local_.tm_mday || parts.tm_yday != local_.tm_yday) endStretch();
    local_ = parts;
  }

  void judged(const PropertyList& entry, Outcome outcome) override {
    if (!isLaunch(outcome)) return;
    require(!launched_, "a second launch in one tick");
    require(!wasRunning_, "a launch while a backup runs");
    launched_ = static_cast<std::size_t>(&entry - list_->data());
  }

  void tickEnded() override {
    if (wasRunning_) return;
    const bool launchedByDays = launched_ && sets[*launched_].hasRule();
    for (std::size_t index = 0; index < sets.size(); ++index) {
      Planned& set = sets[index];
      if (!set.hasRule() || (launchedByDays && index > *launched_)) continue;
      if (launched_ == index) ++set.launches;
      if (set.isDue(local_, firstWeekday_) && isThere(set)) set.hadItsChance = true;
    }
    if (launchedByDays) return;
    if (launched_) {
      const Planned& set = sets[*launched_];
      require(canStart(set) && isOverdue(*launched_, set.type), set.name + " runs untimely");
      ++intervalRuns;
    }
    for (std::size_t index = 0; index < sets.size(); ++index) requireFairness(index);
  }

  /// The record knows the day of the beginning by the zone of the end.
  void runEnded(const SimulatedRun& run) override {
    endStretch();
    for (Planned& set : sets) {
      if (set.name == run.set) set.lastRunDay = localParts(run.startedAt).tm_mday;
    }
  }

  /// Exactly one run on a calendar day with a tick that found the set due and could start it,
  /// unless the set's last run was on a day of the same number.
  void endStretch() {
    for (Planned& set : sets) {
      const int expected = set.hadItsChance && set.lastRunDay != local_.tm_mday ? 1 : 0;
      require(set.launches == expected, set.name + " ran " + std::to_string(set.launches) +
                                            " times on the day that ends, not " +
                                            std::to_string(expected));
      daysWithARun += expected;
      if (set.launches > 0) set.lastRunDay = local_.tm_mday;
      set.hadItsChance = false;
      set.launches = 0;
    }
  }

 private:
  void require(bool holds, const std::string& what) {
    if (!holds && fault.empty()) fault = localStamp(now_) + ": " + what;
  }
  bool isThere(const Planned& set) const {
    const PropertyList path(set.destination);
    return application->checkIfDiskExists_fromSchedule(&path, 1);
  }
  bool canStart(const Planned& set) const { return set.isOn && isThere(set); }
  Date due(std::size_t index) const { return *TaskRecord((*list_)[index]).nextDue(); }
  bool isOverdue(std::size_t index, int type) const {
    return sets[index].type == type && due(index) < now_;
  }

  /// An overdue interval set that could start waits only for one of its type that is as overdue or
  /// more, unless one of the patterns that let a set wait explains it.
  void requireFairness(std::size_t index) {
    const Planned& set = sets[index];
    if (set.hasRule() || !isOverdue(index, set.type) || !canStart(set)) return;
    for (std::size_t other = 0; other < sets.size(); ++other) {
      const bool isMinuteBeforeHour =
          set.type == kHourly && sets[other].isOn && isOverdue(other, kMinutes);
      const bool isInTheWay = other < index && isOverdue(other, set.type) &&
                              due(other) <= due(index) && !canStart(sets[other]) &&
                              (sets[other].isOn || set.type == kHourly);
      if (isMinuteBeforeHour || isInTheWay) return;
    }
    require(launched_ && sets[*launched_].type == set.type && due(*launched_) <= due(index),
            set.name + " waits without a reason");
  }

  const int firstWeekday_;
  Date now_;
  const TaskList* list_ = nullptr;
  tm local_{};
  bool wasRunning_ = false;
  std::optional<std::size_t> launched_;
};

/// One random computer with its sets, and what happens to it.
class RandomLife {
  // What follows is deduced, so it stands first.
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }
  bool oneIn(int count) { return below(count) == 0; }
  template <class T>
  auto pick(const T& all) {
    return all[static_cast<std::size_t>(below(static_cast<int>(std::size(all))))];
  }

 public:
  explicit RandomLife(unsigned seed) : random_(seed) {}

  void live() {
    const auto [zoneName, date] = pick(kPlaces);
    const Locale locale = pick(kLocales);
    const ScopedEnvironment zone("TZ", zoneName);
    begin_ = localDate(std::string(date) + " 12:00") + Seconds(-60.0 * below(36 * 60));
    const int count = 1 + below(12);
    for (int index = 0; index < count; ++index) addSet(index);
    oracle_ = std::make_shared<Oracle>(std::move(planned_), locale.firstWeekday);
    Simulation simulation(plan(locale.name));
    oracle_->application = &simulation.application();
    const int events = below(6);
    for (int event = 0; event < events; ++event) addEvent(simulation);
    simulation.runUntil(begin_ + Seconds(kDays * kDay));
    oracle_->endStretch();
    EXPECT_EQ(oracle_->fault, "") << zoneName << " in " << locale.name;
    EXPECT_EQ(simulation.application().collisions(), 0u);
  }

  const Oracle& oracle() const { return *oracle_; }

 private:
  static constexpr int kDays = 5;
  static constexpr double kDay = 86400;
  /// Where the clocks or the calendar do something in the days that follow.
  static constexpr std::array<std::pair<const char*, const char*>, 10> kPlaces = {{
      {"UTC", "2024-02-27"},
      {"UTC", "2024-12-29"},
      {"Europe/Berlin", "2024-03-29"},
      {"America/New_York", "2024-11-01"},
      {"Australia/Lord_Howe", "2024-10-04"},
      {"America/St_Johns", "2006-10-27"},
      {"America/Havana", "2024-11-01"},
      {"Pacific/Apia", "2011-12-28"},
      {"Africa/Cairo", "2024-04-24"},
      {"Asia/Pyongyang", "2018-05-03"},
  }};
  static constexpr std::array<Locale, 3> kLocales = {{{"en_US", 0}, {"de_DE", 1}, {"ar_EG", 6}}};

  Date someMoment() { return begin_ + Seconds(60.0 * below(kDays * 24 * 60)); }
  std::string someDisk() { return std::string("/disk/") + "abc"[below(3)]; }

  void addSet(int index) {
    Planned set;
    set.name = "Set" + std::to_string(index);
    set.destination = someDisk();
    set.type = below(4);
    // Times at the edges of the day and of the clock changes, and any others.
    set.picked =
        localDate("2019-01-15 00:00") +
        Seconds(60.0 * (oneIn(3) ? pick(std::array{0, 30, 90, 150, 1425, 1439}) : below(1440)));
    set.isOnceADay = oneIn(4);
    set.isOn = !oneIn(8);
    set.isHeld = oneIn(10);
    set.lastRunDay = oneIn(3) ? below(32) : localDayOfMonth(begin_) - below(2);
    Task task(set.name.c_str());
    for (std::size_t day = 0; day < 7; ++day) {
      set.weekdays.at(day) = oneIn(2);
      if (set.weekdays.at(day)) task.on(static_cast<int>(day) + 1);
    }
    task.field("destinationPath", set.destination).lastRun(set.lastRunDay);
    task.option("dayWeekOrHour", set.type).option("datePick", set.picked);
    task.option("afterSleep", set.isOnceADay ? 1 : 0).option("scheduleIt", set.isOn ? 1 : 0);
    task.option("runState", set.isHeld ? 0 : 1);
    task.option("setmins", 5 + below(180)).option("sethours", 1 + below(12));
    task.option("minhourdate", begin_ + Seconds(60.0 * (below(1440) - 720)));
    tasks_.push_back(task);
    planned_.push_back(set);
  }

  Simulation::Plan plan(const char* locale) {
    const std::array windows = {"22:00-07:00", "23:58-00:02", "09:00-17:00", "02:00-03:30"};
    SimulatedApplication::Behaviour behaviour;
    behaviour.durationOf = [this, longest = oneIn(4) ? 9000 : 900](const std::string&) {
      return Seconds(10.0 + below(longest));
    };
    if (oneIn(2)) behaviour.absences = {{someDisk(), *DailyWindow::parse(pick(windows))}};
    return {.sets = tasks_,
            .begin = begin_,
            .locale = DateLocale::fromName(locale),
            .application = std::move(behaviour),
            .observer = oracle_,
            .asleep = oneIn(3) ? DailyWindow::parse(pick(windows)) : std::nullopt,
            .timersAsleep =
                oneIn(2) ? VirtualRunLoop::Sleep::kCounts : VirtualRunLoop::Sleep::kStandsStill};
  }

  void addEvent(Simulation& simulation) {
    const Date moment = someMoment();
    const Date later = moment + Seconds(60.0 * below(30 * 60));
    const std::string disk = someDisk();
    auto& application = simulation.application();
    switch (below(4)) {
      case 0:
        simulation.sleep(moment, later);
        break;
      case 1:
        simulation.setClock(moment, Seconds(pick(std::array{3600.0, kDay, 31 * kDay, 1000.0}) *
                                            (oneIn(2) ? 1 : -1)));
        break;
      case 2:
        simulation.at(moment, [&application, disk] { application.detach(disk); });
        simulation.at(later, [&application, disk] { application.attach(disk); });
        break;
      default:
        simulation.at(moment, [zone = pick(kPlaces).first] { ::setenv("TZ", zone, 1); });
    }
  }

  std::mt19937 random_;
  Date begin_;
  TaskList tasks_;
  std::vector<Planned> planned_;
  std::shared_ptr<Oracle> oracle_;
};

/// KV_SEED repeats the lives of a failure; KV_LIVES asks for more of them.
TEST(Invariants, HoldInRandomLives) {
  const char* const givenSeed = ::getenv("KV_SEED");
  const char* const givenLives = ::getenv("KV_LIVES");
  const unsigned first =
      givenSeed == nullptr ? std::random_device{}() : static_cast<unsigned>(std::stoul(givenSeed));
  const unsigned lives = givenLives == nullptr ? 20 : static_cast<unsigned>(std::stoul(givenLives));
  int daysWithARun = 0, intervalRuns = 0;
  for (unsigned life = 0; life < lives && !testing::Test::HasFailure(); ++life) {
    SCOPED_TRACE("KV_SEED=" + std::to_string(first + life));
    RandomLife one(first + life);
    one.live();
    daysWithARun += one.oracle().daysWithARun;
    intervalRuns += one.oracle().intervalRuns;
  }
  if (lives < 10) return;  // a few of them may well be idle
  EXPECT_GT(daysWithARun, 0);
  EXPECT_GT(intervalRuns, 0);
}

}  // namespace
}  // namespace kv::test
