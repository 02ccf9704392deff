#include "tools/kvbackup/RunLog.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/UserPaths.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

/// The emptied file; -1 when there can be none. A link or a pipe in its place is left alone.
int openEmpty(const std::string& path) {
  const int descriptor =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
  if (descriptor < 0) return -1;
  struct stat status {};
  if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
      ::ftruncate(descriptor, 0) == 0) {
    return descriptor;
  }
  ::close(descriptor);
  return -1;
}

}  // namespace

RunLog::RunLog(const std::string& folder, const std::string& set, const Clock& clock)
    : clock_(clock) {
  if (makeFolders(folder)) descriptor_ = openEmpty(fmt::format("{}/{}.log", folder, set));
}

RunLog::~RunLog() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void RunLog::line(std::string_view text) {
  if (descriptor_ < 0) return;
  const std::string line = fmt::format("{} {}\n", localStamp(clock_.now()), shown(text));
  [[maybe_unused]] const ssize_t written = ::write(descriptor_, line.data(), line.size());
}

void RunLog::detail(std::string_view text) {
  if (detailBytes_ > kMostDetailBytes) return;
  detailBytes_ += text.size() + 1;
  line(detailBytes_ > kMostDetailBytes ? "and more, which is left out here" : text);
}

}  // namespace kv
