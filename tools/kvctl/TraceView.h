#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/kvctl/Output.h"
#include "tools/kvctl/TraceReader.h"

namespace kv::kvctl {

/// Makes of the lines of a trace what the user sees. Every line appears once, in its place; with a
/// set's name only the lines about that set do.
///
/// Threads    any, one at a time.
/// Errors     none: any bytes are a line.
class TraceView {
 public:
  using Sink = std::function<void(std::string_view)>;

  /// `sink` takes the output, piece by piece.
  TraceView(std::optional<std::string> set, Sink sink);
  virtual ~TraceView() = default;

  void take(std::string_view line);
  /// No line will come for a while: shows what was held back.
  virtual void rest() {}
  /// The lines that come now are another file's.
  void beginAnew();
  /// No line comes any more.
  virtual void end() { rest(); }

  /// Whether a line was held back that rest() would show.
  virtual bool isHolding() const { return false; }
  /// Whether any line was about the set that is looked for.
  bool hasFound() const { return hasFound_; }

 protected:
  virtual void add(const TraceLine& line, bool isWanted) = 0;
  const TraceReader& reader() const { return reader_; }
  void write(std::string_view text) const { sink_(text); }

 private:
  TraceReader reader_;
  const std::optional<std::string> set_;
  const Sink sink_;
  bool hasFound_ = false;
};

/// For people: a blank line before each tick, the set's name before each group.
class TraceText final : public TraceView {
 public:
  TraceText(std::optional<std::string> set, Style style, Sink sink);

 private:
  void add(const TraceLine& line, bool isWanted) override;

  const Style style_;
  /// The heading of a tick that has shown nothing else so far.
  std::string heading_;
  bool hasWritten_ = false;
  bool hasTitle_ = false;
};

/// For programs: an object for each tick, in one array, or each on a line of its own when the
/// trace is followed. A tick of which more lines came after it was shown goes on in another one.
class TraceJson final : public TraceView {
 public:
  enum class Form { kArray, kLines };
  TraceJson(std::optional<std::string> set, Form form, Sink sink);

  void rest() override;
  void end() override;
  bool isHolding() const override { return !groups_.empty(); }

 private:
  void add(const TraceLine& line, bool isWanted) override;

  const Form form_;
  std::string fired_;
  Json groups_ = Json::array();
  bool isGroupOpen_ = false;
  bool hasWritten_ = false;
};

}  // namespace kv::kvctl
