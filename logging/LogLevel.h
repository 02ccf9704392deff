#pragma once

#include <cstdint>

namespace kv {

/// One bit each: what a message is.
namespace LogFlag {
inline constexpr std::uint64_t kError = 1U << 0;
inline constexpr std::uint64_t kWarning = 1U << 1;
inline constexpr std::uint64_t kInfo = 1U << 2;
inline constexpr std::uint64_t kDebug = 1U << 3;
inline constexpr std::uint64_t kVerbose = 1U << 4;
}  // namespace LogFlag

/// Masks of flags: what is let through. A logger that is registered with a level receives the
/// messages whose flag has a bit in common with it.
namespace LogLevel {
inline constexpr std::uint64_t kOff = 0;
inline constexpr std::uint64_t kError = LogFlag::kError;
inline constexpr std::uint64_t kWarning = kError | LogFlag::kWarning;
inline constexpr std::uint64_t kInfo = kWarning | LogFlag::kInfo;
inline constexpr std::uint64_t kDebug = kInfo | LogFlag::kDebug;
inline constexpr std::uint64_t kVerbose = kDebug | LogFlag::kVerbose;
inline constexpr std::uint64_t kAll = ~std::uint64_t{0};
}  // namespace LogLevel

}  // namespace kv
