/// Logs numbered lines into a folder, and ends or suffers as the scene that is asked for says.
///
///   logging_probe <folder> <scene>
///
/// The lines go to <folder>/logs, or what the scene makes of that; <folder>/progress tells which
/// calls have returned. A program that hangs is ended by SIGALRM.

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "tests/support/Fakes.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/Gate.h"
#include "tests/support/NumberedLines.h"
#include "tests/support/NumberingManager.h"
#include "tests/support/RecordingLogger.h"
#include "tests/support/RecordingSystemLog.h"
#include "tests/support/TemporaryFolder.h"

#if defined(__SANITIZE_THREAD__)
// Children of forks log here too, and there are many runs.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "die_after_fork=0:atexit_sleep_ms=50";
}
#elif defined(__SANITIZE_ADDRESS__)
// What the parent's threads hold looks lost in the child of a fork.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "detect_leaks=0";
}
#endif

namespace kv::test {
namespace {

constexpr unsigned kMostSeconds = 60;
constexpr std::uint64_t kLines = kIsSanitized ? 1000 : 10'000;

std::string& folder() {
  static auto& path = *new std::string;
  return path;
}
constinit Progress* gProgress = nullptr;
constinit DDFileLogger* gLogger = nullptr;
constinit NumberingManager* gManager = nullptr;

// --- Logging ---

void say(char producer, std::uint64_t lines = kLines) {
  for (; lines > 0; --lines) sayNext(*gProgress, producer);
}

[[noreturn]] void sayForever(char producer) {
  for (;;) sayNext(*gProgress, producer);
}

void letTwoSayForever() {
  std::thread(sayForever, 'a').detach();
  std::thread(sayForever, 'b').detach();
}

std::shared_ptr<DDFileLogger> makeLogger(DDFileLogger::Environment environment = {},
                                         DDLogFileManagerDefault::Environment managers = {}) {
  environment.systemLog = std::make_shared<RecordingSystemLog>();
  const auto manager = std::make_shared<NumberingManager>(folder() + "/logs", std::move(managers));
  const auto logger = std::make_shared<DDFileLogger>(manager, std::move(environment));
  logger->setLogFormatter(nullptr);
  logger->setMaximumFileSize(0);
  gManager = manager.get();
  gLogger = logger.get();
  return logger;
}

DDFileLogger& openLog(DDFileLogger::Environment environment = {},
                      DDLogFileManagerDefault::Environment managers = {}) {
  DDLog::addLogger(makeLogger(std::move(environment), std::move(managers)));
  return *gLogger;
}

void addHook(std::function<void(const DDLogMessage&)> onMessage) {
  DDLog::addLogger(std::make_shared<RecordingLogger>(std::move(onMessage)));
}

constexpr int kLaterCalls = 500;

/// Calls `action` when it is itself called for that time.
std::function<void(const DDLogMessage&)> later(std::function<void()> action,
                                               int calls = kLaterCalls) {
  return [calls, action = std::move(action)](const DDLogMessage&) mutable {
    if (--calls == 0) action();
  };
}

class Formatter final : public DDLogFormatter {
 public:
  explicit Formatter(std::function<void(const DDLogMessage&)> onMessage)
      : onMessage_(std::move(onMessage)) {}
  LogText formatLogMessage(const DDLogMessage& message) override {
    onMessage_(message);
    return message.message();
  }

 private:
  std::function<void(const DDLogMessage&)> onMessage_;
};

/// A logger that logs a line of its own because of each of another producer's.
void addEcho(char of, char as) {
  addHook([of, as](const DDLogMessage& message) {
    if (message.text().starts_with(of)) sayNext(*gProgress, as);
  });
}

void exitNow() {
  std::exit(0);
}

void settleLosses() {
  DDLog::flushLog();
  gProgress->lostLines = gLogger->lostLines();
  gProgress->rolls = gManager->rolled.size();
}

// --- Ends of a program ---

struct LastWords {
  char producer;
  ~LastWords() { say(producer, 300); }
};

void returnsFromMain() {
  openLog();
  letTwoSayForever();
  say('c');
}

/// Lines so long that nearly always one is being written.
void returnsAmongLongLines() {
  openLog();
  constexpr std::size_t kLong = 1 << 20;
  std::thread([text = std::string(kLong, 'x')] {
    for (;; ++gProgress->of('a')) LOG_INFO("{}", text);
  }).detach();
  constexpr std::uint64_t kSome = 20;
  while (gProgress->of('a') < kSome) std::this_thread::yield();
}

void exitInAThread() {
  openLog();
  letTwoSayForever();
  std::thread([] {
    say('c');
    exitNow();
  }).join();
}

void exitInALogger() {
  static const LastWords last{'d'};
  openLog();
  addEcho('d', 'e');
  addHook(later(exitNow));
  letTwoSayForever();
  sayForever('c');
}

/// The message before, the queue of the logger that ends the process was with its own thread.
void exitInALoggerWhoseQueueWasTaken() {
  openLog();
  const auto other = std::make_shared<RecordingLogger>(later(exitNow));
  addHook(later(
      [other] {
        Event isTaken;
        other->loggerQueue()->async([&isTaken] { isTaken.happen(); });
        isTaken.await();
      },
      kLaterCalls - 1));
  DDLog::addLogger(other);
  letTwoSayForever();
  sayForever('c');
}

void exitInAFormatter() {
  openLog();
  const auto other = std::make_shared<RecordingLogger>();
  other->setLogFormatter(std::make_shared<Formatter>(later(exitNow)));
  DDLog::addLogger(other);
  letTwoSayForever();
  sayForever('c');
}

void exitInTheFilesFormatter() {
  openLog().setLogFormatter(std::make_shared<Formatter>(later(exitNow)));
  letTwoSayForever();
  sayForever('c');
}

void exitOnALoggersQueue() {
  static const LastWords last{'d'};
  openLog();
  addEcho('d', 'e');
  const auto other = std::make_shared<RecordingLogger>();
  DDLog::addLogger(other);
  std::thread(sayForever, 'a').detach();
  say('b');
  other->loggerQueue()->async(exitNow);
  sayForever('c');
}

void exitOnTheFilesQueue() {
  openLog();
  std::thread(sayForever, 'a').detach();
  say('b');
  gLogger->loggerQueue()->async(exitNow);
  sayForever('c');
}

void exitOnTheQueueOfALoggerToCome() {
  DDLog::loggingQueue()->async([logger = makeLogger()] {
    logger->loggerQueue()->async(exitNow);
    while (!DDLog::loggingQueue()->state().hasPending()) std::this_thread::yield();
    DDLog::addLogger(logger);
    say('a', 100);
  });
  for (;;) ::pause();
}

void exitOnTheGlobalQueue() {
  static const LastWords last{'d'};
  openLog();
  std::thread(sayForever, 'a').detach();
  say('b');
  DDLog::loggingQueue()->async(exitNow);
  sayForever('c');
}

/// A logger may log, though not wait for it, also while the process ends. There are places for all.
void exitWithALoggerThatLogs() {
  openLog();
  addEcho('a', 'z');
  say('a', 400);
}

void staticDestructors() {
  static const LastWords first{'a'};
  openLog();
  addEcho('a', 'd');
  static const LastWords second{'b'};
  say('c');
}

void threadLocalDestructors() {
  openLog();
  std::thread([] {
    thread_local const LastWords early{'a'};
    say('b');
    thread_local const LastWords late{'c'};
  }).join();
  thread_local const LastWords early{'d'};
  say('e');
  thread_local const LastWords late{'f'};
}

// --- Signals ---

void awaitTermination() {
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  openLog();
  letTwoSayForever();
  int number = 0;
  ::sigwait(&set, &number);
  exitNow();
}

constinit volatile sig_atomic_t gIsTerminated = 0;

void lookForTermination() {
  ::signal(SIGTERM, [](int) { gIsTerminated = 1; });
  openLog();
  std::thread(sayForever, 'a').detach();
  while (gIsTerminated == 0) say('b', 1);
}

void sayAFixedNumber() {
  openLog();
  std::thread other([] { say('a', 5 * kLines); });
  say('b', 5 * kLines);
  other.join();
}

void sayUntilKilled() {
  openLog();
  letTwoSayForever();
  sayForever('c');
}

void abortBehindABacklog() {
  openLog();
  say('a', 10 * kLines);
  std::abort();
}

// --- Forks ---

/// Forks while three threads log, and again when the child has come to a good end.
void forkRepeatedly(int times, void (*child)(int)) {
  openLog();
  DDLog::flushLog();
  std::vector<std::thread> threads;
  for (const char producer : {'a', 'b', 'c'}) threads.emplace_back([producer] { say(producer); });
  for (int number = 0; number < times; ++number) {
    while (gProgress->sum() < kLines / 10) std::this_thread::yield();
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::alarm(kMostSeconds);
      child(number);
    }
    int status = -1;
    if (::waitpid(pid, &status, 0) != pid || status != 0) std::abort();
  }
  for (auto& thread : threads) thread.join();
}

/// The logger was added by a call that has returned, whatever else has happened of that.
void forkAtOnce() {
  openLog();
  const pid_t pid = ::fork();
  say(pid == 0 ? 'a' : 'b');
  int status = 0;
  if (pid != 0 && (::waitpid(pid, &status, 0) != pid || status != 0)) std::abort();
}

void forkAndLog() {
  forkRepeatedly(3, [](int number) {
    const char producer = static_cast<char>('d' + 2 * number);
    std::thread other([=] { say(static_cast<char>(producer + 1), kLines / 3); });
    say(producer, kLines / 3);
    other.join();
    exitNow();
  });
}

/// As programs are started that nobody is to wait for: by a child that forks once more. It has
/// nothing to log and needs no thread for that.
void forkAndLeave() {
  forkRepeatedly(20, [](int number) {
    const pid_t pid = ::fork();
    if (pid == 0) ::_exit(0);
    ::waitpid(pid, nullptr, 0);
    const std::filesystem::directory_iterator threads("/proc/self/task");
    if (std::distance(begin(threads), end(threads)) != 1) std::abort();
    if (number % 2 == 0) ::execl("/bin/true", "true", nullptr);
    ::_exit(number % 2 == 0 ? 1 : 0);
  });
}

void forkInALogger() {
  openLog();
  addHook(later([] {
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::alarm(kMostSeconds);
      LOG_INFO("by the child of a logger");
      LOG_ERROR("by the child of a logger");
      exitNow();
    }
    int status = -1;
    if (::waitpid(pid, &status, 0) != pid || status != 0) std::abort();
  }));
  std::thread other([] { say('a'); });
  say('b');
  other.join();
}

// --- Troubles with files ---

void setSizeLimit(rlim_t bytes) {
  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) std::abort();
}

void fullDisk() {
  ::signal(SIGXFSZ, SIG_IGN);
  openLog();
  for (const bool groups : {true, false}) {
    gLogger->setGroupsBacklogWrites(groups);
    say('a', 1000);
    DDLog::flushLog();
    setSizeLimit(std::filesystem::file_size(folder() + "/logs/Sample 1.log") + 10'001);
    say('a', 1000);
    DDLog::flushLog();
    setSizeLimit(RLIM_INFINITY);
    say('a', 1000);
  }
  settleLosses();
}

void readOnlyFile() {
  const auto next = folder() + "/logs/Sample 2.log";
  constexpr uid_t kNobody = 65534;
  if (::geteuid() == 0) {  // who may write everything anyway
    if (::chown(folder().c_str(), kNobody, kNobody) != 0 || ::setuid(kNobody) != 0) std::abort();
  }
  openLog();
  say('a', 1000);
  DDLog::flushLog();
  writeFile(next, "");
  ::chmod(next.c_str(), 0444);
  gLogger->rollLogFile();
  say('a', 500);
  DDLog::flushLog();
  ::chmod(next.c_str(), 0644);
  say('a', 1000);
  settleLosses();
}

void folderRemoved() {
  const auto logs = folder() + "/logs";
  std::filesystem::create_directory(folder() + "/aside");
  openLog();
  say('a', 1000);
  DDLog::flushLog();
  // What was written keeps a name, so that it can be counted.
  std::filesystem::create_hard_link(logs + "/Sample 1.log", folder() + "/aside/Sample 1.log");
  std::filesystem::remove_all(logs);
  for (bool isRolled = false; !isRolled; std::this_thread::yield()) {
    gLogger->loggerQueue()->sync([&] { isRolled = !gManager->rolled.empty(); });
  }
  say('a', 1000);
  settleLosses();
}

void folderReplaced() {
  const auto logs = folder() + "/logs";
  openLog();
  say('a', 1000);
  DDLog::flushLog();
  std::filesystem::rename(logs, folder() + "/aside");
  writeFile(logs, "no folder");
  say('a', 1000);  // goes to the open file, wherever that is
  gLogger->rollLogFile();
  say('a', 500);
  DDLog::flushLog();
  std::filesystem::remove(logs);
  say('a', 1000);
  settleLosses();
}

void faultyDevice(bool groups) {
  const auto files = std::make_shared<FaultyFiles>();
  files->failAfter = [](int write) -> std::optional<std::size_t> {
    if (write % 7 != 0) return std::nullopt;
    return static_cast<std::size_t>(write % 40);
  };
  DDFileLogger::Environment environment;
  environment.files = files;
  openLog(environment).setGroupsBacklogWrites(groups);
  std::thread other([] { say('a', 5000); });
  say('b', 5000);
  other.join();
  DDLog::flushLog();
  gLogger->loggerQueue()->sync([&] { files->failAfter = [](int) { return std::nullopt; }; });
  for (const char producer : {'a', 'b'}) say(producer, 1);
  settleLosses();
}

/// Files that are as old as the test's clock says.
class DatedFiles final : public ForwardingFiles {
 public:
  explicit DatedFiles(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}
  bool createEmpty(Path path) override {
    created_[path] = clock_->now();
    return real_.createEmpty(path);
  }
  std::optional<FileAttributes> attributes(Path path) override {
    auto attributes = real_.attributes(path);
    if (attributes) attributes->creationDate = created_.at(path);
    return attributes;
  }

 private:
  const std::shared_ptr<Clock> clock_;
  std::map<std::string, Date> created_;
};

void jumpingClock() {
  const auto clock = std::make_shared<FakeClock>();
  clock->present = systemClock()->now();
  const auto files = std::make_shared<DatedFiles>(clock);
  DDFileLogger::Environment environment;
  environment.clock = clock;
  environment.files = files;
  DDLogFileManagerDefault::Environment managers;
  managers.clock = clock;
  managers.files = files;
  openLog(environment, managers);
  constexpr double kDay = 24 * 60 * 60;
  gLogger->setRollingFrequency(kDay);
  std::thread other([] { say('a'); });
  // The first file is due at the first leap; those after it are due when a whole day has passed.
  for (const double leap : {kDay, -kDay, kDay, -2 * kDay, 2 * kDay, kDay, -kDay}) {
    say('b', 300);
    DDLog::flushLog();
    gLogger->loggerQueue()->sync([&] {
      clock->present = clock->present + Seconds(leap);
      gLogger->maybeRollLogFileDueToAge();
    });
  }
  other.join();
  settleLosses();
}

struct Scene {
  std::string_view name;
  void (*play)();
};
constexpr std::array kScenes{
    Scene{"ReturnsFromMain", returnsFromMain},
    Scene{"ReturnsAmongLongLines", returnsAmongLongLines},
    Scene{"ExitInAThread", exitInAThread},
    Scene{"ExitInALogger", exitInALogger},
    Scene{"ExitInALoggerWhoseQueueWasTaken", exitInALoggerWhoseQueueWasTaken},
    Scene{"ExitInAFormatter", exitInAFormatter},
    Scene{"ExitInTheFilesFormatter", exitInTheFilesFormatter},
    Scene{"ExitOnALoggersQueue", exitOnALoggersQueue},
    Scene{"ExitOnTheFilesQueue", exitOnTheFilesQueue},
    Scene{"ExitOnTheQueueOfALoggerToCome", exitOnTheQueueOfALoggerToCome},
    Scene{"ExitOnTheGlobalQueue", exitOnTheGlobalQueue},
    Scene{"ExitWithALoggerThatLogs", exitWithALoggerThatLogs},
    Scene{"StaticDestructors", staticDestructors},
    Scene{"ThreadLocalDestructors", threadLocalDestructors},
    Scene{"AwaitTermination", awaitTermination},
    Scene{"LookForTermination", lookForTermination},
    Scene{"StoppedAndContinued", sayAFixedNumber},
    Scene{"Killed", sayUntilKilled},
    Scene{"Aborted", abortBehindABacklog},
    Scene{"ForkAtOnce", forkAtOnce},
    Scene{"ForkAndLog", forkAndLog},
    Scene{"ForkAndLeave", forkAndLeave},
    Scene{"ForkInALogger", forkInALogger},
    Scene{"FullDisk", fullDisk},
    Scene{"ReadOnlyFile", readOnlyFile},
    Scene{"FolderRemoved", folderRemoved},
    Scene{"FolderReplaced", folderReplaced},
    Scene{"FaultyDeviceGrouped", [] { faultyDevice(true); }},
    Scene{"FaultyDeviceLineByLine", [] { faultyDevice(false); }},
    Scene{"JumpingClock", jumpingClock},
};

}  // namespace
}  // namespace kv::test

int main(int count, char** arguments) {
  using namespace kv::test;
  constexpr int kUnknown = 2;
  if (count != 3) return kUnknown;
  ::alarm(kMostSeconds);
  folder() = arguments[1];
  gProgress = &Progress::inFile(folder() + "/progress");
  for (const Scene& scene : kScenes) {
    if (scene.name != arguments[2]) continue;
    scene.play();
    return 0;
  }
  return kUnknown;
}
