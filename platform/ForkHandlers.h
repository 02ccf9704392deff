#pragma once

namespace kv {

/// Has `prepare` called before each fork() of this process, `parent` after it in the parent and
/// `child` in the child, all on the forking thread; any may be null. Later registrations prepare
/// first and resume last.
///
/// Each operating system's folder implements it.
void callAroundFork(void (*prepare)(), void (*parent)(), void (*child)());

}  // namespace kv
