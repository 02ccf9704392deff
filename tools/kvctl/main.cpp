#include <string>
#include <vector>

#include "platform/linux/ProcessSetup.h"
#include "tools/kvctl/CommandLine.h"

int main(int argc, char** argv) {
  kv::prepareProcess();
  return kv::kvctl::runCommandLine(
      std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
