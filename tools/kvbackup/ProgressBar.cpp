#include "tools/kvbackup/ProgressBar.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

constexpr std::size_t kLongestLabel = 30;
constexpr std::size_t kShortestBar = 10;
constexpr std::size_t kLongestBar = 50;

}  // namespace

ProgressBar::ProgressBar(int descriptor)
    : descriptor_(descriptor), isTerminal_(::isatty(descriptor) == 1) {}

void ProgressBar::show(const std::string& label, const CopyProgress& progress) {
  if (!isTerminal_) return;
  // The last place of a line stays free: some terminals begin a new line when it is filled.
  std::string line = ProgressBar::line(label, progress, width() - 1);
  if (line == drawn_) return;
  const std::size_t before = characterCount(drawn_);
  const std::size_t now = characterCount(line);
  write("\r" + line + std::string(before > now ? before - now : 0, ' '));
  drawn_ = std::move(line);
}

void ProgressBar::clear() {
  if (drawn_.empty()) return;
  write("\r" + std::string(characterCount(drawn_), ' ') + "\r");
  drawn_.clear();
}

std::string ProgressBar::line(const std::string& label, const CopyProgress& progress,
                              std::size_t width) {
  const std::string figures = fmt::format("{:>3}%  {:>9}  {:>11}", progress.percent,
                                          sizeText(progress.bytes), shown(progress.speed));
  const std::string name(firstCharacters(shown(label), kLongestLabel));
  const std::size_t taken = characterCount(name) + figures.size() + 4;
  if (taken + kShortestBar > width) return figures.substr(0, std::min(width, figures.size()));
  const std::size_t length = std::min(width - taken, kLongestBar);
  const std::size_t filled = length * static_cast<std::size_t>(progress.percent) / 100;
  return fmt::format("{} [{:-<{}}] {}", name, std::string(filled, '#'), length, figures);
}

void ProgressBar::write(const std::string& text) const {
  [[maybe_unused]] const ssize_t written = ::write(descriptor_, text.data(), text.size());
}

std::size_t ProgressBar::width() const {
  winsize size{};
  const bool isKnown = ::ioctl(descriptor_, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return isKnown ? size.ws_col : 80;
}

}  // namespace kv
