#include "platform/ForkHandlers.h"

#include <pthread.h>

namespace kv {

void callAroundFork(void (*prepare)(), void (*parent)(), void (*child)()) {
  pthread_atfork(prepare, parent, child);
}

}  // namespace kv
