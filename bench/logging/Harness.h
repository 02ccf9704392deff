#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// The text of every line: 80 bytes with a counter of ten digits and a thread's number of two.
#define KV_BENCH_BEFORE "line "
#define KV_BENCH_BETWEEN " of thread "
#define KV_BENCH_AFTER " and text up to the eightieth byte as programs write"

/// What the programs of this folder have in common: the workloads and the measuring. Each program
/// links one library only, so that what it takes is that library's.
///
/// `Library` has these static operations:
///
///   void open(const Setup&)            before the first line
///   void log(int counter, int thread)  one line, as set up; from any thread
///   void logSuppressed(int, int)       one line that its level keeps back
///   void flush()                       asks for what was logged to be written
///   void close()                       returns when all that was logged is in the file
namespace kv::bench {

inline constexpr int kFirstCounter = 1'000'000'000;
inline constexpr int kFirstThread = 10;
static_assert(sizeof(KV_BENCH_BEFORE KV_BENCH_BETWEEN KV_BENCH_AFTER) - 1 + 10 + 2 == 80);

struct Setup {
  std::string folder;
  /// Lines wait for another thread, at most kQueueBound of them.
  bool asynchronous = true;
  bool flushesEachLine = false;
  /// Lines go to standard error too.
  bool terminal = false;
  /// kKeptFiles files of kRollingBytes, the present one included.
  bool rolling = false;
  /// Our library only: its groupsBacklogWrites property.
  bool groupsWrites = true;

  static constexpr int kQueueBound = 1000;
  static constexpr int kKeptFiles = 5;
  static constexpr int kRollingBytes = 1 << 20;
};

using SteadyClock = std::chrono::steady_clock;

inline double milliseconds(SteadyClock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

inline std::uint32_t nanosecondsSince(SteadyClock::time_point begin) {
  return static_cast<std::uint32_t>((SteadyClock::now() - begin) / std::chrono::nanoseconds(1));
}

/// The value that `share` of the times do not exceed. Sorts.
inline std::uint32_t quantile(std::vector<std::uint32_t>& times, double share) {
  std::sort(times.begin(), times.end());
  return times[static_cast<std::size_t>(static_cast<double>(times.size() - 1) * share)];
}

/// What timing a call costs when the call does nothing: contained in every time of a call.
inline std::uint32_t emptyTiming() {
  std::vector<std::uint32_t> times(100'000);
  for (auto& time : times) time = nanosecondsSince(SteadyClock::now());
  return quantile(times, 0.5);
}

/// Milliseconds from the first line until all of them are in the file.
template <class Library>
double throughput(int producers, int lines) {
  std::latch start(producers + 1);
  std::vector<std::thread> threads;
  for (int producer = 0; producer < producers; ++producer) {
    threads.emplace_back([=, &start] {
      start.arrive_and_wait();
      const int end = kFirstCounter + lines / producers;
      for (int counter = kFirstCounter; counter < end; ++counter) {
        Library::log(counter, kFirstThread + producer);
      }
    });
  }
  const auto begin = SteadyClock::now();
  start.arrive_and_wait();
  for (auto& thread : threads) thread.join();
  Library::close();
  return milliseconds(SteadyClock::now() - begin);
}

/// Prints the caller's time for each call, made when `pause` has passed since the one before it.
template <class Library>
void callTimes(int lines, std::chrono::nanoseconds pause) {
  std::vector<std::uint32_t> times(static_cast<std::size_t>(lines));
  auto due = SteadyClock::now();
  for (int line = 0; line < lines; ++line) {
    if (pause.count() != 0) {
      while (SteadyClock::now() < due) {
      }
      due = SteadyClock::now() + pause;
    }
    const auto begin = SteadyClock::now();
    Library::log(kFirstCounter + line, kFirstThread);
    times[static_cast<std::size_t>(line)] = nanosecondsSince(begin);
  }
  Library::close();
  const auto half = quantile(times, 0.5);
  std::printf(R"({"p50": %u, "p99": %u, "p99.9": %u, "empty": %u})"
              "\n",
              half, quantile(times, 0.99), quantile(times, 0.999), emptyTiming());
}

/// Milliseconds for lines that are in the kernel when their calls return. The process ends without
/// closing anything, so that the file shows whether they were.
template <class Library>
double synchronous(int lines) {
  const auto begin = SteadyClock::now();
  for (int line = 0; line < lines; ++line) Library::log(kFirstCounter + line, kFirstThread);
  return milliseconds(SteadyClock::now() - begin);
}

/// Milliseconds for writing the same lines without a library, finished beforehand but for the
/// counter.
inline double bareWrites(const std::string& folder, int lines) {
  std::string line = "2024/05/01 13:07:00:000  " KV_BENCH_BEFORE;
  const std::size_t place = line.size();
  line += "0000000000" KV_BENCH_BETWEEN "10" KV_BENCH_AFTER "\n";
  const int file =
      ::open((folder + "/bare.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const auto begin = SteadyClock::now();
  for (int counter = kFirstCounter; counter < kFirstCounter + lines; ++counter) {
    std::to_chars(line.data() + place, line.data() + place + 10, counter);
    if (::write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      throw std::runtime_error("cannot write to " + folder);
    }
  }
  return milliseconds(SteadyClock::now() - begin);
}

/// Nanoseconds for each turn of a loop around `call`.
template <class Call>
double loopNanoseconds(const Call& call) {
  constexpr int kTurns = 50'000'000;
  const auto begin = SteadyClock::now();
  for (int turn = 0; turn < kTurns; ++turn) {
    call(turn);
    asm volatile("" ::: "memory");
  }
  return milliseconds(SteadyClock::now() - begin) * 1e6 / kTurns;
}

template <class Library>
void suppressedCalls() {
  double empty = 1e9;
  double suppressed = 1e9;
  for (int round = 0; round < 5; ++round) {
    empty = std::min(empty, loopNanoseconds([](int) {}));
    suppressed = std::min(
        suppressed, loopNanoseconds([](int turn) { Library::logSuppressed(turn, kFirstThread); }));
  }
  std::printf(R"({"empty": %.3f, "suppressed": %.3f})"
              "\n",
              empty, suppressed);
}

template <class Library>
void logLines(int lines) {
  for (int line = 0; line < lines; ++line) Library::log(kFirstCounter + line, kFirstThread);
}

/// Stays as it is after one line until standard input ends.
template <class Library>
void idle() {
  logLines<Library>(1);
  Library::flush();
  std::puts("{}");
  std::fflush(stdout);
  char byte = 0;
  while (::read(STDIN_FILENO, &byte, 1) > 0) {
  }
}

inline void redirectStandardError() {
  const int sink = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (sink < 0 || ::dup2(sink, STDERR_FILENO) < 0) throw std::runtime_error("no /dev/null");
}

/// How a workload wants its library.
inline Setup setupFor(std::string_view workload, std::string folder) {
  Setup setup;
  setup.folder = std::move(folder);
  setup.asynchronous = workload != "synchronous";
  setup.flushesEachLine = workload == "synchronous" || workload == "idle";
  setup.terminal = workload == "terminal";
  setup.rolling = workload == "rolling";
  return setup;
}

struct Request {
  std::string_view workload;
  int lines = 0;
  int producers = 1;
};

template <class Library>
void runWorkload(const Request& request) {
  const auto& [workload, lines, producers] = request;
  if (workload == "throughput" || workload == "terminal" || workload == "rolling") {
    std::printf("{\"ms\": %.3f}\n", throughput<Library>(producers, lines));
  } else if (workload == "call-times") {
    callTimes<Library>(lines, std::chrono::nanoseconds(0));
  } else if (workload == "paced") {
    callTimes<Library>(lines, std::chrono::microseconds(20));
  } else if (workload == "synchronous") {
    std::printf("{\"ms\": %.3f}\n", synchronous<Library>(lines));
  } else if (workload == "suppressed") {
    suppressedCalls<Library>();
  } else if (workload == "idle") {
    idle<Library>();
  } else if (workload == "exit") {
    logLines<Library>(lines);
    std::exit(0);  // NOLINT(concurrency-mt-unsafe)
  } else if (workload == "abort") {
    const rlimit noCore{};
    ::setrlimit(RLIMIT_CORE, &noCore);
    logLines<Library>(lines);
    std::abort();
  } else {
    throw std::runtime_error("no such workload: " + std::string(workload));
  }
}

/// PROGRAM WORKLOAD FOLDER LINES [PRODUCERS] [--one-write-per-line]
///
/// Prints one line of JSON.
template <class Library>
int runProgram(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool grouped = std::erase(arguments, "--one-write-per-line") == 0;
  if (arguments.size() < 3) {
    std::fprintf(stderr, "usage: %s WORKLOAD FOLDER LINES [PRODUCERS] [--one-write-per-line]\n",
                 argv[0]);
    return 2;
  }
  const Request request{.workload = arguments[0],
                        .lines = std::stoi(arguments[2]),
                        .producers = arguments.size() > 3 ? std::stoi(arguments[3]) : 1};
  if (request.workload == "bare-writes") {
    std::printf("{\"ms\": %.3f}\n", bareWrites(arguments[1], request.lines));
    return 0;
  }
  Setup setup = setupFor(request.workload, arguments[1]);
  setup.groupsWrites = grouped;
  if (setup.terminal) redirectStandardError();
  Library::open(setup);
  runWorkload<Library>(request);
  std::fflush(stdout);
  ::_exit(0);
}

}  // namespace kv::bench
