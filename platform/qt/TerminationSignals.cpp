#include "platform/qt/TerminationSignals.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "platform/PlatformError.h"

namespace kv {
namespace {

constexpr int kSignals[] = {SIGTERM, SIGINT};

/// What the handler writes to; a handler has nothing but what is static.
std::atomic<int> signalDescriptor{-1};
static_assert(std::atomic<int>::is_always_lock_free);

void handleSignal(int) {
  const int savedError = errno;
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(signalDescriptor, &one, sizeof one);
  errno = savedError;
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> action)
    : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0) {
    throw PlatformError(std::string("cannot watch for signals: ") + std::strerror(errno));
  }
  [[maybe_unused]] const int former = signalDescriptor.exchange(descriptor_);
  assert(former == -1);
  notifier_ = std::make_unique<QSocketNotifier>(descriptor_, QSocketNotifier::Read);
  QObject::connect(notifier_.get(), &QSocketNotifier::activated,
                   [this, perform = std::move(action)] {
                     std::uint64_t count = 0;
                     if (read(descriptor_, &count, sizeof count) == sizeof count) perform();
                   });
  struct sigaction reaction {};
  reaction.sa_handler = handleSignal;
  reaction.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  for (const int signal : kSignals) sigaction(signal, &reaction, nullptr);
}

TerminationSignals::~TerminationSignals() {
  for (const int signal : kSignals) std::signal(signal, SIG_DFL);
  notifier_.reset();
  signalDescriptor = -1;
  close(descriptor_);
}

}  // namespace kv
