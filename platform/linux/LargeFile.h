#pragma once

#include <string>

namespace kv {

/// Removes the name of a file, or of a link, like unlink(2): 0, or the error number.
///
/// The name is gone at the return. What a file with this one name takes on the disk is given back
/// a moment later, by a thread that begins with the first such file: for a megabyte that has been
/// written out this takes half a millisecond, in which a log that is being rolled would stand
/// still. Of many files at once some are given back before the return, so that the descriptors that
/// hold them stay few.
///
/// Threads    any.
int removeLargeFile(const std::string& path);

}  // namespace kv
