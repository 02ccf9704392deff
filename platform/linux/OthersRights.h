#pragma once

#include <optional>
#include <string>

namespace kv {

/// Who besides this user and root may change the file or folder at `path`, as the end of a
/// sentence that begins with the path: "belongs to the user ann". Links are followed. Nothing when
/// nobody may, or when nothing stands there.
///
/// A group may when it has other members: the group that is a user's own, as systems with a umask
/// of 002 give to each, and the group of root may not harm anybody.
std::optional<std::string> whoElseMayChange(const std::string& path);

/// The same for an open file: what is read from it later is what was judged.
std::optional<std::string> whoElseMayChange(int descriptor);

}  // namespace kv
