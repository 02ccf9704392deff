#pragma once

#include <optional>
#include <string_view>

namespace kv {

/// A text of the trace that may be absent; an absent one shows as "(null)".
using OptionalText = std::optional<std::string_view>;

/// Where the steps of a tick say what they see. The labels are part of the program's output, with
/// their blanks and misspellings.
///
/// Threads    main thread only.
class Trace {
 public:
  virtual ~Trace() = default;
  virtual void logString(OptionalText text) = 0;
  virtual void logString_varstr(OptionalText text, OptionalText value) = 0;
  /// False when lines go nowhere, so that a costly value need not be made.
  virtual bool isTracing() const = 0;
};

}  // namespace kv
