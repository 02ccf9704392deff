#pragma once

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "logging/Log.h"

namespace kv::test {

#if defined(__SANITIZE_THREAD__)
inline constexpr bool kWatchesThreads = true;
#else
inline constexpr bool kWatchesThreads = false;
#endif
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = kWatchesThreads;
#endif
#if defined(__has_feature)
inline constexpr bool kWatchesMemory = __has_feature(address_sanitizer);
#elif defined(__SANITIZE_ADDRESS__)
inline constexpr bool kWatchesMemory = true;
#else
inline constexpr bool kWatchesMemory = false;
#endif

/// What a program that logs numbered lines has done, in memory that outlives it.
///
/// Threads    each producer is one thread at a time; who looks on may be another process.
struct Progress {
  /// By producer, 'a' to 'z': calls that have returned.
  std::array<std::atomic<std::uint64_t>, 26> returned{};
  std::atomic<std::uint64_t> lostLines{0};
  std::atomic<std::uint64_t> rolls{0};

  std::atomic<std::uint64_t>& of(char producer) {
    return returned.at(static_cast<std::size_t>(producer - 'a'));
  }
  std::uint64_t sum() const {
    std::uint64_t all = 0;
    for (const auto& one : returned) all += one;
    return all;
  }

  /// The one that lies in the file at `path`, which is made when it is missing; stays for good.
  static Progress& inFile(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    void* const memory =
        ::ftruncate(file, sizeof(Progress)) != 0
            ? MAP_FAILED
            : ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("cannot map " + path);
    ::close(file);
    return *static_cast<Progress*>(memory);
  }
};

/// The tail of a line, of a length that tells when bytes are missing or a neighbour's.
inline std::string_view tailOfLine(std::uint64_t number) {
  constexpr std::string_view kTail =
      "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  return kTail.substr(number % kTail.size());
}

/// Logs the producer's next line, and notes when the call has returned.
inline void sayNext(Progress& progress, char producer) {
  auto& returned = progress.of(producer);
  const std::uint64_t number = returned.load(std::memory_order_relaxed);
  LOG_INFO("{} {:08} {}", producer, number, tailOfLine(number));
  returned.store(number + 1, std::memory_order_release);
}

/// Reads files of such lines one after the other, and keeps account.
class NumberedLines {
 public:
  void read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) note("cannot read " + path.string());
    std::string line;
    while (std::getline(file, line)) {
      if (file.eof()) {
        unfinished_ += line;
      } else {
        take(line, path);
      }
    }
  }

  std::uint64_t count(char producer) const { return of(producer).count; }
  /// The number behind the last line's.
  std::uint64_t next(char producer) const { return of(producer).next; }
  /// Lines that are missing before the last one.
  std::uint64_t gaps(char producer) const { return next(producer) - count(producer); }
  std::uint64_t sum() const {
    std::uint64_t all = 0;
    for (const auto& producer : producers_) all += producer.count;
    return all;
  }
  /// The first line that is torn, doubled or in the wrong place; empty for none.
  const std::string& fault() const { return fault_; }
  /// What stands behind the last line end.
  const std::string& unfinished() const { return unfinished_; }

 private:
  struct Producer {
    std::uint64_t count = 0;
    std::uint64_t next = 0;
  };

  const Producer& of(char producer) const {
    return producers_.at(static_cast<std::size_t>(producer - 'a'));
  }
  void note(const std::string& fault) {
    if (fault_.empty()) fault_ = fault;
  }
  void take(std::string_view line, const std::filesystem::path& path) {
    constexpr std::size_t kNumber = 2;
    constexpr std::size_t kTail = 11;
    std::uint64_t number = 0;
    if (line.size() < kTail || line[0] < 'a' || line[0] > 'z' || line[1] != ' ' ||
        std::from_chars(line.data() + kNumber, line.data() + kTail - 1, number).ptr !=
            line.data() + kTail - 1 ||
        line[kTail - 1] != ' ' || line.substr(kTail) != tailOfLine(number)) {
      return note(fmt::format("torn, in {}: {}", path.string(), line));
    }
    auto& producer = producers_.at(static_cast<std::size_t>(line[0] - 'a'));
    if (number < producer.next) {
      note(fmt::format("behind {}, in {}: {}", producer.next - 1, path.string(), line));
    }
    producer.next = number + 1;
    ++producer.count;
  }

  std::array<Producer, 26> producers_;
  std::string fault_;
  std::string unfinished_;
};

}  // namespace kv::test
