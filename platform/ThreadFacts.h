#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "platform/Date.h"

namespace kv {

/// What the system knows of the calling thread.
struct ThreadFacts {
  /// The system's number of the thread in lower-case hexadecimal.
  std::array<char, 16> id{};
  std::uint8_t idLength = 0;
  std::uint8_t nameLength = 0;
  std::array<char, 16> name{};

  friend bool operator==(const ThreadFacts&, const ThreadFacts&) = default;
};

/// The facts of the calling thread. They are looked up once and kept, since each costs a system
/// call; the name is looked up again when `now` lies in another second than the last time.
///
/// Each operating system's folder implements this and the functions below.
const ThreadFacts& currentThreadFacts(Date now);

bool isMainThread();

/// Names the calling thread for debuggers and lists of threads, as far as the system's names
/// reach. An empty name leaves it as it is.
void nameThisThread(std::string_view name);

/// Keeps the program's signals away from the calling thread: their handlers run on the program's
/// own threads. Signals that tell of a fault of the thread itself still come.
void leaveSignalsToOtherThreads();

/// Lets the calling thread's waits end when their time is over and not, to spare wake-ups, up to
/// 50 µs later.
void makeThisThreadsTimersPrecise();

}  // namespace kv
