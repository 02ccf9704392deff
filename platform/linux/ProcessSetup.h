#pragma once

namespace kv {

/// Puts in order what a process inherits from whoever started it, before it has threads:
///
/// - no signal is blocked, and ended children are reported as usual;
/// - a broken pipe is an error of the write, not the end of the process, which started programs
///   do not inherit;
/// - descriptors from 3 on are closed in started programs;
/// - standard input, output and error are open, if need be on /dev/null, so that no file that is
///   opened later takes their place.
///
/// Threads    main thread, before any other exists.
/// Errors     none; what the system refuses stays as it was.
void prepareProcess();

}  // namespace kv
