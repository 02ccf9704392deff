#include "app/Rehearsal.h"

#include <utility>

#include "app/Application.h"
#include "app/ReadOnlyFiles.h"
#include "app/StandingScheduler.h"
#include "platform/BackgroundQueue.h"
#include "platform/HiddenStatusBar.h"
#include "scheduler/FieldReaders.h"
#include "scheduler/ScheduleDocuments.h"
#include "scheduler/TaskRecord.h"

namespace kv {
namespace {

/// Starts nothing.
class NoLauncher final : public ProcessLauncher {
 public:
  void start(const std::string&, const std::optional<std::vector<std::string>>&) override {}
};

/// Keeps the lines.
class Remarks final : public SystemLog {
 public:
  void write(std::string_view text) override { lines.emplace_back(text); }
  std::vector<std::string> lines;
};

/// Stands between the scheduler and the host, and writes down what is asked and answered.
class ListeningHost final : public Host {
 public:
  /// Hears the true answer on a destination, and yields the one for the scheduler.
  using OnDestination = std::function<bool(bool isThere)>;

  /// `isListKnown` while the host need not be told of the same list once more.
  ListeningHost(std::shared_ptr<Host> host, std::vector<HostAnswer>& answers,
                OnDestination onDestination, const bool& isListKnown)
      : host_(std::move(host)),
        answers_(answers),
        onDestination_(std::move(onDestination)),
        isListKnown_(isListKnown) {}

  void reloadMenuNow(const TaskList& list) override {
    if (!isListKnown_) host_->reloadMenuNow(list);
  }

  std::optional<PropertyList> checkRunningBackupStatus() override {
    return noted(HostAnswer::Question::kBackupRunning, host_->checkRunningBackupStatus());
  }
  std::optional<PropertyList> checkBackupStatus() override {
    return noted(HostAnswer::Question::kApplicationOpen, host_->checkBackupStatus());
  }
  bool checkIfDiskExists_fromSchedule(const PropertyList* path, int fromSchedule) override {
    const bool isThere = host_->checkIfDiskExists_fromSchedule(path, fromSchedule);
    answers_.push_back({.question = HostAnswer::Question::kDestinationPresent,
                        .subject = path == nullptr ? std::nullopt : std::optional(*path),
                        .answer = PropertyList(isThere)});
    return onDestination_(isThere);
  }
  void backupNow(const PropertyList* set) override { host_->backupNow(set); }
  void backupNowViaScript(const PropertyList* set) override { host_->backupNowViaScript(set); }

 private:
  std::optional<PropertyList> noted(HostAnswer::Question question,
                                    std::optional<PropertyList> answer) {
    answers_.push_back({.question = question, .answer = answer});
    return answer;
  }

  const std::shared_ptr<Host> host_;
  std::vector<HostAnswer>& answers_;
  const OnDestination onDestination_;
  const bool& isListKnown_;
};

/// Writes down the judgements by their places.
class Judgements final : public TickObserver {
 public:
  void tickBegan(Date now, const TaskList& list) override {
    at = now;
    first_ = list.data();
    made.clear();
    present = list;
  }
  void judged(const PropertyList& entry, Outcome outcome) override {
    made.push_back({static_cast<std::size_t>(&entry - first_), outcome});
  }
  void tickEnded() override {}

  Date at;
  std::vector<Judgement> made;
  TaskList present;

 private:
  const PropertyList* first_ = nullptr;
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

bool isYes(const std::optional<PropertyList>& answer) {
  return answer && integerValue(&*answer) != 0;
}

/// The parts of one rehearsal.
class Stage {
 public:
  explicit Stage(const Rehearsal::Environment& environment)
      : files_(std::make_shared<ReadOnlyFiles>(environment.files)),
        application_(applicationEnvironment(environment),
                     Bundle::load(*files_, environment.bundle,
                                  environment.isInstalledBundle ? Bundle::Origin::kInstalled
                                                                : Bundle::Origin::kElsewhere)) {
    // Scripts ask the engine for the time, which knows the system's only.
    const double milliseconds = environment.clock->now().unixSeconds() * 1000;
    application_.scripts()
        .engine()
        .evaluate("(function (now) { Date.now = function () { return now; }; })")
        .call({milliseconds});
  }

  Rehearsal::Result play() {
    application_.loadScripts();
    application_.finishLaunching();
    isListKnown_ = true;  // by the start of the scheduler
    const auto scheduler = application_.scheduler();
    Rehearsal::Result result;
    if (scheduler != nullptr) {
      result.hasScheduler = true;
      survey(*scheduler, result);
      tick(*scheduler, result);
    }
    result.remarks = remarks_->lines;
    return result;
  }

 private:
  std::shared_ptr<const TaskList> listOf(const Rehearsal::Environment& environment) {
    if (environment.list) return environment.list;
    return std::make_shared<TaskList>(ScheduleDocuments::load(*files_, environment.homeFolder));
  }

  Application::Environment applicationEnvironment(const Rehearsal::Environment& environment) {
    const auto runLoop = std::make_shared<StandingRunLoop>();
    const auto launcher = std::make_shared<NoLauncher>();
    Application::Environment made;
    made.systemLog = remarks_;
    made.rehearsalFiles = files_;
    made.quit = [] {};
    made.wrapHost = [this](std::shared_ptr<Host> host) -> std::shared_ptr<Host> {
      if (host == nullptr) return nullptr;
      const auto onDestination = [this](bool isThere) {
        if (isSurvey_) noteForJudged(isThere);
        return isThere && !isSurvey_;
      };
      return std::make_shared<ListeningHost>(std::move(host), answers_, onDestination,
                                             isListKnown_);
    };
    made.scheduler.clock = environment.clock;
    made.scheduler.runLoop = runLoop;
    made.scheduler.files = files_;
    made.scheduler.locale = environment.locale;
    made.scheduler.homeFolder = environment.homeFolder;
    made.scheduler.observer = judgements_;
    // One list for the start and both ticks: a rehearsal shows one moment.
    made.scheduler.readList = [list = listOf(environment)] { return list; };
    made.launcher = {.launcher = launcher,
                     .queue = std::make_shared<BackgroundQueue>(),
                     .systemLog = remarks_,
                     .clock = environment.clock};
    made.statusItem = {.statusBar = std::make_shared<HiddenStatusBar>(), .runLoop = runLoop};
    made.system = {.clock = environment.clock,
                   .runLoop = runLoop,
                   .programFolder = environment.programFolder,
                   .homeFolder = environment.homeFolder,
                   .stateFolder = environment.stateFolder,
                   .historyFile = environment.historyFile,
                   .settingsFolder = environment.settingsFolder,
                   .launcher = nullptr,
                   .notifier = nullptr,
                   .writesFiles = false};
    return made;
  }

  /// A first tick in which no destination is there, as far as the scheduler is told: nothing is
  /// launched, so that it asks for every set.
  void survey(KVTimer& scheduler, Rehearsal::Result& result) {
    isSurvey_ = true;
    scheduler.ScheduleTimer();
    isSurvey_ = false;
    mayStart_.resize(judgements_->present.size());
    for (const auto& answer : mayStart_) result.mayStart.push_back(answer.value_or(false));
    if (const auto host = application_.delegate()) {
      result.isBackupRunning = isYes(host->checkRunningBackupStatus());
      result.isApplicationOpen = isYes(host->checkBackupStatus());
    }
    result.hostState = application_.describeState();
  }

  /// The main pass asks for every set before it judges it; later questions about it are the same.
  void noteForJudged(bool isThere) {
    const auto scheduler = application_.scheduler();
    if (scheduler == nullptr || !scheduler->indexNum()) return;
    const std::size_t index = std::stoul(*scheduler->indexNum());
    if (mayStart_.size() <= index) mayStart_.resize(index + 1);
    if (!mayStart_[index]) mayStart_[index] = isThere;
  }

  void tick(KVTimer& scheduler, Rehearsal::Result& result) {
    scheduler.dbugMenu = std::make_shared<TracingItem>();
    answers_.clear();
    files_->written.clear();
    scheduler.ScheduleTimer();
    result.at = judgements_->at;
    result.list = judgements_->present;
    result.judgements = judgements_->made;
    result.answers = answers_;
    result.trace = linesOf(files_->written);
  }

  const std::shared_ptr<ReadOnlyFiles> files_;
  const std::shared_ptr<Remarks> remarks_ = std::make_shared<Remarks>();
  const std::shared_ptr<Judgements> judgements_ = std::make_shared<Judgements>();
  std::vector<HostAnswer> answers_;
  std::vector<std::optional<bool>> mayStart_;
  bool isSurvey_ = false;
  bool isListKnown_ = false;
  Application application_;
};

}  // namespace

Rehearsal::Result Rehearsal::run(const Environment& environment) {
  return Stage(environment).play();
}

}  // namespace kv
