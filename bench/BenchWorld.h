#pragma once

#include <QCoreApplication>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "app/Application.h"
#include "bench/Documents.h"
#include "platform/HiddenStatusBar.h"
#include "platform/linux/PosixFiles.h"
#include "platform/linux/ResidentPages.h"
#include "platform/linux/SystemClock.h"
#include "scheduler/KVTimer.h"
#include "scheduler/ScheduleDocuments.h"

namespace kv::bench {

/// A run loop that ticks when it is told to. Other timers never fire.
class ManualRunLoop final : public RunLoop {
 public:
  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                         std::function<void()> action) override {
    auto timer = std::make_shared<Timer>();
    timer->action = std::move(action);
    if (interval == KVTimer::kTickInterval) ticking_ = timer;
    return timer;
  }
  void fire() { ticking_->action(); }
  void clear() { ticking_.reset(); }

 private:
  struct Timer final : RepeatingTimer {
    void invalidate() override { action = nullptr; }
    bool isValid() const override { return action != nullptr; }
    std::function<void()> action;
  };
  std::shared_ptr<Timer> ticking_;
};

class QuietLog final : public SystemLog {
 public:
  void write(std::string_view) override {}
};

class QuietNotifier final : public Notifier {
 public:
  void notify(const Notification&) override {}
};

/// A home with both documents, under the working folder so that it lies on a real disk.
class BenchWorld {
 public:
  explicit BenchWorld(int sets, bool lean = false)
      : home_(std::filesystem::current_path() / "bench-home") {
    const auto now = SystemClock().now();
    const EverydaySets everyday{now, std::stoi(*DateFormatter("d", locale_).string(now))};
    auto first = lean ? everyday.leanSets(sets) : everyday.sets(sets);
    const auto middle = first.begin() + sets / 2;
    const PropertyList::Array second(middle, first.end());
    first.erase(middle, first.end());
    write(ScheduleDocuments::kFirst, writePropertyList(first, PropertyListEncoding::kXml));
    write(ScheduleDocuments::kSecond, writePropertyList(second, PropertyListEncoding::kBinary));
    PosixFiles files;
    if (ScheduleDocuments::load(files, home_.string()).size() != std::size_t(sets)) {
      throw std::logic_error("the documents are beyond the limits of the reader");
    }
  }
  ~BenchWorld() { std::filesystem::remove_all(home_); }
  BenchWorld(const BenchWorld&) = delete;
  BenchWorld& operator=(const BenchWorld&) = delete;

  KVTimer::Environment scheduler(std::function<std::shared_ptr<Host>()> host) {
    return {.host = std::move(host),
            .clock = std::make_shared<SystemClock>(),
            .runLoop = runLoop_,
            .files = std::make_shared<PosixFiles>(),
            .locale = locale_,
            .homeFolder = home_.string(),
            .traceFile = (home_ / "trace.txt").string()};
  }

  ManualRunLoop& runLoop() { return *runLoop_; }
  std::shared_ptr<RunLoop> sharedRunLoop() { return runLoop_; }
  std::string path(const char* name) const { return (home_ / name).string(); }

 private:
  void write(const char* name, const std::string& bytes) {
    const auto path = home_ / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }

  DateLocale locale_ = DateLocale::fromName("en_US");
  std::filesystem::path home_;
  std::shared_ptr<ManualRunLoop> runLoop_ = std::make_shared<ManualRunLoop>();
};

/// The default host script on top of a world, with a scheduler that it made.
class ScriptWorld {
 public:
  explicit ScriptWorld(BenchWorld& world)
      : world_(world), application_(environment(world), bundle()) {
    application_.loadScripts();
    application_.finishLaunching();
  }
  ~ScriptWorld() {
    application_.willTerminate();
    world_.runLoop().clear();
  }
  ScriptWorld(const ScriptWorld&) = delete;
  ScriptWorld& operator=(const ScriptWorld&) = delete;

  void tick() { world_.runLoop().fire(); }

 private:
  static Bundle bundle() {
    PosixFiles files;
    return Bundle::load(files, KV_BENCH_BUNDLE, Bundle::Origin::kElsewhere);
  }

  static Application::Environment environment(BenchWorld& world) {
    Application::Environment environment;
    environment.scheduler = world.scheduler(nullptr);
    environment.system = {.clock = environment.scheduler.clock,
                          .runLoop = environment.scheduler.runLoop,
                          .programFolder = KV_BENCH_PROGRAMS,
                          .homeFolder = environment.scheduler.homeFolder,
                          .stateFolder = world.path("state"),
                          .historyFile = world.path("state/history.jsonl"),
                          .settingsFolder = world.path("settings"),
                          .launcher = nullptr,  // nobody opens a file
                          .notifier = std::make_shared<QuietNotifier>()};
    environment.statusItem = {.statusBar = std::make_shared<HiddenStatusBar>(),
                              .runLoop = environment.scheduler.runLoop};
    environment.systemLog = std::make_shared<QuietLog>();
    environment.launcher.systemLog = environment.systemLog;
    environment.releaseMemory = releaseFreeMemory;
    environment.quit = [] {};
    return environment;
  }

  BenchWorld& world_;
  Application application_;
};

}  // namespace kv::bench
