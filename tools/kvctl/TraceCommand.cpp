#include "tools/kvctl/TraceCommand.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Sets.h"
#include "tools/kvctl/TraceFollower.h"
#include "tools/kvctl/TraceLines.h"
#include "tools/kvctl/TraceSource.h"
#include "tools/kvctl/TraceView.h"

namespace kv::kvctl {
namespace {

struct Options {
  std::optional<std::string> set;
  std::optional<std::string> file;
  std::optional<std::size_t> last;
  bool isFollowing = false;
};

void tell(const std::string& remark) {
  fmt::print(stderr, "kvctl: {}\n", shown(remark));
}

/// The output in pieces of a good size; a long trace is not held in memory as a whole.
class Output {
 public:
  void add(std::string_view text) {
    constexpr std::size_t kPiece = 64u << 10;
    text_ += text;
    if (text_.size() >= kPiece) flush();
  }
  void flush() {
    print(text_);
    text_.clear();
  }

 private:
  std::string text_;
};

bool isReaderGone() {
  pollfd output{STDOUT_FILENO, 0, 0};
  return ::poll(&output, 1, 0) > 0;
}

/// Finds where the last ticks begin, those with lines about `set` only when there is one.
class LastTicks final : public TraceView {
 public:
  LastTicks(std::optional<std::string> set, std::size_t count)
      : TraceView(std::move(set), [](std::string_view) {}), count_(count) {}

  void takeAt(off_t offset, std::string_view line) {
    offset_ = offset;
    take(line);
  }
  std::optional<off_t> begin() const {
    return begins_.empty() ? std::nullopt : std::optional(begins_.front());
  }

 private:
  void add(const TraceLine& line, bool isWanted) override {
    if (line.beginsTick) tick_ = offset_;
    if (!isWanted || (!begins_.empty() && begins_.back() == tick_)) return;
    begins_.push_back(tick_);
    if (begins_.size() > count_) begins_.pop_front();
  }

  const std::size_t count_;
  off_t offset_ = 0;
  off_t tick_ = 0;
  std::deque<off_t> begins_;
};

/// Moves the source to where the last `count` ticks begin.
void skipToLast(TraceSource& source, const std::optional<std::string>& set, std::size_t count) {
  LastTicks ticks(set, count);
  TraceLines lines(
      [&](std::string_view line) { ticks.takeAt(static_cast<off_t>(lines.lineBegin()), line); });
  for (auto bytes = source.read(); !bytes.empty(); bytes = source.read()) lines.feed(bytes);
  lines.finish();
  if (count > 0) source.moveTo(ticks.begin().value_or(0));
}

std::unique_ptr<TraceView> viewFor(const Options& options, const Context& context, Output& output) {
  const auto sink = [&output, isFollowing = options.isFollowing](std::string_view text) {
    output.add(text);
    if (isFollowing) output.flush();
  };
  if (!context.asJson) return std::make_unique<TraceText>(options.set, context.style, sink);
  const auto form = options.isFollowing ? TraceJson::Form::kLines : TraceJson::Form::kArray;
  return std::make_unique<TraceJson>(options.set, form, sink);
}

void showAll(TraceSource& source, TraceView& view) {
  TraceLines lines([&view](std::string_view line) { view.take(line); });
  for (auto bytes = source.read(); !bytes.empty() && !isReaderGone(); bytes = source.read()) {
    lines.feed(bytes);
  }
  lines.finish();
  view.end();
}

/// What to say when nothing was shown.
void explainNothing(const Options& options, const Context& context, const std::string& path) {
  if (options.set) Sets(context).find(options.set);  // a set that there is not is refused
  if (context.asJson) return;
  print(options.set ? fmt::format("The trace says nothing about \"{}\".\n", shown(*options.set))
                    : fmt::format("{} is empty.\n", shown(path)));
}

int trace(const Options& options, const Context& context) {
  TraceSource source(options.file.value_or(context.traceFile));
  const auto refusal = source.open();
  if (refusal) {
    const bool isAwaited = options.isFollowing && source.isMissing();
    if (!isAwaited) throw Refusal(ExitStatus::kUnreadable, *refusal);
    tell(*refusal);
  } else {
    for (const std::string& remark : source.remarks()) tell(remark);
    if (options.last) skipToLast(source, options.set, *options.last);
  }
  Output output;
  const auto view = viewFor(options, context, output);
  if (options.isFollowing) {
    TraceFollower(source, *view, tell).run();
    return static_cast<int>(ExitStatus::kDone);
  }
  showAll(source, *view);
  output.flush();
  if (!view->hasFound()) explainNothing(options, context, source.path());
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

void addTraceCommand(CLI::App& app, Selection& selection) {
  constexpr std::size_t kMostTicks = 1'000'000;
  const auto options = std::make_shared<Options>();
  CLI::App* const command =
      app.add_subcommand("trace", "What the scheduler wrote about its decisions, by tick and set");
  command->add_option("SET", options->set, "Only what is about this set");
  command->add_flag("-f,--follow", options->isFollowing, "Go on with what is written from now on");
  command->add_option("--last", options->last, "Only the last ticks")
      ->type_name("N")
      ->check(CLI::Range(std::size_t{0}, kMostTicks));
  command->add_option("--file", options->file, "Another file than the agent's")->type_name("PATH");
  command->callback([options, &selection] {
    selection.run = [options](const Context& context) { return trace(*options, context); };
  });
}

}  // namespace kv::kvctl
