#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include "tests/support/NumberedLines.h"
#include "tests/support/TemporaryFolder.h"

namespace kv::test {
namespace {

/// The dispatcher's bound: so many messages are accepted and not written at most.
constexpr std::uint64_t kPlaces = 1000;

/// A run of the probe in a folder of its own.
class Probe {
 public:
  explicit Probe(const char* scene) : progress_(Progress::inFile(folder_ / "progress")) {
    std::string program = KV_LOGGING_PROBE;
    std::string folder = folder_.path();
    std::string name = scene;
    char* arguments[] = {program.data(), folder.data(), name.data(), nullptr};
    if (::posix_spawn(&process_, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
      throw std::runtime_error("cannot start " + program);
    }
  }
  ~Probe() {
    if (!hasEnded_) send(SIGKILL);
    await();
  }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

  void send(int signal) const { ::kill(process_, signal); }
  /// Returns when so many calls have returned, or when the program has ended before.
  void awaitCalls(std::uint64_t calls) {
    while (progress_.sum() < calls && !hasEnded_) {
      hasEnded_ = ::waitpid(process_, &status_, WNOHANG) == process_;
      std::this_thread::yield();
    }
  }
  void awaitStop() {
    int status = 0;
    ASSERT_EQ(::waitpid(process_, &status, WUNTRACED), process_);
    ASSERT_TRUE(WIFSTOPPED(status));
  }
  /// The status of the ended program, as waitpid() gives it.
  int await() {
    if (!hasEnded_) hasEnded_ = ::waitpid(process_, &status_, 0) == process_;
    return status_;
  }

  Progress& progress() { return progress_; }
  /// All files, the oldest first.
  std::vector<std::filesystem::path> files() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
      if (entry.path().extension() == ".log") files.push_back(entry.path());
    }
    const auto number = [](const auto& path) { return std::stoi(path.stem().string().substr(7)); };
    std::sort(files.begin(), files.end(),
              [&](const auto& one, const auto& other) { return number(one) < number(other); });
    return files;
  }

 private:
  TemporaryFolder folder_;
  Progress& progress_;
  pid_t process_ = -1;
  int status_ = -1;
  bool hasEnded_ = false;
};

/// Which lines may be missing from the files.
enum class Missing {
  kNone,      // every call that returned has left its line
  kTail,      // the last ones, which were not written yet: the rest is whole
  kLongTail,  // as many as others still log while the process ends
  kCounted,   // those that the logger says it lost; afterwards it has recovered
};

struct Case {
  const char* scene;
  const char* producers;
  Missing missing = Missing::kNone;
  int endingSignal = 0;
  int times = 1;
  std::function<void(Probe&)> meanwhile = nullptr;
  std::uint64_t rolls = 0;
  bool childrenStartThreads = false;
  /// Other threads may be in the middle of an allocation.
  bool forksAmongThreads = false;
};

void PrintTo(const Case& row, std::ostream* out) {
  *out << row.scene;
}

class LastLines : public testing::TestWithParam<Case> {};

std::uint64_t someCalls() {
  static std::mt19937 random{std::random_device{}()};
  constexpr std::uint64_t kMostCalls = kIsSanitized ? 5'000 : 100'000;
  // Of so many some are delivered for certain: no more than kPlaces wait.
  return std::uniform_int_distribution<std::uint64_t>(2 * kPlaces, kMostCalls)(random);
}

void terminate(Probe& probe) {
  probe.awaitCalls(someCalls());
  probe.send(SIGTERM);
}
void kill(Probe& probe) {
  probe.awaitCalls(someCalls());
  probe.send(SIGKILL);
}
void stopAndContinue(Probe& probe) {
  for (const std::uint64_t calls : {100U, 1000U, 5000U}) {
    probe.awaitCalls(calls);
    probe.send(SIGSTOP);
    probe.awaitStop();
    probe.send(SIGCONT);
  }
}

constexpr int kOften = kIsSanitized ? 3 : 8;

const Case kCases[] = {
    {"ReturnsFromMain", "abc", Missing::kNone, 0, kOften},
    {"ExitInAThread", "abc", Missing::kNone, 0, kOften},
    {"ExitInALogger", "abcde", Missing::kNone, 0, kOften},
    {"ExitInALoggerWhoseQueueWasTaken", "abc", Missing::kNone, 0, kOften},
    {"ExitInAFormatter", "abc", Missing::kNone, 0, kOften},
    // The file logger is in the middle of a line that will never come: it gets no others.
    {"ExitInTheFilesFormatter", "abc", Missing::kLongTail, 0, kOften},
    {"ExitOnALoggersQueue", "abcde", Missing::kNone, 0, kOften},
    {"ExitOnTheFilesQueue", "abc", Missing::kNone, 0, kOften},
    {"ExitOnTheQueueOfALoggerToCome", "a"},
    {"ExitOnTheGlobalQueue", "abcd", Missing::kNone, 0, kOften},
    {"ExitWithALoggerThatLogs", "az", Missing::kNone, 0, kOften},
    {"StaticDestructors", "abcd", Missing::kNone, 0, kOften},
    {"ThreadLocalDestructors", "abcdef"},
    {"AwaitTermination", "ab", Missing::kNone, 0, kOften, terminate},
    {"LookForTermination", "ab", Missing::kNone, 0, kOften, terminate},
    {"StoppedAndContinued", "ab", Missing::kNone, 0, 1, stopAndContinue},
    {"Killed", "abc", Missing::kTail, SIGKILL, kOften, kill},
    {"Aborted", "a", Missing::kTail, SIGABRT, kOften},
    {"ForkAtOnce", "ab", Missing::kNone, 0, kOften, nullptr, 0, true},
    {"ForkAndLog", "abcdefghi", Missing::kNone, 0, kOften, nullptr, 0, true, true},
    {"ForkAndLeave", "abc", Missing::kNone, 0, 1},
    {"ForkInALogger", "ab", Missing::kNone, 0, kOften, nullptr, 0, false, true},
    {"FullDisk", "a", Missing::kCounted},
    {"ReadOnlyFile", "a", Missing::kCounted, 0, 1, nullptr, 1},
    {"FolderRemoved", "a", Missing::kNone, 0, 1, nullptr, 1},
    {"FolderReplaced", "a", Missing::kCounted, 0, 1, nullptr, 1},
    {"FaultyDeviceGrouped", "ab", Missing::kCounted},
    {"FaultyDeviceLineByLine", "ab", Missing::kCounted},
    {"JumpingClock", "ab", Missing::kNone, 0, 1, nullptr, 2},
};

INSTANTIATE_TEST_SUITE_P(Scenes, LastLines, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.scene); });

/// What is missing of the producer's lines, when only their end may be.
std::uint64_t missingAtTheEnd(const NumberedLines& lines, Progress& progress, char producer) {
  const std::uint64_t returned = progress.of(producer);
  EXPECT_EQ(lines.gaps(producer), 0u) << producer;
  EXPECT_LE(lines.count(producer), returned + 1) << "a line that nobody logged, by " << producer;
  return returned - std::min<std::uint64_t>(lines.count(producer), returned);
}

void check(const Case& row, Progress& progress, const NumberedLines& lines) {
  EXPECT_EQ(lines.fault(), "");
  std::uint64_t known = 0;
  std::uint64_t missing = 0;
  std::uint64_t returned = 0;
  for (const char producer : std::string_view(row.producers)) {
    known += lines.count(producer);
    returned += progress.of(producer);
    if (row.missing == Missing::kCounted) {
      EXPECT_EQ(lines.next(producer), progress.of(producer)) << "not recovered, " << producer;
    } else {
      missing += missingAtTheEnd(lines, progress, producer);
    }
  }
  EXPECT_GT(known, 0u);
  EXPECT_EQ(known, lines.sum()) << "a stranger's line";
  EXPECT_EQ(progress.rolls, row.rolls);
  const bool hasTail = row.missing == Missing::kTail || row.missing == Missing::kLongTail;
  EXPECT_TRUE(hasTail || lines.unfinished().empty()) << lines.unfinished();
  switch (row.missing) {
    case Missing::kNone:
      EXPECT_EQ(missing, 0u);
      EXPECT_EQ(progress.lostLines, 0u);
      break;
    case Missing::kTail:
      EXPECT_LE(missing, kPlaces);
      testing::Test::RecordProperty("missing", std::to_string(missing));
      break;
    case Missing::kLongTail:
      break;
    case Missing::kCounted:
      EXPECT_GT(progress.lostLines, 0u) << "there was no trouble";
      EXPECT_EQ(returned - known, progress.lostLines);
      break;
  }
}

TEST_P(LastLines, AreWhereTheyBelong) {
  const Case& row = GetParam();
  if (kWatchesThreads && row.childrenStartThreads) {
    GTEST_SKIP() << "the sanitizer takes no new threads in the child of a threaded program";
  }
  if (kWatchesMemory && row.forksAmongThreads) {
    GTEST_SKIP() << "the sanitizer's allocator stays locked in the child of a threaded program";
  }
  for (int run = 0; run < row.times && !HasFailure(); ++run) {
    Probe probe(row.scene);
    if (row.meanwhile) row.meanwhile(probe);
    const int status = probe.await();
    if (row.endingSignal == 0) {
      EXPECT_EQ(status, 0) << "run " << run;
    } else {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == row.endingSignal) << status;
    }
    NumberedLines lines;
    for (const auto& file : probe.files()) lines.read(file);
    check(row, probe.progress(), lines);
  }
}

/// Threads that still log are cut off by the system wherever they are.
TEST(LastLine, IsWhole) {
  for (int run = 0; run < kOften && !HasFailure(); ++run) {
    Probe probe("ReturnsAmongLongLines");
    EXPECT_EQ(probe.await(), 0);
    const auto files = probe.files();
    ASSERT_EQ(files.size(), 1u);
    std::ifstream file(files.front(), std::ios::binary);
    file.seekg(-1, std::ios::end);
    EXPECT_EQ(file.get(), '\n') << "run " << run;
  }
}

}  // namespace
}  // namespace kv::test
