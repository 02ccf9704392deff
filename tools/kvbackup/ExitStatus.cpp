#include "tools/kvbackup/ExitStatus.h"

#include <fmt/format.h>

namespace kv {
namespace {

struct Meaning {
  ExitStatus status;
  const char* text;
};

constexpr Meaning kMeanings[] = {
    {ExitStatus::kDone, "done"},
    {ExitStatus::kUnexpected, "something unexpected, such as memory running out"},
    {ExitStatus::kUsage, "the command line or a path cannot be used"},
    {ExitStatus::kBadName, "the name cannot be a set's name"},
    {ExitStatus::kDuplicateName, "there is a set of this name already"},
    {ExitStatus::kUnknownSet, "there is no set of this name"},
    {ExitStatus::kDocumentUnreadable, "a schedule document cannot be read; it was left alone"},
    {ExitStatus::kDocumentNotWritten, "a schedule document cannot be written"},
    {ExitStatus::kDestinationMissing, "the destination is missing or no folder"},
    {ExitStatus::kDestinationNotMounted, "the destination's volume is not mounted"},
    {ExitStatus::kDestinationOverlaps, "destination and sources lie in one another"},
    {ExitStatus::kNoSources, "the set has no sources"},
    {ExitStatus::kSourceMissing, "a source is missing, no folder or not mounted"},
    {ExitStatus::kNoRsync, "rsync is not installed"},
    {ExitStatus::kCopyFailed, "copying failed, wholly or in part"},
    {ExitStatus::kCopyNotRecorded, "copied, but the schedule document could not be updated"},
    {ExitStatus::kNoStateFolder, "the folder for locks and history cannot be used"},
    {ExitStatus::kBusy, "another backup is running"},
};

}  // namespace

std::string exitStatusHelp() {
  std::string help = "Exit status:\n";
  for (const Meaning& meaning : kMeanings) {
    help += fmt::format("  {:>3}  {}\n", static_cast<int>(meaning.status), meaning.text);
  }
  return help + "  128 + n  the run was ended by signal n (130 by Ctrl-C, 143 by SIGTERM)\n";
}

}  // namespace kv
