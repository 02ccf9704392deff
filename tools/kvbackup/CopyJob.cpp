#include "tools/kvbackup/CopyJob.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <sstream>
#include <string>

#include "tools/kvbackup/ChildProcess.h"

namespace kv {
namespace {

/// rsync's own number for files that vanished between listing and copying, as files do in use.
constexpr int kVanishedFiles = 24;

constexpr std::size_t kLongestLine = 64 * 1024;

/// What comes out of a pipe, line by line; a carriage return ends a line too.
class LineReader {
 public:
  explicit LineReader(int descriptor) : descriptor_(descriptor) {}

  /// The descriptor while there is something to wait for, else -1.
  int descriptor() const { return isAtEnd_ ? -1 : descriptor_; }

  /// Reads what is there now and hands over the lines that are complete.
  template <class Use>
  void drain(Use use) {
    std::array<char, 4096> buffer;
    while (!isAtEnd_) {
      const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0 && errno == EAGAIN) return;
      if (count <= 0) isAtEnd_ = true;
      for (ssize_t i = 0; i < count; ++i) take(buffer[static_cast<std::size_t>(i)], use);
    }
    take('\n', use);
  }

 private:
  template <class Use>
  void take(char character, Use& use) {
    if (character != '\n' && character != '\r' && line_.size() < kLongestLine) {
      line_ += character;
      return;
    }
    if (!line_.empty()) use(line_);
    line_.clear();
  }

  const int descriptor_;
  bool isAtEnd_ = false;
  std::string line_;
};

/// One rsync from its start to its end.
class Supervision {
 public:
  Supervision(ChildProcess& child, RunSignals& signals, const CopyJob::Listener& listener)
      : child_(child),
        signals_(signals),
        listener_(listener),
        output_(child.output()),
        errors_(child.errors()) {}

  CopyOutcome untilEnd() {
    std::optional<int> status;
    while (!(status = child_.reap())) {
      waitForNews();
      passSignalsOn();
      drain();
    }
    drain();
    // Ctrl-C reaches rsync and us alike, and rsync may be the first to be done with it.
    passSignalsOn();
    finish(*status);
    return std::move(outcome_);
  }

 private:
  void waitForNews() {
    std::array<pollfd, 3> sources = {{{signals_.descriptor(), POLLIN, 0},
                                      {output_.descriptor(), POLLIN, 0},
                                      {errors_.descriptor(), POLLIN, 0}}};
    ::poll(sources.data(), sources.size(), -1);
  }

  void passSignalsOn() {
    const int signal = signals_.take();
    if (signal == 0) return;
    child_.signal(isInterrupted() ? SIGKILL : SIGTERM);
    if (!isInterrupted()) outcome_.interruptedBy = signal;
  }

  void drain() {
    output_.drain([this](const std::string& line) {
      const auto progress = CopyProgress::parse(line);
      if (!progress) return;
      outcome_.bytes = std::max(outcome_.bytes, progress->bytes);
      if (!isInterrupted()) listener_.progress(*progress);
    });
    errors_.drain([this](const std::string& line) {
      if (firstError_.empty()) firstError_ = line;
      // That it was interrupted need not be told by each of rsync's processes.
      if (!isInterrupted()) listener_.error(line);
    });
  }

  bool isInterrupted() const { return outcome_.interruptedBy != 0; }

  void finish(int status) {
    if (isInterrupted()) {
      outcome_.message = fmt::format("ended by signal {}", outcome_.interruptedBy);
    } else if (WIFSIGNALED(status)) {
      outcome_.message = fmt::format("rsync was killed by signal {}", WTERMSIG(status));
    } else if (WEXITSTATUS(status) == kVanishedFiles) {
      outcome_.isComplete = true;
      outcome_.message = "some files vanished before they were copied";
    } else if (WEXITSTATUS(status) != 0) {
      outcome_.message = fmt::format("rsync ended with status {}{}{}", WEXITSTATUS(status),
                                     firstError_.empty() ? "" : ": ", firstError_);
    } else {
      outcome_.isComplete = true;
    }
  }

  ChildProcess& child_;
  RunSignals& signals_;
  const CopyJob::Listener& listener_;
  LineReader output_;
  LineReader errors_;
  std::string firstError_;
  CopyOutcome outcome_;
};

bool isProgram(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

template <class Number>
bool readNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::optional<CopyProgress> CopyProgress::parse(std::string_view line) {
  std::istringstream words{std::string(line)};
  std::string bytes;
  std::string percent;
  CopyProgress progress;
  if (!(words >> bytes >> percent >> progress.speed)) return std::nullopt;
  if (percent.back() != '%' || !readNumber(bytes, progress.bytes)) return std::nullopt;
  percent.pop_back();
  if (!readNumber(percent, progress.percent)) return std::nullopt;
  progress.percent = std::clamp(progress.percent, 0, 100);
  return progress;
}

CopyOutcome CopyJob::run(const std::string& source, const std::string& target, RunSignals& signals,
                         const Listener& listener) const {
  ChildProcess child(rsync_, arguments(source, target));
  return Supervision(child, signals, listener).untilEnd();
}

std::vector<std::string> CopyJob::arguments(const std::string& source,
                                            const std::string& target) const {
  std::vector<std::string> list = {"--archive", "--delete", "--info=progress2",
                                   "--no-human-readable"};
  // Without it the percentage is one of what has been found so far, and falls.
  if (isWatched_) list.emplace_back("--no-inc-recursive");
  // Absolute paths are never taken for a remote machine's, whatever colons follow. The slash at
  // the end of the source means what is in it.
  list.insert(list.end(), {"--", source + "/", target + "/"});
  return list;
}

std::optional<std::string> CopyJob::findRsync() {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (folder.empty() || folder.front() != '/') continue;
    const std::string candidate = folder + "/rsync";
    if (isProgram(candidate)) return candidate;
  }
  return std::nullopt;
}

}  // namespace kv
