#include "app/Agent.h"
#include "platform/linux/CompactHeap.h"

int main(int argc, char** argv) {
  kv::restartWithCompactHeap(argv);
  return kv::Agent::main(argc, argv);
}
