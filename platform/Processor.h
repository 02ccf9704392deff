#pragma once

#include <cstddef>

namespace kv {

/// Lets the processor rest for some 40 ns.
inline void relaxProcessor() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

/// Fetches the line of memory at `address` into this processor's cache, to be written to soon. Does
/// not wait, and never faults.
inline void prefetchForWriting(const void* address) {
#if defined(__x86_64__)
  // The compiler's own prefetch fetches for reading on the oldest processors of the family.
  asm volatile("prefetchw %0" : : "m"(*static_cast<const char*>(address)));
#else
  __builtin_prefetch(address, 1);
#endif
}
inline constexpr std::size_t kCacheLine = 64;

/// Goes on after `rounds` such rests.
inline void pauseBriefly(std::size_t rounds) {
  for (std::size_t round = 0; round < rounds; ++round) relaxProcessor();
}

/// Looks at `condition` again and again for a few microseconds, for what another processor is
/// about to bring about: sleeping and being woken costs more than that. False when it stayed
/// untrue.
template <class Condition>
bool spinUntil(Condition&& condition, std::size_t rounds = 150) {
  for (std::size_t round = 0; round < rounds; ++round) {
    if (condition()) return true;
    relaxProcessor();
  }
  return condition();
}

}  // namespace kv
