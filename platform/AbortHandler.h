#pragma once

namespace kv {

/// Has `wait` called, on the aborting thread, when the process is about to end by abort(), as long
/// as the program has set no reaction to that of its own. Other threads go on meanwhile.
///
/// `wait` runs as a signal handler: it may look at lock-free atomics and call
/// pauseInSignalHandler(), and nothing else.
///
/// Each operating system's folder implements these.
void callBeforeAbort(void (*wait)());
void pauseInSignalHandler();

}  // namespace kv
