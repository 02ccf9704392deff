#pragma once

namespace kv {

/// Starts the program anew, in the same process, unless that has happened: with an allocator that
/// keeps no freed memory aside for each thread. What lies aside is scattered, and every page with a
/// piece of it stays resident: over thousands of ticks memory then rises by some pages, and is half
/// a megabyte higher throughout. The allocator reads its settings only while a program is loaded.
///
/// The environment is afterwards what it was at first.
///
/// Threads    main thread, as the first thing that the program does.
/// Errors     none; where it cannot be started anew, the program goes on as it is.
void restartWithCompactHeap(char** argv);

}  // namespace kv
