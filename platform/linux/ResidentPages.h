#pragma once

namespace kv {

/// Gives back the memory that only the start of the process needed: pages of program files, such
/// as symbol tables and initialisation code, that were read to link and set up some forty
/// libraries. What is needed later is mapped again from the system's file cache when it is touched.
///
/// Threads    any; others may go on running.
/// Errors     none: a mapping is left alone unless the system's accounts show that no byte of it
///            differs from its file.
void releaseStartupPages();

/// Gives back what memory was allocated and is free again.
///
/// Threads    any; others may go on running.
void releaseFreeMemory();

}  // namespace kv
