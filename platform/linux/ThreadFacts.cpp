#include "platform/ThreadFacts.h"

#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

namespace kv {
namespace {

/// For how long a thread's name is not looked up again, in seconds.
constexpr double kNameStays = 0.01;

struct KeptFacts {
  ThreadFacts facts;
  double namedAt = 0;
  /// The generation of the process in which the number was looked up; 0 for never.
  unsigned generation = 0;
};

constinit thread_local KeptFacts tKept;

/// The child of a fork keeps the forking thread's memory, but has another number.
constinit std::atomic<unsigned> gGeneration{1};

void lookUpNumber(ThreadFacts& facts) {
  [[maybe_unused]] static const int registered =
      pthread_atfork(nullptr, nullptr, [] { gGeneration.fetch_add(1); });
  const pid_t thread = gettid();
  constexpr int kHexadecimal = 16;
  const auto end = std::to_chars(facts.id.data(), facts.id.data() + facts.id.size(),
                                 static_cast<unsigned>(thread), kHexadecimal)
                       .ptr;
  facts.idLength = static_cast<std::uint8_t>(end - facts.id.data());
}

void lookUpName(ThreadFacts& facts) {
  facts.name = {};
  prctl(PR_GET_NAME, facts.name.data());
  facts.nameLength = static_cast<std::uint8_t>(strnlen(facts.name.data(), facts.name.size()));
  // Threads that nobody names inherit the program's name.
  const std::string_view name(facts.name.data(), facts.nameLength);
  const std::string_view program = program_invocation_short_name;
  if (name == program.substr(0, facts.name.size() - 1)) {
    facts.name = {};
    facts.nameLength = 0;
  }
}

}  // namespace

const ThreadFacts& currentThreadFacts(Date now) {
  KeptFacts& kept = tKept;
  const double seconds = now.sinceReference.count();
  const unsigned generation = gGeneration.load(std::memory_order_relaxed);
  const bool isOther = kept.generation != generation;
  if (isOther) {
    lookUpNumber(kept.facts);
    kept.generation = generation;
  }
  if (isOther || !(seconds >= kept.namedAt && seconds < kept.namedAt + kNameStays)) {
    lookUpName(kept.facts);
    kept.namedAt = seconds;
  }
  return kept.facts;
}

void forgetThreadName() {
  tKept.namedAt = -std::numeric_limits<double>::infinity();
}

bool isMainThread() {
  thread_local const bool isMain = gettid() == getpid();
  return isMain;
}

void nameThisThread(std::string_view name) {
  if (name.empty()) return;
  // The system takes 15 bytes. Labels differ at their ends.
  constexpr std::size_t kLongest = 15;
  const std::string known(name.size() <= kLongest ? name : name.substr(name.size() - kLongest));
  pthread_setname_np(pthread_self(), known.c_str());
}

void leaveSignalsToOtherThreads() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
    sigdelset(&signals, fault);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void makeThisThreadsTimersPrecise() {
  prctl(PR_SET_TIMERSLACK, 1UL);
}

}  // namespace kv
