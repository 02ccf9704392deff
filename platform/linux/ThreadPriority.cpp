#include "platform/ThreadPriority.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace kv {

void lowerThisThreadsPriority() {
  constexpr int kNicest = 19;
  const pid_t thread = ::gettid();  // Linux keeps the nice value for each thread
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), kNicest);
  const sched_param parameters{};
  ::sched_setscheduler(thread, SCHED_IDLE, &parameters);
}

}  // namespace kv
