#include "app/Agent.h"

int main(int argc, char** argv) {
  return kv::Agent::main(argc, argv);
}
