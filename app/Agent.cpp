#include "app/Agent.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTimer>
#include <clocale>
#include <cstdlib>
#include <exception>
#include <functional>
#include <utility>

#include "app/StartupError.h"
#include "logging/Log.h"
#include "platform/BackgroundQueue.h"
#include "platform/HiddenStatusBar.h"
#include "platform/PlatformError.h"
#include "platform/ProcessFacts.h"
#include "platform/SessionBusAddress.h"
#include "platform/linux/PosixFiles.h"
#include "platform/linux/ProcessSetup.h"
#include "platform/linux/ResidentPages.h"
#include "platform/linux/SyslogSystemLog.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/UserPaths.h"
#include "platform/qt/DBusNotifier.h"
#include "platform/qt/QtProcessLauncher.h"
#include "platform/qt/TerminationSignals.h"
#include "scheduler/ScheduleDocuments.h"

namespace kv {
namespace {

constexpr char kProgramName[] = "KVScheduler";
constexpr char kDesktopEntry[] = "com.kelvara.KVScheduler";

std::unique_ptr<FileLock> lockAgainstSecondAgent() {
  makeFolders(runtimeFolder());
  const std::string path = agentLockFile();
  if (auto lock = FileLock::tryAcquire(path, std::to_string(getpid()))) return lock;
  throw StartupError("KVScheduler is already running for this user (process " +
                     FileLock::note(path) + ")");
}

/// A build folder links the source tree's bundle to where an installation has its own.
std::string defaultBundle() {
  return programFolder() + "/../share/KVScheduler";
}

bool isSet(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

/// What needs a display; null where there is none.
DesktopModule* loadDesktop(SystemLog& systemLog) {
  if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY")) return nullptr;
  std::string error;
  auto* const module = DesktopModule::load(programFolder() + "/" KV_DESKTOP_MODULE, error);
  if (module == nullptr) systemLog.write("warning: there will be no status icon: " + error);
  return module;
}

/// Makes the application object and leaves the C library's locale as it was: the program's own
/// texts are the same everywhere, and dates take their locale from the environment by themselves.
/// Qt's remarks on a locale that is not UTF-8, and on the style of scripts, are of no use here.
std::unique_ptr<QCoreApplication> makeQtApplication(DesktopModule* desktop, int& argc,
                                                    char** argv) {
  const auto usualHandler =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  auto application = desktop ? desktop->makeApplication(argc, argv)
                             : std::make_unique<QCoreApplication>(argc, argv);
  qInstallMessageHandler(usualHandler);
  QLoggingCategory::setFilterRules("qt.qml.compiler.warning=false");
  std::setlocale(LC_ALL, "C");
  return application;
}

std::shared_ptr<StatusBar> makeStatusBar(DesktopModule* desktop, const std::string& images,
                                         DesktopModule::GreetBus greetBus, SystemLog& systemLog) {
  if (desktop != nullptr) {
    if (auto statusBar = desktop->makeStatusBar(images, std::move(greetBus))) return statusBar;
    systemLog.write(
        "warning: there will be no status icon: the display cannot be used (for Wayland Qt needs "
        "its module qt6-wayland)");
  }
  return std::make_shared<HiddenStatusBar>();
}

/// Whether the process would not end yet if it were up to us.
constinit bool gIsServing = false;

/// Qt ends the process by itself when the display goes, in the middle of the event loop.
void tellOfEarlyEnd() {
  if (gIsServing) LOG_ERROR("the display has gone, and the agent has to end with it");
}

}  // namespace

Agent::Agent(const CommandLine& commandLine, std::shared_ptr<SystemLog> systemLog,
             DesktopModule* desktop)
    : systemLog_(std::move(systemLog)), lock_(lockAgainstSecondAgent()) {
  PosixFiles files;
  Bundle bundle = commandLine.bundle
                      ? Bundle::load(files, *commandLine.bundle, Bundle::Origin::kElsewhere)
                      : Bundle::load(files, defaultBundle(), Bundle::Origin::kInstalled);
  setMainBundleIdentifier(bundle.identifier);  // log files bear its name
  const auto greetBus = [this](std::function<void()> answered) {
    greeting_.emplace(descriptors_, sessionBusAddress(), std::move(answered));
  };
  const auto statusBar = makeStatusBar(desktop, bundle.path + "/Images", greetBus, *systemLog_);
  const std::string path = bundle.path;
  application_.emplace(environment(statusBar), std::move(bundle));
  service_.emplace(serviceEnvironment(path));
}

AgentService::Environment Agent::serviceEnvironment(const std::string& bundle) {
  const std::string home = homeFolder();
  const PropertyList::Array documents = {home + "/" + ScheduleDocuments::kFirst,
                                         home + "/" + ScheduleDocuments::kSecond};
  return {.watcher = std::make_shared<QtDescriptorWatcher>(),
          .systemLog = systemLog_,
          .decisions = decisions_,
          .describeState = [this] { return application_->describeState(); },
          .isTracing = [this] { return application_->isTracing(); },
          .address = sessionBusAddress,
          .facts = {{"Version", KV_VERSION},
                    {"ProcessId", getpid()},
                    {"StartedAt", SystemClock().now()},
                    {"Home", home},
                    {"Documents", documents},
                    {"TracePath", KVTimer::Environment().traceFile},
                    {"Bundle", bundle}}};
}

Application::Environment Agent::environment(std::shared_ptr<StatusBar> statusBar) {
  const auto clock = std::make_shared<SystemClock>();
  // The run loop holds timers, which hold schedulers, which hold the run loop: owning it there
  // would keep all of them alive for ever.
  const std::shared_ptr<RunLoop> runLoop(std::shared_ptr<void>(), &runLoop_);
  Application::Environment environment;
  environment.systemLog = systemLog_;
  environment.releaseMemory = releaseFreeMemory;
  environment.attend = [this] { service_->attend(); };
  environment.menusChanged = [this] {
    if (service_) service_->noteChange();
  };
  environment.quit = [] { QCoreApplication::exit(); };
  environment.scheduler.clock = clock;
  environment.scheduler.runLoop = runLoop;
  environment.scheduler.files = std::make_shared<PosixFiles>();
  environment.scheduler.locale = DateLocale::fromEnvironment();
  environment.scheduler.homeFolder = homeFolder();
  environment.scheduler.observer = decisions_;
  const auto launcher = std::make_shared<QtProcessLauncher>();
  environment.launcher = {.launcher = launcher,
                          .queue = std::make_shared<BackgroundQueue>(),
                          .systemLog = systemLog_,
                          .clock = clock};
  environment.statusItem = {.statusBar = std::move(statusBar), .runLoop = runLoop};
  environment.system = {.clock = clock,
                        .runLoop = runLoop,
                        .programFolder = programFolder(),
                        .homeFolder = homeFolder(),
                        .stateFolder = stateFolder(),
                        .historyFile = historyFile(),
                        .settingsFolder = settingsFolder(),
                        .launcher = launcher,
                        .notifier = std::make_shared<DBusNotifier>(kProgramName, kDesktopEntry)};
  return environment;
}

int Agent::run() {
  const TerminationSignals signals([this] { application_->terminate(0); });
  application_->loadScripts();
  if (!application_->exitStatus()) {
    QTimer::singleShot(0, [this] {
      application_->finishLaunching();
      service_->attend();
      releaseStartupPages();
    });
    std::atexit(tellOfEarlyEnd);
    gIsServing = true;
    QCoreApplication::exec();
    gIsServing = false;
    application_->willTerminate();
  }
  return application_->exitStatus().value_or(0);
}

int Agent::main(int argc, char** argv) {
  prepareProcess();
  int exitStatus = 0;
  const auto commandLine = CommandLine::parse(argc, argv, exitStatus);
  if (!commandLine) return exitStatus;

  int qtArgumentCount = 1;  // Qt would take options of its own from the rest
  const auto systemLog = std::make_shared<SyslogSystemLog>(kProgramName);
  DesktopModule* const desktop = loadDesktop(*systemLog);
  const auto qtApplication = makeQtApplication(desktop, qtArgumentCount, argv);
  try {
    return Agent(*commandLine, systemLog, desktop).run();
  } catch (const std::exception& error) {
    systemLog->write(error.what());
    return 1;
  }
}

}  // namespace kv
