#include "tools/kvctl/TraceFollower.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/kvbackup/RunSignals.h"
#include "tools/kvctl/ExitStatus.h"

namespace kv::kvctl {
namespace {

constexpr std::uint32_t kFileEvents = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF;
constexpr std::uint32_t kFolderEvents = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
/// The lines of one tick come within some milliseconds.
constexpr int kQuietMilliseconds = 1000;

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

int watch(const Descriptor& inotify, const std::string& path, std::uint32_t events) {
  const int number = ::inotify_add_watch(inotify.number(), path.c_str(), events);
  if (number >= 0) return number;
  throw Refusal(ExitStatus::kUnexpected,
                fmt::format("{}: changes cannot be followed: {}", path, std::strerror(errno)));
}

}  // namespace

TraceFollower::TraceFollower(TraceSource& source, TraceView& view,
                             std::function<void(const std::string&)> tell)
    : source_(source),
      view_(view),
      tell_(std::move(tell)),
      lines_([&view](std::string_view line) { view.take(line); }),
      inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!inotify_.isOpen()) {
    throw Refusal(ExitStatus::kUnexpected,
                  fmt::format("the trace cannot be followed: {}", std::strerror(errno)));
  }
}

void TraceFollower::run() {
  RunSignals signals;
  std::array<pollfd, 3> ready{{{signals.descriptor(), POLLIN, 0},
                               {inotify_.number(), POLLIN, 0},
                               {STDOUT_FILENO, 0, 0}}};  // an error: nobody reads any more
  if (source_.isOpen()) watchFile();
  for (;;) {
    look();
    const int patience = isBehind_ ? 0 : view_.isHolding() ? kQuietMilliseconds : -1;
    const int count = ::poll(ready.data(), ready.size(), patience);
    if (count < 0 && errno != EINTR) break;
    if (ready[2].revents != 0) break;
    if (ready[0].revents != 0 && signals.take() != 0) {
      lookOnceMore();
      break;
    }
    if (count == 0 && !isBehind_) view_.rest();
    std::array<char, 4096> events;
    while (::read(inotify_.number(), events.data(), events.size()) > 0) continue;
  }
  lines_.finish();
  view_.end();
}

void TraceFollower::look() {
  if (!source_.isOpen()) tryToOpen();
  if (!source_.isOpen()) return;
  if (source_.isCutShort()) {
    tell_(fmt::format("{}: was emptied and begins anew", source_.path()));
    lines_.finish();
    view_.beginAnew();
    source_.moveTo(0);
  }
  // Asked before reading: what was written to the old file is then all there.
  const bool isReplaced = source_.isReplaced();
  takeBytes();
  if (!isReplaced || isBehind_) return;
  tell_(
      fmt::format("{}: {}", source_.path(),
                  source_.isMissing() ? "is gone; waiting for a new one" : "is another file now"));
  lines_.finish();
  view_.beginAnew();
  source_.close();
  drop(fileWatch_);
  isBehind_ = true;  // look for the new one at once
}

/// For what was written before the signal; not for ever, should somebody go on writing.
void TraceFollower::lookOnceMore() {
  constexpr int kMostLooks = 64;
  look();
  for (int looks = 1; isBehind_ && looks < kMostLooks; ++looks) look();
}

void TraceFollower::tryToOpen() {
  // Watched before looking, so that no change falls in between.
  watchFolder();
  isBehind_ = false;
  if (const auto refusal = source_.open()) {
    if (!source_.isMissing() && *refusal != toldRefusal_) tell_(toldRefusal_ = *refusal);
    return;
  }
  drop(folderWatch_);
  toldRefusal_.clear();
  for (const std::string& remark : source_.remarks()) tell_(remark);
  watchFile();
}

void TraceFollower::takeBytes() {
  const std::string_view bytes = source_.read();
  lines_.feed(bytes);
  isBehind_ = !bytes.empty();
}

void TraceFollower::watchFile() {
  // By the descriptor: the path may lead elsewhere by now.
  fileWatch_ = watch(inotify_, fmt::format("/proc/self/fd/{}", source_.descriptor()), kFileEvents);
}

void TraceFollower::watchFolder() {
  if (folderWatch_ < 0) folderWatch_ = watch(inotify_, folderOf(source_.path()), kFolderEvents);
}

void TraceFollower::drop(int& number) {
  if (number >= 0) ::inotify_rm_watch(inotify_.number(), std::exchange(number, -1));
}

}  // namespace kv::kvctl
