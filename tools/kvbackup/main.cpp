#include <string>
#include <vector>

#include "platform/linux/PosixFiles.h"
#include "platform/linux/ProcessSetup.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/UserPaths.h"
#include "tools/kvbackup/CommandLine.h"

int main(int argc, char** argv) {
  kv::prepareProcess();
  const kv::SystemClock clock;
  kv::PosixFiles files;
  return kv::runCommandLine(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc),
                            {.clock = clock,
                             .files = files,
                             .homeFolder = kv::homeFolder(),
                             .stateFolder = kv::stateFolder(),
                             .historyFile = kv::historyFile()});
}
