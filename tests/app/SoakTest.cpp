#include <gmock/gmock.h>

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <filesystem>
#include <iterator>
#include <map>

#include "platform/qt/QtRunLoop.h"
#include "tests/app/HostWorld.h"
#include "tests/support/RunUntil.h"
#include "tools/kvbackup/RunRecorder.h"

namespace kv::test {
namespace {

using testing::IsEmpty;

/// How much faster than usual time passes: 24 hours in some 25 seconds.
constexpr double kSpeed = 3600;

class FastClock final : public Clock {
 public:
  explicit FastClock(Date begin) : begin_(begin) { elapsed_.start(); }
  Date now() const override {
    return begin_ + Seconds(static_cast<double>(elapsed_.nsecsElapsed()) / 1e9 * kSpeed);
  }

 private:
  const Date begin_;
  QElapsedTimer elapsed_;
};

/// The real event loop, to which every interval is as much shorter.
class FastRunLoop final : public RunLoop {
 public:
  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                         std::function<void()> action) override {
    return runLoop_.scheduleRepeatingTimer(interval / kSpeed, std::move(action));
  }

 private:
  QtRunLoop runLoop_;
};

/// The backup application: one process at a time, which ends after five minutes and records its
/// run in the document and in the history.
class FastApplication final : public QObject {
  Q_OBJECT
 public:
  FastApplication(std::string document, std::shared_ptr<const Clock> clock, RunLoop& runLoop,
                  const PropertyList::Array& sets)
      : document_(std::move(document)), clock_(std::move(clock)), sets_(sets) {
    write();
    timer_ = runLoop.scheduleRepeatingTimer(Seconds(30), [this] { endRun(); });
  }
  ~FastApplication() override { timer_->invalidate(); }

  Q_INVOKABLE double now() { return clock_->now().unixSeconds() * 1000; }
  Q_INVOKABLE QString running() { return QString::fromStdString(running_); }
  Q_INVOKABLE QString history() { return history_; }
  Q_INVOKABLE void start(const QString& set) {
    collisions += running_.empty() ? 0 : 1;
    running_ = set.toStdString();
    startedAt_ = clock_->now();
    ++runs[running_];
  }

  std::map<std::string, int> runs;
  int collisions = 0;

 private:
  void write() { writeFile(document_, writePropertyList(sets_, PropertyListEncoding::kXml)); }

  void endRun() {
    constexpr Seconds kDuration{300};
    const Date now = clock_->now();
    if (running_.empty() || now - startedAt_ < kDuration) return;
    for (PropertyList& set : sets_) {
      auto& record = *set.as<PropertyList::Dictionary>();
      if (*record.find("backupset") == PropertyList(running_)) recordRun(record, startedAt_, now);
    }
    write();
    const QJsonObject line{{"set", QString::fromStdString(running_)},
                           {"result", "ok"},
                           {"end", QDateTime::fromMSecsSinceEpoch(
                                       static_cast<qint64>(now.unixSeconds() * 1000), Qt::UTC)
                                       .toString(Qt::ISODate)}};
    history_ += QJsonDocument(line).toJson(QJsonDocument::Compact) + "\n";
    running_.clear();
  }

  const std::string document_;
  const std::shared_ptr<const Clock> clock_;
  PropertyList::Array sets_;
  std::shared_ptr<RepeatingTimer> timer_;
  std::string running_;
  Date startedAt_;
  QString history_;
};

/// Leads the default host to that application and that clock.
constexpr const char* kMachine = R"(
  Date.now = () => machine.now();
  system = Object.assign({}, system, {
    programFolder: '/p', exists: path => path === '/p/kvbackup', destinationPresent: () => true,
    readTail: () => machine.history(), readText: () => null, writeText: () => true,
    whoElseMayChange: () => undefined,
    processesRunning: () => machine.running() === '' ? []
        : [{pid: 1, arguments: ['kvbackup', 'Qm3x7P', machine.running()]}],
  });
  UtilsSch = {runScript: list => { machine.start(list[2]); return ''; }};
)";

long openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Soak, ADayOnTheRealEventLoopStartsWhatIsDueAndLeavesNothingBehind) {
  const ScopedEnvironment zone("TZ", "UTC0");
  const TemporaryFolder home;
  const ScopedEnvironment logsHome("HOME", home.path().c_str());
  const Date begin = localDate("2024-03-05 00:00");
  const auto clock = std::make_shared<FastClock>(begin);
  const auto runLoop = std::make_shared<FastRunLoop>();
  FastApplication machine(home / ScheduleDocuments::kFirst, clock, *runLoop,
                          {Task("Day").daily("09:30"), Task("Never").daily("09:30").off(),
                           Task("Hours").hourly("2024-03-05 00:30")});
  const auto systemLog = std::make_shared<RecordingSystemLog>();
  Application::Environment environment;
  environment.systemLog = systemLog;
  environment.quit = [] {};
  environment.scheduler.clock = clock;
  environment.scheduler.runLoop = runLoop;
  environment.scheduler.files = std::make_shared<PosixFiles>();
  environment.scheduler.locale = DateLocale::fromName("C");
  environment.scheduler.homeFolder = home.path().string();
  environment.scheduler.traceFile = home / "trace.txt";
  environment.system = {.clock = clock,
                        .runLoop = runLoop,
                        .programFolder = "/p",
                        .homeFolder = home.path().string(),
                        .stateFolder = home / "state",
                        .historyFile = home / "state/history",
                        .settingsFolder = home / "settings",
                        .launcher = nullptr,
                        .notifier = nullptr};
  environment.statusItem = {.statusBar = std::make_shared<RecordingStatusBar>(),
                            .runLoop = runLoop};
  Application application(std::move(environment), Bundle{"/bundle", {}, {}});
  QJSEngine& engine = application.scripts().engine();
  QJSEngine::setObjectOwnership(&machine, QJSEngine::CppOwnership);
  engine.globalObject().setProperty("machine", engine.newQObject(&machine));
  application.scripts().run({"/bundle/machine.js", kMachine});
  application.scripts().run({"/bundle/host.js", defaultHost()});
  application.finishLaunching();

  constexpr Seconds kHour{3600};
  ASSERT_TRUE(runUntil([&] { return clock->now() >= begin + kHour; }, 120'000));
  const long descriptors = openDescriptors();
  ASSERT_TRUE(runUntil([&] { return clock->now() >= begin + 24 * kHour; }, 120'000));

  EXPECT_EQ(machine.runs["Day"], 1);
  EXPECT_EQ(machine.runs["Hours"], 12);  // 00:30, 02:30 … 22:30
  EXPECT_EQ(machine.runs.size(), 2U);
  EXPECT_EQ(machine.collisions, 0);
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_THAT(systemLog->lines, IsEmpty());
  application.willTerminate();
  application.scripts().engine().evaluate(
      "var file = DDLog.allLoggers()[0]; DDLog.removeAllLoggers(); file.maximumFileSize()");
}

}  // namespace
}  // namespace kv::test

#include "SoakTest.moc"
