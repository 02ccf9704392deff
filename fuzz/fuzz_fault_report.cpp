#include <cstdint>
#include <string>
#include <string_view>

#include "FuzzInput.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/FaultReport.h"
#include "tools/kvctl/FaultReportRedaction.h"
#include "tools/kvctl/FaultReportReplay.h"

// Whatever is handed in as a fault report: it is refused, or it is one that is written and read
// again without a change, that the scheduler decides on the same way every time, and that can be
// stripped of what is nobody's business.

namespace kv::kvctl {
namespace {

void replayAndRedact(const FaultReport& report) {
  try {
    const auto trace = replay(report).trace;
    require(replay(report).trace == trace, "a report leads to the same trace every time");
    redacted(report);
  } catch (const Refusal&) {
    // A zone that the system does not take, or decisions that hang on what would be left out.
  }
}

void readAndReread(std::string_view bytes) {
  FaultReport report;
  try {
    report = FaultReport::parse(bytes);
  } catch (const Refusal&) {
    return;
  }
  const std::string text = report.text();
  require(FaultReport::parse(text).text() == text, "a report reads back as it was written");
  const TaskList list = report.list();
  for (const Judgement& judgement : report.judgements) judgementText(judgement, list);
  replayAndRedact(report);
}

}  // namespace
}  // namespace kv::kvctl

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kv::kvctl::readAndReread({reinterpret_cast<const char*>(data), size});
  return 0;
}
