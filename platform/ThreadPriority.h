#pragma once

namespace kv {

/// Gives the calling thread the lowest scheduling priority that the system has. It cannot be
/// undone, and processes that the thread forks inherit it. A refusal changes nothing.
///
/// Each operating system's folder implements it.
void lowerThisThreadsPriority();

}  // namespace kv
