#pragma once

#include <string>
#include <string_view>

namespace kv {

/// Makes `bytes` the content of the file at `path`, which must be absolute, so that a reader, and
/// the disk after a power cut, has the old content or the new one and never a part: a temporary
/// file in the same folder is written, synchronised and renamed over it, and the folder
/// synchronised.
///
/// A symbolic link stays and its target is replaced. Permissions stay, owner and group where the
/// system lets us; a new file is for this user only (0600). What is no regular file is refused.
///
/// Threads    any; writers of one file must exclude each other.
/// Errors     PlatformError; the old content stands then and the temporary file is gone.
void replaceFileDurably(const std::string& path, std::string_view bytes);

}  // namespace kv
