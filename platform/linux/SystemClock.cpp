#include "platform/linux/SystemClock.h"

#include <time.h>

namespace kv {

SystemTime currentSystemTime() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return {time.tv_sec, static_cast<double>(time.tv_nsec)};
}

Date SystemClock::now() const {
  return dateFrom(currentSystemTime());
}

}  // namespace kv
