#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/Date.h"

namespace kv {

/// What the system knows of the calling thread.
struct ThreadFacts {
  /// The system's number of the thread in lower-case hexadecimal.
  std::array<char, 16> id{};
  std::uint8_t idLength = 0;
  std::uint8_t nameLength = 0;
  /// Empty for a thread that bears the program's name, as threads do that nobody names.
  std::array<char, 16> name{};

  /// Every message that is logged asks this: a few comparisons of words, no call.
  friend bool operator==(const ThreadFacts& one, const ThreadFacts& other) {
    return Words(one.id) == Words(other.id) && Words(one.name) == Words(other.name) &&
           one.idLength == other.idLength && one.nameLength == other.nameLength;
  }

 private:
  struct Words {
    explicit Words(const std::array<char, 16>& text) { std::memcpy(this, &text, sizeof text); }
    std::uint64_t first;
    std::uint64_t second;
    friend bool operator==(const Words&, const Words&) = default;
  };
};

/// The facts of the calling thread. They are looked up once and kept, since each costs a system
/// call; the name is looked up again when ten milliseconds have passed since.
///
/// Each operating system's folder implements this and the functions below.
const ThreadFacts& currentThreadFacts(Date now);
/// Has the calling thread's name looked up by the next call, however soon that comes.
void forgetThreadName();

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
