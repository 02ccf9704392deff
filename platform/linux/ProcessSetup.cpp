#include "platform/linux/ProcessSetup.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace kv {
namespace {

void prepareSignals() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGCHLD, SIG_DFL);

  // Not SIG_IGN: a started program would inherit it, while a caught signal is reset.
  struct sigaction reaction {};
  reaction.sa_handler = [](int) {};
  reaction.sa_flags = SA_RESTART;
  sigaction(SIGPIPE, &reaction, nullptr);
}

void prepareDescriptors() {
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
      // The lowest free number is this one, since those below it are open.
      [[maybe_unused]] const int opened = open("/dev/null", descriptor == 0 ? O_RDONLY : O_WRONLY);
    }
  }
}

}  // namespace

void prepareProcess() {
  prepareSignals();
  prepareDescriptors();
}

}  // namespace kv
