#include "platform/ThreadFacts.h"

#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>

namespace kv {
namespace {

struct KeptFacts {
  ThreadFacts facts;
  double second = 0;
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
  if (isOther || !(seconds >= kept.second && seconds < kept.second + 1.0)) {
    lookUpName(kept.facts);
    kept.second = std::floor(seconds);
  }
  return kept.facts;
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
