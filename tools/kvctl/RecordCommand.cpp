#include "tools/kvctl/RecordCommand.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/Descriptor.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Explanation.h"
#include "tools/kvctl/FaultReport.h"
#include "tools/kvctl/FaultReportRedaction.h"
#include "tools/kvctl/FaultReportReplay.h"
#include "tools/kvctl/QtApplication.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

constexpr const char* kDescription =
    "One tick with all that its decisions depend on, as JSON for a fault report; starts nothing";

constexpr const char* kRedactHelp =
    "Without names: each set becomes \"set-1\", each path \"path-1\", other texts and unknown "
    "fields \"text-1\" and \"field-1\"; data and lines of the host are left out. Times, numbers, "
    "the order of the sets, the locale and the offsets of the zone stay, as the decisions hang on "
    "them";

struct Options {
  bool isRedacted = false;
  std::optional<std::string> output;
};

/// The instants whose local time the tick looks at.
std::vector<Date> instantsOf(const TaskList& list, Date now) {
  // 2011-01-02: by it the scheduler finds out where the locale's week starts.
  std::vector<Date> instants = {now, Date::fromUnixSeconds(1293950000)};
  for (const PropertyList& entry : list) {
    const TaskRecord record(entry);
    for (const char* key : {"datePick", "minhourdate"}) {
      const auto* const value = record.option(key);
      const auto* const date = value == nullptr ? nullptr : value->as<Date>();
      if (date != nullptr) instants.push_back(*date);
    }
  }
  return instants;
}

FaultReport reportOf(const Context& context) {
  ::unsetenv("KVSCHEDULER_DEBUG");  // the host switches tracing on by it, earlier than is recorded
  Context still = context;          // with seconds passing, no two recordings would be the same
  still.clock = std::make_shared<StandingClock>(context.clock->now());
  const auto application = makeQtApplication();
  const Explainer explainer(still);
  const Rehearsal::Result& tick = explainer.rehearsal();
  if (!tick.hasScheduler) {
    throw Refusal(ExitStatus::kUnreadable,
                  fmt::format("{}: the host's scripts make no scheduler", context.bundle));
  }
  FaultReport report;
  report.program = "kvctl " KV_VERSION;
  report.at = tick.at;
  report.zone = ReportZone::around(instantsOf(tick.list, tick.at));
  report.locale = context.locale;
  const auto& documents = explainer.sets().documents();
  for (std::size_t index = 0; index < documents.size(); ++index) {
    const std::string& path = documents[index].path;
    report.documents[index] = {path.substr(path.rfind('/') + 1), documents[index].state,
                               documents[index].records};
  }
  report.answers = tick.answers;
  report.judgements = tick.judgements;
  for (const std::string& line : tick.trace) report.trace.push_back({line, false});
  return report;
}

void writeNew(const std::string& path, std::string_view text) {
  const Descriptor file(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  while (file.isOpen() && !text.empty()) {
    const ssize_t count = ::write(file.number(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) break;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  if (text.empty()) return;
  const int error = errno;
  if (file.isOpen()) ::unlink(path.c_str());
  throw Refusal(ExitStatus::kUnexpected,
                fmt::format("{}: cannot be written: {}", path, std::strerror(error)));
}

int record(const Options& options, const Context& context) {
  FaultReport report = reportOf(context);
  const bool isComplete = markHostLines(report.trace, replay(report).trace);
  if (options.isRedacted) {
    if (!isComplete) {
      throw Refusal(ExitStatus::kUnexpected,
                    "this tick cannot be told without names; record without --redact");
    }
    report = redacted(report);
  }
  const std::string text = report.text();
  if (!options.output) {
    print(text);
    return static_cast<int>(ExitStatus::kDone);
  }
  writeNew(*options.output, text);
  if (!context.asJson) {
    print(
        fmt::format("{}: {} sets, {} decisions, {} lines of trace. Look through it before you "
                    "hand it on.\n",
                    shown(*options.output), report.list().size(), report.judgements.size(),
                    report.trace.size()));
  } else {
    printJson({{"file", *options.output}, {"redacted", report.isRedacted}});
  }
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

void addRecordCommand(CLI::App& app, Selection& selection) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand("record", kDescription);
  command->add_flag("--redact", options->isRedacted, kRedactHelp);
  command->add_option("-o,--output", options->output, "A new file, instead of standard output")
      ->type_name("FILE");
  command->callback([options, &selection] {
    selection.run = [options](const Context& context) { return record(*options, context); };
  });
}

}  // namespace kv::kvctl
