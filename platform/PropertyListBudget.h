#pragma once

#include <cstddef>
#include <string>

#include "platform/PropertyList.h"
#include "platform/PropertyListReader.h"

namespace kv {

/// What a reader may still take of the limits on nodes and memory; it asks before it allocates.
///
/// Threads    one at a time.
/// Units      bytes as the heap hands them out, its own overhead included.
/// Errors     a request beyond what is left is refused and takes nothing.
class PropertyListBudget {
 public:
  /// The most that the heap adds to a block: its header and the rounding to 16 bytes.
  static constexpr std::size_t kHeapOverheadBytes = 24;
  /// A value within its container, which is a block of its own.
  static constexpr std::size_t kValueBytes = sizeof(PropertyList) + kHeapOverheadBytes / 2;
  static constexpr std::size_t kKeyBytes = sizeof(std::string);

  explicit PropertyListBudget(const PropertyListLimits& limits)
      : nodes_(limits.nodes), bytes_(limits.memoryBytes) {}

  bool takeNodes(std::size_t count) { return take(nodes_, count); }
  bool takeBytes(std::size_t count) { return take(bytes_, count); }
  void giveBytesBack(std::size_t count) { bytes_ += count; }

  /// The part of a string or of data that lies outside its node.
  static constexpr std::size_t payloadBytes(std::size_t size) {
    return size < kInlineBytes ? 0 : size + kHeapOverheadBytes;
  }

 private:
  /// The shortest string that needs a block of its own, in the library's string.
  static constexpr std::size_t kInlineBytes = 16;

  static bool take(std::size_t& left, std::size_t count) {
    if (count > left) return false;
    left -= count;
    return true;
  }

  std::size_t nodes_;
  std::size_t bytes_;
};

}  // namespace kv
