#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace kv::kvctl {

/// Cuts pieces of a file into lines.
///
/// Threads    any, one at a time.
/// Ownership  keeps the beginning of an unfinished line only.
/// Units      bytes. A line longer than `kLongestLine` is handed on in parts of that length, so
///            that a file of one endless line does not fill the memory.
class TraceLines {
 public:
  using Sink = std::function<void(std::string_view line)>;
  static constexpr std::size_t kLongestLine = 64u << 20;

  explicit TraceLines(Sink sink) : sink_(std::move(sink)) {}

  void feed(std::string_view bytes);
  /// Nothing comes any more: hands on a last line that has no end.
  void finish();
  /// How many bytes stand before the line that is handed on, counted from the first one fed.
  std::uint64_t lineBegin() const { return lineBegin_; }

 private:
  void handOn(std::string_view line, std::size_t length);

  const Sink sink_;
  std::string unfinished_;
  std::uint64_t lineBegin_ = 0;
};

}  // namespace kv::kvctl
