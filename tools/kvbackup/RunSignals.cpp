#include "tools/kvbackup/RunSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace kv {

RunSignals::RunSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) ::sigaddset(&signals, signal);
  descriptor_ = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  ::sigprocmask(SIG_BLOCK, &signals, &oldMask_);
}

RunSignals::~RunSignals() {
  take();
  ::close(descriptor_);
  ::sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
}

int RunSignals::take() {
  int first = 0;
  signalfd_siginfo info{};
  while (::read(descriptor_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    const int signal = static_cast<int>(info.ssi_signo);
    if (first == 0 && signal != SIGCHLD) first = signal;
  }
  return first;
}

}  // namespace kv
