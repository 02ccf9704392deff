#include "platform/AbortHandler.h"

#include <signal.h>
#include <time.h>

#include <cerrno>

namespace kv {
namespace {

using Wait = void (*)();
constinit Wait gWait = nullptr;

void handleAbort(int /*signal*/) {
  const int error = errno;
  gWait();
  errno = error;
  // abort() goes on with the usual end of the process when its handler returns.
}

}  // namespace

void callBeforeAbort(void (*wait)()) {
  struct sigaction present {};
  if (sigaction(SIGABRT, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) return;
  gWait = wait;
  struct sigaction reaction {};
  reaction.sa_handler = handleAbort;
  reaction.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGABRT, &reaction, nullptr);
}

void pauseInSignalHandler() {
  constexpr long kNanoseconds = 100'000;
  const timespec time{0, kNanoseconds};
  nanosleep(&time, nullptr);
}

}  // namespace kv
