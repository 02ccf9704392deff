#pragma once

#include <memory>
#include <span>
#include <string_view>

namespace kv {

/// Where lines go that are put together from pieces.
///
/// Threads    any; pieces of one call stay together as far as the system keeps them together.
/// Errors     none; what is not taken is lost. A reader that has gone raises SIGPIPE, as for every
///            writer, unless the program has made arrangements.
class GatheredOutput {
 public:
  virtual ~GatheredOutput() = default;
  /// Writes the pieces one after the other, in one call to the system. Empty ones cost nothing.
  virtual void write(std::span<const std::string_view> pieces) = 0;
};

/// The process's standard error.
/// Each operating system's folder implements these two.
std::shared_ptr<GatheredOutput> standardErrorOutput();
/// An open descriptor, which stays the caller's and must outlive the output.
std::shared_ptr<GatheredOutput> outputToDescriptor(int descriptor);

}  // namespace kv
