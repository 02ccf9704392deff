#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kv {

/// The last lines of the regular file at `path`, as far as they fit into `maxBytes`: a line that
/// would be cut at its beginning is left out. Nothing when there is no such file or it cannot be
/// read; a device or FIFO is refused without blocking.
///
/// Threads    any.
std::optional<std::string> readTail(const std::string& path, std::size_t maxBytes);

}  // namespace kv
